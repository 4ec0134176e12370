#include "cli/summary.hpp"

#include <algorithm>

#include "cli/routing.hpp"

namespace arbolin::cli {

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

std::vector<std::uint64_t> routeTraining(const TreeView& tree, const TrainingData& data) {
    std::vector<std::uint64_t> reached(data.rows);
    for (std::uint64_t i = 0; i < data.rows; ++i) {
        reached[i] = routeRow(tree, data.x.data() + i, data.rows);
    }
    return reached;
}

double trainingScore(const TreeView& tree, const TrainingData& data) {
    const std::vector<std::uint64_t> reached = routeTraining(tree, data);
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

}  // namespace arbolin::cli
