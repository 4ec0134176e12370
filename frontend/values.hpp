// How the text of a field reads as a value, how numbers are written back
// as text, and the labels of a nominal predictor or of the classes with
// their codes.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace arbolin::frontend {

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

// The labels of a nominal predictor or of the classes, and their codes:
// code i is the i-th label in sorted order (by value when every label is a
// number, so "2" comes before "10" and "1.0" is the label "1").
class Levels {
public:
    Levels() = default;
    // From every value seen, repeats allowed.
    static Levels fromValues(std::vector<std::string> values);
    // From labels already in code order, as a model stores them.
    static Levels fromLabels(std::vector<std::string> labels, bool numbers);

    const std::vector<std::string>& labels() const noexcept { return labels_; }
    bool numbers() const noexcept { return numbers_; }
    std::uint64_t size() const noexcept { return labels_.size(); }
    // The code of a field's value, or of a number, if it is one of the labels.
    std::optional<std::uint64_t> find(std::string_view field) const;
    std::optional<std::uint64_t> find(double value) const;
    // The label of a code as the module hands it back, or "?" for none.
    std::string label(double code) const;

private:
    std::vector<std::string> labels_;
    bool numbers_ = false;
    std::unordered_map<std::string, std::uint64_t> byText_;
    std::map<double, std::uint64_t> byValue_;
    void index();
};

}  // namespace arbolin::frontend
