// Object arrays (named properties per element) and exception arrays.
#include <cstdint>
#include <string>
#include <utility>

#include "host/array_impl.hpp"
#include "host/raise.hpp"

namespace numora {

namespace detail {

ArrayPtr makeExceptionArray(std::exception_ptr error) {
    ArrayPtr a = newArray(cxEXCEPTION_CLASS, {1, 1});
    a->exception = std::move(error);
    return a;
}

}  // namespace detail

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
        detail::raise("numora:array", "wrongClass",
                      {std::string("cxSetProperty"), std::string("object")});
    }
    if (index >= a->count) {
        detail::raise("numora:array", "indexOutOfRange",
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

}  // namespace numora

cxArray* cxGetProperty(const cxArray* a, std::uint64_t index, const char* name) {
    if (!a || !name || a->classID != cxOBJECT_CLASS || index >= a->count) return nullptr;
    const auto& props = a->properties[index];
    auto it = props.find(std::string_view(name));
    if (it == props.end()) return nullptr;
    return numora::cxDuplicateArray(it->second.get()).release();
}
