// The level tables of a column: built by buildLevels for a nominal
// predictor (nominal/build_levels.hpp), read by the partition searches, and
// for the curvature and interaction tests the rows of each level, or of
// each bin of a numeric predictor (selection/bins.hpp).
#pragma once

#include <cstdint>

#include "core/types.hpp"

namespace arbolin {

template <class X, class W>
struct LevelTables {
    // Rows of each level or bin, as far as a test needs them.
    ScalableVector<RowList> LevelRows;
    // Per level: its raw values, its rows per class, its weight per class
    // (one column in regression).
    ScalableVector<ScalableVector<X>> LevelValues;
    ScalableVector<ScalableVector<std::uint64_t>> LevelCounts;
    ScalableVector<ScalableVector<W>> LevelWeights;
    // Per class (one list in regression), the level numbers in search order.
    ScalableVector<ScalableVector<std::uint64_t>> SortedLevels;

    // Rows per level, over all classes.
    ScalableVector<std::uint64_t> levelSizes() const {
        ScalableVector<std::uint64_t> sizes(LevelCounts.size(), 0);
        for (std::size_t level = 0; level < sizes.size(); ++level) {
            sizes[level] = sumInOrder(LevelCounts[level]);
        }
        return sizes;
    }
};

}  // namespace arbolin
