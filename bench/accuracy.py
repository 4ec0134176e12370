"""Held-out accuracy (R-squared for diabetes) of arbolin's estimators and
scikit-learn's trees side by side, on scikit-learn's bundled data sets, with
matching settings: gini or squared error, min_parent 10 / min_samples_split
10, min_leaf 1, every predictor, grown to the end. Each data set is split
into 70% training and 30% test rows, stratified by class, over several
seeds; the table gives the mean and spread.

    PYTHONPATH=build/python /usr/bin/python3 bench/accuracy.py [--splits 10]
"""

import argparse

import numpy as np
from sklearn import datasets
from sklearn.model_selection import train_test_split
from sklearn.tree import DecisionTreeClassifier, DecisionTreeRegressor

import arbolin

# Name: the loader and the least rows in a leaf.
CASES = {
    "breast cancer": (datasets.load_breast_cancer, 1),
    "digits": (datasets.load_digits, 1),
    "wine": (datasets.load_wine, 1),
    "iris": (datasets.load_iris, 1),
    "diabetes": (datasets.load_diabetes, 1),
    "diabetes, leaves of 20": (datasets.load_diabetes, 20),
}


def pair(regression, min_leaf, seed):
    if regression:
        return (arbolin.TreeRegressor(min_parent=10, min_leaf=min_leaf),
                DecisionTreeRegressor(min_samples_split=10, min_samples_leaf=min_leaf,
                                      random_state=seed))
    return (arbolin.TreeClassifier(min_parent=10, min_leaf=min_leaf),
            DecisionTreeClassifier(min_samples_split=10, min_samples_leaf=min_leaf,
                                   random_state=seed))


def compare(name, splits):
    """Held-out scores of (arbolin, scikit-learn), one row a split."""
    load, min_leaf = CASES[name]
    X, y = load(return_X_y=True)
    regression = load is datasets.load_diabetes
    scores = []
    for seed in range(splits):
        X_train, X_test, y_train, y_test = train_test_split(
            X, y, test_size=0.3, random_state=seed, stratify=None if regression else y)
        scores.append([est.fit(X_train, y_train).score(X_test, y_test)
                       for est in pair(regression, min_leaf, seed)])
    return np.array(scores)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--splits", type=int, default=10)
    args = parser.parse_args()
    print(f"held-out score, mean (standard deviation) over {args.splits} splits of 70/30")
    print("| data | rows x features | measure | arbolin | scikit-learn | difference |")
    print("|---|---|---|---|---|---|")
    for name, (load, _) in CASES.items():
        X, _ = load(return_X_y=True)
        scores = compare(name, args.splits)
        mean, spread = scores.mean(0), scores.std(0)
        measure = "R-squared" if load is datasets.load_diabetes else "accuracy"
        print(f"| {name} | {X.shape[0]} x {X.shape[1]} | {measure} | "
              f"{mean[0]:.3f} ({spread[0]:.3f}) | {mean[1]:.3f} ({spread[1]:.3f}) | "
              f"{mean[0] - mean[1]:+.3f} |")


if __name__ == "__main__":
    main()
