// Node statistics the outputs cannot tell: the corrected weight of a node
// without weight, and ties of class weights.
#include <cmath>
#include <string>

#include <gtest/gtest.h>

#include "core/grow.hpp"
#include "criteria/split_criteria_factory.hpp"

namespace arbolin {
namespace {

template <class Y, class W>
struct Fixture {
    Criteria<Y, W> criteria;
    TreeSettings<double, Y, W> settings;
    Node<double, Y, W> node;

    Fixture(const std::string& criterion, const Y* y, const W* w, std::uint64_t K)
        : criteria(SplitCriteriaFactory<Y, W>::make(criterion, nullptr, "", "")) {
        settings.y = y;
        settings.w = w;
        settings.classificationCriterion = criteria.classification.get();
        settings.regressionCriterion = criteria.regression.get();
        node.settings = &settings;
        node.ClassCount.assign(K, Y(0));
        node.ClassProb.assign(K, W(0));
    }
};

const double kClasses[] = {0, 1, 1, 2, 1};
const double kWeights[] = {1, 2, 1, 1, 1};

// The other statistics of such nodes are the Python one-node outputs.
TEST(InitNode, EmptyAndWeightlessNodesHaveNoCorrectedWeight) {
    Fixture<double, double> f("deviance", kClasses, kWeights, 3);
    f.node.initNode(RowList{});
    EXPECT_TRUE(std::isnan(f.node.CorrectedNodeProb));
    const float zeros[] = {0, 0, 0, 0, 0};
    Fixture<double, float> z("gini", kClasses, zeros, 3);
    z.node.initNode(RowList{0, 1, 2});
    EXPECT_TRUE(std::isnan(z.node.CorrectedNodeProb));
}

TEST(InitNode, TiesGoToTheLowerClass) {
    const double classes[] = {1, 0, 2};
    const double weights[] = {2, 2, 1};
    Fixture<double, double> f("error", classes, weights, 3);
    f.node.initNode(RowList{0, 1, 2});
    EXPECT_EQ(f.node.NodeValue, 0.0);
    EXPECT_EQ(f.node.NodeRisk, 3.0);  // 5 - 2
}

}  // namespace
}  // namespace arbolin
