// Boundary cuts of a sorted column, on the worked cases of the divisions.
#include <cmath>
#include <limits>
#include <numeric>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "columns/column.hpp"
#include "criteria/gini.hpp"
#include "tests/gini_column.hpp"

namespace arbolin {
namespace {

// A column over rows 0..n-1 already in order of value.
struct SortedColumn : testing::GiniColumn {
    SortedColumn(std::vector<double> xs, std::vector<double> ys, std::uint64_t minLeaf)
        : GiniColumn(std::move(xs), std::move(ys), {3, minLeaf}) {}

    std::vector<std::uint64_t> divisions() {
        column->sorted_ = true;  // given in order
        column->divide();
        return {column->divisions_.begin(), column->divisions_.end()};
    }
};

using Divs = std::vector<std::uint64_t>;
constexpr double a = 0, b = 1;

TEST(DivideNumeric, CutsAtBoundaries) {
    struct Case {
        std::vector<double> x, y;
        std::uint64_t minLeaf;
        Divs divisions;
    };
    for (const Case& c : std::vector<Case>{
             // A change inside a tied pair is cut below the run; 2|3 is not listed.
             {{1, 2, 2, 3, 4}, {a, a, b, b, b}, 1, {0}},
             // Two changes inside a run: below it and at its end.
             {{0, 1, 1, 1, 2}, {a, a, b, a, a}, 1, {0, 3}},
             // A change in the first block: the first value different from 1 is at 3.
             {{1, 1, 1, 2}, {a, b, a, a}, 1, {2}},
             // All values tied, or no response change: nothing.
             {{1, 1, 1, 1}, {a, b, a, b}, 1, {}},
             {{1, 2, 3, 4}, {a, a, a, a}, 1, {}},
             // MinLeaf 2: the middle is empty and the last block cuts two
             // against two; the backward search passes tied 2s down to 0.
             {{1, 2, 3, 4}, {a, a, a, b}, 2, {1}},
             {{1, 2, 2, 4}, {a, a, a, b}, 2, {0}},
         }) {
        EXPECT_EQ(SortedColumn(c.x, c.y, c.minLeaf).divisions(), c.divisions)
            << ::testing::PrintToString(c.x);
    }
}

TEST(DivideNumeric, TiesAreMidpointsThatRoundOntoAValue) {
    const double next = std::nextafter(1.0, 2.0);
    EXPECT_TRUE(isTied(1.0, next));
    EXPECT_EQ(SortedColumn({1.0, next}, {a, b}, 1).divisions(), Divs({}));
    // The sum of two huge values overflows: they are not tied.
    EXPECT_FALSE(isTied(1e308, 1e308));
    EXPECT_TRUE(isTied(2.5f, 2.5f));
    // In float the sum is rounded to single first.
    const float f = std::nextafter(1.0f, 2.0f);
    EXPECT_TRUE(isTied(1.0f, f));
    EXPECT_FALSE(isTied(1.0f, 1.25f));
}

TEST(CutPoint, MidpointAboveTiedNeighbours) {
    const double next = std::nextafter(2.0, 3.0);
    SortedColumn c({1, 2, next, 4, 5}, {a, a, b, b, b}, 1);
    c.column->bestSplit.division = 1;
    // (2 + 4) / 2, skipping the tied value
    EXPECT_EQ(c.column->cutPoint(c.column->bestSplit), 3.0);
    c.column->bestSplit.division = 0;
    EXPECT_EQ(c.column->cutPoint(c.column->bestSplit), 1.5);
    const SplitRows rows = c.column->splitRows(c.column->bestSplit);
    EXPECT_EQ(rows.left, RowList({0}));
    EXPECT_EQ(rows.right, RowList({1, 2, 3, 4}));
    c.column->bestSplit.division = -1;  // no split
    EXPECT_TRUE(std::isnan(c.column->cutPoint(c.column->bestSplit)));
    EXPECT_TRUE(c.column->splitRows(c.column->bestSplit).left.empty());
    SortedColumn flat({1, 3, 3, 3}, {a, b, a, b}, 1);
    flat.column->bestSplit.division = 1;  // all above tied with x(d)
    EXPECT_TRUE(std::isnan(flat.column->cutPoint(flat.column->bestSplit)));
}

TEST(ExhaustiveSearch, LowestOfEqualDivisionsWins) {
    // Classes a b a b with unit weights: cuts at 0, 1, 2 score
    // gini(1,0)+gini(1,2)=4/3, gini(1,1)+gini(1,1)=2, 4/3: division 0 wins.
    SortedColumn c({1, 2, 3, 4}, {a, b, a, b}, 1);
    c.column->critParent_ = 2.0;  // gini of (2, 2)
    c.column->sorted_ = true;
    c.column->exhaustiveSearch();
    EXPECT_EQ(c.column->bestSplit.division, 0);
    EXPECT_NEAR(c.column->bestSplit.gain, 2.0 - 4.0 / 3, 1e-12);
    const double gain = c.column->bestSplit.gain;
    c.column->exhaustiveSearch();  // a second call changes nothing
    EXPECT_EQ(c.column->bestSplit.gain, gain);
}

TEST(ExhaustiveSearch, ZeroWeightRowsBelowAreSkipped) {
    SortedColumn c({1, 2, 3, 4, 5}, {a, b, b, a, a}, 1);
    c.w = {0, 0, 1, 1, 1};
    c.column->critParent_ = 1.0;
    c.column->sorted_ = true;
    c.column->exhaustiveSearch();
    // Divisions 0, 2; division 0 has no weight below (BelowEmpty), so 2 wins:
    // rows {b} | {a, a} are pure.
    EXPECT_EQ(c.column->bestSplit.division, 2);
    EXPECT_EQ(c.column->bestSplit.gain, 1.0);
}

TEST(PartialSort, OrdersOnlyTheMiddleForLargeLeaves) {
    const std::uint64_t n = 250;
    std::vector<double> x(n), y(n, 0.0);
    for (std::uint64_t i = 0; i < n; ++i) x[i] = static_cast<double>((i * 97) % n);
    for (bool fullSort : {false, true}) {
        SortedColumn c(x, y, 100);
        c.column->fullSort_ = fullSort;
        c.column->sort();
        for (std::uint64_t p = fullSort ? 0 : 99; p <= (fullSort ? n - 1 : 150); ++p) {
            EXPECT_EQ(c.x[c.present[p]], static_cast<double>(p)) << p;
        }
    }
}

}  // namespace
}  // namespace arbolin
