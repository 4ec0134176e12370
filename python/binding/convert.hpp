// Python values to host arrays and back.
//
//   numpy float64, float32, bool, int8..uint64  <->  double, single, logical, int*
//     (column-major; 1-D n is n by 1, 0-D is 1 by 1; host arrays come back
//     with all their dimensions, at least two)
//   float, int -> 1 by 1 double; bool -> 1 by 1 logical
//   str <-> char array (1 by n; '' is 0 by 0)
//   Cell <-> cell (flat column-major data, None for an unset element)
//   Stream -> stream object (one way only)
#pragma once

#include <stdexcept>
#include <string>

#include <pybind11/pybind11.h>

#include "host/numora_host.hpp"

namespace arbolin::binding {

namespace py = pybind11;

// A value that has no counterpart on the other side. The message says what
// it is; the caller says where it was found.
class UnmappableValue : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

numora::ArrayPtr toHost(py::handle value);

// As toHost, but a float64 array already in column-major order is lent to
// the host instead of copied: `value` must outlive the host array and stay
// unchanged meanwhile. For the inputs of one call, which the caller holds.
numora::ArrayPtr lendToHost(py::handle value);

// Copies: the host array may be destroyed afterwards. A null array is None.
py::object fromHost(const cxArray* array);

// The name of a value's Python type, for messages.
std::string typeName(py::handle value);

}  // namespace arbolin::binding
