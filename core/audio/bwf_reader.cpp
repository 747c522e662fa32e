#include "core/audio/bwf_reader.h"

#include <cmath>
#include <stdexcept>

#include "core/timecode/timecode.h"

namespace norvane::BWFReader {

namespace {

constexpr std::size_t kTimeReferenceOffset = 338;

// round(timeReference / samplesPerFrame) with samplesPerFrame =
// denominator / numerator x sampleRate; nullopt when it cannot be computed.
std::optional<std::int64_t> frameCount(std::uint64_t timeReferenceSamples, std::uint32_t sampleRate,
                                       std::int64_t numerator, std::int64_t denominator) {
    if (timeReferenceSamples == 0 || sampleRate == 0 || numerator == 0) {
        return std::nullopt;
    }
    const double samplesPerFrame = static_cast<double>(denominator) /
                                   static_cast<double>(numerator) * static_cast<double>(sampleRate);
    if (!(samplesPerFrame > 0) || !std::isfinite(samplesPerFrame)) {
        return std::nullopt;
    }
    try {
        return roundHalfAwayFromZero(static_cast<double>(timeReferenceSamples) / samplesPerFrame);
    } catch (const std::overflow_error&) {
        return std::nullopt;
    }
}

}  // namespace

std::optional<BWFInfo> info(const WAVFile& file) {
    for (const WAVChunk& chunk : file.chunks()) {
        if (chunk.id != "bext") {
            continue;
        }
        if (chunk.data.size() < kTimeReferenceOffset + 8) {
            return std::nullopt;
        }
        return BWFInfo{readLE64(chunk.data, kTimeReferenceOffset), file.fmt().sampleRate};
    }
    return std::nullopt;
}

std::optional<std::string> timecode(std::uint64_t timeReferenceSamples, std::uint32_t sampleRate,
                                    std::int64_t rateNumerator, std::int64_t rateDenominator,
                                    bool dropFrame) {
    const auto frames =
        frameCount(timeReferenceSamples, sampleRate, rateNumerator, rateDenominator);
    if (!frames) {
        return std::nullopt;
    }
    FrameRateConfig rate;
    rate.numerator = rateNumerator;
    rate.denominator = rateDenominator;
    rate.dropFrame = dropFrame;
    rate.label.clear();
    try {
        return TimecodeMath::timecodeFromFrameCount(*frames, rate).description();
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

std::optional<std::pair<std::int64_t, std::int64_t>> startTime(std::uint64_t timeReferenceSamples,
                                                               std::uint32_t sampleRate,
                                                               std::int64_t rateNumerator,
                                                               std::int64_t rateDenominator) {
    const auto frames =
        frameCount(timeReferenceSamples, sampleRate, rateNumerator, rateDenominator);
    if (!frames) {
        return std::nullopt;
    }
    std::int64_t numerator = 0;
    if (__builtin_mul_overflow(*frames, rateDenominator, &numerator)) {
        return std::nullopt;
    }
    return std::make_pair(numerator, rateNumerator);
}

std::optional<std::string> ixmlText(const WAVFile& file) {
    for (const WAVChunk& chunk : file.chunks()) {
        if (chunk.id == "iXML") {
            std::string text(chunk.data.begin(), chunk.data.end());
            while (!text.empty() && text.back() == '\0') {
                text.pop_back();
            }
            return text;
        }
    }
    return std::nullopt;
}

}  // namespace norvane::BWFReader
