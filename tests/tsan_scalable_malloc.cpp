// Linked into the test binary of the thread-sanitizer build only
// (scripts/tsan.sh): the scalable allocator's entry points go to malloc and
// free, which the sanitizer follows, and take the place of oneTBB's for the
// module too. oneTBB's allocator hands a block that one thread freed to
// another thread through lists of its own that the sanitizer cannot see, so
// the block's old and new owners would look to it like two threads racing.
#include <malloc.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <oneapi/tbb/scalable_allocator.h>

extern "C" {

void* scalable_malloc(size_t size) { return std::malloc(size); }

void scalable_free(void* p) { std::free(p); }

void* scalable_realloc(void* p, size_t size) { return std::realloc(p, size); }

void* scalable_calloc(size_t count, size_t size) { return std::calloc(count, size); }

int scalable_posix_memalign(void** p, size_t alignment, size_t size) {
    return posix_memalign(p, alignment, size);
}

void* scalable_aligned_malloc(size_t size, size_t alignment) {
    void* p = nullptr;
    const int error = posix_memalign(&p, alignment, size);
    if (error != 0) errno = error;
    return error == 0 ? p : nullptr;
}

void* scalable_aligned_realloc(void* p, size_t size, size_t alignment) {
    if (p == nullptr) return scalable_aligned_malloc(size, alignment);
    if (size == 0) {
        std::free(p);
        return nullptr;
    }
    void* moved = scalable_aligned_malloc(size, alignment);
    if (moved == nullptr) return nullptr;
    std::memcpy(moved, p, std::min(size, malloc_usable_size(p)));
    std::free(p);
    return moved;
}

void scalable_aligned_free(void* p) { std::free(p); }

size_t scalable_msize(void* p) { return p == nullptr ? 0 : malloc_usable_size(p); }

}  // extern "C"
