// The classes that the Python side of the package defines and hands to the
// extension when it is imported.
#pragma once

#include <string>

#include <pybind11/pybind11.h>

namespace arbolin::binding {

namespace py = pybind11;

struct Package {
    py::object hostError;     // arbolin.HostError
    py::object cell;          // arbolin.Cell
    py::object numpyScalar;   // numpy.generic
    std::string directory;    // the package folder, home of the module library
};

// Valid once the package has called `_bind`.
const Package& package();

}  // namespace arbolin::binding
