#include <cmath>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "gateway/numora.hpp"

namespace {

using numfunc::betainc;
using numfunc::gammainc;
using numfunc::Tail;

TEST(Gammainc, ShapeOneIsTheExponential) {
    for (double x : {0.0, 0.1, 1.0, 5.0}) {
        EXPECT_NEAR(gammainc(x, 1.0, Tail::Lower), -std::expm1(-x), 1e-15) << x;
    }
    // The upper tail keeps its relative accuracy far out.
    EXPECT_NEAR(gammainc(30.0, 1.0, Tail::Upper) / std::exp(-30.0), 1.0, 1e-13);
}

TEST(Gammainc, ShapeHalfIsTheErrorFunction) {
    for (double x : {0.01, 0.5, 2.0, 8.0}) {
        EXPECT_NEAR(gammainc(x, 0.5, Tail::Lower), std::erf(std::sqrt(x)), 1e-15) << x;
        EXPECT_NEAR(gammainc(x, 0.5, Tail::Upper) / std::erfc(std::sqrt(x)), 1.0, 1e-13) << x;
    }
}

TEST(Gammainc, TailsSumToOne) {
    for (double a : {0.3, 1.5, 4.0, 50.0}) {
        for (double x : {0.2, 1.0, 3.7, 60.0}) {
            EXPECT_NEAR(gammainc(x, a, Tail::Lower) + gammainc(x, a, Tail::Upper), 1.0, 1e-14);
        }
    }
}

TEST(Gammainc, ChiSquareCriticalValue) {
    // P(chi2 with 1 degree of freedom > 3.841458820694124) = 0.05, as the
    // curvature test asks for it: gammainc(x / 2, dof / 2, upper).
    EXPECT_NEAR(gammainc(3.841458820694124 / 2, 0.5, Tail::Upper), 0.05, 1e-13);
    // With 2 degrees of freedom the tail is exp(-x / 2).
    EXPECT_NEAR(gammainc(9.0 / 2, 1.0, Tail::Upper), std::exp(-4.5), 1e-15);
}

TEST(Gammainc, BadArgumentsGiveNaNWithoutThrowing) {
    const double nan = std::nan("");
    EXPECT_NO_THROW({
        EXPECT_TRUE(std::isnan(gammainc(nan, 1.0, Tail::Lower)));
        EXPECT_TRUE(std::isnan(gammainc(1.0, nan, Tail::Upper)));
        EXPECT_TRUE(std::isnan(gammainc(1.0, -2.0, Tail::Lower)));
        EXPECT_TRUE(std::isnan(gammainc(-1.0, 2.0, Tail::Upper)));
    });
    EXPECT_EQ(gammainc(INFINITY, 3.0, Tail::Upper), 0.0);
    EXPECT_EQ(gammainc(INFINITY, 3.0, Tail::Lower), 1.0);
}

TEST(Betainc, UniformAndPowerCases) {
    for (double x : {0.0, 0.25, 0.5, 0.9, 1.0}) {
        EXPECT_NEAR(betainc(x, 1.0, 1.0, Tail::Lower), x, 1e-15) << x;
        EXPECT_NEAR(betainc(x, 3.0, 1.0, Tail::Lower), x * x * x, 1e-15) << x;
        EXPECT_NEAR(betainc(x, 1.0, 2.0, Tail::Lower), 1.0 - (1.0 - x) * (1.0 - x), 1e-15) << x;
        EXPECT_NEAR(betainc(x, 1.0, 2.0, Tail::Upper), (1.0 - x) * (1.0 - x), 1e-15) << x;
    }
}

TEST(Betainc, SymmetryAndComplement) {
    EXPECT_NEAR(betainc(0.5, 7.5, 7.5, Tail::Lower), 0.5, 1e-15);
    for (double x : {0.1, 0.4, 0.8}) {
        const double lower = betainc(x, 2.5, 4.0, Tail::Lower);
        EXPECT_NEAR(lower + betainc(x, 2.5, 4.0, Tail::Upper), 1.0, 1e-15);
        EXPECT_NEAR(lower, betainc(1.0 - x, 4.0, 2.5, Tail::Upper), 1e-15);
    }
}

TEST(Betainc, FDistributionTail) {
    // F(2, 2) has P(F > f) = 1 / (1 + f); with x = d1 / (d1 + d2 / f) that is
    // betainc(x, 1, 1, upper) = 1 - x. For f = 3: 0.25.
    const double f = 3.0;
    EXPECT_NEAR(betainc(2.0 / (2.0 + 2.0 / f), 1.0, 1.0, Tail::Upper), 0.25, 1e-15);
}

TEST(Betainc, BadArgumentsGiveNaNWithoutThrowing) {
    const double nan = std::nan("");
    EXPECT_NO_THROW({
        EXPECT_TRUE(std::isnan(betainc(nan, 1.0, 1.0, Tail::Lower)));
        EXPECT_TRUE(std::isnan(betainc(0.5, nan, 1.0, Tail::Lower)));
        EXPECT_TRUE(std::isnan(betainc(0.5, 1.0, nan, Tail::Upper)));
        EXPECT_TRUE(std::isnan(betainc(1.5, 1.0, 1.0, Tail::Lower)));
        EXPECT_TRUE(std::isnan(betainc(-0.1, 1.0, 1.0, Tail::Upper)));
        EXPECT_TRUE(std::isnan(betainc(0.5, -1.0, 1.0, Tail::Lower)));
        EXPECT_TRUE(std::isnan(betainc(0.5, 0.0, 0.0, Tail::Lower)));
    });
}

TEST(SpecialFunctions, SameResultsOnWorkerThreads) {
    std::vector<double> serial;
    for (int i = 1; i <= 200; ++i) {
        serial.push_back(gammainc(i * 0.1, i * 0.05, Tail::Upper) +
                         betainc(i / 201.0, i * 0.1, 3.0, Tail::Lower));
    }
    std::vector<std::vector<double>> results(4);
    std::vector<std::thread> workers;
    for (auto& r : results) {
        workers.emplace_back([&r] {
            for (int i = 1; i <= 200; ++i) {
                r.push_back(gammainc(i * 0.1, i * 0.05, Tail::Upper) +
                            betainc(i / 201.0, i * 0.1, 3.0, Tail::Lower));
            }
        });
    }
    for (auto& w : workers) w.join();
    for (const auto& r : results) EXPECT_EQ(r, serial);
}

}  // namespace
