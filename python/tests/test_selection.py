"""Curvature and interaction tests against their textbook p-values (weights
summing to 1 at the root), bins, each branch of the choice, the printed text."""

import re

import numpy as np
import pytest
from scipy import stats

import arbolin
from conftest import F4, F8, assert_same, col, grow_text, make_inputs, random_data

ROOT = "    Splitting node 0...\n"


def run(X, Y, verbosity=2, **settings):
    """All outputs by name and the text printed for the root's search (the only one)."""
    X = np.asarray(X)
    settings.setdefault("W", np.full(len(X), 1 / len(X)))
    settings.setdefault("curvature", True)
    settings.setdefault("min_parent", len(X))
    t, text = grow_text(make_inputs(X, Y, verbosity=verbosity, **settings))
    block = text[text.index(ROOT) + len(ROOT):] if ROOT in text else ""
    return t, block.split("\nProcessing layer")[0]


def root(t, name):
    return t[name].data[0]


def searched(block):
    return list(map(int, re.findall(r"exhaustive search on variable (\d+)", block)))


def groups(Y, regression):
    """Classes, or the rows below the weighted mean (all weights equal) and the rest."""
    return (Y >= Y.mean()).astype(int) if regression else Y.astype(int)


def f_pvalue(x, g):
    present = ~np.isnan(x)
    return stats.f_oneway(*(x[present & (g == k)] for k in np.unique(g[present]))).pvalue


def chi2_pvalue(codes, g):
    """Pearson's test, no continuity correction, on the table of the codes
    (bins, levels or cells) that occur, by group."""
    table = np.zeros((codes.max() + 1, g.max() + 1))
    np.add.at(table, (codes, g), 1)
    table = table[table.sum(1) > 0][:, table.sum(0) > 0]
    return stats.chi2_contingency(table, correction=False).pvalue


def printed_bins(block):
    """Predictor number to its bin sizes as printed."""
    found = re.findall(r"Dividing variable (\d+)\.\.\.\n    Found \d+ bins:\n((?: +Bin .*\n)+)",
                       block)
    return {int(j): [int(s) for s in re.findall(r"= +(\d+)\n", lines)] for j, lines in found}


def bin_codes(x, sizes):
    """The bin of each row, rebuilt from the sizes along the sorted values;
    a missing value is one bin more. No bin may part tied values."""
    present = ~np.isnan(x)
    xs = np.sort(x[present])
    assert sum(sizes) == len(xs)
    firsts = np.cumsum(sizes)[:-1]
    assert all(xs[firsts - 1] < xs[firsts]), "a bin parts tied values"
    return np.where(present, np.searchsorted(xs[firsts], x, side="right"), len(sizes))


def level_codes(x, g=None):
    """The level of each row, missing values one level more. With classes
    `g`, the values seen with one class only make one level of that class."""
    present = ~np.isnan(x)
    levels = np.unique(x[present])
    codes = np.where(present, np.searchsorted(levels, x), len(levels))
    if g is not None:
        for v in levels:
            seen = np.unique(g[x == v])
            if len(seen) == 1:
                codes[x == v] = len(levels) + 1 + seen[0]
    return codes


def printed_pvalues(block):
    """Predictor number to the p-value printed by its curvature test; no line is 1."""
    found = re.findall(r"Performing (?:F|chisq) curvature test on variable (\d+)\.\.\.\n"
                       r"(?:        (?:Ftest|Contingency).* pval = +(\S+)\n)?", block)
    return {int(j): float(p) if p else 1.0 for j, p in found}


def check_choice(t, block, expected):
    """The root records the first smallest p-value if it is under 0.05, else
    (D + 1, 0.05); each printed p-value is the reference's. Single precision
    weights hold the p-values to 1e-4."""
    j, entry = int(np.argmin(expected)), root(t, "CurvatureTests")
    rtol = 1e-10 if entry.dtype == np.float64 else 1e-4
    if expected[j] < 0.05:
        assert entry.shape == (1, 2) and entry[0, 0] == j + 1
        np.testing.assert_allclose(entry[0, 1], expected[j], rtol=rtol, atol=0)
    else:  # a leaf
        assert entry.tolist() == [[len(expected) + 1, entry.dtype.type(0.05)]]
        assert col(t, "CutVar")[0] == 0 and t["Children"].shape == (2, 1)
    np.testing.assert_allclose([printed_pvalues(block)[i] for i in range(len(expected))],
                               expected, rtol=max(rtol, 1e-9), atol=0)


def single_predictor_data(test, seed, k, nan):
    """Three predictors and k classes (1: a response) for the F, bins or levels test."""
    if test == "levels":
        rng = np.random.default_rng(seed)
        X = rng.integers(0, 5, (150, 3)).astype(float)
        Y = ((X[:, 1] + 2 * rng.random(150)) > 3.5).astype(float)
        Y = X[:, 1] + 3 * rng.standard_normal(150) if k == 1 else Y
        X[rng.random(X.shape) < nan] = np.nan
        return X, Y
    n = 90 if test.startswith("F") else 120
    X, Y, _ = random_data(seed, n=n, d=3, k=k, regression=k == 1, nan=nan)
    if test == "F-noise":                       # the response's predictors replaced
        X[:, :2] = np.random.default_rng(seed).random((n, 2))
    return X, Y


@pytest.mark.parametrize("test, seed, k, nan, w_type", [
    ("F", 1, 2, 0.0, F8), ("F", 2, 3, 0.0, F8), ("F", 3, 4, 0.1, F8), ("F", 4, 1, 0.0, F8),
    ("F", 5, 1, 0.1, F8), ("F-noise", 6, 2, 0.0, F8), ("F", 3, 4, 0.1, F4), ("F", 5, 1, 0.1, F4),
    ("F-noise", 6, 2, 0.0, F4), ("bins", 11, 2, 0.0, F8), ("bins", 12, 3, 0.0, F8),
    ("bins", 13, 3, 0.1, F8), ("bins", 14, 1, 0.0, F8), ("bins", 15, 1, 0.1, F8),
    ("bins", 13, 3, 0.1, F4), ("bins", 15, 1, 0.1, F4), ("levels", 21, 2, 0.0, F8),
    ("levels", 21, 2, 0.1, F8), ("levels", 21, 1, 0.0, F8), ("levels", 21, 1, 0.1, F8)])
def test_p_values_are_the_textbook_ones(test, seed, k, nan, w_type):
    # The F test is one-way analysis of variance; the chi-square test is
    # Pearson's, on the bins of a numeric predictor (with chisq set) or on
    # the levels of a nominal one.
    X, Y = single_predictor_data(test, seed, k, nan)
    t, block = run(X, Y, criterion="mse" if k == 1 else "gini", chisq=test == "bins",
                   is_cat=np.full((1, 3), test == "levels"),
                   W=np.full(len(Y), 1 / len(Y), dtype=w_type))
    g = groups(Y, k == 1)
    if test == "bins":
        sizes = printed_bins(block)
        assert all(2 <= len(s) <= 4 for s in sizes.values()) and len(sizes) == 3
        expected = [chi2_pvalue(bin_codes(x, sizes[j]), g) for j, x in enumerate(X.T)]
    elif test == "levels":
        assert "F curvature" not in block and "bins" not in block
        expected = [chi2_pvalue(level_codes(x, None if k == 1 else g), g) for x in X.T]
    else:
        assert "bins" not in block and "Sorting" not in block    # no sort unless searched
        assert (root(t, "CurvatureTests")[0, 0] == 4) == (test == "F-noise")
        expected = [f_pvalue(x, g) for x in X.T]
    check_choice(t, block, expected)


@pytest.mark.parametrize("counts, rising, falling", [
    ([16, 16, 16, 16], [16, 16, 16, 16], [16, 16, 16, 16]),
    ([8] * 8, [16, 16, 16, 16], [16, 16, 16, 16]),
    # A bin that cannot end at its share of 1/B runs on to the next
    # cumulative weight above the share, and takes the rest at the end.
    ([24, 16, 24], [24, 40], [24, 40]),
    ([40, 8, 8, 8], [40, 16, 8], [16, 48]),
    ([4, 4, 48, 4, 4], [56, 8], [56, 8]),
    ([30, 34], [64], [34, 30]),
])
def test_bins_of_equal_weight_keep_tied_values_together(counts, rising, falling):
    # Each value carries both classes, so every change of value is a
    # division; weights of 1/64 make the shares exact.
    x = np.repeat(np.arange(len(counts), dtype=float), counts)
    t, block = run(np.column_stack([x, -x]), np.arange(64) % 2.0, chisq=True)
    assert printed_bins(block) == {0: rising, 1: falling}


@pytest.mark.parametrize("chisq", [False, True])
def test_a_child_keeps_the_scale_of_the_whole_data(chisq):
    """Below the root the F ratio is that of the node's rows, while the
    chi-square statistic stays N S: its expected values r k / N are the
    products of row and class weights, not divided by the node's weight."""
    X, Y, _ = random_data(7, n=120, d=3, k=2)
    t, text = grow_text(make_inputs(X, Y, W=np.full(120, 1 / 120), curvature=True, chisq=chisq,
                                    max_splits=3, verbosity=2))
    block = text.split("    Splitting node 1...\n")[1].split("    Splitting node")[0]
    rows = X[:, int(col(t, "CutVar")[0]) - 1] < col(t, "CutPoint")[0]
    assert t["Children"][0, 0] == 2 and 0 < rows.sum() < 120
    g = groups(Y[rows], False)
    if not chisq:
        expected = [f_pvalue(x, g) for x in X[rows].T]
    else:
        expected = []
        for j, sizes in printed_bins(block).items():
            o = np.zeros((len(sizes), 2))
            np.add.at(o, (bin_codes(X[rows, j], sizes), g), 1)
            e = np.outer(o.sum(1), o.sum(0)) / 120
            expected.append(stats.chi2.sf(((o - e) ** 2 / e).sum(), len(sizes) - 1))
    np.testing.assert_allclose([printed_pvalues(block)[j] for j in range(3)], expected,
                               rtol=1e-9)


def xor_data(seed, regression=False, nominal=False, nan=0.0, n=240):
    """Y the exclusive or of the signs of x0 and x1 (nominal: 4 levels); x2 noise."""
    rng = np.random.default_rng(seed)
    X = rng.uniform(-1, 1, (n, 3))
    if nominal:
        X[:, :2] = np.floor((X[:, :2] + 1) * 2) - 1.5
    Y = ((X[:, 0] > 0) != (X[:, 1] > 0)).astype(float)
    X[rng.random(X.shape) < nan] = np.nan
    return X, Y + 0.2 * rng.standard_normal(n) if regression else Y


@pytest.mark.parametrize("seed, regression, nominal, nan", [
    (31, False, False, 0.0), (32, False, False, 0.0), (35, False, False, 0.05),
    (35, False, True, 0.05), (36, True, False, 0.0), (37, True, True, 0.0)])
def test_exclusive_or_is_found_by_the_pair(seed, regression, nominal, nan):
    X, Y = xor_data(seed, regression, nominal, nan)
    t, block = run(X, Y, criterion="mse" if regression else "gini", interaction=True,
                   is_cat=np.array([[nominal, nominal, False]]))
    g, bins = groups(Y, regression), printed_bins(block)
    codes = [level_codes(x, None if regression else g) if nominal and j < 2
             else bin_codes(x, bins[j]) for j, x in enumerate(X.T)]
    assert min(chi2_pvalue(c, g) for c in codes) >= 0.05
    assert root(t, "CurvatureTests").tolist() == [[4, 0.05]]
    pairs = {(a, b): chi2_pvalue(codes[a] * 16 + codes[b], g) for a, b in [(0, 1), (0, 2), (1, 2)]}
    printed = re.findall(r"   Paired with variable \d+ -- .* pval = +(\S+)\n", block)
    np.testing.assert_allclose([float(p) for p in printed], list(pairs.values()), rtol=1e-9)
    entry = root(t, "InteractionTests")
    assert entry.shape == (1, 3) and list(entry[0, :2]) == [1, 2]
    np.testing.assert_allclose(entry[0, 2], pairs[0, 1], rtol=1e-10, atol=0)
    assert pairs[0, 1] < 1e-6 and col(t, "CutVar")[0] in (1, 2)
    assert searched(block) == [0, 1]                 # the pair replaced the choice


@pytest.mark.parametrize("copied, recorded, search", [
    (0, [[1, 2, 0], [2, 4, 0]], [0, 1, 3]),
    (1, [[1, 2, 0]], [0, 1])])                  # partners 1 and 3 tie: the earlier stays
def test_pairs_of_p_value_zero_are_all_searched(copied, recorded, search):
    # A full grid of 2048 rows: the class is the exclusive or of predictors
    # 0 and 1, predictor 3 copies one of them. Alone, or with predictor 2,
    # every table is even (p of 1); a pair of 0 or its copy with 1 or its
    # copy has pure cells, and the tail of 2048 on 15 degrees of freedom
    # underflows to 0.
    grid = np.array(np.meshgrid(*[[-1.5, -0.5, 0.5, 1.5]] * 3, indexing="ij")).reshape(3, -1).T
    X = np.column_stack([np.repeat(grid, 32, axis=0), np.repeat(grid[:, copied], 32)])
    t, block = run(X, ((X[:, 0] > 0) != (X[:, 1] > 0)).astype(float), interaction=True)
    assert set(printed_pvalues(block).values()) == {1.0}
    assert root(t, "CurvatureTests").tolist() == [[5, 0.05]]
    assert root(t, "InteractionTests").tolist() == recorded
    assert searched(block) == search


def test_best_pair_is_recorded_though_not_under_the_threshold():
    X = np.random.default_rng(41).random((80, 3))
    t, block = run(X, np.random.default_rng(411).integers(0, 2, 80).astype(float),
                   interaction=True)
    assert min(printed_pvalues(block).values()) >= 0.05
    assert root(t, "CurvatureTests").tolist() == [[4, 0.05]] and col(t, "CutVar")[0] == 0
    (a, b, p), = root(t, "InteractionTests")
    assert (a, b) == (1, 2) and 0.05 < p < 1


@pytest.mark.parametrize("interaction", [False, True])
def test_several_p_values_of_zero_are_all_searched(interaction):
    # Two predictors part the classes exactly: over 2000 rows the tail of
    # the F test, or of the chi-square test under interaction tests,
    # underflows to 0. Class 0 weighs 0.55 and comes first in both, so that
    # its block ends the first bin.
    rng = np.random.default_rng(42)
    Y = np.repeat([0.0, 1.0], [1100, 900])
    X = np.column_stack([Y + 0.1 * rng.random(2000), rng.random(2000), 3 * Y + rng.random(2000)])
    t, block = run(X, Y, interaction=interaction)
    assert ("F curvature" in block) != interaction
    assert root(t, "CurvatureTests").tolist() == [[1, 0.0], [3, 0.0]]
    if interaction:
        assert root(t, "InteractionTests") is None and "interaction" not in block
    assert searched(block) == [0, 2]
    assert col(t, "CutVar")[0] == 1                    # equal gains: the earlier predictor


@pytest.mark.parametrize("seed", range(5))
def test_equal_p_values_go_to_the_first_drawn_and_keep_the_choice(seed):
    # Four copies of one predictor, three drawn: every test, alone or in a
    # pair, has the one table, so all p-values are equal.
    X, Y, _ = random_data(43, n=100, d=2, k=2)
    t, block = run(np.column_stack([X[:, 0]] * 4), Y, sample_size=3, stream=arbolin.Stream(seed),
                   interaction=True)
    a, b, c = [int(j) for j in re.findall(r"chisq curvature test on variable (\d)", block)]
    (var, p), = root(t, "CurvatureTests")
    assert var == a + 1 and 0 < p < 0.05
    # a pairs first with b, and b with c; the lower predictor number of a
    # and b is recorded. Equal to the best single p, the pair is no gain.
    first, partner = (a, b) if a < b else (b, c)
    assert root(t, "InteractionTests").tolist() == [[first + 1, partner + 1, p]]
    assert searched(block) == [a] and col(t, "CutVar")[0] == a + 1


def test_level_of_no_weight_gives_a_p_value_that_is_never_chosen():
    # Value 2 weighs nothing: as a nominal level its row of the table has no
    # weight and the statistic is not a number; as a numeric value it falls
    # outside the bins, which end where the weight is reached.
    x = np.repeat([0.0, 1.0, 2.0], 20)
    Y = np.r_[np.repeat([0.0, 1.0, 1.0, 0.0], [18, 2, 18, 2]), np.arange(20) % 2]
    X = np.column_stack([x, np.random.default_rng(5).random(60)])
    W = np.r_[np.full(40, 1 / 40), np.zeros(20)]
    for nominal in (True, False):
        t, block = run(X, Y, W=W, chisq=True, is_cat=np.array([[nominal, False]]))
        p = printed_pvalues(block)
        assert np.isnan(p[0]) == nominal and p[1] > 0.05
        assert root(t, "CurvatureTests")[0, 0] == (3 if nominal else 1)
        assert col(t, "CutVar")[0] == (0 if nominal else 1)
    assert printed_bins(block)[0] == [20, 20]


# With single precision weights this F test gives exactly the weight type's
# 0.05, which prints as 0.05000000075 (its neighbours print as 0.04999999702
# and 0.05000000447); a slightly larger shift comes under it.
SHIFT_AT_005 = 0.15036693781303365


@pytest.mark.parametrize("shift, under", [(SHIFT_AT_005, False), (SHIFT_AT_005 * 1.001, True)])
def test_p_value_of_exactly_005_is_not_under_the_threshold(shift, under):
    Y = np.tile([0.0, 1.0], 24)
    X = np.column_stack([(np.arange(48) * 7 % 48) / 48 + shift * Y, np.full(48, 2.0)])
    t, block = run(X, Y, W=np.full(48, 1 / 48, dtype=np.float32))
    p, entry = printed_pvalues(block)[0], root(t, "CurvatureTests")
    assert entry.dtype == np.float32
    if under:
        assert p < 0.05 and entry[0, 0] == 1 and col(t, "CutVar")[0] == 1
    else:
        assert "%13.10g" % p == "%13.10g" % np.float32(0.05)
        assert entry.tolist() == [[3, np.float32(0.05)]] and col(t, "CutVar")[0] == 0


@pytest.mark.parametrize("d, k, min_leaf, sample_size, in_force", [
    (1, 3, 1, None, False),          # one predictor
    (2, 8, 1, None, True),           # 9 rows: K + 1
    (2, 9, 1, None, False),          # 9 rows: K
    (2, 3, 4, None, True),           # 9 rows: 2 MinLeaf + 1
    (2, 3, 5, None, False),          # 9 rows: 2 MinLeaf - 1
    (3, 3, 1, 1, False),             # one predictor drawn
    (3, 3, 1, 2, True)])
def test_curvature_in_force_only_with_two_predictors_and_enough_rows(d, k, min_leaf,
                                                                     sample_size, in_force):
    # Out of force, the node is searched as if the flag were off, its entry unset.
    X, Y = np.random.default_rng(44).random((9, d)), np.arange(9.0) % k

    def grown(curvature):
        settings = dict(sample_size=sample_size, stream=arbolin.Stream(7)) if sample_size else {}
        return run(X, Y, verbosity=0, curvature=curvature, min_leaf=min_leaf, min_parent=2,
                   **settings)[0]

    on, off = grown(True), grown(False)
    assert (root(on, "CurvatureTests") is not None) == in_force
    assert on["CurvatureTests"].shape == (len(col(on, "CutVar")), 1)
    if not in_force:
        on.pop("CurvatureTests"), off.pop("CurvatureTests")
        assert_same(on, off)


FTEST = ("        Ftest with exp. var. = %13.10g   unexp. var. = %13.10g   v1 = %i   v2 = %i"
         "    pval = %13.10g\n")
TABLE = "        Contingency table with response: x = %13.10g   v = %i    pval = %13.10g\n"
SEARCH = "Performing exhaustive search on variable %i...\n"


def chisq_text(j, sizes, table):
    text = f"Sorting variable {j}...\nDividing variable {j}...\n"
    if sizes:
        text += "    Found %i bins:\n" % len(sizes) + "".join(
            "         Bin %i     Num observations = %10i\n" % bs for bs in enumerate(sizes))
    return text + "Performing chisq curvature test on variable %i...\n" % j + table


@pytest.mark.parametrize("verbosity", [1, 2])
def test_progress_text_of_the_f_test(verbosity):
    # Weights of 1/8 keep every sum exact. Predictor 0: group means 2 and 5;
    # predictor 1 is constant (no spread: p of 1 and no line); predictor 2
    # has equal group means (F of 0: p of 1, with its line).
    X = np.array([[1, 7, 1], [2, 7, 3], [2, 7, 1], [3, 7, 3],
                  [4, 7, 1], [5, 7, 3], [5, 7, 1], [6, 7, 3]], dtype=float)
    t, block = run(X, np.repeat([0.0, 1.0], 4), verbosity=verbosity)
    p = stats.f.sf(27, 1, 6)
    lines = [FTEST % (2.25, 0.5 / 6, 1, 6, p), "", FTEST % (0, 1 / 6, 1, 6, 1)]
    if verbosity == 1:
        assert block.startswith("".join(lines))
    else:
        assert block.startswith("".join(
            "Performing F curvature test on variable %i...\n" % j + line
            for j, line in enumerate(lines)) + SEARCH % 0)
    assert root(t, "CurvatureTests")[0, 0] == 1 and col(t, "CutVar")[0] == 1
    np.testing.assert_allclose(root(t, "CurvatureTests")[0, 1], p, rtol=1e-10)


@pytest.mark.parametrize("verbosity", [1, 2])
def test_progress_text_of_the_chisq_and_pair_tests(verbosity):
    # Exclusive or of two predictors, twice over, and a constant predictor
    # that has no bins: its pairs are 1 and print nothing after their line.
    X = np.array([[0, 0, 5], [0, 1, 5], [1, 0, 5], [1, 1, 5]] * 2, dtype=float)
    t, block = run(X, np.array([0.0, 1, 1, 0] * 2), verbosity=verbosity, interaction=True)
    alone = TABLE % (0, 1, 1)                   # each value holds both classes evenly
    p = stats.chi2.sf(8, 3)                     # four pure cells of 2 rows
    pair = TABLE % (8, 3, p)
    if verbosity == 1:
        expected = alone + alone + pair
    else:
        expected = (chisq_text(0, [4, 4], alone) + chisq_text(1, [4, 4], alone)
                    + chisq_text(2, [], "")
                    + "Testing interaction for variable 0...\n"
                    + "   Paired with variable 1 -- " + pair + "   Paired with variable 2 -- "
                    + "Testing interaction for variable 1...\n" + "   Paired with variable 2 -- "
                    + SEARCH % 0 + SEARCH % 1)
    assert block.startswith(expected)
    assert root(t, "CurvatureTests").tolist() == [[4, 0.05]]
    assert root(t, "InteractionTests").shape == (1, 3)
    np.testing.assert_allclose(root(t, "InteractionTests")[0], [1, 2, p], rtol=1e-10)
