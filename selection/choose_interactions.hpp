// The interaction phase of a node's search: pairs of predictors against the
// best single predictor.
#pragma once

#include <algorithm>

#include "core/node.hpp"
#include "selection/interaction.hpp"

namespace arbolin {

// Pairs of predictors compete with the best single one when no single
// predictor was conclusive; a pair that wins replaces the chosen list. The
// pairs that count go to `tests`.
template <class X, class Y, class W>
void testInteractions(const ScalableVector<std::uint64_t>& sampled,
                      const ColumnTable<X, Y, W>& columns, W bestP, const LoopConditions& loops,
                      ScalableVector<std::uint64_t>& chosen,
                      ScalableVector<InteractionTest<W>>& tests) {
    const std::uint64_t D = columns.size();
    tbb::concurrent_vector<W> pValues(D, W(1));
    tbb::concurrent_vector<std::uint64_t> partners(D, D);
    ScalableVector<std::uint64_t> positions(sampled.size() - 1);
    for (std::uint64_t i = 0; i < positions.size(); ++i) {
        positions[i] = i;
    }
    forEachPredictor(
        Phase::InteractionTests, loops, positions,
        ColumnInteractionTest<X, Y, W>{&sampled, &columns, &pValues, &partners, loops.verbosity});
    std::uint64_t m = 0;
    for (std::uint64_t i = 1; i < D; ++i) {
        if (pValues[m] > pValues[i]) {
            m = i;
        }
    }
    const W q = pValues[m];
    if (bestP > q) {
        chosen.clear();
        if (q <= W(0)) {
            for (std::uint64_t i = 0; i < D; ++i) {
                if (pValues[i] == q) {
                    chosen.push_back(i);
                    chosen.push_back(partners[i]);
                    tests.push_back({i, partners[i], q});
                }
            }
            std::sort(chosen.begin(), chosen.end());
            chosen.erase(std::unique(chosen.begin(), chosen.end()), chosen.end());
        } else {
            chosen.push_back(m);
            chosen.push_back(partners[m]);
        }
    }
    if (tests.empty() && q < W(1)) {
        tests.push_back({m, partners[m], q});
    }
}

}  // namespace arbolin
