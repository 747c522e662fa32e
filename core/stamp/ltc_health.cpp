#include "core/stamp/ltc_health.h"

#include <algorithm>
#include <cmath>
#include <span>

#include "core/stamp/job_executor.h"
#include "core/timecode/frame_rate_detection.h"

namespace norvane {

namespace {

// The decoder writes its candidate diagnostics only for automatic decodes;
// a probe of many stretches would flood them, so it tries each rate itself.
std::optional<LTCDecodeResult> decodeQuietly(std::span<const float> samples,
                                             std::int64_t sampleRate,
                                             const std::optional<FrameRateConfig>& rate) {
    if (rate) {
        try {
            return LTCDecoder::decode(samples, sampleRate, rate);
        } catch (const LTCDecodeError&) {
            return std::nullopt;
        }
    }
    std::vector<LTCDecoder::AutoCandidateEvaluation> evaluations;
    for (FrameRatePreset preset : allFrameRatePresets()) {
        const auto config = frameRateConfig(preset);
        if (!config) {
            continue;
        }
        if (auto candidate = LTCDecoder::evaluateCandidate(samples, sampleRate, *config)) {
            evaluations.push_back(std::move(*candidate));
        } else {
            LTCDecoder::AutoCandidateEvaluation failed;
            failed.rate = *config;
            evaluations.push_back(failed);
        }
    }
    // The same choice an automatic decode makes, without its diagnostic.
    const auto chosen = FrameRateDetection::select(evaluations);
    if (!chosen) {
        return std::nullopt;
    }
    return evaluations[*chosen].result;
}

}  // namespace

std::optional<LTCProbe> probeLTC(const WAVFile& file, std::optional<std::int64_t> channelIndex,
                                 const std::optional<FrameRateConfig>& rate,
                                 double stretchSeconds) {
    const auto sampleRate = static_cast<std::int64_t>(file.fmt().sampleRate);
    const std::int64_t frames = file.frameCount();
    if (sampleRate <= 0 || frames <= 0) {
        return std::nullopt;
    }
    const auto stretch = std::max<std::int64_t>(
        1,
        static_cast<std::int64_t>(std::llround(stretchSeconds * static_cast<double>(sampleRate))));
    // The start, then a few points into the file for LTC after a lead-in.
    std::vector<std::int64_t> starts{0};
    for (double share : {0.1, 0.35, 0.6}) {
        const auto at = static_cast<std::int64_t>(static_cast<double>(frames) * share);
        if (at + stretch <= frames && at >= stretch) {
            starts.push_back(at);
        }
    }
    std::optional<LTCProbe> best;
    for (int channel = 0; channel < file.fmt().channelCount; ++channel) {
        if (channelIndex && *channelIndex != channel) {
            continue;
        }
        const std::vector<float> samples = file.samples(channel);
        for (std::int64_t start : starts) {
            const std::int64_t length =
                std::min<std::int64_t>(stretch, static_cast<std::int64_t>(samples.size()) - start);
            if (length <= 0) {
                continue;
            }
            const auto result = decodeQuietly(
                std::span<const float>(samples).subspan(static_cast<std::size_t>(start),
                                                        static_cast<std::size_t>(length)),
                sampleRate, rate);
            if (!result) {
                continue;
            }
            if (!best || result->confidence > best->confidence) {
                best = LTCProbe{channel, result->frameRate, result->timecode,
                                start + result->firstValidSample, result->confidence};
            }
            break;  // the earliest decodable stretch speaks for the channel
        }
    }
    return best;
}

LTCHealth measureLTCHealth(const WAVFile& file, std::int64_t channelIndex,
                           const std::optional<FrameRateConfig>& rate, int envelopeSlices,
                           int stretchCount, double stretchSeconds) {
    LTCHealth health;
    health.channelIndex =
        std::clamp<std::int64_t>(channelIndex, 0, std::max(0, file.fmt().channelCount - 1));
    health.sampleRate = static_cast<std::int64_t>(file.fmt().sampleRate);
    const std::vector<float> samples = file.samples(static_cast<int>(health.channelIndex));
    health.frameCount = static_cast<std::int64_t>(samples.size());
    const std::int64_t n = health.frameCount;
    if (n == 0 || envelopeSlices <= 0 || stretchCount <= 0) {
        return health;
    }

    health.envelope.assign(static_cast<std::size_t>(envelopeSlices), 0.0f);
    for (int slice = 0; slice < envelopeSlices; ++slice) {
        const std::int64_t begin = n * slice / envelopeSlices;
        const std::int64_t end = n * (slice + 1) / envelopeSlices;
        float peak = 0;
        for (std::int64_t i = begin; i < end; ++i) {
            peak = std::max(peak, std::fabs(samples[static_cast<std::size_t>(i)]));
        }
        health.envelope[static_cast<std::size_t>(slice)] = std::min(peak, 1.0f);
    }

    // Stretches shorter than a second hold too few frames to judge: a short
    // file gets fewer of them.
    stretchCount = static_cast<int>(std::clamp<std::int64_t>(
        static_cast<std::int64_t>(static_cast<double>(n) /
                                  (stretchSeconds * static_cast<double>(health.sampleRate))),
        1, stretchCount));
    const auto maxStretch = std::max<std::int64_t>(
        1, static_cast<std::int64_t>(
               std::llround(stretchSeconds * static_cast<double>(health.sampleRate))));
    health.rate = rate;
    for (int i = 0; i < stretchCount; ++i) {
        LTCHealth::Stretch stretch;
        stretch.beginSample = n * i / stretchCount;
        stretch.endSample = n * (i + 1) / stretchCount;
        if (stretch.endSample <= stretch.beginSample) {
            continue;
        }
        const std::int64_t length = std::min(maxStretch, stretch.endSample - stretch.beginSample);
        const auto result = decodeQuietly(
            std::span<const float>(samples).subspan(static_cast<std::size_t>(stretch.beginSample),
                                                    static_cast<std::size_t>(length)),
            health.sampleRate, health.rate);
        if (result) {
            stretch.confidence = result->confidence;
            health.rate = result->frameRate;
            if (!health.firstValidSample) {
                health.firstValidSample = stretch.beginSample + result->firstValidSample;
            }
        }
        health.stretches.push_back(stretch);
    }
    return health;
}

LTCHealthLevel healthLevel(const std::optional<double>& confidence) {
    if (!confidence) {
        return LTCHealthLevel::red;
    }
    return *confidence >= kMinimumLTCConfidence ? LTCHealthLevel::green : LTCHealthLevel::amber;
}

}  // namespace norvane
