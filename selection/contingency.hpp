// The chi-square curvature test: bins of a numeric predictor (or the levels
// of a nominal one) laid out against the response.
#pragma once

#include <algorithm>

#include "columns/indexed_column.hpp"
#include "selection/tails.hpp"

namespace arbolin {

// At most four bins of roughly equal weight, never cutting between the rows
// of one division, so ties stay together.
template <class X, class Y, class W>
void IndexedColumn<X, Y, W>::makeBins() {
    const std::uint64_t D = divisions_.size();
    if (D == 0 || !LevelRows.empty()) {
        return;
    }
    const std::uint64_t B = D <= 3 ? D + 1 : 4;
    const RowList& rows = *present_;
    if (rows.size() < B) {
        return;
    }
    LevelRows.assign(B, RowList());
    // Cumulative weight up to and including each division, then the total.
    ScalableVector<W> c(D + 1, W(0));
    std::uint64_t position = 0;
    for (std::uint64_t k = 0; k <= D; ++k) {
        const std::uint64_t last = k < D ? divisions_[k] + 1 : rows.size();
        for (; position < last; ++position) {
            c[k] += w_[rows[position]];
        }
    }
    for (std::uint64_t k = 1; k <= D; ++k) {
        c[k] += c[k - 1];
    }
    const W T = c[D];
    const W q = T / static_cast<W>(B);
    std::uint64_t filled = 0;
    if (T > W(0)) {
        const std::uint64_t end = D + 1;  // the position after the last entry of c
        std::uint64_t first = 0;          // first row of the bin
        std::uint64_t cursor = 0;
        W reached = 0;
        for (std::uint64_t b = 1;; ++b) {
            W target = static_cast<W>(b) * q;
            if (reached >= target) {
                target = q + reached;
            }
            std::uint64_t j = cursor;
            while (j < end && !(c[j] > target)) {
                ++j;
            }
            auto step = [&] {
                if (cursor != end) {
                    ++cursor;
                }
            };
            if (j == cursor) {
                step();
            } else {
                cursor = j;
                if (target > c[cursor - 1]) {
                    step();
                }
            }
            std::uint64_t last;  // one past the bin's last row
            if (cursor == end) {
                last = rows.size();
                reached = T;
            } else {
                last = divisions_[cursor - 1] + 1;
                reached = c[cursor - 1];
            }
            LevelRows[b - 1].assign(rows.begin() + first, rows.begin() + last);
            filled = b;
            first = last;
            if (!(reached < T) || b == B) {
                break;
            }
        }
    }
    LevelRows.resize(filled);
    if (interaction_) {
        for (RowList& bin : LevelRows) {
            std::sort(bin.begin(), bin.end());
        }
    }
    if (verbosity_ > 1) {
        calyxPrintf("    Found %i bins:\n", std::uint64_t{LevelRows.size()});
        for (std::size_t b = 0; b < LevelRows.size(); ++b) {
            calyxPrintf("         Bin %i     Num observations = %10i\n", std::uint64_t{b},
                        std::uint64_t{LevelRows[b].size()});
        }
    }
}

// Pearson's statistic of the rows (bins, levels or cells) against the
// response, with missing rows as one more row. Expected counts are the plain
// products of row sums and column totals, and the statistic is scaled by
// the rows of the whole data set: the scale every node shares.
template <class X, class Y, class W>
W IndexedColumn<X, Y, W>::contingencyTest(const RowList& missing,
                                          const ScalableVector<RowList>& rows,
                                          bool ignoreLevelTable) const {
    const std::uint64_t K = classCount_;
    const bool classification = K > 1;
    const std::uint64_t C = classification ? K : 2;
    // The response's column of a row: its class, or whether it lies below
    // the node's mean.
    auto columnOf = [&](std::uint64_t r) -> std::uint64_t {
        if (classification) {
            return classOf(y_[r]);
        }
        return static_cast<W>(y_[r]) < nodeValue_ ? 0 : 1;
    };
    auto addRows = [&](const RowList& list, ScalableVector<W>& into) {
        for (std::uint64_t r : list) {
            into[columnOf(r)] += w_[r];
        }
    };
    ScalableVector<ScalableVector<W>> table;
    if (classification && nominal_ && !ignoreLevelTable) {
        table.assign(LevelWeights.begin(), LevelWeights.end());
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
            totals[k] = (*nodeClassProb_)[k] * nodeProb_;
            G += (*nodeClassProb_)[k] > W(0) ? 1 : 0;
        }
        if (!missing.empty()) {
            addRows(missing, missingRow);
        }
    } else {
        addRows(*present_, totals);
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
        x = static_cast<W>(rowCount_) * S;
        if (v != 0 && !(x <= W(0))) {
            p = chiSquareTail(v, x);
        }
    }
    if (verbosity_ != 0) {
        calyxPrintf("        Contingency table with response: x = %13.10g   v = %i    pval = %13.10g\n",
                    static_cast<double>(x), v, static_cast<double>(p));
    }
    return p;
}

}  // namespace arbolin
