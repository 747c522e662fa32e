#include "core/rebuild/rational_time.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <stdexcept>

namespace norvane {
namespace {

constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();

FrameRateConfig rate(std::int64_t n, std::int64_t d) {
    FrameRateConfig r;
    r.numerator = n;
    r.denominator = d;
    return r;
}

TEST(RationalTime, ConstructionNormalises) {
    EXPECT_EQ(RationalTime(2, 4), RationalTime(1, 2));
    EXPECT_EQ(RationalTime(2, 4).numerator(), 1);
    EXPECT_EQ(RationalTime(2, 4).denominator(), 2);
    EXPECT_EQ(RationalTime(3, -6).numerator(), -1);
    EXPECT_EQ(RationalTime(3, -6).denominator(), 2);
    EXPECT_EQ(RationalTime(5, 0), RationalTime(5, 1));
    EXPECT_EQ(RationalTime(0, -7).text(), "0/1s");
    EXPECT_EQ(RationalTime(kMin, 2).text(), std::to_string(kMin / 2) + "/1s");
    // -INT64_MIN does not fit: never wrapped.
    EXPECT_THROW(RationalTime(kMin, -1), std::overflow_error);
}

TEST(RationalTime, ParsesOnlyTheNarrowForm) {
    EXPECT_EQ(RationalTime::parse("1001/30000s"), RationalTime(1001, 30000));
    EXPECT_EQ(RationalTime::parse("2/4s"), RationalTime(1, 2));
    EXPECT_EQ(RationalTime::parse("0/1s"), RationalTime(0, 1));
    EXPECT_EQ(RationalTime::parse(" \n-5/10s\t"), RationalTime(-1, 2));
    EXPECT_EQ(RationalTime::parse("+3/+6s"), RationalTime(1, 2));
    for (const char* bad :
         {"3600s", "0s", "1/0s", "/2s", "1/2", "1/s", "1//2s", "1/2/3s", "a/2s", "1 /2s", "", "s",
          "99999999999999999999/1s", "-9223372036854775808/-1s", "+-1/2s"}) {
        EXPECT_FALSE(RationalTime::parse(bad).has_value()) << bad;
    }
}

TEST(RationalTime, ArithmeticAndComparisonAreExactAndNeverOverflow) {
    EXPECT_EQ(RationalTime(1001, 30000) + RationalTime(1, 24), RationalTime(2251, 30000));
    EXPECT_EQ(RationalTime(1, 2) - RationalTime(3, 4), RationalTime(-1, 4));
    EXPECT_EQ((RationalTime(1, 3) + RationalTime(2, 3)).text(), "1/1s");
    // Large co-prime denominators whose lcm exceeds 64 bits but whose sum reduces.
    RationalTime a(1, 4294967311);  // a prime above 2^32
    RationalTime b(1, 4294967357);  // another
    EXPECT_THROW(a + b, std::overflow_error);
    EXPECT_EQ((a - a), RationalTime::zero());
    EXPECT_THROW(RationalTime(kMax, 1) + RationalTime(1, 1), std::overflow_error);
    EXPECT_THROW(RationalTime(kMin + 1, 1) - RationalTime(2, 1), std::overflow_error);
    EXPECT_EQ(RationalTime(kMax, 1) - RationalTime(kMax, 1), RationalTime::zero());
    EXPECT_LT(RationalTime(1001, 30000), RationalTime(1, 29));
    EXPECT_GT(RationalTime(1001, 30000), RationalTime(1, 30));
    EXPECT_LT(RationalTime(kMax - 1, kMax), RationalTime(kMax - 2, kMax - 1) + RationalTime(1, 2));
    EXPECT_LT(RationalTime(kMin, 1), RationalTime(kMax, 1));
    // Values whose double approximations are equal still compare correctly.
    EXPECT_LT(RationalTime(kMax - 1, 1), RationalTime(kMax, 1));
    TimeRange range{RationalTime(10, 1), RationalTime(5, 1)};
    EXPECT_TRUE(range.contains(RationalTime(10, 1)));
    EXPECT_TRUE(range.contains(RationalTime(29, 2)));
    EXPECT_FALSE(range.contains(RationalTime(15, 1)));  // half-open
    EXPECT_FALSE(range.contains(RationalTime(19, 2)));
}

TEST(RationalTime, FramesRoundHalfAwayFromZero) {
    EXPECT_EQ(RationalTime(1, 50).frames(rate(25, 1)), 1);    // 0.5 frame
    EXPECT_EQ(RationalTime(-1, 50).frames(rate(25, 1)), -1);  // -0.5 frame
    EXPECT_EQ(RationalTime(1, 51).frames(rate(25, 1)), 0);
    EXPECT_EQ(RationalTime(3600, 1).frames(rate(30000, 1001)), 107892);
    EXPECT_EQ(RationalTime::fromFrames(107892, rate(30000, 1001)).frames(rate(30000, 1001)),
              107892);
    EXPECT_THROW(RationalTime(kMax, 1).frames(rate(24, 1)), std::overflow_error);
    EXPECT_EQ(RationalTime(1, 1).framesRoundedUp(rate(30000, 1001)), 30);
    EXPECT_EQ(RationalTime(1001, 30000).framesRoundedUp(rate(30000, 1001)), 1);
    EXPECT_EQ(RationalTime(48001, 48000).framesRoundedUp(rate(25, 1)), 26);
    EXPECT_EQ(RationalTime::fromSamples(96000, 48000), RationalTime(2, 1));
    EXPECT_EQ(RationalTime::fromFrames(3, rate(24000, 1001)).text(), "1001/8000s");
}

}  // namespace
}  // namespace norvane
