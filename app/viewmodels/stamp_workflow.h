#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVariantList>
#include <QVariantMap>

#include "app/viewmodels/background_task.h"
#include "app/viewmodels/cancellation_token.h"
#include "core/settings/app_settings_store.h"
#include "core/stamp/stamp_processor.h"

namespace norvane {

// The LTC stamp screen: ingested files, the run's choices, the grouping and
// cut previews, and the background cut analysis (analyzeTask) and processing
// (processTask) with their confirmations, status, progress, report and log.
//
// Rows for the screens:
//   files: {fileName, path, format, durationSeconds, timecode, isLTC, sampleRate,
//           channels, frameCount,
//           ltcProbe ("probing", "found", "none"), ltcChannel (1-based), ltcRate,
//           ltcConfidence, ltcStart (timecode of the first frame found), ltcEvidence
//           (run frames, bit errors, confidence, what chose the rate)  — from the
//           signal, probed in the background on ingest;
//           startTimecode ("10:00:00:00 @ 23.976"), startEvidence (the decode it
//           came from: run, bit errors, rate evidence, sub-frame offset), output, status ("ok",
//           "warning", "failed", "ltc" for an LTC source not written), statusReason, children
//           (segment rows of a cut take: {name, startTimecode, output, status, statusReason})  —
//           from the last run}
//   dayRuler: {label, startSeconds (since midnight), durationSeconds, rate, status,
//              isLTC} per file, group or segment at its stamped (or probed) start
//   ltcHealth: {path, fileName, channel, rate, frameCount, sampleRate,
//               firstValidSample (-1 none), envelope [0..1], stretches
//               [{begin, end, level: "green"|"amber"|"red"}]} of the LTC source
//   cutTimelinePoints: {sample, frameCount, timecode}
//   cutSegments: {startSample, endSample, segmentIndex}
// groupIDs are in the file-browser order of their names; groupNamesByID holds
// the name a person reads (the take the files share, "Sc12_T03").
// Maps keyed by group id: groupFilesByID (list of paths), groupTrackFilesByID
// (track number as text -> path), groupResolvedLTCByID (path),
// groupCommonMaxChannelsByID and groupLTCChannelOverrides (1-based channel).
//
// The LTC channel of Single and LTC Cut Detect runs (and of the cut analysis)
// is ltcChannelChoice: 0 lets the engine find the channel that decodes best,
// N reads channel N (1-based) of the selected LTC file, which has
// selectedLTCChannelCount channels. designatedLTCChannel is the grouped
// default instead.
// The name of a group of files with these stems: what they share up to a
// word boundary, else the first stem and how many more.
std::string groupDisplayName(const std::vector<std::string>& stems);

class StampWorkflow : public QObject {
    Q_OBJECT
    Q_PROPERTY(QVariantList files READ files NOTIFY filesChanged)
    Q_PROPERTY(QStringList ignoredFiles READ ignoredFiles NOTIFY ignoredFilesChanged)
    Q_PROPERTY(QString selectedLTCFile READ selectedLTCFile WRITE setSelectedLTCFile NOTIFY
                   selectedLTCFileChanged)
    Q_PROPERTY(QString frameRatePreset READ frameRatePreset WRITE setFrameRatePreset NOTIFY
                   frameRatePresetChanged)
    Q_PROPERTY(QString mode READ mode WRITE setMode NOTIFY modeChanged)
    Q_PROPERTY(bool includeLTCOutputs READ includeLTCOutputs WRITE setIncludeLTCOutputs NOTIFY
                   includeLTCOutputsChanged)
    Q_PROPERTY(QString groupingMethod READ groupingMethod WRITE setGroupingMethod NOTIFY
                   groupingMethodChanged)
    Q_PROPERTY(QString groupingDelimiter READ groupingDelimiter WRITE setGroupingDelimiter NOTIFY
                   groupingDelimiterChanged)
    Q_PROPERTY(int groupingTokenIndex READ groupingTokenIndex WRITE setGroupingTokenIndex NOTIFY
                   groupingTokenIndexChanged)
    Q_PROPERTY(
        QString groupingRegex READ groupingRegex WRITE setGroupingRegex NOTIFY groupingRegexChanged)
    Q_PROPERTY(QVariantMap groupLTCChannelOverrides READ groupLTCChannelOverrides NOTIFY
                   groupLTCChannelOverridesChanged)
    Q_PROPERTY(int designatedLTCChannel READ designatedLTCChannel WRITE setDesignatedLTCChannel
                   NOTIFY designatedLTCChannelChanged)
    Q_PROPERTY(int ltcChannelChoice READ ltcChannelChoice WRITE setLTCChannelChoice NOTIFY
                   ltcChannelChoiceChanged)
    Q_PROPERTY(int selectedLTCChannelCount READ selectedLTCChannelCount NOTIFY
                   selectedLTCChannelCountChanged)
    Q_PROPERTY(QVariantList commonLTCChannelCandidates READ commonLTCChannelCandidates NOTIFY
                   commonLTCChannelCandidatesChanged)
    Q_PROPERTY(QVariant designatedLTCTrackNumber READ designatedLTCTrackNumber NOTIFY
                   designatedLTCTrackNumberChanged)
    Q_PROPERTY(
        QVariantList matrixTrackNumbers READ matrixTrackNumbers NOTIFY matrixTrackNumbersChanged)
    Q_PROPERTY(
        QVariantMap groupTrackFilesByID READ groupTrackFilesByID NOTIFY groupTrackFilesByIDChanged)
    Q_PROPERTY(QVariantMap groupResolvedLTCByID READ groupResolvedLTCByID NOTIFY
                   groupResolvedLTCByIDChanged)
    Q_PROPERTY(QStringList groupPreviewRows READ groupPreviewRows NOTIFY groupPreviewRowsChanged)
    Q_PROPERTY(QStringList groupIDs READ groupIDs NOTIFY groupIDsChanged)
    Q_PROPERTY(QVariantMap groupNamesByID READ groupNamesByID NOTIFY groupNamesByIDChanged)
    Q_PROPERTY(QVariantMap groupFilesByID READ groupFilesByID NOTIFY groupFilesByIDChanged)
    Q_PROPERTY(QVariantMap groupCommonMaxChannelsByID READ groupCommonMaxChannelsByID NOTIFY
                   groupCommonMaxChannelsByIDChanged)
    Q_PROPERTY(int cutMinSegmentFrames READ cutMinSegmentFrames WRITE setCutMinSegmentFrames NOTIFY
                   cutMinSegmentFramesChanged)
    Q_PROPERTY(int cutDiscontinuityThreshold READ cutDiscontinuityThreshold WRITE
                   setCutDiscontinuityThreshold NOTIFY cutDiscontinuityThresholdChanged)
    Q_PROPERTY(
        QStringList segmentPreviewRows READ segmentPreviewRows NOTIFY segmentPreviewRowsChanged)
    Q_PROPERTY(
        QString outputFolder READ outputFolder WRITE setOutputFolder NOTIFY outputFolderChanged)
    Q_PROPERTY(QString reportText READ reportText NOTIFY reportTextChanged)
    Q_PROPERTY(QStringList logLines READ logLines NOTIFY logLinesChanged)
    Q_PROPERTY(QString statusMessage READ statusMessage NOTIFY statusMessageChanged)
    Q_PROPERTY(bool isProcessing READ isProcessing NOTIFY isProcessingChanged)
    Q_PROPERTY(
        bool pendingLowConfidence READ pendingLowConfidence NOTIFY pendingLowConfidenceChanged)
    Q_PROPERTY(double progressPercent READ progressPercent NOTIFY progressPercentChanged)
    Q_PROPERTY(QString progressMessage READ progressMessage NOTIFY progressMessageChanged)
    Q_PROPERTY(bool isAnalyzingCuts READ isAnalyzingCuts NOTIFY isAnalyzingCutsChanged)
    Q_PROPERTY(QStringList pendingOutputConflicts READ pendingOutputConflicts NOTIFY
                   pendingOutputConflictsChanged)
    Q_PROPERTY(
        QVariantList cutTimelinePoints READ cutTimelinePoints NOTIFY cutTimelinePointsChanged)
    Q_PROPERTY(QVariantList cutSegments READ cutSegments NOTIFY cutSegmentsChanged)
    Q_PROPERTY(qint64 cutFileFrameCount READ cutFileFrameCount NOTIFY cutFileFrameCountChanged)
    Q_PROPERTY(qint64 cutSampleRate READ cutSampleRate NOTIFY cutSampleRateChanged)
    Q_PROPERTY(bool isProbing READ isProbing NOTIFY isProbingChanged)
    // Dropped files are being read (in the background); files lists them when done.
    Q_PROPERTY(bool isIngesting READ isIngesting NOTIFY isIngestingChanged)
    Q_PROPERTY(QVariantList dayRuler READ dayRuler NOTIFY dayRulerChanged)
    Q_PROPERTY(QVariantMap ltcHealth READ ltcHealth NOTIFY ltcHealthChanged)

  public:
    static constexpr const char* kInitialReportText = "Drop WAV files or a folder to begin.";
    static constexpr const char* kInitialLogLine = "[init] App initialized. Ready.";
    // Segment lines shown before the " more segments" line.
    static constexpr int kMaxSegmentPreviewRows = 12;

    // Defaults come from `settings`, which is read again at each run and must
    // outlive this object; `token` is the cancellation flag shared with the engine.
    StampWorkflow(const AppSettingsStore& settings, CancellationToken& token,
                  QObject* parent = nullptr);
    ~StampWorkflow() override;

    const QVariantList& files() const { return files_; }
    const QStringList& ignoredFiles() const { return ignoredFiles_; }
    const QString& selectedLTCFile() const { return selectedLTCFile_; }
    const QString& frameRatePreset() const { return frameRatePreset_; }
    const QString& mode() const { return mode_; }
    bool includeLTCOutputs() const { return includeLTCOutputs_; }
    const QString& groupingMethod() const { return groupingMethod_; }
    const QString& groupingDelimiter() const { return groupingDelimiter_; }
    int groupingTokenIndex() const { return groupingTokenIndex_; }
    const QString& groupingRegex() const { return groupingRegex_; }
    const QVariantMap& groupLTCChannelOverrides() const { return groupLTCChannelOverrides_; }
    int designatedLTCChannel() const { return designatedLTCChannel_; }
    int ltcChannelChoice() const { return ltcChannelChoice_; }
    int selectedLTCChannelCount() const { return selectedLTCChannelCount_; }
    const QVariantList& commonLTCChannelCandidates() const { return commonLTCChannelCandidates_; }
    const QVariant& designatedLTCTrackNumber() const { return designatedLTCTrackNumber_; }
    const QVariantList& matrixTrackNumbers() const { return matrixTrackNumbers_; }
    const QVariantMap& groupTrackFilesByID() const { return groupTrackFilesByID_; }
    const QVariantMap& groupResolvedLTCByID() const { return groupResolvedLTCByID_; }
    const QStringList& groupPreviewRows() const { return groupPreviewRows_; }
    const QStringList& groupIDs() const { return groupIDs_; }
    const QVariantMap& groupNamesByID() const { return groupNamesByID_; }
    const QVariantMap& groupFilesByID() const { return groupFilesByID_; }
    const QVariantMap& groupCommonMaxChannelsByID() const { return groupCommonMaxChannelsByID_; }
    int cutMinSegmentFrames() const { return cutMinSegmentFrames_; }
    int cutDiscontinuityThreshold() const { return cutDiscontinuityThreshold_; }
    const QStringList& segmentPreviewRows() const { return segmentPreviewRows_; }
    const QString& outputFolder() const { return outputFolder_; }
    const QString& reportText() const { return reportText_; }
    const QStringList& logLines() const { return logLines_; }
    const QString& statusMessage() const { return statusMessage_; }
    bool isProcessing() const { return isProcessing_; }
    bool pendingLowConfidence() const { return pendingLowConfidence_; }
    double progressPercent() const { return progressPercent_; }
    const QString& progressMessage() const { return progressMessage_; }
    bool isAnalyzingCuts() const { return isAnalyzingCuts_; }
    const QStringList& pendingOutputConflicts() const { return pendingOutputConflicts_; }
    const QVariantList& cutTimelinePoints() const { return cutTimelinePoints_; }
    const QVariantList& cutSegments() const { return cutSegments_; }
    qint64 cutFileFrameCount() const { return cutFileFrameCount_; }
    qint64 cutSampleRate() const { return cutSampleRate_; }
    bool isProbing() const { return isProbing_; }
    bool isIngesting() const { return isIngesting_; }
    const QVariantList& dayRuler() const { return dayRuler_; }
    const QVariantMap& ltcHealth() const { return ltcHealth_; }

    // Label setters ignore a text that is no label.
    void setFrameRatePreset(const QString& label);
    void setMode(const QString& label);
    void setIncludeLTCOutputs(bool include);
    void setGroupingMethod(const QString& label);
    void setGroupingDelimiter(const QString& delimiter);
    void setGroupingTokenIndex(int index);
    void setGroupingRegex(const QString& pattern);
    void setDesignatedLTCChannel(int channel);
    // 0 (or less) for the best-decoding channel; a channel the selected LTC
    // file does not have also means that.
    void setLTCChannelChoice(int channel);
    void setCutMinSegmentFrames(int frames);
    void setCutDiscontinuityThreshold(int frames);
    Q_INVOKABLE void setOutputFolder(const QString& path);

    // Dropped or picked files and folders (folders give the WAV files inside).
    // Returns at once: folders are walked and headers read in the background
    // (isIngesting); a drop made meanwhile is read after it.
    Q_INVOKABLE void ingest(const QStringList& paths);
    Q_INVOKABLE void clearFiles();
    // Takes files off the list (the Delete key, the context menu).
    Q_INVOKABLE void removeFiles(const QStringList& paths);
    // Whether the output folder exists; a missing one is created only after
    // the user agreed, through createOutputFolder.
    Q_INVOKABLE bool outputFolderExists() const;
    Q_INVOKABLE bool createOutputFolder();
    // The run stopped for existing outputs and the user chose neither
    // "Overwrite" nor "Keep Both".
    Q_INVOKABLE void dismissOutputConflicts();
    // The file carrying LTC in Single and LTC Cut Detect modes ("" for none).
    Q_INVOKABLE void setSelectedLTCFile(const QString& path);
    // The user's LTC channel (1-based) or LTC file for one group.
    Q_INVOKABLE void setGroupLTCChannel(const QString& groupID, int channel);
    Q_INVOKABLE void setGroupLTCFile(const QString& groupID, const QString& path);
    Q_INVOKABLE void refreshGroupingPreview();
    Q_INVOKABLE void analyzeCuts();
    Q_INVOKABLE void process(bool confirmedLowConfidence = false);
    // "Overwrite" or "Keep Both": runs again with that collision behaviour.
    Q_INVOKABLE void resolveOutputConflicts(const QString& choice);
    Q_INVOKABLE void cancel();

    // Replaces the LTC pre-check that runs before processing (the decodes
    // behind the Auto rate report and the low-confidence stop), so that a
    // decode outcome real recordings rarely give can be simulated. Main thread,
    // while no run is active.
    using LTCPrecheckFunction =
        std::function<LTCPrecheck(const std::vector<ProcessingJob>&, const ProcessingOptions&)>;
    void setLTCPrecheckForTesting(LTCPrecheckFunction precheck) { precheck_ = std::move(precheck); }

  signals:
    void filesChanged();
    void ignoredFilesChanged();
    void selectedLTCFileChanged();
    void frameRatePresetChanged();
    void modeChanged();
    void includeLTCOutputsChanged();
    void groupingMethodChanged();
    void groupingDelimiterChanged();
    void groupingTokenIndexChanged();
    void groupingRegexChanged();
    void groupLTCChannelOverridesChanged();
    void designatedLTCChannelChanged();
    void ltcChannelChoiceChanged();
    void selectedLTCChannelCountChanged();
    void commonLTCChannelCandidatesChanged();
    void designatedLTCTrackNumberChanged();
    void matrixTrackNumbersChanged();
    void groupTrackFilesByIDChanged();
    void groupResolvedLTCByIDChanged();
    void groupPreviewRowsChanged();
    void groupIDsChanged();
    void groupNamesByIDChanged();
    void groupFilesByIDChanged();
    void groupCommonMaxChannelsByIDChanged();
    void cutMinSegmentFramesChanged();
    void cutDiscontinuityThresholdChanged();
    void segmentPreviewRowsChanged();
    void outputFolderChanged();
    void reportTextChanged();
    void logLinesChanged();
    void statusMessageChanged();
    void isProcessingChanged();
    void pendingLowConfidenceChanged();
    void progressPercentChanged();
    void progressMessageChanged();
    void isAnalyzingCutsChanged();
    void pendingOutputConflictsChanged();
    void cutTimelinePointsChanged();
    void cutSegmentsChanged();
    void cutFileFrameCountChanged();
    void cutSampleRateChanged();
    void isProbingChanged();
    void isIngestingChanged();
    void dayRulerChanged();
    void ltcHealthChanged();
    // A run wrote into `folder`: the place to remember for the next launch.
    void outputFolderUsed(const QString& folder);

  private:
    template <typename T>
    void assign(T& field, const T& value, void (StampWorkflow::*changed)()) {
        if (!(field == value)) {
            field = value;
            emit(this->*changed)();
        }
    }
    void appendLog(const QString& message);
    void setStatus(const QString& status) {
        assign(statusMessage_, status, &StampWorkflow::statusMessageChanged);
    }
    void setProgressMessage(const QString& message) {
        assign(progressMessage_, message, &StampWorkflow::progressMessageChanged);
    }
    void setProgressPercent(double percent) {
        assign(progressPercent_, percent, &StampWorkflow::progressPercentChanged);
    }
    void publishFiles();
    // A dropped file as read off the main thread: its descriptor and row, or
    // why it was not taken.
    struct IngestedFile {
        std::filesystem::path path;
        std::optional<FileDescriptor> descriptor;
        QVariantMap row;
        bool invalidWAV = false;
        QString error;
    };
    static void readIngestedFile(IngestedFile& file, FrameRatePreset preset);
    void finishIngest(bool foundNone, const std::vector<IngestedFile>& read);
    // selectedLTCChannelCount from the selected file; a choice beyond it falls
    // back to the best channel.
    void refreshSelectedLTCChannels();
    void endWithCancel();
    ProcessingOptions buildOptions(bool confirmed,
                                   std::optional<OutputCollisionBehavior> collision) const;
    void startProcessing(bool confirmed, std::optional<OutputCollisionBehavior> collision);
    // Probes the LTC of `paths` in the background and then picks the LTC
    // source from the signal unless the user chose one.
    void startProbing(const std::vector<std::filesystem::path>& paths);
    void chooseLTCFromProbes();
    void refreshLTCHealth();
    void refreshDayRuler();
    void clearResults();
    void applyResults(const ProcessingReport& report, const std::vector<ProcessingJob>& jobs);
    // Edits the row of `path` in `rows`; false when it is not listed.
    static bool editRow(QVariantList& rows, const QString& path,
                        const std::function<void(QVariantMap&)>& edit);
    bool selectedLTCIsRecording() const;
    struct GroupDecode {
        std::string key;
        std::vector<FileDescriptor> members;
        std::optional<std::int64_t> channelIndex;
    };
    // Finds the LTC file of each group off the main thread, then shows the preview again.
    void startGroupDecode(std::vector<GroupDecode> pending, std::optional<FrameRateConfig> rate);

    const AppSettingsStore& settings_;
    CancellationToken& token_;
    StampProcessor processor_;

    std::vector<FileDescriptor> descriptors_;  // in ingest order, beside their rows
    std::map<std::string, std::filesystem::path> userGroupLTC_;  // the user's own choices
    // Group LTC files found by decoding a group's files, by what was decoded
    // (members, channel, rate); empty when none carries readable code.
    std::map<std::string, std::optional<std::filesystem::path>> decodedGroupLTC_;
    std::string decodingGroupsKey_;  // what the running group decode is for

    QVariantList files_;
    QStringList ignoredFiles_;
    QString selectedLTCFile_;
    QString frameRatePreset_;
    QString mode_;
    bool includeLTCOutputs_ = false;
    QString groupingMethod_;
    QString groupingDelimiter_;
    int groupingTokenIndex_ = 1;
    QString groupingRegex_;
    QVariantMap groupLTCChannelOverrides_;
    int designatedLTCChannel_ = 1;
    int ltcChannelChoice_ = 0;  // 0: best channel
    int selectedLTCChannelCount_ = 0;
    QVariantList commonLTCChannelCandidates_;
    QVariant designatedLTCTrackNumber_;
    QVariantList matrixTrackNumbers_;
    QVariantMap groupTrackFilesByID_;
    QVariantMap groupResolvedLTCByID_;
    QStringList groupPreviewRows_;
    QStringList groupIDs_;
    QVariantMap groupNamesByID_;
    QVariantMap groupFilesByID_;
    QVariantMap groupCommonMaxChannelsByID_;
    int cutMinSegmentFrames_ = 24;
    int cutDiscontinuityThreshold_ = 1;
    QStringList segmentPreviewRows_;
    QString outputFolder_;
    QString reportText_;
    QStringList logLines_;
    QString statusMessage_;
    bool isProcessing_ = false;
    bool pendingLowConfidence_ = false;
    double progressPercent_ = 0;
    QString progressMessage_;
    bool isAnalyzingCuts_ = false;
    QStringList pendingOutputConflicts_;
    QVariantList cutTimelinePoints_;
    QVariantList cutSegments_;
    qint64 cutFileFrameCount_ = 0;
    qint64 cutSampleRate_ = 0;

    bool isProbing_ = false;
    bool isIngesting_ = false;
    QStringList queuedIngest_;
    QVariantList dayRuler_;
    QVariantMap ltcHealth_;
    bool userChoseLTC_ = false;        // the LTC file came from the user, not the signal
    bool outputFolderChosen_ = false;  // the user set the output folder
    QString defaultOutputFolder_;      // the saved one, before any file is known

    // The jobs (and the LTC pre-check) of a run that stopped for a question,
    // with what they were built from.
    struct PlannedRun {
        std::vector<FileDescriptor> files;
        std::optional<std::filesystem::path> selected;
        ProcessingOptions options;
        std::vector<ProcessingJob> jobs;
        std::optional<LTCPrecheck> precheck;
        bool matches(const std::vector<FileDescriptor>& otherFiles,
                     const std::optional<std::filesystem::path>& otherSelected,
                     const ProcessingOptions& other) const;
    };
    std::optional<PlannedRun> plannedRun_;
    bool lastRunConfirmed_ = false;
    LTCPrecheckFunction precheck_;
    // Last, so that they stop and join their threads before the state goes away.
    BackgroundTask analyzeTask_;
    BackgroundTask processTask_;
    BackgroundTask probeTask_;
    BackgroundTask healthTask_;
    BackgroundTask ingestTask_;
    BackgroundTask groupDecodeTask_;
};

}  // namespace norvane
