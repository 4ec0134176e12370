"""Grows decision trees with the arbolin module, called through the Numora
host runtime exactly as the host calls it.

    TreeClassifier(**options), TreeRegressor(**options)   scikit-learn estimators
    ForestClassifier(**options), ForestRegressor(**options)   forests of them (threads, dask)
    load(path) -> a fitted tree or forest                 (a model or forest file)
    export_text(est), export_graphviz(est)                (as `arbolin show` prints)
    plot_tree(est, ax=None)                               (with matplotlib)
    fit(data, response=None, **options) -> Model          (as `arbolin fit` does)
    calyx(nout, inputs, *, functions=None, out=None) -> tuple of nout values

Values map to host arrays and back: numpy arrays by dtype (float64 double,
float32 single, bool logical, integer dtypes the integer classes; column-major,
1-D of n is n by 1), Python float and int a 1 by 1 double, bool a 1 by 1
logical, str a char array, Cell a cell array, Stream a random stream object.
"""

import os

from .cell import Cell


class HostError(Exception):
    """An error raised by the host or the module.

    `identifier` is the full "component:key" text, `args` the message
    arguments (int or str), `text` the catalog text."""

    def __init__(self, identifier, args=(), text=""):
        super().__init__(*args)
        self.identifier = identifier
        self.text = text

    def __str__(self):
        return f"{self.identifier}: {self.text}" if self.text else self.identifier

    def __reduce__(self):
        return (type(self), (self.identifier, self.args, self.text))


class InvalidParameterError(ValueError, TypeError):
    """An option or estimator parameter of the wrong type or value; the
    message names it."""


from . import _core  # noqa: E402  (needs the classes above)

_core._bind(HostError, Cell, InvalidParameterError, os.path.dirname(os.path.abspath(__file__)))

from ._core import INPUT_NAMES, OUTPUT_NAMES, Stream, calyx  # noqa: E402
from .trees import Model, fit  # noqa: E402
from .estimators import (NotFittedError, TreeClassifier, TreeRegressor,  # noqa: E402
                         export_graphviz, export_text, plot_tree)
from .forest import ForestClassifier, ForestRegressor, load  # noqa: E402

__all__ = ["calyx", "Cell", "HostError", "InvalidParameterError", "Stream", "INPUT_NAMES",
           "OUTPUT_NAMES", "fit", "load", "Model", "TreeClassifier", "TreeRegressor",
           "ForestClassifier", "ForestRegressor",
           "NotFittedError", "export_text", "export_graphviz", "plot_tree"]
