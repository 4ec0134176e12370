// Every predictor's rows kept in order of value from the root down. The
// root sorts each predictor once; when nodes split, each predictor's
// segment of a parent is partitioned stably into its children's segments.
// A stable partition of an order is an order, so no node sorts again, and
// the order is the one a sort by value, then row number, would give. The
// children's segments are packed at the front of each predictor's stretch,
// so that the rows of leaves fall behind them and their pages are given
// back as the tree deepens.
//
// Each entry holds a row number in its low 30 bits and, in the top two, the
// Step from the value of the entry before it in the segment. A partition
// carries the highest step over the entries a child skips, so a node's
// division walk tells tied values apart without reading them (see
// columns/ties.hpp).
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <numeric>
#include <stdexcept>

#include "columns/page_array.hpp"
#include "columns/predictor_loops.hpp"
#include "columns/remove_nan.hpp"
#include "columns/ties.hpp"
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
// the children's segments out. The splits of a layer come in the order of
// their parents' segments.
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
    static constexpr unsigned kRowBits = 30;
    static constexpr Index kRowMask = (Index{1} << kRowBits) - 1;

    // Row numbers are held in 30 bits; larger data sorts at every node.
    static bool fits(std::uint64_t rowCount) { return rowCount <= std::uint64_t{kRowMask} + 1; }

    static Index rowOf(Index entry) { return entry & kRowMask; }
    static Step stepOf(Index entry) { return static_cast<Step>(entry >> kRowBits); }

    SortedSegments(const X* x, std::uint64_t rowCount, std::uint64_t predictorCount,
                   const RowList& rootRows)
        : x_(x),
          rowCount_(rowCount),
          length_(rootRows.size()),
          order_(length_ * predictorCount),
          live_(length_),
          releasedLive_(length_),
          side_(rowCount),
          plainTies_(predictorCount, 0),
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
        // Each thread's sort buffers, reused from predictor to predictor,
        // are not needed again.
        givePooledBack(length_ * predictorCount);
    }

    SortedSegments(const SortedSegments&) = delete;
    SortedSegments& operator=(const SortedSegments&) = delete;

    const NodeSegment& root() const { return root_; }

    // The entries of the rows with a value of predictor j in the node, in
    // order, in place (rowOf and stepOf read them); or their rows, copied.
    const Index* presentEntries(std::uint64_t j, const NodeSegment& segment) const {
        return order_.data() + length_ * j + segment.begin;
    }
    void copyPresent(std::uint64_t j, const NodeSegment& segment, RowList& out) const {
        const Index* first = order_.data() + length_ * j + segment.begin;
        out.resize(segment.present[j]);
        for (std::uint64_t i = 0; i < out.size(); ++i) {
            out[i] = rowOf(first[i]);
        }
    }

    // Whether the steps of predictor j tell its ties: all its values have
    // plain ties. Otherwise every step reads Equal and means nothing.
    bool stepsTellTies(std::uint64_t j) const { return plainTies_[j] != 0; }

    // Partitions every predictor's segment of each parent into the
    // children's segments: left rows, then right rows, each in the order
    // they had; rows in neither child are dropped. The segments of nodes
    // that are not split are given up.
    void split(const ScalableVector<SegmentSplit>& splits) {
        // Children are packed from the front: no child begins after its
        // parent, so each parent is read before anything is written over it.
        std::uint64_t packed = 0;
        std::uint64_t largest = 0;
        for (const SegmentSplit& s : splits) {
            if (s.parent->begin < packed) {
                throw std::logic_error("kept order: splits out of the order of their segments");
            }
            const Index* rows = order_.data() + s.parent->begin;
            for (std::uint64_t i = 0; i < s.parent->size; ++i) {
                side_[rowOf(rows[i])] = kNeither;
            }
            for (std::uint64_t r : *s.left) {
                side_[r] = kLeft;
            }
            for (std::uint64_t r : *s.right) {
                side_[r] = kRight;
            }
            s.leftSegment->begin = packed;
            s.leftSegment->size = s.left->size();
            s.rightSegment->begin = packed + s.left->size();
            s.rightSegment->size = s.right->size();
            packed += s.left->size() + s.right->size();
            s.leftSegment->present.assign(predictors_.size(), 0);
            s.rightSegment->present.assign(predictors_.size(), 0);
            largest = std::max(largest, s.right->size());
        }
        // Behind the packed children lies nothing that will be read again;
        // its pages go back once enough of them have come free.
        const bool release = releasedLive_ - packed >= std::max<std::uint64_t>(length_ / 32, 16384);
        forEachPredictor(Phase::KeptOrder, {}, predictors_, [&](std::uint64_t j) {
            ScalableVector<Index> scratch(largest + 1);
            for (const SegmentSplit& s : splits) {
                partition(j, s, scratch.data());
            }
            if (release) {
                order_.release(length_ * j + packed, length_ * (j + 1));
            }
        });
        live_ = packed;
        if (release) {
            releasedLive_ = packed;
        }
    }

    // Entries per predictor in the segments of the last split's children.
    std::uint64_t liveSize() const { return live_; }

private:
    // A bit for each child, so that the partition takes them apart by shifts.
    static constexpr unsigned char kNeither = 0;
    static constexpr unsigned char kLeft = 1;
    static constexpr unsigned char kRight = 2;

    // Predictor j's rows in order of value, then row number (radix sort is
    // stable and `byRow` rises), with their steps, followed by its rows
    // with NaN. Returns how many have a value.
    std::uint64_t sortPredictor(std::uint64_t j, const ScalableVector<Index>& byRow) {
        using Key = decltype(sortableKey(X{}));
        const X* x = x_ + rowCount_ * j;
        Index* out = order_.data() + length_ * j;
        PooledVector<KeyedRow<Key, Index>> entries;
        entries.reserve(length_);
        std::uint64_t back = length_;
        bool plain = true;
        for (Index r : byRow) {
            const X v = x[r];
            if (isMissing(v)) {
                out[--back] = r;
            } else {
                plain = plain && hasPlainTies(v);
                entries.push_back({sortableKey(v), r});
            }
        }
        PooledVector<KeyedRow<Key, Index>> scratch;
        radixSort<11>(entries, scratch);
        plainTies_[j] = plain ? 1 : 0;
        X before = 0;
        for (std::uint64_t i = 0; i < entries.size(); ++i) {
            const X v = valueOfKey<X>(entries[i].key);
            const auto step =
                static_cast<Index>(plain && i > 0 ? stepBetween(before, v) : Step::Equal);
            out[i] = entries[i].row | (step << kRowBits);
            before = v;
        }
        return entries.size();
    }

    // Without branches on the side, which is as good as random: each row is
    // written to both places and only its own side's count moves on. The
    // scratch has room for one row beyond the right child's.
    // The left child may begin before the parent: each write lands at or
    // before the entry just read.
    // A child's entry takes the highest step since the child's entry before
    // it: the steps of the entries it skipped, and its own.
    void partition(std::uint64_t j, const SegmentSplit& s, Index* scratch) {
        const Index* rows = order_.data() + length_ * j + s.parent->begin;
        Index* out = order_.data() + length_ * j + s.leftSegment->begin;
        std::uint64_t left = 0;
        std::uint64_t right = 0;
        auto walk = [&](std::uint64_t from, std::uint64_t to) {
            Index leftStep = 0;  // in place, in the top bits
            Index rightStep = 0;
            for (std::uint64_t i = from; i < to; ++i) {
                const Index e = rows[i];
                const Index step = e & ~kRowMask;
                const Index side = side_[e & kRowMask];
                leftStep |= step;
                rightStep |= step;
                out[left] = e | leftStep;
                scratch[right] = e | rightStep;
                // Masks, not conditions: the compiler would branch on them.
                const Index toLeft = side & kLeft;
                const Index toRight = side >> 1;
                left += toLeft;
                right += toRight;
                leftStep &= toLeft - 1;
                rightStep &= toRight - 1;
            }
        };
        const std::uint64_t present = s.parent->present[j];
        walk(0, present);
        s.leftSegment->present[j] = left;
        s.rightSegment->present[j] = right;
        walk(present, s.parent->size);
        std::copy(scratch, scratch + right, out + left);
    }

    const X* x_;
    std::uint64_t rowCount_;
    std::uint64_t length_;  // entries per predictor: the root's rows
    PageArray<Index> order_;
    std::uint64_t live_;
    std::uint64_t releasedLive_;          // live_ at the last release
    ScalableVector<unsigned char> side_;  // per row, during a split
    ScalableVector<char> plainTies_;      // per predictor: stepsTellTies
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
