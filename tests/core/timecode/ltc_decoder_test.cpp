#include "core/timecode/ltc_decoder.h"

#include <cmath>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/timecode/ltc_encoder.h"

namespace norvane {
namespace {

using ::testing::HasSubstr;

FrameRateConfig rate(FrameRatePreset p) {
    return *frameRateConfig(p);
}

Timecode tc(int h, int m, int s, int f, bool df = false) {
    return Timecode{h, m, s, f, df};
}

// Captures the frame-rate diagnostics for the life of the object.
class DiagnosticsCapture {
  public:
    DiagnosticsCapture() { setFrameRateDiagnosticsStream(&stream_); }
    ~DiagnosticsCapture() { setFrameRateDiagnosticsStream(nullptr); }
    std::string text() const { return stream_.str(); }

  private:
    std::ostringstream stream_;
};

std::vector<float> ltc(const FrameRateConfig& r, const Timecode& start, std::int64_t frames,
                       std::int64_t sampleRate = 48000,
                       std::vector<std::int64_t>* starts = nullptr) {
    LTCEncoderOptions options;
    options.rate = r;
    options.sampleRate = sampleRate;
    return encodeLTC(start, frames, options, starts);
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

template <typename F>
void expectDecodeError(F&& f, LTCDecodeError::Kind kind, const std::string& message) {
    try {
        f();
        ADD_FAILURE() << "expected LTCDecodeError";
    } catch (const LTCDecodeError& e) {
        EXPECT_EQ(e.kind(), kind);
        EXPECT_EQ(std::string(e.what()), message);
    }
}

TEST(LTCDecoderTest, SilenceAndTinySignalsAreNoSignal) {
    DiagnosticsCapture quiet;
    const std::string message = "LTC signal appears silent or invalid.";
    expectDecodeError([] { LTCDecoder::decode({}, 48000); }, LTCDecodeError::Kind::noSignal,
                      message);
    std::vector<float> silence(48000, 0.0f);
    expectDecodeError([&] { LTCDecoder::decode(silence, 48000); }, LTCDecodeError::Kind::noSignal,
                      message);
    // Peak exactly 0.01 fails; just above it is a signal (though not LTC).
    std::vector<float> code = ltc(rate(FrameRatePreset::fps25), tc(1, 0, 0, 0), 10);
    float peak = 0;
    for (float s : code) {
        peak = std::max(peak, std::fabs(s));
    }
    for (float& s : code) {
        s = s / peak * 0.01f;
    }
    expectDecodeError([&] { LTCDecoder::decode(code, 48000); }, LTCDecodeError::Kind::noSignal,
                      message);
    std::vector<float> noise(48000);
    for (std::size_t i = 0; i < noise.size(); ++i) {
        noise[i] = 0.02f * static_cast<float>(std::sin(0.05 * static_cast<double>(i)));
    }
    expectDecodeError([&] { LTCDecoder::decode(noise, 48000); },
                      LTCDecodeError::Kind::noFrameDetected, "Could not decode a valid LTC frame.");
}

TEST(LTCDecoderTest, DecodesEveryRateAtSampleZero) {
    DiagnosticsCapture quiet;
    for (const FrameRateConfig& r : candidateFrameRates()) {
        SCOPED_TRACE(r.label);
        const Timecode start = r.dropFrame ? tc(10, 1, 0, 2, true) : tc(10, 0, 59, 20);
        const std::vector<float> code = ltc(r, start, 8);
        const LTCDecodeResult result = LTCDecoder::decode(code, 48000, r);
        EXPECT_EQ(result.timecode, start);
        EXPECT_EQ(result.frameRate, r);
        EXPECT_EQ(result.firstValidSample, 0);
        EXPECT_EQ(result.firstValidSeconds, 0.0);
        EXPECT_DOUBLE_EQ(result.confidence, 1.0);
    }
}

TEST(LTCDecoderTest, FrameStartFollowsTheLeadIn) {
    DiagnosticsCapture quiet;
    const FrameRateConfig r = rate(FrameRatePreset::fps29_97NDF);
    LTCEncoderOptions options;
    options.rate = r;
    LTCProgram program;
    program.leadInSamples = 0;
    program.totalSamples = 48000;
    // The code started two frames (3203.2 samples) before the recording did.
    program.segments = {{-2427, tc(0, 59, 59, 27)}};
    std::vector<std::int64_t> starts;
    const std::vector<float> samples = encodeLTCProgram(program, options, &starts);
    ASSERT_FALSE(starts.empty());
    EXPECT_EQ(starts[0], 777);  // ceil(-2427 + 3203.2)
    const LTCDecodeResult result = LTCDecoder::decode(samples, 48000, r);
    // The first full frame is 00:59:59:29; the fixed grid finds its start to
    // within the +-20 % cell tolerance (4 samples at 20.02 samples a cell).
    EXPECT_EQ(result.timecode, tc(0, 59, 59, 29));
    EXPECT_NEAR(result.firstValidSample, 776.2, 4.0);
    EXPECT_DOUBLE_EQ(result.firstValidSeconds, result.firstValidSample / 48000.0);
}

TEST(LTCDecoderTest, TooFewCellsFailEveryCandidate) {
    DiagnosticsCapture capture;
    // 25 fps at 48 kHz: 24 samples a cell, 240 cells = 5760 samples.
    const std::vector<float> code = ltc(rate(FrameRatePreset::fps25), tc(1, 2, 3, 4), 8);
    ASSERT_TRUE(LTCDecoder::evaluateCandidate(code, 48000, rate(FrameRatePreset::fps25)));
    const std::vector<float> shortCode(code.begin(), code.begin() + 5750);
    expectDecodeError([&] { LTCDecoder::decode(shortCode, 48000); },
                      LTCDecodeError::Kind::noFrameDetected, "Could not decode a valid LTC frame.");
    for (const FrameRateConfig& r : candidateFrameRates()) {
        EXPECT_FALSE(LTCDecoder::evaluateCandidate(shortCode, 48000, r).has_value()) << r.label;
    }
    // No diagnostic is written when nothing decoded.
    EXPECT_EQ(capture.text(), "");
    // Dense crossings (a 6 kHz square) pass the 500-crossing minimum, but 239
    // cells are still too few.
    std::vector<float> dense(5750);
    for (std::size_t i = 0; i < dense.size(); ++i) {
        dense[i] = (i / 4) % 2 ? -0.5f : 0.5f;
    }
    EXPECT_FALSE(LTCDecoder::evaluateCandidate(dense, 48000, rate(FrameRatePreset::fps25)));
}

TEST(LTCDecoderTest, FilmRateGridUsesItsToleranceAndPhaseStep) {
    DiagnosticsCapture quiet;
    // 23.976 at 48 kHz: 25.025 samples a cell, tolerance 5, phase step 3.
    // Code from sample 7 puts its boundaries 5 samples after phase 3 and 2
    // before phase 6; both score alike and the earlier phase wins, so the
    // frame is reported at 3. A tolerance of 4 or another step would not.
    const FrameRateConfig r = rate(FrameRatePreset::fps23_976);
    LTCEncoderOptions options;
    options.rate = r;
    options.riseTimeMicroseconds = 0;
    LTCProgram program;
    program.leadInSamples = 7;
    program.totalSamples = 48000;
    program.segments = {{7, tc(0, 0, 10, 0)}};
    const auto evaluation =
        LTCDecoder::evaluateCandidate(encodeLTCProgram(program, options), 48000, r);
    ASSERT_TRUE(evaluation.has_value());
    EXPECT_EQ(evaluation->result->timecode, tc(0, 0, 10, 0));
    EXPECT_EQ(evaluation->result->firstValidSample, 3);
    EXPECT_DOUBLE_EQ(*evaluation->bestScore, 199.0 / 200);
}

TEST(LTCDecoderTest, InvalidBCDFramesAreSkipped) {
    DiagnosticsCapture quiet;
    const FrameRateConfig r = rate(FrameRatePreset::fps25);
    LTCEncoderOptions options;
    options.rate = r;
    options.riseTimeMicroseconds = 0;
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
        const LTCDecodeResult result = LTCDecoder::decode(samples, 48000, r);
        EXPECT_EQ(result.timecode, tc(5, 6, 7, 8));
        EXPECT_NEAR(result.firstValidSample, 1 + 80 * 24, 1);
    }
}

TEST(LTCDecoderTest, ThirdFrameIsChosenWhenOnlyItHasAValidSuccessor) {
    DiagnosticsCapture quiet;
    const FrameRateConfig r = rate(FrameRatePreset::fps25);
    // Frame 1 valid, frame 2 invalid (hour 25), frames 3 on valid.
    std::vector<std::array<std::uint8_t, 80>> frames = {ltcFrameBits(tc(1, 0, 0, 0), r),
                                                        ltcFrameBits(tc(25, 0, 0, 1), r)};
    for (int f = 2; f < 8; ++f) {
        frames.push_back(ltcFrameBits(tc(1, 0, 0, f), r));
    }
    const auto evaluation = LTCDecoder::evaluateCandidate(biphase(frames), 48000, r);
    ASSERT_TRUE(evaluation.has_value());
    ASSERT_TRUE(evaluation->result.has_value());
    EXPECT_EQ(evaluation->result->timecode, tc(1, 0, 0, 2));
    EXPECT_NEAR(evaluation->result->firstValidSample, 1 + 2 * 80 * 24, 1);
    EXPECT_EQ(evaluation->validRun, 2);
    EXPECT_DOUBLE_EQ(evaluation->confidence, std::min(0.35 * *evaluation->bestScore + 0.75, 1.0));

    // Only the first frame valid: it is kept with a run of 1.
    frames = {ltcFrameBits(tc(1, 0, 0, 0), r)};
    for (int f = 1; f < 8; ++f) {
        frames.push_back(ltcFrameBits(tc(25 + f % 4, 0, 0, f), r));
    }
    const auto single = LTCDecoder::evaluateCandidate(biphase(frames), 48000, r);
    ASSERT_TRUE(single.has_value());
    EXPECT_EQ(single->validRun, 1);
    EXPECT_NEAR(single->result->firstValidSample, 1, 1);
    EXPECT_DOUBLE_EQ(single->confidence, std::min(0.35 * *single->bestScore + 0.55, 1.0));
}

TEST(LTCDecoderTest, TwentyFiveIsNotTakenForTwentyFour) {
    DiagnosticsCapture quiet;
    const std::vector<float> code = ltc(rate(FrameRatePreset::fps25), tc(3, 4, 5, 6), 12);
    const auto at24 = LTCDecoder::evaluateCandidate(code, 48000, rate(FrameRatePreset::fps24));
    const auto at25 = LTCDecoder::evaluateCandidate(code, 48000, rate(FrameRatePreset::fps25));
    ASSERT_TRUE(at25.has_value());
    // The 4 % slower grid may still find a frame, but never with more confidence.
    if (at24) {
        EXPECT_LT(at24->confidence, at25->confidence);
    }
    EXPECT_EQ(LTCDecoder::decode(code, 48000).frameRate, rate(FrameRatePreset::fps25));
}

TEST(LTCDecoderTest, ReverseCodeDoesNotDecode) {
    DiagnosticsCapture quiet;
    std::vector<float> code = ltc(rate(FrameRatePreset::fps25), tc(1, 0, 0, 0), 10);
    std::reverse(code.begin(), code.end());
    EXPECT_THROW(LTCDecoder::decode(code, 48000, rate(FrameRatePreset::fps25)), LTCDecodeError);
}

TEST(LTCDecoderTest, AutoDiagnosticListsEveryCandidate) {
    DiagnosticsCapture capture;
    const std::vector<float> code = ltc(rate(FrameRatePreset::fps25), tc(1, 0, 0, 0), 12);
    const LTCDecodeResult result = LTCDecoder::decode(code, 48000);
    EXPECT_EQ(result.frameRate, rate(FrameRatePreset::fps25));
    const std::string text = capture.text();
    EXPECT_THAT(text, ::testing::StartsWith("Auto FPS candidates:\n- 23.976: confidence="));
    EXPECT_THAT(text,
                HasSubstr("\n- 25: confidence=1.000 bestScore=1.000 validRun=2 success=true\n"));
    EXPECT_THAT(text,
                HasSubstr("\n- 29.97 DF: confidence=0.000 bestScore=- validRun=- success=false\n"));
    EXPECT_THAT(text, ::testing::EndsWith("Selected: 25\n"));
    // A fixed rate writes nothing.
    LTCDecoder::decode(code, 48000, rate(FrameRatePreset::fps25));
    EXPECT_EQ(capture.text(), text);
}

TEST(LTCDecoderTest, TimelineFollowsJumpsAndThins) {
    DiagnosticsCapture quiet;
    const FrameRateConfig r = rate(FrameRatePreset::fps25);
    LTCEncoderOptions options;
    options.rate = r;
    LTCProgram program;
    program.leadInSamples = 4800;
    program.totalSamples = 48000 * 4;
    program.segments = {{4800, tc(1, 0, 0, 0)}, {48000 * 2, tc(7, 30, 0, 0)}};
    const std::vector<float> samples = encodeLTCProgram(program, options);

    std::int64_t lastDone = 0;
    std::int64_t lastTotal = 0;
    const auto points = LTCDecoder::decodeTimeline(samples, 48000, r, 0.5, 0.2, std::nullopt, {},
                                                   [&](std::int64_t done, std::int64_t total) {
                                                       EXPECT_EQ(done, lastDone + 1);
                                                       lastDone = done;
                                                       lastTotal = total;
                                                   });
    // (192000 - 24000) / 9600 + 1 windows.
    EXPECT_EQ(lastTotal, 18);
    EXPECT_EQ(lastDone, 18);
    ASSERT_GE(points.size(), 10u);
    bool before = false;
    bool after = false;
    for (std::size_t i = 0; i < points.size(); ++i) {
        const auto& p = points[i];
        EXPECT_EQ(p.frameCount, TimecodeMath::frameCount(p.timecode, r));
        if (i > 0) {
            EXPECT_GE(p.sample - points[i - 1].sample, 4800);
        }
        // Every point sits on the frame grid of its segment.
        if (p.sample < 96000) {
            before = true;
            EXPECT_EQ(p.frameCount - TimecodeMath::frameCount(tc(1, 0, 0, 0), r),
                      (p.sample - 4800 + 960) / 1920);
        } else {
            after = true;
            EXPECT_EQ(p.frameCount - TimecodeMath::frameCount(tc(7, 30, 0, 0), r),
                      (p.sample - 96000 + 960) / 1920);
        }
    }
    EXPECT_TRUE(before);
    EXPECT_TRUE(after);

    // The window count is capped by widening the hop.
    std::int64_t capped = 0;
    LTCDecoder::decodeTimeline(samples, 48000, r, 0.5, 0.2, 5, {},
                               [&](std::int64_t, std::int64_t total) { capped = total; });
    EXPECT_EQ(capped, 5);

    // A cancellation stops at once and keeps what was found.
    int asked = 0;
    const auto cancelled = LTCDecoder::decodeTimeline(samples, 48000, r, 0.5, 0.2, std::nullopt,
                                                      [&] { return ++asked > 3; });
    EXPECT_EQ(asked, 4);
    EXPECT_LE(cancelled.size(), 3u);

    EXPECT_TRUE(LTCDecoder::decodeTimeline({}, 48000, r, 0.5, 0.2).empty());
    EXPECT_TRUE(LTCDecoder::decodeTimeline(samples, 0, r, 0.5, 0.2).empty());
    EXPECT_TRUE(LTCDecoder::decodeTimeline(samples, 48000, r, 10.0, 0.2).empty());
}

}  // namespace
}  // namespace norvane
