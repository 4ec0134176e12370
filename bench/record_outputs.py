"""Records, or compares with a record, all twenty-two outputs and the
printed text of a fixed set of varied fits: every kind of predictor,
criterion, nominal method and option, in double and single precision, at
every print level. A change that is not meant to change results must leave
the record bit-identical.

    PYTHONPATH=build/python /usr/bin/python3 bench/record_outputs.py record FILE
    PYTHONPATH=build/python /usr/bin/python3 bench/record_outputs.py compare FILE

Outputs are compared bit for bit (NaN payloads aside), text exactly."""

import pickle
import sys

import numpy as np

import arbolin
from arbolin import Cell

EMPTY = np.zeros((0, 0))


def inputs(X, Y, W=None, is_cat=None, criterion="gini", min_leaf=1, min_parent=10,
           max_splits=None, sample_size=None, surrogates=0, max_cat=10, alg_cat=0, cost=EMPTY,
           risk_tol=0.0, curvature=False, interaction=False, chisq=False, stream=EMPTY,
           verbosity=0):
    n, d = X.shape
    return [X, Y, np.ones(n, X.dtype) if W is None else W, np.arange(n, dtype=np.float64),
            np.zeros((1, d), bool) if is_cat is None else is_cat, criterion,
            float(min_leaf), float(min_parent), float(n - 1 if max_splits is None else max_splits),
            float(d if sample_size is None else sample_size), float(surrogates), float(max_cat),
            float(alg_cat), cost, float(risk_tol), curvature, interaction, chisq, stream,
            float(verbosity)]


def data(seed, n=400, d=6, k=3, nominal=(), levels=8, nan=0.0, regression=False, ties=False):
    rng = np.random.default_rng(seed)
    X = rng.standard_normal((n, d))
    if ties:
        X = np.round(X, 1)
    for j in nominal:
        X[:, j] = rng.integers(0, levels, n)
    if nan:
        X[rng.random((n, d)) < nan] = np.nan
    signal = np.nan_to_num(X[:, 0]) + 0.5 * np.nan_to_num(X[:, 1]) * np.nan_to_num(X[:, 2])
    if nominal:
        signal = signal + (np.nan_to_num(X[:, nominal[0]]) % 3 == 1)
    if regression:
        Y = signal + 0.3 * rng.standard_normal(n)
    else:
        Y = np.digitize(signal + 0.3 * rng.standard_normal(n),
                        np.quantile(signal, np.linspace(0, 1, k + 1)[1:-1])).astype(float)
    is_cat = np.zeros((1, d), bool)
    is_cat[0, list(nominal)] = True
    W = rng.uniform(0.5, 2.0, n)
    return X, Y, W, is_cat


def gini_functions():
    def parent(v):
        s = v.sum()
        return np.array([[(1 - ((v / s) ** 2).sum()) * s if s > 0 else 0.0]], v.dtype)

    def kids(a, b):
        return np.array([[parent(a)[0, 0] + parent(b)[0, 0]]], a.dtype)
    return {"myparent": parent, "mykids": kids}


def cases():
    """(name, inputs, functions) of every fit in the record."""
    out = []
    X, Y, W, C = data(1)
    for crit in ("gini", "deviance", "twoing", "error"):
        out.append((f"numeric-{crit}", inputs(X, Y, W, C, criterion=crit), None))
    Xr, Yr, Wr, Cr = data(2, regression=True)
    out.append(("regression", inputs(Xr, Yr, Wr, Cr, criterion="mse", risk_tol=1e-3), None))
    Xt, Yt, Wt, Ct = data(3, ties=True)
    out.append(("ties-budget", inputs(Xt, Yt, Wt, Ct, max_splits=7, min_leaf=3), None))
    for k, alg in ((3, 0), (3, 1), (5, 2), (4, 3), (3, 4), (2, 0)):
        Xn, Yn, Wn, Cn = data(10 + alg + k, k=k, nominal=(3, 4), levels=12)
        out.append((f"nominal-k{k}-alg{alg}",
                    inputs(Xn, Yn, Wn, Cn, alg_cat=alg, max_cat=6 if alg == 0 else 10), None))
    Xn, Yn, Wn, Cn = data(20, nominal=(1, 4), regression=True, levels=9)
    out.append(("nominal-regression", inputs(Xn, Yn, Wn, Cn, criterion="mse"), None))
    Xm, Ym, Wm, Cm = data(30, nominal=(2,), nan=0.1)
    out.append(("missing-surrogates", inputs(Xm, Ym, Wm, Cm, surrogates=3), None))
    Xm, Ym, Wm, Cm = data(31, nominal=(2,), nan=0.1, regression=True)
    out.append(("missing-surrogates-mse", inputs(Xm, Ym, Wm, Cm, criterion="mse", surrogates=5),
                None))
    cost = np.array([[0.0, 1.0, 4.0], [1.0, 0.0, 1.0], [2.0, 1.0, 0.0]])
    out.append(("cost", inputs(X, Y, W, C, cost=cost), None))
    for seed in (7, 8):
        out.append((f"sampled-{seed}", inputs(X, Y, W, C, sample_size=2,
                                              stream=arbolin.Stream(seed)), None))
    Xc, Yc, Wc, Cc = data(40, nominal=(5,), nan=0.05)
    out.append(("curvature-f", inputs(Xc, Yc, Wc, Cc, curvature=True), None))
    out.append(("curvature-chisq", inputs(Xc, Yc, Wc, Cc, curvature=True, chisq=True), None))
    out.append(("interaction", inputs(Xc, Yc, Wc, Cc, curvature=True, interaction=True,
                                      surrogates=2), None))
    Xc, Yc, Wc, Cc = data(41, nominal=(5,), nan=0.05, regression=True)
    out.append(("interaction-mse", inputs(Xc, Yc, Wc, Cc, criterion="mse", curvature=True,
                                          interaction=True), None))
    out.append(("custom", inputs(X, Y, W, C, criterion=Cell((1, 2), ["myparent", "mykids"])),
                gini_functions()))
    # Larger nodes: the radix path of the sort, and a MinLeaf above 99.
    Xb, Yb, Wb, Cb = data(50, n=6000, d=5, nominal=(4,), nan=0.05, levels=20)
    out.append(("large-surrogates", inputs(Xb, Yb, Wb, Cb, surrogates=2, max_splits=40), None))
    out.append(("large-minleaf", inputs(Xb, Yb, Wb, Cb, min_leaf=150, min_parent=300), None))
    Xb, Yb, Wb, Cb = data(51, n=6000, d=5, nominal=(3,), regression=True)
    out.append(("large-mse", inputs(Xb, Yb, Wb, Cb, criterion="mse", max_splits=60), None))
    # One weight for every row, the usual case: the scans count class rows
    # and look their weight up; 5 classes take the general route.
    for k in (2, 3, 4, 5):
        Xo, Yo, _, Co = data(60 + k, n=3000, d=4, k=k, ties=k == 3)
        out.append((f"one-weight-k{k}", inputs(Xo, Yo, np.full(3000, 1 / 3000), Co), None))
    Xo, Yo, _, Co = data(66, n=3000, d=4, regression=True)
    out.append(("one-weight-mse", inputs(Xo, Yo, np.full(3000, 1 / 3000), Co, criterion="mse"),
                None))
    single = []
    for name, args, functions in (out[:8] + out[13:15] +
                                  [c for c in out if c[0].startswith("one-weight")]):
        a = list(args)
        a[0], a[1], a[2] = (np.asarray(v, np.float32) for v in a[:3])
        if isinstance(a[13], np.ndarray) and a[13].size:
            a[13] = a[13].astype(np.float32)
        single.append((name + "-single", a, functions))
    out += single
    verbose = []
    for name, args, functions in out:
        if name in ("numeric-gini", "nominal-k3-alg1", "nominal-k4-alg3", "missing-surrogates",
                    "interaction", "regression", "custom", "nominal-regression"):
            for v in range(1, 6):
                a = list(args)
                a[19] = float(v)
                a[3] = a[3][:120] if v >= 4 else a[3]  # keep the candidate lists short
                verbose.append((f"{name}-v{v}", a, functions))
    return out + verbose


def fit(args, functions):
    printed = []
    outputs = arbolin.calyx(22, args, functions=functions, out=printed)
    return outputs, printed


def same(a, b):
    if isinstance(a, Cell) or isinstance(b, Cell):
        return (isinstance(a, Cell) and isinstance(b, Cell) and a.shape == b.shape
                and all(same(x, y) for x, y in zip(a.data, b.data)))
    if isinstance(a, np.ndarray) or isinstance(b, np.ndarray):
        return (isinstance(a, np.ndarray) and isinstance(b, np.ndarray) and a.dtype == b.dtype
                and a.shape == b.shape and np.array_equal(a, b, equal_nan=a.dtype.kind == "f"))
    return type(a) is type(b) and a == b


def main(mode, path):
    record = {}
    for name, args, functions in cases():
        record[name] = fit(args, functions)
    if mode == "record":
        with open(path, "wb") as f:
            pickle.dump(record, f)
        print(f"recorded {len(record)} fits in {path}")
        return 0
    with open(path, "rb") as f:
        before = pickle.load(f)
    differ = []
    for name in before:
        (out_a, text_a), (out_b, text_b) = before[name], record.get(name, (None, None))
        if out_b is None:
            differ.append(f"{name}: not fitted now")
            continue
        for k, (a, b) in enumerate(zip(out_a, out_b)):
            if not same(a, b):
                differ.append(f"{name}: output {k + 1} differs")
        if text_a != text_b:
            differ.append(f"{name}: printed text differs")
    for line in differ:
        print(line)
    print(f"{len(before)} fits compared, {len(differ)} differences")
    return 1 if differ else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:3]))
