// Each form a tree may gather responses and weights from must give the
// copies the very bits of the plain arrays; the compact forms are taken
// only where that holds.
#include <bit>
#include <cmath>
#include <cstdint>
#include <numeric>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "columns/response_source.hpp"

namespace arbolin {
namespace {

struct Data {
    std::vector<double> y, w;
};

// `classes` classes, or a regression response for 0.
Data makeData(std::uint64_t n, std::uint64_t classes, bool sameWeights) {
    std::mt19937_64 rng(3);
    std::normal_distribution<double> normal;
    Data d;
    for (std::uint64_t i = 0; i < n; ++i) {
        d.y.push_back(classes > 0 ? static_cast<double>(rng() % classes) : normal(rng));
        d.w.push_back(sameWeights ? 0.1 : 0.5 + (rng() % 7));
    }
    return d;
}

// Gathers a shuffled subset through 64- and 32-bit row numbers (these with
// other bits above the row, masked off) and checks every copied value bit
// for bit; with one weight for all, also without copying weights, where
// weight() must be that weight.
void expectExactCopies(const Data& d, const ResponseSource<double, double>& source) {
    const std::uint64_t n = d.y.size();
    std::vector<std::uint64_t> rows(n / 2);
    std::iota(rows.begin(), rows.end(), std::uint64_t{n / 4});
    std::shuffle(rows.begin(), rows.end(), std::mt19937_64(9));
    std::vector<std::uint32_t> narrow(rows.begin(), rows.end());
    for (std::uint32_t& r : narrow) r |= static_cast<std::uint32_t>(r % 4) << 30;
    for (int pass = 0; pass < 4; ++pass) {
        const bool weights = pass < 2;
        if (!weights && !source.sameWeights()) break;
        std::vector<double> yo(rows.size()), wo(rows.size(), -1.0);
        double* w = weights ? wo.data() : nullptr;
        if (pass % 2 == 0) {
            source.gather(rows.data(), rows.size(), yo.data(), w);
        } else {
            source.gather(narrow.data(), rows.size(), yo.data(), w, (std::uint32_t{1} << 30) - 1);
        }
        for (std::size_t i = 0; i < rows.size(); ++i) {
            const std::uint64_t r = rows[i];
            ASSERT_EQ(std::bit_cast<std::uint64_t>(yo[i]), std::bit_cast<std::uint64_t>(d.y[r]));
            const double got = weights ? wo[i] : source.weight();
            ASSERT_EQ(std::bit_cast<std::uint64_t>(got), std::bit_cast<std::uint64_t>(d.w[r]));
        }
    }
}

RowList allRows(std::uint64_t n) {
    RowList rows(n);
    std::iota(rows.begin(), rows.end(), std::uint64_t{0});
    return rows;
}

TEST(ResponseSource, EveryFormCopiesThePlainValues) {
    struct Case {
        std::uint64_t classes;  // one-byte codes up to 256, two bytes beyond
        bool sameWeights;
    };
    for (const Case c : {Case{5, true}, Case{5, false}, Case{300, true}, Case{300, false},
                         Case{0, true}, Case{0, false}}) {
        SCOPED_TRACE(std::to_string(c.classes) + " classes" +
                     (c.sameWeights ? ", one weight" : ", weights vary"));
        const Data d = makeData(4000, c.classes, c.sameWeights);
        const ResponseSource<double, double> source(d.y.data(), d.w.data(), 4000, allRows(4000),
                                                    c.classes > 0);
        EXPECT_EQ(source.coded(), c.classes > 0);
        EXPECT_EQ(source.sameWeights(), c.sameWeights);
        expectExactCopies(d, source);
    }
}

// Responses whose comparisons a class code would not keep: -0 beside +0,
// NaN, a fraction, a negative or a huge value. The plain responses stay.
TEST(ResponseSource, ClassesThatACodeCannotCarryKeepThePlainArrays) {
    for (const double odd : {-0.0, std::nan(""), 2.5, -1.0, 1e300}) {
        SCOPED_TRACE(odd);
        Data d = makeData(1000, 5, true);
        d.y[0] = 0.0;
        d.y[500] = odd;
        const ResponseSource<double, double> source(d.y.data(), d.w.data(), 1000, allRows(1000),
                                                    true);
        EXPECT_FALSE(source.coded() && (std::isnan(odd) || std::signbit(odd)));
        expectExactCopies(d, source);
    }
    // A weight differing in its last bit is a different weight.
    Data d = makeData(1000, 5, true);
    d.w[700] = std::nextafter(d.w[700], 1.0);
    const ResponseSource<double, double> source(d.y.data(), d.w.data(), 1000, allRows(1000), true);
    EXPECT_FALSE(source.sameWeights());
    expectExactCopies(d, source);
}

}  // namespace
}  // namespace arbolin
