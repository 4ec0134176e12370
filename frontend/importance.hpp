// How much each predictor does for a tree: its share of the gains of the
// splits made on it, as the module measured them.
#pragma once

#include <cstdint>
#include <vector>

#include "frontend/model.hpp"

namespace arbolin::frontend {

// One entry a predictor (of `predictors`), summing to 1 when any split has
// a gain, all 0 otherwise. A branch adds its Gain to its split's predictor;
// with `surrogates`, each of its surrogates adds its own gain as a split
// too, in full, so that a predictor that stands in for another is seen.
// Leaves count for nothing, even one that shows a split it never made.
std::vector<double> featureImportance(const TreeView& tree, std::uint64_t predictors,
                                      bool surrogates);

}  // namespace arbolin::frontend
