#include "app/gui/settings_screen.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScrollArea>
#include <QSpinBox>
#include <QVBoxLayout>

#include "app/gui/property_binding.h"
#include "app/gui/ui_hooks.h"
#include "app/gui/widgets/help_button.h"
#include "app/gui/widgets/path_field.h"
#include "app/viewmodels/settings_view_model.h"

namespace norvane::gui {

namespace {

const char* const kDoubleLTCHelp =
    "Use Double LTC when 50/60 fps picture was stamped from 25/30 fps LTC, including 59.94 DF "
    "from 29.97 DF LTC.";

QGroupBox* makeGroup(const QString& title, QFormLayout*& form) {
    auto* group = new QGroupBox(title);
    form = new QFormLayout(group);
    form->setFieldGrowthPolicy(QFormLayout::ExpandingFieldsGrow);
    form->setLabelAlignment(Qt::AlignLeft);
    return group;
}

}  // namespace

SettingsScreen::SettingsScreen(SettingsViewModel& settings, QWidget* parent)
    : QWidget(parent),
      settings_(settings),
      reset_(new QPushButton("Reset to System Defaults")),
      writeError_(new QLabel) {
    setObjectName("settingsScreen");
    auto* content = new QWidget;
    auto* column = new QVBoxLayout(content);
    column->setContentsMargins(16, 12, 16, 12);
    column->setSpacing(12);

    auto combo = [this](const char* property) {
        auto* box = new QComboBox;
        bindComboBox(box, &settings_, property, settings_.labelsFor(property));
        return box;
    };
    auto check = [this](const QString& text, const char* property) {
        auto* box = new QCheckBox(text);
        bindCheckBox(box, &settings_, property);
        return box;
    };
    auto folder = [this](const QString& title, const char* property) {
        auto* field = new PathField(PathField::Kind::folder, title);
        bindPathField(field, &settings_, property);
        return field;
    };
    auto file = [this](const QString& title, const char* property, const QStringList& extensions,
                       const QString& filter) {
        auto* field = new PathField(PathField::Kind::file, title);
        field->setExtensions(extensions, filter);
        field->setPlaceholderText("None yet");
        bindPathField(field, &settings_, property);
        return field;
    };

    QFormLayout* form = nullptr;
    column->addWidget(makeGroup("LTC stamp", form));
    addRow(form, "Default frame rate", "defaultFrameRatePreset", combo("defaultFrameRatePreset"),
           "\"Auto\" detects the frame rate from the LTC of each run.");
    addRow(form, "Time reference", "defaultTimeReferenceMode", combo("defaultTimeReferenceMode"),
           "What the BWF time reference of a stamped file counts: \"frame\" the samples since "
           "midnight of its frame-aligned start timecode, \"sample\" those of its first sample "
           "exactly as the LTC places it, as location recorders write it.");
    auto* channel = new QSpinBox;
    channel->setRange(1, 64);
    bindSpinBox(channel, &settings_, "defaultGroupedLTCChannel");
    addRow(form, "Default LTC channel", "defaultGroupedLTCChannel", channel,
           "The channel (numbered from 1) that carries LTC when a group does not choose its "
           "own.");
    addRow(form, "Low confidence", "lowConfidenceBehavior", combo("lowConfidenceBehavior"),
           "\"Ask\" stops a run whose LTC decode confidence is low and asks before writing; "
           "\"Always Proceed\" writes without asking.");
    addRow(form, "Default output folder", "defaultOutputFolderPath",
           folder("Default output folder", "defaultOutputFolderPath"));
    addRow(form, "", "defaultIncludeLTCOutputs",
           check("Also write stamped copies of LTC files", "defaultIncludeLTCOutputs"));
    addRow(form, "", "defaultSaveCSVReport",
           check("Save a CSV log beside the outputs", "defaultSaveCSVReport"));
    addRow(form, "Grouping method", "defaultGroupingMethod", combo("defaultGroupingMethod"),
           "How Grouped Batch puts files together: by equal duration, by a token of the file "
           "name, or by a regular expression.");
    addRow(form, "Duration tolerance", "durationTolerancePreset", combo("durationTolerancePreset"),
           "How far durations may differ for \"Duration Exact\" grouping to treat files as one "
           "take.");
    auto* suffix = new QLineEdit;
    bindLineEdit(suffix, &settings_, "outputFilenameSuffix");
    addRow(form, "Output file name suffix", "outputFilenameSuffix", suffix,
           "Added to each stamped file's name before the extension.");
    addRow(form, "When outputs exist", "outputCollisionBehavior", combo("outputCollisionBehavior"),
           "\"Ask\" stops before writing and lets you choose; \"Keep Both\" adds a number; "
           "\"Overwrite\" replaces the existing file.");

    column->addWidget(makeGroup("Poly WAV split", form));
    addRow(form, "Default output folder", "polySplitDefaultOutputFolderPath",
           folder("Default split output folder", "polySplitDefaultOutputFolderPath"));
    addRow(form, "", "polySplitAppendTrackNames",
           check("Add each track's recorder name to its file name", "polySplitAppendTrackNames"));

    column->addWidget(makeGroup("Timeline rebuild", form));
    addRow(form, "Missing camera", "timelineRebuildDefaultMissingCameraBehavior",
           combo("timelineRebuildDefaultMissingCameraBehavior"),
           "What the rebuild does where a camera lane has no clip at an event: insert a gap, "
           "skip the clip, or stop the export.");
    addRow(form, "Timecode source", "timelineRebuildDefaultTimecodeSourcePriority",
           combo("timelineRebuildDefaultTimecodeSourcePriority"),
           "Where each synced file's event timecode comes from: its iXML / BWF metadata with the "
           "file name as fallback, the file name only, or the input XML only.");
    addRow(form, "Video frame rate", "timelineRebuildDefaultVideoFrameRateMode",
           combo("timelineRebuildDefaultVideoFrameRateMode"), kDoubleLTCHelp);
    addRow(form, "Recent source XML", "timelineRebuildRecentSourceXMLPath",
           file("Source timeline XML", "timelineRebuildRecentSourceXMLPath", {"xml", "fcpxml"},
                "Timelines (*.fcpxml *.xml)"));
    addRow(form, "Recent stereo mix", "timelineRebuildRecentStereoMixPath",
           file("Stereo mix WAV", "timelineRebuildRecentStereoMixPath", {"wav"},
                "WAV files (*.wav *.WAV)"));
    addRow(form, "Recent synced folder", "timelineRebuildRecentSyncedFolderPath",
           folder("Synced audio folder", "timelineRebuildRecentSyncedFolderPath"));
    addRow(form, "Recent output folder", "timelineRebuildRecentOutputFolderPath",
           folder("Output folder", "timelineRebuildRecentOutputFolderPath"));

    writeError_->setObjectName("settingsWriteError");
    writeError_->setWordWrap(true);
    writeError_->setStyleSheet("color: #B3261E;");
    watchProperty(&settings_, "lastWriteError", writeError_, [this] {
        writeError_->setText(settings_.lastWriteError());
        writeError_->setVisible(!settings_.lastWriteError().isEmpty());
    });
    column->addWidget(writeError_);
    if (!settings_.loadWarnings().isEmpty()) {
        auto* warnings = new QLabel(settings_.loadWarnings().join("\n"));
        warnings->setObjectName("settingsLoadWarnings");
        warnings->setWordWrap(true);
        column->addWidget(warnings);
    }

    reset_->setObjectName("resetSettingsButton");
    connect(reset_, &QPushButton::clicked, this, &SettingsScreen::resetToDefaults);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(reset_);
    column->addLayout(buttons);
    column->addStretch();

    auto* scroll = new QScrollArea;
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidget(content);
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    outer->addWidget(scroll);
}

void SettingsScreen::addRow(QFormLayout* form, const QString& label, const char* property,
                            QWidget* editor, const QString& help) {
    editor->setObjectName(QString("setting_") + property);
    editor->setAccessibleName(label.isEmpty() ? QString(property) : label);
    if (help.isEmpty()) {
        form->addRow(label, editor);
        return;
    }
    auto* row = new QWidget;
    auto* layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(editor, 1);
    auto* button = new HelpButton(help);
    button->setObjectName(QString("help_") + property);
    layout->addWidget(button);
    form->addRow(label, row);
}

QWidget* SettingsScreen::editorFor(const QString& propertyName) const {
    return findChild<QWidget*>("setting_" + propertyName);
}

void SettingsScreen::resetToDefaults() {
    if (uiHooks().confirm(this, "Reset to System Defaults",
                          "Put every setting of the three tools back to its default?", "Reset")) {
        settings_.resetToSystemDefaults();
    }
}

}  // namespace norvane::gui
