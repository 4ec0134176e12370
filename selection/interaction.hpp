// Interaction tests: the cross of two predictors' bins against the response.
#pragma once

#include <algorithm>
#include <iterator>
#include <limits>

#include "columns/column_bodies.hpp"
#include "selection/contingency.hpp"

namespace arbolin {

// Missing values are one more bin of each predictor; the cells are the
// intersections of one bin of each (both lists by row number).
template <class X, class Y, class W>
W pairInteractionTest(const IndexedColumn<X, Y, W>& a, const IndexedColumn<X, Y, W>& b) {
    const ScalableVector<RowList>& binsA = a.levels.LevelRows;
    const ScalableVector<RowList>& binsB = b.levels.LevelRows;
    const std::uint64_t nA = binsA.size();
    const std::uint64_t nB = binsB.size();
    const std::uint64_t mA = nA + (a.missing_->empty() ? 0 : 1);
    const std::uint64_t mB = nB + (b.missing_->empty() ? 0 : 1);
    if (mA < 2 || mB < 2) {
        return W(1);
    }
    ScalableVector<RowList> cells;
    cells.reserve(mA * mB);
    for (std::uint64_t i = 0; i < mA; ++i) {
        const RowList& first = i < nA ? binsA[i] : a.sortedMissing_;
        for (std::uint64_t j = 0; j < mB; ++j) {
            const RowList& second = j < nB ? binsB[j] : b.sortedMissing_;
            RowList cell;
            std::set_intersection(first.begin(), first.end(), second.begin(), second.end(),
                                  std::back_inserter(cell));
            if (!cell.empty()) {
                cells.push_back(std::move(cell));
            }
        }
    }
    return contingencyTest(a, RowList(), cells, true);
}

// For one position of the drawn list: the best p-value of its predictor
// with any later one, and that partner (the first of equal p-values).
template <class X, class Y, class W>
struct ColumnInteractionTest {
    const ScalableVector<std::uint64_t>* candidates;
    const ColumnTable<X, Y, W>* columns;
    tbb::concurrent_vector<W>* pValues;
    tbb::concurrent_vector<std::uint64_t>* partners;
    std::uint64_t verbosity;

    void operator()(std::uint64_t i) const {
        const auto& list = *candidates;
        const std::uint64_t a = list[i];
        if (verbosity > 1) {
            calyxPrintf("Testing interaction for variable %i...\n", a);
        }
        ScalableVector<W> P(list.size() - 1 - i, std::numeric_limits<W>::max());
        for (std::uint64_t k = i + 1; k < list.size(); ++k) {
            hostInterruptCheck();
            if (verbosity > 1) {
                calyxPrintf("   Paired with variable %i -- ", list[k]);
            }
            P[k - i - 1] = pairInteractionTest(*(*columns)[a], *(*columns)[list[k]]);
        }
        std::size_t best = 0;
        for (std::size_t k = 1; k < P.size(); ++k) {
            if (P[best] > P[k]) {
                best = k;
            }
        }
        (*pValues)[a] = P[best];
        (*partners)[a] = list[i + 1 + best];
    }
};

}  // namespace arbolin
