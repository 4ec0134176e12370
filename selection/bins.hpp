// The bins of a numeric predictor for the chi-square curvature and the
// interaction tests.
#pragma once

#include <algorithm>

#include "columns/indexed_column.hpp"

namespace arbolin {

// At most four bins of roughly equal weight, never cutting between the rows
// of one division, so ties stay together.
template <class X, class Y, class W>
void makeBins(IndexedColumn<X, Y, W>& column) {
    const auto& divisions = column.divisions_;
    ScalableVector<RowList>& LevelRows = column.levels.LevelRows;
    const W* w = column.w_;
    const std::uint64_t D = divisions.size();
    if (D == 0 || !LevelRows.empty()) {
        return;
    }
    const std::uint64_t B = D <= 3 ? D + 1 : 4;
    const RowList& rows = *column.present_;
    if (rows.size() < B) {
        return;
    }
    LevelRows.assign(B, RowList());
    // Cumulative weight up to and including each division, then the total.
    ScalableVector<W> c(D + 1, W(0));
    std::uint64_t position = 0;
    for (std::uint64_t k = 0; k <= D; ++k) {
        const std::uint64_t last = k < D ? divisions[k] + 1 : rows.size();
        for (; position < last; ++position) {
            c[k] += w[rows[position]];
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
                last = divisions[cursor - 1] + 1;
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
    if (column.interaction_) {
        for (RowList& bin : LevelRows) {
            std::sort(bin.begin(), bin.end());
        }
    }
    if (column.verbosity_ > 1) {
        calyxPrintf("    Found %i bins:\n", std::uint64_t{LevelRows.size()});
        for (std::size_t b = 0; b < LevelRows.size(); ++b) {
            calyxPrintf("         Bin %i     Num observations = %10i\n", std::uint64_t{b},
                        std::uint64_t{LevelRows[b].size()});
        }
    }
}

}  // namespace arbolin
