// The per-predictor work of a node, as bodies for a loop over predictor
// numbers. A body writes only what belongs to its own predictor, so the
// loops need no locks.
#pragma once

#include <memory>

#include <oneapi/tbb/concurrent_vector.h>
#include <oneapi/tbb/parallel_for_each.h>
#include <oneapi/tbb/task_group.h>

#include "columns/column.hpp"
#include "columns/fork_join_order.hpp"
#include "columns/remove_nan.hpp"

namespace arbolin {

template <class X, class Y, class W>
using ColumnTable = ScalableVector<std::unique_ptr<IndexedColumn<X, Y, W>>>;

using RowTable = tbb::concurrent_vector<RowList>;

// Predictor number to (predictor, association) of its surrogate split.
template <class W>
using AssociationTable = tbb::concurrent_vector<std::pair<std::uint64_t, W>>;

// Runs `body` over `list`, in parallel or as a plain loop in list order. Each
// parallel loop has a task group context of its own, so that an exception
// reaches the caller with its exact type.
template <class List, class Body>
void forEachPredictor(const List& list, const Body& body, bool parallel) {
    if (parallel) {
        tbb::task_group_context context;
        const ForkJoinBody<Body> told(body);
        tbb::parallel_for_each(list.begin(), list.end(), told, context);
        return;
    }
    for (auto j : list) {
        body(j);
    }
}

template <class X>
struct ColumnNaNRemover {
    const X* x;
    std::uint64_t rowCount;
    const RowList* rows;
    RowTable* present;
    RowTable* missing;

    void operator()(std::uint64_t j) const {
        hostInterruptCheck();
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

    void operator()(std::uint64_t j) const {
        IndexedColumn<X, Y, W>& c = *(*columns)[j];
        if (curvature && !interaction && !c.nominal_ && !chisq) {
            // The F curvature test needs no order: the column stays
            // unsorted unless it is chosen.
            hostInterruptCheck();
            if (verbosity > 1) {
                calyxPrintf("Performing F curvature test on variable %i...\n", j);
            }
            c.pValue_ = c.fTest();
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
            c.makeBins();
        }
        if (verbosity > 1) {
            calyxPrintf("Performing chisq curvature test on variable %i...\n", j);
        }
        c.pValue_ = c.contingencyTest(*c.missing_, c.LevelRows, false);
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
