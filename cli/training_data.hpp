// The rows of a CSV file made ready to grow a tree: predictors coded,
// classes numbered, weights scaled, rows without a response left out.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cli/csv_table.hpp"
#include "cli/notices.hpp"
#include "cli/option_table.hpp"
#include "cli/predictor.hpp"
#include "cli/settings.hpp"

namespace arbolin::cli {

struct TrainingData {
    std::vector<Predictor> predictors;  // every column but the response, weights and ignored
    std::string response;
    bool classification = false;
    Levels classes;       // classification only
    std::string weights;  // the weights column, or "" for equal weights
    std::uint64_t rows = 0;     // rows used
    std::uint64_t leftOut = 0;  // rows whose response is missing
    std::vector<double> x;  // rows by predictors, column-major, NaN for missing
    std::vector<double> y;  // class codes 0..K-1, or the response
    std::vector<double> w;  // sum to 1
    Notices notices;        // columns that look like mistakes

    DataShape shape() const { return {rows, predictors.size(), classification}; }
};

// Uses the options response, weights, nominal, numeric, ignore, missing,
// classification, regression and single. Throws UserError naming the
// option, or the file, line and column of a bad value.
TrainingData prepareTrainingData(const CsvTable& table, const RawOptions& options);

}  // namespace arbolin::cli
