// One class against all others: each class's levels, by falling fraction of
// that class, are cut like an ordered predictor; the best cut of all wins.
#pragma once

#include <algorithm>

#include "nominal/classification_finder.hpp"

namespace arbolin {

template <class X, class Y, class W>
W ClassificationNominalSplitFinder<X, Y, W>::ovaByClass(NominalSplit& split) const {
    const auto& levelWeights = *levelWeights_;
    const auto& sortedLevels = *sortedLevels_;
    const std::uint64_t L = LevelSizes.size();
    const std::uint64_t K = L == 0 ? 0 : classCount();
    const std::uint64_t N = rowTotal();
    if (K == 0) {
        return worst();
    }
    ClassWeights<W> Pbelow(K, W(0));
    ClassWeights<W> Pabove(K, W(0));
    W best = worst();
    std::uint64_t bestK = K;
    std::uint64_t bestL = L;
    for (std::uint64_t k = 0; k < K; ++k) {
        // A level short of minLeaf counts its rows but never adds its weights.
        ClassWeights<W> running(K, W(0));
        std::uint64_t Nbelow = 0;
        const auto& list = sortedLevels[k];
        const std::uint64_t M = std::min<std::uint64_t>(list.size(), L - 1);
        for (std::uint64_t t = 0; t < M; ++t) {
            const std::uint64_t c = list[t];
            Nbelow += LevelSizes[c];
            const std::uint64_t Nabove = N - Nbelow;
            if (verbosity_ > 3) {
                calyxPrintf("Nbelow=%i Nabove=%i\n", Nbelow, Nabove);
            }
            if (Nabove < minLeaf_ || Nbelow < minLeaf_) {
                continue;
            }
            for (std::uint64_t j = 0; j < K; ++j) {
                running[j] += levelWeights[c][j];
            }
            criterion_->correct(running, Pbelow);
            for (std::uint64_t j = 0; j < K; ++j) {
                Pabove[j] = ParentWeights[j] - Pbelow[j];
            }
            if (verbosity_ > 3) {
                calyxPrintf("Pbelow:");
                for (W v : Pbelow) calyxPrintf("   %g", static_cast<double>(v));
                calyxPrintf("\n");
                calyxPrintf("Pabove:");
                for (W v : Pabove) calyxPrintf("   %g", static_cast<double>(v));
                calyxPrintf("\n");
            }
            if (sumInOrder(Pbelow) > W(0) && sumInOrder(Pabove) > W(0)) {
                const W crit = criterion_->kids(Pbelow, Pabove);
                if (crit < best) {
                    best = crit;
                    bestK = k;
                    bestL = t;
                }
            }
        }
    }
    if (bestK < K) {
        if (verbosity_ > 3) {
            calyxPrintf("bestK=%i bestL=%i\n", bestK, bestL);
        }
        const auto& list = sortedLevels[bestK];
        split.Left.assign(list.begin(), list.begin() + bestL + 1);
        split.Right.assign(list.begin() + bestL + 1, list.end());
        // Levels without a row of class bestK go right, in level order.
        for (std::uint64_t level = 0; level < L; ++level) {
            if (std::find(list.begin(), list.end(), level) == list.end()) {
                split.Right.push_back(level);
            }
        }
    }
    return best;
}

}  // namespace arbolin
