#include "core/timecode/timecode.h"

#include <gtest/gtest.h>

namespace norvane {
namespace {

FrameRateConfig rate(FrameRatePreset p) {
    return *frameRateConfig(p);
}

Timecode tc(int h, int m, int s, int f, bool df = false) {
    return Timecode{h, m, s, f, df};
}

TEST(TimecodeMathTest, DropFrameKnownValues) {
    const FrameRateConfig df = rate(FrameRatePreset::fps29_97DF);
    EXPECT_EQ(TimecodeMath::frameCount(tc(0, 1, 0, 2, true), df), 1800);
    EXPECT_EQ(TimecodeMath::timecodeFromFrameCount(1800, df), tc(0, 1, 0, 2, true));
    EXPECT_EQ(TimecodeMath::timecodeFromFrameCount(1799, df), tc(0, 0, 59, 29, true));
    EXPECT_EQ(TimecodeMath::frameCount(tc(0, 10, 0, 0, true), df), 17982);
    EXPECT_EQ(TimecodeMath::frameCount(tc(1, 0, 0, 0, true), df), 107892);
    EXPECT_EQ(TimecodeMath::timecodeFromFrameCount(17982, df), tc(0, 10, 0, 0, true));
    EXPECT_EQ(tc(1, 0, 0, 0, true).description(), "01:00:00;00");
}

TEST(TimecodeMathTest, WrapsAroundMidnight) {
    const FrameRateConfig r25 = rate(FrameRatePreset::fps25);
    EXPECT_EQ(TimecodeMath::timecodeFromFrameCount(-1, r25), tc(23, 59, 59, 24));
    EXPECT_EQ(TimecodeMath::timecodeFromFrameCount(25 * 86400, r25), tc(0, 0, 0, 0));
    EXPECT_EQ(TimecodeMath::timecodeMinusFrames(tc(0, 0, 0, 3), 5, r25), tc(23, 59, 59, 23));
    const FrameRateConfig df = rate(FrameRatePreset::fps29_97DF);
    EXPECT_EQ(TimecodeMath::timecodeFromFrameCount(-1, df), tc(23, 59, 59, 29, true));
}

TEST(TimecodeMathTest, SamplePositionUsesExactRate) {
    EXPECT_EQ(TimecodeMath::samplePosition(tc(1, 0, 0, 0), 48000, rate(FrameRatePreset::fps25)),
              172800000u);
    EXPECT_EQ(TimecodeMath::samplePosition(tc(1, 0, 0, 0), 48000, rate(FrameRatePreset::fps23_976)),
              172972800u);
    EXPECT_DOUBLE_EQ(TimecodeMath::secondsForFrames(30000, rate(FrameRatePreset::fps29_97NDF)),
                     1001.0);
}

TEST(TimecodeMathTest, TheConfigChoosesTheRuleAndOverflowIsReported) {
    // The config decides the arithmetic; the value's own flag only changes the separator.
    const Timecode value = tc(0, 1, 0, 0, true);
    EXPECT_EQ(TimecodeMath::frameCount(value, rate(FrameRatePreset::fps29_97NDF)), 1800);
    EXPECT_EQ(value.description(), "00:01:00;00");
    EXPECT_EQ(tc(10, 59, 59, 24).description(), "10:59:59:24");
    Timecode huge{INT64_MAX / 2, 0, 0, 0, false};
    EXPECT_THROW(TimecodeMath::frameCount(huge, rate(FrameRatePreset::fps25)), std::overflow_error);
}

// Every frame of a whole day survives frame count -> timecode -> frame count,
// and each timecode is valid for its rate (no dropped frame numbers appear).
class WholeDayRoundTrip : public ::testing::TestWithParam<FrameRatePreset> {};

TEST_P(WholeDayRoundTrip, EveryFrame) {
    const FrameRateConfig r = rate(GetParam());
    const std::int64_t fps = TimecodeMath::nominalFramesPerSecond(r.numerator, r.denominator);
    const std::int64_t perDay = r.dropFrame ? (fps * 3600 - 108) * 24 : fps * 86400;
    Timecode previous = TimecodeMath::timecodeFromFrameCount(perDay - 1, r);
    for (std::int64_t n = 0; n < perDay; ++n) {
        const Timecode t = TimecodeMath::timecodeFromFrameCount(n, r);
        ASSERT_EQ(TimecodeMath::frameCount(t, r), n) << t.description();
        ASSERT_LT(t.frames, fps);
        ASSERT_LT(t.hours, 24);
        if (r.dropFrame && t.seconds == 0 && t.minutes % 10 != 0) {
            ASSERT_GE(t.frames, 2) << t.description();
        }
        // Consecutive counts are consecutive labels.
        if (n > 0) {
            ASSERT_NE(t, previous);
        }
        previous = t;
    }
    EXPECT_EQ(TimecodeMath::timecodeFromFrameCount(perDay, r),
              TimecodeMath::timecodeFromFrameCount(0, r));
}

INSTANTIATE_TEST_SUITE_P(AllRates, WholeDayRoundTrip,
                         ::testing::Values(FrameRatePreset::fps23_976, FrameRatePreset::fps24,
                                           FrameRatePreset::fps25, FrameRatePreset::fps29_97NDF,
                                           FrameRatePreset::fps29_97DF, FrameRatePreset::fps30));

}  // namespace
}  // namespace norvane
