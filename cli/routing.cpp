#include "cli/routing.hpp"

#include <algorithm>
#include <cmath>
#include <optional>

namespace arbolin::cli {

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

}  // namespace

std::uint64_t routeRow(const TreeView& tree, const double* x, std::uint64_t stride) {
    std::uint64_t i = 0;
    while (tree.nodes[i].branch()) {
        const TreeNode& node = tree.nodes[i];
        const double v = x[static_cast<std::uint64_t>(node.split) * stride];
        Side side = Side::None;
        if (!std::isnan(v)) {
            side = std::isnan(node.cut) ? byLevels(node.leftLevels, node.rightLevels, v)
                                        : (below(tree, v, node.cut) ? Side::Left : Side::Right);
        }
        if (side == Side::None) side = bySurrogates(tree, node, x, stride).value_or(Side::None);
        if (side == Side::None) return i;
        i = side == Side::Left ? node.left : node.right;
    }
    return i;
}

}  // namespace arbolin::cli
