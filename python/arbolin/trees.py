"""Trees from Python as the command line grows and applies them: the same
option table, data preparation, module call, routing and model file, in the
front-end library behind `_core`.

    model = arbolin.fit(data, "species", max_splits=10, surrogates=2)
    model.predict(new_data); model.predict_proba(new_data)
    model.save("iris.model.json"); arbolin.Model.load("iris.model.json")

`data` is a pandas DataFrame or a dict of column name -> 1-D sequence or
array. A column of numbers (any numeric or bool dtype, or a sequence of
numbers and None) is numeric, NaN or None missing; any other column is
text, whose values name levels: nominal unless listed in `numeric`.
Missing text is None, or a value that a CSV file would leave missing: "",
NA, NaN, ? and the tokens of `missing`.
"""

import csv
import functools
import io
import math
import numbers
import os
import warnings

import numpy as np

from . import _core


def _is_missing(value):
    return (value is None or type(value).__name__ == "NAType"  # pandas.NA
            or (isinstance(value, float) and math.isnan(value)))


def _column(name, values):
    """A column as _core takes it: float64 array, or list of str and None."""
    if getattr(getattr(values, "dtype", None), "name", None) == "category":
        # A categorical names levels even when its categories are numbers.
        return [None if _is_missing(v) else str(v) for v in values.astype(object).tolist()]
    if hasattr(values, "to_numpy"):
        values = values.to_numpy()
    array = np.asarray(values)
    if array.ndim != 1:
        raise ValueError(f"column {name} should be one-dimensional, not of shape {array.shape}")
    if array.dtype.kind in "fiub":
        return array.astype(np.float64)
    items = array.tolist()
    for row, v in enumerate(items):
        if not (_is_missing(v) or isinstance(v, (str, numbers.Real))):
            raise TypeError(f"column {name}, row {row}: the argument must be a string or a "
                            f"number, not {type(v).__name__}")
    if all(_is_missing(v) or (isinstance(v, numbers.Real) and not isinstance(v, bool))
           for v in items) and any(not _is_missing(v) for v in items):
        return np.array([np.nan if _is_missing(v) else float(v) for v in items])
    return [None if _is_missing(v) else str(v) for v in items]


def _columns(data):
    """Names and columns of a DataFrame or a dict of columns."""
    if not hasattr(data, "keys"):
        raise TypeError(f"data must be a pandas DataFrame or a dict of columns, "
                        f"not {type(data).__name__}")
    names = [str(name) for name in data.keys()]
    return names, [_column(name, data[key]) for name, key in zip(names, data.keys())]


def _cost(cost):
    """The name and contents of a cost matrix: a K by K array, or the rows
    of a cost file (read as the command line reads one, with the delimiter
    of , ; and tab that splits its first line most)."""
    if isinstance(cost, (str, os.PathLike)):
        path = os.fspath(cost)
        with open(path, newline="", encoding="utf-8-sig") as f:
            text = f.read()
        first = text.splitlines()[0] if text else ""
        delimiter = max((",", ";", "\t"), key=first.count)
        rows = [row for row in csv.reader(io.StringIO(text), delimiter=delimiter) if row]
        if not rows:
            raise ValueError(f"{path}: the file is empty")
        return path, rows
    return "the cost matrix", np.asarray(cost, dtype=np.float64)


def _warn(notices, stacklevel=3):
    """Notes and warnings on the data, pointing at the caller's line."""
    for _, text in notices:
        warnings.warn(text, UserWarning, stacklevel=stacklevel)


def fit(data, response=None, **options):
    """Grows a tree on `data` with the options of `arbolin fit` (each
    --flag-name is a keyword flag_name) and returns a Model. `response`
    names the column to predict (default: the last one); `cost` is a K by K
    array of misclassification costs (row: true class, column: predicted
    class, in the order of Model.classes) or the path of a cost file. A bad
    option raises TypeError or ValueError naming it; notes and warnings on
    the data are Python warnings."""
    names, columns = _columns(data)
    options = {key: value for key, value in options.items() if value is not None}
    if response is not None:
        options["response"] = response
    cost_name, cost = None, None
    if options.get("cost") is not None:
        cost_name, cost = _cost(options["cost"])
        options["cost"] = cost_name
    handle, notices = _core._fit(names, columns, options, cost_name or "", cost)
    _warn(notices)
    return Model(handle)


class Model:
    """A grown tree: `predictors` and `classes` (None for a regression tree)
    by name, the module's 22 `outputs` by name (as arbolin.calyx returns
    them), and the predictions for new data, whose columns are found by
    name as `arbolin predict` finds them."""

    def __init__(self, handle):
        self._handle = handle

    @classmethod
    def load(cls, path):
        """The model in a model file written by `arbolin fit` or save."""
        return cls(_core._load(os.fspath(path)))

    def __reduce__(self):
        # A pickle holds the model file's text.
        return _model_from_text, (self._handle.text(),)

    @functools.cached_property
    def _values(self):
        """Each node's prediction: its mean, or its class code."""
        return self._handle.node_values()

    @functools.cached_property
    def _class_codes(self):
        return self._values.astype(np.int64)

    @functools.cached_property
    def _shares(self):
        """Each node's class shares: nodes by classes."""
        return self._handle.node_shares()

    @property
    def _class_numbers(self):
        return self._handle.class_numbers

    @functools.cached_property
    def shape(self):
        """(nodes, leaves, depth): depth counts the splits from the root to
        the deepest leaf."""
        return self._handle.shape()

    @property
    def predictors(self):
        return self._handle.predictors

    @property
    def classes(self):
        return self._handle.classes

    @property
    def response(self):
        return self._handle.response

    @property
    def outputs(self):
        return self._handle.outputs()

    def feature_importances(self, surrogates=False):
        """Each predictor's share of the summed split gains (the module's
        Gain output of the branches split on it), in the order of
        `predictors`; with `surrogates`, each surrogate's own gain is added
        in full to its predictor. Sums to 1 when the tree has a split with a
        gain, else all 0."""
        return self._handle.importance(bool(surrogates))

    @property
    def pruning(self):
        """The cost-complexity sequence of the tree as grown (the one a
        pruned model keeps, else its own): a dict of arrays alpha, leaves,
        risk (weights summing to 1; misclassification cost in
        classification), cv_risk and cv_error (NaN unless cross-validated),
        and `chosen`, the step this tree is, `folds` and `rule`."""
        return self._handle.pruning()

    def prune(self, alpha=None, leaves=None):
        """A new Model of the subtree for `alpha`, or the largest of at most
        `leaves` leaves, as `arbolin prune` makes it."""
        if (alpha is None) == (leaves is None):
            raise TypeError("prune takes alpha or leaves, one of them")
        path = self.pruning
        if alpha is not None:
            step = int(np.searchsorted(path["alpha"], alpha * (1 + 1e-9), side="right")) - 1
        else:
            fitting = np.nonzero(path["leaves"] <= leaves)[0]
            step = int(fitting[0]) if len(fitting) else len(path["leaves"]) - 1
        return Model(self._handle.pruned(max(step, 0)))

    def _nodes(self, data, missing):
        names, columns = _columns(data)
        missing = [missing] if isinstance(missing, str) else list(missing)
        nodes, notices = self._handle.route(names, columns, missing)
        _warn(notices, stacklevel=4)
        return nodes

    def apply(self, data, missing=()):
        """The node (0-based) each row reaches; `missing` adds tokens that
        mean missing in text columns."""
        return self._nodes(data, missing)

    def predict(self, data, missing=()):
        """Class labels (an object array of str) or values (float64)."""
        nodes = self._nodes(data, missing)
        if self.classes is None:
            return self._values[nodes]
        return np.array(self.classes, dtype=object)[self._class_codes[nodes]]

    def predict_proba(self, data, missing=()):
        """The class shares of each row's node: rows by classes, in the
        order of `classes`."""
        if self.classes is None:
            raise ValueError("a regression tree has no class shares")
        return self._shares[self._nodes(data, missing)]

    def save(self, path):
        """Writes the model file, as `arbolin fit` writes it."""
        with open(os.fspath(path), "w", encoding="utf-8") as f:
            f.write(self._handle.text())

    def __repr__(self):
        task = "regression" if self.classes is None else f"{len(self.classes)} classes"
        return f"<arbolin.Model of {self.response} ({task}), {len(self.predictors)} predictors>"


def _model_from_text(text):
    return Model(_core._loads(text, "the pickled model"))


def _options_doc():
    rows = [f"    {name}: {text} [default: {default}]"
            for name, default, text in _core._fit_options()]
    return "\n\nOptions:\n" + "\n".join(rows)


fit.__doc__ += _options_doc()
