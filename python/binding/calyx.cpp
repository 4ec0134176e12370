// Calls into the host from Python: the module's entry point (`calyx`), whose
// inputs are checked first; the same call unchecked (`_calyx_unchecked`), for
// tests of what the module itself does with inputs that `calyx` refuses; and,
// for tests of the call-back route, any host function (`_call_host`).
#include <algorithm>
#include <climits>
#include <string>
#include <utility>
#include <vector>

#include "binding/bindings.hpp"
#include "binding/convert.hpp"
#include "binding/package.hpp"
#include "frontend/input_check.hpp"
#include "gateway/contract.hpp"

namespace arbolin::binding {

namespace {

// ---------------------------------------------------------- arguments

int outputCount(py::handle nout) {
    if (PyBool_Check(nout.ptr()) || !PyIndex_Check(nout.ptr())) {
        throw py::type_error("nout must be an int, not " + typeName(nout));
    }
    const auto index = py::reinterpret_steal<py::object>(PyNumber_Index(nout.ptr()));
    if (!index) throw py::error_already_set();
    int overflow = 0;
    const long long count = PyLong_AsLongLongAndOverflow(index.ptr(), &overflow);
    if (overflow < 0 || (overflow == 0 && count < 0)) {
        throw py::value_error("nout must be 0 or more, not " + std::string(py::repr(nout)));
    }
    if (overflow > 0 || count > INT_MAX) {
        throw py::value_error("nout is too large: " + std::string(py::repr(nout)));
    }
    return static_cast<int>(count);
}

std::vector<numora::ArrayPtr> hostInputs(py::handle inputs) {
    if (!PyList_Check(inputs.ptr()) && !PyTuple_Check(inputs.ptr())) {
        throw py::type_error("inputs must be a list or a tuple, not " + typeName(inputs));
    }
    std::vector<numora::ArrayPtr> arrays;
    std::size_t i = 0;
    for (py::handle value : inputs) {
        try {
            // The inputs outlive the call, so large ones are lent, not copied.
            arrays.push_back(lendToHost(value));
        } catch (const UnmappableValue& e) {
            throw py::type_error("inputs[" + std::to_string(i) + "]: " + e.what());
        }
        ++i;
    }
    return arrays;
}

// The module trusts its caller to pass consistent arrays; from Python, the
// caller is anyone. A class or shape that is wrong is a TypeError, a value
// out of bounds a ValueError, and either names the input.
void checkModuleInputs(const std::vector<cxArray*>& inputs) {
    try {
        frontend::checkModuleInputs(static_cast<int>(inputs.size()), inputs.data());
    } catch (const frontend::ContractViolation& e) {
        if (e.kind() == frontend::ContractViolation::Kind::Type) throw py::type_error(e.what());
        throw py::value_error(e.what());
    }
}

// ------------------------------------------------- host function of Python

// Stores what a Python function returned in the host function's outputs:
// one value for nout up to 1, a tuple or list of at least nout otherwise.
// The outputs are filled only once all values have been converted.
void storeResult(const std::string& name, py::handle result, int nout, cxArray** outputs) {
    if (nout < 1) return;
    std::vector<py::object> values;
    if (nout == 1) {
        values.push_back(py::reinterpret_borrow<py::object>(result));
    } else {
        if (!PyList_Check(result.ptr()) && !PyTuple_Check(result.ptr())) {
            throw py::type_error("host function '" + name + "' must return a tuple or list of " +
                                 std::to_string(nout) + " values, not " + typeName(result));
        }
        if (py::len(result) < static_cast<std::size_t>(nout)) {
            throw py::value_error("host function '" + name + "' returned " +
                                  std::to_string(py::len(result)) + " values, " +
                                  std::to_string(nout) + " wanted");
        }
        for (int k = 0; k < nout; ++k) values.push_back(result[py::int_(k)]);
    }

    std::vector<numora::ArrayPtr> arrays;
    for (std::size_t k = 0; k < values.size(); ++k) {
        try {
            arrays.push_back(toHost(values[k]));
        } catch (const UnmappableValue& e) {
            throw py::type_error("host function '" + name + "', output " + std::to_string(k) +
                                 ": " + e.what());
        }
    }
    for (std::size_t k = 0; k < arrays.size(); ++k) outputs[k] = arrays[k].release();
}

// The host may run the function on any thread while the caller has let go
// of the interpreter. It holds only a borrowed pointer to the callable,
// which the call keeps alive, so that copies of it never touch Python.
numora::HostFunction hostFunction(std::string name, PyObject* callable) {
    return
        [name = std::move(name), callable](int nout, cxArray** outputs, int nin, cxArray** inputs) {
            py::gil_scoped_acquire gil;
            py::tuple args(nin);
            for (int i = 0; i < nin; ++i) {
                try {
                    args[i] = fromHost(inputs[i]);
                } catch (const UnmappableValue& e) {
                    throw py::type_error("host function '" + name + "', input " +
                                         std::to_string(i) + ": " + e.what());
                }
            }
            py::object result = py::handle(callable)(*args);
            storeResult(name, result, nout, outputs);
        };
}

// ------------------------------------------------------------ call scope

// What a call sets up in the host for Python and takes down on every way
// out: the host functions backed by Python callables, and the sinks that
// collect printed text and warnings in a list.
class CallScope {
public:
    CallScope(py::handle functions, py::handle out) {
        if (!functions.is_none() && !PyDict_Check(functions.ptr())) {
            throw py::type_error("functions must be a dict or None, not " + typeName(functions));
        }
        if (!out.is_none() && !PyList_Check(out.ptr())) {
            throw py::type_error("out must be a list or None, not " + typeName(out));
        }
        if (!functions.is_none()) {
            for (auto [key, value] : py::reinterpret_borrow<py::dict>(functions)) {
                if (!PyUnicode_Check(key.ptr())) {
                    throw py::type_error("functions: names must be str, not " + typeName(key));
                }
                if (!PyCallable_Check(value.ptr())) {
                    throw py::type_error("functions['" + key.cast<std::string>() +
                                         "'] is not callable");
                }
                functions_.emplace_back(key.cast<std::string>(),
                                        py::reinterpret_borrow<py::object>(value));
            }
        }
        try {
            for (auto& [name, callable] : functions_) {
                numora::registerFunction(name, hostFunction(name, callable.ptr()));
                ++registered_;
            }
            if (!out.is_none()) captureInto(out.ptr());
        } catch (...) {
            restore();
            throw;
        }
        out_ = py::reinterpret_borrow<py::object>(out);
    }

    ~CallScope() { restore(); }

    CallScope(const CallScope&) = delete;
    CallScope& operator=(const CallScope&) = delete;

private:
    void captureInto(PyObject* list) {
        previousPrint_ = numora::setPrintSink([list](std::string_view text) {
            py::gil_scoped_acquire gil;
            py::object s = py::reinterpret_steal<py::object>(
                PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "replace"));
            if (!s || PyList_Append(list, s.ptr()) != 0) throw py::error_already_set();
        });
        capturing_ = true;
        previousWarning_ =
            numora::setWarningSink([list](const numora::Message& message, const std::string&) {
                py::gil_scoped_acquire gil;
                py::object entry = py::make_tuple("WARNING", message.identifier());
                if (PyList_Append(list, entry.ptr()) != 0) throw py::error_already_set();
            });
    }

    void restore() noexcept {
        if (capturing_) {
            numora::setPrintSink(std::move(previousPrint_));
            numora::setWarningSink(std::move(previousWarning_));
            capturing_ = false;
        }
        for (; registered_ > 0; --registered_) {
            numora::unregisterFunction(functions_[registered_ - 1].first);
        }
    }

    std::vector<std::pair<std::string, py::object>> functions_;
    std::size_t registered_ = 0;
    py::object out_;  // the list the sinks append to, kept alive
    bool capturing_ = false;
    numora::PrintSink previousPrint_;
    numora::WarningSink previousWarning_;
};

// --------------------------------------------------------------- a call

// The output slots of a call. Whatever the host stored and was not taken
// is destroyed with them, on success and on error.
class OutputSlots {
public:
    explicit OutputSlots(int nout) : slots_(std::max(nout, 1), nullptr) {}
    ~OutputSlots() {
        for (cxArray* a : slots_) {
            if (a != nullptr) cxDestroyArray(a);
        }
    }
    OutputSlots(const OutputSlots&) = delete;
    OutputSlots& operator=(const OutputSlots&) = delete;

    cxArray** data() { return slots_.data(); }
    numora::ArrayPtr take(std::size_t k) {
        return numora::ArrayPtr(std::exchange(slots_[k], nullptr));
    }

private:
    std::vector<cxArray*> slots_;
};

// Converts the inputs, sets up the call scope, runs `check(inputs)`, runs
// `invoke(nout, outputs, nin, inputs)` without the interpreter lock, and
// converts the outputs.
template <class Check, class Invoke>
py::tuple hostCall(py::handle nout, py::handle inputs, py::handle functions, py::handle out,
                   Check&& check, Invoke&& invoke) {
    const int count = outputCount(nout);
    const std::vector<numora::ArrayPtr> arrays = hostInputs(inputs);
    std::vector<cxArray*> raw;
    for (const auto& a : arrays) raw.push_back(a.get());

    CallScope scope(functions, out);
    check(raw);
    OutputSlots outputs(count);
    {
        py::gil_scoped_release release;
        invoke(count, outputs.data(), static_cast<int>(raw.size()), raw.data());
    }

    py::tuple result(count);
    for (int k = 0; k < count; ++k) {
        numora::ArrayPtr array = outputs.take(k);
        try {
            result[k] = fromHost(array.get());
        } catch (const UnmappableValue& e) {
            throw py::type_error("output " + std::to_string(k) + ": " + e.what());
        }
    }
    return result;
}

void noCheck(const std::vector<cxArray*>&) {}

void callModule(int n, cxArray** outputs, int nin, cxArray** in) {
    arbolinModule().call(n, outputs, nin, const_cast<const cxArray**>(in));
}

// The module is loaded before the inputs are checked, so that a library
// that cannot be loaded is reported whatever the inputs.
py::tuple calyx(py::handle nout, py::handle inputs, py::handle functions, py::handle out) {
    return hostCall(
        nout, inputs, functions, out,
        [](const std::vector<cxArray*>& in) {
            arbolinModule();
            checkModuleInputs(in);
        },
        callModule);
}

py::tuple calyxUnchecked(py::handle nout, py::handle inputs, py::handle functions, py::handle out) {
    return hostCall(nout, inputs, functions, out, noCheck, callModule);
}

// Calls host function `name` as the module does; with `trap`, through the
// trapped call and a rethrow by the host function "throw".
py::tuple callHost(py::handle nout, const std::string& name, py::handle inputs,
                   py::handle functions, py::handle out, bool trap) {
    return hostCall(
        nout, inputs, functions, out, noCheck,
        [&name, trap](int n, cxArray** outputs, int nin, cxArray** in) {
            if (!trap) return calyxCallNumora(n, outputs, nin, in, name.c_str());
            numora::ArrayPtr error(calyxCallNumoraWithTrap(n, outputs, nin, in, name.c_str()));
            if (error) {
                cxArray* args[] = {error.get()};
                calyxCallNumora(0, nullptr, 1, args, "throw");
            }
        });
}

}  // namespace

void bindCalls(py::module_& m) {
    // The module's argument names in order, so that Python code and tests
    // never spell the list again.
    py::tuple inputNames(contract::kInputCount), outputNames(contract::kOutputCount);
    for (const auto& a : contract::kInputs) {
        inputNames[contract::slot(a.position)] = py::str(a.name.data(), a.name.size());
    }
    for (const auto& a : contract::kOutputs) {
        outputNames[contract::slot(a.position)] = py::str(a.name.data(), a.name.size());
    }
    m.attr("INPUT_NAMES") = inputNames;
    m.attr("OUTPUT_NAMES") = outputNames;
    m.def("calyx", &calyx, py::arg("nout"), py::arg("inputs"), py::kw_only(),
          py::arg("functions") = py::none(), py::arg("out") = py::none(),
          R"(Calls the arbolin module with `inputs` and returns a tuple of `nout` outputs.

`functions` maps host function names to Python callables, registered for the
duration of the call. When `out` is a list, printed text is appended to it as
str and warnings as ("WARNING", identifier), instead of going to stdout.
Both act on host-wide tables for the duration of the call, so calls from
several threads at once must leave them out. Host errors raise
arbolin.HostError.

The inputs are checked before the call: an input of the wrong class or
shape (or a list of other than twenty) raises TypeError, a value out of
bounds ValueError, each naming the input by its 1-based position and name,
e.g. "input 7 (MinLeaf) must be a whole number of at least 1, not 0".)");
    m.def("_calyx_unchecked", &calyxUnchecked, py::arg("nout"), py::arg("inputs"), py::kw_only(),
          py::arg("functions") = py::none(), py::arg("out") = py::none(),
          "calyx without the check of the inputs: the module gets whatever it is given, as "
          "from the host's own code. For tests of the module's own refusals; inputs that calyx "
          "refuses may read outside their arrays.");
    m.def("_call_host", &callHost, py::arg("nout"), py::arg("name"), py::arg("inputs"),
          py::kw_only(), py::arg("functions") = py::none(), py::arg("out") = py::none(),
          py::arg("trap") = false,
          "Calls host function `name` the way the module calls back into the host.");
    m.def("_fail_next_allocation", &numora::failNextAllocation,
          "Makes the host's next cxMallocEx return null (for tests).");
}

}  // namespace arbolin::binding
