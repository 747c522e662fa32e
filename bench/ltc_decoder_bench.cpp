// Decoding 60 s of 48 kHz LTC, with a fixed rate and with automatic selection
// over the six candidate rates.
#include <benchmark/benchmark.h>

#include "core/timecode/ltc_decoder.h"
#include "core/timecode/ltc_encoder.h"

namespace {

using namespace norvane;

const std::vector<float>& sixtySeconds() {
    static const std::vector<float> samples = [] {
        LTCEncoderOptions options;
        options.rate = *frameRateConfig(FrameRatePreset::fps25);
        return encodeLTC(Timecode{10, 0, 0, 0}, 25 * 60, options);
    }();
    return samples;
}

void BM_DecodeFixedRate(benchmark::State& state) {
    setFrameRateDiagnosticsStream(nullptr);
    const auto& samples = sixtySeconds();
    const FrameRateConfig rate = *frameRateConfig(FrameRatePreset::fps25);
    for (auto _ : state) {
        benchmark::DoNotOptimize(LTCDecoder::decode(samples, 48000, rate));
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(samples.size()));
}
BENCHMARK(BM_DecodeFixedRate)->Unit(benchmark::kMillisecond);

void BM_DecodeAuto(benchmark::State& state) {
    setFrameRateDiagnosticsStream(nullptr);
    const auto& samples = sixtySeconds();
    for (auto _ : state) {
        benchmark::DoNotOptimize(LTCDecoder::decode(samples, 48000));
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(samples.size()));
}
BENCHMARK(BM_DecodeAuto)->Unit(benchmark::kMillisecond);

// The cut-detection scan: 0.75 s windows every 0.2 s over the minute.
void BM_DecodeTimeline(benchmark::State& state) {
    setFrameRateDiagnosticsStream(nullptr);
    const auto& samples = sixtySeconds();
    const FrameRateConfig rate = *frameRateConfig(FrameRatePreset::fps25);
    for (auto _ : state) {
        benchmark::DoNotOptimize(LTCDecoder::decodeTimeline(samples, 48000, rate, 0.75, 0.2));
    }
}
BENCHMARK(BM_DecodeTimeline)->Unit(benchmark::kMillisecond);

void BM_Encode(benchmark::State& state) {
    LTCEncoderOptions options;
    options.rate = *frameRateConfig(FrameRatePreset::fps29_97DF);
    for (auto _ : state) {
        benchmark::DoNotOptimize(encodeLTC(Timecode{10, 0, 0, 0, true}, 30 * 60, options));
    }
}
BENCHMARK(BM_Encode)->Unit(benchmark::kMillisecond);

}  // namespace
