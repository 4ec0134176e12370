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

namespace {

// With costs, the class of least expected cost: the sum over true classes i
// of P(i | node) C(i, j) for each predicted class j. P is the node's class
// shares as the module gives them (the weights as given, not reweighted
// for the costs, which would count them twice). Ties go to the lower
// class, and shares that are NaN (an empty node) give class 0, as the
// module's most probable class does.
double leastCostClass(const std::vector<double>& shares, const std::vector<double>& cost,
                      bool singleWeights) {
    const std::uint64_t K = shares.size();
    std::uint64_t best = 0;
    double bestCost = 0;
    for (std::uint64_t j = 0; j < K; ++j) {
        double expected = 0;
        for (std::uint64_t i = 0; i < K; ++i) {
            // Grown on float32 weights, the module saw the costs as floats.
            const double c = singleWeights ? static_cast<float>(cost[i + j * K]) : cost[i + j * K];
            expected += shares[i] * c;
        }
        if (j == 0 || expected < bestCost) {
            best = j;
            bestCost = expected;
        }
    }
    return static_cast<double>(best);
}

// Children come after their parent and each node but the root has exactly
// one parent: then every node hangs from the root, and there are no cycles
// and no shared subtrees. Parent and IsBranch must agree.
void checkShape(const OutputReader& r, const std::vector<double>& kids, std::uint64_t n) {
    const std::vector<double> parent = r.numbers(kParent, n, 1);
    const std::vector<double> isBranch = r.numbers(kIsBranch, n, 1);
    std::vector<std::uint64_t> parentOf(n, 0);  // 1-based, 0 for none yet
    for (std::uint64_t i = 0; i < n; ++i) {
        const double left = kids[2 * i], right = kids[2 * i + 1];
        const bool branch = left != 0 || right != 0;
        const std::string node = "node " + std::to_string(i + 1);
        const double first = double(i + 2), last = double(n);
        if (branch && (!whole(left, first, last) || !whole(right, first, last) || left == right)) {
            r.fail(kChildren, "gives " + node + " children that do not exist");
        }
        if ((isBranch[i] != 0) != branch) {
            r.fail(kIsBranch, "and Children disagree on whether " + node + " is a branch");
        }
        if (!branch) continue;
        for (double child : {left, right}) {
            std::uint64_t& p = parentOf[static_cast<std::uint64_t>(child) - 1];
            if (p != 0) {
                r.fail(kChildren, "gives node " + formatNumber(child) + " two parents, nodes " +
                                      std::to_string(p) + " and " + std::to_string(i + 1));
            }
            p = i + 1;
        }
    }
    for (std::uint64_t i = 0; i < n; ++i) {
        if (i != 0 && parentOf[i] == 0) {
            r.fail(kChildren, "gives node " + std::to_string(i + 1) + " no parent");
        }
        if (parent[i] != static_cast<double>(parentOf[i])) {
            r.fail(kParent, "and Children disagree on the parent of node " + std::to_string(i + 1));
        }
    }
}

}  // namespace

TreeView readTree(const Model& model, const std::string& where) {
    const OutputReader r(model, where);
    const cxArray* children = r.array(kChildren);
    const std::uint64_t n = cxGetN(children);
    if (n == 0) r.fail(kChildren, "holds no nodes");
    const std::vector<double> kids = r.numbers(kChildren, 2, n);
    checkShape(r, kids, n);
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
        const std::string name = "node " + std::to_string(i + 1);
        const bool branch = kids[2 * i] != 0;
        node.left = branch ? static_cast<std::uint64_t>(kids[2 * i]) - 1 : 0;
        node.right = branch ? static_cast<std::uint64_t>(kids[2 * i + 1]) - 1 : 0;
        if (branch && !whole(cutVar[i], 1, D)) {
            r.fail(kCutVar, "names no predictor for branch " + name);
        }
        node.split = whole(cutVar[i], 1, D) ? static_cast<std::int64_t>(cutVar[i]) - 1 : -1;
        node.cut = cut[i];
        node.leftLevels = r.list(kSplitLevels, cxGetCell(levels, i), i);
        node.rightLevels = r.list(kSplitLevels, cxGetCell(levels, n + i), i);
        if (branch) {
            // A numeric predictor splits at a cut, a nominal one by two
            // lists of its levels.
            const Predictor& p = model.predictors[static_cast<std::size_t>(node.split)];
            const bool nominal = p.kind == PredictorKind::Nominal;
            if (nominal != std::isnan(node.cut)) {
                r.fail(kCutPoint, "gives branch " + name +
                                      (nominal ? " a cut on the nominal " : " no cut on the numeric ") +
                                      p.name);
            }
            if (nominal && (node.leftLevels.empty() || node.rightLevels.empty())) {
                r.fail(kSplitLevels, "sends no level of " + p.name + " to one side of " + name);
            }
            const auto j = static_cast<std::uint64_t>(node.split);
            checkLevels(r, kSplitLevels, model, j, node.leftLevels, i);
            checkLevels(r, kSplitLevels, model, j, node.rightLevels, i);
        }
        node.value = value[i];
        if (model.classification && !whole(value[i], 0, double(K) - 1)) {
            r.fail(kNodeValue, "gives " + name + " a class that does not exist");
        }
        node.prob = prob[i];
        node.size = size[i];
        node.risk = risk[i];
        node.classProb.assign(classProb.begin() + i * K, classProb.begin() + (i + 1) * K);
        node.unrouted = unrouted[i] != 0;
        if (!model.costs.empty()) {
            node.value = leastCostClass(node.classProb, model.costs, tree.singleWeights);
        }
    }
    readSurrogates(r, model, tree);
    return tree;
}

}  // namespace arbolin::cli
