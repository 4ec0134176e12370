// A grown tree with what it takes to read and apply it: the predictors by
// name and kind, the labels behind the codes of levels and classes, the
// costs, the options used, and the module's twenty-two outputs as they came
// back. Then the tree read from those outputs, the way rows go down it, and
// the model file.
#pragma once

#include <cmath>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "frontend/data.hpp"
#include "frontend/options.hpp"
#include "host/numora_host.hpp"

namespace arbolin::frontend {

// One subtree of the cost-complexity sequence of a grown tree: the least
// alpha (risk charged per leaf) at which it is the best, its leaves and its
// risk on the training data, in units where the weights sum to 1; and,
// when the sequence was cross-validated, the risk on held-out rows with its
// standard error (NaN otherwise).
struct PruningStep {
    double alpha = 0;
    std::uint64_t leaves = 0;
    double risk = 0;
    double cvRisk = std::nan("");
    double cvError = std::nan("");
};

// The sequence of the tree as grown, kept with a pruned model: its tree is
// step `chosen`. `folds` is 0 when no cross-validation ran.
struct PruningRecord {
    std::vector<PruningStep> steps;
    std::uint64_t chosen = 0;
    std::uint64_t folds = 0;
    std::string rule;  // "1se" or "min" when cross-validated
};

struct Model {
    std::vector<Predictor> predictors;
    std::string response;
    bool classification = false;
    Levels classes;  // classification only
    // Misclassification costs, K by K column-major (row: true class,
    // column: predicted class); empty for none. With costs a node predicts
    // the class of least expected cost.
    std::vector<double> costs;
    std::string weights;  // "" for none
    bool single = false;  // grown on single-precision data
    // The options used and how the tree was trained: each a JSON object,
    // as text, so that a model read and written again keeps them whole.
    std::string options = "{}";
    std::string training = "{}";
    // The tokens that counted as missing when it was grown (options.missing).
    std::vector<std::string> missing;
    std::vector<numora::ArrayPtr> outputs;  // all twenty-two, in order
    std::optional<PruningRecord> pruning;   // for a pruned tree
};

// ------------------------------------------------ the tree (tree_view.cpp)

struct Surrogate {
    std::uint64_t predictor = 0;      // 0-based
    double cut = 0;                   // NaN for a nominal surrogate
    int direction = 1;                // -1: values below the cut go right
    std::vector<double> left, right;  // level codes of a nominal surrogate
    double association = 0;
    double gain = 0;  // of the surrogate as a split of its own
};

struct TreeNode {
    std::uint64_t left = 0, right = 0;  // 0-based children; 0 for none (the root is nobody's)
    std::int64_t split = -1;            // 0-based predictor of the split
    double cut = 0;                     // NaN for a nominal split
    std::vector<double> leftLevels, rightLevels;
    double value = 0;  // the prediction: class code (of least expected cost, with costs), or mean
    double prob = 0;
    double size = 0;
    double risk = 0;
    double gain = 0;  // of the split; what a leaf shows means nothing
    std::vector<double> classProb;
    bool unrouted = false;
    std::vector<Surrogate> surrogates;

    bool branch() const noexcept { return left != 0; }
};

// The tree in a model's outputs as plain nodes, checked for consistency: a
// model file is user input like any other, and whatever passes the checks
// can be rendered and routed through without going astray.
// What a node's numeric split needs to send on a row that has a value,
// packed so that routing many rows stays in cache. `left` is 0 at a leaf;
// `cut` is NaN at a nominal split, which goes by the node's full record.
struct RouteStep {
    double cut = 0;
    std::uint64_t split = 0;
    std::uint64_t left = 0, right = 0;
};

struct TreeView {
    std::vector<TreeNode> nodes;
    std::vector<RouteStep> steps;  // one a node
    bool singleCuts = false;     // cut points are float32: compare in float
    bool singleWeights = false;  // shares are float32
};

// Throws UserError naming `where` (the model file) and the output.
TreeView readTree(const Model& model, const std::string& where);

// ------------------------------------------- growing and applying (model.cpp)

// A tree grown on `data`, its outputs read back as a tree, and the seconds
// the module took.
struct Grown {
    Model model;
    TreeView tree;
    double seconds = 0;
};
Grown growModel(const numora::Module& module, const TrainingData& data, const Settings& settings,
                std::vector<double> costs);

// The row's value of predictor j is x[j * stride] (NaN when missing or
// unseen). At a numeric split a value below the cut goes left, at or above
// it right; at a nominal split the side whose level list holds it. Other
// rows go by the node's surrogates, best first: the first surrogate in
// which the row has a value decides, a numeric one honouring its
// direction. A row that no surrogate places stops at the node, as unrouted
// rows do while the tree grows. Returns the 0-based node where it stops.
std::uint64_t routeRow(const TreeView& tree, const double* x, std::uint64_t stride);

// The node each of `rows` rows reaches: row i's value of predictor j is
// x[i * rowStride + j * predictorStride].
std::vector<std::uint64_t> routeRows(const TreeView& tree, const double* x, std::uint64_t rows,
                                     std::uint64_t rowStride, std::uint64_t predictorStride);
// x is rows by predictors, column-major.
std::vector<std::uint64_t> routeRows(const TreeView& tree, const std::vector<double>& x,
                                     std::uint64_t rows);

// The node each row of a row-major matrix of numbers reaches (`width`
// values a row, NaN missing): predictor j is column columns[j]. A nominal
// predictor's values are the numbers its levels name; a value not seen in
// training counts as missing, with a note.
std::vector<std::uint64_t> routeMatrix(const Model& model, const TreeView& tree, const double* x,
                                       std::uint64_t rows, std::uint64_t width,
                                       const std::vector<std::uint64_t>& columns,
                                       Notices& notices);

// The predictors' columns of `table` that the tree looks at, found by name
// and coded as the module saw them while growing: rows by predictors,
// column-major. A predictor no split or surrogate uses stays NaN and need
// not be in the table; one only surrogates use counts as missing when it is
// absent (a note says so), one a split uses is an error. Levels not seen in
// training count as missing, with a note.
std::vector<double> codeRows(const Model& model, const TreeView& tree, const DataTable& table,
                             const MissingValues& missing, Notices& notices);

struct TreeShape {
    std::uint64_t nodes = 0;
    std::uint64_t leaves = 0;
    std::uint64_t depth = 0;  // splits from the root to the deepest leaf
};
TreeShape treeShape(const TreeView& tree);

// Classification: the weighted share of rows whose node predicts their
// class. Regression: R-squared, 1 - SSE / SST with the weights.
double trainingScore(const TreeView& tree, const TrainingData& data);

// ------------------------------------------------ the file (model_file.cpp)

// How the tree was trained, as the model records it; no file for data that
// did not come from one.
struct TrainingSummary {
    std::string file;
    std::uint64_t rows = 0;
    std::uint64_t leftOut = 0;
    double fitSeconds = 0;
    std::string module;
};
std::string trainingJson(const TrainingSummary& summary);
// Every option with the value used (null for none), by name.
std::string optionsJson(const Settings& settings);

// The model file's text: JSON, one member a line but each host array on
// one, and a final line break.
std::string modelText(const Model& model);
// Throws UserError naming the file (or `name`) and the problem.
Model loadModel(const std::string& path);
Model loadModelFromMemory(std::string_view bytes, const std::string& name);

}  // namespace arbolin::frontend
