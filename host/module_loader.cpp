// Loading a module's shared library and calling its entry point, and the
// user's request to stop it: a process-wide flag set from a SIGINT handler
// and polled by the module, also from worker threads.
#include <dlfcn.h>

#include <atomic>
#include <csignal>
#include <memory>
#include <string>

#include "host/internal.hpp"

namespace {

// Lock-free, so that the signal handler may store to it.
std::atomic<bool> interruptFlag{false};
static_assert(std::atomic<bool>::is_always_lock_free);

extern "C" void onInterruptSignal(int) { interruptFlag.store(true, std::memory_order_relaxed); }

}  // namespace

void hostInterruptCheck() {
    if (interruptFlag.load(std::memory_order_relaxed)) throw numora::Interrupt();
}

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

void requestInterrupt() noexcept { interruptFlag.store(true, std::memory_order_relaxed); }

void clearInterrupt() noexcept { interruptFlag.store(false, std::memory_order_relaxed); }

bool interruptRequested() noexcept { return interruptFlag.load(std::memory_order_relaxed); }

struct InterruptScope::Saved {
    struct sigaction previous {};
    bool installed = false;
};

InterruptScope::InterruptScope() : saved_(std::make_unique<Saved>()) {
    struct sigaction action {};
    action.sa_handler = onInterruptSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;  // blocking calls outside the module carry on
    saved_->installed = sigaction(SIGINT, &action, &saved_->previous) == 0;
}

InterruptScope::~InterruptScope() {
    if (saved_->installed) sigaction(SIGINT, &saved_->previous, nullptr);
    clearInterrupt();  // a request belongs to the call that it stopped
}

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
            detail::raise(
                "numora:module", "versionMismatch",
                {path_, versionText(major, minor), versionText(kCalyxApiMajor, kCalyxApiMinor)});
        }
        entry_ = reinterpret_cast<CalyxFunction>(entryPoint(handle_, path_, "calyxFunction"));
    } catch (...) {
        dlclose(handle_);
        throw;
    }
}

Module::~Module() { dlclose(handle_); }

void Module::call(int nout, cxArray** outputs, int nin, const cxArray** inputs) const {
    InterruptScope scope;
    entry_(nout, outputs, nin, inputs);
}

}  // namespace numora
