#pragma once

#include <QObject>
#include <QString>
#include <QStringList>

#include "core/settings/app_settings_store.h"

namespace norvane {

// The settings screen's view of AppSettingsStore: one property per setting,
// named as the store's, enumerations as their labels. Writing a property writes
// the store (which saves at once); every change, from here or elsewhere, comes
// back as the property's change signal through the store's observer.
class SettingsViewModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString defaultFrameRatePreset READ defaultFrameRatePreset WRITE
                   setDefaultFrameRatePreset NOTIFY defaultFrameRatePresetChanged)
    Q_PROPERTY(int defaultGroupedLTCChannel READ defaultGroupedLTCChannel WRITE
                   setDefaultGroupedLTCChannel NOTIFY defaultGroupedLTCChannelChanged)
    Q_PROPERTY(QString lowConfidenceBehavior READ lowConfidenceBehavior WRITE
                   setLowConfidenceBehavior NOTIFY lowConfidenceBehaviorChanged)
    Q_PROPERTY(QString defaultOutputFolderPath READ defaultOutputFolderPath WRITE
                   setDefaultOutputFolderPath NOTIFY defaultOutputFolderPathChanged)
    Q_PROPERTY(bool defaultIncludeLTCOutputs READ defaultIncludeLTCOutputs WRITE
                   setDefaultIncludeLTCOutputs NOTIFY defaultIncludeLTCOutputsChanged)
    Q_PROPERTY(bool defaultSaveCSVReport READ defaultSaveCSVReport WRITE setDefaultSaveCSVReport
                   NOTIFY defaultSaveCSVReportChanged)
    Q_PROPERTY(QString defaultGroupingMethod READ defaultGroupingMethod WRITE
                   setDefaultGroupingMethod NOTIFY defaultGroupingMethodChanged)
    Q_PROPERTY(QString durationTolerancePreset READ durationTolerancePreset WRITE
                   setDurationTolerancePreset NOTIFY durationTolerancePresetChanged)
    Q_PROPERTY(QString outputFilenameSuffix READ outputFilenameSuffix WRITE setOutputFilenameSuffix
                   NOTIFY outputFilenameSuffixChanged)
    Q_PROPERTY(QString outputCollisionBehavior READ outputCollisionBehavior WRITE
                   setOutputCollisionBehavior NOTIFY outputCollisionBehaviorChanged)
    Q_PROPERTY(QString timelineRebuildDefaultMissingCameraBehavior READ
                   timelineRebuildDefaultMissingCameraBehavior WRITE
                       setTimelineRebuildDefaultMissingCameraBehavior NOTIFY
                           timelineRebuildDefaultMissingCameraBehaviorChanged)
    Q_PROPERTY(QString timelineRebuildDefaultTimecodeSourcePriority READ
                   timelineRebuildDefaultTimecodeSourcePriority WRITE
                       setTimelineRebuildDefaultTimecodeSourcePriority NOTIFY
                           timelineRebuildDefaultTimecodeSourcePriorityChanged)
    Q_PROPERTY(QString timelineRebuildDefaultVideoFrameRateMode READ
                   timelineRebuildDefaultVideoFrameRateMode WRITE
                       setTimelineRebuildDefaultVideoFrameRateMode NOTIFY
                           timelineRebuildDefaultVideoFrameRateModeChanged)
    Q_PROPERTY(
        QString timelineRebuildRecentSourceXMLPath READ timelineRebuildRecentSourceXMLPath WRITE
            setTimelineRebuildRecentSourceXMLPath NOTIFY timelineRebuildRecentSourceXMLPathChanged)
    Q_PROPERTY(
        QString timelineRebuildRecentStereoMixPath READ timelineRebuildRecentStereoMixPath WRITE
            setTimelineRebuildRecentStereoMixPath NOTIFY timelineRebuildRecentStereoMixPathChanged)
    Q_PROPERTY(
        QString timelineRebuildRecentSyncedFolderPath READ timelineRebuildRecentSyncedFolderPath
            WRITE setTimelineRebuildRecentSyncedFolderPath NOTIFY
                timelineRebuildRecentSyncedFolderPathChanged)
    Q_PROPERTY(
        QString timelineRebuildRecentOutputFolderPath READ timelineRebuildRecentOutputFolderPath
            WRITE setTimelineRebuildRecentOutputFolderPath NOTIFY
                timelineRebuildRecentOutputFolderPathChanged)
    Q_PROPERTY(
        QString polySplitDefaultOutputFolderPath READ polySplitDefaultOutputFolderPath WRITE
            setPolySplitDefaultOutputFolderPath NOTIFY polySplitDefaultOutputFolderPathChanged)
    Q_PROPERTY(bool polySplitAppendTrackNames READ polySplitAppendTrackNames WRITE
                   setPolySplitAppendTrackNames NOTIFY polySplitAppendTrackNamesChanged)
    Q_PROPERTY(QString defaultTimeReferenceMode READ defaultTimeReferenceMode WRITE
                   setDefaultTimeReferenceMode NOTIFY defaultTimeReferenceModeChanged)
    // Why the last change could not be saved (empty when it was).
    Q_PROPERTY(QString lastWriteError READ lastWriteError NOTIFY lastWriteErrorChanged)
    // Problems met while loading the settings file, for a notice at start-up.
    Q_PROPERTY(QStringList loadWarnings READ loadWarnings CONSTANT)

  public:
    // `store` must outlive this object.
    explicit SettingsViewModel(AppSettingsStore& store, QObject* parent = nullptr);
    ~SettingsViewModel() override;

    AppSettingsStore& store() { return store_; }
    const AppSettingsStore& store() const { return store_; }

    QString defaultFrameRatePreset() const;
    int defaultGroupedLTCChannel() const;
    QString lowConfidenceBehavior() const;
    QString defaultOutputFolderPath() const;
    bool defaultIncludeLTCOutputs() const;
    bool defaultSaveCSVReport() const;
    QString defaultGroupingMethod() const;
    QString durationTolerancePreset() const;
    QString outputFilenameSuffix() const;
    QString outputCollisionBehavior() const;
    QString timelineRebuildDefaultMissingCameraBehavior() const;
    QString timelineRebuildDefaultTimecodeSourcePriority() const;
    QString timelineRebuildDefaultVideoFrameRateMode() const;
    QString timelineRebuildRecentSourceXMLPath() const;
    QString timelineRebuildRecentStereoMixPath() const;
    QString timelineRebuildRecentSyncedFolderPath() const;
    QString timelineRebuildRecentOutputFolderPath() const;
    QString polySplitDefaultOutputFolderPath() const;
    bool polySplitAppendTrackNames() const;
    QString defaultTimeReferenceMode() const;
    QString lastWriteError() const;
    QStringList loadWarnings() const;

    // Label setters ignore a text that is no label of the setting.
    void setDefaultFrameRatePreset(const QString& label);
    void setDefaultGroupedLTCChannel(int channel);
    void setLowConfidenceBehavior(const QString& label);
    void setDefaultOutputFolderPath(const QString& path);
    void setDefaultIncludeLTCOutputs(bool value);
    void setDefaultSaveCSVReport(bool value);
    void setDefaultGroupingMethod(const QString& label);
    void setDurationTolerancePreset(const QString& label);
    void setOutputFilenameSuffix(const QString& suffix);
    void setOutputCollisionBehavior(const QString& label);
    void setTimelineRebuildDefaultMissingCameraBehavior(const QString& label);
    void setTimelineRebuildDefaultTimecodeSourcePriority(const QString& label);
    void setTimelineRebuildDefaultVideoFrameRateMode(const QString& label);
    void setTimelineRebuildRecentSourceXMLPath(const QString& path);
    void setTimelineRebuildRecentStereoMixPath(const QString& path);
    void setTimelineRebuildRecentSyncedFolderPath(const QString& path);
    void setTimelineRebuildRecentOutputFolderPath(const QString& path);
    void setPolySplitDefaultOutputFolderPath(const QString& path);
    void setPolySplitAppendTrackNames(bool value);
    void setDefaultTimeReferenceMode(const QString& label);

    // The "Reset to System Defaults" button.
    Q_INVOKABLE void resetToSystemDefaults();
    // The labels a picker offers for an enumeration property, in their order;
    // empty for other properties.
    Q_INVOKABLE QStringList labelsFor(const QString& propertyName) const;

  signals:
    void defaultFrameRatePresetChanged();
    void defaultGroupedLTCChannelChanged();
    void lowConfidenceBehaviorChanged();
    void defaultOutputFolderPathChanged();
    void defaultIncludeLTCOutputsChanged();
    void defaultSaveCSVReportChanged();
    void defaultGroupingMethodChanged();
    void durationTolerancePresetChanged();
    void outputFilenameSuffixChanged();
    void outputCollisionBehaviorChanged();
    void timelineRebuildDefaultMissingCameraBehaviorChanged();
    void timelineRebuildDefaultTimecodeSourcePriorityChanged();
    void timelineRebuildDefaultVideoFrameRateModeChanged();
    void timelineRebuildRecentSourceXMLPathChanged();
    void timelineRebuildRecentStereoMixPathChanged();
    void timelineRebuildRecentSyncedFolderPathChanged();
    void timelineRebuildRecentOutputFolderPathChanged();
    void polySplitDefaultOutputFolderPathChanged();
    void polySplitAppendTrackNamesChanged();
    void defaultTimeReferenceModeChanged();
    void lastWriteErrorChanged();

  private:
    void onStoreChanged(const std::string& key);
    void afterWrite();

    AppSettingsStore& store_;
    int observerToken_ = 0;
    QString lastWriteError_;
};

}  // namespace norvane
