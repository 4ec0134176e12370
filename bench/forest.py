"""A forest of 100 trees on 100,000 rows by 20 predictors: arbolin's
ForestClassifier against scikit-learn's RandomForestClassifier with the
same tree count, predictors per node (4, the square root of 20), leaf size
(1) and least rows to split (2), rows drawn with replacement, both on two
threads. Each runs in a process of its own, so that its peak memory is its
own; the table gives fit and predict seconds, the peak resident memory
(and its rise over the data alone) and the accuracy on 25,000 held-out rows.

    PYTHONPATH=build/python /usr/bin/python3 bench/forest.py [--trees 100] [--rows 100000]
"""

import argparse
import json
import os
import resource
import subprocess
import sys
import time


def data(rows, seed=0):
    from sklearn.datasets import make_classification
    X, y = make_classification(n_samples=rows + rows // 4, n_features=20, n_informative=10,
                               n_redundant=4, n_classes=3, flip_y=0.05, class_sep=0.8,
                               random_state=seed)
    return X[:rows], y[:rows], X[rows:], y[rows:]


def forest(name, trees):
    if name == "arbolin":
        import arbolin
        return arbolin.ForestClassifier(n_estimators=trees, predictors_per_node=4, min_leaf=1,
                                        min_parent=2, random_state=0, n_jobs=2)
    from sklearn.ensemble import RandomForestClassifier
    return RandomForestClassifier(n_estimators=trees, max_features=4, min_samples_leaf=1,
                                  min_samples_split=2, random_state=0, n_jobs=2)


def peak_mb():
    return resource.getrusage(resource.RUSAGE_SELF).ru_maxrss / 1024


def one(name, trees, rows):
    """Runs in its own process: prints one row of the table as JSON."""
    X, y, X_test, y_test = data(rows)
    before = peak_mb()
    model = forest(name, trees)
    start = time.perf_counter()
    model.fit(X, y)
    fit = time.perf_counter() - start
    start = time.perf_counter()
    predicted = model.predict(X_test)
    predict = time.perf_counter() - start
    print(json.dumps({"name": name, "fit": fit, "predict": predict, "peak": peak_mb(),
                      "rise": peak_mb() - before, "accuracy": float((predicted == y_test).mean()),
                      "leaves": float(sum(_leaves(t) for t in model.estimators_) / trees)}))


def _leaves(tree):
    return tree.get_n_leaves()


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--trees", type=int, default=100)
    parser.add_argument("--rows", type=int, default=100_000)
    parser.add_argument("--one", help=argparse.SUPPRESS)
    args = parser.parse_args()
    if args.one:
        one(args.one, args.trees, args.rows)
        return
    print(f"{args.trees} trees, {args.rows} rows x 20 predictors, 3 classes, "
          f"{args.rows // 4} held out; {os.cpu_count()} cores")
    print("| forest | fit s | predict s | peak MB | rise MB | mean leaves | held-out accuracy |")
    print("|---|---:|---:|---:|---:|---:|---:|")
    for name in ("arbolin", "scikit-learn"):
        out = subprocess.run([sys.executable, __file__, "--one", name, "--trees", str(args.trees),
                              "--rows", str(args.rows)], check=True, capture_output=True,
                             text=True).stdout
        r = json.loads(out.strip().splitlines()[-1])
        print(f"| {name} | {r['fit']:.1f} | {r['predict']:.2f} | {r['peak']:.0f} | "
              f"{r['rise']:.0f} | {r['leaves']:.0f} | {r['accuracy']:.4f} |", flush=True)


if __name__ == "__main__":
    main()
