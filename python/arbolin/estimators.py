"""Estimators with scikit-learn's conventions over the front-end library
that `arbolin fit` uses: TreeClassifier and TreeRegressor.

    est = arbolin.TreeClassifier(max_splits=10, surrogates=2).fit(X, y)
    est.predict(X_new); est.predict_proba(X_new); est.save("tree.model.json")

Their parameters are the options of `arbolin fit`, taken from the same
table with the same defaults and bounds, except those that fit's own
arguments give (response, weights, classification, regression) and two
renamed ones: `random_state` for `seed` and `precision` for `single`.
scikit-learn is never imported here, except for its DataConversionWarning
when it is already loaded.
"""

import functools
import inspect
import numbers
import os
import sys
import warnings

import numpy as np

from . import InvalidParameterError, _core
from .trees import Model, _column, _warn

# Options that fit's arguments and the estimator's class settle.
_GIVEN_BY_FIT = {"response", "weights", "classification", "regression"}
_RENAMED = {"seed": "random_state", "single": "precision", "alpha": "ccp_alpha"}
_PRECISIONS = ("double", "single")
_MOST_SEED = 2 ** 53


class NotFittedError(ValueError, AttributeError):
    """An estimator used before it was fitted."""


@functools.lru_cache(maxsize=None)
def _not_fitted_error(sklearn_error):
    """NotFittedError, and scikit-learn's too once scikit-learn is loaded,
    so that code written for either catches it."""
    if sklearn_error is None:
        return NotFittedError
    return type("NotFittedError", (NotFittedError, sklearn_error), {"__module__": __name__})


class _Parameter:
    def __init__(self, option, kind, default, help_text):
        self.option, self.kind, self.help = option, kind, help_text
        self.name = _RENAMED.get(option, option)
        if option == "seed":
            self.default = None
        elif option == "single":
            self.default = "double"
        elif option == "alpha":
            self.default = 0.0  # as scikit-learn: no pruning
        elif kind == "flag":
            self.default = False
        elif default is None or kind in ("columns", "tokens", "path"):
            self.default = None
        elif kind == "count":
            self.default = int(default)
        elif kind == "real":
            self.default = float(default)
        else:
            self.default = default


def _parameters(classification):
    """The estimator's parameters, in the order of the option table."""
    params = []
    for option, kind, for_classes, for_values, help_text in _core._estimator_options():
        if option in _GIVEN_BY_FIT or (option == "cost" and not classification):
            continue  # a regression tree takes no costs
        params.append(_Parameter(option, kind, for_classes if classification else for_values,
                                 help_text))
    return tuple(params)


def _bad(name, problem):
    raise InvalidParameterError(f"option {name}: {problem}")


# ------------------------------------------------------------------ data

def _is_frame(X):
    return hasattr(X, "columns") and hasattr(X, "dtypes") and hasattr(X, "iloc")


def _is_sparse(X):
    return hasattr(X, "nnz") and hasattr(X, "toarray")


def _frame_names(X):
    names = list(X.columns)
    if all(isinstance(n, str) for n in names):
        return np.array(names, dtype=object)
    if any(isinstance(n, str) for n in names):
        raise TypeError("feature names must all be strings, or none of them; "
                        f"these are of the types {sorted({type(n).__name__ for n in names})}")
    return None


class _Features:
    """X as the front end takes it: a float64 matrix (rows by features), or
    columns (float64 arrays, or lists of str and None that name levels)."""

    def __init__(self, X):
        if _is_sparse(X):
            raise TypeError("arbolin takes dense data, not a sparse matrix: use X.toarray()")
        self.names, self.matrix, self.columns = None, None, None
        if _is_frame(X):
            self.names = _frame_names(X)
            self.shape = X.shape
            self._check_size()
            numeric = all(getattr(t, "kind", "O") in "fiub" and t.name != "category"
                          for t in X.dtypes)
            if numeric:
                self.matrix = X.to_numpy(dtype=np.float64, na_value=np.nan)
            else:
                self.columns = [_column(str(n), X.iloc[:, j]) for j, n in enumerate(X.columns)]
        else:
            array = np.asarray(X)
            if array.dtype.kind in "US" and not isinstance(X, np.ndarray):
                array = np.asarray(X, dtype=object)  # numbers among text stay numbers
            if array.dtype.kind == "c":
                raise ValueError("Complex data not supported")
            if array.ndim != 2:
                raise ValueError(f"Expected a 2-D array of rows by features, got {array.ndim}-D "
                                 f"data of shape {array.shape}. Reshape your data: "
                                 "X.reshape(-1, 1) for one feature, X.reshape(1, -1) for one "
                                 "row")
            self.shape = array.shape
            self._check_size()
            if array.dtype.kind in "fiub":
                self.matrix = array.astype(np.float64, copy=False)
            elif array.dtype.kind in "OUS":
                self.columns = [_column(f"x{j}", array[:, j]) for j in range(array.shape[1])]
            else:
                raise ValueError(f"X of dtype {array.dtype} is not supported")
        if self.matrix is not None and np.isinf(self.matrix).any():
            raise ValueError("Input X contains infinity; a missing value is NaN")

    def _check_size(self):
        rows, features = self.shape
        if rows == 0 or features == 0:
            what = "sample(s)" if rows == 0 else "feature(s)"
            raise ValueError(f"Found array with 0 {what} (shape={tuple(self.shape)}) while a "
                             "minimum of 1 is required.")

    def as_columns(self):
        if self.columns is not None:
            return self.columns
        matrix = np.asfortranarray(self.matrix)
        return [matrix[:, j] for j in range(matrix.shape[1])]


def _feature_names_mismatch(fitted, given):
    """The problem with feature names given to a fitted estimator, or None."""
    if list(fitted) == list(given):
        return None
    unseen = sorted(set(given) - set(fitted))
    missing = sorted(set(fitted) - set(given))

    def listed(names):
        shown = [f"- {n}\n" for n in names[:5]]
        return "".join(shown) + ("- ...\n" if len(names) > 5 else "")

    text = "The feature names should match those that were passed during fit.\n"
    if unseen:
        text += "Feature names unseen at fit time:\n" + listed(unseen)
    if missing:
        text += "Feature names seen at fit time, yet now missing:\n" + listed(missing)
    if not unseen and not missing:
        text += "Feature names must be in the same order as they were in fit.\n"
    return text


def _target(y, rows, stacklevel=5):
    """y as a 1-D array of `rows` values, with a warning for a column."""
    if y is None:
        raise ValueError("this estimator requires y to be passed, but the target y is None")
    y = np.asarray(y)
    if y.ndim == 2 and y.shape[1] == 1:
        warnings.warn("A column-vector y was passed when a 1d array was expected; it is "
                      "taken as a 1d array", _data_conversion_warning(), stacklevel=stacklevel)
        y = y[:, 0]
    if y.ndim != 1:
        raise ValueError(f"y should be a 1d array, got an array of shape {y.shape} instead.")
    if len(y) != rows:
        raise ValueError("Found input variables with inconsistent numbers of samples: "
                         f"[{rows}, {len(y)}]")
    if y.dtype.kind == "c":
        raise ValueError("Complex data not supported")
    return y


def _data_conversion_warning():
    return getattr(sys.modules.get("sklearn.exceptions"), "DataConversionWarning", UserWarning)


def _sample_weight(sample_weight, rows):
    if sample_weight is None:
        return None
    if isinstance(sample_weight, numbers.Real):
        return np.full(rows, float(sample_weight))
    weight = np.array(sample_weight, dtype=np.float64)  # a copy: the caller's stays
    if weight.shape != (rows,):
        raise ValueError(f"sample_weight should be of shape ({rows},), not {weight.shape}")
    return weight


def _unused_name(base, taken):
    name, k = base, 0
    while name in taken:
        k += 1
        name = f"{base}_{k}"
    return name


def _is_number(v):
    return isinstance(v, (numbers.Real, np.number)) and not isinstance(v, (bool, np.bool_))


# ------------------------------------------------------------ estimators

class _Tree:
    """What both estimators share; the parameters come from the option table."""

    _parameters = ()
    _classification = False

    def __init__(self, **params):
        for p in self._parameters:
            setattr(self, p.name, params.pop(p.name, p.default))
        if params:
            raise TypeError(f"{type(self).__name__}() got an unexpected keyword argument "
                            f"{next(iter(params))!r}")

    # ----------------------------------------------------- parameters

    def get_params(self, deep=True):
        return {p.name: getattr(self, p.name) for p in self._parameters}

    def set_params(self, **params):
        valid = {p.name for p in self._parameters}
        for name, value in params.items():
            if name not in valid:
                raise ValueError(f"Invalid parameter {name!r} for estimator {self!r}. "
                                 f"Valid parameters are: {sorted(valid)!r}.")
            setattr(self, name, value)
        return self

    def __repr__(self):
        given = [f"{p.name}={getattr(self, p.name)!r}" for p in self._parameters
                 if not _same(getattr(self, p.name), p.default)]
        return f"{type(self).__name__}({', '.join(given)})"

    def _more_tags(self):
        # NaN is a missing value, routed by surrogates.
        return {"allow_nan": True}

    def _options(self, names):
        """The parameters as options of the front end, checked for type."""
        options, cost = {}, None
        for p in self._parameters:
            value = getattr(self, p.name)
            if p.option == "seed":
                value = _seed(value)
            elif p.option == "single":
                if not isinstance(value, str) or value not in _PRECISIONS:
                    _bad("precision", f"{value!r} is not one of {', '.join(_PRECISIONS)}")
                value = value == "single"
            elif p.option == "cost":
                cost = value
                continue
            elif p.option == "alpha" and _is_number(value) and value == 0:
                continue  # 0 keeps the tree as grown
            elif p.kind == "columns" and value is not None:
                value = _column_names(p.name, value, names)
            if value is not None:
                options[p.option] = value
        return options, cost

    # ----------------------------------------------------------- fit

    def fit(self, X, y, sample_weight=None):
        """Grows the tree on X (rows by features: an array or a data frame)
        and y, each row weighted by `sample_weight` (scaled to sum to 1);
        rows whose y is missing (NaN, None) are left out. Returns self."""
        _warn(self._fit(X, y, sample_weight))
        return self

    def _fit(self, X, y, sample_weight):
        """fit without the warnings: returns the notices on the data, which
        a forest reports once for all its trees."""
        features = _Features(X)
        rows, count = features.shape
        y = _target(y, rows)
        weight = _sample_weight(sample_weight, rows)
        names = (list(features.names) if features.names is not None
                 else [f"x{j}" for j in range(count)])
        if len(set(names)) != len(names):
            raise ValueError("feature names must be distinct")
        options, cost = self._options(names)
        response = _unused_name("y", names)
        columns, (y_column, classes) = features.as_columns(), self._y_column(y)
        options["response"] = response
        options["classification" if self._classification else "regression"] = True
        all_names, all_columns = names + [response], columns + [y_column]
        if weight is not None:
            options["weights"] = _unused_name("sample_weight", all_names)
            all_names, all_columns = all_names + [options["weights"]], all_columns + [weight]
        cost_name, cost = _cost(cost)
        handle, notices = _core._fit(all_names, all_columns, options, cost_name, cost)
        self._set_model(Model(handle), names, features.names)
        if classes is not None:
            self.classes_ = classes(self.model_.classes)
            self.n_classes_ = len(self.classes_)
        return notices

    def _set_model(self, model, names, feature_names):
        self.model_ = model
        self.n_features_in_ = len(names)
        if feature_names is not None:
            self.feature_names_in_ = feature_names
        elif hasattr(self, "feature_names_in_"):
            del self.feature_names_in_
        position = {n: j for j, n in enumerate(names)}
        self._names = names
        self._columns = [position[p] for p in model.predictors]

    # ------------------------------------------------------ applying

    def _check_fitted(self):
        if not hasattr(self, "model_"):
            error = getattr(sys.modules.get("sklearn.exceptions"), "NotFittedError", None)
            raise _not_fitted_error(error)(f"This {type(self).__name__} instance is not fitted yet; "
                                 "call fit first.")

    def apply(self, X):
        """The node (0-based, as in the model file's outputs less one) that
        each row reaches: missing values and levels unseen in training go by
        the node's surrogates, and a row that none places stops there."""
        self._check_fitted()
        nodes, notices = self._route(self._features(X, stacklevel=4))
        _warn(notices, stacklevel=4)
        return nodes

    def _features(self, X, stacklevel):
        """X checked against the features seen in fit (a forest checks once
        for all its trees)."""
        features = _Features(X)
        fitted = getattr(self, "feature_names_in_", None)
        if features.names is not None and fitted is not None:
            problem = _feature_names_mismatch(fitted, features.names)
            if problem:
                raise ValueError(problem)
        elif features.names is not None:
            warnings.warn(f"X has feature names, but {type(self).__name__} was fitted "
                          "without feature names", UserWarning, stacklevel=stacklevel)
        elif fitted is not None:
            warnings.warn(f"X does not have valid feature names, but {type(self).__name__} "
                          "was fitted with feature names", UserWarning, stacklevel=stacklevel)
        if features.shape[1] != self.n_features_in_:
            raise ValueError(f"X has {features.shape[1]} features, but {type(self).__name__} "
                             f"is expecting {self.n_features_in_} features as input.")
        return features

    def _route(self, features):
        """The nodes that checked features reach, and the notices on them."""
        handle = self.model_._handle
        if features.matrix is not None:
            return handle.route_matrix(features.matrix, self._columns)
        return handle.route(self._names, features.columns, [])

    def cost_complexity_pruning_path(self, X, y, sample_weight=None):
        """The weakest-link sequence of the tree grown on X and y with these
        parameters (but no pruning): `ccp_alphas`, the least alpha of each
        subtree, rising, and `impurities`, each subtree's total leaf risk
        (weights summing to 1). In classification that risk is the
        misclassification cost (the share of weight misclassified without
        costs), not the impurity of the criterion; in regression it is the
        weighted squared error. The last subtree is the root alone; any
        ccp_alpha from ccp_alphas[i] up to ccp_alphas[i + 1] gives subtree i."""
        params = dict(self.get_params(), ccp_alpha=0.0, prune="none")
        grown = type(self)(**params).fit(X, y, sample_weight=sample_weight)
        path = grown.model_.pruning
        return _bunch(ccp_alphas=path["alpha"], impurities=path["risk"])

    @property
    def pruning_(self):
        """The cost-complexity sequence of the tree as grown, as a dict of
        arrays (alpha, leaves, risk, and cv_risk and cv_error when prune was
        "cv", NaN otherwise) with `chosen`, the step the fitted tree is."""
        self._check_fitted()
        return self.model_.pruning

    @property
    def feature_importances_(self):
        """Each feature's share of the summed gains of the splits made on
        it (the module's Gain output), in the order of the columns of X:
        sums to 1 when the tree has a split, all 0 for a single leaf."""
        self._check_fitted()
        shares = np.zeros(self.n_features_in_)
        shares[self._columns] = self.model_.feature_importances()
        return shares

    def get_depth(self):
        """Splits from the root to the deepest leaf."""
        self._check_fitted()
        return self.model_.shape[2]

    def get_n_leaves(self):
        self._check_fitted()
        return self.model_.shape[1]

    def save(self, path):
        """Writes the model file of `arbolin fit`, which `arbolin show` and
        `arbolin predict` read, as does arbolin.load."""
        self._check_fitted()
        self.model_.save(path)


def _bunch(**fields):
    """scikit-learn's Bunch when scikit-learn is loaded, else a dict whose
    keys are attributes too."""
    bunch = getattr(sys.modules.get("sklearn.utils"), "Bunch", None)
    return bunch(**fields) if bunch is not None else _Fields(**fields)


class _Fields(dict):
    def __getattr__(self, name):
        try:
            return self[name]
        except KeyError:
            raise AttributeError(name) from None


def _same(a, b):
    try:
        return type(a) is type(b) and bool(a == b)
    except (TypeError, ValueError):
        return False


def _seed(random_state):
    """The seed of the module's stream: None for the host's own stream."""
    if random_state is None:
        return None
    if isinstance(random_state, np.random.Generator):
        return int(random_state.integers(_MOST_SEED))
    if isinstance(random_state, np.random.RandomState):
        return int(random_state.randint(np.iinfo(np.int32).max))
    if isinstance(random_state, numbers.Integral) and not isinstance(random_state, bool):
        if 0 <= random_state <= _MOST_SEED:
            return int(random_state)
        _bad("random_state", f"{random_state} is not from 0 to 2^53")
    _bad("random_state", f"takes None, an int or a numpy.random.Generator, not "
                         f"{type(random_state).__name__}")


def _column_names(name, value, names):
    """Columns given by name or 0-based position, as names."""
    items = [value] if isinstance(value, (str, numbers.Integral)) else list(value)
    out = []
    for item in items:
        if isinstance(item, (numbers.Integral, np.integer)) and not isinstance(item, bool):
            if not 0 <= item < len(names):
                _bad(name, f"there is no column {item}: X has {len(names)}")
            out.append(names[int(item)])
        elif isinstance(item, str):
            out.append(item)
        else:
            _bad(name, f"takes column names or positions, not {type(item).__name__}")
    return out


def _cost(cost):
    """The cost matrix as _core takes it: a K by K array in class order, or
    rows of text led by the class labels (from a dict of dicts)."""
    if cost is None:
        return "", None
    if isinstance(cost, dict):
        labels = list(cost)
        rows = [[str(label) for label in labels]]
        for true in labels:
            row = cost[true]
            if not isinstance(row, dict):
                _bad("cost", f"the costs of class {true!r} should be a dict by predicted class")
            unknown = set(row) - set(labels)
            if unknown:
                _bad("cost", f"class {true!r} names predicted classes that have no row: "
                             f"{sorted(map(str, unknown))}")
            for predicted in labels:
                if predicted not in row and predicted != true:
                    _bad("cost", f"no cost for class {true!r} predicted as {predicted!r}")
            rows.append([repr(float(row.get(predicted, 0.0))) for predicted in labels])
        return "cost", rows
    try:
        matrix = np.asarray(cost, dtype=np.float64)
    except (TypeError, ValueError):
        _bad("cost", f"takes a K by K matrix or a dict of dicts, not {type(cost).__name__}")
    if matrix.ndim != 2:
        _bad("cost", f"takes a K by K matrix, not one of shape {matrix.shape}")
    return "cost", matrix


class TreeClassifier(_Tree):
    """A classification tree grown by the arbolin module, as `arbolin fit`
    grows it. Parameters (keyword only, as `arbolin fit --help` lists the
    options; None: the option's default):

{parameters}

    Attributes after fit: classes_ (the labels, in the order of the
    columns of predict_proba), n_classes_, n_features_in_,
    feature_names_in_ (for a data frame of string column names),
    feature_importances_, model_ (an arbolin.Model: the outputs and the
    model file).
    """

    _estimator_type = "classifier"
    _classification = True
    _parameters = _parameters(True)

    def _y_column(self, y):
        """y as a column of the front end, and classes_ from the labels of
        the classes in code order: the values of y, of y's own type."""
        if y.dtype.kind == "O":
            items = y.tolist()
            present = [v for v in items if not _missing(v)]
            if not (present and all(_is_number(v) for v in present)):
                texts = [None if _missing(v) else str(v) for v in items]
                original = {}
                for text, v in zip(texts, items):
                    original.setdefault(text, v)
                return texts, lambda labels: np.array([original[t] for t in labels], dtype=object)
            kept = np.array(present)
            y = np.array([np.nan if _missing(v) else v for v in items], dtype=np.float64)
        elif y.dtype.kind in "US":
            return [str(v) for v in y.tolist()], np.array
        else:
            kept = y[~np.isnan(y)] if y.dtype.kind == "f" else y
        values = y.astype(np.float64)
        present = values[~np.isnan(values)]
        if not np.all(np.isfinite(present) & (present == np.floor(present))):
            raise ValueError("Unknown label type: 'continuous'. A classifier takes classes: "
                             "text, or whole numbers; use TreeRegressor for a numeric response")
        unique = np.unique(kept)  # in the order of the codes, which go by value
        return values, lambda labels: unique

    def predict(self, X):
        """The class of each row: the most probable class of the node it
        reaches, or with costs the one of least expected cost."""
        nodes = self.apply(X)
        return self.classes_[self.model_._class_codes[nodes]]

    def predict_proba(self, X):
        """The class shares of each row's node: rows by classes_."""
        nodes = self.apply(X)
        return self.model_._shares[nodes]

    def score(self, X, y, sample_weight=None):
        """Accuracy: the (weighted) share of rows predicted right."""
        right = self.predict(X) == np.asarray(y).reshape(-1)
        return float(np.average(right, weights=sample_weight))


class TreeRegressor(_Tree):
    """A regression tree grown by the arbolin module, as `arbolin fit
    --regression` grows it. Parameters (keyword only, as `arbolin fit
    --help` lists the options; None: the option's default):

{parameters}

    Attributes after fit: n_features_in_, feature_names_in_ (for a data
    frame of string column names), feature_importances_, model_ (an
    arbolin.Model: the outputs and the model file).
    """

    _estimator_type = "regressor"
    _parameters = _parameters(False)

    def _y_column(self, y):
        if y.dtype.kind == "O":
            try:
                y = np.array([np.nan if _missing(v) else v for v in y.tolist()], dtype=np.float64)
            except (TypeError, ValueError):
                raise ValueError("a regression tree needs a numeric y") from None
        if y.dtype.kind not in "fiub":
            raise ValueError(f"a regression tree needs a numeric y, not of dtype {y.dtype}")
        return y.astype(np.float64), None

    def predict(self, X):
        """The mean response of the node each row reaches."""
        nodes = self.apply(X)
        return self.model_._values[nodes]

    def score(self, X, y, sample_weight=None):
        """R-squared: 1 - SSE / SST, with the weights; 1 for a perfect fit
        of a constant y, else 0 when y does not vary."""
        y = np.asarray(y, dtype=np.float64).reshape(-1)
        w = np.ones_like(y) if sample_weight is None else np.asarray(sample_weight, np.float64)
        sse = float((w * (y - self.predict(X)) ** 2).sum())
        sst = float((w * (y - np.average(y, weights=w)) ** 2).sum())
        if sst == 0:
            return 1.0 if sse == 0 else 0.0
        return 1.0 - sse / sst


def _missing(v):
    return v is None or type(v).__name__ == "NAType" or (isinstance(v, float) and v != v)


def _signature(cls):
    """__init__ with the parameters as keywords, so that scikit-learn's
    get_params, clone and help() see them."""
    def __init__(self, **params):
        _Tree.__init__(self, **params)

    kinds = inspect.Parameter
    __init__.__signature__ = inspect.Signature(
        [kinds("self", kinds.POSITIONAL_OR_KEYWORD)]
        + [kinds(p.name, kinds.KEYWORD_ONLY, default=p.default) for p in cls._parameters])
    __init__.__doc__ = f"Stores the parameters of {cls.__name__}; fit checks them."
    cls.__init__ = __init__
    rows = [f"    {p.name}: {p.help} [default: {p.default!r}]" for p in cls._parameters]
    cls.__doc__ = cls.__doc__.replace("{parameters}", "\n".join(rows))


for _cls in (TreeClassifier, TreeRegressor):
    _signature(_cls)


# ------------------------------------------------------------- the file

def load(path):
    """A fitted estimator from a model file written by `arbolin fit` or
    by save: a TreeClassifier or TreeRegressor with default parameters,
    whose features are the model's predictors in order."""
    return _estimator(Model(_core._load(os.fspath(path))))


def _estimator(model):
    names = list(model.predictors)
    if model.classes is None:
        est = TreeRegressor()
    else:
        est = TreeClassifier()
        labels = model.classes
        est.classes_ = np.array(labels, dtype=object)
        if model._class_numbers:
            values = np.array(labels, dtype=np.float64)
            whole = np.all(values == np.floor(values))
            est.classes_ = values.astype(np.int64) if whole else values
        est.n_classes_ = len(labels)
    generated = names == [f"x{j}" for j in range(len(names))]
    est._set_model(model, names, None if generated else np.array(names, dtype=object))
    return est


def export_text(est):
    """The tree as `arbolin show` prints it: one node a line, indented by
    depth, with its rule, size and prediction, and how missing values go."""
    est._check_fitted()
    return est.model_._handle.render("text")


def plot_tree(est, ax=None, fontsize=8):
    """Draws the fitted tree (of an estimator or a Model) with matplotlib (imported only here) on `ax`,
    or on the current axes: a box a node with its number, split, size and
    prediction, laid out as `arbolin show --format svg` lays it out, "yes"
    (the split's rule holds) to the left. Returns the axes."""
    import matplotlib.pyplot as plt

    if isinstance(est, Model):
        handle = est._handle
    else:
        est._check_fitted()
        handle = est.model_._handle
    boxes = handle.layout()
    if ax is None:
        ax = plt.gca()
    depth = max(b[1] for b in boxes)
    for slot, level, lines, leaf, left, right in boxes:
        if not leaf:
            for child, word in ((left, "yes"), (right, "no")):
                cx, cy = boxes[child][0], -boxes[child][1]
                ax.plot([slot, cx], [-level, cy], color="#777", linewidth=0.8, zorder=1)
                ax.annotate(word, ((slot + cx) / 2, (-level + cy) / 2), fontsize=fontsize - 1,
                            ha="center", va="center", color="#555")
        ax.annotate("\n".join(lines), (slot, -level), fontsize=fontsize, ha="center",
                    va="center", zorder=2,
                    bbox=dict(boxstyle="round", fc="#eef4ea" if leaf else "#eaf0f8",
                              ec="#446"))
    slots = max(b[0] for b in boxes)
    ax.set_xlim(-0.6, slots + 0.6)
    ax.set_ylim(-depth - 0.6, 0.6)
    ax.set_axis_off()
    return ax


def export_graphviz(est):
    """The tree in Graphviz's language, as `arbolin show --format dot`
    writes it."""
    est._check_fitted()
    return est.model_._handle.render("dot")
