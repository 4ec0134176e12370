// Errors and warnings by message identifier: the catalog of their texts,
// the filling in of arguments, the exception types and the raisers.
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "host/internal.hpp"

namespace numora {

namespace {

// Texts mark their arguments {1}, {2}, ...
#define TREEUTILS "tallix:silvan:learning:treeutils:"

const std::unordered_map<std::string_view, std::string_view>& catalog() {
    static const std::unordered_map<std::string_view, std::string_view> texts{
        // The tree grower.
        {TREEUTILS "weaveCanopy:BadNumberOfInputArgs",
         "The tree grower takes exactly {1} input arguments."},
        {TREEUTILS "weaveCanopy:BadNumberOfOutputArgs",
         "The tree grower returns at most {1} output arguments."},
        {TREEUTILS "Tree:init:BadCrit",
         "The tree has neither a classification nor a regression split criterion."},
        {TREEUTILS "SplitCriteriaFactory:make:BadCriterion",
         "Unknown split criterion. Use 'gdi' (or 'gini'), 'deviance', 'twoing' or 'error' "
         "for classification, 'mse' for regression, or a cell of one or two function "
         "names for a custom criterion."},
        {TREEUTILS "IndexedColumn:findNominalSplitWithBestGain:BadAlgCat",
         "Unknown search method for a nominal predictor. Use 0 (automatic), 1 (exact), "
         "2 (pull left), 3 (principal component) or 4 (one class against all)."},
        {TREEUTILS "ClassificationNominalSplitFinder:exact:TooManyLevels",
         "Exact search supports nominal predictors with fewer than {1} levels. Choose "
         "another search method for nominal predictors or merge some levels."},
        {TREEUTILS "ClassificationNominalSplitFinder:pca:MemoryLessThanXBytes",
         "Out of memory in the principal component search of a nominal predictor: "
         "{1} bytes could not be allocated."},
        {TREEUTILS "ClassificationNominalSplitFinder:pca:BadDSYEVXInput",
         "The eigenvalue solver rejected its input in the principal component search "
         "of a nominal predictor."},
        {TREEUTILS "ClassificationNominalSplitFinder:pca:BadDSYEVXOutput",
         "The eigenvalue solver did not converge in the principal component search of "
         "a nominal predictor; that method finds no split here."},
        {TREEUTILS "CustomClassificationSplitCriterion:parent:BadUserFunctionCall",
         "The split criterion function '{1}' failed on the class weights of a node."},
        {TREEUTILS "CustomClassificationSplitCriterion:parent:TypeMismatch",
         "The split criterion function '{1}' must return a value of class {2}."},
        {TREEUTILS "CustomClassificationSplitCriterion:kids:BadUserFunctionCall",
         "The split criterion function '{1}' failed on the class weights of two "
         "children."},
        {TREEUTILS "CustomClassificationSplitCriterion:kids:TypeMismatch",
         "The split criterion function '{1}' must return a value of class {2}."},

        // The host.
        {"vellum:contextmgr:null", "Unable to access null resource"},
        {"numora:interrupt", "Operation terminated by user."},
        {"numora:module:cannotOpen", "Cannot load module '{1}': {2}"},
        {"numora:module:missingEntryPoint", "Module '{1}' does not export '{2}': {3}"},
        {"numora:module:versionMismatch",
         "Module '{1}' requires interface version {2}, but this host provides {3}."},
        {"numora:function:unknown", "There is no host function named '{1}'."},
        {"numora:function:throw:badInput", "The host function 'throw' takes one exception object."},
        {"numora:memory:outOfMemory", "Out of memory: {1} bytes could not be allocated."},
        {"numora:array:tooLarge", "The array is too large for the memory of this machine."},
        {"numora:array:badNumericClass", "A numeric array cannot be of class {1}."},
        {"numora:array:complexUnsupported", "Complex arrays are not supported."},
        {"numora:array:wrongClass", "{1} needs an array of class {2}."},
        {"numora:array:indexOutOfRange", "Index {1} is out of range for an array of {2} elements."},
        {"numora:lotstream:badDraw", "Cannot draw {1} distinct integers from the range 1 to {2}."},
    };
    return texts;
}

#undef TREEUTILS

// The text of a message identifier, or nothing when the catalog lacks it.
std::optional<std::string_view> catalogText(std::string_view identifier) {
    const auto& texts = catalog();
    auto it = texts.find(identifier);
    if (it == texts.end()) return std::nullopt;
    return it->second;
}

void appendUtf8(std::string& out, std::uint32_t cp) {
    if (cp < 0x80) {
        out += static_cast<char>(cp);
    } else if (cp < 0x800) {
        out += static_cast<char>(0xC0 | (cp >> 6));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        out += static_cast<char>(0xE0 | (cp >> 12));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (cp >> 18));
        out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    }
}

// Wide text (message arguments) to UTF-8. Invalid code points (surrogates,
// beyond U+10FFFF) become U+FFFD.
std::string toUtf8(const std::wstring& text) {
    constexpr std::uint32_t kReplacement = 0xFFFD;
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        std::uint32_t cp = static_cast<std::uint32_t>(text[i]);
        if constexpr (sizeof(wchar_t) == 2) {
            // UTF-16: join a surrogate pair.
            if (cp >= 0xD800 && cp < 0xDC00 && i + 1 < text.size()) {
                const std::uint32_t low = static_cast<std::uint32_t>(text[i + 1]) & 0xFFFF;
                if (low >= 0xDC00 && low < 0xE000) {
                    cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
                    ++i;
                }
            }
        }
        if ((cp >= 0xD800 && cp < 0xE000) || cp > 0x10FFFF) cp = kReplacement;
        appendUtf8(out, cp);
    }
    return out;
}

struct ArgText {
    std::string operator()(std::int64_t v) const { return std::to_string(v); }
    std::string operator()(const std::string& v) const { return v; }
    std::string operator()(const std::wstring& v) const { return toUtf8(v); }
};

std::string argText(const MessageArg& arg) { return boost::apply_visitor(ArgText{}, arg); }

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

// The host's exception types.
Exception::Exception(Message message)
    : message_(std::move(message)),
      identifier_(message_.identifier()),
      text_(cxMessageText(message_)) {}

Exception::~Exception() = default;

void Exception::setText(std::string text) { text_ = std::move(text); }

const char* Exception::what() const noexcept {
    return text_.empty() ? identifier_.c_str() : text_.c_str();
}

void Exception::rethrow() const { throw *this; }

Interrupt::Interrupt() : Exception(Message{"numora", "interrupt", {}}) {}

void Interrupt::rethrow() const { throw *this; }

WarningSink setWarningSink(WarningSink sink) {
    std::lock_guard lock(warningSlot().mutex);
    std::swap(warningSlot().sink, sink);
    return sink;
}

namespace detail {

void raise(std::string component, std::string key, std::vector<MessageArg> args) {
    Exception error(Message{std::move(component), std::move(key), std::move(args)});
    cxErrorMsgId(error);
    throw error;  // not reached: the raiser throws
}

}  // namespace detail

}  // namespace numora

namespace vellum::contextmgr {

NullResource::NullResource() : MessageException(numora::Message{"vellum:contextmgr", "null", {}}) {}

}  // namespace vellum::contextmgr

std::string cxMessageText(const numora::Message& message) {
    auto text = numora::catalogText(message.identifier());
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
