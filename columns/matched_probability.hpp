// The (corrected) weight of a set of rows, optionally limited to a mask.
#pragma once

#include <memory>

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

// One byte per row of X: a constant-time membership test.
class RowMask {
public:
    RowMask(std::uint64_t length, const RowList* rows) : length_(length) {
        if (length_ != 0) {
            bytes_ = std::make_unique<unsigned char[]>(length_);
            for (std::uint64_t r : *rows) {
                bytes_[r] = 1;
            }
        }
    }
    // Without a mask every row counts.
    bool counts(std::uint64_t r) const { return length_ == 0 || bytes_[r] != 0; }

private:
    std::uint64_t length_;
    std::unique_ptr<unsigned char[]> bytes_;
};

template <class Y, class W>
class ClassificationIndexedMatchedProbability final : public IndexedMatchedProbability<W> {
public:
    ClassificationIndexedMatchedProbability(std::uint64_t K, const Y* y, const W* w,
                                            const ClassificationSplitCriterion<Y, W>* criterion,
                                            std::uint64_t maskLength = 0,
                                            const RowList* maskRows = nullptr)
        : y_(y), w_(w), weights_(K, W(0)), criterion_(criterion), mask_(maskLength, maskRows) {}

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
        ClassWeights<W> corrected(weights_.size(), W(0));
        criterion_->correct(weights_, corrected);
        *result = sumInOrder(corrected);
    }

private:
    void addRow(std::uint64_t r) { weights_[toCount(static_cast<double>(y_[r]))] += w_[r]; }

    const Y* y_;
    const W* w_;
    ClassWeights<W> weights_;
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

}  // namespace arbolin
