"""Trees that are their root alone (fewer rows than MinParent, or MaxSplits
0): every output's class, shape and value, and the printed progress."""

import numpy as np
import pytest

import arbolin
from arbolin import Cell
from conftest import F4, F8, NAN, SLOT, assert_same, deviance, make_inputs, node_text

X = np.array([[1.0, 5.0], [2.0, 4.0], [3.0, 3.0], [4.0, 2.0], [5.0, 1.0]])
W = np.array([1.0, 2.0, 1.0, 1.0, 1.0])

# Classification: classes 0, 1, 1, 2, 1 with the weights W. Class weights
# v = [1, 2 + 1 + 1, 1] = [1, 4, 1], so NodeProb = 6, ClassProb =
# [1/6, 4/6, 1/6], NodeValue = 1 (the heaviest class), ClassCount = [1, 3, 1].
CLASSES = np.array([0.0, 1.0, 1.0, 2.0, 1.0])
P = [1 / 6, 4 / 6, 1 / 6]
# Costs C[i, k] of class i assigned to class k: v.C(:, k) is 0 + 8 + 1 = 9,
# 1 + 0 + 3 = 4 and 5 + 4 + 0 = 9; the least, 4.
COST = np.array([[0.0, 1.0, 5.0], [2.0, 0.0, 1.0], [1.0, 3.0, 0.0]])

# Regression: response [1, 2, 4, 0, 3] with the weights W. Weighted mean
# (1 + 4 + 4 + 0 + 3) / 6 = 2; weighted squared deviations
# 1*1 + 2*0 + 1*4 + 1*4 + 1*1 = 10.
RESPONSE = np.array([1.0, 2.0, 4.0, 0.0, 3.0])

# Gini (1 - 18/36) * 6; error the weight outside the heaviest class; twoing
# lies wholly in the value of two children.
NODE_RISK = {"gini": 3.0, "gdi": 3.0, "deviance": float(deviance(np.array([1.0, 4, 1]))),
             "error": 2.0, "twoing": 0.0}


def classification(criterion, risk, x=X, y=CLASSES, **settings):
    stats = dict(ClassCount=[1, 3, 1], ClassProb=P, NodeValue=1, NodeProb=6, NodeSize=5,
                 NodeRisk=risk)
    return make_inputs(x, y, **{"W": W, "criterion": criterion, **settings}), stats


def regression(**settings):
    stats = dict(ClassCount=[5], ClassProb=[1], NodeValue=2, NodeProb=6, NodeSize=5, NodeRisk=10)
    return make_inputs(X, RESPONSE, **{"W": W, "criterion": "mse", **settings}), stats


def weightless(stats, **changes):
    """A node without weight: 0 / 0 makes the class shares NaN and with them
    the risk, except for twoing; the heaviest of NaN shares is class 0."""
    return dict(stats, ClassProb=[NAN] * len(stats["ClassProb"]), NodeValue=0, NodeProb=0,
                NodeRisk=NAN if stats["NodeRisk"] != 0 else 0, **changes)


NO_ROWS, ZERO_W = np.zeros(0), np.zeros(5)


def cases():
    """(name, inputs, expected statistics of the root)"""
    for criterion, risk in NODE_RISK.items():
        yield criterion, *classification(criterion, risk)
        inputs, stats = classification(criterion, risk, rows=NO_ROWS)
        yield f"{criterion}-no-rows", inputs, weightless(stats, ClassCount=[0, 0, 0], NodeSize=0)
        inputs, stats = classification(criterion, risk, W=ZERO_W)
        yield f"{criterion}-zero-weights", inputs, weightless(stats)
    yield "error-cost", *classification("error", 4.0, cost=COST)
    inputs, stats = classification("error", 4.0, cost=COST, rows=NO_ROWS)
    yield "error-cost-no-rows", inputs, weightless(stats, ClassCount=[0, 0, 0], NodeSize=0)
    yield "mse", *regression()
    # No rows: the mean is 0 / 0, the risk of an empty list 0.
    inputs, stats = regression(rows=NO_ROWS)
    yield "mse-no-rows", inputs, dict(stats, ClassCount=[0], NodeValue=NAN, NodeProb=0,
                                      NodeSize=0, NodeRisk=0)
    # Zero weights: the mean is 0 / 0, and so is every deviation.
    inputs, stats = regression(W=ZERO_W)
    yield "mse-zero-weights", inputs, dict(stats, NodeValue=NAN, NodeProb=0, NodeRisk=NAN)
    # Settings that change the shape of the outputs but not the statistics.
    yield "gini-flags", *classification("gini", 3.0, curvature=True, interaction=True,
                                        surrogates=2)
    yield "gini-unsearched", *classification("gini", 3.0, max_splits=0, min_parent=1)
    # Drawing one predictor of two takes a stream: the one given or the default.
    yield "gini-stream", *classification("gini", 3.0, sample_size=1, stream=arbolin.Stream(7))
    yield "gini-default-stream", *classification("gini", 3.0, sample_size=1)
    # Single X, Y and W: the driver computes in single.
    yield "gini-single", *classification("gini", 3.0, x=X.astype(F4), y=CLASSES.astype(F4),
                                         W=W.astype(F4))


CASES = {name: (inputs, stats) for name, inputs, stats in cases()}


def one_node_outputs(inputs, stats, x=F8, y=F8, w=F8):
    """The 22 outputs of a one-node tree of `inputs`, by the driver of x, y, w."""
    curvature, interaction, surrogates = (inputs[SLOT[k]] for k in ("curvature", "interaction",
                                                                     "surrogates"))

    column = lambda values, dtype: np.array(values, dtype=dtype).reshape(-1, 1)
    node_cell = lambda present: Cell((1, 1)) if present else Cell((0, 0))  # its element unset
    surrogate_list = lambda empty: Cell((1, 1), [empty]) if surrogates else Cell((0, 0))

    return [
        np.zeros((2, 1)),                     # no children
        column(stats["ClassCount"], y),
        column(stats["ClassProb"], w),
        node_cell(curvature),
        Cell((1, 2)),                         # no levels either way
        column([NAN], x),                     # CutPoint
        column([0], F8),                      # CutVar: none
        column([False], bool),                # HasUnroutedRows
        node_cell(interaction),
        column([False], bool),                # not a branch
        column([stats["NodeValue"]], w),
        column([stats["NodeProb"]], w),
        column([stats["NodeSize"]], F8),
        column([0], F8),                      # the root has no parent
        column([stats["NodeRisk"]], w),
        column([0], w),                       # Gain
        surrogate_list(Cell((0, 0))),
        surrogate_list(np.zeros((0, 0), F8)),
        surrogate_list(np.zeros((0, 0), x)),
        surrogate_list(np.zeros((0, 0), F8)),
        surrogate_list(np.zeros((0, 0), w)),
        surrogate_list(np.zeros((0, 0), w)),
    ]


@pytest.mark.parametrize("nout", range(23))
@pytest.mark.parametrize("case", CASES)
def test_outputs_of_one_node_tree(case, nout):
    inputs, stats = CASES[case]
    result, types = arbolin.calyx(nout, inputs), (inputs[SLOT[k]].dtype.type for k in "XYW")
    assert isinstance(result, tuple)
    assert_same(result, one_node_outputs(inputs, stats, *types)[:nout], close=True)


@pytest.mark.parametrize("make, root", [
    (lambda **s: classification("gini", 3.0, **s), node_text(6, P, [1, 4, 1], 3)),
    (regression, node_text(6, [1], None, 10))], ids=["classification", "regression"])
@pytest.mark.parametrize("verbosity, max_splits", [(0, 4), (1, 0), (1, 1), (1, 4)])
def test_verbose_run_prints_root_and_layers(make, root, verbosity, max_splits):
    inputs, _ = make(verbosity=verbosity, max_splits=max_splits)
    out = []
    arbolin.calyx(1, inputs, out=out)
    assert all(isinstance(text, str) for text in out)
    # The root's statistics, then the loop unless MaxSplits leaves no split.
    layer = ("\nProcessing layer 0 with maximal number of splits 1...\n"
             "    Splitting node 0...\n    Found 0 split candidates.\n")
    assert "".join(out) == (root + (layer if max_splits else "")) * verbosity
