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

std::vector<SegmentBoundary> detectBoundaries(const std::vector<LTCTimelinePoint>& points,
                                              std::int64_t frameCount, std::int64_t sampleRate,
                                              std::int64_t rateNumerator,
                                              std::int64_t rateDenominator,
                                              std::int64_t minSegmentFrames,
                                              std::int64_t discontinuityFrameThreshold) {
    if (points.size() < 2 || rateNumerator <= 0 || rateDenominator <= 0 || sampleRate <= 0) {
        return {};
    }
    const double samplesPerFrame = static_cast<double>(rateDenominator) /
                                   static_cast<double>(rateNumerator) *
                                   static_cast<double>(sampleRate);
    const double fps = static_cast<double>(rateNumerator) / static_cast<double>(rateDenominator);
    (void)fps;
    // Every jump of a frame or more is a cut, unless the threshold asks for more.
    const std::int64_t tolerance = std::max<std::int64_t>(discontinuityFrameThreshold, 1);

    std::vector<std::int64_t> boundaries = {0};
    for (std::size_t i = 1; i < points.size(); ++i) {
        const LTCTimelinePoint& a = points[i - 1];
        const LTCTimelinePoint& b = points[i];
        const std::int64_t expected =
            roundHalfAwayFromZero(static_cast<double>(b.sample - a.sample) / samplesPerFrame);
        const std::int64_t actual = b.frameCount - a.frameCount;
        if (std::llabs(actual - expected) < tolerance) {
            continue;
        }
        // Points are frame starts: the new take begins at the later one.
        const std::int64_t cut = b.sample;
        if (cut >= 1 && cut <= frameCount - 1) {
            boundaries.push_back(cut);
        }
    }
    boundaries.push_back(frameCount);
    std::sort(boundaries.begin(), boundaries.end());
    boundaries.erase(std::unique(boundaries.begin(), boundaries.end()), boundaries.end());

    // The configured minimum is halved and floored at 10 frames on purpose.
    const double spacingSamples =
        samplesPerFrame * static_cast<double>(std::max<std::int64_t>(minSegmentFrames / 2, 10));
    // A spacing past any file length keeps no cut; it must not overflow the cast.
    const std::int64_t spacing = spacingSamples >= 9.0e18
                                     ? std::numeric_limits<std::int64_t>::max()
                                     : static_cast<std::int64_t>(spacingSamples);
    std::vector<std::int64_t> kept = {boundaries.front()};
    for (std::size_t i = 1; i < boundaries.size(); ++i) {
        if (boundaries[i] - kept.back() >= spacing) {
            kept.push_back(boundaries[i]);
        } else {
            kept.back() = boundaries[i];
        }
    }

    std::vector<SegmentBoundary> segments;
    for (std::size_t i = 1; i < kept.size(); ++i) {
        const std::int64_t start = kept[i - 1];
        const std::int64_t end = kept[i];
        if (start >= end) {
            continue;
        }
        // Nearest point to the start; the earlier one on equal distance.
        const LTCTimelinePoint* nearest = &points.front();
        for (const LTCTimelinePoint& p : points) {
            if (std::llabs(p.sample - start) < std::llabs(nearest->sample - start)) {
                nearest = &p;
            }
        }
        SegmentBoundary segment;
        segment.segmentIndex = static_cast<std::int64_t>(segments.size()) + 1;
        segment.startSample = start;
        segment.endSample = end;
        segment.startFrameCount =
            nearest->frameCount +
            roundHalfAwayFromZero(static_cast<double>(start - nearest->sample) / samplesPerFrame);
        segments.push_back(segment);
    }
    return segments;
}

std::vector<LTCTimelinePoint> scanTimeline(
    const std::vector<float>& samples, std::int64_t sampleRate,
    const std::optional<FrameRateConfig>& rate, const std::function<bool()>& isCancelled,
    const std::function<void(std::int64_t, std::int64_t)>& progress) {
    LTCRunScanner scanner(sampleRate, rate);
    const std::size_t block = kScanBlock;
    const auto total = static_cast<std::int64_t>((samples.size() + block - 1) / block);
    const std::span<const float> all(samples);
    std::int64_t done = 0;
    for (std::size_t offset = 0; offset < samples.size(); offset += block) {
        if (isCancelled && isCancelled()) {
            throw ProcessingError::cancelled();
        }
        scanner.push(all.subspan(offset, std::min(block, samples.size() - offset)),
                     static_cast<std::int64_t>(offset));
        ++done;
        if (progress) {
            progress(done, total);
        }
    }
    if (isCancelled && isCancelled()) {
        throw ProcessingError::cancelled();
    }
    const auto spacing =
        static_cast<std::int64_t>(static_cast<double>(sampleRate) * kHopSeconds / 2);
    return timelinePoints(scanner.finish(), std::max<std::int64_t>(spacing, 1));
}

CutAnalysis analyze(const fs::path& ltcFile, std::optional<std::int64_t> channel,
                    const ProcessingOptions& options,
                    const std::function<void(const ProcessingProgress&)>& progress,
                    const std::function<bool()>& isCancelled) {
    if (isCancelled && isCancelled()) {
        throw ProcessingError::cancelled();
    }
    const WavReader wav(ltcFile);
    CutAnalysis analysis;
    analysis.sampleRate = wav.fmt().sampleRate;
    analysis.frameCount = wav.frameCount();

    // The channel (when not given) is the one whose code reads best. Under
    // Auto every run of the scan carries its own measured rate; the analysis
    // reports the first run's.
    std::optional<FrameRateConfig> rate = frameRateConfig(options.frameRatePreset);
    std::optional<FrameRateConfig> firstRunRate;
    try {
        const ChannelDecode whole = decodeFileLTC(wav, channel, rate);
        analysis.ltcChannelIndex = whole.channelIndex;
        firstRunRate = whole.result.frameRate;
    } catch (const LTCDecodeError&) {
        // No verified run anywhere: the scan will find none either.
        analysis.ltcChannelIndex = channel.value_or(0);
    }
    analysis.rate = rate.value_or(firstRunRate.value_or(candidateFrameRates().front()));

    if (progress) {
        progress(ProcessingProgress{"Analyzing", "Scanning LTC timeline...", 0, 1});
    }
    const std::vector<float> samples = channelSamples(wav, analysis.ltcChannelIndex);
    analysis.points = scanTimeline(
        samples, analysis.sampleRate, rate, isCancelled,
        [&](std::int64_t done, std::int64_t total) {
            if (progress) {
                progress(ProcessingProgress{"Analyzing", "Scanning LTC timeline...", done, total});
            }
        });
    analysis.segments = detectBoundaries(analysis.points, analysis.frameCount, analysis.sampleRate,
                                         analysis.rate.numerator, analysis.rate.denominator,
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
