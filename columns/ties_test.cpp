// Ties told by steps: among values with plain ties, isTied is "equal or
// neighbours", and the highest step between two values in order answers
// isTied for them whenever it is Equal or Far. Checked at the edges of the
// range, around zero and across powers of two, where rounding is likeliest
// to break it.
#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "columns/ties.hpp"

namespace arbolin {
namespace {

// Values around awkward places, a few neighbours either side of each,
// repeated now and then; only those with plain ties, sorted.
template <class X>
std::vector<X> valuesAroundEdges() {
    using L = std::numeric_limits<X>;
    std::vector<X> bases{0,    2 * L::min(), 3 * L::min(), 1,      2,      0.75,
                         1024, L::max() / 4, L::max() / 8, X(0.1), X(1e-3)};
    std::mt19937_64 rng(5);
    std::uniform_real_distribution<double> uniform(-40, 40);
    for (int k = 0; k < 6; ++k) bases.push_back(static_cast<X>(std::ldexp(1.0, int(uniform(rng)))));
    std::vector<X> values;
    for (const X base : bases) {
        for (const X b : {base, X(-base)}) {
            X up = b;
            X down = b;
            for (int k = 0; k < 4; ++k) {
                values.push_back(up);
                values.push_back(down);
                if (k % 2 == 0) values.push_back(up);
                up = std::nextafter(up, L::infinity());
                down = std::nextafter(down, -L::infinity());
            }
        }
    }
    std::erase_if(values, [](X v) { return !hasPlainTies(v); });
    std::sort(values.begin(), values.end());
    return values;
}

template <class X>
void checkPlainTies() {
    const std::vector<X> values = valuesAroundEdges<X>();
    ASSERT_GT(values.size(), 150u);
    // Among them, tied means equal or neighbours.
    for (const X a : values) {
        for (const X b : values) {
            if (a > b) continue;
            const bool neighbours =
                a == b || std::nextafter(a, std::numeric_limits<X>::infinity()) == b;
            ASSERT_EQ(isTied(a, b), neighbours) << a << " " << b;
        }
    }
    // The highest step between two of them, in order.
    std::vector<Step> steps(values.size(), Step::Equal);
    for (std::size_t i = 1; i < values.size(); ++i) {
        steps[i] = stepBetween(values[i - 1], values[i]);
    }
    std::size_t near = 0;
    for (std::size_t a = 0; a < values.size(); ++a) {
        Step highest = Step::Equal;
        for (std::size_t b = a + 1; b < values.size(); ++b) {
            highest = std::max(highest, steps[b]);
            if (highest == Step::Near) ++near;
            if (highest == Step::Equal) {
                ASSERT_TRUE(isTied(values[a], values[b]));
            }
            if (highest == Step::Far) {
                ASSERT_FALSE(isTied(values[a], values[b]));
            }
        }
    }
    EXPECT_GT(near, 100u);
}

TEST(Ties, PlainTiesAreEqualOrNeighboursAndStepsTellThem) {
    checkPlainTies<double>();
    checkPlainTies<float>();
}

TEST(Ties, ValuesWithoutPlainTies) {
    // Infinity is tied with every finite value of its sign, a huge value
    // with itself not at all, and halving a subnormal rounds: none of them
    // can be told by steps.
    EXPECT_TRUE(isTied(1.0, std::numeric_limits<double>::infinity()));
    EXPECT_FALSE(isTied(1e308, 1e308));
    EXPECT_FALSE(hasPlainTies(std::numeric_limits<double>::infinity()));
    EXPECT_FALSE(hasPlainTies(1e308));
    EXPECT_FALSE(hasPlainTies(std::numeric_limits<double>::denorm_min()));
    EXPECT_FALSE(hasPlainTies(std::numeric_limits<float>::min()));
    EXPECT_TRUE(hasPlainTies(-0.0f));
    EXPECT_TRUE(hasPlainTies(-1e300));
    EXPECT_EQ(stepBetween(-0.0, 0.0), Step::Equal);
    EXPECT_EQ(stepBetween(1.0f, std::nextafter(1.0f, 2.0f)), Step::Near);
    EXPECT_EQ(stepBetween(1.0, 1.5), Step::Far);
}

}  // namespace
}  // namespace arbolin
