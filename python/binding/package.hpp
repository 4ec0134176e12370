// The classes that the Python side of the package defines and hands to the
// extension when it is imported.
#pragma once

#include <string>

#include <pybind11/pybind11.h>

#include "host/numora_host.hpp"

namespace arbolin::binding {

namespace py = pybind11;

struct Package {
    py::object hostError;    // arbolin.HostError
    py::object cell;         // arbolin.Cell
    py::object badOption;    // arbolin.InvalidParameterError
    py::object numpyScalar;  // numpy.generic
    std::string directory;   // the package folder, home of the module library
};

// Valid once the package has called `_bind`.
const Package& package();

// $ARBOLIN_MODULE, or the module library in the package folder.
std::string arbolinModulePath();
// Loaded at the first call and never unloaded: the module's worker threads
// and the host's tables must not see it go while the process ends.
const numora::Module& arbolinModule();

}  // namespace arbolin::binding
