#include "cli/levels.hpp"

#include <cmath>

#include "cli/values.hpp"

namespace arbolin::cli {

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
        const auto it = byValue_.find(v);
        if (it == byValue_.end()) return std::nullopt;
        return it->second;
    }
    const auto it = byText_.find(std::string(field));
    if (it == byText_.end()) return std::nullopt;
    return it->second;
}

std::string Levels::label(double code) const {
    if (!(code >= 0) || code != std::floor(code) || code >= static_cast<double>(labels_.size())) {
        return "?";
    }
    return labels_[static_cast<std::size_t>(code)];
}

}  // namespace arbolin::cli
