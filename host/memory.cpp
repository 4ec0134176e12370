// Host memory for the module's scratch buffers.
#include <atomic>
#include <cstdlib>

#include "host/numora_host.hpp"

namespace {
std::atomic<bool> failNext{false};
}

void* cxMallocEx(std::size_t bytes) {
    // Load first so the common path costs no read-modify-write.
    if (failNext.load(std::memory_order_relaxed) && failNext.exchange(false)) return nullptr;
    // malloc(0) may give null, which callers would take for exhaustion.
    return std::malloc(bytes == 0 ? 1 : bytes);
}

void cxFreeEx(void* p) {
    std::free(p);
}

namespace numora {

void failNextAllocation() noexcept {
    failNext.store(true);
}

}  // namespace numora
