// calyxPrintf and the print sink.
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <string>
#include <utility>

#include "host/numora_host.hpp"
#include "host/print_output.hpp"

namespace {

struct SinkSlot {
    std::mutex mutex;
    numora::PrintSink sink;
};

SinkSlot& slot() {
    static SinkSlot s;
    return s;
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
    const std::string widened = numora::detail::widenIntegerConversions(format);

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
