// The budget selection and the count conversion.
#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "core/grow.hpp"

namespace arbolin {
namespace {

using Candidate = SplitCandidate<double>;

std::vector<Candidate> candidatesFrom(const std::vector<double>& gains) {
    std::vector<Candidate> c;
    for (std::size_t i = 0; i < gains.size(); ++i) c.push_back({i, gains[i]});
    return c;
}

std::vector<std::uint64_t> order(const std::vector<Candidate>& c) {
    std::vector<std::uint64_t> o;
    for (const auto& e : c) o.push_back(e.index);
    return o;
}

// The selection decides ties by its swaps. The standard library's
// nth_element is the same introspective selection, so on random gains
// with many ties the two must leave identical permutations, including the
// depth-limited heap path of long lists.
TEST(GainSelection, LeavesTheSamePermutationAsIntroselect) {
    std::mt19937_64 rng(7);
    for (int trial = 0; trial < 3000; ++trial) {
        const std::size_t n = 1 + rng() % (trial < 2000 ? 40 : 3000);
        const int distinct = 1 + static_cast<int>(rng() % 6);
        std::vector<double> gains(n);
        for (double& g : gains) g = static_cast<double>(rng() % distinct);
        auto ours = candidatesFrom(gains);
        auto reference = ours;
        const std::size_t keep = rng() % n;
        GainSelection<double>::select(ours.data(), ours.data() + keep, ours.data() + n);
        std::nth_element(reference.begin(), reference.begin() + keep, reference.end(),
                         [](const Candidate& a, const Candidate& b) { return a.gain > b.gain; });
        ASSERT_EQ(order(ours), order(reference)) << "n=" << n << " keep=" << keep;
    }
}

TEST(GainSelection, NaNGainsDoNotCrash) {
    auto c = candidatesFrom({NAN, 0.5, NAN, 0.7, 0.1, NAN, 0.2});
    GainSelection<double>::select(c.data(), c.data() + 2, c.data() + c.size());
    auto sorted = order(c);
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(sorted, (std::vector<std::uint64_t>{0, 1, 2, 3, 4, 5, 6}));
}

TEST(ToCount, TruncatesAndKeepsTheTopBit) {
    EXPECT_EQ(toCount(2.7), 2u);
    EXPECT_EQ(toCount(0.0), 0u);
    EXPECT_EQ(toCount(9007199254740993.0), 9007199254740992u);
    EXPECT_EQ(toCount(9223372036854775808.0), std::uint64_t{1} << 63);
    EXPECT_EQ(toCount(18446744073709549568.0), 18446744073709549568u);
    // Out of contract, but defined: -1.5 wraps like a signed truncation.
    EXPECT_EQ(toCount(-1.5), ~std::uint64_t{0});
}

}  // namespace
}  // namespace arbolin
