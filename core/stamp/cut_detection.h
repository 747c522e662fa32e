#pragma once

// Finding the places where a recording's LTC stops running continuously and
// splitting the recording into segments there.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <vector>

#include "core/audio/wav_file.h"
#include "core/stamp/processing_model.h"
#include "core/timecode/ltc_decoder.h"

namespace norvane::CutDetection {

// Analysis windows of the scan: 0.75 s every 0.2 s.
inline constexpr double kWindowSeconds = 0.75;
inline constexpr double kHopSeconds = 0.2;

// The segments of a file of `frameCount` sample frames from its timeline
// points (sorted by sample). A jump of at least max(nominal fps / 2, threshold)
// frames between neighbouring points against the advance their distance
// predicts is a cut at the next frame boundary after the later point; cuts
// closer than max(minSegmentFrames / 2, 10) frames to the previous boundary
// replace it. Fewer than two points, or a single remaining boundary, give none.
std::vector<SegmentBoundary> detectBoundaries(const std::vector<LTCTimelinePoint>& points,
                                              std::int64_t frameCount, std::int64_t sampleRate,
                                              std::int64_t rateNumerator,
                                              std::int64_t rateDenominator,
                                              std::int64_t minSegmentFrames,
                                              std::int64_t discontinuityFrameThreshold);

// Timeline points of one channel: each 0.75 s window (every 0.2 s, while it
// fits in the samples) decoded at `rate`; a decoded window gives a point at its
// start plus the decode's first valid sample, with the absolute frame count of
// the decoded timecode. Sorted by sample, duplicates dropped. Cancellation ends
// it with ProcessingError::cancelled; `progress` gets (windows done, total).
std::vector<LTCTimelinePoint> scanTimeline(
    const std::vector<float>& samples, std::int64_t sampleRate,
    const std::optional<FrameRateConfig>& rate, const std::function<bool()>& isCancelled = {},
    const std::function<void(std::int64_t, std::int64_t)>& progress = {});

// The result of a cut analysis: the points decoded and the segments found.
struct CutAnalysis {
    std::int64_t ltcChannelIndex = 0;
    std::int64_t sampleRate = 0;
    std::int64_t frameCount = 0;
    FrameRateConfig rate;  // the rate the points' frame counts are at
    std::vector<LTCTimelinePoint> points;
    std::vector<SegmentBoundary> segments;
};

// Scans the LTC of `ltcFile` (the best-decoding channel unless one is given)
// at the options' rate; with Auto, the rate of a whole-file decode is used.
// Reports ("Analyzing", "Scanning LTC timeline...", windows done, total).
// Throws the file layer's errors and ProcessingError::cancelled; an empty
// segment list is returned as it is (the run turns it into an error).
CutAnalysis analyze(const std::filesystem::path& ltcFile, std::optional<std::int64_t> channel,
                    const ProcessingOptions& options,
                    const std::function<void(const ProcessingProgress&)>& progress = {},
                    const std::function<bool()>& isCancelled = {});

// One cut-detect job per segment: targets are the files other than the LTC
// file, in input order.
std::vector<ProcessingJob> segmentJobs(const std::vector<SegmentBoundary>& segments,
                                       const std::vector<FileDescriptor>& files,
                                       const std::filesystem::path& ltcFile,
                                       const ProcessingOptions& options);

}  // namespace norvane::CutDetection
