// The tree in a model's outputs as plain nodes, checked for consistency:
// a model file is user input like any other, and whatever passes the
// checks can be rendered and routed through without going astray.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cli/model.hpp"

namespace arbolin::cli {

struct Surrogate {
    std::uint64_t predictor = 0;  // 0-based
    double cut = 0;               // NaN for a nominal surrogate
    int direction = 1;            // -1: values below the cut go right
    std::vector<double> left, right;  // level codes of a nominal surrogate
    double association = 0;
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
    std::vector<double> classProb;
    bool unrouted = false;
    std::vector<Surrogate> surrogates;

    bool branch() const noexcept { return left != 0; }
};

struct TreeView {
    std::vector<TreeNode> nodes;
    bool singleCuts = false;     // cut points are float32: compare in float
    bool singleWeights = false;  // shares are float32
};

// Throws UserError naming `where` (the model file) and the output.
TreeView readTree(const Model& model, const std::string& where);

}  // namespace arbolin::cli
