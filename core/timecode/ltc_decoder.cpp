#include "core/timecode/ltc_decoder.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iostream>
#include <limits>
#include <mutex>

#include "core/timecode/frame_rate_detection.h"

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

// Half away from zero, for the small, finite grid positions of the decoder.
std::int64_t roundHalf(double value) {
    return static_cast<std::int64_t>(std::round(value));
}

constexpr int kPhaseCells = 200;    // cells of the grid scored in the phase search
constexpr int kMinimumCells = 240;  // fewer cells after the best phase: no decode
constexpr int kMinimumCrossings = 500;
constexpr int kFrameBits = 80;

// Bits 64..79 of a forward LTC frame, bit 64 first.
constexpr std::array<std::uint8_t, 16> kSyncWord = {0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0, 1};

// Sample indices i >= 1 whose sign class (>= 0.0 is positive) differs from that
// of sample i - 1: the position of a crossing is the later sample.
std::vector<std::int64_t> zeroCrossings(std::span<const float> samples) {
    std::vector<std::int64_t> crossings;
    crossings.reserve(samples.size() / 8);
    if (samples.empty()) {
        return crossings;
    }
    bool previous = samples[0] >= 0.0f;
    for (std::size_t i = 1; i < samples.size(); ++i) {
        const bool positive = samples[i] >= 0.0f;
        if (positive != previous) {
            crossings.push_back(static_cast<std::int64_t>(i));
        }
        previous = positive;
    }
    return crossings;
}

// True when some crossing lies in [centre - tolerance, centre + tolerance].
bool crossingNear(const std::vector<std::int64_t>& crossings, std::int64_t centre,
                  std::int64_t tolerance) {
    auto it = std::lower_bound(crossings.begin(), crossings.end(), centre - tolerance);
    return it != crossings.end() && *it <= centre + tolerance;
}

struct FrameFields {
    Timecode timecode;
    bool valid = false;
};

// The BCD fields of the 80 bits starting at `bits`, least significant bit first.
FrameFields readFrame(const std::uint8_t* bits, bool dropFrame) {
    auto field = [bits](int first, int count) {
        std::int64_t value = 0;
        for (int i = 0; i < count; ++i) {
            value |= static_cast<std::int64_t>(bits[first + i]) << i;
        }
        return value;
    };
    FrameFields f;
    f.timecode.frames = field(8, 2) * 10 + field(0, 4);
    f.timecode.seconds = field(24, 3) * 10 + field(16, 4);
    f.timecode.minutes = field(40, 3) * 10 + field(32, 4);
    f.timecode.hours = field(56, 2) * 10 + field(48, 4);
    f.timecode.dropFrame = dropFrame;
    // The frames bound is 30 whatever the rate.
    f.valid = f.timecode.hours <= 23 && f.timecode.minutes <= 59 && f.timecode.seconds <= 59 &&
              f.timecode.frames < 30;
    return f;
}

bool syncAt(const std::uint8_t* frameBits) {
    return std::equal(kSyncWord.begin(), kSyncWord.end(), frameBits + 64);
}

// The decode of one rate over precomputed crossings.
std::optional<LTCDecoder::AutoCandidateEvaluation> evaluateWithCrossings(
    const std::vector<std::int64_t>& crossings, std::int64_t sampleCount, std::int64_t sampleRate,
    const FrameRateConfig& rate) {
    if (crossings.size() < static_cast<std::size_t>(kMinimumCrossings)) {
        return std::nullopt;
    }
    if (rate.numerator <= 0 || rate.denominator <= 0 || sampleRate <= 0) {
        return std::nullopt;
    }
    // Samples per bit cell at the exact rate (30000/1001, not 30).
    const double period =
        static_cast<double>(sampleRate) /
        (static_cast<double>(rate.numerator) / static_cast<double>(rate.denominator) * kFrameBits);
    // Absurd sample rates (a bit cell longer than any recording) fail too.
    if (!(period >= 2.0) || !(period < 1e9)) {
        return std::nullopt;
    }
    const std::int64_t tolerance = std::max<std::int64_t>(roundHalf(0.2 * period), 1);

    // Phase search over the first 200 cells; a later phase must be strictly better.
    const std::int64_t phaseStep = std::max<std::int64_t>(roundHalf(0.125 * period), 1);
    const std::int64_t lastPhase = roundHalf(period);
    double bestScore = -1.0;
    std::int64_t bestPhase = 0;
    for (std::int64_t phase = 0; phase <= lastPhase; phase += phaseStep) {
        int hits = 0;
        for (int i = 0; i < kPhaseCells; ++i) {
            const std::int64_t boundary = phase + roundHalf(period * i);
            if (crossingNear(crossings, boundary, tolerance)) {
                ++hits;
            }
        }
        const double score = hits / static_cast<double>(kPhaseCells);
        if (score > bestScore) {
            bestScore = score;
            bestPhase = phase;
        }
    }

    const double available = std::floor(static_cast<double>(sampleCount - bestPhase) / period);
    if (available < kMinimumCells) {
        return std::nullopt;
    }
    const auto cells = static_cast<std::int64_t>(available);

    // Cells are read on demand, in order: the frame search usually stops at the
    // first pair of frames, and every cell reads the same whenever it is read.
    // Biphase mark: a 1 has an extra transition in the middle of its cell.
    std::vector<std::uint8_t> bits;
    bits.reserve(static_cast<std::size_t>(std::min<std::int64_t>(cells, 4 * kFrameBits)));
    const std::int64_t halfCell = roundHalf(0.5 * period);
    auto readThrough = [&](std::int64_t last) {
        for (auto k = static_cast<std::int64_t>(bits.size()); k <= last && k < cells; ++k) {
            const std::int64_t mid =
                bestPhase + roundHalf(period * static_cast<double>(k)) + halfCell;
            bits.push_back(crossingNear(crossings, mid, tolerance) ? 1 : 0);
        }
    };

    // Every bit position is a possible frame start; the last one (cells - 80)
    // is not examined.
    std::optional<std::int64_t> keptStart;
    Timecode keptTimecode;
    double keptConfidence = 0;
    int keptRun = 0;
    for (std::int64_t j = 0; j + kFrameBits < cells; ++j) {
        readThrough(std::min(j + 2 * kFrameBits - 1, cells - 1));
        const std::uint8_t* frame = bits.data() + j;
        if (!syncAt(frame)) {
            continue;
        }
        const FrameFields fields = readFrame(frame, rate.dropFrame);
        if (!fields.valid) {
            continue;
        }
        int run = 1;
        if (j + 2 * kFrameBits - 1 < cells) {
            const std::uint8_t* next = frame + kFrameBits;
            if (syncAt(next) && readFrame(next, rate.dropFrame).valid) {
                run = 2;
            }
        }
        const double confidence = std::min(0.35 * bestScore + 0.35 + 0.2 * run, 1.0);
        if (!keptStart || confidence > keptConfidence) {
            keptStart = j;
            keptTimecode = fields.timecode;
            keptConfidence = confidence;
            keptRun = run;
        }
        if (run == 2) {
            // Nothing later can be strictly more confident.
            break;
        }
    }
    if (!keptStart) {
        return std::nullopt;
    }

    LTCDecodeResult result;
    result.timecode = keptTimecode;
    result.frameRate = rate;
    result.firstValidSample = bestPhase + roundHalf(period * static_cast<double>(*keptStart));
    result.firstValidSeconds =
        static_cast<double>(result.firstValidSample) / static_cast<double>(sampleRate);
    result.confidence = keptConfidence;

    LTCDecoder::AutoCandidateEvaluation evaluation;
    evaluation.rate = rate;
    evaluation.success = true;
    evaluation.confidence = keptConfidence;
    evaluation.bestScore = bestScore;
    evaluation.validRun = keptRun;
    evaluation.result = result;
    return evaluation;
}

}  // namespace

LTCDecodeError::LTCDecodeError(Kind kind) : Error(description(kind)), kind_(kind) {}

std::string LTCDecodeError::description(Kind kind) {
    switch (kind) {
        case Kind::noSignal:
            return "LTC signal appears silent or invalid.";
        case Kind::noFrameDetected:
            return "Could not decode a valid LTC frame.";
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

std::optional<AutoCandidateEvaluation> evaluateCandidate(std::span<const float> samples,
                                                         std::int64_t sampleRate,
                                                         const FrameRateConfig& rate) {
    return evaluateWithCrossings(zeroCrossings(samples), static_cast<std::int64_t>(samples.size()),
                                 sampleRate, rate);
}

LTCDecodeResult decode(std::span<const float> samples, std::int64_t sampleRate,
                       const std::optional<FrameRateConfig>& rate) {
    if (samples.empty()) {
        throw LTCDecodeError::noSignal();
    }
    float peak = 0.0f;
    for (float s : samples) {
        // NaN compares false and never raises the peak.
        peak = std::max(peak, std::fabs(s));
    }
    if (!(peak > 0.01f)) {
        throw LTCDecodeError::noSignal();
    }

    // The crossings do not depend on the rate: find them once for all candidates.
    const std::vector<std::int64_t> crossings = zeroCrossings(samples);
    const auto count = static_cast<std::int64_t>(samples.size());
    const std::vector<FrameRateConfig> candidates =
        rate ? std::vector<FrameRateConfig>{*rate} : candidateFrameRates();

    std::vector<AutoCandidateEvaluation> evaluations;
    evaluations.reserve(candidates.size());
    for (const FrameRateConfig& candidate : candidates) {
        if (auto evaluation = evaluateWithCrossings(crossings, count, sampleRate, candidate)) {
            evaluations.push_back(std::move(*evaluation));
        } else {
            AutoCandidateEvaluation failed;
            failed.rate = candidate;
            evaluations.push_back(std::move(failed));
        }
    }

    const std::optional<std::size_t> selected = FrameRateDetection::select(evaluations);
    if (!selected) {
        throw LTCDecodeError::noFrameDetected();
    }
    if (!rate) {
        detail::writeFrameRateDiagnostics(
            FrameRateDetection::candidateDiagnostics(evaluations, *selected));
    }
    return *evaluations[*selected].result;
}

std::vector<LTCTimelinePoint> decodeTimeline(
    std::span<const float> samples, std::int64_t sampleRate,
    const std::optional<FrameRateConfig>& rate, double windowSeconds, double hopSeconds,
    std::optional<std::int64_t> maxWindows, const std::function<bool()>& isCancelled,
    const std::function<void(std::int64_t done, std::int64_t total)>& progress) {
    std::vector<LTCTimelinePoint> points;
    if (samples.empty() || sampleRate < 1) {
        return points;
    }
    const auto count = static_cast<std::int64_t>(samples.size());
    // Truncation toward zero; NaN and absurd lengths are clamped to the file.
    auto toSamples = [&](double seconds) -> std::int64_t {
        const double value = static_cast<double>(sampleRate) * seconds;
        if (!(value >= 1.0)) {
            return 1;
        }
        if (value >= static_cast<double>(count)) {
            return value > static_cast<double>(count) ? count + 1 : count;
        }
        return std::max<std::int64_t>(static_cast<std::int64_t>(value), 1);
    };
    const std::int64_t window = toSamples(windowSeconds);
    std::int64_t hop = toSamples(hopSeconds);
    if (count < window) {
        return points;
    }
    const std::int64_t span = count - window;
    if (maxWindows && *maxWindows >= 2 && span / hop >= *maxWindows) {
        const std::int64_t m = *maxWindows - 1;
        hop = std::max(hop, (span + m - 1) / m);
    }
    const std::int64_t total = span / hop + 1;

    std::int64_t done = 0;
    for (std::int64_t offset = 0; offset + window <= count; offset += hop) {
        if (isCancelled && isCancelled()) {
            break;
        }
        try {
            const LTCDecodeResult result = decode(
                samples.subspan(static_cast<std::size_t>(offset), static_cast<std::size_t>(window)),
                sampleRate, rate);
            LTCTimelinePoint point;
            point.sample = offset + result.firstValidSample;
            point.timecode = result.timecode;
            point.frameCount = TimecodeMath::frameCount(result.timecode, result.frameRate);
            points.push_back(point);
        } catch (const LTCDecodeError&) {
            // A window without a decodable frame adds no point.
        }
        ++done;
        if (progress) {
            progress(done, total);
        }
    }

    std::stable_sort(
        points.begin(), points.end(),
        [](const LTCTimelinePoint& a, const LTCTimelinePoint& b) { return a.sample < b.sample; });
    const std::int64_t minimumGap = std::max<std::int64_t>(hop / 2, 1);
    std::vector<LTCTimelinePoint> thinned;
    for (const LTCTimelinePoint& point : points) {
        if (thinned.empty() || point.sample - thinned.back().sample >= minimumGap) {
            thinned.push_back(point);
        }
    }
    return thinned;
}

}  // namespace LTCDecoder

}  // namespace norvane
