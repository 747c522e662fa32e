#include "core/stamp/ltc_source.h"

#include <algorithm>
#include <cmath>
#include <span>
#include <variant>

#include "core/timecode/frame_rate_detection.h"
#include "core/timecode/ltc_stream_decode.h"

namespace norvane {

namespace {

// The audio the decoder reads: one channel at a time, from a file held in
// memory or streamed from disk (only that channel is converted).
class LTCAudio {
  public:
    explicit LTCAudio(const WAVFile& file)
        : fmt_(file.fmt()), frames_(file.frameCount()), file_(&file) {}
    explicit LTCAudio(const WavReader& reader)
        : fmt_(reader.fmt()), frames_(reader.frameCount()), reader_(&reader) {}

    const WAVFmtChunk& fmt() const { return fmt_; }
    std::int64_t frameCount() const { return frames_; }
    std::vector<float> samples(int channel, std::optional<std::size_t> maxSamples) const {
        if (file_) {
            std::vector<float> all = file_->samples(channel);
            if (maxSamples && all.size() > *maxSamples) {
                all.resize(*maxSamples);
            }
            return all;
        }
        const std::int64_t end =
            maxSamples ? std::min<std::int64_t>(frames_, static_cast<std::int64_t>(*maxSamples))
                       : frames_;
        return channelSamples(*reader_, channel, end);
    }

    // The start decode of one channel. From a reader the channel is streamed
    // block by block into the decoder, which stops the reading as soon as more
    // audio cannot change its answer, so a long take is read only up to its
    // first verified run. Throws LTCDecodeError.
    LTCDecodeResult decode(int channel, const std::optional<FrameRateConfig>& rate,
                           std::optional<std::size_t> maxSamples) const {
        if (file_) {
            return LTCDecoder::decodeQuietly(samples(channel, maxSamples), fmt_.sampleRate, rate);
        }
        if (!reader_->canReadSamples(channel) || fmt_.sampleRate < 1) {
            throw LTCDecodeError::noSignal();
        }
        const std::int64_t end =
            maxSamples ? std::min<std::int64_t>(frames_, static_cast<std::int64_t>(*maxSamples))
                       : frames_;
        LTCStartDecoder decoder(fmt_.sampleRate, rate);
        reader_->forEachChannelBlock(channel, 0, end,
                                     [&decoder](std::span<const float> block, std::int64_t first) {
                                         decoder.push(block, first);
                                         return !decoder.certain();
                                     });
        return decoder.finish();
    }

    // The start decodes of channels [0, channels) on frames [0, maxSamples),
    // each its result or its error. Streamed, the audio is read once for all
    // of them, and each channel stops being decoded when its answer is certain.
    std::vector<std::variant<LTCDecodeResult, LTCDecodeError>> decodeEach(
        int channels, const std::optional<FrameRateConfig>& rate,
        std::optional<std::size_t> maxSamples) const {
        std::vector<std::variant<LTCDecodeResult, LTCDecodeError>> results;
        const auto attempt = [&results](auto&& decode) {
            try {
                results.emplace_back(decode());
            } catch (const LTCDecodeError& e) {
                results.emplace_back(e);
            }
        };
        if (file_ || fmt_.sampleRate < 1) {
            for (int channel = 0; channel < channels; ++channel) {
                attempt([&] { return decode(channel, rate, maxSamples); });
            }
            return results;
        }
        std::vector<int> all;
        std::vector<LTCStartDecoder> decoders;
        decoders.reserve(static_cast<std::size_t>(std::max(channels, 0)));
        for (int channel = 0; channel < channels; ++channel) {
            all.push_back(channel);
            decoders.emplace_back(fmt_.sampleRate, rate);
        }
        const std::int64_t end =
            maxSamples ? std::min<std::int64_t>(frames_, static_cast<std::int64_t>(*maxSamples))
                       : frames_;
        reader_->forEachChannelsBlock(
            all, 0, end,
            [&decoders](std::size_t k, std::span<const float> block, std::int64_t first) {
                decoders[k].push(block, first);
                return !decoders[k].certain();
            });
        for (int channel = 0; channel < channels; ++channel) {
            if (!reader_->canReadSamples(channel)) {
                results.emplace_back(LTCDecodeError::noSignal());
            } else {
                attempt([&] { return decoders[static_cast<std::size_t>(channel)].finish(); });
            }
        }
        return results;
    }

  private:
    WAVFmtChunk fmt_;
    std::int64_t frames_ = 0;
    const WAVFile* file_ = nullptr;
    const WavReader* reader_ = nullptr;
};

// Length of the stretch on which the channels of a long recording are compared.
constexpr std::size_t kChannelChoiceSeconds = 60;

struct Attempt {
    std::optional<LTCDecodeResult> result;
    bool hadSignal = false;
    std::optional<LTCDecodeError> mismatch;  // code at another rate than the chosen one
};

// The decoder's own decode, except that an automatic choice keeps its
// evaluations instead of writing the diagnostic, so that only the chosen
// channel's is written.
Attempt attemptOf(const std::variant<LTCDecodeResult, LTCDecodeError>& outcome) {
    Attempt attempt;
    if (const auto* result = std::get_if<LTCDecodeResult>(&outcome)) {
        attempt.result = *result;
        attempt.hadSignal = true;
        return attempt;
    }
    const auto& error = std::get<LTCDecodeError>(outcome);
    attempt.hadSignal = error.kind() != LTCDecodeError::Kind::noSignal;
    if (error.kind() == LTCDecodeError::Kind::rateMismatch) {
        attempt.mismatch = error;
    }
    return attempt;
}

Attempt decodeChannel(const LTCAudio& file, std::int64_t channel,
                      const std::optional<FrameRateConfig>& rate) {
    // Under Auto the rate is measured from the run; the diagnostic waits
    // until the channel is chosen.
    try {
        return attemptOf(file.decode(static_cast<int>(channel), rate, std::nullopt));
    } catch (const LTCDecodeError& e) {
        return attemptOf(e);
    }
}

std::int64_t clampChannel(const LTCAudio& file, std::int64_t channel) {
    const std::int64_t channels = std::max<std::int64_t>(file.fmt().channelCount, 1);
    return std::clamp<std::int64_t>(channel, 0, channels - 1);
}

struct Best {
    std::optional<Attempt> attempt;
    std::int64_t channel = 0;
    bool anySignal = false;
    std::optional<LTCDecodeError> mismatch;
};

Best bestChannel(const LTCAudio& file, std::optional<std::int64_t> channelIndex,
                 const std::optional<FrameRateConfig>& rate) {
    if (channelIndex) {
        Best best;
        best.channel = clampChannel(file, *channelIndex);
        Attempt attempt = decodeChannel(file, best.channel, rate);
        best.anySignal = attempt.hadSignal;
        best.mismatch = attempt.mismatch;
        if (attempt.result) {
            best.attempt = std::move(attempt);
        }
        return best;
    }
    const std::int64_t channels = std::max<std::int64_t>(file.fmt().channelCount, 1);
    const auto compareChannels = [&](std::optional<std::size_t> maxSamples) {
        Best best;
        const auto outcomes = file.decodeEach(static_cast<int>(channels), rate, maxSamples);
        for (std::int64_t channel = 0; channel < channels; ++channel) {
            Attempt attempt = attemptOf(outcomes[static_cast<std::size_t>(channel)]);
            best.anySignal = best.anySignal || attempt.hadSignal;
            if (!best.mismatch) {
                best.mismatch = attempt.mismatch;
            }
            if (!attempt.result) {
                continue;
            }
            if (!best.attempt || attempt.result->confidence > best.attempt->result->confidence) {
                best.attempt = std::move(attempt);
                best.channel = channel;
            }
        }
        return best;
    };
    const auto prefix = static_cast<std::size_t>(file.fmt().sampleRate) * kChannelChoiceSeconds;
    if (channels > 1 && static_cast<std::size_t>(file.frameCount()) > prefix) {
        // Long poly recordings: the channels are compared on their first
        // minute, and only the winner is decoded whole.
        const Best chosen = compareChannels(prefix);
        if (chosen.attempt) {
            Best best;
            best.channel = chosen.channel;
            Attempt attempt = decodeChannel(file, chosen.channel, rate);
            best.anySignal = true;
            if (attempt.result) {
                best.attempt = std::move(attempt);
            }
            return best;
        }
    }
    return compareChannels(std::nullopt);
}

ChannelDecode decodeAudio(const LTCAudio& file, std::optional<std::int64_t> channelIndex,
                          const std::optional<FrameRateConfig>& rate) {
    Best best = bestChannel(file, channelIndex, rate);
    if (!best.attempt) {
        if (best.mismatch) {
            throw *best.mismatch;
        }
        if (best.anySignal) {
            throw LTCDecodeError::noFrameDetected();
        }
        throw LTCDecodeError::noSignal();
    }
    if (!rate) {
        detail::writeFrameRateDiagnostics(FrameRateDetection::measurementDiagnostics(
            *best.attempt->result, file.fmt().sampleRate));
    }
    return ChannelDecode{*best.attempt->result, best.channel};
}

std::int64_t chooseAudioChannel(const LTCAudio& file, std::optional<std::int64_t> channelIndex,
                                const std::optional<FrameRateConfig>& rate) {
    if (channelIndex) {
        return clampChannel(file, *channelIndex);
    }
    return bestChannel(file, channelIndex, rate).channel;
}

}  // namespace

std::vector<float> channelSamples(const WavReader& file, std::int64_t channel,
                                  std::optional<std::int64_t> endFrame) {
    std::vector<float> out;
    if (!file.canReadSamples(static_cast<int>(channel))) {
        return out;
    }
    const std::int64_t end = std::min(endFrame.value_or(file.frameCount()), file.frameCount());
    out.reserve(static_cast<std::size_t>(std::max<std::int64_t>(end, 0)));
    file.forEachChannelBlock(static_cast<int>(channel), 0, end,
                             [&out](std::span<const float> block, std::int64_t) {
                                 out.insert(out.end(), block.begin(), block.end());
                                 return true;
                             });
    return out;
}

ChannelDecode decodeFileLTC(const WAVFile& wav, std::optional<std::int64_t> channelIndex,
                            const std::optional<FrameRateConfig>& rate) {
    return decodeAudio(LTCAudio(wav), channelIndex, rate);
}

ChannelDecode decodeFileLTC(const WavReader& reader, std::optional<std::int64_t> channelIndex,
                            const std::optional<FrameRateConfig>& rate) {
    return decodeAudio(LTCAudio(reader), channelIndex, rate);
}

std::int64_t chooseLTCChannel(const WAVFile& wav, std::optional<std::int64_t> channelIndex,
                              const std::optional<FrameRateConfig>& rate) {
    return chooseAudioChannel(LTCAudio(wav), channelIndex, rate);
}

std::int64_t chooseLTCChannel(const WavReader& reader, std::optional<std::int64_t> channelIndex,
                              const std::optional<FrameRateConfig>& rate) {
    return chooseAudioChannel(LTCAudio(reader), channelIndex, rate);
}

}  // namespace norvane
