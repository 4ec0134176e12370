// The parts of the extension module `_core`, each defined in its own file.
#pragma once

#include <pybind11/pybind11.h>

namespace arbolin::binding {

namespace py = pybind11;

void bindPackage(py::module_& m);  // package.cpp
void bindStream(py::module_& m);   // stream.cpp
void bindCalls(py::module_& m);    // calyx.cpp
void bindTrees(py::module_& m);    // trees.cpp

}  // namespace arbolin::binding
