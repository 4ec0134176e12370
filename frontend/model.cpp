#include "frontend/model.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <optional>

#include "frontend/module_call.hpp"

namespace arbolin::frontend {

Grown growModel(const numora::Module& module, const TrainingData& data, const Settings& settings,
                std::vector<double> costs) {
    const bool single = settings.flag("single");
    ModuleInputs inputs(data, settings, costs, single);
    const auto start = std::chrono::steady_clock::now();
    std::vector<numora::ArrayPtr> outputs = growTree(module, inputs);
    const auto seconds = std::chrono::steady_clock::now() - start;

    Grown grown;
    grown.seconds = std::chrono::duration<double>(seconds).count();
    Model& model = grown.model;
    model.predictors = data.predictors;
    model.response = data.response;
    model.classification = data.classification;
    model.classes = data.classes;
    model.costs = std::move(costs);
    model.weights = data.weights;
    model.single = single;
    model.options = optionsJson(settings);
    model.missing = settings.list("missing");
    model.outputs = std::move(outputs);
    grown.tree = readTree(model, "the module's outputs");
    return grown;
}

// ------------------------------------------------------------ routing

namespace {

enum class Side { Left, Right, None };

bool holds(const std::vector<double>& levels, double v) {
    return std::find(levels.begin(), levels.end(), v) != levels.end();
}

bool below(const TreeView& tree, double v, double cut) {
    // Grown on float32 data, the values and cuts compared were floats.
    if (tree.singleCuts) return static_cast<float>(v) < static_cast<float>(cut);
    return v < cut;
}

Side byLevels(const std::vector<double>& left, const std::vector<double>& right, double v) {
    if (holds(left, v)) return Side::Left;
    if (holds(right, v)) return Side::Right;
    return Side::None;
}

// The side of the first surrogate in which the row has a value, if any
// surrogate has one; std::nullopt when none does.
std::optional<Side> bySurrogates(const TreeView& tree, const TreeNode& node, const double* x,
                                 std::uint64_t stride) {
    for (const Surrogate& s : node.surrogates) {
        const double v = x[s.predictor * stride];
        if (std::isnan(v)) continue;
        if (std::isnan(s.cut)) {
            // A one-sided level list places nothing.
            if (s.left.empty() || s.right.empty()) return Side::None;
            return byLevels(s.left, s.right, v);
        }
        const bool low = below(tree, v, s.cut);
        return (low != (s.direction < 0)) ? Side::Left : Side::Right;
    }
    return std::nullopt;
}

// The side of a branch that a row takes by all the rules.
Side sideOf(const TreeView& tree, const TreeNode& node, const double* x, std::uint64_t stride) {
    const double v = x[static_cast<std::uint64_t>(node.split) * stride];
    Side side = Side::None;
    if (!std::isnan(v)) {
        side = std::isnan(node.cut) ? byLevels(node.leftLevels, node.rightLevels, v)
                                    : (below(tree, v, node.cut) ? Side::Left : Side::Right);
    }
    if (side == Side::None) side = bySurrogates(tree, node, x, stride).value_or(Side::None);
    return side;
}

// A value and a cut compare false both ways only when one is NaN: a
// missing value, or the cut of a nominal split. Those rows take the full
// rules; all others go by the packed steps.
template <class Cut>
std::uint64_t routeBySteps(const TreeView& tree, const double* x, std::uint64_t stride) {
    std::uint64_t i = 0;
    for (;;) {
        const RouteStep& step = tree.steps[i];
        if (step.left == 0) return i;
        const Cut v = static_cast<Cut>(x[step.split * stride]);
        const Cut cut = static_cast<Cut>(step.cut);
        if (v < cut) {
            i = step.left;
        } else if (v >= cut) {
            i = step.right;
        } else {
            const Side side = sideOf(tree, tree.nodes[i], x, stride);
            if (side == Side::None) return i;
            i = side == Side::Left ? step.left : step.right;
        }
    }
}

}  // namespace

std::uint64_t routeRow(const TreeView& tree, const double* x, std::uint64_t stride) {
    // Grown on float32 data, the values and cuts compared were floats.
    return tree.singleCuts ? routeBySteps<float>(tree, x, stride)
                           : routeBySteps<double>(tree, x, stride);
}

std::vector<std::uint64_t> routeRows(const TreeView& tree, const double* x, std::uint64_t rows,
                                     std::uint64_t rowStride, std::uint64_t predictorStride) {
    std::vector<std::uint64_t> reached(rows);
    for (std::uint64_t i = 0; i < rows; ++i) {
        reached[i] = routeRow(tree, x + i * rowStride, predictorStride);
    }
    return reached;
}

std::vector<std::uint64_t> routeRows(const TreeView& tree, const std::vector<double>& x,
                                     std::uint64_t rows) {
    return routeRows(tree, x.data(), rows, 1, rows);
}

std::vector<std::uint64_t> routeMatrix(const Model& model, const TreeView& tree, const double* x,
                                       std::uint64_t rows, std::uint64_t width,
                                       const std::vector<std::uint64_t>& columns,
                                       Notices& notices) {
    const std::uint64_t D = model.predictors.size();
    bool asGiven = columns.size() == D && width == D;
    for (std::uint64_t j = 0; j < D && asGiven; ++j) {
        asGiven = columns[j] == j && model.predictors[j].kind == PredictorKind::Numeric;
    }
    if (asGiven) return routeRows(tree, x, rows, width, 1);
    // Otherwise the predictors' values are gathered and levels coded first.
    std::vector<double> coded(rows * D);
    for (std::uint64_t j = 0; j < D; ++j) {
        const Predictor& p = model.predictors[j];
        std::uint64_t unseen = 0;
        for (std::uint64_t i = 0; i < rows; ++i) {
            double v = x[i * width + columns[j]];
            if (p.kind == PredictorKind::Nominal && !std::isnan(v)) {
                const auto code = p.levels.find(v);
                unseen += code ? 0 : 1;
                v = code ? static_cast<double>(*code) : std::numeric_limits<double>::quiet_NaN();
            }
            coded[i * D + j] = v;
        }
        if (unseen != 0) {
            notices.note(std::to_string(unseen) + " value(s) of " + p.name +
                         " were not seen in training; they count as missing");
        }
    }
    return routeRows(tree, coded.data(), rows, D, 1);
}

// ------------------------------------------------------------ new rows

namespace {

std::string quotedList(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& n : names) text += (text.empty() ? "\"" : ", \"") + n + "\"";
    return text;
}

}  // namespace

std::vector<double> codeRows(const Model& model, const TreeView& tree, const DataTable& table,
                             const MissingValues& missing, Notices& notices) {
    const std::uint64_t D = model.predictors.size();
    enum class Use { None, Surrogate, Split };
    std::vector<Use> use(D, Use::None);
    for (const TreeNode& node : tree.nodes) {
        if (!node.branch()) continue;
        use[static_cast<std::uint64_t>(node.split)] = Use::Split;
        for (const Surrogate& s : node.surrogates) {
            if (use[s.predictor] == Use::None) use[s.predictor] = Use::Surrogate;
        }
    }
    std::vector<std::optional<std::uint64_t>> columns(D);
    std::vector<std::string> absentSplits, absentSurrogates;
    for (std::uint64_t j = 0; j < D; ++j) {
        if (use[j] == Use::None) continue;
        columns[j] = table.find(model.predictors[j].name);
        if (columns[j]) continue;
        auto& absent = use[j] == Use::Split ? absentSplits : absentSurrogates;
        absent.push_back(model.predictors[j].name);
    }
    if (!absentSplits.empty()) {
        throw UserError(table.name() + " has no column" + (absentSplits.size() == 1 ? " " : "s ") +
                        quotedList(absentSplits) + ", which the model uses in its splits");
    }
    if (!absentSurrogates.empty()) {
        notices.note(table.name() + " has no column" + (absentSurrogates.size() == 1 ? " " : "s ") +
                     quotedList(absentSurrogates) +
                     ", which only surrogate splits use; every row counts as missing " +
                     (absentSurrogates.size() == 1 ? "it" : "them"));
    }
    const std::uint64_t N = table.rowCount();
    std::vector<double> x(N * D, std::numeric_limits<double>::quiet_NaN());
    for (std::uint64_t j = 0; j < D; ++j) {
        if (!columns[j]) continue;
        const Predictor& p = model.predictors[j];
        std::uint64_t unseen = 0;
        for (std::uint64_t i = 0; i < N; ++i) {
            x[j * N + i] = codeValue(p, table, i, *columns[j], missing, unseen);
        }
        if (unseen != 0) {
            notices.note(std::to_string(unseen) + " value(s) of " + p.name + " in " + table.name() +
                         " were not seen in training; they count as missing");
        }
    }
    return x;
}

// ------------------------------------------------------------ summaries

TreeShape treeShape(const TreeView& tree) {
    TreeShape shape;
    shape.nodes = tree.nodes.size();
    std::vector<std::uint64_t> depth(tree.nodes.size(), 0);
    for (std::uint64_t i = 0; i < tree.nodes.size(); ++i) {
        const TreeNode& node = tree.nodes[i];
        if (!node.branch()) {
            ++shape.leaves;
            shape.depth = std::max(shape.depth, depth[i]);
            continue;
        }
        depth[node.left] = depth[node.right] = depth[i] + 1;  // children follow their parent
    }
    return shape;
}

double trainingScore(const TreeView& tree, const TrainingData& data) {
    const std::vector<std::uint64_t> reached = routeRows(tree, data.x, data.rows);
    if (data.classification) {
        double right = 0;
        for (std::uint64_t i = 0; i < data.rows; ++i) {
            if (tree.nodes[reached[i]].value == data.y[i]) right += data.w[i];
        }
        return right;  // the weights sum to 1
    }
    double mean = 0;
    for (std::uint64_t i = 0; i < data.rows; ++i) mean += data.w[i] * data.y[i];
    double sse = 0, sst = 0;
    for (std::uint64_t i = 0; i < data.rows; ++i) {
        const double e = data.y[i] - tree.nodes[reached[i]].value;
        const double d = data.y[i] - mean;
        sse += data.w[i] * e * e;
        sst += data.w[i] * d * d;
    }
    return sst > 0 ? 1.0 - sse / sst : 1.0;
}

}  // namespace arbolin::frontend
