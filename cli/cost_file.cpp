#include "cli/cost_file.hpp"

#include <algorithm>
#include <charconv>

#include "cli/errors.hpp"
#include "cli/values.hpp"

namespace arbolin::cli {

namespace {

std::string classList(const Levels& classes) {
    std::string text;
    for (const std::string& label : classes.labels()) text += (text.empty() ? "" : ", ") + label;
    return text;
}

// A field meant as a cost, though perhaps not a valid one: blank, or read
// whole as a double, NaN and infinities included.
bool meantAsNumber(std::string_view field) {
    if (isMissing(field)) return true;
    if (field.starts_with('+')) field.remove_prefix(1);
    double v = 0;
    const auto [stop, error] = std::from_chars(field.data(), field.data() + field.size(), v);
    return !field.empty() && stop == field.data() + field.size() &&
           error != std::errc::invalid_argument;
}

// The first row names the classes when every field of it is a class, or
// when none of them could be a number.
bool firstRowIsHeader(const CsvTable& table, const Levels& classes) {
    bool allClasses = true;
    bool anyNumber = false;
    for (std::uint64_t c = 0; c < table.columnCount(); ++c) {
        const std::string_view field = table.field(0, c);
        allClasses = allClasses && classes.find(field).has_value() && !classes.numbers();
        anyNumber = anyNumber || meantAsNumber(field);
    }
    return allClasses || !anyNumber;
}

}  // namespace

std::vector<double> readCostMatrix(const std::string& path, const Levels& classes,
                                   const CsvFormat& format, bool single, Notices& notices) {
    return parseCostMatrix(readFileBytes(path), path, classes, format, single, notices);
}

std::vector<double> parseCostMatrix(std::string_view bytes, const std::string& name,
                                    const Levels& classes, const CsvFormat& format, bool single,
                                    Notices& notices) {
    const CsvTable table = CsvTable::parse(bytes, name, format, CsvTable::Header::None);
    notices.append(table.notices());
    const std::uint64_t K = classes.size();
    const bool header = firstRowIsHeader(table, classes);
    const std::uint64_t first = header ? 1 : 0;  // the first row of costs
    const std::uint64_t rows = table.rowCount() - first;
    if (table.columnCount() != K || rows != K) {
        throw UserError(name + ": the cost matrix is " + std::to_string(rows) + " by " +
                        std::to_string(table.columnCount()) +
                        (header ? " (below a header row)" : "") + ", but should be " +
                        std::to_string(K) + " by " + std::to_string(K) + " for the classes " +
                        classList(classes));
    }
    // order[c] is the class code of row and column c.
    std::vector<std::uint64_t> order(K);
    std::vector<std::string> labels(K);
    std::vector<bool> seen(K, false);
    for (std::uint64_t c = 0; c < K; ++c) {
        if (!header) {
            order[c] = c;
            continue;
        }
        const std::string_view label = table.field(0, c);
        const auto code = classes.find(label);
        if (!code || seen[*code]) {
            failAt(Place{name, table.line(0), c + 1, {}},
                   "\"" + std::string(label) +
                       "\" is not a class, or named twice; the classes are " + classList(classes));
        }
        seen[*code] = true;
        order[c] = *code;
        labels[c] = label;
    }
    std::vector<double> cost(K * K);
    bool allZero = true;
    for (std::uint64_t r = 0; r < K; ++r) {
        for (std::uint64_t c = 0; c < K; ++c) {
            const Place place{name, table.line(first + r), c + 1, labels[c]};
            const std::string field(table.field(first + r, c));
            double v = 0;
            if (field.empty()) failAt(place, "the cost is blank");
            if (readNumber(field, v) != Reading::Number) {
                failAt(place, "\"" + field + "\" is not a finite number");
            }
            if (v < 0) failAt(place, "a cost cannot be negative (" + field + ")");
            if (order[r] == order[c] && v != 0) {
                failAt(place, "a right prediction costs nothing: the diagonal must be 0, not " +
                                  field);
            }
            if (single && !fitsSingle(v)) {
                failAt(place, field + " is beyond the range of single precision, which --single "
                                      "needs");
            }
            allZero = allZero && v == 0;
            cost[order[r] + order[c] * K] = v;
        }
    }
    if (allZero) {
        notices.warn(name + ": every cost is 0, so no split can lower the cost; the tree will be "
                            "a single node");
    }
    return cost;
}

}  // namespace arbolin::cli
