#include "core/audio/ltc_recording.h"

#include <cmath>
#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/common/file_output.h"
#include "core/timecode/ltc_decoder.h"
#include "tests/support/sndfile_check.h"
#include "tests/support/test_support.h"

namespace norvane {
namespace {

TEST(LTCRecordingTest, LibsndfileReadsWhatWeWriteAndTheCodeDecodes) {
    setFrameRateDiagnosticsStream(nullptr);
    testing::TempDir dir;
    const int subtypes[] = {SF_FORMAT_PCM_16, SF_FORMAT_PCM_24, SF_FORMAT_PCM_32, SF_FORMAT_FLOAT};
    for (LTCRecordingFormat format : {LTCRecordingFormat::pcm16, LTCRecordingFormat::pcm24,
                                      LTCRecordingFormat::pcm32, LTCRecordingFormat::float32}) {
        SCOPED_TRACE(label(format));
        LTCRecordingOptions options;
        options.rate = *frameRateConfig(FrameRatePreset::fps29_97DF);
        options.start = Timecode{13, 8, 59, 28, true};
        options.seconds = 1.5;
        options.sampleRate = 44100;
        options.channels = 3;
        options.ltcChannel = 2;
        options.format = format;
        options.leadInSamples = 1000;
        const auto path = dir / (label(format) + ".wav");
        const LTCRecordingSummary summary = writeLTCRecording(path, options);

        // The streamed file and the in-memory build are the same bytes.
        EXPECT_EQ(readWholeFile(path), buildLTCRecording(options));
        const testing::SndfileView r = testing::openWithSndfile(path);
        EXPECT_EQ(r.channels, 3);
        EXPECT_EQ(r.sampleRate, 44100);
        EXPECT_EQ(r.frames, 66150);
        EXPECT_EQ(summary.frameCount, 66150);
        EXPECT_EQ(r.format & SF_FORMAT_SUBMASK, subtypes[static_cast<int>(format)]);

        const std::vector<float> ltc = r.channel(1);
        for (std::int64_t i = 0; i < 1000; ++i) {
            ASSERT_EQ(ltc[static_cast<std::size_t>(i)], 0.0f) << i;
        }
        // The first frame starts at the lead-in and carries the start code.
        ASSERT_GE(summary.frames.size(), 3u);
        EXPECT_EQ(summary.frames[0].sample, 1000);
        EXPECT_EQ(summary.frames[0].timecode, options.start);
        // 13:08:59;29 is followed by 13:09:00;02 in drop-frame counting.
        EXPECT_EQ(summary.frames[2].timecode, (Timecode{13, 9, 0, 2, true}));

        const LTCDecodeResult result = LTCDecoder::decode(ltc, 44100, options.rate);
        EXPECT_GT(result.confidence, 0.9);
        // Find the summary frame the decoder locked onto.
        bool matched = false;
        for (const auto& frame : summary.frames) {
            if (std::llabs(frame.sample - result.firstValidSample) <= 4) {
                EXPECT_EQ(frame.timecode, result.timecode);
                matched = true;
            }
        }
        EXPECT_TRUE(matched);
    }
}

TEST(LTCRecordingTest, BadOptionsAreRefused) {
    LTCRecordingOptions options;
    options.rate = *frameRateConfig(FrameRatePreset::fps25);
    options.seconds = 0.5;
    options.channels = 2;
    options.ltcChannel = 3;
    EXPECT_THAT([&] { buildLTCRecording(options); },
                ::testing::ThrowsMessage<LTCRecordingError>(
                    "LTC channel 3 does not exist in a 2-channel recording."));
    options.ltcChannel = 1;
    options.jumps = {{0.7, Timecode{}}};
    EXPECT_THAT(
        [&] { buildLTCRecording(options); },
        ::testing::ThrowsMessage<LTCRecordingError>("A jump at 0.7 s lies outside the recording."));
}

}  // namespace
}  // namespace norvane
