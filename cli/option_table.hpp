// The options of `arbolin fit`, one row each: flag, the module input it
// feeds, default, bounds and help. Parsing, validation, help, the module's
// scalar inputs and the options recorded in a model all come from here.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace arbolin::cli {

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
    std::uint64_t rows = 0;        // rows used
    std::uint64_t predictors = 0;
    bool classification = false;
};

struct OptionRow {
    std::string_view name;  // the long flag without its dashes
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
// The words of a choices text "a|b|c", and the words joined for people
// (quoted when they hold no letter).
std::vector<std::string> choiceList(std::string_view choices);
std::string joinChoices(const std::vector<std::string>& words);

}  // namespace arbolin::cli
