// What a winning (or surrogate) column tells: the rows of each child, the
// cut value, and the levels on each side.
#pragma once

#include <algorithm>

#include "columns/numeric_divisions.hpp"

namespace arbolin {

template <class X, class Y, class W>
SplitRows IndexedColumn<X, Y, W>::splitRows(bool useSurrogate) const {
    SplitRows split;
    const RowList& rows = *present_;
    if (!nominal_) {
        const std::int64_t d = useSurrogate ? surrogateDivision_ : bestDivision_;
        if (d < 0) {
            return split;
        }
        split.left.assign(rows.begin(), rows.begin() + d + 1);
        split.right.assign(rows.begin() + d + 1, rows.end());
        return split;
    }
    // A row whose value is in neither list goes nowhere.
    const auto& left = useSurrogate ? SurrogateLeftValues : LeftValues;
    const auto& right = useSurrogate ? SurrogateRightValues : RightValues;
    for (std::uint64_t r : rows) {
        const X v = x_[r];
        if (std::binary_search(left.begin(), left.end(), v)) {
            split.left.push_back(r);
        } else if (std::binary_search(right.begin(), right.end(), v)) {
            split.right.push_back(r);
        }
    }
    return split;
}

// The midpoint between the last value on the left and the first clearly
// different value above it; NaN for anything but a numeric split.
template <class X, class Y, class W>
X IndexedColumn<X, Y, W>::cutPoint(bool useSurrogate) const {
    const std::int64_t d = useSurrogate ? surrogateDivision_ : bestDivision_;
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
    bool useSurrogate) const {
    const auto& left = useSurrogate ? SurrogateLeftValues : LeftValues;
    const auto& right = useSurrogate ? SurrogateRightValues : RightValues;
    if (left.empty() || right.empty()) {
        return {};
    }
    return {left, right};
}

}  // namespace arbolin
