#include "frontend/data.hpp"

#include <algorithm>
#include <charconv>

namespace arbolin::frontend {

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
bool firstRowIsHeader(const DataTable& table, const Levels& classes) {
    if (table.rowCount() == 0) return false;
    bool allClasses = true;
    bool anyNumber = false;
    for (std::uint64_t c = 0; c < table.header().size(); ++c) {
        if (table.type(c) == DataTable::ColumnType::Numbers) return false;
        const std::string_view field = table.field(0, c);
        allClasses = allClasses && classes.find(field).has_value() && !classes.numbers();
        anyNumber = anyNumber || meantAsNumber(field);
    }
    return allClasses || !anyNumber;
}

}  // namespace

std::vector<double> readCostMatrix(const DataTable& table, const Levels& classes, bool single,
                                   Notices& notices) {
    const std::string& name = table.name();
    const std::uint64_t K = classes.size();
    const std::uint64_t columns = table.header().size();
    const bool header = firstRowIsHeader(table, classes);
    const std::uint64_t first = header ? 1 : 0;  // the first row of costs
    const std::uint64_t rows = table.rowCount() - first;
    if (columns != K || rows != K) {
        throw UserError(name + ": the cost matrix is " + std::to_string(rows) + " by " +
                        std::to_string(columns) + (header ? " (below a header row)" : "") +
                        ", but should be " + std::to_string(K) + " by " + std::to_string(K) +
                        " for the classes " + classList(classes));
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
            table.failAt(0, c,
                         "\"" + std::string(label) +
                             "\" is not a class, or named twice; the classes are " +
                             classList(classes));
        }
        seen[*code] = true;
        order[c] = *code;
        labels[c] = label;
    }
    std::vector<double> cost(K * K);
    bool allZero = true;
    for (std::uint64_t r = 0; r < K; ++r) {
        for (std::uint64_t c = 0; c < K; ++c) {
            // The header's label names the column.
            const auto fail = [&](const std::string& problem) {
                throw UserError(table.place(first + r, c) +
                                (labels[c].empty() ? "" : " (" + labels[c] + ")") + ": " + problem);
            };
            const std::string field = table.shown(first + r, c);
            double v = 0;
            if (field.empty()) fail("the cost is blank");
            if (readNumber(field, v) != Reading::Number) {
                fail("\"" + field + "\" is not a finite number");
            }
            if (v < 0) fail("a cost cannot be negative (" + field + ")");
            if (order[r] == order[c] && v != 0) {
                fail("a right prediction costs nothing: the diagonal must be 0, not " + field);
            }
            if (single && !fitsSingle(v)) {
                fail(field + " is beyond the range of single precision, which --single needs");
            }
            allZero = allZero && v == 0;
            cost[order[r] + order[c] * K] = v;
        }
    }
    if (allZero) {
        notices.warn(name +
                     ": every cost is 0, so no split can lower the cost; the tree will be "
                     "a single node");
    }
    return cost;
}

}  // namespace arbolin::frontend
