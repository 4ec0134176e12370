// The (corrected) weight of a set of rows, optionally limited to a mask.
#pragma once

#include <algorithm>
#include <memory>

#include "columns/row_mask.hpp"
#include "core/types.hpp"
#include "criteria/classification_criterion.hpp"

namespace arbolin {

template <class W>
class IndexedMatchedProbability {
public:
    virtual ~IndexedMatchedProbability() = default;
    virtual void add(const std::uint64_t* first, const std::uint64_t* last) = 0;
    virtual void reset() = 0;
    virtual void get(W* result) const = 0;
};

template <class Y, class W>
class ClassificationIndexedMatchedProbability final : public IndexedMatchedProbability<W> {
public:
    ClassificationIndexedMatchedProbability(std::uint64_t K, const Y* y, const W* w,
                                            const ClassificationSplitCriterion<Y, W>* criterion,
                                            std::uint64_t maskLength = 0,
                                            const RowList* maskRows = nullptr)
        : y_(y),
          w_(w),
          weights_(K, W(0)),
          corrected_(criterion != nullptr ? K : 0, W(0)),
          criterion_(criterion),
          mask_(maskLength, maskRows) {}

    // Rows of the range outside the mask count for nothing; the others are
    // added in list order.
    void add(const std::uint64_t* first, const std::uint64_t* last) override {
        for (; first != last; ++first) {
            if (mask_.counts(*first)) {
                addRow(*first);
            }
        }
    }
    void reset() override { std::fill(weights_.begin(), weights_.end(), W(0)); }
    void get(W* result) const override {
        if (criterion_ == nullptr) {
            *result = sumInOrder(weights_);
            return;
        }
        // Scratch kept from call to call: a surrogate scan asks twice per
        // division.
        std::fill(corrected_.begin(), corrected_.end(), W(0));
        criterion_->correct(weights_, corrected_);
        *result = sumInOrder(corrected_);
    }

private:
    void addRow(std::uint64_t r) { weights_[classOf(y_[r])] += w_[r]; }

    const Y* y_;
    const W* w_;
    ClassWeights<W> weights_;
    mutable ClassWeights<W> corrected_;
    const ClassificationSplitCriterion<Y, W>* criterion_;
    RowMask mask_;
};

template <class W>
class RegressionIndexedMatchedProbability final : public IndexedMatchedProbability<W> {
public:
    explicit RegressionIndexedMatchedProbability(const W* w, std::uint64_t maskLength = 0,
                                                 const RowList* maskRows = nullptr)
        : w_(w), mask_(maskLength, maskRows) {}

    // Rows of the range outside the mask count for nothing; the others are
    // added in list order.
    void add(const std::uint64_t* first, const std::uint64_t* last) override {
        for (; first != last; ++first) {
            if (mask_.counts(*first)) {
                addRow(*first);
            }
        }
    }
    void reset() override { total_ = 0; }
    void get(W* result) const override { *result = total_; }

private:
    void addRow(std::uint64_t r) { total_ += w_[r]; }

    const W* w_;
    W total_ = 0;
    RowMask mask_;
};

// The probability object of the tree's kind: classification with the
// criterion's correction when there is a classification criterion,
// regression by plain weight otherwise.
template <class Y, class W>
std::unique_ptr<IndexedMatchedProbability<W>> makeMatchedProbability(
    std::uint64_t K, const Y* y, const W* w, const ClassificationSplitCriterion<Y, W>* criterion,
    std::uint64_t maskLength = 0, const RowList* maskRows = nullptr) {
    if (criterion != nullptr) {
        return std::make_unique<ClassificationIndexedMatchedProbability<Y, W>>(
            K, y, w, criterion, maskLength, maskRows);
    }
    return std::make_unique<RegressionIndexedMatchedProbability<W>>(w, maskLength, maskRows);
}

}  // namespace arbolin
