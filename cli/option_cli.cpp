// The fit options on the command line: registered with CLI11, with help
// text, type names and bounds all derived from the option table.
#include <CLI/CLI.hpp>

#include "cli/settings.hpp"
#include "cli/values.hpp"

namespace arbolin::cli {

namespace {

std::string boundHelp(const OptionRow& option) {
    if (option.kind != OptionKind::Count && option.kind != OptionKind::Real) return "";
    const std::string least = formatNumber(option.lower);
    if (option.upper == nullptr || !option.upper(DataShape{})) {
        return option.upper == nullptr ? "" : "; " + least + " or more";
    }
    const std::string most = option.upperHelp.empty() ? formatNumber(*option.upper(DataShape{}))
                                                    : std::string(option.upperHelp);
    return "; from " + least + " to " + most;
}

std::string helpText(const OptionRow& option) {
    std::string text(option.help);
    if (option.kind == OptionKind::Columns || option.kind == OptionKind::Tokens) {
        text += "; the option given again adds to the list";
    }
    if (option.kind == OptionKind::Flag && option.defaultHelp == "off") return text;
    const std::string fallback = option.defaultHelp.empty() ? std::string(option.value)
                                                          : std::string(option.defaultHelp);
    text += " [default: " + (fallback.empty() ? std::string("none") : fallback) + boundHelp(option) +
            "]";
    return text;
}

std::string typeName(const OptionRow& option) {
    switch (option.kind) {
        case OptionKind::Count: return "N";
        case OptionKind::Real: return "X";
        case OptionKind::Column: return "COLUMN";
        case OptionKind::Columns: return "COLUMN,...";
        case OptionKind::Tokens: return "TOKEN,...";
        case OptionKind::Path: return "FILE";
        case OptionKind::Keyword:
        case OptionKind::Code: {
            DataShape both{0, 0, true};
            std::string words(option.choices(both));
            both.classification = false;
            if (option.choices(both) != words) words += "|" + std::string(option.choices(both));
            return "{" + words + "}";
        }
        case OptionKind::Flag: return "";
    }
    return "";
}

}  // namespace

bool RawOptions::given(std::string_view name) const {
    const auto it = options.find(name);
    return it != options.end() && it->second->count() > 0;
}

std::optional<std::string> RawOptions::value(std::string_view name) const {
    if (!given(name)) return std::nullopt;
    return text.find(name)->second;
}

bool RawOptions::flag(std::string_view name) const {
    const auto it = flags.find(name);
    return it != flags.end() && it->second;
}

std::vector<std::string> RawOptions::list(std::string_view name) const {
    const auto it = lists.find(name);
    return it == lists.end() ? std::vector<std::string>{} : it->second;
}

namespace {

void addOption(CLI::App& command, RawOptions& raw, const OptionRow& option) {
    const std::string flag = "--" + std::string(option.name);
    const std::string name(option.name);
    CLI::Option* added = nullptr;
    if (option.kind == OptionKind::Flag) {
        added = command.add_flag(flag, raw.flags[name], helpText(option));
    } else if (option.kind == OptionKind::Columns || option.kind == OptionKind::Tokens) {
        // One comma-separated value per flag, so that a list never takes
        // the data file after it for one more name.
        added = command.add_option(flag, raw.lists[name], helpText(option))
                    ->delimiter(',')
                    ->expected(1)
                    ->allow_extra_args(false)
                    ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    } else {
        added = command.add_option(flag, raw.text[name], helpText(option));
    }
    if (option.kind != OptionKind::Flag) added->type_name(typeName(option));
    raw.options[name] = added;
}

}  // namespace

void addFitOptions(CLI::App& command, RawOptions& raw) {
    for (const OptionRow& option : fitOptions()) addOption(command, raw, option);
}

void addReadingOptions(CLI::App& command, RawOptions& raw) {
    for (const OptionRow& option : fitOptions()) {
        if (isReadingOption(option.name)) addOption(command, raw, option);
    }
}

}  // namespace arbolin::cli
