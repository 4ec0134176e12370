// How the text of one CSV field reads as a value, and how numbers are
// written back as text.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace arbolin::cli {

// An empty field, NA, NaN (any spelling of nan) or ?.
bool isMissing(std::string_view field);

// The built-in missing values and any more tokens the user named
// (--missing), matched as whole fields.
class MissingValues {
public:
    MissingValues() = default;
    explicit MissingValues(std::vector<std::string> more);
    bool operator()(std::string_view field) const;
    const std::vector<std::string>& more() const noexcept { return more_; }

private:
    std::vector<std::string> more_;
};

enum class Reading { Number, Text, Infinite };

// A finite decimal number takes the whole field (a leading + is allowed);
// Infinite is a number too large for a double, or inf.
Reading readNumber(std::string_view field, double& value);

// Whether a finite double stays finite as a float (rounding may still take
// it to the largest float).
bool fitsSingle(double value);

// The shortest text that reads back as the same double (or float).
std::string formatNumber(double value);
std::string formatFloat(float value);
// Rounded to `digits` significant digits, for people.
std::string formatShort(double value, int digits = 6);

// Labels in the order their codes follow: by value when every label is a
// number, otherwise by bytes. Duplicates removed.
std::vector<std::string> orderLabels(std::vector<std::string> labels);
bool allNumbers(const std::vector<std::string>& labels);

}  // namespace arbolin::cli
