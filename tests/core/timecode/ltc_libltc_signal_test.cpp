// libltc's encoder feeds our decoder: every rate at 44.1, 48 and 96 kHz, the
// code starting at every sample offset of one bit, at levels from -40 dBFS to
// full scale, with noise, clicks, a dropout, polarity inversion, speed drift,
// lead-ins of silence, noise and tone, and played backwards. Each case ends in
// the exact timecode at libltc's frame start (within 2 samples) or in a clear
// error: never in a wrong timecode.
#include <algorithm>
#include <cmath>
#include <sstream>
#include <tuple>

#include <gtest/gtest.h>

#include "core/timecode/ltc_decoder.h"
#include "core/timecode/ltc_stream_decode.h"
#include "tests/core/timecode/libltc_signal.h"

namespace norvane {
namespace {

using testing::LibltcSignal;
using testing::libltcSignal;

double samplesPerFrame(const FrameRateConfig& rate, std::int64_t sampleRate) {
    return static_cast<double>(sampleRate) * static_cast<double>(rate.denominator) /
           static_cast<double>(rate.numerator);
}

// Checks one decode against the signal; false when it failed cleanly (an
// LTCDecodeError). A result must name one of libltc's frames at libltc's
// position.
bool expectExact(const LibltcSignal& signal, const FrameRateConfig& rate, std::int64_t sampleRate,
                 const std::optional<FrameRateConfig>& given, const std::string& context) {
    LTCDecodeResult result;
    try {
        result = LTCDecoder::decodeQuietly(signal.samples, sampleRate, given);
    } catch (const LTCDecodeError&) {
        return false;
    }
    EXPECT_EQ(result.frameRate, rate) << context << " " << result.rateEvidence;
    const auto k = static_cast<std::size_t>(
        std::find(signal.timecodes.begin(), signal.timecodes.end(), result.timecode) -
        signal.timecodes.begin());
    if (k == signal.timecodes.size()) {
        ADD_FAILURE() << context << ": wrong timecode " << result.timecode.description();
        return true;
    }
    EXPECT_NEAR(result.firstValidPosition, static_cast<double>(signal.frameStarts[k]), 2.0)
        << context << " frame " << k;
    EXPECT_EQ(result.direction, 1) << context;
    return true;
}

// Name, level, inverted, white noise rms (0: none), a full-scale click every 45 ms.
constexpr std::tuple<const char*, double, bool, double, bool> kImpairments[] = {
    {"full", 0, false, 0, false},
    {"quietInverted", -30, true, 0, false},
    {"noisy", -12, false, -40, false},
    {"clicks", -6, true, 0, true},
};

TEST(LibltcSignalTest, EveryRateSampleRateBitOffsetAndLevelDecodesExactly) {
    int decoded = 0;
    int failed = 0;
    for (const FrameRateConfig& rate : candidateFrameRates()) {
        for (const std::int64_t sampleRate : {44100, 48000, 96000}) {
            const double bit = samplesPerFrame(rate, sampleRate) / 80;
            const Timecode start =
                rate.dropFrame ? Timecode{9, 59, 59, 26, true} : Timecode{9, 59, 59, 20};
            // Every sample offset of one bit, each with one impairment in turn.
            const auto offsets = static_cast<int>(std::ceil(bit));
            for (int offset = 0; offset < offsets; ++offset) {
                const auto [name, level, inverted, noise, clicks] =
                    kImpairments[static_cast<std::size_t>(offset) % 4];
                LibltcSignal signal =
                    libltcSignal(rate, sampleRate, start, 10,
                                 {.levelDBFS = level, .inverted = inverted, .leadIn = offset});
                if (noise < 0) {
                    testing::addNoise(signal.samples, noise, static_cast<unsigned>(offset));
                }
                if (clicks) {
                    const auto every =
                        static_cast<std::size_t>(0.045 * static_cast<double>(sampleRate));
                    for (std::size_t i = every; i < signal.samples.size(); i += every) {
                        signal.samples[i] = 1.0f;
                    }
                }
                const std::string context = rate.label + " @" + std::to_string(sampleRate) + " +" +
                                            std::to_string(offset) + " " + name;
                // With the rate given, and under Auto from the measured period
                // and the drop-frame bit.
                for (const auto& given :
                     {std::optional<FrameRateConfig>(rate), std::optional<FrameRateConfig>()}) {
                    ++(expectExact(signal, rate, sampleRate, given, context) ? decoded : failed);
                }
            }
        }
    }
    // Clean code at these levels always decodes.
    EXPECT_EQ(failed, 0);
    EXPECT_GT(decoded, 500);
    // Down to -40 dBFS, which peaks at 0.01: the silence limit.
    for (const double level : {-40.0, -38.0, -20.0, -3.0}) {
        const LibltcSignal signal = libltcSignal(candidateFrameRates()[2], 48000,
                                                 Timecode{1, 0, 0, 0}, 10, {.levelDBFS = level});
        EXPECT_EQ(expectExact(signal, candidateFrameRates()[2], 48000, candidateFrameRates()[2],
                              std::to_string(level)),
                  level > -40.0);
    }
}

TEST(LibltcSignalTest, LeadInsOfSilenceNoiseAndToneAreSearchedThrough) {
    const FrameRateConfig rate = candidateFrameRates()[2];
    const std::int64_t sr = 48000;
    struct LeadIn {
        const char* name;
        std::int64_t samples;
        int kind;  // 0 silence, 1 noise, 2 tone
    };
    // 0.1 s at every offset of one bit, 2 s, and (cheap: one rate) 30 s.
    std::vector<LeadIn> leadIns = {
        {"none", 0, 0}, {"2s noise", 2 * sr, 1}, {"2s tone", 2 * sr, 2}, {"30s noise", 30 * sr, 1}};
    for (std::int64_t i = 0; i < 24; ++i) {
        leadIns.push_back({"0.1s", 4801 + i, static_cast<int>(i % 3)});
    }
    for (const LeadIn& leadIn : leadIns) {
        LibltcSignal signal =
            libltcSignal(rate, sr, Timecode{10, 0, 0, 2}, 12, {.leadIn = leadIn.samples});
        const auto length = static_cast<std::size_t>(leadIn.samples);
        std::vector<float> lead = leadIn.kind == 2 ? testing::sine(length, 1000, 0.5f, sr)
                                                   : std::vector<float>(length, 0.0f);
        if (leadIn.kind == 1) {
            testing::addNoise(lead, -10, 7);
        }
        std::copy(lead.begin(), lead.end(), signal.samples.begin());
        const std::string context = std::string(leadIn.name) + " " + std::to_string(leadIn.samples);
        for (const auto& given :
             {std::optional<FrameRateConfig>(rate), std::optional<FrameRateConfig>()}) {
            EXPECT_TRUE(expectExact(signal, rate, sr, given, context)) << context;
        }
    }
}

TEST(LibltcSignalTest, DriftDropoutAndReversePlay) {
    const FrameRateConfig rate = candidateFrameRates()[3];  // 29.97 NDF
    const std::int64_t sr = 48000;
    const Timecode start{3, 59, 59, 10};

    // Speed 3 % fast and 3 % slow: still read, still counted at the chosen rate.
    for (const double speed : {0.97, 1.03}) {
        const double fps = 30000.0 / 1001.0 * speed;
        const LibltcSignal signal =
            libltcSignal(rate, sr, start, 20, {.leadIn = 313, .speed = speed});
        const LTCDecodeResult r = LTCDecoder::decodeQuietly(signal.samples, sr, rate);
        EXPECT_EQ(r.timecode, start);
        EXPECT_NEAR(r.firstValidPosition, 313, 2.0);
        EXPECT_NEAR(r.measuredFps, fps, 0.01);
    }

    // A dropout of 40 ms takes the second and third frames: the frames on
    // either side still count on by the frames elapsed, so they are one run,
    // and the start is the first frame's.
    LibltcSignal signal = libltcSignal(rate, sr, start, 30, {.leadIn = 1000});
    std::fill_n(signal.samples.begin() + 1000 + 2000, 1920, 0.0f);
    const LTCDecodeResult r = LTCDecoder::decodeQuietly(signal.samples, sr, rate);
    EXPECT_EQ(r.timecode, start);
    EXPECT_NEAR(r.firstValidPosition, 1000, 2.0);
    EXPECT_EQ(r.runFrames, 27);  // 30, less the two lost and the unfinished last

    // Played backwards the code counts down and is read with its sync word first.
    std::vector<float> reversed(signal.samples.rbegin(), signal.samples.rend());
    const LTCDecodeResult back = LTCDecoder::decodeQuietly(reversed, sr, rate);
    EXPECT_EQ(back.direction, -1);
    const auto n = static_cast<double>(reversed.size());
    const auto k = static_cast<std::size_t>(
        std::find(signal.timecodes.begin(), signal.timecodes.end(), back.timecode) -
        signal.timecodes.begin());
    ASSERT_LT(k, signal.timecodes.size()) << back.timecode.description();
    // Frame k occupies [start k, start k+1) forwards: [n - start k+1, n - start k) backwards.
    const double end =
        k + 1 < signal.frameStarts.size() ? static_cast<double>(signal.frameStarts[k + 1]) : n;
    EXPECT_NEAR(back.firstValidPosition, n - end, 2.0);
    EXPECT_GE(back.runFrames, 20);
}

TEST(LibltcSignalTest, SilenceNoiseToneShortCodeAndAWrongRateNeverGiveATimecode) {
    const std::int64_t sr = 48000;
    for (const auto& silent : {std::vector<float>{}, std::vector<float>(sr, 0.0f)}) {
        testing::expectDecodeError([&] { LTCDecoder::decodeQuietly(silent, sr); },
                                   LTCDecodeError::Kind::noSignal,
                                   "LTC signal appears silent or invalid.");
    }
    std::vector<float> noise(sr * 3, 0.0f);
    testing::addNoise(noise, -6, 11);
    std::vector<float> tone = testing::sine(sr * 3, 1200, 0.7f, sr);
    for (const auto* samples : {&noise, &tone}) {
        for (const auto& given : {std::optional<FrameRateConfig>(candidateFrameRates()[1]),
                                  std::optional<FrameRateConfig>()}) {
            EXPECT_THROW(LTCDecoder::decodeQuietly(*samples, sr, given), LTCDecodeError);
        }
    }
    // One frame is no evidence; two consecutive ones are, below the
    // low-confidence threshold (0.55) that stops a stamp.
    const FrameRateConfig rate = candidateFrameRates()[2];
    const LibltcSignal signal = libltcSignal(rate, sr, Timecode{5, 6, 7, 8}, 3);
    const std::vector<float> one(signal.samples.begin(), signal.samples.begin() + 1920 + 100);
    testing::expectDecodeError([&] { LTCDecoder::decodeQuietly(one, sr, rate); },
                               LTCDecodeError::Kind::noFrameDetected,
                               "Could not decode a valid LTC frame.");
    const std::vector<float> two(signal.samples.begin(), signal.samples.begin() + 2 * 1920 + 100);
    const LTCDecodeResult r = LTCDecoder::decodeQuietly(two, sr, rate);
    EXPECT_EQ(r.timecode, (Timecode{5, 6, 7, 8}));
    EXPECT_EQ(r.runFrames, 2);
    EXPECT_LT(r.confidence, 0.55);
    // A chosen rate that the code contradicts is an error, not a timecode.
    const LibltcSignal code = libltcSignal(rate, sr, Timecode{3, 4, 5, 6}, 12);
    testing::expectDecodeError(
        [&] { LTCDecoder::decodeQuietly(code.samples, sr, candidateFrameRates()[1]); },
        LTCDecodeError::Kind::rateMismatch,
        "The LTC runs at 25.000 fps, not at the chosen frame rate (24).");
}

// Under Auto the diagnostic lists every candidate and says what chose the
// rate: the drop-frame bit, or the measured frame period.
TEST(LibltcSignalTest, AutoDiagnosticNamesTheEvidence) {
    std::ostringstream text;
    setFrameRateDiagnosticsStream(&text);
    for (const auto& [rate, start] :
         {std::pair{candidateFrameRates()[4], Timecode{1, 0, 59, 20, true}},
          std::pair{candidateFrameRates()[0], Timecode{1, 0, 0, 2}}}) {
        EXPECT_EQ(LTCDecoder::decode(libltcSignal(rate, 48000, start, 40).samples, 48000).frameRate,
                  rate);
    }
    setFrameRateDiagnosticsStream(nullptr);
    const std::string out = text.str();
    for (const char* line : {"Auto FPS candidates:\n- 23.976: period=2002.000 measured=1601.6",
                             "- 29.97 DF: period=1601.600 measured=1601.6",
                             "Selected: 29.97 DF (drop-frame bit; measured 29.970 fps over ",
                             "Selected: 23.976 (frame period: measured 23.976 fps"}) {
        EXPECT_NE(out.find(line), std::string::npos) << line << "\n" << out;
    }
    EXPECT_EQ(out.rfind("Auto FPS candidates:", 0), 0u) << out;
}

}  // namespace
}  // namespace norvane
