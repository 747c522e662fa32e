#include "core/timecode/ltc_encoder.h"

#include <cmath>

#include <gtest/gtest.h>

namespace norvane {
namespace {

FrameRateConfig rate(FrameRatePreset p) {
    return *frameRateConfig(p);
}

TEST(LTCEncoderShapeTest, LevelPolarityAndRiseTime) {
    LTCEncoderOptions options;
    options.rate = rate(FrameRatePreset::fps25);
    options.sampleRate = 192000;
    options.levelDBFS = -6;
    options.riseTimeMicroseconds = 40;
    const std::vector<float> code = encodeLTC(Timecode{1, 0, 0, 0}, 2, options);
    const double amplitude = std::pow(10.0, -6.0 / 20);
    float peak = 0;
    for (float s : code) {
        peak = std::max(peak, std::fabs(s));
    }
    EXPECT_NEAR(peak, amplitude, 1e-6);
    // Starts on the rising edge (falling when inverted).
    EXPECT_GT(code[20], 0.0f);

    // 10-90 % rise time: the samples inside the middle 80 % of the swing, per edge.
    int edges = 0;
    int inside = 0;
    for (std::size_t i = 1; i < code.size(); ++i) {
        edges += (code[i - 1] < 0) != (code[i] < 0);
        inside += std::fabs(code[i]) < 0.8 * amplitude;
    }
    ASSERT_GT(edges, 80);
    const double micros = inside / static_cast<double>(edges) / 192000.0 * 1e6;
    EXPECT_GT(micros, 25.0);
    EXPECT_LT(micros, 50.0);

    options.invertPolarity = true;
    EXPECT_LT(encodeLTC(Timecode{1, 0, 0, 0}, 1, options)[20], 0.0f);
}

// A program of lead-in and jumps is read back frame by frame in the decoder's
// timeline test.

}  // namespace
}  // namespace norvane
