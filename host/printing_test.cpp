#include <cstdint>
#include <string>

#include <gtest/gtest.h>

#include "host/numora_host.hpp"

namespace {

// Collects everything printed while it lives.
class PrintCapture {
public:
    PrintCapture()
        : previous_(numora::setPrintSink([this](std::string_view s) { text_ += s; })) {}
    ~PrintCapture() { numora::setPrintSink(previous_); }
    const std::string& text() const { return text_; }

private:
    std::string text_;
    numora::PrintSink previous_;
};

TEST(Printf, IntegerConversionsTakeSixtyFourBits) {
    PrintCapture out;
    calyxPrintf("%i", std::int64_t{5000000000});  // above 2^31
    calyxPrintf(" %d", std::int64_t{-3000000000});
    EXPECT_EQ(out.text(), "5000000000 -3000000000");
}

TEST(Printf, ArgumentsAfterAWideIntegerStayAligned) {
    PrintCapture out;
    calyxPrintf("%i %s %i %g", std::int64_t{1} << 40, "x", std::int64_t{-1}, 0.5);
    EXPECT_EQ(out.text(), "1099511627776 x -1 0.5");
}

TEST(Printf, FlagsWidthAndPrecisionAreKept) {
    PrintCapture out;
    calyxPrintf("%5i|%-5d|%05i|%+i|%.3i", std::int64_t{42}, std::int64_t{-7}, std::int64_t{3},
                std::int64_t{9}, std::int64_t{4});
    EXPECT_EQ(out.text(), "   42|-7   |00003|+9|004");
}

TEST(Printf, StarWidthStillTakesAnInt) {
    PrintCapture out;
    calyxPrintf("%*i|", 6, std::int64_t{12});
    EXPECT_EQ(out.text(), "    12|");
}

TEST(Printf, ExplicitLengthModifierIsLeftAlone) {
    PrintCapture out;
    calyxPrintf("%ld %lld", 1L << 33, 7LL);
    EXPECT_EQ(out.text(), "8589934592 7");
}

TEST(Printf, FloatingPointFormats) {
    PrintCapture out;
    calyxPrintf("%13.10g|%13.10g|", 3.14159265358979, 1.0 / 3.0);
    EXPECT_EQ(out.text(), "  3.141592654| 0.3333333333|");
}

TEST(Printf, PercentAndStrings) {
    PrintCapture out;
    const int n = calyxPrintf("100%% of %s: %i%%\n", "rows", std::int64_t{7});
    EXPECT_EQ(out.text(), "100% of rows: 7%\n");
    EXPECT_EQ(n, 17);
}

TEST(Printf, ReturnsCharacterCountAndSinkSwapReturnsPrevious) {
    PrintCapture out;
    EXPECT_EQ(calyxPrintf("%s", ""), 0);
    EXPECT_EQ(calyxPrintf("    Found %i bins:\n", std::int64_t{4}), 18);
    EXPECT_EQ(out.text(), "    Found 4 bins:\n");

    std::string inner;
    auto previous = numora::setPrintSink([&](std::string_view s) { inner += s; });
    calyxPrintf("a");
    numora::setPrintSink(previous);
    calyxPrintf("b");
    EXPECT_EQ(inner, "a");
    EXPECT_EQ(out.text(), "    Found 4 bins:\nb");
}

}  // namespace
