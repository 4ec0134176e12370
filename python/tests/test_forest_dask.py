"""Forests and searches on a LocalCluster of two worker processes: the
forest grown there is the one grown locally with the same seed, a worker
killed during a fit changes nothing, dask collections are predicted lazily
as in memory, and joblib's dask backend runs the example's grid search."""

import importlib.util
import logging
import os
import pathlib

import numpy as np
import pytest
from sklearn.datasets import load_breast_cancer, load_diabetes
from sklearn.model_selection import GridSearchCV, cross_val_score

import arbolin
from test_forest import same_forest

distributed = pytest.importorskip("distributed")
dd = pytest.importorskip("dask.dataframe")
da = pytest.importorskip("dask.array")

EXAMPLE = pathlib.Path(__file__).parents[1] / "examples" / "grid_search_on_dask.py"


def local_cluster():
    return distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                                    dashboard_address=":0", silence_logs=logging.CRITICAL)


@pytest.fixture(scope="module")
def client():
    with local_cluster() as cluster, distributed.Client(cluster) as c:
        yield c


@pytest.fixture(scope="module")
def cancer():
    return load_breast_cancer(return_X_y=True, as_frame=True)


def test_the_cluster_grows_the_local_forest(client, cancer):
    X, y = cancer
    kwargs = dict(n_estimators=16, random_state=11, oob_score=True, max_splits=30)
    there = arbolin.ForestClassifier(client=client, **kwargs).fit(X, y)
    here = arbolin.ForestClassifier(**kwargs).fit(X, y)
    same_forest(there, here, X)
    assert there.oob_score_ == here.oob_score_
    np.testing.assert_array_equal(there.oob_decision_function_, here.oob_decision_function_)
    Xr, yr = load_diabetes(return_X_y=True)
    there = arbolin.ForestRegressor(n_estimators=10, random_state=5, client=True).fit(Xr, yr)
    same_forest(there, arbolin.ForestRegressor(n_estimators=10, random_state=5).fit(Xr, yr), Xr)


def test_dask_collections_are_predicted_lazily(client, cancer):
    X, y = cancer
    forest = arbolin.ForestClassifier(n_estimators=8, random_state=0).fit(X, y)
    frame = dd.from_pandas(X, npartitions=4)
    proba, labels = forest.predict_proba(frame), forest.predict(frame)
    assert isinstance(proba, dd.DataFrame) and isinstance(labels, dd.Series)
    np.testing.assert_array_equal(proba.compute().to_numpy(), forest.predict_proba(X))
    np.testing.assert_array_equal(labels.compute().to_numpy(), forest.predict(X))
    forest = arbolin.ForestRegressor(n_estimators=8, random_state=0).fit(X.to_numpy(), y)
    array = da.from_array(X.to_numpy(), chunks=(150, 10))
    lazy = forest.predict(array)
    assert isinstance(lazy, da.Array) and lazy.chunks == ((150, 150, 150, 119),)
    np.testing.assert_array_equal(lazy.compute(), forest.predict(X.to_numpy()))


def test_a_worker_killed_during_a_fit_changes_nothing(tmp_path, cancer):
    X, y = cancer
    marker = tmp_path / "kill"
    marker.touch()

    class KillOnce(distributed.WorkerPlugin):
        """Ends its worker's process as it starts the fifth tree or a
        later one, once over the cluster: the first to remove the marker."""

        def transition(self, key, start, finish, **kwargs):
            name = str(key)
            if finish == "executing" and name.startswith("arbolin-tree-") and \
                    int(name.rsplit("-", 1)[1]) >= 4:
                try:
                    os.remove(marker)
                except FileNotFoundError:
                    return
                os._exit(1)

    kwargs = dict(n_estimators=12, random_state=2, oob_score=True)
    with local_cluster() as cluster, distributed.Client(cluster) as c:
        c.register_worker_plugin(KillOnce(), name="kill-once")
        there = arbolin.ForestClassifier(client=c, **kwargs).fit(X, y)
        assert not marker.exists()      # a worker died
    same_forest(there, arbolin.ForestClassifier(**kwargs).fit(X, y), X)


def load_example():
    source = importlib.util.spec_from_file_location("grid_search_on_dask", EXAMPLE)
    example = importlib.util.module_from_spec(source)
    source.loader.exec_module(example)
    return example


def test_joblib_spreads_searches_over_the_cluster(client, cancer):
    example = load_example()
    X, y = (v.to_numpy() for v in cancer)
    there = example.search(X, y)
    here = GridSearchCV(arbolin.TreeClassifier(random_state=0), example.GRID, cv=5).fit(X, y)
    np.testing.assert_array_equal(there.cv_results_["mean_test_score"],
                                  here.cv_results_["mean_test_score"])
    assert there.best_params_ == here.best_params_
    forest = arbolin.ForestClassifier(n_estimators=20, random_state=0)
    np.testing.assert_array_equal(example.forest_folds(X, y),
                                  cross_val_score(forest, X, y, cv=5))
