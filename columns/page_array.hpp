// A large array in pages of its own, whose stretches that will never be
// read again can be given back to the system while the rest stays in use.
// The kept order shrinks this way as its rows reach leaves, so that the
// memory of a deep tree's nodes does not come on top of all of it.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>

#include "core/tree_allocator.hpp"

namespace arbolin {

template <class T>
class PageArray {
public:
    PageArray() = default;
    // `size` zero entries; pages are only taken as they are written.
    explicit PageArray(std::size_t size) : size_(size) {
        if (size == 0) {
            return;
        }
        data_ = static_cast<T*>(mapPages(bytes()));
    }
    ~PageArray() {
        if (data_ != nullptr) {
            unmapPages(data_, bytes());
        }
    }
    PageArray(const PageArray&) = delete;
    PageArray& operator=(const PageArray&) = delete;

    T* data() { return data_; }
    const T* data() const { return data_; }
    std::size_t size() const { return size_; }

    // Gives back the whole pages inside entries [first, last): they read as
    // zero afterwards. Pages shared with entries outside stay.
    void release(std::size_t first, std::size_t last) {
        const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
        const auto from = (reinterpret_cast<std::uintptr_t>(data_ + first) + page - 1) / page * page;
        const auto to = reinterpret_cast<std::uintptr_t>(data_ + last) / page * page;
        if (first < last && from < to) {
            madvise(reinterpret_cast<void*>(from), to - from, MADV_DONTNEED);
        }
    }

private:
    std::size_t bytes() const { return size_ * sizeof(T); }

    T* data_ = nullptr;
    std::size_t size_ = 0;
};

}  // namespace arbolin
