// Misclassified weight under the majority class.
#pragma once

#include "criteria/classification_criterion.hpp"

namespace arbolin {

template <class Y, class W>
class ClassifError final : public ClassificationSplitCriterion<Y, W> {
public:
    // S - max(v): the weight that the majority class gets wrong.
    W parent(const ClassWeights<W>& v) const override {
        if (v.empty()) {
            return W(0);
        }
        const W sum = sumInOrder(v);
        W largest = v[0];
        for (std::size_t i = 1; i < v.size(); ++i) {
            if (v[i] > largest) {
                largest = v[i];
            }
        }
        return sum - largest;
    }
};

}  // namespace arbolin
