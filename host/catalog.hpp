// Internal: the host's message catalog. Texts mark their arguments {1}, {2}, ...
#pragma once

#include <optional>
#include <string_view>

namespace numora::detail {

// The text of a message identifier, or nothing when the catalog lacks it.
std::optional<std::string_view> catalogText(std::string_view identifier);

}  // namespace numora::detail
