// Node statistics against hand-worked examples.
#include <cmath>
#include <string>

#include <gtest/gtest.h>

#include "core/grow.hpp"
#include "criteria/split_criteria_factory.hpp"
#include "host/numora_host.hpp"

namespace arbolin {
namespace {

template <class Y, class W>
struct Fixture {
    Criteria<Y, W> criteria;
    TreeSettings<double, Y, W> settings;
    Node<double, Y, W> node;

    Fixture(const std::string& criterion, const Y* y, const W* w, std::uint64_t K,
            const CostMatrix<W>* costs = nullptr)
        : criteria(SplitCriteriaFactory<Y, W>::make(criterion, costs, "", "")) {
        settings.y = y;
        settings.w = w;
        settings.classificationCriterion = criteria.classification.get();
        settings.regressionCriterion = criteria.regression.get();
        node.settings = &settings;
        node.ClassCount.assign(K, Y(0));
        node.ClassProb.assign(K, W(0));
    }
};

// Classes (0, 1, 1, 2, 1) with weights (1, 2, 1, 1, 1): S = 6,
// ClassProb (1/6, 4/6, 1/6), ClassCount (1, 3, 1), NodeValue 1.
const double kClasses[] = {0, 1, 1, 2, 1};
const double kWeights[] = {1, 2, 1, 1, 1};

TEST(InitNode, ClassificationStatistics) {
    Fixture<double, double> f("gini", kClasses, kWeights, 3);
    f.node.initNode(RowList{0, 1, 2, 3, 4});
    EXPECT_EQ(f.node.NodeSize, 5u);
    EXPECT_EQ(f.node.NodeProb, 6.0);
    EXPECT_EQ(f.node.CorrectedNodeProb, 6.0);
    EXPECT_DOUBLE_EQ(f.node.ClassProb[0], 1.0 / 6);
    EXPECT_DOUBLE_EQ(f.node.ClassProb[1], 4.0 / 6);
    EXPECT_EQ(f.node.ClassCount, (ScalableVector<double>{1, 3, 1}));
    EXPECT_EQ(f.node.NodeValue, 1.0);
    EXPECT_NEAR(f.node.NodeRisk, 3.0, 1e-12);  // (1 - 18/36) * 6
}

TEST(InitNode, CostCorrectionChangesTheCorrectedWeight) {
    // Row sums 3 and 1 of a 2-class matrix: factors 1.5 and 0.5.
    const double classes[] = {0, 1, 1};
    const double weights[] = {1, 1, 2};
    const double data[] = {0, 1, 3, 0};
    const CostMatrix<double> costs{data, 2, 2};
    Fixture<double, double> f("gini", classes, weights, 2, &costs);
    f.node.initNode(RowList{0, 1, 2});
    EXPECT_EQ(f.node.NodeProb, 4.0);
    EXPECT_EQ(f.node.CorrectedNodeProb, 1.5 + 1.5);  // (1 * 1.5) + (3 * 0.5)
    EXPECT_NEAR(f.node.NodeRisk, 1.5, 1e-12);        // even corrected classes: S / 2
}

TEST(InitNode, EmptyAndWeightlessNodes) {
    Fixture<double, double> f("deviance", kClasses, kWeights, 3);
    f.node.initNode(RowList{});
    EXPECT_EQ(f.node.NodeProb, 0.0);
    EXPECT_TRUE(std::isnan(f.node.ClassProb[0]));
    EXPECT_EQ(f.node.NodeValue, 0.0);
    EXPECT_EQ(f.node.ClassCount, (ScalableVector<double>{0, 0, 0}));
    EXPECT_TRUE(std::isnan(f.node.CorrectedNodeProb));

    const float zeros[] = {0, 0, 0, 0, 0};
    Fixture<double, float> z("gini", kClasses, zeros, 3);
    z.node.initNode(RowList{0, 1, 2});
    EXPECT_EQ(z.node.NodeProb, 0.0f);
    EXPECT_TRUE(std::isnan(z.node.CorrectedNodeProb));
    EXPECT_EQ(z.node.ClassCount, (ScalableVector<double>{1, 2, 0}));
}

TEST(InitNode, TiesGoToTheLowerClass) {
    const double classes[] = {1, 0, 2};
    const double weights[] = {2, 2, 1};
    Fixture<double, double> f("error", classes, weights, 3);
    f.node.initNode(RowList{0, 1, 2});
    EXPECT_EQ(f.node.NodeValue, 0.0);
    EXPECT_EQ(f.node.NodeRisk, 3.0);  // 5 - 2
}

TEST(InitNode, RegressionStatistics) {
    const float y[] = {1, 2, 4};
    const double w[] = {1, 2, 1};
    Fixture<float, double> f("mse", y, w, 1);
    f.node.initNode(RowList{0, 1, 2});
    EXPECT_EQ(f.node.NodeProb, 4.0);
    EXPECT_EQ(f.node.NodeValue, 2.25);
    EXPECT_EQ(f.node.NodeRisk, 4.75);
    EXPECT_EQ(f.node.ClassCount, (ScalableVector<float>{3}));
    EXPECT_EQ(f.node.ClassProb, (ScalableVector<double>{1}));

    f.node.initNode(RowList{});
    EXPECT_EQ(f.node.NodeProb, 0.0);
    EXPECT_TRUE(std::isnan(f.node.NodeValue));
    EXPECT_EQ(f.node.NodeRisk, 0.0);
    EXPECT_EQ(f.node.ClassCount[0], 0.0f);
}

TEST(InitNode, VerboseReport) {
    std::string printed;
    auto previous = numora::setPrintSink([&](std::string_view s) { printed += s; });
    Fixture<double, double> f("gini", kClasses, kWeights, 3);
    f.settings.Verbosity = 1;
    f.node.initNode(RowList{0, 1, 3});
    const double y[] = {1, 3};
    const double w[] = {1, 1};
    Fixture<double, double> r("mse", y, w, 1);
    r.settings.Verbosity = 1;
    r.node.initNode(RowList{0, 1});
    numora::setPrintSink(previous);
    EXPECT_EQ(printed,
              "  NodeProb = 4\n  Corrected NodeProb = 4\n  ClassProb:  0.25 0.5 0.25\n"
              "  Corrected ClassProb:  1 2 1\n  NodeRisk = 2.5\n"
              "  NodeProb = 2\n  Corrected NodeProb = 2\n  ClassProb:  1\n\n  NodeRisk = 2\n");
}

}  // namespace
}  // namespace arbolin
