// The tree in a model's outputs read into plain nodes, and checked.
#include <cmath>

#include "frontend/model.hpp"
#include "gateway/contract.hpp"

namespace arbolin::frontend {

namespace {

using namespace contract::output;

// Reads the module's outputs in a model, with the output's name in every
// complaint.
class OutputReader {
public:
    OutputReader(const Model& model, std::string where) : model_(model), where_(std::move(where)) {}

    [[noreturn]] void fail(Position o, const std::string& problem) const {
        throw UserError(where_ + ": output " + std::string(contract::outputName(o)) + " " +
                        problem);
    }

    const cxArray* array(Position o) const { return model_.outputs[contract::slot(o)].get(); }

    // The values of a real or logical array of m by n.
    std::vector<double> numbers(Position o, std::uint64_t m, std::uint64_t n) const {
        const cxArray* a = array(o);
        if (cxGetNumberOfDimensions(a) != 2 || cxGetM(a) != m || cxGetN(a) != n) {
            fail(o, "should be " + std::to_string(m) + " by " + std::to_string(n));
        }
        return values(a, [&] { fail(o, "should be numbers"); });
    }

    template <class Fail>
    static std::vector<double> values(const cxArray* a, Fail fail) {
        const std::uint64_t count = cxGetNumberOfElements(a);
        std::vector<double> out(count);
        switch (cxGetClassID(a)) {
            case cxDOUBLE_CLASS: {
                const auto* data = static_cast<const double*>(cxGetData(a));
                for (std::uint64_t i = 0; i < count; ++i) out[i] = data[i];
                break;
            }
            case cxSINGLE_CLASS: {
                const auto* data = static_cast<const float*>(cxGetData(a));
                for (std::uint64_t i = 0; i < count; ++i) out[i] = data[i];
                break;
            }
            case cxLOGICAL_CLASS:
                for (std::uint64_t i = 0; i < count; ++i) out[i] = cxGetLogicals(a)[i] ? 1 : 0;
                break;
            default: fail();
        }
        return out;
    }

    // A list held in a cell element: unset, empty or 1 by m.
    std::vector<double> list(Position o, const cxArray* a, std::uint64_t node) const {
        if (a == nullptr || cxGetNumberOfElements(a) == 0) return {};
        if (cxGetNumberOfDimensions(a) != 2 || cxGetM(a) != 1) {
            fail(o, "holds a list for node " + std::to_string(node + 1) + " that is not one row");
        }
        return values(
            a, [&] { fail(o, "holds a list of no numbers for node " + std::to_string(node + 1)); });
    }

    bool isCell(Position o) const { return cxGetClassID(array(o)) == cxCELL_CLASS; }

private:
    const Model& model_;
    std::string where_;
};

bool whole(double v, double lowest, double highest) {
    return v == std::floor(v) && v >= lowest && v <= highest;
}

// Level codes of a split or surrogate on `predictor` must be its levels.
void checkLevels(const OutputReader& r, Position o, const Model& model, std::uint64_t predictor,
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
    const std::vector<double> parent = r.numbers(Parent, n, 1);
    const std::vector<double> isBranch = r.numbers(IsBranch, n, 1);
    std::vector<std::uint64_t> parentOf(n, 0);  // 1-based, 0 for none yet
    for (std::uint64_t i = 0; i < n; ++i) {
        const double left = kids[2 * i], right = kids[2 * i + 1];
        const bool branch = left != 0 || right != 0;
        const std::string node = "node " + std::to_string(i + 1);
        const double first = double(i + 2), last = double(n);
        if (branch && (!whole(left, first, last) || !whole(right, first, last) || left == right)) {
            r.fail(Children, "gives " + node + " children that do not exist");
        }
        if ((isBranch[i] != 0) != branch) {
            r.fail(IsBranch, "and Children disagree on whether " + node + " is a branch");
        }
        if (!branch) continue;
        for (double child : {left, right}) {
            std::uint64_t& p = parentOf[static_cast<std::uint64_t>(child) - 1];
            if (p != 0) {
                r.fail(Children, "gives node " + formatNumber(child) + " two parents, nodes " +
                                     std::to_string(p) + " and " + std::to_string(i + 1));
            }
            p = i + 1;
        }
    }
    for (std::uint64_t i = 0; i < n; ++i) {
        if (i != 0 && parentOf[i] == 0) {
            r.fail(Children, "gives node " + std::to_string(i + 1) + " no parent");
        }
        if (parent[i] != static_cast<double>(parentOf[i])) {
            r.fail(Parent, "and Children disagree on the parent of node " + std::to_string(i + 1));
        }
    }
}

// Fills the nodes' surrogates from outputs 17 to 22; 0 by 0 cells mean none.
void readSurrogates(const OutputReader& r, const Model& model, TreeView& tree) {
    const std::uint64_t n = tree.nodes.size();
    const Position lists[] = {SurrogateLevels,     SurrogateDirections, SurrogateCutPoints,
                              SurrogatePredictors, SurrogateGains,      SurrogateAssociations};
    for (Position o : lists) {
        const cxArray* a = r.array(o);
        if (!r.isCell(o)) r.fail(o, "should be a cell");
        if (cxGetNumberOfElements(a) == 0) return;  // no surrogates were asked for
        if (cxGetM(a) != n || cxGetN(a) != 1) r.fail(o, "should be " + std::to_string(n) + " by 1");
    }
    const double D = static_cast<double>(model.predictors.size());
    for (std::uint64_t i = 0; i < n; ++i) {
        const auto list = [&](Position o) { return r.list(o, cxGetCell(r.array(o), i), i); };
        const std::vector<double> predictors = list(SurrogatePredictors);
        const std::vector<double> cuts = list(SurrogateCutPoints);
        const std::vector<double> directions = list(SurrogateDirections);
        const std::vector<double> associations = list(SurrogateAssociations);
        const std::vector<double> gains = list(SurrogateGains);
        const std::uint64_t s = predictors.size();
        if (cuts.size() != s || directions.size() != s || associations.size() != s ||
            gains.size() != s) {
            r.fail(SurrogatePredictors,
                   "and the other surrogate outputs list different numbers "
                   "of surrogates at node " +
                       std::to_string(i + 1));
        }
        const std::string node = "node " + std::to_string(i + 1);
        const cxArray* levels = cxGetCell(r.array(SurrogateLevels), i);
        const bool hasLevels = levels != nullptr && cxGetNumberOfElements(levels) != 0;
        if (hasLevels &&
            (cxGetClassID(levels) != cxCELL_CLASS || cxGetNumberOfElements(levels) != s)) {
            r.fail(SurrogateLevels, "should hold one entry per surrogate at " + node);
        }
        for (std::uint64_t k = 0; k < s; ++k) {
            if (!whole(predictors[k], 1, D)) {
                r.fail(SurrogatePredictors,
                       "names predictor " + formatNumber(predictors[k]) + " at " + node);
            }
            Surrogate g;
            g.predictor = static_cast<std::uint64_t>(predictors[k]) - 1;
            g.cut = cuts[k];
            g.direction = directions[k] < 0 ? -1 : 1;
            g.association = associations[k];
            g.gain = gains[k];
            const cxArray* pair = hasLevels ? cxGetCell(levels, k) : nullptr;
            if (pair != nullptr && cxGetClassID(pair) == cxCELL_CLASS) {
                if (cxGetNumberOfElements(pair) != 2) {
                    r.fail(SurrogateLevels, "should pair left and right levels at " + node);
                }
                g.left = r.list(SurrogateLevels, cxGetCell(pair, 0), i);
                g.right = r.list(SurrogateLevels, cxGetCell(pair, 1), i);
                checkLevels(r, SurrogateLevels, model, g.predictor, g.left, i);
                checkLevels(r, SurrogateLevels, model, g.predictor, g.right, i);
            }
            tree.nodes[i].surrogates.push_back(std::move(g));
        }
    }
}

}  // namespace

TreeView readTree(const Model& model, const std::string& where) {
    const OutputReader r(model, where);
    const cxArray* children = r.array(Children);
    const std::uint64_t n = cxGetN(children);
    if (n == 0) r.fail(Children, "holds no nodes");
    const std::vector<double> kids = r.numbers(Children, 2, n);
    checkShape(r, kids, n);
    const std::vector<double> cutVar = r.numbers(CutVar, n, 1);
    const std::vector<double> cut = r.numbers(CutPoint, n, 1);
    const std::vector<double> value = r.numbers(NodeValue, n, 1);
    const std::vector<double> prob = r.numbers(NodeProb, n, 1);
    const std::vector<double> size = r.numbers(NodeSize, n, 1);
    const std::vector<double> risk = r.numbers(NodeRisk, n, 1);
    const std::vector<double> gain = r.numbers(Gain, n, 1);
    const std::vector<double> unrouted = r.numbers(HasUnroutedRows, n, 1);
    const std::uint64_t K = model.classification ? model.classes.size() : 1;
    const std::vector<double> classProb = r.numbers(ClassProb, K, n);
    const cxArray* levels = r.array(SplitLevels);
    if (!r.isCell(SplitLevels) || cxGetM(levels) != n || cxGetN(levels) != 2) {
        r.fail(SplitLevels, "should be a cell of " + std::to_string(n) + " by 2");
    }

    TreeView tree;
    tree.singleCuts = cxGetClassID(r.array(CutPoint)) == cxSINGLE_CLASS;
    tree.singleWeights = cxGetClassID(r.array(ClassProb)) == cxSINGLE_CLASS;
    tree.nodes.resize(n);
    const double D = static_cast<double>(model.predictors.size());
    for (std::uint64_t i = 0; i < n; ++i) {
        TreeNode& node = tree.nodes[i];
        const std::string name = "node " + std::to_string(i + 1);
        const bool branch = kids[2 * i] != 0;
        node.left = branch ? static_cast<std::uint64_t>(kids[2 * i]) - 1 : 0;
        node.right = branch ? static_cast<std::uint64_t>(kids[2 * i + 1]) - 1 : 0;
        if (branch && !whole(cutVar[i], 1, D)) {
            r.fail(CutVar, "names no predictor for branch " + name);
        }
        node.split = whole(cutVar[i], 1, D) ? static_cast<std::int64_t>(cutVar[i]) - 1 : -1;
        node.cut = cut[i];
        node.leftLevels = r.list(SplitLevels, cxGetCell(levels, i), i);
        node.rightLevels = r.list(SplitLevels, cxGetCell(levels, n + i), i);
        if (branch) {
            // A numeric predictor splits at a cut, a nominal one by two
            // lists of its levels.
            const Predictor& p = model.predictors[static_cast<std::size_t>(node.split)];
            const bool nominal = p.kind == PredictorKind::Nominal;
            if (nominal != std::isnan(node.cut)) {
                const char* what = nominal ? " a cut on the nominal " : " no cut on the numeric ";
                r.fail(CutPoint, "gives branch " + name + what + p.name);
            }
            if (nominal && (node.leftLevels.empty() || node.rightLevels.empty())) {
                r.fail(SplitLevels, "sends no level of " + p.name + " to one side of " + name);
            }
            const auto j = static_cast<std::uint64_t>(node.split);
            checkLevels(r, SplitLevels, model, j, node.leftLevels, i);
            checkLevels(r, SplitLevels, model, j, node.rightLevels, i);
        }
        node.value = value[i];
        if (model.classification && !whole(value[i], 0, double(K) - 1)) {
            r.fail(NodeValue, "gives " + name + " a class that does not exist");
        }
        node.prob = prob[i];
        node.size = size[i];
        node.risk = risk[i];
        node.gain = gain[i];
        node.classProb.assign(classProb.begin() + i * K, classProb.begin() + (i + 1) * K);
        node.unrouted = unrouted[i] != 0;
        if (!model.costs.empty()) {
            node.value = leastCostClass(node.classProb, model.costs, tree.singleWeights);
        }
    }
    readSurrogates(r, model, tree);
    tree.steps.resize(n);
    for (std::uint64_t i = 0; i < n; ++i) {
        const TreeNode& node = tree.nodes[i];
        tree.steps[i] = {node.cut, node.branch() ? static_cast<std::uint64_t>(node.split) : 0,
                         node.left, node.right};
    }
    return tree;
}

}  // namespace arbolin::frontend
