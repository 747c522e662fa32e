#pragma once

// Executing one stamp job: decode the LTC, derive the start timecode of the
// file set and its bext time reference, and write a stamped copy of every
// target into the output folder.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "core/audio/wav_file.h"
#include "core/stamp/processing_model.h"
#include "core/timecode/ltc_decoder.h"

namespace norvane {

// Below this decode confidence a job stops unless forced; below the ideal one
// it carries a warning.
inline constexpr double kMinimumLTCConfidence = 0.55;
inline constexpr double kIdealLTCConfidence = 0.7;

struct JobExecution {
    std::vector<ProcessedFileRecord> records;  // one per output written
    std::vector<std::string> outputs;          // output file names, in writing order
    std::vector<ProcessingWarning> warnings;
    std::int64_t sampleRate = 0;
    LTCDecodeResult decode;
    Timecode startTC;
    std::string ltcFile;  // file name of the LTC file
};

// The result of rendering the segments of a cut-detect run.
struct CutExecution {
    std::vector<ProcessedFileRecord> records;
    std::vector<std::string> outputs;
    std::vector<ProcessingWarning> warnings;
    std::int64_t sampleRate = 0;
    LTCDecodeResult decode;
    Timecode startTC;
    std::string ltcFile;
    std::vector<JobReport> jobReports;  // one per segment job
};

// Bytes of one output written so far and its size, with the source it is
// copied from; called before the first block, between blocks and at the end.
using OutputBytesProgress = std::function<void(const std::filesystem::path& source,
                                               std::uint64_t done, std::uint64_t total)>;

namespace JobExecutor {

// Samples per LTC frame at the exact rate: sampleRate x denominator / numerator.
double samplesPerFrame(std::int64_t sampleRate, const FrameRateConfig& rate);

// The timecode of `anchorSample` stepped back to sample 0 of the file: the
// decoded frame count minus round(anchorSample / samplesPerFrame) frames
// (halves away from zero), wrapped into the day.
Timecode startTimecode(const LTCDecodeResult& decode, std::int64_t anchorSample,
                       std::int64_t sampleRate);

// The bext TimeReference of a start timecode: its frame count x samples per
// frame, rounded half away from zero, never below 0.
std::uint64_t timeReference(const Timecode& start, const FrameRateConfig& rate,
                            std::int64_t sampleRate);

// The exact samples since midnight of `sample` from the decoded run: the
// decoded frame's position in the day at the exact rate, plus the distance
// from the frame's start (sub-sample) to `sample`, counted backwards for code
// played in reverse. Rounded half away from zero; never below 0.
std::uint64_t exactTimeReference(const LTCDecodeResult& decode, double sample,
                                 std::int64_t sampleRate);

// The iXML document stamped beside the bext chunk.
std::string ixmlDocument(const FrameRateConfig& rate, const Timecode& start);

// "Decode confidence is below ideal (54%)." below 0.7; throws
// ProcessingError::lowConfidence below 0.55 unless forced.
std::vector<ProcessingWarning> confidenceWarnings(double confidence, bool forceLowConfidence);

// Executes a single or grouped-batch job (a job with a segment renders that
// stretch). `votedRate` is the run's batch-voted rate, if any. Throws the
// failure of the job (file layer, decoder, ProcessingError).
// The audio is copied from each source in blocks; `isCancelled` is polled
// between blocks (a few MiB apart) and ends the job with
// ProcessingError::cancelled(), the output being written removed.
// `outputBytes` follows every output as it is written.
JobExecution execute(const ProcessingJob& job, const ProcessingOptions& options,
                     const std::optional<FrameRateConfig>& votedRate,
                     const std::function<bool()>& isCancelled = {},
                     const OutputBytesProgress& outputBytes = {});

// Renders every segment job (all of one LTC file), each stamped with the rate,
// start and exact position its segment carries from the cut scan. A job that fails is reported as
// failed and the others go on; the LTC decode, low confidence and cancellation end it.
CutExecution executeCutJobs(const std::vector<ProcessingJob>& jobs,
                            const ProcessingOptions& options,
                            const std::optional<FrameRateConfig>& votedRate,
                            const std::function<void(const ProcessingProgress&)>& progress,
                            const std::function<bool()>& isCancelled,
                            const OutputBytesProgress& outputBytes = {});

// The failure row of a job: labelled "LTC Cut Detect" / "cut-detect" whatever
// the job's own mode, with the segment's values when it has one.
ProcessedFileRecord failureRecord(const ProcessingJob& job, const std::string& description);

// Reads every written output back and compares its frame count with what was
// expected (the segment's length, or the source's frame count). `sources`
// maps source file names to their locations.
std::vector<ProcessingWarning> validateFrameLengths(
    const std::vector<ProcessedFileRecord>& records,
    const std::vector<std::filesystem::path>& sources, const std::filesystem::path& outputFolder);

}  // namespace JobExecutor
}  // namespace norvane
