"""Times arbolin against scikit-learn's trees on the same synthetic data:
a 3-class Gini tree and a squared-error tree, MinParent 10 (min_samples_split
10), MinLeaf 1, every predictor, grown to the end.

    PYTHONPATH=build/python /usr/bin/python3 bench/bench_peer.py [rows] [predictors]
"""

import sys
import time

import numpy as np
from sklearn.tree import DecisionTreeClassifier, DecisionTreeRegressor

import arbolin


def inputs(X, Y, criterion):
    n, d = X.shape
    empty = np.zeros((0, 0))
    return [X, Y, np.ones((n, 1)), np.arange(n, dtype=np.float64).reshape(1, n),
            np.zeros((1, d), dtype=bool), criterion, 1.0, 10.0, float(n), float(d), 0.0,
            10.0, 0.0, empty, 0.0, False, False, False, empty, 0.0]


def main():
    n = int(sys.argv[1]) if len(sys.argv) > 1 else 1_000_000
    d = int(sys.argv[2]) if len(sys.argv) > 2 else 20
    rng = np.random.default_rng(42)
    X = np.asfortranarray(rng.random((n, d)))
    s = np.sin(6 * X[:, 0]) + X[:, 1] * X[:, 2] + rng.normal(0, 0.3, n)
    classes = np.where(s < 0.2, 0.0, np.where(s < 0.8, 1.0, 2.0)).reshape(n, 1)
    response = s.reshape(n, 1)
    print(f"{n} rows x {d} predictors")
    for criterion, Y, peer in (
        ("gini", classes, DecisionTreeClassifier(criterion="gini", min_samples_split=10,
                                                 random_state=0)),
        ("mse", response, DecisionTreeRegressor(criterion="squared_error",
                                                min_samples_split=10, random_state=0)),
    ):
        start = time.perf_counter()
        children = arbolin.calyx(1, inputs(X, Y, criterion))[0]
        ours = time.perf_counter() - start
        start = time.perf_counter()
        peer.fit(X, Y.ravel())
        theirs = time.perf_counter() - start
        print(f"{criterion:5s} arbolin {ours:7.2f} s ({children.shape[1]} nodes)   "
              f"scikit-learn {theirs:7.2f} s ({peer.tree_.node_count} nodes)")


if __name__ == "__main__":
    main()
