// The twoing rule: all its value lies in the separation of the two children.
#pragma once

#include <cmath>

#include "criteria/classification_criterion.hpp"

namespace arbolin {

template <class Y, class W>
class Twoing final : public ClassificationSplitCriterion<Y, W> {
public:
    W parent(const ClassWeights<W>&) const override { return W(0); }

    // -(L R / 4) (sum_i |a(i)/L - b(i)/R|)^2: at most zero, lower for a
    // better separation. The length of the left vector rules.
    W kids(const ClassWeights<W>& a, const ClassWeights<W>& b) const override {
        const W left = sumInOrder(a);
        const W right = sumInOrder(b);
        W spread = 0;
        for (std::size_t i = 0; i < a.size(); ++i) {
            spread += std::abs(a[i] / left - b[i] / right);
        }
        return ((right * (-left)) * (spread * spread)) * W(0.25);
    }

    bool usesParent() const override { return false; }
};

}  // namespace arbolin
