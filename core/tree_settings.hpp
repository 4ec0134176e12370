// What every node of one tree reads and none changes: the data, the
// criteria and the caller's settings. The driver builds it once, the tree
// holds it, and each node points at it.
#pragma once

#include <cstdint>

#include "columns/response_source.hpp"
#include "core/types.hpp"
#include "criteria/classification_criterion.hpp"
#include "criteria/regression_criterion.hpp"
#include "gateway/numora.hpp"

namespace arbolin {

template <class X, class Y, class W>
struct TreeSettings : GrowthSettings {
    const X* x = nullptr;  // rowCount by predictorCount, column-major
    std::uint64_t rowCount = 0;
    std::uint64_t predictorCount = 0;
    const Y* y = nullptr;
    const W* w = nullptr;
    const bool* isCat = nullptr;
    std::uint64_t classNumber = 0;  // K; 1 in regression
    // Exactly one of the two is set.
    const ClassificationSplitCriterion<Y, W>* classificationCriterion = nullptr;
    const RegressionSplitCriterion<Y, W>* regressionCriterion = nullptr;
    // The caller's share of the root's risk; grow turns it into a risk.
    W RiskTolerance = 0;
    StreamHandle* stream = nullptr;
    // Keep each predictor's order of rows from the root down; without it,
    // every node sorts its own rows: the same tree, more slowly.
    bool keepOrder = true;
    // Where columns gather responses and weights from; null until the tree
    // is grown.
    const ResponseSource<Y, W>* responses = nullptr;
    // Keep the nodes of a layer apart in time; for tests that compare.
    bool nodesInParallel = true;

    bool allowsParallel() const {
        return classificationCriterion != nullptr ? classificationCriterion->allowsParallel()
                                                  : regressionCriterion->allowsParallel();
    }
};

}  // namespace arbolin
