#pragma once

// The timeline rebuild as one sequence of work that the command line and the
// desktop app share: read the source timeline, scan the synced folder,
// validate, generate, check the generated document, write it.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/common/error.h"
#include "core/rebuild/fcpxml_generator.h"
#include "core/rebuild/fcpxml_validator.h"
#include "core/rebuild/rebuild_analysis.h"
#include "core/rebuild/rebuild_inputs.h"
#include "core/rebuild/source_timeline.h"
#include "core/rebuild/synced_audio.h"
#include "core/settings/settings_enums.h"

namespace norvane {

// Stateless operations over a source timeline's text; each call parses again.
// Source problems throw SourceTimelineError.
namespace ResolveTimelineRebuildEngine {
SourceContext sourceContext(std::string_view sourceText);
ResolveRebuildAnalysis analyze(std::string_view sourceText,
                               const std::vector<ResolveRebuildAudioInput>& inputs,
                               const ResolveRebuildOptions& options);
ResolveRebuildBuildOutput build(std::string_view sourceText,
                                const std::vector<ResolveRebuildAudioInput>& inputs,
                                const StereoMixInfo& stereoMix,
                                const ResolveRebuildOptions& options);
}  // namespace ResolveTimelineRebuildEngine

enum class TimelineValidationSeverity { error, warning, info };
// "Error", "Warning", "Info".
std::string label(TimelineValidationSeverity severity);
TimelineValidationSeverity validationSeverity(ResolveRebuildIssueSeverity severity);

struct TimelineRebuildValidationItem {
    std::string id;  // UUID
    TimelineValidationSeverity severity = TimelineValidationSeverity::info;
    std::string message;
};

// The stereo mix's length against the rebuilt events' (each event counts
// its longest file).
struct DurationBoundary {
    double stereoSeconds = 0;
    double rebuiltSeconds = 0;
    double deltaSeconds = 0;  // stereo - rebuilt
    double toleranceSeconds = 0;
    TimelineValidationSeverity severity = TimelineValidationSeverity::info;
    // "Duration boundary: stereo 120.000s, rebuilt 120.040s, delta -0.040s (tolerance 0.050s)."
    std::string message;
};
DurationBoundary durationBoundary(double stereoSeconds,
                                  const std::vector<TimelineRebuildDetectedAudioInput>& rows,
                                  const FrameRateConfig& sequenceRate);

// The checks over the scanned files, then the analysis issues, then the Info
// "Validation passed with no issues." when the file checks found nothing and
// the analysis raised no Error (warnings and notes do not withhold it).
std::vector<TimelineRebuildValidationItem> validationItems(
    const std::vector<TimelineRebuildDetectedAudioInput>& rows,
    const ResolveRebuildAnalysis& analysis, TimecodeSourcePriority priority);

// The user's three options.
struct RebuildChoices {
    MissingCameraBehavior missingCameraBehavior = MissingCameraBehavior::insertGap;
    TimecodeSourcePriority timecodeSourcePriority = TimecodeSourcePriority::bwfIXMLThenFilename;
    VideoFrameRateMode videoFrameRateMode = VideoFrameRateMode::sameAsLTC;
};

struct RebuildHooks {
    // Polled before each file and between phases.
    std::function<bool()> isCancelled;
    // Phase name ("Parse inputs", "Match camera stacks", "Validate FCPXML",
    // "Write output") and percent 0..100.
    std::function<void(const std::string& phase, double percent)> progress;
};

// Failures of a run that are not the source timeline's own: failed input
// checks (their message), "Rebuild cancelled.".
class RebuildError : public Error {
  public:
    enum class Kind { invalidInputs, cancelled };
    static RebuildError invalidInputs(const std::string& message);
    static RebuildError cancelled();
    Kind kind() const { return kind_; }

  private:
    RebuildError(Kind kind, const std::string& message) : Error(message), kind_(kind) {}
    Kind kind_;
};

struct RebuildValidationRun {
    std::string sourceText;
    SourceContext context;
    FrameRateConfig timecodeRate;
    std::vector<TimelineRebuildDetectedAudioInput> detectedAudioInputs;
    std::vector<ResolveRebuildAudioInput> audioInputs;
    StereoMixInfo stereoMix;
    ResolveRebuildAnalysis analysis;
    DurationBoundary duration;
    std::vector<TimelineRebuildValidationItem> items;  // the duration item last

    bool hasErrors() const;
};

// Checks the inputs, reads the source timeline and the stereo mix, scans the
// synced folder and validates. Throws RebuildError, SourceTimelineError,
// SyncedAudioError, WAVError or filesystem_error.
RebuildValidationRun validateRebuild(const RebuildInputs& inputs, const RebuildChoices& choices,
                                     const RebuildHooks& hooks = {});

struct TimelineRebuildBuildStats {
    std::int64_t eventsProcessed = 0;
    std::int64_t cameraMatches = 0;
    std::int64_t gapsInserted = 0;
    std::int64_t fallbackTimecodesUsed = 0;
};

struct TimelineRebuildReport {
    std::filesystem::path outputXMLURL;
    double sequenceDurationSeconds = 0;
    std::string trackLayoutSummary;
    std::string durationBoundarySummary;
    std::string fcpxmlValidationSummary;
    std::string provenanceSummary;
    std::vector<std::string> gapsByTrack;
    std::vector<std::string> notes;
};

enum class RebuildBuildOutcome { written, blockedByValidation, blockedByGeneratedValidation };

struct RebuildBuildRun {
    RebuildValidationRun validation;
    RebuildBuildOutcome outcome = RebuildBuildOutcome::blockedByValidation;
    // "Build blocked by validation errors.", "Build blocked by generated FCPXML
    // validation errors." or "Rebuilt timeline written to <path>".
    std::string statusMessage;
    std::string xml;  // empty when validation blocked the build
    ResolveRebuildAnalysis analysis;
    ResolveGeneratedFCPXMLValidation generated;
    TimelineRebuildBuildStats stats;
    std::optional<TimelineRebuildReport> report;  // filled when written

    // What the user is shown as findings: the validation items, and when
    // the generated document failed its own check, that check's Errors too
    // (so the reason for "Build blocked by generated FCPXML validation
    // errors." is on screen).
    std::vector<TimelineRebuildValidationItem> shownItems() const;
};

// Validates, builds, checks the generated document and writes it to the
// output folder (replacing an existing file atomically). Nothing is written
// when an Error blocks. Throws like validateRebuild, and filesystem_error when
// the write fails.
RebuildBuildRun buildRebuild(const RebuildInputs& inputs, const RebuildChoices& choices,
                             const RebuildHooks& hooks = {});

}  // namespace norvane
