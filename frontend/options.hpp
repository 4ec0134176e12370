// The options of a fit, one row each: name, the module input it feeds,
// default, bounds and help. The command line's flags and help, the Python
// keywords, the checks, the module's scalar inputs and the options recorded
// in a model all come from here. Then the options as given (plain maps,
// whoever parsed them) and as settled against the data.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace arbolin::frontend {

enum class OptionKind {
    Count,    // a whole number, passed as a double scalar
    Real,     // a finite number, passed as a double scalar
    Flag,     // present or not, passed as a logical scalar
    Keyword,  // one of `choices`, passed as its text
    Code,     // one of `choices`, passed as its position in the list
    Column,   // the name of a data column
    Columns,  // names of data columns, comma-separated
    Tokens,   // field values, comma-separated
    Path,     // a file
};

// What the bounds and derived defaults depend on.
struct DataShape {
    std::uint64_t rows = 0;  // rows used
    std::uint64_t predictors = 0;
    bool classification = false;
};

struct OptionRow {
    std::string_view name;  // the long flag without its dashes; in Python, - becomes _
    int input;              // 1-based position among the module's twenty inputs; 0: none
    OptionKind kind;
    std::string_view value;                   // the default; "" for none
    std::string (*derive)(const DataShape&);  // a default worked out from the data, or null
    std::string_view defaultHelp;             // the default in words, when not `value`
    double lower;                             // least Count or Real
    std::optional<double> (*upper)(const DataShape&);  // most, or null for no bound
    std::string_view upperHelp;                        // the most, in words
    std::string_view (*choices)(const DataShape&);     // Keyword, Code: "a|b|c", "\\|" for |
    std::string_view help;
};

std::span<const OptionRow> fitOptions();
// The options that say how CSV files are read, which predict takes too.
bool isReadingOption(std::string_view name);
// The options that only the command line takes: how its CSV files are read
// and where and how much it writes.
bool isCommandLineOnly(std::string_view name);
// The words of a choices text "a|b|c", and the words joined for people
// (quoted when they hold no letter).
std::vector<std::string> choiceList(std::string_view choices);
std::string joinChoices(const std::vector<std::string>& words);

// What the user gave, before any check: the text of each value given, the
// items of each list, the flags set.
struct RawOptions {
    std::map<std::string, std::string, std::less<>> text;
    std::map<std::string, std::vector<std::string>, std::less<>> lists;
    std::map<std::string, bool, std::less<>> flags;

    std::optional<std::string> value(std::string_view name) const;  // as given
    bool flag(std::string_view name) const;
    std::vector<std::string> list(std::string_view name) const;
};

// Every option's value, checked, with defaults filled in.
class Settings {
public:
    using Value = std::variant<std::monostate, double, bool, std::string, std::vector<std::string>>;

    // Checks each value against its kind and bounds, filling in defaults;
    // a bad value throws UserError naming the option.
    static Settings resolve(const RawOptions& raw, const DataShape& shape);

    double number(std::string_view name) const;  // Count, Real, and Code as its position
    bool flag(std::string_view name) const;
    std::string text(std::string_view name) const;  // "" when there is none
    std::vector<std::string> list(std::string_view name) const;
    bool has(std::string_view name) const;  // a value, given or by default
    void set(std::string_view name, std::string value);
    const Value& value(std::string_view name) const;  // std::monostate for none
    const DataShape& shape() const noexcept { return shape_; }

private:
    std::map<std::string, Value, std::less<>> values_;
    DataShape shape_;
};

}  // namespace arbolin::frontend
