// Weighted sum of squared deviations from the weighted mean.
#pragma once

#include "criteria/regression_criterion.hpp"

namespace arbolin {

template <class Y, class W>
class MSE final : public RegressionSplitCriterion<Y, W> {
public:
    W parent(const Y* y, const W* w, const RowList& rows) const override {
        if (rows.empty()) {
            return W(0);
        }
        W total = 0;
        for (std::uint64_t r : rows) {
            total += w[r];
        }
        W weighted = 0;
        for (std::uint64_t r : rows) {
            weighted += static_cast<W>(y[r]) * w[r];
        }
        const W mean = weighted / total;
        W sum = 0;
        for (std::uint64_t r : rows) {
            const W d = static_cast<W>(y[r]) - mean;
            sum += d * (w[r] * d);
        }
        return sum;
    }
};

}  // namespace arbolin
