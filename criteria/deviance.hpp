// Cross-entropy, scaled so that an even two-class set scores S / 2 like Gini.
#pragma once

#include <cmath>

#include "criteria/classification_criterion.hpp"

namespace arbolin {

template <class Y, class W>
class Deviance final : public ClassificationSplitCriterion<Y, W> {
public:
    // (-sum p(i) ln p(i) / (2 ln 2)) * S; absent classes contribute nothing,
    // so no logarithm of zero is taken.
    W parent(const ClassWeights<W>& v) const override {
        const W sum = sumInOrder(v);
        W d = 0;
        for (W x : v) {
            const W p = x / sum;
            // The logarithm is taken in double and narrowed for float weights.
            const W l = p > W(0) ? static_cast<W>(std::log(static_cast<double>(p))) : W(0);
            d += p * l;
        }
        const W twoLogTwo = static_cast<W>(1.3862943611198906);
        return (-d / twoLogTwo) * sum;
    }
};

}  // namespace arbolin
