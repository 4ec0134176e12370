#include "cli/cost_file.hpp"

#include "cli/csv_table.hpp"
#include "cli/errors.hpp"
#include "cli/values.hpp"

namespace arbolin::cli {

namespace {

std::string classList(const Levels& classes) {
    std::string text;
    for (const std::string& label : classes.labels()) text += (text.empty() ? "" : ", ") + label;
    return text;
}

}  // namespace

std::vector<double> readCostMatrix(const std::string& path, const Levels& classes) {
    const CsvTable table = CsvTable::read(path, CsvTable::Header::Optional);
    const std::uint64_t K = classes.size();
    const std::string expected = std::to_string(K) + " by " + std::to_string(K) +
                                 " for the classes " + classList(classes);
    if (table.header().size() != K || table.rowCount() != K) {
        throw UserError(path + ": the cost matrix is " + std::to_string(table.rowCount()) +
                        " by " + std::to_string(table.header().size()) + ", but should be " +
                        expected);
    }
    // order[c] is the class code of row and column c.
    std::vector<std::uint64_t> order(K);
    std::vector<bool> seen(K, false);
    for (std::uint64_t c = 0; c < K; ++c) {
        if (!table.hasHeader()) {
            order[c] = c;
            continue;
        }
        const auto code = classes.find(table.header()[c]);
        if (!code || seen[*code]) {
            throw UserError(path + ", line 1, column " + std::to_string(c + 1) + ": \"" +
                            table.header()[c] +
                            "\" is not a class, or named twice; the classes are " +
                            classList(classes));
        }
        seen[*code] = true;
        order[c] = *code;
    }
    std::vector<double> cost(K * K);
    for (std::uint64_t r = 0; r < K; ++r) {
        for (std::uint64_t c = 0; c < K; ++c) {
            const std::string_view field = table.field(r, c);
            double v = 0;
            if (readNumber(field, v) != Reading::Number) {
                failAt(table.place(r, c), "\"" + std::string(field) + "\" is not a finite number");
            }
            if (v < 0) failAt(table.place(r, c), "a cost cannot be negative (" + std::string(field) + ")");
            cost[order[r] + order[c] * K] = v;
        }
    }
    return cost;
}

}  // namespace arbolin::cli
