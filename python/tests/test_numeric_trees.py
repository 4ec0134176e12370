"""Trees on numeric predictors against a reference search, by hand, under a
budget, stops, weights, drawn predictors, a peer, single against double."""

import numpy as np
import pytest

import arbolin
from conftest import (CRITERIA, NAN, assert_same, candidates, check_tree, col, grow,
                      grow_text, make_inputs, random_data)


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
    check_tree(t, crit, X, Y, W, min_leaf=min_leaf, min_parent=min_parent)


def test_small_classification_tree_by_hand():
    # Classes 0 0 0 1 0 1 1 1 over x = 1..8; Gini risk of the root 8 * 0.5.
    # The cuts 3.5 ([3, 0] | [1, 4]) and 5.5 ([4, 1] | [0, 3]) both leave
    # 5 * (1 - 0.04 - 0.64) = 1.6: the lower cut wins. Node 3 (x 4..8,
    # classes 1 0 1 1 1) is cut at 5.5: [1, 1] | [0, 3], risk 1, gain 0.6;
    # node 4 (x 4, 5) at 4.5 with gain 1.
    X, Y = np.arange(1.0, 9.0)[:, None], np.array([0, 0, 0, 1, 0, 1, 1, 1.0])
    t = grow(make_inputs(X, Y, min_parent=2))
    check_tree(t, CRITERIA["gini"], X, Y, np.ones(8))
    np.testing.assert_equal(col(t, "CutPoint"), [3.5, NAN, 5.5, 4.5, NAN, NAN, NAN])
    np.testing.assert_allclose(col(t, "NodeRisk"), [4, 0, 1.6, 1, 0, 0, 0], rtol=1e-14)
    np.testing.assert_allclose(col(t, "Gain"), [2.4, 0, 0.6, 1, 0, 0, 0], rtol=1e-14)


def test_small_regression_tree_by_hand():
    # y = 1 2 3 10 11 12: root risk 2 * (5.5^2 + 4.5^2 + 3.5^2) = 125.5, cut
    # between x 1.5 and 5 leaves 2 + 2. With weight 2 on the first row the
    # root's mean is 40 / 7; the cut stays, the left mean becomes 7 / 4 and
    # its risk 2 * 0.75^2 + 0.25^2 + 1.25^2 = 2.75.
    X = np.array([[1.0], [2], [3], [10], [11], [12]]) * 0.5
    Y = np.array([1.0, 2, 3, 10, 11, 12])
    t = grow(make_inputs(X, Y, criterion="mse", min_parent=2, max_splits=1))
    assert col(t, "CutPoint")[0] == 3.25 and col(t, "CutVar")[0] == 1
    assert [col(t, k).tolist() for k in ("Gain", "NodeRisk", "NodeValue")] == [
        [121.5, 0, 0], [125.5, 2, 2], [6.5, 2, 11]]
    t = grow(make_inputs(X, Y, W=np.array([2.0, 1, 1, 1, 1, 1]), criterion="mse", min_parent=2,
                         max_splits=1))
    root = 2 * (1 - 40 / 7) ** 2 + sum((v - 40 / 7) ** 2 for v in Y[1:])
    np.testing.assert_allclose(col(t, "NodeRisk"), [root, 2.75, 2], rtol=1e-14)
    np.testing.assert_allclose(col(t, "Gain")[0], root - 4.75, rtol=1e-14)
    assert col(t, "NodeProb").tolist() == [7, 4, 3]


# x and 10 x split classes 0 0 1 0 1 1 1 1 alike (cut after x = 4: [3, 1] |
# [0, 4]), with bit-equal gains: the earlier predictor wins; the shuffled
# column 2 splits them worse. Classes 0 1 1 1 1 1 1 1 are cut after MinLeaf
# rows, or not at all when no side can hold MinLeaf.
SHUFFLED, SECOND = [8, 1, 7, 2, 6, 3, 5, 4.0], [0, 0, 1, 0, 1, 1, 1, 1]


@pytest.mark.parametrize("columns, y, min_leaf, cut", [
    ((1, 10), SECOND, 1, (1, 4.5)), ((10, 1), SECOND, 1, (1, 45.0)),
    ((SHUFFLED, 1, 10), SECOND, 1, (2, 4.5)), ((SHUFFLED, 10, 1), SECOND, 1, (2, 45.0)),
    ((1,), [0] + [1] * 7, 1, (1, 1.5)), ((1,), [0] + [1] * 7, 2, (1, 2.5)),
    ((1,), [0] + [1] * 7, 4, (1, 4.5)), ((1,), [0] + [1] * 7, 5, (0, NAN))])
def test_root_cut_by_hand(columns, y, min_leaf, cut):
    X = np.column_stack([np.array(c) if isinstance(c, list) else c * np.arange(1.0, 9.0)
                         for c in columns])
    t = grow(make_inputs(X, np.array(y, dtype=float), min_leaf=min_leaf, min_parent=2,
                         max_splits=1))
    np.testing.assert_equal((col(t, "CutVar")[0], col(t, "CutPoint")[0]), cut)


# Pairs of close responses in four groups: the root parts {0, 1, 10, 11}
# from {100, 101, 130, 131}; the right half has the larger gain (900 to 100).
BUDGET_Y = np.array([0.0, 1, 10, 11, 100, 101, 130, 131])


def budget_tree(max_splits, reverse=False, verbosity=0):
    y = BUDGET_Y[::-1] if reverse else BUDGET_Y
    return grow_text(make_inputs(np.arange(8.0)[:, None], y, criterion="mse", min_parent=2,
                                 max_splits=max_splits, verbosity=verbosity))


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


@pytest.mark.parametrize("max_splits", [1, 2, 4, 7, 12])
def test_budget_keeps_the_best_splits_of_the_last_layer(max_splits):
    crit = CRITERIA["gini"]
    X, Y, W = random_data(11, n=120)
    full = grow(crit.inputs(X, Y, min_parent=2))
    t = grow(crit.inputs(X, Y, min_parent=2, max_splits=max_splits))
    assert col(t, "IsBranch").sum() == min(max_splits, col(full, "IsBranch").sum())
    check_tree(t, crit, X, Y, W, complete=False)
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
    depth = np.zeros(len(col(t, "Parent")), int)
    for i, p in enumerate(col(t, "Parent").astype(int)[1:], 1):
        depth[i] = depth[p - 1] + 1
    return depth


@pytest.mark.parametrize("criterion, y, settings, searched, nodes", [
    # A node of MinParent rows or more is searched; a pure node is not.
    *[(c, [0, 0, 1, 1], dict(min_parent=m), m < 5, 3 if m < 5 else 1)
      for c in ("gini", "mse") for m in (4, 5)],
    *[(c, [1] * 6, dict(min_parent=1), False, 1) for c in ("gini", "twoing")],
    # In regression the weight 0 stops the node at once; in classification
    # the class shares are 0 / 0 and a NaN weight passes that test, but the
    # search finds no weight to split.
    ("gini", [0, 1, 0, 1], dict(W=np.zeros(4), min_parent=1), True, 1),
    ("mse", [0, 1, 2, 3], dict(W=np.zeros(4), min_parent=1), False, 1)])
def test_node_stops(criterion, y, settings, searched, nodes):
    # Whether the root was searched (its predictor sorted); the tree's size.
    t, text = grow_text(make_inputs(np.arange(len(y), dtype=float)[:, None],
                                    np.array(y, dtype=float), criterion=criterion, verbosity=2,
                                    **settings))
    assert ("Sorting variable 0...\n" in text.split("    Found")[0]) == searched
    assert t["NodeSize"].shape[0] == nodes


@pytest.mark.parametrize("risk_tol, nodes", [
    (0.0, 11), (2 / 125.5, 7), (np.nextafter(2 / 125.5, 1), 3), (1.0, 3), (1.0 + 1e-12, 1)])
def test_regression_risk_tolerance_is_a_share_of_the_root_risk(risk_tol, nodes):
    # Root risk 125.5; the children 1 2 3 and 10 11 12 have risk 2, their
    # own children of two rows 0.5. Past 1 calyx refuses the share: unchecked.
    inputs = make_inputs(np.arange(6.0)[:, None], np.array([1.0, 2, 3, 10, 11, 12]),
                         criterion="mse", min_parent=1, risk_tol=risk_tol)
    assert arbolin._core._calyx_unchecked(1, inputs)[0].shape[1] == nodes


@pytest.mark.parametrize("criterion", ["gini", "mse"])
def test_weight_of_two_is_the_row_twice(criterion):
    # Small integer responses and weights keep every sum of weights exact.
    rng = np.random.default_rng(3)
    X, Y = rng.random((40, 2)), rng.integers(0, 3 if criterion == "gini" else 9, 40).astype(float)
    W = rng.integers(1, 3, 40).astype(float)
    twice = np.repeat(np.arange(40), W.astype(int))
    a = grow(make_inputs(X, Y, W=W, criterion=criterion, min_parent=2))
    b = grow(make_inputs(X[twice], Y[twice], criterion=criterion, min_parent=2))
    for name in ("Children", "Parent", "CutVar", "CutPoint", "NodeProb", "NodeValue", "ClassProb"):
        assert np.array_equal(a[name], b[name], equal_nan=True), name
    # A regression risk adds the squares of the row twice apart, which may
    # round differently from one square of double weight.
    for name in ("Gain", "NodeRisk"):
        np.testing.assert_allclose(a[name], b[name], rtol=1e-13, atol=1e-12, err_msg=name)


def drawn_tree(stream, sample_size=2, calls=1):
    X, Y, _ = random_data(5, n=100, d=5)
    inputs = make_inputs(X, Y, min_parent=2, sample_size=sample_size, stream=stream)
    return [arbolin.calyx(22, inputs) for _ in range(calls)]


def differ(a, b):
    return any(not np.array_equal(u, v, equal_nan=True) for u, v in zip(a[:16], b[:16])
               if isinstance(u, np.ndarray))


def test_same_seed_same_tree_and_stream_keeps_its_state():
    first, second = drawn_tree(arbolin.Stream(42), calls=2)
    assert_same(drawn_tree(arbolin.Stream(42), calls=2), [first, second])
    assert differ(first, second)
    assert sum(differ(first, drawn_tree(arbolin.Stream(s))[0]) for s in range(1, 6)) >= 3


def test_predictors_are_drawn_from_the_default_stream_too():
    a, b, c = drawn_tree(np.zeros((0, 0)), calls=3)
    assert differ(a, b) or differ(b, c)


@pytest.mark.parametrize("bogus", [3.0, "no stream", np.zeros((0, 0))])
def test_all_predictors_sampled_ignores_the_stream(bogus):
    assert_same(drawn_tree(bogus, sample_size=5), drawn_tree(arbolin.Stream(9), 5))


def best_two(crit, X, Y, rows, k):
    return sorted((c[0] for c in candidates(crit, X, Y, np.ones(len(Y)), rows, k, 1)))[:-3:-1]


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
    ref, crit = peer.fit(X, Y).tree_, CRITERIA["mse" if regression else "gini"]
    t = grow(crit.inputs(X, Y, min_parent=2))
    k, compared = t["ClassCount"].shape[0], []

    def visit(ours, theirs, rows, layer):
        if layer > 2:
            return
        top = best_two(crit, X, Y, rows, k)
        if len(top) == 2 and top[0] - top[1] <= 1e-9 * abs(top[0]):
            return                                    # tied best gains: either may win
        assert col(t, "IsBranch")[ours] == (ref.children_left[theirs] >= 0), f"node {ours + 1}"
        if not col(t, "IsBranch")[ours]:
            return
        j = int(col(t, "CutVar")[ours]) - 1
        assert j == ref.feature[theirs], f"node {ours + 1}"
        sent = rows[X[rows, j] < col(t, "CutPoint")[ours]]
        assert set(sent) == set(rows[X[rows, j] <= ref.threshold[theirs]]), f"node {ours + 1}"
        compared.append(ours)
        visit(int(t["Children"][0, ours]) - 1, ref.children_left[theirs], sent, layer + 1)
        visit(int(t["Children"][1, ours]) - 1, ref.children_right[theirs],
              np.setdiff1d(rows, sent), layer + 1)

    visit(0, 0, np.arange(400), 0)
    assert len(compared) >= 5


@pytest.mark.parametrize("criterion, layers", [("gini", 99), ("deviance", 99), ("mse", 3)])
def test_single_precision_grows_the_double_tree(criterion, layers):
    # Values in eighths are exact in both precisions, and the steps of the
    # response leave the gains far apart, so both trees must have one shape;
    # statistics agree to single precision. Deep in the regression tree the
    # small slope makes near-ties that rounding may break either way: only
    # its first layers are compared.
    rng, n = np.random.default_rng(5), 120
    X = np.column_stack([rng.permutation(n), rng.integers(0, 40, n)]) / 8.0
    step = np.digitize(X[:, 0], [3.0, 9.5]).astype(float)
    Y = (step if criterion != "mse" else step * 4 + X[:, 1] / 16).reshape(n, 1)
    W = rng.integers(1, 4, (n, 1)).astype(float)
    double, single = (grow(make_inputs(X.astype(f), Y.astype(f), W=W.astype(f), min_parent=4,
                                       criterion=criterion, max_splits=min(2 ** layers - 1, n - 1)))
                      for f in (np.float64, np.float32))
    assert double["Children"].shape[1] > 3
    for name in ("Children", "CutVar", "NodeSize", "Parent", "IsBranch"):
        np.testing.assert_array_equal(single[name], double[name], err_msg=name)
    np.testing.assert_array_equal(single["CutPoint"], double["CutPoint"].astype(np.float32))
    assert single["NodeProb"].dtype == np.float32
    # Regression gains come from raw sums of squares, whose differences
    # lose digits in proportion to the largest of them.
    for name in ("NodeProb", "NodeValue", "NodeRisk", "Gain", "ClassProb"):
        np.testing.assert_allclose(single[name], double[name], rtol=1e-5, err_msg=name,
                                   atol=1e-5 * np.abs(double[name]).max())
