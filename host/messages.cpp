// Errors and warnings by message identifier, with texts from the catalog.
#include <mutex>
#include <string>
#include <utility>

#include "host/catalog.hpp"
#include "host/numora_host.hpp"
#include "host/print_output.hpp"
#include "host/utf8.hpp"

namespace numora {

namespace {

struct ArgText {
    std::string operator()(std::int64_t v) const { return std::to_string(v); }
    std::string operator()(const std::string& v) const { return v; }
    std::string operator()(const std::wstring& v) const { return detail::toUtf8(v); }
};

std::string argText(const MessageArg& arg) {
    return boost::apply_visitor(ArgText{}, arg);
}

// Replaces {n} by argument n (1-based); a mark without its argument stays,
// so a missing argument shows rather than vanishes.
std::string substitute(std::string_view text, const std::vector<MessageArg>& args) {
    std::string out;
    out.reserve(text.size() + 32);
    std::size_t i = 0;
    while (i < text.size()) {
        if (text[i] == '{') {
            std::size_t j = i + 1;
            std::size_t n = 0;
            while (j < text.size() && text[j] >= '0' && text[j] <= '9' && j - i < 8) {
                n = n * 10 + static_cast<std::size_t>(text[j] - '0');
                ++j;
            }
            if (j > i + 1 && j < text.size() && text[j] == '}' && n >= 1 && n <= args.size()) {
                out += argText(args[n - 1]);
                i = j + 1;
                continue;
            }
        }
        out += text[i++];
    }
    return out;
}

std::string unknownMessageText(const Message& message) {
    std::string text = "Message '" + message.identifier() + "' has no text in the catalog";
    for (std::size_t i = 0; i < message.args.size(); ++i) {
        text += i == 0 ? " (arguments: " : ", ";
        text += argText(message.args[i]);
    }
    if (!message.args.empty()) text += ")";
    return text + ".";
}

struct WarningSlot {
    std::mutex mutex;
    WarningSink sink;
};

WarningSlot& warningSlot() {
    static WarningSlot s;
    return s;
}

}  // namespace

WarningSink setWarningSink(WarningSink sink) {
    std::lock_guard lock(warningSlot().mutex);
    std::swap(warningSlot().sink, sink);
    return sink;
}

}  // namespace numora

std::string cxMessageText(const numora::Message& message) {
    auto text = numora::detail::catalogText(message.identifier());
    if (!text) return numora::unknownMessageText(message);
    return numora::substitute(*text, message.args);
}

void cxErrorMsgId(numora::Exception& error) {
    error.setText(cxMessageText(error.message()));
    error.rethrow();
}

void cxWarningMsgId(const numora::Message& warning) {
    const std::string text = cxMessageText(warning);
    numora::WarningSink sink;
    {
        std::lock_guard lock(numora::warningSlot().mutex);
        sink = numora::warningSlot().sink;
    }
    if (sink) {
        sink(warning, text);
    } else {
        numora::detail::emitText("Warning: " + text + "\n");
    }
}
