#include "frontend/data.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <unordered_map>
#include <unordered_set>

namespace arbolin::frontend {

// ------------------------------------------------------------ the table

std::optional<std::uint64_t> DataTable::find(std::string_view name) const {
    const std::vector<std::string>& names = header();
    const auto it = std::find(names.begin(), names.end(), name);
    if (it == names.end()) return std::nullopt;
    return static_cast<std::uint64_t>(it - names.begin());
}

std::uint64_t DataTable::require(std::string_view name, std::string_view option) const {
    if (auto column = find(name)) return *column;
    std::string known;
    for (const std::string& h : header()) known += (known.empty() ? "" : ", ") + h;
    const std::string problem = "no column \"" + std::string(name) + "\" in " + this->name() +
                                " (its columns: " + known + ")";
    if (option.empty()) throw UserError(problem);
    failOption(option, problem);
}

std::string DataTable::shown(std::uint64_t row, std::uint64_t column) const {
    if (type(column) == ColumnType::Numbers) return formatNumber(number(row, column));
    return std::string(field(row, column));
}

void DataTable::failAt(std::uint64_t row, std::uint64_t column, const std::string& problem) const {
    throw UserError(place(row, column) + ": " + problem);
}

namespace {

// A column whose non-missing values are at least this share numbers reads
// as meant to be numeric; the few other values get a warning.
constexpr double kNumericShare = 0.9;
// A nominal predictor with a different value in every row, in a file of at
// least this many rows, gets a note that it looks like an identifier.
constexpr std::uint64_t kIdentifierRows = 10;
// The other values a warning shows.
constexpr std::size_t kTokensShown = 4;

bool listed(const std::vector<std::uint64_t>& columns, std::uint64_t column) {
    return std::find(columns.begin(), columns.end(), column) != columns.end();
}

struct Columns {
    std::uint64_t response = 0;
    std::optional<std::uint64_t> weights;
    std::vector<std::uint64_t> nominal;
    std::vector<std::uint64_t> numeric;
    std::vector<std::uint64_t> ignored;
};

Columns findColumns(const DataTable& table, const RawOptions& options) {
    Columns c;
    if (table.header().empty()) throw UserError(table.name() + " has no columns");
    const auto response = options.value("response");
    c.response = response ? table.require(*response, "response") : table.header().size() - 1;
    if (const auto weights = options.value("weights")) {
        c.weights = table.require(*weights, "weights");
        if (*c.weights == c.response) failOption("weights", "the response cannot be the weights");
    }
    for (const std::string& name : options.list("ignore")) {
        const std::uint64_t column = table.require(name, "ignore");
        if (column == c.response) {
            failOption("ignore", name + " is the response" +
                                     (response ? ""
                                               : " (the last column); name another with "
                                                 "--response"));
        }
        if (column == c.weights) failOption("ignore", name + " is the weights column");
        c.ignored.push_back(column);
    }
    for (const std::string& name : options.list("nominal")) {
        const std::uint64_t column = table.require(name, "nominal");
        if (column == c.response || column == c.weights) {
            failOption("nominal", name + " is the response or the weights, not a predictor");
        }
        if (listed(c.ignored, column)) failOption("nominal", name + " is ignored (--ignore)");
        c.nominal.push_back(column);
    }
    for (const std::string& name : options.list("numeric")) {
        const std::uint64_t column = table.require(name, "numeric");
        if (column == c.response) {
            failOption("numeric", name + " is the response; --regression makes it numeric");
        }
        if (column == c.weights) failOption("numeric", name + " is the weights, not a predictor");
        if (listed(c.ignored, column)) failOption("numeric", name + " is ignored (--ignore)");
        if (listed(c.nominal, column)) failOption("numeric", name + " is given to --nominal too");
        c.numeric.push_back(column);
    }
    return c;
}

// What the values of a column read as: how many are numbers (infinities
// included), how many are not, and those others in order of appearance.
// A Numbers column has no others.
struct Census {
    struct Token {
        std::string_view text;
        std::uint64_t count = 0;
        std::uint64_t firstRow = 0;
    };
    std::uint64_t numbers = 0;
    std::uint64_t texts = 0;
    std::vector<Token> tokens;

    bool mostlyNumbers() const {
        return texts != 0 && double(numbers) >= kNumericShare * double(numbers + texts);
    }
};

// How one value reads: the number it is, or why not.
enum class Cell { Missing, Number, Infinite, Text };

Cell readCell(const DataTable& table, std::uint64_t row, std::uint64_t column,
              const MissingValues& missing, double& value) {
    if (table.type(column) == DataTable::ColumnType::Numbers) {
        value = table.number(row, column);
        if (std::isnan(value)) return Cell::Missing;
        return std::isinf(value) ? Cell::Infinite : Cell::Number;
    }
    const std::string_view field = table.field(row, column);
    if (missing(field)) return Cell::Missing;
    switch (readNumber(field, value)) {
        case Reading::Number: return Cell::Number;
        case Reading::Infinite: return Cell::Infinite;
        case Reading::Text: break;
    }
    return Cell::Text;
}

Census takeCensus(const DataTable& table, std::uint64_t column, const MissingValues& missing) {
    Census census;
    std::unordered_map<std::string_view, std::size_t> index;
    for (std::uint64_t r = 0; r < table.rowCount(); ++r) {
        double v = 0;
        const Cell cell = readCell(table, r, column, missing, v);
        if (cell == Cell::Missing) continue;
        if (cell != Cell::Text) {
            ++census.numbers;
            continue;
        }
        ++census.texts;
        const std::string_view field = table.field(r, column);
        const auto [it, added] = index.emplace(field, census.tokens.size());
        if (added) census.tokens.push_back({field, 0, r});
        ++census.tokens[it->second].count;
    }
    return census;
}

bool decimalComma(std::string_view token) {
    if (!token.empty() && (token.front() == '-' || token.front() == '+')) token.remove_prefix(1);
    const std::size_t comma = token.find(',');
    const auto digits = [](std::string_view s) {
        return !s.empty() &&
               std::all_of(s.begin(), s.end(), [](char c) { return c >= '0' && c <= '9'; });
    };
    return comma != std::string_view::npos && digits(token.substr(0, comma)) &&
           digits(token.substr(comma + 1));
}

// `what` is what the other values do ("the column nominal"), `strict` the
// option that would refuse them instead.
std::string mostlyNumbersWarning(const DataTable& table, std::uint64_t column, const Census& census,
                                 const std::string& what, const std::string& strict) {
    std::string shown;
    std::string suggested;  // for --missing, which cannot take a comma
    bool commas = false;
    const std::size_t count = std::min(census.tokens.size(), kTokensShown);
    for (std::size_t k = 0; k < count; ++k) {
        const Census::Token& t = census.tokens[k];
        const std::string row = table.rowName(t.firstRow);
        shown += k == 0 ? "" : k + 1 == count && count == census.tokens.size() ? " and " : ", ";
        shown += "\"" + std::string(t.text) + "\" (" +
                 (t.count == 1 ? "once, on " + row
                               : std::to_string(t.count) + " times, first on " + row) +
                 ")";
        if (t.text.find(',') == std::string_view::npos) {
            suggested += (suggested.empty() ? "" : ",") + std::string(t.text);
        }
        commas = commas || decimalComma(t.text);
    }
    if (census.tokens.size() > count) {
        shown += ", and " + std::to_string(census.tokens.size() - count) + " other values";
    }
    return table.place(std::nullopt, column) + ": " + std::to_string(census.numbers) + " of " +
           std::to_string(census.numbers + census.texts) + " values are numbers, but " + shown +
           " make " + what + (commas ? " (a decimal comma is not read as a decimal point)" : "") +
           "; " +
           (suggested.empty() ? "" : "--missing " + suggested + " reads such values as missing, ") +
           strict + " makes them errors";
}

// Labels make the response classes unless a regression is asked for; text
// does too, anything else is an error.
bool decideClassification(const DataTable& table, std::uint64_t column, const RawOptions& options,
                          const MissingValues& missing, Notices& notices) {
    const bool classification = options.flag("classification");
    const bool regression = options.flag("regression");
    if (classification && regression) {
        failOption("regression", "cannot be used together with --classification");
    }
    if (classification) return true;
    if (table.type(column) == DataTable::ColumnType::Labels && !regression) return true;
    // Any text makes the response nominal, unless a regression was asked for.
    std::optional<std::uint64_t> firstBad;
    bool text = false;
    for (std::uint64_t r = 0; r < table.rowCount(); ++r) {
        double v = 0;
        const Cell cell = readCell(table, r, column, missing, v);
        if (cell == Cell::Missing || cell == Cell::Number) continue;
        if (!firstBad) firstBad = r;
        text = text || cell == Cell::Text;
        if (regression) break;
    }
    if (!firstBad) return false;
    if (text && !regression) {
        if (const Census census = takeCensus(table, column, missing); census.mostlyNumbers()) {
            notices.warn(mostlyNumbersWarning(table, column, census,
                                              "the tree a classification tree", "--regression"));
        }
        return true;
    }
    table.failAt(*firstBad, column,
                 "\"" + table.shown(*firstBad, column) + "\" is not a finite number" +
                     (regression ? ", and --regression needs a numeric response"
                                 : " (a numeric response must be finite)"));
}

// The distinct values of a column, as text: the fields, or the numbers
// written out.
std::vector<std::string> distinctValues(const DataTable& table, std::uint64_t column,
                                        const std::vector<std::uint64_t>& rows,
                                        const MissingValues& missing) {
    if (table.type(column) == DataTable::ColumnType::Numbers) {
        std::vector<double> values;
        for (const std::uint64_t r : rows) {
            const double v = table.number(r, column);
            if (!std::isnan(v)) values.push_back(v);
        }
        std::sort(values.begin(), values.end());
        values.erase(std::unique(values.begin(), values.end()), values.end());
        std::vector<std::string> texts;
        for (const double v : values) texts.push_back(formatNumber(v));
        return texts;
    }
    std::unordered_set<std::string_view> distinct;
    for (const std::uint64_t r : rows) {
        const std::string_view field = table.field(r, column);
        if (!missing(field)) distinct.insert(field);
    }
    return std::vector<std::string>(distinct.begin(), distinct.end());
}

Predictor describePredictor(const DataTable& table, std::uint64_t column, const Columns& columns,
                            const MissingValues& missing, Notices& notices) {
    Predictor p;
    p.name = table.header()[column];
    const bool forced = listed(columns.nominal, column);
    const bool numeric = listed(columns.numeric, column);
    const bool labels = table.type(column) == DataTable::ColumnType::Labels;
    if (!forced && (numeric || !labels)) {
        const Census census = takeCensus(table, column, missing);
        if (census.texts == 0) return p;
        if (numeric) {
            const Census::Token& first = census.tokens.front();
            const bool comma = first.text.find(',') != std::string_view::npos;
            const std::string token(first.text);
            table.failAt(first.firstRow, column,
                         "\"" + token + "\" is not a number, and --numeric makes " + p.name +
                             " numeric" +
                             (comma ? "" : "; --missing " + token + " reads it as missing"));
        }
        if (census.mostlyNumbers()) {
            notices.warn(mostlyNumbersWarning(table, column, census, "the column nominal",
                                              "--numeric " + p.name));
        }
    }
    std::vector<std::uint64_t> all(table.rowCount());
    for (std::uint64_t r = 0; r < all.size(); ++r) all[r] = r;
    std::vector<std::string> distinct = distinctValues(table, column, all, missing);
    const std::uint64_t count = distinct.size();
    p.kind = PredictorKind::Nominal;
    p.levels = Levels::fromValues(std::move(distinct));
    if (!forced && table.rowCount() >= kIdentifierRows && count == table.rowCount()) {
        notices.note(table.place(std::nullopt, column) + ": every one of its " +
                     std::to_string(count) +
                     " rows has a value of its own, as in an ID column; "
                     "--ignore " +
                     p.name + " leaves it out");
    }
    return p;
}

void checkSingle(const DataTable& table, std::uint64_t row, std::uint64_t column, double v) {
    if (fitsSingle(v)) return;
    table.failAt(row, column,
                 "\"" + table.shown(row, column) +
                     "\" is beyond the range of single precision, which "
                     "--single needs");
}

double readWeight(const DataTable& table, std::uint64_t row, std::uint64_t column,
                  const MissingValues& missing) {
    double v = 0;
    const Cell cell = readCell(table, row, column, missing, v);
    if (cell == Cell::Missing) table.failAt(row, column, "the weight is missing");
    if (cell != Cell::Number) {
        table.failAt(row, column, "\"" + table.shown(row, column) + "\" is not a finite number");
    }
    if (v < 0) table.failAt(row, column, "the weight " + table.shown(row, column) + " is negative");
    return v;
}

}  // namespace

TrainingData prepareTrainingData(const DataTable& table, const RawOptions& options) {
    const Columns columns = findColumns(table, options);
    const MissingValues missing(options.list("missing"));
    const bool single = options.flag("single");
    TrainingData data;
    data.response = table.header()[columns.response];
    data.classification =
        decideClassification(table, columns.response, options, missing, data.notices);
    if (columns.weights) data.weights = table.header()[*columns.weights];

    std::vector<std::uint64_t> used;
    for (std::uint64_t r = 0; r < table.rowCount(); ++r) {
        double v = 0;
        if (readCell(table, r, columns.response, missing, v) != Cell::Missing) used.push_back(r);
    }
    data.rows = used.size();
    data.leftOut = table.rowCount() - used.size();
    if (used.empty()) {
        failOption("response",
                   "every row of " + table.name() + " misses its response (" + data.response + ")");
    }
    if (data.classification) {
        data.classes = Levels::fromValues(distinctValues(table, columns.response, used, missing));
    }

    std::vector<std::uint64_t> predictorColumns;
    for (std::uint64_t c = 0; c < table.header().size(); ++c) {
        if (c == columns.response || c == columns.weights || listed(columns.ignored, c)) continue;
        data.predictors.push_back(describePredictor(table, c, columns, missing, data.notices));
        predictorColumns.push_back(c);
    }
    if (data.predictors.empty()) {
        throw UserError(table.name() + ": no predictor columns besides the response" +
                        (columns.weights ? std::string(" and the weights") : "") +
                        (columns.ignored.empty() ? "" : " once the ignored ones are left out"));
    }

    const std::uint64_t N = data.rows;
    data.x.resize(N * data.predictors.size());
    std::uint64_t unseen = 0;  // stays 0: every level was collected above
    for (std::uint64_t j = 0; j < data.predictors.size(); ++j) {
        const bool numeric = data.predictors[j].kind == PredictorKind::Numeric;
        for (std::uint64_t i = 0; i < N; ++i) {
            double& x = data.x[j * N + i];
            x = codeValue(data.predictors[j], table, used[i], predictorColumns[j], missing, unseen);
            if (single && numeric) checkSingle(table, used[i], predictorColumns[j], x);
        }
    }
    data.y.resize(N);
    data.w.assign(N, 1.0);
    double total = 0;
    for (std::uint64_t i = 0; i < N; ++i) {
        double& y = data.y[i];
        readCell(table, used[i], columns.response, missing, y);
        if (data.classification) {
            const bool numbers = table.type(columns.response) == DataTable::ColumnType::Numbers;
            const std::string_view field = numbers ? "" : table.field(used[i], columns.response);
            y = static_cast<double>(numbers ? *data.classes.find(y) : *data.classes.find(field));
        } else if (single) {
            checkSingle(table, used[i], columns.response, y);
        }
        if (columns.weights) {
            data.w[i] = readWeight(table, used[i], *columns.weights, missing);
            if (single) checkSingle(table, used[i], *columns.weights, data.w[i]);
        }
        total += data.w[i];
    }
    if (!(total > 0) || !std::isfinite(total)) {
        failOption("weights", "the weights of the rows used must have a positive, finite sum");
    }
    for (double& w : data.w) w /= total;
    return data;
}

double codeValue(const Predictor& p, const DataTable& table, std::uint64_t row,
                 std::uint64_t column, const MissingValues& missing, std::uint64_t& unseen) {
    constexpr double kMissing = std::numeric_limits<double>::quiet_NaN();
    double v = 0;
    const Cell cell = readCell(table, row, column, missing, v);
    if (cell == Cell::Missing) return kMissing;
    if (p.kind == PredictorKind::Nominal) {
        const auto code = table.type(column) == DataTable::ColumnType::Numbers
                              ? p.levels.find(v)
                              : p.levels.find(table.field(row, column));
        if (code) return static_cast<double>(*code);
        ++unseen;
        return kMissing;
    }
    if (cell == Cell::Number) return v;
    const std::string shown = table.shown(row, column);
    if (cell == Cell::Infinite) {
        table.failAt(row, column, "\"" + shown + "\" is not a finite number");
    }
    const bool comma = shown.find(',') != std::string::npos;  // --missing cannot take it
    table.failAt(row, column,
                 "\"" + shown + "\" is not a number, and " + p.name + " is a numeric predictor" +
                     (comma ? "" : "; --missing " + shown + " reads it as missing"));
}

}  // namespace arbolin::frontend
