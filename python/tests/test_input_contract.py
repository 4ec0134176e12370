"""calyx checks the module's twenty inputs before the call. The module
trusts its caller, so an input that it would misread (a wrong class, a short
array, a row or class number out of range, a setting it divides by) used to
crash the interpreter or read outside its arrays. Each such input now raises
TypeError (class or shape) or ValueError (value), naming the input by its
position and name, and every valid call reaches the module exactly as
before: its outputs are those of the unchecked call."""

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


def inputs_for(x=X, Y=CLASSES, **settings):
    """Valid inputs of a classification on X, with `settings` by the keywords
    of conftest.KEYWORDS; `x` then replaces X, whatever it is."""
    inputs = make_inputs(X, Y, **{"min_parent": 2, **settings})
    inputs[SLOT["X"]] = x
    return inputs


def with_y(rows, values, y=CLASSES):
    y = y.copy()
    y[rows] = values
    return y


def regression(**settings):
    return {"criterion": "mse", "Y": RESPONSE, **settings}


# ------------------------------------------------------------- refusals

# The reported reproductions: each crashed the interpreter (SIGSEGV,
# SIGFPE), read past a buffer under the sanitizers, or grew a wrong tree.
REPORTED = {
    "IsCat of doubles": (TypeError, "IsCat", dict(is_cat=np.zeros((1, D)))),
    "X a Cell": (TypeError, "X", dict(x=Cell((1, 1), [1.0]))),
    "X a str": (TypeError, "X", dict(x="abc")),
    "Y a Cell": (TypeError, "Y", dict(Y=Cell((N, 1), [1.0] * N))),
    "Y a str": (TypeError, "Y", dict(Y="abcdefgh")),
    "W a Cell": (TypeError, "W", dict(W=Cell((N, 1), [1.0] * N))),
    "W a str": (TypeError, "W", dict(W="abcdefgh")),
    "Rows a Cell": (TypeError, "Rows", dict(rows=Cell((1, 1), [0.0]))),
    "Rows a str": (TypeError, "Rows", dict(rows="abc")),
    "IsCat a Cell": (TypeError, "IsCat", dict(is_cat=Cell((1, D), [True] * D))),
    "IsCat a str": (TypeError, "IsCat", dict(is_cat="abc")),
    "row 1e15": (ValueError, "Rows", dict(rows=np.array([0.0, 1.0, 1e15]))),
    "MinLeaf 0": (ValueError, "MinLeaf", dict(min_leaf=0)),
    "Y shorter than X": (TypeError, "Y", dict(Y=CLASSES[:-1])),
    "W shorter than X": (TypeError, "W", dict(W=np.ones(N - 1))),
    "row -1": (ValueError, "Rows", dict(rows=np.array([0.0, -1.0]))),
    "row N": (ValueError, "Rows", dict(rows=np.array([0.0, N]))),
    "cost a str": (TypeError, "CostArg", dict(cost="abc")),
    "NaN class in row 0": (ValueError, "Y", dict(Y=with_y(0, np.nan))),
    "NaN class in row 3": (ValueError, "Y", dict(Y=with_y(3, np.nan))),
    "class 1e6": (ValueError, "Y", dict(Y=with_y(5, 1e6))),
    "2 by 2 cost, 3 classes": (ValueError, "CostArg", dict(cost=1 - np.eye(2))),
    "SampleSize D + 1": (ValueError, "SampleSize", dict(sample_size=D + 1)),
}

# Everything else the contract refuses, input by input.
REFUSED = {
    "X 3-D": (TypeError, "X", dict(x=X.reshape(N, 1, D))),
    "X int32": (TypeError, "X", dict(x=X.astype(np.int32))),
    "X logical": (TypeError, "X", dict(x=X > 2)),
    "Y int64": (TypeError, "Y", dict(Y=CLASSES.astype(np.int64))),
    "Y longer than X": (TypeError, "Y", dict(Y=np.append(CLASSES, 0.0))),
    "double X, single Y and W": (TypeError, "W", dict(Y=CLASSES.astype(np.float32),
                                                    W=np.ones(N, np.float32))),
    "Rows single": (TypeError, "Rows", dict(rows=np.arange(N, dtype=np.float32))),
    "row 2.5": (ValueError, "Rows", dict(rows=np.array([0.0, 2.5]))),
    "row NaN": (ValueError, "Rows", dict(rows=np.array([np.nan]))),
    "IsCat short": (TypeError, "IsCat", dict(is_cat=np.zeros((1, D - 1), bool))),
    "criterion Gini": (ValueError, "CriterionArg", dict(criterion="Gini")),
    "criterion empty": (ValueError, "CriterionArg", dict(criterion="")),
    "criterion custom as text": (ValueError, "CriterionArg", dict(criterion="custom")),
    "criterion a number": (TypeError, "CriterionArg", dict(criterion=1.0)),
    "criterion cell of one": (TypeError, "CriterionArg", dict(criterion=Cell((1, 1), ["f"]))),
    "criterion cell of three": (TypeError, "CriterionArg",
                                dict(criterion=Cell((1, 3), ["f", "g", "h"]))),
    "criterion cell, a number": (TypeError, "CriterionArg",
                                 dict(criterion=Cell((1, 2), ["f", 1.0]))),
    "criterion cell, unset": (TypeError, "CriterionArg", dict(criterion=Cell((1, 2), ["f", None]))),
    "criterion cell, no parent": (ValueError, "CriterionArg",
                                  dict(criterion=Cell((1, 2), ["", "g"]))),
    "MinLeaf 1.5": (ValueError, "MinLeaf", dict(min_leaf=1.5)),
    "MinLeaf NaN": (ValueError, "MinLeaf", dict(min_leaf=np.nan)),
    "MinLeaf Inf": (ValueError, "MinLeaf", dict(min_leaf=np.inf)),
    "MinLeaf of two": (TypeError, "MinLeaf", dict(min_leaf=np.array([1.0, 2.0]))),
    "MinLeaf logical": (TypeError, "MinLeaf", dict(min_leaf=True)),
    "MinLeaf str": (TypeError, "MinLeaf", dict(min_leaf="1")),
    "MinParent 0": (ValueError, "MinParent", dict(min_parent=0)),
    "MaxSplits -1": (ValueError, "MaxSplits", dict(max_splits=-1)),
    "MaxSplits 2^60": (ValueError, "MaxSplits", dict(max_splits=2.0 ** 60)),
    "SampleSize 0": (ValueError, "SampleSize", dict(sample_size=0)),
    "SurrogateCount D + 1": (ValueError, "SurrogateCount", dict(surrogates=D + 1)),
    "MaxCat 64": (ValueError, "MaxCat", dict(max_cat=64)),
    "AlgCat 5": (ValueError, "AlgCat", dict(alg_cat=5)),
    "AlgCat -1": (ValueError, "AlgCat", dict(alg_cat=-1)),
    "cost single, weights double": (TypeError, "CostArg", dict(cost=COST.astype(np.float32))),
    "cost 3 by 2": (TypeError, "CostArg", dict(cost=np.ones((3, 2)))),
    "cost 0 by 3": (TypeError, "CostArg", dict(cost=np.zeros((0, 3)))),
    "cost negative": (ValueError, "CostArg", dict(cost=COST - 0.5)),
    "cost Inf": (ValueError, "CostArg",
                 dict(cost=np.array([[0, np.inf, 1], [1, 0, 1], [1, 1, 0]]))),
    "cost NaN": (ValueError, "CostArg", dict(cost=np.full((3, 3), np.nan))),
    "cost all 0, gini": (ValueError, "CostArg", dict(cost=np.zeros((3, 3)))),
    "cost summing to Inf": (ValueError, "CostArg", dict(cost=np.full((3, 3), 1e308))),
    "cost in a regression": (ValueError, "CostArg", regression(cost=np.ones((1, 1)))),
    "class 3 at an unused row, 3 by 3 cost": (ValueError, "CostArg", dict(
        Y=with_y(7, 3.0), rows=np.arange(7.0), cost=COST)),
    "RiskTolerance -0.1": (ValueError, "RiskTolerance", dict(risk_tol=-0.1)),
    "RiskTolerance 1.5": (ValueError, "RiskTolerance", dict(risk_tol=1.5)),
    "RiskTolerance NaN": (ValueError, "RiskTolerance", dict(risk_tol=np.nan)),
    "CurvatureFlag double": (TypeError, "CurvatureFlag", dict(curvature=1.0)),
    "InteractionFlag of two": (TypeError, "InteractionFlag",
                               dict(interaction=np.array([True, True]))),
    "ChisqFlag str": (TypeError, "ChisqFlag", dict(chisq="true")),
    "stream a number, drawing": (TypeError, "StreamArg", dict(sample_size=2, stream=3.0)),
    "Verbosity 6": (ValueError, "Verbosity", dict(verbosity=6)),
    "Verbosity -1": (ValueError, "Verbosity", dict(verbosity=-1)),
    "weight negative": (ValueError, "W", dict(W=with_y(2, -1.0, np.ones(N)))),
    "weight NaN": (ValueError, "W", dict(W=with_y(2, np.nan, np.ones(N)))),
    "weight Inf, single": (ValueError, "W",
                           dict(W=with_y(2, np.inf, np.ones(N)).astype(np.float32))),
    "class -1": (ValueError, "Y", dict(Y=with_y(1, -1.0))),
    "class 1.5": (ValueError, "Y", dict(Y=with_y(1, 1.5))),
    "class 2.5, single": (ValueError, "Y", dict(Y=with_y(1, 2.5).astype(np.float32))),
    "class N at an unused row": (ValueError, "Y", dict(Y=with_y(7, N), rows=np.arange(7.0))),
    "only negative values, no rows": (ValueError, "Y", dict(Y=-np.ones(N), rows=np.zeros(0))),
    "custom: class 1e6": (ValueError, "Y", dict(Y=with_y(5, 1e6),
                                              criterion=custom())),
    "regression: Inf response": (ValueError, "Y", regression(Y=with_y(2, np.inf, RESPONSE))),
    "regression: NaN response": (ValueError, "Y", regression(Y=with_y(2, np.nan, RESPONSE))),
}


@pytest.mark.parametrize("error, name, settings", [*REPORTED.values(), *REFUSED.values()],
                         ids=[*REPORTED, *REFUSED])
def test_input_is_refused_before_the_call(error, name, settings):
    inputs = inputs_for(**settings)
    position = INPUT_NAMES.index(name) + 1
    with pytest.raises(error, match=rf"^input {position} \({name}\) \S") as info:
        arbolin.calyx(22, inputs, functions=gini_functions())
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


@pytest.mark.parametrize("count", [0, 19, 21])
def test_list_of_other_than_twenty_inputs_is_a_type_error(count):
    inputs = (inputs_for() + [EMPTY])[:count]
    with pytest.raises(TypeError, match=f"^the module takes 20 inputs, not {count}$"):
        arbolin.calyx(1, inputs)


def test_first_problem_in_order_of_position_is_reported():
    inputs = inputs_for(min_leaf=0, verbosity=9, x="abc")
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


# --------------------------------------------------------- valid calls

F4 = np.float32

# Boundary values that must still pass. Each is a function, so that each
# call gets fresh streams.
VALID = {
    "defaults": lambda: {},
    "MinLeaf 1, MinParent 1": lambda: dict(min_leaf=1, min_parent=1),
    "MaxSplits 0": lambda: dict(max_splits=0),
    "MaxSplits 2^53": lambda: dict(max_splits=2.0 ** 53),
    "SampleSize 1, a stream": lambda: dict(sample_size=1, stream=arbolin.Stream(4)),
    "SampleSize D, no stream looked at": lambda: dict(sample_size=D, stream="no stream"),
    "empty Rows": lambda: dict(rows=np.zeros(0)),
    "X without rows": lambda: dict(x=np.zeros((0, D)), Y=np.zeros(0), W=np.zeros(0),
                                   rows=np.zeros(0)),
    "X without columns": lambda: dict(x=np.zeros((N, 0)), is_cat=np.zeros((1, 0), bool),
                                      sample_size=0),
    "Rows a matrix, rows repeated": lambda: dict(
        rows=np.array([[0, 1, 2, 3], [4, 5, 6, 7], [0, 0, 7, 7]], dtype=float)),
    "some rows": lambda: dict(rows=np.array([1.0, 3.0, 4.0, 5.0, 7.0])),
    "SurrogateCount D - 1": lambda: dict(surrogates=D - 1),
    "SurrogateCount D": lambda: dict(surrogates=D),
    "nominal, MaxCat 63, AlgCat 4": lambda: dict(is_cat=np.array([[False, False, True]]),
                                                 max_cat=63, alg_cat=4),
    "MaxCat 0, AlgCat 0": lambda: dict(is_cat=np.array([[False, True, True]]), max_cat=0),
    "Verbosity 5": lambda: dict(verbosity=5, surrogates=1),
    "integer scalars": lambda: dict(min_leaf=np.int8(1), max_splits=np.uint64(3),
                                    verbosity=np.int32(0)),
    "single scalars": lambda: dict(min_parent=F4(2), risk_tol=F4(0.5)),
    "all flags": lambda: dict(curvature=True, interaction=True, chisq=True),
    "K by K cost": lambda: dict(cost=COST),
    "cost wider than the classes": lambda: dict(cost=1 - np.eye(4)),
    "cost of zeros, error": lambda: dict(criterion="error", cost=np.zeros((3, 3))),
    "empty cost of another class": lambda: dict(cost=""),
    "NaN class at an unused row": lambda: dict(Y=with_y(3, np.nan),
                                               rows=np.array([0.0, 1, 2, 4, 5, 6, 7])),
    "class N - 1": lambda: dict(Y=with_y(7, N - 1)),
    "negative class at an unused row": lambda: dict(Y=with_y(7, -5.0), rows=np.arange(7.0)),
    "NaN weight at an unused row": lambda: dict(W=with_y(0, np.nan, np.ones(N)),
                                                rows=np.arange(1.0, N)),
    "weights of 0": lambda: dict(W=with_y([0, 1, 2], 0.0, np.ones(N))),
    "single everything": lambda: dict(x=X.astype(F4), Y=CLASSES.astype(F4),
                                      W=np.ones(N, F4), cost=COST.astype(F4)),
    "single weights and cost": lambda: dict(W=np.ones(N, F4), cost=COST.astype(F4)),
    "single Y, double X and W": lambda: dict(Y=CLASSES.astype(F4)),
    "Y a row": lambda: dict(Y=CLASSES[None, :]),
    "custom, one host function": lambda: dict(criterion=custom()),
    "custom, two host functions, a cost": lambda: dict(
        criterion=Cell((2, 1), ["myparent", "mykids"]), cost=COST),
    "regression, RiskTolerance 0": lambda: regression(risk_tol=0.0),
    "regression, RiskTolerance 1": lambda: regression(risk_tol=1.0),
    "regression, NaN response at an unused row": lambda: regression(
        Y=with_y(0, np.nan, RESPONSE), rows=np.arange(1.0, N)),
    "regression, negative response": lambda: regression(Y=-RESPONSE),
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


# --------------------------------------------- the module's own refusals

def levels_64():
    """One nominal predictor of 64 codes, each with two classes: none merges."""
    return dict(x=np.repeat(np.arange(64.0), 2)[:, None], W=np.ones(128), rows=np.arange(128.0),
                Y=np.ravel([[v % 3, (v + 1) % 3] for v in range(64)]).astype(float),
                is_cat=np.ones((1, 1), bool), sample_size=1, max_splits=1)


T = "tallix:silvan:learning:treeutils:"
NOMINAL = dict(is_cat=np.array([[False, False, True]]))
# What the module refuses when calyx does not check first (or lets pass):
# the call, the output count, the inputs, and the identifier and arguments.
MODULE_REFUSALS = {
    "19 inputs": (_core._calyx_unchecked, 1, lambda: inputs_for()[:19],
                  T + "weaveCanopy:BadNumberOfInputArgs", (20,)),
    "21 inputs": (_core._calyx_unchecked, 1, lambda: inputs_for() + [EMPTY],
                  T + "weaveCanopy:BadNumberOfInputArgs", (20,)),
    "19 inputs before 23 outputs": (_core._calyx_unchecked, 23, lambda: inputs_for()[:19],
                                    T + "weaveCanopy:BadNumberOfInputArgs", (20,)),
    "23 outputs": (arbolin.calyx, 23, inputs_for, T + "weaveCanopy:BadNumberOfOutputArgs", (22,)),
    "100 outputs": (arbolin.calyx, 100, inputs_for, T + "weaveCanopy:BadNumberOfOutputArgs",
                    (22,)),
    **{f"criterion {c!r}": (_core._calyx_unchecked, 1, lambda c=c: inputs_for(criterion=c),
                            T + "SplitCriteriaFactory:make:BadCriterion", ())
       for c in ["Gini", "GDI", "foo", "", "mse ", 1.0, True]},
    "SampleSize D + 1": (_core._calyx_unchecked, 22,
                         lambda: inputs_for(sample_size=D + 1, stream=arbolin.Stream(1)),
                         "vellum:contextmgr:null", ()),
    # A method code past 4, with three classes or more, at the first nominal search.
    "AlgCat 5": (_core._calyx_unchecked, 22, lambda: inputs_for(alg_cat=5, **NOMINAL),
                 T + "IndexedColumn:findNominalSplitWithBestGain:BadAlgCat", ()),
    "AlgCat 7, 4 classes": (_core._calyx_unchecked, 22,
                            lambda: inputs_for(alg_cat=7, Y=with_y(7, 3.0), **NOMINAL),
                            T + "IndexedColumn:findNominalSplitWithBestGain:BadAlgCat", ()),
    "64 levels, AlgCat 1": (_core._calyx_unchecked, 22,
                            lambda: inputs_for(alg_cat=1, **levels_64()),
                            T + "ClassificationNominalSplitFinder:exact:TooManyLevels", (64,)),
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
