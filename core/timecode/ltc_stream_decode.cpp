#include "core/timecode/ltc_stream_decode.h"

#include <algorithm>
#include <cmath>
#include <queue>

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
    if (length == 0 || !(samplesPerFrame > 0)) {
        return 0;
    }
    const std::int64_t first = TimecodeMath::frameCount(firstFrame.timecode, rate);
    const std::int64_t steps = roundHalfAwayFromZero((position - startPosition) / samplesPerFrame);
    return first + direction * steps;
}

LTCTimelinePoint LTCRun::point(const Mark& mark) const {
    LTCTimelinePoint p;
    p.sample = mark.sample;
    p.timecode = Timecode{mark.hours, mark.minutes, mark.seconds, mark.frames, rate.dropFrame};
    p.frameCount = TimecodeMath::frameCount(p.timecode, rate);
    return p;
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

void LTCRunningFit::add(long double index, double position) {
    const long double deviation =
        static_cast<long double>(position) - origin - static_cast<long double>(step) * index;
    ++n;
    const auto count = static_cast<long double>(n);
    const long double dI = index - meanIndex;
    const long double dD = deviation - meanDeviation;
    meanIndex += dI / count;
    meanDeviation += dD / count;
    cII += dI * (index - meanIndex);
    cID += dI * (deviation - meanDeviation);
    cDD += dD * (deviation - meanDeviation);
}

double LTCRunningFit::slope() const {
    return cII > 0 ? static_cast<double>(step + cID / cII) : step;
}

double LTCRunningFit::start() const {
    const long double b = cII > 0 ? cID / cII : 0;
    return static_cast<double>(origin + meanDeviation - b * meanIndex);
}

double LTCRunningFit::residualSquares() const {
    const long double explained = cII > 0 ? cID * cID / cII : 0;
    return static_cast<double>(std::max<long double>(cDD - explained, 0));
}

namespace {

// The figures of a run's fit of frame start against frame index.
struct RunFigures {
    double slope = 0;     // samples per frame
    double start = 0;     // fitted position of the first frame
    double residual = 0;  // sum of squared distances of the frame starts from the fit
    double sii = 0;       // sum of squared deviations of the frame indices from their mean
};

// The index of `frame` along a run read at `counting`: frames elapsed since
// the run's first frame, across midnight.
std::int64_t runIndex(const LTCFrame& frame, std::int64_t firstCount,
                      const FrameRateConfig& counting, int direction, std::int64_t day) {
    const std::int64_t count = TimecodeMath::frameCount(frame.timecode, counting);
    return wrapDay(direction * (count - firstCount), day);
}

// Least squares over every frame of a run, two passes.
RunFigures exactFit(const std::vector<LTCFrame>& frames, const FrameRateConfig& counting,
                    int direction) {
    const LTCFrame& first = frames.front();
    const std::int64_t day = dayFrames(counting);
    const std::int64_t firstCount = TimecodeMath::frameCount(first.timecode, counting);
    const std::size_t n = frames.size();
    std::vector<double> index(n);
    double sumI = 0;
    double sumP = 0;
    for (std::size_t i = 0; i < n; ++i) {
        index[i] = static_cast<double>(runIndex(frames[i], firstCount, counting, direction, day));
        sumI += index[i];
        sumP += frames[i].firstPosition;
    }
    const double meanI = sumI / static_cast<double>(n);
    const double meanP = sumP / static_cast<double>(n);
    double sii = 0;
    double sip = 0;
    for (std::size_t i = 0; i < n; ++i) {
        sii += (index[i] - meanI) * (index[i] - meanI);
        sip += (index[i] - meanI) * (frames[i].firstPosition - meanP);
    }
    RunFigures figures;
    figures.sii = sii;
    figures.slope = first.endPosition - first.firstPosition;
    if (n >= 2 && sii > 0) {
        figures.slope = sip / sii;
    }
    figures.start = n >= 2 ? meanP - figures.slope * meanI : first.firstPosition;
    for (std::size_t i = 0; i < n; ++i) {
        const double r = frames[i].firstPosition - (figures.start + figures.slope * index[i]);
        figures.residual += r * r;
    }
    return figures;
}

}  // namespace

LTCRunBuilder::LTCRunBuilder(std::int64_t sampleRate, std::optional<FrameRateConfig> rate,
                             std::optional<std::int64_t> timelineSpacing, std::size_t shortestKept)
    : sampleRate_(std::max<std::int64_t>(sampleRate, 1)),
      rate_(std::move(rate)),
      timelineSpacing_(timelineSpacing),
      shortestKept_(shortestKept) {}

std::vector<FrameRateConfig> LTCRunBuilder::countings(const Chain& chain) const {
    if (rate_) {
        return {*rate_};
    }
    std::vector<FrameRateConfig> out = {countingRate(chain.nominal, chain.dropFrame)};
    if (chain.nominal == 30) {
        out.push_back(countingRate(30, !chain.dropFrame));
    }
    return out;
}

void LTCRunBuilder::assess(const Chain& chain, LTCRun& run) const {
    const auto rateHz = static_cast<double>(sampleRate_);
    run.direction = run.firstFrame.reverse ? -1 : 1;
    const LTCFrame& first = run.firstFrame;
    const double firstLength = first.endPosition - first.firstPosition;

    // The counting used to number the frames along the run.
    const double roughFps = firstLength > 0 ? rateHz / firstLength : 25.0;
    int nominal = nominalForFps(roughFps);
    const std::size_t n = run.length;
    bool dropFrame = nominal == 30 && 2 * chain.dropFrameBits > n;
    const std::optional<FrameRateConfig>& given = rate_;
    if (given) {
        nominal = static_cast<int>(
            TimecodeMath::nominalFramesPerSecond(given->numerator, given->denominator));
        dropFrame = given->dropFrame;
    }
    const FrameRateConfig counting =
        given ? *given : countingRate(nominal == 24 || nominal == 25 ? nominal : 30, dropFrame);

    // Least squares of frame start against frame index: from the frames
    // themselves while the run is short, else from the fit at this counting.
    RunFigures fit;
    if (!chain.head.empty()) {
        fit = exactFit(chain.head, counting, run.direction);
    } else {
        const std::vector<FrameRateConfig> fitted = countings(chain);
        const std::size_t k = fitted.size() > 1 && fitted[1] == counting ? 1 : 0;
        const LTCRunningFit& f = chain.fits.at(k);
        fit = RunFigures{f.slope(), f.start(), f.residualSquares(), static_cast<double>(f.cII)};
    }
    const double slope = fit.slope;
    const double sii = fit.sii;
    run.samplesPerFrame = slope;
    run.startPosition = fit.start;
    run.jitter = n >= 3 ? std::sqrt(fit.residual / static_cast<double>(n)) : 0.0;
    run.measuredFps = slope > 0 ? rateHz / slope : 0;
    run.confidence = runConfidence(n, chain.framesWithErrors, run.jitter, slope / kFrameBits);

    const std::string measured =
        fmt::format("measured {:.3f} fps over {} frames", run.measuredFps, n);
    if (given) {
        run.rate = *given;
        run.rateEvidence = "given rate; " + measured;
        // 24, 25 and 30 frames a second are 4 % and more apart: a run whose
        // period says another of them is not code at the chosen rate.
        run.rateMismatch = n >= 2 && nominalForFps(run.measuredFps) != nominal;
    } else if (nominal == 25) {
        run.rate = candidate(2);
        run.rateEvidence = "frame period: " + measured;
    } else {
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
        const bool dropBit = nominal == 30 && 2 * chain.dropFrameBits > n;
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
}

bool LTCRunBuilder::extends(const Chain& chain, const LTCFrame& frame, int& direction) const {
    const LTCFrame& last = chain.run.lastFrame;
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

void LTCRunBuilder::append(Chain& chain, const LTCFrame& frame) const {
    LTCRun& run = chain.run;
    if (run.length == 0) {
        run.firstFrame = frame;
    }
    run.lastFrame = frame;
    ++run.length;
    run.bitErrors += frame.bitErrors;
    chain.framesWithErrors += frame.bitErrors > 0 ? 1 : 0;
    chain.dropFrameBits += frame.dropFrameBit ? 1 : 0;
    if (timelineSpacing_ && (run.timeline.empty() ||
                             frame.firstSample - run.timeline.back().sample >= *timelineSpacing_)) {
        const Timecode& tc = frame.timecode;
        run.timeline.push_back(LTCRun::Mark{frame.firstSample, static_cast<std::uint8_t>(tc.hours),
                                            static_cast<std::uint8_t>(tc.minutes),
                                            static_cast<std::uint8_t>(tc.seconds),
                                            static_cast<std::uint8_t>(tc.frames)});
    }
    if (run.length <= kExactFitFrames) {
        chain.head.push_back(frame);
        return;
    }
    const int direction = run.firstFrame.reverse ? -1 : 1;
    const std::vector<FrameRateConfig> fitted = countings(chain);
    auto feed = [&](std::size_t k, const LTCFrame& f) {
        const FrameRateConfig& counting = fitted[k];
        const std::int64_t index =
            runIndex(f, TimecodeMath::frameCount(run.firstFrame.timecode, counting), counting,
                     direction, dayFrames(counting));
        chain.fits[k].add(static_cast<long double>(index), f.firstPosition);
    };
    if (!chain.head.empty()) {
        // The run has grown long: its running fits start from the line the
        // frames so far give, and the frames are let go.
        for (std::size_t k = 0; k < fitted.size(); ++k) {
            const RunFigures line = exactFit(chain.head, fitted[k], direction);
            chain.fits[k].origin = line.start;
            chain.fits[k].step = line.slope;
            for (const LTCFrame& f : chain.head) {
                feed(k, f);
            }
        }
        std::vector<LTCFrame>().swap(chain.head);
    }
    for (std::size_t k = 0; k < fitted.size(); ++k) {
        feed(k, frame);
    }
}

void LTCRunBuilder::closeOpenBefore(double horizon) {
    for (auto it = open_.begin(); it != open_.end();) {
        if (it->run.lastFrame.endPosition < horizon) {
            if (it->run.length >= shortestKept_) {
                closed_.push_back(std::move(*it));
            }
            it = open_.erase(it);
        } else {
            ++it;
        }
    }
}

void LTCRunBuilder::add(const LTCFrame& frame) {
    closeOpenBefore(frame.firstPosition - kOpenSeconds * static_cast<double>(sampleRate_));
    // The chain whose last frame is the latest is tried first.
    std::vector<std::size_t> order(open_.size());
    for (std::size_t i = 0; i < order.size(); ++i) {
        order[i] = i;
    }
    std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
        return open_[a].run.lastFrame.endPosition > open_[b].run.lastFrame.endPosition;
    });
    for (const std::size_t i : order) {
        int direction = 0;
        if (extends(open_[i], frame, direction)) {
            open_[i].direction = direction;
            append(open_[i], frame);
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
    append(chain, frame);
    open_.push_back(std::move(chain));
}

std::vector<LTCRun> LTCRunBuilder::allRuns() const {
    std::vector<LTCRun> runs;
    auto take = [&](const Chain& chain) {
        LTCRun run = chain.run;
        assess(chain, run);
        runs.push_back(std::move(run));
    };
    for (const Chain& chain : closed_) {
        take(chain);
    }
    for (const Chain& chain : open_) {
        take(chain);
    }
    std::stable_sort(runs.begin(), runs.end(), [](const LTCRun& a, const LTCRun& b) {
        return a.firstFrame.firstPosition < b.firstFrame.firstPosition;
    });
    return runs;
}

std::vector<LTCRun> LTCRunBuilder::takeRuns() {
    std::vector<LTCRun> runs;
    auto take = [&](Chain& chain) {
        LTCRun run = std::move(chain.run);
        assess(chain, run);
        runs.push_back(std::move(run));
    };
    for (Chain& chain : closed_) {
        take(chain);
    }
    for (Chain& chain : open_) {
        take(chain);
    }
    closed_.clear();
    open_.clear();
    std::stable_sort(runs.begin(), runs.end(), [](const LTCRun& a, const LTCRun& b) {
        return a.firstFrame.firstPosition < b.firstFrame.firstPosition;
    });
    return runs;
}

std::vector<LTCRunBuilder::Summary> LTCRunBuilder::summary() const {
    std::vector<Summary> out;
    for (const Chain& chain : closed_) {
        out.push_back(Summary{chain.run.firstFrame.firstPosition, chain.run.length, false});
    }
    for (const Chain& chain : open_) {
        out.push_back(Summary{chain.run.firstFrame.firstPosition, chain.run.length, true});
    }
    std::sort(out.begin(), out.end(),
              [](const Summary& a, const Summary& b) { return a.first < b.first; });
    return out;
}

void LTCRunBuilder::closeBefore(double position) {
    closeOpenBefore(position - kOpenSeconds * static_cast<double>(sampleRate_));
}

void forEachTimelinePoint(const std::vector<LTCRun>& runs,
                          const std::function<void(const LTCTimelinePoint&)>& visit) {
    // A merge of the runs' timelines, each in stream order: the earliest
    // sample first, the earlier run first on a tie.
    using Next = std::pair<std::int64_t, std::size_t>;  // sample, run
    std::priority_queue<Next, std::vector<Next>, std::greater<>> next;
    std::vector<std::size_t> at(runs.size(), 0);
    for (std::size_t r = 0; r < runs.size(); ++r) {
        if (!runs[r].timeline.empty()) {
            next.emplace(runs[r].timeline.front().sample, r);
        }
    }
    while (!next.empty()) {
        const std::size_t r = next.top().second;
        next.pop();
        visit(runs[r].point(runs[r].timeline[at[r]]));
        if (++at[r] < runs[r].timeline.size()) {
            next.emplace(runs[r].timeline[at[r]].sample, r);
        }
    }
}

std::vector<LTCTimelinePoint> timelinePoints(const std::vector<LTCRun>& runs) {
    std::vector<LTCTimelinePoint> points;
    forEachTimelinePoint(runs, [&](const LTCTimelinePoint& p) { points.push_back(p); });
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
        if (run.length >= kMinimumRunFrames) {
            return std::move(run);
        }
    }
    for (LTCRun& run : runs) {
        if (run.length >= 2) {
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
    result.timecode = found->firstFrame.timecode;
    result.timecode.dropFrame = found->rate.dropFrame;
    result.firstValidPosition = found->startPosition - origin;
    result.firstValidSample = roundHalfAwayFromZero(result.firstValidPosition);
    result.firstValidSeconds = static_cast<double>(result.firstValidSample) /
                               static_cast<double>(std::max<std::int64_t>(sampleRate_, 1));
    result.confidence = found->confidence;
    result.direction = found->direction;
    result.runFrames = static_cast<std::int64_t>(found->length);
    result.bitErrors = found->bitErrors;
    result.measuredFps = found->measuredFps;
    result.samplesPerFrame = found->samplesPerFrame;
    result.jitter = found->jitter;
    result.rateEvidence = found->rateEvidence;
    return result;
}

// ---------------------------------------------------------------------------

LTCRunScanner::LTCRunScanner(std::int64_t sampleRate, std::optional<FrameRateConfig> rate,
                             std::optional<std::int64_t> timelineSpacing)
    : sampleRate_(sampleRate),
      rate_(rate),
      decoder_(sampleRate),
      builder_(sampleRate, rate, timelineSpacing, kMinimumRunFrames) {}

void LTCRunScanner::push(std::span<const float> block, std::int64_t firstSample) {
    decoder_.push(block, firstSample);
    for (const LTCFrame& frame : decoder_.takeFrames()) {
        builder_.add(frame);
    }
}

std::vector<LTCRun> LTCRunScanner::finish() {
    std::vector<LTCRun> runs = builder_.takeRuns();
    std::erase_if(runs, [](const LTCRun& r) { return r.length < kMinimumRunFrames; });
    return runs;
}

}  // namespace norvane
