// The curvature phase of a node's search: the predictors whose p-values
// say they matter are chosen for the exhaustive search.
#pragma once

#include <cstdint>

#include "columns/column_bodies.hpp"
#include "core/node.hpp"

namespace arbolin {

// Every predictor of p-value 0 is chosen and recorded in `tests`. Without
// one, the predictor of the smallest p-value under 0.05 is chosen and
// recorded, or (D, 0.05) is recorded as it is when none comes under.
// Returns that smallest p-value (0.05 when none comes under): the bar for
// the interaction tests.
template <class X, class Y, class W>
W chooseByCurvature(const ScalableVector<std::uint64_t>& sampled,
                    const ColumnTable<X, Y, W>& columns, ScalableVector<std::uint64_t>& chosen,
                    ScalableVector<CurvatureTest<W>>& tests) {
    const std::uint64_t D = columns.size();
    W bestP = W(0.05);
    std::uint64_t bestVar = D;
    for (std::uint64_t j : sampled) {
        const W p = columns[j]->pValue_;
        if (W(0) >= p) {
            chosen.push_back(j);
            tests.push_back({j, p});
        }
        if (bestP > p) {
            bestP = p;
            bestVar = j;
        }
    }
    if (chosen.empty()) {
        tests.push_back({bestVar, bestP});
        if (bestVar < D) {
            chosen.push_back(bestVar);
        }
    }
    return bestP;
}

}  // namespace arbolin
