#pragma once

// The LTC stamp engine: one run turns ingested files and the user's options
// into jobs, stamps every job's outputs, validates them, writes the CSV run
// log and returns a report. Holds no state between calls.

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "core/stamp/cut_detection.h"
#include "core/stamp/grouping.h"
#include "core/stamp/job_executor.h"
#include "core/stamp/processing_model.h"

namespace norvane {

using ProgressCallback = std::function<void(const ProcessingProgress&)>;
using CancellationQuery = std::function<bool()>;

// What the LTC sources of a run decode to before anything is written.
struct LTCPrecheck {
    std::vector<FrameRateConfig> detectedRates;  // distinct, in order of first detection
    std::optional<double> lowestConfidence;      // absent when no source decoded
    std::vector<std::string> failures;           // "<file>: <description>" per undecodable source
};

class StampProcessor {
  public:
    // The whole run. Throws ProcessingError (notEnoughWavs, ltcFileMissing,
    // grouping errors, noCutBoundariesDetected, batchVoteFailed, cancelled,
    // lowConfidence of a cut-detect run) and the file layer's errors (the CSV
    // log that cannot be written); failing jobs are reported, not thrown.
    ProcessingReport run(const std::vector<FileDescriptor>& files,
                         const std::optional<std::filesystem::path>& selectedLTCFile,
                         const ProcessingOptions& options, const ProgressCallback& progress = {},
                         const CancellationQuery& isCancelled = {}) const;

    // The job loop of a run over jobs already built (by buildJobs, after the
    // checks a caller makes before writing): the same outputs, log and report.
    ProcessingReport runJobs(const std::vector<ProcessingJob>& jobs,
                             const std::vector<FileDescriptor>& files,
                             const ProcessingOptions& options,
                             const ProgressCallback& progress = {},
                             const CancellationQuery& isCancelled = {}) const;

    // The jobs the run would execute for these inputs (grouping, LTC resolution
    // and the cut scan included). Throws what the run throws while preparing.
    std::vector<ProcessingJob> buildJobs(
        const std::vector<FileDescriptor>& files,
        const std::optional<std::filesystem::path>& selectedLTCFile,
        const ProcessingOptions& options, const ProgressCallback& progress = {},
        const CancellationQuery& isCancelled = {}) const;

    // Output paths of the jobs that already exist in the output folder (asked
    // about before a run under "Ask"), in job order without repeats.
    std::vector<std::filesystem::path> existingOutputs(const std::vector<ProcessingJob>& jobs,
                                                       const ProcessingOptions& options) const;

    // Decodes each distinct LTC source of the jobs once, with the options'
    // rate (automatic selection under Auto): the rates found and the lowest
    // confidence. Never throws for a source that does not decode.
    LTCPrecheck precheckLTC(const std::vector<ProcessingJob>& jobs,
                            const ProcessingOptions& options) const;

    // A FileDescriptor for an ingested file (fresh id); throws the WAV
    // reader's errors.
    static FileDescriptor describeFile(const std::filesystem::path& url);
    // The same from a reader already open on the file.
    static FileDescriptor describeFile(const WavReader& wav);

    // Grouping preview and cut analysis, as the run does them.
    static std::map<std::string, std::vector<FileDescriptor>> groupFiles(
        const std::vector<FileDescriptor>& files, const GroupingConfig& config) {
        return Grouping::groupFiles(files, config);
    }
    static void validateGroupingRule(const GroupingConfig& config) {
        Grouping::validateRule(config);
    }
    static std::vector<ProcessingJob> buildGroupedJobs(const std::vector<FileDescriptor>& files,
                                                       const ProcessingOptions& options) {
        return Grouping::buildGroupedJobs(files, options);
    }
    static CutDetection::CutAnalysis analyzeCuts(const std::filesystem::path& ltcFile,
                                                 const ProcessingOptions& options,
                                                 const ProgressCallback& progress = {},
                                                 const CancellationQuery& isCancelled = {}) {
        return CutDetection::analyze(ltcFile, options.ltcChannelIndex, options, progress,
                                     isCancelled);
    }
};

// The multi-line summary of a report shown to the user.
std::string reportText(const ProcessingReport& report);

// "ltc_stamp_log_" + the ISO 8601 UTC time to the millisecond with ":"
// replaced by "-" + ".csv": ltc_stamp_log_2026-11-21T22-37-28.042Z.csv.
std::string csvLogName(std::chrono::system_clock::time_point time);

// The output path of every source of the jobs under its first-choice name
// (unsafe names left out: their job reports them), in job order.
std::vector<std::filesystem::path> plannedOutputs(const std::vector<ProcessingJob>& jobs,
                                                  const ProcessingOptions& options);

}  // namespace norvane
