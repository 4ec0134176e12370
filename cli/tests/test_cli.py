"""The arbolin command-line tool, driven as a user drives it: by subprocess,
on the bundled data and on small files written here. The binary comes from
$ARBOLIN_CLI; arbolin.calyx (PYTHONPATH=build/python) gives the trees to
compare with."""

import csv
import json
import os
import signal
import subprocess
import time
from pathlib import Path

import numpy as np
import pytest

import arbolin

CLI = os.environ.get("ARBOLIN_CLI", "")
DATA = Path(__file__).resolve().parents[2] / "data"

pytestmark = pytest.mark.skipif(not CLI, reason="ARBOLIN_CLI names no binary")


def run(*args, cwd=None, **kwargs):
    return subprocess.run([CLI, *map(str, args)], capture_output=True, text=True, cwd=cwd,
                          timeout=60, **kwargs)


def fit(tmp_path, data, *options):
    """Grows a tree; returns the model JSON and the printed text."""
    model = tmp_path / "model.json"
    done = run("fit", data, "--output", model, *options)
    assert done.returncode == 0, done.stderr
    return json.loads(model.read_text()), done.stdout


def write_csv(path, header, rows):
    with open(path, "w", newline="") as f:
        w = csv.writer(f)
        w.writerow(header)
        w.writerows(rows)
    return path


# ------------------------------------------------------ model arrays

def host_value(a):
    """A model JSON array as arbolin.calyx returns the host array."""
    if a is None:
        return None
    shape = tuple(a["shape"])
    if a["class"] == "cell":
        return arbolin.Cell(shape, [host_value(e) for e in a["data"]])
    if a["class"] == "char":
        return a["text"]
    dtype = {"double": np.float64, "single": np.float32, "logical": bool}[a["class"]]
    data = [np.nan if v is None else v for v in a["data"]]
    return np.array(data, dtype=dtype).reshape(shape, order="F")


def outputs(model):
    return {name: host_value(a) for name, a in model["outputs"].items()}


def column(model, name):
    return host_value(model["outputs"][name]).ravel()


def read_columns(path):
    with open(path, newline="") as f:
        rows = list(csv.reader(f))
    return rows[0], list(zip(*rows[1:]))


def codes(values):
    """Codes 0..m-1 in sorted label order, by value when all are numbers."""
    try:
        keys = [float(v) for v in values]
    except ValueError:
        keys = list(values)
    order = sorted(set(keys))
    return np.array([order.index(k) for k in keys], dtype=float)


# ------------------------------------------- the tree of arbolin.calyx

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
    inputs = [np.asfortranarray(X, dtype=real), Y.astype(real), np.full(n, 1.0 / n, dtype=real),
              np.arange(n, dtype=float)[None, :], np.array([[h in nominal for h in names]]),
              "gini" if classification else "mse", 1.0, 10.0,
              20.0 if "--max-splits" in options else float(n - 1), float(sample or d),
              float(surrogates), 10.0, 0.0, np.zeros((0, 0), dtype=real), 1e-6, False, False,
              False, arbolin.Stream(seed) if seed is not None else np.zeros((0, 0)), 0.0]
    names22 = list(model["outputs"])
    expected = dict(zip(names22, arbolin.calyx(22, inputs)))
    got = outputs(model)
    for key in names22:
        assert got[key] == expected[key] if isinstance(got[key], arbolin.Cell) else \
            np.array_equal(got[key], expected[key], equal_nan=got[key].dtype.kind == "f"), key
        if isinstance(got[key], np.ndarray):
            assert got[key].dtype == expected[key].dtype, key
    assert model["precision"] == ("single" if single else "double")
    assert [p["name"] for p in model["predictors"]] == names


# ------------------------------------------------ predict on training

def mixed_rows(seed, n=240):
    """Numbers with gaps written every way, a nominal column with quoted
    labels, weights and a response that depends on all of them."""
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
    done = run("predict", tmp_path / "model.json", data)
    assert done.returncode == 0, done.stderr
    out = list(csv.DictReader(done.stdout.splitlines()))
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

    value = column(model, "NodeValue")
    for row in out:
        v = value[int(row["node"]) - 1]
        assert row["prediction"] == (classes[int(v)] if classes else row["prediction"])
        if not classes:
            assert float(row["prediction"]) == pytest.approx(v, rel=1e-6)
    if classes:
        assert list(out[0])[1:-1] == [f"prob_{c}" for c in classes]


def test_a_saved_model_reloads_to_the_same_tree(tmp_path):
    header, rows = mixed_rows(5)
    data = write_csv(tmp_path / "m.csv", header[:5], [r[:5] for r in rows])
    model, printed = fit(tmp_path, data, "--response", "grade", "--surrogates", "1")
    shown = run("show", tmp_path / "model.json")
    assert shown.returncode == 0, shown.stderr
    tree = printed.split(":\n", 1)[1].split("nodes ")[0]
    assert shown.stdout == tree
    assert "colour in {" in tree and "(missing " in tree
    dot = run("show", tmp_path / "model.json", "--format", "dot").stdout
    n = len(column(model, "NodeSize"))
    assert dot.startswith("digraph") and dot.count("->") == n - 1


def test_iris_rules_and_summary(tmp_path):
    model, printed = fit(tmp_path, "iris")
    assert "2) petal_length < 2.45  n=50  setosa  (setosa 1, versicolor 0, virginica 0) *" in printed
    assert "3) petal_length >= 2.45" in printed
    assert "nodes 11, leaves 6, depth 4" in printed and "training accuracy 0.98" in printed
    assert model["options"]["criterion"] == "gini" and model["options"]["max-splits"] == 149
    assert column(model, "NodeProb")[0] == pytest.approx(1.0)


def test_demo_runs_the_main_job(tmp_path):
    done = run("demo", "--output-dir", tmp_path)
    assert done.returncode == 0, done.stderr
    assert "training accuracy" in done.stdout and "training R-squared" in done.stdout
    assert (tmp_path / "iris.model.json").exists() and (tmp_path / "diabetes.dot").exists()


def test_rows_without_a_response_are_left_out(tmp_path):
    header, rows = read_columns(DATA / "iris.csv")
    rows = [list(r) for r in zip(*rows)]
    for r in rows[:3]:
        r[4] = "NA"
    model, printed = fit(tmp_path, write_csv(tmp_path / "i.csv", header, rows))
    assert "Left out 3 of 150 rows" in printed
    assert model["training"]["rows"] == 147


# ------------------------------------------------ surrogates by hand

def array(cls, shape, data):
    return {"class": cls, "shape": shape, "data": data}


def numbers(values):
    return array("double", [1, len(values)], values) if values else array("double", [0, 0], [])


def test_predict_follows_surrogates_of_a_handmade_model(tmp_path):
    # Node 1 splits x < 0.5. A row missing x goes by z, reversed (z < 10
    # goes right); missing z too, by colour ({a} left, {b, c} right).
    # Node 3 splits colour {a} | {b, c}, no surrogates.
    empty_cell = array("cell", [0, 0], [])
    model = {
        "format": "arbolin model", "version": 1, "task": "regression",
        "response": {"name": "y"},
        "predictors": [{"name": "x", "kind": "numeric"}, {"name": "z", "kind": "numeric"},
                       {"name": "colour", "kind": "nominal", "levels": ["a", "b", "c"],
                        "levels_are_numbers": False}],
        "weights": None, "precision": "double",
        "outputs": {
            "Children": array("double", [2, 5], [2, 3, 0, 0, 4, 5, 0, 0, 0, 0]),
            "ClassCount": array("double", [1, 5], [9, 4, 5, 2, 3]),
            "ClassProb": array("double", [1, 5], [1, 1, 1, 1, 1]),
            "CurvatureTests": empty_cell,
            "SplitLevels": array("cell", [5, 2], [None, None, numbers([0]), None, None,
                                                  None, None, numbers([1, 2]), None, None]),
            "CutPoint": array("double", [5, 1], [0.5, None, None, None, None]),
            "CutVar": array("double", [5, 1], [1, 0, 3, 0, 0]),
            "HasUnroutedRows": array("logical", [5, 1], [True, False, True, False, False]),
            "InteractionTests": empty_cell,
            "IsBranch": array("logical", [5, 1], [True, False, True, False, False]),
            "NodeValue": array("double", [5, 1], [0, 10, 20, 30, 40]),
            "NodeProb": array("double", [5, 1], [1, .4, .6, .2, .4]),
            "NodeSize": array("double", [5, 1], [9, 4, 5, 2, 3]),
            "Parent": array("double", [5, 1], [0, 1, 1, 3, 3]),
            "NodeRisk": array("double", [5, 1], [1, 1, 1, 1, 1]),
            "Gain": array("double", [5, 1], [1, 0, 1, 0, 0]),
            "SurrogateLevels": array("cell", [5, 1], [
                array("cell", [1, 2], [{"class": "char", "shape": [0, 0], "text": ""},
                                       array("cell", [1, 2], [numbers([0]), numbers([1, 2])])]),
                *[array("cell", [0, 0], [])] * 4]),
            "SurrogateDirections": array("cell", [5, 1], [numbers([-1, 0]), *[numbers([])] * 4]),
            "SurrogateCutPoints": array("cell", [5, 1], [numbers([10, None]), *[numbers([])] * 4]),
            "SurrogatePredictors": array("cell", [5, 1], [numbers([2, 3]), *[numbers([])] * 4]),
            "SurrogateGains": array("cell", [5, 1], [numbers([1, 1]), *[numbers([])] * 4]),
            "SurrogateAssociations": array("cell", [5, 1], [numbers([.9, .5]), *[numbers([])] * 4]),
        },
    }
    (tmp_path / "hand.json").write_text(json.dumps(model))
    cases = [  # x, z, colour -> node
        ("0.2", "50", "b", 2), ("0.5", "", "", 3), ("0.9", "1", "a", 4), ("0.9", "", "b", 5),
        ("", "3", "a", 4), ("", "12", "c", 2), ("", "10", "", 2),   # 10 is not below 10
        ("", "", "a", 2), ("", "?", "c", 5), ("", "", "", 1), ("", "", "violet", 1),
        ("0.7", "", "violet", 3),
    ]
    data = write_csv(tmp_path / "rows.csv", ["colour", "z", "x"],
                     [[c, z, x] for x, z, c, _ in cases])
    done = run("predict", tmp_path / "hand.json", data)
    assert done.returncode == 0, done.stderr
    assert [int(r["node"]) for r in csv.DictReader(done.stdout.splitlines())] == \
        [node for *_, node in cases]
    assert "2 value(s) of colour" in done.stderr
    shown = run("show", tmp_path / "hand.json").stdout
    assert "(missing x: left if z >= 10; failing that, colour in {a})" in shown
    assert "colour in {b, c}" in shown and "(rows missing colour stop here)" in shown


# ---------------------------------------------------------- bad input

def bad_files(tmp):
    (tmp / "ragged.csv").write_text("a,b,y\n1,2,p\n3,4\n5,6,q\n")
    (tmp / "empty.csv").write_text("")
    (tmp / "quote.csv").write_text('a,b,y\n1,2,p\n3,"4"x,q\n')
    (tmp / "text.csv").write_text("a,y\n1,2\nabc,3\n")
    (tmp / "cost2.csv").write_text("0,1\n1,0\n")
    (tmp / "costneg.csv").write_text("0,1,1\n1,0,-2\n1,1,0\n")
    (tmp / "costlabels.csv").write_text("setosa,versicolor,violet\n0,1,1\n1,0,1\n1,1,0\n")
    (tmp / "weights.csv").write_text("a,w,y\n1,1,p\n2,-1,q\n3,1,p\n")
    # 70 levels, each seen with every class, so that none merge.
    (tmp / "levels.csv").write_text("c,y\n" + "".join(f"L{i % 70},{i % 3}\n" for i in range(300)))
    (tmp / "nopetal.csv").write_text("sepal_length,sepal_width,petal_width\n5,3,1\n")
    (tmp / "textpetal.csv").write_text(
        "sepal_length,sepal_width,petal_length,petal_width\n5,3,1,1\n5,3,long,1\n")
    (tmp / "model.json").write_text('{"format": "arbolin model", "version": 1, "task": "tree"}')
    (tmp / "broken.json").write_text('{"format": ')


IRIS = str(DATA / "iris.csv")
BAD = [
    # arguments, exit status, what the message must say
    (["fit", "ragged.csv"], 1, "ragged.csv, line 3: this row has 2 fields, but the header has 3"),
    (["fit", "empty.csv"], 1, "empty.csv: the file is empty"),
    (["fit", "quote.csv"], 1, "quote.csv, line 3: broken quoting"),
    (["fit", "iris", "--response", "colour"], 2, 'option --response: no column "colour"'),
    (["fit", "iris", "--regression"], 1,
     'iris.csv, line 2, column 5 (species): "setosa" is not a finite number, and --regression'),
    (["fit", "iris", "--cost", "cost2.csv"], 1,
     "cost2.csv: the cost matrix is 2 by 2, but should be 3 by 3 for the classes setosa, "
     "versicolor, virginica"),
    (["fit", "iris", "--cost", "costneg.csv"], 1, "costneg.csv, line 2, column 3: a cost cannot"),
    (["fit", "iris", "--cost", "costlabels.csv"], 1, 'column 3: "violet" is not a class'),
    (["fit", "iris", "--min-leaf", "0"], 2, "option --min-leaf: 0 is below the least allowed"),
    (["fit", "iris", "--predictors-per-node", "5"], 2,
     "option --predictors-per-node: 5 is above the most allowed value, the number of "
     "predictors, 4"),
    (["fit", "iris", "--max-splits", "-1"], 2, "option --max-splits: -1 is below"),
    (["fit", "iris", "--seed", "1.5"], 2, "option --seed: 1.5 is not a whole number"),
    (["fit", "iris", "--criterion", "mse"], 2, 'option --criterion: "mse" is not one of gini'),
    (["fit", "iris", "--classification", "--regression"], 2, "option --regression: cannot"),
    (["fit", "iris", "--cost", "cost2.csv", "--response", "sepal_length"], 2,
     "option --cost: a regression tree takes no costs"),
    (["fit", "weights.csv", "--weights", "w"], 1, "weights.csv, line 3, column 2 (w): the weight"),
    (["fit", "text.csv", "--nominal", "z"], 2, 'option --nominal: no column "z"'),
    (["fit", "iris", "--frobnicate"], 2, "--frobnicate"),
    (["fit", "nosuch"], 1, "no file nosuch, and no bundled data set of that name"),
    (["fit", "levels.csv", "--classification", "--nominal-method", "exact"], 2,
     "option --nominal-method: exact enumeration of c (70 levels, 3 classes) tries"),
    (["fit", "levels.csv", "--classification", "--nominal-method", "exact",
      "--allow-long-search"], 3,
     "the module raised tallix:silvan:learning:treeutils:ClassificationNominalSplitFinder:"
     "exact:TooManyLevels: Exact search"),
    (["predict", "iris.json", "nopetal.csv"], 1,
     'nopetal.csv has no column "petal_length", which the model uses'),
    (["predict", "iris.json", "textpetal.csv"], 1,
     'textpetal.csv, line 3, column 3 (petal_length): "long" is not a number'),
    (["show", "model.json"], 1, "model.json: the entry task should be"),
    (["show", "tampered.json"], 1,
     "tampered.json: output Children gives node 1 children that do not exist"),
    (["show", "broken.json"], 1, "broken.json: not valid JSON: parse error at line 1"),
]


@pytest.mark.parametrize("args, status, message", BAD, ids=[" ".join(b[0][:4]) for b in BAD])
def test_bad_input_gets_a_clear_message(tmp_path, args, status, message):
    bad_files(tmp_path)
    if args[1] in ("iris.json", "tampered.json"):
        assert run("fit", "iris", "--output", "iris.json", cwd=tmp_path).returncode == 0
        model = json.loads((tmp_path / "iris.json").read_text())
        model["outputs"]["Children"]["data"][0] = 99
        (tmp_path / "tampered.json").write_text(json.dumps(model))
    done = run(*args, cwd=tmp_path)
    assert done.returncode == status, done.stderr
    assert message in done.stderr
    assert "Traceback" not in done.stderr and "terminate" not in done.stderr


def test_module_errors_and_missing_module_show_their_identifier(tmp_path):
    env = dict(os.environ, ARBOLIN_MODULE=str(tmp_path / "none.so"))
    done = run("fit", "iris", "--output", tmp_path / "m.json", env=env)
    assert done.returncode == 3 and "numora:module:" in done.stderr


def test_ctrl_c_stops_a_long_fit(tmp_path):
    rng = np.random.default_rng(0)
    X = rng.random((200000, 6))
    y = np.sin(6 * X[:, 0]) + X[:, 1] * X[:, 2] + 0.3 * rng.standard_normal(len(X))
    np.savetxt(tmp_path / "big.csv", np.column_stack([X, y]), delimiter=",", fmt="%.5f",
               header="a,b,c,d,e,f,y", comments="")
    with open(tmp_path / "out.txt", "w") as printed:
        proc = subprocess.Popen([CLI, "fit", "big.csv", "--verbose", "1"], cwd=tmp_path,
                                stdout=printed, stderr=subprocess.PIPE, text=True)
        deadline = time.monotonic() + 30
        while "Splitting node" not in (tmp_path / "out.txt").read_text():  # in the module
            assert proc.poll() is None and time.monotonic() < deadline
            time.sleep(0.05)
        proc.send_signal(signal.SIGINT)
        sent = time.monotonic()
        assert proc.wait(timeout=10) == 130
        assert time.monotonic() - sent < 3
        assert "interrupted" in proc.stderr.read()
    assert not (tmp_path / "big.model.json").exists()
