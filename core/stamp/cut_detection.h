#pragma once

// Finding the places where a recording's LTC stops running continuously and
// splitting the recording into segments there.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <vector>

#include "core/audio/wav_file.h"
#include "core/audio/wav_reader.h"
#include "core/stamp/processing_model.h"
#include "core/timecode/ltc_decoder.h"
#include "core/timecode/ltc_stream_decode.h"

namespace norvane::CutDetection {

// Timeline points are kept this far apart within a run (every run's first
// frame is always a point).
inline constexpr double kHopSeconds = 0.2;

// The segments of a file of `frameCount` sample frames from the verified runs
// of its LTC (LTCRunScanner::finish, in order of their first frame). A run
// that does not continue the one before it (its first frame's count differs by
// max(threshold, 1) frames or more from the count the earlier run projects
// there, or it runs at another rate or in the other direction) is a cut at the
// first sample of its first frame; cuts closer than max(minSegmentFrames / 2,
// 10) frames to the previous boundary replace it. Each segment takes its rate,
// start frame count and exact samples since midnight from the run it starts
// in (the first run, projected back, for the first segment). No runs, or a
// single remaining boundary, give none.
std::vector<SegmentBoundary> segmentsFromRuns(const std::vector<LTCRun>& runs,
                                              std::int64_t frameCount, std::int64_t sampleRate,
                                              std::int64_t minSegmentFrames,
                                              std::int64_t discontinuityFrameThreshold);

// The verified runs of channel `channel` of `file`, streamed block by block
// (memory does not grow with the file's length), each with its own measured
// rate unless `rate` is given; with `timelineSpacing`, each run keeps its
// timeline frames that far apart (these do grow with the length). Cancellation ends it
// with ProcessingError::cancelled; `progress` gets (frames read, total frames).
std::vector<LTCRun> scanRuns(const WavReader& file, std::int64_t channel,
                             const std::optional<FrameRateConfig>& rate,
                             const std::function<bool()>& isCancelled = {},
                             const std::function<void(std::int64_t, std::int64_t)>& progress = {},
                             std::optional<std::int64_t> timelineSpacing = std::nullopt);

// The result of a cut analysis: the points decoded and the segments found.
struct CutAnalysis {
    std::int64_t ltcChannelIndex = 0;
    std::int64_t sampleRate = 0;
    std::int64_t frameCount = 0;
    // The rate of the first run (the given rate when there is one); each
    // point and segment counts at the rate of its own run.
    FrameRateConfig rate;
    std::vector<LTCTimelinePoint> points;
    std::vector<SegmentBoundary> segments;
};

// Scans the LTC of `ltcFile` (the best-decoding channel unless one is given)
// at the options' rate; with Auto, each run at its own measured rate. The
// channel is read once, streamed. Reports ("Analyzing", "Scanning LTC
// timeline...", frames read, total). `withPoints` false leaves `points` empty
// (a stamp needs only the segments; hours of points are megabytes).
// Throws the file layer's errors and ProcessingError::cancelled; an empty
// segment list is returned as it is (the run turns it into an error).
CutAnalysis analyze(const std::filesystem::path& ltcFile, std::optional<std::int64_t> channel,
                    const ProcessingOptions& options,
                    const std::function<void(const ProcessingProgress&)>& progress = {},
                    const std::function<bool()>& isCancelled = {}, bool withPoints = true);

// One cut-detect job per segment: targets are the files other than the LTC
// file, in input order.
std::vector<ProcessingJob> segmentJobs(const std::vector<SegmentBoundary>& segments,
                                       const std::vector<FileDescriptor>& files,
                                       const std::filesystem::path& ltcFile,
                                       const ProcessingOptions& options);

}  // namespace norvane::CutDetection
