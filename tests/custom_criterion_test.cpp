// A split criterion written as host functions in C++: registered with the
// host and called back by the module, on worker threads too, it grows the
// tree of the built-in criterion it imitates; its exceptions come back with
// their own type after the module has said which function failed.
#include <atomic>
#include <cmath>
#include <cstring>
#include <mutex>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "tests/tree_inputs.hpp"

namespace arbolin {
namespace {

using testing::TreeCall;
using testing::TreeOutputs;
using testing::sameArray;

// Gini of a K by 1 column of class weights, with the arithmetic of the
// built-in criterion: sums in order from the first entry.
double gini(const cxArray* v) {
    const double* p = static_cast<const double*>(cxGetData(v));
    double s = 0;
    for (std::uint64_t i = 0; i < cxGetM(v); ++i) s += p[i];
    double q = 0;
    for (std::uint64_t i = 0; i < cxGetM(v); ++i) {
        const double r = p[i] / s;
        q += r * r;
    }
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

// 60 rows of three predictors on a grid, some missing, and three classes;
// MinParent 3, one surrogate, the costs when asked, the criterion given.
TreeCall treeCall(cxArray* criterion, bool costs) {
    const std::uint64_t N = 60, D = 3;
    std::mt19937_64 rng(17);
    std::uniform_real_distribution<double> unit(0, 1);
    std::vector<double> x(N * D), y(N);
    for (double& v : x) v = std::round(unit(rng) * 20) / 20;
    for (std::uint64_t i = 0; i < N; ++i) {
        const double s = x[i] + 0.6 * x[N + i] + 0.5 * unit(rng);
        y[i] = s < 0.6 ? 0 : (s < 1.1 ? 1 : 2);
    }
    for (double& v : x) {
        if (unit(rng) < 0.1) v = std::nan("");
    }
    TreeCall call(N, D, x, y, "gini");
    call.set(7, numora::cxCreateDoubleScalar(3));
    call.set(10, numora::cxCreateDoubleScalar(1));
    if (costs) {
        call.set(13, TreeCall::matrix(3, 3, {0, 1, 3, 1, 0, 1, 2, 1, 0}));
    }
    if (criterion != nullptr) call.set(5, criterion);
    return call;
}

cxArray* functionNames(const char* parent, const char* kids) {
    cxArray* cell = cxCreateCellMatrix(1, 2);
    cxSetCell(cell, 0, numora::cxCreateString(parent));
    cxSetCell(cell, 1, numora::cxCreateString(kids));
    return cell;
}

TEST(CustomCriterion, HostFunctionsOfCppGrowTheGiniTree) {
    numora::Module module(ARBOLIN_MODULE_PATH);
    Calls calls;
    Registered parent("cppgini", [&calls](int, cxArray** outputs, int, cxArray** inputs) {
        calls.note();
        answer(outputs, gini(inputs[0]));
    });
    Registered kids("cppkids", [&calls](int, cxArray** outputs, int, cxArray** inputs) {
        calls.note();
        answer(outputs, gini(inputs[0]) + gini(inputs[1]));
    });
    // Without costs the surrogate search calls back from worker threads;
    // with them every phase may. Nothing serialises these calls here, as the
    // interpreter lock does for Python, so a few rounds give them the chance
    // to overlap.
    for (int round = 0; round < 10; ++round) {
        for (const bool costs : {false, true}) {
            for (const char* kidsName : {"", "cppkids"}) {
                TreeCall builtIn = treeCall(nullptr, costs);
                TreeCall custom = treeCall(functionNames("cppgini", kidsName), costs);
                TreeOutputs expected, actual;
                module.call(22, expected.arrays.data(), 20, builtIn.inputs.data());
                const int before = calls.count;
                module.call(22, actual.arrays.data(), 20, custom.inputs.data());
                ASSERT_GT(calls.count, before + 100);
                ASSERT_GT(cxGetN(expected.arrays[0]), 9u);
                for (int k = 0; k < 22; ++k) {
                    ASSERT_TRUE(sameArray(actual.arrays[k], expected.arrays[k]))
                        << "costs " << costs << ", kids '" << kidsName << "', output " << k + 1;
                }
            }
        }
    }
    RecordProperty("callbackThreads", static_cast<int>(calls.threads.size()));
}

struct Refused : std::runtime_error {
    Refused() : std::runtime_error("no impurity today") {}
};

TEST(CustomCriterion, ExceptionOfAHostFunctionComesBackAfterItsMessage) {
    numora::Module module(ARBOLIN_MODULE_PATH);
    for (const bool costs : {false, true}) {
        Calls calls;
        // The tenth call is well into the search of the root.
        Registered parent("cppgini", [&calls](int, cxArray** outputs, int, cxArray** inputs) {
            if (calls.note() == 10) throw Refused();
            answer(outputs, gini(inputs[0]));
        });
        std::mutex mutex;
        std::string printed;
        numora::PrintSink previous = numora::setPrintSink([&](std::string_view text) {
            std::lock_guard<std::mutex> lock(mutex);
            printed += text;
        });
        TreeCall call = treeCall(functionNames("cppgini", ""), costs);
        TreeOutputs outputs;
        EXPECT_THROW(module.call(22, outputs.arrays.data(), 20, call.inputs.data()), Refused);
        numora::setPrintSink(std::move(previous));
        EXPECT_EQ(printed,
                  "The split criterion function 'cppgini' failed on the class weights of a "
                  "node.\n");
        EXPECT_EQ(outputs.arrays[0], nullptr);
    }
}

}  // namespace
}  // namespace arbolin
