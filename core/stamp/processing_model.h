#pragma once

// The value records of an LTC stamp run: what the user chose, what was
// ingested, the jobs of a run, their results and the errors of a run.

#include <array>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "core/common/error.h"
#include "core/timecode/timecode.h"

namespace norvane {

// ---- Enumerations: persisted, logged and shown by their label -------------

enum class ProcessingMode { single, groupedBatch, cutDetect };
enum class GroupingMethod { durationExact, token, regex };
enum class OutputCollisionBehavior { ask, keepBoth, overwrite };

// "Single", "Grouped Batch", "LTC Cut Detect".
std::string label(ProcessingMode mode);
// "Duration Exact", "Token", "Regex".
std::string label(GroupingMethod method);
// "Ask", "Keep Both", "Overwrite".
std::string label(OutputCollisionBehavior behavior);

// The case whose label is exactly `text` (case matters); nullopt otherwise.
std::optional<ProcessingMode> processingModeFromLabel(std::string_view text);
std::optional<GroupingMethod> groupingMethodFromLabel(std::string_view text);
std::optional<OutputCollisionBehavior> outputCollisionBehaviorFromLabel(std::string_view text);

// Every case in declaration order.
const std::array<ProcessingMode, 3>& allProcessingModes();
const std::array<GroupingMethod, 3>& allGroupingMethods();
const std::array<OutputCollisionBehavior, 3>& allOutputCollisionBehaviors();

// ---- Configuration records --------------------------------------------------

// How the files of a grouped batch are sorted into groups.
struct GroupingConfig {
    GroupingMethod method = GroupingMethod::token;
    std::string delimiter = "-";            // separator of token grouping (the whole text)
    std::int64_t tokenIndex = 1;            // 0-based part of the split name used as key
    std::string regexPattern;               // capture group 1 is the key
    std::int64_t durationToleranceMs = 50;  // at least 1

    GroupingConfig() = default;
    // Clamps durationToleranceMs to at least 1.
    GroupingConfig(GroupingMethod method, std::string delimiter, std::int64_t tokenIndex,
                   std::string regexPattern, std::int64_t durationToleranceMs);
    static GroupingConfig make(GroupingMethod method, std::string delimiter,
                               std::int64_t tokenIndex, std::string regexPattern,
                               std::int64_t durationToleranceMs) {
        return GroupingConfig(method, std::move(delimiter), tokenIndex, std::move(regexPattern),
                              durationToleranceMs);
    }

    friend bool operator==(const GroupingConfig&, const GroupingConfig&) = default;
};

struct CutDetectConfig {
    std::int64_t minSegmentFrames = 24;            // shortest kept segment, LTC frames
    std::int64_t discontinuityFrameThreshold = 1;  // jump (frames) that counts as a cut

    friend bool operator==(const CutDetectConfig&, const CutDetectConfig&) = default;
};

struct OutputNamingConfig {
    std::string suffix = "_tc";  // appended to each output's base name; may be empty
    OutputCollisionBehavior collisionBehavior = OutputCollisionBehavior::ask;

    friend bool operator==(const OutputNamingConfig&, const OutputNamingConfig&) = default;
};

// One stretch of a cut-detect source, in the source's sample frames
// [startSample, endSample).
struct SegmentBoundary {
    std::int64_t startSample = 0;
    std::int64_t endSample = 0;
    std::int64_t segmentIndex = 0;  // 1-based, in order of position ("_seg001")
    // Absolute LTC frame count at startSample, where the scan could anchor it.
    std::optional<std::int64_t> startFrameCount;
    // The rate of the run of code the segment starts in (its own under Auto),
    // which startFrameCount counts at.
    std::optional<FrameRateConfig> rate;
    // Samples since midnight of startSample itself on that run's clock, with
    // its sub-sample fraction: the TimeReference a `sample` stamp writes.
    std::optional<double> startSamplesSinceMidnight;

    friend bool operator==(const SegmentBoundary&, const SegmentBoundary&) = default;
};

// ---- Inputs and jobs --------------------------------------------------------

// One ingested WAV file.
struct FileDescriptor {
    std::string id;  // UUID made at ingest
    std::filesystem::path url;
    std::int64_t sampleRate = 0;
    std::int64_t channels = 0;
    std::int64_t frameCount = 0;  // sample frames in the data chunk
    double durationSeconds = 0;
    bool isLTC = false;  // marked as the LTC carrier

    friend bool operator==(const FileDescriptor&, const FileDescriptor&) = default;
};

// One unit of work of a run.
struct ProcessingJob {
    std::string id;  // UUID
    ProcessingMode mode = ProcessingMode::single;
    std::string groupID;
    std::optional<SegmentBoundary> segment;  // cut-detect jobs only
    std::filesystem::path ltcFileURL;
    // 0-based channel of ltcFileURL; absent lets the engine pick the channel
    // that decodes best.
    std::optional<std::int64_t> ltcChannelIndex;
    std::vector<std::filesystem::path> targetFileURLs;
    bool includeLTCOutput = false;

    friend bool operator==(const ProcessingJob&, const ProcessingJob&) = default;
};

// Everything the user chose for one run.
// What the bext TimeReference of a stamped file counts: the samples since
// midnight of its frame-aligned start timecode (`frame`), or of its first
// sample exactly as the LTC run places it (`sample`, as location recorders
// write it). Labels "frame" and "sample".
enum class TimeReferenceMode { frame, sample };
std::string label(TimeReferenceMode mode);
std::optional<TimeReferenceMode> timeReferenceModeFromLabel(std::string_view text);
const std::array<TimeReferenceMode, 2>& allTimeReferenceModes();

struct ProcessingOptions {
    ProcessingMode mode = ProcessingMode::single;
    FrameRatePreset frameRatePreset = FrameRatePreset::auto_;
    std::filesystem::path outputFolder;
    bool forceLowConfidence = false;
    bool includeLTCOutputs = false;
    GroupingConfig groupingConfig;
    std::map<std::string, std::filesystem::path> manualLTCByGroup;
    std::map<std::string, std::int64_t> manualLTCChannelByGroup;  // 1-based channel numbers
    OutputNamingConfig outputNaming;
    CutDetectConfig cutDetectConfig;
    // 0-based LTC channel of the selected LTC file in single and cut-detect
    // runs; absent lets the engine find the channel that carries the code.
    std::optional<std::int64_t> ltcChannelIndex;
    TimeReferenceMode timeReferenceMode = TimeReferenceMode::frame;
};

// ---- Results ------------------------------------------------------------------

struct ProcessingWarning {
    std::string message;

    friend bool operator==(const ProcessingWarning&, const ProcessingWarning&) = default;
};

// One output written or one job failed: one row of the CSV run log.
struct ProcessedFileRecord {
    std::string sourceFile;
    std::string outputFile;
    std::string ltcFile;
    std::int64_t sampleRate = 0;
    std::string frameRate;
    std::int64_t firstValidLTCSample = 0;
    double firstValidLTCSeconds = 0;
    std::string stampedStartTimecode;
    std::string status;  // "ok" or "failed"
    std::string warning;
    std::string mode;
    std::string groupID;
    std::string segmentIndex;
    std::string segmentStartSample;
    std::string segmentEndSample;
    std::string segmentLengthSamples;  // not logged; used by the frame-length check
    std::string timeReferenceSamples;
    std::string errorCode;

    friend bool operator==(const ProcessedFileRecord&, const ProcessedFileRecord&) = default;
};

struct JobReport {
    ProcessingMode mode = ProcessingMode::single;
    std::string groupID;
    std::optional<std::int64_t> segmentIndex;
    std::vector<std::string> outputs;
    std::vector<std::string> warnings;
    std::optional<std::string> error;

    friend bool operator==(const JobReport&, const JobReport&) = default;
};

struct RunSummary {
    std::int64_t totalJobs = 0;
    std::int64_t successfulJobs = 0;
    std::int64_t failedJobs = 0;
    std::int64_t warningCount = 0;

    friend bool operator==(const RunSummary&, const RunSummary&) = default;
};

// Units are files (or steps of an analysis). While outputs are written the
// bytes move too: those of the output being written and those of the run (the
// run's total is known before the first byte is written, so its fraction
// moves evenly across files of any size).
struct ProcessingProgress {
    ProcessingProgress() = default;
    ProcessingProgress(std::string phase_, std::string message_, std::int64_t completed,
                       std::int64_t total)
        : phase(std::move(phase_)),
          message(std::move(message_)),
          completedUnits(completed),
          totalUnits(total) {}

    std::string phase;
    std::string message;
    std::int64_t completedUnits = 0;
    std::int64_t totalUnits = 0;
    std::string file;  // name of the output being written; "" between outputs
    std::uint64_t fileBytesDone = 0;
    std::uint64_t fileBytesTotal = 0;
    std::uint64_t bytesDone = 0;
    std::uint64_t bytesTotal = 0;

    // bytesDone / bytesTotal once the run's bytes are known, else
    // completedUnits / totalUnits (0 when neither is known).
    double fraction() const {
        if (bytesTotal > 0) {
            return static_cast<double>(bytesDone) / static_cast<double>(bytesTotal);
        }
        return totalUnits > 0
                   ? static_cast<double>(completedUnits) / static_cast<double>(totalUnits)
                   : 0.0;
    }

    friend bool operator==(const ProcessingProgress&, const ProcessingProgress&) = default;
};

struct ProcessingReport {
    std::string chosenLTCFile;
    std::int64_t sampleRate = 0;
    std::string detectedFrameRate;
    std::int64_t firstValidLTCSample = 0;
    double firstValidLTCSeconds = 0;
    std::string stampedStartTimecode;
    // The evidence of the LTC file's decode.
    double confidence = 0;
    std::int64_t ltcRunFrames = 0;  // frames in the verified run
    std::int64_t ltcBitErrors = 0;  // clock irregularities inside it
    std::string rateEvidence;       // what chose the frame rate
    std::string timeReferenceMode = "frame";
    // The file's first sample lies this many samples after the start of the
    // frame its start timecode names (the part a frame-aligned TimeReference
    // drops; negative when the nearest frame starts later).
    double subFrameOffsetSamples = 0;
    std::vector<ProcessingWarning> warnings;
    std::vector<std::string> outputFiles;
    std::filesystem::path csvLogURL;
    RunSummary summary;
    std::vector<JobReport> jobs;
    std::vector<ProcessedFileRecord> records;  // the CSV log's rows: one per output or failure
};

// ---- Errors -----------------------------------------------------------------

// The errors of a stamp run; message() is the text the user sees.
class ProcessingError : public Error {
  public:
    enum class Kind {
        ltcDecodeFailed,
        lowConfidence,
        groupingCouldNotResolve,
        outputFileAlreadyExists,
        unsafeOutputFilename,
        invalidRegex,
        notEnoughWavs,
        ltcFileMissing,
        sampleRateMismatch,
        invalidGroupingRule,
        noCutBoundariesDetected,
        cancelled,
        batchVoteFailed,
    };

    static ProcessingError ltcDecodeFailed(const std::string& text);
    // confidence 0..1; shown as a truncated percentage. A value that is not
    // finite is a programming error (std::logic_error).
    static ProcessingError lowConfidence(double confidence);
    static ProcessingError groupingCouldNotResolve(const std::string& groupKey);
    static ProcessingError outputFileAlreadyExists(const std::string& name);
    static ProcessingError unsafeOutputFilename(const std::string& name);
    static ProcessingError invalidRegex(const std::string& reason);
    static ProcessingError notEnoughWavs();
    static ProcessingError ltcFileMissing();
    static ProcessingError sampleRateMismatch();
    static ProcessingError invalidGroupingRule();
    static ProcessingError noCutBoundariesDetected();
    static ProcessingError cancelled();
    // "Auto frame-rate batch vote failed: no decodable LTC source in this run."
    static ProcessingError batchVoteFailed();

    Kind kind() const { return kind_; }
    // The payload as given (group key, path, reason ...); empty for cases without one.
    const std::string& payload() const { return payload_; }
    // Only meaningful for lowConfidence.
    double confidence() const { return confidence_; }
    std::string description() const { return message(); }

  private:
    ProcessingError(Kind kind, const std::string& message, std::string payload = {},
                    double confidence = 0)
        : Error(message), kind_(kind), payload_(std::move(payload)), confidence_(confidence) {}

    Kind kind_;
    std::string payload_;
    double confidence_;
};

// confidence x 100 truncated toward zero ("87" for 0.876).
std::int64_t truncatedPercent(double confidence);

// ---- Coding by the fixed keys ----------------------------------------------

void to_json(nlohmann::ordered_json& j, ProcessingMode mode);
void from_json(const nlohmann::ordered_json& j, ProcessingMode& mode);
void to_json(nlohmann::ordered_json& j, GroupingMethod method);
void from_json(const nlohmann::ordered_json& j, GroupingMethod& method);
void to_json(nlohmann::ordered_json& j, OutputCollisionBehavior behavior);
void from_json(const nlohmann::ordered_json& j, OutputCollisionBehavior& behavior);
void to_json(nlohmann::ordered_json& j, const GroupingConfig& config);
void from_json(const nlohmann::ordered_json& j, GroupingConfig& config);
void to_json(nlohmann::ordered_json& j, const CutDetectConfig& config);
void from_json(const nlohmann::ordered_json& j, CutDetectConfig& config);
void to_json(nlohmann::ordered_json& j, const OutputNamingConfig& config);
void from_json(const nlohmann::ordered_json& j, OutputNamingConfig& config);
// "startFrameCount" is left out when absent.
void to_json(nlohmann::ordered_json& j, const SegmentBoundary& segment);
void from_json(const nlohmann::ordered_json& j, SegmentBoundary& segment);

}  // namespace norvane
