"""Shared pieces of the arbolin tests: inputs and outputs by name, comparisons,
reference criteria and numeric cuts, a checker of whole trees, random data."""

import math
import threading

import numpy as np
import pytest

import arbolin
from arbolin import Cell

EMPTY = np.zeros((0, 0))
F8, F4 = np.float64, np.float32
NAN = math.nan
LN4 = 1.3862943611198906          # 2 log 2: the scale of the deviance
OUTPUTS = arbolin.OUTPUT_NAMES

# The keyword of make_inputs for each of arbolin.INPUT_NAMES, and its default;
# None: worked out from X (see make_inputs). An empty stream is the host's.
KEYWORDS = {
    "X": ("X", None), "Y": ("Y", None), "W": ("W", None), "Rows": ("rows", None),
    "IsCat": ("is_cat", None), "CriterionArg": ("criterion", "gini"), "MinLeaf": ("min_leaf", 1),
    "MinParent": ("min_parent", 10), "MaxSplits": ("max_splits", None),
    "SampleSize": ("sample_size", None), "SurrogateCount": ("surrogates", 0),
    "MaxCat": ("max_cat", 10), "AlgCat": ("alg_cat", 0), "CostArg": ("cost", EMPTY),
    "RiskTolerance": ("risk_tol", 0.0), "CurvatureFlag": ("curvature", False),
    "InteractionFlag": ("interaction", False), "ChisqFlag": ("chisq", False),
    "StreamArg": ("stream", EMPTY), "Verbosity": ("verbosity", 0),
}
# (keyword, default) in the order of the inputs, and each keyword's 0-based place.
INPUTS = tuple(KEYWORDS[name] for name in arbolin.INPUT_NAMES)
SLOT = {keyword: k for k, (keyword, _) in enumerate(INPUTS)}


def make_inputs(X, Y, **settings):
    """The twenty inputs for X (N by D) and Y, `settings` by KEYWORDS replacing
    the defaults: unit weights, every row and predictor, N - 1 splits."""
    if set(settings) - set(SLOT):
        raise TypeError(f"unknown inputs: {sorted(set(settings) - set(SLOT))}")
    X = np.asarray(X)
    n, d = X.shape[0], int(np.prod(X.shape[1:]))
    derived = {"X": X, "Y": Y, "W": np.ones(n), "rows": np.arange(n, dtype=np.float64),
               "is_cat": np.zeros((1, d), dtype=bool), "max_splits": max(n - 1, 0),
               "sample_size": d}
    return [settings[kw] if kw in settings else derived.get(kw, default) for kw, default in INPUTS]


def grow(inputs, **kwargs):
    """All 22 outputs of one call, by name."""
    return dict(zip(OUTPUTS, arbolin.calyx(len(OUTPUTS), inputs, **kwargs)))


def grow_text(inputs, call=arbolin.calyx, **kwargs):
    """All 22 outputs of one call by name, and the printed text."""
    out = []
    return dict(zip(OUTPUTS, call(len(OUTPUTS), inputs, out=out, **kwargs))), "".join(out)


def col(t, name):
    return t[name][:, 0]


def node_text(prob, shares, counts, risk):
    """What a node prints of itself at verbosity 1 (no counts: a regression)."""
    corrected = "" if counts is None else "  Corrected ClassProb: " + "".join(
        f" {c:g}" for c in counts)
    return (f"  NodeProb = {prob:g}\n  Corrected NodeProb = {prob:g}\n  ClassProb: "
            + "".join(f" {p:g}" for p in shares) + f"\n{corrected}\n  NodeRisk = {risk:g}\n")


def assert_same(actual, expected, where="outputs", close=False):
    """Same class, shape and contents, bit for bit or with `close` to 1e-12 (1e-6
    in single), NaN equal; outputs as dicts by name or sequences in order."""
    if isinstance(expected, (dict, tuple, list)):
        named = isinstance(expected, dict)
        assert (actual.keys() == expected.keys()) if named else len(actual) == len(expected), where
        for name, a, e in ([(n, actual[n], expected[n]) for n in expected] if named
                           else zip(OUTPUTS, actual, expected)):
            assert_same(a, e, name, close)
    elif isinstance(expected, Cell):
        assert isinstance(actual, Cell) and actual.shape == expected.shape, f"{where}: {actual!r}"
        for i, (a, e) in enumerate(zip(actual.data, expected.data)):
            assert_same(a, e, f"{where}[{i}]", close)
    elif isinstance(expected, np.ndarray):
        assert isinstance(actual, np.ndarray), f"{where}: {actual!r} is not an array"
        assert (actual.dtype, actual.shape) == (expected.dtype, expected.shape), where
        if close and expected.dtype.kind == "f":
            rtol = 1e-6 if expected.dtype == F4 else 1e-12
            np.testing.assert_allclose(actual, expected, rtol=rtol, atol=0, equal_nan=True,
                                       err_msg=where)
        else:
            assert actual.tobytes() == expected.tobytes(), f"{where}: {actual} != {expected}"
    else:
        assert type(actual) is type(expected) and actual == expected, \
            f"{where}: {actual!r} != {expected!r}"


# Reference criteria: each takes class weights as rows (m by K) and gives one
# value a row.
def gini(v):
    return (1 - ((v / v.sum(-1)[..., None]) ** 2).sum(-1)) * v.sum(-1)


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


# C[i, k]: the cost of assigning to class k a row of true class i.
COST = np.array([[0.0, 1.0, 2.0], [1.0, 0.0, 1.0], [3.0, 1.0, 0.0]])
# The factors of the average cost correction: a mean of one, each class in
# proportion to its row of costs.
FACTORS = len(COST) * COST.sum(1) / COST.sum()


class Crit:
    """A criterion as the search sees it: corrected weights, a set's value, a split's."""

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
        return (twoing_kids(a * self.factors, b * self.factors) if self.parent is None
                else self.risk(a) + self.risk(b))


CRITERIA = {
    "gini": Crit("gini", parent=gini), "gdi": Crit("gdi", parent=gini),
    "deviance": Crit("deviance", parent=deviance), "error": Crit("error", parent=error),
    "twoing": Crit("twoing"), "gini-cost": Crit("gini", COST, gini, corrected=True),
    "error-cost": Crit("error", COST, lambda v: (v @ COST).min(-1)), "mse": Crit("mse"),
}


def sse(y, w):
    """Weighted sum of squares about the weighted mean."""
    return float((w * (y - (w * y).sum() / w.sum()) ** 2).sum()) if len(y) else 0.0


def class_weights(y, w, k):
    return np.bincount(y.astype(int), weights=w, minlength=k).astype(float)


def node_risk(crit, y, w, k):
    return sse(y, w) if crit.regression else float(crit.risk(class_weights(y, w, k)))


def gain_of(crit, Y, W, k, rows, sides):
    """The gain of sending the rows `sides` apart from the node of `rows`:
    the node's risk charged in the share of its (corrected) weight that the
    sides hold, less the value of the sides."""
    if crit.regression:
        weight = lambda r: W[r].sum()
        kids = sum(sse(Y[s], W[s]) for s in sides)
    else:
        weight = lambda r: (class_weights(Y[r], W[r], k) * crit.factors).sum()
        kids = crit.kids(*(class_weights(Y[s], W[s], k) for s in sides))
    share = sum(weight(s) for s in sides) / weight(rows)
    return share * node_risk(crit, Y[rows], W[rows], k) - kids


def candidates(crit, X, Y, W, rows, k, min_leaf, is_cat=None):
    """Every legal cut of every numeric predictor at a node of `rows` as (gain, j,
    cut), the risk charged in the share of the weight present in the predictor."""
    y, w = Y[rows], W[rows]
    risk = node_risk(crit, y, w, k)
    total = w.sum() if crit.regression else (class_weights(y, w, k) * crit.factors).sum()
    found = []
    for j in range(X.shape[1]):
        if is_cat is not None and is_cat[j]:
            continue
        present = ~np.isnan(X[rows, j])
        order = np.argsort(X[rows, j][present], kind="stable")
        xs, ys, ws = (v[present][order] for v in (X[rows, j], y, w))
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
        found += [(float(g), j, (xs[d] + xs[d + 1]) / 2)
                  for d, g in zip(range(lo, hi), gains) if xs[d] != xs[d + 1]]
    return found


def levels(t, i):
    """Node i's two level lists (n by 2 cell, column-major)."""
    cell = t["SplitLevels"]
    return cell.data[i], cell.data[cell.shape[0] + i]


def could_split(X, Y, rows, min_leaf):
    """Some predictor has 2 MinLeaf rows with a value, and response and values vary."""
    return any(p.sum() >= 2 * min_leaf and np.ptp(Y[rows][p]) > 0 and np.ptp(x[p]) > 0
               for x, p in ((x, ~np.isnan(x)) for x in X[rows].T))


def check_tree(t, crit, X, Y, W, is_cat=None, min_leaf=1, min_parent=2, complete=True):
    """The tree's consistency and each node against the rows routed to it (x <
    CutPoint, the level list holding the value, a missing value nowhere): the
    gain is theirs, a numeric cut a legal midpoint that none beats (twoing: its
    value only). `complete`: no leaf could have been split. Returns the number
    of nominal splits."""
    is_cat = np.zeros(X.shape[1], bool) if is_cat is None else np.ravel(is_cat)
    k, n = t["ClassCount"].shape[0], t["NodeSize"].shape[0]
    kids = t["Children"].astype(int) - 1
    parent, cutvar = col(t, "Parent").astype(int), col(t, "CutVar").astype(int)
    cut, gain, prob, risk = (col(t, name) for name in ("CutPoint", "Gain", "NodeProb", "NodeRisk"))
    tol = 1e-9 * max(abs(risk[0]), 1.0)
    reached, nominal = {0: np.arange(len(Y))}, 0
    assert parent[0] == 0
    for i in range(n):
        rows = reached.pop(i)
        y, w = Y[rows], W[rows]
        assert col(t, "NodeSize")[i] == len(rows) and (i == 0 or len(rows) >= min_leaf)
        np.testing.assert_allclose(prob[i], w.sum(), rtol=1e-12)
        np.testing.assert_allclose(risk[i], node_risk(crit, y, w, k), rtol=1e-9, atol=1e-12)
        if crit.regression:
            np.testing.assert_allclose(col(t, "NodeValue")[i], (w * y).sum() / w.sum(),
                                       rtol=1e-12)
        else:
            assert list(t["ClassCount"][:, i]) == list(np.bincount(y.astype(int), minlength=k))
            assert col(t, "NodeValue")[i] == np.argmax(t["ClassProb"][:, i])
        left, right = levels(t, i)
        if not col(t, "IsBranch")[i]:
            assert (kids[:, i] == -1).all() and left is None and right is None
            assert cutvar[i] == 0 and gain[i] == 0 and np.isnan(cut[i])
            assert not (complete and col(t, "HasUnroutedRows")[i])
            if complete and len(rows) >= min_parent and could_split(X, Y, rows, min_leaf):
                pytest.fail(f"node {i + 1} of {len(rows)} rows was left unsplit")
            continue
        assert len(rows) >= min_parent and kids[1, i] == kids[0, i] + 1
        assert parent[kids[:, i]].tolist() == [i + 1, i + 1]
        j, x = cutvar[i] - 1, X[rows, cutvar[i] - 1]
        present = ~np.isnan(x)
        if is_cat[j]:
            nominal += 1
            assert np.isnan(cut[i])
            for side in (left, right):
                assert side.dtype == X.dtype and side.shape == (1, side.size)
                assert (np.diff(side[0]) > 0).all()
            left, right = left[0], right[0]
            assert left[0] < right[-1], "sides that do not interleave have the lower values left"
            assert set(left).isdisjoint(right) and set(left) | set(right) == set(x[present])
            sides = rows[np.isin(x, left)], rows[np.isin(x, right)]
        else:
            assert left is None and right is None and np.isfinite(cut[i])
            sides = rows[x < cut[i]], rows[x >= cut[i]]
            found = candidates(crit, X, Y, W, rows, k, min_leaf, is_cat)
            assert [c[1:] for c in found].count((j, cut[i])) == 1, \
                f"node {i + 1}: cut {cut[i]} is not a legal midpoint"
            if crit.parent is not None:
                assert max(c[0] for c in found) <= gain[i] + tol
        assert col(t, "HasUnroutedRows")[i] == (not present.all())
        if present.all():
            np.testing.assert_allclose(prob[kids[:, i]].sum(), prob[i], rtol=1e-12)
            assert (t["ClassCount"][:, kids[:, i]].sum(1) == t["ClassCount"][:, i]).all()
        assert abs(gain_of(crit, Y, W, k, rows, sides) - gain[i]) <= tol
        reached[kids[0, i]], reached[kids[1, i]] = sides
    assert not reached
    return nominal


def random_data(seed, n=80, d=3, k=3, regression=False, weighted=False, nan=0.0, grid=0):
    """Predictors in [0, 1) (on a 1/grid grid, with ties), k classes or a response
    loosely following them, small integer weights, a share `nan` of NaN."""
    rng = np.random.default_rng(seed)
    X = rng.random((n, d))
    if grid:
        X = np.round(X * grid) / grid
    if regression:
        Y = np.sin(5 * X[:, 0]) + X[:, 1] + 0.3 * rng.standard_normal(n)
    else:
        score = X[:, 0] + 0.6 * X[:, 1] + 0.5 * rng.random(n)
        Y = np.searchsorted(np.quantile(score, np.arange(1, k) / k), score).astype(float)
    W = rng.integers(1, 4, n).astype(float) if weighted else np.ones(n)
    if nan:
        X[rng.random((n, d)) < nan] = NAN
    return X, Y, W


def mixed_data(seed, k, regression=False, extra=0, n=160, nan=0.05):
    """Nominal columns of 6 and 12 codes around numeric ones, all bearing on Y."""
    rng = np.random.default_rng(seed)
    a, b = rng.integers(0, 6, n), rng.integers(0, 12, n)
    u = rng.random((n, 1 + extra))
    score = rng.normal(0, 1, 6)[a] + rng.normal(0, 1, 12)[b] + 1.5 * u[:, 0]
    score += 0.4 * rng.standard_normal(n)
    X = np.column_stack([(a * 2.5 - 4), u[:, 0], np.round(rng.normal(0, 90, 12), 1)[b], u[:, 1:]])
    X[rng.random(X.shape) < nan] = np.nan
    Y = score if regression else np.searchsorted(np.quantile(score, np.arange(1, k) / k),
                                                 score).astype(float)
    is_cat = np.zeros((1, X.shape[1]), dtype=bool)
    is_cat[0, [0, 2]] = True
    return X, Y, rng.integers(1, 4, n).astype(float), is_cat


def gini_value(v):
    """Gini of a K by 1 column of class weights with the module's own
    arithmetic: in the column's precision, every sum in order from the first."""
    t = v.dtype.type
    s = q = t(0)
    for x in v[:, 0]:
        s = t(s + x)
    for x in v[:, 0]:
        q = t(q + t(x / s) * t(x / s))
    return t((t(1) - q) * s)


def gini_functions(seen=None, threads=None):
    """Host functions myparent and mykids of Gini, noting arguments and threads."""
    def note(*values):
        if threads is not None:
            threads.add(threading.get_ident())
        if seen is not None:
            seen.append(values)

    def myparent(v):
        note(v)
        return np.array([[gini_value(v)]], v.dtype)

    def mykids(a, b):
        note(a, b)
        return np.array([[gini_value(a) + gini_value(b)]], a.dtype)

    return {"myparent": myparent, "mykids": mykids}


def custom(kids=""):
    """The criterion input naming the functions of gini_functions."""
    return Cell((1, 2), ["myparent", kids])
