// Refuses, before growing, a nominal search that could not finish in
// reasonable time: exact enumeration tries 2^(L-1) - 1 partitions of L
// levels at every node, which is hours from about 35 levels on.
#pragma once

#include "cli/settings.hpp"
#include "cli/training_data.hpp"

namespace arbolin::cli {

// Throws UserError naming --nominal-method or --max-cat, with the
// partition count and a rough time for the root, unless
// --allow-long-search is given.
void checkSearchCost(const TrainingData& data, const Settings& settings);

}  // namespace arbolin::cli
