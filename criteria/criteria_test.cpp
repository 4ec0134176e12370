// Built-in criteria against values worked out by hand, in both precisions
// (the Python tests check the rest of the criteria through whole trees).
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
using ErrorOf = ClassifError<double, W>;
template <class W>
using GiniOf = Gini<double, W>;
template <class W>
using DevianceOf = Deviance<double, W>;
template <class W>
using TwoingOf = Twoing<double, W>;

template <class W>
class BuiltInCriteria : public ::testing::Test {};
using WeightTypes = ::testing::Types<double, float>;
TYPED_TEST_SUITE(BuiltInCriteria, WeightTypes);

TYPED_TEST(BuiltInCriteria, HandWorkedScores) {
    using W = TypeParam;
    const ErrorOf<W> error;
    const GiniOf<W> gini;
    const DevianceOf<W> deviance;
    for (const auto& v : {weights<W>({0, 7.5, 0}), ClassWeights<W>()}) {  // pure, empty
        EXPECT_EQ(error.parent(v), W(0));
        EXPECT_EQ(gini.parent(v), W(0));
        EXPECT_EQ(deviance.parent(v), W(0));
    }
    // Two even classes of total 6: error, gini and deviance all give 3.
    // Four even classes of total 8: deviance 8, gini and error 3/4 of 8.
    const auto two = weights<W>({3, 3}), four = weights<W>({2, 2, 2, 2});
    EXPECT_EQ(error.parent(two), W(3));
    EXPECT_EQ(gini.parent(two), W(3));
    EXPECT_NEAR(deviance.parent(two), W(3), 1e-6);
    EXPECT_NEAR(deviance.parent(four), W(8), 1e-5);
    EXPECT_EQ(gini.parent(four), W(6));
    EXPECT_EQ(error.parent(four), W(6));
    // No guard on the total: zeros give NaN.
    EXPECT_TRUE(std::isnan(gini.parent(weights<W>({0, 0}))));
}

TYPED_TEST(BuiltInCriteria, TwoingSeparation) {
    using W = TypeParam;
    const TwoingOf<W> twoing;
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
