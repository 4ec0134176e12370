// Deep copies of arrays.
#include <cstring>

#include "host/array_impl.hpp"

namespace numora {

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
