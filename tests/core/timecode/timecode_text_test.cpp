#include "core/timecode/timecode_text.h"

#include <gtest/gtest.h>

namespace norvane {
namespace {

TEST(TimecodeTextTest, ReadsBothSeparatorsAndOnlyFramesThatExistAtTheRate) {
    EXPECT_EQ(parseTimecodeText("10:59:59:24"), (Timecode{10, 59, 59, 24, false}));
    EXPECT_EQ(parseTimecodeText(" 01:00:00;00 "), (Timecode{1, 0, 0, 0, true}));
    EXPECT_EQ(parseTimecodeText("1:2:3:4"), (Timecode{1, 2, 3, 4, false}));
    for (const char* bad : {"", "10:59:59", "24:00:00:00", "00:60:00:00", "00:00:60:00",
                            "00:00:00:30", "aa:00:00:00", "00:00:00:", "100:00:00:00",
                            "00:00:00:00:00", "00;00;00;00", "-1:00:00:00", "00:00:00:0x"}) {
        EXPECT_FALSE(parseTimecodeText(bad).has_value()) << bad;
    }
    const FrameRateConfig r25 = *frameRateConfig(FrameRatePreset::fps25);
    const FrameRateConfig df = *frameRateConfig(FrameRatePreset::fps29_97DF);
    EXPECT_TRUE(parseTimecodeText("00:00:00:24", r25).has_value());
    EXPECT_FALSE(parseTimecodeText("00:00:00:25", r25).has_value());
    // Drop-frame skips ;00 and ;01 at every minute but each tenth; either
    // separator is accepted and the rate decides the flag.
    EXPECT_FALSE(parseTimecodeText("00:01:00;00", df).has_value());
    EXPECT_FALSE(parseTimecodeText("00:01:00:01", df).has_value());
    EXPECT_EQ(parseTimecodeText("00:01:00:02", df), (Timecode{0, 1, 0, 2, true}));
    EXPECT_EQ(parseTimecodeText("00:10:00;00", df), (Timecode{0, 10, 0, 0, true}));
    EXPECT_EQ(parseTimecodeText("00:00:00;05", r25), (Timecode{0, 0, 0, 5, false}));
}

}  // namespace
}  // namespace norvane
