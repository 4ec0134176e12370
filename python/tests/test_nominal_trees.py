"""Trees on nominal predictors: level lists and the rows they route, merged
levels, the choice of search method, partitions against an enumeration."""

import re

import numpy as np
import pytest

import arbolin
from conftest import (CRITERIA, assert_same, check_tree, class_weights, col, gini, grow_text,
                      levels, make_inputs, mixed_data, node_risk, node_text, sse)

METHODS = {1: "Exact", 2: "PullLeft", 3: "PCA", 4: "OVAbyClass"}
FOUND = "     Found nominal split with %i and %i levels by method %s.\n"


def run(X, Y, crit=None, verbosity=0, unchecked=False, **settings):
    """All outputs by name and the printed text, predictors nominal unless
    `is_cat` says otherwise; `unchecked` skips calyx's check."""
    X = np.asarray(X)
    settings.setdefault("is_cat", np.ones((1, X.shape[1]), dtype=bool))
    inputs = (crit.inputs if crit else make_inputs)(X, Y, verbosity=verbosity, **settings)
    return grow_text(inputs, arbolin._core._calyx_unchecked if unchecked else arbolin.calyx)


def methods(text):
    return re.findall(r"Found nominal split with \d+ and \d+ levels by method (\w+)\.\n", text)


def root_levels(t):
    return tuple(None if v is None else v[0].tolist() for v in levels(t, 0))


def written(left, right):
    """Two sides as they go out: each sorted, and the lower values on the
    left when the sides do not interleave."""
    left, right = sorted(left), sorted(right)
    return (right, left) if left[0] > right[-1] else (left, right)


def coded(seed, n, k, codes, regression=False):
    """A nominal column over `codes` with class shares (or means) of their own."""
    rng = np.random.default_rng(seed)
    level = rng.permutation(np.arange(n) % len(codes))
    W = rng.uniform(0.2, 3.0, n)
    if regression:
        return codes[level], rng.normal(0, 2, len(codes))[level] + rng.standard_normal(n), W
    shares = rng.dirichlet(np.full(k, 0.6), len(codes))
    Y = np.array([rng.choice(k, p=shares[c]) for c in level], dtype=float)
    Y[:k] = np.arange(k)
    return codes[level], Y, W


def random_column(seed, k=1, regression=False):
    """4 to 8 real codes over 30 to 200 rows, some seen with one class only."""
    rng = np.random.default_rng(1000 + seed)
    codes = rng.choice(np.arange(-40, 60), rng.integers(4, 9), replace=False) * 0.75
    x, Y, W = coded(seed, int(rng.integers(30, 201)), k, codes, regression)
    return x[:, None], Y, W


def mixed_codes(seed, k, count, n=150):
    """`count` codes, each seen with classes 0 and 1: no value merges."""
    x, Y, W = coded(seed, n, k, np.arange(count) * 1.5 - 4)
    for c in np.unique(x):
        Y[np.flatnonzero(x == c)[:2]] = [0, 1]
    Y[np.flatnonzero(x == x[0])[2]] = k - 1
    return x[:, None], Y, W


@pytest.mark.parametrize("name, k, alg_cat", [
    (name, k, alg) for name, k in [("gini", 2), ("gini", 3), ("deviance", 4), ("gini", 5)]
    for alg in range(5)] + [("mse", 1, 0), ("mse", 1, 4)])
def test_mixed_tree_is_consistent(name, k, alg_cat):
    crit = CRITERIA[name]
    X, Y, W, is_cat = mixed_data(k + alg_cat, k, crit.regression)
    # MinLeaf 1: with more, a level of fewer rows that a scan passes over
    # stays out of its running sums, and the gain is not that of the rows.
    t, text = run(X, Y, crit, verbosity=2, W=W, is_cat=is_cat, alg_cat=alg_cat, max_cat=8,
                  min_parent=10)
    assert check_tree(t, crit, X, Y, W, is_cat, min_parent=10) >= 2
    found = set(methods(text))
    allowed = ({"Regression"} if crit.regression else {"PullLeft"} if k == 2
               else {METHODS[alg_cat]} if alg_cat
               else {"Exact", "PCA", "OVAbyClass"} if k <= 4 else {"Exact", "PullLeft", "PCA"})
    assert found and found <= allowed
    if k >= 3 and alg_cat == 0:
        # Six codes are at most MaxCat, twelve are more: both ways are taken.
        assert "Exact" in found and len(found) >= 2


@pytest.mark.parametrize("alg_cat, counts", [(1, (2, 1)), (2, (1, 2)), (3, None), (4, (2, 1))])
def test_every_method_finds_the_merged_level_of_class_2(alg_cat, counts):
    # Codes 3 (classes 0 0 1) and 4 (0 1 1) are levels 0 and 1; codes 1 and
    # 2 are seen with class 2 only and make level 2. Of the three partitions
    # {0, 1} | {2} leaves 6 / 2 + 0 = 3 against 4 / 3 + 4 twice; the root's
    # risk is 10 (1 - 0.34). The finders leave {0, 1} left (PullLeft {2}),
    # which goes out exchanged.
    x = np.array([3, 1, 4, 3, 2, 4, 1, 3, 2, 4.0])
    Y = np.array([0, 2, 0, 0, 2, 1, 2, 1, 2, 1.0])
    t, text = run(x[:, None], Y, verbosity=3, alg_cat=alg_cat, min_parent=2, max_splits=1)
    assert "Found 3 nominal levels:\n" in text and "     Category     2: 1 2\n" in text
    printed = re.findall(r"with (\d) and (\d) levels by method (\w+)", text)
    assert [p[2] for p in printed] == [METHODS[alg_cat]]
    assert counts is None or tuple(map(int, printed[0][:2])) == counts
    assert root_levels(t) == ([1, 2], [3, 4])
    assert t["ClassCount"].tolist() == [[3, 0, 3], [3, 0, 3], [4, 4, 0]]
    np.testing.assert_allclose(col(t, "Gain")[0], gini(np.array([3, 3, 4.0])) - 3, rtol=1e-14)


@pytest.mark.parametrize("means, left, right", [
    ({3: 0, 4: 1, 1: 10, 2: 11}, [1, 2], [3, 4]),
    ({1: 0, 4: 1, 2: 10, 3: 11}, [1, 4], [2, 3]),
    ({2: 0, 3: 1, 1: 10, 4: 11}, [2, 3], [1, 4])], ids=["exchanged", "kept", "kept-inside"])
def test_regression_sides_exchange_only_when_apart(means, left, right):
    # The levels in rising order of mean; the cut in the middle leaves
    # 0.5 + 0.5 of the root's 101. The scan puts the lower means left: 3, 4
    # is exchanged for 1, 2, while interleaving sides stay as found.
    x = np.array(list(means), dtype=float)
    t, text = run(x[:, None], np.array(list(means.values()), dtype=float), criterion="mse",
                  verbosity=2, min_parent=2, max_splits=1)
    assert FOUND % (2, 2, "Regression") in text and root_levels(t) == (left, right)
    assert col(t, "Gain")[0] == 100 and col(t, "NodeRisk").tolist() == [101, 0.5, 0.5]
    assert col(t, "NodeValue")[1] == np.mean([means[v] for v in left])


def root_only(X, Y, **settings):
    return run(X, Y, verbosity=2, min_parent=2, max_splits=1, **settings)


@pytest.mark.parametrize("k, count, seed", [(3, 8, 4), (3, 7, 3), (4, 10, 9), (5, 8, 3),
                                            (5, 10, 9), (5, 7, 5), (6, 8, 0)])
def test_automatic_choice_by_levels_and_classes(k, count, seed):
    # Data where the later of the two methods wins (3, 8, 4 and 4, 10, 9 by
    # one against all; 5, 10, 9 and 6, 8, 0 by the scores), the earlier wins
    # (5, 8, 3), and all methods tie (3, 7, 3 and 5, 7, 5).
    X, Y, W = mixed_codes(seed, k, count)
    alone = {alg: root_only(X, Y, W=W, alg_cat=alg) for alg in METHODS}
    assert {alg: methods(text) for alg, (_, text) in alone.items()} == {
        alg: [name] for alg, name in METHODS.items()}
    gains = {alg: col(t, "Gain")[0] for alg, (t, _) in alone.items()}
    assert max(gains.values()) <= gains[1] * (1 + 1e-12), "no method beats the enumeration"
    # L at most MaxCat: the enumeration alone; above it two methods, the
    # earlier of equal ones standing.
    first, second = (3, 4) if k <= 4 else (2, 3)
    winner = second if gains[second] > gains[first] else first
    for max_cat, alg in [(count, 1), (count + 5, 1), (count - 1, winner), (1, winner)]:
        t, text = root_only(X, Y, W=W, alg_cat=0, max_cat=max_cat)
        assert methods(text) == [METHODS[alg]], f"MaxCat {max_cat}"
        assert_same(t, alone[alg][0])


@pytest.mark.parametrize("k, criterion, nominal, alg_cat, max_cat", [
    (2, "gini", True, 0, 2), (2, "gini", True, 1, 10), (2, "gini", True, 7, 10),
    (3, "gini", False, 5, 10), (3, "mse", True, 7, 10)])
def test_method_code_without_a_choice_to_make(k, criterion, nominal, alg_cat, max_cat):
    # Two classes always pull left; a numeric predictor or a regression has
    # no method to choose. calyx refuses codes past 4 (the module's refusal
    # with a choice to make is in test_input_contract); here it never looks.
    X, Y, W = mixed_codes(k, k, 9)
    settings = dict(W=W, criterion=criterion, is_cat=np.full((1, 1), nominal))
    t, text = root_only(X, Y, alg_cat=alg_cat, max_cat=max_cat, unchecked=alg_cat > 4, **settings)
    expected, expected_text = root_only(X, Y, **settings)
    assert methods(text) == methods(expected_text) == (["PullLeft"] if k == 2 else
                                                       ["Regression"] if nominal else [])
    assert_same(t, expected)


def class_levels(x, Y, W, k):
    """A classification's levels as (values, class weights): each value seen with
    two classes or more, rising, then the one-class values, a level a class."""
    ordinary, pure = [], {}
    for v in np.unique(x):
        seen = np.unique(Y[x == v]).astype(int)
        if len(seen) == 1:
            pure.setdefault(seen[0], []).append(v)
        else:
            ordinary.append([v])
    groups = ordinary + [pure[c] for c in sorted(pure)]
    return [(g, class_weights(Y[np.isin(x, g)], W[np.isin(x, g)], k)) for g in groups]


def best_partitions(groups, value):
    """Every partition (last level on the second side) as (crit, sides), best first."""
    sides = ([[c for c in range(len(groups)) if (mask >> c & 1) == bit] for bit in (1, 0)]
             for mask in range(1, 2 ** (len(groups) - 1)))
    return sorted(((value(*s), *s) for s in sides), key=lambda f: f[0])


def class_value(crit, groups):
    return lambda a, b: crit.kids(*(sum(groups[c][1] for c in s) for s in (a, b)))


def check_root(crit, X, Y, W, k, groups, value, first_left, **settings):
    """The root's gain against the best partition and, unique, its written levels;
    `first_left(side)`: the finder leaves that side of it on the left."""
    t, _ = run(X, Y, crit, W=W, min_parent=2, max_splits=1, **settings)
    root = node_risk(crit, Y, W, k)
    ranked = best_partitions(groups, value)
    best, scale = ranked[0][0], max(abs(root - ranked[0][0]), root)
    np.testing.assert_allclose(col(t, "NodeRisk")[0], root, rtol=1e-12)
    assert abs(col(t, "Gain")[0] - (root - best)) <= 1e-12 * scale
    if len(ranked) > 1 and ranked[1][0] - best <= 1e-9 * scale:
        return
    sides = ranked[0][1:] if first_left(ranked[0][1]) else ranked[0][:0:-1]
    values = [sorted(v for c in side for v in groups[c][0]) for side in sides]
    assert root_levels(t) == written(*values)


@pytest.mark.parametrize("seed", range(4))
@pytest.mark.parametrize("name", ["gini", "deviance"])
def test_two_class_search_reaches_the_best_partition(name, seed):
    crit = CRITERIA[name]
    X, Y, W = random_column(seed, 2)
    groups = class_levels(X[:, 0], Y, W, 2)
    # The levels are pulled in falling order of class 0's share.
    lead = max(range(len(groups)), key=lambda c: groups[c][1][0] / groups[c][1].sum())
    check_root(crit, X, Y, W, 2, groups, class_value(crit, groups), lambda side: lead in side)


@pytest.mark.parametrize("name, k", [("gini", 3), ("deviance", 3), ("gini", 4), ("twoing", 4),
                                     ("gini-cost", 3), ("deviance", 5)])
def test_exact_method_reaches_the_best_partition(name, k):
    crit = CRITERIA[name]
    for seed in range(4):
        X, Y, W = random_column(10 * k + seed, k)
        groups = class_levels(X[:, 0], Y, W, k)
        # The enumeration keeps the last level on the right, as the finder does.
        check_root(crit, X, Y, W, k, groups, class_value(crit, groups), lambda side: True,
                   alg_cat=1)


@pytest.mark.parametrize("seed", range(6))
def test_regression_scan_reaches_the_best_partition(seed):
    X, Y, W = random_column(seed, regression=True)
    x, values = X[:, 0], np.unique(X)
    groups = [([v], None) for v in values]
    mean = [np.average(Y[x == v], weights=W[x == v]) for v in values]
    pick = lambda side: np.isin(x, values[side])
    check_root(CRITERIA["mse"], X, Y, W, 1, groups,
               lambda a, b: sum(sse(Y[pick(s)], W[pick(s)]) for s in (a, b)),
               lambda side: int(np.argmin(mean)) in side)


# Six rows of one numeric predictor; classes 0 0 1 0 1 1 by rising x.
# Divisions at positions 1, 2, 3 (x 0.2, 0.3, 0.4): risks 0 + 1.5,
# 4/3 + 4/3, 1.5 + 0. The lower of the two equal ones wins: cut 0.25. Its
# traces at levels 3 and 4 stand for those of every search; the nominal
# searches' one line at level 2 is FOUND.
DIVIDED = ("deltaclass after 1st minleaf = 0  divisions:\n"
           "  i-1=0  i0=1  i+1=2  x-1=0.1  x0=0.1  x+1=0.1  y=0  y+1=1  Ndiv=0\n"
           "  i-1=2  i0=2  i+1=3  x-1=0.3  x0=0.2  x+1=0.3  y=1  y+1=0  Ndiv=1\n"
           "  i-1=3  i0=3  i+1=4  x-1=0.4  x0=0.3  x+1=0.4  y=0  y+1=1  Ndiv=2\n"
           "  i-1=4  i0=4  i+1=5  x-1=0.5  x0=0.4  x+1=0.5  y=1  y+1=1  Ndiv=3\n"
           "  Ndiv at exit = 3  Last division = 3\n")
SEARCHED = "Found 3 numeric divisions:\n   idx=1  pos=0.2   idx=2  pos=0.3   idx=3  pos=0.4\n"
CRIT = "".join("  critFromKids %13.10g   at split (lower) = %13.10g\n" % pair
               for pair in [(1.5, 0.2), (8 / 3, 0.3), (1.5, 0.4)])


@pytest.mark.parametrize("verbosity", [1, 2, 3, 4])
def test_progress_text_of_a_search(verbosity):
    t, text = run([[0.4], [0.1], [0.6], [0.2], [0.5], [0.3]], np.array([0, 0, 1, 0, 1, 1.0]),
                  verbosity=verbosity, min_parent=2, max_splits=1, is_cat=np.zeros((1, 1), bool))
    assert col(t, "CutPoint")[0] == 0.25
    root, left, right = (node_text(sum(c), np.array(c) / sum(c), c, r)
                         for c, r in [([3, 3], 3), ([2, 0], 0), ([1, 3], 1.5)])
    expected = root + "\nProcessing layer 0 with maximal number of splits 1...\n"
    expected += "    Splitting node 0...\n"
    if verbosity >= 2:
        expected += ("Sorting variable 0...\nDividing variable 0...\n" + DIVIDED * (verbosity >= 4)
                     + "Performing exhaustive search on variable 0...\n")
    if verbosity >= 3:
        expected += ("critParent_ = 3\n" + SEARCHED + "  Ptot(0)=3  Ptot(1)=3\n"
                     + CRIT * (verbosity >= 4) + "   gain = %13.10g\n" % 1.5)
    assert text == expected + "    Found 1 split candidates.\n" + left + right
