// Cost-complexity pruning of a grown tree: the risk of its nodes, the
// weakest-link sequence of subtrees, a subtree as a model of its own, and
// the choice of a size by cross-validation (cross_validation.cpp).
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "frontend/model.hpp"
#include "frontend/options.hpp"

namespace arbolin::frontend {

// Each node's risk if it were a leaf, in units where the training weights
// sum to 1. Classification: the node's weight times the misclassification
// cost of predicting its class: NodeProb (1 - the largest class share)
// without costs, the least expected cost with them. Regression: NodeRisk,
// the weighted squared error about the node's mean. A node of no weight
// has no risk.
std::vector<double> leafRisks(const Model& model, const TreeView& tree);

// The risk of the rows that stopped at a branch because no surrogate sent
// them on: they keep the branch's prediction. Worked out from the outputs
// as the branch's rows less its children's; 0 where no row stopped.
std::vector<double> strandedRisks(const Model& model, const TreeView& tree,
                                  const std::vector<double>& leafRisk);

// The weakest-link sequence. Step 0 (alpha 0) cuts every branch whose
// split does not lower the risk; each later step cuts every branch whose
// (risk as a leaf - risk of its subtree) / (leaves of its subtree - 1) is
// the least, ties together, and that least value is the step's alpha. The
// last step is the root alone.
struct PruningSequence {
    std::vector<PruningStep> steps;
    // For each node, the first step in which it is a leaf or gone; the
    // number of steps for nodes that stay (the leaves of the grown tree
    // stay leaves, and the root stays).
    std::vector<std::uint64_t> cutAt;

    // The branches of the grown tree that are leaves in step k.
    std::vector<bool> cut(std::uint64_t step) const;
};
PruningSequence pruningSequence(const Model& model, const TreeView& tree);

// The step whose subtree is the best for `alpha`: the last whose alpha is
// at most it.
std::uint64_t stepForAlpha(const std::vector<PruningStep>& steps, double alpha);
// The largest subtree with at most `leaves` leaves (the root when none).
std::uint64_t stepForLeaves(const std::vector<PruningStep>& steps, std::uint64_t leaves);

// The model of the subtree in which the branches marked in `cut` are
// leaves: their descendants gone, the others renumbered in order, and each
// cut branch made a leaf as the module makes a withdrawn split (no cut
// point, levels, predictor, gain or surrogates). Statistics stay as grown.
Model subtreeModel(const Model& model, const TreeView& tree, const std::vector<bool>& cut);

// The sequence of a model: the one it keeps, or that of its tree.
PruningRecord pruningRecord(const Model& model, const TreeView& tree);

// A model pruned to step `step` of its record (a later step than the one
// its tree is, or the same).
Model pruneToStep(const Model& model, const TreeView& tree, std::uint64_t step);

// ------------------------------------------ cross-validation (cross_validation.cpp)

// Each row's fold, 0 to folds - 1: rows shuffled by `seed` and dealt out in
// turn, class after class in classification so that each fold has its
// share of every class.
std::vector<std::uint64_t> assignFolds(const TrainingData& data, std::uint64_t folds,
                                       std::uint64_t seed);

// Folds done so far and in all, called from the calling thread.
using FoldProgress = std::function<void(std::uint64_t done, std::uint64_t total)>;

// Fills cvRisk and cvError of each step: the tree is grown again on all
// folds but one with the same settings, the held-out rows go down the
// fold tree's subtree for the step's alpha (the geometric mean of the
// step's alpha and the next one's), and their weighted losses add up over
// the folds. The standard error is sqrt((sum w l^2 - risk^2) / rows).
// Folds run on up to `threads` threads (0: as many as the machine has),
// in the order of the folds when the tree draws predictors from the host's
// own stream, so that the answer never depends on the threads.
void crossValidate(const numora::Module& module, const TrainingData& data,
                   const Settings& settings, const std::vector<double>& costs,
                   std::vector<PruningStep>& steps, const std::vector<std::uint64_t>& fold,
                   unsigned threads, const FoldProgress& progress);

// The step that cross-validation chooses: the least cvRisk (the smaller
// tree on a tie), or with `oneStandardError` the smallest tree whose
// cvRisk is within one standard error of that least one.
std::uint64_t chooseStep(const std::vector<PruningStep>& steps, bool oneStandardError);

// Prunes a tree just grown as its settings say: to the subtree for
// `alpha`, or by cross-validation with `prune` cv, `folds` and `rule`
// (folds dealt by `seed`, or by 1 without one). Does nothing otherwise.
void pruneGrown(Grown& grown, const numora::Module& module, const TrainingData& data,
                const Settings& settings, unsigned threads, const FoldProgress& progress);

}  // namespace arbolin::frontend
