// What a split of a column tells, whether the column won or imitates the
// winner: the rows of each child, the cut value, and the levels on each side.
#pragma once

#include <algorithm>

#include "columns/numeric_divisions.hpp"

namespace arbolin {

template <class X, class Y, class W>
SplitRows IndexedColumn<X, Y, W>::splitRows(const ColumnSplit<X, W>& split) const {
    SplitRows kids;
    const RowList& rows = *present_;
    if (!nominal_) {
        const std::int64_t d = split.division;
        if (d < 0) {
            return kids;
        }
        kids.left.assign(rows.begin(), rows.begin() + d + 1);
        kids.right.assign(rows.begin() + d + 1, rows.end());
        return kids;
    }
    // A row whose value is in neither list goes nowhere.
    const auto& left = split.leftLevels;
    const auto& right = split.rightLevels;
    for (std::uint64_t r : rows) {
        const X v = x_[r];
        if (std::binary_search(left.begin(), left.end(), v)) {
            kids.left.push_back(r);
        } else if (std::binary_search(right.begin(), right.end(), v)) {
            kids.right.push_back(r);
        }
    }
    return kids;
}

// The midpoint between the last value on the left and the first clearly
// different value above it; NaN for anything but a numeric split.
template <class X, class Y, class W>
X IndexedColumn<X, Y, W>::cutPoint(const ColumnSplit<X, W>& split) const {
    const std::int64_t d = split.division;
    if (d < 0) {
        return static_cast<X>(cxGetNaN());
    }
    const X a = valueAt(static_cast<std::uint64_t>(d));
    const std::uint64_t n = present_->size();
    for (std::uint64_t p = static_cast<std::uint64_t>(d) + 1; p < n; ++p) {
        const X b = valueAt(p);
        if (!isTied(b, a)) {
            return static_cast<X>(a + b) * X(0.5);
        }
    }
    return static_cast<X>(cxGetNaN());
}

template <class X, class Y, class W>
std::pair<ScalableVector<X>, ScalableVector<X>> IndexedColumn<X, Y, W>::splitLevels(
    const ColumnSplit<X, W>& split) const {
    if (split.leftLevels.empty() || split.rightLevels.empty()) {
        return {};
    }
    return {split.leftLevels, split.rightLevels};
}

}  // namespace arbolin
