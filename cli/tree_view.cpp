#include "cli/tree_view.hpp"

#include <cmath>

#include "cli/output_reader.hpp"
#include "cli/values.hpp"

namespace arbolin::cli {

void checkLevels(const OutputReader& r, Output o, const Model& model, std::uint64_t predictor,
                 const std::vector<double>& codes, std::uint64_t node) {
    const Predictor& p = model.predictors[predictor];
    const double most = static_cast<double>(p.levels.size()) - 1;
    for (double c : codes) {
        if (p.kind != PredictorKind::Nominal || !whole(c, 0, most)) {
            r.fail(o, "sends level " + formatNumber(c) + " of " + p.name + " at node " +
                          std::to_string(node + 1) + ", which " + p.name + " does not have");
        }
    }
}

TreeView readTree(const Model& model, const std::string& where) {
    const OutputReader r(model, where);
    const cxArray* children = r.array(kChildren);
    const std::uint64_t n = cxGetN(children);
    if (n == 0) r.fail(kChildren, "holds no nodes");
    const std::vector<double> kids = r.numbers(kChildren, 2, n);
    const std::vector<double> cutVar = r.numbers(kCutVar, n, 1);
    const std::vector<double> cut = r.numbers(kCutPoint, n, 1);
    const std::vector<double> value = r.numbers(kNodeValue, n, 1);
    const std::vector<double> prob = r.numbers(kNodeProb, n, 1);
    const std::vector<double> size = r.numbers(kNodeSize, n, 1);
    const std::vector<double> risk = r.numbers(kNodeRisk, n, 1);
    const std::vector<double> unrouted = r.numbers(kHasUnroutedRows, n, 1);
    const std::uint64_t K = model.classification ? model.classes.size() : 1;
    const std::vector<double> classProb = r.numbers(kClassProb, K, n);
    const cxArray* levels = r.array(kSplitLevels);
    if (!r.isCell(kSplitLevels) || cxGetM(levels) != n || cxGetN(levels) != 2) {
        r.fail(kSplitLevels, "should be a cell of " + std::to_string(n) + " by 2");
    }

    TreeView tree;
    tree.singleCuts = cxGetClassID(r.array(kCutPoint)) == cxSINGLE_CLASS;
    tree.singleWeights = cxGetClassID(r.array(kClassProb)) == cxSINGLE_CLASS;
    tree.nodes.resize(n);
    const double D = static_cast<double>(model.predictors.size());
    for (std::uint64_t i = 0; i < n; ++i) {
        TreeNode& node = tree.nodes[i];
        const double left = kids[2 * i], right = kids[2 * i + 1];
        const bool branch = left != 0 || right != 0;
        // Children come after their parent, which also rules out cycles.
        if (branch && (!whole(left, double(i + 2), double(n)) || !whole(right, double(i + 2), double(n)) ||
                       left == right)) {
            r.fail(kChildren, "gives node " + std::to_string(i + 1) + " children that do not exist");
        }
        node.left = branch ? static_cast<std::uint64_t>(left) - 1 : 0;
        node.right = branch ? static_cast<std::uint64_t>(right) - 1 : 0;
        if (branch && !whole(cutVar[i], 1, D)) {
            r.fail(kCutVar, "names no predictor for branch node " + std::to_string(i + 1));
        }
        node.split = whole(cutVar[i], 1, D) ? static_cast<std::int64_t>(cutVar[i]) - 1 : -1;
        node.cut = cut[i];
        node.leftLevels = r.list(kSplitLevels, cxGetCell(levels, i), i);
        node.rightLevels = r.list(kSplitLevels, cxGetCell(levels, n + i), i);
        if (branch && std::isnan(node.cut)) {
            checkLevels(r, kSplitLevels, model, node.split, node.leftLevels, i);
            checkLevels(r, kSplitLevels, model, node.split, node.rightLevels, i);
        }
        node.value = value[i];
        if (model.classification && !whole(value[i], 0, double(K) - 1)) {
            r.fail(kNodeValue, "gives node " + std::to_string(i + 1) + " a class that does not exist");
        }
        node.prob = prob[i];
        node.size = size[i];
        node.risk = risk[i];
        node.classProb.assign(classProb.begin() + i * K, classProb.begin() + (i + 1) * K);
        node.unrouted = unrouted[i] != 0;
    }
    readSurrogates(r, model, tree);
    return tree;
}

}  // namespace arbolin::cli
