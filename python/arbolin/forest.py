"""Forests of arbolin trees: ForestClassifier and ForestRegressor.

    forest = arbolin.ForestClassifier(n_estimators=100, random_state=0, n_jobs=2).fit(X, y)
    forest.predict(X_new); forest.predict_proba(X_new); forest.oob_score_
    forest = arbolin.ForestClassifier(client=distributed.Client("tcp://host:8786")).fit(X, y)

Each tree is a TreeClassifier or TreeRegressor grown on resampled rows with
a few predictors drawn at every node. Tree i draws its rows and the seed of
its stream from one generator seeded by (random_state, i) alone, so a seed
gives the same forest whether the trees grow one after another, on local
threads (the module lets go of the interpreter lock) or as tasks on a
dask.distributed cluster of any size, in any order, rerun or not.
"""

import concurrent.futures
import contextlib
import json
import math
import numbers
import os
import sys
import uuid

import numpy as np

from . import _core
from .estimators import (TreeClassifier, TreeRegressor, _bad, _column_names, _estimator, _Features,
                         _is_frame, _missing, _MOST_SEED, _not_fitted_error, _sample_weight,
                         _seed, _signature, _target, _Tree)
from .estimators import load as _load_tree
from .trees import Model, _warn

_FILE_MARK = '{"arbolin forest": 1'


class _Setting:
    """A parameter of the forest itself, with no option of the tree behind it."""

    option = None

    def __init__(self, name, default, help_text):
        self.name, self.default, self.help = name, default, help_text


_PER_NODE_HELP = ("predictors drawn at random in each node: a count, a share of them (a "
                  "float up to 1.0), 'sqrt', 'log2', 'third', 'all', or None for the square root "
                  "of the predictor count (a third in regression)")
_FOREST_SETTINGS = (
    _Setting("n_estimators", 100, "trees in the forest"),
    _Setting("bootstrap", True, "True: each tree's rows drawn with replacement, as many as "
                                "there are; a float in (0, 1): that share drawn without "
                                "replacement; False: every tree on all rows"),
    _Setting("oob_score", False, "estimate the score of new data on the rows each tree left "
                                 "out (oob_score_)"),
    _Setting("n_jobs", None, "trees grown and applied at once on local threads (None: 1, "
                             "-1: one per core); ignored with a client"),
    _Setting("client", None, "grow the trees as tasks on a dask.distributed cluster: a "
                             "distributed.Client, a scheduler's address, or True for the "
                             "current client (an address or True survive clone and pickle)"),
)


def _forest_parameters(tree_class):
    params = []
    for p in tree_class._parameters:
        if p.name == "predictors_per_node":
            p = _Setting(p.name, None, _PER_NODE_HELP)
        elif p.name == "random_state":
            p = _Setting(p.name, None, "None, an int or a numpy.random.Generator: seeds the "
                                       "rows and the stream of every tree")
        params.append(p)
    return tuple(params) + _FOREST_SETTINGS


# ------------------------------------------------------------- one tree

class _Plan:
    """What growing tree i takes besides the data: small, sent with every task."""

    def __init__(self, tree_class, params, base_seed, bootstrap, cost_codes):
        self.tree_class, self.params = tree_class, params
        self.base_seed, self.bootstrap, self.cost_codes = base_seed, bootstrap, cost_codes

    def draw(self, index, rows):
        """Tree `index`'s stream seed and how often it takes each of `rows` rows."""
        rng = np.random.default_rng(np.random.SeedSequence(self.base_seed, spawn_key=(index,)))
        seed = int(rng.integers(_MOST_SEED))
        if self.bootstrap is True:
            counts = np.bincount(rng.integers(0, rows, rows), minlength=rows)
        elif self.bootstrap is False:
            counts = np.ones(rows, np.int64)
        else:
            counts = np.zeros(rows, np.int64)
            counts[rng.choice(rows, max(1, round(self.bootstrap * rows)), replace=False)] = 1
        return seed, counts


def _take(X, rows):
    return X.iloc[rows] if _is_frame(X) else X[rows]


def _grow(plan, data, index):
    """Tree `index` of a forest and the notices on its data. `data` is
    (X, y, sample_weight or None, the rows that have a response, and their
    class codes or None); a cluster's worker runs this on scattered data."""
    X, y, weight, kept, codes = data
    seed, counts = plan.draw(index, len(kept))
    taken = np.flatnonzero(counts)
    rows = kept[taken]
    w = None
    if weight is not None or counts.max() > 1:
        w = counts[taken] * (1.0 if weight is None else weight[rows])
    params = dict(plan.params)
    if plan.cost_codes is not None:
        present = np.unique(codes[taken])  # a tree's classes are those of its rows
        params["cost"] = plan.cost_codes[np.ix_(present, present)]
    tree = plan.tree_class(**params, random_state=seed)
    notices = tree._fit(_take(X, rows), y[rows], w)
    return tree, notices


def _threads(n_jobs):
    if n_jobs is None:
        return 1
    if not isinstance(n_jobs, numbers.Integral) or isinstance(n_jobs, bool) or n_jobs == 0:
        _bad("n_jobs", f"takes None or a nonzero int, not {n_jobs!r}")
    return int(n_jobs) if n_jobs > 0 else max(1, (os.cpu_count() or 1) + 1 + int(n_jobs))


def _map(n_jobs, function, items):
    """function over items, in order, on up to n_jobs threads."""
    threads = _threads(n_jobs)
    if threads == 1:
        return [function(item) for item in items]
    with concurrent.futures.ThreadPoolExecutor(threads) as pool:
        return list(pool.map(function, items))


def _grow_on_cluster(client, plan, data, count):
    """The trees as one task each on the client's cluster, the data
    scattered to every worker once. A worker lost mid-fit costs only its
    tasks, which the scheduler reruns elsewhere: they draw the same rows
    and seed, so they grow the same trees."""
    [shared] = client.scatter([data], broadcast=True, hash=False)
    fit = uuid.uuid4().hex
    futures = [client.submit(_grow, plan, shared, i, key=f"arbolin-tree-{fit}-{i}",
                             pure=False) for i in range(count)]
    try:
        return client.gather(futures)
    finally:
        client.cancel(futures + [shared])


@contextlib.contextmanager
def _connection(client):
    """The client a forest's `client` parameter names, closed after use
    when made for it."""
    import distributed
    if client is True:
        yield distributed.get_client()
    elif isinstance(client, str):
        with distributed.Client(client, set_as_default=False) as made:
            yield made
    elif hasattr(client, "scatter") and hasattr(client, "submit"):
        yield client
    else:
        _bad("client", f"takes None, a distributed.Client, an address or True, not {client!r}")


def _is_dask(X):
    return type(X).__module__.split(".")[0] == "dask" and hasattr(X, "dask")


# --------------------------------------------------------------- forests

class _Forest:
    """What both forests share; the tree parameters come from the option table."""

    _tree_class = _Tree
    _parameters = ()
    __init__ = _Tree.__init__
    get_params = _Tree.get_params
    set_params = _Tree.set_params
    __repr__ = _Tree.__repr__
    _more_tags = _Tree._more_tags
    _features = _Tree._features

    def __getstate__(self):
        # A Client is a connection: a pickled forest holds none (an address
        # or True stays).
        state = dict(self.__dict__)
        if not isinstance(state.get("client"), (str, bool, type(None))):
            state["client"] = None
        return state

    # ----------------------------------------------------------- fit

    def fit(self, X, y, sample_weight=None):
        """Grows n_estimators trees on X (rows by features: an array or a
        data frame) and y, each on its own rows and stream; rows whose y is
        missing are left out and sample_weight weights the rest. Returns self."""
        count = self.n_estimators
        if not isinstance(count, numbers.Integral) or isinstance(count, bool) or count < 1:
            _bad("n_estimators", f"takes an int of 1 or more, not {count!r}")
        bootstrap = self._bootstrap()
        if self.oob_score and bootstrap is False:
            raise ValueError("the out-of-bag score needs bootstrap: with bootstrap=False every "
                             "tree sees every row")
        features = _Features(X)
        rows, width = features.shape
        y = _target(y, rows, stacklevel=3)
        weight = _sample_weight(sample_weight, rows)
        names = (list(features.names) if features.names is not None
                 else [f"x{j}" for j in range(width)])
        if not _is_frame(X):
            X = features.matrix if features.matrix is not None else np.asarray(X, dtype=object)
        kept = np.flatnonzero(~_missing_mask(y))
        params = {p.name: getattr(self, p.name) for p in self._tree_class._parameters}
        params["predictors_per_node"] = self._per_node(names)
        del params["random_state"]
        codes, cost_codes = self._classes(y, kept, params)
        plan = _Plan(self._tree_class, params, _base_seed(self.random_state), bootstrap,
                     cost_codes)
        data = (X, y, weight, kept, codes)
        if self.client is not None and self.client is not False:
            with _connection(self.client) as client:
                grown = _grow_on_cluster(client, plan, data, count)
        else:
            grown = _map(self.n_jobs, lambda i: _grow(plan, data, i), range(count))
        self.estimators_ = [tree for tree, _ in grown]
        seen = {}
        for _, notices in grown:
            seen.update(dict.fromkeys(map(tuple, notices)))
        _warn(list(seen))
        first = self.estimators_[0]
        self.n_features_in_ = first.n_features_in_
        if hasattr(first, "feature_names_in_"):
            self.feature_names_in_ = first.feature_names_in_
        elif hasattr(self, "feature_names_in_"):
            del self.feature_names_in_
        for stale in ("oob_score_", "oob_decision_function_", "oob_prediction_"):
            self.__dict__.pop(stale, None)
        if self.oob_score:
            self._set_oob(plan, X, y, kept)
        return self

    def _bootstrap(self):
        b = self.bootstrap
        if isinstance(b, (bool, np.bool_)):
            return bool(b)
        if isinstance(b, numbers.Real) and 0 < b < 1:
            return float(b)
        _bad("bootstrap", f"takes True, False or a share of the rows in (0, 1), not {b!r}")

    def _per_node(self, names):
        """Predictors drawn at each node, out of those left after `ignore`."""
        ignored = self.ignore
        count = len(names) - (0 if ignored is None
                              else len(set(_column_names("ignore", ignored, names))))
        k = self.predictors_per_node
        if k is None:
            k = "sqrt" if self._tree_class is TreeClassifier else "third"
        share = {"sqrt": lambda n: math.isqrt(n), "log2": lambda n: int(math.log2(max(n, 1))),
                 "third": lambda n: n // 3, "all": lambda n: n}
        if isinstance(k, str) and k in share:
            return max(1, share[k](count))
        if isinstance(k, (float, np.floating)) and 0 < k <= 1:
            return max(1, int(k * count))
        if isinstance(k, numbers.Integral) and not isinstance(k, bool):
            return int(k)  # the tree checks its bounds
        _bad("predictors_per_node", f"takes a count, a share in (0, 1], {', '.join(share)} "
                                    f"or None, not {k!r}")

    def _classes(self, y, kept, params):
        return None, None

    def _check_fitted(self):
        if not hasattr(self, "estimators_"):
            error = getattr(sys.modules.get("sklearn.exceptions"), "NotFittedError", None)
            raise _not_fitted_error(error)(f"This {type(self).__name__} instance is not fitted "
                                           "yet; call fit first.")

    # ------------------------------------------------------ applying

    def _each_tree(self, X, leaf_values):
        """leaf_values(tree) (an array by node) at the nodes that each row
        of X reaches in each tree, in tree order; X is checked once."""
        self._check_fitted()
        features = self._features(X, stacklevel=4)

        def one(tree):
            nodes, notices = tree._route(features)
            return leaf_values(tree)[nodes], notices

        results = _map(self.n_jobs, one, self.estimators_)
        _warn(dict.fromkeys(tuple(n) for _, notices in results for n in notices), stacklevel=4)
        return [values for values, _ in results]

    def apply(self, X):
        """The node (0-based) each row reaches in each tree: rows by trees."""
        nodes = self._each_tree(X, lambda tree: np.arange(tree.model_.shape[0]))
        return np.column_stack(nodes)

    @property
    def feature_importances_(self):
        """The mean of the trees' feature importances."""
        self._check_fitted()
        return np.mean([tree.feature_importances_ for tree in self.estimators_], axis=0)

    def _lazy(self, X, method, dtype, width):
        """method over a dask Array or DataFrame, block by block, unevaluated:
        the forest travels once, as a shared argument of the blocks."""
        import dask
        import pandas as pd
        forest = dask.delayed(self, pure=True)
        if hasattr(X, "map_partitions"):
            def part(frame, est):
                out = getattr(est, method)(frame)
                if width is None:
                    return pd.Series(out, index=frame.index)
                return pd.DataFrame(out, index=frame.index, columns=list(self.classes_))
            if width is None:
                meta = pd.Series(np.empty(0, dtype))
            else:
                meta = pd.DataFrame(np.empty((0, width), dtype), columns=list(self.classes_))
            return X.map_partitions(part, forest, meta=meta)
        if X.ndim != 2:
            raise ValueError(f"Expected a 2-D dask array of rows by features, got {X.ndim}-D")
        X = X.rechunk({1: -1})
        blocks = X.to_delayed()[:, 0]
        import dask.array as da
        parts = [da.from_delayed(getattr(forest, method)(block),
                                 (n,) if width is None else (n, width), dtype=dtype)
                 for block, n in zip(blocks, X.chunks[0])]
        return da.concatenate(parts)

    # ---------------------------------------------------------- file

    def save(self, path):
        """Writes the forest to one file (JSON: the parameters and each
        tree's model file), which arbolin.load reads."""
        self._check_fitted()
        tree = self.estimators_[0]
        document = {
            "estimator": type(self).__name__,
            "params": {k: v for k, v in self.get_params().items() if k != "client"},
            "tree_params": {k: v for k, v in tree.get_params().items() if k != "random_state"},
            "names": tree._names,
            "feature_names": getattr(self, "feature_names_in_", None) is not None,
            "trees": [{"random_state": t.random_state, "model": t.model_._handle.text()}
                      for t in self.estimators_],
        }
        document.update(self._saved_classes())
        text = json.dumps(document, default=_plain)
        with open(os.fspath(path), "w", encoding="utf-8") as f:
            f.write(_FILE_MARK + ",\n" + text[1:])

    def _saved_classes(self):
        return {}


def _plain(value):
    """A parameter as JSON holds it: arrays as lists, a generator as None
    (the trees keep the seeds it drew)."""
    return value.tolist() if hasattr(value, "tolist") else None


def _missing_mask(y):
    if y.dtype.kind == "f":
        return np.isnan(y)
    if y.dtype.kind == "O":
        return np.array([_missing(v) for v in y.tolist()], dtype=bool)
    return np.zeros(len(y), dtype=bool)


def _base_seed(random_state):
    """The seed that, with a tree's index, seeds its generator."""
    seed = _seed(random_state)
    if seed is None:
        return int(np.random.SeedSequence().generate_state(1, np.uint64)[0] % _MOST_SEED)
    return seed


class ForestClassifier(_Forest):
    """A forest of classification trees grown by the arbolin module: each
    on rows drawn at random, with predictors drawn at random in each node.
    Parameters (keyword only; those of TreeClassifier, then the forest's):

{parameters}

    Attributes after fit: estimators_ (the fitted TreeClassifier objects),
    classes_, n_classes_, n_features_in_, feature_names_in_ (for a data
    frame of string column names), feature_importances_ (the trees'
    mean), and with oob_score: oob_score_ (accuracy on each row of the
    trees that left it out) and oob_decision_function_ (their mean class
    probabilities; NaN for a row that every tree took).
    """

    _estimator_type = "classifier"
    _tree_class = TreeClassifier
    _parameters = _forest_parameters(TreeClassifier)
    score = TreeClassifier.score

    def _classes(self, y, kept, params):
        """classes_ as a tree codes them (from a tree of no split over the
        labels alone), each kept row's class code, and the cost matrix in
        that order."""
        probe = TreeClassifier(max_splits=0)
        probe._fit(np.zeros((len(kept), 1)), y[kept], None)
        self.classes_, self.n_classes_ = probe.classes_, probe.n_classes_
        codes = self._positions(y[kept])
        cost = params.pop("cost", None)
        if cost is None:
            return codes, None
        if isinstance(cost, dict):
            try:
                cost = [[0.0 if a == b else float(cost[a][b]) for b in self.classes_]
                        for a in self.classes_]
            except KeyError as e:
                _bad("cost", f"no cost for class {e.args[0]!r}")
        cost = np.asarray(cost, dtype=np.float64)
        if cost.shape != (self.n_classes_, self.n_classes_):
            _bad("cost", f"takes a {self.n_classes_} by {self.n_classes_} matrix, not one of "
                         f"shape {cost.shape}")
        self._cost = cost
        return codes, cost

    def _positions(self, labels):
        """Each label's column in classes_."""
        if self.classes_.dtype.kind in "fiub":
            values = np.array([np.nan if _missing(v) else v for v in np.asarray(labels).tolist()],
                              dtype=np.float64)
            return np.searchsorted(self.classes_.astype(np.float64), values)
        position = {label: j for j, label in enumerate(self.classes_.tolist())}
        return np.array([position[label] for label in np.asarray(labels).tolist()], np.int64)

    def _tree_proba(self, tree):
        """A tree's class shares by node, over all the forest's classes."""
        shares = np.zeros((tree.model_.shape[0], self.n_classes_))
        shares[:, self._positions(tree.classes_)] = tree.model_._shares
        return shares

    def _decide(self, proba):
        """The class of most probability, or with costs of least expected cost."""
        cost = getattr(self, "_cost", None)
        best = np.argmax(proba, axis=1) if cost is None else np.argmin(proba @ cost, axis=1)
        return self.classes_[best]

    def predict_proba(self, X):
        """The mean of the trees' class probabilities: rows by classes_.
        A dask Array or DataFrame gives a lazy one, block by block."""
        if _is_dask(X):
            self._check_fitted()
            return self._lazy(X, "predict_proba", np.float64, self.n_classes_)
        return sum(self._each_tree(X, self._tree_proba)) / len(self.estimators_)

    def predict(self, X):
        """The class of the mean probabilities (with costs, the one of least
        expected cost). A dask Array or DataFrame gives a lazy result."""
        if _is_dask(X):
            self._check_fitted()
            return self._lazy(X, "predict", self.classes_.dtype, None)
        return self._decide(self.predict_proba(X))

    def _set_oob(self, plan, X, y, kept):
        total = np.zeros((len(y), self.n_classes_))
        seen = np.zeros(len(y))
        for i, tree in enumerate(self.estimators_):
            left_out = kept[plan.draw(i, len(kept))[1] == 0]
            if len(left_out):
                total[left_out] += self._tree_proba(tree)[tree.apply(_take(X, left_out))]
                seen[left_out] += 1
        with np.errstate(invalid="ignore", divide="ignore"):
            self.oob_decision_function_ = total / seen[:, None]
        scored = np.flatnonzero(seen > 0)
        right = self._decide(self.oob_decision_function_[scored]) == y[scored]
        self.oob_score_ = float(np.mean(right)) if len(scored) else float("nan")

    def _saved_classes(self):
        out = {"classes": self.classes_.tolist(), "class_dtype": self.classes_.dtype.str}
        if getattr(self, "_cost", None) is not None:
            out["cost"] = self._cost.tolist()
        return out


class ForestRegressor(_Forest):
    """A forest of regression trees grown by the arbolin module: each on
    rows drawn at random, with predictors drawn at random in each node.
    Parameters (keyword only; those of TreeRegressor, then the forest's):

{parameters}

    Attributes after fit: estimators_ (the fitted TreeRegressor objects),
    n_features_in_, feature_names_in_ (for a data frame of string column
    names), feature_importances_ (the trees' mean), and with oob_score:
    oob_score_ (R-squared on each row of the trees that left it out) and
    oob_prediction_ (their mean; NaN for a row that every tree took).
    """

    _estimator_type = "regressor"
    _tree_class = TreeRegressor
    _parameters = _forest_parameters(TreeRegressor)
    score = TreeRegressor.score

    def predict(self, X):
        """The mean of the trees' predictions. A dask Array or DataFrame
        gives a lazy one, block by block."""
        if _is_dask(X):
            self._check_fitted()
            return self._lazy(X, "predict", np.float64, None)
        return sum(self._each_tree(X, lambda tree: tree.model_._values)) / len(self.estimators_)

    def _set_oob(self, plan, X, y, kept):
        total, seen = np.zeros(len(y)), np.zeros(len(y))
        for i, tree in enumerate(self.estimators_):
            left_out = kept[plan.draw(i, len(kept))[1] == 0]
            if len(left_out):
                total[left_out] += tree.predict(_take(X, left_out))
                seen[left_out] += 1
        with np.errstate(invalid="ignore", divide="ignore"):
            self.oob_prediction_ = total / seen
        scored = np.flatnonzero(seen > 0)
        truth = np.asarray(y[scored], dtype=np.float64)
        sse = float(((truth - self.oob_prediction_[scored]) ** 2).sum())
        sst = float(((truth - truth.mean()) ** 2).sum()) if len(scored) else 0.0
        self.oob_score_ = (1.0 if sse == 0 else 0.0) if sst == 0 else 1.0 - sse / sst


for _cls in (ForestClassifier, ForestRegressor):
    _signature(_cls)


# ------------------------------------------------------------- the file

def load(path):
    """A fitted estimator from a file: a forest written by a forest's save,
    or a tree's model file (written by `arbolin fit` or a tree's save) as
    a TreeClassifier or TreeRegressor with default parameters."""
    with open(os.fspath(path), encoding="utf-8") as f:
        if f.read(len(_FILE_MARK)) != _FILE_MARK:
            return _load_tree(path)
        f.seek(0)
        document = json.load(f)
    forest = {"ForestClassifier": ForestClassifier,
              "ForestRegressor": ForestRegressor}[document["estimator"]]()
    forest.set_params(**document["params"])
    names = document["names"]
    feature_names = np.array(names, dtype=object) if document["feature_names"] else None
    forest.estimators_ = []
    for saved in document["trees"]:
        tree = _estimator(Model(_core._loads(saved["model"], os.fspath(path))))
        tree.set_params(**document["tree_params"], random_state=saved["random_state"])
        tree._set_model(tree.model_, names, feature_names)
        forest.estimators_.append(tree)
    forest.n_features_in_ = len(names)
    if feature_names is not None:
        forest.feature_names_in_ = feature_names
    if "classes" in document:
        forest.classes_ = np.array(document["classes"], dtype=np.dtype(document["class_dtype"]))
        forest.n_classes_ = len(forest.classes_)
        for tree in forest.estimators_:
            tree.classes_ = forest.classes_[forest._positions(tree.classes_)]
        if "cost" in document:
            forest._cost = np.array(document["cost"])
    return forest


__all__ = ["ForestClassifier", "ForestRegressor", "load"]
