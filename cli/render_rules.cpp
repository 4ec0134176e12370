#include <cmath>

#include "cli/render.hpp"
#include "cli/values.hpp"

namespace arbolin::cli {

namespace {

std::string cutText(const TreeView& tree, double cut) {
    // Ten digits drop the noise of a midpoint (3.5700000000000003) and keep
    // every cut that data written with fewer digits can have.
    return tree.singleCuts ? formatFloat(static_cast<float>(cut)) : formatShort(cut, 10);
}

std::string levelSet(const Predictor& p, const std::vector<double>& codes) {
    std::string text = "{";
    for (std::size_t i = 0; i < codes.size(); ++i) {
        text += (i == 0 ? "" : ", ") + p.levels.label(codes[i]);
    }
    return text + "}";
}

}  // namespace

std::string splitRule(const Model& model, const TreeView& tree, const TreeNode& node, bool left) {
    const Predictor& p = model.predictors[static_cast<std::size_t>(node.split)];
    if (std::isnan(node.cut)) {
        return p.name + " in " + levelSet(p, left ? node.leftLevels : node.rightLevels);
    }
    return p.name + (left ? " < " : " >= ") + cutText(tree, node.cut);
}

std::string surrogateRule(const Model& model, const TreeView& tree, const Surrogate& s) {
    const Predictor& p = model.predictors[s.predictor];
    if (std::isnan(s.cut)) return p.name + " in " + levelSet(p, s.left);
    return p.name + (s.direction < 0 ? " >= " : " < ") + cutText(tree, s.cut);
}

std::string nodeSummary(const Model& model, const TreeView& tree, const TreeNode& node) {
    std::string text = "n=" + formatShort(node.size, 15) + "  ";
    if (!model.classification) return text + "mean " + formatShort(node.value);
    text += model.classes.label(node.value) + "  (";
    for (std::size_t k = 0; k < node.classProb.size(); ++k) {
        const double share = tree.singleWeights ? static_cast<float>(node.classProb[k])
                                                : node.classProb[k];
        text += (k == 0 ? "" : ", ") + model.classes.labels()[k] + " " + formatShort(share, 3);
    }
    return text + ")";
}

}  // namespace arbolin::cli
