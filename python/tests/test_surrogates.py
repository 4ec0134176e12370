"""Surrogate splits: association (numeric with orientation, nominal by level
lists), own gain, the ranked lists of outputs 17 to 22, routing of missing rows."""

import numpy as np
import pytest

from arbolin import Cell
from conftest import (CRITERIA, F4, F8, NAN, OUTPUTS, assert_same, check_tree, col, gini, grow,
                      grow_text, make_inputs, sse)

LISTS = OUTPUTS[16:]        # levels, directions, cut points, predictors, gains, associations


def assoc(p_match_low, p_match_high, min_p):
    """The association of one orientation, in the module's grouping: pLL and
    pRR for +1, pLR and pRL for -1, the two sums of a nominal assignment."""
    return (min_p - ((1 - p_match_low) - p_match_high)) / min_p


def stump(X, Y, **settings):
    """The root's split and its two children; every node is a leaf but the root."""
    return grow(make_inputs(np.column_stack(X), np.array(Y, dtype=float), min_parent=2,
                            max_splits=1, **settings))


def root(t):
    """The root's six surrogate lists by output name, 1 by s each."""
    return {name: t[name].data[0] for name in LISTS}


def check_root(t, levels, directions, cuts, predictors, gains, associations):
    """The root's lists (gains to a relative 1e-12), and none in the two leaves."""
    lists = root(t)
    assert lists["SurrogateLevels"] == Cell((1, len(levels)), levels)
    for name, expected in zip(LISTS[1:], (directions, cuts, predictors, gains, associations)):
        assert lists[name].shape == (1, len(expected)), name
        np.testing.assert_allclose(lists[name][0], expected, err_msg=name,
                                   rtol=1e-12 if name == "SurrogateGains" else 0)
    for name in LISTS:
        assert t[name].shape == (3, 1) and all(v.shape == (0, 0) for v in t[name].data[1:]), name


# Four rows of weights 0.6 0.1 | 0.05 0.25 (classes 0 0 | 1 1), MinLeaf 2, so
# that every predictor has the one division 2 | 2. The winner x2 sends 0.7
# left and 0.3 right: minP = 0.3. x0 puts 0.6 left-below, 0.1 left-above, 0.05
# right-below, 0.25 right-above: pLL + pRR = 0.85, error 0.15, association
# (0.3 - 0.15) / 0.3 = 0.5. x1 gets pLL + pRR = 0.65 against pLR + pRL = 0.35:
# orientation +1 with (0.3 - 0.35) / 0.3 < 0, so it is no surrogate.
WORKED_X, WORKED_Y = [[1, 3, 2, 4.0], [1, 3, 4, 2.0], [1, 2, 3, 4.0]], [0, 0, 1, 1]
WORKED_W = np.array([0.6, 0.1, 0.05, 0.25])


def test_worked_example_has_association_one_half():
    t = stump(WORKED_X, WORKED_Y, W=WORKED_W, min_leaf=2, surrogates=3)
    assert col(t, "CutVar")[0] == 3
    found = root(t)["SurrogateAssociations"]
    assert found.shape == (1, 1) and found[0, 0] == pytest.approx(0.5, rel=1e-12)
    # x0's own split of its rows, [0.6, 0.05] | [0.1, 0.25], valued against
    # the node's Gini risk 2 * 0.7 * 0.3.
    gain = 0.42 - gini(np.array([0.6, 0.05])) - gini(np.array([0.1, 0.25]))
    check_root(t, [""], [1], [2.5], [1], [gain], found[0])


# x0 parts classes 0 | 1 of rows 0-15; rows 16-19 are NaN in it, of classes
# 2 3 4 5, so that the class counts of the children show where each went.
# Node weight 20, minP 8 / 20; the four missing rows stay in every error, as
# do the rows missing in a surrogate (a copy would otherwise have 1).
#   x1 copies x0 (cut 8.5):                       pLL = pRR = 8/20    +1
#   x2 mirrors it times 10, NaN in row 0 (85):    pLR = 7/20, pRL = 8/20  -1
#   x3 copies it plus 100, NaN in rows 1, 14:     pLL = pRR = 7/20    +1
# Row 16 (x1 2.5) goes left and row 18 (x1 12.5) right by x1; row 17, NaN in
# x1, goes right by x2 (35 is below 85, direction -1); row 19, NaN in x1 and
# x2, goes left by x3 (101.5) - when x3 is kept.
def ranked_data():
    base = np.arange(1.0, 17)
    x1 = np.r_[base, 2.5, NAN, 12.5, NAN]
    x2 = np.r_[NAN, 10 * (17 - base[1:]), NAN, 35, 155, NAN]
    x3 = np.r_[base + 100, NAN, NAN, NAN, 101.5]
    x3[[1, 14]] = NAN
    return [np.r_[base, [NAN] * 4], x1, x2, x3], [0] * 8 + [1] * 8 + [2, 3, 4, 5]


@pytest.mark.parametrize("count", [1, 2, 3])
def test_missing_rows_follow_the_best_surrogate_with_a_value(count):
    X, Y = ranked_data()
    t = stump(X, Y, surrogates=count)
    # Own gains: each surrogate's cut over all its present rows, rows 16-19
    # included, against the node's risk 20 * 0.67 in its share of rows.
    g81, g71 = gini(np.array([8.0, 1])), gini(np.array([7.0, 1]))
    gains = [18 / 20 * 13.4 - 2 * g81, 17 / 20 * 13.4 - g81 - g71, 15 / 20 * 13.4 - g71]
    check_root(t, [""] * count, [1, -1, 1][:count], [8.5, 85, 108.5][:count],
               [2, 3, 4][:count], gains[:count],
               [assoc(0.4, 0.4, 0.4), assoc(0.35, 0.4, 0.4), assoc(0.35, 0.35, 0.4)][:count])
    left, right = [8, 0, 1, 0, 0, int(count == 3)], [0, 8, 0, int(count >= 2), 1, 0]
    assert t["ClassCount"][:, 1:].T.tolist() == [left, right]
    assert col(t, "NodeSize").tolist() == [20, sum(left), sum(right)]
    assert col(t, "HasUnroutedRows").tolist() == [count < 3, False, False]


def test_row_on_the_cut_of_a_surrogate_goes_high():
    # Regression, so that every change of value is a division. x1 has 1,
    # then v = 1 + 2^-52 (row 8, NaN in x0), then w = 1 + 2^-51: 1 and v are
    # tied, v and w too, 1 and w not. The cut after 1 is their midpoint,
    # which is v itself. Its association: pLL = 3/9 (row 3 lies far off at
    # 10), pRR = 4/9, minP 4/9. Row 8 is equal to the cut: high, so right.
    v, y = np.nextafter(1.0, 2), [0, 1, 2, 3, 100, 101, 102, 103, 50]
    w = np.nextafter(v, 2)
    t = stump([[1, 2, 3, 4, 5, 6, 7, 8, NAN], [0.5, 0.75, 1, 10, w, 2, 3, 4, v]], y,
              criterion="mse", surrogates=1)
    own = sse(np.array(y, float), np.ones(9)) - sse(np.array([0, 1, 2.0]), np.ones(3)) \
        - sse(np.array([3, 100, 101, 102, 103, 50.0]), np.ones(6))
    check_root(t, [""], [1], [v], [2], [own], [assoc(3 / 9, 4 / 9, 4 / 9)])
    assert col(t, "NodeSize").tolist() == [9, 4, 5] and not col(t, "HasUnroutedRows").any()
    assert col(t, "NodeValue")[1:].tolist() == [1.5, 91.2]


@pytest.mark.parametrize("surrogates", [0, 2])
def test_without_a_positive_association_the_missing_rows_stay(surrogates):
    # The classes split perfectly on the present values of x0; its two
    # missing rows go to neither child. The parent's risk 4 is charged in the
    # share 6 / 8 of the weight that x0 sees. x1's best division (after
    # x1 = 2) has pLL = 2/8, pRR = 3/8 with minP = 3/8: association exactly
    # 0, so it is not kept. x2 has no value at all.
    X = np.column_stack([[1, 2, 3, NAN, 4, 5, 6, NAN], [1, 8, 2, 7, 3, 6, 4, 5], [NAN] * 8])
    Y = np.array([0, 0, 0, 0, 1, 1, 1, 1.0])
    t = stump(X.T, Y, surrogates=surrogates)
    assert assoc(2 / 8, 3 / 8, 3 / 8) == 0
    for name in LISTS:
        assert all(v.shape == (0, 0) for v in t[name].data), name
    assert (col(t, "CutVar")[0], col(t, "CutPoint")[0], col(t, "Gain")[0]) == (1, 3.5, 3.0)
    assert col(t, "NodeProb").tolist() == col(t, "NodeSize").tolist() == [8, 3, 3]
    assert col(t, "HasUnroutedRows").tolist() == [True, False, False]
    check_tree(t, CRITERIA["gini"], X, Y, np.ones(8))


# x0 splits classes 0 0 0 0 | 1 1 1 1 of rows 0-7; rows 8 and 9 are NaN in
# x0 and in x2, a copy of x0 (times 10, plus 1). Nominal x1 holds codes
#   3 5 3 5 | 2 7 2 3 for rows 0-7, 7 for row 8 and 9 for row 9.
# Code 3 is 2 : 1 left, 5 all left, 2 and 7 right, 9 is in no child and goes
# left with a tie: levels [3 5 9] | [2 7], sumLeft 4/10, sumRight 3/10, minP
# 0.4. x2 ranks first (pLL = pRR = 0.4) but is NaN in rows 8 and 9: x1 sends
# row 8 (7) right and row 9 (9) left.
NOMINAL_X = [np.r_[np.arange(1.0, 9), NAN, NAN], [3, 5, 3, 5, 2, 7, 2, 3, 7, 9.0],
             np.r_[10 * np.arange(1.0, 9) + 1, NAN, NAN]]
NOMINAL_Y = [0, 0, 0, 0, 1, 1, 1, 1, 1, 0]


@pytest.mark.parametrize("surrogates", [0, 3])
@pytest.mark.parametrize("x, y, w", [(x, y, w) for x in (F8, F4) for y in (F8, F4) for w in (F8, F4)
                                     if (x, y, w) != (F8, F4, F4)])  # refused by calyx
def test_nominal_and_numeric_surrogates_in_the_outputs(x, y, w, surrogates):
    X = np.column_stack(NOMINAL_X).astype(x)
    t = grow(make_inputs(X, np.array(NOMINAL_Y, dtype=y), W=np.ones(10, dtype=w),
                         is_cat=np.array([[False, True, False]]), min_parent=2, max_splits=1,
                         surrogates=surrogates))
    # Each class of X, Y and W reaches a driver of its own.
    assert (t["CutPoint"].dtype, t["ClassCount"].dtype, t["NodeProb"].dtype) == (x, y, w)
    if not surrogates:
        for name in LISTS:
            assert_same(t[name], Cell((0, 0)), name, close=True)
        assert col(t, "NodeSize").tolist() == [10, 4, 4] and col(t, "HasUnroutedRows")[0]
        return
    # x2's own split is perfect on its 8 rows (risk 5 in the share 8/10);
    # x1's puts rows 0-3, 7, 9 ([5, 1]) against rows 4-6, 8 ([0, 4]).
    levels = Cell((1, 2), [np.array([[3, 5, 9]], x), np.array([[2, 7]], x)])
    expected = [
        Cell((1, 2), ["", levels]),
        np.array([[1, 0]], F8),                                   # directions
        np.array([[46, NAN]], x),                                 # cut points
        np.array([[3, 2]], F8),                                   # predictors + 1
        np.array([[4, 5 - gini(np.array([5.0, 1]))]], w),         # gains
        np.array([[assoc(0.4, 0.4, 0.4), assoc(0.4, 0.3, 0.4)]], w),
    ]
    for name, first in zip(LISTS, expected):
        empty = Cell((0, 0)) if name == LISTS[0] else np.zeros((0, 0), first.dtype)
        assert_same(t[name], Cell((3, 1), [first, empty, empty]), name, close=True)
    assert col(t, "NodeSize").tolist() == [10, 5, 5] and not col(t, "HasUnroutedRows").any()
    assert t["ClassCount"].tolist() == [[5, 5, 0], [5, 0, 5]]


@pytest.mark.parametrize("verbosity", [2, 3])
def test_progress_text_of_the_surrogate_search(verbosity):
    # The worked example, x2 winning: a line for each other predictor.
    _, text = grow_text(make_inputs(np.column_stack(WORKED_X), np.array(WORKED_Y, dtype=float),
                                    W=WORKED_W, min_leaf=2, min_parent=2, max_splits=1,
                                    surrogates=3, verbosity=verbosity))
    head, found = text.split("    Found 1 split candidates.\n")
    assert "urrogate" not in found
    if verbosity < 3:
        assert "urrogate" not in head
    else:
        assert head.rsplit("   gain = ", 1)[1].split("\n", 1)[1] == "".join(
            f"Searching for surrogate splits on predictor {j}...\n" for j in (0, 1))
