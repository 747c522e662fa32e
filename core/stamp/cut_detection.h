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

// Timeline points are kept this far apart within a run (every run's first
// frame is always a point); the scan reads the samples in blocks of kScanBlock.
inline constexpr double kWindowSeconds = 0.75;
inline constexpr double kHopSeconds = 0.2;
inline constexpr std::size_t kScanBlock = 65536;

// The segments of a file of `frameCount` sample frames from its timeline
// points (frame starts, sorted by sample). A jump of at least max(threshold, 1)
// frames between neighbouring points against the advance their distance
// predicts is a cut at the later point, where the new run's first frame
// begins; cuts closer than max(minSegmentFrames / 2, 10) frames to the
// previous boundary replace it. Fewer than two points, or a single remaining
// boundary, give none.
std::vector<SegmentBoundary> detectBoundaries(const std::vector<LTCTimelinePoint>& points,
                                              std::int64_t frameCount, std::int64_t sampleRate,
                                              std::int64_t rateNumerator,
                                              std::int64_t rateDenominator,
                                              std::int64_t minSegmentFrames,
                                              std::int64_t discontinuityFrameThreshold);

// Timeline points of one channel: the verified runs of consecutive frames
// (LTCRunScanner), each run's first frame and then its frames about 0.1 s
// apart, with frame counts at `rate` (without one, at each run's measured
// rate). Sorted by sample. Cancellation ends it with
// ProcessingError::cancelled; `progress` gets (blocks done, total).
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
