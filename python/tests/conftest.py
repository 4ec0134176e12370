"""Shared helpers of the arbolin tests: the module's inputs with defaults,
the names of its outputs, and a comparison of host values."""

import numpy as np

import arbolin

EMPTY = np.zeros((0, 0))

# The twenty inputs of the module in their order, each with the keyword of
# make_inputs and its default. None: worked out from X (see make_inputs).
INPUTS = (
    ("X", None),
    ("Y", None),
    ("W", None),              # ones
    ("rows", None),           # every row, 0-based, as doubles
    ("is_cat", None),         # all predictors numeric, logical 1 by D
    ("criterion", "gini"),
    ("min_leaf", 1),
    ("min_parent", 10),
    ("max_splits", None),     # N - 1
    ("sample_size", None),    # D: every predictor in every node
    ("surrogates", 0),
    ("max_cat", 10),
    ("alg_cat", 0),
    ("cost", EMPTY),
    ("risk_tol", 0.0),
    ("curvature", False),
    ("interaction", False),
    ("chisq", False),
    ("stream", EMPTY),        # the host's default stream
    ("verbosity", 0),
)

OUTPUTS = arbolin.OUTPUT_NAMES


def make_inputs(X, Y, **settings):
    """The list of twenty inputs for data X (N by D) and response Y, with
    `settings` by the keywords of INPUTS replacing the defaults."""
    unknown = set(settings) - {name for name, _ in INPUTS}
    if unknown:
        raise TypeError(f"unknown inputs: {sorted(unknown)}")
    X = np.asarray(X)
    n, d = X.shape[0], int(np.prod(X.shape[1:]))
    derived = {
        "X": X,
        "Y": Y,
        "W": np.ones(n),
        "rows": np.arange(n, dtype=np.float64),
        "is_cat": np.zeros((1, d), dtype=bool),
        "max_splits": max(n - 1, 0),
        "sample_size": d,
    }
    return [settings.get(name, derived.get(name, default)) for name, default in INPUTS]


def grow(inputs, **kwargs):
    """All 22 outputs of one call, by name."""
    return dict(zip(OUTPUTS, arbolin.calyx(len(OUTPUTS), inputs, **kwargs)))


def assert_value(actual, expected, where="value"):
    """Same type, class, shape and contents. Floating values are compared to
    a relative 1e-12 (1e-6 in single precision), NaN equal to NaN."""
    if isinstance(expected, arbolin.Cell):
        assert isinstance(actual, arbolin.Cell), f"{where}: {actual!r} is not a Cell"
        assert actual.shape == expected.shape, f"{where}: shape {actual.shape}"
        for i, (a, e) in enumerate(zip(actual.data, expected.data)):
            assert_value(a, e, f"{where}[{i}]")
    elif isinstance(expected, np.ndarray):
        assert isinstance(actual, np.ndarray), f"{where}: {actual!r} is not an array"
        assert actual.dtype == expected.dtype, f"{where}: dtype {actual.dtype}"
        assert actual.shape == expected.shape, f"{where}: shape {actual.shape}"
        if expected.dtype.kind == "f":
            rtol = 1e-6 if expected.dtype == np.float32 else 1e-12
            np.testing.assert_allclose(actual, expected, rtol=rtol, atol=0, equal_nan=True,
                                       err_msg=where)
        else:
            np.testing.assert_array_equal(actual, expected, err_msg=where)
    else:
        assert type(actual) is type(expected) and actual == expected, \
            f"{where}: {actual!r} != {expected!r}"
