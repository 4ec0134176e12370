// Data made ready for the module, from any table a front end provides (a
// CSV file, Python columns): predictors coded, classes numbered, weights
// scaled, rows without a response left out; and the cost matrix.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "frontend/errors.hpp"
#include "frontend/options.hpp"
#include "frontend/values.hpp"

namespace arbolin::frontend {

// A table of named columns, each of one type. Messages name places through
// it, so that a CSV file says "iris.csv, line 4, column 5 (species)" and a
// Python table "column species, row 2".
class DataTable {
public:
    enum class ColumnType {
        Text,     // fields as written: numbers, or text that makes a column nominal (CSV)
        Labels,   // texts that name levels: nominal unless the column is listed as numeric
        Numbers,  // doubles, NaN for missing: never read as text
    };

    virtual ~DataTable() = default;

    // What messages call the table: the file, or "the data".
    virtual const std::string& name() const = 0;
    virtual const std::vector<std::string>& header() const = 0;  // a name for each column
    virtual std::uint64_t rowCount() const = 0;
    virtual ColumnType type(std::uint64_t column) const = 0;
    // A field of a Text or Labels column; "" is missing.
    virtual std::string_view field(std::uint64_t row, std::uint64_t column) const = 0;
    // A value of a Numbers column.
    virtual double number(std::uint64_t row, std::uint64_t column) const = 0;
    // Where a value is, or without a row where a column is, for messages.
    virtual std::string place(std::optional<std::uint64_t> row, std::uint64_t column) const = 0;
    // "line 7", "row 6": where a row is, for messages that count rows.
    virtual std::string rowName(std::uint64_t row) const = 0;

    virtual std::optional<std::uint64_t> find(std::string_view name) const;
    // The column called `name`; a missing one is an error of `option`
    // (or of the table, when no option named it).
    std::uint64_t require(std::string_view name, std::string_view option) const;
    // A value as text, for messages: the field, or the number written out.
    std::string shown(std::uint64_t row, std::uint64_t column) const;
    [[noreturn]] void failAt(std::uint64_t row, std::uint64_t column,
                             const std::string& problem) const;
};

enum class PredictorKind { Numeric, Nominal };

struct Predictor {
    std::string name;
    PredictorKind kind = PredictorKind::Numeric;
    Levels levels;  // nominal only
};

struct TrainingData {
    std::vector<Predictor> predictors;  // every column but the response, weights and ignored
    std::string response;
    bool classification = false;
    Levels classes;             // classification only
    std::string weights;        // the weights column, or "" for equal weights
    std::uint64_t rows = 0;     // rows used
    std::uint64_t leftOut = 0;  // rows whose response is missing
    std::vector<double> x;      // rows by predictors, column-major, NaN for missing
    std::vector<double> y;      // class codes 0..K-1, or the response
    std::vector<double> w;      // sum to 1
    Notices notices;            // columns that look like mistakes

    DataShape shape() const { return {rows, predictors.size(), classification}; }
};

// Uses the options response, weights, nominal, numeric, ignore, missing,
// classification, regression and single. Throws UserError naming the
// option, or the place of a bad value.
TrainingData prepareTrainingData(const DataTable& table, const RawOptions& options);

// Value (row, column) of `table` for predictor `p`, as the module sees it:
// the number itself, the code of a nominal level, or NaN. A missing value
// is NaN; so is a level the predictor does not know, which is also counted
// in `unseen`. A value of a numeric predictor that is not a finite number
// throws UserError at its place.
double codeValue(const Predictor& p, const DataTable& table, std::uint64_t row,
                 std::uint64_t column, const MissingValues& missing, std::uint64_t& unseen);

// A misclassification cost matrix (costs.cpp): K rows of K finite numbers,
// 0 or more, with zeros on the diagonal: row i is the true class i, column
// j the predicted class j, classes in code order. A first row of class
// labels gives the order of both rows and columns instead; a first row
// with a number, NaN, an infinity or a blank in it is data. With `single`,
// every cost must fit in single precision. Returns the matrix column-major,
// as the module reads it; `notices` gets a warning when every cost is 0.
std::vector<double> readCostMatrix(const DataTable& table, const Levels& classes, bool single,
                                   Notices& notices);

}  // namespace arbolin::frontend
