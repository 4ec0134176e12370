// The labels of a nominal predictor or of the classes, and their codes:
// code i is the i-th label in sorted order (by value when every label is a
// number, so "2" comes before "10" and "1.0" is the label "1").
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace arbolin::cli {

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
    // The code of a field's value, if it is one of the labels.
    std::optional<std::uint64_t> find(std::string_view field) const;
    // The label of a code as the module hands it back, or "?" for none.
    std::string label(double code) const;

private:
    std::vector<std::string> labels_;
    bool numbers_ = false;
    std::unordered_map<std::string, std::uint64_t> byText_;
    std::map<double, std::uint64_t> byValue_;
    void index();
};

}  // namespace arbolin::cli
