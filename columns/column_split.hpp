// A split of one column as a value: the best split the column offers, or
// the split with which it imitates the node's winner. A column holds one of
// each; the operations that turn a split into rows, a cut and levels take
// the record.
#pragma once

#include <cstdint>
#include <limits>

#include "core/types.hpp"

namespace arbolin {

template <class X, class W>
struct ColumnSplit {
    W gain = std::numeric_limits<W>::lowest();
    // Numeric: the position of the last row on the left; -1 for none.
    std::int64_t division = -1;
    // Nominal: the raw values of each side, sorted.
    ScalableVector<X> leftLevels;
    ScalableVector<X> rightLevels;
    // A numeric imitation: +1 when the rows below the cut go left, -1 when
    // they go right; 0 for everything else.
    std::int64_t direction = 0;
};

}  // namespace arbolin
