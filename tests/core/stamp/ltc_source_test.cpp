#include "core/stamp/ltc_source.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/core/stamp/stamp_fixtures.h"
#include "tests/support/test_support.h"

namespace norvane {
namespace {

// 25 fps from 05:00:00:00.
WAVFile recording(std::int64_t leadIn, double seconds, int channels, int ltcChannel) {
    return WAVFile::fromBytes(buildLTCRecording(testing::ltcOptions(
        FrameRatePreset::fps25, {5, 0, 0, 0, false}, leadIn, seconds, channels, ltcChannel)));
}

TEST(LTCSourceTest, FindsTheChannelThatCarriesTheCode) {
    const WAVFile shortTake = recording(0, 3, 3, 3);
    const ChannelDecode found = decodeFileLTC(shortTake, std::nullopt, std::nullopt);
    EXPECT_EQ(found.channelIndex, 2);
    // Whichever frame the decoder locks onto, it is the one the recording put there.
    const FrameRateConfig rate = testing::rateOf(FrameRatePreset::fps25);
    EXPECT_EQ(TimecodeMath::frameCount(found.result.timecode, rate) -
                  (found.result.firstValidSample + 960) / 1920,
              5 * 3600 * 25);
    EXPECT_EQ(found.result.frameRate.label, "25");
    EXPECT_EQ(chooseLTCChannel(shortTake, std::nullopt, std::nullopt), 2);
    // A named channel is decoded as it is, even when it carries no code.
    EXPECT_THAT([&] { decodeFileLTC(shortTake, 0, rate); },
                ::testing::Throws<LTCDecodeError>(::testing::Property(
                    &LTCDecodeError::kind, LTCDecodeError::Kind::noFrameDetected)));
    EXPECT_EQ(chooseLTCChannel(shortTake, 7, std::nullopt), 2);  // clamped into the file
}

TEST(LTCSourceTest, LongRecordingsAreComparedOnTheirFirstMinuteAndDecodedWhole) {
    // Code from the start: the first minute decides, the whole channel is decoded.
    const WAVFile take = recording(0, 62, 2, 2);
    EXPECT_EQ(decodeFileLTC(take, std::nullopt, std::nullopt).channelIndex, 1);
    // Code that begins after the first minute is still found on the whole file.
    const WAVFile late = recording(48000 * 61, 63, 2, 2);
    const ChannelDecode decoded =
        decodeFileLTC(late, std::nullopt, testing::rateOf(FrameRatePreset::fps25));
    EXPECT_EQ(decoded.channelIndex, 1);
    EXPECT_NEAR(static_cast<double>(decoded.result.firstValidSample), 48000.0 * 61, 2000);
}

}  // namespace
}  // namespace norvane
