// Every host allocation of a fit may fail (PCA buffers, call-back arrays,
// outputs), on any thread: the fit ends in a host error, gives back all it
// holds, and the next fit grows the same tree.
#include <cstdint>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "tests/tree_inputs.hpp"

namespace arbolin {
namespace {

using namespace testing;

constexpr const char* kPcaMemory =
    "tallix:silvan:learning:treeutils:ClassificationNominalSplitFinder:pca:MemoryLessThanXBytes";
constexpr const char* kHostMemory = "numora:memory:outOfMemory";
constexpr const char* kCallbackFailed = "failed on the class weights";

class AllocationFailure : public ::testing::TestWithParam<bool> {};

TEST_P(AllocationFailure, EveryHostAllocationOfAFitMayFail) {
    numora::Module module(ARBOLIN_MODULE_PATH);
    Registered parent("sweepgini", [](int, cxArray** outputs, int, cxArray** inputs) {
        outputs[0] = numora::cxCreateDoubleScalar(gini(inputs[0]));
    });
    Registered kids("sweepkids", [](int, cxArray** outputs, int, cxArray** inputs) {
        outputs[0] = numora::cxCreateDoubleScalar(gini(inputs[0]) + gini(inputs[1]));
    });
    Printed printed;
    TreeCall call = sixtyRows(GetParam());  // a custom Gini with a kids function, a few splits
    call.set(in::CriterionArg, functionNames("sweepgini", "sweepkids"));
    call.set(in::MaxSplits, 8);

    // The fit as it goes without failures, and the allocations it makes.
    TreeOutputs expected;
    const numora::AllocationCounts start = numora::allocationCounts();
    fit(module, call, expected);
    const std::uint64_t n = numora::allocationCounts().made - start.made;
    ASSERT_GT(cxGetN(expected[out::Children]), 4u);
    ASSERT_GT(filled(expected[out::SurrogatePredictors]), 0u);
    ASSERT_EQ(printed.take(), "");

    std::set<std::string> identifiers;
    std::set<std::int64_t> pcaBytes;  // the sizes the PCA buffers name
    bool callbackFailed = false;
    for (std::uint64_t k = 1; k <= n; ++k) {
        const std::uint64_t live = numora::allocationCounts().live;
        {
            TreeOutputs outputs;
            numora::failNthAllocation(k);
            try {
                fit(module, call, outputs);
                ADD_FAILURE() << "allocation " << k << " of " << n << ": no error";
            } catch (const numora::Exception& e) {
                // Only the allocation's own error, none from a half-made object.
                identifiers.insert(e.identifier());
                EXPECT_TRUE(e.identifier() == kHostMemory || e.identifier() == kPcaMemory)
                    << "allocation " << k << ": " << e.identifier() << ": " << e.text();
                if (e.identifier() == kPcaMemory) {
                    pcaBytes.insert(boost::get<std::int64_t>(e.message().args.at(0)));
                }
            } catch (...) {
                ADD_FAILURE() << "allocation " << k << ": not a host error";
            }
            numora::failNthAllocation(0);
            // The module names the failed call-back before the error goes on.
            const std::string text = printed.take();
            callbackFailed = callbackFailed || text.find(kCallbackFailed) != std::string::npos;
        }
        // Outputs already written are the caller's, and went with them.
        ASSERT_EQ(numora::allocationCounts().live, live) << "allocation " << k << " of " << n;
    }
    // The sweep crossed the PCA buffers, the arrays and the call-backs.
    EXPECT_EQ(identifiers, (std::set<std::string>{kHostMemory, kPcaMemory}));
    EXPECT_EQ(pcaBytes.count(3 * 3 * 8), 1u);  // among them the K by K matrix, K = 3
    EXPECT_TRUE(callbackFailed);

    TreeOutputs after;
    fit(module, call, after);
    EXPECT_EQ(firstDifference(after, expected), 0);
}

INSTANTIATE_TEST_SUITE_P(Costs, AllocationFailure, ::testing::Bool());

}  // namespace
}  // namespace arbolin
