#include "core/timecode/ltc_decoder.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iostream>
#include <limits>
#include <mutex>

#include <fmt/format.h>

#include "core/timecode/frame_rate_detection.h"
#include "core/timecode/ltc_stream_decode.h"

namespace norvane {

namespace {

std::mutex& diagnosticsMutex() {
    static std::mutex mutex;
    return mutex;
}

std::ostream*& diagnosticsStream() {
    static std::ostream* stream = &std::cout;
    return stream;
}

// Blocks in which whole-span calls feed the push decoders: the same path as
// a streaming reader, and a place to poll for cancellation.
constexpr std::size_t kBlock = 65536;

}  // namespace

LTCDecodeError::LTCDecodeError(Kind kind) : Error(description(kind)), kind_(kind) {}

LTCDecodeError::LTCDecodeError(Kind kind, const std::string& message)
    : Error(message), kind_(kind) {}

LTCDecodeError LTCDecodeError::rateMismatch(double measuredFps, const std::string& chosenLabel) {
    return LTCDecodeError(
        Kind::rateMismatch,
        fmt::format("The LTC runs at {:.3f} fps, not at the chosen frame rate ({}).", measuredFps,
                    chosenLabel));
}

std::string LTCDecodeError::description(Kind kind) {
    switch (kind) {
        case Kind::noSignal:
            return "LTC signal appears silent or invalid.";
        case Kind::noFrameDetected:
            return "Could not decode a valid LTC frame.";
        case Kind::rateMismatch:
            return "The LTC does not run at the chosen frame rate.";
    }
    return "Could not decode a valid LTC frame.";
}

void setFrameRateDiagnosticsStream(std::ostream* stream) {
    std::lock_guard lock(diagnosticsMutex());
    diagnosticsStream() = stream;
}

namespace detail {
void writeFrameRateDiagnostics(const std::string& text) {
    std::lock_guard lock(diagnosticsMutex());
    if (std::ostream* stream = diagnosticsStream()) {
        *stream << text << std::flush;
    }
}
}  // namespace detail

namespace LTCDecoder {

LTCDecodeResult decodeQuietly(std::span<const float> samples, std::int64_t sampleRate,
                              const std::optional<FrameRateConfig>& rate) {
    if (samples.empty() || sampleRate < 1) {
        throw LTCDecodeError::noSignal();
    }
    LTCStartDecoder decoder(sampleRate, rate);
    for (std::size_t offset = 0; offset < samples.size() && !decoder.certain(); offset += kBlock) {
        const std::size_t length = std::min(kBlock, samples.size() - offset);
        decoder.push(samples.subspan(offset, length), static_cast<std::int64_t>(offset));
    }
    return decoder.finish();
}

std::optional<AutoCandidateEvaluation> evaluateCandidate(std::span<const float> samples,
                                                         std::int64_t sampleRate,
                                                         const FrameRateConfig& rate) {
    try {
        AutoCandidateEvaluation evaluation;
        evaluation.rate = rate;
        evaluation.result = decodeQuietly(samples, sampleRate, rate);
        evaluation.success = true;
        evaluation.confidence = evaluation.result->confidence;
        evaluation.validRun = static_cast<int>(evaluation.result->runFrames);
        return evaluation;
    } catch (const LTCDecodeError&) {
        return std::nullopt;
    }
}

LTCDecodeResult decode(std::span<const float> samples, std::int64_t sampleRate,
                       const std::optional<FrameRateConfig>& rate) {
    LTCDecodeResult result = decodeQuietly(samples, sampleRate, rate);
    if (!rate) {
        detail::writeFrameRateDiagnostics(
            FrameRateDetection::measurementDiagnostics(result, sampleRate));
    }
    return result;
}

std::vector<LTCTimelinePoint> decodeTimeline(
    std::span<const float> samples, std::int64_t sampleRate,
    const std::optional<FrameRateConfig>& rate, double windowSeconds, double hopSeconds,
    std::optional<std::int64_t> maxWindows, const std::function<bool()>& isCancelled,
    const std::function<void(std::int64_t done, std::int64_t total)>& progress) {
    (void)windowSeconds;
    (void)maxWindows;
    if (samples.empty() || sampleRate < 1) {
        return {};
    }
    const double hop = static_cast<double>(sampleRate) * hopSeconds;
    const std::int64_t spacing =
        hop >= 2.0 && hop < 1e15 ? static_cast<std::int64_t>(hop) / 2 : std::int64_t{1};
    LTCRunScanner scanner(sampleRate, rate, spacing);
    const auto total = static_cast<std::int64_t>((samples.size() + kBlock - 1) / kBlock);
    std::int64_t done = 0;
    for (std::size_t offset = 0; offset < samples.size(); offset += kBlock) {
        if (isCancelled && isCancelled()) {
            break;
        }
        const std::size_t length = std::min(kBlock, samples.size() - offset);
        scanner.push(samples.subspan(offset, length), static_cast<std::int64_t>(offset));
        ++done;
        if (progress) {
            progress(done, total);
        }
    }
    return timelinePoints(scanner.finish());
}

}  // namespace LTCDecoder

}  // namespace norvane
