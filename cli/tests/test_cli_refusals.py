"""Every way the tool refuses an input, with its exit status and the words of
its message; the fixture writes all the files once, in one folder."""

import json

import pytest

from conftest import fit, run

# 70 and 40 levels, each seen with every class, so that none merge.
LEVELS = "c,y\n" + "".join(f"L{i % 70},{i % 3}\n" for i in range(300))
LEVELS_40 = "c,y\n" + "".join(f"L{i % 40},{i % 3}\n" for i in range(120))
CARS = "car,wt,cyl,mpg\n" + "".join(f"car {i},{2 + i * 0.13:.2f},{'468'[i * 5 % 3]},"
                                    f"{30 - i * 0.6:.1f}\n" for i in range(12))
FILES = {
    "ragged.csv": "a,b,y\n1,2,p\n3,4\n5,6,q\n", "empty.csv": "",
    "quote.csv": 'a,b,y\n1,2,p\n3,"4"x,q\n', "weights.csv": "a,w,y\n1,1,p\n2,-1,q\n3,1,p\n",
    "levels.csv": LEVELS, "levels40.csv": LEVELS_40, "cars.csv": CARS,
    "nopetal.csv": "sepal_length,sepal_width,petal_width\n5,3,1\n",
    "textpetal.csv": "sepal_length,sepal_width,petal_length,petal_width\n5,3,1,1\n5,3,long,1\n",
    "utf16.csv": "a,y\n1,p\n".encode("utf-16"),
    "task.json": '{"format": "arbolin model", "version": 1, "task": "tree"}',
    "empty.json": "", "binary.json": bytes(range(256)),
    "deep.json": "[" * 100000 + "]" * 100000,
}
BAD_UTF8 = [  # the file's text, where the message places the byte
    (b'a,y\n1,p\n"two\nlines, then \xe8",q\n', "line 4, column 1 (a): byte 0xE8"),
    (b"a,y\n1,p\n2,\xed\xa0\x80\n", "line 3, column 2 (y): byte 0xED"),   # a surrogate
    (b"a,y\n1,p\n2,\xc0\xaf\n", "line 3, column 2 (y): byte 0xC0"),       # overlong
]
COSTS = [  # cost files for iris
    ("0,1\n1,0\n", "the cost matrix is 2 by 2, but should be 3 by 3 for the classes setosa, "
     "versicolor, virginica"),
    ("NaN,1,1\n1,0,1\n1,1,0\n", 'line 1, column 1: "NaN" is not a finite number'),
    (",1,1\n1,0,1\n1,1,0\n", "line 1, column 1: the cost is blank"),
    ("0,1,1\n1,0,-2\n1,1,0\n", "line 2, column 3: a cost cannot be negative"),
    ("0,1,1\n1,2,1\n1,1,0\n",
     "line 2, column 2: a right prediction costs nothing: the diagonal must be 0, not 2"),
    ("virginica,setosa,versicolor\n0,1,1\n1,0,1\n1,1,2\n",
     "line 4, column 3 (versicolor): a right prediction costs nothing"),
    ("setosa,violet,virginica\n0,1,1\n1,0,1\n1,1,0\n", 'column 2: "violet" is not a class'),
    ("0,1,1\n1,0,1e39\n1,1,0\n", "line 2, column 3: 1e39 is beyond the range of single precision"),
]
# Iris: node 1 splits into 2 (a leaf) and 3; 3 into 4 and 5.
TAMPERED = [  # (output, index, value) changes
    ([("Children", 2, 4), ("Children", 3, 5), ("IsBranch", 1, True)],
     "output Children gives node 4 two parents, nodes 2 and 3"),
    ([("Parent", 2, 2)], "output Parent and Children disagree on the parent of node 3"),
    ([("IsBranch", 1, True)],
     "output IsBranch and Children disagree on whether node 2 is a branch"),
    ([("CutPoint", 0, None)],
     "output CutPoint gives branch node 1 no cut on the numeric petal_length"),
    ([("Children", 0, 2), ("Children", 1, 2)],
     "output Children gives node 1 children that do not exist"),
]
MODEL_COSTS = [
    ([[0, 1], [1, 0]], "response.cost_matrix should be 3 rows of 3 costs"),
    ([[0, 1, 1], [1, 0, 1], [1, -1, 0]], "response.cost_matrix holds -1, not a finite cost"),
]


@pytest.fixture(scope="module")
def folder(tmp_path_factory):
    d = tmp_path_factory.mktemp("refusals")
    (d / "folder").mkdir()
    for name, text in FILES.items():
        (d / name).write_bytes(text if isinstance(text, bytes) else text.encode())
    for i, (text, _) in enumerate(BAD_UTF8):
        (d / f"utf8-{i}.csv").write_bytes(text)
    for i, (text, _) in enumerate(COSTS):
        (d / f"cost{i}.csv").write_text(text)
    model, _ = fit(d, "iris", model="iris.json")
    assert model["outputs"]["Children"]["data"][:6] == [2, 3, 0, 0, 4, 5]
    for i, (changes, _) in enumerate(TAMPERED):
        bad = json.loads(json.dumps(model))
        for name, index, value in changes:
            bad["outputs"][name]["data"][index] = value
        (d / f"tampered{i}.json").write_text(json.dumps(bad))
    for i, (costs, _) in enumerate(MODEL_COSTS):
        (d / f"costs{i}.json").write_text(json.dumps(dict(
            model, response=dict(model["response"], cost_matrix=costs))))
    return d


REFUSALS = [  # arguments, exit status, what the message says (or the parts of it)
    (["fit", "ragged.csv"], 1, "ragged.csv, line 3: this row has 2 fields, but the header has 3"),
    (["fit", "empty.csv"], 1, "empty.csv: the file is empty"),
    (["fit", "quote.csv"], 1, "quote.csv, line 3: broken quoting"),
    (["fit", "iris", "--response", "colour"], 2, 'option --response: no column "colour"'),
    (["fit", "iris", "--regression"], 1,
     'iris.csv, line 2, column 5 (species): "setosa" is not a finite number, and --regression'),
    (["fit", "iris", "--min-leaf", "0"], 2, "option --min-leaf: 0 is below the least allowed"),
    (["fit", "iris", "--predictors-per-node", "5"], 2,
     "option --predictors-per-node: 5 is above the most allowed value, the number of "
     "predictors, 4"),
    (["fit", "iris", "--seed", "1.5"], 2, "option --seed: 1.5 is not a whole number"),
    (["fit", "iris", "--classification", "--regression"], 2, "option --regression: cannot"),
    (["fit", "iris", "--cost", "cost0.csv", "--response", "sepal_length"], 2,
     "option --cost: a regression tree takes no costs"),
    (["fit", "weights.csv", "--weights", "w"], 1, "weights.csv, line 3, column 2 (w): the weight"),
    (["fit", "iris", "--frobnicate"], 2, "--frobnicate"),
    (["fit", "nosuch"], 1, "no file nosuch, and no bundled data set of that name"),
    # A search too long to finish, chosen by the method or by MaxCat.
    (["fit", "levels.csv", "--classification", "--nominal-method", "exact"], 2,
     ("option --nominal-method: exact enumeration of c (70 levels, 3 classes) tries",
      "--allow-long-search to run it anyway")),
    (["fit", "levels40.csv", "--classification", "--max-cat", "40"], 2,
     "option --max-cat: exact enumeration of c (40 levels, 3 classes) tries 5.498e+11 partitions"),
    (["fit", "levels.csv", "--classification", "--nominal-method", "exact",
      "--allow-long-search"], 3,
     "the module raised tallix:silvan:learning:treeutils:ClassificationNominalSplitFinder:"
     "exact:TooManyLevels: Exact search"),
    (["fit", "iris", "--output", "folder"], 2, "option --output: folder is a folder"),
    (["predict", "iris.json", "nopetal.csv"], 1,
     'nopetal.csv has no column "petal_length", which the model uses'),
    (["predict", "iris.json", "textpetal.csv"], 1,
     'textpetal.csv, line 3, column 3 (petal_length): "long" is not a number'),
    (["fit", "utf16.csv"], 1, "utf16.csv: the file is UTF-16"),
    *[(["fit", f"utf8-{i}.csv"], 1, f"utf8-{i}.csv, {place} is not valid UTF-8")
      for i, (_, place) in enumerate(BAD_UTF8)],
    *[(["fit", "iris", "--cost", f"cost{i}.csv", "--single"], 1, (f"arbolin: cost{i}.csv", message))
      for i, (_, message) in enumerate(COSTS)],
    # Column options that contradict each other.
    (["fit", "cars.csv", "--ignore", "mpg"], 2,
     "option --ignore: mpg is the response (the last column)"),
    (["fit", "cars.csv", "--ignore", "wt", "--weights", "wt"], 2,
     "option --ignore: wt is the weights column"),
    (["fit", "cars.csv", "--ignore", "wt", "--nominal", "wt"], 2,
     "option --nominal: wt is ignored (--ignore)"),
    (["fit", "cars.csv", "--numeric", "wt", "--nominal", "wt"], 2,
     "option --numeric: wt is given to --nominal too"),
    (["fit", "cars.csv", "--numeric", "mpg"], 2,
     "option --numeric: mpg is the response; --regression makes it"),
    (["fit", "cars.csv", "--ignore", "car,wt,cyl"], 1,
     "no predictor columns besides the response once the ignored"),
    # Folders for files, and reading options of no such choice.
    *[(args, 1, "arbolin: folder is a folder, not a CSV file")
      for args in (["fit", "folder"], ["predict", "iris.json", "folder"],
                   ["fit", "iris", "--cost", "folder"])],
    *[(command + option, 2, message)
      for command in (["fit", "iris"], ["predict", "iris.json", "iris"])
      for option, message in ((["--delimiter", ":"],
                               'option --delimiter: ":" is not one of ",", ";", tab, "|"'),
                              (["--encoding", "cp1252"],
                               'option --encoding: "cp1252" is not one of utf-8, latin1'))],
    # Model files, to show and to predict with.
    *[([command, model] + (["iris"] if command == "predict" else []), 1, message)
      for command in ("show", "predict")
      for model, message in [
          ("folder", "folder is a folder, not a model file"),
          ("empty.json", "empty.json is empty, not a model file"),
          ("nosuch.json", "no model file nosuch.json"),
          ("binary.json", "binary.json: not valid JSON: parse error at line 1, column 1"),
          ("deep.json", "deep.json: not an arbolin model (it nests too deeply)"),
          ("task.json", "task.json: the entry task should be"),
          *[(f"tampered{i}.json", f"tampered{i}.json: {m}") for i, (_, m) in enumerate(TAMPERED)],
          *[(f"costs{i}.json", m) for i, (_, m) in enumerate(MODEL_COSTS)]]],
    # Commands.
    (["frobnicate"], 2, "'frobnicate' is not a command; the commands are fit, show, prune, predict"),
    ([], 2, "no command given; the commands are fit, show, prune, predict, demo."),
    (["--frobnicate"], 2, "'--frobnicate' is not an option of arbolin; the commands are fit, show, prune"),
]


@pytest.mark.parametrize("args, status, message", REFUSALS,
                         ids=[" ".join(str(a) for a in r[0][:4])[-40:] for r in REFUSALS])
def test_refusal_gets_its_status_and_a_clear_message(folder, args, status, message):
    done = run(*args, cwd=folder, status=status)
    for part in message if isinstance(message, tuple) else [message]:
        assert part in done.stderr
    for crash in ("Traceback", "terminate", "unexpected error"):
        assert crash not in done.stderr
