// Expected cost of the cheapest assignment of the whole set.
#pragma once

#include "criteria/classification_criterion.hpp"
#include "criteria/cost_matrix.hpp"

namespace arbolin {

template <class Y, class W>
class Cost final : public ClassificationSplitCriterion<Y, W> {
public:
    explicit Cost(const CostMatrix<W>& costs) : costs_(costs) {}

    // min over k of e(k) = sum_i v(i) C(i, k): each class weight pairs with a
    // row of the matrix, each candidate assignment with a column.
    W parent(const ClassWeights<W>& v) const override {
        W best = 0;
        for (std::uint64_t k = 0; k < costs_.rows; ++k) {
            W e = 0;
            for (std::size_t i = 0; i < v.size(); ++i) {
                e += v[i] * costs_(i, k);
            }
            if (k == 0 || e < best) {
                best = e;
            }
        }
        return best;
    }

private:
    CostMatrix<W> costs_;
};

}  // namespace arbolin
