// A partition of the levels of a nominal predictor.
#pragma once

#include <cstdint>
#include <limits>
#include <utility>

#include "core/types.hpp"

namespace arbolin {

// Two lists of level indices; a method found a split when both are non-empty.
struct NominalSplit {
    ScalableVector<std::uint64_t> Left;
    ScalableVector<std::uint64_t> Right;

    bool found() const { return !Left.empty() && !Right.empty(); }
    void clear() {
        Left.clear();
        Right.clear();
    }
};

// What a method reports: whether it found a split, and its Crit.
template <class W>
struct MethodOutcome {
    bool found = false;
    W crit = std::numeric_limits<W>::max();
};

}  // namespace arbolin
