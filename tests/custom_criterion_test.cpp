// A criterion of C++ host functions, called back on worker threads too,
// grows the tree of the built-in one it imitates (a failing one: the binding's).
#include <atomic>
#include <mutex>
#include <set>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "tests/tree_inputs.hpp"

namespace arbolin {
namespace {

using namespace testing;

// The calls of the criterion: how many, and from which threads.
struct Calls {
    std::atomic<int> count{0};
    std::mutex mutex;
    std::set<std::thread::id> threads;

    int note() {
        std::lock_guard<std::mutex> lock(mutex);
        threads.insert(std::this_thread::get_id());
        return ++count;
    }
};

TreeCall treeCall(cxArray* criterion, bool costs) {
    TreeCall call = sixtyRows(costs);
    if (criterion != nullptr) call.set(in::CriterionArg, criterion);
    return call;
}

TEST(CustomCriterion, HostFunctionsOfCppGrowTheGiniTree) {
    numora::Module module(ARBOLIN_MODULE_PATH);
    Calls calls;
    Registered parent("cppgini", [&calls](int, cxArray** outputs, int, cxArray** inputs) {
        calls.note();
        outputs[0] = numora::cxCreateDoubleScalar(gini(inputs[0]));
    });
    Registered kids("cppkids", [&calls](int, cxArray** outputs, int, cxArray** inputs) {
        calls.note();
        outputs[0] = numora::cxCreateDoubleScalar(gini(inputs[0]) + gini(inputs[1]));
    });
    // No interpreter lock serialises the calls here: rounds let them overlap.
    for (int round = 0; round < 10; ++round) {
        for (const bool costs : {false, true}) {
            for (const char* kidsName : {"", "cppkids"}) {
                TreeOutputs expected, actual;
                fit(module, treeCall(nullptr, costs), expected);
                const int before = calls.count;
                fit(module, treeCall(functionNames("cppgini", kidsName), costs), actual);
                ASSERT_GT(calls.count, before + 100);
                ASSERT_GT(cxGetN(expected[out::Children]), 9u);
                ASSERT_EQ(firstDifference(actual, expected), 0)
                    << "costs " << costs << ", kids '" << kidsName << "'";
            }
        }
    }
    RecordProperty("callbackThreads", static_cast<int>(calls.threads.size()));
}

}  // namespace
}  // namespace arbolin
