"""Trees that are their root alone: the root is never split here, because it
has fewer rows than MinParent (or MaxSplits is 0). Checks what the module
reports of such a tree: every output's class, shape and value, by criterion,
by output count and by the classes of X, Y and W; the errors of the entry
point; and the printed progress."""

import math

import numpy as np
import pytest

import arbolin
from arbolin import Cell, HostError
from conftest import EMPTY, OUTPUTS, assert_value, grow, make_inputs

F8, F4 = np.float64, np.float32
NAN = math.nan
IDS = "tallix:silvan:learning:treeutils:"

# Five rows of two numeric predictors.
X = np.array([[1.0, 5.0], [2.0, 4.0], [3.0, 3.0], [4.0, 2.0], [5.0, 1.0]])
W = np.array([1.0, 2.0, 1.0, 1.0, 1.0])

# Classification: classes 0, 1, 1, 2, 1 with the weights W. Class weights
# v = [1, 2 + 1 + 1, 1] = [1, 4, 1], so NodeProb = 6, ClassProb =
# [1/6, 4/6, 1/6], NodeValue = 1 (the heaviest class), ClassCount = [1, 3, 1].
CLASSES = np.array([0.0, 1.0, 1.0, 2.0, 1.0])
P = [1 / 6, 4 / 6, 1 / 6]
# Misclassification costs, C[i, k] for true class i assigned to class k.
# v.C(:, k) is 0 + 8 + 1 = 9, 1 + 0 + 3 = 4 and 5 + 4 + 0 = 9: the least, 4.
COST = np.array([[0.0, 1.0, 5.0], [2.0, 0.0, 1.0], [1.0, 3.0, 0.0]])

# Regression: response [1, 2, 4, 0, 3] with the weights W. Weighted mean
# (1 + 4 + 4 + 0 + 3) / 6 = 2; weighted squared deviations
# 1*1 + 2*0 + 1*4 + 1*4 + 1*1 = 10.
RESPONSE = np.array([1.0, 2.0, 4.0, 0.0, 3.0])

NODE_RISK = {
    "gini": (1 - sum(p * p for p in P)) * 6,   # (1 - 18/36) * 6 = 3
    "gdi": (1 - sum(p * p for p in P)) * 6,
    "deviance": -sum(p * math.log(p) for p in P) / 1.3862943611198906 * 6,  # 3.75489...
    "error": 6.0 - 4.0,                        # the weight outside the heaviest class
    "twoing": 0.0,                             # lies wholly in the value of two children
}


def classification(criterion, risk, **settings):
    stats = dict(ClassCount=[1, 3, 1], ClassProb=P, NodeValue=1, NodeProb=6, NodeSize=5,
                 NodeRisk=risk)
    return make_inputs(X, CLASSES, **{"W": W, "criterion": criterion, **settings}), stats


def regression(**settings):
    stats = dict(ClassCount=[5], ClassProb=[1], NodeValue=2, NodeProb=6, NodeSize=5,
                 NodeRisk=10)
    return make_inputs(X, RESPONSE, **{"W": W, "criterion": "mse", **settings}), stats


def weightless(stats, **changes):
    """A node without weight: 0 / 0 makes the class shares NaN and with them
    the risk, except for twoing; the heaviest of NaN shares is class 0."""
    return dict(stats, ClassProb=[NAN] * len(stats["ClassProb"]), NodeValue=0, NodeProb=0,
                NodeRisk=NAN if stats["NodeRisk"] != 0 else 0, **changes)


NO_ROWS = np.zeros(0)
ZERO_W = np.zeros(5)


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


CASES = {name: (inputs, stats) for name, inputs, stats in cases()}


def one_node_outputs(inputs, stats, x=F8, y=F8, w=F8):
    """The 22 outputs of a one-node tree grown from `inputs` by the driver of
    element types x, y and w."""
    curvature, interaction, surrogates = inputs[15], inputs[16], inputs[10]

    def column(values, dtype):
        return np.array(values, dtype=dtype).reshape(-1, 1)

    def node_cell(present):  # n by 1 with its element unset, or 0 by 0
        return Cell((1, 1)) if present else Cell((0, 0))

    def surrogate_list(empty):  # the node's list of no surrogates
        return Cell((1, 1), [empty]) if surrogates else Cell((0, 0))

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
    result = arbolin.calyx(nout, inputs)
    assert isinstance(result, tuple) and len(result) == nout
    for name, actual, expected in zip(OUTPUTS, result, one_node_outputs(inputs, stats)):
        assert_value(actual, expected, name)


# The driver that each combination of classes of X, Y and W reaches: any
# class but double counts as single, and double X with single Y and W runs
# the driver of single X and Y with double W.
DRIVERS = {
    (F8, F8, F8): (F8, F8, F8),
    (F8, F8, F4): (F8, F8, F4),
    (F8, F4, F8): (F8, F4, F8),
    (F8, F4, F4): (F4, F4, F8),
    (F4, F8, F8): (F4, F8, F8),
    (F4, F8, F4): (F4, F8, F4),
    (F4, F4, F8): (F4, F4, F8),
    (F4, F4, F4): (F4, F4, F4),
}


def layout(value):
    """What a value is, without its numbers."""
    if isinstance(value, Cell):
        return "cell", value.shape, [layout(v) for v in value.data]
    if isinstance(value, np.ndarray):
        return value.dtype, value.shape
    return type(value)


@pytest.mark.parametrize("classes", DRIVERS, ids=lambda c: "".join(t.__name__[-2:] for t in c))
def test_classes_of_x_y_w_choose_the_driver(classes):
    # Only row 0 is read: harmless also where the driver reads the single W
    # as doubles (its first 8 bytes are the weights of rows 0 and 1). So only
    # the classes and shapes are compared.
    inputs, stats = classification("gini", 0.0, rows=np.array([0.0]), surrogates=1)
    for k, t in enumerate(classes):
        inputs[k] = inputs[k].astype(t)
    expected = one_node_outputs(inputs, stats, *DRIVERS[classes])
    # calyx refuses double X with single Y and W, so the module is called as is.
    outputs = arbolin._core._calyx_unchecked(22, inputs)
    assert [layout(v) for v in outputs] == [layout(v) for v in expected]


def test_driver_of_single_data_computes_in_single():
    inputs, stats = classification("gini", 3.0)
    for k in (0, 1, 2):
        inputs[k] = inputs[k].astype(F4)
    for name, actual, e in zip(OUTPUTS, arbolin.calyx(22, inputs),
                               one_node_outputs(inputs, stats, F4, F4, F4)):
        assert_value(actual, e, name)


# ------------------------------------------------------------------ errors

# The module's own refusals of inputs that calyx refuses before the call.
UNCHECKED = arbolin._core._calyx_unchecked


def raised(nout, inputs, call=arbolin.calyx, **kwargs):
    with pytest.raises(HostError) as info:
        call(nout, inputs, **kwargs)
    return info.value


@pytest.mark.parametrize("count", [0, 19, 21])
def test_input_count_other_than_twenty_is_refused(count):
    inputs = (make_inputs(X, CLASSES) + [EMPTY])[:count]
    e = raised(1, inputs, UNCHECKED)
    assert e.identifier == IDS + "weaveCanopy:BadNumberOfInputArgs"
    assert e.args == (20,)


def test_input_count_is_checked_before_output_count():
    e = raised(23, make_inputs(X, CLASSES)[:19], UNCHECKED)
    assert e.identifier == IDS + "weaveCanopy:BadNumberOfInputArgs"


@pytest.mark.parametrize("nout", [23, 100])
def test_more_than_22_outputs_are_refused(nout):
    e = raised(nout, make_inputs(X, CLASSES))
    assert e.identifier == IDS + "weaveCanopy:BadNumberOfOutputArgs"
    assert e.args == (22,)


@pytest.mark.parametrize("criterion", ["Gini", "GDI", "foo", "", "mse ", 1.0, True])
def test_unknown_criterion_is_refused(criterion):
    e = raised(1, make_inputs(X, CLASSES, criterion=criterion), UNCHECKED)
    assert e.identifier == IDS + "SplitCriteriaFactory:make:BadCriterion"
    assert e.args == ()


# -------------------------------------------------------------- printing

CLASSIFICATION_ROOT = (
    "  NodeProb = 6\n"
    "  Corrected NodeProb = 6\n"
    "  ClassProb:  0.166667 0.666667 0.166667\n"
    "  Corrected ClassProb:  1 4 1\n"
    "  NodeRisk = 3\n"
)
REGRESSION_ROOT = (
    "  NodeProb = 6\n"
    "  Corrected NodeProb = 6\n"
    "  ClassProb:  1\n"
    "\n"
    "  NodeRisk = 10\n"
)
LAYER_0 = (
    "\nProcessing layer 0 with maximal number of splits 1...\n"
    "    Splitting node 0...\n"
    "    Found 0 split candidates.\n"
)


@pytest.mark.parametrize("make, root", [(lambda **s: classification("gini", 3.0, **s),
                                         CLASSIFICATION_ROOT),
                                        (regression, REGRESSION_ROOT)],
                         ids=["classification", "regression"])
@pytest.mark.parametrize("max_splits", [0, 1, 4])
def test_verbose_run_prints_root_and_layers(make, root, max_splits):
    inputs, _ = make(verbosity=1, max_splits=max_splits)
    out = []
    arbolin.calyx(1, inputs, out=out)
    assert all(isinstance(text, str) for text in out)
    # The root's statistics come before the loop, which prints nothing when
    # MaxSplits leaves no split to make.
    assert "".join(out) == root + (LAYER_0 if max_splits else "")


def test_silent_run_prints_nothing(capfd):
    out = []
    arbolin.calyx(22, classification("gini", 3.0)[0], out=out)
    assert out == [] and capfd.readouterr().out == ""


# ----------------------------------------------------- custom criterion

def custom_inputs(w=F8, kids=""):
    return make_inputs(X, CLASSES, W=W.astype(w), criterion=Cell((1, 2), ["impurity", kids]))


def test_custom_criterion_gives_the_root_risk():
    seen = []

    def impurity(v):
        seen.append(v)
        return np.array([[v.sum() * 0.5]])

    tree = grow(custom_inputs(), functions={"impurity": impurity})
    # The root's class weights, [1, 4, 1], once for its risk.
    assert len(seen) >= 1
    assert_value(seen[0], np.array([[1.0], [4.0], [1.0]]))
    assert_value(tree["NodeRisk"], np.array([[3.0]]))


def test_custom_criterion_of_single_weights_sees_and_returns_single():
    tree = grow(custom_inputs(F4), functions={"impurity": lambda v: v[:1] * 2})
    assert_value(tree["NodeRisk"], np.array([[2.0]], F4))


@pytest.mark.parametrize("w, value, wanted", [(F8, np.float32(1), "double"),
                                              (F4, 1.0, "single"),
                                              (F8, np.array([[1]], np.int32), "double")])
def test_custom_criterion_of_the_wrong_class_is_refused(w, value, wanted):
    e = raised(1, custom_inputs(w), functions={"impurity": lambda v: value})
    assert e.identifier == IDS + "CustomClassificationSplitCriterion:parent:TypeMismatch"
    assert e.args == ("impurity", wanted)


def test_error_in_custom_criterion_is_raised_again_after_its_message():
    class Failure(Exception):
        pass

    failure = Failure("no impurity today")

    def impurity(v):
        raise failure

    out = []
    with pytest.raises(Failure) as info:
        arbolin.calyx(1, custom_inputs(), functions={"impurity": impurity}, out=out)
    assert info.value is failure
    assert "".join(out) == "The split criterion function 'impurity' failed on the class " \
                           "weights of a node.\n"
