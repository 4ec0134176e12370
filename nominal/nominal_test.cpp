// Level tables and the partition searches of nominal columns.
#include <cmath>
#include <numeric>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "columns/column.hpp"
#include "tests/gini_column.hpp"
#include "criteria/gini.hpp"
#include "host/numora_host.hpp"

namespace arbolin {
namespace {

using Levels = std::vector<std::uint64_t>;

// A nominal column over rows 0..n-1, sorted and divided as the search would.
struct NominalColumn : testing::GiniColumn {
    NominalColumn(std::vector<double> xs, std::vector<double> ys, std::uint64_t K,
                  std::uint64_t algCat = 0, std::uint64_t maxCat = 10, std::uint64_t minLeaf = 1)
        : GiniColumn(std::move(xs), std::move(ys), {K, minLeaf, true, algCat, maxCat}) {
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

TEST(BuildLevels, PureValuesMergeIntoOneLevelPerClass) {
    // Values 1 and 4 only ever class 0, 5 only class 1; 2 and 3 are mixed.
    NominalColumn c({4, 1, 2, 2, 3, 3, 5, 1}, {0, 0, 0, 1, 1, 0, 1, 0}, 2);
    const auto& col = c.column->levels;
    ASSERT_EQ(col.LevelValues.size(), 4u);
    EXPECT_EQ(col.LevelValues[0], ScalableVector<double>({2}));
    EXPECT_EQ(col.LevelValues[1], ScalableVector<double>({3}));
    EXPECT_EQ(col.LevelValues[2], ScalableVector<double>({1, 4}));  // merged, class 0
    EXPECT_EQ(col.LevelValues[3], ScalableVector<double>({5}));     // merged, class 1
    EXPECT_EQ(col.LevelCounts[2], ScalableVector<std::uint64_t>({3, 0}));
    // Class 0 by falling fraction: merged (1), then 2 and 3 (1/2 each, equal
    // weight, either order); class 1: merged 5 (1), then the two halves.
    EXPECT_EQ(col.SortedLevels[0].front(), 2u);
    EXPECT_EQ(col.SortedLevels[0].size(), 3u);
    EXPECT_EQ(col.SortedLevels[1].front(), 3u);
    const auto before = col.LevelValues;
    buildLevels(*c.column);  // a second call changes nothing
    EXPECT_EQ(col.LevelValues, before);
}

TEST(BuildLevels, OneDistinctValueHasNoLevels) {
    NominalColumn c({7, 7, 7, 7}, {0, 1, 0, 1}, 2);
    EXPECT_TRUE(c.column->levels.LevelValues.empty());
}

TEST(Exact, VisitsEachPartitionOnceWithTheTopLevelRight) {
    // Three mixed levels: masks 1, 2, 3 are evaluated, in that order.
    NominalColumn c({1, 1, 2, 2, 3, 3, 3}, {0, 1, 1, 2, 0, 2, 2}, 3);
    std::string printed;
    auto previous = numora::setPrintSink([&](std::string_view s) { printed += s; });
    c.column->verbosity_ = 4;
    NominalSplit split;
    c.finder().runMethod(split, 0);
    c.column->verbosity_ = 0;
    numora::setPrintSink(previous);
    EXPECT_NE(printed.find("Will inspect 6 categorical splits for the exact method.\n"),
              std::string::npos);
    EXPECT_NE(printed.find("Nbelow=2  Nabove=5"), std::string::npos);
    EXPECT_NE(printed.find("Nbelow=4  Nabove=3"), std::string::npos);
    EXPECT_EQ(printed.find("Nbelow=3"), std::string::npos);  // level 2 is never left
    EXPECT_EQ(split.Right.back(), 2u);
}

TEST(Exact, RefusesSixtyFourLevels) {
    std::vector<double> x, y;
    for (int level = 0; level < 64; ++level) {
        for (int k = 0; k < 2; ++k) {
            x.push_back(level);
            y.push_back((level + k) % 3);
        }
    }
    NominalColumn c(x, y, 3);
    ASSERT_EQ(c.column->levels.LevelValues.size(), 64u);
    NominalSplit split;
    try {
        c.finder().runMethod(split, 0);
        FAIL() << "64 levels accepted";
    } catch (const tallix::silvan::learning::treeutils::ClassificationNominalSplitFinder::exact::
                 TooManyLevels& e) {
        EXPECT_EQ(boost::get<std::int64_t>(e.message().args.at(0)), 64);
    }
}

TEST(PullLeft, TwoClassesFollowClassZeroFractions) {
    // Class-0 fractions: level 0 (value 1) 2/3, level 1 (value 2) 1/3,
    // level 2 (value 3) 1/2: the chain pulls 0, then 2.
    NominalColumn c({1, 1, 1, 2, 2, 2, 3, 3}, {0, 0, 1, 0, 1, 1, 0, 1}, 2);
    NominalSplit split;
    const auto outcome = c.finder().runMethod(split, 1);
    ASSERT_TRUE(outcome.found);
    // Left {0}: gini(2,1) + gini(2,3) = 4/3 + 12/5; left {0,2}: gini(3,2) + gini(1,2)
    // = 12/5 + 4/3: equal, and the sort of the chain may take either; both
    // are the best of the chain.
    EXPECT_NEAR(outcome.crit, 4.0 / 3 + 12.0 / 5, 1e-12);
    EXPECT_EQ(split.Left.front(), 0u);
    EXPECT_NE(std::find(split.Right.begin(), split.Right.end(), 1u), split.Right.end());
}

TEST(Methods, ChoiceByClassesAlgCatAndMaxCat) {
    auto names = [](std::uint64_t K, std::uint64_t algCat, std::uint64_t maxCat, std::uint64_t L) {
        std::string s;
        for (auto m : nominal_detail::chooseMethods(K, algCat, maxCat, L)) {
            s += nominal_detail::kMethodNames[m];
            s += ' ';
        }
        return s;
    };
    EXPECT_EQ(names(2, 1, 10, 4), "PullLeft ");
    EXPECT_EQ(names(2, 7, 10, 4), "PullLeft ");  // never refused with two classes
    EXPECT_EQ(names(3, 0, 4, 4), "Exact ");
    EXPECT_EQ(names(3, 0, 3, 4), "PCA OVAbyClass ");
    EXPECT_EQ(names(5, 0, 3, 4), "PullLeft PCA ");
    EXPECT_EQ(names(3, 4, 3, 4), "OVAbyClass ");
    EXPECT_THROW(names(3, 5, 3, 4), tallix::silvan::learning::treeutils::IndexedColumn::
                                        findNominalSplitWithBestGain::BadAlgCat);
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

TEST(PCA, SolverFailuresAndHostMemory) {
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
    EXPECT_THROW(c.finder().runMethod(split, 2),
                 tallix::silvan::learning::treeutils::ClassificationNominalSplitFinder::pca::
                     BadDSYEVXInput);
    symmetricEigenSolver = &dsyev_;
    numora::setWarningSink(previous);
    EXPECT_EQ(warnings, std::vector<std::string>{"BadDSYEVXOutput"});

    numora::failNextAllocation();
    try {
        c.finder().runMethod(split, 2);
        FAIL() << "no memory error";
    } catch (const tallix::silvan::learning::treeutils::ClassificationNominalSplitFinder::pca::
                 MemoryLessThanXBytes& e) {
        EXPECT_EQ(boost::get<std::int64_t>(e.message().args.at(0)), 3 * 3 * 8);
    }
}

TEST(WriteBack, LowerValuesGoLeftWhenSidesDoNotInterleave) {
    // Two pure classes: values 3, 4 of class 0 and 1, 2 of class 1 merge
    // into two levels; whichever side the finder puts them, 1, 2 go left.
    NominalColumn c({3, 4, 1, 2, 3, 1}, {0, 0, 1, 1, 0, 1}, 2);
    c.column->exhaustiveSearch();
    EXPECT_EQ(c.column->bestSplit.leftLevels, ScalableVector<double>({1, 2}));
    EXPECT_EQ(c.column->bestSplit.rightLevels, ScalableVector<double>({3, 4}));
    SplitRows rows = c.column->splitRows(c.column->bestSplit);
    std::sort(rows.left.begin(), rows.left.end());
    EXPECT_EQ(rows.left, RowList({2, 3, 5}));
    EXPECT_TRUE(std::isnan(c.column->cutPoint(c.column->bestSplit)));
}

}  // namespace
}  // namespace arbolin
