// The one-walk search of a numeric column against its two steps (the list
// of divisions, then the scan over it): the same division and the same gain,
// bit for bit, over ties, rows of no weight on either end, leaves of several
// sizes, classes and regression, and class totals given by the node.
#include <bit>
#include <cmath>
#include <cstdint>
#include <memory>
#include <numeric>
#include <random>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "columns/column.hpp"
#include "criteria/gini.hpp"
#include "criteria/mse.hpp"

namespace arbolin {
namespace {

struct Data {
    std::vector<double> x, y, w;
    RowList present, missing;
};

// Values on a coarse grid (many ties) with neighbours one ulp apart; some
// rows of no weight, a run of them at either end in some draws.
Data makeData(std::uint64_t n, bool classes, bool sameWeights, std::mt19937_64& rng) {
    Data d;
    for (std::uint64_t i = 0; i < n; ++i) {
        double v = static_cast<double>(rng() % 40);
        if (rng() % 5 == 0) v = std::nextafter(v, 100.0);
        d.x.push_back(v);
        d.y.push_back(classes ? static_cast<double>(rng() % 3)
                              : static_cast<double>(rng() % 1000) / 7.0);
        d.w.push_back(sameWeights ? 0.25 : (rng() % 6 == 0 ? 0.0 : 0.5 + (rng() % 4)));
    }
    if (!sameWeights && rng() % 2 == 0) {
        // Rows of no weight at the high end: the scan stops at AboveEmpty.
        for (std::uint64_t i = 0; i < n; ++i) {
            if (d.x[i] >= 35) d.w[i] = 0.0;
        }
    }
    d.present.resize(n);
    std::iota(d.present.begin(), d.present.end(), 0);
    return d;
}

template <class Criterion>
std::unique_ptr<IndexedColumn<double, double, double>> makeColumn(Data& d, std::uint64_t minLeaf,
                                                                 const Criterion* criterion) {
    ColumnSetup<double, double, double> s;
    s.rowCount = d.x.size();
    s.x = d.x.data();
    s.y = d.y.data();
    s.w = d.w.data();
    s.present = &d.present;
    s.missing = &d.missing;
    s.minLeaf = minLeaf;
    if constexpr (std::is_base_of_v<ClassificationSplitCriterion<double, double>, Criterion>) {
        s.classCount = 3;
        s.classCriterion = criterion;
    } else {
        s.classCount = 1;
        s.regressionCriterion = criterion;
    }
    s.parentProb = s.presentProb = static_cast<double>(d.x.size());
    auto column = std::make_unique<IndexedColumn<double, double, double>>(s);
    column->critParent_ = 1e6;
    return column;
}

template <class Criterion>
void expectSameSearch(std::uint64_t n, std::uint64_t minLeaf, bool sameWeights, std::uint64_t seed) {
    SCOPED_TRACE(::testing::Message() << "n " << n << " minLeaf " << minLeaf << " sameWeights "
                                      << sameWeights << " seed " << seed);
    std::mt19937_64 rng(seed);
    const Criterion criterion;
    constexpr bool classes =
        std::is_base_of_v<ClassificationSplitCriterion<double, double>, Criterion>;
    Data twoSteps = makeData(n, classes, sameWeights, rng);
    Data oneWalk = twoSteps;

    auto listed = makeColumn(twoSteps, minLeaf, &criterion);
    listed->sort();
    listed->divide();
    listed->exhaustiveSearch();

    auto walked = makeColumn(oneWalk, minLeaf, &criterion);
    walked->sort();
    walked->gatherOrdered();
    // The node's class totals: the weight added once per row of the class.
    ScalableVector<double> totals(3, 0.0);
    if (classes && sameWeights) {
        for (double v : oneWalk.y) totals[classOf(v)] += 0.25;
        walked->presorted_ = true;
        walked->uniformTotals_ = &totals;
    }
    walked->divideAndSearch();

    EXPECT_EQ(walked->bestSplit.division, listed->bestSplit.division);
    EXPECT_EQ(std::bit_cast<std::uint64_t>(walked->bestSplit.gain),
              std::bit_cast<std::uint64_t>(listed->bestSplit.gain));
}

TEST(DivideAndSearch, OneWalkFindsWhatTheListAndTheScanFind) {
    std::uint64_t seed = 1;
    for (std::uint64_t n : {2, 5, 40, 700}) {
        for (std::uint64_t minLeaf : {1, 3, 9}) {
            for (bool sameWeights : {true, false}) {
                for (int draw = 0; draw < 4; ++draw, ++seed) {
                    expectSameSearch<Gini<double, double>>(n, minLeaf, sameWeights, seed);
                    expectSameSearch<MSE<double, double>>(n, minLeaf, sameWeights, seed);
                }
            }
        }
    }
}

}  // namespace
}  // namespace arbolin
