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
    // over positions 0 to n-1.
    RegressionSplitCriterionEvaluator(std::size_t n, const Y* y, const W* w) : y_(y), w_(w) {
        for (std::size_t i = 0; i < n; ++i) {
            totalW_ += w[i];
        }
        for (std::size_t i = 0; i < n; ++i) {
            totalWY_ += w[i] * static_cast<W>(y[i]);
        }
        for (std::size_t i = 0; i < n; ++i) {
            const W v = static_cast<W>(y[i]);
            totalWYY_ += v * (w[i] * v);
        }
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
        for (std::size_t i = first; i < last; ++i) {
            belowW_ += w_[i];
        }
        for (std::size_t i = first; i < last; ++i) {
            belowWY_ += w_[i] * static_cast<W>(y_[i]);
        }
        for (std::size_t i = first; i < last; ++i) {
            const W v = static_cast<W>(y_[i]);
            belowWYY_ += v * (w_[i] * v);
        }
    }

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
    W totalW_ = 0;
    W totalWY_ = 0;
    W totalWYY_ = 0;
    const Y* y_;
    const W* w_;
    W belowW_ = 0;
    W belowWY_ = 0;
    W belowWYY_ = 0;
};

}  // namespace arbolin
