#include "core/stamp/ltc_health.h"

#include <algorithm>
#include <cmath>
#include <functional>
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

// The audio a probe reads: one channel at a time, in stretches. From a file on
// disk only the frames asked for are read and converted, so probing a
// multi-gigabyte take costs a few seconds of audio per channel, not the take.
class ChannelSource {
  public:
    explicit ChannelSource(const WAVFile& file) : file_(&file) {}
    explicit ChannelSource(const WavReader& reader) : reader_(&reader) {}

    const WAVFmtChunk& fmt() const { return file_ ? file_->fmt() : reader_->fmt(); }
    std::int64_t frameCount() const { return file_ ? file_->frameCount() : reader_->frameCount(); }
    bool readable(int channel) const {
        return file_ ? !file_->samples(channel).empty() : reader_->canReadSamples(channel);
    }
    // Frames [begin, end) of `channel`; empty when the layout cannot be read.
    std::vector<float> read(int channel, std::int64_t begin, std::int64_t end) const {
        if (file_) {
            const std::vector<float> all = file_->samples(channel);
            end = std::min<std::int64_t>(end, static_cast<std::int64_t>(all.size()));
            return begin < end ? std::vector<float>(all.begin() + begin, all.begin() + end)
                               : std::vector<float>{};
        }
        std::vector<float> out;
        if (reader_->canReadSamples(channel)) {
            reader_->forEachChannelBlock(channel, begin, std::min(end, reader_->frameCount()),
                                         [&out](std::span<const float> block, std::int64_t) {
                                             out.insert(out.end(), block.begin(), block.end());
                                             return true;
                                         });
        }
        return out;
    }
    // Every frame of `channel`, in blocks with the index of their first frame.
    void forEach(int channel,
                 const std::function<bool(std::span<const float>, std::int64_t)>& sink) const {
        if (file_) {
            const std::vector<float> all = file_->samples(channel);
            sink(all, 0);
        } else if (reader_->canReadSamples(channel)) {
            reader_->forEachChannelBlock(channel, sink);
        }
    }

  private:
    const WAVFile* file_ = nullptr;
    const WavReader* reader_ = nullptr;
};

std::optional<LTCProbe> probe(const ChannelSource& file, std::optional<std::int64_t> channelIndex,
                              const std::optional<FrameRateConfig>& rate, double stretchSeconds) {
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
        for (std::int64_t start : starts) {
            const std::vector<float> samples = file.read(channel, start, start + stretch);
            if (samples.empty()) {
                continue;
            }
            const auto result = decodeQuietly(samples, sampleRate, rate);
            if (!result) {
                continue;
            }
            if (!best || result->confidence > best->confidence) {
                best = LTCProbe{channel,
                                result->frameRate,
                                result->timecode,
                                start + result->firstValidSample,
                                result->confidence,
                                result->runFrames,
                                result->bitErrors,
                                result->rateEvidence};
            }
            break;  // the earliest decodable stretch speaks for the channel
        }
    }
    return best;
}

LTCHealth measure(const ChannelSource& file, std::int64_t channelIndex,
                  const std::optional<FrameRateConfig>& rate, int envelopeSlices, int stretchCount,
                  double stretchSeconds) {
    LTCHealth health;
    health.channelIndex =
        std::clamp<std::int64_t>(channelIndex, 0, std::max(0, file.fmt().channelCount - 1));
    health.sampleRate = static_cast<std::int64_t>(file.fmt().sampleRate);
    const int channel = static_cast<int>(health.channelIndex);
    health.frameCount = file.readable(channel) ? file.frameCount() : 0;
    const std::int64_t n = health.frameCount;
    if (n == 0 || envelopeSlices <= 0 || stretchCount <= 0) {
        return health;
    }

    // The envelope in one pass over the channel: the peak of each slice.
    health.envelope.assign(static_cast<std::size_t>(envelopeSlices), 0.0f);
    file.forEach(channel, [&](std::span<const float> block, std::int64_t first) {
        for (std::size_t i = 0; i < block.size(); ++i) {
            const std::int64_t frame = first + static_cast<std::int64_t>(i);
            if (frame >= n) {
                return false;
            }
            float& peak = health.envelope[static_cast<std::size_t>(frame * envelopeSlices / n)];
            peak = std::max(peak, std::min(std::fabs(block[i]), 1.0f));
        }
        return true;
    });

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
        const auto result =
            decodeQuietly(file.read(channel, stretch.beginSample, stretch.beginSample + length),
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

}  // namespace

std::optional<LTCProbe> probeLTC(const WAVFile& file, std::optional<std::int64_t> channelIndex,
                                 const std::optional<FrameRateConfig>& rate,
                                 double stretchSeconds) {
    return probe(ChannelSource(file), channelIndex, rate, stretchSeconds);
}

std::optional<LTCProbe> probeLTC(const WavReader& file, std::optional<std::int64_t> channelIndex,
                                 const std::optional<FrameRateConfig>& rate,
                                 double stretchSeconds) {
    return probe(ChannelSource(file), channelIndex, rate, stretchSeconds);
}

LTCHealth measureLTCHealth(const WAVFile& file, std::int64_t channelIndex,
                           const std::optional<FrameRateConfig>& rate, int envelopeSlices,
                           int stretchCount, double stretchSeconds) {
    return measure(ChannelSource(file), channelIndex, rate, envelopeSlices, stretchCount,
                   stretchSeconds);
}

LTCHealth measureLTCHealth(const WavReader& file, std::int64_t channelIndex,
                           const std::optional<FrameRateConfig>& rate, int envelopeSlices,
                           int stretchCount, double stretchSeconds) {
    return measure(ChannelSource(file), channelIndex, rate, envelopeSlices, stretchCount,
                   stretchSeconds);
}

LTCHealthLevel healthLevel(const std::optional<double>& confidence) {
    if (!confidence) {
        return LTCHealthLevel::red;
    }
    return *confidence >= kMinimumLTCConfidence ? LTCHealthLevel::green : LTCHealthLevel::amber;
}

}  // namespace norvane
