// The surrogate splits of one node: splits on other predictors that imitate
// the node's own.
#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "core/types.hpp"

namespace arbolin {

template <class X, class Y, class W>
class IndexedColumn;
struct LoopConditions;

template <class X, class W>
struct SurrogateSet {
    using Levels = ScalableVector<X>;

    ScalableVector<std::uint64_t> predictors;  // 0-based
    ScalableVector<X> cutPoints;
    ScalableVector<std::pair<Levels, Levels>> levelPairs;  // left, right
    ScalableVector<std::int64_t> directions;
    ScalableVector<W> gains;
    ScalableVector<W> associations;

    std::size_t size() const { return predictors.size(); }

    // Ranks the drawn predictors by how well they imitate the winner (whose
    // entry in `columns` is null) and keeps the best `surrogateCount`;
    // parallel or not by the rule of columns/column_bodies.hpp.
    template <class Y>
    void searchSurrogates(const ScalableVector<std::unique_ptr<IndexedColumn<X, Y, W>>>& columns,
                          const SplitRows& kids, const ScalableVector<std::uint64_t>& candidates,
                          W minP, std::uint64_t surrogateCount, const LoopConditions& loops);
    // Sends the winner's missing rows to the children by the kept
    // surrogates, best first; the rows none can place stay in `rows`. `x`
    // is the predictor matrix, `rowCount` rows by column.
    void routeMissingRows(RowList& rows, SplitRows& kids, const X* x, std::uint64_t rowCount) const;

    // Empties all six lists and gives their memory back.
    void clear() {
        ScalableVector<std::uint64_t>().swap(predictors);
        ScalableVector<X>().swap(cutPoints);
        ScalableVector<std::pair<Levels, Levels>>().swap(levelPairs);
        ScalableVector<std::int64_t>().swap(directions);
        ScalableVector<W>().swap(gains);
        ScalableVector<W>().swap(associations);
    }
};

}  // namespace arbolin
