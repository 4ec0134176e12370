// Host memory for the module's scratch buffers, and the count of host
// allocations (these buffers and every array) that lets tests make any one
// of them fail.
#include <atomic>
#include <cstdint>
#include <cstdlib>

#include "host/array_impl.hpp"

namespace {

std::atomic<bool> failNext{false};
// Allocations so far, and the number of the one that is to fail (0: none).
// Each allocation draws its own number, so on any threads exactly one fails.
std::atomic<std::uint64_t> made{0};
std::atomic<std::uint64_t> failing{0};
// Buffers and arrays not yet given back.
std::atomic<std::uint64_t> live{0};

}  // namespace

void* cxMallocEx(std::size_t bytes) {
    const bool refused = numora::detail::allocationRefused();
    // Load first so the common path costs no read-modify-write.
    if (failNext.load(std::memory_order_relaxed) && failNext.exchange(false)) return nullptr;
    if (refused) return nullptr;
    // malloc(0) may give null, which callers would take for exhaustion.
    void* p = std::malloc(bytes == 0 ? 1 : bytes);
    if (p != nullptr) numora::detail::noteAllocated();
    return p;
}

void cxFreeEx(void* p) {
    if (p != nullptr) numora::detail::noteReleased();
    std::free(p);
}

namespace numora {

void failNextAllocation() noexcept {
    failNext.store(true);
}

void failNthAllocation(std::uint64_t k) noexcept {
    failing.store(k == 0 ? 0 : made.load() + k);
}

AllocationCounts allocationCounts() noexcept {
    return {made.load(), live.load()};
}

namespace detail {

bool allocationRefused() noexcept {
    const std::uint64_t number = made.fetch_add(1, std::memory_order_relaxed) + 1;
    return number == failing.load(std::memory_order_relaxed);
}

void noteAllocated() noexcept {
    live.fetch_add(1, std::memory_order_relaxed);
}

void noteReleased() noexcept {
    live.fetch_sub(1, std::memory_order_relaxed);
}

}  // namespace detail

}  // namespace numora
