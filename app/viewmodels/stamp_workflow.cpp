#include "app/viewmodels/stamp_workflow.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <set>
#include <utility>

#include "app/viewmodels/view_model_support.h"
#include "core/audio/bwf_reader.h"
#include "core/audio/wav_file.h"
#include "core/audio/wav_reader.h"
#include "core/common/error.h"
#include "core/common/text.h"
#include "core/common/uuid.h"
#include "core/settings/output_folder.h"
#include "core/stamp/grouping.h"
#include "core/stamp/ltc_health.h"
#include "core/timecode/timecode.h"

namespace norvane {

namespace fs = std::filesystem;

namespace {

constexpr double kLowConfidenceThreshold = 0.55;

QString formatText(const WAVFmtChunk& fmt) {
    const QString encoding = fmt.audioFormat == 3 ? QStringLiteral("float") : QStringLiteral("PCM");
    return QString::number(fmt.sampleRate) + QStringLiteral(" Hz, ") +
           QString::number(fmt.channelCount) + QStringLiteral(" ch, ") +
           QString::number(fmt.bitsPerSample) + QStringLiteral("-bit ") + encoding;
}

// The timecode a file already carries: its iXML TIMECODE, else its bext time
// reference at `rate` (25 fps when the rate is left to detection).
QString existingTimecode(const WAVFile& file, FrameRatePreset preset) {
    if (const auto ixml = BWFReader::ixmlText(file)) {
        const auto open = ixml->find("<TIMECODE>");
        const auto close = ixml->find("</TIMECODE>");
        if (open != std::string::npos && close != std::string::npos && close > open) {
            return toQString(trim(ixml->substr(open + 10, close - open - 10)));
        }
    }
    if (const auto info = BWFReader::info(file)) {
        const FrameRateConfig rate = frameRateConfig(preset).value_or(FrameRateConfig{});
        if (const auto text =
                BWFReader::timecode(info->timeReferenceSamples, info->sampleRate, rate.numerator,
                                    rate.denominator, rate.dropFrame)) {
            return toQString(*text);
        }
    }
    return {};
}

// What the decoder based a timecode on, for the file table's tooltips.
QString evidenceText(std::int64_t runFrames, std::int64_t bitErrors, double confidence,
                     const std::string& rateEvidence) {
    QString text = QStringLiteral("run of ") + QString::number(runFrames) +
                   QStringLiteral(" frames, ") + QString::number(bitErrors) +
                   QStringLiteral(" bit errors, confidence ") +
                   QString::number(std::lround(confidence * 100)) + QStringLiteral(" %");
    if (!rateEvidence.empty()) {
        text += QStringLiteral("; rate: ") + toQString(rateEvidence);
    }
    return text;
}

bool looksLikeLTC(const fs::path& path) {
    return toLowerASCII(path.filename().string()).find("ltc") != std::string::npos;
}

bool isStemSeparator(char c) {
    return c == ' ' || c == '_' || c == '-' || c == '.';
}

QString formatSeconds(double seconds) {
    return QString::number(seconds, 'f', 3);
}

QString segmentLine(const SegmentBoundary& segment, const CutDetection::CutAnalysis& analysis) {
    char index[32];
    std::snprintf(index, sizeof index, "%03lld", static_cast<long long>(segment.segmentIndex));
    const double rate = analysis.sampleRate > 0 ? static_cast<double>(analysis.sampleRate) : 1.0;
    QString line = QStringLiteral("Segment ") + QString::fromLatin1(index) + QStringLiteral(" | ") +
                   formatSeconds(static_cast<double>(segment.startSample) / rate) +
                   QStringLiteral(" s - ") +
                   formatSeconds(static_cast<double>(segment.endSample) / rate) +
                   QStringLiteral(" s | samples ") + QString::number(segment.startSample) +
                   QStringLiteral("-") + QString::number(segment.endSample);
    if (segment.startFrameCount) {
        const FrameRateConfig counting = segment.rate.value_or(analysis.rate);
        line += QStringLiteral(" | TC ") +
                toQString(TimecodeMath::timecodeFromFrameCount(*segment.startFrameCount, counting)
                              .description()) +
                QStringLiteral(" @ ") + toQString(counting.label);
    }
    return line;
}

}  // namespace

StampWorkflow::StampWorkflow(const AppSettingsStore& settings, CancellationToken& token,
                             QObject* parent)
    : QObject(parent),
      settings_(settings),
      token_(token),
      frameRatePreset_(toQString(label(settings.defaultFrameRatePreset()))),
      mode_(toQString(label(ProcessingMode::single))),
      includeLTCOutputs_(settings.defaultIncludeLTCOutputs()),
      groupingMethod_(toQString(label(settings.defaultGroupingMethod()))),
      groupingDelimiter_(toQString(GroupingConfig{}.delimiter)),
      groupingTokenIndex_(static_cast<int>(GroupingConfig{}.tokenIndex)),
      designatedLTCChannel_(settings.defaultGroupedLTCChannel()),
      cutMinSegmentFrames_(static_cast<int>(CutDetectConfig{}.minSegmentFrames)),
      cutDiscontinuityThreshold_(static_cast<int>(CutDetectConfig{}.discontinuityFrameThreshold)),
      outputFolder_(toQString(settings.defaultOutputFolderPath())),
      reportText_(QString::fromLatin1(kInitialReportText)),
      logLines_{QString::fromLatin1(kInitialLogLine)},
      analyzeTask_(this),
      processTask_(this),
      probeTask_(this),
      healthTask_(this),
      ingestTask_(this),
      groupDecodeTask_(this) {
    defaultOutputFolder_ = outputFolder_;
}

StampWorkflow::~StampWorkflow() {
    token_.cancel();
}

void StampWorkflow::appendLog(const QString& message) {
    logLines_.append(timestampedLogLine(message));
    emit logLinesChanged();
}

// MARK: - Choices

void StampWorkflow::setFrameRatePreset(const QString& text) {
    if (frameRatePresetFromLabel(toStdString(text))) {
        assign(frameRatePreset_, text, &StampWorkflow::frameRatePresetChanged);
    }
}

void StampWorkflow::setMode(const QString& text) {
    if (processingModeFromLabel(toStdString(text)) && text != mode_) {
        assign(mode_, text, &StampWorkflow::modeChanged);
        refreshGroupingPreview();
        refreshLTCHealth();
    }
}

void StampWorkflow::setIncludeLTCOutputs(bool include) {
    assign(includeLTCOutputs_, include, &StampWorkflow::includeLTCOutputsChanged);
}

void StampWorkflow::setGroupingMethod(const QString& text) {
    if (groupingMethodFromLabel(toStdString(text)) && text != groupingMethod_) {
        assign(groupingMethod_, text, &StampWorkflow::groupingMethodChanged);
        refreshGroupingPreview();
    }
}

void StampWorkflow::setGroupingDelimiter(const QString& delimiter) {
    if (delimiter != groupingDelimiter_) {
        assign(groupingDelimiter_, delimiter, &StampWorkflow::groupingDelimiterChanged);
        refreshGroupingPreview();
    }
}

void StampWorkflow::setGroupingTokenIndex(int index) {
    index = std::max(index, 0);
    if (index != groupingTokenIndex_) {
        assign(groupingTokenIndex_, index, &StampWorkflow::groupingTokenIndexChanged);
        refreshGroupingPreview();
    }
}

void StampWorkflow::setGroupingRegex(const QString& pattern) {
    if (pattern != groupingRegex_) {
        assign(groupingRegex_, pattern, &StampWorkflow::groupingRegexChanged);
        refreshGroupingPreview();
    }
}

void StampWorkflow::setDesignatedLTCChannel(int channel) {
    assign(designatedLTCChannel_, std::max(channel, 1),
           &StampWorkflow::designatedLTCChannelChanged);
}

void StampWorkflow::setLTCChannelChoice(int channel) {
    if (channel < 0 || channel > selectedLTCChannelCount_) {
        channel = 0;
    }
    if (channel != ltcChannelChoice_) {
        assign(ltcChannelChoice_, channel, &StampWorkflow::ltcChannelChoiceChanged);
        refreshLTCHealth();
    }
}

void StampWorkflow::refreshSelectedLTCChannels() {
    int channels = 0;
    for (const auto& descriptor : descriptors_) {
        if (!selectedLTCFile_.isEmpty() && toQString(descriptor.url) == selectedLTCFile_) {
            channels = static_cast<int>(descriptor.channels);
        }
    }
    assign(selectedLTCChannelCount_, channels, &StampWorkflow::selectedLTCChannelCountChanged);
    if (ltcChannelChoice_ > channels) {
        assign(ltcChannelChoice_, 0, &StampWorkflow::ltcChannelChoiceChanged);
    }
}

void StampWorkflow::setCutMinSegmentFrames(int frames) {
    assign(cutMinSegmentFrames_, std::max(frames, 1), &StampWorkflow::cutMinSegmentFramesChanged);
}

void StampWorkflow::setCutDiscontinuityThreshold(int frames) {
    assign(cutDiscontinuityThreshold_, std::max(frames, 1),
           &StampWorkflow::cutDiscontinuityThresholdChanged);
}

void StampWorkflow::setOutputFolder(const QString& path) {
    if (path != outputFolder_) {
        outputFolderChosen_ = true;
    }
    assign(outputFolder_, path, &StampWorkflow::outputFolderChanged);
}

bool StampWorkflow::outputFolderExists() const {
    std::error_code error;
    return !outputFolder_.trimmed().isEmpty() && fs::is_directory(toPath(outputFolder_), error);
}

bool StampWorkflow::createOutputFolder() {
    std::error_code error;
    const fs::path folder = toPath(outputFolder_);
    if (outputFolder_.trimmed().isEmpty()) {
        setStatus(QStringLiteral("Choose an output folder."));
        return false;
    }
    fs::create_directories(folder, error);
    if (error || !fs::is_directory(folder)) {
        const QString reason = QStringLiteral("Cannot create the output folder ") + outputFolder_ +
                               QStringLiteral(": ") +
                               toQString(error ? error.message() : std::string("not a folder"));
        setStatus(reason);
        appendLog(QStringLiteral("[error] ") + reason);
        return false;
    }
    appendLog(QStringLiteral("[info] Created the output folder ") + outputFolder_ +
              QStringLiteral("."));
    return true;
}

void StampWorkflow::setSelectedLTCFile(const QString& path) {
    userChoseLTC_ = !path.isEmpty();
    assign(selectedLTCFile_, path, &StampWorkflow::selectedLTCFileChanged);
    for (auto& descriptor : descriptors_) {
        descriptor.isLTC = !path.isEmpty() && toQString(descriptor.url) == path;
    }
    publishFiles();
    refreshSelectedLTCChannels();
    refreshLTCHealth();
}

void StampWorkflow::setGroupLTCChannel(const QString& groupID, int channel) {
    QVariantMap overrides = groupLTCChannelOverrides_;
    if (channel < 1) {
        overrides.remove(groupID);
    } else {
        overrides.insert(groupID, channel);
    }
    assign(groupLTCChannelOverrides_, overrides, &StampWorkflow::groupLTCChannelOverridesChanged);
    refreshGroupingPreview();
}

void StampWorkflow::setGroupLTCFile(const QString& groupID, const QString& path) {
    if (path.isEmpty()) {
        userGroupLTC_.erase(toStdString(groupID));
    } else {
        userGroupLTC_[toStdString(groupID)] = toPath(path);
    }
    refreshGroupingPreview();
}

// MARK: - Ingest

void StampWorkflow::publishFiles() {
    QVariantList rows;
    for (const auto& descriptor : descriptors_) {
        const auto existing = std::find_if(files_.begin(), files_.end(), [&](const QVariant& row) {
            return row.toMap().value(QStringLiteral("path")).toString() ==
                   toQString(descriptor.url);
        });
        QVariantMap row = existing != files_.end() ? existing->toMap() : QVariantMap{};
        row.insert(QStringLiteral("isLTC"), descriptor.isLTC);
        rows.append(row);
    }
    assign(files_, rows, &StampWorkflow::filesChanged);
}

void StampWorkflow::ingest(const QStringList& paths) {
    // Drops made while a drop is still being read wait their turn.
    if (isIngesting_) {
        queuedIngest_.append(paths);
        return;
    }
    assign(isIngesting_, true, &StampWorkflow::isIngestingChanged);
    setStatus(QStringLiteral("Reading the dropped files\u2026"));
    const FrameRatePreset preset =
        frameRatePresetFromLabel(toStdString(frameRatePreset_)).value_or(FrameRatePreset::auto_);
    std::vector<fs::path> known;
    for (const FileDescriptor& descriptor : descriptors_) {
        known.push_back(descriptor.url);
    }
    // Folders are walked and headers read off the main thread: a card of
    // long takes on a slow disk must not freeze the window.
    ingestTask_.start([this, paths, preset, known](const BackgroundTask::Context& task) {
        const std::vector<fs::path> found = expandDroppedWavFiles(paths);
        std::vector<IngestedFile> read;
        for (const fs::path& path : found) {
            if (task.stopRequested()) {
                return;
            }
            IngestedFile file{path, {}, {}, false, {}};
            if (std::find(known.begin(), known.end(), path) == known.end()) {
                readIngestedFile(file, preset);
            }
            read.push_back(std::move(file));
        }
        task.post(
            [this, empty = found.empty(), read = std::move(read)] { finishIngest(empty, read); });
    });
}

void StampWorkflow::readIngestedFile(IngestedFile& ingested, FrameRatePreset preset) {
    const fs::path& path = ingested.path;
    try {
        // The header and metadata chunks only: a long take's audio is not read.
        const WavReader reader(path);
        const WAVFile file = WAVFile::headersOf(reader);
        FileDescriptor descriptor = StampProcessor::describeFile(reader);
        QVariantMap row;
        row.insert(QStringLiteral("fileName"), toQString(path.filename().string()));
        row.insert(QStringLiteral("path"), toQString(path));
        row.insert(QStringLiteral("format"), formatText(file.fmt()));
        row.insert(QStringLiteral("durationSeconds"), descriptor.durationSeconds);
        row.insert(QStringLiteral("timecode"), existingTimecode(file, preset));
        row.insert(QStringLiteral("sampleRate"), static_cast<qint64>(descriptor.sampleRate));
        row.insert(QStringLiteral("channels"), static_cast<qint64>(descriptor.channels));
        row.insert(QStringLiteral("frameCount"), static_cast<qint64>(descriptor.frameCount));
        row.insert(QStringLiteral("ltcProbe"), QStringLiteral("probing"));
        ingested.descriptor = std::move(descriptor);
        ingested.row = row;
    } catch (const WAVError&) {
        ingested.invalidWAV = true;
    } catch (const std::exception& error) {
        ingested.error = toQString(describeError(error));
    }
}

void StampWorkflow::finishIngest(bool foundNone, const std::vector<IngestedFile>& read) {
    assign(isIngesting_, false, &StampWorkflow::isIngestingChanged);
    const auto next = [this] {
        if (!queuedIngest_.isEmpty()) {
            const QStringList queued = std::exchange(queuedIngest_, QStringList{});
            ingest(queued);
        }
    };
    if (foundNone) {
        setStatus(QStringLiteral("No WAV files found in dropped items."));
        next();
        return;
    }
    QVariantList rows = files_;
    QStringList ignored = ignoredFiles_;
    std::vector<fs::path> added;
    int loaded = 0;
    for (const IngestedFile& file : read) {
        const fs::path& path = file.path;
        const QString text = toQString(path);
        const bool known = std::any_of(descriptors_.begin(), descriptors_.end(),
                                       [&](const FileDescriptor& d) { return d.url == path; });
        if (known) {
            ++loaded;  // already listed: readable, nothing to add
            continue;
        }
        const QString name = toQString(path.filename().string());
        if (file.descriptor) {
            FileDescriptor descriptor = *file.descriptor;
            descriptor.isLTC =
                selectedLTCFile_.isEmpty() ? looksLikeLTC(path) : selectedLTCFile_ == text;
            QVariantMap row = file.row;
            row.insert(QStringLiteral("isLTC"), descriptor.isLTC);
            rows.append(row);
            added.push_back(path);
            descriptors_.push_back(std::move(descriptor));
            ++loaded;
        } else if (file.invalidWAV) {
            if (!ignored.contains(text)) {
                ignored.append(text);
            }
            appendLog(QStringLiteral("[info] Ignored ") + name + QStringLiteral(" (invalid WAV)."));
        } else if (!file.error.isEmpty()) {
            if (!ignored.contains(text)) {
                ignored.append(text);
            }
            appendLog(QStringLiteral("[warn] Skipped ") + name + QStringLiteral(": ") + file.error);
        }
    }
    assign(ignoredFiles_, ignored, &StampWorkflow::ignoredFilesChanged);
    if (loaded == 0) {
        setStatus(
            QStringLiteral("No readable WAV files found. Some files may be truncated or "
                           "invalid."));
        appendLog(QStringLiteral("[warn] Import finished with no readable WAV files."));
        next();
        return;
    }
    assign(files_, rows, &StampWorkflow::filesChanged);
    if (!outputFolderChosen_ && !descriptors_.empty()) {
        // Outputs go beside the recordings unless a folder was chosen before.
        assign(outputFolder_,
               toQString(defaultOutputFolder(toPath(defaultOutputFolder_),
                                             AppSettingsStore::homeDirectoryPath(),
                                             descriptors_.front().url, "Stamped")),
               &StampWorkflow::outputFolderChanged);
    }
    if (selectedLTCFile_.isEmpty()) {
        const auto carrier = std::find_if(descriptors_.begin(), descriptors_.end(),
                                          [](const FileDescriptor& d) { return d.isLTC; });
        if (carrier != descriptors_.end()) {
            assign(selectedLTCFile_, toQString(carrier->url),
                   &StampWorkflow::selectedLTCFileChanged);
        }
    }
    refreshSelectedLTCChannels();
    setStatus(QStringLiteral("Loaded ") + QString::number(loaded) +
              QStringLiteral(" WAV file(s)."));
    appendLog(QStringLiteral("[info] Loaded ") + QString::number(loaded) +
              QStringLiteral(" WAV files from drop event."));
    refreshGroupingPreview();
    refreshLTCHealth();
    if (!added.empty()) {
        startProbing(added);
    }
    next();
}

void StampWorkflow::startProbing(const std::vector<fs::path>& paths) {
    assign(isProbing_, true, &StampWorkflow::isProbingChanged);
    // A newer ingest supersedes this one: probe what is still unprobed then.
    std::vector<fs::path> pending;
    for (const QVariant& value : files_) {
        const QVariantMap row = value.toMap();
        if (row.value(QStringLiteral("ltcProbe")).toString() == QStringLiteral("probing")) {
            pending.push_back(toPath(row.value(QStringLiteral("path")).toString()));
        }
    }
    if (pending.empty()) {
        pending = paths;
    }
    probeTask_.start([this, pending](const BackgroundTask::Context& task) {
        for (const fs::path& path : pending) {
            if (task.stopRequested()) {
                return;
            }
            std::optional<LTCProbe> probe;
            try {
                probe = probeLTC(WavReader(path));
            } catch (const std::exception&) {
                probe.reset();
            }
            task.post([this, path, probe] {
                QVariantList rows = files_;
                const bool listed = editRow(rows, toQString(path), [&](QVariantMap& row) {
                    row.insert(QStringLiteral("ltcProbe"),
                               probe ? QStringLiteral("found") : QStringLiteral("none"));
                    if (probe) {
                        row.insert(QStringLiteral("ltcChannel"),
                                   static_cast<int>(probe->channelIndex + 1));
                        row.insert(QStringLiteral("ltcRate"), toQString(probe->rate.label));
                        row.insert(QStringLiteral("ltcConfidence"), probe->confidence);
                        row.insert(QStringLiteral("ltcEvidence"),
                                   evidenceText(probe->runFrames, probe->bitErrors,
                                                probe->confidence, probe->rateEvidence));
                        row.insert(QStringLiteral("ltcStart"),
                                   toQString(probe->timecode.description()));
                        row.insert(QStringLiteral("ltcFirstValidSample"),
                                   static_cast<qint64>(probe->firstValidSample));
                        // The file's first sample, in seconds since midnight.
                        const double rate = row.value(QStringLiteral("sampleRate")).toDouble();
                        row.insert(
                            QStringLiteral("ltcStartSeconds"),
                            TimecodeMath::secondsForFrames(
                                TimecodeMath::frameCount(probe->timecode, probe->rate),
                                probe->rate) -
                                (rate > 0 ? static_cast<double>(probe->firstValidSample) / rate
                                          : 0.0));
                    }
                });
                if (listed) {
                    assign(files_, rows, &StampWorkflow::filesChanged);
                }
            });
        }
        task.post([this] {
            assign(isProbing_, false, &StampWorkflow::isProbingChanged);
            chooseLTCFromProbes();
            refreshGroupingPreview();
            refreshDayRuler();
        });
    });
}

bool StampWorkflow::editRow(QVariantList& rows, const QString& path,
                            const std::function<void(QVariantMap&)>& edit) {
    for (QVariant& value : rows) {
        QVariantMap row = value.toMap();
        if (row.value(QStringLiteral("path")).toString() == path) {
            edit(row);
            value = row;
            return true;
        }
    }
    return false;
}

void StampWorkflow::chooseLTCFromProbes() {
    if (userChoseLTC_) {
        return;
    }
    QString best;
    double bestConfidence = -1;
    int channel = 0;
    QString rate;
    for (const QVariant& value : files_) {
        const QVariantMap row = value.toMap();
        if (row.value(QStringLiteral("ltcProbe")).toString() != QStringLiteral("found")) {
            continue;
        }
        // Near ties go to a file named for its LTC, then to the one with fewer
        // tracks (a dedicated LTC track rather than a take that also carries it).
        const double confidence =
            row.value(QStringLiteral("ltcConfidence")).toDouble() +
            (looksLikeLTC(toPath(row.value(QStringLiteral("path")).toString())) ? 0.05 : 0.0) -
            0.001 * row.value(QStringLiteral("channels")).toDouble();
        if (confidence > bestConfidence) {
            bestConfidence = confidence;
            best = row.value(QStringLiteral("path")).toString();
            channel = row.value(QStringLiteral("ltcChannel")).toInt();
            rate = row.value(QStringLiteral("ltcRate")).toString();
        }
    }
    if (best.isEmpty()) {
        refreshLTCHealth();
        return;  // nothing decodes: the name-based guess stays
    }
    if (best != selectedLTCFile_) {
        assign(selectedLTCFile_, best, &StampWorkflow::selectedLTCFileChanged);
        for (auto& descriptor : descriptors_) {
            descriptor.isLTC = toQString(descriptor.url) == best;
        }
        publishFiles();
        refreshSelectedLTCChannels();
    }
    appendLog(QStringLiteral("[info] LTC found on channel ") + QString::number(channel) +
              QStringLiteral(" of ") + fileNameOf(best) + QStringLiteral(" (") + rate +
              QStringLiteral(" fps)."));
    refreshLTCHealth();
}

bool StampWorkflow::selectedLTCIsRecording() const {
    return std::any_of(descriptors_.begin(), descriptors_.end(), [&](const FileDescriptor& d) {
        return !selectedLTCFile_.isEmpty() && toQString(d.url) == selectedLTCFile_ &&
               d.channels > 1;
    });
}

void StampWorkflow::refreshLTCHealth() {
    const bool grouped =
        processingModeFromLabel(toStdString(mode_)) == ProcessingMode::groupedBatch;
    if (selectedLTCFile_.isEmpty() || grouped) {
        healthTask_.discard();
        assign(ltcHealth_, QVariantMap{}, &StampWorkflow::ltcHealthChanged);
        return;
    }
    int channel = ltcChannelChoice_;
    for (const QVariant& value : files_) {
        const QVariantMap row = value.toMap();
        if (channel == 0 && row.value(QStringLiteral("path")).toString() == selectedLTCFile_) {
            channel = row.value(QStringLiteral("ltcChannel")).toInt();
        }
    }
    const fs::path path = toPath(selectedLTCFile_);
    const auto rate = frameRateConfig(
        frameRatePresetFromLabel(toStdString(frameRatePreset_)).value_or(FrameRatePreset::auto_));
    const std::int64_t channelIndex = std::max(channel, 1) - 1;
    healthTask_.start([this, path, rate, channelIndex](const BackgroundTask::Context& task) {
        QVariantMap map;
        try {
            const LTCHealth health = measureLTCHealth(WavReader(path), channelIndex, rate);
            QVariantList envelope;
            for (float peak : health.envelope) {
                envelope.append(static_cast<double>(peak));
            }
            QVariantList stretches;
            for (const auto& stretch : health.stretches) {
                const LTCHealthLevel level = healthLevel(stretch.confidence);
                stretches.append(QVariantMap{
                    {QStringLiteral("begin"), static_cast<qint64>(stretch.beginSample)},
                    {QStringLiteral("end"), static_cast<qint64>(stretch.endSample)},
                    {QStringLiteral("level"), level == LTCHealthLevel::green   ? "green"
                                              : level == LTCHealthLevel::amber ? "amber"
                                                                               : "red"}});
            }
            map =
                QVariantMap{{QStringLiteral("path"), toQString(path)},
                            {QStringLiteral("fileName"), toQString(path.filename().string())},
                            {QStringLiteral("channel"), static_cast<int>(health.channelIndex + 1)},
                            {QStringLiteral("rate"),
                             health.rate ? toQString(health.rate->label) : QStringLiteral("")},
                            {QStringLiteral("frameCount"), static_cast<qint64>(health.frameCount)},
                            {QStringLiteral("sampleRate"), static_cast<qint64>(health.sampleRate)},
                            {QStringLiteral("firstValidSample"),
                             static_cast<qint64>(health.firstValidSample.value_or(-1))},
                            {QStringLiteral("envelope"), envelope},
                            {QStringLiteral("stretches"), stretches}};
        } catch (const std::exception&) {
            map.clear();
        }
        task.post([this, map] { assign(ltcHealth_, map, &StampWorkflow::ltcHealthChanged); });
    });
}

void StampWorkflow::refreshDayRuler() {
    QVariantList bars;
    for (const QVariant& value : files_) {
        const QVariantMap row = value.toMap();
        const double duration = row.value(QStringLiteral("durationSeconds")).toDouble();
        const QVariantList children = row.value(QStringLiteral("children")).toList();
        if (!children.isEmpty()) {
            for (const QVariant& child : children) {
                const QVariantMap segment = child.toMap();
                if (segment.contains(QStringLiteral("startSeconds"))) {
                    bars.append(QVariantMap{
                        {QStringLiteral("label"), segment.value(QStringLiteral("name"))},
                        {QStringLiteral("startSeconds"),
                         segment.value(QStringLiteral("startSeconds"))},
                        {QStringLiteral("durationSeconds"),
                         segment.value(QStringLiteral("durationSeconds"))},
                        {QStringLiteral("rate"), segment.value(QStringLiteral("rate"))},
                        {QStringLiteral("status"), segment.value(QStringLiteral("status"))},
                        {QStringLiteral("isLTC"), false}});
                }
            }
            continue;
        }
        QVariant start = row.value(QStringLiteral("startSeconds"));
        QVariant rate = row.value(QStringLiteral("rate"));
        if (!start.isValid() && row.contains(QStringLiteral("ltcStartSeconds"))) {
            start = row.value(QStringLiteral("ltcStartSeconds"));
            rate = row.value(QStringLiteral("ltcRate"));
        }
        if (!start.isValid()) {
            continue;
        }
        bars.append(QVariantMap{{QStringLiteral("label"), row.value(QStringLiteral("fileName"))},
                                {QStringLiteral("startSeconds"), start},
                                {QStringLiteral("durationSeconds"), duration},
                                {QStringLiteral("rate"), rate},
                                {QStringLiteral("status"), row.value(QStringLiteral("status"))},
                                {QStringLiteral("isLTC"), row.value(QStringLiteral("isLTC"))}});
    }
    assign(dayRuler_, bars, &StampWorkflow::dayRulerChanged);
}

void StampWorkflow::clearResults() {
    QVariantList rows = files_;
    for (QVariant& value : rows) {
        QVariantMap row = value.toMap();
        for (const char* key : {"startTimecode", "startEvidence", "startSeconds", "rate", "output",
                                "status", "statusReason", "children"}) {
            row.remove(QLatin1String(key));
        }
        value = row;
    }
    assign(files_, rows, &StampWorkflow::filesChanged);
    refreshDayRuler();
}

void StampWorkflow::applyResults(const ProcessingReport& report,
                                 const std::vector<ProcessingJob>& jobs) {
    const bool cut = std::all_of(jobs.begin(), jobs.end(),
                                 [](const ProcessingJob& job) {
                                     return job.mode == ProcessingMode::cutDetect;
                                 }) &&
                     !jobs.empty();
    const auto startText = [](const ProcessedFileRecord& record) {
        return toQString(record.stampedStartTimecode) + QStringLiteral(" @ ") +
               toQString(record.frameRate);
    };
    const auto startSeconds = [](const ProcessedFileRecord& record) -> QVariant {
        try {
            if (record.sampleRate > 0 && !record.timeReferenceSamples.empty()) {
                return static_cast<double>(std::stoll(record.timeReferenceSamples)) /
                       static_cast<double>(record.sampleRate);
            }
        } catch (const std::exception&) {
        }
        return {};
    };
    const auto recordStatus = [](const ProcessedFileRecord& record, QVariantMap& into) {
        if (record.status != "ok") {
            into.insert(QStringLiteral("status"), QStringLiteral("failed"));
            into.insert(QStringLiteral("statusReason"), toQString(record.errorCode));
        } else if (!record.warning.empty()) {
            into.insert(QStringLiteral("status"), QStringLiteral("warning"));
            into.insert(QStringLiteral("statusReason"), toQString(record.warning));
        } else {
            into.insert(QStringLiteral("status"), QStringLiteral("ok"));
            into.insert(QStringLiteral("statusReason"), QStringLiteral("Stamped"));
        }
    };

    // The decode the run reports evidence for (its first LTC file), and the
    // probe's evidence for the other LTC files.
    const auto evidenceFor = [&](const ProcessedFileRecord& record) -> QString {
        QString text = QStringLiteral("Start ") + toQString(record.stampedStartTimecode) +
                       QStringLiteral(" @ ") + toQString(record.frameRate) +
                       QStringLiteral(" from ") + toQString(record.ltcFile) +
                       QStringLiteral(", first frame at sample ") +
                       QString::number(record.firstValidLTCSample);
        if (record.ltcFile == report.chosenLTCFile && report.ltcRunFrames > 0) {
            text += QStringLiteral("\nLTC evidence: ") +
                    evidenceText(report.ltcRunFrames, report.ltcBitErrors, report.confidence,
                                 report.rateEvidence) +
                    QStringLiteral("\nSub-frame offset: ") +
                    QString::asprintf("%+.2f", report.subFrameOffsetSamples) +
                    QStringLiteral(" samples (TimeReference: ") +
                    toQString(report.timeReferenceMode) + QStringLiteral(")");
        } else {
            for (const QVariant& other : files_) {
                const QVariantMap ltcRow = other.toMap();
                if (ltcRow.value(QStringLiteral("fileName")).toString() ==
                        toQString(record.ltcFile) &&
                    ltcRow.contains(QStringLiteral("ltcEvidence"))) {
                    text += QStringLiteral("\nLTC evidence (probe): ") +
                            ltcRow.value(QStringLiteral("ltcEvidence")).toString();
                }
            }
        }
        return text;
    };
    QVariantList rows = files_;
    for (QVariant& value : rows) {
        QVariantMap row = value.toMap();
        const std::string path = toStdString(row.value(QStringLiteral("path")).toString());
        const std::string name = fs::path(path).filename().string();
        std::vector<const ProcessedFileRecord*> mine;
        for (const auto& record : report.records) {
            if (record.sourceFile == name) {
                mine.push_back(&record);
            }
        }
        if (cut && !mine.empty()) {
            QVariantList children;
            int failed = 0;
            for (const ProcessedFileRecord* record : mine) {
                QVariantMap child{{QStringLiteral("name"),
                                   QStringLiteral("Segment ") + toQString(record->segmentIndex)},
                                  {QStringLiteral("output"), toQString(record->outputFile)},
                                  {QStringLiteral("rate"), toQString(record->frameRate)}};
                if (!record->stampedStartTimecode.empty()) {
                    child.insert(QStringLiteral("startTimecode"), startText(*record));
                    child.insert(QStringLiteral("startEvidence"), evidenceFor(*record));
                }
                if (const QVariant start = startSeconds(*record); start.isValid()) {
                    child.insert(QStringLiteral("startSeconds"), start);
                }
                try {
                    const double rate = static_cast<double>(record->sampleRate);
                    if (rate > 0 && !record->segmentLengthSamples.empty()) {
                        child.insert(
                            QStringLiteral("durationSeconds"),
                            static_cast<double>(std::stoll(record->segmentLengthSamples)) / rate);
                    }
                } catch (const std::exception&) {
                }
                recordStatus(*record, child);
                failed += record->status != "ok" ? 1 : 0;
                children.append(child);
            }
            row.insert(QStringLiteral("children"), children);
            row.insert(QStringLiteral("output"),
                       QString::number(children.size()) + QStringLiteral(" segments"));
            row.insert(QStringLiteral("status"),
                       failed > 0 ? QStringLiteral("failed") : QStringLiteral("ok"));
            row.insert(QStringLiteral("statusReason"),
                       failed > 0 ? QString::number(failed) + QStringLiteral(" segment(s) failed")
                                  : QStringLiteral("Stamped"));
        } else if (!mine.empty()) {
            const ProcessedFileRecord& record = *mine.front();
            if (!record.stampedStartTimecode.empty()) {
                row.insert(QStringLiteral("startTimecode"), startText(record));
                row.insert(QStringLiteral("startEvidence"), evidenceFor(record));
            }
            if (const QVariant start = startSeconds(record); start.isValid()) {
                row.insert(QStringLiteral("startSeconds"), start);
            }
            row.insert(QStringLiteral("rate"), toQString(record.frameRate));
            row.insert(QStringLiteral("output"), toQString(record.outputFile));
            recordStatus(record, row);
        } else {
            // Not written: the LTC source of a job, or a file of a failed job.
            for (std::size_t i = 0; i < jobs.size(); ++i) {
                const ProcessingJob& job = jobs[i];
                const JobReport* jobReport = i < report.jobs.size() ? &report.jobs[i] : nullptr;
                const bool target = std::find(job.targetFileURLs.begin(), job.targetFileURLs.end(),
                                              fs::path(path)) != job.targetFileURLs.end();
                if (jobReport && jobReport->error && (target || job.ltcFileURL == path)) {
                    row.insert(QStringLiteral("status"), QStringLiteral("failed"));
                    row.insert(QStringLiteral("statusReason"), toQString(*jobReport->error));
                    break;
                }
                if (job.ltcFileURL == path) {
                    for (const auto& record : report.records) {
                        if (record.ltcFile == name && !record.stampedStartTimecode.empty()) {
                            row.insert(QStringLiteral("startTimecode"), startText(record));
                            row.insert(QStringLiteral("startEvidence"), evidenceFor(record));
                            row.insert(QStringLiteral("rate"), toQString(record.frameRate));
                            break;
                        }
                    }
                    row.insert(QStringLiteral("output"), QStringLiteral("(LTC source)"));
                    row.insert(QStringLiteral("status"), QStringLiteral("ltc"));
                    row.insert(QStringLiteral("statusReason"),
                               QStringLiteral("Read for its LTC; not written (tick \"Also stamp "
                                              "LTC-only files\" to write it)"));
                    break;
                }
            }
        }
        value = row;
    }
    assign(files_, rows, &StampWorkflow::filesChanged);
    refreshDayRuler();
}

void StampWorkflow::removeFiles(const QStringList& paths) {
    if (isProcessing_ || isAnalyzingCuts_ || paths.isEmpty()) {
        return;
    }
    QVariantList rows;
    for (const QVariant& value : files_) {
        if (!paths.contains(value.toMap().value(QStringLiteral("path")).toString())) {
            rows.append(value);
        }
    }
    std::erase_if(descriptors_,
                  [&](const FileDescriptor& d) { return paths.contains(toQString(d.url)); });
    assign(files_, rows, &StampWorkflow::filesChanged);
    if (paths.contains(selectedLTCFile_)) {
        userChoseLTC_ = false;
        assign(selectedLTCFile_, QString{}, &StampWorkflow::selectedLTCFileChanged);
        chooseLTCFromProbes();
    }
    refreshSelectedLTCChannels();
    setStatus(QString::number(descriptors_.size()) + QStringLiteral(" WAV file(s) listed."));
    refreshGroupingPreview();
    refreshDayRuler();
}

void StampWorkflow::dismissOutputConflicts() {
    plannedRun_.reset();
    assign(pendingOutputConflicts_, QStringList{}, &StampWorkflow::pendingOutputConflictsChanged);
    setStatus(QStringLiteral("Nothing written: outputs already exist."));
    setProgressMessage(QString{});
    setProgressPercent(0);
}

void StampWorkflow::clearFiles() {
    plannedRun_.reset();
    ingestTask_.discard();
    queuedIngest_.clear();
    assign(isIngesting_, false, &StampWorkflow::isIngestingChanged);
    descriptors_.clear();
    userGroupLTC_.clear();
    groupDecodeTask_.discard();
    decodingGroupsKey_.clear();
    decodedGroupLTC_.clear();
    assign(files_, QVariantList{}, &StampWorkflow::filesChanged);
    assign(ignoredFiles_, QStringList{}, &StampWorkflow::ignoredFilesChanged);
    assign(selectedLTCFile_, QString{}, &StampWorkflow::selectedLTCFileChanged);
    refreshSelectedLTCChannels();
    assign(groupLTCChannelOverrides_, QVariantMap{},
           &StampWorkflow::groupLTCChannelOverridesChanged);
    assign(segmentPreviewRows_, QStringList{}, &StampWorkflow::segmentPreviewRowsChanged);
    assign(cutTimelinePoints_, QVariantList{}, &StampWorkflow::cutTimelinePointsChanged);
    assign(cutSegments_, QVariantList{}, &StampWorkflow::cutSegmentsChanged);
    assign(cutFileFrameCount_, qint64{0}, &StampWorkflow::cutFileFrameCountChanged);
    assign(cutSampleRate_, qint64{0}, &StampWorkflow::cutSampleRateChanged);
    assign(pendingOutputConflicts_, QStringList{}, &StampWorkflow::pendingOutputConflictsChanged);
    assign(pendingLowConfidence_, false, &StampWorkflow::pendingLowConfidenceChanged);
    assign(reportText_, QString::fromLatin1(kInitialReportText), &StampWorkflow::reportTextChanged);
    setStatus(QString{});
    setProgressMessage(QString{});
    setProgressPercent(0);
    probeTask_.discard();
    healthTask_.discard();
    assign(isProbing_, false, &StampWorkflow::isProbingChanged);
    assign(ltcHealth_, QVariantMap{}, &StampWorkflow::ltcHealthChanged);
    assign(dayRuler_, QVariantList{}, &StampWorkflow::dayRulerChanged);
    userChoseLTC_ = false;
    refreshGroupingPreview();
}

// MARK: - Grouping preview

std::string groupDisplayName(const std::vector<std::string>& stems) {
    if (stems.empty()) {
        return {};
    }
    // What every member's name starts with, up to a word boundary: "Sc12_T03"
    // for Sc12_T03_Boom and Sc12_T03_Lavs.
    std::size_t same = stems.front().size();
    for (const std::string& stem : stems) {
        std::size_t i = 0;
        while (i < same && i < stem.size() && stem[i] == stems.front()[i]) {
            ++i;
        }
        same = i;
    }
    const bool atBoundary = std::all_of(stems.begin(), stems.end(), [&](const std::string& stem) {
        return same == stem.size() || isStemSeparator(stem[same]) ||
               (same > 0 && isStemSeparator(stem[same - 1]));
    });
    std::string prefix = stems.front().substr(0, same);
    while (!atBoundary && !prefix.empty() && !isStemSeparator(prefix.back())) {
        prefix.pop_back();
    }
    while (!prefix.empty() && isStemSeparator(prefix.back())) {
        prefix.pop_back();
    }
    if (prefix.size() >= 2) {
        return prefix;
    }
    // Nothing shared (files of equal length from different takes): the first
    // name in file-browser order and how many more.
    const std::string first =
        *std::min_element(stems.begin(), stems.end(),
                          [](const auto& a, const auto& b) { return fileBrowserLess(a, b); });
    return stems.size() == 1 ? first : first + " + " + std::to_string(stems.size() - 1) + " more";
}

void StampWorkflow::refreshGroupingPreview() {
    QStringList ids;
    QStringList rows;
    QVariantMap filesByID;
    QVariantMap tracksByID;
    QVariantMap resolvedByID;
    QVariantMap channelsByID;
    QVariantList matrixTracks;
    QVariantList candidates;
    QVariant designatedTrack;

    const ProcessingOptions options = buildOptions(false, std::nullopt);
    std::map<std::string, std::vector<FileDescriptor>> groups;
    bool ruleOK = true;
    try {
        Grouping::validateRule(options.groupingConfig);
        groups = Grouping::groupFiles(descriptors_, options.groupingConfig);
    } catch (const std::exception& error) {
        ruleOK = false;
        rows.append(toQString(describeError(error)));
    }
    const bool grouped = options.mode == ProcessingMode::groupedBatch;
    std::vector<GroupDecode> pendingDecodes;
    std::int64_t largestGroup = 0;
    std::int64_t commonChannels = 0;
    // Groups are shown by the take they come from, in file-browser order
    // (T2 before T10); their ids stay the engine's keys.
    const bool byName = options.groupingConfig.method == GroupingMethod::token ||
                        options.groupingConfig.method == GroupingMethod::regex;
    std::vector<
        std::pair<std::string, const std::pair<const std::string, std::vector<FileDescriptor>>*>>
        order;
    QVariantMap namesByID;
    for (const auto& group : groups) {
        std::vector<std::string> stems;
        for (const auto& member : group.second) {
            stems.push_back(member.url.stem().string());
        }
        std::string name = byName && !group.first.empty() ? group.first : groupDisplayName(stems);
        std::string unique = name;
        for (int n = 2; std::any_of(order.begin(), order.end(),
                                    [&](const auto& o) { return o.first == unique; });
             ++n) {
            unique = name + " (" + std::to_string(n) + ")";
        }
        order.emplace_back(unique, &group);
    }
    std::stable_sort(order.begin(), order.end(), [](const auto& a, const auto& b) {
        return fileBrowserLess(a.first, b.first);
    });
    for (const auto& [name, group] : order) {
        const std::string& key = group->first;
        const std::vector<FileDescriptor>& members = group->second;
        const QString id = toQString(key);
        ids.append(id);
        namesByID.insert(id, toQString(name));
        QStringList paths;
        QVariantMap tracks;
        for (std::size_t i = 0; i < members.size(); ++i) {
            paths.append(toQString(members[i].url));
            tracks.insert(QString::number(i + 1), toQString(members[i].url));
        }
        filesByID.insert(id, paths);
        tracksByID.insert(id, tracks);
        largestGroup = std::max<std::int64_t>(largestGroup, members.size());
        const std::int64_t channels = Grouping::commonChannelCount(members);
        channelsByID.insert(id, static_cast<qint64>(channels));
        commonChannels = commonChannels == 0 ? channels : std::min(commonChannels, channels);

        const auto overrideIt = groupLTCChannelOverrides_.find(id);
        std::optional<std::int64_t> channelIndex;
        if (overrideIt != groupLTCChannelOverrides_.end()) {
            channelIndex = Grouping::clampedChannelIndex(overrideIt->toLongLong(), channels);
        }
        std::optional<fs::path> ltc;
        bool decoding = false;
        // The member whose signal decodes best, from the ingest probes.
        std::optional<fs::path> probed;
        int probedChannel = 0;
        double probedConfidence = -1;
        for (const auto& member : members) {
            for (const QVariant& value : files_) {
                const QVariantMap row = value.toMap();
                if (row.value(QStringLiteral("path")).toString() == toQString(member.url) &&
                    row.value(QStringLiteral("ltcProbe")).toString() == QStringLiteral("found") &&
                    row.value(QStringLiteral("ltcConfidence")).toDouble() > probedConfidence) {
                    probed = member.url;
                    probedChannel = row.value(QStringLiteral("ltcChannel")).toInt();
                    probedConfidence = row.value(QStringLiteral("ltcConfidence")).toDouble();
                }
            }
        }
        if (const auto chosen = userGroupLTC_.find(key); chosen != userGroupLTC_.end()) {
            ltc = chosen->second;
        } else if (probed) {
            ltc = probed;
        } else if (grouped) {
            // Resolving decodes the group's files (only worth it in grouped
            // mode), which takes long on long takes: it runs off the main
            // thread and the preview is shown again when it is done.
            std::string decodeKey = std::to_string(channelIndex.value_or(-1)) + "|" +
                                    std::to_string(static_cast<int>(options.frameRatePreset));
            for (const auto& member : members) {
                decodeKey += "|" + member.url.string();
            }
            if (const auto known = decodedGroupLTC_.find(decodeKey);
                known != decodedGroupLTC_.end()) {
                ltc = known->second;
            } else {
                decoding = true;
                pendingDecodes.push_back({std::move(decodeKey), members, channelIndex});
            }
        }
        if (ltc) {
            resolvedByID.insert(id, toQString(*ltc));
            if (!designatedTrack.isValid()) {
                for (std::size_t i = 0; i < members.size(); ++i) {
                    if (members[i].url == *ltc) {
                        designatedTrack = static_cast<int>(i + 1);
                    }
                }
            }
        }
        rows.append(toQString(name) + QStringLiteral(" | Files: ") +
                    QString::number(members.size()) + QStringLiteral(" | LTC file: ") +
                    (ltc        ? toQString(ltc->filename().string())
                     : decoding ? QStringLiteral("decoding…")
                                : QStringLiteral("unresolved")) +
                    QStringLiteral(" | LTC Audio CH: ") +
                    (channelIndex ? QString::number(*channelIndex + 1)
                     : (probed && ltc == probed && probedChannel > 0)
                         ? QStringLiteral("auto (found on ") + QString::number(probedChannel) +
                               QStringLiteral(")")
                         : QStringLiteral("auto")));
    }
    if (!ruleOK || groups.empty()) {
        commonChannels = descriptors_.empty() ? 0 : Grouping::commonChannelCount(descriptors_);
    }
    for (std::int64_t track = 1; track <= largestGroup; ++track) {
        matrixTracks.append(static_cast<int>(track));
    }
    for (std::int64_t channel = 1; channel <= commonChannels; ++channel) {
        candidates.append(static_cast<int>(channel));
    }
    assign(groupNamesByID_, namesByID, &StampWorkflow::groupNamesByIDChanged);
    assign(groupIDs_, ids, &StampWorkflow::groupIDsChanged);
    assign(groupFilesByID_, filesByID, &StampWorkflow::groupFilesByIDChanged);
    assign(groupTrackFilesByID_, tracksByID, &StampWorkflow::groupTrackFilesByIDChanged);
    assign(groupResolvedLTCByID_, resolvedByID, &StampWorkflow::groupResolvedLTCByIDChanged);
    assign(groupCommonMaxChannelsByID_, channelsByID,
           &StampWorkflow::groupCommonMaxChannelsByIDChanged);
    assign(matrixTrackNumbers_, matrixTracks, &StampWorkflow::matrixTrackNumbersChanged);
    assign(commonLTCChannelCandidates_, candidates,
           &StampWorkflow::commonLTCChannelCandidatesChanged);
    assign(designatedLTCTrackNumber_, designatedTrack,
           &StampWorkflow::designatedLTCTrackNumberChanged);
    assign(groupPreviewRows_, rows, &StampWorkflow::groupPreviewRowsChanged);
    // The probes may still find the carrier; decode once they are done.
    if (!isProbing_) {
        startGroupDecode(std::move(pendingDecodes), frameRateConfig(options.frameRatePreset));
    }
}

void StampWorkflow::startGroupDecode(std::vector<GroupDecode> pending,
                                     std::optional<FrameRateConfig> rate) {
    std::string key;
    for (const GroupDecode& group : pending) {
        key += group.key + "\n";
    }
    if (pending.empty() || (groupDecodeTask_.isRunning() && key == decodingGroupsKey_)) {
        return;
    }
    decodingGroupsKey_ = key;
    groupDecodeTask_.start(
        [this, pending = std::move(pending), rate](const BackgroundTask::Context& task) {
            std::vector<std::pair<std::string, std::optional<fs::path>>> found;
            for (const GroupDecode& group : pending) {
                if (task.stopRequested()) {
                    return;
                }
                std::optional<fs::path> ltc;
                try {
                    ltc = Grouping::resolveGroupLTCFile(group.members, group.channelIndex, rate);
                } catch (const std::exception&) {
                    ltc.reset();  // shown as unresolved; the run says why
                }
                found.emplace_back(group.key, std::move(ltc));
            }
            task.post([this, found = std::move(found)] {
                for (const auto& [decodeKey, ltc] : found) {
                    decodedGroupLTC_[decodeKey] = ltc;
                }
                decodingGroupsKey_.clear();
                refreshGroupingPreview();
            });
        });
}

// MARK: - Options

ProcessingOptions StampWorkflow::buildOptions(
    bool confirmed, std::optional<OutputCollisionBehavior> collision) const {
    ProcessingOptions options;
    options.mode = processingModeFromLabel(toStdString(mode_)).value_or(ProcessingMode::single);
    options.frameRatePreset =
        frameRatePresetFromLabel(toStdString(frameRatePreset_)).value_or(FrameRatePreset::auto_);
    options.outputFolder = toPath(outputFolder_);
    options.forceLowConfidence =
        confirmed || settings_.lowConfidenceBehavior() == LowConfidenceBehavior::alwaysProceed;
    options.timeReferenceMode = settings_.defaultTimeReferenceMode();
    // A recording that carries its own LTC on one of its tracks is stamped
    // like any stem; the switch decides only for files that are LTC alone.
    options.includeLTCOutputs =
        includeLTCOutputs_ ||
        (options.mode != ProcessingMode::groupedBatch && selectedLTCIsRecording());
    options.groupingConfig = GroupingConfig::make(
        groupingMethodFromLabel(toStdString(groupingMethod_))
            .value_or(GroupingMethod::durationExact),
        toStdString(groupingDelimiter_), groupingTokenIndex_, toStdString(groupingRegex_),
        milliseconds(settings_.durationTolerancePreset()));
    for (auto it = groupResolvedLTCByID_.begin(); it != groupResolvedLTCByID_.end(); ++it) {
        options.manualLTCByGroup[toStdString(it.key())] = toPath(it.value().toString());
    }
    for (auto it = groupLTCChannelOverrides_.begin(); it != groupLTCChannelOverrides_.end(); ++it) {
        options.manualLTCChannelByGroup[toStdString(it.key())] = it.value().toLongLong();
    }
    options.outputNaming.suffix = settings_.outputFilenameSuffix();
    options.outputNaming.collisionBehavior =
        collision.value_or(settings_.outputCollisionBehavior());
    options.cutDetectConfig.minSegmentFrames = cutMinSegmentFrames_;
    options.cutDetectConfig.discontinuityFrameThreshold = cutDiscontinuityThreshold_;
    // Grouped runs take their channels per group.
    if (ltcChannelChoice_ > 0 && options.mode != ProcessingMode::groupedBatch) {
        options.ltcChannelIndex = ltcChannelChoice_ - 1;
    }
    return options;
}

// MARK: - Cut analysis

void StampWorkflow::analyzeCuts() {
    if (isProcessing_ || isAnalyzingCuts_) {
        return;
    }
    QString ltc = selectedLTCFile_;
    if (ltc.isEmpty() && !descriptors_.empty()) {
        ltc = toQString(descriptors_.front().url);
    }
    if (ltc.isEmpty()) {
        const QString description = toQString(ProcessingError::ltcFileMissing().description());
        setStatus(description);
        appendLog(QStringLiteral("[error] ") + description);
        return;
    }
    token_.reset();
    assign(isAnalyzingCuts_, true, &StampWorkflow::isAnalyzingCutsChanged);
    setStatus(QStringLiteral("Analyzing LTC cuts..."));
    setProgressMessage(QStringLiteral("Analyzing..."));
    appendLog(QStringLiteral("[info] Analyzing LTC cut boundaries..."));

    const ProcessingOptions options = buildOptions(false, std::nullopt);
    const fs::path ltcPath = toPath(ltc);
    analyzeTask_.start([this, options, ltcPath](const BackgroundTask::Context& task) {
        const auto isCancelled = [this, &task] {
            return task.stopRequested() || token_.isCancelled();
        };
        const auto progress = [this, &task](const ProcessingProgress& p) {
            task.post([this, p] {
                setProgressMessage(QStringLiteral("Analyzing cuts: ") + toQString(p.message));
                if (p.totalUnits > 0) {
                    setProgressPercent(static_cast<double>(p.completedUnits) /
                                       static_cast<double>(p.totalUnits));
                }
            });
        };
        try {
            auto analysis = StampProcessor::analyzeCuts(ltcPath, options, progress, isCancelled);
            task.post([this, analysis = std::move(analysis)] {
                QStringList rows;
                QVariantList segments;
                for (const auto& segment : analysis.segments) {
                    if (rows.size() < kMaxSegmentPreviewRows) {
                        rows.append(segmentLine(segment, analysis));
                    }
                    segments.append(QVariantMap{
                        {QStringLiteral("startSample"), static_cast<qint64>(segment.startSample)},
                        {QStringLiteral("endSample"), static_cast<qint64>(segment.endSample)},
                        {QStringLiteral("segmentIndex"),
                         static_cast<qint64>(segment.segmentIndex)}});
                }
                const auto hidden = static_cast<qsizetype>(analysis.segments.size()) - rows.size();
                if (hidden > 0) {
                    rows.append(QStringLiteral("+ ") + QString::number(hidden) +
                                QStringLiteral(" more segments"));
                }
                QVariantList points;
                for (const auto& point : analysis.points) {
                    points.append(QVariantMap{
                        {QStringLiteral("sample"), static_cast<qint64>(point.sample)},
                        {QStringLiteral("frameCount"), static_cast<qint64>(point.frameCount)},
                        {QStringLiteral("timecode"), toQString(point.timecode.description())}});
                }
                assign(cutTimelinePoints_, points, &StampWorkflow::cutTimelinePointsChanged);
                assign(cutSegments_, segments, &StampWorkflow::cutSegmentsChanged);
                assign(cutFileFrameCount_, static_cast<qint64>(analysis.frameCount),
                       &StampWorkflow::cutFileFrameCountChanged);
                assign(cutSampleRate_, static_cast<qint64>(analysis.sampleRate),
                       &StampWorkflow::cutSampleRateChanged);
                assign(segmentPreviewRows_, rows, &StampWorkflow::segmentPreviewRowsChanged);
                setStatus(QStringLiteral("Cut analysis complete"));
                setProgressMessage(QStringLiteral("Completed"));
                setProgressPercent(1.0);
                assign(isAnalyzingCuts_, false, &StampWorkflow::isAnalyzingCutsChanged);
                appendLog(QStringLiteral("[success] Cut analysis complete. Detected ") +
                          QString::number(analysis.segments.size()) +
                          QStringLiteral(" segment(s)."));
            });
        } catch (const std::exception& error) {
            const bool cancelled =
                isCancelled() || (dynamic_cast<const ProcessingError*>(&error) != nullptr &&
                                  static_cast<const ProcessingError&>(error).kind() ==
                                      ProcessingError::Kind::cancelled);
            const QString description = toQString(describeError(error));
            task.post([this, cancelled, description] {
                if (cancelled) {
                    endWithCancel();
                    return;
                }
                assign(segmentPreviewRows_, QStringList{},
                       &StampWorkflow::segmentPreviewRowsChanged);
                assign(cutSegments_, QVariantList{}, &StampWorkflow::cutSegmentsChanged);
                setStatus(description);
                setProgressMessage(QStringLiteral("Failed"));
                assign(isAnalyzingCuts_, false, &StampWorkflow::isAnalyzingCutsChanged);
                appendLog(QStringLiteral("[error] ") + description);
            });
        }
    });
}

// MARK: - Processing

bool StampWorkflow::PlannedRun::matches(const std::vector<FileDescriptor>& otherFiles,
                                        const std::optional<fs::path>& otherSelected,
                                        const ProcessingOptions& other) const {
    // What the jobs are built from; the collision behaviour and the
    // confirmation are the answers the run stopped for.
    const ProcessingOptions& o = options;
    return files == otherFiles && selected == otherSelected && o.mode == other.mode &&
           o.frameRatePreset == other.frameRatePreset && o.outputFolder == other.outputFolder &&
           o.includeLTCOutputs == other.includeLTCOutputs &&
           o.groupingConfig == other.groupingConfig &&
           o.manualLTCByGroup == other.manualLTCByGroup &&
           o.manualLTCChannelByGroup == other.manualLTCChannelByGroup &&
           o.outputNaming.suffix == other.outputNaming.suffix &&
           o.cutDetectConfig == other.cutDetectConfig &&
           o.ltcChannelIndex == other.ltcChannelIndex &&
           o.timeReferenceMode == other.timeReferenceMode;
}

void StampWorkflow::process(bool confirmedLowConfidence) {
    startProcessing(confirmedLowConfidence, std::nullopt);
}

void StampWorkflow::resolveOutputConflicts(const QString& choice) {
    const auto behavior = outputCollisionBehaviorFromLabel(toStdString(choice));
    if (!behavior || *behavior == OutputCollisionBehavior::ask) {
        return;
    }
    assign(pendingOutputConflicts_, QStringList{}, &StampWorkflow::pendingOutputConflictsChanged);
    startProcessing(lastRunConfirmed_, behavior);
}

void StampWorkflow::endWithCancel() {
    setStatus(QStringLiteral("Stopped by user"));
    setProgressMessage(QStringLiteral("Stopped"));
    assign(isProcessing_, false, &StampWorkflow::isProcessingChanged);
    assign(isAnalyzingCuts_, false, &StampWorkflow::isAnalyzingCutsChanged);
    appendLog(QStringLiteral("[warn] Operation cancelled by user."));
}

void StampWorkflow::cancel() {
    token_.cancel();
    processTask_.cancel();
    analyzeTask_.cancel();
}

void StampWorkflow::startProcessing(bool confirmed,
                                    std::optional<OutputCollisionBehavior> collision) {
    if (isProcessing_ || isAnalyzingCuts_) {
        return;
    }
    if (isIngesting_) {
        setStatus(QStringLiteral("Still reading the dropped files; try again in a moment."));
        return;
    }
    if (!outputFolderExists()) {
        // Nothing starts: the screen offers to create the folder first.
        const QString reason =
            outputFolder_.trimmed().isEmpty()
                ? QStringLiteral("Choose an output folder.")
                : QStringLiteral("The output folder does not exist: ") + outputFolder_;
        setStatus(reason);
        appendLog(QStringLiteral("[error] ") + reason);
        return;
    }
    lastRunConfirmed_ = confirmed;
    clearResults();
    token_.reset();
    assign(isProcessing_, true, &StampWorkflow::isProcessingChanged);
    setStatus(QStringLiteral("Processing..."));
    appendLog(QStringLiteral("[info] Starting processing in ") + mode_ +
              QStringLiteral(" mode..."));
    setProgressMessage(QStringLiteral("Starting..."));
    setProgressPercent(0);
    assign(pendingOutputConflicts_, QStringList{}, &StampWorkflow::pendingOutputConflictsChanged);

    const ProcessingOptions options = buildOptions(confirmed, collision);
    const std::vector<FileDescriptor> files = descriptors_;
    std::optional<fs::path> selected;
    if (!selectedLTCFile_.isEmpty()) {
        selected = toPath(selectedLTCFile_);
    }
    // A run that stopped for a question (existing outputs, low confidence)
    // goes on with the jobs and decodes it already has, when nothing changed.
    std::optional<PlannedRun> planned;
    if (plannedRun_ && plannedRun_->matches(files, selected, options)) {
        planned = std::move(plannedRun_);
    }
    plannedRun_.reset();

    processTask_.start([this, options, files, selected,
                        planned](const BackgroundTask::Context& task) {
        const auto isCancelled = [this, &task] {
            return task.stopRequested() || token_.isCancelled();
        };
        const auto progress = [this, &task](const ProcessingProgress& p) {
            task.post([this, p] {
                // The run's bytes once known: the bar moves within long files.
                if (p.bytesTotal > 0 || p.totalUnits > 0) {
                    setProgressPercent(p.fraction());
                }
                setProgressMessage(toQString(p.message));
            });
        };
        const auto log = [this, &task](const QString& message) {
            task.post([this, message] { appendLog(message); });
        };
        const bool autoRate = options.frameRatePreset == FrameRatePreset::auto_;
        const bool grouped = options.mode == ProcessingMode::groupedBatch;
        try {
            // Before anything is written: the jobs, what their LTC decodes to,
            // and which outputs already exist.
            // The run's own input rule, before any job is built.
            const bool alone = files.size() == 1 && !grouped;
            if (files.size() < 2 && !alone) {
                throw ProcessingError::notEnoughWavs();
            }
            std::vector<ProcessingJob> jobs;
            std::optional<LTCPrecheck> precheck;
            std::optional<std::string> precheckFailure;
            try {
                jobs = planned
                           ? planned->jobs
                           : processor_.buildJobs(files, selected, options, progress, isCancelled);
                // Existing outputs are known from the names alone: the question
                // comes before any LTC is decoded.
                if (options.outputNaming.collisionBehavior == OutputCollisionBehavior::ask &&
                    !jobs.empty()) {
                    const auto existing = processor_.existingOutputs(jobs, options);
                    if (!existing.empty()) {
                        QStringList names;
                        for (const auto& path : existing) {
                            names.append(toQString(path.filename().string()));
                        }
                        PlannedRun stopped{files, selected, options, jobs, std::nullopt};
                        task.post([this, names, stopped = std::move(stopped)] {
                            plannedRun_ = stopped;
                            assign(pendingOutputConflicts_, names,
                                   &StampWorkflow::pendingOutputConflictsChanged);
                            assign(isProcessing_, false, &StampWorkflow::isProcessingChanged);
                            setStatus(QStringLiteral("Output conflict"));
                            setProgressMessage(QStringLiteral("Awaiting overwrite decision"));
                        });
                        return;
                    }
                }
                precheck = planned && planned->precheck ? planned->precheck
                           : precheck_                  ? precheck_(jobs, options)
                                                        : processor_.precheckLTC(jobs, options);
                if (precheck->detectedRates.empty() && !precheck->failures.empty()) {
                    std::string joined;
                    for (const auto& failure : precheck->failures) {
                        joined += (joined.empty() ? "" : "; ") + failure;
                    }
                    precheckFailure = joined;
                }
            } catch (const ProcessingError& error) {
                if (!autoRate || error.kind() == ProcessingError::Kind::cancelled) {
                    throw;
                }
                precheckFailure = error.description();
            }
            if (autoRate) {
                if (precheckFailure) {
                    const QString description = toQString(*precheckFailure);
                    log(QStringLiteral("[warn] Auto frame-rate precheck failed: ") + description);
                    if (grouped) {
                        task.post([this, description] {
                            setProgressMessage(QStringLiteral("Auto pre-check failed"));
                            setStatus(QStringLiteral(
                                          "Auto frame-rate pre-check failed in Grouped mode: ") +
                                      description);
                            appendLog(QStringLiteral(
                                "[error] Grouped Auto processing aborted to avoid per-column "
                                "fallback."));
                            setProgressMessage(QStringLiteral("Stopped before processing"));
                            assign(isProcessing_, false, &StampWorkflow::isProcessingChanged);
                        });
                        return;
                    }
                } else if (precheck && precheck->detectedRates.size() == 1) {
                    log(QStringLiteral("[info] Auto frame-rate detected: ") +
                        toQString(precheck->detectedRates.front().label) + QStringLiteral(" fps"));
                } else if (precheck && precheck->detectedRates.size() > 1) {
                    QStringList labels;
                    for (const auto& rate : precheck->detectedRates) {
                        labels.append(toQString(rate.label));
                    }
                    log(QStringLiteral("[info] Auto frame-rate detected multiple rates: ") +
                        labels.join(QStringLiteral(", ")));
                } else {
                    log(
                        QStringLiteral("[warn] Auto frame-rate is enabled, but no frame rate could "
                                       "be detected before processing."));
                }
            }
            if (precheck && !options.forceLowConfidence && precheck->lowestConfidence &&
                *precheck->lowestConfidence < kLowConfidenceThreshold) {
                PlannedRun stopped{files, selected, options, jobs, precheck};
                task.post([this, stopped = std::move(stopped)] { plannedRun_ = stopped; });
                throw ProcessingError::lowConfidence(*precheck->lowestConfidence);
            }
            const ProcessingReport report =
                processor_.runJobs(jobs, files, options, progress, isCancelled);
            const QString text = toQString(norvane::reportText(report));
            const auto written = report.outputFiles.size();
            task.post([this, text, written, report, jobs] {
                applyResults(report, jobs);
                emit outputFolderUsed(outputFolder_);
                setStatus(QStringLiteral("Success"));
                assign(reportText_, text, &StampWorkflow::reportTextChanged);
                assign(pendingLowConfidence_, false, &StampWorkflow::pendingLowConfidenceChanged);
                setProgressPercent(1.0);
                setProgressMessage(QStringLiteral("Completed"));
                assign(isProcessing_, false, &StampWorkflow::isProcessingChanged);
                appendLog(QStringLiteral("[success] Processing finished. Wrote ") +
                          QString::number(written) + QStringLiteral(" output file(s)."));
            });
        } catch (const std::exception& error) {
            const auto* engineError = dynamic_cast<const ProcessingError*>(&error);
            const bool cancelled =
                isCancelled() ||
                (engineError && engineError->kind() == ProcessingError::Kind::cancelled);
            const bool needsConfirmation =
                engineError && engineError->kind() == ProcessingError::Kind::lowConfidence &&
                !options.forceLowConfidence;
            const bool isEngineError = engineError != nullptr;
            const QString description = toQString(describeError(error));
            task.post([this, cancelled, needsConfirmation, isEngineError, description] {
                if (cancelled) {
                    endWithCancel();
                    return;
                }
                if (needsConfirmation) {
                    setStatus(QStringLiteral("Confirmation required"));
                    assign(pendingLowConfidence_, true,
                           &StampWorkflow::pendingLowConfidenceChanged);
                } else {
                    setStatus(isEngineError ? QStringLiteral("Processing finished with errors")
                                            : QStringLiteral("Processing failed"));
                }
                assign(reportText_, description, &StampWorkflow::reportTextChanged);
                setProgressMessage(needsConfirmation ? QStringLiteral("Awaiting confirmation")
                                                     : QStringLiteral("Failed"));
                assign(isProcessing_, false, &StampWorkflow::isProcessingChanged);
                appendLog(QStringLiteral("[error] ") + description);
            });
        }
    });
}

}  // namespace norvane
