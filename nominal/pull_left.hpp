// The greedy chain: all levels start right, and each step pulls left the
// best of each class's next level in its own order.
#pragma once

#include <algorithm>
#include <cmath>

#include "nominal/classification_finder.hpp"

namespace arbolin {

template <class X, class Y, class W>
W ClassificationNominalSplitFinder<X, Y, W>::pullLeft(NominalSplit& split) const {
    const auto& levelWeights = *levelWeights_;
    const auto& sortedLevels = *sortedLevels_;
    const std::uint64_t L = LevelSizes.size();
    const std::uint64_t K = classCount();
    const std::uint64_t C = K < 3 ? 1 : K;  // two classes: one list is enough
    const std::uint64_t N = rowTotal();
    const std::uint64_t steps = L == 0 ? 0 : L - 1;

    ClassWeights<W> pulledSums(K, W(0));
    ClassWeights<W> candidateLeft(K, W(0));
    ClassWeights<W> candidateRight(K, W(0));
    ScalableVector<std::uint64_t> pulled(steps, L);
    ScalableVector<std::uint64_t> cumulativeRows(steps, 0);
    struct Link {
        std::uint64_t step;
        W crit;
    };
    ScalableVector<Link> chain;
    chain.reserve(steps);
    ScalableVector<std::uint64_t> listPosition(C, 0);
    ScalableVector<W> classCrit(C, worst());
    ScalableVector<std::uint64_t> candidates(C, L);
    auto isPulled = [&](std::uint64_t level) {
        return std::find(pulled.begin(), pulled.end(), level) != pulled.end();
    };

    for (std::uint64_t i = 0; i < steps; ++i) {
        if (verbosity_ > 3) {
            calyxPrintf("Pulling category indices for classes:");
            for (std::uint64_t c = 0; c < C; ++c) {
                calyxPrintf(" Class=%i  Index=%i", c, listPosition[c]);
            }
            calyxPrintf("\n");
        }
        std::fill(classCrit.begin(), classCrit.end(), worst());
        std::fill(candidates.begin(), candidates.end(), L);
        for (std::uint64_t c = 0; c < C; ++c) {
            const auto& list = sortedLevels[c];
            std::uint64_t& position = listPosition[c];
            while (position < list.size() && isPulled(list[position])) {
                ++position;
            }
            if (position == list.size()) {
                continue;
            }
            const std::uint64_t level = list[position];
            if (std::find(candidates.begin(), candidates.begin() + c, level) !=
                candidates.begin() + c) {
                continue;  // tried for an earlier class in this step
            }
            candidates[c] = level;
            for (std::uint64_t k = 0; k < K; ++k) {
                candidateLeft[k] = pulledSums[k] + levelWeights[level][k];
            }
            criterion_->correct(candidateLeft, candidateLeft);
            for (std::uint64_t k = 0; k < K; ++k) {
                candidateRight[k] = ParentWeights[k] - candidateLeft[k];
            }
            if (sumInOrder(candidateLeft) > W(0) && sumInOrder(candidateRight) > W(0)) {
                classCrit[c] = criterion_->kids(candidateLeft, candidateRight);
            }
        }
        if (verbosity_ > 3) {
            calyxPrintf("Pulling categories:");
            for (std::uint64_t c = 0; c < C; ++c) {
                calyxPrintf("  %i", candidates[c]);
            }
            calyxPrintf("\n");
        }
        std::uint64_t bestK = 0;
        for (std::uint64_t c = 1; c < C; ++c) {
            if (classCrit[bestK] > classCrit[c]) {
                bestK = c;
            }
        }
        // With every trial failed and list bestK used up there is no level
        // to pull: the chain ends here.
        if (listPosition[bestK] >= sortedLevels[bestK].size()) {
            break;
        }
        const std::uint64_t ncat = sortedLevels[bestK][listPosition[bestK]];
        if (verbosity_ > 3) {
            calyxPrintf("     Found bestK=%i  ncat=%i\n", bestK, ncat);
        }
        for (std::uint64_t k = 0; k < K; ++k) {
            pulledSums[k] += levelWeights[ncat][k];
        }
        pulled[i] = ncat;
        chain.push_back({i, classCrit[bestK]});
        cumulativeRows[i] = (i == 0 ? 0 : cumulativeRows[i - 1]) + LevelSizes[ncat];
    }

    if (chain.empty()) {
        return worst();
    }
    // Rising Crit; a NaN goes last so that the order stays strict.
    std::sort(chain.begin(), chain.end(), [](const Link& a, const Link& b) {
        return a.crit < b.crit || (!std::isnan(a.crit) && std::isnan(b.crit));
    });
    if (!(chain.front().crit < worst())) {
        return worst();
    }
    const Link* accepted = nullptr;
    for (const Link& link : chain) {
        const std::uint64_t Nbelow = cumulativeRows[link.step];
        const std::uint64_t Nabove = N - Nbelow;
        if (verbosity_ > 3) {
            calyxPrintf("   Split candidate with Crit=%g  Nbelow=%i   Nabove=%i\n",
                        static_cast<double>(link.crit), Nbelow, Nabove);
        }
        if (Nabove >= minLeaf_ && Nbelow >= minLeaf_) {
            accepted = &link;
            break;
        }
    }
    if (accepted == nullptr) {
        return worst();
    }
    ScalableVector<bool> left(L, false);
    for (std::uint64_t i = 0; i <= accepted->step; ++i) {
        left[pulled[i]] = true;
    }
    for (std::uint64_t level = 0; level < L; ++level) {
        (left[level] ? split.Left : split.Right).push_back(level);
    }
    return accepted->crit;
}

}  // namespace arbolin
