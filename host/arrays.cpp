// Making and giving back host memory: arrays of every class and the module's
// scratch buffers, each counted, so that tests can make any one of them fail.
#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "host/internal.hpp"

namespace {

using numora::ArrayPtr;
using numora::detail::kElementRoom;
using numora::detail::raise;

std::atomic<bool> failNext{false};
// Allocations so far, and the number of the one that is to fail (0: none).
// Each allocation draws its own number, so on any threads exactly one fails.
std::atomic<std::uint64_t> made{0};
std::atomic<std::uint64_t> failing{0};
// Buffers and arrays not yet given back.
std::atomic<std::uint64_t> live{0};

// Counts one host allocation; true when it is the one to fail.
bool allocationRefused() noexcept {
    const std::uint64_t number = made.fetch_add(1, std::memory_order_relaxed) + 1;
    return number == failing.load(std::memory_order_relaxed);
}

void noteAllocated() noexcept { live.fetch_add(1, std::memory_order_relaxed); }

void noteReleased() noexcept { live.fetch_sub(1, std::memory_order_relaxed); }

// Double, single and the integer classes.
bool isNumeric(cxClassID cls) noexcept { return cls >= cxDOUBLE_CLASS && cls <= cxUINT64_CLASS; }

bool holdsData(cxClassID cls) noexcept {
    return isNumeric(cls) || cls == cxLOGICAL_CLASS || cls == cxCHAR_CLASS;
}

void normalise(std::vector<std::uint64_t>& dims) {
    while (dims.size() < 2) dims.push_back(1);
    while (dims.size() > 2 && dims.back() == 1) dims.pop_back();
}

std::uint64_t elementCount(const std::vector<std::uint64_t>& dims) {
    std::uint64_t count = 1;
    for (std::uint64_t d : dims) {
        if (__builtin_mul_overflow(count, d, &count)) raise("numora:array", "tooLarge");
    }
    return count;
}

// What an array of `count` elements takes: its record and its elements.
std::uint64_t arrayBytes(cxClassID cls, std::uint64_t count) {
    using Properties = decltype(cxArray::properties)::value_type;
    const std::uint64_t element = holdsData(cls)          ? kElementRoom
                                  : cls == cxCELL_CLASS   ? sizeof(ArrayPtr)
                                  : cls == cxOBJECT_CLASS ? sizeof(Properties)
                                                          : 0;
    const std::uint64_t slots = holdsData(cls) && count == 0 ? 1 : count;
    std::uint64_t bytes = 0;
    if (__builtin_mul_overflow(slots, element, &bytes) ||
        __builtin_add_overflow(bytes, sizeof(cxArray), &bytes)) {
        raise("numora:array", "tooLarge");
    }
    return bytes;
}

}  // namespace

namespace numora::detail {

ArrayPtr newArray(cxClassID cls, std::vector<std::uint64_t> dims) {
    normalise(dims);
    const std::uint64_t count = elementCount(dims);
    if (allocationRefused()) {
        raise("numora:memory", "outOfMemory", {static_cast<std::int64_t>(arrayBytes(cls, count))});
    }
    ArrayPtr a(new cxArray);
    noteAllocated();
    a->classID = cls;
    a->dims = std::move(dims);
    a->count = count;
    try {
        if (holdsData(cls)) {
            std::uint64_t bytes = 0;
            const std::uint64_t slots = count == 0 ? 1 : count;
            if (__builtin_mul_overflow(slots, kElementRoom, &bytes)) {
                raise("numora:array", "tooLarge");
            }
            a->data.reset(std::calloc(slots, kElementRoom));
            if (!a->data) {
                raise("numora:memory", "outOfMemory", {static_cast<std::int64_t>(bytes)});
            }
        } else if (cls == cxCELL_CLASS) {
            a->cells.resize(count);
        } else if (cls == cxOBJECT_CLASS) {
            a->properties.resize(count);
        }
    } catch (const std::bad_alloc&) {
        raise("numora:array", "tooLarge");
    } catch (const std::length_error&) {
        raise("numora:array", "tooLarge");
    }
    return a;
}

}  // namespace numora::detail

using numora::detail::newArray;

cxArray* cxCreateNumericMatrix(std::uint64_t m, std::uint64_t n, cxClassID cls,
                               cxComplexity complexity) {
    if (complexity != cxREAL) raise("numora:array", "complexUnsupported");
    const std::uint64_t dims[2] = {m, n};
    return numora::cxCreateNumericArray(2, dims, cls);
}

cxArray* cxCreateLogicalMatrix(std::uint64_t m, std::uint64_t n) {
    return newArray(cxLOGICAL_CLASS, {m, n}).release();
}

cxArray* cxCreateCellMatrix(std::uint64_t m, std::uint64_t n) {
    return newArray(cxCELL_CLASS, {m, n}).release();
}

cxArray* cxCreateCharArray(std::uint64_t ndim, const std::uint64_t* dims) {
    // No dimensions at all is the empty text: 0 by 0, not 1 by 1.
    if (ndim == 0 || dims == nullptr) return newArray(cxCHAR_CLASS, {0, 0}).release();
    return newArray(cxCHAR_CLASS, {dims, dims + ndim}).release();
}

void cxDestroyArray(cxArray* a) {
    if (a != nullptr) noteReleased();
    delete a;
}

void* cxMallocEx(std::size_t bytes) {
    const bool refused = allocationRefused();
    // Load first so the common path costs no read-modify-write.
    if (failNext.load(std::memory_order_relaxed) && failNext.exchange(false)) return nullptr;
    if (refused) return nullptr;
    // malloc(0) may give null, which callers would take for exhaustion.
    void* p = std::malloc(bytes == 0 ? 1 : bytes);
    if (p != nullptr) noteAllocated();
    return p;
}

void cxFreeEx(void* p) {
    if (p != nullptr) noteReleased();
    std::free(p);
}

namespace numora {

std::string classIdName(cxClassID cls) {
    switch (cls) {
        case cxCELL_CLASS: return "cell";
        case cxOBJECT_CLASS: return "object";
        case cxLOGICAL_CLASS: return "logical";
        case cxCHAR_CLASS: return "char";
        case cxEXCEPTION_CLASS: return "exception";
        case cxDOUBLE_CLASS: return "double";
        case cxSINGLE_CLASS: return "single";
        case cxINT8_CLASS: return "int8";
        case cxUINT8_CLASS: return "uint8";
        case cxINT16_CLASS: return "int16";
        case cxUINT16_CLASS: return "uint16";
        case cxINT32_CLASS: return "int32";
        case cxUINT32_CLASS: return "uint32";
        case cxINT64_CLASS: return "int64";
        case cxUINT64_CLASS: return "uint64";
        case cxUNKNOWN_CLASS: break;
    }
    return "unknown";
}

cxArray* cxCreateNumericArray(std::uint64_t ndim, const std::uint64_t* dims, cxClassID cls) {
    if (!isNumeric(cls)) raise("numora:array", "badNumericClass", {classIdName(cls)});
    std::vector<std::uint64_t> shape;
    if (dims != nullptr) shape.assign(dims, dims + ndim);
    return newArray(cls, std::move(shape)).release();
}

cxArray* cxCreateBorrowedDoubleArray(std::uint64_t ndim, const std::uint64_t* dims,
                                     const double* data) {
    std::vector<std::uint64_t> shape;
    if (dims != nullptr) shape.assign(dims, dims + ndim);
    // An empty shape makes a one-element array: the lent data must hold it.
    ArrayPtr a = newArray(cxDOUBLE_CLASS, std::move(shape));
    if (a->count != 0) {
        a->data = std::unique_ptr<void, FreeDeleter>(const_cast<double*>(data), FreeDeleter{false});
    }
    return a.release();
}

cxArray* cxCreateCellArray(std::uint64_t ndim, const std::uint64_t* dims) {
    std::vector<std::uint64_t> shape;
    if (dims != nullptr) shape.assign(dims, dims + ndim);
    return newArray(cxCELL_CLASS, std::move(shape)).release();
}

cxArray* cxCreateString(std::string_view text) {
    ArrayPtr a = newArray(cxCHAR_CLASS, {1, text.size()});
    if (!text.empty()) std::copy(text.begin(), text.end(), static_cast<char*>(a->data.get()));
    return a.release();
}

cxArray* cxCreateDoubleScalar(double value) {
    cxArray* a = cxCreateNumericMatrix(1, 1, cxDOUBLE_CLASS, cxREAL);
    *static_cast<double*>(cxGetData(a)) = value;
    return a;
}

cxArray* cxCreateLogicalScalar(bool value) {
    cxArray* a = cxCreateLogicalMatrix(1, 1);
    *cxGetLogicals(a) = value;
    return a;
}

void failNextAllocation() noexcept { failNext.store(true); }

void failNthAllocation(std::uint64_t k) noexcept { failing.store(k == 0 ? 0 : made.load() + k); }

AllocationCounts allocationCounts() noexcept { return {made.load(), live.load()}; }

}  // namespace numora
