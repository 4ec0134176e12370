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
    bool active() const { return length_ != 0; }
    bool contains(std::uint64_t r) const { return bytes_[r] != 0; }

    // The rows of the range that the mask holds, in order.
    RowList filter(const std::uint64_t* first, const std::uint64_t* last) const {
        RowList kept;
        for (; first != last; ++first) {
            if (contains(*first)) {
                kept.push_back(*first);
            }
        }
        return kept;
    }

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

    void add(const std::uint64_t* first, const std::uint64_t* last) override {
        if (mask_.active()) {
            const RowList kept = mask_.filter(first, last);
            addRows(kept.data(), kept.data() + kept.size());
        } else {
            addRows(first, last);
        }
    }
    void reset() override { std::fill(weights_.begin(), weights_.end(), W(0)); }
    void get(W* result) const override {
        W sum = 0;
        if (criterion_ == nullptr) {
            for (W v : weights_) sum += v;
        } else {
            ClassWeights<W> corrected(weights_.size(), W(0));
            criterion_->correct(weights_, corrected);
            for (W v : corrected) sum += v;
        }
        *result = sum;
    }

private:
    void addRows(const std::uint64_t* first, const std::uint64_t* last) {
        for (; first != last; ++first) {
            weights_[toCount(static_cast<double>(y_[*first]))] += w_[*first];
        }
    }

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

    void add(const std::uint64_t* first, const std::uint64_t* last) override {
        if (mask_.active()) {
            const RowList kept = mask_.filter(first, last);
            addRows(kept.data(), kept.data() + kept.size());
        } else {
            addRows(first, last);
        }
    }
    void reset() override { total_ = 0; }
    void get(W* result) const override { *result = total_; }

private:
    void addRows(const std::uint64_t* first, const std::uint64_t* last) {
        for (; first != last; ++first) {
            total_ += w_[*first];
        }
    }

    const W* w_;
    W total_ = 0;
    RowMask mask_;
};

}  // namespace arbolin
