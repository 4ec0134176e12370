// Twoing by hand in both precisions, and the criteria's flags (the others'
// scores: by hand in the Python one-node trees, and through whole trees).
#include <cmath>

#include <gtest/gtest.h>

#include "criteria/split_criteria_factory.hpp"

namespace arbolin {
namespace {

template <class W>
ClassWeights<W> weights(std::initializer_list<W> v) {
    return ClassWeights<W>(v);
}

template <class W>
class BuiltInCriteria : public ::testing::Test {};
using WeightTypes = ::testing::Types<double, float>;
TYPED_TEST_SUITE(BuiltInCriteria, WeightTypes);

TYPED_TEST(BuiltInCriteria, TwoingSeparation) {
    using W = TypeParam;
    const Twoing<double, W> twoing;
    EXPECT_EQ(twoing.parent(weights<W>({5, 1})), W(0));
    // Same fractions on both sides: no separation.
    EXPECT_EQ(twoing.kids(weights<W>({1, 3}), weights<W>({2, 6})), W(0));
    // Disjoint classes: A = 2, result -L R.
    EXPECT_EQ(twoing.kids(weights<W>({3, 0}), weights<W>({0, 5})), W(-15));
    // a = (2, 2), b = (0, 4): A = |0.5 - 0| + |0.5 - 1| = 1, -(4 * 4) * 1 / 4.
    EXPECT_EQ(twoing.kids(weights<W>({2, 2}), weights<W>({0, 4})), W(-4));
    EXPECT_FALSE(twoing.usesParent());
}

TEST(SplitCriteriaFactory, TheCostWrapperForwardsUsesParentButNotAllowsParallel) {
    // Whatever it wraps, the costs' wrapper allows a parallel search: a
    // custom criterion with costs is called back from worker threads.
    using Factory = SplitCriteriaFactory<double, double>;
    const double data[] = {0, 1, 3, 0};
    const CostMatrix<double> costs{data, 2, 2};
    EXPECT_TRUE(Factory::make("custom", &costs, "p", "").classification->allowsParallel());
    EXPECT_FALSE(Factory::make("custom", nullptr, "p", "").classification->allowsParallel());
    EXPECT_FALSE(Factory::make("twoing", &costs, "", "").classification->usesParent());
}

}  // namespace
}  // namespace arbolin
