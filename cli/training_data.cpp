#include "cli/training_data.hpp"

#include <algorithm>
#include <cmath>
#include <unordered_set>

#include "cli/values.hpp"

namespace arbolin::cli {

namespace {

struct Columns {
    std::uint64_t response = 0;
    std::optional<std::uint64_t> weights;
    std::vector<std::uint64_t> nominal;
};

Columns findColumns(const CsvTable& table, const RawOptions& options) {
    Columns c;
    const auto response = options.value("response");
    c.response = response ? table.require(*response, "response") : table.header().size() - 1;
    if (const auto weights = options.value("weights")) {
        c.weights = table.require(*weights, "weights");
        if (*c.weights == c.response) failOption("weights", "the response cannot be the weights");
    }
    for (const std::string& name : options.list("nominal")) {
        const std::uint64_t column = table.require(name, "nominal");
        if (column == c.response || column == c.weights) {
            failOption("nominal", name + " is the response or the weights, not a predictor");
        }
        c.nominal.push_back(column);
    }
    return c;
}

bool decideClassification(const CsvTable& table, std::uint64_t column,
                          const RawOptions& options) {
    const bool classification = options.flag("classification");
    const bool regression = options.flag("regression");
    if (classification && regression) {
        failOption("regression", "cannot be used together with --classification");
    }
    if (classification) return true;
    // Any text makes the response nominal, unless a regression was asked for.
    std::optional<std::uint64_t> firstBad;
    bool text = false;
    for (std::uint64_t r = 0; r < table.rowCount(); ++r) {
        const std::string_view field = table.field(r, column);
        double v = 0;
        if (isMissing(field)) continue;
        const Reading reading = readNumber(field, v);
        if (reading == Reading::Number) continue;
        if (!firstBad) firstBad = r;
        text = text || reading == Reading::Text;
        if (regression) break;
    }
    if (!firstBad) return false;
    if (text && !regression) return true;
    const std::string field(table.field(*firstBad, column));
    failAt(table.place(*firstBad, column),
           "\"" + field + "\" is not a finite number" +
               (regression ? ", and --regression needs a numeric response"
                           : " (a numeric response must be finite)"));
}

Predictor describePredictor(const CsvTable& table, std::uint64_t column, bool nominal) {
    Predictor p;
    p.name = table.header()[column];
    double v = 0;
    for (std::uint64_t r = 0; r < table.rowCount() && !nominal; ++r) {
        const std::string_view field = table.field(r, column);
        nominal = !isMissing(field) && readNumber(field, v) == Reading::Text;
    }
    if (!nominal) return p;
    std::unordered_set<std::string_view> distinct;
    for (std::uint64_t r = 0; r < table.rowCount(); ++r) {
        const std::string_view field = table.field(r, column);
        if (!isMissing(field)) distinct.insert(field);
    }
    p.kind = PredictorKind::Nominal;
    p.levels = Levels::fromValues(std::vector<std::string>(distinct.begin(), distinct.end()));
    return p;
}

double readWeight(const CsvTable& table, std::uint64_t row, std::uint64_t column) {
    const std::string_view field = table.field(row, column);
    double v = 0;
    if (isMissing(field)) failAt(table.place(row, column), "the weight is missing");
    if (readNumber(field, v) != Reading::Number) {
        failAt(table.place(row, column), "\"" + std::string(field) + "\" is not a finite number");
    }
    if (v < 0) failAt(table.place(row, column), "the weight " + std::string(field) + " is negative");
    return v;
}

}  // namespace

TrainingData prepareTrainingData(const CsvTable& table, const RawOptions& options) {
    const Columns columns = findColumns(table, options);
    TrainingData data;
    data.response = table.header()[columns.response];
    data.classification = decideClassification(table, columns.response, options);
    if (columns.weights) data.weights = table.header()[*columns.weights];

    std::vector<std::uint64_t> used;
    std::unordered_set<std::string_view> labels;
    for (std::uint64_t r = 0; r < table.rowCount(); ++r) {
        const std::string_view field = table.field(r, columns.response);
        if (isMissing(field)) continue;
        used.push_back(r);
        if (data.classification) labels.insert(field);
    }
    data.rows = used.size();
    data.leftOut = table.rowCount() - used.size();
    if (used.empty()) {
        failOption("response", "every row of " + table.path() + " misses its response (" +
                                   data.response + ")");
    }
    if (data.classification) {
        data.classes = Levels::fromValues(std::vector<std::string>(labels.begin(), labels.end()));
    }

    std::vector<std::uint64_t> predictorColumns;
    for (std::uint64_t c = 0; c < table.header().size(); ++c) {
        if (c == columns.response || c == columns.weights) continue;
        const bool nominal = std::count(columns.nominal.begin(), columns.nominal.end(), c) > 0;
        data.predictors.push_back(describePredictor(table, c, nominal));
        predictorColumns.push_back(c);
    }
    if (data.predictors.empty()) {
        throw UserError(table.path() + ": no predictor columns besides the response" +
                        (columns.weights ? std::string(" and the weights") : ""));
    }

    const std::uint64_t N = data.rows;
    data.x.resize(N * data.predictors.size());
    std::uint64_t unseen = 0;  // stays 0: every level was collected above
    for (std::uint64_t j = 0; j < data.predictors.size(); ++j) {
        for (std::uint64_t i = 0; i < N; ++i) {
            data.x[j * N + i] =
                codeField(data.predictors[j], table, used[i], predictorColumns[j], unseen);
        }
    }
    data.y.resize(N);
    data.w.assign(N, 1.0);
    double total = 0;
    for (std::uint64_t i = 0; i < N; ++i) {
        const std::string_view field = table.field(used[i], columns.response);
        if (data.classification) {
            data.y[i] = static_cast<double>(*data.classes.find(field));
        } else {
            readNumber(field, data.y[i]);
        }
        if (columns.weights) data.w[i] = readWeight(table, used[i], *columns.weights);
        total += data.w[i];
    }
    if (!(total > 0) || !std::isfinite(total)) {
        failOption("weights", "the weights of the rows used must have a positive, finite sum");
    }
    for (double& w : data.w) w /= total;
    return data;
}

}  // namespace arbolin::cli
