// Creating and destroying arrays.
#include <algorithm>
#include <cstdint>
#include <new>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "host/array_impl.hpp"
#include "host/raise.hpp"

namespace numora::detail {

namespace {

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
    if (complexity != cxREAL) numora::detail::raise("numora:array", "complexUnsupported");
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
    if (a != nullptr) numora::detail::noteReleased();
    delete a;
}

namespace numora {

cxArray* cxCreateNumericArray(std::uint64_t ndim, const std::uint64_t* dims, cxClassID cls) {
    if (!detail::isNumeric(cls)) {
        detail::raise("numora:array", "badNumericClass", {detail::classIdName(cls)});
    }
    std::vector<std::uint64_t> shape;
    if (dims != nullptr) shape.assign(dims, dims + ndim);
    return newArray(cls, std::move(shape)).release();
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

}  // namespace numora

namespace numora {

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

}  // namespace numora
