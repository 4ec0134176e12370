"""Times predict on a million rows: arbolin's estimators against
scikit-learn's trees of about the same size, grown on the same data with
matching settings (min_parent 10 / min_samples_split 10, min_leaf 1, every
predictor, grown to the end). Not a test: run it alone on the machine.

    PYTHONPATH=build/python /usr/bin/python3 bench/predict_speed.py [--rows 1000000] [--rounds 5]
"""

import argparse
import time

import numpy as np
from sklearn.tree import DecisionTreeClassifier, DecisionTreeRegressor

import arbolin


def data(rows, features, seed):
    """Features with a few that matter, three classes and a numeric response."""
    rng = np.random.default_rng(seed)
    X = rng.normal(size=(rows, features))
    signal = X[:, 0] + 0.8 * X[:, 1] * X[:, 2] - 0.5 * X[:, 3] + rng.normal(scale=0.7, size=rows)
    classes = np.digitize(signal, np.quantile(signal, [1 / 3, 2 / 3]))
    return X, classes, signal


def best_of(rounds, call):
    """The median time of `rounds` calls, and the last result."""
    times = []
    for _ in range(rounds):
        start = time.perf_counter()
        result = call()
        times.append(time.perf_counter() - start)
    return float(np.median(times)), result


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--rows", type=int, default=1_000_000, help="rows to predict")
    parser.add_argument("--train", type=int, default=100_000, help="rows to grow the trees on")
    parser.add_argument("--features", type=int, default=20)
    parser.add_argument("--rounds", type=int, default=5)
    args = parser.parse_args()
    X, classes, signal = data(args.train, args.features, 1)
    X_new, _, _ = data(args.rows, args.features, 2)
    cases = [
        ("classification", arbolin.TreeClassifier(min_parent=10), classes,
         DecisionTreeClassifier(min_samples_split=10, random_state=0)),
        ("regression", arbolin.TreeRegressor(min_parent=10), signal,
         DecisionTreeRegressor(min_samples_split=10, random_state=0)),
    ]
    print(f"predicting {args.rows:,} rows x {args.features} features (float64, C order), "
          f"median of {args.rounds}")
    print("| task | nodes (arbolin / scikit-learn) | arbolin s | scikit-learn s | ratio |")
    print("|---|---|---|---|---|")
    for task, ours, peer_tree, y in ((c[0], c[1], c[3], c[2]) for c in cases):
        ours.fit(X, y)
        peer_tree.fit(X, y)
        t_ours, p_ours = best_of(args.rounds, lambda: ours.predict(X_new))
        t_peer, p_peer = best_of(args.rounds, lambda: peer_tree.predict(X_new))
        agree = np.mean(p_ours == p_peer) if task == "classification" else np.corrcoef(
            p_ours, p_peer)[0, 1]
        print(f"| {task} | {ours.model_.shape[0]:,} / {peer_tree.tree_.node_count:,} | "
              f"{t_ours:.3f} | {t_peer:.3f} | {t_ours / t_peer:.2f} |"
              f"  (predictions agree: {agree:.3f})")


if __name__ == "__main__":
    main()
