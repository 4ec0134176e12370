// Whole fits: every phase of a node that runs on worker threads (missing
// values, curvature and interaction tests, numeric and nominal columns,
// surrogates) grows the same tree on one thread as on two, under the thread
// sanitizer too (scripts/tsan.sh); Ctrl-C stops a large fit cleanly.
#include <chrono>
#include <cmath>
#include <cstdint>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/tree_inputs.hpp"

namespace arbolin {
namespace {

using namespace testing;

// 2000 weighted rows of seven predictors, some values missing: a numeric
// one and a noisy copy that can stand in for it, noise, a nominal one of 4
// levels and one of 14 (more than MaxCat), a numeric one that acts only
// with the noise, and one of ten tied values. Three classes, or a response.
struct PhasesData {
    static constexpr std::uint64_t N = 2000, D = 7;
    std::vector<double> x = std::vector<double>(N * D), classes, response, weights;

    PhasesData() {
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
        // Weights summing to one, as callers pass them: summing to N, every
        // chi-square p-value would be 0 and skip the interaction tests.
        double total = 0;
        for (double v : weights) total += v;
        for (double& v : weights) v /= total;
        for (std::uint64_t j : {0, 1, 3, 4}) {
            for (std::uint64_t i = 0; i < N; ++i) {
                if (unit(rng) < 0.05) x[j * N + i] = std::nan("");
            }
        }
    }

    TreeCall call(const std::string& criterion, bool costs) const {
        TreeCall call(N, D, x, criterion == "mse" ? response : classes, criterion);
        call.set(in::W, TreeCall::matrix(N, 1, weights));
        call.nominal(D, {3, 4});
        call.set(in::MinLeaf, 2);
        call.set(in::MaxSplits, 40);
        call.set(in::SurrogateCount, 3);
        call.set(in::CurvatureFlag, numora::cxCreateLogicalScalar(true));
        call.set(in::InteractionFlag, numora::cxCreateLogicalScalar(true));
        if (costs) call.set(in::CostArg, TreeCall::matrix(3, 3, {0, 1, 4, 1, 0, 1, 2, 1, 0}));
        return call;
    }
};

TEST(ParallelPhases, OneOrTwoThreadsGrowTheSameTree) {
    numora::Module module(ARBOLIN_MODULE_PATH);
    const PhasesData phases;
    for (const auto& [criterion, costs] : {std::pair{"gini", false},
                                           {"deviance", false},
                                           {"twoing", false},
                                           {"gini", true},
                                           {"mse", false}}) {
        const std::string name = std::string(criterion) + (costs ? " with costs" : "");
        const TreeCall call = phases.call(criterion, costs);
        TreeOutputs one, two;
        fit(module, call, one, 1);
        fit(module, call, two, 2);
        EXPECT_GT(cxGetN(one[out::Children]), 20u) << name;
        // Every phase had work.
        for (out::Position p : {out::SplitLevels, out::CurvatureTests, out::InteractionTests,
                                out::SurrogatePredictors}) {
            EXPECT_GT(filled(one[p]), 0u) << name << ", " << contract::outputName(p);
        }
        EXPECT_EQ(firstDifference(one, two), 0) << name;
    }
}

TEST(ModuleFit, CtrlCStopsALargeFit) {
    numora::Module module(ARBOLIN_MODULE_PATH);
    // 200000 rows of eight predictors with ties, and a noisy response.
    const std::uint64_t N = 200000, D = 8;
    std::mt19937_64 rng(5);
    std::uniform_real_distribution<double> unit(0, 1);
    std::vector<double> x(N * D), y(N);
    for (double& v : x) v = std::round(unit(rng) * 200) / 200;
    for (std::uint64_t i = 0; i < N; ++i) y[i] = x[i] + x[N + i] * x[2 * N + i] + 0.3 * unit(rng);
    const TreeCall call(N, D, x, y, "mse");
    std::thread user([] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        numora::requestInterrupt();
    });
    TreeOutputs outputs;
    EXPECT_THROW(fit(module, call, outputs), numora::Interrupt);
    user.join();
    EXPECT_EQ(outputs[out::Children], nullptr);  // nothing written
    EXPECT_FALSE(numora::interruptRequested());  // the call's scope cleared it
}

}  // namespace
}  // namespace arbolin
