// The chi-square curvature test: bins of a numeric predictor (or the levels
// of a nominal one) laid out against the response; the interaction tests
// use it on the cells of two predictors.
#pragma once

#include <algorithm>

#include "columns/indexed_column.hpp"
#include "selection/response_groups.hpp"
#include "selection/tails.hpp"

namespace arbolin {

// Pearson's statistic of the rows (bins, levels or cells) against the
// response, with missing rows as one more row. Expected counts are the plain
// products of row sums and column totals, and the statistic is scaled by
// the rows of the whole data set: the scale every node shares.
template <class X, class Y, class W>
W contingencyTest(const IndexedColumn<X, Y, W>& column, const RowList& missing,
                  const ScalableVector<RowList>& rows, bool ignoreLevelTable) {
    const W* w = column.w_;
    const std::uint64_t K = column.classCount_;
    // The response's column of a row: its group.
    const ResponseGroups<X, Y, W> columnOf(column);
    const bool classification = columnOf.byClass();
    const std::uint64_t C = columnOf.count();
    auto addRows = [&](const RowList& list, ScalableVector<W>& into) {
        for (std::uint64_t r : list) {
            into[columnOf(r)] += w[r];
        }
    };
    ScalableVector<ScalableVector<W>> table;
    if (classification && column.nominal_ && !ignoreLevelTable) {
        const auto& levelWeights = column.levels.LevelWeights;
        table.assign(levelWeights.begin(), levelWeights.end());
    } else {
        table.assign(rows.size(), ScalableVector<W>(C, W(0)));
        for (std::size_t i = 0; i < rows.size(); ++i) {
            addRows(rows[i], table[i]);
        }
    }
    const std::uint64_t n = table.size();
    if (n < 2) {
        return W(1);
    }
    const std::uint64_t m = n + (missing.empty() ? 0 : 1);

    ScalableVector<W> totals(C, W(0));
    ScalableVector<W> missingRow(C, W(0));
    std::uint64_t G = 0;
    if (classification) {
        for (std::uint64_t k = 0; k < K; ++k) {
            const W share = (*column.nodeClassProb_)[k];
            totals[k] = share * column.nodeProb_;
            G += share > W(0) ? 1 : 0;
        }
        if (!missing.empty()) {
            addRows(missing, missingRow);
        }
    } else {
        addRows(*column.present_, totals);
        G = (totals[0] > W(0) ? 1 : 0) + (totals[1] > W(0) ? 1 : 0);
        if (G < 2) {
            return W(1);
        }
        if (!missing.empty()) {
            addRows(missing, missingRow);
            for (std::uint64_t k = 0; k < C; ++k) {
                totals[k] += missingRow[k];
            }
        }
    }
    ScalableVector<W> rowSums(m, W(0));
    for (std::uint64_t r = 0; r < n; ++r) {
        rowSums[r] = sumInOrder(table[r]);
    }
    if (!missing.empty()) {
        rowSums[n] = sumInOrder(missingRow);
    }
    W S = 0;
    for (std::uint64_t k = 0; k < C; ++k) {
        if (!(totals[k] > W(0))) {
            continue;
        }
        for (std::uint64_t r = 0; r < m; ++r) {
            const W E = rowSums[r] * totals[k];
            const W O = r < n ? table[r][k] : missingRow[k];
            const W d = O - E;
            S += d * (d / E);
        }
    }
    const std::uint64_t v = (m - 1) * (G - 1);
    W x = 0;
    W p = 1;
    if (!(S < W(0))) {
        x = static_cast<W>(column.rowCount_) * S;
        if (v != 0 && !(x <= W(0))) {
            p = chiSquareTail(v, x);
        }
    }
    if (column.verbosity_ != 0) {
        calyxPrintf(
            "        Contingency table with response: x = %13.10g   v = %i    pval = %13.10g\n",
            static_cast<double>(x), v, static_cast<double>(p));
    }
    return p;
}

}  // namespace arbolin
