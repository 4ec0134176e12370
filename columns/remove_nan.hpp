// Splitting the rows of a node by presence of a value in one predictor.
#pragma once

#include <utility>

#include "core/types.hpp"
#include "gateway/numora.hpp"

namespace arbolin {

// The two-ended walk that splits a row list by presence of a value in one
// column: rows for which `inFront` holds stay at the front, the others are
// swapped behind them. Returns where the rows behind begin. The order that
// results decides the order in which rows later join a child, so both uses
// share this one walk.
template <class X, class InFront>
std::size_t splitByNaN(const X* column, RowList& rows, InFront inFront) {
    std::size_t front = 0;
    std::size_t back = rows.size();
    while (front != back) {
        prefetchAhead(column, rows.data(), front, back);
        if (inFront(column[rows[front]])) {
            ++front;
            continue;
        }
        do {
            --back;
        } while (back != front && !inFront(column[rows[back]]));
        if (back == front) {
            break;
        }
        std::swap(rows[front], rows[back]);
        ++front;
    }
    return back;
}

template <class X>
bool isMissing(X value) {
    return cxIsNaN(static_cast<double>(value));
}

// Rows with a value stay in front of `present`, rows with NaN go to
// `missing`; the order of both lists is a by-product.
template <class X>
void removeNaN(const X* column, const RowList& rows, RowList& present, RowList& missing) {
    present = rows;
    const std::size_t back = splitByNaN(column, present, [](X v) { return !isMissing(v); });
    missing.assign(present.begin() + back, present.end());
    present.resize(back);
}

}  // namespace arbolin
