// Carries class weights along a scan and asks the criterion at each division.
#pragma once

#include "core/types.hpp"
#include "criteria/classification_criterion.hpp"
#include "criteria/gini.hpp"
#include "criteria/split_criterion_evaluator.hpp"

namespace arbolin {

template <class Y, class W>
class ClassificationSplitCriterionEvaluator final : public SplitCriterionEvaluator<W> {
public:
    // From the class totals of the set (the column search): the totals are
    // corrected once here. Positions in order without `w` all weigh `weight`.
    ClassificationSplitCriterionEvaluator(const Y* y, const W* w, const ClassWeights<W>& totals,
                                          const ClassificationSplitCriterion<Y, W>* criterion,
                                          W weight = 0)
        : y_(y),
          w_(w),
          weight_(weight),
          below_(totals.size(), W(0)),
          totals_(totals.size(), W(0)),
          criterion_(criterion),
          correctedBelow_(totals.size()),
          above_(totals.size()) {
        criterion_->correct(totals, totals_);
        findShortcuts();
    }

    // From a list of rows (the surrogate search); without a criterion the
    // totals stay raw.
    ClassificationSplitCriterionEvaluator(std::uint64_t K, const RowList& rows, const Y* y,
                                          const W* w,
                                          const ClassificationSplitCriterion<Y, W>* criterion)
        : y_(y),
          w_(w),
          below_(K, W(0)),
          totals_(K, W(0)),
          criterion_(criterion),
          correctedBelow_(K),
          above_(K) {
        ClassWeights<W> sums(K, W(0));
        for (std::uint64_t r : rows) {
            sums[classOf(y[r])] += w[r];
        }
        if (criterion_ != nullptr) {
            criterion_->correct(sums, totals_);
        } else {
            totals_ = sums;
        }
        findShortcuts();
    }

    ClassificationSplitCriterionEvaluator(const ClassificationSplitCriterionEvaluator&) = delete;
    ClassificationSplitCriterionEvaluator& operator=(const ClassificationSplitCriterionEvaluator&) =
        delete;

    void advance(const std::uint64_t* first, const std::uint64_t* last) override {
        const std::size_t n = static_cast<std::size_t>(last - first);
        for (std::size_t i = 0; i < n; ++i) {
            prefetchAhead(y_, first, i, n);
            prefetchAhead(w_, first, i, n);
            below_[classOf(y_[first[i]])] += w_[first[i]];
        }
    }

    // With one weight for all rows, a class's weight below is that weight
    // added to itself once per row: then only the rows are counted, all
    // classes in one register, and the weight is looked up in
    // `repeatedSums` (ResponseSource::repeatedSums) when asked for. For Gini
    // with 2 to 4 classes, over at most n positions.
    void countRows(const W* repeatedSums, std::size_t n) {
        const std::size_t K = below_.size();
        if (!plainGini_ || w_ != nullptr || repeatedSums == nullptr || K < 2 || K > 4 ||
            n >= (std::uint64_t{1} << countBits(K))) {
            return;
        }
        repeatedSums_ = repeatedSums;
        countShift_ = countBits(K);
        counts_ = 0;
    }

    [[gnu::always_inline]] void advanceOrdered(std::size_t first, std::size_t last) override {
        W* below = below_.data();
        if (repeatedSums_ != nullptr) {
            // One add per row: the counts do not wait on each other's sums.
            for (std::size_t i = first; i < last; ++i) {
                counts_ += std::uint64_t{1} << (classOf(y_[i]) * countShift_);
            }
        } else if (w_ == nullptr) {
            for (std::size_t i = first; i < last; ++i) {
                below[classOf(y_[i])] += weight_;
            }
        } else {
            for (std::size_t i = first; i < last; ++i) {
                below[classOf(y_[i])] += w_[i];
            }
        }
    }

    void reset() override {
        std::fill(below_.begin(), below_.end(), W(0));
        counts_ = 0;
    }

    // Called at every division of a scan: inline where the evaluator's
    // type is known, for Gini with a few classes.
    [[gnu::always_inline]] EvalResult evaluate(W* result) override {
        if (plainGini_) {
            switch (below_.size()) {
                case 2: return giniOf<2>(result);
                case 3: return giniOf<3>(result);
                case 4: return giniOf<4>(result);
                default: break;
            }
        }
        return evaluateAny(result);
    }

private:
    // Both scratch vectors are owned by the evaluator, so a candidate costs
    // no allocation. The above side is in corrected units because the
    // correction is one factor per class.
    EvalResult evaluateAny(W* result) {
        const std::size_t K = below_.size();
        // Without a correction the corrected weights are the raw ones.
        if (corrects_) {
            std::fill(correctedBelow_.begin(), correctedBelow_.end(), W(0));
            criterion_->correct(below_, correctedBelow_);
        }
        const ClassWeights<W>& correctedBelow = corrects_ ? correctedBelow_ : below_;
        const W belowSum = sumInOrder(correctedBelow);
        if (K == 0 || belowSum <= W(0)) {
            return EvalResult::BelowEmpty;
        }
        W aboveSum = 0;
        for (std::size_t i = 0; i < K; ++i) {
            above_[i] = totals_[i] - correctedBelow[i];
            aboveSum += above_[i];
        }
        if (aboveSum <= W(0)) {
            return EvalResult::AboveEmpty;
        }
        if (gini_ != nullptr) {
            // The inherited kids(), with direct calls.
            const W l = gini_->Gini<Y, W>::parent(correctedBelow);
            const W r = gini_->Gini<Y, W>::parent(above_);
            *result = l + r;
        } else {
            *result = criterion_->kids(correctedBelow, above_);
        }
        return EvalResult::Valid;
    }

    static constexpr unsigned countBits(std::size_t K) { return static_cast<unsigned>(64 / K); }

    // Asked once, not at every division.
    void findShortcuts() {
        corrects_ = criterion_ != nullptr && criterion_->corrects();
        gini_ = dynamic_cast<const Gini<Y, W>*>(criterion_);
        plainGini_ = gini_ != nullptr && !corrects_;
    }

    // evaluate() for Gini without a correction and K classes, the class
    // weights held in registers: the same operations in the same order,
    // each side's sum, taken once, serving as Gini's own sum.
    // Unrolled, so that the weights stay in registers.
    template <std::size_t K>
    [[gnu::always_inline]] EvalResult giniOf(W* result) {
        W below[K];
        W above[K];
        W belowSum = 0;
        constexpr unsigned bits = countBits(K);
        constexpr std::uint64_t countMask =
            bits == 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << bits) - 1;
#pragma GCC unroll 4
        for (std::size_t i = 0; i < K; ++i) {
            below[i] = repeatedSums_ != nullptr ? repeatedSums_[(counts_ >> (i * bits)) & countMask]
                                                : below_[i];
            belowSum += below[i];
        }
        if (belowSum <= W(0)) {
            return EvalResult::BelowEmpty;
        }
        W aboveSum = 0;
#pragma GCC unroll 4
        for (std::size_t i = 0; i < K; ++i) {
            above[i] = totals_[i] - below[i];
            aboveSum += above[i];
        }
        if (aboveSum <= W(0)) {
            return EvalResult::AboveEmpty;
        }
        W qBelow = 0;
        W qAbove = 0;
#pragma GCC unroll 4
        for (std::size_t i = 0; i < K; ++i) {
            const W p = below[i] / belowSum;
            qBelow += p * p;
            const W r = above[i] / aboveSum;
            qAbove += r * r;
        }
        *result = (W(1) - qBelow) * belowSum + (W(1) - qAbove) * aboveSum;
        return EvalResult::Valid;
    }

    const Y* y_;
    const W* w_;
    W weight_ = 0;
    ClassWeights<W> below_;   // raw
    ClassWeights<W> totals_;  // corrected
    const ClassificationSplitCriterion<Y, W>* criterion_;
    ClassWeights<W> correctedBelow_;
    ClassWeights<W> above_;
    bool corrects_ = false;
    const Gini<Y, W>* gini_ = nullptr;
    bool plainGini_ = false;
    // While rows are counted (countRows): the counts, countShift_ bits each.
    const W* repeatedSums_ = nullptr;
    unsigned countShift_ = 0;
    std::uint64_t counts_ = 0;
};

}  // namespace arbolin
