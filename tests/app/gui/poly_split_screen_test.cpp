#include "app/gui/poly_split_screen.h"

#include <gtest/gtest.h>

#include <QCheckBox>
#include <QDropEvent>
#include <QLabel>
#include <QMimeData>
#include <QProgressBar>
#include <QPushButton>
#include <QTableWidget>
#include <QTest>
#include <filesystem>

#include "app/gui/ui_hooks.h"
#include "app/gui/widgets/drop_area.h"
#include "app/gui/widgets/log_pane.h"
#include "app/gui/widgets/path_field.h"
#include "app/viewmodels/poly_split_workflow.h"
#include "tests/app/gui/gui_test_support.h"
#include "tests/support/test_support.h"
#include "tests/support/wav_builder.h"

namespace norvane::gui {
namespace {

namespace fs = std::filesystem;

class PolySplitScreenTest : public ::testing::Test {
  protected:
    void SetUp() override {
        fs::create_directories(dir.path() / "in");
        fs::create_directories(dir.path() / "out");
        const std::vector<float> ramp = {0.0f, 0.25f, 0.5f, -0.5f};
        testing::writeBytes(dir / "in/take10.wav",
                            testing::makePcm16(48000, {ramp, {0.1f, 0.1f, 0.1f, 0.1f}}));
        testing::writeBytes(dir / "in/take2.wav", testing::makePcm16(48000, {ramp}));
        testing::writeBytes(dir / "in/notes.txt", ByteBuffer{'h', 'i'});
    }
    void TearDown() override { resetUiHooks(); }

    QString path(const std::string& name) const {
        return QString::fromStdString((dir / name).string());
    }

    QStringList listed() const {
        QStringList names;
        for (int i = 0; i < screen.inputList()->rowCount(); ++i) {
            names.append(screen.inputList()->item(i, PolySplitScreen::fileColumn)->text());
        }
        return names;
    }

    testing::TempDir dir;
    AppSettingsStore store{dir.path() / "settings.json"};
    PolySplitWorkflow workflow{store};
    PolySplitScreen screen{workflow};
};

// Start without files only explains; files come from the folder picker and
// drops (the text file left out, take2 before take10), Clear empties the list.
TEST_F(PolySplitScreenTest, TakesFilesFromThePickerAndDrops) {
    screen.startButton()->click();
    EXPECT_EQ(screen.statusLabel()->text(), "Add at least one WAV file.");
    ASSERT_FALSE(screen.logPane()->lines().isEmpty());
    EXPECT_TRUE(screen.logPane()->lines().last().endsWith("Split aborted: no input files."));
    uiHooks().chooseFolder = [&](QWidget*, const QString&, const QString&) { return path("in"); };
    screen.dropArea()->findChild<QPushButton*>("dropAreaAddFolder")->click();
    EXPECT_EQ(listed(), QStringList({"take2.wav", "take10.wav"}));
    EXPECT_EQ(screen.statusLabel()->text(), "Loaded 2 file(s).");
    screen.findChild<QPushButton*>("polySplitClear")->click();
    EXPECT_TRUE(listed().isEmpty());
    emit screen.dropArea()->pathsDropped({path("in/notes.txt")});
    EXPECT_EQ(screen.statusLabel()->text(), "No WAV files in selection.");
    // The list itself takes drops too.
    QMimeData mime;
    mime.setUrls({QUrl::fromLocalFile(path("in/take10.wav"))});
    QDragEnterEvent enter(QPoint(5, 5), Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(screen.inputList()->viewport(), &enter);
    QDropEvent drop(QPointF(5, 5), Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(screen.inputList()->viewport(), &drop);
    EXPECT_EQ(listed(), QStringList({"take10.wav"}));
}

// Each row says what the file is and the names its channels will get (read
// from its header in the background), then how the split went; Reveal opens
// the output folder.
TEST_F(PolySplitScreenTest, SplitsToTheChosenFolderAndReportsEachFile) {
    uiHooks().chooseFiles = [&](QWidget*, const QString&, const QString&, const QString&) {
        return QStringList{path("in/take10.wav"), path("in/take2.wav")};
    };
    uiHooks().chooseFolder = [&](QWidget*, const QString&, const QString&) { return path("out"); };
    screen.dropArea()->findChild<QPushButton*>("dropAreaBrowse")->click();
    screen.outputFolderField()->chooseButton()->click();
    EXPECT_EQ(workflow.polySplitOutputFolder(), path("out"));
    screen.overwriteSwitch()->click();
    EXPECT_TRUE(workflow.polySplitOverwriteExisting());
    const auto cell = [&](int row, int column) { return screen.inputList()->item(row, column); };
    ASSERT_TRUE(QTest::qWaitFor([&] { return !workflow.isDescribing(); }, 5000));
    ASSERT_EQ(listed(), QStringList({"take2.wav", "take10.wav"}));
    EXPECT_EQ(cell(1, PolySplitScreen::formatColumn)->text(), "2 ch · 48 kHz 16-bit PCM");
    EXPECT_EQ(cell(1, PolySplitScreen::durationColumn)->text(), "0:00.0");
    EXPECT_EQ(cell(1, PolySplitScreen::outputColumn)->text(),
              "take10_CH01.wav … take10_CH02.wav  (2 files)");
    EXPECT_EQ(cell(0, PolySplitScreen::statusColumn)->text(), "⚠");

    screen.startButton()->click();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !workflow.polySplitIsProcessing(); }, 10000));
    EXPECT_EQ(screen.statusLabel()->text(), "Done. 2 file(s) written.");
    EXPECT_EQ(screen.progressBar()->value(), 1000);
    EXPECT_TRUE(screen.startButton()->isEnabled());
    EXPECT_FALSE(screen.cancelButton()->isEnabled());
    EXPECT_EQ(cell(1, PolySplitScreen::statusColumn)->text(), "✓");
    EXPECT_EQ(cell(1, PolySplitScreen::statusColumn)->toolTip(), "Wrote 2 channel file(s)");
    EXPECT_EQ(cell(0, PolySplitScreen::statusColumn)->toolTip(),
              "Skipped: File has one channel; nothing to split.");
    QUrl opened;
    uiHooks().openUrl = [&](const QUrl& url) {
        opened = url;
        return true;
    };
    screen.findChild<QPushButton*>("polySplitReveal")->click();
    EXPECT_EQ(opened, QUrl::fromLocalFile(path("out")));
}

}  // namespace
}  // namespace norvane::gui
