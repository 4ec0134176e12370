// Every phase of a node that runs on worker threads — the removal of missing
// values, the curvature and interaction tests, the search of numeric and
// nominal columns, the surrogate search — grows the same tree on one thread
// as on two. Under the thread sanitizer (scripts/tsan.sh) this is the fit
// that puts each of those loops on two threads.
#include <cmath>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <oneapi/tbb/global_control.h>

#include "tests/tree_inputs.hpp"

namespace arbolin {
namespace {

using testing::TreeCall;
using testing::TreeOutputs;
using testing::sameArray;

// 2000 weighted rows of seven predictors, some values missing: a numeric
// one and a noisy copy that can stand in for it, noise, a nominal one of 4
// levels and one of 14 (more than MaxCat), a numeric one that acts only
// with the noise, and one of ten tied values. Three classes, or a response.
struct Data {
    static constexpr std::uint64_t N = 2000, D = 7;
    std::vector<double> x = std::vector<double>(N * D), classes, response, weights;

    Data() {
        std::mt19937_64 rng(29);
        std::uniform_real_distribution<double> unit(0, 1);
        for (std::uint64_t i = 0; i < N; ++i) {
            const double a = std::round(unit(rng) * 50) / 50;
            const double noise = unit(rng);
            const double small = static_cast<double>(rng() % 4);
            const double large = static_cast<double>(10 + rng() % 14);
            const double acting = unit(rng);
            const double tied = static_cast<double>(rng() % 10);
            const double row[D] = {a, a + 0.1 * unit(rng), noise, small, large, acting, tied};
            for (std::uint64_t j = 0; j < D; ++j) x[j * N + i] = row[j];
            const double s = a + 0.2 * small + 0.05 * (static_cast<int>(large) % 5) +
                             (noise - 0.5) * (acting - 0.5) + 0.02 * tied + 0.2 * unit(rng);
            classes.push_back(s < 0.7 ? 0 : (s < 1.2 ? 1 : 2));
            response.push_back(s);
            weights.push_back(0.5 + unit(rng));
        }
        // Weights that sum to one, as callers pass them: the chi-square
        // tests scale them by N, and weights summing to N would make every
        // p-value 0 and skip the interaction tests.
        double total = 0;
        for (double v : weights) total += v;
        for (double& v : weights) v /= total;
        for (std::uint64_t j : {0, 1, 3, 4}) {
            for (std::uint64_t i = 0; i < N; ++i) {
                if (unit(rng) < 0.05) x[j * N + i] = std::nan("");
            }
        }
    }
};

TreeCall fitCall(const Data& data, const std::string& criterion, bool costs) {
    TreeCall call(Data::N, Data::D, data.x, criterion == "mse" ? data.response : data.classes,
                  criterion);
    call.set(2, TreeCall::matrix(Data::N, 1, data.weights));
    cxArray* isCat = cxCreateLogicalMatrix(1, Data::D);
    cxGetLogicals(isCat)[3] = true;
    cxGetLogicals(isCat)[4] = true;
    call.set(4, isCat);
    call.set(6, numora::cxCreateDoubleScalar(2));    // MinLeaf
    call.set(8, numora::cxCreateDoubleScalar(40));   // MaxSplits
    call.set(10, numora::cxCreateDoubleScalar(3));   // SurrogateCount
    call.set(15, numora::cxCreateLogicalScalar(true));  // curvature tests
    call.set(16, numora::cxCreateLogicalScalar(true));  // and interaction tests
    if (costs) call.set(13, TreeCall::matrix(3, 3, {0, 1, 4, 1, 0, 1, 2, 1, 0}));
    return call;
}

// How many elements of a cell are set and not empty.
std::uint64_t filled(const cxArray* cell) {
    std::uint64_t count = 0;
    for (std::uint64_t i = 0; i < cxGetNumberOfElements(cell); ++i) {
        const cxArray* a = cxGetCell(cell, i);
        count += a != nullptr && !cxIsEmpty(a);
    }
    return count;
}

TEST(ParallelPhases, OneOrTwoThreadsGrowTheSameTree) {
    numora::Module module(ARBOLIN_MODULE_PATH);
    const Data data;
    struct Case {
        const char* criterion;
        bool costs;
    };
    for (const Case c : {Case{"gini", false}, Case{"deviance", false}, Case{"twoing", false},
                         Case{"gini", true}, Case{"mse", false}}) {
        const std::string name = std::string(c.criterion) + (c.costs ? " with costs" : "");
        TreeCall call = fitCall(data, c.criterion, c.costs);
        TreeOutputs one, two;
        {
            tbb::global_control limit(tbb::global_control::max_allowed_parallelism, 1);
            module.call(22, one.arrays.data(), 20, call.inputs.data());
        }
        {
            tbb::global_control limit(tbb::global_control::max_allowed_parallelism, 2);
            module.call(22, two.arrays.data(), 20, call.inputs.data());
        }
        // Every phase had work: branches, nominal splits, curvature and
        // interaction tests, surrogates.
        EXPECT_GT(cxGetN(one.arrays[0]), 20u) << name;
        EXPECT_GT(filled(one.arrays[4]), 0u) << name;
        EXPECT_GT(filled(one.arrays[3]), 0u) << name;
        EXPECT_GT(filled(one.arrays[8]), 0u) << name;
        EXPECT_GT(filled(one.arrays[19]), 0u) << name;
        for (int k = 0; k < 22; ++k) {
            EXPECT_TRUE(sameArray(one.arrays[k], two.arrays[k])) << name << ", output " << k + 1;
        }
    }
}

}  // namespace
}  // namespace arbolin
