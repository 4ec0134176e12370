"""Whole trees grown on numeric predictors: the shape of the tree and the
statistics of its nodes against a reference search, small trees worked out by
hand, the budget of splits, the stops, weights, the random choice of
predictors, missing values, serial against parallel runs, a peer
implementation, and the printed progress."""

import math

import numpy as np
import pytest

import arbolin
from arbolin import Cell, HostError
from conftest import OUTPUTS, grow, make_inputs

LN4 = 1.3862943611198906          # 2 log 2: the scale of the deviance
COST = np.array([[0.0, 1.0, 2.0], [1.0, 0.0, 1.0], [3.0, 1.0, 0.0]])
NAN = math.nan


# --------------------------------------------------- reference criteria
# Each takes class weights as rows (m by K) and gives one value a row.

def gini(v):
    s = v.sum(-1)
    return (1 - ((v / s[..., None]) ** 2).sum(-1)) * s


def deviance(v):
    s = v.sum(-1)
    p = v / s[..., None]
    return -(p * np.log(np.where(p > 0, p, 1))).sum(-1) / LN4 * s


def error(v):
    return v.sum(-1) - v.max(-1)


def twoing_kids(a, b):
    left, right = a.sum(-1), b.sum(-1)
    spread = np.abs(a / left[..., None] - b / right[..., None]).sum(-1)
    return -left * right * spread ** 2 * 0.25


# The factors of the average cost correction: a mean of one, each class in
# proportion to its row of costs.
FACTORS = len(COST) * COST.sum(1) / COST.sum()


class Crit:
    """A criterion as the search sees it: how class weights are corrected,
    the value of one set and of a split."""

    def __init__(self, name, cost=None, parent=None, corrected=False):
        self.name, self.cost, self.parent = name, cost, parent
        self.factors = FACTORS if corrected else 1.0
        self.regression = name == "mse"

    def inputs(self, X, Y, **settings):
        if self.cost is not None:
            # The module reads the costs in the class of the weights.
            settings["cost"] = self.cost.astype(np.asarray(settings.get("W", 1.0)).dtype)
        return make_inputs(X, Y, criterion=self.name, **settings)

    def risk(self, v):
        return 0.0 * v.sum(-1) if self.parent is None else self.parent(v * self.factors)

    def kids(self, a, b):
        if self.parent is None:
            return twoing_kids(a * self.factors, b * self.factors)
        return self.risk(a) + self.risk(b)


CRITERIA = {
    "gini": Crit("gini", parent=gini),
    "gdi": Crit("gdi", parent=gini),
    "deviance": Crit("deviance", parent=deviance),
    "error": Crit("error", parent=error),
    "twoing": Crit("twoing"),
    "gini-cost": Crit("gini", COST, gini, corrected=True),
    "error-cost": Crit("error", COST, lambda v: (v @ COST).min(-1)),
    "mse": Crit("mse"),
}


def sse(y, w):
    """Weighted sum of squares about the weighted mean."""
    return float((w * (y - (w * y).sum() / w.sum()) ** 2).sum()) if len(y) else 0.0


def class_weights(y, w, k):
    return np.bincount(y.astype(int), weights=w, minlength=k).astype(float)


def node_risk(crit, y, w, k):
    return sse(y, w) if crit.regression else float(crit.risk(class_weights(y, w, k)))


def candidates(crit, X, Y, W, rows, k, min_leaf):
    """Every legal cut of every predictor at a node of `rows`, as (gain, j,
    cut, left rows). The parent's risk is charged in the share of the node's
    weight that has a value in the predictor."""
    y, w = Y[rows], W[rows]
    risk = node_risk(crit, y, w, k)
    total = w.sum() if crit.regression else (class_weights(y, w, k) * crit.factors).sum()
    found = []
    for j in range(X.shape[1]):
        x = X[rows, j]
        present = ~np.isnan(x)
        order = np.argsort(x[present], kind="stable")
        xs, ys, ws = x[present][order], y[present][order], w[present][order]
        n = len(xs)
        if n < 2 * min_leaf:
            continue
        lo, hi = min_leaf - 1, n - min_leaf          # cut after position lo .. hi - 1
        if crit.regression:
            # Sums of w, w y and w y^2 below each cut, and above it.
            sums = np.cumsum([ws, ws * ys, ws * ys * ys], 1)
            below, above = sums[:, lo:hi], sums[:, -1:] - sums[:, lo:hi]
            kids = sum(q - s * s / t for t, s, q in (below, above))
            share = ws.sum() / total
        else:
            onehot = np.zeros((n, k))
            onehot[np.arange(n), ys.astype(int)] = ws
            below = np.cumsum(onehot, 0)
            kids = crit.kids(below[lo:hi], below[-1] - below[lo:hi])
            share = (below[-1] * crit.factors).sum() / total
        gains = share * risk - kids
        for d, g in zip(range(lo, hi), gains):
            if xs[d] != xs[d + 1]:
                found.append((float(g), j, (xs[d] + xs[d + 1]) / 2,
                              np.asarray(rows)[present][order][:d + 1]))
    return found


# -------------------------------------------------------- tree checks

def col(t, name):
    return t[name][:, 0]


def could_split(X, Y, rows, min_leaf):
    """Some predictor has at least 2 MinLeaf rows with a value, and the
    response and the values both vary among them."""
    for x in X[rows].T:
        present = ~np.isnan(x)
        if (present.sum() >= 2 * min_leaf and np.ptp(Y[rows][present]) > 0
                and np.ptp(x[present]) > 0):
            return True
    return False


def check_tree(t, crit, X, Y, W, min_leaf=1, min_parent=2, budget=True):
    """The tree's own consistency, and each node against the rows that reach
    it when the rows are routed by the cuts: x < CutPoint goes left, a
    missing value nowhere."""
    k = t["ClassCount"].shape[0]
    n = t["NodeSize"].shape[0]
    left, right = t["Children"].astype(int)
    parent, cutvar = col(t, "Parent").astype(int), col(t, "CutVar").astype(int)
    cut, gain, branch = col(t, "CutPoint"), col(t, "Gain"), col(t, "IsBranch")
    reached = {0: np.arange(len(Y))}
    assert parent[0] == 0
    for i in range(n):
        rows = reached[i]
        y, w = Y[rows], W[rows]
        assert col(t, "NodeSize")[i] == len(rows)
        np.testing.assert_allclose(col(t, "NodeProb")[i], w.sum(), rtol=1e-12)
        np.testing.assert_allclose(col(t, "NodeRisk")[i], node_risk(crit, y, w, k),
                                   rtol=1e-9, atol=1e-12)
        if crit.regression:
            np.testing.assert_allclose(col(t, "NodeValue")[i], (w * y).sum() / w.sum(),
                                       rtol=1e-12)
        else:
            assert list(t["ClassCount"][:, i]) == list(np.bincount(y.astype(int), minlength=k))
            assert col(t, "NodeValue")[i] == np.argmax(t["ClassProb"][:, i])
        if i:
            assert len(rows) >= min_leaf
        found = candidates(crit, X, Y, W, rows, k, min_leaf)
        if not branch[i]:
            assert left[i] == right[i] == 0
            assert cutvar[i] == 0 and gain[i] == 0 and np.isnan(cut[i])
            assert not (budget and col(t, "HasUnroutedRows")[i])
            # Without a budget, no leaf could have been split.
            if budget and len(rows) >= min_parent and could_split(X, Y, rows, min_leaf):
                pytest.fail(f"node {i + 1} of {len(rows)} rows was left unsplit")
            continue
        assert len(rows) >= min_parent
        assert right[i] == left[i] + 1 and parent[left[i] - 1] == parent[right[i] - 1] == i + 1
        assert cutvar[i] >= 1 and np.isfinite(cut[i])
        x = X[rows, cutvar[i] - 1]
        present = ~np.isnan(x)
        reached[left[i] - 1], reached[right[i] - 1] = rows[x < cut[i]], rows[x >= cut[i]]
        assert col(t, "HasUnroutedRows")[i] == (not present.all())
        kids = [left[i] - 1, right[i] - 1]
        if present.all():
            np.testing.assert_allclose(col(t, "NodeProb")[kids].sum(), col(t, "NodeProb")[i],
                                       rtol=1e-12)
            assert (t["ClassCount"][:, kids].sum(1) == t["ClassCount"][:, i]).all()
        else:
            assert col(t, "NodeSize")[kids].sum() == present.sum() < len(rows)
        # The gain is that of the chosen cut, and no cut does better
        # (the reference search is exact up to rounding; twoing is not
        # reduced to boundary points, so it is only checked for its value).
        tol = 1e-9 * max(abs(col(t, "NodeRisk")[0]), 1.0)
        chosen = [c for c in found if c[1] == cutvar[i] - 1 and c[2] == cut[i]]
        assert len(chosen) == 1, f"node {i + 1}: cut {cut[i]} is not a legal midpoint"
        assert abs(chosen[0][0] - gain[i]) <= tol
        assert sorted(chosen[0][3]) == sorted(reached[left[i] - 1])
        if crit.parent is not None:
            assert max(c[0] for c in found) <= gain[i] + tol
    assert len(reached) == n


def random_data(seed, n=80, d=3, k=3, regression=False, weighted=False, nan=0.0):
    rng = np.random.default_rng(seed)
    X = rng.random((n, d))
    if regression:
        Y = np.sin(5 * X[:, 0]) + X[:, 1] + 0.3 * rng.standard_normal(n)
    else:
        score = X[:, 0] + 0.6 * X[:, 1] + 0.5 * rng.random(n)
        Y = np.searchsorted(np.quantile(score, np.arange(1, k) / k), score).astype(float)
    W = rng.integers(1, 4, n).astype(float) if weighted else np.ones(n)
    if nan:
        X[rng.random((n, d)) < nan] = NAN
    return X, Y, W


@pytest.mark.parametrize("min_leaf, min_parent, weighted, nan", [
    (1, 2, False, 0.0), (3, 10, True, 0.0), (7, 25, False, 0.0), (2, 6, True, 0.15)],
    ids=["leaf1", "leaf3-weighted", "leaf7", "leaf2-nan"])
@pytest.mark.parametrize("name", CRITERIA)
def test_grown_tree_is_consistent_and_each_split_is_best(name, min_leaf, min_parent, weighted,
                                                          nan):
    crit = CRITERIA[name]
    X, Y, W = random_data(min_leaf, regression=crit.regression, weighted=weighted, nan=nan)
    t = grow(crit.inputs(X, Y, W=W, min_leaf=min_leaf, min_parent=min_parent))
    assert t["NodeSize"].shape[0] >= 5
    check_tree(t, crit, X, Y, W, min_leaf, min_parent)


@pytest.mark.parametrize("surrogates", [0, 2])
def test_rows_missing_in_the_winner_stay_unrouted(surrogates):
    # The root's classes split perfectly on the present values of x0; its
    # two missing rows go to neither child. The parent's risk 4 is charged
    # in the share 6 / 8 of the weight that x0 sees. With surrogates asked
    # for, x1's best association is exactly 0 (pLL 2/8, pRR 3/8, minP 3/8):
    # it is not kept, so nothing routes the two rows.
    x0 = [1, 2, 3, NAN, 4, 5, 6, NAN]
    X = np.column_stack([x0, [1, 8, 2, 7, 3, 6, 4, 5]])
    Y = np.array([0, 0, 0, 0, 1, 1, 1, 1.0])
    t = grow(make_inputs(X, Y, min_parent=2, surrogates=surrogates))
    assert list(col(t, "NodeSize")) == [8, 3, 3]
    assert list(col(t, "HasUnroutedRows")) == [True, False, False]
    assert (col(t, "CutVar")[0], col(t, "CutPoint")[0], col(t, "Gain")[0]) == (1, 3.5, 3.0)
    assert list(col(t, "NodeProb")) == [8, 3, 3]
    if surrogates:
        assert t["SurrogatePredictors"].data[0].shape == (0, 0)
    check_tree(t, CRITERIA["gini"], X, Y, np.ones(8))


# ------------------------------------------------------ hand-worked trees

def test_small_classification_tree_by_hand():
    # Classes 0 0 0 1 0 1 1 1 over x = 1..8; Gini risk of the root 8 * 0.5.
    # The cuts 3.5 ([3, 0] | [1, 4]) and 5.5 ([4, 1] | [0, 3]) both leave
    # 5 * (1 - 0.04 - 0.64) = 1.6: the lower cut wins. Node 3 (x 4..8,
    # classes 1 0 1 1 1) is cut at 5.5: [1, 1] | [0, 3], risk 1, gain 0.6;
    # node 4 (x 4, 5) at 4.5 with gain 1.
    x = np.arange(1.0, 9.0)
    t = grow(make_inputs(x[:, None], np.array([0, 0, 0, 1, 0, 1, 1, 1.0]), min_parent=2))
    assert t["Children"].tolist() == [[2, 0, 4, 6, 0, 0, 0], [3, 0, 5, 7, 0, 0, 0]]
    assert col(t, "Parent").tolist() == [0, 1, 1, 3, 3, 4, 4]
    assert col(t, "CutVar").tolist() == [1, 0, 1, 1, 0, 0, 0]
    np.testing.assert_equal(col(t, "CutPoint"), [3.5, NAN, 5.5, 4.5, NAN, NAN, NAN])
    risk = lambda a, b: (1 - ((a / (a + b)) ** 2 + (b / (a + b)) ** 2)) * (a + b)
    np.testing.assert_allclose(col(t, "NodeRisk"), [4, 0, risk(1, 4), 1, 0, 0, 0], rtol=1e-15)
    np.testing.assert_allclose(col(t, "Gain"), [4 - risk(1, 4), 0, risk(1, 4) - 1, 1, 0, 0, 0],
                               rtol=1e-15)
    assert t["ClassCount"].tolist() == [[4, 3, 1, 1, 0, 0, 1], [4, 0, 4, 1, 3, 1, 0]]
    assert col(t, "NodeSize").tolist() == [8, 3, 5, 2, 3, 1, 1]
    assert col(t, "NodeValue").tolist() == [0, 0, 1, 0, 1, 1, 0]


def test_small_regression_tree_by_hand():
    # y = 1 2 3 10 11 12: root risk 2 * (5.5^2 + 4.5^2 + 3.5^2) = 125.5, cut
    # between x 1.5 and 5 leaves 2 + 2. With weight 2 on the first row the
    # root's mean is 40 / 7; the cut stays, the left mean becomes 7 / 4 and
    # its risk 2 * 0.75^2 + 0.25^2 + 1.25^2 = 2.75.
    X = np.array([[1.0], [2], [3], [10], [11], [12]]) * 0.5
    Y = np.array([1.0, 2, 3, 10, 11, 12])
    t = grow(make_inputs(X, Y, criterion="mse", min_parent=2, max_splits=1))
    assert col(t, "CutPoint")[0] == 3.25 and col(t, "CutVar")[0] == 1
    assert col(t, "Gain").tolist() == [121.5, 0, 0]
    assert col(t, "NodeRisk").tolist() == [125.5, 2, 2]
    assert col(t, "NodeValue").tolist() == [6.5, 2, 11]
    W = np.array([2.0, 1, 1, 1, 1, 1])
    t = grow(make_inputs(X, Y, W=W, criterion="mse", min_parent=2, max_splits=1))
    mean = 40 / 7
    root = 2 * (1 - mean) ** 2 + sum((v - mean) ** 2 for v in Y[1:])
    np.testing.assert_allclose(col(t, "NodeRisk"), [root, 2.75, 2], rtol=1e-14)
    np.testing.assert_allclose(col(t, "Gain")[0], root - 4.75, rtol=1e-14)
    assert col(t, "NodeProb").tolist() == [7, 4, 3]


@pytest.mark.parametrize("columns, cutvar, cutpoint", [
    ((0, 1), 1, 4.5), ((1, 0), 1, 45.0), ((2, 0, 1), 2, 4.5), ((2, 1, 0), 2, 45.0)])
def test_equal_gains_in_two_predictors_go_to_the_earlier(columns, cutvar, cutpoint):
    # x and 10 x split the classes alike (cut after x = 4: [3, 1] | [0, 4]),
    # with bit-equal gains; the shuffled column 2 splits them worse.
    x = np.arange(1.0, 9.0)
    pool = [x, 10 * x, np.array([8, 1, 7, 2, 6, 3, 5, 4.0])]
    X = np.column_stack([pool[c] for c in columns])
    t = grow(make_inputs(X, np.array([0, 0, 1, 0, 1, 1, 1, 1.0]), max_splits=1, min_parent=2))
    assert (col(t, "CutVar")[0], col(t, "CutPoint")[0]) == (cutvar, cutpoint)


@pytest.mark.parametrize("min_leaf, cut, sizes", [(1, 1.5, [8, 1, 7]), (2, 2.5, [8, 2, 6]),
                                                  (4, 4.5, [8, 4, 4]), (5, NAN, [8])])
def test_min_leaf_moves_the_cut(min_leaf, cut, sizes):
    x = np.arange(1.0, 9.0)
    t = grow(make_inputs(x[:, None], np.array([0, 1, 1, 1, 1, 1, 1, 1.0]), min_leaf=min_leaf,
                         min_parent=2, max_splits=1))
    np.testing.assert_equal(col(t, "CutPoint")[0], cut)
    assert col(t, "NodeSize").tolist() == sizes


# ------------------------------------------------------ budget of splits

# Pairs of close responses in four groups: the root parts {0, 1, 10, 11}
# from {100, 101, 130, 131}; the right half has the larger gain (900 to 100).
BUDGET_Y = np.array([0.0, 1, 10, 11, 100, 101, 130, 131])


def budget_tree(max_splits, reverse=False, verbosity=0):
    y = BUDGET_Y[::-1] if reverse else BUDGET_Y
    inputs = make_inputs(np.arange(8.0)[:, None], y, criterion="mse", min_parent=2,
                         max_splits=max_splits, verbosity=verbosity)
    out = []
    return dict(zip(OUTPUTS, arbolin.calyx(22, inputs, out=out))), "".join(out)


@pytest.mark.parametrize("max_splits, nodes, branches", [
    (0, 1, []), (1, 3, [1]), (3, 7, [1, 2, 3]), (100, 15, [1, 2, 3, 4, 5, 6, 7])])
def test_budget_limits_the_layers(max_splits, nodes, branches):
    t, _ = budget_tree(max_splits)
    assert t["NodeSize"].shape[0] == nodes
    assert [i + 1 for i in np.flatnonzero(col(t, "IsBranch"))] == branches
    # Nodes after the last kept layer are never searched, though they could split.
    assert (col(t, "CutVar")[np.logical_not(col(t, "IsBranch"))] == 0).all()
    assert (col(t, "Gain")[np.logical_not(col(t, "IsBranch"))] == 0).all()


@pytest.mark.parametrize("reverse", [False, True], ids=["right-kept", "left-kept"])
def test_budget_keeps_the_split_of_larger_gain(reverse):
    t, text = budget_tree(2, reverse, verbosity=2)
    kept, dropped = (2, 3) if reverse else (3, 2)       # 1-based
    assert t["Children"].tolist()[0][kept - 1] == 4 and t["Children"][1, kept - 1] == 5
    assert col(t, "Parent").tolist() == [0, 1, 1, kept, kept]
    assert col(t, "Gain")[kept - 1] == 900 and col(t, "Gain")[dropped - 1] == 0
    assert col(t, "CutVar")[dropped - 1] == 0 and np.isnan(col(t, "CutPoint")[dropped - 1])
    assert ("    Found 2 split candidates.\n    Will keep only 1 splits.\n"
            f"Unsplitting node {dropped - 1}.\n") in text
    _, text = budget_tree(2, reverse, verbosity=1)
    assert "Will keep only 1 splits.\n" in text and "Unsplitting" not in text
    _, text = budget_tree(3, reverse, verbosity=2)
    assert "Will keep" not in text and "Unsplitting" not in text


@pytest.mark.parametrize("max_splits", [2, 4, 7, 12])
def test_budget_keeps_the_best_splits_of_the_last_layer(max_splits):
    crit = CRITERIA["gini"]
    X, Y, W = random_data(11, n=120)
    full = grow(crit.inputs(X, Y, min_parent=2))
    t = grow(crit.inputs(X, Y, min_parent=2, max_splits=max_splits))
    assert col(t, "IsBranch").sum() == min(max_splits, col(full, "IsBranch").sum())
    check_tree(t, crit, X, Y, W, budget=False)
    # Up to the layer where the budget ran out the trees agree node by node;
    # there the kept splits are those of the largest gain.
    depth, full_depth = depths(t), depths(full)
    last = depth[col(t, "IsBranch")].max()
    layer = np.flatnonzero(depth == last)
    assert (full_depth[layer] == last).all()
    same = np.flatnonzero(depth < last)
    assert (col(t, "IsBranch")[same] == col(full, "IsBranch")[same]).all()
    kept = [col(full, "Gain")[i] for i in layer if col(t, "IsBranch")[i]]
    withdrawn = [col(full, "Gain")[i] for i in layer
                 if col(full, "IsBranch")[i] and not col(t, "IsBranch")[i]]
    assert not withdrawn or min(kept) >= max(withdrawn)


def depths(t):
    parent = col(t, "Parent").astype(int)
    depth = np.zeros(len(parent), int)
    for i in range(1, len(parent)):
        depth[i] = depth[parent[i] - 1] + 1
    return depth


# ------------------------------------------------------------- stops

def stopped_root(criterion, y, **settings):
    """Grows a tree on x = 0, 1, ...; whether the root was searched at all
    (its predictor sorted), and the number of nodes."""
    out = []
    inputs = make_inputs(np.arange(len(y), dtype=float)[:, None], np.array(y, dtype=float),
                         criterion=criterion, verbosity=2, **settings)
    nodes = arbolin.calyx(1, inputs, out=out)[0].shape[1]
    return "Sorting variable 0...\n" in "".join(out).split("    Found")[0], nodes


@pytest.mark.parametrize("criterion", ["gini", "mse"])
@pytest.mark.parametrize("min_parent, searched, nodes", [(3, True, 3), (4, True, 3),
                                                         (5, False, 1)])
def test_node_of_min_parent_rows_is_searched(criterion, min_parent, searched, nodes):
    assert stopped_root(criterion, [0, 0, 1, 1], min_parent=min_parent) == (searched, nodes)


@pytest.mark.parametrize("criterion", ["gini", "deviance", "twoing", "error", "gdi"])
def test_pure_node_is_not_searched(criterion):
    assert stopped_root(criterion, [1] * 6, min_parent=1) == (False, 1)


@pytest.mark.parametrize("criterion, y, searched", [("gini", [0, 1, 0, 1], True),
                                                    ("mse", [0, 1, 2, 3], False)])
def test_node_without_weight_is_not_split(criterion, y, searched):
    # In regression the weight 0 stops the node at once; in classification
    # the class shares are 0 / 0 and a NaN weight passes that test, but the
    # search finds no weight to split.
    assert stopped_root(criterion, y, W=np.zeros(4), min_parent=1) == (searched, 1)


@pytest.mark.parametrize("risk_tol, nodes", [
    (0.0, 11), (2 / 125.5, 7), (np.nextafter(2 / 125.5, 1), 3), (1.0, 3), (1.0 + 1e-12, 1)])
def test_regression_risk_tolerance_is_a_share_of_the_root_risk(risk_tol, nodes):
    # Root risk 125.5; the children 1 2 3 and 10 11 12 have risk 2, their
    # own children of two rows 0.5.
    # Past 1 calyx refuses the share, so the module is called as is.
    inputs = make_inputs(np.arange(6.0)[:, None], np.array([1.0, 2, 3, 10, 11, 12]),
                         criterion="mse", min_parent=1, risk_tol=risk_tol)
    t = dict(zip(OUTPUTS, arbolin._core._calyx_unchecked(22, inputs)))
    assert t["NodeSize"].shape[0] == nodes


# ------------------------------------------------------------ weights

@pytest.mark.parametrize("criterion", ["gini", "mse"])
def test_weight_of_two_is_the_row_twice(criterion):
    # Small integer responses and weights keep every sum of weights exact.
    rng = np.random.default_rng(3)
    X = rng.random((40, 2))
    Y = rng.integers(0, 3 if criterion == "gini" else 9, 40).astype(float)
    W = rng.integers(1, 3, 40).astype(float)
    twice = np.repeat(np.arange(40), W.astype(int))
    a = grow(make_inputs(X, Y, W=W, criterion=criterion, min_parent=2))
    b = grow(make_inputs(X[twice], Y[twice], criterion=criterion, min_parent=2))
    for name in ("Children", "Parent", "CutVar", "CutPoint", "NodeProb", "NodeValue",
                 "ClassProb"):
        assert np.array_equal(a[name], b[name], equal_nan=True), name
    # A regression risk adds the squares of the row twice apart, which may
    # round differently from one square of double weight.
    for name in ("Gain", "NodeRisk"):
        np.testing.assert_allclose(a[name], b[name], rtol=1e-13, atol=1e-12, err_msg=name)


# ------------------------------------------------ drawing the predictors

def drawn_tree(stream, sample_size=2, calls=1, call=arbolin.calyx):
    X, Y, _ = random_data(5, n=100, d=5)
    inputs = make_inputs(X, Y, min_parent=2, sample_size=sample_size, stream=stream)
    return [call(22, inputs) for _ in range(calls)]


def same_outputs(a, b):
    for name, u, v in zip(OUTPUTS, a, b):
        if isinstance(u, Cell):
            assert u == v, name
        else:
            assert u.dtype == v.dtype and np.array_equal(u, v, equal_nan=True), name
    return True


def differ(a, b):
    return any(not np.array_equal(u, v, equal_nan=True) for u, v in zip(a[:16], b[:16])
               if not isinstance(u, Cell))


def test_same_seed_same_tree_and_stream_keeps_its_state():
    first, second = drawn_tree(arbolin.Stream(42), calls=2)
    again = drawn_tree(arbolin.Stream(42), calls=2)
    same_outputs(first, again[0])
    same_outputs(second, again[1])
    assert differ(first, second)
    assert sum(differ(first, drawn_tree(arbolin.Stream(s))[0]) for s in range(1, 6)) >= 3


def test_predictors_are_drawn_from_the_default_stream_too():
    trees = drawn_tree(np.zeros((0, 0)), calls=3)
    assert differ(trees[0], trees[1]) or differ(trees[1], trees[2])


def test_sample_larger_than_predictors_has_no_stream():
    # The module's own failure; calyx refuses such a SampleSize first.
    with pytest.raises(HostError) as info:
        drawn_tree(arbolin.Stream(1), sample_size=6, call=arbolin._core._calyx_unchecked)
    assert info.value.identifier == "vellum:contextmgr:null"


@pytest.mark.parametrize("bogus", [3.0, "no stream", np.zeros((0, 0))])
def test_all_predictors_sampled_ignores_the_stream(bogus):
    same_outputs(drawn_tree(bogus, sample_size=5)[0], drawn_tree(arbolin.Stream(9), 5)[0])


# ------------------------------------------------ serial against parallel

@pytest.mark.parametrize("dtype", [np.float64, np.float32])
@pytest.mark.parametrize("name, sample_size", [
    ("gini", 6), ("deviance", 4), ("twoing", 6), ("gini-cost", 6), ("error-cost", 3),
    ("mse", 6), ("mse", 4)])
def test_serial_run_gives_the_parallel_tree(name, sample_size, dtype):
    crit = CRITERIA[name]
    X, Y, W = random_data(7, n=300, d=6, regression=crit.regression, weighted=True, nan=0.05)
    X, Y, W = X.astype(dtype), Y.astype(dtype), W.astype(dtype)

    def run(verbosity):
        inputs = crit.inputs(X, Y, W=W, min_leaf=2, min_parent=5, surrogates=1,
                             sample_size=sample_size, stream=arbolin.Stream(3),
                             verbosity=verbosity)
        return arbolin.calyx(22, inputs, out=[])

    parallel, serial = run(0), run(1)
    assert parallel[0].shape[1] > 20 and parallel[5].dtype == dtype
    same_outputs(parallel, serial)


# ------------------------------------------------------- peer check

def best_two(crit, X, Y, rows, k):
    gains = sorted((c[0] for c in candidates(crit, X, Y, np.ones(len(Y)), rows, k, 1)),
                   reverse=True)
    return gains[:2]


@pytest.mark.parametrize("regression", [False, True], ids=["gini", "mse"])
def test_first_three_layers_agree_with_peer(regression):
    tree_module = pytest.importorskip("sklearn.tree")
    rng = np.random.default_rng(2024)
    X = rng.random((400, 5))
    if regression:
        Y = 2 * X[:, 0] + np.sin(6 * X[:, 2]) + 0.3 * rng.standard_normal(400)
        peer = tree_module.DecisionTreeRegressor(criterion="squared_error", random_state=0)
    else:
        Y = ((X[:, 0] + X[:, 3] > 1) ^ (rng.random(400) < 0.15)) + (X[:, 1] > 0.8) * 1.0
        peer = tree_module.DecisionTreeClassifier(criterion="gini", random_state=0)
    peer.set_params(max_features=None, min_samples_leaf=1, min_samples_split=2)
    ref = peer.fit(X, Y).tree_
    crit = CRITERIA["mse" if regression else "gini"]
    t = grow(crit.inputs(X, Y, min_parent=2))
    k = t["ClassCount"].shape[0]
    compared = []

    def visit(ours, theirs, rows, layer):
        if layer > 2:
            return
        top = best_two(crit, X, Y, rows, k)
        if len(top) == 2 and top[0] - top[1] <= 1e-9 * abs(top[0]):
            return                                    # tied best gains: either may win
        is_branch = bool(col(t, "IsBranch")[ours])
        assert is_branch == (ref.children_left[theirs] >= 0), f"node {ours + 1}"
        if not is_branch:
            return
        j = int(col(t, "CutVar")[ours]) - 1
        assert j == ref.feature[theirs], f"node {ours + 1}"
        sent = rows[X[rows, j] < col(t, "CutPoint")[ours]]
        assert set(sent) == set(rows[X[rows, j] <= ref.threshold[theirs]]), f"node {ours + 1}"
        compared.append(ours)
        rest = np.setdiff1d(rows, sent)
        visit(int(t["Children"][0, ours]) - 1, ref.children_left[theirs], sent, layer + 1)
        visit(int(t["Children"][1, ours]) - 1, ref.children_right[theirs], rest, layer + 1)

    visit(0, 0, np.arange(400), 0)
    assert len(compared) >= 5


# ---------------------------------------------------------- printing

# Six rows of one predictor; classes 0 0 1 0 1 1 by rising x. Divisions at
# positions 1, 2, 3 (x 0.2, 0.3, 0.4): risks 0 + 1.5, 4/3 + 4/3, 1.5 + 0.
# The lower of the two equal ones wins: cut 0.25, gain 3 - 1.5.
TINY_X = np.array([[0.4], [0.1], [0.6], [0.2], [0.5], [0.3]])
TINY_Y = np.array([0.0, 0, 1, 0, 1, 1])


def node_text(prob, shares, counts, risk):
    return (f"  NodeProb = {prob:g}\n  Corrected NodeProb = {prob:g}\n"
            "  ClassProb: " + "".join(f" {p:g}" for p in shares) + "\n"
            "  Corrected ClassProb: " + "".join(f" {c:g}" for c in counts) + "\n"
            f"  NodeRisk = {risk:g}\n")


def tiny_text(verbosity):
    third = (1 - (4 / 9 + 1 / 9)) * 3                  # risk of [2, 1] and [1, 2]
    text = node_text(6, [0.5, 0.5], [3, 3], 3)
    text += "\nProcessing layer 0 with maximal number of splits 1...\n    Splitting node 0...\n"
    if verbosity >= 2:
        text += "Sorting variable 0...\nDividing variable 0...\n"
    if verbosity >= 4:
        text += ("deltaclass after 1st minleaf = 0  divisions:\n"
                 "  i-1=0  i0=1  i+1=2  x-1=0.1  x0=0.1  x+1=0.1  y=0  y+1=1  Ndiv=0\n"
                 "  i-1=2  i0=2  i+1=3  x-1=0.3  x0=0.2  x+1=0.3  y=1  y+1=0  Ndiv=1\n"
                 "  i-1=3  i0=3  i+1=4  x-1=0.4  x0=0.3  x+1=0.4  y=0  y+1=1  Ndiv=2\n"
                 "  i-1=4  i0=4  i+1=5  x-1=0.5  x0=0.4  x+1=0.5  y=1  y+1=1  Ndiv=3\n"
                 "  Ndiv at exit = 3  Last division = 3\n")
    if verbosity >= 2:
        text += "Performing exhaustive search on variable 0...\n"
    if verbosity >= 3:
        text += ("critParent_ = 3\nFound 3 numeric divisions:\n"
                 "   idx=1  pos=0.2   idx=2  pos=0.3   idx=3  pos=0.4\n"
                 "  Ptot(0)=3  Ptot(1)=3\n")
    if verbosity >= 4:
        text += "".join("  critFromKids %13.10g   at split (lower) = %13.10g\n" % pair
                        for pair in [(1.5, 0.2), (third + third, 0.3), (1.5, 0.4)])
    if verbosity >= 3:
        text += "   gain = %13.10g\n" % 1.5
    text += "    Found 1 split candidates.\n"
    return text + node_text(2, [1, 0], [2, 0], 0) + node_text(4, [0.25, 0.75], [1, 3], 1.5)


@pytest.mark.parametrize("verbosity", [1, 2, 3, 4])
def test_progress_text_of_a_tiny_tree(verbosity):
    out = []
    result = arbolin.calyx(22, make_inputs(TINY_X, TINY_Y, min_parent=2, max_splits=1,
                                           verbosity=verbosity), out=out)
    assert col(dict(zip(OUTPUTS, result)), "CutPoint")[0] == 0.25
    assert "".join(out) == tiny_text(verbosity)


# --------------------------------------------------- single against double

@pytest.mark.parametrize("criterion, layers", [("gini", 99), ("deviance", 99), ("mse", 3)])
def test_single_precision_grows_the_double_tree(criterion, layers):
    # Values in eighths are exact in both precisions, and the steps of the
    # response leave the gains far apart, so both trees must have one shape;
    # statistics agree to single precision. Deep in the regression tree the
    # small slope makes near-ties that rounding may break either way: only
    # its first layers are compared.
    rng = np.random.default_rng(5)
    n = 120
    X = np.column_stack([rng.permutation(n), rng.integers(0, 40, n)]) / 8.0
    step = np.digitize(X[:, 0], [3.0, 9.5]).astype(float)
    Y = (step if criterion != "mse" else step * 4 + X[:, 1] / 16).reshape(n, 1)
    W = rng.integers(1, 4, (n, 1)).astype(float)
    budget = min(2 ** layers - 1, n - 1)
    double = grow(make_inputs(X, Y, W=W, criterion=criterion, min_parent=4, max_splits=budget))
    single = grow(make_inputs(X.astype(np.float32), Y.astype(np.float32),
                              W=W.astype(np.float32), criterion=criterion, min_parent=4,
                              max_splits=budget))
    assert double["Children"].shape[1] > 3
    for name in ("Children", "CutVar", "NodeSize", "Parent", "IsBranch"):
        np.testing.assert_array_equal(single[name], double[name], err_msg=name)
    np.testing.assert_array_equal(single["CutPoint"], double["CutPoint"].astype(np.float32))
    assert single["NodeProb"].dtype == np.float32
    # Regression gains come from raw sums of squares, whose differences
    # lose digits in proportion to the largest of them.
    for name in ("NodeProb", "NodeValue", "NodeRisk", "Gain", "ClassProb"):
        scale = np.abs(double[name]).max()
        np.testing.assert_allclose(single[name], double[name], rtol=1e-5, atol=1e-5 * scale,
                                   err_msg=name)
