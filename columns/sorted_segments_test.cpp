// The kept order against a sort at every node: the root's order and the
// orders left by chains of splits are what a sort by value, then row number,
// gives each node's rows, with the rows with NaN behind and counted apart;
// and the steps left in each node tell the ties of its values.
#include <cmath>
#include <numeric>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "columns/sorted_segments.hpp"

namespace arbolin {
namespace {

// Values with many ties, neighbours, zeros of both signs, huge magnitudes
// and NaN.
template <class X>
std::vector<X> awkwardColumn(std::uint64_t n, std::mt19937_64& rng) {
    std::vector<X> x(n);
    for (std::uint64_t i = 0; i < n; ++i) {
        x[i] =
            static_cast<X>(static_cast<double>(static_cast<std::int64_t>(rng() % 401) - 200) / 8);
        // (Not from zero: a subnormal neighbour would leave the column's
        // ties to be read.)
        for (auto k = rng() % 4; k > 0 && x[i] != X(0) && rng() % 2 == 0; --k) {
            x[i] = std::nextafter(x[i], X(1000));
        }
        if (rng() % 31 == 0) x[i] = static_cast<X>(-0.0);
        if (rng() % 37 == 0) x[i] = static_cast<X>((rng() & 1) ? 1e30 : -1e30);
        if (rng() % 7 == 0) x[i] = static_cast<X>(NAN);
    }
    return x;
}

// The order a node must see: its rows with a value sorted by value, then
// row; then how many of them there are.
template <class X>
std::pair<RowList, std::uint64_t> expectedOrder(const X* x, const RowList& rows) {
    RowList present;
    for (std::uint64_t r : rows) {
        if (!std::isnan(x[r])) present.push_back(r);
    }
    sortByValueThenRow(x, present.data(), present.data() + present.size());
    return {present, present.size()};
}

// Between any two of a node's values in order, the highest step answers
// whether they are tied, unless it is Near.
template <class X>
void checkSteps(const SortedSegments<X>& sorted, const X* x, std::uint64_t j,
                const NodeSegment& segment, std::mt19937_64& rng) {
    using Order = SortedSegments<X>;
    ASSERT_TRUE(sorted.stepsTellTies(j));
    const std::uint32_t* entries = sorted.presentEntries(j, segment);
    const std::uint64_t n = segment.present[j];
    if (n < 2) return;
    for (std::uint64_t t = 0; t < 2 * n; ++t) {
        const std::uint64_t a = rng() % n;
        const std::uint64_t b = std::min(n - 1, a + 1 + rng() % (t % 2 == 0 ? 3 : n));
        Step highest = Step::Equal;
        for (std::uint64_t p = a + 1; p <= b; ++p)
            highest = std::max(highest, Order::stepOf(entries[p]));
        const X u = x[Order::rowOf(entries[a])];
        const X v = x[Order::rowOf(entries[b])];
        if (highest == Step::Equal) {
            ASSERT_EQ(u, v);
        }
        if (highest == Step::Far) {
            ASSERT_FALSE(isTied(u, v)) << u << " " << v;
        }
        if (highest == Step::Near) {
            ASSERT_NE(u, v);
        }
    }
}

template <class X>
void checkChainsOfSplits(std::uint64_t n, std::uint64_t d, std::uint64_t seed) {
    std::mt19937_64 rng(seed);
    std::vector<X> x;
    for (std::uint64_t j = 0; j < d; ++j) {
        const std::vector<X> column = awkwardColumn<X>(n, rng);
        x.insert(x.end(), column.begin(), column.end());
    }
    // The root's rows in any order; the kept order does not depend on it.
    RowList root(n);
    std::iota(root.begin(), root.end(), 0);
    std::shuffle(root.begin(), root.end(), rng);
    SortedSegments<X> sorted(x.data(), n, d, root);

    struct Open {
        RowList rows;
        NodeSegment segment;
    };
    std::vector<Open> layer{{root, sorted.root()}};
    for (int depth = 0; depth < 6 && !layer.empty(); ++depth) {
        for (const Open& node : layer) {
            ASSERT_EQ(node.segment.size, node.rows.size());
            for (std::uint64_t j = 0; j < d; ++j) {
                const auto [want, present] = expectedOrder(x.data() + n * j, node.rows);
                ASSERT_EQ(node.segment.present[j], present) << "depth " << depth;
                RowList got;
                sorted.copyPresent(j, node.segment, got);
                ASSERT_EQ(got, want) << "depth " << depth << " predictor " << j;
                checkSteps(sorted, x.data() + n * j, j, node.segment, rng);
            }
        }
        // Each node sends its rows left, right or nowhere (rows that no
        // surrogate routes), in any order, as the search would list them.
        // Some nodes stay leaves: the children behind them move forward
        // over their segments.
        std::vector<Open> next(2 * layer.size());
        ScalableVector<SegmentSplit> splits;
        std::uint64_t kept = 0;
        for (std::size_t k = 0; k < layer.size(); ++k) {
            if (depth > 0 && rng() % 3 == 0) continue;
            for (std::uint64_t r : layer[k].rows) {
                const auto side = rng() % 9;
                if (side < 4)
                    next[2 * k].rows.push_back(r);
                else if (side < 8)
                    next[2 * k + 1].rows.push_back(r);
            }
            std::shuffle(next[2 * k].rows.begin(), next[2 * k].rows.end(), rng);
            splits.push_back({&layer[k].segment, &next[2 * k].rows, &next[2 * k + 1].rows,
                              &next[2 * k].segment, &next[2 * k + 1].segment});
            kept += next[2 * k].rows.size() + next[2 * k + 1].rows.size();
        }
        sorted.split(splits);
        ASSERT_EQ(sorted.liveSize(), kept);
        std::erase_if(next, [](const Open& o) { return o.rows.size() < 2; });
        layer = std::move(next);
    }
}

TEST(SortedSegments, EveryNodeSeesItsRowsInOrderOfValueThenRow) {
    checkChainsOfSplits<double>(3000, 3, 1);
    checkChainsOfSplits<float>(3000, 2, 2);
    checkChainsOfSplits<double>(17, 2, 3);  // below the radix sort's sizes too
    // Enough rows that the pages of leaves' segments are given back.
    checkChainsOfSplits<double>(60000, 3, 4);
}

TEST(SortedSegments, EmptyRootAndAllMissing) {
    const std::vector<double> x{NAN, NAN, NAN};
    SortedSegments<double> none(x.data(), 3, 1, RowList{});
    EXPECT_EQ(none.root().size, 0u);
    SortedSegments<double> missing(x.data(), 3, 1, RowList{2, 0, 1});
    EXPECT_EQ(missing.root().size, 3u);
    EXPECT_EQ(missing.root().present[0], 0u);
}

TEST(SortedSegments, StepsTellTiesOnlyOfPlainValues) {
    const std::vector<double> x{1, NAN, 2, 3, INFINITY, 1, 2, 4, 1e-310, 6, 7, 8};
    SortedSegments<double> sorted(x.data(), 4, 3, RowList{0, 1, 2, 3});
    EXPECT_TRUE(sorted.stepsTellTies(0));
    EXPECT_FALSE(sorted.stepsTellTies(1));  // infinity
    EXPECT_FALSE(sorted.stepsTellTies(2));  // a subnormal
    EXPECT_FALSE(SortedSegments<double>::fits((std::uint64_t{1} << 30) + 1));
    EXPECT_TRUE(SortedSegments<double>::fits(std::uint64_t{1} << 30));
}

}  // namespace
}  // namespace arbolin
