#include "core/rebuild/rebuild_engine.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <set>

#include "core/audio/wav_reader.h"
#include "core/common/file_output.h"
#include "core/common/output_guard.h"
#include "core/common/text.h"
#include "core/common/uuid.h"

namespace norvane {

namespace ResolveTimelineRebuildEngine {

SourceContext sourceContext(std::string_view sourceText) {
    return readSourceTimeline(sourceText);
}

ResolveRebuildAnalysis analyze(std::string_view sourceText,
                               const std::vector<ResolveRebuildAudioInput>& inputs,
                               const ResolveRebuildOptions& options) {
    return planRebuild(readSourceTimeline(sourceText), inputs, options).analysis;
}

ResolveRebuildBuildOutput build(std::string_view sourceText,
                                const std::vector<ResolveRebuildAudioInput>& inputs,
                                const StereoMixInfo& stereoMix,
                                const ResolveRebuildOptions& options) {
    return generateFCPXML(readSourceTimeline(sourceText), inputs, stereoMix, options);
}

}  // namespace ResolveTimelineRebuildEngine

std::string label(TimelineValidationSeverity severity) {
    switch (severity) {
        case TimelineValidationSeverity::error:
            return "Error";
        case TimelineValidationSeverity::warning:
            return "Warning";
        case TimelineValidationSeverity::info:
            return "Info";
    }
    return "Info";
}

TimelineValidationSeverity validationSeverity(ResolveRebuildIssueSeverity severity) {
    switch (severity) {
        case ResolveRebuildIssueSeverity::error:
            return TimelineValidationSeverity::error;
        case ResolveRebuildIssueSeverity::warning:
            return TimelineValidationSeverity::warning;
        case ResolveRebuildIssueSeverity::info:
            return TimelineValidationSeverity::info;
    }
    return TimelineValidationSeverity::info;
}

RebuildError RebuildError::invalidInputs(const std::string& message) {
    return RebuildError(Kind::invalidInputs, message);
}

RebuildError RebuildError::cancelled() {
    return RebuildError(Kind::cancelled, "Rebuild cancelled.");
}

bool RebuildValidationRun::hasErrors() const {
    return std::any_of(items.begin(), items.end(), [](const TimelineRebuildValidationItem& item) {
        return item.severity == TimelineValidationSeverity::error;
    });
}

DurationBoundary durationBoundary(double stereoSeconds,
                                  const std::vector<TimelineRebuildDetectedAudioInput>& rows,
                                  const FrameRateConfig& sequenceRate) {
    std::map<std::int64_t, double> longest;
    for (const auto& row : rows) {
        double& value = longest[row.eventOrder];
        value = std::max(value, row.durationSeconds);
    }
    DurationBoundary result;
    result.stereoSeconds = stereoSeconds;
    for (const auto& [order, seconds] : longest) {
        result.rebuiltSeconds += seconds;
    }
    result.deltaSeconds = stereoSeconds - result.rebuiltSeconds;
    double rate = sequenceRate.denominator != 0 ? static_cast<double>(sequenceRate.numerator) /
                                                      static_cast<double>(sequenceRate.denominator)
                                                : 0.0;
    result.toleranceSeconds = rate >= 1 ? std::max(1.0 / rate, 0.05) : 1.0;
    result.severity = std::fabs(result.deltaSeconds) > result.toleranceSeconds
                          ? TimelineValidationSeverity::warning
                          : TimelineValidationSeverity::info;
    char buffer[256];
    std::snprintf(buffer, sizeof buffer,
                  "Duration boundary: stereo %.3fs, rebuilt %.3fs, delta %+.3fs (tolerance %.3fs).",
                  result.stereoSeconds, result.rebuiltSeconds, result.deltaSeconds,
                  result.toleranceSeconds);
    result.message = buffer;
    return result;
}

std::vector<TimelineRebuildValidationItem> validationItems(
    const std::vector<TimelineRebuildDetectedAudioInput>& rows,
    const ResolveRebuildAnalysis& analysis, TimecodeSourcePriority priority) {
    std::vector<TimelineRebuildValidationItem> items;
    auto add = [&](TimelineValidationSeverity severity, std::string message) {
        items.push_back({makeUUID(), severity, std::move(message)});
    };
    auto count = [&](auto predicate) { return std::count_if(rows.begin(), rows.end(), predicate); };
    using Row = TimelineRebuildDetectedAudioInput;

    if (auto n = count([](const Row& r) {
            return r.eventTimecode == "UNRESOLVED" || !parseEventTimecode(r.eventTimecode);
        })) {
        add(TimelineValidationSeverity::error,
            std::to_string(n) + " synced clips have unparseable or missing event timecode.");
    }
    if (auto n = count([](const Row& r) { return r.eventOrder == kNoEventIndex; })) {
        add(TimelineValidationSeverity::error,
            std::to_string(n) +
                " synced clips are missing an incremental event index in filename.");
    }
    std::set<std::int64_t> known;
    for (const Row& r : rows) {
        if (r.eventOrder != kNoEventIndex) {
            known.insert(r.eventOrder);
        }
    }
    if (known.size() > 1) {
        // Walk the range without materialising it: only the first nine gaps matter.
        std::vector<std::string> missing;
        std::int64_t expected = *known.begin();
        for (std::int64_t index : known) {
            while (expected < index && missing.size() < 9) {
                missing.push_back(std::to_string(expected++));
            }
            if (missing.size() >= 9) {
                break;
            }
            expected = index + 1;
        }
        if (!missing.empty()) {
            add(TimelineValidationSeverity::error,
                "Broken incremental event sequence. Missing indices: " + joinFirstEight(missing) +
                    ".");
        }
    }
    std::map<std::pair<std::int64_t, std::string>, int> pairs;
    for (const Row& r : rows) {
        ++pairs[{r.eventOrder, r.trackKey}];
    }
    if (auto n = std::count_if(pairs.begin(), pairs.end(),
                               [](const auto& entry) { return entry.second > 1; })) {
        add(TimelineValidationSeverity::error,
            std::to_string(n) +
                " event+track duplicates found; each event/track pair must be unique.");
    }
    if (auto n = count([](const Row& r) { return r.usedFallback; })) {
        add(TimelineValidationSeverity::warning,
            std::to_string(n) + " clips used filename fallback for event timecode.");
    }
    if (auto n = count([](const Row& r) {
            return r.timecodeProvenance == TimelineTimecodeProvenance::filename;
        })) {
        add(TimelineValidationSeverity::warning,
            std::to_string(n) + " clips used filename-derived event timecode.");
    }
    if (auto n = count(
            [](const Row& r) { return r.trackProvenance == TimelineTrackProvenance::implicit; })) {
        add(TimelineValidationSeverity::warning,
            std::to_string(n) + " clips used implicit track mapping from sorted file order.");
    }
    if (analysis.videoLanes.empty()) {
        add(TimelineValidationSeverity::error,
            "No camera/video sources detected in the source timeline XML.");
    }
    if (priority == TimecodeSourcePriority::inputXMLOnly) {
        add(TimelineValidationSeverity::warning,
            "Input XML only mode provides no synced WAV event timecodes in this release; "
            "validation may fail unless filenames include parseable TC.");
    }
    // The analysis issues follow the file checks unchanged. The set passed
    // when the file checks found nothing and nothing blocks the build: a
    // pass is never shown beside an Error.
    const bool filesPassed = items.empty();
    for (const ResolveRebuildIssue& issue : analysis.issues) {
        add(validationSeverity(issue.severity), issue.message);
    }
    if (filesPassed && !analysis.hasErrors()) {
        add(TimelineValidationSeverity::info, "Validation passed with no issues.");
    }
    return items;
}

namespace {

void checkCancelled(const RebuildHooks& hooks) {
    if (hooks.isCancelled && hooks.isCancelled()) {
        throw RebuildError::cancelled();
    }
}

void report(const RebuildHooks& hooks, const std::string& phase, double percent) {
    if (hooks.progress) {
        hooks.progress(phase, percent);
    }
}

std::string readText(const std::filesystem::path& path) {
    ByteBuffer bytes = readWholeFile(path);
    return std::string(bytes.begin(), bytes.end());
}

ResolveRebuildOptions optionsFor(const RebuildChoices& choices) {
    ResolveRebuildOptions options;
    options.missingCameraBehavior = choices.missingCameraBehavior;
    options.videoFrameRateMode = choices.videoFrameRateMode;
    return options;
}

TimelineRebuildReport makeReport(const RebuildBuildRun& run, const RebuildPlan& plan,
                                 const std::filesystem::path& output) {
    const RebuildValidationRun& v = run.validation;
    TimelineRebuildReport report;
    report.outputXMLURL = output;
    report.sequenceDurationSeconds = plan.totalDuration.toSeconds();

    std::string cameras;
    for (const auto& lane : run.analysis.videoLanes) {
        cameras += (cameras.empty() ? "" : ", ") + lane.label;
    }
    std::string layout = cameras.empty() ? "No camera lanes" : "Camera lanes " + cameras;
    if (const MulticamCandidate* mc = v.context.firstMulticam()) {
        std::string lane;
        for (const auto& source : v.context.videoSources) {
            for (const auto& candidate : source.candidates) {
                if (lane.empty() && std::holds_alternative<MulticamCandidate>(candidate)) {
                    lane = source.label;
                }
            }
        }
        layout += " (multicam lane " + lane + ": " + mc->multicam.name + ")";
    }
    std::string keys;
    for (const auto& key : plan.trackKeys) {
        keys += (keys.empty() ? "" : ", ") + key;
    }
    layout += ", A1 stereo mix, A2+ synced tracks (" + std::to_string(plan.trackKeys.size()) +
              (keys.empty() ? "" : ": " + keys) + ")";
    report.trackLayoutSummary = layout;
    report.durationBoundarySummary = v.duration.message;

    auto errors = std::count_if(
        run.generated.issues.begin(), run.generated.issues.end(),
        [](const auto& i) { return i.severity == ResolveRebuildIssueSeverity::error; });
    report.fcpxmlValidationSummary =
        std::string(errors == 0 ? "Generated FCPXML valid (" : "Generated FCPXML invalid (") +
        std::to_string(errors) + " errors): " + run.generated.issues.front().message;

    std::map<TimelineTimecodeProvenance, int> sources;
    int implicit = 0;
    for (const auto& row : v.detectedAudioInputs) {
        ++sources[row.timecodeProvenance];
        implicit += row.trackProvenance == TimelineTrackProvenance::implicit ? 1 : 0;
    }
    report.provenanceSummary =
        "Event timecodes: iXML " + std::to_string(sources[TimelineTimecodeProvenance::ixml]) +
        ", BWF " + std::to_string(sources[TimelineTimecodeProvenance::bwf]) + ", Filename " +
        std::to_string(sources[TimelineTimecodeProvenance::filename]) + ", Unresolved " +
        std::to_string(sources[TimelineTimecodeProvenance::unresolved]) +
        "; tracks: " + std::to_string(v.detectedAudioInputs.size() - implicit) + " explicit, " +
        std::to_string(implicit) + " implicit.";

    std::map<std::int64_t, int> gaps;
    for (const auto& event : plan.events) {
        for (auto lane : event.cameraGapLanes) {
            ++gaps[lane];
        }
        for (auto lane : event.trackGapLanes) {
            ++gaps[lane];
        }
    }
    for (const auto& source : v.context.videoSources) {
        if (auto it = gaps.find(source.outputLane); it != gaps.end()) {
            report.gapsByTrack.push_back(source.label + ": " + std::to_string(it->second) +
                                         " gap(s)");
        }
    }
    for (std::size_t i = 0; i < plan.trackKeys.size(); ++i) {
        if (auto it = gaps.find(-2 - static_cast<std::int64_t>(i)); it != gaps.end()) {
            report.gapsByTrack.push_back(plan.trackKeys[i] + ": " + std::to_string(it->second) +
                                         " gap(s)");
        }
    }
    for (const auto& issue : run.analysis.issues) {
        report.notes.push_back(label(issue.severity) + ": " + issue.message);
    }
    return report;
}

}  // namespace

RebuildValidationRun validateRebuild(const RebuildInputs& inputs, const RebuildChoices& choices,
                                     const RebuildHooks& hooks) {
    if (auto problem = checkRebuildInputs(inputs)) {
        throw RebuildError::invalidInputs(*problem);
    }
    RebuildValidationRun run;
    run.sourceText = readText(inputs.sourceXML);
    run.context = readSourceTimeline(run.sourceText);
    run.timecodeRate = timecodeRate(run.context.frameRate, choices.videoFrameRateMode);
    checkCancelled(hooks);

    // The mix's header only: its audio is not needed to place it.
    WavReader mix(inputs.stereoMix);
    run.stereoMix.url = inputs.stereoMix;
    run.stereoMix.frameCount = mix.frameCount();
    run.stereoMix.sampleRate = mix.fmt().sampleRate;
    run.stereoMix.channels = mix.fmt().channelCount;

    auto rows = scanSyncedAudio(inputs.syncedFolder, choices.timecodeSourcePriority,
                                run.timecodeRate, run.context.frameRate, hooks.isCancelled);
    if (!rows) {
        throw RebuildError::cancelled();
    }
    run.detectedAudioInputs = std::move(*rows);
    for (const auto& row : run.detectedAudioInputs) {
        run.audioInputs.push_back(row.toAudioInput());
    }
    run.analysis = planRebuild(run.context, run.audioInputs, optionsFor(choices)).analysis;
    run.duration = durationBoundary(mix.duration(), run.detectedAudioInputs, run.context.frameRate);
    run.items =
        validationItems(run.detectedAudioInputs, run.analysis, choices.timecodeSourcePriority);
    run.items.push_back({makeUUID(), run.duration.severity, run.duration.message});
    return run;
}

std::vector<TimelineRebuildValidationItem> RebuildBuildRun::shownItems() const {
    std::vector<TimelineRebuildValidationItem> items = validation.items;
    if (outcome == RebuildBuildOutcome::blockedByGeneratedValidation) {
        // The document's Errors block the build: the pass no longer holds.
        std::erase_if(items, [](const TimelineRebuildValidationItem& item) {
            return item.message == "Validation passed with no issues.";
        });
        for (const ResolveRebuildIssue& issue : generated.issues) {
            items.push_back({makeUUID(), validationSeverity(issue.severity), issue.message});
        }
    }
    return items;
}

RebuildBuildRun buildRebuild(const RebuildInputs& inputs, const RebuildChoices& choices,
                             const RebuildHooks& hooks) {
    // Rebuilding into the source's own folder under the source's own name
    // must never replace the source timeline (or, through a link, the mix).
    const RunOutputGuard guard({inputs.sourceXML, inputs.stereoMix});
    if (const auto name = normalizedOutputFilename(inputs.outputFilename)) {
        guard.checkPlannedOutput(inputs.outputFolder / *name);
    }
    RebuildBuildRun run;
    report(hooks, "Parse inputs", 5);
    run.validation = validateRebuild(inputs, choices, hooks);
    run.analysis = run.validation.analysis;
    if (run.validation.hasErrors()) {
        run.outcome = RebuildBuildOutcome::blockedByValidation;
        run.statusMessage = "Build blocked by validation errors.";
        return run;
    }
    checkCancelled(hooks);

    report(hooks, "Match camera stacks", 40);
    ResolveRebuildBuildOutput output =
        generateFCPXML(run.validation.context, run.validation.audioInputs, run.validation.stereoMix,
                       optionsFor(choices));
    run.xml = std::move(output.xml);
    run.analysis = std::move(output.analysis);
    const RebuildPlan& plan = output.plan;
    run.stats.eventsProcessed = static_cast<std::int64_t>(plan.events.size());
    for (const auto& event : plan.events) {
        run.stats.cameraMatches += static_cast<std::int64_t>(event.cameras.size());
        run.stats.gapsInserted +=
            static_cast<std::int64_t>(event.cameraGapLanes.size() + event.trackGapLanes.size());
    }
    run.stats.fallbackTimecodesUsed = std::count_if(
        run.validation.detectedAudioInputs.begin(), run.validation.detectedAudioInputs.end(),
        [](const auto& row) { return row.usedFallback; });
    checkCancelled(hooks);

    report(hooks, "Validate FCPXML", 75);
    run.generated = validateGeneratedFCPXML(run.xml);
    if (run.generated.hasErrors()) {
        run.outcome = RebuildBuildOutcome::blockedByGeneratedValidation;
        run.statusMessage = "Build blocked by generated FCPXML validation errors.";
        return run;
    }
    checkCancelled(hooks);

    report(hooks, "Write output", 90);
    std::filesystem::path destination =
        inputs.outputFolder / *normalizedOutputFilename(inputs.outputFilename);
    writeFile(destination,
              ByteView(reinterpret_cast<const std::uint8_t*>(run.xml.data()), run.xml.size()),
              WriteMode::replaceAtomically);
    run.outcome = RebuildBuildOutcome::written;
    run.statusMessage = "Rebuilt timeline written to " + destination.string();
    run.report = makeReport(run, plan, destination);
    report(hooks, "Write output", 100);
    return run;
}

}  // namespace norvane
