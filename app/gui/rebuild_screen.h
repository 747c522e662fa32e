#pragma once

#include <QObject>
#include <QWidget>

class QButtonGroup;
class QComboBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QPlainTextEdit;
class QProgressBar;
class QPushButton;
class QStackedWidget;
class QTabWidget;
class QTableWidget;

namespace norvane::gui {

class CoverageGrid;
class RebuildTimeline;
class DropArea;
class PathField;

// Timeline rebuild, step by step: inputs (with readiness and the three
// options), mapping (what auto-scan found: files with provenance, events,
// camera lanes, preview rows and the events x lanes grid), validation (items
// coloured by severity), build (phase and progress) and the report.
//
// The screen talks to the rebuild workflow through its published properties
// and invokable actions only.
class RebuildScreen : public QWidget {
    Q_OBJECT

  public:
    explicit RebuildScreen(QObject& workflow, QWidget* parent = nullptr);

    static const QStringList& stepNames();  // "inputs" ... "report"
    // The step page on show (follows the workflow's step; the step bar can
    // show earlier pages).
    QString shownStep() const;
    void showStep(const QString& step);

    DropArea* dropArea() const { return dropArea_; }
    PathField* sourceXMLField() const { return sourceXML_; }
    PathField* stereoMixField() const { return stereoMix_; }
    PathField* syncedFolderField() const { return syncedFolder_; }
    PathField* outputFolderField() const { return outputFolder_; }
    QLineEdit* outputFilenameEdit() const { return outputFilename_; }
    QComboBox* missingCameraPicker() const { return missingCamera_; }
    QComboBox* timecodeSourcePicker() const { return timecodeSource_; }
    QComboBox* videoFrameRatePicker() const { return videoFrameRate_; }
    QListWidget* readinessList() const { return readiness_; }
    QPushButton* autoScanButton() const { return autoScan_; }
    QPushButton* continueButton() const { return continue_; }
    QPushButton* validateButton() const { return validate_; }
    QPushButton* buildButton() const { return build_; }
    QPushButton* cancelButton() const { return cancel_; }
    QTabWidget* mappingTabs() const { return mappingTabs_; }
    QTableWidget* filesTable() const { return files_; }
    QTableWidget* eventsTable() const { return events_; }
    QTableWidget* lanesTable() const { return lanes_; }
    QTableWidget* previewTable() const { return preview_; }
    CoverageGrid* coverageGrid() const { return coverage_; }
    RebuildTimeline* timeline() const { return timeline_; }
    QListWidget* validationList() const { return validation_; }
    QProgressBar* progressBar() const { return progress_; }
    QLabel* phaseLabel() const { return phase_; }
    QPlainTextEdit* reportView() const { return report_; }
    QLabel* statusLabel() const { return status_; }
    // The bottom bar with Build, Cancel, progress and the output folder.
    QWidget* actionBar() const { return actionBar_; }
    QLabel* buildSummary() const { return buildSummary_; }
    // A lane's title: its label and the camera its clips name ("V1 · CamA").
    QString laneTitle(const QString& label) const;

    // The File menu's Add files…: a timeline and a stereo mix, routed as a drop.
    void addFilesFromPicker();

    // Routes dropped items: a timeline to the source, a WAV to the stereo
    // mix, the first folder to the synced audio and a second to the output.
    void routeDroppedPaths(const QStringList& paths);

  private:
    QWidget* buildInputsPage();
    QWidget* buildMappingPage();
    QWidget* buildValidatePage();
    QWidget* buildBuildPage();
    QWidget* buildReportPage();
    QWidget* buildActionBar();
    void refreshBuildSummary();
    void bindState();
    void setInput(const char* property, const QString& path);
    void refreshReadiness();
    void refreshMapping();
    void refreshValidation();
    void refreshBuild();
    void refreshReport();
    void refreshBusy();
    QVariant value(const char* name) const { return workflow_.property(name); }
    QString pathValue(const char* name) const;

    QObject& workflow_;
    QButtonGroup* stepButtons_;
    QStackedWidget* pages_;
    DropArea* dropArea_;
    PathField* sourceXML_;
    PathField* stereoMix_;
    PathField* syncedFolder_;
    PathField* outputFolder_;
    QLineEdit* outputFilename_;
    QComboBox* missingCamera_;
    QComboBox* timecodeSource_;
    QComboBox* videoFrameRate_;
    QListWidget* readiness_;
    QPushButton* autoScan_;
    QPushButton* continue_;
    QPushButton* clear_;
    QTabWidget* mappingTabs_;
    QTableWidget* files_;
    QTableWidget* events_;
    QTableWidget* lanes_;
    QTableWidget* preview_;
    CoverageGrid* coverage_;
    RebuildTimeline* timeline_;
    RebuildTimeline* buildTimeline_;  // the same picture on the Build step
    QLabel* coverageSummary_;
    QPushButton* validate_;
    QListWidget* validation_;
    QPushButton* build_;
    QProgressBar* progress_;
    QLabel* phase_;
    QLabel* stats_;
    QLabel* buildSummary_;
    QWidget* actionBar_ = nullptr;
    bool cancelling_ = false;
    QPushButton* cancel_;
    QPlainTextEdit* report_;
    QPushButton* revealOutput_;
    QPushButton* startOver_;
    QLabel* status_;
};

}  // namespace norvane::gui
