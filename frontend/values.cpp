#include "frontend/values.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>

namespace arbolin::frontend {

namespace {

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return (x | 0x20) == (y | 0x20);
           });
}

}  // namespace

bool isMissing(std::string_view field) {
    return field.empty() || field == "NA" || field == "?" || equalsIgnoringCase(field, "nan");
}

MissingValues::MissingValues(std::vector<std::string> more) : more_(std::move(more)) {
    std::erase_if(more_, [](const std::string& token) { return isMissing(token); });
    std::sort(more_.begin(), more_.end());
    more_.erase(std::unique(more_.begin(), more_.end()), more_.end());
}

bool MissingValues::operator()(std::string_view field) const {
    return isMissing(field) || std::binary_search(more_.begin(), more_.end(), field);
}

bool fitsSingle(double value) { return !std::isinf(static_cast<float>(value)); }

Reading readNumber(std::string_view field, double& value) {
    if (!field.empty() && field.front() == '+') field.remove_prefix(1);
    if (field.empty() || field.front() == '+') return Reading::Text;
    const char* end = field.data() + field.size();
    const auto [stop, error] = std::from_chars(field.data(), end, value);
    if (stop != end) return Reading::Text;
    if (error == std::errc::result_out_of_range) {
        // Underflow reads as zero; only overflow is refused.
        const bool tiny = std::abs(std::strtod(std::string(field).c_str(), nullptr)) < 1.0;
        if (tiny) {
            value = 0.0;
            return Reading::Number;
        }
        return Reading::Infinite;
    }
    if (error != std::errc()) return Reading::Text;
    if (std::isinf(value)) return Reading::Infinite;
    if (std::isnan(value)) return Reading::Text;
    return Reading::Number;
}

std::string formatNumber(double value) {
    if (std::isnan(value)) return "NaN";
    std::array<char, 32> buffer{};
    const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value);
    return std::string(buffer.data(), result.ptr);
}

std::string formatFloat(float value) {
    if (std::isnan(value)) return "NaN";
    std::array<char, 32> buffer{};
    const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value);
    return std::string(buffer.data(), result.ptr);
}

std::string formatShort(double value, int digits) {
    if (std::isnan(value)) return "NaN";
    std::array<char, 40> buffer{};
    std::snprintf(buffer.data(), buffer.size(), "%.*g", digits, value);
    return buffer.data();
}

bool allNumbers(const std::vector<std::string>& labels) {
    double ignored = 0;
    return std::all_of(labels.begin(), labels.end(), [&](const std::string& label) {
        return readNumber(label, ignored) == Reading::Number;
    });
}

std::vector<std::string> orderLabels(std::vector<std::string> labels) {
    if (allNumbers(labels)) {
        std::vector<double> numbers;
        numbers.reserve(labels.size());
        for (const std::string& label : labels) {
            double v = 0;
            readNumber(label, v);
            numbers.push_back(v);
        }
        std::sort(numbers.begin(), numbers.end());
        numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
        labels.clear();
        for (double v : numbers) labels.push_back(formatNumber(v == 0 ? 0.0 : v));
        return labels;
    }
    std::sort(labels.begin(), labels.end());
    labels.erase(std::unique(labels.begin(), labels.end()), labels.end());
    return labels;
}

// ------------------------------------------------------------ levels

Levels Levels::fromValues(std::vector<std::string> values) {
    const bool numbers = allNumbers(values);
    return fromLabels(orderLabels(std::move(values)), numbers);
}

Levels Levels::fromLabels(std::vector<std::string> labels, bool numbers) {
    Levels levels;
    levels.labels_ = std::move(labels);
    levels.numbers_ = numbers;
    levels.index();
    return levels;
}

void Levels::index() {
    for (std::uint64_t i = 0; i < labels_.size(); ++i) {
        byText_.emplace(labels_[i], i);
        double v = 0;
        if (numbers_ && readNumber(labels_[i], v) == Reading::Number) byValue_.emplace(v, i);
    }
}

std::optional<std::uint64_t> Levels::find(std::string_view field) const {
    if (numbers_) {
        double v = 0;
        if (readNumber(field, v) != Reading::Number) return std::nullopt;
        return find(v);
    }
    const auto it = byText_.find(std::string(field));
    if (it == byText_.end()) return std::nullopt;
    return it->second;
}

std::optional<std::uint64_t> Levels::find(double value) const {
    if (std::isnan(value)) return std::nullopt;  // a map would take it for any key
    if (!numbers_) return find(formatNumber(value));
    const auto it = byValue_.find(value);
    if (it == byValue_.end()) return std::nullopt;
    return it->second;
}

std::string Levels::label(double code) const {
    if (!(code >= 0) || code != std::floor(code) || code >= static_cast<double>(labels_.size())) {
        return "?";
    }
    return labels_[static_cast<std::size_t>(code)];
}

}  // namespace arbolin::frontend
