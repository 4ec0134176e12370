// What the host's own files share: the record behind the opaque cxArray, and
// the routes by which the host raises its errors and prints. Front ends and
// the module see none of it.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <exception>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/numora_host.hpp"

// Frees what the host allocated; data lent by the caller stays.
struct FreeDeleter {
    bool owned = true;
    void operator()(void* p) const noexcept {
        if (owned) std::free(p);
    }
};

struct cxArray {
    cxClassID classID = cxUNKNOWN_CLASS;
    std::vector<std::uint64_t> dims;  // at least two
    std::uint64_t count = 0;          // product of dims
    // Numeric, logical and char data: 8 bytes of zeroed room per element
    // (at least 8 bytes), so that reading any class as double stays inside.
    std::unique_ptr<void, FreeDeleter> data;
    std::vector<numora::ArrayPtr> cells;  // cell elements, null when unset
    std::string className;                // object arrays
    std::vector<std::map<std::string, numora::ArrayPtr, std::less<>>> properties;
    std::exception_ptr exception;  // exception arrays
};

namespace numora::detail {

// Bytes of room kept per element of a data-holding array.
inline constexpr std::uint64_t kElementRoom = 8;

// A new array of class `cls`. Dims shorter than two are padded with 1s and
// trailing singleton dims past the second are dropped. Data is zero-filled,
// cells unset, objects without properties. Raises when memory runs out.
ArrayPtr newArray(cxClassID cls, std::vector<std::uint64_t> dims);

// An exception array holding `error`.
ArrayPtr makeExceptionArray(std::exception_ptr error);

// Raises the host's own errors through the same route as the module's.
[[noreturn]] void raise(std::string component, std::string key, std::vector<MessageArg> args = {});

// Sends text to the print sink (stdout when none is set).
void emitText(std::string_view text);

}  // namespace numora::detail
