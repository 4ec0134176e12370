#include "cli/predictor.hpp"

#include <limits>

#include "cli/values.hpp"

namespace arbolin::cli {

double codeField(const Predictor& p, const CsvTable& table, std::uint64_t row,
                 std::uint64_t column, const MissingValues& missing, std::uint64_t& unseen) {
    constexpr double kMissing = std::numeric_limits<double>::quiet_NaN();
    const std::string_view field = table.field(row, column);
    if (missing(field)) return kMissing;
    if (p.kind == PredictorKind::Nominal) {
        if (const auto code = p.levels.find(field)) return static_cast<double>(*code);
        ++unseen;
        return kMissing;
    }
    double v = 0;
    switch (readNumber(field, v)) {
        case Reading::Number: return v;
        case Reading::Infinite:
            failAt(table.place(row, column), "\"" + std::string(field) + "\" is not a finite number");
        case Reading::Text: break;
    }
    const bool comma = field.find(',') != std::string_view::npos;  // --missing cannot take it
    failAt(table.place(row, column), "\"" + std::string(field) + "\" is not a number, and " +
                                         p.name + " is a numeric predictor" +
                                         (comma ? "" : "; --missing " + std::string(field) +
                                                           " reads it as missing"));
}

}  // namespace arbolin::cli
