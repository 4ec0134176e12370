// Ranking the imitators of a node's split.
#pragma once

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "columns/column_bodies.hpp"
#include "core/surrogate_set.hpp"

namespace arbolin {

template <class X, class W>
template <class Y>
void SurrogateSet<X, W>::searchSurrogates(
    const ScalableVector<std::unique_ptr<IndexedColumn<X, Y, W>>>& columns, const SplitRows& kids,
    const ScalableVector<std::uint64_t>& candidates, W minP, std::uint64_t surrogateCount,
    const LoopConditions& loops) {
    const std::uint64_t verbosity = loops.verbosity;
    clear();
    AssociationTable<W> assocPair(columns.size(),
                                  {std::uint64_t{0}, std::numeric_limits<W>::lowest()});
    // The set differences in the columns need both lists by row number, and
    // only a column with missing rows takes them.
    SplitRows sorted;
    const SplitRows* lists = &kids;
    const bool anyMissing = std::any_of(columns.begin(), columns.end(), [](const auto& column) {
        return column != nullptr && !column->missing_->empty();
    });
    if (anyMissing) {
        sorted = kids;
        std::sort(sorted.left.begin(), sorted.left.end());
        std::sort(sorted.right.begin(), sorted.right.end());
        lists = &sorted;
    }
    forEachPredictor(
        Phase::SurrogateSearch, loops, candidates,
        ColumnAssociationSplitter<X, Y, W>{lists, minP, &columns, verbosity, &assocPair});

    // Drop what imitates no better than the default rule (and what was
    // never written), keeping the order; then the best first.
    std::vector<std::pair<std::uint64_t, W>> table(assocPair.begin(), assocPair.end());
    const auto kept = std::remove_if(table.begin(), table.end(),
                                     [](const auto& entry) { return entry.second <= W(0); });
    std::sort(table.begin(), kept, [](const auto& a, const auto& b) {
        return a.second > b.second || (!std::isnan(a.second) && std::isnan(b.second));
    });
    if (verbosity > 4) {
        for (std::size_t i = 0; i < table.size(); ++i) {
            calyxPrintf("  assocPair[%i] = (%i,%g)", std::uint64_t{i}, table[i].first,
                        static_cast<double>(table[i].second));
        }
        calyxPrintf("\n");
    }
    const std::uint64_t k =
        std::min<std::uint64_t>(static_cast<std::uint64_t>(kept - table.begin()), surrogateCount);
    for (std::uint64_t i = 0; i < k; ++i) {
        const auto [j, association] = table[i];
        const auto& column = *columns[j];
        predictors.push_back(j);
        associations.push_back(association);
        const ColumnSplit<X, W>& split = column.surrogateSplit;
        directions.push_back(split.direction);
        cutPoints.push_back(column.surrogateCut_);
        levelPairs.push_back(column.splitLevels(split));
        gains.push_back(split.gain);
    }
}

}  // namespace arbolin
