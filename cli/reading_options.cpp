#include "cli/reading_options.hpp"

#include <algorithm>
#include <stdexcept>

#include "cli/errors.hpp"
#include "cli/option_table.hpp"

namespace arbolin::cli {

namespace {

// The option's value as given, or its default; one of its choices.
std::string choice(const RawOptions& options, std::string_view name) {
    const auto rows = fitOptions();
    const auto row = std::find_if(rows.begin(), rows.end(),
                                  [&](const OptionRow& r) { return r.name == name; });
    if (row == rows.end()) throw std::logic_error("no option " + std::string(name));
    const std::string text = options.value(name).value_or(std::string(row->value));
    if (text.empty()) return text;
    const std::vector<std::string> words = choiceList(row->choices(DataShape{}));
    if (std::find(words.begin(), words.end(), text) == words.end()) {
        failOption(name, "\"" + text + "\" is not one of " + joinChoices(words));
    }
    return text;
}

}  // namespace

CsvFormat csvFormat(const RawOptions& options) {
    CsvFormat format;
    const std::string delimiter = choice(options, "delimiter");
    if (!delimiter.empty()) format.delimiter = delimiter == "tab" ? '\t' : delimiter.front();
    format.encoding = choice(options, "encoding") == "latin1" ? Encoding::Latin1 : Encoding::Utf8;
    return format;
}

MissingValues missingValues(const RawOptions& options) {
    return MissingValues(options.list("missing"));
}

MissingValues missingValues(const RawOptions& options, const nlohmann::ordered_json& grownWith) {
    std::vector<std::string> tokens = options.list("missing");
    if (grownWith.is_object()) {
        const auto it = grownWith.find("missing");
        if (it != grownWith.end() && it->is_array()) {
            for (const auto& token : *it) {
                if (token.is_string()) tokens.push_back(token.get<std::string>());
            }
        }
    }
    return MissingValues(std::move(tokens));
}

}  // namespace arbolin::cli
