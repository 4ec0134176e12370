"""TreeClassifier and TreeRegressor: scikit-learn's conventions and tools,
the option table's parameters, data frames with nominal columns, routing of
new rows, pickles and the model file shared with the command line."""

import csv
import os
import pickle
import subprocess
import warnings
from pathlib import Path

import numpy as np
import pandas as pd
import pytest
from sklearn.datasets import load_diabetes, load_iris
from sklearn.exceptions import NotFittedError
from sklearn.model_selection import GridSearchCV, KFold, cross_val_score
from sklearn.pipeline import Pipeline
from sklearn.preprocessing import StandardScaler
from sklearn.utils import estimator_checks

import arbolin
from arbolin import TreeClassifier, TreeRegressor
from conftest import assert_same

CLI = os.environ.get("ARBOLIN_CLI", "")
DATA = Path(__file__).resolve().parents[2] / "data"
needs_cli = pytest.mark.skipif(not CLI, reason="ARBOLIN_CLI names no binary")
ESTIMATORS = [TreeClassifier, TreeRegressor]


def cli(*args):
    done = subprocess.run([CLI, *map(str, args)], capture_output=True, text=True, timeout=60)
    assert done.returncode == 0, done.stderr
    return done.stdout


def iris():
    return load_iris(return_X_y=True)


def with_gaps(X, share, seed):
    """X with a share of its values missing (NaN)."""
    X = X.copy()
    X[np.random.default_rng(seed).random(X.shape) < share] = np.nan
    return X


# ------------------------------------------------------------ conventions

@pytest.mark.parametrize("Estimator", ESTIMATORS)
def test_scikit_learns_own_checks_pass(Estimator):
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")
        estimator_checks.check_estimator(Estimator())
        # Two checks of feature names and counts that check_estimator leaves out.
        for check in (estimator_checks.check_dataframe_column_names_consistency,
                      estimator_checks.check_n_features_in_after_fitting):
            check(Estimator.__name__, Estimator())


def test_parameters_are_the_options_of_the_table_and_checked_at_fit():
    params = TreeClassifier().get_params()
    assert params["min_parent"] == 10 and params["surrogates"] == 0
    assert params["criterion"] == "gini" and TreeRegressor().get_params()["criterion"] == "mse"
    assert params["precision"] == "double" and params["random_state"] is None
    # Options that fit's arguments or the class settle are no parameters;
    # a regression tree takes no costs.
    assert not {"response", "weights", "seed", "single", "output"} & set(params)
    assert "cost" in params and "cost" not in TreeRegressor().get_params()
    X, y = iris()
    bad = [(dict(max_splits=-1), "option max_splits: -1 is below the least allowed value, 0"),
           (dict(surrogates=9), "option surrogates: 9 is above the most allowed value"),
           (dict(min_leaf="3"), "option min_leaf: takes a number, not str"),
           (dict(criterion="mse"), "option criterion: \"mse\" is not one of gini"),
           (dict(random_state=-1), "option random_state:"),
           (dict(precision="half"), "option precision:"),
           (dict(nominal=[7]), "option nominal: there is no column 7")]
    for params, message in bad:
        est = TreeClassifier(**params)  # stores, never checks
        with pytest.raises(ValueError) as error:
            est.fit(X, y)
        assert str(error.value).startswith(message), str(error.value)


def test_unfitted_estimators_raise_not_fitted_error_of_both_packages():
    with pytest.raises(NotFittedError):
        TreeClassifier().predict(np.ones((2, 4)))
    with pytest.raises(arbolin.NotFittedError):
        TreeRegressor().get_depth()


@pytest.mark.parametrize("Estimator", ESTIMATORS)
def test_grid_search_cross_validation_and_pipeline(Estimator):
    X, y = iris() if Estimator is TreeClassifier else load_diabetes(return_X_y=True)
    folds = KFold(4, shuffle=True, random_state=0)
    grid = {"max_splits": [1, 3, 20], "min_leaf": [1, 5]}
    search = GridSearchCV(Estimator(), grid, cv=folds).fit(X, y)
    assert search.best_estimator_.max_splits == search.best_params_["max_splits"]
    best = cross_val_score(Estimator(**search.best_params_), X, y, cv=folds)
    assert search.best_score_ == pytest.approx(best.mean())
    # One split scores worse than the best: the parameter reached the tree.
    assert cross_val_score(Estimator(max_splits=1), X, y, cv=folds).mean() < best.mean()
    # Scaling keeps the order of each feature: the same partition, the same predictions.
    pipe = Pipeline([("scale", StandardScaler()), ("tree", Estimator())]).fit(X, y)
    np.testing.assert_array_equal(pipe.predict(X), Estimator().fit(X, y).predict(X))


# --------------------------------------------------------------- data

def test_a_categorical_column_splits_a_c_from_b_d_in_one_split():
    rng = np.random.default_rng(3)
    letter = rng.choice(list("abcd"), 200)
    frame = pd.DataFrame({"noise": rng.normal(size=200),
                          "letter": pd.Categorical(letter, categories=list("dcba"))})
    y = np.where(np.isin(letter, ["a", "c"]), "yes", "no")
    est = TreeClassifier().fit(frame, y)
    assert est.get_n_leaves() == 2 and est.score(frame, y) == 1.0
    text = arbolin.export_text(est)
    assert "letter in {a, c}" in text and "letter in {b, d}" in text
    # The same letters as numeric codes need more than one split.
    codes = pd.DataFrame({"noise": frame.noise, "letter": frame.letter.cat.codes.astype(float)})
    assert TreeClassifier().fit(codes, y).get_n_leaves() > 2
    assert list(est.feature_names_in_) == ["noise", "letter"] and est.n_features_in_ == 2


def test_classes_keep_the_labels_and_follow_the_cli_order():
    X = np.arange(12.0).reshape(-1, 1)
    for y, classes in [(np.array(["b", "a", "c"] * 4), ["a", "b", "c"]),
                       (np.array([10, 2, 7] * 4), [2, 7, 10]),
                       (np.array(["10", "2", "7"] * 4, dtype=object), ["2", "7", "10"]),
                       (np.array([1.0, np.nan, 3.0] * 4), [1.0, 3.0])]:
        est = TreeClassifier(min_parent=1).fit(X, y)
        assert list(est.classes_) == classes
        assert est.predict_proba(X).shape == (12, len(classes))
        kept = ~pd.isna(y)  # rows without a class are left out, as the CLI does
        assert list(est.predict(X)[kept]) == list(y[kept])
    with pytest.raises(ValueError, match="Unknown label type"):
        TreeClassifier().fit(X, np.linspace(0, 1, 12))


def test_a_nominal_parameter_makes_numeric_codes_levels():
    X, y = iris()
    coded = np.column_stack([np.round(X[:, 2]), X[:, [0, 1]]])
    est = TreeClassifier(nominal=[0], max_splits=1).fit(coded, y)
    assert " in {" in arbolin.export_text(est).splitlines()[1]
    assert est.model_.outputs["CutPoint"][0, 0] != est.model_.outputs["CutPoint"][0, 0]


def test_weights_are_scaled_and_equal_repeated_rows():
    X, y = load_diabetes(return_X_y=True)
    X, y = X[:120], y[:120]
    repeats = np.random.default_rng(1).integers(1, 4, len(y))
    params = dict(min_parent=2, risk_tolerance=0)
    weighted = TreeRegressor(**params).fit(X, y, sample_weight=repeats * 0.5)
    repeated = TreeRegressor(**params).fit(np.repeat(X, repeats, 0), np.repeat(y, repeats))
    np.testing.assert_allclose(weighted.predict(X), repeated.predict(X), rtol=1e-12)
    assert weighted.score(X, y, sample_weight=repeats) == pytest.approx(
        repeated.score(np.repeat(X, repeats, 0), np.repeat(y, repeats)))


def test_held_out_scores_are_on_a_par_with_scikit_learns_tree():
    """bench/accuracy.py prints the full table; three splits of each here."""
    import importlib.util
    path = Path(__file__).resolve().parents[2] / "bench" / "accuracy.py"
    source = importlib.util.spec_from_file_location("accuracy", path)
    accuracy = importlib.util.module_from_spec(source)
    source.loader.exec_module(accuracy)
    for name in accuracy.CASES:
        ours, theirs = accuracy.compare(name, 3).mean(0)
        assert ours > theirs - 0.05, name


# ------------------------------------------------------------- routing

def test_the_matrix_router_agrees_with_routing_by_column():
    """Rows with missing values go by surrogates; a nominal level unseen in
    training counts as missing; single precision compares floats."""
    X, y = iris()
    coded = np.column_stack([np.round(X[:, 2]), X])
    for params in (dict(surrogates=2), dict(surrogates=3, nominal=[0]),
                   dict(surrogates=1, precision="single")):
        est = TreeClassifier(**params).fit(with_gaps(coded, 0.1, 0), y)
        new = with_gaps(coded, 0.3, 1)
        new[::7, 0] = 99  # a level never seen
        by_name = dict(zip(est.model_.predictors, new.T))
        with warnings.catch_warnings(record=True) as seen:
            warnings.simplefilter("always")
            nodes = est.apply(new)
            np.testing.assert_array_equal(nodes, est.model_.apply(by_name))
        unseen = "nominal" in params
        assert unseen == any("were not seen in training" in str(w.message) for w in seen)
        assert len(set(nodes)) > 3


def test_costs_given_as_a_matrix_or_by_label_predict_the_least_expected_cost():
    X, y = iris()
    labels = np.array(["setosa", "versicolor", "virginica"])[y]
    matrix = np.array([[0, 1, 1], [1, 0, 5], [1, 1, 0]])
    by_label = {"virginica": {"setosa": 1, "versicolor": 1},
                "setosa": {"versicolor": 1, "virginica": 1},
                "versicolor": {"setosa": 1, "virginica": 5}}
    est = TreeClassifier(cost=matrix, max_splits=3).fit(X, labels)
    same = TreeClassifier(cost=by_label, max_splits=3).fit(X, labels)
    np.testing.assert_array_equal(est.predict_proba(X), same.predict_proba(X))
    expected = est.predict_proba(X) @ matrix
    np.testing.assert_array_equal(est.predict(X), est.classes_[expected.argmin(1)])
    with pytest.raises(ValueError, match="option cost: no cost for class 'setosa'"):
        TreeClassifier(cost={"setosa": {}, "virginica": {}}).fit(X, labels)


def test_a_generator_seeds_the_stream_like_an_int():
    X, y = iris()
    def nodes(seed):
        return TreeClassifier(predictors_per_node=1, random_state=seed).fit(X, y).model_.shape
    draws = {nodes(s) for s in range(6)}
    assert len(draws) > 1  # the drawn predictors change the tree
    assert nodes(np.random.default_rng(5)) == nodes(np.random.default_rng(5))


def test_pickles_keep_the_fitted_tree():
    X, y = iris()
    frame = pd.DataFrame(X, columns=["a", "b", "c", "d"]).assign(
        kind=pd.Categorical(np.array(["p", "q", "r"])[np.arange(150) % 3]))
    est = TreeClassifier(surrogates=2, max_splits=6).fit(frame, y)
    copy = pickle.loads(pickle.dumps(est))
    np.testing.assert_array_equal(copy.predict_proba(frame), est.predict_proba(frame))
    assert arbolin.export_graphviz(copy) == arbolin.export_graphviz(est)
    assert copy.get_params() == est.get_params() and list(copy.feature_names_in_) == list("abcd") + ["kind"]
    model = pickle.loads(pickle.dumps(est.model_))
    assert model.outputs.keys() == est.model_.outputs.keys()


# ---------------------------------------------------- with the command line

def csv_frame(path):
    return pd.read_csv(path, keep_default_na=True)


@needs_cli
def test_a_cli_model_loaded_in_python_predicts_what_the_cli_predicts(tmp_path):
    path = tmp_path / "gappy.csv"
    frame = csv_frame(DATA / "diabetes.csv")
    gaps = with_gaps(frame.drop(columns=["sex", "progression"]).to_numpy(), 0.1, 2)
    frame.loc[:, frame.columns.drop(["sex", "progression"])] = gaps
    frame["sex"] = np.where(frame.sex == 1, "f", "m")
    frame.to_csv(path, index=False)
    for flags, response in ((["--surrogates", "2", "--max-splits", "12"], "progression"),
                            (["--surrogates", "1"], "sex")):
        cli("fit", path, "--output", tmp_path / "m.json", "--response", response, *flags)
        est = arbolin.load(tmp_path / "m.json")
        assert type(est) is (TreeRegressor if response == "progression" else TreeClassifier)
        X = frame[list(est.feature_names_in_)]
        rows = list(csv.DictReader(cli("predict", tmp_path / "m.json", path).splitlines()))
        assert [int(r["node"]) - 1 for r in rows] == list(est.apply(X))
        if response == "sex":
            assert [r["prediction"] for r in rows] == list(est.predict(X))
            assert [[float(r["prob_" + c]) for c in est.classes_] for r in rows] == \
                est.predict_proba(X).tolist()
        else:
            assert [float(r["prediction"]) for r in rows] == list(est.predict(X))
        assert arbolin.export_text(est) == cli("show", tmp_path / "m.json")


@needs_cli
def test_python_and_the_cli_grow_the_same_tree_and_read_each_others_files(tmp_path):
    frame = csv_frame(DATA / "iris.csv")
    X, y = frame.drop(columns="species"), frame.species
    est = TreeClassifier(criterion="deviance", max_splits=6, surrogates=1).fit(X, y)
    est.save(tmp_path / "py.json")
    cli("fit", DATA / "iris.csv", "--criterion", "deviance", "--max-splits", "6",
        "--surrogates", "1", "--output", tmp_path / "cli.json")
    from_cli = arbolin.load(tmp_path / "cli.json")
    assert_same(from_cli.model_.outputs, est.model_.outputs)
    assert cli("show", tmp_path / "py.json") == arbolin.export_text(est)
    assert cli("show", tmp_path / "py.json", "--format", "dot") == arbolin.export_graphviz(est)
    rows = list(csv.DictReader(cli("predict", tmp_path / "py.json", DATA / "iris.csv").splitlines()))
    assert [r["prediction"] for r in rows] == list(est.predict(X))
    # A tree grown on a numpy array names its features x0, x1, ...
    plain = TreeRegressor(max_splits=4).fit(X.to_numpy()[:, 1:], X.to_numpy()[:, 0])
    plain.save(tmp_path / "plain.json")
    table = pd.DataFrame(X.to_numpy()[:, 1:], columns=["x0", "x1", "x2"])
    table.to_csv(tmp_path / "plain.csv", index=False)
    rows = list(csv.DictReader(cli("predict", tmp_path / "plain.json", tmp_path / "plain.csv")
                               .splitlines()))
    assert [float(r["prediction"]) for r in rows] == list(plain.predict(table.to_numpy()))
    assert not hasattr(arbolin.load(tmp_path / "plain.json"), "feature_names_in_")
