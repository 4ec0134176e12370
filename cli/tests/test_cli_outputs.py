"""What the tool writes and answers: write failures, the class that costs
decide, the columns predict needs, the warning for too many classes."""

import json
import os
import re
import resource
import signal
import stat
import subprocess
import threading

import numpy as np
import pytest

from conftest import (CLI, DATA, column, fit, host_value, predict, predictions, read_columns, run,
                      write_csv)


@pytest.mark.parametrize("command", [
    ["fit", "iris", "--output", "/dev/full"], ["show", "{model}", "--output", "/dev/full"],
    ["predict", "{model}", "iris", "--output", "/dev/full"],
    ["fit", "iris", "--quiet", "--output", "{dir}/m.json"], ["show", "{model}"], ["--version"],
])
def test_a_full_device_is_an_error_and_stays_a_device(tmp_path, command):
    # An --output of /dev/full, or else standard output.
    fit(tmp_path, "iris")
    args = [a.format(model=tmp_path / "model.json", dir=tmp_path) for a in command]
    with open("/dev/full", "w") as full:
        done = subprocess.run([CLI, *args], stdout=full, stderr=subprocess.PIPE, text=True,
                              timeout=60)
    assert done.returncode == 1, done.stderr
    place = "/dev/full" if "/dev/full" in args else "to standard output"
    assert f"cannot write {place}: No space left on device" in done.stderr
    assert stat.S_ISCHR(os.stat("/dev/full").st_mode)


def limit_file_size(limit):
    def set_limit():
        # Past the limit a write fails (EFBIG) instead of killing the process.
        signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
        resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit))
    return set_limit


@pytest.mark.parametrize("command, name", [
    (["fit", "diabetes", "--output", "{out}"], "out.json"),
    (["predict", "{model}", "iris", "--output", "{out}"], "out.csv"),
    (["show", "{model}", "--format", "dot", "--output", "{out}"], "out.dot"),
])
def test_a_failed_write_leaves_the_old_file_whole(tmp_path, command, name):
    fit(tmp_path, "iris")
    out = tmp_path / name
    out.write_text("the old file\n")
    out.chmod(0o640)
    before = sorted(os.listdir(tmp_path))
    args = [a.format(model=tmp_path / "model.json", out=out) for a in command]
    done = run(*args, preexec_fn=limit_file_size(1000), status=1)
    assert f"cannot write {out}: File too large" in done.stderr
    assert out.read_text() == "the old file\n"
    assert sorted(os.listdir(tmp_path)) == before  # no temporary file left behind
    run(*args, status=0)  # without the limit the file is replaced, keeping its mode
    assert out.read_text() != "the old file\n" and stat.S_IMODE(out.stat().st_mode) == 0o640


def test_a_link_stays_a_link_and_a_pipe_a_pipe(tmp_path):
    target, link = tmp_path / "target.json", tmp_path / "link.json"
    target.write_text("{}")
    link.symlink_to(target)
    fit(tmp_path, "iris")
    run("fit", "iris", "--output", link, status=0)
    assert link.is_symlink() and json.loads(target.read_text())["format"] == "arbolin model"

    pipe = tmp_path / "pipe"
    os.mkfifo(pipe)
    got = []
    reader = threading.Thread(target=lambda: got.append(pipe.read_text()))
    reader.start()
    run("predict", tmp_path / "model.json", "iris", "--output", pipe, status=0)
    reader.join(timeout=30)
    assert stat.S_ISFIFO(os.lstat(pipe).st_mode)
    assert got[0] == predict(tmp_path / "model.json", "iris")


@pytest.mark.skipif(os.geteuid() == 0, reason="root writes any file")
def test_a_read_only_output_is_not_replaced(tmp_path):
    out = tmp_path / "locked.json"
    out.write_text("kept\n")
    out.chmod(0o444)
    assert f"cannot write {out}: Permission denied" in run("fit", "iris", "--output", out,
                                                            status=1).stderr
    assert out.read_text() == "kept\n"


def least_cost(shares, cost):
    """The class j of least sum_i shares[i] * cost[i][j], the lowest on a tie."""
    expected = [sum(p * cost[i][j] for i, p in enumerate(shares)) for j in range(len(cost))]
    return min(range(len(cost)), key=lambda j: (expected[j], j))


def printed_classes(text):
    """Node number -> class label, from the printed tree."""
    return {int(n): c for n, c in re.findall(r"(?m)^\s*(\d+)\) .*  n=\S+  (\S+)  \(", text)}


COST = "0,1,1\n1,0,1\n1,10,0\n"  # calling a virginica versicolor costs 10


@pytest.mark.parametrize("options", [[], ["--single"], ["--criterion", "error"]])
def test_costs_decide_the_class_in_text_dot_accuracy_and_predict(tmp_path, options):
    (tmp_path / "cost.csv").write_text(COST)
    cost = [[float(v) for v in line.split(",")] for line in COST.split()]
    model, done = fit(tmp_path, "iris", "--cost", tmp_path / "cost.csv", *options)
    printed, classes = done.stdout, model["response"]["classes"]
    assert model["response"]["cost_matrix"] == cost
    shares = host_value(model["outputs"]["ClassProb"]).T  # a row per node
    best = [least_cost(p, cost) for p in shares]
    assert best != list(column(model, "NodeValue").astype(int))  # the costs matter here
    assert printed_classes(printed) == {i + 1: classes[b] for i, b in enumerate(best)}
    dot = run("show", tmp_path / "model.json", "--format", "dot").stdout
    for i, b in enumerate(best):
        assert re.search(rf'n{i + 1} \[label="node {i + 1}\\nn=\S+  {classes[b]}  ', dot)

    out = predictions(predict(tmp_path / "model.json", "iris"))
    truth = read_columns(DATA / "iris.csv")[1][4]
    assert [r["prediction"] for r in out] == [classes[best[int(r["node"]) - 1]] for r in out]
    # The class shares stay the node's.
    assert [float(out[0][f"prob_{c}"]) for c in classes] == list(shares[int(out[0]["node"]) - 1])
    right = np.mean([r["prediction"] == t for r, t in zip(out, truth)])
    accuracy = float(re.search(r"training accuracy (\S+)", printed).group(1))
    assert accuracy == pytest.approx(right, abs=5e-5)


def test_models_with_costs_in_the_old_place_or_none(tmp_path):
    (tmp_path / "cost.csv").write_text(COST)
    model, _ = fit(tmp_path, "iris", "--cost", tmp_path / "cost.csv")
    new = predict(tmp_path / "model.json", "iris")
    old = dict(model, response=dict(model["response"]))
    old["training"] = dict(model["training"], cost_matrix=old["response"].pop("cost_matrix"))
    (tmp_path / "old.json").write_text(json.dumps(old))
    assert predict(tmp_path / "old.json", "iris") == new
    old["training"]["cost_matrix"] = None
    (tmp_path / "none.json").write_text(json.dumps(old))
    out = predictions(predict(tmp_path / "none.json", "iris"))
    value = column(model, "NodeValue").astype(int)
    classes = model["response"]["classes"]
    assert [r["prediction"] for r in out] == [classes[value[int(r["node"]) - 1]] for r in out]


def used_predictors(model):
    names = [p["name"] for p in model["predictors"]]
    splits = {names[int(v) - 1] for v in column(model, "CutVar") if v > 0}
    surrogates = set()
    for cell in model["outputs"]["SurrogatePredictors"]["data"]:
        surrogates |= {names[int(v) - 1] for v in (cell or {"data": []})["data"]}
    return names, splits, surrogates - splits


def test_predict_needs_only_the_split_columns(tmp_path):
    model, _ = fit(tmp_path, "iris")
    names, splits, _ = used_predictors(model)
    assert splits < set(names)
    header, cols = read_columns(DATA / "iris.csv")
    keep = [h for h in header if h in splits]
    data = write_csv(tmp_path / "few.csv", keep, zip(*[cols[header.index(h)] for h in keep]))
    done = run("predict", tmp_path / "model.json", data, status=0)
    assert done.stderr == ""
    assert done.stdout == predict(tmp_path / "model.json", "iris")

    data = write_csv(tmp_path / "none.csv", ["sepal_length"], [[1]])
    done = run("predict", tmp_path / "model.json", data, status=1)
    assert f'none.csv has no columns "{sorted(splits, key=names.index)[0]}", ' in done.stderr
    assert "which the model uses in its splits" in done.stderr


def test_an_absent_surrogate_column_counts_as_missing(tmp_path):
    model, _ = fit(tmp_path, "diabetes", "--surrogates", "2", "--max-splits", "6")
    names, splits, only = used_predictors(model)
    assert only, "no predictor serves only as a surrogate"
    gone = sorted(only)[0]
    header, cols = read_columns(DATA / "diabetes.csv")
    root = names[int(column(model, "CutVar")[0]) - 1]
    rows = [list(r) for r in zip(*cols)]
    for i in range(0, len(rows), 3):
        rows[i][header.index(root)] = ""  # these rows go by the surrogates
    dropped = write_csv(tmp_path / "dropped.csv", [h for h in header if h != gone],
                        [[v for h, v in zip(header, r) if h != gone] for r in rows])
    blank = write_csv(tmp_path / "blank.csv", header,
                      [[("" if h == gone else v) for h, v in zip(header, r)] for r in rows])
    a = run("predict", tmp_path / "model.json", dropped)
    b = run("predict", tmp_path / "model.json", blank)
    assert a.returncode == 0 and b.returncode == 0, a.stderr
    assert a.stdout == b.stdout
    assert a.stderr.count("note:") == 1
    assert f'has no column "{gone}", which only surrogate splits use' in a.stderr


@pytest.mark.skipif(os.geteuid() == 0, reason="root reads any file")
def test_an_unreadable_model_is_named(tmp_path):
    fit(tmp_path, "iris")
    (tmp_path / "model.json").chmod(0)
    done = run("show", tmp_path / "model.json", status=1)
    assert "model.json: Permission denied" in done.stderr


def test_a_nominal_split_needs_levels_on_both_sides(tmp_path):
    model, done = fit(tmp_path, "diabetes", "--nominal", "sex", "--max-splits", "2",
                      "--predictors-per-node", "1", "--seed", "1")
    assert "2) sex in {1}" in done.stdout
    n = len(column(model, "NodeSize"))
    model["outputs"]["SplitLevels"]["data"][n] = None  # node 1's right levels
    (tmp_path / "bad.json").write_text(json.dumps(model))
    done = run("show", tmp_path / "bad.json", status=1)
    assert "output SplitLevels sends no level of sex to one side of node 1" in done.stderr


def test_version():
    done = run("--version", status=0)
    assert re.fullmatch(r"arbolin \d+\.\d+\.\d+ \(module interface \d+\.\d+\)\n", done.stdout)


@pytest.mark.parametrize("classes, rows, text, warned", [
    (51, 509, False, True),    # 51 > 50 and 51 > 50.9
    (51, 510, False, False),   # 51 is not more than a tenth of 510
    (50, 100, False, False),   # 50 classes are not more than 50
    (200, 200, False, True),   # an identifier
    (200, 200, True, True),
])
def test_many_classes_get_a_warning(tmp_path, classes, rows, text, warned):
    label = (lambda i: f"id{i:04d}") if text else str
    data = write_csv(tmp_path / "d.csv", ["x", "y"],
                     [[i % 7, label(i % classes)] for i in range(rows)])
    done = run("fit", data, "--classification", "--max-splits", "1", "--quiet",
               "--output", tmp_path / "m.json", status=0)
    warning = (f"arbolin: warning: the response y has {classes} distinct values in {rows} "
               "rows, each of them a class")
    assert (warning in done.stderr) == warned
    if warned:
        assert ("use --regression" in done.stderr) == (not text)
        assert ("name another with --response" in done.stderr) == text


def test_the_warning_rule_is_in_the_help():
    assert "more than 50 classes" in run("fit", "--help").stdout.replace("\n", " ")
