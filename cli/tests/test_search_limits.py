"""Searches too long to finish: refused before growing unless the user
insists, and stopped by Ctrl-C once running, inside one enumeration."""

import os
import signal
import subprocess
import time

import numpy as np
import pytest

CLI = os.environ.get("ARBOLIN_CLI", "")
pytestmark = pytest.mark.skipif(not CLI, reason="ARBOLIN_CLI names no binary")


def many_levels(path, levels=40, rows=400):
    """A nominal predictor of `levels` levels and three classes."""
    rng = np.random.default_rng(3)
    codes = rng.integers(0, levels, rows)
    with open(path, "w") as f:
        f.write("state,x,y\n")
        for i, c in enumerate(codes):
            f.write(f"s{c:02d},{rng.random():.4f},{'abc'[(c + i % 2) % 3]}\n")
    return path


@pytest.mark.parametrize("options, option", [
    (["--nominal-method", "exact"], "--nominal-method"),
    (["--max-cat", "40"], "--max-cat"),
])
def test_a_long_exact_search_is_refused_with_its_size(tmp_path, options, option):
    data = many_levels(tmp_path / "d.csv")
    done = subprocess.run([CLI, "fit", data, "--output", tmp_path / "m.json", *options],
                          capture_output=True, text=True, timeout=60)
    assert done.returncode == 2, done.stderr
    # 2^39 - 1 partitions of 40 levels
    assert option in done.stderr and "5.498e+11 partitions" in done.stderr
    assert "--allow-long-search" in done.stderr and "state (40 levels, 3 classes)" in done.stderr
    assert not (tmp_path / "m.json").exists()


def test_searches_that_finish_are_not_refused(tmp_path):
    small = many_levels(tmp_path / "small.csv", levels=12, rows=120)
    large = many_levels(tmp_path / "large.csv", levels=40)
    for data, options in ((small, ["--nominal-method", "exact"]),
                          (large, ["--nominal-method", "pca"]),
                          (large, ["--max-cat", "40", "--nominal-method", "ova"])):
        done = subprocess.run([CLI, "fit", data, "--output", tmp_path / "m.json", "--quiet",
                               "--max-splits", "1", *options],
                              capture_output=True, text=True, timeout=120)
        assert done.returncode == 0, (options, done.stderr)


def test_ctrl_c_stops_an_insisted_exact_search_within_a_second(tmp_path):
    data = many_levels(tmp_path / "d.csv")
    with open(tmp_path / "out.txt", "w") as printed:
        proc = subprocess.Popen([CLI, "fit", data, "--nominal-method", "exact",
                                 "--allow-long-search", "--verbose", "1"], cwd=tmp_path,
                                stdout=printed, stderr=subprocess.PIPE, text=True)
        deadline = time.monotonic() + 30
        while "Splitting node" not in (tmp_path / "out.txt").read_text():  # in the module
            assert proc.poll() is None and time.monotonic() < deadline
            time.sleep(0.05)
        time.sleep(0.3)  # well inside the root's 2^39 masks
        proc.send_signal(signal.SIGINT)
        sent = time.monotonic()
        assert proc.wait(timeout=10) == 130
        assert time.monotonic() - sent < 1.0
        assert "interrupted" in proc.stderr.read()
    assert not (tmp_path / "d.model.json").exists()
