"""The Python binding: values to the host and back (through a host function
that hands back what it gets), errors, host functions, printing, arguments."""

import os
import pickle
import signal
import subprocess
import threading

import numpy as np
import pytest

import arbolin
from arbolin import Cell, HostError, _core
from conftest import EMPTY, assert_same, make_inputs


def echo(*values, nout=None, trap=False):
    """The values after a trip to the host and back."""
    nout = len(values) if nout is None else nout
    return _core._call_host(nout, "echo", list(values), trap=trap,
                            functions={"echo": lambda *v: v[0] if len(v) == 1 else v})


C_ORDER = np.arange(6.0).reshape(2, 3)

ROUND_TRIPS = {
    "float64 matrix": (C_ORDER, C_ORDER),
    "column-major matrix": (np.asfortranarray(C_ORDER), C_ORDER),
    # Lent to the host, not copied: the host must neither free nor change it.
    "column-major 1-D": (np.arange(5.0), np.arange(5.0).reshape(5, 1)),
    "big-endian, copied": (np.asfortranarray(C_ORDER).astype(">f8"), C_ORDER),
    "strided view": (np.arange(12.0).reshape(3, 4)[::2, 1::2], np.array([[1.0, 3.0], [9.0, 11.0]])),
    "float32 matrix": (C_ORDER.astype(np.float32), C_ORDER.astype(np.float32)),
    "1-D is a column": (np.array([1.0, 2.0, 3.0]), np.array([[1.0], [2.0], [3.0]])),
    "0-D is 1 by 1": (np.array(2.5), np.array([[2.5]])),
    "3-D": (np.arange(24.0).reshape(2, 3, 4), np.arange(24.0).reshape(2, 3, 4)),
    "trailing 1 dropped": (np.zeros((2, 3, 1)), np.zeros((2, 3))),
    "empty column": (np.zeros((0, 1)), np.zeros((0, 1))),
    "NaN": (np.array([[np.nan, -np.inf]]), np.array([[np.nan, -np.inf]])),
    "bool": (np.array([[True, False, True]]), np.array([[True, False, True]])),
    "float": (2.5, np.array([[2.5]])), "int": (-3, np.array([[-3.0]])),
    "bool scalar": (True, np.array([[True]])), "numpy bool": (np.bool_(False), np.array([[False]])),
    "numpy scalar": (np.float32(1.5), np.array([[1.5]], np.float32)),
    "empty str": ("", ""), "unicode str": ("Größe", "Größe"),
    "cell": (Cell((1, 2), [1.0, "a"]), Cell((1, 2), [np.array([[1.0]]), "a"])),
    "cell with unset": (Cell((2, 1), [None, Cell((0, 0))]), Cell((2, 1), [None, Cell((0, 0))])),
    "3-D cell": (Cell((1, 1, 2), [None, np.float32(1)]),
                 Cell((1, 1, 2), [None, np.array([[1]], np.float32)])),
    "empty cell": (Cell((0, 3)), Cell((0, 3))),
}
INTEGERS = [np.int8, np.uint8, np.int16, np.uint16, np.int32, np.uint32, np.int64, np.uint64]
for t in INTEGERS:
    values = np.array([[0, 1], [np.iinfo(t).max, np.iinfo(t).min]], dtype=t)
    ROUND_TRIPS[t.__name__] = (values, values)


@pytest.mark.parametrize("value, expected", ROUND_TRIPS.values(), ids=ROUND_TRIPS)
@pytest.mark.parametrize("trap", [False, True], ids=["call", "trapped-call"])
def test_value_round_trip(value, expected, trap):
    before = value.copy() if isinstance(value, np.ndarray) else None
    (result,) = echo(value, trap=trap)
    assert_same(result, expected, close=True)
    if isinstance(result, np.ndarray):
        assert result.flags.owndata  # a copy: the host array is gone
    if before is not None:
        np.testing.assert_array_equal(value, before)  # lent or copied, left as it was


def test_several_values_each_way_and_none_wanted():
    a, b, c = echo(1.0, "x", Cell((0, 0)))
    assert_same(a, np.array([[1.0]]), close=True)
    assert (b, c) == ("x", Cell((0, 0))) and echo(1.0, nout=0) == ()


@pytest.mark.parametrize("value, where", [
    (None, "inputs[0]"), (np.zeros(2, complex), "complex128"), (np.zeros(2, np.float16), "float16"),
    (np.array(["a"]), "inputs[0]"), (np.zeros((2, 2, 2), bool), "bool"),
    (Cell((1, 2), [1.0, object()]), "cell element 1")])
def test_unmappable_input_names_its_position(value, where):
    with pytest.raises(TypeError, match=r"inputs\[0\]") as info:
        echo(value)
    assert where in str(info.value)


def test_cell_equality():
    a = Cell((1, 2), [np.array([[1.0]]), None])
    assert a == Cell((1, 2), [np.array([[1.0]]), None])
    assert a != Cell((2, 1), [np.array([[1.0]]), None])
    assert a != Cell((1, 2), [np.array([[1.0]], np.float32), None])
    assert a != Cell((1, 2), [np.array([1.0]), None])
    assert a != Cell((1, 2), [1.0, None])
    assert Cell((1, 1), [np.array([[np.nan]])]) == Cell((1, 1), [np.array([[np.nan]])])
    assert "Cell((1, 2), [array([[1.]]), None])" == repr(a)
    with pytest.raises(ValueError):
        Cell((2, 2), [1.0])
    with pytest.raises(ValueError):
        Cell((3,))


class Failure(Exception):
    pass


@pytest.mark.parametrize("trap", [False, True], ids=["call", "trapped-call"])
def test_python_error_in_host_function_comes_out_unchanged(trap):
    failure = Failure("raised in Python")
    with pytest.raises(Failure) as info:
        _core._call_host(1, "fail", [1.0], trap=trap,
                         functions={"fail": lambda *v: (_ for _ in ()).throw(failure)})
    assert info.value is failure


@pytest.mark.parametrize("result, nout, error, text", [
    ((1.0,), 1, TypeError, "output 0"), (1.0, 2, TypeError, "tuple or list of 2"),
    ((1.0,), 2, ValueError, "returned 1 values, 2 wanted"),
    ([1.0, None], 2, TypeError, "output 1")])
def test_unmappable_return_value(result, nout, error, text):
    with pytest.raises(error, match=text):
        _core._call_host(nout, "f", [], functions={"f": lambda: result})


def test_functions_are_registered_for_the_call_only():
    assert _core._call_host(1, "f", [], functions={"f": lambda: 1.0}) == (np.array([[1.0]]),)
    with pytest.raises(Failure):
        _core._call_host(1, "f", [], functions={"f": lambda: (_ for _ in ()).throw(Failure())})
    for name in ("f", "echo"):
        with pytest.raises(HostError) as info:
            _core._call_host(1, name, [])
        assert (info.value.identifier, info.value.args) == ("numora:function:unknown", (name,))


def test_calls_from_several_python_threads():
    # Each call lets go of the interpreter (no host functions or capture here:
    # they are host-wide).
    inputs = make_inputs(np.zeros((3, 1)), np.array([0.0, 1.0, 1.0]))
    expected = arbolin.calyx(15, inputs)[14]
    results = []
    threads = [threading.Thread(target=lambda: results.append(arbolin.calyx(15, inputs)[14]))
               for _ in range(8)]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    assert len(results) == 8 and all(np.array_equal(r, expected) for r in results)


def test_host_error_carries_identifier_arguments_and_text():
    # The module's own refusal, past the check that calyx makes first.
    with pytest.raises(HostError) as info:
        _core._calyx_unchecked(np.int64(1), [])          # a numpy integer is a count too
    e = info.value
    assert e.identifier == "tallix:silvan:learning:treeutils:weaveCanopy:BadNumberOfInputArgs"
    assert e.args == (20,) and type(e.args[0]) is int and "20" in e.text
    assert str(e) == f"{e.identifier}: {e.text}"
    again = pickle.loads(pickle.dumps(e))
    assert (again.identifier, again.args, again.text) == (e.identifier, e.args, e.text)


def test_interrupt_during_a_call_raises_keyboard_interrupt():
    # The criterion's first call plays the user pressing Ctrl-C; the search of
    # the root stops at its next check.
    def impurity(v):
        os.kill(os.getpid(), signal.SIGINT)
        return np.array([[1.0]])

    inputs = make_inputs(np.arange(6.0).reshape(6, 1), np.array([0.0, 0, 0, 1, 1, 1]),
                         criterion=Cell((1, 2), ["impurity", ""]), min_parent=2, max_splits=1)
    with pytest.raises(KeyboardInterrupt):
        arbolin.calyx(1, inputs, functions={"impurity": impurity})
    arbolin.calyx(1, inputs, functions={"impurity": lambda v: np.array([[1.0]])})  # flag cleared


def verbose_inputs(criterion="gini"):
    return make_inputs(np.zeros((2, 1)), np.array([0.0, 1.0]), criterion=criterion, verbosity=1)


def test_printing_goes_back_to_stdout_after_capture(capfd):
    out = []
    arbolin.calyx(0, verbose_inputs(), out=out)
    with pytest.raises(HostError):
        _core._calyx_unchecked(0, verbose_inputs("nonsense"), out=[])
    assert out and capfd.readouterr().out == ""
    arbolin.calyx(0, verbose_inputs())
    assert capfd.readouterr().out == "".join(out)


@pytest.mark.parametrize("kwargs, error, text", [
    (dict(nout=-1), ValueError, "nout"), (dict(nout=1.0), TypeError, "nout"),
    (dict(nout=True), TypeError, "nout"), (dict(inputs={}), TypeError, "inputs"),
    (dict(functions=[("f", print)]), TypeError, "functions"),
    (dict(functions={"f": 1}), TypeError, "functions"),
    (dict(functions={1: print}), TypeError, "functions"),
    (dict(out=()), TypeError, "out"),
])
def test_bad_arguments_of_calyx(kwargs, error, text):
    args = {"nout": 1, "inputs": [], **kwargs}
    with pytest.raises(error, match=text):
        arbolin.calyx(args.pop("nout"), args.pop("inputs"), **args)


def test_streams_are_numbered_apart_and_keep_their_seed():
    a, b = arbolin.Stream(1), arbolin.Stream(1)
    assert a.id != b.id and (a.seed, b.seed) == (1, 1)
    assert repr(a) == f"Stream(seed=1, id={a.id})"
    with pytest.raises(TypeError):
        arbolin.Stream(-1)


def test_module_exports_only_its_two_entry_points():
    # Everything else stays hidden, so modules cannot clash in the host.
    library = os.path.join(os.path.dirname(arbolin.__file__), "libarbolin.so")
    listing = subprocess.run(["nm", "-D", "--defined-only", library], check=True,
                             capture_output=True, text=True).stdout
    names = sorted(line.split()[-1] for line in listing.splitlines() if line.strip())
    assert names == ["calyxFunction", "calyxfilerequiredapiversion"]
