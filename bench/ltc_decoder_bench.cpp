// Decoding 60 s of 48 kHz LTC: the start decode (which stops reading once
// the answer is certain), the timeline, and every frame against libltc.
#include <benchmark/benchmark.h>
#include <ltc.h>

#include "core/timecode/ltc_decoder.h"
#include "core/timecode/ltc_encoder.h"
#include "core/timecode/ltc_stream_decode.h"

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

// Every frame of the minute, as a cut scan reads it: our run scanner against
// libltc's decoder on the same samples and blocks. Items are samples, so the
// rate reads as audio decoded per second (an hour of 48 kHz is 172.8 M items).
void BM_RunScannerWholeMinute(benchmark::State& state) {
    const auto& samples = sixtySeconds();
    for (auto _ : state) {
        LTCRunScanner scanner(48000, std::nullopt);
        for (std::size_t at = 0; at < samples.size(); at += 65536) {
            scanner.push(
                std::span(samples).subspan(at, std::min<std::size_t>(65536, samples.size() - at)),
                static_cast<std::int64_t>(at));
        }
        benchmark::DoNotOptimize(scanner.finish());
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(samples.size()));
}
BENCHMARK(BM_RunScannerWholeMinute)->Unit(benchmark::kMillisecond);

void BM_LibltcWholeMinute(benchmark::State& state) {
    const auto& samples = sixtySeconds();
    for (auto _ : state) {
        ::LTCDecoder* decoder = ltc_decoder_create(1920, 32);
        LTCFrameExt frame;
        int frames = 0;
        for (std::size_t at = 0; at < samples.size(); at += 65536) {
            const std::size_t n = std::min<std::size_t>(65536, samples.size() - at);
            ltc_decoder_write_float(decoder, const_cast<float*>(samples.data() + at), n,
                                    static_cast<ltc_off_t>(at));
            while (ltc_decoder_read(decoder, &frame) > 0) {
                ++frames;
            }
        }
        benchmark::DoNotOptimize(frames);
        ltc_decoder_free(decoder);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(samples.size()));
}
BENCHMARK(BM_LibltcWholeMinute)->Unit(benchmark::kMillisecond);

void BM_Encode(benchmark::State& state) {
    LTCEncoderOptions options;
    options.rate = *frameRateConfig(FrameRatePreset::fps29_97DF);
    for (auto _ : state) {
        benchmark::DoNotOptimize(encodeLTC(Timecode{10, 0, 0, 0, true}, 30 * 60, options));
    }
}
BENCHMARK(BM_Encode)->Unit(benchmark::kMillisecond);

}  // namespace
