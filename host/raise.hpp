// Raising the host's own errors through the same route as the module's.
#pragma once

#include <string>
#include <vector>

#include "gateway/numora.hpp"

namespace numora::detail {

[[noreturn]] void raise(std::string component, std::string key,
                        std::vector<MessageArg> args = {});

}  // namespace numora::detail
