// Random streams and the special functions against values worked out apart
// from the host (a seed's own draws, through its object: the drawn trees).
#include <cmath>
#include <cstdint>
#include <numeric>
#include <random>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "host/numora_host.hpp"

namespace {

using numfunc::betainc;
using numfunc::gammainc;
using numfunc::Tail;

// The draw written out independently of the host: a partial Fisher-Yates
// shuffle of 1..n driven by the top 53 bits of each mt19937_64 output.
std::vector<double> referenceDraw(std::mt19937_64& g, std::uint64_t k, std::uint64_t n) {
    std::vector<std::uint64_t> a(n);
    std::iota(a.begin(), a.end(), std::uint64_t{1});
    std::vector<double> out;
    for (std::uint64_t i = 0; i < k; ++i) {
        const double u = static_cast<double>(g() >> 11) / 9007199254740992.0;  // 2^53
        const auto j = i + static_cast<std::uint64_t>(std::floor(u * static_cast<double>(n - i)));
        std::swap(a[i], a[j]);
        out.push_back(static_cast<double>(a[i]));
    }
    return out;
}

std::vector<double> draw(lotstream::Stream* s, std::uint64_t k, std::uint64_t n) {
    std::vector<double> out(k);
    lotstream::randkpermFcn(s, out.data(), k, static_cast<double>(n));
    return out;
}

lotstream::Stream* streamOf(std::uint64_t id) {
    auto* table = knownLotstreams();
    return table->deref(table->find(id));
}

TEST(Randkperm, MatchesIndependentReferenceAcrossCalls) {
    numora::resetDefaultStream(5489);
    std::mt19937_64 g(5489);
    lotstream::Stream* s = lotGetDefaultStream().stream;
    EXPECT_EQ(draw(s, 5, 10), referenceDraw(g, 5, 10));
    EXPECT_EQ(draw(s, 20, 1000), referenceDraw(g, 20, 1000));  // continues the stream
    EXPECT_EQ(draw(s, 1, 1), referenceDraw(g, 1, 1));
    EXPECT_EQ(draw(s, 12, 12), referenceDraw(g, 12, 12));  // a whole permutation
}

TEST(Randkperm, NullStreamAndTooManyDrawsAreErrors) {
    double out[4];
    try {
        lotstream::randkpermFcn(nullptr, out, 1, 5.0);
        FAIL() << "no exception";
    } catch (const vellum::contextmgr::NullResource& e) {
        EXPECT_EQ(e.identifier(), "vellum:contextmgr:null");
        EXPECT_STREQ(e.what(), "Unable to access null resource");
    }
    const std::uint64_t id = numora::createStream(1);
    EXPECT_THROW(lotstream::randkpermFcn(streamOf(id), out, 4, 3.0), numora::Exception);
    numora::destroyStream(id);
}

TEST(StreamTable, StaleHandleDerefsToNull) {
    auto* table = knownLotstreams();
    const std::uint64_t id = numora::createStream(3);
    ASSERT_NE(id, 0u);
    const auto handle = table->find(id);
    EXPECT_NE(table->deref(handle), nullptr);
    numora::destroyStream(id);
    EXPECT_EQ(table->deref(handle), nullptr);
    EXPECT_EQ(table->deref(table->find(id)), nullptr);
    EXPECT_EQ(table->deref(table->find(0)), nullptr);
    // A handle of the right number but a made-up generation is refused too.
    const std::uint64_t live = numora::createStream(3);
    auto forged = table->find(live);
    forged.generation += 1000;
    EXPECT_EQ(table->deref(forged), nullptr);
    numora::destroyStream(live);
}

TEST(StreamTable, DefaultStreamHandleIsComplete) {
    const StreamHandle h = lotGetDefaultStream();
    EXPECT_EQ(h.table, knownLotstreams());
    EXPECT_NE(h.handle.id, 0u);
    ASSERT_NE(h.stream, nullptr);
    EXPECT_EQ(h.table->deref(h.handle), h.stream);
    numora::destroyStream(h.handle.id);  // refused: the default stream stays
    numora::resetDefaultStream(99);      // reseeded in place
    EXPECT_EQ(lotGetDefaultStream().stream, h.stream);
    numora::resetDefaultStream();
}

TEST(SpecialFunctions, GammaincMeetsClosedForms) {
    for (double x : {0.0, 0.1, 1.0, 5.0}) {  // shape 1: the exponential
        EXPECT_NEAR(gammainc(x, 1.0, Tail::Lower), -std::expm1(-x), 1e-15) << x;
    }
    // The upper tail keeps its relative accuracy far out.
    EXPECT_NEAR(gammainc(30.0, 1.0, Tail::Upper) / std::exp(-30.0), 1.0, 1e-13);
    for (double x : {0.01, 0.5, 2.0, 8.0}) {  // shape 1/2: the error function
        EXPECT_NEAR(gammainc(x, 0.5, Tail::Lower), std::erf(std::sqrt(x)), 1e-15) << x;
        EXPECT_NEAR(gammainc(x, 0.5, Tail::Upper) / std::erfc(std::sqrt(x)), 1.0, 1e-13) << x;
    }
    for (double a : {0.3, 1.5, 4.0, 50.0}) {
        for (double x : {0.2, 1.0, 3.7, 60.0}) {
            EXPECT_NEAR(gammainc(x, a, Tail::Lower) + gammainc(x, a, Tail::Upper), 1.0, 1e-14);
        }
    }
    // P(chi2 with 1 degree of freedom > 3.841458820694124) = 0.05, as the
    // curvature test asks for it: gammainc(x / 2, dof / 2, upper). With 2
    // degrees of freedom the tail is exp(-x / 2).
    EXPECT_NEAR(gammainc(3.841458820694124 / 2, 0.5, Tail::Upper), 0.05, 1e-13);
    EXPECT_NEAR(gammainc(9.0 / 2, 1.0, Tail::Upper), std::exp(-4.5), 1e-15);
}

TEST(SpecialFunctions, BetaincMeetsClosedForms) {
    for (double x : {0.0, 0.25, 0.5, 0.9, 1.0}) {
        EXPECT_NEAR(betainc(x, 1.0, 1.0, Tail::Lower), x, 1e-15) << x;
        EXPECT_NEAR(betainc(x, 3.0, 1.0, Tail::Lower), x * x * x, 1e-15) << x;
        EXPECT_NEAR(betainc(x, 1.0, 2.0, Tail::Lower), 1.0 - (1.0 - x) * (1.0 - x), 1e-15) << x;
        EXPECT_NEAR(betainc(x, 1.0, 2.0, Tail::Upper), (1.0 - x) * (1.0 - x), 1e-15) << x;
    }
    EXPECT_NEAR(betainc(0.5, 7.5, 7.5, Tail::Lower), 0.5, 1e-15);
    for (double x : {0.1, 0.4, 0.8}) {  // complement and symmetry
        const double lower = betainc(x, 2.5, 4.0, Tail::Lower);
        EXPECT_NEAR(lower + betainc(x, 2.5, 4.0, Tail::Upper), 1.0, 1e-15);
        EXPECT_NEAR(lower, betainc(1.0 - x, 4.0, 2.5, Tail::Upper), 1e-15);
    }
    // F(2, 2) has P(F > f) = 1 / (1 + f); with x = d1 / (d1 + d2 / f) that is
    // betainc(x, 1, 1, upper) = 1 - x. For f = 3: 0.25.
    EXPECT_NEAR(betainc(2.0 / (2.0 + 2.0 / 3.0), 1.0, 1.0, Tail::Upper), 0.25, 1e-15);
}

TEST(SpecialFunctions, BadArgumentsGiveNaNWithoutThrowing) {
    const double nan = std::nan("");
    const double bad[] = {
        gammainc(nan, 1.0, Tail::Lower),      gammainc(1.0, nan, Tail::Upper),
        gammainc(1.0, -2.0, Tail::Lower),     gammainc(-1.0, 2.0, Tail::Upper),
        betainc(nan, 1.0, 1.0, Tail::Lower),  betainc(0.5, nan, 1.0, Tail::Lower),
        betainc(0.5, 1.0, nan, Tail::Upper),  betainc(1.5, 1.0, 1.0, Tail::Lower),
        betainc(-0.1, 1.0, 1.0, Tail::Upper), betainc(0.5, -1.0, 1.0, Tail::Lower),
        betainc(0.5, 0.0, 0.0, Tail::Lower),
    };
    for (std::size_t i = 0; i < std::size(bad); ++i) EXPECT_TRUE(std::isnan(bad[i])) << i;
    EXPECT_EQ(gammainc(INFINITY, 3.0, Tail::Upper), 0.0);
    EXPECT_EQ(gammainc(INFINITY, 3.0, Tail::Lower), 1.0);
}

TEST(SpecialFunctions, SameResultsOnWorkerThreads) {
    auto sweep = [] {
        std::vector<double> r;
        for (int i = 1; i <= 200; ++i) {
            r.push_back(gammainc(i * 0.1, i * 0.05, Tail::Upper) +
                        betainc(i / 201.0, i * 0.1, 3.0, Tail::Lower));
        }
        return r;
    };
    const std::vector<double> serial = sweep();
    std::vector<std::vector<double>> results(4);
    std::vector<std::thread> workers;
    for (auto& r : results) workers.emplace_back([&r, &sweep] { r = sweep(); });
    for (auto& w : workers) w.join();
    for (const auto& r : results) EXPECT_EQ(r, serial);
}

}  // namespace
