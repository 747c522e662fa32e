#include "core/stamp/cut_detection.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "core/common/uuid.h"
#include "core/stamp/ltc_source.h"
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
    // Half a second of frames at least: 12 at 23.976/24/25, 15 at 29.97/30.
    const std::int64_t tolerance =
        std::max(roundHalfAwayFromZero(fps) / 2, discontinuityFrameThreshold);

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
        // The cut lands on the next frame boundary at or after the later point.
        const auto cut = static_cast<std::int64_t>(
            samplesPerFrame * std::ceil(static_cast<double>(b.sample) / samplesPerFrame));
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
    const auto count = static_cast<std::int64_t>(samples.size());
    const std::int64_t window = std::max<std::int64_t>(
        static_cast<std::int64_t>(static_cast<double>(sampleRate) * kWindowSeconds), 1);
    const std::int64_t hop = std::max<std::int64_t>(
        static_cast<std::int64_t>(static_cast<double>(sampleRate) * kHopSeconds), 1);
    std::vector<LTCTimelinePoint> points;
    if (count < window) {
        return points;
    }
    const std::int64_t total = (count - window) / hop + 1;
    const std::span<const float> all(samples);
    std::int64_t done = 0;
    for (std::int64_t offset = 0; offset + window <= count; offset += hop) {
        if (isCancelled && isCancelled()) {
            throw ProcessingError::cancelled();
        }
        try {
            const LTCDecodeResult result = LTCDecoder::decode(
                all.subspan(static_cast<std::size_t>(offset), static_cast<std::size_t>(window)),
                sampleRate, rate);
            points.push_back(
                LTCTimelinePoint{offset + result.firstValidSample, result.timecode,
                                 TimecodeMath::frameCount(result.timecode, result.frameRate)});
        } catch (const LTCDecodeError&) {
            // A window without a readable frame adds no point.
        }
        ++done;
        if (progress) {
            progress(done, total);
        }
    }
    std::stable_sort(
        points.begin(), points.end(),
        [](const LTCTimelinePoint& a, const LTCTimelinePoint& b) { return a.sample < b.sample; });
    points.erase(std::unique(points.begin(), points.end(),
                             [](const LTCTimelinePoint& a, const LTCTimelinePoint& b) {
                                 return a.sample == b.sample;
                             }),
                 points.end());
    return points;
}

CutAnalysis analyze(const fs::path& ltcFile, std::optional<std::int64_t> channel,
                    const ProcessingOptions& options,
                    const std::function<void(const ProcessingProgress&)>& progress,
                    const std::function<bool()>& isCancelled) {
    if (isCancelled && isCancelled()) {
        throw ProcessingError::cancelled();
    }
    const WAVFile wav(ltcFile);
    CutAnalysis analysis;
    analysis.sampleRate = wav.fmt().sampleRate;
    analysis.frameCount = wav.frameCount();

    // The channel (when not given) and, under Auto, the rate come from one
    // decode of the whole file, so every window is read at the same rate.
    std::optional<FrameRateConfig> rate = frameRateConfig(options.frameRatePreset);
    try {
        const ChannelDecode whole = decodeFileLTC(wav, channel, rate);
        analysis.ltcChannelIndex = whole.channelIndex;
        if (!rate) {
            rate = whole.result.frameRate;
        }
    } catch (const LTCDecodeError&) {
        // No LTC anywhere: the windows will find no points either.
        analysis.ltcChannelIndex = channel.value_or(0);
    }
    analysis.rate = rate.value_or(candidateFrameRates().front());

    if (progress) {
        progress(ProcessingProgress{"Analyzing", "Scanning LTC timeline...", 0, 1});
    }
    const std::vector<float> samples = wav.samples(static_cast<int>(analysis.ltcChannelIndex));
    analysis.points = scanTimeline(
        samples, analysis.sampleRate, analysis.rate, isCancelled,
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
        job.includeLTCOutput = options.includeLTCOutputs;
        jobs.push_back(std::move(job));
    }
    return jobs;
}

}  // namespace norvane::CutDetection
