// Gini's diversity index, weighted by the set's weight.
#pragma once

#include "criteria/classification_criterion.hpp"

namespace arbolin {

template <class Y, class W>
class Gini final : public ClassificationSplitCriterion<Y, W> {
public:
    // (1 - sum p(i)^2) * S with p(i) = v(i) / S. S = 0 gives NaN on purpose:
    // the search never passes a weightless set.
    W parent(const ClassWeights<W>& v) const override {
        const W sum = sumInOrder(v);
        W q = 0;
        for (W x : v) {
            const W p = x / sum;
            q += p * p;
        }
        return (W(1) - q) * sum;
    }
};

}  // namespace arbolin
