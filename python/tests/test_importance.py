"""feature_importances_: each feature's share of the split gains, worked out
again here from the module's outputs of the fitted tree."""

import numpy as np
import pandas as pd
import pytest
from sklearn.datasets import load_diabetes, load_iris

import arbolin
from arbolin import TreeClassifier, TreeRegressor


def shares_from_outputs(outputs, features, surrogates=False):
    """Gain of every branch added to its split's feature, over the total."""
    children = np.asarray(outputs["Children"])
    cut_var = np.asarray(outputs["CutVar"]).reshape(-1)
    gain = np.asarray(outputs["Gain"], dtype=np.float64).reshape(-1)
    total = np.zeros(features)
    for i in range(len(cut_var)):
        if children[0, i] == 0:
            continue  # a leaf, even one that shows a split it never made
        total[int(cut_var[i]) - 1] += gain[i]
        if surrogates:
            predictors = outputs["SurrogatePredictors"].data[i]
            gains = outputs["SurrogateGains"].data[i]
            for p, g in zip(np.asarray(predictors).reshape(-1), np.asarray(gains).reshape(-1)):
                total[int(p) - 1] += g
    return total / total.sum()


@pytest.mark.parametrize("Estimator, data", [(TreeClassifier, load_iris),
                                             (TreeRegressor, load_diabetes)])
def test_the_shares_of_split_gains_sum_to_one(Estimator, data):
    X, y = data(return_X_y=True)
    weights = np.random.default_rng(3).uniform(0.5, 2, len(y))
    est = Estimator(max_splits=12).fit(X, y, sample_weight=weights)
    shares = est.feature_importances_
    assert shares.shape == (X.shape[1],)
    assert shares.sum() == pytest.approx(1, abs=1e-12)
    assert np.all(shares >= 0)
    np.testing.assert_allclose(shares, shares_from_outputs(est.model_.outputs, X.shape[1]),
                               rtol=1e-12, atol=0)


def test_iris_rests_on_the_petals():
    X, y = load_iris(return_X_y=True)
    shares = TreeClassifier(max_splits=4).fit(X, y).feature_importances_
    assert shares[2] + shares[3] > 0.9


def test_surrogate_gains_are_added_when_asked():
    X, y = load_iris(return_X_y=True)
    est = TreeClassifier(max_splits=6, surrogates=2).fit(X, y)
    plain = est.model_.feature_importances()
    with_surrogates = est.model_.feature_importances(surrogates=True)
    np.testing.assert_allclose(plain, est.feature_importances_, rtol=0, atol=0)
    np.testing.assert_allclose(with_surrogates,
                               shares_from_outputs(est.model_.outputs, 4, surrogates=True),
                               rtol=1e-12, atol=0)
    assert with_surrogates.sum() == pytest.approx(1, abs=1e-12)
    assert not np.allclose(plain, with_surrogates)


def test_a_single_leaf_has_no_importance():
    X = np.arange(20.0).reshape(10, 2)
    est = TreeRegressor().fit(X, np.ones(10))
    assert est.get_n_leaves() == 1
    np.testing.assert_array_equal(est.feature_importances_, [0.0, 0.0])


def test_the_order_is_that_of_the_columns_of_X():
    X, y = load_iris(return_X_y=True, as_frame=True)
    frame = X[["sepal width (cm)", "petal length (cm)", "sepal length (cm)",
               "petal width (cm)"]]
    est = TreeClassifier(max_splits=5).fit(frame, y)
    by_name = dict(zip(est.model_.predictors, est.model_.feature_importances()))
    np.testing.assert_array_equal(est.feature_importances_, [by_name[c] for c in frame.columns])


def test_unfitted_estimators_have_none():
    assert not hasattr(TreeClassifier(), "feature_importances_")
    with pytest.raises(arbolin.NotFittedError):
        TreeRegressor().feature_importances_


def test_a_loaded_model_keeps_them(tmp_path):
    X, y = load_diabetes(return_X_y=True)
    est = TreeRegressor(max_splits=8).fit(pd.DataFrame(X), y)
    est.save(tmp_path / "m.json")
    again = arbolin.load(tmp_path / "m.json")
    np.testing.assert_array_equal(again.feature_importances_, est.feature_importances_)
