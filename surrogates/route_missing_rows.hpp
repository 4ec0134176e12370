// Sending the rows without a value in the winner to the children.
#pragma once

#include <algorithm>
#include <utility>

#include "columns/remove_nan.hpp"
#include "core/surrogate_set.hpp"
#include "gateway/numora.hpp"

namespace arbolin {

template <class X, class W>
void SurrogateSet<X, W>::routeMissingRows(RowList& rows, SplitRows& kids, const X* x,
                                          std::uint64_t rowCount) const {
    if (rows.empty() || predictors.empty()) {
        return;
    }
    for (std::size_t i = 0; i < predictors.size(); ++i) {
        const X* column = x + rowCount * predictors[i];
        // Rows with NaN here to the front, rows with a value behind: the
        // mirror of the split of a node's rows by presence.
        const std::size_t back = splitByNaN(column, rows, [](X v) { return isMissing(v); });
        RowList placed(rows.begin() + back, rows.end());
        rows.resize(back);
        if (placed.empty()) {
            continue;
        }
        if (isMissing(cutPoints[i])) {
            // Nominal: a value in neither list, or a one-sided surrogate,
            // drops the row from both children.
            const auto& [left, right] = levelPairs[i];
            if (left.empty() || right.empty()) {
                continue;
            }
            RowList toLeft;
            RowList toRight;
            for (std::uint64_t r : placed) {
                const X v = column[r];
                if (std::binary_search(left.begin(), left.end(), v)) {
                    toLeft.push_back(r);
                } else if (std::binary_search(right.begin(), right.end(), v)) {
                    toRight.push_back(r);
                }
            }
            kids.left.insert(kids.left.end(), toLeft.begin(), toLeft.end());
            kids.right.insert(kids.right.end(), toRight.begin(), toRight.end());
            continue;
        }
        RowList low;
        RowList high;
        for (std::uint64_t r : placed) {
            (cutPoints[i] > column[r] ? low : high).push_back(r);
        }
        const bool mirrored = directions[i] < 0;
        RowList& toLeft = mirrored ? high : low;
        RowList& toRight = mirrored ? low : high;
        kids.left.insert(kids.left.end(), toLeft.begin(), toLeft.end());
        kids.right.insert(kids.right.end(), toRight.begin(), toRight.end());
    }
}

}  // namespace arbolin
