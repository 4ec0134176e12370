// Reading arrays and changing what they hold: cell elements, object
// properties, exception arrays, and deep copies.
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>

#include "host/internal.hpp"

namespace {

using numora::detail::raise;

template <class T>
double firstAs(const cxArray* a) {
    return static_cast<double>(*static_cast<const T*>(a->data.get()));
}

}  // namespace

cxClassID cxGetClassID(const cxArray* a) { return a ? a->classID : cxUNKNOWN_CLASS; }

std::uint64_t cxGetM(const cxArray* a) { return a ? a->dims[0] : 0; }

std::uint64_t cxGetN(const cxArray* a) {
    if (!a) return 0;
    std::uint64_t n = 1;
    for (std::size_t i = 1; i < a->dims.size(); ++i) n *= a->dims[i];
    return n;
}

std::uint64_t cxGetNumberOfElements(const cxArray* a) { return a ? a->count : 0; }

std::uint64_t cxGetNumberOfDimensions(const cxArray* a) { return a ? a->dims.size() : 0; }

const std::uint64_t* cxGetDimensions(const cxArray* a) { return a ? a->dims.data() : nullptr; }

void* cxGetData(const cxArray* a) { return a ? a->data.get() : nullptr; }

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

bool cxIsEmpty(const cxArray* a) { return !a || a->count == 0; }

std::string cxGetString(const cxArray* a) {
    if (!a || a->classID != cxCHAR_CLASS) return {};
    return std::string(static_cast<const char*>(a->data.get()), a->count);
}

cxArray* cxGetCell(const cxArray* cell, std::uint64_t index) {
    if (!cell || cell->classID != cxCELL_CLASS || index >= cell->count) return nullptr;
    return cell->cells[index].get();
}

void cxSetCell(cxArray* cell, std::uint64_t index, cxArray* value) {
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

cxArray* cxGetProperty(const cxArray* a, std::uint64_t index, const char* name) {
    if (!a || !name || a->classID != cxOBJECT_CLASS || index >= a->count) return nullptr;
    const auto& props = a->properties[index];
    auto it = props.find(std::string_view(name));
    if (it == props.end()) return nullptr;
    return numora::cxDuplicateArray(it->second.get()).release();
}

namespace numora {

cxArray* cxCreateObject(const std::string& className, std::uint64_t count) {
    ArrayPtr a = detail::newArray(cxOBJECT_CLASS, {1, count});
    a->className = className;
    return a.release();
}

std::string cxGetObjectClassName(const cxArray* a) {
    if (!a || a->classID != cxOBJECT_CLASS) return {};
    return a->className;
}

void cxSetProperty(cxArray* a, std::uint64_t index, const std::string& name, cxArray* value) {
    ArrayPtr owned(value);
    if (!a || a->classID != cxOBJECT_CLASS) {
        raise("numora:array", "wrongClass", {std::string("cxSetProperty"), std::string("object")});
    }
    if (index >= a->count) {
        raise("numora:array", "indexOutOfRange",
              {static_cast<std::int64_t>(index), static_cast<std::int64_t>(a->count)});
    }
    auto& props = a->properties[index];
    if (!owned) {
        props.erase(name);  // a null value removes the property
        return;
    }
    auto it = props.find(name);
    if (it != props.end() && it->second.get() == value) {
        (void)owned.release();
        return;
    }
    props.insert_or_assign(name, std::move(owned));
}

std::exception_ptr cxGetException(const cxArray* a) {
    if (!a || a->classID != cxEXCEPTION_CLASS) return nullptr;
    return a->exception;
}

ArrayPtr detail::makeExceptionArray(std::exception_ptr error) {
    ArrayPtr a = newArray(cxEXCEPTION_CLASS, {1, 1});
    a->exception = std::move(error);
    return a;
}

ArrayPtr cxDuplicateArray(const cxArray* a) {
    if (!a) return nullptr;
    ArrayPtr copy = detail::newArray(a->classID, a->dims);
    if (a->data) {
        const std::uint64_t slots = a->count == 0 ? 1 : a->count;
        std::memcpy(copy->data.get(), a->data.get(), slots * detail::kElementRoom);
    }
    for (std::size_t i = 0; i < a->cells.size(); ++i) {
        copy->cells[i] = cxDuplicateArray(a->cells[i].get());
    }
    copy->className = a->className;
    for (std::size_t i = 0; i < a->properties.size(); ++i) {
        for (const auto& [name, value] : a->properties[i]) {
            copy->properties[i].emplace(name, cxDuplicateArray(value.get()));
        }
    }
    copy->exception = a->exception;  // exceptions are immutable; sharing is a copy
    return copy;
}

}  // namespace numora
