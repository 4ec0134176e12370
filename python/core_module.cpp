// The extension behind the Python package: it calls the tree module through
// the host runtime exactly as the host itself would, and grows and applies
// trees through the front-end library the command line uses.
#include <pybind11/pybind11.h>

#include "binding/bindings.hpp"

PYBIND11_MODULE(_core, m) {
    m.doc() = "Calls the arbolin module through the Numora host runtime.";
    arbolin::binding::bindPackage(m);
    arbolin::binding::bindStream(m);
    arbolin::binding::bindCalls(m);
    arbolin::binding::bindTrees(m);
}
