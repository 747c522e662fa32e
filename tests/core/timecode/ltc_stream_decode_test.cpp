// The push decoders against libltc's encoder: frames, runs and the start
// timecode, whatever the block size the audio arrives in.
#include <gtest/gtest.h>

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

}  // namespace
}  // namespace norvane
