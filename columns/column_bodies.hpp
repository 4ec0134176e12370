// The per-predictor work of a node, as bodies for a loop over predictor
// numbers. A body writes only what belongs to its own predictor, so the
// loops need no locks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>

#include <oneapi/tbb/concurrent_vector.h>
#include <oneapi/tbb/parallel_for_each.h>
#include <oneapi/tbb/task_group.h>

#include "columns/fork_join_order.hpp"
#include "columns/indexed_column.hpp"
#include "columns/remove_nan.hpp"
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

// The phases of a node's search that loop over predictor numbers.
enum class Phase : std::size_t {
    MissingValues,     // ColumnNaNRemover
    PerPredictorWork,  // ColumnOperator
    InteractionTests,  // ColumnInteractionTest (selection/interaction.hpp)
    ExhaustiveSearch,  // ColumnSplitter
    SurrogateSearch,   // ColumnAssociationSplitter
};

// What decides whether a phase runs in parallel, besides the phase: the
// criterion's allowsParallel and the print level.
struct LoopConditions {
    bool criterionAllowsParallel = true;
    std::uint64_t verbosity = 0;
};

// The rule. A phase runs in parallel when its list holds at least `fewest`
// predictors and, where its row asks, the print level is 0 (`quiet`) and the
// criterion allows it (`criterion`). Verbose runs stay serial, so all
// printing happens on the host's thread.
//
// The interaction tests only count weights, so the criterion has no say
// there. A custom criterion answers false to allowsParallel, which keeps the
// per-predictor work and the exhaustive search on the host's thread. The
// surrogate search values each imitation with the criterion too
// (findSurrogate), yet asks only for quiet, so at print level 0 a custom
// criterion's call-backs arrive on worker threads; wrapped for a cost
// matrix it answers true, and the other two phases call it from workers as
// well. That is safe: nothing in the criterion changes after it is made
// (function names, a cost matrix), each call makes its own arrays, the host
// looks functions up under a shared lock and runs them outside it, and an
// error in a call-back is trapped, raised again in the task and carried to
// the caller by the loop.
struct ParallelRule {
    bool quiet;
    bool criterion;
    std::size_t fewest;
};
inline constexpr ParallelRule kParallelRules[] = {
    //                     quiet  criterion  fewest
    /* MissingValues    */ {false, false, 0},
    /* PerPredictorWork */ {true, true, 0},
    /* InteractionTests */ {true, false, 0},
    /* ExhaustiveSearch */ {true, true, 2},
    /* SurrogateSearch  */ {true, false, 0},
};
static_assert(std::size(kParallelRules) == static_cast<std::size_t>(Phase::SurrogateSearch) + 1);

inline bool runsInParallel(Phase phase, const LoopConditions& conditions, std::size_t listed) {
    const ParallelRule& rule = kParallelRules[static_cast<std::size_t>(phase)];
    return listed >= rule.fewest && (!rule.quiet || conditions.verbosity == 0) &&
           (!rule.criterion || conditions.criterionAllowsParallel);
}

// Runs `body` over `list`, in parallel as the rule says or as a plain loop
// in list order. Each parallel loop has a task group context of its own, so
// that an exception reaches the caller with its exact type.
template <class List, class Body>
void forEachPredictor(Phase phase, const LoopConditions& conditions, const List& list,
                      const Body& body) {
    if (runsInParallel(phase, conditions, list.size())) {
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
