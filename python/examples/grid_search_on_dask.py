"""A grid search and a cross-validation of arbolin estimators spread over a
dask.distributed cluster through joblib's dask backend.

    /usr/bin/python3 python/examples/grid_search_on_dask.py tcp://scheduler:8786
    /usr/bin/python3 python/examples/grid_search_on_dask.py     # a LocalCluster of 2 workers

Every worker imports arbolin (installed, or PYTHONPATH=build/python where
the worker starts). scikit-learn hands each fold of each candidate to
joblib; inside `parallel_backend("dask")` joblib makes them tasks of the
cluster, and the estimators travel pickled (a fitted tree pickles as its
model file's text).
"""

import sys

import joblib
from sklearn.datasets import load_breast_cancer
from sklearn.model_selection import GridSearchCV, cross_val_score

import arbolin

GRID = {"max_splits": [4, 16, 64], "min_leaf": [1, 5], "criterion": ["gini", "deviance"]}


def search(X, y):
    """The best tree of the grid by five-fold accuracy, on the cluster."""
    grid = GridSearchCV(arbolin.TreeClassifier(random_state=0), GRID, cv=5, n_jobs=-1)
    with joblib.parallel_backend("dask"):
        grid.fit(X, y)
    return grid


def forest_folds(X, y):
    """Five-fold accuracy of a small forest, each fold a task."""
    forest = arbolin.ForestClassifier(n_estimators=20, random_state=0)
    with joblib.parallel_backend("dask"):
        return cross_val_score(forest, X, y, cv=5, n_jobs=-1)


def main(address=None):
    from distributed import Client, LocalCluster
    cluster = None if address else LocalCluster(n_workers=2, threads_per_worker=1,
                                                dashboard_address=":0")
    with Client(address or cluster) as client:
        print(client)
        X, y = load_breast_cancer(return_X_y=True)
        grid = search(X, y)
        print(f"best of {len(grid.cv_results_['params'])}: {grid.best_params_}, "
              f"accuracy {grid.best_score_:.4f}")
        print("forest, five folds:", forest_folds(X, y).round(4))
    if cluster is not None:
        cluster.close()


if __name__ == "__main__":
    main(sys.argv[1] if len(sys.argv) > 1 else None)
