"""A printing run searches serially, a silent one on worker threads: both grow
the same tree, bit for bit, in both precisions."""

import numpy as np
import pytest

import arbolin
from conftest import CRITERIA, EMPTY, F4, F8, OUTPUTS, assert_same, col, mixed_data, random_data


def numeric(regression):
    X, Y, W = random_data(7, n=300, d=6, regression=regression, weighted=True, nan=0.05)
    return X, Y, W, np.zeros((1, 6), bool)


def nominal(k):
    return lambda regression: mixed_data(70 + k, k, regression, extra=2, n=300, nan=0.12)


def selection(regression):
    X, Y, W, is_cat = mixed_data(50 + regression, 3, regression, extra=2, n=300, nan=0.08)
    return X, Y, W / W.sum(), is_cat       # the chi-square tests' scale


# criterion, data, settings; a SampleSize below 6 draws predictors.
CASES = {
    **{f"{name}{'-drawn' * (size < 6)}": (name, numeric, dict(sample_size=size, surrogates=1))
       for name, size in [("gini", 6), ("deviance", 4), ("twoing", 6), ("gini-cost", 6),
                          ("error-cost", 3), ("mse", 6), ("mse", 4)]},
    "nominal-gini-2": ("gini", nominal(2), dict(max_cat=8, surrogates=3)),
    "nominal-gini-3": ("gini", nominal(3), dict(max_cat=8, surrogates=3)),
    "nominal-deviance-5": ("deviance", nominal(5), dict(max_cat=8, surrogates=3)),
    "nominal-mse": ("mse", nominal(1), dict(max_cat=8, surrogates=3)),
    **{f"{tests}-{name}": (name, selection, {"curvature": True, tests: True})
       for tests in ("curvature", "chisq", "interaction") for name in ("gini", "mse")},
}


@pytest.mark.parametrize("dtype", [F8, F4])
@pytest.mark.parametrize("case", CASES)
def test_serial_run_gives_the_parallel_tree(case, dtype):
    name, data, settings = CASES[case]
    crit = CRITERIA[name]
    *XYW, is_cat = data(crit.regression)
    X, Y, W = (v.astype(dtype) for v in XYW)

    def grown(verbosity):
        stream = arbolin.Stream(3) if "sample_size" in settings else EMPTY
        inputs = crit.inputs(X, Y, W=W, is_cat=is_cat, min_leaf=2, min_parent=5, stream=stream,
                             verbosity=verbosity, **settings)
        return dict(zip(OUTPUTS, arbolin.calyx(22, inputs, out=[])))

    t = grown(0)
    assert_same(grown(1), t)
    # Every phase had work, in the class of the data.
    assert t["Children"].shape[1] > 20 and col(t, "NodeSize")[1:].min() >= 2
    assert t["CutPoint"].dtype == dtype
    if is_cat.any():
        assert (np.isnan(col(t, "CutPoint")) & (col(t, "CutVar") > 0)).sum() >= 2
        assert all(v.dtype == dtype for v in t["SplitLevels"].data if v is not None)
    if settings.get("surrogates", 0) > 1:
        cuts = t["SurrogateCutPoints"].data
        assert sum(c.shape[1] >= 2 for c in cuts) >= 3
        assert sum(np.isnan(c).sum() for c in cuts) >= 3                  # nominal ones
        assert all(c.dtype == dtype for c in cuts + t["SurrogateGains"].data)
        assert col(t, "HasUnroutedRows").sum() >= 1
    if settings.get("curvature"):
        found = [v for v in t["CurvatureTests"].data if v is not None]
        assert len(found) >= 5 and all(v.dtype == dtype for v in found)
        pairs = [v for v in t["InteractionTests"].data if v is not None]
        assert len(pairs) >= 3 if settings.get("interaction") else not pairs
