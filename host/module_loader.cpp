// Loading a module's shared library and calling its entry point.
#include <dlfcn.h>

#include <string>

#include "host/numora_host.hpp"
#include "host/raise.hpp"

namespace numora {

namespace {

std::string lastDlError() {
    const char* error = dlerror();
    return error ? error : "no error reported";
}

std::string versionText(std::uint32_t major, std::uint32_t minor) {
    return std::to_string(major) + "." + std::to_string(minor);
}

void* entryPoint(void* handle, const std::string& path, const char* name) {
    dlerror();  // clear, so that a stale error is not reported as ours
    void* symbol = dlsym(handle, name);
    if (symbol == nullptr) {
        detail::raise("numora:module", "missingEntryPoint",
                      {path, std::string(name), lastDlError()});
    }
    return symbol;
}

}  // namespace

Module::Module(const std::string& path) : path_(path) {
    dlerror();
    // Never unmapped: a module may leave worker threads (its task
    // scheduler) running in libraries it brought in.
    handle_ = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (handle_ == nullptr) detail::raise("numora:module", "cannotOpen", {path, lastDlError()});
    try {
        auto version = reinterpret_cast<CalyxApiVersionFunction>(
            entryPoint(handle_, path_, "calyxfilerequiredapiversion"));
        std::uint32_t major = 0;
        std::uint32_t minor = 0;
        version(&major, &minor);
        // A module runs on a host of the same major version that offers at
        // least the minor version it was built for.
        if (major != kCalyxApiMajor || minor > kCalyxApiMinor) {
            detail::raise("numora:module", "versionMismatch",
                          {path_, versionText(major, minor),
                           versionText(kCalyxApiMajor, kCalyxApiMinor)});
        }
        entry_ = reinterpret_cast<CalyxFunction>(entryPoint(handle_, path_, "calyxFunction"));
    } catch (...) {
        dlclose(handle_);
        throw;
    }
}

Module::~Module() {
    dlclose(handle_);
}

void Module::call(int nout, cxArray** outputs, int nin, const cxArray** inputs) const {
    InterruptScope scope;
    entry_(nout, outputs, nin, inputs);
}

}  // namespace numora
