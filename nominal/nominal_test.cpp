// Level tables, and the PCA search's solver failures (the Python tests check
// the searches and the merging of one-class values through whole trees).
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "columns/column.hpp"
#include "criteria/gini.hpp"
#include "host/numora_host.hpp"
#include "tests/gini_column.hpp"

namespace arbolin {
namespace {

// A nominal column over rows 0..n-1, sorted and divided as the search would.
struct NominalColumn : testing::GiniColumn {
    NominalColumn(std::vector<double> xs, std::vector<double> ys, std::uint64_t K)
        : GiniColumn(std::move(xs), std::move(ys), {K, 1, true}) {
        column->divide();
    }

    ClassWeights<double> totals() const {
        ClassWeights<double> t(column->classCount_, 0.0);
        for (std::size_t i = 0; i < y.size(); ++i) t[static_cast<std::size_t>(y[i])] += w[i];
        return t;
    }
    ClassificationNominalSplitFinder<double, double, double> finder() const {
        return ClassificationNominalSplitFinder<double, double, double>(
            column->levels, column->classCriterion_, totals(), column->minLeaf_,
            column->verbosity_);
    }
};

TEST(BuildLevels, OneDistinctValueHasNoLevels) {
    NominalColumn c({7, 7, 7, 7}, {0, 1, 0, 1}, 2);
    EXPECT_TRUE(c.column->levels.LevelValues.empty());
}

// Stands in for the eigen solver to reach its failure paths.
std::int64_t gInfo = 0;
void failingSolver(const char*, const char*, const std::int64_t* n, double*, const std::int64_t*,
                   double* w, double* work, const std::int64_t*, std::int64_t* info, std::size_t,
                   std::size_t) {
    for (std::int64_t k = 0; k < *n; ++k) w[k] = 0;
    work[0] = 1;
    *info = gInfo;
}

TEST(PCA, SolverFailures) {
    NominalColumn c({1, 1, 2, 2, 3, 3, 4, 4}, {0, 1, 1, 2, 0, 2, 1, 0}, 3);
    NominalSplit split;
    EXPECT_TRUE(c.finder().runMethod(split, 2).found);

    std::vector<std::string> warnings;
    auto previous = numora::setWarningSink(
        [&](const numora::Message& m, const std::string&) { warnings.push_back(m.key); });
    symmetricEigenSolver = &failingSolver;
    gInfo = 1;  // no convergence: a warning, and no split from this method
    EXPECT_FALSE(c.finder().runMethod(split, 2).found);
    gInfo = -3;  // a bad argument ends the tree
    EXPECT_THROW(
        c.finder().runMethod(split, 2),
        tallix::silvan::learning::treeutils::ClassificationNominalSplitFinder::pca::BadDSYEVXInput);
    symmetricEigenSolver = &dsyev_;
    numora::setWarningSink(previous);
    EXPECT_EQ(warnings, std::vector<std::string>{"BadDSYEVXOutput"});
}

}  // namespace
}  // namespace arbolin
