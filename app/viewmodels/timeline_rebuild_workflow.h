#pragma once

#include <optional>
#include <string>

#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

#include "app/viewmodels/background_task.h"
#include "core/rebuild/rebuild_engine.h"
#include "core/settings/app_settings_store.h"

namespace norvane {

// The timeline rebuild screen's state (inputs, mapping, validate, build,
// report) and its actions. Auto-scan, validation and build run one at a time
// in the background (timelineRebuildTask); results are published on the main
// thread and a failure keeps the last good results.
//
// Rows for the screens:
//   detectedAudioInputs: {id, name, sourceURL, eventOrder, eventTimecode, durationSeconds,
//       frameCount, sampleRate, channels, trackKey, timecodeProvenance, trackProvenance,
//       usedFallback}
//   detectedEvents: {id, name, order, timecode, durationSeconds, audioTrackCount, usedFallback}
//   videoTracks: {id, name ("V1"), camera (what the lane's clips name: a
//       multicam angle or the clips' shared name), candidateClipCount}
//   previewRows: {id, eventTimecode, audioClipName, audioClipCount, trackMatches {lane: bool}}
//   validationItems: {id, severity ("Error" | "Warning" | "Info"), message}
//   readinessItems: {id, title, isReady}
//   buildStats: {eventsProcessed, cameraMatches, gapsInserted, fallbackTimecodesUsed}
//   report: {outputXMLURL, sequenceDurationSeconds, trackLayoutSummary,
//       durationBoundarySummary, fcpxmlValidationSummary, provenanceSummary, gapsByTrack,
//       notes}; empty until a build wrote its document
class TimelineRebuildWorkflow : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString step READ step NOTIFY stepChanged)
    Q_PROPERTY(
        QString sourceXMLURL READ sourceXMLURL WRITE setSourceXMLURL NOTIFY sourceXMLURLChanged)
    Q_PROPERTY(
        QString stereoMixURL READ stereoMixURL WRITE setStereoMixURL NOTIFY stereoMixURLChanged)
    Q_PROPERTY(QString syncedAudioFolderURL READ syncedAudioFolderURL WRITE setSyncedAudioFolderURL
                   NOTIFY syncedAudioFolderURLChanged)
    Q_PROPERTY(QString outputFolderURL READ outputFolderURL WRITE setOutputFolderURL NOTIFY
                   outputFolderURLChanged)
    Q_PROPERTY(QString outputFilename READ outputFilename WRITE setOutputFilename NOTIFY
                   outputFilenameChanged)
    Q_PROPERTY(QString missingCameraBehavior READ missingCameraBehavior WRITE
                   setMissingCameraBehavior NOTIFY missingCameraBehaviorChanged)
    Q_PROPERTY(QString timecodeSourcePriority READ timecodeSourcePriority WRITE
                   setTimecodeSourcePriority NOTIFY timecodeSourcePriorityChanged)
    Q_PROPERTY(QString videoFrameRateMode READ videoFrameRateMode WRITE setVideoFrameRateMode NOTIFY
                   videoFrameRateModeChanged)
    Q_PROPERTY(
        QVariantList detectedAudioInputs READ detectedAudioInputs NOTIFY detectedAudioInputsChanged)
    Q_PROPERTY(QVariantList detectedEvents READ detectedEvents NOTIFY detectedEventsChanged)
    Q_PROPERTY(QVariantList videoTracks READ videoTracks NOTIFY videoTracksChanged)
    Q_PROPERTY(QVariantList previewRows READ previewRows NOTIFY previewRowsChanged)
    Q_PROPERTY(QVariantList validationItems READ validationItems NOTIFY validationItemsChanged)
    Q_PROPERTY(QVariantList readinessItems READ readinessItems NOTIFY readinessItemsChanged)
    Q_PROPERTY(bool isBuilding READ isBuilding NOTIFY isBuildingChanged)
    Q_PROPERTY(bool isBusy READ isBusy NOTIFY isBusyChanged)
    Q_PROPERTY(QString progressPhase READ progressPhase NOTIFY progressPhaseChanged)
    Q_PROPERTY(double progressPercent READ progressPercent NOTIFY progressPercentChanged)
    Q_PROPERTY(QVariantMap buildStats READ buildStats NOTIFY buildStatsChanged)
    Q_PROPERTY(QVariantMap report READ report NOTIFY reportChanged)
    Q_PROPERTY(QString statusMessage READ statusMessage NOTIFY statusMessageChanged)

  public:
    static constexpr const char* kInitialStatus = "Add inputs to begin.";

    // The options start from the settings' rebuild defaults and the inputs
    // from the remembered locations; choosing an input remembers it there.
    explicit TimelineRebuildWorkflow(AppSettingsStore& settings, QObject* parent = nullptr);
    ~TimelineRebuildWorkflow() override;

    const QString& step() const { return step_; }
    const QString& sourceXMLURL() const { return sourceXMLURL_; }
    const QString& stereoMixURL() const { return stereoMixURL_; }
    const QString& syncedAudioFolderURL() const { return syncedAudioFolderURL_; }
    const QString& outputFolderURL() const { return outputFolderURL_; }
    const QString& outputFilename() const { return outputFilename_; }
    const QString& missingCameraBehavior() const { return missingCameraBehavior_; }
    const QString& timecodeSourcePriority() const { return timecodeSourcePriority_; }
    const QString& videoFrameRateMode() const { return videoFrameRateMode_; }
    const QVariantList& detectedAudioInputs() const { return detectedAudioInputs_; }
    const QVariantList& detectedEvents() const { return detectedEvents_; }
    const QVariantList& videoTracks() const { return videoTracks_; }
    const QVariantList& previewRows() const { return previewRows_; }
    const QVariantList& validationItems() const { return validationItems_; }
    const QVariantList& readinessItems() const { return readinessItems_; }
    bool isBuilding() const { return isBuilding_; }
    // An auto-scan, validation or build is running.
    bool isBusy() const { return isBusy_; }
    const QString& progressPhase() const { return progressPhase_; }
    double progressPercent() const { return progressPercent_; }
    const QVariantMap& buildStats() const { return buildStats_; }
    const QVariantMap& report() const { return report_; }
    const QString& statusMessage() const { return statusMessage_; }

    Q_INVOKABLE void setSourceXMLURL(const QString& path);
    Q_INVOKABLE void setStereoMixURL(const QString& path);
    Q_INVOKABLE void setSyncedAudioFolderURL(const QString& path);
    Q_INVOKABLE void setOutputFolderURL(const QString& path);
    Q_INVOKABLE void setOutputFilename(const QString& name);
    // Label setters ignore a text that is no label.
    Q_INVOKABLE void setMissingCameraBehavior(const QString& label);
    Q_INVOKABLE void setTimecodeSourcePriority(const QString& label);
    Q_INVOKABLE void setVideoFrameRateMode(const QString& label);

    // A fresh state: defaults, no inputs, step "inputs".
    Q_INVOKABLE void reset();
    // The first failing input check's message; empty when all pass.
    Q_INVOKABLE QString checkInputs() const;
    Q_INVOKABLE void autoScan();
    Q_INVOKABLE void continueToMapping();
    Q_INVOKABLE void validate();
    Q_INVOKABLE void build();
    // Empties the inputs and results ("Inputs cleared.").
    Q_INVOKABLE void clear();
    Q_INVOKABLE void cancel();

    // The unset-input marker, as the screens see it.
    static QString unsetInputPath();

  signals:
    void stepChanged();
    void sourceXMLURLChanged();
    void stereoMixURLChanged();
    void syncedAudioFolderURLChanged();
    void outputFolderURLChanged();
    void outputFilenameChanged();
    void missingCameraBehaviorChanged();
    void timecodeSourcePriorityChanged();
    void videoFrameRateModeChanged();
    void detectedAudioInputsChanged();
    void detectedEventsChanged();
    void videoTracksChanged();
    void previewRowsChanged();
    void validationItemsChanged();
    void readinessItemsChanged();
    void isBuildingChanged();
    void isBusyChanged();
    void progressPhaseChanged();
    void progressPercentChanged();
    void buildStatsChanged();
    void reportChanged();
    void statusMessageChanged();

  private:
    template <typename T>
    void assign(T& field, const T& value, void (TimelineRebuildWorkflow::*changed)()) {
        if (!(field == value)) {
            field = value;
            emit(this->*changed)();
        }
    }
    void setStatus(const QString& status) {
        assign(statusMessage_, status, &TimelineRebuildWorkflow::statusMessageChanged);
    }
    void setStep(const char* step) {
        assign(step_, QString::fromLatin1(step), &TimelineRebuildWorkflow::stepChanged);
    }
    RebuildInputs inputs() const;
    RebuildChoices choices() const;
    void refreshReadiness();
    void clearResults();
    void publishScan(const std::vector<TimelineRebuildDetectedAudioInput>& rows,
                     const SourceContext& context,
                     const std::optional<ResolveRebuildAnalysis>& analysis);
    void publishItems(const std::vector<TimelineRebuildValidationItem>& items);
    void setBusy(bool busy) { assign(isBusy_, busy, &TimelineRebuildWorkflow::isBusyChanged); }

    AppSettingsStore& settings_;
    QString step_ = QStringLiteral("inputs");
    QString sourceXMLURL_;
    QString stereoMixURL_;
    QString syncedAudioFolderURL_;
    QString outputFolderURL_;
    QString outputFilename_;
    QString missingCameraBehavior_;
    QString timecodeSourcePriority_;
    QString videoFrameRateMode_;
    QVariantList detectedAudioInputs_;
    QVariantList detectedEvents_;
    QVariantList videoTracks_;
    QVariantList previewRows_;
    QVariantList validationItems_;
    QVariantList readinessItems_;
    bool isBuilding_ = false;
    bool isBusy_ = false;
    QString progressPhase_;
    double progressPercent_ = 0;
    QVariantMap buildStats_;
    QVariantMap report_;
    QString statusMessage_;
    std::optional<ResolveRebuildAnalysis> lastAnalysis_;
    std::string sourceXMLText_;
    // Last, so that it stops and joins its thread before the state goes away.
    BackgroundTask timelineRebuildTask_;
};

}  // namespace norvane
