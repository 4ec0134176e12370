// Running sums that give the regression value of a split in constant time.
#pragma once

#include "core/types.hpp"
#include "criteria/regression_criterion.hpp"
#include "criteria/split_criterion_evaluator.hpp"

namespace arbolin {

template <class Y, class W>
class RegressionSplitCriterionEvaluator final : public SplitCriterionEvaluator<W> {
public:
    // The totals are summed over the rows in list order, one pass each. The
    // squares are raw sums, y (w y), whatever the cancellation in the
    // differences below.
    RegressionSplitCriterionEvaluator(const RowList& rows, const Y* y, const W* w) : y_(y), w_(w) {
        for (std::uint64_t r : rows) {
            totalW_ += w[r];
        }
        for (std::uint64_t r : rows) {
            totalWY_ += w[r] * static_cast<W>(y[r]);
        }
        for (std::uint64_t r : rows) {
            const W v = static_cast<W>(y[r]);
            totalWYY_ += v * (w[r] * v);
        }
    }

    // Over responses and weights already in the scan's order: the same sums
    // over positions 0 to n-1. Without `w`, every weight is `weight`.
    RegressionSplitCriterionEvaluator(std::size_t n, const Y* y, const W* w, W weight = 0)
        : y_(y), w_(w), weight_(weight) {
        addOrdered(0, n, totalW_, totalWY_, totalWYY_);
    }

    RegressionSplitCriterionEvaluator(const RegressionSplitCriterionEvaluator&) = delete;
    RegressionSplitCriterionEvaluator& operator=(const RegressionSplitCriterionEvaluator&) = delete;

    void advance(const std::uint64_t* first, const std::uint64_t* last) override {
        const std::size_t n = static_cast<std::size_t>(last - first);
        for (std::size_t i = 0; i < n; ++i) {
            prefetchAhead(w_, first, i, n);
            prefetchAhead(y_, first, i, n);
            belowW_ += w_[first[i]];
        }
        for (const std::uint64_t* r = first; r != last; ++r) {
            belowWY_ += w_[*r] * static_cast<W>(y_[*r]);
        }
        for (const std::uint64_t* r = first; r != last; ++r) {
            const W v = static_cast<W>(y_[*r]);
            belowWYY_ += v * (w_[*r] * v);
        }
    }

    void advanceOrdered(std::size_t first, std::size_t last) override {
        addOrdered(first, last, belowW_, belowWY_, belowWYY_);
    }

    // The sum of the weights, the first of the totals.
    W totalWeight() const { return totalW_; }

    void reset() override {
        belowW_ = 0;
        belowWY_ = 0;
        belowWYY_ = 0;
    }

    // Sum of squares about its own mean on each side:
    // (Qt - Qb - Sa (Sa / Wa)) + (Qb - (Sb / Wb) Sb).
    EvalResult evaluate(W* result) override {
        if (belowW_ <= W(0)) {
            return EvalResult::BelowEmpty;
        }
        const W aboveW = totalW_ - belowW_;
        if (aboveW <= W(0)) {
            return EvalResult::AboveEmpty;
        }
        const W aboveWY = totalWY_ - belowWY_;
        *result = (totalWYY_ - belowWYY_ - aboveWY * (aboveWY / aboveW)) +
                  (belowWYY_ - (belowWY_ / belowW_) * belowWY_);
        return EvalResult::Valid;
    }

private:
    // One pass for the three sums: each still adds in position order.
    void addOrdered(std::size_t first, std::size_t last, W& sumW, W& sumWY, W& sumWYY) const {
        W a = sumW;
        W b = sumWY;
        W c = sumWYY;
        if (w_ == nullptr) {
            const W w = weight_;
            for (std::size_t i = first; i < last; ++i) {
                const W v = static_cast<W>(y_[i]);
                a += w;
                b += w * v;
                c += v * (w * v);
            }
        } else {
            for (std::size_t i = first; i < last; ++i) {
                const W v = static_cast<W>(y_[i]);
                const W w = w_[i];
                a += w;
                b += w * v;
                c += v * (w * v);
            }
        }
        sumW = a;
        sumWY = b;
        sumWYY = c;
    }

    W totalW_ = 0;
    W totalWY_ = 0;
    W totalWYY_ = 0;
    const Y* y_;
    const W* w_;
    W weight_ = 0;
    W belowW_ = 0;
    W belowWY_ = 0;
    W belowWYY_ = 0;
};

}  // namespace arbolin
