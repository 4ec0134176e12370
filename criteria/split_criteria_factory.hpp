// Makes the tree's one criterion from its keyword.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "criteria/average_cost_correction.hpp"
#include "criteria/classif_error.hpp"
#include "criteria/cost.hpp"
#include "criteria/custom_classification.hpp"
#include "criteria/deviance.hpp"
#include "criteria/gini.hpp"
#include "criteria/mse.hpp"
#include "criteria/twoing.hpp"
#include "gateway/messages.hpp"

namespace arbolin {

// The tree's criterion: exactly one of the two is set.
template <class Y, class W>
struct Criteria {
    std::unique_ptr<ClassificationSplitCriterion<Y, W>> classification;
    std::unique_ptr<RegressionSplitCriterion<Y, W>> regression;
};

template <class Y, class W>
struct SplitCriteriaFactory {
    using Classification = ClassificationSplitCriterion<Y, W>;
    using Regression = RegressionSplitCriterion<Y, W>;

    // Keywords compare whole and case-sensitively. A cost matrix wraps
    // every classification result but "error", which reads the matrix
    // itself.
    static Criteria<Y, W> make(const std::string& criterion, const CostMatrix<W>* costs,
                               const std::string& parentFunction, const std::string& kidsFunction) {
        std::unique_ptr<Classification> classification;
        std::unique_ptr<Regression> regression;
        if (criterion == "error") {
            if (costs != nullptr) {
                return {std::make_unique<Cost<Y, W>>(*costs), nullptr};
            }
            return {std::make_unique<ClassifError<Y, W>>(), nullptr};
        }
        if (criterion == "gini" || criterion == "gdi") {
            classification = std::make_unique<Gini<Y, W>>();
        } else if (criterion == "deviance") {
            classification = std::make_unique<Deviance<Y, W>>();
        } else if (criterion == "twoing") {
            classification = std::make_unique<Twoing<Y, W>>();
        } else if (criterion == "mse") {
            regression = std::make_unique<MSE<Y, W>>();
        } else if (criterion == "custom") {
            classification = std::make_unique<CustomClassificationSplitCriterion<Y, W>>(
                parentFunction, kidsFunction);
        } else {
            raise(tallix::silvan::learning::treeutils::SplitCriteriaFactory::make::BadCriterion());
        }
        if (costs != nullptr) {
            classification =
                std::make_unique<AverageCostCorrection<Y, W>>(std::move(classification), *costs);
        }
        return {std::move(classification), std::move(regression)};
    }
};

}  // namespace arbolin
