// Reweights each class by the average cost of misclassifying it, and
// otherwise behaves as the criterion it wraps.
#pragma once

#include <limits>
#include <memory>

#include "criteria/classification_criterion.hpp"
#include "criteria/cost_matrix.hpp"

namespace arbolin {

template <class Y, class W>
class AverageCostCorrection final : public ClassificationSplitCriterion<Y, W> {
public:
    // f(i) = n * rowsum(i) / sum of all costs, so the factors average one.
    // A matrix of zeros gives NaN factors; such input is refused upstream.
    AverageCostCorrection(std::unique_ptr<ClassificationSplitCriterion<Y, W>> inner,
                          const CostMatrix<W>& costs)
        : inner_(std::move(inner)), factors_(costs.rows, W(0)) {
        for (std::uint64_t i = 0; i < costs.rows; ++i) {
            W rowSum = 0;
            for (std::uint64_t j = 0; j < costs.cols; ++j) {
                rowSum += costs(i, j);
            }
            factors_[i] = rowSum;
        }
        const W total = sumInOrder(factors_);
        for (W& f : factors_) {
            f /= total;
        }
        for (W& f : factors_) {
            f *= static_cast<W>(costs.rows);
        }
    }

    // o(i) = v(i) f(i). The caller sizes the output; it may be the input.
    bool corrects() const override { return true; }
    void correct(const ClassWeights<W>& in, ClassWeights<W>& out) const override {
        for (std::size_t i = 0; i < in.size(); ++i) {
            out[i] = in[i] * factors_[i];
        }
    }

    // With "mse" the wrapper has nothing inside and must never be asked;
    // should it be, it answers NaN rather than crash.
    W parent(const ClassWeights<W>& v) const override {
        return inner_ ? inner_->parent(v) : std::numeric_limits<W>::quiet_NaN();
    }
    W kids(const ClassWeights<W>& left, const ClassWeights<W>& right) const override {
        return inner_ ? inner_->kids(left, right) : std::numeric_limits<W>::quiet_NaN();
    }
    bool usesParent() const override { return inner_ ? inner_->usesParent() : true; }
    // Not forwarded: a wrapped custom criterion reports true.
    bool allowsParallel() const override { return true; }

    const ScalableVector<W>& factors() const { return factors_; }

private:
    std::unique_ptr<ClassificationSplitCriterion<Y, W>> inner_;
    ScalableVector<W> factors_;
};

}  // namespace arbolin
