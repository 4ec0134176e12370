// Every predictor's rows kept in order of value from the root down. The
// root sorts each predictor once; when nodes split, each predictor's
// segment of a parent is partitioned stably into its children's segments.
// A stable partition of an order is an order, so no node sorts again, and
// the order is the one a sort by value, then row number, would give.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <numeric>

#include "columns/predictor_loops.hpp"
#include "columns/remove_nan.hpp"
#include "columns/value_sort.hpp"
#include "core/types.hpp"
#include "gateway/numora.hpp"

namespace arbolin {

// Where a node's rows stand in every predictor's order: `size` entries
// from `begin`; of predictor j, the first present[j] have a value, in
// rising order, and the rows with NaN stand behind them.
struct NodeSegment {
    std::uint64_t begin = 0;
    std::uint64_t size = 0;
    ScalableVector<std::uint64_t> present;
};

// One split of a layer: the parent's segment and the children's rows in,
// the children's segments out.
struct SegmentSplit {
    const NodeSegment* parent = nullptr;
    const RowList* left = nullptr;
    const RowList* right = nullptr;
    NodeSegment* leftSegment = nullptr;
    NodeSegment* rightSegment = nullptr;
};

template <class X>
class SortedSegments {
public:
    using Index = std::uint32_t;

    // Row numbers are held in 32 bits; larger data sorts at every node.
    static bool fits(std::uint64_t rowCount) {
        return rowCount <= std::numeric_limits<Index>::max();
    }

    SortedSegments(const X* x, std::uint64_t rowCount, std::uint64_t predictorCount,
                   const RowList& rootRows)
        : x_(x),
          rowCount_(rowCount),
          length_(rootRows.size()),
          order_(length_ * predictorCount),
          side_(rowCount),
          predictors_(predictorCount) {
        std::iota(predictors_.begin(), predictors_.end(), std::uint64_t{0});
        root_.size = length_;
        root_.present.assign(predictorCount, 0);
        ScalableVector<Index> byRow(rootRows.begin(), rootRows.end());
        if (!std::is_sorted(byRow.begin(), byRow.end())) {
            std::sort(byRow.begin(), byRow.end());
        }
        forEachPredictor(Phase::KeptOrder, {}, predictors_, [&](std::uint64_t j) {
            hostInterruptCheck();
            root_.present[j] = sortPredictor(j, byRow);
        });
    }

    SortedSegments(const SortedSegments&) = delete;
    SortedSegments& operator=(const SortedSegments&) = delete;

    const NodeSegment& root() const { return root_; }

    // The rows with a value of predictor j in the node, in order: in place,
    // or copied.
    const Index* presentRows(std::uint64_t j, const NodeSegment& segment) const {
        return order_.data() + length_ * j + segment.begin;
    }
    void copyPresent(std::uint64_t j, const NodeSegment& segment, RowList& out) const {
        const Index* first = order_.data() + length_ * j + segment.begin;
        out.assign(first, first + segment.present[j]);
    }

    // Partitions every predictor's segment of each parent into the
    // children's segments: left rows, then right rows, each in the order
    // they had; rows in neither child are dropped.
    void split(const ScalableVector<SegmentSplit>& splits) {
        if (splits.empty()) {
            return;
        }
        std::uint64_t largest = 0;
        for (const SegmentSplit& s : splits) {
            const Index* rows = order_.data() + s.parent->begin;
            for (std::uint64_t i = 0; i < s.parent->size; ++i) {
                side_[rows[i]] = kNeither;
            }
            for (std::uint64_t r : *s.left) {
                side_[r] = kLeft;
            }
            for (std::uint64_t r : *s.right) {
                side_[r] = kRight;
            }
            s.leftSegment->begin = s.parent->begin;
            s.leftSegment->size = s.left->size();
            s.rightSegment->begin = s.parent->begin + s.left->size();
            s.rightSegment->size = s.right->size();
            s.leftSegment->present.assign(predictors_.size(), 0);
            s.rightSegment->present.assign(predictors_.size(), 0);
            largest = std::max(largest, s.right->size());
        }
        forEachPredictor(Phase::KeptOrder, {}, predictors_, [&](std::uint64_t j) {
            ScalableVector<Index> scratch(largest + 1);
            for (const SegmentSplit& s : splits) {
                partition(j, s, scratch.data());
            }
        });
    }

private:
    static constexpr unsigned char kLeft = 0;
    static constexpr unsigned char kRight = 1;
    static constexpr unsigned char kNeither = 2;

    // Predictor j's rows in order of value, then row number (radix sort is
    // stable and `byRow` rises), followed by its rows with NaN. Returns how
    // many have a value.
    std::uint64_t sortPredictor(std::uint64_t j, const ScalableVector<Index>& byRow) {
        using Key = decltype(sortableKey(X{}));
        const X* x = x_ + rowCount_ * j;
        Index* out = order_.data() + length_ * j;
        ScalableVector<KeyedRow<Key, Index>> entries;
        entries.reserve(length_);
        std::uint64_t back = length_;
        for (Index r : byRow) {
            const X v = x[r];
            if (isMissing(v)) {
                out[--back] = r;
            } else {
                entries.push_back({sortableKey(v), r});
            }
        }
        ScalableVector<KeyedRow<Key, Index>> scratch;
        radixSort<11>(entries, scratch);
        for (std::uint64_t i = 0; i < entries.size(); ++i) {
            out[i] = entries[i].row;
        }
        return entries.size();
    }

    // Without branches on the side, which is as good as random: each row is
    // written to both places and only its own side's count moves on. The
    // scratch has room for one row beyond the right child's.
    void partition(std::uint64_t j, const SegmentSplit& s, Index* scratch) {
        Index* rows = order_.data() + length_ * j + s.parent->begin;
        std::uint64_t left = 0;
        std::uint64_t right = 0;
        auto walk = [&](std::uint64_t from, std::uint64_t to) {
            for (std::uint64_t i = from; i < to; ++i) {
                const Index r = rows[i];
                const unsigned char side = side_[r];
                rows[left] = r;
                scratch[right] = r;
                left += side == kLeft ? 1 : 0;
                right += side == kRight ? 1 : 0;
            }
        };
        const std::uint64_t present = s.parent->present[j];
        walk(0, present);
        s.leftSegment->present[j] = left;
        s.rightSegment->present[j] = right;
        walk(present, s.parent->size);
        std::copy(scratch, scratch + right, rows + left);
    }

    const X* x_;
    std::uint64_t rowCount_;
    std::uint64_t length_;  // entries per predictor: the root's rows
    ScalableVector<Index> order_;
    ScalableVector<unsigned char> side_;  // per row, during a split
    ScalableVector<std::uint64_t> predictors_;
    NodeSegment root_;
};

// A node's view of the kept order: the tree's, and the node's place in it;
// both null when the tree keeps none.
template <class X>
struct NodeOrder {
    const SortedSegments<X>* rows = nullptr;
    const NodeSegment* segment = nullptr;
};

}  // namespace arbolin
