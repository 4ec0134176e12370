// calyxPrintf and the print sink. The module passes 64-bit integers for %i
// and %d; the C library expects int, so those conversions are widened first.
#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>
#include <utility>

#include "host/internal.hpp"

namespace {

struct SinkSlot {
    std::mutex mutex;
    numora::PrintSink sink;
};

SinkSlot& slot() {
    static SinkSlot s;
    return s;
}

bool isDigit(char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; }

// Skips digits, '*' and '$' (width, precision and their positional forms).
std::size_t skipNumber(std::string_view s, std::size_t i) {
    while (i < s.size() && (isDigit(s[i]) || s[i] == '*' || s[i] == '$')) ++i;
    return i;
}

// Rewrites %d and %i without a length modifier to take a 64-bit integer.
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

}  // namespace

namespace numora {

PrintSink setPrintSink(PrintSink sink) {
    std::lock_guard lock(slot().mutex);
    std::swap(slot().sink, sink);
    return sink;
}

namespace detail {

void emitText(std::string_view text) {
    PrintSink sink;
    {
        std::lock_guard lock(slot().mutex);
        sink = slot().sink;
    }
    // Called outside the lock so that a sink may itself print or swap sinks.
    if (sink) {
        sink(text);
        return;
    }
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
}

}  // namespace detail

}  // namespace numora

int calyxPrintf(const char* format, ...) {
    if (format == nullptr) return -1;
    const std::string widened = widenIntegerConversions(format);

    std::va_list args;
    va_start(args, format);
    std::va_list again;
    va_copy(again, args);
    const int length = std::vsnprintf(nullptr, 0, widened.c_str(), args);
    va_end(args);
    if (length < 0) {
        va_end(again);
        return length;
    }
    std::string text(static_cast<std::size_t>(length), '\0');
    std::vsnprintf(text.data(), text.size() + 1, widened.c_str(), again);
    va_end(again);

    numora::detail::emitText(text);
    return length;
}
