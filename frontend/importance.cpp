#include "frontend/importance.hpp"

namespace arbolin::frontend {

std::vector<double> featureImportance(const TreeView& tree, std::uint64_t predictors,
                                      bool surrogates) {
    std::vector<double> sum(predictors, 0.0);
    for (const TreeNode& node : tree.nodes) {
        if (!node.branch()) continue;
        sum[static_cast<std::uint64_t>(node.split)] += node.gain;
        if (!surrogates) continue;
        for (const Surrogate& s : node.surrogates) sum[s.predictor] += s.gain;
    }
    double total = 0;
    for (double g : sum) total += g;
    if (!(total > 0)) return std::vector<double>(predictors, 0.0);
    for (double& g : sum) g /= total;
    return sum;
}

}  // namespace arbolin::frontend
