// A view of the caller's misclassification costs.
#pragma once

#include <cstdint>

namespace arbolin {

// Square, column-major: entry (i, j) is the cost of assigning to class j an
// observation of true class i. The view does not own the numbers.
template <class W>
struct CostMatrix {
    const W* data = nullptr;
    std::uint64_t rows = 0;
    std::uint64_t cols = 0;

    W operator()(std::uint64_t i, std::uint64_t j) const { return data[i + j * rows]; }
};

}  // namespace arbolin
