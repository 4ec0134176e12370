// What the tool tells its user when something they gave is wrong, and the
// exit status that goes with it.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

namespace arbolin::cli {

enum ExitStatus : int {
    kExitOk = 0,
    kExitBadInput = 1,   // a data file, cost file or model that cannot be used
    kExitBadUsage = 2,   // an unknown, malformed or out-of-range option
    kExitHostError = 3,  // the module or the host runtime raised an error
    kExitInterrupted = 130,
};

// A problem with something the user gave. The text names where it is.
class UserError : public std::runtime_error {
public:
    explicit UserError(const std::string& text, int status = kExitBadInput)
        : std::runtime_error(text), status_(status) {}
    int status() const noexcept { return status_; }

private:
    int status_;
};

// A cell of a CSV file: line and column are 1-based; 0 leaves them out.
struct Place {
    std::string file;
    std::uint64_t line = 0;
    std::uint64_t column = 0;
    std::string columnName;
};

// "iris.csv, line 4, column 5 (species)"
std::string describe(const Place& place);

[[noreturn]] void failAt(const Place& place, const std::string& problem);
[[noreturn]] void failOption(std::string_view option, const std::string& problem);

}  // namespace arbolin::cli
