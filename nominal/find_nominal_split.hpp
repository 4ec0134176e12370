// Choosing and running the partition searches of a nominal column, and
// writing the best partition back as two sorted lists of raw values.
#pragma once

#include <algorithm>

#include "gateway/messages.hpp"
#include "nominal/build_levels.hpp"
#include "nominal/exact.hpp"
#include "nominal/ova_by_class.hpp"
#include "nominal/pca.hpp"
#include "nominal/pull_left.hpp"
#include "nominal/regression_finder.hpp"

namespace arbolin {

namespace nominal_detail {

inline const char* const kMethodNames[] = {"Exact", "PullLeft", "PCA", "OVAbyClass"};

// The methods to run, in running order, by classes, AlgCat, MaxCat and levels.
inline ScalableVector<std::uint64_t> chooseMethods(std::uint64_t K, std::uint64_t algCat,
                                                   std::uint64_t maxCat, std::uint64_t L) {
    enum : std::uint64_t { Exact, PullLeft, PCA, OVAbyClass };
    if (K <= 2) {
        return {PullLeft};
    }
    switch (algCat) {
        case 0:
            if (L <= maxCat) return {Exact};
            if (K <= 4) return {PCA, OVAbyClass};
            return {PullLeft, PCA};
        case 1: return {Exact};
        case 2: return {PullLeft};
        case 3: return {PCA};
        case 4: return {OVAbyClass};
        default:
            raise(tallix::silvan::learning::treeutils::IndexedColumn::findNominalSplitWithBestGain::
                      BadAlgCat());
    }
}

}  // namespace nominal_detail

template <class X, class Y, class W>
W IndexedColumn<X, Y, W>::findNominalSplitWithBestGain(const ClassWeights<W>& Ptot) {
    struct Result {
        W crit;
        NominalSplit split;
        const char* method;
    };
    ScalableVector<Result> results;
    NominalSplit split;
    if (classCriterion_ == nullptr) {
        const RegressionNominalSplitFinder<X, Y, W> finder(levels, *present_, x_, y_, w_, minLeaf_,
                                                           verbosity_);
        const MethodOutcome<W> outcome = finder.findRegressionSplit(split);
        if (outcome.found) {
            results.push_back({outcome.crit, split, "Regression"});
        }
    } else {
        const auto methods =
            nominal_detail::chooseMethods(classCount_, algCat_, maxCat_, levels.LevelValues.size());
        const ClassificationNominalSplitFinder<X, Y, W> finder(levels, classCriterion_, Ptot,
                                                               minLeaf_, verbosity_);
        for (std::uint64_t method : methods) {
            const MethodOutcome<W> outcome = finder.runMethod(split, method);
            if (outcome.found) {
                results.push_back({outcome.crit, split, nominal_detail::kMethodNames[method]});
            }
        }
    }
    if (results.empty()) {
        return std::numeric_limits<W>::max();
    }
    // Of equal Crit the earlier method stands.
    const Result* best = &results.front();
    for (const Result& result : results) {
        if (best->crit > result.crit) {
            best = &result;
        }
    }
    if (verbosity_ > 1) {
        calyxPrintf("     Found nominal split with %i and %i levels by method %s.\n",
                    std::uint64_t{best->split.Left.size()}, std::uint64_t{best->split.Right.size()},
                    best->method);
    }
    auto& left = bestSplit.leftLevels;
    auto& right = bestSplit.rightLevels;
    left.clear();
    right.clear();
    const auto& values = levels.LevelValues;
    for (std::uint64_t level : best->split.Left) {
        left.insert(left.end(), values[level].begin(), values[level].end());
    }
    for (std::uint64_t level : best->split.Right) {
        right.insert(right.end(), values[level].begin(), values[level].end());
    }
    std::sort(left.begin(), left.end());
    std::sort(right.begin(), right.end());
    // Sides that do not interleave go out with the lower values left.
    if (!left.empty() && !right.empty() && left.front() > right.back()) {
        left.swap(right);
    }
    return best->crit;
}

}  // namespace arbolin
