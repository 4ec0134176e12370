// The nominal scan of a regression tree: the levels stand in rising order of
// their mean response, and the cuts along that order are scanned.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>

#include "criteria/regression_evaluator.hpp"
#include "gateway/numora.hpp"
#include "nominal/level_tables.hpp"
#include "nominal/nominal_split.hpp"

namespace arbolin {

template <class X, class Y, class W>
class RegressionNominalSplitFinder {
public:
    // `present` is the column's rows with a value, sorted by value; x, y and
    // w are its data.
    RegressionNominalSplitFinder(const LevelTables<X, W>& levels, const RowList& present,
                                 const X* x, const Y* y, const W* w, std::uint64_t minLeaf,
                                 std::uint64_t verbosity)
        : x_(x),
          y_(y),
          w_(w),
          present_(&present),
          levelValues_(&levels.LevelValues),
          LevelSizes(levels.levelSizes()),
          sortedLevels_(&levels.SortedLevels),
          minLeaf_(minLeaf),
          verbosity_(verbosity) {}

    MethodOutcome<W> findRegressionSplit(NominalSplit& split) const;

    const X* x_;
    const Y* y_;
    const W* w_;
    const RowList* present_;
    const ScalableVector<ScalableVector<X>>* levelValues_;
    ScalableVector<std::uint64_t> LevelSizes;
    const ScalableVector<ScalableVector<std::uint64_t>>* sortedLevels_;
    std::uint64_t minLeaf_;
    std::uint64_t verbosity_;
};

template <class X, class Y, class W>
MethodOutcome<W> RegressionNominalSplitFinder<X, Y, W>::findRegressionSplit(
    NominalSplit& split) const {
    split.clear();
    const std::uint64_t L = LevelSizes.size();
    if (L == 0) {
        return {};
    }
    const RowList& present = *present_;
    const std::uint64_t N = sumInOrder(LevelSizes);
    const auto& list = (*sortedLevels_)[0];
    RegressionSplitCriterionEvaluator<Y, W> evaluator(present, y_, w_);
    W best = std::numeric_limits<W>::max();
    std::uint64_t bestPosition = L;
    std::uint64_t Nbelow = 0;
    RowList levelRows;
    for (std::uint64_t i = 0; i < L; ++i) {
        const std::uint64_t c = list[i];
        Nbelow += LevelSizes[c];
        if (Nbelow < minLeaf_) {
            continue;  // counted below, never moved into the sums
        }
        if (N - Nbelow < minLeaf_) {
            break;
        }
        // The rows of the level, in list order: one run, since a column's
        // rows are sorted by value before its levels are built.
        const X value = (*levelValues_)[c][0];
        const auto first = std::partition_point(present.begin(), present.end(),
                                                [&](std::uint64_t r) { return x_[r] < value; });
        const auto last = std::partition_point(first, present.end(),
                                               [&](std::uint64_t r) { return !(value < x_[r]); });
        levelRows.assign(first, last);
        evaluator.advance(levelRows.data(), levelRows.data() + levelRows.size());
        W crit;
        const EvalResult result = evaluator.evaluate(&crit);
        if (result == EvalResult::BelowEmpty) {
            continue;
        }
        if (result == EvalResult::AboveEmpty) {
            break;
        }
        if (best > crit) {
            best = crit;
            bestPosition = i;
        }
    }
    if (bestPosition < L) {
        split.Left.assign(list.begin(), list.begin() + bestPosition + 1);
        split.Right.assign(list.begin() + bestPosition + 1, list.end());
    }
    if (!split.found()) {
        return {};
    }
    return {true, best};
}

}  // namespace arbolin
