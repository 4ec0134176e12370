// The module passes 64-bit integers for %i and %d; the C library expects int.
#include <cctype>
#include <cstring>

#include "host/print_output.hpp"

namespace numora::detail {

namespace {

bool isDigit(char c) {
    return std::isdigit(static_cast<unsigned char>(c)) != 0;
}

// Skips digits, '*' and '$' (width, precision and their positional forms).
std::size_t skipNumber(std::string_view s, std::size_t i) {
    while (i < s.size() && (isDigit(s[i]) || s[i] == '*' || s[i] == '$')) ++i;
    return i;
}

}  // namespace

std::string widenIntegerConversions(std::string_view format) {
    std::string out;
    out.reserve(format.size() + 8);
    std::size_t i = 0;
    while (i < format.size()) {
        const char c = format[i++];
        out += c;
        if (c != '%') continue;
        if (i < format.size() && format[i] == '%') {
            out += format[i++];
            continue;
        }
        const std::size_t start = i;
        i = skipNumber(format, i);  // an "n$" argument position, or the width
        while (i < format.size() && std::strchr("-+ #0'", format[i]) != nullptr) ++i;
        i = skipNumber(format, i);
        if (i < format.size() && format[i] == '.') i = skipNumber(format, i + 1);
        const std::size_t lengthStart = i;
        while (i < format.size() && std::strchr("hlLqjzt", format[i]) != nullptr) ++i;
        const bool hasLength = i > lengthStart;
        out.append(format.substr(start, i - start));
        if (i < format.size()) {
            const char conversion = format[i++];
            if ((conversion == 'd' || conversion == 'i') && !hasLength) out += "ll";
            out += conversion;
        }
    }
    return out;
}

}  // namespace numora::detail
