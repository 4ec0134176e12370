// One predictor as seen by one node: its rows with and without a value, the
// rows in order of value, the candidate cuts, and the best split found.
#pragma once

#include <algorithm>
#include <cstdint>
#include <utility>

#include "columns/column_split.hpp"
#include "columns/response_source.hpp"
#include "columns/sorted_segments.hpp"
#include "columns/value_sort.hpp"
#include "core/types.hpp"
#include "criteria/classification_criterion.hpp"
#include "criteria/regression_criterion.hpp"
#include "gateway/numora.hpp"
#include "nominal/level_tables.hpp"

namespace arbolin {

// What the per-node search hands a new column.
template <class X, class Y, class W>
struct ColumnSetup {
    bool curvature = false;
    bool interaction = false;
    bool nominal = false;
    std::uint64_t rowCount = 0;
    const X* x = nullptr;  // this predictor's column
    const Y* y = nullptr;
    const W* w = nullptr;
    RowList* present = nullptr;
    RowList* missing = nullptr;
    std::uint64_t classCount = 1;
    const ScalableVector<W>* nodeClassProb = nullptr;
    W nodeValue = 0;
    W nodeProb = 0;
    std::uint64_t minLeaf = 1;
    W nodeRisk = 0;
    W parentProb = 0;   // CorrectedNodeProb
    W presentProb = 0;  // CorrectedNodeProb again, until rows are missing
    const ClassificationSplitCriterion<Y, W>* classCriterion = nullptr;
    const RegressionSplitCriterion<Y, W>* regressionCriterion = nullptr;
    std::uint64_t maxCat = 0;
    std::uint64_t algCat = 0;
    bool fullSort = false;  // surrogates in force
    std::uint64_t verbosity = 0;
    // The tree's kept order and this node's place in it, if there is one;
    // `presorted`: the node's rows all have a value here, and `present` is
    // left empty for the column to take from the kept order.
    const SortedSegments<X>* sorted = nullptr;
    const NodeSegment* segment = nullptr;
    const ResponseSource<Y, W>* responses = nullptr;  // if the tree made one
    std::uint64_t predictor = 0;
    bool presorted = false;
    // The class totals over all the node's rows when every row weighs the
    // same, else null.
    const ScalableVector<W>* uniformTotals = nullptr;
};

template <class X, class Y, class W>
class IndexedColumn;

// Fills the level tables of a nominal column (nominal/build_levels.hpp).
template <class X, class Y, class W>
void buildLevels(IndexedColumn<X, Y, W>& column);

template <class X, class Y, class W>
class IndexedColumn {
public:
    explicit IndexedColumn(const ColumnSetup<X, Y, W>& setup);
    IndexedColumn(const IndexedColumn&) = delete;
    IndexedColumn& operator=(const IndexedColumn&) = delete;

    // The weight of `rows` as the criterion sees it: class weights through
    // the cost correction in classification, the plain sum in regression.
    W correctedWeightOf(const RowList& rows) const;
    void sort();
    void divide();
    void divideNumeric();
    template <class Sink>
    void walkDivisions(Sink& sink);
    // walkDivisions over lent rows whose steps tell their ties: values are
    // read only where two are neighbours. Not with the walk's trace.
    template <class Sink>
    void walkDivisionsBySteps(Sink& sink);
    bool walksBySteps() const {
        return lent_ && verbosity_ <= 3 && sortedRows_->stepsTellTies(predictor_);
    }
    void exhaustiveSearch();
    // divide() and exhaustiveSearch() of a numeric column over its ordered
    // copies in one walk, each division evaluated as it is found; no list
    // of divisions is kept.
    void divideAndSearch();
    // The class totals (one total in regression) over the ordered copies.
    ClassWeights<W> orderedTotals();
    W findNumericSplitWithBestGain(const ClassWeights<W>& Ptot);
    std::pair<bool, W> findSurrogate(const SplitRows& kids, W minP);
    W numericAssociation(const RowList& left, const RowList& right, W pL, W pR, W minP);
    W nominalAssociation(const RowList& left, const RowList& right, W minP);
    void printLevels() const;
    W findNominalSplitWithBestGain(const ClassWeights<W>& Ptot);
    // What a split of this column tells: the rows of each child, the cut
    // value, and the levels on each side.
    SplitRows splitRows(const ColumnSplit<X, W>& split) const;
    X cutPoint(const ColumnSplit<X, W>& split) const;
    std::pair<ScalableVector<X>, ScalableVector<X>> splitLevels(
        const ColumnSplit<X, W>& split) const;

    // Copies the responses and weights of present_ in its order, for scans
    // that read them in sequence; releaseOrdered gives them back. Held only
    // by a task that divides and searches the column at once. Values are
    // not copied: the division walk reads each once, through its row.
    void gatherOrdered();
    void releaseOrdered();
    // A sorted present_ that the kept order can give again is let go
    // between the column's tasks, so that a node's columns do not all hold
    // their rows at once; holdPresent takes it back.
    void releasePresent();
    void holdPresent();
    // A numeric column searched in one task may instead read its rows in
    // place in the kept order, never copying them: then present_ stays
    // empty and presentSize() counts them.
    void lendPresent();
    std::uint64_t presentSize() const {
        return lent_ ? segment_->present[predictor_] : present_->size();
    }

    X valueAt(std::uint64_t position) const {
        return lent_ ? x_[lentRowAt(position)] : x_[(*present_)[position]];
    }
    std::uint32_t lentRowAt(std::uint64_t position) const {
        return SortedSegments<X>::rowOf(lentEntries_[position]);
    }
    Y responseAt(std::uint64_t position) const {
        return ordered_ ? yOrdered_[position] : y_[(*present_)[position]];
    }
    // The weights in order, or null when every one is orderedWeight_.
    W* orderedWeights() { return wOrdered_.empty() ? nullptr : wOrdered_.data(); }

    bool sorted_ = false;
    bool divided_ = false;
    bool searched_ = false;
    bool curvature_;
    bool interaction_;
    bool nominal_;
    std::uint64_t rowCount_;
    const X* x_;
    const Y* y_;
    const W* w_;
    RowList* present_;
    RowList* missing_;
    RowList sortedMissing_;
    ScalableVector<std::uint64_t> divisions_;
    bool ordered_ = false;
    PooledVector<Y> yOrdered_;
    PooledVector<W> wOrdered_;
    W orderedWeight_ = 0;
    LevelTables<X, W> levels;
    std::uint64_t classCount_;
    const ScalableVector<W>* nodeClassProb_;
    W nodeValue_;
    W nodeProb_;
    std::uint64_t minLeaf_;
    W critParent_;
    W pParent_;
    W Pnotnan_;
    const ClassificationSplitCriterion<Y, W>* classCriterion_;
    const RegressionSplitCriterion<Y, W>* regressionCriterion_;
    ColumnSplit<X, W> bestSplit;       // left by exhaustiveSearch
    ColumnSplit<X, W> surrogateSplit;  // left by findSurrogate
    X surrogateCut_ = 0;               // cutPoint(surrogateSplit), left by findSurrogate
    W pValue_ = 1;
    std::uint64_t maxCat_;
    std::uint64_t algCat_;
    bool fullSort_;
    std::uint64_t verbosity_;
    const SortedSegments<X>* sortedRows_;
    const NodeSegment* segment_;
    const ResponseSource<Y, W>* responses_;
    std::uint64_t predictor_;
    bool presorted_;
    const ScalableVector<W>* uniformTotals_;
    bool presentReleased_;
    bool lent_ = false;
    const std::uint32_t* lentEntries_ = nullptr;  // while lent_: the kept order's
};

template <class X, class Y, class W>
IndexedColumn<X, Y, W>::IndexedColumn(const ColumnSetup<X, Y, W>& s)
    : curvature_(s.curvature),
      interaction_(s.interaction),
      nominal_(s.nominal),
      rowCount_(s.rowCount),
      x_(s.x),
      y_(s.y),
      w_(s.w),
      present_(s.present),
      missing_(s.missing),
      classCount_(s.classCount),
      nodeClassProb_(s.nodeClassProb),
      nodeValue_(s.nodeValue),
      nodeProb_(s.nodeProb),
      minLeaf_(s.minLeaf),
      critParent_(s.nodeRisk),
      pParent_(s.parentProb),
      Pnotnan_(s.presentProb),
      classCriterion_(s.classCriterion),
      regressionCriterion_(s.regressionCriterion),
      maxCat_(s.maxCat),
      algCat_(s.algCat),
      fullSort_(s.fullSort),
      verbosity_(s.verbosity),
      sortedRows_(s.sorted),
      segment_(s.segment),
      responses_(s.responses),
      predictor_(s.predictor),
      presorted_(s.presorted),
      uniformTotals_(s.uniformTotals),
      presentReleased_(s.presorted) {
    if (!missing_->empty()) {
        // Charge the parent's impurity only in the share of the node that
        // this predictor can see, so that gains of predictors with
        // different amounts of missing data compare.
        Pnotnan_ = correctedWeightOf(*present_);
        if (verbosity_ > 2) {
            calyxPrintf("pParent = %g   Pnotnan = %g\n", static_cast<double>(pParent_),
                        static_cast<double>(Pnotnan_));
        }
        critParent_ = Pnotnan_ / pParent_ * critParent_;
    }
    if (interaction_) {
        sortedMissing_.assign(missing_->begin(), missing_->end());
        std::sort(sortedMissing_.begin(), sortedMissing_.end());
    }
}

template <class X, class Y, class W>
W IndexedColumn<X, Y, W>::correctedWeightOf(const RowList& rows) const {
    if (classCriterion_ == nullptr) {
        W total = 0;
        for (std::uint64_t r : rows) {
            total += w_[r];
        }
        return total;
    }
    ClassWeights<W> raw(classCount_, W(0));
    for (std::uint64_t r : rows) {
        raw[classOf(y_[r])] += w_[r];
    }
    ClassWeights<W> corrected(classCount_, W(0));
    classCriterion_->correct(raw, corrected);
    return sumInOrder(corrected);
}

// The order is the one of value, then row number: from the tree's kept
// order when there is one, else sorted here. A full sort also serves where
// only the middle of the list needs order.
template <class X, class Y, class W>
void IndexedColumn<X, Y, W>::sort() {
    sorted_ = true;
    RowList& rows = *present_;
    if (rows.size() < 2 * minLeaf_ || presorted_) {
        return;
    }
    if (sortedRows_ != nullptr) {
        sortedRows_->copyPresent(predictor_, *segment_, rows);
        return;
    }
    sortByValueThenRow(x_, rows.data(), rows.data() + rows.size());
}

template <class X, class Y, class W>
void IndexedColumn<X, Y, W>::gatherOrdered() {
    const std::size_t n = presentSize();
    // The division walk first reads the values at both ends, one at a time:
    // fetched now, they arrive while the responses are copied. Not so when
    // the kept order's steps tell the ties.
    if (n >= 2 * minLeaf_ && n >= 4 && !walksBySteps()) {
        for (const std::uint64_t p : {std::uint64_t{0}, minLeaf_ - 1, minLeaf_, minLeaf_ + 1,
                                      n - minLeaf_ - 1, n - minLeaf_, n - 1}) {
            __builtin_prefetch(x_ + (lent_ ? lentRowAt(p) : (*present_)[p]));
        }
    }
    yOrdered_.resize(n);
    // One weight for all is not copied: wOrdered_ stays empty.
    const bool copyWeights = responses_ == nullptr || !responses_->sameWeights();
    if (copyWeights) {
        wOrdered_.resize(n);
    } else {
        orderedWeight_ = responses_->weight();
    }
    if (lent_) {
        responses_->gather(lentEntries_, n, yOrdered_.data(), orderedWeights(),
                           SortedSegments<X>::kRowMask);
        ordered_ = true;
        return;
    }
    const RowList& rows = *present_;
    // Far ahead: each row is a miss in data larger than the caches.
    constexpr std::size_t ahead = 64;
    if (responses_ != nullptr) {
        responses_->gather(rows.data(), n, yOrdered_.data(), orderedWeights());
    } else {
        for (std::size_t i = 0; i < n; ++i) {
            prefetchAhead<Y, ahead>(y_, rows.data(), i, n);
            prefetchAhead<W, ahead>(w_, rows.data(), i, n);
            const std::uint64_t r = rows[i];
            yOrdered_[i] = y_[r];
            wOrdered_[i] = w_[r];
        }
    }
    ordered_ = true;
}

template <class X, class Y, class W>
void IndexedColumn<X, Y, W>::releaseOrdered() {
    ordered_ = false;
    PooledVector<Y>().swap(yOrdered_);
    PooledVector<W>().swap(wOrdered_);
}

template <class X, class Y, class W>
void IndexedColumn<X, Y, W>::lendPresent() {
    lent_ = presentReleased_ && !nominal_ && responses_ != nullptr;
    if (lent_) {
        lentEntries_ = sortedRows_->presentEntries(predictor_, *segment_);
    } else {
        holdPresent();
    }
}

template <class X, class Y, class W>
void IndexedColumn<X, Y, W>::releasePresent() {
    if (lent_) {
        lent_ = false;  // nothing was copied; the kept order still has them
        return;
    }
    if (sortedRows_ == nullptr || !sorted_ || present_->size() < 2 * minLeaf_) {
        return;
    }
    presentReleased_ = true;
    RowList().swap(*present_);
}

template <class X, class Y, class W>
void IndexedColumn<X, Y, W>::holdPresent() {
    if (presentReleased_) {
        sortedRows_->copyPresent(predictor_, *segment_, *present_);
        presentReleased_ = false;
    }
}

template <class X, class Y, class W>
void IndexedColumn<X, Y, W>::divide() {
    if (!sorted_) {
        sort();
    }
    divided_ = true;
    if (presentSize() < 2 * minLeaf_) {
        return;
    }
    if (nominal_) {
        buildLevels(*this);
        return;
    }
    if (divisions_.empty()) {
        divideNumeric();
    }
}

// The column is compiled once per choice of types, in its own translation
// units (module/instantiate_column.cpp.in, with all its operations from
// columns/column.hpp); every other user sees only the class, so an edit to
// an operation recompiles those units alone.
extern template class IndexedColumn<double, double, double>;
extern template class IndexedColumn<double, double, float>;
extern template class IndexedColumn<double, float, double>;
extern template class IndexedColumn<float, double, double>;
extern template class IndexedColumn<float, double, float>;
extern template class IndexedColumn<float, float, double>;
extern template class IndexedColumn<float, float, float>;

}  // namespace arbolin
