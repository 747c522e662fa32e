// Cross-checks against libltc, an independent LTC implementation: its decoder
// reads our encoder (its encoder feeds our decoder in ltc_libltc_signal_test).
#include <ltc.h>

#include <cmath>
#include <string>

#include <gtest/gtest.h>

#include "core/timecode/ltc_encoder.h"

namespace norvane {
namespace {

// --- our encoder -> libltc's decoder --------------------------------------

struct Boundary {
    Timecode before;  // a few frames before the boundary
    std::int64_t sampleRate;
    const char* name;
};

const Boundary kBoundaries[] = {
    {Timecode{0, 59, 59, 17}, 48000, "hour"},
    {Timecode{23, 59, 59, 17}, 44100, "midnight"},
    {Timecode{0, 0, 59, 17}, 96000, "minute"},
    {Timecode{0, 9, 59, 17}, 48000, "tenthMinute"},
};

// Every rate across each boundary: libltc reads every frame we wrote, in
// order, where we placed it.
TEST(LibltcDecodesOursTest, FramesReadBackInOrder) {
    for (const FrameRateConfig& rate : candidateFrameRates()) {
        for (const Boundary& boundary : kBoundaries) {
            SCOPED_TRACE(rate.label + " " + boundary.name);
            LTCEncoderOptions options;
            options.rate = rate;
            options.sampleRate = boundary.sampleRate;
            Timecode start = boundary.before;
            start.dropFrame = rate.dropFrame;
            constexpr int kFrames = 30;
            std::vector<std::int64_t> starts;
            std::vector<float> samples = encodeLTC(start, kFrames, options, &starts);
            ASSERT_EQ(starts.size(), static_cast<std::size_t>(kFrames));
            const double samplesPerFrame = static_cast<double>(boundary.sampleRate) *
                                           static_cast<double>(rate.denominator) /
                                           static_cast<double>(rate.numerator);

            ::LTCDecoder* decoder = ltc_decoder_create(static_cast<int>(samplesPerFrame), 64);
            for (std::size_t at = 0; at < samples.size(); at += 1000) {
                const std::size_t n = std::min<std::size_t>(1000, samples.size() - at);
                ltc_decoder_write_float(decoder, samples.data() + at, n,
                                        static_cast<ltc_off_t>(at));
            }
            const std::int64_t first = TimecodeMath::frameCount(start, rate);
            int decoded = 0;
            LTCFrameExt frame;
            while (ltc_decoder_read(decoder, &frame) > 0) {
                SMPTETimecode st{};
                ltc_frame_to_time(&st, &frame.ltc, 0);
                // The frame we wrote that starts nearest to where libltc saw it start.
                const auto k = static_cast<std::int64_t>(
                    std::llround(static_cast<double>(frame.off_start) / samplesPerFrame));
                ASSERT_GE(k, 0);
                ASSERT_LT(k, kFrames);
                // libltc places frame starts within a cell (it reports the first one late).
                EXPECT_NEAR(static_cast<double>(frame.off_start), static_cast<double>(starts[k]),
                            samplesPerFrame / 80);
                const Timecode expected = TimecodeMath::timecodeFromFrameCount(first + k, rate);
                EXPECT_EQ((Timecode{st.hours, st.mins, st.secs, st.frame, rate.dropFrame}),
                          expected)
                    << k;
                EXPECT_EQ(frame.ltc.dfbit, rate.dropFrame ? 1u : 0u);
                EXPECT_FALSE(frame.reverse);
                ++decoded;
            }
            ltc_decoder_free(decoder);
            // libltc needs a frame to lock and cannot finish the last one.
            EXPECT_GE(decoded, kFrames - 2);
        }
    }
}

TEST(LTCEncoderTest, DropFrameSkipsNumbersAtMinuteBoundaries) {
    const FrameRateConfig df = *frameRateConfig(FrameRatePreset::fps29_97DF);
    LTCEncoderOptions options;
    options.rate = df;
    std::vector<std::int64_t> starts;
    const auto samples = encodeLTC(Timecode{0, 0, 59, 28, true}, 4, options, &starts);
    // 1601.6 samples a frame at 48 kHz: the grid never drifts.
    EXPECT_EQ(samples.size(), 6407u);  // ceil(4 x 1601.6)
    EXPECT_EQ(starts, (std::vector<std::int64_t>{0, 1602, 3204, 4805}));
    const auto bits = ltcFrameBits(Timecode{0, 1, 0, 2, true}, df);
    EXPECT_EQ(bits[10], 1);
    int ones = 0;
    for (auto b : bits) {
        ones += b;
    }
    EXPECT_EQ(ones % 2, 0);
}

}  // namespace
}  // namespace norvane
