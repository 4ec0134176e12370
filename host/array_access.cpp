// Reading arrays, and storing cell elements.
#include <cstdint>
#include <string>

#include "host/array_impl.hpp"
#include "host/raise.hpp"

namespace {

template <class T>
double firstAs(const cxArray* a) {
    return static_cast<double>(*static_cast<const T*>(a->data.get()));
}

}  // namespace

cxClassID cxGetClassID(const cxArray* a) {
    return a ? a->classID : cxUNKNOWN_CLASS;
}

std::uint64_t cxGetM(const cxArray* a) {
    return a ? a->dims[0] : 0;
}

std::uint64_t cxGetN(const cxArray* a) {
    if (!a) return 0;
    std::uint64_t n = 1;
    for (std::size_t i = 1; i < a->dims.size(); ++i) n *= a->dims[i];
    return n;
}

std::uint64_t cxGetNumberOfElements(const cxArray* a) {
    return a ? a->count : 0;
}

std::uint64_t cxGetNumberOfDimensions(const cxArray* a) {
    return a ? a->dims.size() : 0;
}

const std::uint64_t* cxGetDimensions(const cxArray* a) {
    return a ? a->dims.data() : nullptr;
}

void* cxGetData(const cxArray* a) {
    return a ? a->data.get() : nullptr;
}

bool* cxGetLogicals(const cxArray* a) {
    if (!a || a->classID != cxLOGICAL_CLASS) return nullptr;
    return static_cast<bool*>(a->data.get());
}

double cxGetScalar(const cxArray* a) {
    if (!a || a->count == 0 || !a->data) return 0.0;
    switch (a->classID) {
        case cxDOUBLE_CLASS: return firstAs<double>(a);
        case cxSINGLE_CLASS: return firstAs<float>(a);
        case cxINT8_CLASS: return firstAs<std::int8_t>(a);
        case cxUINT8_CLASS: return firstAs<std::uint8_t>(a);
        case cxINT16_CLASS: return firstAs<std::int16_t>(a);
        case cxUINT16_CLASS: return firstAs<std::uint16_t>(a);
        case cxINT32_CLASS: return firstAs<std::int32_t>(a);
        case cxUINT32_CLASS: return firstAs<std::uint32_t>(a);
        case cxINT64_CLASS: return firstAs<std::int64_t>(a);
        case cxUINT64_CLASS: return firstAs<std::uint64_t>(a);
        case cxLOGICAL_CLASS: return *static_cast<const bool*>(a->data.get()) ? 1.0 : 0.0;
        case cxCHAR_CLASS: return firstAs<unsigned char>(a);
        default: return 0.0;
    }
}

bool cxIsLogicalScalarTrue(const cxArray* a) {
    return a && a->classID == cxLOGICAL_CLASS && a->count == 1 &&
           *static_cast<const bool*>(a->data.get());
}

bool cxIsEmpty(const cxArray* a) {
    return !a || a->count == 0;
}

std::string cxGetString(const cxArray* a) {
    if (!a || a->classID != cxCHAR_CLASS) return {};
    return std::string(static_cast<const char*>(a->data.get()), a->count);
}

cxArray* cxGetCell(const cxArray* cell, std::uint64_t index) {
    if (!cell || cell->classID != cxCELL_CLASS || index >= cell->count) return nullptr;
    return cell->cells[index].get();
}

void cxSetCell(cxArray* cell, std::uint64_t index, cxArray* value) {
    using numora::detail::raise;
    numora::ArrayPtr owned(value);  // ours from here, also when we refuse it
    if (!cell || cell->classID != cxCELL_CLASS) {
        raise("numora:array", "wrongClass", {std::string("cxSetCell"), std::string("cell")});
    }
    if (index >= cell->count) {
        raise("numora:array", "indexOutOfRange",
              {static_cast<std::int64_t>(index), static_cast<std::int64_t>(cell->count)});
    }
    // Storing an element where it already is must not destroy it.
    if (cell->cells[index].get() == value) {
        (void)owned.release();
        return;
    }
    cell->cells[index] = std::move(owned);
}
