#pragma once

#include <QMap>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

#include "app/viewmodels/background_task.h"
#include "core/settings/app_settings_store.h"
#include "core/split/poly_wav_split_processor.h"

namespace norvane {

// The poly WAV split screen: the queued files, the output folder, the
// overwrite switch, and one background split at a time (polySplitTask) whose
// progress, per-file lines and outcome come back to the main thread.
class PolySplitWorkflow : public QObject {
    Q_OBJECT
    Q_PROPERTY(
        QStringList polySplitInputURLs READ polySplitInputURLs NOTIFY polySplitInputURLsChanged)
    Q_PROPERTY(QString polySplitOutputFolder READ polySplitOutputFolder WRITE setOutputFolder NOTIFY
                   polySplitOutputFolderChanged)
    Q_PROPERTY(
        bool polySplitIsProcessing READ polySplitIsProcessing NOTIFY polySplitIsProcessingChanged)
    Q_PROPERTY(double polySplitProgress READ polySplitProgress NOTIFY polySplitProgressChanged)
    Q_PROPERTY(QString polySplitStatusMessage READ polySplitStatusMessage NOTIFY
                   polySplitStatusMessageChanged)
    Q_PROPERTY(QStringList polySplitLogLines READ polySplitLogLines NOTIFY polySplitLogLinesChanged)
    Q_PROPERTY(bool polySplitOverwriteExisting READ polySplitOverwriteExisting WRITE
                   setPolySplitOverwriteExisting NOTIFY polySplitOverwriteExistingChanged)
    // Outputs named "Take_CH01_<iXML track name>.wav"; starts as the setting
    // polySplitAppendTrackNames.
    Q_PROPERTY(bool polySplitAppendTrackNames READ polySplitAppendTrackNames WRITE
                   setPolySplitAppendTrackNames NOTIFY polySplitAppendTrackNamesChanged)
    // One row per queued file, in list order, for the screen's table:
    //   {path, fileName, state ("reading", "ready", "unreadable"), channels, sampleRate,
    //    bitsPerSample, isFloat, durationSeconds, outputs (the mono file names it will
    //    get), status ("ok", "warning", "failed" or "" before a run), statusReason}
    // Headers are read in the background (describeTask), never the audio.
    Q_PROPERTY(QVariantList polySplitFiles READ polySplitFiles NOTIFY polySplitFilesChanged)

  public:
    // The output folder starts as the settings' polySplitDefaultOutputFolderPath.
    explicit PolySplitWorkflow(const AppSettingsStore& settings, QObject* parent = nullptr);
    ~PolySplitWorkflow() override;

    const QStringList& polySplitInputURLs() const { return inputURLs_; }
    const QString& polySplitOutputFolder() const { return outputFolder_; }
    bool polySplitIsProcessing() const { return isProcessing_; }
    double polySplitProgress() const { return progress_; }
    const QString& polySplitStatusMessage() const { return statusMessage_; }
    const QStringList& polySplitLogLines() const { return logLines_; }
    bool polySplitOverwriteExisting() const { return overwriteExisting_; }
    bool polySplitAppendTrackNames() const { return appendTrackNames_; }
    const QVariantList& polySplitFiles() const { return files_; }
    // The headers of the queued files have all been read.
    bool isDescribing() const { return describing_; }

    void setPolySplitOverwriteExisting(bool overwrite);
    void setPolySplitAppendTrackNames(bool append);

    // Files and folders from the picker or a drop: folders are searched
    // recursively, only .wav files are kept, merged without duplicates and
    // sorted by file name the way a file browser orders them.
    Q_INVOKABLE void addFiles(const QStringList& paths);
    Q_INVOKABLE void clearList();
    Q_INVOKABLE void setOutputFolder(const QString& path);
    // Starts the split of the whole list (cancelling a split still running).
    Q_INVOKABLE void startSplit();
    Q_INVOKABLE void cancelSplit();
    // Takes files off the list (the Delete key, the context menu).
    Q_INVOKABLE void removeFiles(const QStringList& paths);
    // Whether the output folder exists; a missing one is created only after
    // the user agreed, through createOutputFolder.
    Q_INVOKABLE bool outputFolderExists() const;
    Q_INVOKABLE bool createOutputFolder();

  signals:
    void polySplitInputURLsChanged();
    void polySplitOutputFolderChanged();
    void polySplitIsProcessingChanged();
    void polySplitProgressChanged();
    void polySplitStatusMessageChanged();
    void polySplitLogLinesChanged();
    void polySplitOverwriteExistingChanged();
    void polySplitAppendTrackNamesChanged();
    void polySplitFilesChanged();
    // A split wrote into `folder`: the place to remember for the next launch.
    void outputFolderUsed(const QString& folder);

  private:
    void appendLog(const QString& message);
    void setStatus(const QString& status);
    void setProgress(double progress);
    void setProcessing(bool processing);
    // Rows from the list, the headers read so far and the last run's results;
    // reads the headers still unknown in the background.
    void refreshFiles();
    void recordResults(const PolyWavSplitReport& report);

    QStringList inputURLs_;
    QString outputFolder_;
    QString savedOutputFolder_;        // from the settings, before any file is known
    bool outputFolderChosen_ = false;  // the user set the output folder
    bool isProcessing_ = false;
    double progress_ = 0;
    QString statusMessage_;
    QStringList logLines_;
    bool overwriteExisting_ = false;
    bool appendTrackNames_ = false;
    QVariantList files_;
    QMap<QString, QVariantMap> headers_;  // by path: what describeSplitInput read
    QMap<QString, QVariantMap> results_;  // by path: {status, statusReason, outputs}
    bool describing_ = false;
    BackgroundTask describeTask_;
    // Last, so that it stops and joins its thread before the state goes away.
    BackgroundTask polySplitTask_;
};

}  // namespace norvane
