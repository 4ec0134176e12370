"""calyx checks the twenty inputs before the call: a TypeError or ValueError
names a misread input; a valid call gives the unchecked call's outputs."""

import numpy as np
import pytest

import arbolin
from arbolin import INPUT_NAMES, Cell, HostError, _core
from conftest import EMPTY, SLOT, assert_same, custom, gini_functions, grow_text, make_inputs

# Eight rows, three predictors (the last with two levels), three classes.
N, D = 8, 3
X = np.array([[0, 3, 0], [1, 1, 1], [2, 4, 0], [3, 1, 1], [4, 5, 0], [5, 9, 1], [6, 2, 0],
              [7, 6, 1]], dtype=float)
CLASSES = np.array([0, 0, 1, 1, 2, 2, 1, 0], dtype=float)
RESPONSE = np.array([1.0, 1.5, 2.0, 4.0, 8.0, 8.5, 3.0, 0.5])
COST = 1 - np.eye(3)
F4 = np.float32


def inputs_for(**settings):
    """Valid classification inputs, `settings` by KEYWORDS (X: whatever it is)."""
    x, y = settings.pop("X", X), settings.pop("Y", CLASSES)
    inputs = make_inputs(X, y, **{"min_parent": 2, **settings})
    inputs[SLOT["X"]] = x
    return inputs


def with_y(rows, values, y=CLASSES):
    y = y.copy()
    y[rows] = values
    return y


def regression(**settings):
    return {"criterion": "mse", "Y": RESPONSE, **settings}


# A row for each way the check refuses, naming the input of the last setting;
# many were reported crashes, sanitizer reports or wrong trees.
TE, VE = TypeError, ValueError
REFUSED = {
    "X a str": (TE, dict(X="abc")), "Y shorter than X": (TE, dict(Y=CLASSES[:-1])),
    "W a Cell": (TE, dict(W=Cell((N, 1), [1.0] * N))),
    "double X, single Y and W": (TE, dict(Y=CLASSES.astype(F4), W=np.ones(N, F4))),
    "Rows a str": (TE, dict(rows="abc")), "row -1": (VE, dict(rows=np.array([0.0, -1.0]))),
    "row N": (VE, dict(rows=np.array([0.0, N]))),
    "IsCat a Cell": (TE, dict(is_cat=Cell((1, D), [True] * D))),
    "criterion Gini": (VE, dict(criterion="Gini")),
    "criterion cell of three": (TE, dict(criterion=Cell((1, 3), ["f", "g", "h"]))),
    "criterion cell, no parent": (VE, dict(criterion=Cell((1, 2), ["", "g"]))),
    "MinLeaf logical": (TE, dict(min_leaf=True)),
    "MaxSplits 2^60": (VE, dict(max_splits=2.0**60)),
    "SampleSize D + 1": (VE, dict(sample_size=D + 1)), "AlgCat 5": (VE, dict(alg_cat=5)),
    "cost 3 by 2": (TE, dict(cost=np.ones((3, 2)))), "cost negative": (VE, dict(cost=COST - 0.5)),
    "cost all 0, gini": (VE, dict(cost=np.zeros((3, 3)))),
    "cost in a regression": (VE, regression(cost=np.ones((1, 1)))),
    "2 by 2 cost, 3 classes": (VE, dict(cost=1 - np.eye(2))),
    "class 3 at an unused row, 3 by 3 cost": (VE, dict(Y=with_y(7, 3.0), rows=np.arange(7.0),
                                                       cost=COST)),
    "RiskTolerance 1.5": (VE, dict(risk_tol=1.5)),
    "CurvatureFlag double": (TE, dict(curvature=1.0)),
    "stream a number, drawing": (TE, dict(sample_size=2, stream=3.0)),
    "weight NaN": (VE, dict(W=with_y(2, np.nan, np.ones(N)))),
    "NaN class in row 0": (VE, dict(Y=with_y(0, np.nan))),
    "class 1e6": (VE, dict(Y=with_y(5, 1e6))),
    "class N at an unused row": (VE, dict(rows=np.arange(7.0), Y=with_y(7, N))),
    "only negative values, no rows": (VE, dict(rows=np.zeros(0), Y=-np.ones(N))),
    "regression: Inf response": (VE, regression(Y=with_y(2, np.inf, RESPONSE))),
}


@pytest.mark.parametrize("error, settings", REFUSED.values(), ids=REFUSED)
def test_input_is_refused_before_the_call(error, settings):
    k = SLOT[list(settings)[-1]]
    with pytest.raises(error, match=rf"^input {k + 1} \({INPUT_NAMES[k]}\) \S") as info:
        arbolin.calyx(22, inputs_for(**settings), functions=gini_functions())
    assert type(info.value) is error  # not a subclass that the caller might not expect


@pytest.mark.parametrize("settings, message", [
    (dict(min_leaf=0), "input 7 (MinLeaf) must be a whole number of at least 1, not 0"),
    (dict(rows=np.array([0.0, 1.0, 1e15])), "input 4 (Rows) must hold 0-based row numbers of X, "
     "whole numbers from 0 to 7, not 1e+15 (at index 2)"),
    (dict(is_cat=np.zeros((1, D))), "input 5 (IsCat) must be a logical array of 3 elements, one "
     "for each column of X, not a 1 by 3 double array")])
def test_message_says_what_is_wanted_and_what_came(settings, message):
    with pytest.raises((TypeError, ValueError)) as info:
        arbolin.calyx(22, inputs_for(**settings))
    assert str(info.value) == message


@pytest.mark.parametrize("count", [19, 21])
def test_list_of_other_than_twenty_inputs_is_a_type_error(count):
    inputs = (inputs_for() + [EMPTY])[:count]
    with pytest.raises(TypeError, match=f"^the module takes 20 inputs, not {count}$"):
        arbolin.calyx(1, inputs)


def test_first_problem_in_order_of_position_is_reported():
    inputs = inputs_for(min_leaf=0, verbosity=9, X="abc")
    with pytest.raises(TypeError, match=r"^input 1 \(X\)"):
        arbolin.calyx(1, inputs)


def test_refusal_leaves_no_host_function_and_no_capture_behind(capfd):
    out = []
    with pytest.raises(ValueError):
        arbolin.calyx(1, inputs_for(min_leaf=0, criterion=custom()),
                      functions=gini_functions(), out=out)
    assert out == []
    # The function was registered for the refused call only.
    with pytest.raises(HostError):
        arbolin.calyx(1, inputs_for(criterion=custom()), out=out)
    assert "myparent" in "".join(out)
    arbolin.calyx(0, inputs_for(verbosity=1))
    assert "Processing layer 0" in capfd.readouterr().out


def levels_64():
    """One nominal predictor of 64 codes, each with two classes: none merges."""
    return dict(X=np.repeat(np.arange(64.0), 2)[:, None], W=np.ones(128), rows=np.arange(128.0),
                Y=np.ravel([[v % 3, (v + 1) % 3] for v in range(64)]).astype(float),
                is_cat=np.ones((1, 1), bool), sample_size=1, max_splits=1)


# Boundary values that pass; functions, for fresh streams each call.
VALID = {
    "defaults": lambda: {},
    "MinLeaf 1, MinParent 1": lambda: dict(min_leaf=1, min_parent=1),
    "MaxSplits 0": lambda: dict(max_splits=0),
    "MaxSplits 2^53": lambda: dict(max_splits=2.0 ** 53),
    "SampleSize 1, a stream": lambda: dict(sample_size=1, stream=arbolin.Stream(4)),
    "SampleSize D, no stream looked at": lambda: dict(sample_size=D, stream="no stream"),
    "empty Rows": lambda: dict(rows=np.zeros(0)),
    "X without rows": lambda: dict(X=np.zeros((0, D)), Y=np.zeros(0), W=np.zeros(0),
                                   rows=np.zeros(0)),
    "X without columns": lambda: dict(X=np.zeros((N, 0)), is_cat=np.zeros((1, 0), bool),
                                      sample_size=0),
    "Rows a matrix, rows repeated": lambda: dict(
        rows=np.array([[0, 1, 2, 3], [4, 5, 6, 7], [0, 0, 7, 7]], dtype=float)),
    "SurrogateCount D": lambda: dict(surrogates=D),
    "nominal, MaxCat 63, AlgCat 4": lambda: dict(is_cat=np.array([[False, False, True]]),
                                                 max_cat=63, alg_cat=4),
    # The enumeration refuses 64 levels (see MODULE_REFUSALS): the heuristics take them.
    "64 levels, MaxCat 63": lambda: dict(max_cat=63, **levels_64()),
    "MaxCat 0, AlgCat 0": lambda: dict(is_cat=np.array([[False, True, True]]), max_cat=0),
    "Verbosity 5": lambda: dict(verbosity=5, surrogates=1),
    "integer and single scalars": lambda: dict(min_leaf=np.int8(1), max_splits=np.uint64(3),
                                               min_parent=F4(2), risk_tol=F4(0.5)),
    "all flags": lambda: dict(curvature=True, interaction=True, chisq=True),
    "K by K cost": lambda: dict(cost=COST),
    "cost wider than the classes": lambda: dict(cost=1 - np.eye(4)),
    "cost of zeros, error": lambda: dict(criterion="error", cost=np.zeros((3, 3))),
    "empty cost of another class": lambda: dict(cost=""),
    "NaN class at an unused row": lambda: dict(Y=with_y(3, np.nan),
                                               rows=np.array([0.0, 1, 2, 4, 5, 6, 7])),
    "class N - 1": lambda: dict(Y=with_y(7, N - 1)),
    "NaN weight at an unused row": lambda: dict(W=with_y(0, np.nan, np.ones(N)),
                                                rows=np.arange(1.0, N)),
    "weights of 0": lambda: dict(W=with_y([0, 1, 2], 0.0, np.ones(N))),
    "single everything": lambda: dict(X=X.astype(F4), Y=CLASSES.astype(F4),
                                      W=np.ones(N, F4), cost=COST.astype(F4)),
    "single Y, double X and W": lambda: dict(Y=CLASSES.astype(F4)),
    "Y a row": lambda: dict(Y=CLASSES[None, :]),
    "custom, one host function": lambda: dict(criterion=custom()),
    "custom, two host functions, a cost": lambda: dict(
        criterion=Cell((2, 1), ["myparent", "mykids"]), cost=COST),
    "regression, RiskTolerance 0": lambda: regression(risk_tol=0.0),
    "regression, RiskTolerance 1": lambda: regression(risk_tol=1.0),
    "regression, NaN response at an unused row": lambda: regression(
        Y=with_y(0, np.nan, RESPONSE), rows=np.arange(1.0, N)),
}


@pytest.mark.parametrize("settings", VALID.values(), ids=VALID)
def test_valid_call_gives_the_outputs_of_the_unchecked_call(settings):
    checked = grow_text(inputs_for(**settings()), functions=gini_functions())
    assert_same(grow_text(inputs_for(**settings()), _core._calyx_unchecked,
                          functions=gini_functions()), checked)


def test_valid_boundaries_grow_real_trees():
    # Not only single nodes: the boundary settings still split.
    for settings in ("defaults", "SampleSize 1, a stream", "SurrogateCount D",
                     "single everything", "custom, one host function",
                     "regression, RiskTolerance 0"):
        children = arbolin.calyx(1, inputs_for(**VALID[settings]()), functions=gini_functions())
        assert children[0].shape[1] >= 3, settings


T = "tallix:silvan:learning:treeutils:"
# What the module refuses unchecked (or let pass): call, output count,
# inputs, identifier and arguments.
MODULE_REFUSALS = {
    "19 inputs": (_core._calyx_unchecked, 1, lambda: inputs_for()[:19],
                  T + "weaveCanopy:BadNumberOfInputArgs", (20,)),
    "19 inputs before 23 outputs": (_core._calyx_unchecked, 23, lambda: inputs_for()[:19],
                                    T + "weaveCanopy:BadNumberOfInputArgs", (20,)),
    "23 outputs": (arbolin.calyx, 23, inputs_for, T + "weaveCanopy:BadNumberOfOutputArgs", (22,)),
    **{f"criterion {c!r}": (_core._calyx_unchecked, 1, lambda c=c: inputs_for(criterion=c),
                            T + "SplitCriteriaFactory:make:BadCriterion", ())
       for c in ["Gini", 1.0]},
    "SampleSize D + 1": (_core._calyx_unchecked, 22,
                         lambda: inputs_for(sample_size=D + 1, stream=arbolin.Stream(1)),
                         "vellum:contextmgr:null", ()),
    # A method code past 4, with three classes or more, at the first nominal search.
    "AlgCat 5": (_core._calyx_unchecked, 22,
                 lambda: inputs_for(alg_cat=5, is_cat=np.array([[False, False, True]])),
                 T + "IndexedColumn:findNominalSplitWithBestGain:BadAlgCat", ()),
    "64 levels, MaxCat 64": (_core._calyx_unchecked, 22,
                             lambda: inputs_for(max_cat=64, **levels_64()),
                             T + "ClassificationNominalSplitFinder:exact:TooManyLevels", (64,)),
}


@pytest.mark.parametrize("call, nout, inputs, identifier, args", MODULE_REFUSALS.values(),
                         ids=MODULE_REFUSALS)
def test_module_refuses_on_its_own(call, nout, inputs, identifier, args):
    with pytest.raises(HostError) as info:
        call(nout, inputs())
    assert (info.value.identifier, info.value.args) == (identifier, args)
