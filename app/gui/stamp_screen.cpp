#include "app/gui/stamp_screen.h"

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QFileInfo>
#include <QFormLayout>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollArea>
#include <QShortcut>
#include <QSignalBlocker>
#include <QSpinBox>
#include <QSplitter>
#include <QStackedWidget>
#include <QTableWidget>
#include <QTimer>
#include <QUrl>
#include <QVBoxLayout>
#include <cmath>

#include "app/gui/file_table_cells.h"
#include "app/gui/property_binding.h"
#include "app/gui/style.h"
#include "app/gui/ui_hooks.h"
#include "app/gui/view_model_access.h"
#include "app/gui/widgets/cut_timeline_strip.h"
#include "app/gui/widgets/day_ruler.h"
#include "app/gui/widgets/drop_area.h"
#include "app/gui/widgets/help_button.h"
#include "app/gui/widgets/log_pane.h"
#include "app/gui/widgets/ltc_health_strip.h"
#include "app/gui/widgets/path_field.h"
#include "core/stamp/processing_model.h"
#include "core/timecode/timecode.h"

namespace norvane::gui {

namespace {

// A row field under the first of `keys` the row has.
QVariant field(const QVariantMap& row, std::initializer_list<const char*> keys) {
    for (const char* key : keys) {
        if (row.contains(key)) {
            return row.value(key);
        }
    }
    return {};
}

QStringList labelsOf(const auto& values) {
    QStringList labels;
    for (const auto& value : values) {
        labels.append(QString::fromStdString(label(value)));
    }
    return labels;
}

QShortcut* screenShortcut(const QKeySequence& keys, QWidget* screen) {
    auto* shortcut = new QShortcut(keys, screen);
    shortcut->setContext(Qt::WidgetWithChildrenShortcut);
    return shortcut;
}

}  // namespace

StampScreen::StampScreen(QObject& workflow, QWidget* parent)
    : QWidget(parent),
      workflow_(workflow),
      dropArea_(new DropArea("Drop WAV files or folders here",
                             "Poly or mono WAVs, linear PCM or 32-bit float.")),
      clear_(new QPushButton("Clear")),
      ignored_(new QLabel),
      fileTable_(new QTableWidget(0, columnCount)),
      mode_(new QComboBox),
      frameRate_(new QComboBox),
      includeLTC_(new QCheckBox("Also stamp LTC-only files")),
      modePages_(new QStackedWidget),
      ltcFile_(new QComboBox),
      ltcChannel_(new QComboBox),
      groupingMethod_(new QComboBox),
      groupingDelimiter_(new QLineEdit),
      groupingTokenIndex_(new QSpinBox),
      groupingRegex_(new QLineEdit),
      tokenControls_(new QWidget),
      regexControls_(new QWidget),
      durationNote_(new QLabel("Files of equal duration form a group (tolerance in Settings).")),
      groupPreview_(new QListWidget),
      groupTable_(new QTableWidget(0, 4)),
      cutMinSegmentFrames_(new QSpinBox),
      cutThreshold_(new QSpinBox),
      analyze_(new QPushButton("Analyze cuts")),
      segmentPreview_(new QListWidget),
      cutStrip_(new CutTimelineStrip),
      outputFolder_(new PathField(PathField::Kind::folder, "Output folder")),
      reveal_(new QPushButton("Show in file manager")),
      process_(new QPushButton("Stamp")),
      cancel_(new QPushButton("Cancel")),
      progress_(new QProgressBar),
      progressMessage_(new QLabel),
      status_(new QLabel),
      report_(new QPlainTextEdit),
      log_(new LogPane),
      dayRuler_(new DayRuler),
      healthStrip_(new LTCHealthStrip) {
    setObjectName("stampScreen");

    auto* addFiles = dropArea_->addBrowseButton("Add files…");
    addFiles->setToolTip("Choose WAV files (Ctrl+O)");
    auto* addFolder = dropArea_->addButton("Add folder…");
    addFolder->setObjectName("dropAreaAddFolder");
    addFolder->setToolTip("Choose a folder of WAV files (Ctrl+Shift+O)");
    connect(dropArea_, &DropArea::browseRequested, this, &StampScreen::addFilesFromPicker);
    connect(addFolder, &QPushButton::clicked, this, &StampScreen::addFolderFromPicker);
    connect(dropArea_, &DropArea::pathsDropped, this,
            [this](const QStringList& paths) { invoke("ingest", paths); });
    forwardDrops(fileTable_, [this](const QStringList& paths) { invoke("ingest", paths); });
    clear_->setObjectName("stampClear");
    connect(clear_, &QPushButton::clicked, this, [this] { invoke("clearFiles"); });

    fileTable_->setObjectName("stampFileTable");
    fileTable_->setHorizontalHeaderLabels(
        {"File", "Channels · Format", "Duration", "LTC", "Start TC", "Output", "Status"});
    fileTable_->verticalHeader()->hide();
    fileTable_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    fileTable_->setSelectionBehavior(QAbstractItemView::SelectRows);
    fileTable_->setAlternatingRowColors(true);
    fileTable_->setWordWrap(false);
    // The file names stay whole; the output names give way in a narrow window.
    for (int column = fileColumn; column < columnCount; ++column) {
        fileTable_->horizontalHeader()->setSectionResizeMode(column, QHeaderView::ResizeToContents);
    }
    fileTable_->horizontalHeader()->setSectionResizeMode(outputColumn, QHeaderView::Stretch);
    // Delete or Backspace, or the context menu, take files off the list.
    fileTable_->setContextMenuPolicy(Qt::ActionsContextMenu);
    auto* removeAction = new QAction("Remove from list", fileTable_);
    removeAction->setObjectName("stampRemoveFiles");
    removeAction->setShortcuts({QKeySequence::Delete, QKeySequence(Qt::Key_Backspace)});
    removeAction->setShortcutContext(Qt::WidgetShortcut);
    fileTable_->addAction(removeAction);
    connect(removeAction, &QAction::triggered, this, &StampScreen::removeSelectedFiles);
    fileTable_->setMinimumHeight(110);
    ignored_->setObjectName("stampIgnored");

    auto* filesHeader = new QHBoxLayout;
    filesHeader->addWidget(makeSectionTitle("Files"));
    filesHeader->addWidget(ignored_);
    filesHeader->addStretch();
    filesHeader->addWidget(clear_);

    // Output and actions.
    outputFolder_->setObjectName("stampOutputFolder");
    reveal_->setObjectName("stampReveal");
    connect(reveal_, &QPushButton::clicked, this,
            [this] { uiHooks().openUrl(QUrl::fromLocalFile(value("outputFolder").toString())); });
    process_->setObjectName("stampProcess");
    process_->setDefault(true);
    process_->setToolTip("Stamp the files (Ctrl+Return)");
    cancel_->setObjectName("stampCancel");
    cancel_->setToolTip("Stop the running analysis or processing (Esc)");
    connect(process_, &QPushButton::clicked, this, &StampScreen::startProcessing);
    connect(cancel_, &QPushButton::clicked, this, [this] {
        // The engine stops at its next file or stretch; say so until it has.
        cancelling_ = true;
        cancel_->setText("Cancelling…");
        cancel_->setEnabled(false);
        invoke("cancel");
    });
    progress_->setObjectName("stampProgress");
    progress_->setRange(0, 1000);
    progressMessage_->setObjectName("stampProgressMessage");
    status_->setObjectName("statusLine");
    status_->setWordWrap(true);

    auto* outputRow = new QHBoxLayout;
    outputRow->addWidget(new QLabel("Output folder"));
    outputRow->addWidget(outputFolder_, 1);
    outputRow->addWidget(reveal_);
    auto* actionRow = new QHBoxLayout;
    actionRow->addWidget(process_);
    actionRow->addWidget(cancel_);
    actionRow->addWidget(progress_, 1);
    actionRow->addWidget(progressMessage_);

    auto* left = new QWidget;
    auto* leftLayout = new QVBoxLayout(left);
    leftLayout->setContentsMargins(16, 12, 8, 12);
    leftLayout->setSpacing(8);
    leftLayout->addWidget(dropArea_);
    leftLayout->addLayout(filesHeader);
    leftLayout->addWidget(fileTable_, 1);
    leftLayout->addWidget(healthStrip_);
    leftLayout->addWidget(makeSectionTitle("Day"));
    leftLayout->addWidget(dayRuler_);
    leftLayout->addWidget(buildOptions());
    auto* leftScroll = new QScrollArea;
    leftScroll->setWidgetResizable(true);
    leftScroll->setFrameShape(QFrame::NoFrame);
    leftScroll->setWidget(left);

    report_->setObjectName("reportPane");
    report_->setReadOnly(true);
    report_->setLineWrapMode(QPlainTextEdit::WidgetWidth);
    report_->setTabChangesFocus(true);
    auto* reportBox = new QWidget;
    auto* reportLayout = new QVBoxLayout(reportBox);
    reportLayout->setContentsMargins(8, 12, 16, 0);
    reportLayout->addWidget(makeSectionTitle("Report"));
    reportLayout->addWidget(report_);
    auto* logBox = new QWidget;
    auto* logLayout = new QVBoxLayout(logBox);
    logLayout->setContentsMargins(8, 0, 16, 12);
    logLayout->addWidget(makeSectionTitle("Log"));
    logLayout->addWidget(log_);
    auto* right = new QSplitter(Qt::Vertical);
    right->addWidget(reportBox);
    right->addWidget(logBox);

    auto* split = new QSplitter(Qt::Horizontal);
    split->setObjectName("stampSplitter");
    split->addWidget(leftScroll);
    split->addWidget(right);
    split->setStretchFactor(0, 3);
    split->setStretchFactor(1, 2);
    split->setChildrenCollapsible(false);
    // The action bar stays at the bottom, outside the scroll, at any size.
    actionBar_ = new QFrame;
    actionBar_->setObjectName("actionBar");
    auto* barLayout = new QVBoxLayout(actionBar_);
    barLayout->setContentsMargins(16, 6, 16, 8);
    barLayout->setSpacing(4);
    barLayout->addLayout(outputRow);
    barLayout->addLayout(actionRow);
    barLayout->addWidget(status_);
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    outer->setSpacing(0);
    outer->addWidget(split, 1);
    outer->addWidget(actionBar_);

    // Ctrl+O, Ctrl+Return and Esc belong to the window's menus, which hand
    // them to the screen on show.
    connect(screenShortcut(QKeySequence("Ctrl+Shift+O"), this), &QShortcut::activated, this,
            &StampScreen::addFolderFromPicker);

    QWidget* order[] = {addFiles,
                        addFolder,
                        clear_,
                        fileTable_,
                        mode_,
                        frameRate_,
                        includeLTC_,
                        ltcFile_,
                        ltcChannel_,
                        groupingMethod_,
                        groupingDelimiter_,
                        groupingTokenIndex_,
                        groupingRegex_,
                        groupTable_,
                        cutMinSegmentFrames_,
                        cutThreshold_,
                        analyze_,
                        outputFolder_->lineEdit(),
                        outputFolder_->chooseButton(),
                        reveal_,
                        process_,
                        cancel_,
                        report_,
                        log_};
    for (std::size_t i = 1; i < std::size(order); ++i) {
        setTabOrder(order[i - 1], order[i]);
    }
    bindState();
}

QWidget* StampScreen::buildOptions() {
    auto* box = new QGroupBox("Options");
    mode_->setObjectName("stampMode");
    frameRate_->setObjectName("stampFrameRate");
    includeLTC_->setObjectName("stampIncludeLTCOutputs");
    bindComboBox(mode_, &workflow_, "mode", labelsOf(allProcessingModes()));
    bindComboBox(frameRate_, &workflow_, "frameRatePreset", labelsOf(allFrameRatePresets()));
    bindCheckBox(includeLTC_, &workflow_, "includeLTCOutputs");

    auto* grid = new QGridLayout;
    grid->addWidget(new QLabel("Mode"), 0, 0);
    grid->addWidget(mode_, 0, 1);
    grid->addWidget(
        new HelpButton("Single: one LTC source and its stems. Grouped Batch: files grouped by "
                       "name or duration, one LTC source per group. LTC Cut Detect: long "
                       "recordings cut into segments where the LTC jumps."),
        0, 2);
    grid->addWidget(new QLabel("Frame rate"), 0, 3);
    grid->addWidget(frameRate_, 0, 4);
    grid->addWidget(includeLTC_, 1, 1, 1, 4);
    grid->setColumnStretch(1, 1);
    grid->setColumnStretch(4, 1);

    QWidget* ltcSource = buildSinglePage();
    modePages_->addWidget(new QWidget);
    modePages_->addWidget(buildGroupedPage());
    modePages_->addWidget(buildCutPage());

    auto* layout = new QVBoxLayout(box);
    layout->addLayout(grid);
    layout->addWidget(ltcSource);
    layout->addWidget(modePages_);
    return box;
}

QWidget* StampScreen::buildSinglePage() {
    auto* page = new QWidget;
    ltcSource_ = page;
    ltcFile_->setObjectName("stampLTCFile");
    ltcChannel_->setObjectName("stampLTCChannel");
    ltcFile_->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    ltcFile_->setMinimumContentsLength(12);
    connect(ltcFile_, &QComboBox::activated, this, [this](int index) {
        invoke("setSelectedLTCFile", ltcFile_->itemData(index).toString());
    });
    ltcChannel_->setToolTip(
        "Auto reads the channel of the LTC file that decodes best, such as the last track of "
        "a poly recording.");
    connect(ltcChannel_, &QComboBox::activated, this, [this](int index) {
        workflow_.setProperty("ltcChannelChoice", ltcChannel_->itemData(index).toInt());
    });
    // Two rows, so that a narrow window does not scroll sideways.
    auto* rows = new QGridLayout(page);
    rows->setContentsMargins(0, 4, 0, 0);
    rows->addWidget(new QLabel("LTC file"), 0, 0);
    rows->addWidget(ltcFile_, 0, 1);
    rows->addWidget(new QLabel("LTC channel"), 1, 0);
    rows->addWidget(ltcChannel_, 1, 1, Qt::AlignLeft);
    rows->setColumnStretch(1, 1);
    return page;
}

QWidget* StampScreen::buildGroupedPage() {
    auto* page = new QWidget;
    groupingMethod_->setObjectName("stampGroupingMethod");
    groupingDelimiter_->setObjectName("stampGroupingDelimiter");
    groupingTokenIndex_->setObjectName("stampGroupingTokenIndex");
    groupingRegex_->setObjectName("stampGroupingRegex");
    groupingTokenIndex_->setRange(-99, 99);
    groupingRegex_->setPlaceholderText("e.g. ^(.*)_T\\d+");
    bindComboBox(groupingMethod_, &workflow_, "groupingMethod", labelsOf(allGroupingMethods()));
    bindLineEdit(groupingDelimiter_, &workflow_, "groupingDelimiter");
    bindSpinBox(groupingTokenIndex_, &workflow_, "groupingTokenIndex");
    bindLineEdit(groupingRegex_, &workflow_, "groupingRegex");
    // The preview follows every change of the grouping rule.
    auto refresh = [this] { invoke("refreshGroupingPreview"); };
    connect(groupingMethod_, &QComboBox::textActivated, this, refresh);
    connect(groupingDelimiter_, &QLineEdit::editingFinished, this, refresh);
    connect(groupingTokenIndex_, &QSpinBox::valueChanged, this, refresh);
    connect(groupingRegex_, &QLineEdit::editingFinished, this, refresh);

    auto* token = new QHBoxLayout(tokenControls_);
    token->setContentsMargins(0, 0, 0, 0);
    token->addWidget(new QLabel("Delimiter"));
    token->addWidget(groupingDelimiter_);
    token->addWidget(new QLabel("Token index"));
    token->addWidget(groupingTokenIndex_);
    token->addStretch();
    auto* regex = new QHBoxLayout(regexControls_);
    regex->setContentsMargins(0, 0, 0, 0);
    regex->addWidget(new QLabel("Pattern"));
    regex->addWidget(groupingRegex_, 1);
    regex->addWidget(new HelpButton(
        "The first capture group (or the whole match) of the pattern names the group."));
    durationNote_->setObjectName("helpText");
    durationNote_->setWordWrap(true);

    groupPreview_->setObjectName("stampGroupPreview");
    groupPreview_->setMinimumHeight(60);
    groupPreview_->setMaximumHeight(110);
    groupTable_->setObjectName("stampGroupTable");
    groupTable_->setHorizontalHeaderLabels({"Group", "Files", "LTC file", "LTC channel"});
    groupTable_->verticalHeader()->hide();
    groupTable_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    groupTable_->horizontalHeader()->setSectionResizeMode(0, QHeaderView::ResizeToContents);
    groupTable_->horizontalHeader()->setSectionResizeMode(1, QHeaderView::ResizeToContents);
    groupTable_->horizontalHeader()->setSectionResizeMode(2, QHeaderView::Stretch);
    groupTable_->horizontalHeader()->setSectionResizeMode(3, QHeaderView::ResizeToContents);
    groupTable_->setMinimumHeight(110);

    auto* refreshButton = new QPushButton("Refresh preview");
    refreshButton->setObjectName("stampRefreshGroups");
    connect(refreshButton, &QPushButton::clicked, this, refresh);
    auto* methodRow = new QHBoxLayout;
    methodRow->addWidget(new QLabel("Group by"));
    methodRow->addWidget(groupingMethod_);
    methodRow->addStretch();
    methodRow->addWidget(refreshButton);

    auto* layout = new QVBoxLayout(page);
    layout->setContentsMargins(0, 4, 0, 0);
    layout->addLayout(methodRow);
    layout->addWidget(tokenControls_);
    layout->addWidget(regexControls_);
    layout->addWidget(durationNote_);
    layout->addWidget(groupPreview_);
    layout->addWidget(groupTable_);
    return page;
}

QWidget* StampScreen::buildCutPage() {
    auto* page = new QWidget;
    cutMinSegmentFrames_->setObjectName("stampCutMinSegmentFrames");
    cutThreshold_->setObjectName("stampCutThreshold");
    cutMinSegmentFrames_->setRange(1, 1000000);
    cutThreshold_->setRange(1, 1000000);
    bindSpinBox(cutMinSegmentFrames_, &workflow_, "cutMinSegmentFrames");
    bindSpinBox(cutThreshold_, &workflow_, "cutDiscontinuityThreshold");
    analyze_->setObjectName("stampAnalyzeCuts");
    analyze_->setToolTip("Scan the LTC of the file for jumps (Ctrl+Shift+A)");
    connect(analyze_, &QPushButton::clicked, this, [this] { invoke("analyzeCuts"); });
    connect(screenShortcut(QKeySequence("Ctrl+Shift+A"), this), &QShortcut::activated, analyze_,
            &QPushButton::click);
    segmentPreview_->setObjectName("stampSegmentPreview");
    segmentPreview_->setMinimumHeight(60);
    segmentPreview_->setMaximumHeight(120);
    cutStrip_->setMinimumHeight(110);

    // Two rows, so that a narrow window does not scroll sideways.
    auto* settingsRow = new QGridLayout;
    settingsRow->addWidget(new QLabel("Min segment (frames)"), 0, 0);
    settingsRow->addWidget(cutMinSegmentFrames_, 0, 1);
    settingsRow->addWidget(
        new HelpButton("A cut is where the decoded timecode jumps by more than the "
                       "threshold between windows; segments shorter than the minimum are "
                       "merged into their neighbour."),
        0, 2);
    settingsRow->addWidget(new QLabel("Jump threshold (frames)"), 1, 0);
    settingsRow->addWidget(cutThreshold_, 1, 1);
    settingsRow->addWidget(analyze_, 1, 3, Qt::AlignRight);
    settingsRow->setColumnStretch(3, 1);
    auto* layout = new QVBoxLayout(page);
    layout->setContentsMargins(0, 4, 0, 0);
    layout->addLayout(settingsRow);
    layout->addWidget(cutStrip_);
    layout->addWidget(segmentPreview_);
    return page;
}

void StampScreen::bindState() {
    bindPathField(outputFolder_, &workflow_, "outputFolder");
    watchProperty(&workflow_, "files", this, [this] {
        refreshFiles();
        refreshSingleSources();
    });
    watchProperty(&workflow_, "ignoredFiles", ignored_, [this] {
        const QVariantList ignored = toVariantList(value("ignoredFiles"));
        QStringList names;
        for (const QVariant& path : ignored) {
            names.append(path.toString());
        }
        ignored_->setText(ignored.isEmpty() ? QString()
                                            : QString("(%1 ignored)").arg(ignored.size()));
        ignored_->setToolTip(names.join("\n"));
    });
    watchProperty(&workflow_, "selectedLTCFile", this, [this] { refreshSingleSources(); });
    watchProperty(&workflow_, "designatedLTCChannel", this, [this] { refreshGroups(); });
    for (const char* name : {"ltcChannelChoice", "selectedLTCChannelCount"}) {
        watchProperty(&workflow_, name, ltcChannel_, [this] { refreshSingleSources(); });
    }
    watchProperty(&workflow_, "mode", modePages_, [this] {
        const QString mode = value("mode").toString();
        modePages_->setCurrentIndex(mode == "Grouped Batch" ? 1 : mode == "LTC Cut Detect" ? 2 : 0);
        // Only the page on show claims room, so short pages leave no gap.
        for (int i = 0; i < modePages_->count(); ++i) {
            const auto policy =
                i == modePages_->currentIndex() ? QSizePolicy::Preferred : QSizePolicy::Ignored;
            modePages_->widget(i)->setSizePolicy(policy, policy);
        }
        modePages_->adjustSize();
        // Single and LTC Cut Detect take their LTC from one chosen file.
        ltcSource_->setVisible(mode != "Grouped Batch");
        modePages_->setVisible(mode != "Single");
    });
    watchProperty(&workflow_, "groupingMethod", this, [this] { refreshGroupingControls(); });
    for (const char* name :
         {"groupPreviewRows", "groupIDs", "groupNamesByID", "groupFilesByID",
          "groupResolvedLTCByID", "groupLTCChannelOverrides", "groupCommonMaxChannelsByID"}) {
        watchProperty(&workflow_, name, groupTable_, [this] { refreshGroups(); });
    }
    watchProperty(&workflow_, "segmentPreviewRows", segmentPreview_, [this] {
        segmentPreview_->clear();
        for (const QVariant& row : toVariantList(value("segmentPreviewRows"))) {
            segmentPreview_->addItem(row.toString());
        }
    });
    for (const char* name : {"cutTimelinePoints", "cutSegments", "cutFileFrameCount"}) {
        watchProperty(&workflow_, name, cutStrip_, [this] { refreshCutPicture(); });
    }
    watchProperty(&workflow_, "ltcHealth", healthStrip_, [this] {
        const QVariantMap health = toVariantMap(value("ltcHealth"));
        healthStrip_->setHealth(health);
        healthStrip_->setVisible(!health.isEmpty());
    });
    watchProperty(&workflow_, "dayRuler", dayRuler_, [this] {
        QVector<DayRuler::Bar> bars;
        for (const QVariant& entry : toVariantList(value("dayRuler"))) {
            const QVariantMap bar = toVariantMap(entry);
            bars.append({bar.value("label").toString(), bar.value("startSeconds").toDouble(),
                         bar.value("durationSeconds").toDouble(), bar.value("rate").toString(),
                         bar.value("status").toString(), bar.value("isLTC").toBool(), 0});
        }
        dayRuler_->setBars(bars);
    });
    watchProperty(&workflow_, "reportText", report_,
                  [this] { report_->setPlainText(value("reportText").toString()); });
    watchProperty(&workflow_, "logLines", log_, [this] {
        QStringList lines;
        for (const QVariant& line : toVariantList(value("logLines"))) {
            lines.append(line.toString());
        }
        log_->setLines(lines);
    });
    watchProperty(&workflow_, "statusMessage", status_,
                  [this] { status_->setText(value("statusMessage").toString()); });
    watchProperty(&workflow_, "progressPercent", progress_, [this] {
        const double fraction = std::clamp(value("progressPercent").toDouble(), 0.0, 1.0);
        progress_->setValue(static_cast<int>(std::lround(fraction * 1000.0)));
        progress_->setFormat(QString("%1%").arg(std::lround(fraction * 100.0)));
    });
    watchProperty(&workflow_, "progressMessage", progressMessage_,
                  [this] { progressMessage_->setText(value("progressMessage").toString()); });
    watchProperty(&workflow_, "isAnalyzingCuts", this, [this] { refreshBusy(); });
    // A run that ends waiting for the user asks at once; so does a pending
    // state that is set again by a later run.
    auto askIfPending = [this] {
        if (value("isProcessing").toBool()) {
            return;
        }
        if (value("pendingLowConfidence").toBool() && !askingLowConfidence_) {
            askingLowConfidence_ = true;
            QTimer::singleShot(0, this, &StampScreen::askLowConfidence);
        }
        if (!toVariantList(value("pendingOutputConflicts")).isEmpty() && !askingConflicts_) {
            askingConflicts_ = true;
            QTimer::singleShot(0, this, &StampScreen::askOutputConflicts);
        }
    };
    watchProperty(&workflow_, "isProcessing", this, [this, askIfPending] {
        refreshBusy();
        askIfPending();
    });
    watchProperty(&workflow_, "pendingLowConfidence", this, askIfPending);
    watchProperty(&workflow_, "pendingOutputConflicts", this, askIfPending);
}

void StampScreen::refreshFiles() {
    const QVariantList files = toVariantList(value("files"));
    // A file's row, then one indented row per segment it was cut into.
    int rows = 0;
    for (const QVariant& entry : files) {
        rows += 1 + static_cast<int>(toVariantMap(entry).value("children").toList().size());
    }
    fileTable_->setRowCount(rows);
    const auto statusCell = &statusItem;
    int row = 0;
    for (const QVariant& entry : files) {
        const QVariantMap file = toVariantMap(entry);
        const QString path = field(file, {"path", "url"}).toString();
        QString name = field(file, {"fileName", "name"}).toString();
        if (name.isEmpty()) {
            name = QFileInfo(path).fileName();
        }
        const qint64 channels = file.value("channels").toLongLong();
        const QString format = field(file, {"format", "formatText"}).toString();
        // "48000 Hz, 4 ch, 24-bit PCM" reads as "4 ch · 48 kHz 24-bit PCM".
        QString channelsFormat = format;
        if (channels > 0 && file.contains("sampleRate")) {
            const double khz = file.value("sampleRate").toDouble() / 1000.0;
            QString rest = format.section(", ", 2);
            channelsFormat =
                QString("%1 ch · %2 kHz %3").arg(channels).arg(khz, 0, 'g', 4).arg(rest).trimmed();
        }
        // LTC as found in the signal: channel and rate with a confidence dot.
        const QString probe = file.value("ltcProbe").toString();
        auto* ltc = new QTableWidgetItem;
        if (probe == "probing") {
            ltc->setText("…");
            ltc->setToolTip("Looking for LTC in the signal…");
        } else if (probe == "found") {
            const double confidence = file.value("ltcConfidence").toDouble();
            const auto level =
                confidence >= 0.55 ? LTCHealthStrip::Level::green : LTCHealthStrip::Level::amber;
            ltc->setText(QString("● ch %1 · %2")
                             .arg(file.value("ltcChannel").toInt())
                             .arg(file.value("ltcRate").toString()));
            ltc->setForeground(LTCHealthStrip::colorFor(level));
            ltc->setToolTip(QString("LTC on channel %1 at %2 fps, first frame %3\nEvidence: %4")
                                .arg(file.value("ltcChannel").toInt())
                                .arg(file.value("ltcRate").toString(),
                                     file.value("ltcStart").toString(),
                                     file.value("ltcEvidence").toString()));
        } else if (probe == "none") {
            ltc->setText("–");
            ltc->setToolTip("No LTC found on any channel");
        }
        if (field(file, {"isLTC"}).toBool()) {
            ltc->setText(ltc->text() + "  (source)");
            QFont bold = ltc->font();
            bold.setBold(true);
            ltc->setFont(bold);
        }
        const QString start = file.value("startTimecode").toString();
        const QString existing = field(file, {"timecode", "existingTimecode"}).toString();
        auto* startItem = new QTableWidgetItem(!start.isEmpty()     ? start
                                               : existing.isEmpty() ? QString("–")
                                                                    : existing + "  (file)");
        startItem->setToolTip(!start.isEmpty()     ? file.value("startEvidence").toString()
                              : existing.isEmpty() ? QString()
                                                   : "Timecode the file already carries");
        auto* nameItem = new QTableWidgetItem(name);
        nameItem->setToolTip(path);
        nameItem->setData(Qt::UserRole, path);
        fileTable_->setItem(row, fileColumn, nameItem);
        fileTable_->setItem(row, formatColumn, new QTableWidgetItem(channelsFormat));
        fileTable_->setItem(row, durationColumn,
                            new QTableWidgetItem(durationText(
                                field(file, {"durationSeconds", "duration"}).toDouble())));
        fileTable_->setItem(row, ltcColumn, ltc);
        fileTable_->setItem(row, startColumn, startItem);
        auto* output = new QTableWidgetItem(file.value("output").toString());
        output->setToolTip(output->text());
        fileTable_->setItem(row, outputColumn, output);
        fileTable_->setItem(
            row, statusColumn,
            statusCell(file.value("status").toString(), file.value("statusReason").toString()));
        ++row;
        for (const QVariant& childEntry : file.value("children").toList()) {
            const QVariantMap child = childEntry.toMap();
            auto* childName = new QTableWidgetItem("    └ " + child.value("name").toString());
            childName->setData(Qt::UserRole, path);
            fileTable_->setItem(row, fileColumn, childName);
            for (int column : {formatColumn, ltcColumn}) {
                fileTable_->setItem(row, column, new QTableWidgetItem);
            }
            fileTable_->setItem(
                row, durationColumn,
                new QTableWidgetItem(child.contains("durationSeconds")
                                         ? durationText(child.value("durationSeconds").toDouble())
                                         : QString()));
            auto* childStart = new QTableWidgetItem(child.value("startTimecode").toString());
            childStart->setToolTip(child.value("startEvidence").toString());
            fileTable_->setItem(row, startColumn, childStart);
            fileTable_->setItem(row, outputColumn,
                                new QTableWidgetItem(child.value("output").toString()));
            fileTable_->setItem(row, statusColumn,
                                statusCell(child.value("status").toString(),
                                           child.value("statusReason").toString()));
            ++row;
        }
    }
    clear_->setEnabled(!files.isEmpty());
}

void StampScreen::refreshSingleSources() {
    const QString selected = value("selectedLTCFile").toString();
    {
        const QSignalBlocker blocker(ltcFile_);
        ltcFile_->clear();
        ltcFile_->addItem("Choose the LTC file…", QString());
        for (const QVariant& entry : toVariantList(value("files"))) {
            const QVariantMap file = toVariantMap(entry);
            const QString path = field(file, {"path", "url"}).toString();
            const QString name = QFileInfo(path).fileName();
            const bool isLTC = field(file, {"isLTC"}).toBool();
            ltcFile_->addItem(isLTC ? name + "  (LTC)" : name, path);
        }
        const int index = ltcFile_->findData(selected);
        ltcFile_->setCurrentIndex(index >= 0 ? index : 0);
    }
    // 0 leaves the channel to the engine; N is channel N of the chosen file.
    const QSignalBlocker blocker(ltcChannel_);
    ltcChannel_->clear();
    ltcChannel_->addItem("Auto (best channel)", 0);
    const int channels = value("selectedLTCChannelCount").toInt();
    for (int channel = 1; channel <= channels; ++channel) {
        ltcChannel_->addItem(QString("Channel %1").arg(channel), channel);
    }
    const int chosen = ltcChannel_->findData(value("ltcChannelChoice").toInt());
    ltcChannel_->setCurrentIndex(chosen >= 0 ? chosen : 0);
}

void StampScreen::refreshGroupingControls() {
    const QString method = value("groupingMethod").toString();
    tokenControls_->setVisible(method == "Token");
    regexControls_->setVisible(method == "Regex");
    durationNote_->setVisible(method != "Token" && method != "Regex");
}

void StampScreen::refreshGroups() {
    groupPreview_->clear();
    for (const QVariant& row : toVariantList(value("groupPreviewRows"))) {
        groupPreview_->addItem(row.toString());
    }
    const QVariantList ids = toVariantList(value("groupIDs"));
    const QVariantMap filesByID = toVariantMap(value("groupFilesByID"));
    const QVariantMap names = toVariantMap(value("groupNamesByID"));
    const QVariantMap ltcByID = toVariantMap(value("groupResolvedLTCByID"));
    const QVariantMap overrides = toVariantMap(value("groupLTCChannelOverrides"));
    const QVariantMap maxChannels = toVariantMap(value("groupCommonMaxChannelsByID"));
    const int designated = value("designatedLTCChannel").toInt();
    // Removing the rows also takes the old pickers out of the view at once.
    groupTable_->setRowCount(0);
    groupTable_->setRowCount(static_cast<int>(ids.size()));
    for (int row = 0; row < ids.size(); ++row) {
        const QString id = ids[row].toString();
        const QVariantList files = toVariantList(filesByID.value(id));
        auto* nameItem = new QTableWidgetItem(names.value(id, id).toString());
        nameItem->setToolTip(QString("Group key: %1").arg(id));
        groupTable_->setItem(row, 0, nameItem);
        groupTable_->setItem(row, 1, new QTableWidgetItem(QString::number(files.size())));

        auto* ltcPicker = new QComboBox;
        ltcPicker->setObjectName("groupLTCFile_" + id);
        ltcPicker->addItem("Auto", QString());
        for (const QVariant& file : files) {
            ltcPicker->addItem(QFileInfo(file.toString()).fileName(), file.toString());
        }
        const int ltcIndex = ltcPicker->findData(ltcByID.value(id).toString());
        ltcPicker->setCurrentIndex(ltcIndex >= 0 ? ltcIndex : 0);
        connect(ltcPicker, &QComboBox::activated, this, [this, id, ltcPicker](int index) {
            invoke("setGroupLTCFile", id, ltcPicker->itemData(index).toString());
        });
        groupTable_->setCellWidget(row, 2, ltcPicker);

        auto* channelPicker = new QComboBox;
        channelPicker->setObjectName("groupLTCChannel_" + id);
        const int channels = std::max(1, maxChannels.value(id).toInt());
        for (int channel = 1; channel <= channels; ++channel) {
            channelPicker->addItem(QString::number(channel), channel);
        }
        const int chosen = overrides.contains(id) ? overrides.value(id).toInt() : designated;
        channelPicker->setCurrentIndex(std::max(0, channelPicker->findData(chosen)));
        connect(channelPicker, &QComboBox::activated, this, [this, id, channelPicker](int index) {
            invoke("setGroupLTCChannel", id, channelPicker->itemData(index).toInt());
        });
        groupTable_->setCellWidget(row, 3, channelPicker);
    }
}

void StampScreen::refreshCutPicture() {
    QVector<CutTimelineStrip::Point> points;
    for (const QVariant& entry : toVariantList(value("cutTimelinePoints"))) {
        const QVariantMap point = toVariantMap(entry);
        points.append({point.value("sample").toLongLong(), point.value("frameCount").toLongLong(),
                       point.value("timecode").toString()});
    }
    QVector<CutTimelineStrip::Segment> segments;
    for (const QVariant& entry : toVariantList(value("cutSegments"))) {
        const QVariantMap segment = toVariantMap(entry);
        segments.append({segment.value("startSample").toLongLong(),
                         segment.value("endSample").toLongLong(),
                         segment.value("segmentIndex").toInt()});
    }
    cutStrip_->setData(points, segments, value("cutFileFrameCount").toLongLong(),
                       value("cutSampleRate").toLongLong());
}

void StampScreen::refreshBusy() {
    const bool busy = value("isProcessing").toBool() || value("isAnalyzingCuts").toBool();
    for (QWidget* widget :
         std::initializer_list<QWidget*>{dropArea_, clear_, mode_, frameRate_, includeLTC_,
                                         modePages_, outputFolder_, process_, analyze_}) {
        widget->setEnabled(!busy);
    }
    if (!busy) {
        cancelling_ = false;
        cancel_->setText("Cancel");
    }
    cancel_->setEnabled(busy && !cancelling_);
    if (!busy) {
        clear_->setEnabled(!toVariantList(value("files")).isEmpty());
    }
}

void StampScreen::startProcessing() {
    // A typed folder that does not exist yet is created once the user agrees.
    if (!value("outputFolder").toString().trimmed().isEmpty()) {
        bool exists = false;
        QMetaObject::invokeMethod(&workflow_, "outputFolderExists", Qt::DirectConnection,
                                  Q_RETURN_ARG(bool, exists));
        if (!exists) {
            if (!uiHooks().confirm(this, "Create output folder?",
                                   QString("The output folder does not exist:\n%1\n\nCreate it "
                                           "and stamp into it?")
                                       .arg(value("outputFolder").toString()),
                                   "Create Folder")) {
                return;
            }
            bool created = false;
            QMetaObject::invokeMethod(&workflow_, "createOutputFolder", Qt::DirectConnection,
                                      Q_RETURN_ARG(bool, created));
            if (!created) {
                return;
            }
        }
    }
    invoke("process", false);
}

void StampScreen::removeSelectedFiles() {
    QStringList paths;
    for (const QModelIndex& index : fileTable_->selectionModel()->selectedRows(fileColumn)) {
        const QString path = index.data(Qt::UserRole).toString();
        if (!path.isEmpty() && !paths.contains(path)) {
            paths.append(path);
        }
    }
    if (!paths.isEmpty()) {
        invoke("removeFiles", paths);
    }
}

void StampScreen::askLowConfidence() {
    const bool proceed = value("pendingLowConfidence").toBool() &&
                         uiHooks().confirm(this, "Low LTC confidence",
                                           "The LTC decode confidence is low for at least one "
                                           "file. Stamp the files anyway?",
                                           "Process anyway");
    askingLowConfidence_ = false;
    if (proceed) {
        invoke("process", true);
    }
}

void StampScreen::askOutputConflicts() {
    QStringList names;
    for (const QVariant& name : toVariantList(value("pendingOutputConflicts"))) {
        names.append(name.toString());
    }
    QString choice;
    if (!names.isEmpty()) {
        QStringList shown = names.mid(0, 8);
        if (names.size() > 8) {
            shown.append(QString("… and %1 more").arg(names.size() - 8));
        }
        choice = uiHooks().choose(this, "Outputs already exist",
                                  QString("%1 output file(s) already exist:\n").arg(names.size()) +
                                      shown.join("\n") +
                                      "\n\nOverwrite them, or keep both with new names?",
                                  {"Overwrite", "Keep Both"});
    }
    askingConflicts_ = false;
    if (!choice.isEmpty()) {
        invoke("resolveOutputConflicts", choice);
    } else {
        invoke("dismissOutputConflicts");
    }
}

void StampScreen::addFilesFromPicker() {
    const QStringList files =
        uiHooks().chooseFiles(this, "Add WAV files", lastBrowseFolder(), "WAV files (*.wav *.WAV)");
    if (files.isEmpty()) {
        return;
    }
    rememberBrowseFolder(files.front());
    invoke("ingest", files);
}

void StampScreen::addFolderFromPicker() {
    const QString folder =
        uiHooks().chooseFolder(this, "Add a folder of WAV files", lastBrowseFolder());
    if (folder.isEmpty()) {
        return;
    }
    rememberBrowseFolder(folder);
    invoke("ingest", QStringList{folder});
}

namespace {

// An action the workflow does not offer is a programming error: say so.
void reportMissing(bool invoked, const char* action) {
    if (!invoked) {
        qWarning("stamp workflow has no action %s with these arguments", action);
    }
}

}  // namespace

void StampScreen::invoke(const char* action) {
    reportMissing(QMetaObject::invokeMethod(&workflow_, action), action);
}

void StampScreen::invoke(const char* action, const QVariant& a) {
    // Each action takes one argument of a fixed type.
    bool invoked = false;
    switch (a.typeId()) {
        case QMetaType::Bool:
            invoked = QMetaObject::invokeMethod(&workflow_, action, Q_ARG(bool, a.toBool()));
            break;
        case QMetaType::QStringList:
            invoked =
                QMetaObject::invokeMethod(&workflow_, action, Q_ARG(QStringList, a.toStringList()));
            break;
        default:
            invoked = QMetaObject::invokeMethod(&workflow_, action, Q_ARG(QString, a.toString()));
            break;
    }
    reportMissing(invoked, action);
}

void StampScreen::invoke(const char* action, const QVariant& a, const QVariant& b) {
    const bool invoked =
        b.typeId() == QMetaType::Int
            ? QMetaObject::invokeMethod(&workflow_, action, Q_ARG(QString, a.toString()),
                                        Q_ARG(int, b.toInt()))
            : QMetaObject::invokeMethod(&workflow_, action, Q_ARG(QString, a.toString()),
                                        Q_ARG(QString, b.toString()));
    reportMissing(invoked, action);
}

}  // namespace norvane::gui
