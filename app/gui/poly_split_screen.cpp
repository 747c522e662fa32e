#include "app/gui/poly_split_screen.h"

#include <QAction>
#include <QFrame>

#include <QCheckBox>
#include <QFileInfo>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QShortcut>
#include <QTableWidget>
#include <QUrl>
#include <QVBoxLayout>

#include "app/gui/file_table_cells.h"
#include "app/gui/property_binding.h"
#include "app/gui/style.h"
#include "app/gui/ui_hooks.h"
#include "app/gui/widgets/drop_area.h"
#include "app/gui/widgets/log_pane.h"
#include "app/gui/widgets/path_field.h"
#include "app/viewmodels/poly_split_workflow.h"

namespace norvane::gui {

PolySplitScreen::PolySplitScreen(PolySplitWorkflow& workflow, QWidget* parent)
    : QWidget(parent),
      workflow_(workflow),
      dropArea_(new DropArea("Drag multi-channel WAV files or folders here",
                             "Linear PCM and 32-bit float WAVs are supported.")),
      inputList_(new QTableWidget(0, columnCount)),
      clear_(new QPushButton("Clear")),
      outputFolder_(new PathField(PathField::Kind::folder, "Split output folder")),
      reveal_(new QPushButton("Show in file manager")),
      overwrite_(new QCheckBox("Overwrite existing files")),
      start_(new QPushButton("Split")),
      cancel_(new QPushButton("Cancel")),
      progress_(new QProgressBar),
      status_(new QLabel),
      log_(new LogPane) {
    setObjectName("polySplitScreen");
    auto* addFiles = dropArea_->addBrowseButton("Add files…");
    addFiles->setToolTip("Choose WAV files (Ctrl+O)");
    auto* addFolder = dropArea_->addButton("Add folder…");
    addFolder->setObjectName("dropAreaAddFolder");
    addFolder->setToolTip("Choose a folder of WAV files (Ctrl+Shift+O)");
    connect(dropArea_, &DropArea::browseRequested, this, &PolySplitScreen::addFilesFromPicker);
    connect(addFolder, &QPushButton::clicked, this, &PolySplitScreen::addFolderFromPicker);
    connect(dropArea_, &DropArea::pathsDropped, &workflow_, &PolySplitWorkflow::addFiles);

    inputList_->setObjectName("polySplitInputList");
    inputList_->setHorizontalHeaderLabels(
        {"File", "Channels · Format", "Duration", "Output", "Status"});
    inputList_->verticalHeader()->hide();
    inputList_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    inputList_->setSelectionBehavior(QAbstractItemView::SelectRows);
    inputList_->setWordWrap(false);
    inputList_->horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    inputList_->horizontalHeader()->setSectionResizeMode(outputColumn, QHeaderView::Stretch);
    inputList_->setAlternatingRowColors(true);
    inputList_->setMinimumHeight(120);
    inputList_->setSelectionMode(QAbstractItemView::ExtendedSelection);
    // Delete or Backspace, or the context menu, take files off the list.
    inputList_->setContextMenuPolicy(Qt::ActionsContextMenu);
    auto* removeAction = new QAction("Remove from list", inputList_);
    removeAction->setObjectName("polySplitRemoveFiles");
    removeAction->setShortcuts({QKeySequence::Delete, QKeySequence(Qt::Key_Backspace)});
    removeAction->setShortcutContext(Qt::WidgetShortcut);
    inputList_->addAction(removeAction);
    connect(removeAction, &QAction::triggered, this, &PolySplitScreen::removeSelectedFiles);
    clear_->setObjectName("polySplitClear");
    connect(clear_, &QPushButton::clicked, &workflow_, &PolySplitWorkflow::clearList);
    forwardDrops(inputList_, [this](const QStringList& paths) { workflow_.addFiles(paths); });
    watchProperty(&workflow_, "polySplitFiles", inputList_, [this] { refreshFiles(); });
    watchProperty(&workflow_, "polySplitInputURLs", inputList_, [this] { refreshState(); });

    outputFolder_->setObjectName("polySplitOutputFolder");
    bindPathField(outputFolder_, &workflow_, "polySplitOutputFolder");
    reveal_->setObjectName("polySplitReveal");
    connect(reveal_, &QPushButton::clicked, this,
            [this] { uiHooks().openUrl(QUrl::fromLocalFile(workflow_.polySplitOutputFolder())); });
    overwrite_->setObjectName("polySplitOverwrite");
    bindCheckBox(overwrite_, &workflow_, "polySplitOverwriteExisting");
    auto* trackNames = new QCheckBox("Add the track names to the file names");
    trackNames->setObjectName("polySplitTrackNames");
    trackNames->setToolTip("A101_1_CH01_MKH516 A.wav: the recorder's iXML name of each track");
    bindCheckBox(trackNames, &workflow_, "polySplitAppendTrackNames");

    start_->setObjectName("polySplitStart");
    start_->setDefault(true);
    start_->setToolTip("Start the split (Ctrl+Return)");
    cancel_->setObjectName("polySplitCancel");
    cancel_->setToolTip("Cancel the split (Esc)");
    connect(start_, &QPushButton::clicked, this, &PolySplitScreen::startSplit);
    connect(cancel_, &QPushButton::clicked, this, [this] {
        cancelling_ = true;
        cancel_->setText("Cancelling…");
        cancel_->setEnabled(false);
        workflow_.cancelSplit();
    });

    progress_->setObjectName("polySplitProgress");
    progress_->setRange(0, 1000);
    progress_->setTextVisible(true);
    watchProperty(&workflow_, "polySplitProgress", progress_, [this] {
        progress_->setValue(static_cast<int>(workflow_.polySplitProgress() * 1000.0 + 0.5));
        progress_->setFormat(
            QString("%1%").arg(static_cast<int>(workflow_.polySplitProgress() * 100.0 + 0.5)));
    });
    status_->setObjectName("statusLine");
    status_->setWordWrap(true);
    watchProperty(&workflow_, "polySplitStatusMessage", status_,
                  [this] { status_->setText(workflow_.polySplitStatusMessage()); });
    log_->setMinimumHeight(100);
    watchProperty(&workflow_, "polySplitLogLines", log_,
                  [this] { log_->setLines(workflow_.polySplitLogLines()); });
    watchProperty(&workflow_, "polySplitIsProcessing", this, [this] { refreshState(); });

    auto* listHeader = new QHBoxLayout;
    listHeader->addWidget(makeSectionTitle("Files"));
    listHeader->addStretch();
    listHeader->addWidget(clear_);

    auto* options = new QGridLayout;
    options->addWidget(new QLabel("Output folder"), 0, 0);
    options->addWidget(outputFolder_, 0, 1);
    options->addWidget(reveal_, 0, 2);
    options->addWidget(overwrite_, 1, 1);
    options->addWidget(trackNames, 2, 1);
    options->setColumnStretch(1, 1);

    auto* actions = new QHBoxLayout;
    actions->addWidget(start_);
    actions->addWidget(cancel_);
    actions->addWidget(progress_, 1);

    auto* content = new QWidget;
    auto* layout = new QVBoxLayout(content);
    layout->setContentsMargins(16, 12, 16, 6);
    layout->setSpacing(8);
    layout->addWidget(dropArea_);
    layout->addLayout(listHeader);
    layout->addWidget(inputList_, 2);
    layout->addWidget(makeSectionTitle("Log"));
    layout->addWidget(log_, 1);
    // The action bar stays at the bottom at any window size.
    actionBar_ = new QFrame;
    actionBar_->setObjectName("actionBar");
    auto* bar = new QVBoxLayout(actionBar_);
    bar->setContentsMargins(16, 6, 16, 8);
    bar->setSpacing(4);
    bar->addLayout(options);
    bar->addLayout(actions);
    bar->addWidget(status_);
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    outer->setSpacing(0);
    outer->addWidget(content, 1);
    outer->addWidget(actionBar_);

    // Ctrl+O, Ctrl+Return and Esc belong to the window's menus, which hand
    // them to the screen on show.
    auto* folderShortcut = new QShortcut(QKeySequence("Ctrl+Shift+O"), this);
    folderShortcut->setContext(Qt::WidgetWithChildrenShortcut);
    connect(folderShortcut, &QShortcut::activated, this, &PolySplitScreen::addFolderFromPicker);

    setTabOrder(addFiles, addFolder);
    setTabOrder(addFolder, clear_);
    setTabOrder(clear_, inputList_);
    setTabOrder(inputList_, outputFolder_->lineEdit());
    setTabOrder(outputFolder_->lineEdit(), outputFolder_->chooseButton());
    setTabOrder(outputFolder_->chooseButton(), reveal_);
    setTabOrder(reveal_, overwrite_);
    setTabOrder(overwrite_, start_);
    setTabOrder(start_, cancel_);
    setTabOrder(cancel_, log_);
    refreshState();
}

void PolySplitScreen::addFilesFromPicker() {
    const QStringList files =
        uiHooks().chooseFiles(this, "Add WAV files", lastBrowseFolder(), "WAV files (*.wav *.WAV)");
    if (files.isEmpty()) {
        return;
    }
    rememberBrowseFolder(files.front());
    workflow_.addFiles(files);
}

void PolySplitScreen::addFolderFromPicker() {
    const QString folder =
        uiHooks().chooseFolder(this, "Add a folder of WAV files", lastBrowseFolder());
    if (folder.isEmpty()) {
        return;
    }
    rememberBrowseFolder(folder);
    workflow_.addFiles({folder});
}

void PolySplitScreen::startSplit() {
    // A typed folder that does not exist yet is created once the user agrees.
    if (!workflow_.polySplitInputURLs().isEmpty() &&
        !workflow_.polySplitOutputFolder().trimmed().isEmpty() && !workflow_.outputFolderExists()) {
        if (!uiHooks().confirm(this, "Create output folder?",
                               QString("The output folder does not exist:\n%1\n\nCreate it and "
                                       "split into it?")
                                   .arg(workflow_.polySplitOutputFolder()),
                               "Create Folder") ||
            !workflow_.createOutputFolder()) {
            return;
        }
    }
    workflow_.startSplit();
}

void PolySplitScreen::removeSelectedFiles() {
    QStringList paths;
    for (const QModelIndex& index : inputList_->selectionModel()->selectedRows(fileColumn)) {
        paths.append(index.data(Qt::UserRole).toString());
    }
    workflow_.removeFiles(paths);
}

void PolySplitScreen::refreshFiles() {
    const QVariantList files = workflow_.polySplitFiles();
    inputList_->setRowCount(static_cast<int>(files.size()));
    for (int row = 0; row < files.size(); ++row) {
        const QVariantMap file = files[row].toMap();
        const QString path = file.value("path").toString();
        auto* name = new QTableWidgetItem(file.value("fileName").toString());
        name->setToolTip(path);
        name->setData(Qt::UserRole, path);
        inputList_->setItem(row, fileColumn, name);
        const QString state = file.value("state").toString();
        const bool ready = state == "ready";
        inputList_->setItem(
            row, formatColumn,
            new QTableWidgetItem(ready ? channelsFormatText(file.value("channels").toInt(),
                                                            file.value("sampleRate").toDouble(),
                                                            file.value("bitsPerSample").toInt(),
                                                            file.value("isFloat").toBool())
                                 : state == "reading" ? QString("…")
                                                      : QString("unreadable")));
        inputList_->setItem(
            row, durationColumn,
            new QTableWidgetItem(ready ? durationText(file.value("durationSeconds").toDouble())
                                       : QString("–")));
        // The names the mono files get: the first and the last, all in the tooltip.
        const QStringList outputs = file.value("outputs").toStringList();
        auto* output =
            new QTableWidgetItem(outputs.isEmpty()     ? QString("–")
                                 : outputs.size() == 1 ? outputs.front()
                                                       : QString("%1 … %2  (%3 files)")
                                                             .arg(outputs.front(), outputs.back())
                                                             .arg(outputs.size()));
        output->setToolTip(outputs.join("\n"));
        inputList_->setItem(row, outputColumn, output);
        inputList_->setItem(
            row, statusColumn,
            statusItem(file.value("status").toString(), file.value("statusReason").toString()));
    }
}

void PolySplitScreen::refreshState() {
    const bool running = workflow_.polySplitIsProcessing();
    start_->setEnabled(!running);
    if (!running) {
        cancelling_ = false;
        cancel_->setText("Cancel");
    }
    cancel_->setEnabled(running && !cancelling_);
    clear_->setEnabled(!running && !workflow_.polySplitInputURLs().isEmpty());
    dropArea_->setEnabled(!running);
    outputFolder_->setEnabled(!running);
    overwrite_->setEnabled(!running);
}

}  // namespace norvane::gui
