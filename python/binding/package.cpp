#include "binding/package.hpp"

#include <exception>
#include <stdexcept>

#include "binding/bindings.hpp"
#include "frontend/module_call.hpp"

namespace arbolin::binding {

namespace {

// Lives as long as the process: the objects it holds must not be released
// after the interpreter has gone.
Package* current = nullptr;

py::tuple messageArguments(const numora::Message& message) {
    py::tuple args(message.args.size());
    for (std::size_t i = 0; i < message.args.size(); ++i) {
        args[i] = boost::apply_visitor([](const auto& value) { return py::cast(value); },
                                       message.args[i]);
    }
    return args;
}

// The one place where host exceptions become Python ones.
void translateHostException(std::exception_ptr error) {
    try {
        std::rethrow_exception(error);
    } catch (const numora::Interrupt&) {
        PyErr_SetNone(PyExc_KeyboardInterrupt);
    } catch (const numora::Exception& e) {
        const std::string text = e.text().empty() ? cxMessageText(e.message()) : e.text();
        py::object value = package().hostError(e.identifier(), messageArguments(e.message()), text);
        PyErr_SetObject(package().hostError.ptr(), value.ptr());
    }
}

}  // namespace

const Package& package() {
    if (current == nullptr) {
        throw std::logic_error("arbolin._core is used before the package has bound it");
    }
    return *current;
}

std::string arbolinModulePath() {
    return frontend::modulePath(package().directory + "/libarbolin.so");
}

const numora::Module& arbolinModule() {
    static const numora::Module* const loaded = new numora::Module(arbolinModulePath());
    return *loaded;
}

void bindPackage(py::module_& m) {
    m.def(
        "_bind",
        [](py::object hostError, py::object cell, py::object badOption, std::string directory) {
            if (current == nullptr) current = new Package;
            current->hostError = std::move(hostError);
            current->cell = std::move(cell);
            current->badOption = std::move(badOption);
            current->numpyScalar = py::module_::import("numpy").attr("generic");
            current->directory = std::move(directory);
        },
        py::arg("host_error"), py::arg("cell"), py::arg("bad_option"), py::arg("directory"),
        "Hands the package's Python classes and its folder to the extension.");
    py::register_exception_translator(translateHostException);
}

}  // namespace arbolin::binding
