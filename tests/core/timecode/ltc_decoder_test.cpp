#include "core/timecode/ltc_decoder.h"

#include <gtest/gtest.h>

#include "core/timecode/ltc_encoder.h"
#include "tests/core/timecode/libltc_signal.h"

namespace norvane {
namespace {

FrameRateConfig rate(FrameRatePreset p) {
    return *frameRateConfig(p);
}

Timecode tc(int h, int m, int s, int f, bool df = false) {
    return Timecode{h, m, s, f, df};
}

// Biphase mark at exactly 24 samples a cell (25 fps at 48 kHz), hard edges,
// after one sample of the opposite level so that the first cell boundary is a
// crossing too: frame k starts at 1 + 1920 k.
std::vector<float> biphase(const std::vector<std::array<std::uint8_t, 80>>& frames) {
    std::vector<float> samples = {0.5f};
    float level = 0.5f;
    for (const auto& bits : frames) {
        for (std::uint8_t bit : bits) {
            level = -level;
            for (int i = 0; i < 24; ++i) {
                if (i == 12 && bit) {
                    level = -level;
                }
                samples.push_back(level);
            }
        }
    }
    return samples;
}

TEST(LTCDecoderTest, InvalidBCDFramesAreSkipped) {
    const FrameRateConfig r = rate(FrameRatePreset::fps25);
    // Hand-built frames: the first reads hour 24 (invalid), then valid ones.
    // Minutes 60, seconds 60 and frames 30 are invalid too.
    const Timecode invalid[] = {tc(24, 0, 0, 0), tc(0, 60, 0, 0), tc(0, 0, 60, 0), tc(0, 0, 0, 30)};
    for (const Timecode& bad : invalid) {
        SCOPED_TRACE(bad.description());
        std::vector<std::array<std::uint8_t, 80>> frames = {ltcFrameBits(bad, r)};
        for (int f = 8; f < 14; ++f) {
            frames.push_back(ltcFrameBits(tc(5, 6, 7, f), r));
        }
        const std::vector<float> samples = biphase(frames);
        const LTCDecodeResult result = LTCDecoder::decodeQuietly(samples, 48000, r);
        EXPECT_EQ(result.timecode, tc(5, 6, 7, 8));
        EXPECT_NEAR(result.firstValidSample, 1 + 80 * 24, 1);
    }
}

TEST(LTCDecoderTest, OnlyARunOfConsecutiveFramesIsBelieved) {
    const FrameRateConfig r = rate(FrameRatePreset::fps25);
    // Two valid frames that count on (too short a run to verify a start), an
    // unreadable one (hour 25), then a run: the start comes from the run.
    std::vector<std::array<std::uint8_t, 80>> frames = {ltcFrameBits(tc(3, 0, 0, 0), r),
                                                        ltcFrameBits(tc(3, 0, 0, 1), r),
                                                        ltcFrameBits(tc(25, 0, 0, 1), r)};
    for (int f = 2; f < 8; ++f) {
        frames.push_back(ltcFrameBits(tc(1, 0, 0, f), r));
    }
    frames.push_back(frames.back());  // closes the last frame with an edge
    const auto evaluation = LTCDecoder::evaluateCandidate(biphase(frames), 48000, r);
    ASSERT_TRUE(evaluation.has_value());
    EXPECT_EQ(evaluation->result->timecode, tc(1, 0, 0, 2));
    EXPECT_NEAR(evaluation->result->firstValidSample, 1 + 3 * 80 * 24, 1);
    EXPECT_EQ(evaluation->validRun, 6);

    // Frames that do not count on one by one are no evidence at all, however
    // well each one reads.
    frames.clear();
    for (const int f : {0, 5, 3, 9, 1, 8, 2, 6}) {
        frames.push_back(ltcFrameBits(tc(1, 0, 0, f), r));
    }
    testing::expectDecodeError([&] { LTCDecoder::decodeQuietly(biphase(frames), 48000, r); },
                               LTCDecodeError::Kind::noFrameDetected,
                               "Could not decode a valid LTC frame.");
}

TEST(LTCDecoderTest, TimelineHasEveryRunStartExactly) {
    const FrameRateConfig r = rate(FrameRatePreset::fps25);
    LTCEncoderOptions options;
    options.rate = r;
    LTCProgram program;
    program.leadInSamples = 4800;
    program.totalSamples = 48000 * 4;
    program.segments = {{4800, tc(1, 0, 0, 0)}, {48000 * 2, tc(7, 30, 0, 0)}};
    const std::vector<float> samples = encodeLTCProgram(program, options);
    const auto points = LTCDecoder::decodeTimeline(samples, 48000, r, 0.5, 0.2);
    ASSERT_GE(points.size(), 15u);
    bool secondRunStart = false;
    for (const auto& p : points) {
        // Every point is a frame start of its run, to the sample.
        const bool late = p.sample >= 96000 - 2;
        const std::int64_t k =
            p.frameCount - TimecodeMath::frameCount(late ? tc(7, 30, 0, 0) : tc(1, 0, 0, 0), r);
        EXPECT_EQ(p.frameCount, TimecodeMath::frameCount(p.timecode, r));
        EXPECT_NEAR(static_cast<double>(p.sample),
                    (late ? 96000.0 : 4800.0) + 1920.0 * static_cast<double>(k), 2.0);
        secondRunStart = secondRunStart || (late && k == 0);
    }
    // The new take's first frame is a point, where the take begins.
    EXPECT_TRUE(secondRunStart);
    // A cancellation stops at once and keeps what was found.
    int asked = 0;
    EXPECT_LT(LTCDecoder::decodeTimeline(samples, 48000, r, 0.5, 0.2, std::nullopt,
                                         [&] { return ++asked > 1; })
                  .size(),
              points.size());
    EXPECT_EQ(asked, 2);
}

}  // namespace
}  // namespace norvane
