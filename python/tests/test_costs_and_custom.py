"""Costs (the correction by hand, costs that change nothing) and criteria of
Python host functions: the Gini tree bit for bit, failures, worker threads."""

import gc
import os
import re
import sys
import threading
import tracemalloc

import numpy as np
import pytest

import arbolin
from arbolin import HostError
from conftest import (COST, EMPTY, F4, F8, OUTPUTS, assert_same, custom, deviance,
                      gini_functions, gini_value, grow_text, make_inputs, random_data)

PARENT_FAILED = "The split criterion function 'myparent' failed on the class weights of a node.\n"
KIDS_FAILED = "The split criterion function 'mykids' failed on the class weights of two children.\n"


def data(seed, n=60):
    """Three gridded predictors, some NaN, three classes, small integer weights."""
    return random_data(seed, n, weighted=True, nan=0.1, grid=20)


# Six rows, classes 0 1 0 1 1 1: class weights [2, 4]. C(0, 1) = 3 and
# C(1, 0) = 1 give the factors 2 * 3 / 4 = 1.5 and 2 * 1 / 4 = 0.5, so the
# corrected root is [3, 2] of weight 5. "error" takes the costs as they
# stand: assigning to class 0 costs 4 * C(1, 0) = 4, to class 1
# 2 * C(0, 1) = 6, and the root's risk is the cheaper, 4.
TWO_X = np.arange(1.0, 7.0)[:, None]
TWO_Y = np.array([0.0, 1, 0, 1, 1, 1])
TWO_COST = np.array([[0.0, 3.0], [1.0, 0.0]])

RISK = {
    "gini": lambda c: gini_value(c[:, None]),
    "custom": lambda c: gini_value(c[:, None]),
    "deviance": deviance,
    "twoing": lambda c: 0.0,
    "error": lambda c: min(sum(c[i] * TWO_COST[i, k] for i in range(2)) for k in range(2)),
}


@pytest.mark.parametrize("w", [F8, F4])
@pytest.mark.parametrize("criterion", RISK)
def test_two_class_costs_reweight_every_node(criterion, w):
    seen = []
    inputs = make_inputs(TWO_X, TWO_Y, W=np.ones(6, w), cost=TWO_COST.astype(w), min_parent=2,
                         verbosity=1, criterion=custom() if criterion == "custom" else criterion)
    t, text = grow_text(inputs, functions=gini_functions(seen))
    factors = np.array([1.0, 1.0] if criterion == "error" else [1.5, 0.5], w)
    assert t["NodeProb"][0, 0] == 6 and t["NodeRisk"].dtype == w
    assert re.search(r"  Corrected NodeProb = (.*)\n  ClassProb: .*\n  Corrected ClassProb: (.*)\n",
                     text).groups() == (("6", " 2 4") if criterion == "error" else ("5", " 3 2"))
    root_risk = {"gini": 2.4, "custom": 2.4, "twoing": 0.0, "error": 4.0}
    if criterion in root_risk:
        np.testing.assert_allclose(t["NodeRisk"][0, 0], root_risk[criterion], rtol=1e-6)
    if criterion == "custom":        # the user's function sees corrected weights
        np.testing.assert_array_equal(seen[0][0], np.array([[3.0], [2.0]], w))
    # Every node is judged on the weights of its classes, corrected.
    assert t["NodeSize"].shape[0] >= 3
    for i in range(t["NodeSize"].shape[0]):
        c = t["ClassProb"][:, i] * t["NodeProb"][i, 0] * factors
        np.testing.assert_allclose(t["NodeRisk"][i, 0], RISK[criterion](c), rtol=1e-6,
                                   atol=1e-6)
        # The gain is on the same corrected scale as the risks.
        left = int(t["Children"][0, i]) - 1
        if left >= 0 and criterion != "twoing":
            kids = t["NodeRisk"][left, 0] + t["NodeRisk"][left + 1, 0]
            np.testing.assert_allclose(t["Gain"][i, 0], t["NodeRisk"][i, 0] - kids,
                                       rtol=1e-5, atol=1e-5)


@pytest.mark.parametrize("verbosity", [0, 1])
@pytest.mark.parametrize("w", [F8, F4])
@pytest.mark.parametrize("criterion", ["gini", "gdi", "deviance", "twoing", "error"])
def test_unit_costs_change_nothing(criterion, w, verbosity):
    # Ones off the diagonal: every factor is one, and "error" through the
    # costs is the weight outside the best class, as without them.
    X, Y, W = data(3)
    settings = dict(W=W.astype(w), criterion=criterion, min_parent=4, surrogates=2,
                    verbosity=verbosity)
    plain = grow_text(make_inputs(X, Y, **settings))
    costly = grow_text(make_inputs(X, Y, cost=(1 - np.eye(3)).astype(w), **settings))
    assert plain[0]["NodeSize"].shape[0] > 7
    # Class weights (shares times weight) need not be whole: the costs' sum of
    # the others and error's total less the largest may round apart.
    loose = {"NodeRisk", "Gain"} if criterion == "error" else set()
    for name in OUTPUTS:
        assert_same(costly[0][name], plain[0][name], name, close=name in loose)
    assert costly[1] == plain[1]


@pytest.mark.parametrize("verbosity", [0, 1])
@pytest.mark.parametrize("w", [F8, F4])
@pytest.mark.parametrize("kids", ["", "mykids"])
def test_python_gini_grows_the_gini_tree(kids, w, verbosity):
    X, Y, W = data(5)
    settings = dict(W=W.astype(w), min_parent=3, surrogates=2, verbosity=verbosity)
    seen, threads = [], set()
    expected, text = grow_text(make_inputs(X, Y, **settings))
    t, custom_text = grow_text(make_inputs(X, Y, criterion=custom(kids), **settings),
                               functions=gini_functions(seen, threads))
    assert expected["NodeSize"].shape[0] > 9
    assert_same(t, expected)
    assert custom_text == text
    # K by 1 class weights of W's class; kids calls when named, else parent's.
    assert {(v.dtype, v.shape) for values in seen for v in values} == {(np.dtype(w), (3, 1))}
    assert any(len(values) == 2 for values in seen) == bool(kids)
    if verbosity:                    # printing runs are serial: the calling thread only
        assert threads == {threading.get_ident()}


class Refused(Exception):
    pass


def failing_functions(name, fail):
    """Gini functions whose `name` calls `fail()` the tenth time, mid-search."""
    functions = gini_functions()
    good, calls = functions[name], []

    def function(*values):
        calls.append(1)
        return fail() if len(calls) == 10 else good(*values)

    return dict(functions, **{name: function})


REFUSAL = Refused("no impurity today")


@pytest.mark.parametrize("cost", [False, True], ids=["plain", "costs"])
@pytest.mark.parametrize("name, w, value, expected", [
    ("myparent", F8, None, PARENT_FAILED), ("mykids", F8, None, KIDS_FAILED),
    ("mykids", F4, np.array([[1.0]]), "single"),
    ("myparent", F8, np.array([[1]], np.int64), "double")])
def test_a_failing_function(name, w, value, expected, cost):
    # With costs every phase may run on worker threads, else the surrogates'
    # only. The function raises its own error, or answers the wrong class.
    X, Y, W = data(7)
    inputs = make_inputs(X, Y, W=W.astype(w), criterion=custom(name * (name == "mykids")),
                         cost=COST.astype(w) if cost else EMPTY, min_parent=3, surrogates=1)
    out = []
    with pytest.raises((Refused, HostError)) as info:
        arbolin.calyx(22, inputs, functions=failing_functions(
            name, lambda: value if value is not None else (_ for _ in ()).throw(REFUSAL)), out=out)
    if value is None:                 # its own error, after the module's message
        assert info.value is REFUSAL and "".join(out) == expected
    else:
        assert info.value.identifier == ("tallix:silvan:learning:treeutils:Custom"
                                         f"ClassificationSplitCriterion:{name[2:]}:TypeMismatch")
        assert info.value.args == (name, expected) and out == []


def resident_bytes():
    with open("/proc/self/statm") as f:
        return int(f.read().split()[1]) * os.sysconf("SC_PAGE_SIZE")


def test_many_trees_with_costs_and_call_backs_on_worker_threads():
    threads = set()
    functions = gini_functions(threads=threads)
    counts = [sys.getrefcount(f) for f in functions.values()]

    def tree(seed):
        w = (F8, F4)[seed % 2]
        X, Y, W = data(seed, n=50)
        settings = dict(W=W.astype(w), cost=COST.astype(w), min_parent=3, surrogates=1)
        expected = arbolin.calyx(22, make_inputs(X, Y, **settings))
        t = arbolin.calyx(22, make_inputs(X, Y, criterion=custom(("", "mykids")[seed // 2 % 2]),
                                          **settings), functions=functions)
        assert t[0].shape[1] > 5
        assert_same(t, expected)

    for seed in range(10):           # warm up: worker threads, caches, the allocator
        tree(seed)
    # Some 250 call-backs a tree: a host array or a Python value left behind
    # by each would show in the resident size, or among the traced objects.
    gc.collect()
    before = resident_bytes()
    for seed in range(10, 70):
        tree(seed)
    gc.collect()
    # The address sanitizer holds freed memory in quarantine, so the resident
    # size says nothing there; its leak checker does that job instead.
    if "asan" not in os.environ.get("LD_PRELOAD", ""):
        assert resident_bytes() - before < 4 * 2**20
    tracemalloc.start()
    try:
        for seed in range(70, 100):
            tree(seed)
        gc.collect()
        kept = tracemalloc.get_traced_memory()[0]
    finally:
        tracemalloc.stop()
    assert kept < 256 * 1024, f"{kept} bytes of Python objects kept"
    assert [sys.getrefcount(f) for f in functions.values()] == counts
    if len(os.sched_getaffinity(0)) > 1:
        assert threads - {threading.get_ident()}, "no call-back on a worker thread"
