// The classification evaluator's own arithmetic for Gini (the class weights
// in registers, each side's sum taken once) against Gini's kids() on the
// same weights: the same number, bit for bit, at every position of a scan,
// with weights whose sums round, for two to five classes (five takes the
// general route), and the same ends where one side is empty; and the same
// again when the rows of one weight are only counted.
#include <bit>
#include <cstdint>
#include <random>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "columns/response_source.hpp"
#include "criteria/classification_evaluator.hpp"
#include "criteria/gini.hpp"

namespace arbolin {
namespace {

template <class W>
void checkScan(std::uint64_t K, std::uint64_t n, bool sameWeights, bool counted,
               std::mt19937_64& rng) {
    std::vector<double> y(n);
    std::vector<W> w(n);
    for (std::uint64_t i = 0; i < n; ++i) {
        y[i] = static_cast<double>(rng() % K);
        // Thirds and sevenths: sums that do not come out even.
        w[i] = sameWeights ? W(1) / W(3) : W(1 + rng() % 5) / W(7);
    }
    ClassWeights<W> totals(K, W(0));
    for (std::uint64_t i = 0; i < n; ++i) {
        totals[classOf(y[i])] += sameWeights ? W(1) / W(3) : w[i];
    }
    Gini<double, W> gini;
    ClassificationSplitCriterionEvaluator<double, W> evaluator(
        y.data(), sameWeights ? nullptr : w.data(), totals, &gini,
        sameWeights ? W(1) / W(3) : W(0));
    RowList rows(n);
    for (std::uint64_t i = 0; i < n; ++i) rows[i] = i;
    const ResponseSource<double, W> source(y.data(), w.data(), n, rows, true);
    if (counted) {
        ASSERT_NE(source.repeatedSums(), nullptr);
        evaluator.countRows(source.repeatedSums(), n);
    }

    ClassWeights<W> below(K, W(0));
    W c = W(-1);
    EXPECT_EQ(evaluator.evaluate(&c), EvalResult::BelowEmpty);
    for (std::uint64_t i = 0; i < n; ++i) {
        evaluator.advanceOrdered(i, i + 1);
        below[classOf(y[i])] += sameWeights ? W(1) / W(3) : w[i];
        ClassWeights<W> above(K);
        for (std::uint64_t k = 0; k < K; ++k) {
            above[k] = totals[k] - below[k];
        }
        const EvalResult result = evaluator.evaluate(&c);
        W aboveSum = 0;
        for (W a : above) aboveSum += a;
        if (aboveSum <= W(0)) {
            EXPECT_EQ(result, EvalResult::AboveEmpty) << "K " << K << " position " << i;
            continue;
        }
        ASSERT_EQ(result, EvalResult::Valid) << "K " << K << " position " << i;
        const W expected = gini.kids(below, above);
        using Bits = std::conditional_t<sizeof(W) == 8, std::uint64_t, std::uint32_t>;
        EXPECT_EQ(std::bit_cast<Bits>(c), std::bit_cast<Bits>(expected))
            << "K " << K << " position " << i << ": " << c << " against " << expected;
    }
}

TEST(ClassificationEvaluator, GiniInRegistersIsGiniKidsBitForBit) {
    std::mt19937_64 rng(20261123);
    for (std::uint64_t K : {2, 3, 4, 5}) {
        for (bool same : {false, true}) {
            for (int draw = 0; draw < 20; ++draw) {
                checkScan<double>(K, 1 + rng() % 60, same, false, rng);
                checkScan<float>(K, 1 + rng() % 60, same, false, rng);
                if (same) {
                    checkScan<double>(K, 1 + rng() % 60, same, true, rng);
                    checkScan<float>(K, 1 + rng() % 60, same, true, rng);
                }
            }
        }
    }
}

}  // namespace
}  // namespace arbolin
