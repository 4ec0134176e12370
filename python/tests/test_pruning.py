"""Cost-complexity pruning, checked against a small weakest-link computation
of its own over the saved outputs; cross-validation and its rules; the
drawings."""

import xml.etree.ElementTree as ET

import numpy as np
import pytest
from sklearn.datasets import load_diabetes, load_iris
from sklearn.model_selection import GridSearchCV

import arbolin
from arbolin import TreeClassifier, TreeRegressor


# ------------------------------------------------- the check's own pruning

class Outputs:
    """The columns of the module's outputs that risk needs, per node."""

    def __init__(self, model, costs=None):
        o = model.outputs
        kids = np.asarray(o["Children"]).astype(int) - 1
        self.left, self.right = kids[0], kids[1]
        self.prob = np.asarray(o["NodeProb"], dtype=float).reshape(-1)
        self.node_risk = np.asarray(o["NodeRisk"], dtype=float).reshape(-1)
        self.value = np.asarray(o["NodeValue"], dtype=float).reshape(-1)
        self.shares = np.asarray(o["ClassProb"], dtype=float)  # classes by nodes
        self.stranded_flag = np.asarray(o["HasUnroutedRows"]).reshape(-1).astype(bool)
        self.classification = model.classes is not None
        k = self.shares.shape[0]
        self.costs = (1 - np.eye(k)) if costs is None else np.asarray(costs, dtype=float)
        self.n = len(self.prob)

    def branch(self, i):
        return self.left[i] >= 0

    def predicted(self, i):
        """The class of least expected cost (the largest share without costs)."""
        return int(np.argmin(self.shares[:, i] @ self.costs))

    def as_leaf(self, i):
        if not self.prob[i] > 0:
            return 0.0
        if not self.classification:
            return self.node_risk[i]
        return self.prob[i] * float(np.min(self.shares[:, i] @ self.costs))

    def class_weights(self, i):
        return self.prob[i] * self.shares[:, i] if self.prob[i] > 0 else 0 * self.shares[:, i]

    def stranded(self, i):
        """Risk of the rows that stayed at branch i, at i's prediction."""
        if not (self.branch(i) and self.stranded_flag[i] and self.prob[i] > 0):
            return 0.0
        l, r = self.left[i], self.right[i]
        if self.classification:
            rest = self.class_weights(i) - self.class_weights(l) - self.class_weights(r)
            return max(float(rest @ self.costs[:, self.predicted(i)]), 0.0)
        spread = self.as_leaf(i)
        for c in (l, r):
            if self.prob[c] > 0:
                spread -= self.as_leaf(c) + self.prob[c] * (self.value[c] - self.value[i]) ** 2
        return max(spread, 0.0)


def weakest_link(out):
    """[(alpha, leaves, risk)] by recursion over the live subtree, cutting
    one set of equal weakest links a step."""
    cut = set()
    tie = 1e-12 * abs(out.as_leaf(0))

    def subtree(i):  # (risk, leaves) of the live subtree under i
        if not out.branch(i) or i in cut:
            return out.as_leaf(i), 1
        (rl, nl), (rr, nr) = subtree(out.left[i]), subtree(out.right[i])
        return rl + rr + out.stranded(i), nl + nr

    def live_branches(i):
        if not out.branch(i) or i in cut:
            return []
        return [i] + live_branches(out.left[i]) + live_branches(out.right[i])

    # Alpha 0: the branches (deepest first) whose split does not lower the risk.
    for i in sorted(live_branches(0), reverse=True):
        risk, _ = subtree(i)
        if out.as_leaf(i) - risk <= tie:
            cut.add(i)
    steps = [(0.0, *reversed(subtree(0)))]
    while out.branch(0) and 0 not in cut:
        links = {}
        for i in live_branches(0):
            risk, leaves = subtree(i)
            links[i] = (out.as_leaf(i) - risk) / (leaves - 1)
        least = min(links.values())
        cut.update(i for i, g in links.items() if g <= least + tie)
        steps.append((least, *reversed(subtree(0))))
    return [(a, n, r) for a, n, r in [(s[0], s[1], s[2]) for s in steps]]


def with_gaps(X, share, seed):
    X = X.copy()
    X[np.random.default_rng(seed).random(X.shape) < share] = np.nan
    return X


IRIS = load_iris(return_X_y=True)
DIABETES = load_diabetes(return_X_y=True)
WEIGHTS = np.random.default_rng(7).uniform(0.2, 3.0, 442)
COSTS = np.array([[0, 1, 4], [1, 0, 1], [8, 2, 0]], dtype=float)
CASES = {
    "iris": (TreeClassifier, IRIS, None, {}),
    "iris-weights": (TreeClassifier, IRIS, WEIGHTS[:150], {}),
    "iris-costs": (TreeClassifier, IRIS, None, {"cost": COSTS}),
    "iris-gaps-stranded": (TreeClassifier, (with_gaps(IRIS[0], 0.2, 1), IRIS[1]), None, {}),
    "iris-gaps-surrogates": (TreeClassifier, (with_gaps(IRIS[0], 0.2, 2), IRIS[1]),
                             WEIGHTS[:150], {"surrogates": 2}),
    "diabetes": (TreeRegressor, DIABETES, None, {}),
    "diabetes-weights": (TreeRegressor, DIABETES, WEIGHTS, {"min_leaf": 3}),
    "diabetes-gaps-stranded": (TreeRegressor, (with_gaps(DIABETES[0], 0.1, 3), DIABETES[1]),
                               WEIGHTS, {}),
}


@pytest.fixture(params=sorted(CASES))
def case(request):
    Estimator, (X, y), w, params = CASES[request.param]
    est = Estimator(**params).fit(X, y, sample_weight=w)
    return request.param, Estimator, X, y, w, params, est


def test_the_sequence_is_the_weakest_link_sequence(case):
    name, _, _, _, _, params, est = case
    out = Outputs(est.model_, params.get("cost"))
    if "stranded" in name:
        assert out.stranded_flag.any(), "the case should leave rows at a branch"
    expected = np.array(weakest_link(out))
    path = est.model_.pruning
    assert len(path["alpha"]) == len(expected) > 2
    np.testing.assert_array_equal(path["leaves"], expected[:, 1])
    scale = out.as_leaf(0)
    np.testing.assert_allclose(path["alpha"], expected[:, 0], rtol=0, atol=1e-9 * scale)
    np.testing.assert_allclose(path["risk"], expected[:, 2], rtol=0, atol=1e-9 * scale)
    assert np.all(np.diff(path["alpha"]) > 0) and np.all(np.diff(path["leaves"]) < 0)
    assert path["leaves"][-1] == 1


def test_ccp_alpha_gives_the_subtree_of_the_sequence(case):
    _, Estimator, X, y, w, params, est = case
    path = est.cost_complexity_pruning_path(X, y, sample_weight=w)
    np.testing.assert_array_equal(path.ccp_alphas, est.model_.pruning["alpha"])
    np.testing.assert_array_equal(path.impurities, est.model_.pruning["risk"])
    leaves = est.model_.pruning["leaves"]
    for k in range(1, len(leaves)):
        pruned = Estimator(ccp_alpha=path.ccp_alphas[k], **params).fit(X, y, sample_weight=w)
        assert pruned.get_n_leaves() == leaves[k]
        assert pruned.pruning_["chosen"] == k
        # The subtree's leaves are branches or leaves of the grown tree:
        # rows reach the same node or one of its ancestors.
        by_model = est.model_.prune(alpha=path.ccp_alphas[k])
        np.testing.assert_array_equal(pruned.apply(X), by_model._handle.route_matrix(
            np.asarray(X, dtype=float), list(range(X.shape[1])))[0])


def test_a_pruned_tree_is_the_grown_tree_cut_back():
    X, y = IRIS
    grown = TreeClassifier().fit(X, y)
    pruned = TreeClassifier(ccp_alpha=0.01).fit(X, y)
    # Each row's node in the pruned tree predicts what the grown tree's
    # ancestor of the row's node predicts: the shares are the same.
    shares_grown = grown.predict_proba(X)
    shares_pruned = pruned.predict_proba(X)
    leaves = pruned.apply(X)
    assert pruned.get_n_leaves() < grown.get_n_leaves()
    assert np.all(np.isin(np.round(shares_pruned, 12), np.round(
        grown.model_._shares, 12)).all(axis=1))
    assert set(leaves) <= set(range(pruned.model_.shape[0]))
    assert not np.array_equal(shares_grown, shares_pruned)


def test_ccp_alpha_zero_keeps_the_tree_as_grown():
    X, y = IRIS
    assert TreeClassifier(ccp_alpha=0.0).fit(X, y).get_n_leaves() == \
        TreeClassifier().fit(X, y).get_n_leaves()


def test_grid_search_over_ccp_alpha():
    X, y = DIABETES
    alphas = TreeRegressor().cost_complexity_pruning_path(X, y).ccp_alphas
    search = GridSearchCV(TreeRegressor(), {"ccp_alpha": list(alphas[::8])}, cv=3).fit(X, y)
    assert search.best_params_["ccp_alpha"] in alphas


def test_the_docstring_says_which_risk():
    doc = TreeClassifier.cost_complexity_pruning_path.__doc__
    assert "misclassification" in doc and "not the impurity" in doc


# ---------------------------------------------------- cross-validation

def chosen_by_rule(path, rule):
    risk, error = path["cv_risk"], path["cv_error"]
    best = max(k for k in range(len(risk)) if risk[k] == risk.min())
    if rule == "min":
        return best
    return max(k for k in range(len(risk)) if risk[k] <= risk[best] + error[best])


@pytest.mark.parametrize("Estimator, data", [(TreeClassifier, IRIS), (TreeRegressor, DIABETES)])
@pytest.mark.parametrize("rule", ["1se", "min"])
def test_cross_validation_follows_the_rule(Estimator, data, rule):
    X, y = data
    est = Estimator(prune="cv", folds=5, rule=rule, random_state=3).fit(X, y)
    path = est.pruning_
    assert path["folds"] == 5 and path["rule"] == rule
    assert np.all(np.isfinite(path["cv_risk"])) and np.all(path["cv_error"] >= 0)
    assert path["chosen"] == chosen_by_rule(path, rule)
    assert est.get_n_leaves() == path["leaves"][path["chosen"]]
    # The same folds give the same risks.
    again = Estimator(prune="cv", folds=5, rule=rule, random_state=3).fit(X, y).pruning_
    np.testing.assert_array_equal(again["cv_risk"], path["cv_risk"])
    np.testing.assert_array_equal(again["cv_error"], path["cv_error"])


def test_fixed_folds_give_fixed_risks():
    # Pinned: iris, 10 folds dealt by seed 1, the default tree.
    path = TreeClassifier(prune="cv").fit(*IRIS).pruning_
    np.testing.assert_array_equal(path["leaves"], [5, 4, 3, 2, 1])
    np.testing.assert_allclose(path["cv_risk"], [8 / 150, 8 / 150, 8 / 150, 50 / 150, 100 / 150],
                               rtol=1e-12)
    assert path["chosen"] == 2


def test_other_folds_give_other_risks_on_noisy_data():
    X, y = DIABETES
    a = TreeRegressor(prune="cv", folds=5, random_state=1).fit(X, y).pruning_["cv_risk"]
    b = TreeRegressor(prune="cv", folds=5, random_state=2).fit(X, y).pruning_["cv_risk"]
    assert not np.array_equal(a, b)


def test_leave_one_out_is_a_fold_a_row():
    X, y = IRIS[0][::5], IRIS[1][::5]
    path = TreeClassifier(prune="cv", folds=len(y), min_parent=2).fit(X, y).pruning_
    # Each held-out row is right or wrong: the risk is a count of rows.
    np.testing.assert_allclose(path["cv_risk"] * len(y), np.round(path["cv_risk"] * len(y)),
                               atol=1e-9)


def test_alpha_and_cross_validation_exclude_each_other():
    with pytest.raises(arbolin.InvalidParameterError, match="alpha"):
        TreeClassifier(prune="cv", ccp_alpha=0.1).fit(*IRIS)


# ------------------------------------------------------------ pictures

def test_the_svg_has_a_labelled_box_a_node():
    est = TreeRegressor(max_splits=20).fit(*DIABETES)
    root = ET.fromstring(est.model_._handle.render("svg"))
    ns = {"s": "http://www.w3.org/2000/svg"}
    groups = root.findall("s:g", ns)
    assert len(groups) == est.model_.shape[0]
    for k, g in enumerate(groups, start=1):
        assert g.find("s:rect", ns) is not None
        texts = [t.text for t in g.findall("s:text", ns)]
        assert texts[0] == f"node {k}" and texts[2].startswith("n=") and "mean" in texts[3]


def test_plot_tree_draws_each_node():
    matplotlib = pytest.importorskip("matplotlib")
    matplotlib.use("Agg")
    import matplotlib.pyplot as plt
    est = TreeClassifier(max_splits=6).fit(*IRIS)
    fig, ax = plt.subplots()
    assert arbolin.plot_tree(est, ax=ax) is ax
    boxes = [t for t in ax.texts if t.get_text().startswith("node ")]
    assert len(boxes) == est.model_.shape[0]
    fig.canvas.draw()
    plt.close(fig)


@pytest.mark.parametrize("cost", [None, np.ones((4, 4)) - np.eye(4)])
def test_a_fold_without_the_last_class_still_grows(cost):
    # One row of a fourth class: the training part of its fold lacks it.
    X, y = IRIS[0], IRIS[1].copy()
    y[0] = 3
    path = TreeClassifier(prune="cv", folds=5, cost=cost).fit(X, y).pruning_
    assert np.all(np.isfinite(path["cv_risk"]))
    assert path["cv_risk"][-1] == pytest.approx(101 / 150)  # the root predicts class 1 or 2
