// The user's request to stop: a process-wide flag set from a SIGINT handler
// and polled by the module, also from worker threads.
#include <atomic>
#include <csignal>
#include <memory>

#include "host/numora_host.hpp"

namespace {

// Lock-free, so that the signal handler may store to it.
std::atomic<bool> interruptFlag{false};
static_assert(std::atomic<bool>::is_always_lock_free);

extern "C" void onInterruptSignal(int) {
    interruptFlag.store(true, std::memory_order_relaxed);
}

}  // namespace

void hostInterruptCheck() {
    if (interruptFlag.load(std::memory_order_relaxed)) throw numora::Interrupt();
}

namespace numora {

void requestInterrupt() noexcept {
    interruptFlag.store(true, std::memory_order_relaxed);
}

void clearInterrupt() noexcept {
    interruptFlag.store(false, std::memory_order_relaxed);
}

bool interruptRequested() noexcept {
    return interruptFlag.load(std::memory_order_relaxed);
}

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

}  // namespace numora
