#include "app/gui/rebuild_screen.h"

#include <QApplication>
#include <QButtonGroup>
#include <QComboBox>
#include <QDir>
#include <QFileInfo>
#include <QFormLayout>
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
#include <QStackedWidget>
#include <QTabWidget>
#include <QTableWidget>
#include <QToolButton>
#include <QUrl>
#include <QVBoxLayout>
#include <cmath>

#include "app/gui/property_binding.h"
#include "app/gui/style.h"
#include "app/gui/ui_hooks.h"
#include "app/gui/view_model_access.h"
#include "app/gui/widgets/coverage_grid.h"
#include "app/gui/widgets/drop_area.h"
#include "app/gui/widgets/help_button.h"
#include "app/gui/widgets/path_field.h"
#include "app/gui/widgets/rebuild_timeline.h"
#include "core/settings/settings_enums.h"

namespace norvane::gui {

namespace {

// An input the user has not chosen yet holds this marker location.
const QString kUnsetInput = "/tmp/.norvane-unset-timeline-input";

const char* const kDoubleLTCHelp =
    "Use Double LTC when 50/60 fps picture was stamped from 25/30 fps LTC, including 59.94 DF "
    "from 29.97 DF LTC.";

QStringList labelsOf(const auto& values) {
    QStringList labels;
    for (const auto& value : values) {
        labels.append(QString::fromStdString(label(value)));
    }
    return labels;
}

QTableWidget* makeTable(const QString& name, const QStringList& headers) {
    auto* table = new QTableWidget(0, static_cast<int>(headers.size()));
    table->setObjectName(name);
    table->setHorizontalHeaderLabels(headers);
    table->verticalHeader()->hide();
    table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table->setSelectionBehavior(QAbstractItemView::SelectRows);
    table->setAlternatingRowColors(true);
    // The first column (a name) takes the spare width.
    table->horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    table->horizontalHeader()->setSectionResizeMode(0, QHeaderView::Stretch);
    return table;
}

void setRow(QTableWidget* table, int row, const QStringList& cells) {
    for (int column = 0; column < cells.size(); ++column) {
        auto* item = new QTableWidgetItem(cells[column]);
        item->setToolTip(cells[column]);
        table->setItem(row, column, item);
    }
}

QString seconds(const QVariant& value) {
    const double s = value.toDouble();
    if (!std::isfinite(s)) {
        return "–";
    }
    return QString::number(s, 'f', 2) + " s";
}

QString yesNo(const QVariant& value) {
    return value.toBool() ? "yes" : "";
}

QString text(const QVariantMap& row, std::initializer_list<const char*> keys) {
    for (const char* key : keys) {
        if (row.contains(key)) {
            return row.value(key).toString();
        }
    }
    return {};
}

}  // namespace

const QStringList& RebuildScreen::stepNames() {
    static const QStringList names = {"inputs", "mapping", "validate", "build", "report"};
    return names;
}

RebuildScreen::RebuildScreen(QObject& workflow, QWidget* parent)
    : QWidget(parent),
      workflow_(workflow),
      stepButtons_(new QButtonGroup(this)),
      pages_(new QStackedWidget),
      dropArea_(new DropArea("Drop the source timeline, stereo mix and synced audio folder here",
                             "FCPXML or XML timeline · stereo mix WAV · folder of synced WAVs")),
      sourceXML_(new PathField(PathField::Kind::file, "Source timeline XML")),
      stereoMix_(new PathField(PathField::Kind::file, "Stereo mix WAV")),
      syncedFolder_(new PathField(PathField::Kind::folder, "Synced audio folder")),
      outputFolder_(new PathField(PathField::Kind::folder, "Output folder")),
      outputFilename_(new QLineEdit),
      missingCamera_(new QComboBox),
      timecodeSource_(new QComboBox),
      videoFrameRate_(new QComboBox),
      readiness_(new QListWidget),
      autoScan_(new QPushButton("Auto-scan")),
      continue_(new QPushButton("Continue to mapping")),
      clear_(new QPushButton("Clear")),
      mappingTabs_(new QTabWidget),
      files_(makeTable("rebuildFiles", {"File", "Event", "Timecode", "Duration", "Track",
                                        "Timecode from", "Track from", "Fallback"})),
      events_(makeTable("rebuildEvents",
                        {"Order", "Event", "Timecode", "Duration", "Tracks", "Fallback"})),
      lanes_(makeTable("rebuildLanes", {"Camera lane", "Camera", "Candidate clips"})),
      preview_(makeTable("rebuildPreview", {"Event timecode", "Audio clip", "Clips"})),
      coverage_(new CoverageGrid),
      timeline_(new RebuildTimeline),
      buildTimeline_(new RebuildTimeline),
      coverageSummary_(new QLabel),
      validate_(new QPushButton("Validate")),
      validation_(new QListWidget),
      build_(new QPushButton("Build")),
      progress_(new QProgressBar),
      phase_(new QLabel),
      stats_(new QLabel),
      buildSummary_(new QLabel),
      cancel_(new QPushButton("Cancel")),
      report_(new QPlainTextEdit),
      revealOutput_(new QPushButton("Show in file manager")),
      startOver_(new QPushButton("Start over")),
      status_(new QLabel) {
    setObjectName("rebuildScreen");

    auto* stepBar = new QHBoxLayout;
    stepBar->setSpacing(4);
    const QStringList titles = {"1 Inputs", "2 Mapping", "3 Validate", "4 Build", "5 Report"};
    for (int i = 0; i < titles.size(); ++i) {
        auto* button = new QToolButton;
        button->setObjectName("step_" + stepNames()[i]);
        button->setText(titles[i]);
        button->setCheckable(true);
        button->setAutoRaise(true);
        button->setToolButtonStyle(Qt::ToolButtonTextOnly);
        stepButtons_->addButton(button, i);
        stepBar->addWidget(button);
        if (i + 1 < titles.size()) {
            stepBar->addWidget(new QLabel("›"));
        }
    }
    stepBar->addStretch();
    stepButtons_->setExclusive(true);
    connect(stepButtons_, &QButtonGroup::idClicked, this,
            [this](int id) { showStep(stepNames()[id]); });

    pages_->addWidget(buildInputsPage());
    pages_->addWidget(buildMappingPage());
    pages_->addWidget(buildValidatePage());
    pages_->addWidget(buildBuildPage());
    pages_->addWidget(buildReportPage());

    status_->setObjectName("statusLine");
    status_->setWordWrap(true);

    auto* body = new QVBoxLayout;
    body->setContentsMargins(16, 8, 16, 6);
    body->addLayout(stepBar);
    body->addWidget(pages_, 1);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addLayout(body, 1);
    layout->addWidget(buildActionBar());

    auto shortcut = [this](const QKeySequence& keys, QPushButton* button) {
        auto* s = new QShortcut(keys, this);
        s->setContext(Qt::WidgetWithChildrenShortcut);
        connect(s, &QShortcut::activated, button, [button] {
            if (button->isEnabled()) {
                button->click();
            }
        });
    };
    shortcut(QKeySequence("Ctrl+Shift+S"), autoScan_);
    shortcut(QKeySequence("Ctrl+Shift+V"), validate_);
    // Ctrl+Return (Build) and Esc (Cancel) belong to the window's menus.

    bindState();
}

QWidget* RebuildScreen::buildInputsPage() {
    connect(dropArea_, &DropArea::pathsDropped, this, &RebuildScreen::routeDroppedPaths);
    dropArea_->setMinimumHeight(72);
    sourceXML_->setObjectName("rebuildSourceXML");
    sourceXML_->setExtensions({"xml", "fcpxml"}, "Timelines (*.fcpxml *.xml *.FCPXML *.XML)");
    stereoMix_->setObjectName("rebuildStereoMix");
    stereoMix_->setExtensions({"wav"}, "WAV files (*.wav *.WAV)");
    syncedFolder_->setObjectName("rebuildSyncedFolder");
    for (auto [field, property] :
         {std::pair{sourceXML_, "sourceXMLURL"}, std::pair{stereoMix_, "stereoMixURL"},
          std::pair{syncedFolder_, "syncedAudioFolderURL"},
          std::pair{outputFolder_, "outputFolderURL"}}) {
        const char* name = property;
        field->setPlaceholderText("Not chosen");
        watchProperty(&workflow_, name, field,
                      [this, field, name] { field->setPath(pathValue(name)); });
        connect(field, &PathField::pathChosen, this,
                [this, name](const QString& path) { setInput(name, path); });
    }
    bindLineEdit(outputFilename_, &workflow_, "outputFilename");
    missingCamera_->setObjectName("rebuildMissingCamera");
    timecodeSource_->setObjectName("rebuildTimecodeSource");
    videoFrameRate_->setObjectName("rebuildVideoFrameRate");
    bindComboBox(missingCamera_, &workflow_, "missingCameraBehavior",
                 labelsOf(allMissingCameraBehaviors()));
    bindComboBox(timecodeSource_, &workflow_, "timecodeSourcePriority",
                 labelsOf(allTimecodeSourcePriorities()));
    bindComboBox(videoFrameRate_, &workflow_, "videoFrameRateMode",
                 labelsOf(allVideoFrameRateModes()));

    auto* inputs = new QGroupBox("Inputs");
    auto* form = new QFormLayout(inputs);
    form->setFieldGrowthPolicy(QFormLayout::ExpandingFieldsGrow);
    form->addRow("Source timeline XML", sourceXML_);
    form->addRow("Stereo mix WAV", stereoMix_);
    form->addRow("Synced audio folder", syncedFolder_);

    auto* options = new QGroupBox("Options");
    auto* optionsForm = new QFormLayout(options);
    optionsForm->setFieldGrowthPolicy(QFormLayout::ExpandingFieldsGrow);
    auto withHelp = [](QWidget* editor, const QString& help) {
        auto* row = new QWidget;
        auto* layout = new QHBoxLayout(row);
        layout->setContentsMargins(0, 0, 0, 0);
        layout->addWidget(editor, 1);
        layout->addWidget(new HelpButton(help));
        return row;
    };
    optionsForm->addRow("Missing camera",
                        withHelp(missingCamera_,
                                 "What to do where a camera lane has no clip at an event: insert "
                                 "a gap, skip the clip, or stop the export."));
    optionsForm->addRow(
        "Timecode source",
        withHelp(timecodeSource_,
                 "Where each synced file's event timecode comes from: its iXML / BWF metadata "
                 "with the file name as fallback, the file name only, or the input XML only."));
    auto* doubleLTC = withHelp(videoFrameRate_, kDoubleLTCHelp);
    doubleLTC->findChild<HelpButton*>()->setObjectName("help_videoFrameRateMode");
    optionsForm->addRow("Video frame rate", doubleLTC);

    readiness_->setObjectName("rebuildReadiness");
    readiness_->setSelectionMode(QAbstractItemView::NoSelection);
    readiness_->setFocusPolicy(Qt::NoFocus);
    readiness_->setMaximumHeight(96);

    autoScan_->setObjectName("rebuildAutoScan");
    autoScan_->setToolTip("Read the synced folder and the timeline (Ctrl+Shift+S)");
    continue_->setObjectName("rebuildContinue");
    clear_->setObjectName("rebuildClear");
    connect(autoScan_, &QPushButton::clicked, this,
            [this] { QMetaObject::invokeMethod(&workflow_, "autoScan"); });
    connect(continue_, &QPushButton::clicked, this,
            [this] { QMetaObject::invokeMethod(&workflow_, "continueToMapping"); });
    connect(clear_, &QPushButton::clicked, this,
            [this] { QMetaObject::invokeMethod(&workflow_, "clear"); });
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(clear_);
    buttons->addStretch();
    buttons->addWidget(autoScan_);
    buttons->addWidget(continue_);

    auto* page = new QWidget;
    auto* layout = new QVBoxLayout(page);
    layout->setContentsMargins(0, 4, 0, 0);
    layout->addWidget(dropArea_);
    layout->addWidget(inputs);
    layout->addWidget(options);
    layout->addWidget(makeSectionTitle("Ready to build"));
    layout->addWidget(readiness_);
    layout->addLayout(buttons);
    layout->addStretch();
    auto* scroll = new QScrollArea;
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidget(page);
    return scroll;
}

QWidget* RebuildScreen::buildMappingPage() {
    mappingTabs_->setObjectName("rebuildMappingTabs");
    mappingTabs_->addTab(files_, "Synced files");
    mappingTabs_->addTab(events_, "Events");
    mappingTabs_->addTab(lanes_, "Camera lanes");
    mappingTabs_->addTab(preview_, "Preview");
    auto* timelineScroll = new QScrollArea;
    timelineScroll->setWidget(timeline_);
    timelineScroll->setWidgetResizable(false);
    timelineScroll->setFrameShape(QFrame::NoFrame);
    mappingTabs_->addTab(timelineScroll, "Timeline");
    auto* coverageScroll = new QScrollArea;
    coverageScroll->setWidget(coverage_);
    coverageScroll->setWidgetResizable(false);
    coverageScroll->setFrameShape(QFrame::NoFrame);
    coverageSummary_->setObjectName("rebuildCoverageSummary");
    coverageSummary_->setWordWrap(true);
    auto* coveragePage = new QWidget;
    auto* coverageLayout = new QVBoxLayout(coveragePage);
    coverageLayout->addWidget(coverageSummary_);
    coverageLayout->addWidget(coverageScroll, 1);
    mappingTabs_->addTab(coveragePage, "Coverage");
    validate_->setObjectName("rebuildValidate");
    validate_->setToolTip("Check the inputs against the timeline (Ctrl+Shift+V)");
    connect(validate_, &QPushButton::clicked, this,
            [this] { QMetaObject::invokeMethod(&workflow_, "validate"); });
    auto* rescan = new QPushButton("Scan again");
    rescan->setObjectName("rebuildRescan");
    connect(rescan, &QPushButton::clicked, this,
            [this] { QMetaObject::invokeMethod(&workflow_, "autoScan"); });
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(rescan);
    buttons->addStretch();
    buttons->addWidget(validate_);
    auto* page = new QWidget;
    auto* layout = new QVBoxLayout(page);
    layout->setContentsMargins(0, 4, 0, 0);
    layout->addWidget(mappingTabs_, 1);
    layout->addLayout(buttons);
    return page;
}

QWidget* RebuildScreen::buildValidatePage() {
    validation_->setObjectName("rebuildValidation");
    validation_->setWordWrap(true);
    validation_->setAlternatingRowColors(true);
    auto* again = new QPushButton("Validate again");
    again->setObjectName("rebuildValidateAgain");
    connect(again, &QPushButton::clicked, this,
            [this] { QMetaObject::invokeMethod(&workflow_, "validate"); });
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(again);
    buttons->addStretch();
    auto* page = new QWidget;
    auto* layout = new QVBoxLayout(page);
    layout->setContentsMargins(0, 4, 0, 0);
    layout->addWidget(makeSectionTitle("Validation"));
    layout->addWidget(validation_, 1);
    layout->addLayout(buttons);
    return page;
}

QWidget* RebuildScreen::buildBuildPage() {
    phase_->setObjectName("rebuildPhase");
    stats_->setObjectName("rebuildStats");
    stats_->setWordWrap(true);
    buildSummary_->setObjectName("rebuildBuildSummary");
    buildSummary_->setWordWrap(true);
    buildSummary_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    auto* timelineScroll = new QScrollArea;
    timelineScroll->setWidget(buildTimeline_);
    timelineScroll->setWidgetResizable(false);
    timelineScroll->setFrameShape(QFrame::NoFrame);
    auto* page = new QWidget;
    auto* layout = new QVBoxLayout(page);
    layout->setContentsMargins(0, 4, 0, 0);
    layout->addWidget(makeSectionTitle("What the build writes"));
    layout->addWidget(buildSummary_);
    layout->addWidget(timelineScroll, 1);
    layout->addWidget(phase_);
    layout->addWidget(stats_);
    return page;
}

QWidget* RebuildScreen::buildActionBar() {
    outputFolder_->setObjectName("rebuildOutputFolder");
    outputFilename_->setObjectName("rebuildOutputFilename");
    outputFilename_->setPlaceholderText("timeline_rebuild.fcpxml");
    outputFilename_->setToolTip("Name of the FCPXML file written into the output folder");
    build_->setObjectName("rebuildBuild");
    build_->setDefault(true);
    build_->setToolTip("Validate and write the rebuilt timeline (Ctrl+Return)");
    connect(build_, &QPushButton::clicked, this,
            [this] { QMetaObject::invokeMethod(&workflow_, "build"); });
    cancel_->setObjectName("rebuildCancel");
    cancel_->setToolTip("Stop the running scan, validation or build (Esc)");
    connect(cancel_, &QPushButton::clicked, this, [this] {
        // The engine stops at its next step; say so until it has.
        cancelling_ = true;
        cancel_->setText("Cancelling…");
        cancel_->setEnabled(false);
        QMetaObject::invokeMethod(&workflow_, "cancel");
    });
    progress_->setObjectName("rebuildProgress");
    progress_->setRange(0, 1000);

    auto* outputRow = new QHBoxLayout;
    outputRow->addWidget(new QLabel("Output folder"));
    outputRow->addWidget(outputFolder_, 3);
    outputRow->addWidget(new QLabel("File name"));
    outputRow->addWidget(outputFilename_, 2);
    auto* actionRow = new QHBoxLayout;
    actionRow->addWidget(build_);
    actionRow->addWidget(cancel_);
    actionRow->addWidget(progress_, 1);
    auto* bar = new QFrame;
    bar->setObjectName("actionBar");
    auto* barLayout = new QVBoxLayout(bar);
    barLayout->setContentsMargins(16, 6, 16, 8);
    barLayout->setSpacing(4);
    barLayout->addLayout(outputRow);
    barLayout->addLayout(actionRow);
    barLayout->addWidget(status_);
    actionBar_ = bar;
    return bar;
}

QWidget* RebuildScreen::buildReportPage() {
    report_->setObjectName("reportPane");
    report_->setReadOnly(true);
    report_->setTabChangesFocus(true);
    revealOutput_->setObjectName("rebuildReveal");
    startOver_->setObjectName("rebuildStartOver");
    connect(revealOutput_, &QPushButton::clicked, this,
            [this] { uiHooks().openUrl(QUrl::fromLocalFile(pathValue("outputFolderURL"))); });
    connect(startOver_, &QPushButton::clicked, this,
            [this] { QMetaObject::invokeMethod(&workflow_, "reset"); });
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(startOver_);
    buttons->addStretch();
    buttons->addWidget(revealOutput_);
    auto* page = new QWidget;
    auto* layout = new QVBoxLayout(page);
    layout->setContentsMargins(0, 4, 0, 0);
    layout->addWidget(makeSectionTitle("Report"));
    layout->addWidget(report_, 1);
    layout->addLayout(buttons);
    return page;
}

void RebuildScreen::bindState() {
    watchProperty(&workflow_, "step", pages_, [this] { showStep(value("step").toString()); });
    watchProperty(&workflow_, "readinessItems", readiness_, [this] {
        refreshReadiness();
        refreshBusy();
        refreshBuildSummary();
    });
    for (const char* name :
         {"detectedAudioInputs", "detectedEvents", "videoTracks", "previewRows"}) {
        watchProperty(&workflow_, name, mappingTabs_, [this] {
            refreshMapping();
            refreshBuildSummary();
        });
    }
    watchProperty(&workflow_, "validationItems", validation_, [this] { refreshValidation(); });
    for (const char* name : {"progressPhase", "progressPercent", "buildStats"}) {
        watchProperty(&workflow_, name, progress_, [this] { refreshBuild(); });
    }
    watchProperty(&workflow_, "report", report_, [this] { refreshReport(); });
    watchProperty(&workflow_, "isBuilding", this, [this] { refreshBusy(); });
    watchProperty(&workflow_, "isBusy", this, [this] { refreshBusy(); });
    watchProperty(&workflow_, "statusMessage", status_,
                  [this] { status_->setText(value("statusMessage").toString()); });
}

QString RebuildScreen::pathValue(const char* name) const {
    const QString path = value(name).toString();
    return path == kUnsetInput ? QString() : path;
}

void RebuildScreen::setInput(const char* property, const QString& path) {
    workflow_.setProperty(property, path);
    rememberBrowseFolder(path);
}

void RebuildScreen::routeDroppedPaths(const QStringList& paths) {
    bool syncedTaken = false;
    for (const QString& path : paths) {
        const QFileInfo info(path);
        const QString suffix = info.suffix().toLower();
        if (info.isDir()) {
            setInput(syncedTaken ? "outputFolderURL" : "syncedAudioFolderURL", path);
            syncedTaken = true;
        } else if (suffix == "fcpxml" || suffix == "xml") {
            setInput("sourceXMLURL", path);
        } else if (suffix == "wav") {
            setInput("stereoMixURL", path);
        }
    }
}

QString RebuildScreen::shownStep() const {
    return stepNames().value(pages_->currentIndex());
}

void RebuildScreen::showStep(const QString& step) {
    const int index = std::max(0, static_cast<int>(stepNames().indexOf(step)));
    pages_->setCurrentIndex(index);
    if (QAbstractButton* button = stepButtons_->button(index)) {
        button->setChecked(true);
    }
}

void RebuildScreen::refreshReadiness() {
    readiness_->clear();
    for (const QVariant& entry : toVariantList(value("readinessItems"))) {
        const QVariantMap item = toVariantMap(entry);
        const bool ready = item.value("isReady").toBool();
        auto* row = new QListWidgetItem((ready ? "✓  " : "✗  ") + item.value("title").toString(),
                                        readiness_);
        row->setForeground(ready ? QColor(0x1E, 0x7B, 0x3A) : QColor(0xB3, 0x26, 0x1E));
        row->setData(Qt::UserRole, ready);
    }
}

void RebuildScreen::refreshMapping() {
    const QVariantList inputs = toVariantList(value("detectedAudioInputs"));
    files_->setRowCount(static_cast<int>(inputs.size()));
    for (int row = 0; row < inputs.size(); ++row) {
        const QVariantMap input = toVariantMap(inputs[row]);
        setRow(files_, row,
               {text(input, {"name", "fileName"}), text(input, {"eventOrder", "eventIndex"}),
                text(input, {"timecode", "eventTimecode"}), seconds(input.value("durationSeconds")),
                text(input, {"trackKey"}), text(input, {"timecodeProvenance"}),
                text(input, {"trackProvenance"}), yesNo(input.value("usedFallback"))});
    }

    const QVariantList events = toVariantList(value("detectedEvents"));
    events_->setRowCount(static_cast<int>(events.size()));
    QStringList eventLabels;
    for (int row = 0; row < events.size(); ++row) {
        const QVariantMap event = toVariantMap(events[row]);
        setRow(events_, row,
               {text(event, {"order"}), text(event, {"name"}), text(event, {"timecode"}),
                seconds(event.value("durationSeconds")), text(event, {"audioTrackCount"}),
                yesNo(event.value("usedFallback"))});
    }

    const QVariantList tracks = toVariantList(value("videoTracks"));
    lanes_->setRowCount(static_cast<int>(tracks.size()));
    for (int row = 0; row < tracks.size(); ++row) {
        const QVariantMap track = toVariantMap(tracks[row]);
        setRow(
            lanes_, row,
            {text(track, {"name"}), text(track, {"camera"}), text(track, {"candidateClipCount"})});
    }

    // Preview: one column per camera lane, in the order the lanes were found.
    const QVariantList rows = toVariantList(value("previewRows"));
    QStringList laneLabels;
    for (const QVariant& entry : rows) {
        const QVariantMap matches = toVariantMap(toVariantMap(entry).value("trackMatches"));
        for (auto it = matches.begin(); it != matches.end(); ++it) {
            if (!laneLabels.contains(it.key())) {
                laneLabels.append(it.key());
            }
        }
    }
    std::sort(laneLabels.begin(), laneLabels.end(),
              [](const QString& a, const QString& b) { return a.localeAwareCompare(b) < 0; });
    QStringList headers = {"Event timecode", "Audio clip", "Clips"};
    for (const QString& lane : laneLabels) {
        headers.append(laneTitle(lane));
    }
    preview_->setColumnCount(static_cast<int>(headers.size()));
    preview_->setHorizontalHeaderLabels(headers);
    preview_->setRowCount(static_cast<int>(rows.size()));
    // The clip name takes the spare width; lane columns stay narrow.
    for (int column = 0; column < preview_->columnCount(); ++column) {
        preview_->horizontalHeader()->setSectionResizeMode(
            column, column == 1 ? QHeaderView::Stretch : QHeaderView::ResizeToContents);
    }
    QVector<QVector<bool>> covered;
    for (int row = 0; row < rows.size(); ++row) {
        const QVariantMap entry = toVariantMap(rows[row]);
        const QVariantMap matches = toVariantMap(entry.value("trackMatches"));
        QStringList cells = {text(entry, {"eventTimecode"}), text(entry, {"audioClipName"}),
                             text(entry, {"audioClipCount"})};
        QVector<bool> line;
        for (const QString& lane : laneLabels) {
            const bool found = matches.value(lane).toBool();
            cells.append(found ? "✓" : "–");
            line.append(found);
        }
        setRow(preview_, row, cells);
        for (int lane = 0; lane < laneLabels.size(); ++lane) {
            preview_->item(row, 3 + lane)
                ->setForeground(line[lane] ? QColor(0x1E, 0x7B, 0x3A) : QColor(0xB3, 0x26, 0x1E));
            preview_->item(row, 3 + lane)->setTextAlignment(Qt::AlignCenter);
        }
        covered.append(line);
        eventLabels.append(text(entry, {"eventTimecode"}) + "  " + text(entry, {"audioClipName"}));
    }
    QStringList coverageLanes;
    for (const QString& lane : laneLabels) {
        coverageLanes.append(laneTitle(lane));
    }
    coverage_->setData(eventLabels, coverageLanes, covered);
    coverage_->resize(coverage_->sizeHint());
    // The same events in time: start from the event timecode, length from the
    // detected event.
    QVector<RebuildTimeline::Event> timed;
    const QVariantList detected = toVariantList(value("detectedEvents"));
    for (int row = 0; row < rows.size(); ++row) {
        const QVariantMap entry = toVariantMap(rows[row]);
        const QString timecode = text(entry, {"eventTimecode"});
        RebuildTimeline::Event event;
        event.label = timecode + "  " + text(entry, {"audioClipName"});
        event.startSeconds = secondsOfTimecodeText(timecode);
        event.trackCount = text(entry, {"audioClipCount"}).toInt();
        event.covered = covered.value(row);
        for (const QVariant& candidate : detected) {
            const QVariantMap found = toVariantMap(candidate);
            if (found.value("timecode").toString() == timecode) {
                event.durationSeconds = found.value("durationSeconds").toDouble();
            }
        }
        if (std::isfinite(event.startSeconds)) {
            timed.append(event);
        }
    }
    QStringList laneTitles;
    for (const QString& lane : laneLabels) {
        laneTitles.append(laneTitle(lane));
    }
    timeline_->setData(laneTitles, timed);
    buildTimeline_->setData(laneTitles, timed);
    const int missing = coverage_->missingCount();
    coverageSummary_->setText(
        rows.isEmpty()
            ? QString("Auto-scan to see which camera lane covers which event.")
            : QString("%1 event(s) × %2 camera lane(s): %3 covered, %4 without a camera clip "
                      "(hatched).")
                  .arg(rows.size())
                  .arg(laneLabels.size())
                  .arg(coverage_->coveredCount())
                  .arg(missing));
}

void RebuildScreen::refreshValidation() {
    validation_->clear();
    for (const QVariant& entry : toVariantList(value("validationItems"))) {
        const QVariantMap item = toVariantMap(entry);
        const QString severity = item.value("severity").toString();
        auto* row = new QListWidgetItem(
            severity.toUpper() + "  " + item.value("message").toString(), validation_);
        row->setForeground(colorForSeverity(severity));
        row->setData(Qt::UserRole, severity);
    }
}

void RebuildScreen::refreshBuild() {
    const double fraction = std::clamp(value("progressPercent").toDouble(), 0.0, 1.0);
    progress_->setValue(static_cast<int>(std::lround(fraction * 1000.0)));
    progress_->setFormat(QString("%1%").arg(std::lround(fraction * 100.0)));
    phase_->setText(value("progressPhase").toString());
    const QVariantMap stats = toVariantMap(value("buildStats"));
    // Nothing to count before a build ran.
    const bool built = value("isBuilding").toBool() || stats.value("eventsProcessed").toInt() > 0;
    stats_->setVisible(built);
    stats_->setText(QString("Events processed: %1 · Camera matches: %2 · Gaps inserted: %3 · "
                            "Fallback timecodes: %4")
                        .arg(stats.value("eventsProcessed").toInt())
                        .arg(stats.value("cameraMatches").toInt())
                        .arg(stats.value("gapsInserted").toInt())
                        .arg(stats.value("fallbackTimecodesUsed").toInt()));
}

void RebuildScreen::refreshReport() {
    const QVariantMap report = toVariantMap(value("report"));
    revealOutput_->setEnabled(!report.isEmpty());
    if (report.isEmpty()) {
        report_->clear();
        return;
    }
    QStringList lines;
    lines << "Output: " + report.value("outputXMLURL").toString();
    lines << "Sequence duration: " + seconds(report.value("sequenceDurationSeconds"));
    lines << "Track layout: " + report.value("trackLayoutSummary").toString();
    lines << "Duration: " + report.value("durationBoundarySummary").toString();
    lines << "Validation: " + report.value("fcpxmlValidationSummary").toString();
    lines << "Provenance: " + report.value("provenanceSummary").toString();
    const QVariantList gaps = toVariantList(report.value("gapsByTrack"));
    if (!gaps.isEmpty()) {
        lines << ""
              << "Gaps by track:";
        for (const QVariant& gap : gaps) {
            lines << "  " + gap.toString();
        }
    }
    const QVariantList notes = toVariantList(report.value("notes"));
    if (!notes.isEmpty()) {
        lines << ""
              << "Notes:";
        for (const QVariant& note : notes) {
            lines << "  " + note.toString();
        }
    }
    report_->setPlainText(lines.join("\n"));
}

void RebuildScreen::refreshBusy() {
    const bool busy = value("isBuilding").toBool() || value("isBusy").toBool();
    for (QWidget* widget : std::initializer_list<QWidget*>{
             dropArea_, sourceXML_, stereoMix_, syncedFolder_, outputFolder_, outputFilename_,
             missingCamera_, timecodeSource_, videoFrameRate_, autoScan_, continue_, clear_,
             validate_}) {
        widget->setEnabled(!busy);
    }
    // Build needs every input: the readiness list says which one is missing.
    bool ready = true;
    for (const QVariant& entry : toVariantList(value("readinessItems"))) {
        ready = ready && toVariantMap(entry).value("isReady").toBool();
    }
    build_->setEnabled(!busy && ready);
    build_->setToolTip(ready ? QString("Validate and write the rebuilt timeline (Ctrl+Return)")
                             : QString("Complete the inputs marked ✗ first"));
    if (!busy) {
        cancelling_ = false;
        cancel_->setText("Cancel");
    }
    cancel_->setEnabled(busy && !cancelling_);
    // A run disables the button that started it, and Qt hands the focus on
    // down the chain, out of the screen to "‹ Home". The focus waits on Cancel
    // and comes back to the step's own buttons when the run is done.
    QWidget* focus = QApplication::focusWidget();
    if (isVisible() && (focus == nullptr || !isAncestorOf(focus) || !focus->isEnabled())) {
        QWidget* target = busy                  ? static_cast<QWidget*>(cancel_)
                          : build_->isEnabled() ? static_cast<QWidget*>(build_)
                                                : validate_;
        if (target->isEnabled()) {
            target->setFocus(Qt::OtherFocusReason);
        }
    }
}

void RebuildScreen::addFilesFromPicker() {
    const QStringList files = uiHooks().chooseFiles(
        this, "Add the source timeline and the stereo mix", lastBrowseFolder(),
        "Timelines and WAV files (*.fcpxml *.xml *.wav *.FCPXML *.XML *.WAV)");
    if (!files.isEmpty()) {
        routeDroppedPaths(files);
    }
}

QString RebuildScreen::laneTitle(const QString& label) const {
    for (const QVariant& entry : toVariantList(value("videoTracks"))) {
        const QVariantMap track = toVariantMap(entry);
        if (track.value("name").toString() == label) {
            const QString camera = track.value("camera").toString();
            return camera.isEmpty() ? label : label + " · " + camera;
        }
    }
    return label;
}

void RebuildScreen::refreshBuildSummary() {
    const QString folder = pathValue("outputFolderURL");
    QString name = value("outputFilename").toString().trimmed();
    if (!name.isEmpty() && !name.toLower().endsWith(".fcpxml")) {
        name += ".fcpxml";
    }
    QStringList lanes;
    for (const QVariant& entry : toVariantList(value("videoTracks"))) {
        lanes.append(laneTitle(toVariantMap(entry).value("name").toString()));
    }
    const QVariantList events = toVariantList(value("detectedEvents"));
    qint64 tracks = 0;
    for (const QVariant& entry : events) {
        tracks += toVariantMap(entry).value("audioTrackCount").toLongLong();
    }
    QStringList lines;
    lines << "<b>Output:</b> " + (folder.isEmpty() ? QString("choose an output folder")
                                                   : QDir(folder).filePath(name).toHtmlEscaped());
    lines << "<b>Camera lanes:</b> " +
                 (lanes.isEmpty() ? QString("none found yet (Auto-scan)") : lanes.join(", "));
    lines << "<b>Audio:</b> A1 stereo mix " +
                 QFileInfo(pathValue("stereoMixURL")).fileName().toHtmlEscaped() +
                 QString(", A2+ %1 synced file(s) in %2 event(s)").arg(tracks).arg(events.size());
    buildSummary_->setText(lines.join("<br>"));
}

}  // namespace norvane::gui
