"""The Python value of a host cell array."""

import math

import numpy as np


class Cell:
    """A host cell array: a shape of two or more dimensions and one element
    per position, listed in column-major order. An element is any value the
    host call accepts, or None for an element that is unset."""

    __slots__ = ("shape", "data")
    __hash__ = None

    def __init__(self, shape, data=None):
        shape = tuple(int(d) for d in shape)
        if len(shape) < 2 or any(d < 0 for d in shape):
            raise ValueError(f"a Cell shape has two or more dimensions of 0 or more, not {shape}")
        count = math.prod(shape)
        data = [None] * count if data is None else list(data)
        if len(data) != count:
            raise ValueError(f"a Cell of shape {shape} holds {count} elements, not {len(data)}")
        self.shape = shape
        self.data = data

    def __eq__(self, other):
        if not isinstance(other, Cell):
            return NotImplemented
        return self.shape == other.shape and all(
            _same_element(a, b) for a, b in zip(self.data, other.data))

    def __repr__(self):
        return f"Cell({self.shape!r}, {self.data!r})"


def _same_element(a, b):
    """Arrays are equal with the same dtype, shape and values (NaN equal to
    NaN); anything else compares with ==."""
    if isinstance(a, np.ndarray) or isinstance(b, np.ndarray):
        if not (isinstance(a, np.ndarray) and isinstance(b, np.ndarray)):
            return False
        return (a.dtype == b.dtype and a.shape == b.shape
                and np.array_equal(a, b, equal_nan=a.dtype.kind in "fc"))
    if a is None or b is None:
        return a is b
    return type(a) is type(b) and bool(a == b)
