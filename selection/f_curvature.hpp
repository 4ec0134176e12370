// The F curvature test: a weighted one-way analysis of variance of the
// numeric predictor, grouped by the response. It needs no order of rows.
#pragma once

#include <algorithm>

#include "columns/indexed_column.hpp"
#include "selection/response_groups.hpp"
#include "selection/tails.hpp"

namespace arbolin {

// The p-value of the column's values grouped by the response.
template <class X, class Y, class W>
W fTest(const IndexedColumn<X, Y, W>& column) {
    const RowList& rows = *column.present_;
    const X* x = column.x_;
    const W* w = column.w_;
    const std::uint64_t N = rows.size();
    const std::uint64_t K = column.classCount_;
    if (N < std::max<std::uint64_t>(2 * column.minLeaf_, K + 1)) {
        return W(1);
    }
    const ResponseGroups<X, Y, W> groupOf(column);
    const std::uint64_t groups = groupOf.count();
    W T = 0;
    W sumXW = 0;
    for (std::uint64_t r : rows) {
        T += w[r];
    }
    for (std::uint64_t r : rows) {
        sumXW += static_cast<W>(x[r]) * w[r];
    }
    ScalableVector<W> V(groups, W(0));
    ScalableVector<W> A(groups, W(0));
    for (std::uint64_t r : rows) {
        const std::uint64_t g = groupOf(r);
        V[g] += w[r];
        A[g] += static_cast<W>(x[r]) * w[r];
    }
    if (groups == 0) {
        return W(1);
    }
    std::uint64_t G = 0;
    for (std::uint64_t g = 0; g < groups; ++g) {
        if (V[g] > W(0)) {
            A[g] /= V[g];
            ++G;
        }
    }
    if (G < 2) {
        return W(1);
    }
    const W M = sumXW / T;
    W B = 0;
    for (std::uint64_t g = 0; g < groups; ++g) {
        const W d = A[g] - M;
        B += V[g] * d * d;
    }
    W U = 0;
    for (std::uint64_t r : rows) {
        const W d = static_cast<W>(x[r]) - A[groupOf(r)];
        U += w[r] * d * d;
    }
    const std::uint64_t v2 = N - G;
    const W u = U / static_cast<W>(v2);
    if (u <= W(0)) {
        return W(1);
    }
    const std::uint64_t v1 = G - 1;
    const W e = B / static_cast<W>(v1);
    const W F = e / u;
    const W p = fTail(v1, v2, F);
    if (column.verbosity_ != 0) {
        calyxPrintf(
            "        Ftest with exp. var. = %13.10g   unexp. var. = %13.10g   v1 = %i   v2 = %i    "
            "pval = %13.10g\n",
            static_cast<double>(e), static_cast<double>(u), v1, v2, static_cast<double>(p));
    }
    return p;
}

}  // namespace arbolin
