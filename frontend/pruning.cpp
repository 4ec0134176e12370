#include "frontend/pruning.hpp"

#include <algorithm>
#include <cstring>
#include <limits>

#include "gateway/contract.hpp"

namespace arbolin::frontend {

namespace {

using namespace contract::output;

// Ties and "no gain" are judged to this share of the root's risk: the risk
// of a branch and of its subtree are sums of the same weights taken in a
// different order, and equal in exact arithmetic more often than not.
constexpr double kTieShare = 1e-12;

// The cost of predicting class `predicted` for class `truth`.
double costOf(const Model& model, std::uint64_t truth, std::uint64_t predicted) {
    if (model.costs.empty()) return truth == predicted ? 0.0 : 1.0;
    return model.costs[truth + predicted * model.classes.size()];
}

// The node's class weights (share times weight), 0 for a node of none.
std::vector<double> classWeights(const TreeNode& node) {
    std::vector<double> w(node.classProb.size(), 0.0);
    if (!(node.prob > 0)) return w;
    for (std::size_t k = 0; k < w.size(); ++k) w[k] = node.prob * node.classProb[k];
    return w;
}

}  // namespace

std::vector<double> leafRisks(const Model& model, const TreeView& tree) {
    std::vector<double> risk(tree.nodes.size(), 0.0);
    for (std::size_t i = 0; i < tree.nodes.size(); ++i) {
        const TreeNode& node = tree.nodes[i];
        if (!(node.prob > 0)) continue;
        if (!model.classification) {
            risk[i] = node.risk;
        } else if (model.costs.empty()) {
            const double most = *std::max_element(node.classProb.begin(), node.classProb.end());
            risk[i] = node.prob * (1 - most);
        } else {
            const std::uint64_t K = model.classes.size();
            double least = std::numeric_limits<double>::infinity();
            for (std::uint64_t j = 0; j < K; ++j) {
                double expected = 0;
                for (std::uint64_t k = 0; k < K; ++k) expected += node.classProb[k] * costOf(model, k, j);
                least = std::min(least, expected);
            }
            risk[i] = node.prob * least;
        }
    }
    return risk;
}

std::vector<double> strandedRisks(const Model& model, const TreeView& tree,
                                  const std::vector<double>& leafRisk) {
    std::vector<double> risk(tree.nodes.size(), 0.0);
    for (std::size_t i = 0; i < tree.nodes.size(); ++i) {
        const TreeNode& node = tree.nodes[i];
        if (!node.branch() || !node.unrouted || !(node.prob > 0)) continue;
        const TreeNode& left = tree.nodes[node.left];
        const TreeNode& right = tree.nodes[node.right];
        double r = 0;
        if (model.classification) {
            // The stranded rows' class weights, charged at the branch's class.
            const std::vector<double> all = classWeights(node);
            const std::vector<double> l = classWeights(left);
            const std::vector<double> rr = classWeights(right);
            const auto predicted = static_cast<std::uint64_t>(node.value);
            for (std::size_t k = 0; k < all.size(); ++k) {
                r += (all[k] - l[k] - rr[k]) * costOf(model, k, predicted);
            }
        } else {
            // Squared error about the branch's mean: its own, less each
            // child's about its mean and the shift of that mean.
            const auto about = [&](const TreeNode& child, double childRisk) {
                if (!(child.prob > 0)) return 0.0;
                const double shift = child.value - node.value;
                return childRisk + child.prob * shift * shift;
            };
            r = leafRisk[i] - about(left, leafRisk[node.left]) - about(right, leafRisk[node.right]);
        }
        risk[i] = std::max(r, 0.0);
    }
    return risk;
}

std::vector<bool> PruningSequence::cut(std::uint64_t step) const {
    std::vector<bool> out(cutAt.size());
    for (std::size_t i = 0; i < cutAt.size(); ++i) out[i] = cutAt[i] <= step;
    return out;
}

PruningSequence pruningSequence(const Model& model, const TreeView& tree) {
    const std::uint64_t n = tree.nodes.size();
    const std::vector<double> leaf = leafRisks(model, tree);
    const std::vector<double> stranded = strandedRisks(model, tree, leaf);
    const double tie = kTieShare * std::abs(leaf[0]);
    constexpr std::uint64_t kStays = std::numeric_limits<std::uint64_t>::max();

    PruningSequence seq;
    seq.cutAt.assign(n, kStays);
    std::vector<bool> isLeaf(n);
    for (std::uint64_t i = 0; i < n; ++i) isLeaf[i] = !tree.nodes[i].branch();
    std::vector<double> subRisk(n);
    std::vector<std::uint64_t> subLeaves(n);
    // Children come after their parent: one backward pass sees them first.
    const auto measure = [&](std::uint64_t i) {
        const TreeNode& node = tree.nodes[i];
        if (isLeaf[i]) {
            subRisk[i] = leaf[i];
            subLeaves[i] = 1;
        } else {
            subRisk[i] = subRisk[node.left] + subRisk[node.right] + stranded[i];
            subLeaves[i] = subLeaves[node.left] + subLeaves[node.right];
        }
    };
    const auto record = [&](double alpha) {
        seq.steps.push_back({alpha, subLeaves[0], subRisk[0]});
    };

    for (std::uint64_t i = n; i-- > 0;) {
        measure(i);
        if (!isLeaf[i] && leaf[i] - subRisk[i] <= tie) {
            isLeaf[i] = true;
            seq.cutAt[i] = 0;
            measure(i);
        }
    }
    record(0);

    // The branches still in the subtree, and each node's parent: a cut
    // changes the subtrees of its ancestors only.
    std::vector<std::uint64_t> parent(n, 0), branches;
    std::vector<bool> gone(n, false);
    for (std::uint64_t i = 0; i < n; ++i) {
        const TreeNode& node = tree.nodes[i];
        if (!node.branch()) continue;
        parent[node.left] = parent[node.right] = i;
        gone[node.left] = gone[node.right] = gone[i] || isLeaf[i];
        if (!gone[i] && !isLeaf[i]) branches.push_back(i);
    }
    std::vector<double> g(n);
    std::vector<std::uint64_t> cuts, below;
    while (!isLeaf[0]) {
        const std::uint64_t step = seq.steps.size();
        double least = std::numeric_limits<double>::infinity();
        for (std::uint64_t i : branches) {
            g[i] = (leaf[i] - subRisk[i]) / static_cast<double>(subLeaves[i] - 1);
            least = std::min(least, g[i]);
        }
        cuts.clear();
        for (std::uint64_t i : branches) {
            if (g[i] <= least + tie) cuts.push_back(i);
        }
        for (std::uint64_t c : cuts) {
            isLeaf[c] = true;
            seq.cutAt[c] = step;
            // What hangs below a cut is gone.
            below.assign({tree.nodes[c].left, tree.nodes[c].right});
            while (!below.empty()) {
                const std::uint64_t i = below.back();
                below.pop_back();
                if (gone[i]) continue;
                gone[i] = true;
                if (tree.nodes[i].branch() && !isLeaf[i]) {
                    below.push_back(tree.nodes[i].left);
                    below.push_back(tree.nodes[i].right);
                }
            }
        }
        for (std::uint64_t c : cuts) {
            if (gone[c]) continue;
            for (std::uint64_t a = c;; a = parent[a]) {
                measure(a);
                if (a == 0) break;
            }
        }
        std::erase_if(branches, [&](std::uint64_t i) { return isLeaf[i] || gone[i]; });
        record(least);
    }

    // A node inside a subtree cut earlier is gone from that step on; the
    // rest stay to the end.
    for (std::uint64_t i = 0; i < n; ++i) {
        const TreeNode& node = tree.nodes[i];
        if (!node.branch()) continue;
        for (std::uint64_t child : {node.left, node.right}) {
            seq.cutAt[child] = std::min(seq.cutAt[child], seq.cutAt[i]);
        }
    }
    for (std::uint64_t i = 0; i < n; ++i) {
        if (seq.cutAt[i] == kStays) seq.cutAt[i] = seq.steps.size();
    }
    return seq;
}

std::uint64_t stepForAlpha(const std::vector<PruningStep>& steps, double alpha) {
    // An alpha read back from printed text may fall a hair short of its step.
    std::uint64_t k = 0;
    while (k + 1 < steps.size() && steps[k + 1].alpha <= alpha * (1 + 1e-9)) ++k;
    return k;
}

std::uint64_t stepForLeaves(const std::vector<PruningStep>& steps, std::uint64_t leaves) {
    for (std::uint64_t k = 0; k < steps.size(); ++k) {
        if (steps[k].leaves <= leaves) return k;
    }
    return steps.size() - 1;
}

// ------------------------------------------------------------ subtrees

namespace {

// What a cut branch's element of a per-node cell becomes.
enum class Blank { Keep, Unset, Empty };

void setNumber(cxArray* a, std::uint64_t index, double value) {
    switch (cxGetClassID(a)) {
        case cxDOUBLE_CLASS: static_cast<double*>(cxGetData(a))[index] = value; break;
        case cxSINGLE_CLASS: static_cast<float*>(cxGetData(a))[index] = static_cast<float>(value); break;
        case cxLOGICAL_CLASS: cxGetLogicals(a)[index] = value != 0; break;
        default: throw UserError("an output of an unexpected class");
    }
}

std::size_t elementBytes(cxClassID cls) {
    switch (cls) {
        case cxDOUBLE_CLASS: return sizeof(double);
        case cxSINGLE_CLASS: return sizeof(float);
        case cxLOGICAL_CLASS: return sizeof(bool);
        default: throw UserError("an output of an unexpected class");
    }
}

// The kept nodes' part of a per-node output: the columns of an m by n
// array, the rows of an n by 1 array or of a per-node cell (n by 1 or n by
// 2); an empty cell (an output not asked for) stays empty.
numora::ArrayPtr pickNodes(const cxArray* a, const std::vector<std::uint64_t>& keep,
                           std::uint64_t n, const std::vector<bool>& cut, Blank blank) {
    const cxClassID cls = cxGetClassID(a);
    const std::uint64_t m = cxGetM(a), cols = cxGetN(a), kept = keep.size();
    if (cls == cxCELL_CLASS) {
        if (cxGetNumberOfElements(a) == 0) return numora::cxDuplicateArray(a);
        numora::ArrayPtr out(cxCreateCellMatrix(kept, cols));
        for (std::uint64_t c = 0; c < cols; ++c) {
            for (std::uint64_t r = 0; r < kept; ++r) {
                const cxArray* e = cxGetCell(a, keep[r] + c * m);
                if (e == nullptr) continue;
                cxArray* copy = nullptr;
                if (!cut[keep[r]] || blank == Blank::Keep) {
                    copy = numora::cxDuplicateArray(e).release();
                } else if (blank == Blank::Empty) {
                    copy = cxGetClassID(e) == cxCELL_CLASS
                               ? cxCreateCellMatrix(0, 0)
                               : cxCreateNumericMatrix(0, 0, cxGetClassID(e), cxREAL);
                }
                if (copy != nullptr) cxSetCell(out.get(), r + c * kept, copy);
            }
        }
        return out;
    }
    const std::size_t bytes = elementBytes(cls);
    const bool byRows = cols == 1 && m == n;
    const std::uint64_t outM = byRows ? kept : m, outN = byRows ? 1 : kept;
    numora::ArrayPtr out(cls == cxLOGICAL_CLASS ? cxCreateLogicalMatrix(outM, outN)
                                                : cxCreateNumericMatrix(outM, outN, cls, cxREAL));
    const auto* from = static_cast<const char*>(cxGetData(a));
    auto* to = static_cast<char*>(cxGetData(out.get()));
    const std::uint64_t run = byRows ? 1 : m;  // elements a node
    for (std::uint64_t r = 0; r < kept; ++r) {
        std::memcpy(to + r * run * bytes, from + keep[r] * run * bytes, run * bytes);
    }
    return out;
}

}  // namespace

Model subtreeModel(const Model& model, const TreeView& tree, const std::vector<bool>& cut) {
    const std::uint64_t n = tree.nodes.size();
    // A node stays when its parent stays and is not cut.
    std::vector<bool> stays(n, false);
    stays[0] = true;
    for (std::uint64_t i = 0; i < n; ++i) {
        const TreeNode& node = tree.nodes[i];
        if (stays[i] && node.branch() && !cut[i]) stays[node.left] = stays[node.right] = true;
    }
    std::vector<std::uint64_t> keep, renumbered(n, 0);
    for (std::uint64_t i = 0; i < n; ++i) {
        if (!stays[i]) continue;
        renumbered[i] = keep.size();
        keep.push_back(i);
    }
    std::vector<bool> made(n);  // the cut branches that stay, now leaves
    for (std::uint64_t i = 0; i < n; ++i) made[i] = stays[i] && tree.nodes[i].branch() && cut[i];

    Model out;
    out.predictors = model.predictors;
    out.response = model.response;
    out.classification = model.classification;
    out.classes = model.classes;
    out.costs = model.costs;
    out.weights = model.weights;
    out.single = model.single;
    out.options = model.options;
    out.training = model.training;
    out.missing = model.missing;
    out.pruning = model.pruning;
    for (const contract::Argument& a : contract::kOutputs) {
        const Position o = static_cast<Position>(a.position);
        const Blank blank = o == SplitLevels                          ? Blank::Unset
                            : o >= SurrogateLevels                    ? Blank::Empty
                                                                      : Blank::Keep;
        out.outputs.push_back(
            pickNodes(model.outputs[contract::slot(o)].get(), keep, n, made, blank));
    }
    const auto output = [&](Position o) { return out.outputs[contract::slot(o)].get(); };
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (std::uint64_t r = 0; r < keep.size(); ++r) {
        const TreeNode& node = tree.nodes[keep[r]];
        if (r != 0) {
            const std::uint64_t parentAt = static_cast<std::uint64_t>(
                static_cast<const double*>(cxGetData(output(Parent)))[r]);
            setNumber(output(Parent), r, static_cast<double>(renumbered[parentAt - 1] + 1));
        }
        const bool branch = node.branch() && !made[keep[r]];
        setNumber(output(Children), 2 * r, branch ? double(renumbered[node.left] + 1) : 0.0);
        setNumber(output(Children), 2 * r + 1, branch ? double(renumbered[node.right] + 1) : 0.0);
        if (!made[keep[r]]) continue;
        // As the module leaves a split it withdraws.
        setNumber(output(CutPoint), r, nan);
        setNumber(output(CutVar), r, 0);
        setNumber(output(IsBranch), r, 0);
        setNumber(output(Gain), r, 0);
    }
    return out;
}

PruningRecord pruningRecord(const Model& model, const TreeView& tree) {
    if (model.pruning) return *model.pruning;
    PruningRecord record;
    record.steps = pruningSequence(model, tree).steps;
    return record;
}

Model pruneToStep(const Model& model, const TreeView& tree, std::uint64_t step) {
    PruningRecord record = pruningRecord(model, tree);
    const PruningSequence own = pruningSequence(model, tree);
    // A pruned tree's own sequence is the rest of the sequence it came from.
    if (own.steps.size() + record.chosen != record.steps.size()) {
        record = PruningRecord{own.steps, 0, 0, ""};
    }
    step = std::clamp<std::uint64_t>(step, record.chosen, record.steps.size() - 1);
    Model pruned = subtreeModel(model, tree, own.cut(step - record.chosen));
    record.chosen = step;
    pruned.pruning = std::move(record);
    return pruned;
}

void pruneGrown(Grown& grown, const numora::Module& module, const TrainingData& data,
                const Settings& settings, unsigned threads, const FoldProgress& progress) {
    const bool cv = settings.text("prune") == "cv";
    if (!cv && !settings.has("alpha")) return;
    if (cv && settings.has("alpha")) {
        failOption("alpha", "prunes to a given alpha, which --prune cv chooses instead");
    }
    const PruningSequence seq = pruningSequence(grown.model, grown.tree);
    PruningRecord record{seq.steps, 0, 0, ""};
    if (cv) {
        const auto folds = static_cast<std::uint64_t>(settings.number("folds"));
        if (folds > data.rows) {
            failOption("folds", std::to_string(folds) + " folds need as many rows; there are " +
                                    std::to_string(data.rows));
        }
        const std::uint64_t seed =
            settings.has("seed") ? static_cast<std::uint64_t>(settings.number("seed")) : 1;
        crossValidate(module, data, settings, grown.model.costs, record.steps,
                      assignFolds(data, folds, seed), threads, progress);
        record.folds = folds;
        record.rule = settings.text("rule");
        record.chosen = chooseStep(record.steps, record.rule == "1se");
    } else {
        record.chosen = stepForAlpha(record.steps, settings.number("alpha"));
    }
    Model pruned = subtreeModel(grown.model, grown.tree, seq.cut(record.chosen));
    pruned.pruning = std::move(record);
    grown.tree = readTree(pruned, "the pruned tree");
    grown.model = std::move(pruned);
}

}  // namespace arbolin::frontend
