#include "app/viewmodels/timeline_rebuild_workflow.h"

#include <algorithm>
#include <exception>
#include <map>
#include <system_error>
#include <utility>
#include <variant>

#include "app/viewmodels/view_model_support.h"
#include "core/common/error.h"
#include "core/common/file_output.h"
#include "core/common/text.h"
#include "core/common/uuid.h"

namespace norvane {

namespace fs = std::filesystem;

namespace {

bool hasExtension(const QString& path, std::initializer_list<const char*> extensions) {
    const std::string extension = toLowerASCII(toPath(path).extension().string());
    return std::any_of(extensions.begin(), extensions.end(),
                       [&](const char* e) { return extension == e; });
}

bool isFolder(const QString& path) {
    std::error_code error;
    return !path.isEmpty() && fs::is_directory(toPath(path), error);
}

QString rememberedOr(const std::string& path) {
    return path.empty() ? TimelineRebuildWorkflow::unsetInputPath() : toQString(path);
}

QVariantMap statsMap(const TimelineRebuildBuildStats& stats) {
    return {{QStringLiteral("eventsProcessed"), static_cast<qint64>(stats.eventsProcessed)},
            {QStringLiteral("cameraMatches"), static_cast<qint64>(stats.cameraMatches)},
            {QStringLiteral("gapsInserted"), static_cast<qint64>(stats.gapsInserted)},
            {QStringLiteral("fallbackTimecodesUsed"),
             static_cast<qint64>(stats.fallbackTimecodesUsed)}};
}

QStringList textList(const std::vector<std::string>& texts) {
    QStringList list;
    for (const auto& text : texts) {
        list.append(toQString(text));
    }
    return list;
}

bool isNameSeparator(char c) {
    return c == ' ' || c == '_' || c == '-' || c == '.';
}

// The camera a lane holds, as its clips name it: a multicam angle's name, or
// what all the lane's clip names share up to a word boundary ("CamA" for
// "CamA_T01", "CamA_T02"); the first clip's name when they share nothing.
std::string cameraName(const VideoSource& source) {
    std::vector<std::string> names;
    for (const VideoCandidate& candidate : source.candidates) {
        if (const auto* multicam = std::get_if<MulticamCandidate>(&candidate)) {
            const auto& angles = multicam->multicam.angles;
            const auto angle = std::find_if(angles.begin(), angles.end(), [&](const auto& a) {
                return a.angleID == multicam->angleID;
            });
            names.push_back(angle != angles.end() && !angle->name.empty() ? angle->name
                                                                          : multicam->clipName);
        } else {
            names.push_back(std::get<CameraCandidate>(candidate).clipName);
        }
    }
    std::erase_if(names, [](const std::string& name) { return name.empty(); });
    if (names.empty()) {
        return {};
    }
    std::size_t same = names.front().size();
    for (const std::string& name : names) {
        std::size_t i = 0;
        while (i < same && i < name.size() && name[i] == names.front()[i]) {
            ++i;
        }
        same = i;
    }
    // A prefix that ends inside a word of some name stops at that word's start.
    const bool atBoundary = std::all_of(names.begin(), names.end(), [&](const std::string& name) {
        return same == name.size() || isNameSeparator(name[same]) ||
               (same > 0 && isNameSeparator(name[same - 1]));
    });
    std::string prefix = names.front().substr(0, same);
    while (!atBoundary && !prefix.empty() && !isNameSeparator(prefix.back())) {
        prefix.pop_back();
    }
    while (!prefix.empty() && isNameSeparator(prefix.back())) {
        prefix.pop_back();
    }
    return prefix.size() >= 2 ? prefix : names.front();
}

QVariantMap reportMap(const TimelineRebuildReport& report) {
    return {{QStringLiteral("outputXMLURL"), toQString(report.outputXMLURL)},
            {QStringLiteral("sequenceDurationSeconds"), report.sequenceDurationSeconds},
            {QStringLiteral("trackLayoutSummary"), toQString(report.trackLayoutSummary)},
            {QStringLiteral("durationBoundarySummary"), toQString(report.durationBoundarySummary)},
            {QStringLiteral("fcpxmlValidationSummary"), toQString(report.fcpxmlValidationSummary)},
            {QStringLiteral("provenanceSummary"), toQString(report.provenanceSummary)},
            {QStringLiteral("gapsByTrack"), textList(report.gapsByTrack)},
            {QStringLiteral("notes"), textList(report.notes)}};
}

bool isCancellation(const std::exception& error) {
    const auto* rebuild = dynamic_cast<const RebuildError*>(&error);
    return rebuild != nullptr && rebuild->kind() == RebuildError::Kind::cancelled;
}

}  // namespace

QString TimelineRebuildWorkflow::unsetInputPath() {
    return QString::fromLatin1(kUnsetTimelineInputPath.data(),
                               static_cast<qsizetype>(kUnsetTimelineInputPath.size()));
}

TimelineRebuildWorkflow::TimelineRebuildWorkflow(AppSettingsStore& settings, QObject* parent)
    : QObject(parent), settings_(settings), timelineRebuildTask_(this) {
    reset();
    // The remembered locations, where the user left them last time.
    sourceXMLURL_ = rememberedOr(settings_.timelineRebuildRecentSourceXMLPath());
    stereoMixURL_ = rememberedOr(settings_.timelineRebuildRecentStereoMixPath());
    syncedAudioFolderURL_ = rememberedOr(settings_.timelineRebuildRecentSyncedFolderPath());
    outputFolderURL_ = rememberedOr(settings_.timelineRebuildRecentOutputFolderPath());
    refreshReadiness();
}

TimelineRebuildWorkflow::~TimelineRebuildWorkflow() = default;

// MARK: - Inputs and options

void TimelineRebuildWorkflow::setSourceXMLURL(const QString& path) {
    assign(sourceXMLURL_, path, &TimelineRebuildWorkflow::sourceXMLURLChanged);
    settings_.setTimelineRebuildRecentSourceXMLPath(toStdString(path));
    refreshReadiness();
}

void TimelineRebuildWorkflow::setStereoMixURL(const QString& path) {
    assign(stereoMixURL_, path, &TimelineRebuildWorkflow::stereoMixURLChanged);
    settings_.setTimelineRebuildRecentStereoMixPath(toStdString(path));
    refreshReadiness();
}

void TimelineRebuildWorkflow::setSyncedAudioFolderURL(const QString& path) {
    assign(syncedAudioFolderURL_, path, &TimelineRebuildWorkflow::syncedAudioFolderURLChanged);
    settings_.setTimelineRebuildRecentSyncedFolderPath(toStdString(path));
    refreshReadiness();
}

void TimelineRebuildWorkflow::setOutputFolderURL(const QString& path) {
    assign(outputFolderURL_, path, &TimelineRebuildWorkflow::outputFolderURLChanged);
    settings_.setTimelineRebuildRecentOutputFolderPath(toStdString(path));
    refreshReadiness();
}

void TimelineRebuildWorkflow::setOutputFilename(const QString& name) {
    assign(outputFilename_, name, &TimelineRebuildWorkflow::outputFilenameChanged);
    refreshReadiness();
}

void TimelineRebuildWorkflow::setMissingCameraBehavior(const QString& text) {
    if (missingCameraBehaviorFromLabel(toStdString(text))) {
        assign(missingCameraBehavior_, text,
               &TimelineRebuildWorkflow::missingCameraBehaviorChanged);
    }
}

void TimelineRebuildWorkflow::setTimecodeSourcePriority(const QString& text) {
    if (timecodeSourcePriorityFromLabel(toStdString(text))) {
        assign(timecodeSourcePriority_, text,
               &TimelineRebuildWorkflow::timecodeSourcePriorityChanged);
    }
}

void TimelineRebuildWorkflow::setVideoFrameRateMode(const QString& text) {
    if (videoFrameRateModeFromLabel(toStdString(text))) {
        assign(videoFrameRateMode_, text, &TimelineRebuildWorkflow::videoFrameRateModeChanged);
    }
}

RebuildInputs TimelineRebuildWorkflow::inputs() const {
    RebuildInputs inputs;
    inputs.sourceXML = toPath(sourceXMLURL_);
    inputs.stereoMix = toPath(stereoMixURL_);
    inputs.syncedFolder = toPath(syncedAudioFolderURL_);
    inputs.outputFolder = toPath(outputFolderURL_);
    inputs.outputFilename = toStdString(outputFilename_);
    return inputs;
}

RebuildChoices TimelineRebuildWorkflow::choices() const {
    RebuildChoices choices;
    choices.missingCameraBehavior =
        missingCameraBehaviorFromLabel(toStdString(missingCameraBehavior_))
            .value_or(MissingCameraBehavior::insertGap);
    choices.timecodeSourcePriority =
        timecodeSourcePriorityFromLabel(toStdString(timecodeSourcePriority_))
            .value_or(TimecodeSourcePriority::bwfIXMLThenFilename);
    choices.videoFrameRateMode = videoFrameRateModeFromLabel(toStdString(videoFrameRateMode_))
                                     .value_or(VideoFrameRateMode::sameAsLTC);
    return choices;
}

QString TimelineRebuildWorkflow::checkInputs() const {
    const auto failure = checkRebuildInputs(inputs());
    return failure ? toQString(*failure) : QString();
}

void TimelineRebuildWorkflow::refreshReadiness() {
    const bool outputReady = isFolder(outputFolderURL_) &&
                             normalizedOutputFilename(toStdString(outputFilename_)).has_value();
    const auto item = [](const char* id, const char* title, bool ready) {
        return QVariantMap{{QStringLiteral("id"), QString::fromLatin1(id)},
                           {QStringLiteral("title"), QString::fromLatin1(title)},
                           {QStringLiteral("isReady"), ready}};
    };
    const QVariantList items{
        item("sourceXML", "Source timeline XML", hasExtension(sourceXMLURL_, {".xml", ".fcpxml"})),
        item("stereoMix", "Stereo mix WAV", hasExtension(stereoMixURL_, {".wav"})),
        item("syncedFolder", "Synced audio folder", isFolder(syncedAudioFolderURL_)),
        item("output", "Output folder + filename", outputReady)};
    assign(readinessItems_, items, &TimelineRebuildWorkflow::readinessItemsChanged);
}

// MARK: - Reset and clear

void TimelineRebuildWorkflow::clearResults() {
    assign(detectedAudioInputs_, QVariantList{},
           &TimelineRebuildWorkflow::detectedAudioInputsChanged);
    assign(detectedEvents_, QVariantList{}, &TimelineRebuildWorkflow::detectedEventsChanged);
    assign(videoTracks_, QVariantList{}, &TimelineRebuildWorkflow::videoTracksChanged);
    assign(previewRows_, QVariantList{}, &TimelineRebuildWorkflow::previewRowsChanged);
    assign(validationItems_, QVariantList{}, &TimelineRebuildWorkflow::validationItemsChanged);
    assign(buildStats_, statsMap({}), &TimelineRebuildWorkflow::buildStatsChanged);
    assign(report_, QVariantMap{}, &TimelineRebuildWorkflow::reportChanged);
    assign(progressPhase_, QString{}, &TimelineRebuildWorkflow::progressPhaseChanged);
    assign(progressPercent_, 0.0, &TimelineRebuildWorkflow::progressPercentChanged);
    lastAnalysis_.reset();
    sourceXMLText_.clear();
}

void TimelineRebuildWorkflow::reset() {
    timelineRebuildTask_.discard();
    setBusy(false);
    assign(isBuilding_, false, &TimelineRebuildWorkflow::isBuildingChanged);
    setStep("inputs");
    assign(sourceXMLURL_, unsetInputPath(), &TimelineRebuildWorkflow::sourceXMLURLChanged);
    assign(stereoMixURL_, unsetInputPath(), &TimelineRebuildWorkflow::stereoMixURLChanged);
    assign(syncedAudioFolderURL_, unsetInputPath(),
           &TimelineRebuildWorkflow::syncedAudioFolderURLChanged);
    assign(outputFolderURL_, unsetInputPath(), &TimelineRebuildWorkflow::outputFolderURLChanged);
    assign(outputFilename_, QString::fromStdString(RebuildInputs{}.outputFilename),
           &TimelineRebuildWorkflow::outputFilenameChanged);
    assign(missingCameraBehavior_,
           toQString(label(settings_.timelineRebuildDefaultMissingCameraBehavior())),
           &TimelineRebuildWorkflow::missingCameraBehaviorChanged);
    assign(timecodeSourcePriority_,
           toQString(label(settings_.timelineRebuildDefaultTimecodeSourcePriority())),
           &TimelineRebuildWorkflow::timecodeSourcePriorityChanged);
    assign(videoFrameRateMode_,
           toQString(label(settings_.timelineRebuildDefaultVideoFrameRateMode())),
           &TimelineRebuildWorkflow::videoFrameRateModeChanged);
    clearResults();
    setStatus(QString::fromLatin1(kInitialStatus));
    refreshReadiness();
}

void TimelineRebuildWorkflow::clear() {
    timelineRebuildTask_.discard();
    setBusy(false);
    assign(isBuilding_, false, &TimelineRebuildWorkflow::isBuildingChanged);
    assign(sourceXMLURL_, unsetInputPath(), &TimelineRebuildWorkflow::sourceXMLURLChanged);
    assign(stereoMixURL_, unsetInputPath(), &TimelineRebuildWorkflow::stereoMixURLChanged);
    assign(syncedAudioFolderURL_, unsetInputPath(),
           &TimelineRebuildWorkflow::syncedAudioFolderURLChanged);
    assign(outputFolderURL_, unsetInputPath(), &TimelineRebuildWorkflow::outputFolderURLChanged);
    clearResults();
    setStep("inputs");
    setStatus(QStringLiteral("Inputs cleared."));
    refreshReadiness();
}

void TimelineRebuildWorkflow::cancel() {
    timelineRebuildTask_.cancel();
}

// MARK: - Steps

void TimelineRebuildWorkflow::continueToMapping() {
    if (checkRebuildInputs(inputs())) {
        setStatus(QStringLiteral("Complete required inputs first."));
        return;
    }
    setStep("mapping");
    setStatus(QStringLiteral("Inputs ready. Review mapping."));
}

void TimelineRebuildWorkflow::publishScan(
    const std::vector<TimelineRebuildDetectedAudioInput>& rows, const SourceContext& context,
    const std::optional<ResolveRebuildAnalysis>& analysis) {
    QVariantList inputs;
    // Events in ascending order, each with its files in row order.
    std::map<std::int64_t, std::vector<const TimelineRebuildDetectedAudioInput*>> events;
    for (const auto& row : rows) {
        inputs.append(QVariantMap{
            {QStringLiteral("id"), toQString(row.id)},
            {QStringLiteral("name"), toQString(row.name)},
            {QStringLiteral("sourceURL"), toQString(row.sourceURL)},
            // A name without an event index has no order to show.
            {QStringLiteral("eventOrder"), row.eventOrder == kNoEventIndex
                                               ? QVariant()
                                               : QVariant(static_cast<qint64>(row.eventOrder))},
            {QStringLiteral("eventTimecode"), toQString(row.eventTimecode)},
            {QStringLiteral("durationSeconds"), row.durationSeconds},
            {QStringLiteral("frameCount"), static_cast<qint64>(row.frameCount)},
            {QStringLiteral("sampleRate"), static_cast<qint64>(row.sampleRate)},
            {QStringLiteral("channels"), static_cast<qint64>(row.channels)},
            {QStringLiteral("trackKey"), toQString(row.trackKey)},
            {QStringLiteral("timecodeProvenance"), toQString(label(row.timecodeProvenance))},
            {QStringLiteral("trackProvenance"), toQString(label(row.trackProvenance))},
            {QStringLiteral("namingRule"), toQString(row.namingRule)},
            {QStringLiteral("usedFallback"), row.usedFallback}});
        events[row.eventOrder].push_back(&row);  // no index: the "No event index" group
    }
    QVariantList eventRows;
    QVariantList preview;
    for (const auto& [order, files] : events) {
        double longest = 0;
        bool fallback = false;
        for (const auto* file : files) {
            longest = std::max(longest, file->durationSeconds);
            fallback = fallback || file->usedFallback;
        }
        const QString name = order == kNoEventIndex
                                 ? QStringLiteral("No event index")
                                 : QStringLiteral("Event ") + QString::number(order);
        // The timecode the analysis placed the event by, and the file it came
        // from (not always the event's first file); without an analysis the
        // first file whose timecode reads.
        const ResolveRebuildEventAnalysis* placed = nullptr;
        if (analysis) {
            const auto event =
                std::find_if(analysis->events.begin(), analysis->events.end(),
                             [order = order](const auto& e) { return e.eventOrder == order; });
            placed = event != analysis->events.end() ? &*event : nullptr;
        }
        const TimelineRebuildDetectedAudioInput* timed = files.front();
        for (const auto* file : files) {
            if (parseEventTimecode(file->eventTimecode)) {
                timed = file;
                break;
            }
        }
        const QString timecode =
            placed != nullptr ? toQString(placed->timecode) : toQString(timed->eventTimecode);
        const QString timecodeSource = placed != nullptr ? toQString(placed->sourceFile)
                                                         : toQString(timed->sourceURL.filename());
        eventRows.append(
            QVariantMap{{QStringLiteral("id"), toQString(makeUUID())},
                        {QStringLiteral("name"), name},
                        {QStringLiteral("order"), static_cast<qint64>(order)},
                        {QStringLiteral("timecode"), timecode},
                        {QStringLiteral("timecodeSource"), timecodeSource},
                        {QStringLiteral("durationSeconds"), longest},
                        {QStringLiteral("audioTrackCount"), static_cast<qint64>(files.size())},
                        {QStringLiteral("usedFallback"), fallback}});
        // Per lane, where the camera clip stands inside the event (seconds
        // from the event's start), for a to-scale view.
        QVariantMap matches;
        QVariantList lanes;
        if (placed != nullptr) {
            for (const auto& match : placed->cameraMatches) {
                matches.insert(toQString(match.laneLabel), match.hasMatch);
                lanes.append(QVariantMap{
                    {QStringLiteral("label"), toQString(match.laneLabel)},
                    {QStringLiteral("hasMatch"), match.hasMatch},
                    {QStringLiteral("clipName"), toQString(match.clipName.value_or(""))},
                    {QStringLiteral("leadSeconds"), match.leadSeconds},
                    {QStringLiteral("coveredSeconds"), match.coveredSeconds}});
            }
        }
        preview.append(QVariantMap{
            {QStringLiteral("id"), toQString(makeUUID())},
            {QStringLiteral("eventTimecode"), timecode},
            {QStringLiteral("audioClipName"), toQString(files.front()->name)},
            {QStringLiteral("audioClipCount"), static_cast<qint64>(files.size())},
            {QStringLiteral("trackMatches"), matches},
            {QStringLiteral("offsetSeconds"), placed != nullptr ? placed->offsetSeconds : 0.0},
            {QStringLiteral("durationSeconds"),
             placed != nullptr ? placed->durationSeconds : longest},
            {QStringLiteral("lanes"), lanes}});
    }
    QVariantList tracks;
    for (const auto& source : context.videoSources) {
        tracks.append(QVariantMap{
            {QStringLiteral("id"), toQString(source.label)},
            {QStringLiteral("name"), toQString(source.label)},
            {QStringLiteral("camera"), toQString(cameraName(source))},
            {QStringLiteral("candidateClipCount"), static_cast<qint64>(source.candidates.size())}});
    }
    assign(detectedAudioInputs_, inputs, &TimelineRebuildWorkflow::detectedAudioInputsChanged);
    assign(detectedEvents_, eventRows, &TimelineRebuildWorkflow::detectedEventsChanged);
    assign(videoTracks_, tracks, &TimelineRebuildWorkflow::videoTracksChanged);
    assign(previewRows_, preview, &TimelineRebuildWorkflow::previewRowsChanged);
}

void TimelineRebuildWorkflow::publishItems(
    const std::vector<TimelineRebuildValidationItem>& items) {
    QVariantList list;
    for (const auto& item : items) {
        list.append(QVariantMap{{QStringLiteral("id"), toQString(item.id)},
                                {QStringLiteral("severity"), toQString(label(item.severity))},
                                {QStringLiteral("message"), toQString(item.message)}});
    }
    assign(validationItems_, list, &TimelineRebuildWorkflow::validationItemsChanged);
}

void TimelineRebuildWorkflow::autoScan() {
    setStatus(QStringLiteral("Auto-scanning..."));
    setBusy(true);
    // A scan supersedes a build still running: its posts are dropped, so it
    // can no longer clear the flag itself.
    assign(isBuilding_, false, &TimelineRebuildWorkflow::isBuildingChanged);
    const fs::path source = toPath(sourceXMLURL_);
    const fs::path folder = toPath(syncedAudioFolderURL_);
    const RebuildChoices options = choices();
    timelineRebuildTask_.start(
        [this, source, folder, options](const BackgroundTask::Context& task) {
            const auto isCancelled = [&task] { return task.stopRequested(); };
            try {
                const ByteBuffer bytes = readWholeFile(source);
                std::string text(bytes.begin(), bytes.end());
                SourceContext context = ResolveTimelineRebuildEngine::sourceContext(text);
                const FrameRateConfig tcRate =
                    timecodeRate(context.frameRate, options.videoFrameRateMode);
                auto rows = scanSyncedAudio(folder, options.timecodeSourcePriority, tcRate,
                                            context.frameRate, isCancelled);
                if (!rows) {
                    task.post([this] {
                        setBusy(false);
                        setStatus(QStringLiteral("Auto-scan cancelled."));
                    });
                    return;
                }
                // The lanes each event would find, for the preview; the scan stands without it.
                std::optional<ResolveRebuildAnalysis> analysis;
                try {
                    std::vector<ResolveRebuildAudioInput> audio;
                    for (const auto& row : *rows) {
                        audio.push_back(row.toAudioInput());
                    }
                    ResolveRebuildOptions rebuildOptions;
                    rebuildOptions.missingCameraBehavior = options.missingCameraBehavior;
                    rebuildOptions.videoFrameRateMode = options.videoFrameRateMode;
                    analysis = ResolveTimelineRebuildEngine::analyze(text, audio, rebuildOptions);
                } catch (const std::exception&) {
                    analysis.reset();
                }
                task.post([this, rows = std::move(*rows), context = std::move(context),
                           analysis = std::move(analysis), text = std::move(text)] {
                    sourceXMLText_ = text;
                    publishScan(rows, context, analysis);
                    setBusy(false);
                    setStatus(QStringLiteral("Auto-scan complete (") +
                              QString::number(detectedEvents_.size()) + QStringLiteral(" events)"));
                });
            } catch (const std::exception& error) {
                const bool cancelled = isCancelled() || isCancellation(error);
                const QString description = toQString(describeError(error));
                task.post([this, cancelled, description] {
                    setBusy(false);
                    setStatus(cancelled ? QStringLiteral("Auto-scan cancelled.")
                                        : QStringLiteral("Auto-scan failed: ") + description);
                });
            }
        });
}

void TimelineRebuildWorkflow::validate() {
    setBusy(true);
    assign(isBuilding_, false, &TimelineRebuildWorkflow::isBuildingChanged);
    const RebuildInputs current = inputs();
    const RebuildChoices options = choices();
    timelineRebuildTask_.start([this, current, options](const BackgroundTask::Context& task) {
        RebuildHooks hooks;
        hooks.isCancelled = [&task] { return task.stopRequested(); };
        try {
            RebuildValidationRun run = validateRebuild(current, options, hooks);
            task.post([this, run = std::move(run)] {
                sourceXMLText_ = run.sourceText;
                publishScan(run.detectedAudioInputs, run.context, run.analysis);
                publishItems(run.items);
                lastAnalysis_ = run.analysis;
                setStep("validate");
                setBusy(false);
                setStatus(QStringLiteral("Validation complete."));
            });
        } catch (const std::exception& error) {
            const bool cancelled = task.stopRequested() || isCancellation(error);
            const QString description = toQString(describeError(error));
            task.post([this, cancelled, description] {
                setBusy(false);
                if (cancelled) {
                    setStatus(QStringLiteral("Validation cancelled."));
                } else if (description.isEmpty()) {
                    setStatus(QStringLiteral("Validation failed."));
                } else {
                    setStatus(QStringLiteral("Validation failed: ") + description);
                }
            });
        }
    });
}

void TimelineRebuildWorkflow::build() {
    setBusy(true);
    assign(isBuilding_, true, &TimelineRebuildWorkflow::isBuildingChanged);
    setStep("build");
    assign(progressPhase_, QStringLiteral("Parse inputs"),
           &TimelineRebuildWorkflow::progressPhaseChanged);
    assign(progressPercent_, 0.0, &TimelineRebuildWorkflow::progressPercentChanged);
    const RebuildInputs current = inputs();
    const RebuildChoices options = choices();
    timelineRebuildTask_.start([this, current, options](const BackgroundTask::Context& task) {
        RebuildHooks hooks;
        hooks.isCancelled = [&task] { return task.stopRequested(); };
        hooks.progress = [this, &task](const std::string& phase, double percent) {
            task.post([this, phase = toQString(phase), percent] {
                assign(progressPhase_, phase, &TimelineRebuildWorkflow::progressPhaseChanged);
                assign(progressPercent_, percent / 100.0,
                       &TimelineRebuildWorkflow::progressPercentChanged);
            });
        };
        try {
            RebuildBuildRun run = buildRebuild(current, options, hooks);
            task.post([this, run = std::move(run)] {
                sourceXMLText_ = run.validation.sourceText;
                publishItems(run.shownItems());
                lastAnalysis_ = run.analysis;
                assign(buildStats_, statsMap(run.stats),
                       &TimelineRebuildWorkflow::buildStatsChanged);
                assign(isBuilding_, false, &TimelineRebuildWorkflow::isBuildingChanged);
                setBusy(false);
                if (run.outcome == RebuildBuildOutcome::written && run.report) {
                    assign(report_, reportMap(*run.report),
                           &TimelineRebuildWorkflow::reportChanged);
                    assign(progressPercent_, 1.0, &TimelineRebuildWorkflow::progressPercentChanged);
                    setStep("report");
                } else {
                    setStep("validate");
                }
                setStatus(toQString(run.statusMessage));
            });
        } catch (const std::exception& error) {
            const bool cancelled = task.stopRequested() || isCancellation(error);
            const QString description = toQString(describeError(error));
            task.post([this, cancelled, description] {
                assign(isBuilding_, false, &TimelineRebuildWorkflow::isBuildingChanged);
                setBusy(false);
                setStep("validate");
                setStatus(cancelled ? QStringLiteral("Build cancelled.")
                                    : QStringLiteral("Build failed: ") + description);
            });
        }
    });
}

}  // namespace norvane
