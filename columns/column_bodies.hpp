// The per-predictor work of a node, as bodies for a loop over predictor
// numbers. A body writes only what belongs to its own predictor, so the
// loops need no locks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>

#include <oneapi/tbb/concurrent_vector.h>

#include "columns/indexed_column.hpp"
#include "columns/predictor_loops.hpp"
#include "columns/remove_nan.hpp"
#include "columns/sorted_segments.hpp"
#include "selection/bins.hpp"
#include "selection/contingency.hpp"
#include "selection/f_curvature.hpp"

namespace arbolin {

template <class X, class Y, class W>
using ColumnTable = ScalableVector<std::unique_ptr<IndexedColumn<X, Y, W>>>;

using RowTable = tbb::concurrent_vector<RowList>;

// Predictor number to (predictor, association) of its surrogate split.
template <class W>
using AssociationTable = tbb::concurrent_vector<std::pair<std::uint64_t, W>>;

// Splits a node's rows by presence of a value. A predictor with no NaN in
// the node and a kept order skips the walk: its column takes its rows from
// that order, already sorted, when its task begins. Not so if its list is
// too short to be sorted or the F curvature test will read it unsorted:
// then the walk's order is the one that counts.
template <class X>
struct ColumnNaNRemover {
    const X* x;
    std::uint64_t rowCount;
    const RowList* rows;
    RowTable* present;
    RowTable* missing;
    const SortedSegments<X>* sorted = nullptr;
    const NodeSegment* segment = nullptr;
    std::uint64_t minLeaf = 0;
    bool numericUnsorted = false;  // the F curvature test is in force
    const bool* isCat = nullptr;
    ScalableVector<char>* presorted = nullptr;

    void operator()(std::uint64_t j) const {
        hostInterruptCheck();
        if (sorted != nullptr && segment->present[j] == segment->size &&
            segment->size >= 2 * minLeaf && !(numericUnsorted && !isCat[j])) {
            (*present)[j].clear();
            (*missing)[j].clear();
            (*presorted)[j] = 1;
            return;
        }
        removeNaN(x + rowCount * j, *rows, (*present)[j], (*missing)[j]);
    }
};

template <class X, class Y, class W>
struct ColumnOperator {
    const ColumnTable<X, Y, W>* columns;
    bool curvature;
    bool interaction;
    bool chisq;
    std::uint64_t verbosity;
    // Nothing comes between this work and the search, and nothing is
    // printed: a numeric column is searched in the same task, over copies
    // of its data in order, which it gives back at once.
    bool searchNow = false;

    void operator()(std::uint64_t j) const {
        IndexedColumn<X, Y, W>& c = *(*columns)[j];
        if (searchNow) {
            c.lendPresent();
            hostInterruptCheck();
            c.sort();
            if (!c.nominal_ && c.presentSize() >= 2 * c.minLeaf_) {
                c.gatherOrdered();
            }
            if (c.ordered_ && !c.fullSort_) {
                // No surrogate search will want the divisions again.
                c.divideAndSearch();
            } else {
                c.divide();
                c.exhaustiveSearch();
            }
            c.releaseOrdered();
            c.releasePresent();
            if (!c.fullSort_) {
                // Only the surrogate search walks the divisions again.
                ScalableVector<std::uint64_t>().swap(c.divisions_);
            }
            return;
        }
        c.holdPresent();
        if (curvature && !interaction && !c.nominal_ && !chisq) {
            // The F curvature test needs no order: the column stays
            // unsorted unless it is chosen.
            hostInterruptCheck();
            if (verbosity > 1) {
                calyxPrintf("Performing F curvature test on variable %i...\n", j);
            }
            c.pValue_ = fTest(c);
            return;
        }
        hostInterruptCheck();
        if (verbosity > 1) {
            calyxPrintf("Sorting variable %i...\n", j);
        }
        c.sort();
        hostInterruptCheck();
        if (verbosity > 1) {
            calyxPrintf("Dividing variable %i...\n", j);
        }
        c.divide();
        hostInterruptCheck();
        if (!curvature) {
            return;
        }
        if (!c.nominal_) {
            makeBins(c);
        }
        if (verbosity > 1) {
            calyxPrintf("Performing chisq curvature test on variable %i...\n", j);
        }
        c.pValue_ = contingencyTest(c, *c.missing_, c.levels.LevelRows, false);
    }
};

template <class X, class Y, class W>
struct ColumnSplitter {
    const ColumnTable<X, Y, W>* columns;
    std::uint64_t verbosity;

    void operator()(std::uint64_t j) const {
        hostInterruptCheck();
        if (verbosity > 1) {
            calyxPrintf("Performing exhaustive search on variable %i...\n", j);
        }
        (*columns)[j]->exhaustiveSearch();
    }
};

// Skips the winner, whose entry is null, without an interrupt check.
template <class X, class Y, class W>
struct ColumnAssociationSplitter {
    const SplitRows* kids;
    W minP;
    const ColumnTable<X, Y, W>* columns;
    std::uint64_t verbosity;
    AssociationTable<W>* assocPair;

    void operator()(std::uint64_t j) const {
        IndexedColumn<X, Y, W>* column = (*columns)[j].get();
        if (column == nullptr) {
            return;
        }
        hostInterruptCheck();
        if (verbosity > 2) {
            calyxPrintf("Searching for surrogate splits on predictor %i...\n", j);
        }
        const auto [isSurrogate, association] = column->findSurrogate(*kids, minP);
        if (!isSurrogate) {
            return;
        }
        (*assocPair)[j] = {j, association};
    }
};

}  // namespace arbolin
