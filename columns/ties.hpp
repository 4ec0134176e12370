// When two values of a predictor count as one: a numeric cut never falls
// between tied values.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>

namespace arbolin {

// Two values are tied when the midpoint of their sum (summed in X, halved
// and compared in double) equals one of them: equal or neighbouring
// numbers. An overflowing sum or a NaN makes them not tied.
template <class X>
bool isTied(X a, X b) {
    const X s = a + b;
    const double c = static_cast<double>(s) * 0.5;
    return c == static_cast<double>(a) || c == static_cast<double>(b);
}

// Between zero or normal numbers well inside the range of X, the midpoint
// neither overflows nor loses a bit to halving, so there isTied(a, b) holds
// exactly when a and b are equal or neighbours. In a column of such values
// only, a and b at least as far apart as two other values that are not
// tied are not tied either: whether values in order are tied can be told
// from how each stands to the one before it, without reading them again.
template <class X>
bool hasPlainTies(X v) {
    const X a = std::fabs(v);
    return a == X(0) ||
           (a >= 2 * std::numeric_limits<X>::min() && a <= std::numeric_limits<X>::max() / 4);
}

// How a value in order stands to the one before it, as two bits; the
// highest step over a stretch, their bitwise or, tells how its ends stand.
enum class Step : std::uint32_t {
    Equal = 0,  // the same number: tied
    Near = 1,   // neighbours: tied, but not always with what lies beyond
    Far = 3,    // not tied, and nothing across the step is tied
};

inline Step highest(Step a, Step b) {
    return static_cast<Step>(static_cast<std::uint32_t>(a) | static_cast<std::uint32_t>(b));
}

template <class X>
Step stepBetween(X before, X after) {
    if (before == after) {
        return Step::Equal;
    }
    return isTied(before, after) ? Step::Near : Step::Far;
}

}  // namespace arbolin
