#pragma once

// LTC as libltc encodes it: the independent reference signal of the decoder
// tests. Header-only; every test file that includes it links libltc.
#include <ltc.h>

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "core/timecode/ltc_decoder.h"
#include "core/timecode/timecode.h"

namespace norvane::testing {

struct LibltcSignal {
    std::vector<float> samples;
    std::vector<std::int64_t> frameStarts;  // where libltc began each frame's buffer
    std::vector<Timecode> timecodes;
};

struct LibltcOptions {
    double levelDBFS = -6;
    bool inverted = false;
    std::int64_t leadIn = 0;  // samples of silence before the code
    bool dropFrameBit = false;
    double speed = 1.0;  // the code runs this much faster than its rate
};

inline LTC_TV_STANDARD libltcStandard(const FrameRateConfig& rate) {
    const std::int64_t fps = TimecodeMath::nominalFramesPerSecond(rate.numerator, rate.denominator);
    if (fps == 25) {
        return LTC_TV_625_50;
    }
    return fps == 24 ? LTC_TV_FILM_24 : LTC_TV_525_60;
}

// `frames` frames of `rate` from `start`, as floats -1..1.
inline LibltcSignal libltcSignal(const FrameRateConfig& rate, std::int64_t sampleRate,
                                 const Timecode& start, int frames,
                                 const LibltcOptions& options = {}) {
    const double fps = static_cast<double>(rate.numerator) / static_cast<double>(rate.denominator);
    LTCEncoder* encoder = ltc_encoder_create(static_cast<double>(sampleRate), fps * options.speed,
                                             libltcStandard(rate), 0);
    ltc_encoder_set_volume(encoder, options.levelDBFS);
    LibltcSignal signal;
    signal.samples.assign(static_cast<std::size_t>(options.leadIn), 0.0f);
    const std::int64_t first = TimecodeMath::frameCount(start, rate);
    for (int k = 0; k < frames; ++k) {
        const Timecode tc = TimecodeMath::timecodeFromFrameCount(first + k, rate);
        SMPTETimecode st{};
        st.hours = static_cast<unsigned char>(tc.hours);
        st.mins = static_cast<unsigned char>(tc.minutes);
        st.secs = static_cast<unsigned char>(tc.seconds);
        st.frame = static_cast<unsigned char>(tc.frames);
        ltc_encoder_set_timecode(encoder, &st);
        ::LTCFrame frame;
        ltc_encoder_get_frame(encoder, &frame);
        frame.dfbit = (rate.dropFrame || options.dropFrameBit) ? 1 : 0;
        ltc_encoder_set_frame(encoder, &frame);
        ltc_encoder_encode_frame(encoder);
        ltcsnd_sample_t* buffer = nullptr;
        const int count = ltc_encoder_get_bufferptr(encoder, &buffer, 1);
        signal.frameStarts.push_back(static_cast<std::int64_t>(signal.samples.size()));
        signal.timecodes.push_back(tc);
        for (int i = 0; i < count; ++i) {
            // 8-bit unsigned around 128.
            const float value = (static_cast<float>(buffer[i]) - 128.0f) / 127.0f;
            signal.samples.push_back(options.inverted ? -value : value);
        }
    }
    ltc_encoder_free(encoder);
    return signal;
}

// Adds white noise of `levelDBFS` rms.
inline void addNoise(std::vector<float>& samples, double levelDBFS, unsigned seed) {
    std::mt19937 random(seed);
    std::normal_distribution<float> noise(0.0f,
                                          static_cast<float>(std::pow(10.0, levelDBFS / 20.0)));
    for (float& s : samples) {
        s += noise(random);
    }
}

// `n` samples of a sine of `hz` peaking at `amplitude`.
inline std::vector<float> sine(std::size_t n, double hz, float amplitude, std::int64_t sampleRate) {
    std::vector<float> out(n);
    for (std::size_t i = 0; i < n; ++i) {
        out[i] = amplitude * static_cast<float>(std::sin(2 * M_PI * hz * static_cast<double>(i) /
                                                         static_cast<double>(sampleRate)));
    }
    return out;
}

// Expects `f` to throw the LTCDecodeError of `kind` with `message`.
template <typename F>
void expectDecodeError(F&& f, LTCDecodeError::Kind kind, const std::string& message) {
    try {
        f();
        ADD_FAILURE() << "expected LTCDecodeError: " << message;
    } catch (const LTCDecodeError& e) {
        EXPECT_EQ(e.kind(), kind);
        EXPECT_EQ(std::string(e.what()), message);
    }
}

}  // namespace norvane::testing
