// Upper tails of the chi-square and F distributions, on the host's
// incomplete gamma and beta functions.
#pragma once

#include <cstdint>

#include "gateway/numora.hpp"

namespace arbolin {

// P(chi-square with dof degrees of freedom > x). The halves are taken in W
// (an odd dof keeps its .5) and widened for the host.
template <class W>
W chiSquareTail(std::uint64_t dof, W x) {
    const W halfX = x / W(2);
    const W halfDof = static_cast<W>(dof) / W(2);
    return static_cast<W>(numfunc::gammainc(static_cast<double>(halfX),
                                            static_cast<double>(halfDof), numfunc::Tail::Upper));
}

// P(F with v1, v2 degrees of freedom > F), by whichever of the two equal
// forms keeps the host's argument at or below one half.
template <class W>
W fTail(std::uint64_t v1, std::uint64_t v2, W F) {
    if (v1 == 0 || v2 == 0 || F <= W(0)) {
        return W(1);
    }
    const W d1 = static_cast<W>(v1);
    const W d2 = static_cast<W>(v2);
    const W t = (W(1) / F) * d2;
    if (d1 > t) {
        return static_cast<W>(
            numfunc::betainc(static_cast<double>(t / (d1 + t)), static_cast<double>(W(0.5) * d2),
                             static_cast<double>(W(0.5) * d1), numfunc::Tail::Lower));
    }
    return static_cast<W>(numfunc::betainc(static_cast<double>(d1 / (d1 + t)),
                                           static_cast<double>(W(0.5) * d1),
                                           static_cast<double>(W(0.5) * d2), numfunc::Tail::Upper));
}

}  // namespace arbolin
