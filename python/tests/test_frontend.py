"""`arbolin fit` and arbolin.fit share one front end: the same CSV gives the
same outputs and predictions, and each reads the other's model file."""

import csv
import json
import os
import subprocess
from pathlib import Path

import numpy as np
import pytest

import arbolin
from conftest import assert_same

CLI = os.environ.get("ARBOLIN_CLI", "")
DATA = Path(__file__).resolve().parents[2] / "data"

pytestmark = pytest.mark.skipif(not CLI, reason="ARBOLIN_CLI names no binary")

MISSING = {"", "NA", "NaN", "?"}


def run(*args):
    done = subprocess.run([CLI, *map(str, args)], capture_output=True, text=True, timeout=60)
    assert done.returncode == 0, done.stderr
    return done.stdout


def read_csv(path):
    """Columns as a data frame reader gives them: float64 (NaN missing), else text."""
    with open(path, newline="") as f:
        header, *rows = list(csv.reader(f))
    columns = {}
    for j, name in enumerate(header):
        values = [None if row[j] in MISSING else row[j] for row in rows]
        try:
            columns[name] = np.array([np.nan if v is None else float(v) for v in values])
        except ValueError:
            columns[name] = values
    return columns


@pytest.fixture(scope="module")
def mixed(tmp_path_factory):
    """Text and numeric predictors with missing values in both."""
    rng = np.random.default_rng(7)
    path = tmp_path_factory.mktemp("data") / "mixed.csv"
    with open(path, "w", newline="") as f:
        w = csv.writer(f)
        w.writerow(["colour", "size", "weight", "label"])
        for i in range(80):
            colour = ["red", "green", "blue", "NA"][rng.integers(4)]
            size = "" if i % 9 == 0 else f"{rng.normal(5, 2):.3f}"
            weight = f"{rng.integers(1, 40)}"
            label = "yes" if (colour == "red") != (size != "" and float(size) > 5) else "no"
            w.writerow([colour, size, weight, label])
    return path


# A cost file whose header orders the classes its own way, and the same
# costs as an array in class order (setosa, versicolor, virginica).
COST_FILE = "virginica,setosa,versicolor\n0,1,4\n1,0,1\n2,1,0\n"
COSTS = np.array([[0, 1, 1], [1, 0, 2], [1, 4, 0]])


CASES = {
    "iris": ("iris.csv", "species", [], {}),
    "iris-deviance": ("iris.csv", "species",
                      ["--criterion", "deviance", "--surrogates", "2", "--max-splits", "8"],
                      dict(criterion="deviance", surrogates=2, max_splits=8)),
    "diabetes": ("diabetes.csv", "progression",
                 ["--nominal", "sex", "--surrogates", "2", "--max-splits", "10", "--min-leaf", "5"],
                 dict(nominal=["sex"], surrogates=2, max_splits=10, min_leaf=5)),
    "classes-of-numbers": ("diabetes.csv", "sex",
                           ["--classification", "--max-splits", "6", "--seed", "3",
                            "--predictors-per-node", "4"],
                           dict(classification=True, max_splits=6, seed=3,
                                predictors_per_node=4)),
    "weights-single": ("diabetes.csv", "progression",
                       ["--weights", "age", "--single", "--max-splits", "5"],
                       dict(weights="age", single=True, max_splits=5)),
    "mixed": (None, "label", ["--surrogates", "1", "--curvature"],
              dict(surrogates=1, curvature=True)),
    # The file for the command line; for Python the file, or the array.
    "costs-file": ("iris.csv", "species", ["--cost", "COST"], dict(cost="COST")),
    "costs-array": ("iris.csv", "species", ["--cost", "COST"], dict(cost=COSTS)),
}


@pytest.mark.parametrize("case", CASES)
def test_cli_and_python_grow_the_same_tree(case, tmp_path, mixed):
    data, response, flags, options = CASES[case]
    path = DATA / data if data else mixed
    (tmp_path / "cost.csv").write_text(COST_FILE)
    flags = [tmp_path / "cost.csv" if flag == "COST" else flag for flag in flags]
    options = {k: tmp_path / "cost.csv" if str(v) == "COST" else v for k, v in options.items()}
    cli_model, py_model, columns = tmp_path / "cli.json", tmp_path / "py.json", read_csv(path)
    run("fit", path, "--response", response, "--output", cli_model, *flags)
    model = arbolin.fit(columns, response, **options)
    model.save(py_model)
    cli_json, py_json = json.loads(cli_model.read_text()), json.loads(py_model.read_text())
    assert list(py_json["outputs"]) == list(arbolin.OUTPUT_NAMES)
    for key in ("outputs", "task", "response", "predictors", "weights", "precision"):
        assert py_json[key] == cli_json[key], key

    # The CLI's predictions with its own model and with Python's, and Python's.
    for saved in (cli_model, py_model):
        out = list(csv.DictReader(run("predict", saved, path).splitlines()))
        expected = model.predict(columns)
        if model.classes is None:
            # Single-precision values are printed as the floats they are.
            kind = np.float32 if py_json["precision"] == "single" else np.float64
            assert list(np.array([r["prediction"] for r in out], dtype=kind)) == list(
                expected.astype(kind))
        else:
            assert [r["prediction"] for r in out] == list(expected)
            assert [[float(r["prob_" + c]) for c in model.classes] for r in out] == \
                model.predict_proba(columns).tolist()
        assert [int(r["node"]) - 1 for r in out] == list(model.apply(columns))
    assert run("show", py_model) == run("show", cli_model)

    # Python reads the CLI's model file as its own; outputs as calyx gives them.
    loaded = arbolin.Model.load(cli_model)
    assert list(loaded.predict(columns)) == list(model.predict(columns))
    assert isinstance(model.outputs["SplitLevels"], arbolin.Cell)
    for name, value in loaded.outputs.items():
        assert_same(value, model.outputs[name], name)


@pytest.mark.parametrize("flag, keyword, value", [
    ("--max-splits", "max_splits", -1),
    ("--criterion", "criterion", "mse"),
    ("--surrogates", "surrogates", 9),
    ("--nominal", "nominal", "nope"),
])
def test_a_bad_option_is_named_as_the_cli_names_it(flag, keyword, value, tmp_path):
    done = subprocess.run([CLI, "fit", DATA / "iris.csv", flag, str(value), "--output",
                           tmp_path / "m.json"], capture_output=True, text=True, timeout=60)
    assert done.returncode == 2
    cli_text = done.stderr.strip().removeprefix("arbolin: ")
    with pytest.raises(ValueError) as error:
        arbolin.fit(read_csv(DATA / "iris.csv"), **{keyword: value})
    # The same words, the option's spelling and the table's name aside.
    assert str(error.value).startswith(f"option {keyword}: ")
    assert str(error.value) == cli_text.replace(flag, keyword).replace(
        str(DATA / "iris.csv"), "the data")


def test_options_of_the_wrong_type_or_unknown_raise_type_error():
    columns = read_csv(DATA / "iris.csv")
    with pytest.raises(TypeError, match="option max_splits: takes a number, not str"):
        arbolin.fit(columns, max_splits="3")
    with pytest.raises(TypeError, match="option curvature: takes True or False"):
        arbolin.fit(columns, curvature=1)
    with pytest.raises(TypeError, match="fit\\(\\) has no option 'output'"):
        arbolin.fit(columns, output="x.json")


def test_a_data_frame_grows_the_tree_of_its_columns(mixed):
    """A categorical of numbers is nominal like text; pandas.NA is missing."""
    pd = pytest.importorskip("pandas")
    columns = read_csv(mixed)
    weight = columns["weight"].astype(int)
    as_text = dict(columns, weight=[str(v) for v in weight])
    frame = pd.DataFrame(columns).assign(
        weight=pd.Categorical(weight),
        colour=pd.array(columns["colour"], dtype="string"))
    want = arbolin.fit(as_text, "label", max_splits=6)
    got = arbolin.fit(frame, "label", max_splits=6)
    assert_same(got.outputs, want.outputs)
