#include "binding/stream.hpp"

#include <string>

#include "binding/bindings.hpp"
#include "host/numora_host.hpp"

namespace arbolin::binding {

Stream::Stream(std::uint64_t seed) : seed_(seed), id_(numora::createStream(seed)) {}

Stream::~Stream() { numora::destroyStream(id_); }

void bindStream(py::module_& m) {
    py::class_<Stream>(m, "Stream",
                       "A random stream of the host, seeded once and registered for the\n"
                       "lifetime of this object; pass it as the stream input of a call.")
        .def(py::init<std::uint64_t>(), py::arg("seed"))
        .def_property_readonly("seed", &Stream::seed)
        .def_property_readonly("id", &Stream::id, "The stream's number in the host's table.")
        .def("__repr__", [](const Stream& s) {
            return "Stream(seed=" + std::to_string(s.seed()) + ", id=" + std::to_string(s.id()) +
                   ")";
        });
}

}  // namespace arbolin::binding
