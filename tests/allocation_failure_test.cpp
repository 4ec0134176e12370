// Every host allocation of a fit may fail: the PCA buffers, the arrays of the
// criterion's call-backs and the outputs. Whichever one does, on whichever
// thread, the fit ends in a host error and gives back everything it holds,
// and the next fit grows the same tree.
#include <cmath>
#include <cstdint>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include <gtest/gtest.h>

#include "tests/tree_inputs.hpp"

namespace arbolin {
namespace {

using testing::TreeCall;
using testing::TreeOutputs;
using testing::sameArray;

constexpr const char* kPcaMemory =
    "tallix:silvan:learning:treeutils:ClassificationNominalSplitFinder:pca:MemoryLessThanXBytes";
constexpr const char* kHostMemory = "numora:memory:outOfMemory";
constexpr const char* kCallbackFailed = "failed on the class weights";

// Gini of a column of class weights, as a host function answers it.
double gini(const cxArray* v) {
    const double* p = static_cast<const double*>(cxGetData(v));
    double s = 0;
    for (std::uint64_t i = 0; i < cxGetM(v); ++i) s += p[i];
    double q = 0;
    for (std::uint64_t i = 0; i < cxGetM(v); ++i) q += (p[i] / s) * (p[i] / s);
    return (1 - q) * s;
}

void answer(cxArray** outputs, double value) {
    outputs[0] = cxCreateNumericMatrix(1, 1, cxDOUBLE_CLASS, cxREAL);
    *static_cast<double*>(cxGetData(outputs[0])) = value;
}

// Host functions registered for the life of the object.
class Registered {
public:
    Registered(const std::string& name, numora::HostFunction fn) : name_(name) {
        numora::registerFunction(name, std::move(fn));
    }
    ~Registered() { numora::unregisterFunction(name_); }

private:
    std::string name_;
};

// Printed text, from whichever thread prints.
class Printed {
public:
    Printed() {
        previous_ = numora::setPrintSink([this](std::string_view text) {
            std::lock_guard<std::mutex> lock(mutex_);
            text_ += text;
        });
    }
    ~Printed() { numora::setPrintSink(std::move(previous_)); }
    std::string take() {
        std::lock_guard<std::mutex> lock(mutex_);
        return std::exchange(text_, std::string());
    }

private:
    numora::PrintSink previous_;
    std::mutex mutex_;
    std::string text_;
};

// 60 rows, three classes: a numeric predictor, a nominal one of 9 levels
// searched by PCA, and a noisy copy of the first that can stand in for it;
// some values missing in each. A custom Gini with a kids function, two
// surrogates. Without costs only the surrogate search runs on worker
// threads; with them the column bodies (and PCA) do too.
TreeCall sweepCall(bool costs) {
    const std::uint64_t N = 60, D = 3;
    std::mt19937_64 rng(23);
    std::uniform_real_distribution<double> unit(0, 1);
    std::vector<double> x(N * D), y(N);
    for (std::uint64_t i = 0; i < N; ++i) {
        x[i] = std::round(unit(rng) * 20) / 20;
        x[N + i] = static_cast<double>(1 + i % 9);
        x[2 * N + i] = x[i] + 0.2 * unit(rng);
        const double s = x[i] + 0.15 * static_cast<double>(i % 9 % 4) + 0.3 * unit(rng);
        y[i] = s < 0.6 ? 0 : (s < 1.1 ? 1 : 2);
    }
    for (double& v : x) {
        if (unit(rng) < 0.08) v = std::nan("");
    }
    TreeCall call(N, D, x, y, "gini");
    cxArray* isCat = cxCreateLogicalMatrix(1, D);
    cxGetLogicals(isCat)[1] = true;
    call.set(4, isCat);
    cxArray* names = cxCreateCellMatrix(1, 2);
    cxSetCell(names, 0, numora::cxCreateString("sweepgini"));
    cxSetCell(names, 1, numora::cxCreateString("sweepkids"));
    call.set(5, names);
    call.set(7, numora::cxCreateDoubleScalar(4));   // MinParent
    call.set(8, numora::cxCreateDoubleScalar(8));   // MaxSplits
    call.set(10, numora::cxCreateDoubleScalar(2));  // SurrogateCount
    call.set(12, numora::cxCreateDoubleScalar(3));  // AlgCat: PCA
    if (costs) call.set(13, TreeCall::matrix(3, 3, {0, 1, 3, 1, 0, 1, 2, 1, 0}));
    return call;
}

class AllocationFailure : public ::testing::TestWithParam<bool> {};

TEST_P(AllocationFailure, EveryHostAllocationOfAFitMayFail) {
    numora::Module module(ARBOLIN_MODULE_PATH);
    Registered parent("sweepgini", [](int, cxArray** outputs, int, cxArray** inputs) {
        answer(outputs, gini(inputs[0]));
    });
    Registered kids("sweepkids", [](int, cxArray** outputs, int, cxArray** inputs) {
        answer(outputs, gini(inputs[0]) + gini(inputs[1]));
    });
    Printed printed;
    TreeCall call = sweepCall(GetParam());

    // The fit as it goes without failures, and the allocations it makes.
    TreeOutputs expected;
    const numora::AllocationCounts start = numora::allocationCounts();
    module.call(22, expected.arrays.data(), 20, call.inputs.data());
    const std::uint64_t n = numora::allocationCounts().made - start.made;
    ASSERT_GT(cxGetN(expected.arrays[0]), 4u);  // a tree of a few splits
    bool surrogates = false;
    for (std::uint64_t i = 0; i < cxGetM(expected.arrays[19]); ++i) {
        surrogates = surrogates || cxGetN(cxGetCell(expected.arrays[19], i)) > 0;
    }
    ASSERT_TRUE(surrogates);
    ASSERT_EQ(printed.take(), "");

    std::set<std::string> identifiers;
    bool callbackFailed = false;
    for (std::uint64_t k = 1; k <= n; ++k) {
        const std::uint64_t live = numora::allocationCounts().live;
        {
            TreeOutputs outputs;
            numora::failNthAllocation(k);
            try {
                module.call(22, outputs.arrays.data(), 20, call.inputs.data());
                ADD_FAILURE() << "allocation " << k << " of " << n << ": no error";
            } catch (const numora::Exception& e) {
                // Only the allocation's own error: no other error caused by
                // a half-made object on the way out.
                identifiers.insert(e.identifier());
                EXPECT_TRUE(e.identifier() == kHostMemory || e.identifier() == kPcaMemory)
                    << "allocation " << k << ": " << e.identifier() << ": " << e.text();
            } catch (...) {
                ADD_FAILURE() << "allocation " << k << ": not a host error";
            }
            numora::failNthAllocation(0);
            // The module says which call-back failed before the host
            // raises the error again.
            const std::string text = printed.take();
            callbackFailed = callbackFailed || text.find(kCallbackFailed) != std::string::npos;
        }
        // Outputs already written are the caller's, and went with them.
        ASSERT_EQ(numora::allocationCounts().live, live) << "allocation " << k << " of " << n;
    }
    // The sweep crossed the PCA buffers, the arrays and the call-backs.
    EXPECT_EQ(identifiers, (std::set<std::string>{kHostMemory, kPcaMemory}));
    EXPECT_TRUE(callbackFailed);

    TreeOutputs after;
    module.call(22, after.arrays.data(), 20, call.inputs.data());
    for (int k = 0; k < 22; ++k) {
        EXPECT_TRUE(sameArray(after.arrays[k], expected.arrays[k])) << "output " << k + 1;
    }
}

INSTANTIATE_TEST_SUITE_P(Costs, AllocationFailure, ::testing::Bool());

}  // namespace
}  // namespace arbolin
