// Splitting the rows of a node by presence of a value in one predictor.
#pragma once

#include <utility>

#include "core/types.hpp"
#include "gateway/numora.hpp"

namespace arbolin {

// Rows with a value stay in front of `present`, rows with NaN go to
// `missing`; the order of both lists is a by-product.
template <class X>
void removeNaN(const X* column, const RowList& rows, RowList& present, RowList& missing) {
    present = rows;
    std::size_t front = 0;
    std::size_t back = present.size();
    while (front != back) {
        prefetchAhead(column, present.data(), front, back);
        if (!cxIsNaN(static_cast<double>(column[present[front]]))) {
            ++front;
            continue;
        }
        do {
            --back;
        } while (back != front && cxIsNaN(static_cast<double>(column[present[back]])));
        if (back == front) {
            break;
        }
        std::swap(present[front], present[back]);
        ++front;
    }
    missing.assign(present.begin() + back, present.end());
    present.resize(back);
}

}  // namespace arbolin
