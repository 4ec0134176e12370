// Every partition of the levels into two non-empty sides.
#pragma once

#include "gateway/messages.hpp"
#include "nominal/classification_finder.hpp"

namespace arbolin {

// Bit c of a mask puts level c on the left. Only masks whose complement is
// not smaller are evaluated, so level L-1 is never on the left and each
// partition is met once; of equal Crit the smaller mask stands.
template <class X, class Y, class W>
W ClassificationNominalSplitFinder<X, Y, W>::exact(NominalSplit& split) const {
    const auto& levelWeights = *levelWeights_;
    const std::uint64_t L = LevelSizes.size();
    const std::uint64_t K = classCount();
    if (L > 63) {
        raise(tallix::silvan::learning::treeutils::ClassificationNominalSplitFinder::exact::
                  TooManyLevels(64));
    }
    const std::uint64_t N = rowTotal();
    const std::uint64_t T = std::uint64_t{1} << L;
    if (verbosity_ > 2) {
        calyxPrintf("Will inspect %i categorical splits for the exact method.\n", T - 2);
    }
    if (T - 1 <= 1) {
        return worst();
    }
    ClassWeights<W> below(K, W(0));
    ClassWeights<W> above(K, W(0));
    W best = worst();
    for (std::uint64_t mask = 1; mask <= T - 2; ++mask) {
        // With many levels one enumeration can run for hours: let Ctrl-C in
        // every 4096 masks, a cost lost next to the masks themselves.
        if ((mask & 0xFFF) == 0) {
            hostInterruptCheck();
        }
        const std::uint64_t complement = ~mask & (T - 1);
        if (complement < mask) {
            continue;
        }
        std::fill(below.begin(), below.end(), W(0));
        std::fill(above.begin(), above.end(), W(0));
        std::uint64_t Nbelow = 0;
        for (std::uint64_t c = 0; c < L; ++c) {
            if (mask & (std::uint64_t{1} << c)) {
                Nbelow += LevelSizes[c];
                for (std::uint64_t k = 0; k < K; ++k) {
                    below[k] += levelWeights[c][k];
                }
            }
        }
        criterion_->correct(below, below);
        for (std::uint64_t k = 0; k < K; ++k) {
            above[k] = ParentWeights[k] - below[k];
        }
        const std::uint64_t Nabove = N - Nbelow;
        const W belowSum = sumInOrder(below);
        const W aboveSum = sumInOrder(above);
        if (verbosity_ > 3) {
            calyxPrintf("     Analyzing split with Nbelow=%i  Nabove=%i   Wbelow=%g    Wabove=%g\n",
                        Nbelow, Nabove, static_cast<double>(belowSum),
                        static_cast<double>(aboveSum));
        }
        if (Nabove < minLeaf_ || Nbelow < minLeaf_ || belowSum <= W(0) || aboveSum <= W(0)) {
            continue;
        }
        const W crit = criterion_->kids(below, above);
        if (best > crit) {
            best = crit;
            split.clear();
            for (std::uint64_t c = 0; c < L; ++c) {
                (mask & (std::uint64_t{1} << c) ? split.Left : split.Right).push_back(c);
            }
        }
    }
    return best;
}

}  // namespace arbolin
