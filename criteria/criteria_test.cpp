// Built-in criteria against values worked out by hand.
#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include "criteria/split_criteria_factory.hpp"

namespace arbolin {
namespace {

template <class W>
ClassWeights<W> weights(std::initializer_list<W> v) {
    return ClassWeights<W>(v);
}

template <class W> using ErrorOf = ClassifError<double, W>;
template <class W> using GiniOf = Gini<double, W>;
template <class W> using DevianceOf = Deviance<double, W>;
template <class W> using TwoingOf = Twoing<double, W>;
template <class W> using CostOf = Cost<double, W>;
template <class W> using MseOf = MSE<double, W>;

template <class W>
class BuiltInCriteria : public ::testing::Test {};
using WeightTypes = ::testing::Types<double, float>;
TYPED_TEST_SUITE(BuiltInCriteria, WeightTypes);

TYPED_TEST(BuiltInCriteria, PureSetsScoreZero) {
    using W = TypeParam;
    const auto v = weights<W>({0, 7.5, 0});
    EXPECT_EQ(ErrorOf<W>().parent(v), W(0));
    EXPECT_EQ(GiniOf<W>().parent(v), W(0));
    EXPECT_EQ(DevianceOf<W>().parent(v), W(0));
}

TYPED_TEST(BuiltInCriteria, EvenSetsShareOneScale) {
    using W = TypeParam;
    // Two even classes of total 6: error, gini and deviance all give 3.
    const auto two = weights<W>({3, 3});
    EXPECT_EQ(ErrorOf<W>().parent(two), W(3));
    EXPECT_EQ(GiniOf<W>().parent(two), W(3));
    EXPECT_NEAR(DevianceOf<W>().parent(two), W(3), 1e-6);
    // Four even classes of total 8: deviance 8, gini and error 3/4 of 8.
    const auto four = weights<W>({2, 2, 2, 2});
    EXPECT_NEAR(DevianceOf<W>().parent(four), W(8), 1e-5);
    EXPECT_EQ(GiniOf<W>().parent(four), W(6));
    EXPECT_EQ(ErrorOf<W>().parent(four), W(6));
}

TYPED_TEST(BuiltInCriteria, UnevenSet) {
    using W = TypeParam;
    // v = (1, 4, 1), S = 6: gini (1 - (1 + 16 + 1) / 36) * 6 = 3;
    // deviance -(2 (1/6) ln(1/6) + (4/6) ln(4/6)) / (2 ln 2) * 6.
    const auto v = weights<W>({1, 4, 1});
    EXPECT_NEAR(GiniOf<W>().parent(v), W(3), 1e-6);
    const double dev = -(2.0 / 6 * std::log(1.0 / 6) + 4.0 / 6 * std::log(4.0 / 6)) /
                       (2 * std::log(2.0)) * 6;
    EXPECT_NEAR(DevianceOf<W>().parent(v), dev, 1e-5);
    EXPECT_EQ(ErrorOf<W>().parent(v), W(2));
}

TYPED_TEST(BuiltInCriteria, EmptyAndWeightlessSets) {
    using W = TypeParam;
    const ClassWeights<W> empty;
    EXPECT_EQ(GiniOf<W>().parent(empty), W(0));
    EXPECT_EQ(DevianceOf<W>().parent(empty), W(0));
    EXPECT_EQ(ErrorOf<W>().parent(empty), W(0));
    // No guard on S: zeros give NaN.
    EXPECT_TRUE(std::isnan(GiniOf<W>().parent(weights<W>({0, 0}))));
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

TYPED_TEST(BuiltInCriteria, CostOfCheapestAssignment) {
    using W = TypeParam;
    // C(0,1) = 3, C(1,0) = 1, zero diagonal, column-major.
    const W data[] = {0, 1, 3, 0};
    const CostMatrix<W> costs{data, 2, 2};
    // v = (2, 5): assign all to 0 costs 5 * 1 = 5, to 1 costs 2 * 3 = 6.
    EXPECT_EQ(CostOf<W>(costs).parent(weights<W>({2, 5})), W(5));
    // Ones off the diagonal equal ClassifError.
    const W ones[] = {0, 1, 1, 1, 0, 1, 1, 1, 0};
    const CostMatrix<W> unit{ones, 3, 3};
    const auto v = weights<W>({1.5, 4, 2});
    EXPECT_EQ(CostOf<W>(unit).parent(v), ErrorOf<W>().parent(v));
}

TYPED_TEST(BuiltInCriteria, MseIsWeightedSumOfSquares) {
    using W = TypeParam;
    const double y[] = {1, 2, 4, 100};
    const W w[] = {1, 2, 1, 9};
    const MseOf<W> mse;
    // Rows 0..2: mean (1 + 4 + 4) / 4 = 2.25; 1.5625 + 2 * 0.0625 + 3.0625 = 4.75.
    EXPECT_EQ(mse.parent(y, w, RowList{0, 1, 2}), W(4.75));
    EXPECT_EQ(mse.parent(y, w, RowList{3}), W(0));
    EXPECT_EQ(mse.parent(y, w, RowList{}), W(0));
    EXPECT_EQ(mse.kids(y, w, RowList{0, 1, 2}, RowList{3}), W(4.75));
}

TEST(AverageCostCorrection, FactorsAverageOne) {
    const double data[] = {0, 1, 3, 0};  // C(0,1) = 3, C(1,0) = 1
    const CostMatrix<double> costs{data, 2, 2};
    AverageCostCorrection<double, double> wrapped(std::make_unique<Gini<double, double>>(), costs);
    ASSERT_EQ(wrapped.factors().size(), 2u);
    EXPECT_EQ(wrapped.factors()[0], 1.5);
    EXPECT_EQ(wrapped.factors()[1], 0.5);
    ClassWeights<double> v{2, 4};
    wrapped.correct(v, v);
    EXPECT_EQ(v, (ClassWeights<double>{3, 2}));
    // Ones off the diagonal leave every weight as it is.
    const double ones[] = {0, 1, 1, 1, 0, 1, 1, 1, 0};
    AverageCostCorrection<double, double> unit(std::make_unique<Gini<double, double>>(),
                                               CostMatrix<double>{ones, 3, 3});
    for (double f : unit.factors()) EXPECT_EQ(f, 1.0);
}

TEST(SplitCriteriaFactory, KeywordsAndWrapping) {
    using Factory = SplitCriteriaFactory<double, double>;
    const double data[] = {0, 1, 3, 0};
    const CostMatrix<double> costs{data, 2, 2};
    auto check = [&](const char* keyword, const CostMatrix<double>* c, auto expectFirst,
                     bool expectRegression) {
        const auto made = Factory::make(keyword, c, "p", "k");
        EXPECT_EQ(made.regression != nullptr, expectRegression) << keyword;
        expectFirst(made.classification.get());
    };
    auto is = [](auto* typed) {
        return [](ClassificationSplitCriterion<double, double>* p) {
            EXPECT_NE(dynamic_cast<decltype(typed)>(p), nullptr);
        };
    };
    check("error", nullptr, is((ClassifError<double, double>*)nullptr), false);
    check("error", &costs, is((Cost<double, double>*)nullptr), false);
    check("gini", nullptr, is((Gini<double, double>*)nullptr), false);
    check("gdi", nullptr, is((Gini<double, double>*)nullptr), false);
    check("deviance", nullptr, is((Deviance<double, double>*)nullptr), false);
    check("twoing", &costs, is((AverageCostCorrection<double, double>*)nullptr), false);
    check("mse", nullptr, [](auto* p) { EXPECT_EQ(p, nullptr); }, true);
    check("custom", nullptr, is((CustomClassificationSplitCriterion<double, double>*)nullptr),
          false);

    // The wrapper forwards usesParent but not allowsParallel.
    EXPECT_TRUE(Factory::make("custom", &costs, "p", "").classification->allowsParallel());
    EXPECT_FALSE(Factory::make("custom", nullptr, "p", "").classification->allowsParallel());
    EXPECT_FALSE(Factory::make("twoing", &costs, "", "").classification->usesParent());
}

TEST(SplitCriteriaFactory, RefusesUnknownKeywords) {
    using Factory = SplitCriteriaFactory<double, float>;
    for (const char* keyword : {"Gini", "GDI", "", "entropy", "mse "}) {
        try {
            Factory::make(keyword, nullptr, "", "");
            ADD_FAILURE() << "accepted " << keyword;
        } catch (const tallix::silvan::learning::treeutils::SplitCriteriaFactory::make::BadCriterion&
                     e) {
            EXPECT_EQ(e.identifier(),
                      "tallix:silvan:learning:treeutils:SplitCriteriaFactory:make:BadCriterion");
        }
    }
}

}  // namespace
}  // namespace arbolin
