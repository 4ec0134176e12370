"""Shared pieces of the command-line tests: the tool ($ARBOLIN_CLI) run as a
user runs it, and its model JSON read back as arbolin.calyx's host values."""

import csv
import io
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


@pytest.fixture(autouse=True)
def needs_the_tool():
    if not CLI:
        pytest.skip("ARBOLIN_CLI names no binary")


def run(*args, cwd=None, status=None, **kwargs):
    """The finished process, of the given exit status; files in `cwd` go by name."""
    names = [a.name if isinstance(a, Path) and cwd and a.parent == Path(cwd) else str(a)
             for a in args]
    done = subprocess.run([CLI, *names], capture_output=True, text=True, cwd=cwd, timeout=60,
                          **kwargs)
    assert status is None or done.returncode == status, done.stderr
    return done


def fit(tmp_path, data, *options, model="model.json"):
    """Grows a tree into tmp_path / model; returns the model JSON and the finished process."""
    done = run("fit", data, "--output", model, *options, cwd=tmp_path, status=0)
    return json.loads((tmp_path / model).read_text()), done


def predict(model, data, *options):
    return run("predict", model, data, *options, cwd=model.parent, status=0).stdout


def predictions(text):
    return list(csv.DictReader(text.splitlines()))


def write_csv(path, header, rows, delimiter=",", encoding="utf-8"):
    text = io.StringIO()
    w = csv.writer(text, delimiter=delimiter, lineterminator="\n")
    w.writerow(header)
    w.writerows(rows)
    path.write_bytes(text.getvalue().encode(encoding))
    return path


def read_columns(path):
    with open(path, newline="") as f:
        rows = list(csv.reader(f))
    return rows[0], list(zip(*rows[1:]))


def said(done, kind):
    """The warnings or notes of a run."""
    return [line for line in done.stderr.splitlines() if line.startswith(f"arbolin: {kind}: ")]


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


def column(model, name):
    return host_value(model["outputs"][name]).ravel()


def interrupted(args, cwd, wait=0.0):
    """Ctrl-C `wait` s after the search starts, printing progress: the exit
    status, the seconds it took to stop and the error text."""
    with open(cwd / "out.txt", "w") as printed:
        proc = subprocess.Popen([CLI, *map(str, args), "--verbose", "1"], cwd=cwd,
                                stdout=printed, stderr=subprocess.PIPE, text=True)
        deadline = time.monotonic() + 30
        while "Splitting node" not in (cwd / "out.txt").read_text():
            assert proc.poll() is None and time.monotonic() < deadline
            time.sleep(0.05)
        time.sleep(wait)
        proc.send_signal(signal.SIGINT)
        sent = time.monotonic()
        status = proc.wait(timeout=10)
        return status, time.monotonic() - sent, proc.stderr.read()
