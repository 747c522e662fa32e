#pragma once

#include <QWidget>

class QCheckBox;
class QLabel;
class QTableWidget;
class QProgressBar;
class QPushButton;

namespace norvane {
class PolySplitWorkflow;
}

namespace norvane::gui {

class DropArea;
class LogPane;
class PathField;

// Poly WAV split: queue multichannel WAVs (drop or pick files and folders),
// choose the output folder and the overwrite switch, start and cancel, and
// follow progress, status and log.
class PolySplitScreen : public QWidget {
    Q_OBJECT

  public:
    explicit PolySplitScreen(PolySplitWorkflow& workflow, QWidget* parent = nullptr);

    DropArea* dropArea() const { return dropArea_; }
    // The queued files: File, Channels · Format, Duration, Output (the names
    // the mono files get) and Status (the last run's outcome, reason as tooltip).
    QTableWidget* inputList() const { return inputList_; }
    enum Column {
        fileColumn,
        formatColumn,
        durationColumn,
        outputColumn,
        statusColumn,
        columnCount
    };
    PathField* outputFolderField() const { return outputFolder_; }
    QCheckBox* overwriteSwitch() const { return overwrite_; }
    QPushButton* startButton() const { return start_; }
    QPushButton* cancelButton() const { return cancel_; }
    QProgressBar* progressBar() const { return progress_; }
    QLabel* statusLabel() const { return status_; }
    LogPane* logPane() const { return log_; }

    // The screen's file pickers (the drop area's buttons and Ctrl+O).
    void addFilesFromPicker();
    void addFolderFromPicker();

    // The bottom bar with Split, Cancel, progress and the output folder.
    QWidget* actionBar() const { return actionBar_; }

  private:
    void refreshState();
    void refreshFiles();
    void startSplit();
    void removeSelectedFiles();
    QWidget* actionBar_ = nullptr;
    bool cancelling_ = false;

    PolySplitWorkflow& workflow_;
    DropArea* dropArea_;
    QTableWidget* inputList_;
    QPushButton* clear_;
    PathField* outputFolder_;
    QPushButton* reveal_;
    QCheckBox* overwrite_;
    QPushButton* start_;
    QPushButton* cancel_;
    QProgressBar* progress_;
    QLabel* status_;
    LogPane* log_;
};

}  // namespace norvane::gui
