#include "core/timecode/ltc_stream_decode.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

namespace norvane {

namespace {

constexpr double kFrameBits = 80.0;
// A run stays open this long after its last frame (seconds).
constexpr double kOpenSeconds = 1.0;
// Frames a start decode wants before it stops reading: enough for full
// confidence with a given rate, and enough to measure the rate under Auto.
constexpr std::size_t kCertainFramesGiven = 8;
constexpr std::size_t kCertainFramesAuto = 50;

const FrameRateConfig& candidate(std::size_t index) {
    return candidateFrameRates().at(index);
}

// The counting of a nominal rate: 24, 25 or 30 frames a second, with or
// without drop-frame numbering.
FrameRateConfig countingRate(int nominal, bool dropFrame) {
    if (nominal == 30) {
        return dropFrame ? candidate(4) : candidate(5);
    }
    return nominal == 24 ? candidate(1) : candidate(2);
}

int nominalForFps(double fps) {
    if (fps < 24.5) {
        return 24;
    }
    return fps < 27.5 ? 25 : 30;
}

// Frame numbers that do not exist at the counting rate: frame 25 at 25 fps,
// frames 0 and 1 of most minutes under drop-frame.
bool existsAt(const Timecode& tc, int nominal, bool dropFrame) {
    if (tc.frames >= nominal) {
        return false;
    }
    if (dropFrame && nominal == 30 && tc.seconds == 0 && tc.frames < 2 && tc.minutes % 10 != 0) {
        return false;
    }
    return true;
}

std::int64_t dayFrames(const FrameRateConfig& rate) {
    Timecode day;
    day.hours = 24;
    return TimecodeMath::frameCount(day, rate);
}

std::int64_t wrapDay(std::int64_t frames, std::int64_t day) {
    frames %= day;
    return frames < 0 ? frames + day : frames;
}

}  // namespace

std::int64_t LTCRun::frameCountAt(double position) const {
    if (frames.empty() || !(samplesPerFrame > 0)) {
        return 0;
    }
    const std::int64_t first = TimecodeMath::frameCount(frames.front().timecode, rate);
    const std::int64_t steps = roundHalfAwayFromZero((position - startPosition) / samplesPerFrame);
    return first + direction * steps;
}

double runConfidence(std::size_t frames, std::size_t framesWithErrors, double jitter,
                     double samplesPerBit) {
    static constexpr std::array<double, 8> kByLength = {0.0, 0.3, 0.5, 0.7, 0.8, 0.85, 0.9, 0.95};
    const double length = frames < kByLength.size() ? kByLength[frames] : 1.0;
    const double errors = frames == 0
                              ? 0.0
                              : 1.0 - 0.5 * std::min(1.0, static_cast<double>(framesWithErrors) /
                                                              static_cast<double>(frames));
    // Frame starts within a twentieth of a bit of a straight line are a
    // steady clock; half a bit of scatter lowers the confidence by 40 %.
    double clock = 1.0;
    if (samplesPerBit > 0) {
        const double scatter = jitter / samplesPerBit;
        clock = 1.0 - 0.4 * std::clamp((scatter - 0.05) / 0.45, 0.0, 1.0);
    }
    return std::clamp(length * errors * clock, 0.0, 1.0);
}

void assessRun(LTCRun& run, std::int64_t sampleRate, const std::optional<FrameRateConfig>& given) {
    if (run.frames.empty()) {
        return;
    }
    const auto rateHz = static_cast<double>(std::max<std::int64_t>(sampleRate, 1));
    run.direction = run.frames.front().reverse ? -1 : 1;
    const LTCFrame& first = run.frames.front();
    const double firstLength = first.endPosition - first.firstPosition;

    // The counting used to number the frames along the run.
    const double roughFps = firstLength > 0 ? rateHz / firstLength : 25.0;
    int nominal = nominalForFps(roughFps);
    std::size_t dropFrameBits = 0;
    for (const LTCFrame& f : run.frames) {
        dropFrameBits += f.dropFrameBit ? 1 : 0;
    }
    bool dropFrame = nominal == 30 && 2 * dropFrameBits > run.frames.size();
    if (given) {
        nominal = static_cast<int>(
            TimecodeMath::nominalFramesPerSecond(given->numerator, given->denominator));
        dropFrame = given->dropFrame;
    }
    const FrameRateConfig counting =
        given ? *given : countingRate(nominal == 24 || nominal == 25 ? nominal : 30, dropFrame);
    const std::int64_t day = dayFrames(counting);
    const std::int64_t firstCount = TimecodeMath::frameCount(first.timecode, counting);

    // Least squares of frame start against frame index.
    const std::size_t n = run.frames.size();
    std::vector<double> index(n);
    double sumI = 0;
    double sumP = 0;
    for (std::size_t i = 0; i < n; ++i) {
        const std::int64_t count = TimecodeMath::frameCount(run.frames[i].timecode, counting);
        index[i] = static_cast<double>(wrapDay(run.direction * (count - firstCount), day));
        sumI += index[i];
        sumP += run.frames[i].firstPosition;
    }
    const double meanI = sumI / static_cast<double>(n);
    const double meanP = sumP / static_cast<double>(n);
    double sii = 0;
    double sip = 0;
    for (std::size_t i = 0; i < n; ++i) {
        sii += (index[i] - meanI) * (index[i] - meanI);
        sip += (index[i] - meanI) * (run.frames[i].firstPosition - meanP);
    }
    double slope = firstLength;
    if (n >= 2 && sii > 0) {
        slope = sip / sii;
    }
    run.samplesPerFrame = slope;
    run.startPosition = n >= 2 ? meanP - slope * meanI : first.firstPosition;
    double residual = 0;
    std::size_t framesWithErrors = 0;
    run.bitErrors = 0;
    for (std::size_t i = 0; i < n; ++i) {
        const double r = run.frames[i].firstPosition - (run.startPosition + slope * index[i]);
        residual += r * r;
        run.bitErrors += run.frames[i].bitErrors;
        framesWithErrors += run.frames[i].bitErrors > 0 ? 1 : 0;
    }
    run.jitter = n >= 3 ? std::sqrt(residual / static_cast<double>(n)) : 0.0;
    run.measuredFps = slope > 0 ? rateHz / slope : 0;
    run.confidence = runConfidence(n, framesWithErrors, run.jitter, slope / kFrameBits);

    const std::string measured =
        fmt::format("measured {:.3f} fps over {} frames", run.measuredFps, n);
    if (given) {
        run.rate = *given;
        run.rateEvidence = "given rate; " + measured;
        // 24, 25 and 30 frames a second are 4 % and more apart: a run whose
        // period says another of them is not code at the chosen rate.
        run.rateMismatch = n >= 2 && nominalForFps(run.measuredFps) != nominal;
        return;
    }
    if (nominal == 25) {
        run.rate = candidate(2);
        run.rateEvidence = "frame period: " + measured;
        return;
    }
    // 24 or 30 against their 1000/1001 neighbours: the period differs by
    // 0.1 %. x is 0 at the integer rate and 1 at the slower one.
    const double integerPeriod = rateHz / nominal;
    const double x = (slope / integerPeriod - 1.0) / 0.001;
    const double spread = sii > 0 ? std::max(run.jitter, 0.3) / std::sqrt(sii) : 1e9;
    const double sigma = spread / (integerPeriod * 0.001);
    std::optional<bool> fractional;
    if (n >= kMinimumRunFrames && 3.0 * sigma < 0.3) {
        if (std::fabs(x) <= 0.4) {
            fractional = false;
        } else if (std::fabs(x - 1.0) <= 0.4) {
            fractional = true;
        }
    }
    const bool dropBit = nominal == 30 && 2 * dropFrameBits > n;
    if (nominal == 24) {
        run.rate = fractional.value_or(false) ? candidate(0) : candidate(1);
    } else if (dropBit) {
        run.rate = candidate(4);
    } else {
        run.rate = fractional.value_or(false) ? candidate(3) : candidate(5);
    }
    if (dropBit) {
        run.rateEvidence = "drop-frame bit; " + measured;
    } else if (fractional) {
        run.rateEvidence = "frame period: " + measured;
    } else {
        run.rateEvidence = "near tie: " + measured +
                           " cannot separate the 1000/1001 rate; exact integer rate preferred";
    }
}

LTCRunBuilder::LTCRunBuilder(std::int64_t sampleRate, std::optional<FrameRateConfig> rate)
    : sampleRate_(std::max<std::int64_t>(sampleRate, 1)), rate_(std::move(rate)) {}

bool LTCRunBuilder::extends(const Chain& chain, const LTCFrame& frame, int& direction) const {
    const LTCFrame& last = chain.frames.back();
    if (frame.reverse != last.reverse) {
        return false;
    }
    const double length = last.endPosition - last.firstPosition;
    if (!(length > 0)) {
        return false;
    }
    const double elapsed = (frame.firstPosition - last.firstPosition) / length;
    const double steps = std::round(elapsed);
    if (steps < 1) {
        return false;
    }
    // Contiguous frames start within two bits of the previous end; across
    // lost frames the speed may have drifted by a percent.
    const double allowed = std::max(2.0 / kFrameBits, 0.01 * steps);
    if (std::fabs(elapsed - steps) > allowed) {
        return false;
    }
    if (!existsAt(frame.timecode, chain.nominal, chain.dropFrame)) {
        return false;
    }
    const FrameRateConfig counting = rate_ ? *rate_ : countingRate(chain.nominal, chain.dropFrame);
    const std::int64_t day = dayFrames(counting);
    const std::int64_t delta = TimecodeMath::frameCount(frame.timecode, counting) -
                               TimecodeMath::frameCount(last.timecode, counting);
    direction = frame.reverse ? -1 : 1;
    return wrapDay(delta - direction * static_cast<std::int64_t>(steps), day) == 0;
}

void LTCRunBuilder::add(const LTCFrame& frame) {
    const double horizon = frame.firstPosition - kOpenSeconds * static_cast<double>(sampleRate_);
    for (auto it = open_.begin(); it != open_.end();) {
        if (it->frames.back().endPosition < horizon) {
            closed_.push_back(std::move(*it));
            it = open_.erase(it);
        } else {
            ++it;
        }
    }
    // The chain whose last frame is the latest is tried first.
    std::vector<std::size_t> order(open_.size());
    for (std::size_t i = 0; i < order.size(); ++i) {
        order[i] = i;
    }
    std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
        return open_[a].frames.back().endPosition > open_[b].frames.back().endPosition;
    });
    for (const std::size_t i : order) {
        int direction = 0;
        if (extends(open_[i], frame, direction)) {
            open_[i].direction = direction;
            open_[i].frames.push_back(frame);
            return;
        }
    }
    Chain chain;
    const double length = frame.endPosition - frame.firstPosition;
    if (rate_) {
        chain.nominal = static_cast<int>(
            TimecodeMath::nominalFramesPerSecond(rate_->numerator, rate_->denominator));
        chain.dropFrame = rate_->dropFrame;
    } else {
        chain.nominal = nominalForFps(length > 0 ? static_cast<double>(sampleRate_) / length : 25);
        chain.dropFrame = chain.nominal == 30 && frame.dropFrameBit;
    }
    if (!existsAt(frame.timecode, chain.nominal, chain.dropFrame)) {
        return;
    }
    chain.frames.push_back(frame);
    open_.push_back(std::move(chain));
}

std::vector<LTCRun> LTCRunBuilder::allRuns() const {
    std::vector<LTCRun> runs;
    auto take = [&](const Chain& chain) {
        LTCRun run;
        run.frames = chain.frames;
        assessRun(run, sampleRate_, rate_);
        runs.push_back(std::move(run));
    };
    for (const Chain& chain : closed_) {
        take(chain);
    }
    for (const Chain& chain : open_) {
        take(chain);
    }
    std::stable_sort(runs.begin(), runs.end(), [](const LTCRun& a, const LTCRun& b) {
        return a.frames.front().firstPosition < b.frames.front().firstPosition;
    });
    return runs;
}

std::vector<LTCRunBuilder::Summary> LTCRunBuilder::summary() const {
    std::vector<Summary> out;
    for (const Chain& chain : closed_) {
        out.push_back(Summary{chain.frames.front().firstPosition, chain.frames.size(), false});
    }
    for (const Chain& chain : open_) {
        out.push_back(Summary{chain.frames.front().firstPosition, chain.frames.size(), true});
    }
    std::sort(out.begin(), out.end(),
              [](const Summary& a, const Summary& b) { return a.first < b.first; });
    return out;
}

void LTCRunBuilder::closeBefore(double position) {
    const double horizon = position - kOpenSeconds * static_cast<double>(sampleRate_);
    for (auto it = open_.begin(); it != open_.end();) {
        if (it->frames.back().endPosition < horizon) {
            closed_.push_back(std::move(*it));
            it = open_.erase(it);
        } else {
            ++it;
        }
    }
}

std::vector<LTCTimelinePoint> timelinePoints(const std::vector<LTCRun>& runs,
                                             std::int64_t spacing) {
    std::vector<LTCTimelinePoint> points;
    for (const LTCRun& run : runs) {
        std::optional<std::int64_t> last;
        for (const LTCFrame& frame : run.frames) {
            if (last && frame.firstSample - *last < spacing) {
                continue;
            }
            last = frame.firstSample;
            Timecode tc = frame.timecode;
            tc.dropFrame = run.rate.dropFrame;
            points.push_back(
                LTCTimelinePoint{frame.firstSample, tc, TimecodeMath::frameCount(tc, run.rate)});
        }
    }
    std::stable_sort(
        points.begin(), points.end(),
        [](const LTCTimelinePoint& a, const LTCTimelinePoint& b) { return a.sample < b.sample; });
    return points;
}

// ---------------------------------------------------------------------------

LTCStartDecoder::LTCStartDecoder(std::int64_t sampleRate, std::optional<FrameRateConfig> rate)
    : sampleRate_(sampleRate), rate_(rate), decoder_(sampleRate), builder_(sampleRate, rate) {}

void LTCStartDecoder::push(std::span<const float> block, std::int64_t firstSample) {
    if (!origin_) {
        origin_ = firstSample;
    }
    decoder_.push(block, firstSample);
    for (const LTCFrame& frame : decoder_.takeFrames()) {
        builder_.add(frame);
    }
    const double end = static_cast<double>(firstSample) + static_cast<double>(block.size());
    builder_.closeBefore(end);
    if (certain_) {
        return;
    }
    // Certain once the earliest run of three frames can no longer be preceded
    // by a longer-growing earlier chain and is either finished or long enough.
    const std::size_t wanted = rate_ ? kCertainFramesGiven : kCertainFramesAuto;
    for (const LTCRunBuilder::Summary& s : builder_.summary()) {
        if (s.frames >= kMinimumRunFrames) {
            certain_ = !s.open || s.frames >= wanted;
            break;
        }
        if (s.open) {
            break;  // an earlier chain may still grow into a run
        }
    }
}

bool LTCStartDecoder::certain() const {
    return certain_;
}

std::optional<LTCRun> LTCStartDecoder::run() const {
    std::vector<LTCRun> runs = builder_.allRuns();
    for (LTCRun& run : runs) {
        if (run.frames.size() >= kMinimumRunFrames) {
            return std::move(run);
        }
    }
    for (LTCRun& run : runs) {
        if (run.frames.size() >= 2) {
            return std::move(run);
        }
    }
    return std::nullopt;
}

LTCDecodeResult LTCStartDecoder::finish() const {
    if (decoder_.samplesSeen() == 0 || !(decoder_.peak() > 0.01f)) {
        throw LTCDecodeError::noSignal();
    }
    const std::optional<LTCRun> found = run();
    if (!found) {
        throw LTCDecodeError::noFrameDetected();
    }
    if (found->rateMismatch) {
        throw LTCDecodeError::rateMismatch(found->measuredFps, found->rate.label);
    }
    const double origin = static_cast<double>(origin_.value_or(0));
    LTCDecodeResult result;
    result.frameRate = found->rate;
    result.timecode = found->frames.front().timecode;
    result.timecode.dropFrame = found->rate.dropFrame;
    result.firstValidPosition = found->startPosition - origin;
    result.firstValidSample = roundHalfAwayFromZero(result.firstValidPosition);
    result.firstValidSeconds = static_cast<double>(result.firstValidSample) /
                               static_cast<double>(std::max<std::int64_t>(sampleRate_, 1));
    result.confidence = found->confidence;
    result.direction = found->direction;
    result.runFrames = static_cast<std::int64_t>(found->frames.size());
    result.bitErrors = found->bitErrors;
    result.measuredFps = found->measuredFps;
    result.samplesPerFrame = found->samplesPerFrame;
    result.jitter = found->jitter;
    result.rateEvidence = found->rateEvidence;
    return result;
}

// ---------------------------------------------------------------------------

LTCRunScanner::LTCRunScanner(std::int64_t sampleRate, std::optional<FrameRateConfig> rate)
    : sampleRate_(sampleRate), rate_(rate), decoder_(sampleRate), builder_(sampleRate, rate) {}

void LTCRunScanner::push(std::span<const float> block, std::int64_t firstSample) {
    decoder_.push(block, firstSample);
    for (const LTCFrame& frame : decoder_.takeFrames()) {
        builder_.add(frame);
    }
}

std::vector<LTCRun> LTCRunScanner::finish() const {
    std::vector<LTCRun> runs = builder_.allRuns();
    std::erase_if(runs, [](const LTCRun& r) { return r.frames.size() < kMinimumRunFrames; });
    return runs;
}

}  // namespace norvane
