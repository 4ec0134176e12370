// The partition searches of a nominal predictor in a classification tree.
#pragma once

#include <cstdint>
#include <limits>

#include "criteria/classification_criterion.hpp"
#include "gateway/numora.hpp"
#include "nominal/level_tables.hpp"
#include "nominal/nominal_split.hpp"

namespace arbolin {

template <class X, class Y, class W>
class ClassificationNominalSplitFinder {
public:
    enum Method : std::uint64_t { Exact = 0, PullLeft = 1, PCA = 2, OVAbyClass = 3 };

    // `Ptot` is the node's class weights on the rows with a value.
    ClassificationNominalSplitFinder(const LevelTables<X, W>& levels,
                                     const ClassificationSplitCriterion<Y, W>* criterion,
                                     const ClassWeights<W>& Ptot, std::uint64_t minLeaf,
                                     std::uint64_t verbosity)
        : LevelSizes(levels.levelSizes()),
          ParentWeights(Ptot.size(), W(0)),
          levelWeights_(&levels.LevelWeights),
          sortedLevels_(&levels.SortedLevels),
          criterion_(criterion),
          minLeaf_(minLeaf),
          verbosity_(verbosity) {
        criterion_->correct(Ptot, ParentWeights);
    }

    // Empties the split, runs the method, and reports a split only when both
    // sides have levels.
    MethodOutcome<W> runMethod(NominalSplit& split, std::uint64_t method) const {
        split.clear();
        W crit;
        switch (method) {
            case Exact: crit = exact(split); break;
            case PullLeft: crit = pullLeft(split); break;
            case PCA: crit = pca(split); break;
            case OVAbyClass: crit = ovaByClass(split); break;
            default: return {};
        }
        if (!split.found()) {
            return {};
        }
        return {true, crit};
    }

    W exact(NominalSplit& split) const;
    W pullLeft(NominalSplit& split) const;
    W pca(NominalSplit& split) const;
    W ovaByClass(NominalSplit& split) const;

    ScalableVector<std::uint64_t> LevelSizes;
    ClassWeights<W> ParentWeights;  // corrected

private:
    static constexpr W worst() { return std::numeric_limits<W>::max(); }
    std::uint64_t rowTotal() const { return sumInOrder(LevelSizes); }
    std::uint64_t classCount() const { return (*levelWeights_)[0].size(); }

    const ScalableVector<ScalableVector<W>>* levelWeights_;
    const ScalableVector<ScalableVector<std::uint64_t>>* sortedLevels_;
    const ClassificationSplitCriterion<Y, W>* criterion_;
    std::uint64_t minLeaf_;
    std::uint64_t verbosity_;
};

}  // namespace arbolin
