// How the per-predictor loops run: serial, or in parallel over predictor
// numbers, by a fixed rule per phase.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>

#include <oneapi/tbb/parallel_for_each.h>
#include <oneapi/tbb/task_group.h>

#include "columns/fork_join_order.hpp"

namespace arbolin {

// The phases of a node's search that loop over predictor numbers.
enum class Phase : std::size_t {
    MissingValues,     // ColumnNaNRemover
    PerPredictorWork,  // ColumnOperator
    InteractionTests,  // ColumnInteractionTest (selection/interaction.hpp)
    ExhaustiveSearch,  // ColumnSplitter
    SurrogateSearch,   // ColumnAssociationSplitter
    KeptOrder,         // SortedSegments: the root's sort and the partitions
};

// What decides whether a phase runs in parallel, besides the phase: the
// criterion's allowsParallel and the print level.
struct LoopConditions {
    bool criterionAllowsParallel = true;
    std::uint64_t verbosity = 0;
    bool serial = false;  // the node is too small to share out
};

// Rows times predictors below which a node's loops stay serial.
inline constexpr std::uint64_t kSmallNodeWork = 16384;

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
    /* KeptOrder        */ {false, false, 2},
};
static_assert(std::size(kParallelRules) == static_cast<std::size_t>(Phase::KeptOrder) + 1);

inline bool runsInParallel(Phase phase, const LoopConditions& conditions, std::size_t listed) {
    const ParallelRule& rule = kParallelRules[static_cast<std::size_t>(phase)];
    return !conditions.serial && listed >= rule.fewest && (!rule.quiet || conditions.verbosity == 0) &&
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

}  // namespace arbolin
