// The push decoders against libltc's encoder: frames, runs and the start
// timecode, whatever the block size the audio arrives in.
#include <gtest/gtest.h>

#include <malloc.h>

#include <cmath>
#include <random>

#include "core/timecode/ltc_frame_decoder.h"
#include "core/timecode/ltc_stream_decode.h"
#include "tests/core/timecode/libltc_signal.h"

namespace norvane {
namespace {

using testing::libltcSignal;

std::vector<LTCFrame> framesInBlocks(const std::vector<float>& samples, std::int64_t sampleRate,
                                     std::size_t block) {
    LTCFrameDecoder decoder(sampleRate);
    std::vector<LTCFrame> frames;
    for (std::size_t offset = 0; offset < samples.size(); offset += block) {
        const std::size_t length = std::min(block, samples.size() - offset);
        decoder.push(std::span(samples).subspan(offset, length), static_cast<std::int64_t>(offset));
        for (const LTCFrame& f : decoder.takeFrames()) {
            frames.push_back(f);
        }
    }
    return frames;
}

TEST(LTCFrameDecoderTest, FramesDoNotDependOnTheBlockSize) {
    const FrameRateConfig rate = candidateFrameRates()[2];
    const auto signal = libltcSignal(rate, 48000, Timecode{10, 0, 0, 0}, 30, {.leadIn = 777});
    const std::vector<LTCFrame> whole =
        framesInBlocks(signal.samples, 48000, signal.samples.size());
    ASSERT_GE(whole.size(), 28u);
    for (const std::size_t block : {std::size_t{1}, std::size_t{13}, std::size_t{4096}}) {
        EXPECT_EQ(framesInBlocks(signal.samples, 48000, block), whole) << "block " << block;
    }
    // Every frame read is libltc's frame at libltc's position.
    for (const LTCFrame& f : whole) {
        const auto k =
            static_cast<std::size_t>(TimecodeMath::frameCount(f.timecode, rate) -
                                     TimecodeMath::frameCount(signal.timecodes[0], rate));
        ASSERT_LT(k, signal.frameStarts.size());
        EXPECT_NEAR(f.firstSample, signal.frameStarts[k], 2) << f.timecode.description();
        EXPECT_FALSE(f.reverse);
        EXPECT_EQ(f.bitErrors, 0);
    }
}

TEST(LTCStartDecoderTest, StartsFromTheRunAndStopsReadingWhenCertain) {
    const FrameRateConfig rate = candidateFrameRates()[3];  // 29.97 NDF
    const auto signal = libltcSignal(rate, 48000, Timecode{10, 0, 0, 0}, 120, {.leadIn = 24011});
    LTCStartDecoder decoder(48000, std::nullopt);
    std::size_t offset = 0;
    for (; offset < signal.samples.size() && !decoder.certain(); offset += 4800) {
        const std::size_t length = std::min<std::size_t>(4800, signal.samples.size() - offset);
        decoder.push(std::span(signal.samples).subspan(offset, length),
                     static_cast<std::int64_t>(offset));
    }
    EXPECT_LT(offset, signal.samples.size()) << "certain before the end of the code";
    const LTCDecodeResult result = decoder.finish();
    EXPECT_EQ(result.frameRate, rate);
    const std::int64_t k = TimecodeMath::frameCount(result.timecode, rate) -
                           TimecodeMath::frameCount(signal.timecodes[0], rate);
    ASSERT_GE(k, 0);
    EXPECT_NEAR(result.firstValidSample, signal.frameStarts[static_cast<std::size_t>(k)], 2);
    EXPECT_GE(result.confidence, 0.9);
}

// Hours of code in one run: the builder's memory does not grow with the run
// (the frames are not kept), and its fitted figures are those of the frames
// it was given, late in a long roll (starts of the order of 1e9 samples,
// where a fit that loses precision is far off), at any counting and
// direction, with dropped frames, jitter and bit errors.
TEST(LTCRunBuilderTest, LongRunsKeepFiguresNotFramesAndFitTheirTruePeriodAndStart) {
    struct Case {
        std::size_t rate;  // index into candidateFrameRates()
        std::int64_t sampleRate;
        bool reverse;
    };
    for (const Case c : {Case{2, 48000, false}, Case{4, 48000, false}, Case{0, 96000, true}}) {
        const FrameRateConfig rate = candidateFrameRates()[c.rate];
        const double period = static_cast<double>(c.sampleRate) *
                              static_cast<double>(rate.denominator) /
                              static_cast<double>(rate.numerator);
        const int direction = c.reverse ? -1 : 1;
        const std::int64_t first = TimecodeMath::frameCount(Timecode{20, 0, 0, 0}, rate);
        const std::int64_t spacing = 10 * c.sampleRate;  // a timeline point every 10 s
        LTCRunBuilder builder(c.sampleRate, std::nullopt, spacing);
        std::mt19937 random(7);
        // Uniform jitter of +-0.5 samples: rms 1/sqrt(12).
        std::uniform_real_distribution<double> jitter(-0.5, 0.5);
        std::vector<std::int64_t> timeline;
        timeline.reserve(1'000);
        std::size_t frames = 0;
        std::size_t errorFrames = 0;
        const struct mallinfo2 before = mallinfo2();
        for (std::int64_t k = 0; k < 100'000; ++k) {
            if (k % 9973 == 5) {
                continue;  // a dropped frame
            }
            LTCFrame f;
            f.timecode = TimecodeMath::timecodeFromFrameCount(first + direction * k, rate);
            f.dropFrameBit = rate.dropFrame;
            f.reverse = c.reverse;
            f.firstPosition = 2.0e9 + 0.37 + static_cast<double>(k) * period + jitter(random);
            f.endPosition = f.firstPosition + period;
            f.firstSample = std::llround(f.firstPosition);
            f.endSample = std::llround(f.endPosition);
            f.bitErrors = k % 1000 == 3 ? 2 : 0;
            errorFrames += f.bitErrors > 0 ? 1 : 0;
            if (timeline.empty() || f.firstSample - timeline.back() >= spacing) {
                timeline.push_back(f.firstSample);
            }
            ++frames;
            builder.add(f);
        }
        // Every frame kept would be 100k frames, over 9 MB.
        EXPECT_LT(mallinfo2().uordblks - before.uordblks, 256u * 1024) << rate.label;

        const std::vector<LTCRun> runs = builder.takeRuns();
        ASSERT_EQ(runs.size(), 1u) << rate.label;
        const LTCRun& run = runs[0];
        EXPECT_EQ(run.length, frames);
        EXPECT_EQ(run.direction, direction);
        EXPECT_EQ(run.rate, rate) << run.rateEvidence;
        EXPECT_EQ(run.bitErrors, static_cast<int>(2 * errorFrames));
        // The fit's own error over 100k frames of this jitter is ~1e-8 samples
        // a frame and ~0.002 samples at the start.
        EXPECT_NEAR(run.samplesPerFrame, period, 1e-6);
        EXPECT_NEAR(run.startPosition, 2.0e9 + 0.37, 0.01);
        EXPECT_NEAR(run.jitter, 1 / std::sqrt(12.0), 0.005);
        EXPECT_DOUBLE_EQ(run.confidence,
                         runConfidence(frames, errorFrames, run.jitter, run.samplesPerFrame / 80));
        ASSERT_EQ(run.timeline.size(), timeline.size());
        for (std::size_t i = 0; i < timeline.size(); ++i) {
            EXPECT_EQ(run.timeline[i].sample, timeline[i]);
        }
        EXPECT_EQ(run.point(run.timeline.back()).timecode.dropFrame, rate.dropFrame);
    }
}

}  // namespace
}  // namespace norvane
