// Levels scored on the first principal component of their centred class
// proportions, then cut along that order like an ordered predictor.
#pragma once

#include <algorithm>
#include <cmath>

#include "gateway/messages.hpp"
#include "nominal/classification_finder.hpp"
#include "nominal/lapack.hpp"

namespace arbolin {

template <class X, class Y, class W>
W ClassificationNominalSplitFinder<X, Y, W>::pca(NominalSplit& split) const {
    namespace msg = tallix::silvan::learning::treeutils::ClassificationNominalSplitFinder::pca;
    const auto& levelWeights = *levelWeights_;
    const std::uint64_t L = LevelSizes.size();
    const std::uint64_t K = classCount();
    const std::uint64_t N = rowTotal();

    // The node's class proportions.
    ClassWeights<W> P = ParentWeights;
    if (!P.empty()) {
        const W total = sumInOrder(ParentWeights);
        for (W& p : P) {
            p /= total;
        }
    }
    // Per level: corrected weights, then proportions centred on the node's.
    ScalableVector<ClassWeights<W>> A(L, ClassWeights<W>(K, W(0)));
    ScalableVector<W> rootWeights(L, W(0));
    for (std::uint64_t i = 0; i < L; ++i) {
        criterion_->correct(levelWeights[i], A[i]);
        if (A[i].empty()) {
            continue;
        }
        rootWeights[i] = sumInOrder(A[i]);
        for (W& a : A[i]) {
            a /= rootWeights[i];
        }
        for (std::uint64_t k = 0; k < K; ++k) {
            A[i][k] -= P[k];
        }
    }
    const W weightTotal = sumInOrder(rootWeights);
    for (W& v : rootWeights) {
        v /= weightTotal;
        if (v < W(0)) {
            v = W(0);
        }
        v = std::sqrt(v);
    }

    HostBuffers buffers;
    const std::uint64_t matrixBytes = K * K * 8;
    double* M = buffers.keep(cxMallocEx(matrixBytes));
    if (M == nullptr) {
        raise(msg::MemoryLessThanXBytes(matrixBytes));
    }
    std::fill(M, M + K * K, 0.0);
    {
        // C: K rows of L, each level's column scaled by its root weight;
        // M gets the upper triangle of C C'.
        ScalableVector<ScalableVector<W>> C(K, ScalableVector<W>(L));
        for (std::uint64_t i = 0; i < L; ++i) {
            for (std::uint64_t k = 0; k < K; ++k) {
                C[k][i] = A[i][k] * rootWeights[i];
            }
        }
        for (std::uint64_t a = 0; a < K; ++a) {
            for (std::uint64_t b = a; b < K; ++b) {
                W inner = 0;
                for (std::uint64_t i = 0; i < L; ++i) {
                    inner += C[a][i] * C[b][i];
                }
                M[a + b * K] = static_cast<double>(inner);
            }
        }
    }
    const std::uint64_t valueBytes = K * 8;
    double* eigenvalues = buffers.keep(cxMallocEx(valueBytes));
    if (eigenvalues == nullptr) {
        raise(msg::MemoryLessThanXBytes(valueBytes));
    }

    const std::int64_t n = static_cast<std::int64_t>(K);
    std::int64_t info = 0;
    std::int64_t query = -1;
    double optimum = 0;
    symmetricEigenSolver("V", "U", &n, M, &n, eigenvalues, &optimum, &query, &info, 1, 1);
    std::int64_t workLength = 3 * n + 1;
    if (static_cast<double>(workLength) < optimum) {
        workLength = static_cast<std::int64_t>(optimum);
    }
    const std::uint64_t workBytes = static_cast<std::uint64_t>(workLength) * 8;
    double* work = buffers.keep(cxMallocEx(workBytes));
    if (work == nullptr) {
        raise(msg::MemoryLessThanXBytes(workBytes));
    }
    symmetricEigenSolver("V", "U", &n, M, &n, eigenvalues, work, &workLength, &info, 1, 1);

    std::uint64_t e = 0;
    for (std::uint64_t k = 1; k < K; ++k) {
        if (eigenvalues[k] > eigenvalues[e]) {
            e = k;
        }
    }
    if (info < 0) {
        raise(msg::BadDSYEVXInput());
    }
    if (info > 0) {
        warn(msg::BadDSYEVXOutput());
        return worst();
    }

    struct Score {
        std::uint64_t level;
        W score;
    };
    ScalableVector<Score> scores(L);
    for (std::uint64_t i = 0; i < L; ++i) {
        W score = 0;
        for (std::uint64_t k = 0; k < K; ++k) {
            score += A[i][k] * static_cast<W>(M[k + e * K]);
        }
        scores[i] = {i, score};
    }
    ScalableVector<ClassWeights<W>>().swap(A);
    std::sort(scores.begin(), scores.end(), [](const Score& a, const Score& b) {
        return a.score < b.score || (!std::isnan(a.score) && std::isnan(b.score));
    });
    if (verbosity_ > 3) {
        calyxPrintf("Category scores:\n");
        for (const Score& s : scores) {
            calyxPrintf("    category %i   score %g\n", s.level, static_cast<double>(s.score));
        }
    }
    if (L == 1) {
        return worst();
    }

    // The cut scan. `above` takes the plain `below`, not its correction.
    ClassWeights<W> below(K, W(0));
    ClassWeights<W> corrected(K, W(0));
    ClassWeights<W> above(K, W(0));
    W best = worst();
    std::uint64_t bestPosition = L;
    std::uint64_t Nbelow = 0;
    for (std::uint64_t t = 0; t + 1 < L; ++t) {
        const std::uint64_t c = scores[t].level;
        Nbelow += LevelSizes[c];
        const std::uint64_t Nabove = N - Nbelow;
        if (Nabove < minLeaf_ || Nbelow < minLeaf_) {
            continue;
        }
        for (std::uint64_t k = 0; k < K; ++k) {
            below[k] += levelWeights[c][k];
        }
        criterion_->correct(below, corrected);
        for (std::uint64_t k = 0; k < K; ++k) {
            above[k] = ParentWeights[k] - below[k];
        }
        if (sumInOrder(below) > W(0) && sumInOrder(above) > W(0)) {
            const W crit = criterion_->kids(below, above);
            if (crit < best) {
                best = crit;
                bestPosition = t;
            }
        }
    }
    if (bestPosition < L) {
        for (std::uint64_t t = 0; t < L; ++t) {
            (t <= bestPosition ? split.Left : split.Right).push_back(scores[t].level);
        }
    }
    return best;
}

}  // namespace arbolin
