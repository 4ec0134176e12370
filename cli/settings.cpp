#include "cli/settings.hpp"

#include <cmath>
#include <stdexcept>

#include "cli/errors.hpp"
#include "cli/values.hpp"

namespace arbolin::cli {

namespace {

double checkNumber(const OptionRow& option, const std::string& text, const DataShape& shape) {
    double v = 0;
    if (readNumber(text, v) != Reading::Number) {
        failOption(option.name, "\"" + text + "\" is not a finite number");
    }
    if (option.kind == OptionKind::Count && v != std::floor(v)) {
        failOption(option.name, text + " is not a whole number");
    }
    if (v < option.lower) {
        failOption(option.name, text + " is below the least allowed value, " +
                                  formatNumber(option.lower));
    }
    if (option.upper != nullptr) {
        if (const auto most = option.upper(shape); most && v > *most) {
            const std::string words = option.upperHelp.empty()
                                          ? formatNumber(*most)
                                          : std::string(option.upperHelp) + ", " +
                                                formatNumber(*most);
            failOption(option.name, text + " is above the most allowed value, " + words);
        }
    }
    return v;
}

double checkChoice(const OptionRow& option, const std::string& text, const DataShape& shape) {
    const std::vector<std::string> words = choiceList(option.choices(shape));
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (words[i] == text) return static_cast<double>(i);
    }
    const char* task = shape.classification ? "a classification tree" : "a regression tree";
    failOption(option.name, "\"" + text + "\" is not one of " + joinChoices(words) +
                              (option.kind == OptionKind::Keyword ? std::string(" for ") + task : ""));
}

}  // namespace

Settings Settings::resolve(const RawOptions& raw, const DataShape& shape) {
    Settings settings;
    settings.shape_ = shape;
    for (const OptionRow& option : fitOptions()) {
        Value& value = settings.values_[std::string(option.name)];
        if (option.kind == OptionKind::Flag) {
            value = raw.flag(option.name);
            continue;
        }
        if (option.kind == OptionKind::Columns || option.kind == OptionKind::Tokens) {
            value = raw.list(option.name);
            continue;
        }
        std::optional<std::string> text = raw.value(option.name);
        if (!text && option.derive != nullptr) text = option.derive(shape);
        if (!text && !option.value.empty()) text = std::string(option.value);
        if (!text) continue;  // none
        switch (option.kind) {
            case OptionKind::Count:
            case OptionKind::Real: value = checkNumber(option, *text, shape); break;
            case OptionKind::Code: value = checkChoice(option, *text, shape); break;
            case OptionKind::Keyword: checkChoice(option, *text, shape); value = *text; break;
            default:
                if (text->empty()) failOption(option.name, "needs a value");
                value = *text;
        }
    }
    return settings;
}

const Settings::Value& Settings::at(std::string_view name) const {
    const auto it = values_.find(name);
    if (it == values_.end()) throw std::logic_error("no setting " + std::string(name));
    return it->second;
}

double Settings::number(std::string_view name) const {
    const Value& v = at(name);
    return std::holds_alternative<double>(v) ? std::get<double>(v) : 0.0;
}

bool Settings::flag(std::string_view name) const {
    const Value& v = at(name);
    return std::holds_alternative<bool>(v) && std::get<bool>(v);
}

std::string Settings::text(std::string_view name) const {
    const Value& v = at(name);
    return std::holds_alternative<std::string>(v) ? std::get<std::string>(v) : std::string();
}

std::vector<std::string> Settings::list(std::string_view name) const {
    const Value& v = at(name);
    return std::holds_alternative<std::vector<std::string>>(v)
               ? std::get<std::vector<std::string>>(v)
               : std::vector<std::string>{};
}

bool Settings::has(std::string_view name) const {
    return !std::holds_alternative<std::monostate>(at(name));
}

void Settings::set(std::string_view name, std::string value) {
    values_[std::string(name)] = std::move(value);
}

nlohmann::ordered_json Settings::toJson() const {
    nlohmann::ordered_json json = nlohmann::ordered_json::object();
    for (const OptionRow& option : fitOptions()) {
        const Value& v = at(option.name);
        nlohmann::ordered_json& entry = json[std::string(option.name)];
        if (std::holds_alternative<double>(v)) {
            const double d = std::get<double>(v);
            if (option.kind == OptionKind::Code) {
                entry = choiceList(option.choices(shape_))[static_cast<std::size_t>(d)];
            } else if (option.kind == OptionKind::Count) {
                entry = static_cast<std::uint64_t>(d);
            } else {
                entry = d;
            }
        } else if (std::holds_alternative<bool>(v)) {
            entry = std::get<bool>(v);
        } else if (std::holds_alternative<std::string>(v)) {
            entry = std::get<std::string>(v);
        } else if (std::holds_alternative<std::vector<std::string>>(v)) {
            entry = std::get<std::vector<std::string>>(v);
        }
    }
    return json;
}

}  // namespace arbolin::cli
