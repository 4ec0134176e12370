// How big a tree is and how well it fits the rows it was grown on.
#pragma once

#include <cstdint>
#include <vector>

#include "cli/training_data.hpp"
#include "cli/tree_view.hpp"

namespace arbolin::cli {

struct TreeShape {
    std::uint64_t nodes = 0;
    std::uint64_t leaves = 0;
    std::uint64_t depth = 0;  // splits from the root to the deepest leaf
};

TreeShape treeShape(const TreeView& tree);

// The node each training row reaches.
std::vector<std::uint64_t> routeTraining(const TreeView& tree, const TrainingData& data);

// Classification: the weighted share of rows whose node predicts their
// class. Regression: R-squared, 1 - SSE / SST with the weights.
double trainingScore(const TreeView& tree, const TrainingData& data);

}  // namespace arbolin::cli
