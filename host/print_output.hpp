// Internal: where printed text goes, and the conversion of the module's
// format strings to standard ones.
#pragma once

#include <string>
#include <string_view>

namespace numora::detail {

// Sends text to the print sink (stdout when none is set).
void emitText(std::string_view text);

// Rewrites %d and %i without a length modifier to take a 64-bit integer.
std::string widenIntegerConversions(std::string_view format);

}  // namespace numora::detail
