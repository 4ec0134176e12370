// Where one row ends up in a tree: the rules the module follows as it
// grows, applied to new data.
#pragma once

#include <cstdint>

#include "cli/tree_view.hpp"

namespace arbolin::cli {

// The row's value of predictor j is x[j * stride] (NaN when missing or
// unseen). At a numeric split a value below the cut goes left, at or above
// it right; at a nominal split the side whose level list holds it. Other
// rows go by the node's surrogates, best first: the first surrogate in
// which the row has a value decides, a numeric one honouring its
// direction. A row that no surrogate places stops at the node, as unrouted
// rows do while the tree grows. Returns the 0-based node where it stops.
std::uint64_t routeRow(const TreeView& tree, const double* x, std::uint64_t stride);

}  // namespace arbolin::cli
