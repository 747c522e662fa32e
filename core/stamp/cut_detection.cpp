#include "core/stamp/cut_detection.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "core/audio/wav_reader.h"
#include "core/common/uuid.h"
#include "core/stamp/ltc_source.h"
#include "core/timecode/ltc_stream_decode.h"
#include "core/timecode/timecode.h"

namespace norvane::CutDetection {

namespace fs = std::filesystem;

namespace {

double nominalSamplesPerFrame(std::int64_t sampleRate, const FrameRateConfig& rate) {
    // denominator / numerator x sampleRate, the product the stamp steps frames by.
    return static_cast<double>(rate.denominator) / static_cast<double>(rate.numerator) *
           static_cast<double>(sampleRate);
}

bool sameCounting(const LTCRun& a, const LTCRun& b) {
    return a.rate.numerator == b.rate.numerator && a.rate.denominator == b.rate.denominator &&
           a.rate.dropFrame == b.rate.dropFrame && a.direction == b.direction;
}

// Samples since midnight of `sample` on the clock of `run`: its first frame
// begins at the fitted start position, and the code advances one sample per
// sample along the file (backwards for reverse play).
double samplesSinceMidnight(const LTCRun& run, double sample, std::int64_t sampleRate) {
    const double firstFrame =
        static_cast<double>(TimecodeMath::frameCount(run.firstFrame.timecode, run.rate)) *
        nominalSamplesPerFrame(sampleRate, run.rate);
    return firstFrame + static_cast<double>(run.direction) * (sample - run.startPosition);
}

}  // namespace

std::vector<SegmentBoundary> segmentsFromRuns(const std::vector<LTCRun>& runs,
                                              std::int64_t frameCount, std::int64_t sampleRate,
                                              std::int64_t minSegmentFrames,
                                              std::int64_t discontinuityFrameThreshold) {
    if (runs.empty() || sampleRate <= 0 || frameCount <= 0) {
        return {};
    }
    // Every jump of a frame or more is a cut, unless the threshold asks for more.
    const std::int64_t tolerance = std::max<std::int64_t>(discontinuityFrameThreshold, 1);

    // Boundaries with the run each one starts (none for the file's end).
    struct Boundary {
        std::int64_t sample = 0;
        std::size_t run = 0;
    };
    std::vector<Boundary> boundaries = {{0, 0}};
    for (std::size_t i = 1; i < runs.size(); ++i) {
        const LTCRun& before = runs[i - 1];
        const LTCRun& after = runs[i];
        if (sameCounting(before, after)) {
            const std::int64_t expected =
                before.frameCountAt(static_cast<double>(after.firstSample()));
            const std::int64_t actual =
                TimecodeMath::frameCount(after.firstFrame.timecode, after.rate);
            if (std::llabs(actual - expected) < tolerance) {
                continue;  // the same code after a dropout
            }
        }
        const std::int64_t cut = after.firstSample();
        if (cut >= 1 && cut <= frameCount - 1) {
            boundaries.push_back({cut, i});
        }
    }
    boundaries.push_back({frameCount, runs.size()});

    // The configured minimum is halved and floored at 10 frames on purpose.
    std::vector<Boundary> kept = {boundaries.front()};
    for (std::size_t i = 1; i < boundaries.size(); ++i) {
        const LTCRun& at = runs[std::min(boundaries[i].run, runs.size() - 1)];
        const double spacingSamples =
            nominalSamplesPerFrame(sampleRate, at.rate) *
            static_cast<double>(std::max<std::int64_t>(minSegmentFrames / 2, 10));
        // A spacing past any file length keeps no cut; it must not overflow the cast.
        const std::int64_t spacing = spacingSamples >= 9.0e18
                                         ? std::numeric_limits<std::int64_t>::max()
                                         : static_cast<std::int64_t>(spacingSamples);
        if (boundaries[i].sample - kept.back().sample >= spacing) {
            kept.push_back(boundaries[i]);
        } else {
            kept.back() = boundaries[i];
        }
    }

    std::vector<SegmentBoundary> segments;
    for (std::size_t i = 1; i < kept.size(); ++i) {
        const std::int64_t start = kept[i - 1].sample;
        const std::int64_t end = kept[i].sample;
        if (start >= end || kept[i - 1].run >= runs.size()) {
            continue;
        }
        const LTCRun& run = runs[kept[i - 1].run];
        SegmentBoundary segment;
        segment.segmentIndex = static_cast<std::int64_t>(segments.size()) + 1;
        segment.startSample = start;
        segment.endSample = end;
        segment.startFrameCount = run.frameCountAt(static_cast<double>(start));
        segment.rate = run.rate;
        segment.startSamplesSinceMidnight =
            samplesSinceMidnight(run, static_cast<double>(start), sampleRate);
        segments.push_back(segment);
    }
    return segments;
}

std::vector<LTCRun> scanRuns(const WavReader& file, std::int64_t channel,
                             const std::optional<FrameRateConfig>& rate,
                             const std::function<bool()>& isCancelled,
                             const std::function<void(std::int64_t, std::int64_t)>& progress,
                             std::optional<std::int64_t> timelineSpacing) {
    const auto cancelled = [&] { return isCancelled && isCancelled(); };
    if (cancelled()) {
        throw ProcessingError::cancelled();
    }
    const std::int64_t total = file.frameCount();
    if (file.fmt().sampleRate < 1 || !file.canReadSamples(static_cast<int>(channel))) {
        return {};
    }
    LTCRunScanner scanner(file.fmt().sampleRate, rate, timelineSpacing);
    bool stopped = false;
    file.forEachChannelBlock(
        static_cast<int>(channel), [&](std::span<const float> block, std::int64_t first) {
            if (cancelled()) {
                stopped = true;
                return false;
            }
            scanner.push(block, first);
            if (progress) {
                progress(first + static_cast<std::int64_t>(block.size()), total);
            }
            return true;
        });
    if (stopped || cancelled()) {
        throw ProcessingError::cancelled();
    }
    return scanner.finish();
}

CutAnalysis analyze(const fs::path& ltcFile, std::optional<std::int64_t> channel,
                    const ProcessingOptions& options,
                    const std::function<void(const ProcessingProgress&)>& progress,
                    const std::function<bool()>& isCancelled, bool withPoints) {
    if (isCancelled && isCancelled()) {
        throw ProcessingError::cancelled();
    }
    const WavReader wav(ltcFile);
    CutAnalysis analysis;
    analysis.sampleRate = wav.fmt().sampleRate;
    analysis.frameCount = wav.frameCount();

    // The channel (when not given) is the one whose code reads best; the
    // comparison reads each channel only until its start is certain.
    const std::optional<FrameRateConfig> rate = frameRateConfig(options.frameRatePreset);
    analysis.ltcChannelIndex = chooseLTCChannel(wav, channel, rate);

    if (progress) {
        progress(ProcessingProgress{"Analyzing", "Scanning LTC timeline...", 0, 1});
    }
    // The preview draws the points across the file's width: a few thousand
    // are all it can show, and a day-long roll at the hop would hold millions.
    // Every run's first frame is kept whatever the spacing, so no jump is lost.
    constexpr std::int64_t kMostPreviewPoints = 4000;
    const auto spacing = std::max(
        static_cast<std::int64_t>(static_cast<double>(analysis.sampleRate) * kHopSeconds / 2),
        analysis.frameCount / kMostPreviewPoints);
    const std::vector<LTCRun> runs = scanRuns(
        wav, analysis.ltcChannelIndex, rate, isCancelled,
        [&](std::int64_t done, std::int64_t total) {
            if (progress) {
                progress(ProcessingProgress{"Analyzing", "Scanning LTC timeline...", done, total});
            }
        },
        withPoints ? std::optional<std::int64_t>(std::max<std::int64_t>(spacing, 1))
                   : std::nullopt);
    analysis.rate = rate.value_or(runs.empty() ? candidateFrameRates().front() : runs.front().rate);
    analysis.points = timelinePoints(runs);
    analysis.segments = segmentsFromRuns(runs, analysis.frameCount, analysis.sampleRate,
                                         options.cutDetectConfig.minSegmentFrames,
                                         options.cutDetectConfig.discontinuityFrameThreshold);
    return analysis;
}

std::vector<ProcessingJob> segmentJobs(const std::vector<SegmentBoundary>& segments,
                                       const std::vector<FileDescriptor>& files,
                                       const fs::path& ltcFile, const ProcessingOptions& options) {
    std::vector<fs::path> targets;
    for (const FileDescriptor& file : files) {
        if (file.url != ltcFile) {
            targets.push_back(file.url);
        }
    }
    // A recording alone carries its own code: its segments are cut from it.
    const bool alone = targets.empty();
    if (alone) {
        targets.push_back(ltcFile);
    }
    std::vector<ProcessingJob> jobs;
    for (const SegmentBoundary& segment : segments) {
        ProcessingJob job;
        job.id = makeUUID();
        job.mode = ProcessingMode::cutDetect;
        job.groupID = "cut-detect";
        job.segment = segment;
        job.ltcFileURL = ltcFile;
        job.ltcChannelIndex = options.ltcChannelIndex;
        job.targetFileURLs = targets;
        job.includeLTCOutput = options.includeLTCOutputs && !alone;
        jobs.push_back(std::move(job));
    }
    return jobs;
}

}  // namespace norvane::CutDetection
