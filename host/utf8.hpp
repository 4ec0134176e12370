// Internal: wide text (message arguments) to UTF-8.
#pragma once

#include <string>

namespace numora::detail {

// Invalid code points (surrogates, beyond U+10FFFF) become U+FFFD.
std::string toUtf8(const std::wstring& text);

}  // namespace numora::detail
