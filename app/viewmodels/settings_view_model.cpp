#include "app/viewmodels/settings_view_model.h"

#include <map>
#include <optional>
#include <string>

#include "app/viewmodels/view_model_support.h"

namespace norvane {

namespace {

template <typename Enum, std::size_t N>
QStringList labelList(const std::array<Enum, N>& cases) {
    QStringList labels;
    for (Enum value : cases) {
        labels.append(toQString(label(value)));
    }
    return labels;
}

}  // namespace

SettingsViewModel::SettingsViewModel(AppSettingsStore& store, QObject* parent)
    : QObject(parent), store_(store) {
    observerToken_ = store_.addObserver([this](const std::string& key) { onStoreChanged(key); });
}

SettingsViewModel::~SettingsViewModel() {
    store_.removeObserver(observerToken_);
}

void SettingsViewModel::onStoreChanged(const std::string& key) {
    using Signal = void (SettingsViewModel::*)();
    static const std::map<std::string, Signal> keySignals = {
        {"settings.defaultFrameRatePreset", &SettingsViewModel::defaultFrameRatePresetChanged},
        {"settings.defaultGroupedLTCChannel", &SettingsViewModel::defaultGroupedLTCChannelChanged},
        {"settings.lowConfidenceBehavior", &SettingsViewModel::lowConfidenceBehaviorChanged},
        {"settings.defaultOutputFolderPath", &SettingsViewModel::defaultOutputFolderPathChanged},
        {"settings.defaultIncludeLTCOutputs", &SettingsViewModel::defaultIncludeLTCOutputsChanged},
        {"settings.defaultSaveCSVReport", &SettingsViewModel::defaultSaveCSVReportChanged},
        {"settings.defaultGroupingMethod", &SettingsViewModel::defaultGroupingMethodChanged},
        {"settings.durationTolerancePreset", &SettingsViewModel::durationTolerancePresetChanged},
        {"settings.outputFilenameSuffix", &SettingsViewModel::outputFilenameSuffixChanged},
        {"settings.outputCollisionBehavior", &SettingsViewModel::outputCollisionBehaviorChanged},
        {"settings.timelineRebuildDefaultMissingCameraBehavior",
         &SettingsViewModel::timelineRebuildDefaultMissingCameraBehaviorChanged},
        {"settings.timelineRebuildDefaultTimecodeSourcePriority",
         &SettingsViewModel::timelineRebuildDefaultTimecodeSourcePriorityChanged},
        {"settings.timelineRebuildDefaultVideoFrameRateMode",
         &SettingsViewModel::timelineRebuildDefaultVideoFrameRateModeChanged},
        {"settings.timelineRebuildRecentSourceXMLPath",
         &SettingsViewModel::timelineRebuildRecentSourceXMLPathChanged},
        {"settings.timelineRebuildRecentStereoMixPath",
         &SettingsViewModel::timelineRebuildRecentStereoMixPathChanged},
        {"settings.timelineRebuildRecentSyncedFolderPath",
         &SettingsViewModel::timelineRebuildRecentSyncedFolderPathChanged},
        {"settings.timelineRebuildRecentOutputFolderPath",
         &SettingsViewModel::timelineRebuildRecentOutputFolderPathChanged},
        {"settings.polySplitDefaultOutputFolderPath",
         &SettingsViewModel::polySplitDefaultOutputFolderPathChanged},
        {"settings.polySplitAppendTrackNames",
         &SettingsViewModel::polySplitAppendTrackNamesChanged},
        {"settings.defaultTimeReferenceMode", &SettingsViewModel::defaultTimeReferenceModeChanged},
    };
    if (const auto it = keySignals.find(key); it != keySignals.end()) {
        emit(this->*(it->second))();
    }
    afterWrite();
}

void SettingsViewModel::afterWrite() {
    const QString error = store_.lastWriteError() ? toQString(*store_.lastWriteError()) : QString();
    if (error != lastWriteError_) {
        lastWriteError_ = error;
        emit lastWriteErrorChanged();
    }
}

// MARK: - Getters

QString SettingsViewModel::defaultFrameRatePreset() const {
    return toQString(label(store_.defaultFrameRatePreset()));
}
int SettingsViewModel::defaultGroupedLTCChannel() const {
    return store_.defaultGroupedLTCChannel();
}
QString SettingsViewModel::lowConfidenceBehavior() const {
    return toQString(label(store_.lowConfidenceBehavior()));
}
QString SettingsViewModel::defaultOutputFolderPath() const {
    return toQString(store_.defaultOutputFolderPath());
}
bool SettingsViewModel::defaultIncludeLTCOutputs() const {
    return store_.defaultIncludeLTCOutputs();
}
bool SettingsViewModel::defaultSaveCSVReport() const {
    return store_.defaultSaveCSVReport();
}
QString SettingsViewModel::defaultGroupingMethod() const {
    return toQString(label(store_.defaultGroupingMethod()));
}
QString SettingsViewModel::durationTolerancePreset() const {
    return toQString(label(store_.durationTolerancePreset()));
}
QString SettingsViewModel::outputFilenameSuffix() const {
    return toQString(store_.outputFilenameSuffix());
}
QString SettingsViewModel::outputCollisionBehavior() const {
    return toQString(label(store_.outputCollisionBehavior()));
}
QString SettingsViewModel::timelineRebuildDefaultMissingCameraBehavior() const {
    return toQString(label(store_.timelineRebuildDefaultMissingCameraBehavior()));
}
QString SettingsViewModel::timelineRebuildDefaultTimecodeSourcePriority() const {
    return toQString(label(store_.timelineRebuildDefaultTimecodeSourcePriority()));
}
QString SettingsViewModel::timelineRebuildDefaultVideoFrameRateMode() const {
    return toQString(label(store_.timelineRebuildDefaultVideoFrameRateMode()));
}
QString SettingsViewModel::timelineRebuildRecentSourceXMLPath() const {
    return toQString(store_.timelineRebuildRecentSourceXMLPath());
}
QString SettingsViewModel::timelineRebuildRecentStereoMixPath() const {
    return toQString(store_.timelineRebuildRecentStereoMixPath());
}
QString SettingsViewModel::timelineRebuildRecentSyncedFolderPath() const {
    return toQString(store_.timelineRebuildRecentSyncedFolderPath());
}
QString SettingsViewModel::timelineRebuildRecentOutputFolderPath() const {
    return toQString(store_.timelineRebuildRecentOutputFolderPath());
}
QString SettingsViewModel::polySplitDefaultOutputFolderPath() const {
    return toQString(store_.polySplitDefaultOutputFolderPath());
}
bool SettingsViewModel::polySplitAppendTrackNames() const {
    return store_.polySplitAppendTrackNames();
}
QString SettingsViewModel::lastWriteError() const {
    return lastWriteError_;
}
QStringList SettingsViewModel::loadWarnings() const {
    QStringList warnings;
    for (const auto& warning : store_.loadWarnings()) {
        warnings.append(toQString(warning));
    }
    return warnings;
}

// MARK: - Setters

void SettingsViewModel::setDefaultFrameRatePreset(const QString& text) {
    if (const auto value = frameRatePresetFromLabel(toStdString(text))) {
        store_.setDefaultFrameRatePreset(*value);
    }
}
void SettingsViewModel::setDefaultGroupedLTCChannel(int channel) {
    store_.setDefaultGroupedLTCChannel(channel);
}
void SettingsViewModel::setLowConfidenceBehavior(const QString& text) {
    if (const auto value = lowConfidenceBehaviorFromLabel(toStdString(text))) {
        store_.setLowConfidenceBehavior(*value);
    }
}
void SettingsViewModel::setDefaultOutputFolderPath(const QString& path) {
    store_.setDefaultOutputFolderPath(toStdString(path));
}
void SettingsViewModel::setDefaultIncludeLTCOutputs(bool value) {
    store_.setDefaultIncludeLTCOutputs(value);
}
void SettingsViewModel::setDefaultSaveCSVReport(bool value) {
    store_.setDefaultSaveCSVReport(value);
}
void SettingsViewModel::setDefaultGroupingMethod(const QString& text) {
    if (const auto value = groupingMethodFromLabel(toStdString(text))) {
        store_.setDefaultGroupingMethod(*value);
    }
}
void SettingsViewModel::setDurationTolerancePreset(const QString& text) {
    if (const auto value = durationTolerancePresetFromLabel(toStdString(text))) {
        store_.setDurationTolerancePreset(*value);
    }
}
void SettingsViewModel::setOutputFilenameSuffix(const QString& suffix) {
    store_.setOutputFilenameSuffix(toStdString(suffix));
}
void SettingsViewModel::setOutputCollisionBehavior(const QString& text) {
    if (const auto value = outputCollisionBehaviorFromLabel(toStdString(text))) {
        store_.setOutputCollisionBehavior(*value);
    }
}
void SettingsViewModel::setTimelineRebuildDefaultMissingCameraBehavior(const QString& text) {
    if (const auto value = missingCameraBehaviorFromLabel(toStdString(text))) {
        store_.setTimelineRebuildDefaultMissingCameraBehavior(*value);
    }
}
void SettingsViewModel::setTimelineRebuildDefaultTimecodeSourcePriority(const QString& text) {
    if (const auto value = timecodeSourcePriorityFromLabel(toStdString(text))) {
        store_.setTimelineRebuildDefaultTimecodeSourcePriority(*value);
    }
}
void SettingsViewModel::setTimelineRebuildDefaultVideoFrameRateMode(const QString& text) {
    if (const auto value = videoFrameRateModeFromLabel(toStdString(text))) {
        store_.setTimelineRebuildDefaultVideoFrameRateMode(*value);
    }
}
void SettingsViewModel::setTimelineRebuildRecentSourceXMLPath(const QString& path) {
    store_.setTimelineRebuildRecentSourceXMLPath(toStdString(path));
}
void SettingsViewModel::setTimelineRebuildRecentStereoMixPath(const QString& path) {
    store_.setTimelineRebuildRecentStereoMixPath(toStdString(path));
}
void SettingsViewModel::setTimelineRebuildRecentSyncedFolderPath(const QString& path) {
    store_.setTimelineRebuildRecentSyncedFolderPath(toStdString(path));
}
void SettingsViewModel::setTimelineRebuildRecentOutputFolderPath(const QString& path) {
    store_.setTimelineRebuildRecentOutputFolderPath(toStdString(path));
}
void SettingsViewModel::setPolySplitDefaultOutputFolderPath(const QString& path) {
    store_.setPolySplitDefaultOutputFolderPath(toStdString(path));
}
void SettingsViewModel::setPolySplitAppendTrackNames(bool value) {
    store_.setPolySplitAppendTrackNames(value);
}
QString SettingsViewModel::defaultTimeReferenceMode() const {
    return toQString(label(store_.defaultTimeReferenceMode()));
}
void SettingsViewModel::setDefaultTimeReferenceMode(const QString& text) {
    if (const auto value = timeReferenceModeFromLabel(toStdString(text))) {
        store_.setDefaultTimeReferenceMode(*value);
    }
}

void SettingsViewModel::resetToSystemDefaults() {
    store_.resetToSystemDefaults();
}

QStringList SettingsViewModel::labelsFor(const QString& propertyName) const {
    const std::string name = toStdString(propertyName);
    if (name == "defaultFrameRatePreset") {
        return labelList(allFrameRatePresets());
    }
    if (name == "lowConfidenceBehavior") {
        return labelList(allLowConfidenceBehaviors());
    }
    if (name == "defaultGroupingMethod") {
        return labelList(allGroupingMethods());
    }
    if (name == "durationTolerancePreset") {
        return labelList(allDurationTolerancePresets());
    }
    if (name == "outputCollisionBehavior") {
        return labelList(allOutputCollisionBehaviors());
    }
    if (name == "timelineRebuildDefaultMissingCameraBehavior") {
        return labelList(allMissingCameraBehaviors());
    }
    if (name == "timelineRebuildDefaultTimecodeSourcePriority") {
        return labelList(allTimecodeSourcePriorities());
    }
    if (name == "timelineRebuildDefaultVideoFrameRateMode") {
        return labelList(allVideoFrameRateModes());
    }
    if (name == "defaultTimeReferenceMode") {
        return labelList(allTimeReferenceModes());
    }
    // The stamp screen's pickers share this list.
    if (name == "mode") {
        return labelList(allProcessingModes());
    }
    if (name == "frameRatePreset") {
        return labelList(allFrameRatePresets());
    }
    if (name == "groupingMethod") {
        return labelList(allGroupingMethods());
    }
    return {};
}

}  // namespace norvane
