// The search of one node for its best split.
#pragma once

#include "core/node.hpp"

namespace arbolin {

// The column search lands with the predictor columns; until then no node
// finds a split.
template <class X, class Y, class W>
SplitRows Node<X, Y, W>::findBestSplit(const RowList&, std::uint64_t, std::uint64_t) {
    return {};
}

}  // namespace arbolin
