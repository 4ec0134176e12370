// The fit options as given on the command line, and as settled against the
// data: every value checked, defaults filled in.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include <nlohmann/json.hpp>

#include "cli/option_table.hpp"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace arbolin::cli {

// What the user typed, before any check.
struct RawOptions {
    std::map<std::string, std::string, std::less<>> text;
    std::map<std::string, std::vector<std::string>, std::less<>> lists;
    std::map<std::string, bool, std::less<>> flags;
    std::map<std::string, const CLI::Option*, std::less<>> options;

    bool given(std::string_view name) const;
    std::optional<std::string> value(std::string_view name) const;  // as given
    bool flag(std::string_view name) const;
    std::vector<std::string> list(std::string_view name) const;
};

// Adds every row of the option table to `command`, with its help.
void addFitOptions(CLI::App& command, RawOptions& raw);
// Adds the rows that say how CSV files are read.
void addReadingOptions(CLI::App& command, RawOptions& raw);

class Settings {
public:
    // Checks each value against its kind and bounds, filling in defaults;
    // a bad value throws UserError naming the option.
    static Settings resolve(const RawOptions& raw, const DataShape& shape);

    double number(std::string_view name) const;  // Count, Real, and Code as its position
    bool flag(std::string_view name) const;
    std::string text(std::string_view name) const;  // "" when there is none
    std::vector<std::string> list(std::string_view name) const;
    bool has(std::string_view name) const;  // a value, given or by default
    void set(std::string_view name, std::string value);

    // Every option with the value used (null for none), by name.
    nlohmann::ordered_json toJson() const;

private:
    using Value = std::variant<std::monostate, double, bool, std::string, std::vector<std::string>>;
    std::map<std::string, Value, std::less<>> values_;
    DataShape shape_;
    const Value& at(std::string_view name) const;
};

}  // namespace arbolin::cli
