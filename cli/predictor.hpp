// A predictor as the model knows it, and how a CSV field becomes the value
// the module sees: the number itself, the code of a nominal level, or NaN.
#pragma once

#include <cstdint>
#include <string>

#include "cli/csv_table.hpp"
#include "cli/levels.hpp"
#include "cli/values.hpp"

namespace arbolin::cli {

enum class PredictorKind { Numeric, Nominal };

struct Predictor {
    std::string name;
    PredictorKind kind = PredictorKind::Numeric;
    Levels levels;  // nominal only
};

// Field (row, column) of `table` for predictor `p`. A missing value is NaN;
// so is a level the predictor does not know, which is also counted in
// `unseen`. A field of a numeric predictor that is not a finite number
// throws UserError at its place.
double codeField(const Predictor& p, const CsvTable& table, std::uint64_t row,
                 std::uint64_t column, const MissingValues& missing, std::uint64_t& unseen);

}  // namespace arbolin::cli
