// Whole fits through the host's module loader: thread counts never change
// the answer, and Ctrl-C stops a large fit and leaves nothing behind.
#include <chrono>
#include <cstring>
#include <random>
#include <thread>

#include <gtest/gtest.h>
#include <oneapi/tbb/global_control.h>

#include "tests/tree_inputs.hpp"

namespace arbolin {
namespace {

using testing::TreeCall;
using testing::TreeOutputs;
using testing::sameArray;

// Continuous predictors with ties and a noisy class or response.
struct Data {
    std::uint64_t N, D;
    std::vector<double> x, classes, response;

    Data(std::uint64_t n, std::uint64_t d, unsigned seed) : N(n), D(d), x(n * d) {
        std::mt19937_64 rng(seed);
        std::uniform_real_distribution<double> unit(0, 1);
        for (double& v : x) v = std::round(unit(rng) * 200) / 200;
        for (std::uint64_t i = 0; i < N; ++i) {
            const double s = x[i] + x[N + i] * x[2 * N + i] + 0.3 * unit(rng);
            classes.push_back(s < 0.5 ? 0 : (s < 1.0 ? 1 : 2));
            response.push_back(s);
        }
    }
};

TEST(ModuleFit, OneOrTwoThreadsGrowTheSameTree) {
    numora::Module module(ARBOLIN_MODULE_PATH);
    const Data data(3000, 6, 11);
    for (const char* criterion : {"gini", "deviance", "twoing", "mse"}) {
        const bool regression = std::string(criterion) == "mse";
        TreeCall call(data.N, data.D, data.x, regression ? data.response : data.classes,
                      criterion);
        TreeOutputs one, two;
        {
            tbb::global_control limit(tbb::global_control::max_allowed_parallelism, 1);
            module.call(22, one.arrays.data(), 20, call.inputs.data());
        }
        {
            tbb::global_control limit(tbb::global_control::max_allowed_parallelism, 2);
            module.call(22, two.arrays.data(), 20, call.inputs.data());
        }
        EXPECT_GT(cxGetN(one.arrays[0]), 1u) << criterion;
        for (int k = 0; k < 22; ++k) {
            EXPECT_TRUE(sameArray(one.arrays[k], two.arrays[k])) << criterion << " output " << k + 1;
        }
    }
}

TEST(ModuleFit, CtrlCStopsALargeFit) {
    numora::Module module(ARBOLIN_MODULE_PATH);
    const Data data(200000, 8, 5);
    TreeCall call(data.N, data.D, data.x, data.response, "mse");
    std::thread user([] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        numora::requestInterrupt();
    });
    TreeOutputs outputs;
    EXPECT_THROW(module.call(22, outputs.arrays.data(), 20, call.inputs.data()),
                 numora::Interrupt);
    user.join();
    EXPECT_EQ(outputs.arrays[0], nullptr);  // nothing written
    EXPECT_FALSE(numora::interruptRequested());  // the call's scope cleared it
}

}  // namespace
}  // namespace arbolin
