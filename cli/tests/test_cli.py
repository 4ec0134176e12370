"""The arbolin tool driven as a user drives it, on the bundled data and small
files written here, against the trees of arbolin.calyx and trees by hand."""

import csv
import json
import os

import numpy as np
import pytest

import arbolin
from conftest import (CLI, DATA, column, fit, host_value, interrupted, predict, predictions,
                      read_columns, run, write_csv)


def codes(values):
    """Codes 0..m-1 in sorted label order, by value when all are numbers."""
    try:
        keys = [float(v) for v in values]
    except ValueError:
        keys = list(values)
    order = sorted(set(keys))
    return np.array([order.index(k) for k in keys], dtype=float)


@pytest.mark.parametrize("name, options, response, nominal, single, seed, sample", [
    ("iris", [], "species", [], False, None, None),
    ("iris", ["--single", "--seed", "7", "--predictors-per-node", "2"], "species", [], True, 7, 2),
    ("diabetes", ["--nominal", "sex", "--surrogates", "2", "--max-splits", "20"],
     "progression", ["sex"], False, None, None),
])
def test_bundled_tree_equals_the_calyx_tree(tmp_path, name, options, response, nominal, single,
                                            seed, sample):
    model, _ = fit(tmp_path, name, "--response", response, *options)
    header, cols = read_columns(DATA / f"{name}.csv")
    names = [h for h in header if h != response]
    n, d = len(cols[0]), len(names)
    X = np.column_stack([codes(cols[header.index(h)]) if h in nominal
                         else np.array(cols[header.index(h)], dtype=float) for h in names])
    y = cols[header.index(response)]
    classification = name == "iris"
    Y = codes(y) if classification else np.array(y, dtype=float)
    real = np.float32 if single else np.float64
    surrogates = 2 if "--surrogates" in options else 0
    inputs = dict(
        X=np.asfortranarray(X, dtype=real), Y=Y.astype(real), W=np.full(n, 1.0 / n, dtype=real),
        Rows=np.arange(n, dtype=float)[None, :], IsCat=np.array([[h in nominal for h in names]]),
        CriterionArg="gini" if classification else "mse", MinLeaf=1.0, MinParent=10.0,
        MaxSplits=20.0 if "--max-splits" in options else float(n - 1),
        SampleSize=float(sample or d), SurrogateCount=float(surrogates), MaxCat=10.0,
        AlgCat=0.0, CostArg=np.zeros((0, 0), dtype=real), RiskTolerance=1e-6,
        CurvatureFlag=False, InteractionFlag=False, ChisqFlag=False,
        StreamArg=arbolin.Stream(seed) if seed is not None else np.zeros((0, 0)), Verbosity=0.0)
    expected = arbolin.calyx(22, [inputs[k] for k in arbolin.INPUT_NAMES])
    assert list(model["outputs"]) == list(arbolin.OUTPUT_NAMES)
    for key, want in zip(arbolin.OUTPUT_NAMES, expected):  # a Cell compares class and NaN too
        got = host_value(model["outputs"][key])
        assert arbolin.Cell((1, 1), [got]) == arbolin.Cell((1, 1), [want]), key
    assert model["precision"] == ("single" if single else "double")
    assert [p["name"] for p in model["predictors"]] == names


def mixed_rows(seed, n=240):
    """Gaps written every way, quoted labels, weights, and a response of all."""
    rng = np.random.default_rng(seed)
    a, b = rng.normal(size=n), rng.uniform(0, 10, n)
    colour = rng.choice(["red", "blue", "green, dark", 'say "grey"'], n)
    score = a + (b > 5) + (colour == "red") * 1.5 + 0.3 * rng.normal(size=n)
    rows = []
    for i in range(n):
        gap = ["", "NA", "NaN", "?"][i % 4]
        rows.append([gap if rng.random() < 0.12 else f"{a[i]:.4f}",
                     gap if rng.random() < 0.12 else f"{b[i]:.3f}",
                     "" if rng.random() < 0.1 else colour[i],
                     f"{rng.uniform(0.5, 2):.3f}",
                     "lo" if score[i] < 0.6 else ("mid" if score[i] < 2 else "hi"),
                     f"{score[i]:.5f}"])
    return ["a", "b", "colour", "w", "grade", "score"], rows


@pytest.mark.parametrize("options", [
    ["--response", "grade", "--weights", "w"],
    ["--response", "grade", "--surrogates", "2", "--min-parent", "4"],
    ["--response", "score", "--surrogates", "1", "--weights", "w", "--single"],
])
def test_predict_on_the_training_file_retraces_the_tree(tmp_path, options):
    header, rows = mixed_rows(3)
    data = write_csv(tmp_path / "mixed.csv", header, rows)
    response = options[1]
    drop = ["score" if response == "grade" else "grade"]
    trimmed = write_csv(tmp_path / "train.csv", [h for h in header if h not in drop],
                        [[v for h, v in zip(header, r) if h not in drop] for r in rows])
    model, _ = fit(tmp_path, trimmed, *options)
    out = predictions(predict(tmp_path / "model.json", data))
    assert len(out) == len(rows)

    # Every node holds exactly the rows that pass through it: as many, of
    # the same weight, and in classification of the same classes.
    parent = column(model, "Parent").astype(int)
    classes = model["response"].get("classes")
    counts = host_value(model["outputs"]["ClassCount"])
    size, weight = np.zeros(len(parent)), np.zeros(len(parent))
    seen = np.zeros(counts.shape)
    w = np.array([float(r[header.index("w")]) for r in rows])
    w = w / w.sum() if "--weights" in options else np.full(len(rows), 1 / len(rows))
    for row, raw, wi in zip(out, rows, w):
        node = int(row["node"])
        while node:
            size[node - 1] += 1
            weight[node - 1] += wi
            if classes:
                seen[classes.index(raw[header.index("grade")]), node - 1] += 1
            node = parent[node - 1]
    np.testing.assert_array_equal(size, column(model, "NodeSize"))
    np.testing.assert_allclose(weight, column(model, "NodeProb"), rtol=1e-5)
    if classes:
        np.testing.assert_array_equal(seen, counts)

    for row in out:
        v = column(model, "NodeValue")[int(row["node"]) - 1]
        assert (row["prediction"] == classes[int(v)] if classes
                else float(row["prediction"]) == pytest.approx(v, rel=1e-6))
    if classes:
        assert list(out[0])[1:-1] == [f"prob_{c}" for c in classes]


def test_a_saved_model_reloads_to_the_same_tree(tmp_path):
    header, rows = mixed_rows(5)
    data = write_csv(tmp_path / "m.csv", header[:5], [r[:5] for r in rows])
    model, done = fit(tmp_path, data, "--response", "grade", "--surrogates", "1")
    tree = done.stdout.split(":\n", 1)[1].split("nodes ")[0]
    assert run("show", tmp_path / "model.json", status=0).stdout == tree
    assert "colour in {" in tree and "(missing " in tree
    dot = run("show", tmp_path / "model.json", "--format", "dot").stdout
    assert dot.startswith("digraph") and dot.count("->") == len(column(model, "NodeSize")) - 1


def test_iris_rules_and_summary(tmp_path):
    model, done = fit(tmp_path, "iris")
    printed = done.stdout
    assert "2) petal_length < 2.45  n=50  setosa  (setosa 1, versicolor 0, virginica 0) *" \
        in printed
    assert "3) petal_length >= 2.45" in printed
    assert "nodes 11, leaves 6, depth 4" in printed and "training accuracy 0.98" in printed
    assert model["options"]["criterion"] == "gini" and model["options"]["max-splits"] == 149
    assert column(model, "NodeProb")[0] == pytest.approx(1.0)


def test_demo_runs_the_main_job(tmp_path):
    done = run("demo", "--output-dir", tmp_path, status=0)
    assert "training accuracy" in done.stdout and "training R-squared" in done.stdout
    assert (tmp_path / "iris.model.json").exists() and (tmp_path / "diabetes.dot").exists()


def array(cls, shape, data):
    return {"class": cls, "shape": shape, "data": data}


def numbers(*values):
    return array("double", [1 if values else 0, len(values)], list(values))


def test_predict_follows_surrogates_of_a_handmade_model(tmp_path):
    # Node 1 splits x < 0.5. A row missing x goes by z, reversed (z < 10
    # goes right); missing z too, by colour ({a} left, {b, c} right).
    # Node 3 splits colour {a} | {b, c}, no surrogates.
    nodes = lambda cls, *data: array(cls, [5, 1], list(data))
    root_only = lambda first, rest: array("cell", [5, 1], [first, *[rest] * 4])
    outputs = {
        "Children": array("double", [2, 5], [2, 3, 0, 0, 4, 5, 0, 0, 0, 0]),
        "ClassCount": array("double", [1, 5], [9, 4, 5, 2, 3]),
        "ClassProb": array("double", [1, 5], [1] * 5),
        **{k: array("cell", [0, 0], []) for k in ("CurvatureTests", "InteractionTests")},
        "SplitLevels": array("cell", [5, 2], [None, None, numbers(0), None, None,
                                              None, None, numbers(1, 2), None, None]),
        "CutPoint": nodes("double", 0.5, None, None, None, None),
        "CutVar": nodes("double", 1, 0, 3, 0, 0), "Gain": nodes("double", 1, 0, 1, 0, 0),
        **{k: nodes("logical", True, False, True, False, False)
           for k in ("HasUnroutedRows", "IsBranch")},
        "NodeValue": nodes("double", 0, 10, 20, 30, 40),
        "NodeProb": nodes("double", 1, .4, .6, .2, .4), "NodeSize": nodes("double", 9, 4, 5, 2, 3),
        "Parent": nodes("double", 0, 1, 1, 3, 3), "NodeRisk": nodes("double", 1, 1, 1, 1, 1),
        "SurrogateLevels": root_only(array("cell", [1, 2], [
            {"class": "char", "shape": [0, 0], "text": ""},
            array("cell", [1, 2], [numbers(0), numbers(1, 2)])]), array("cell", [0, 0], [])),
        "SurrogateDirections": root_only(numbers(-1, 0), numbers()),
        "SurrogateCutPoints": root_only(numbers(10, None), numbers()),
        "SurrogatePredictors": root_only(numbers(2, 3), numbers()),
        "SurrogateGains": root_only(numbers(1, 1), numbers()),
        "SurrogateAssociations": root_only(numbers(.9, .5), numbers()),
    }
    model = {"format": "arbolin model", "version": 1, "task": "regression",
             "response": {"name": "y"}, "weights": None, "precision": "double",
             "predictors": [{"name": "x", "kind": "numeric"}, {"name": "z", "kind": "numeric"},
                            {"name": "colour", "kind": "nominal", "levels": ["a", "b", "c"],
                             "levels_are_numbers": False}],
             "outputs": outputs}
    (tmp_path / "hand.json").write_text(json.dumps(model))
    cases = [  # x, z, colour -> node
        ("0.2", "50", "b", 2), ("0.5", "", "", 3), ("0.9", "1", "a", 4), ("0.9", "", "b", 5),
        ("", "3", "a", 4), ("", "12", "c", 2), ("", "10", "", 2),   # 10 is not below 10
        ("", "", "a", 2), ("", "?", "c", 5), ("", "", "", 1), ("", "", "violet", 1),
        ("0.7", "", "violet", 3),
    ]
    data = write_csv(tmp_path / "rows.csv", ["colour", "z", "x"],
                     [[c, z, x] for x, z, c, _ in cases])
    done = run("predict", tmp_path / "hand.json", data, status=0)
    assert [int(r["node"]) for r in csv.DictReader(done.stdout.splitlines())] == \
        [node for *_, node in cases]
    assert "2 value(s) of colour" in done.stderr
    shown = run("show", tmp_path / "hand.json").stdout
    assert "(missing x: left if z >= 10; failing that, colour in {a})" in shown
    assert "colour in {b, c}" in shown and "(rows missing colour stop here)" in shown


def many_levels(path, levels=40, rows=400):
    """A nominal predictor of `levels` levels and three classes."""
    rng = np.random.default_rng(3)
    codes = rng.integers(0, levels, rows)
    return write_csv(path, ["state", "x", "y"], [[f"s{c:02d}", f"{rng.random():.4f}",
                                                  "abc"[(c + i % 2) % 3]]
                                                 for i, c in enumerate(codes)])


def test_searches_that_finish_are_not_refused(tmp_path):
    small = many_levels(tmp_path / "small.csv", levels=12, rows=120)
    large = many_levels(tmp_path / "large.csv", levels=40)
    for data, options in ((small, ["--nominal-method", "exact"]),
                          (large, ["--nominal-method", "pca"]),
                          (large, ["--max-cat", "40", "--nominal-method", "ova"])):
        fit(tmp_path, data, "--quiet", "--max-splits", "1", *options)


def big_fit(tmp_path):
    rng = np.random.default_rng(0)
    X = rng.random((200000, 6))
    y = np.sin(6 * X[:, 0]) + X[:, 1] * X[:, 2] + 0.3 * rng.standard_normal(len(X))
    np.savetxt(tmp_path / "big.csv", np.column_stack([X, y]), delimiter=",", fmt="%.5f",
               header="a,b,c,d,e,f,y", comments="")
    return ["fit", "big.csv"], 0.0, 3.0


def insisted_exact_search(tmp_path):
    many_levels(tmp_path / "big.csv")
    # Well inside the root's 2^39 masks: one enumeration, checked within a second.
    return ["fit", "big.csv", "--nominal-method", "exact", "--allow-long-search"], 0.3, 1.0


@pytest.mark.parametrize("case", [big_fit, insisted_exact_search])
def test_ctrl_c_stops_a_fit(tmp_path, case):
    args, wait, within = case(tmp_path)
    status, took, errors = interrupted(args, tmp_path, wait)
    assert status == 130 and took < within and "interrupted" in errors
    assert not (tmp_path / "big.model.json").exists()


def test_a_missing_module_shows_its_identifier(tmp_path):
    # The front end finds the module by $ARBOLIN_MODULE for Python too.
    env = dict(os.environ, ARBOLIN_MODULE=str(tmp_path / "none.so"))
    done = run("fit", "iris", "--output", tmp_path / "m.json", env=env, status=3)
    assert "numora:module:cannotOpen" in done.stderr and str(tmp_path / "none.so") in done.stderr
