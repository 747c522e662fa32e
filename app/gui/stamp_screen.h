#pragma once

#include <QObject>
#include <QWidget>

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QPlainTextEdit;
class QProgressBar;
class QPushButton;
class QSpinBox;
class QStackedWidget;
class QTableWidget;

namespace norvane::gui {

class CutTimelineStrip;
class DayRuler;
class DropArea;
class LTCHealthStrip;
class LogPane;
class PathField;

// LTC stamp: the dropped files with their format, duration and existing
// timecode; mode, frame rate and LTC source pickers; the grouping preview
// (Grouped Batch) or the cut analysis with its strip (LTC Cut Detect); the
// output folder; Process and Cancel with progress; report and log. The two
// confirmations (low confidence, existing outputs) are asked through the UI
// hooks when the workflow stops for them.
//
// The screen talks to the stamp workflow through its published properties
// and invokable actions only.
class StampScreen : public QWidget {
    Q_OBJECT

  public:
    explicit StampScreen(QObject& workflow, QWidget* parent = nullptr);

    DropArea* dropArea() const { return dropArea_; }
    QTableWidget* fileTable() const { return fileTable_; }
    QComboBox* modePicker() const { return mode_; }
    QComboBox* frameRatePicker() const { return frameRate_; }
    QCheckBox* includeLTCOutputsSwitch() const { return includeLTC_; }
    QComboBox* ltcFilePicker() const { return ltcFile_; }
    QComboBox* ltcChannelPicker() const { return ltcChannel_; }
    QComboBox* groupingMethodPicker() const { return groupingMethod_; }
    QLineEdit* groupingDelimiterEdit() const { return groupingDelimiter_; }
    QSpinBox* groupingTokenIndexBox() const { return groupingTokenIndex_; }
    QLineEdit* groupingRegexEdit() const { return groupingRegex_; }
    QListWidget* groupPreview() const { return groupPreview_; }
    QTableWidget* groupTable() const { return groupTable_; }
    QSpinBox* cutMinSegmentFramesBox() const { return cutMinSegmentFrames_; }
    QSpinBox* cutThresholdBox() const { return cutThreshold_; }
    QPushButton* analyzeButton() const { return analyze_; }
    QListWidget* segmentPreview() const { return segmentPreview_; }
    CutTimelineStrip* cutStrip() const { return cutStrip_; }
    PathField* outputFolderField() const { return outputFolder_; }
    QPushButton* revealButton() const { return reveal_; }
    QPushButton* processButton() const { return process_; }
    QPushButton* cancelButton() const { return cancel_; }
    QProgressBar* progressBar() const { return progress_; }
    QLabel* progressLabel() const { return progressMessage_; }
    QLabel* statusLabel() const { return status_; }
    QPlainTextEdit* reportPane() const { return report_; }
    LogPane* logPane() const { return log_; }
    DayRuler* dayRuler() const { return dayRuler_; }
    LTCHealthStrip* healthStrip() const { return healthStrip_; }
    // The bottom bar with the primary button, Cancel, progress and output folder.
    QWidget* actionBar() const { return actionBar_; }

    // Columns of the file table.
    enum Column {
        fileColumn,
        formatColumn,
        durationColumn,
        ltcColumn,
        startColumn,
        outputColumn,
        statusColumn,
        columnCount
    };

    void addFilesFromPicker();
    void addFolderFromPicker();

  private:
    QWidget* buildOptions();
    QWidget* buildSinglePage();
    QWidget* buildGroupedPage();
    QWidget* buildCutPage();
    void bindState();
    void refreshFiles();
    void refreshSingleSources();
    void refreshGroups();
    void refreshGroupingControls();
    void refreshCutPicture();
    void refreshBusy();
    void askLowConfidence();
    void askOutputConflicts();
    void startProcessing();
    void removeSelectedFiles();
    void invoke(const char* action);
    void invoke(const char* action, const QVariant& a);
    void invoke(const char* action, const QVariant& a, const QVariant& b);
    QVariant value(const char* name) const { return workflow_.property(name); }

    QObject& workflow_;
    DropArea* dropArea_;
    QPushButton* clear_;
    QLabel* ignored_;
    QTableWidget* fileTable_;
    QComboBox* mode_;
    QComboBox* frameRate_;
    QCheckBox* includeLTC_;
    QStackedWidget* modePages_;
    QWidget* ltcSource_ = nullptr;
    QComboBox* ltcFile_;
    QComboBox* ltcChannel_;
    QComboBox* groupingMethod_;
    QLineEdit* groupingDelimiter_;
    QSpinBox* groupingTokenIndex_;
    QLineEdit* groupingRegex_;
    QWidget* tokenControls_;
    QWidget* regexControls_;
    QLabel* durationNote_;
    QListWidget* groupPreview_;
    QTableWidget* groupTable_;
    QSpinBox* cutMinSegmentFrames_;
    QSpinBox* cutThreshold_;
    QPushButton* analyze_;
    QListWidget* segmentPreview_;
    CutTimelineStrip* cutStrip_;
    PathField* outputFolder_;
    QPushButton* reveal_;
    QPushButton* process_;
    QPushButton* cancel_;
    QProgressBar* progress_;
    QLabel* progressMessage_;
    QLabel* status_;
    QPlainTextEdit* report_;
    LogPane* log_;
    DayRuler* dayRuler_;
    LTCHealthStrip* healthStrip_;
    QWidget* actionBar_ = nullptr;
    bool cancelling_ = false;
    bool askingLowConfidence_ = false;
    bool askingConflicts_ = false;
};

}  // namespace norvane::gui
