// The allocator of the tree's vectors. Small blocks come from oneTBB's
// scalable allocator, which many threads use at once without contention.
// Blocks of a megabyte or more are mapped directly and unmapped when freed:
// the scalable allocator keeps large freed blocks for reuse, and the sort
// buffers of the root, kept beside the gather buffers of its search, would
// otherwise add their size to the peak of a large fit.
#pragma once

#include <sys/mman.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <new>

#include <oneapi/tbb/scalable_allocator.h>

namespace arbolin {

// Zeroed pages of their own, taken only as they are written.
inline void* mapPages(std::size_t bytes) {
    void* p = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (p == MAP_FAILED) {
        throw std::bad_alloc();
    }
    return p;
}

inline void unmapPages(void* p, std::size_t bytes) noexcept { munmap(p, bytes); }

// What the scalable allocator keeps for reuse goes back to the system, for
// a fit of `cells` values (rows times predictors) large enough to matter:
// small fits, often many in a row, keep it.
inline void givePooledBack(std::uint64_t cells) {
    if (cells >= (std::uint64_t{1} << 22)) {
        scalable_allocation_command(TBBMALLOC_CLEAN_ALL_BUFFERS, nullptr);
    }
}

template <class T>
class TreeAllocator {
public:
    using value_type = T;

    TreeAllocator() noexcept = default;
    template <class U>
    TreeAllocator(const TreeAllocator<U>&) noexcept {}

    T* allocate(std::size_t n) {
        if (n > std::numeric_limits<std::size_t>::max() / sizeof(T)) {
            throw std::bad_array_new_length();
        }
        const std::size_t bytes = n * sizeof(T);
        if (bytes >= kMappedBytes) {
            return static_cast<T*>(mapPages(bytes));
        }
        void* p = scalable_malloc(bytes);
        if (p == nullptr) {
            throw std::bad_alloc();
        }
        return static_cast<T*>(p);
    }

    void deallocate(T* p, std::size_t n) noexcept {
        const std::size_t bytes = n * sizeof(T);
        if (bytes >= kMappedBytes) {
            unmapPages(p, bytes);
        } else {
            scalable_free(p);
        }
    }

    template <class U>
    bool operator==(const TreeAllocator<U>&) const noexcept {
        return true;
    }

private:
    static constexpr std::size_t kMappedBytes = std::size_t{1} << 20;
};

}  // namespace arbolin
