#include "app/gui/rebuild_screen.h"

#include "app/gui/widgets/rebuild_timeline.h"

#include <gtest/gtest.h>

#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTableWidget>
#include <QTest>
#include <filesystem>

#include "app/gui/ui_hooks.h"
#include "app/gui/widgets/coverage_grid.h"
#include "app/gui/widgets/path_field.h"
#include "app/viewmodels/timeline_rebuild_workflow.h"
#include "tests/app/gui/gui_test_support.h"
#include "tests/support/test_support.h"

namespace norvane::gui {
namespace {

namespace fs = std::filesystem;

// The project of writeRebuildInputs: cameras CamA (events 1-3) and CamB
// (events 1 and 3), three events of synced takes with iXML timecodes.
class RebuildScreenTest : public ::testing::Test {
  protected:
    void SetUp() override {
        testing::writeRebuildInputs(dir / "rebuild");
        fs::create_directories(dir / "out");
    }
    void TearDown() override { resetUiHooks(); }

    static QString q(const fs::path& path) { return QString::fromStdString(path.string()); }
    bool idle() {
        return QTest::qWaitFor([this] { return !rebuild.isBusy(); }, 30000);
    }
    QStringList readiness() const {
        QStringList items;
        for (int i = 0; i < screen.readinessList()->count(); ++i) {
            items.append(screen.readinessList()->item(i)->text());
        }
        return items;
    }

    testing::TempDir dir;
    AppSettingsStore store{dir.path() / "settings.json"};
    TimelineRebuildWorkflow rebuild{store};
    RebuildScreen screen{rebuild};
};

TEST_F(RebuildScreenTest, SortsDroppedInputsAndWalksFromScanToAValidTimeline) {
    screen.resize(800, 600);
    screen.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&screen));
    EXPECT_EQ(screen.shownStep(), "inputs");
    EXPECT_EQ(readiness().first(), "✗  Source timeline XML");
    // Build waits in the action bar for every input.
    EXPECT_TRUE(screen.actionBar()->isAncestorOf(screen.buildButton()));
    EXPECT_FALSE(screen.buildButton()->isEnabled());
    screen.routeDroppedPaths({q(dir / "rebuild/source.fcpxml"), q(dir / "rebuild/stereo_mix.wav"),
                              q(dir / "rebuild/synced"), q(dir / "out")});
    EXPECT_EQ(screen.sourceXMLField()->path(), q(dir / "rebuild/source.fcpxml"));
    EXPECT_EQ(screen.stereoMixField()->path(), q(dir / "rebuild/stereo_mix.wav"));
    EXPECT_EQ(screen.syncedFolderField()->path(), q(dir / "rebuild/synced"));
    EXPECT_EQ(readiness(), QStringList({"✓  Source timeline XML", "✓  Stereo mix WAV",
                                        "✓  Synced audio folder", "✓  Output folder + filename"}));
    EXPECT_TRUE(screen.buildButton()->isEnabled());
    EXPECT_TRUE(screen.buildButton()->isVisible());
    // Cancel says it is stopping until the work has stopped.
    screen.autoScanButton()->click();
    ASSERT_TRUE(rebuild.isBusy());
    screen.cancelButton()->click();
    EXPECT_EQ(screen.cancelButton()->text(), "Cancelling…");
    EXPECT_FALSE(screen.cancelButton()->isEnabled());
    ASSERT_TRUE(idle());
    EXPECT_EQ(screen.cancelButton()->text(), "Cancel");

    // A file name with a folder part is refused at "Continue".
    screen.outputFilenameEdit()->clear();
    QTest::keyClicks(screen.outputFilenameEdit(), "../x");
    EXPECT_EQ(readiness().last(), "✗  Output folder + filename");
    screen.continueButton()->click();
    EXPECT_EQ(screen.statusLabel()->text(), "Complete required inputs first.");
    EXPECT_EQ(screen.shownStep(), "inputs");
    screen.outputFilenameEdit()->clear();
    QTest::keyClicks(screen.outputFilenameEdit(), "cut");
    screen.videoFrameRatePicker()->setCurrentText("Same as LTC");
    emit screen.missingCameraPicker()->textActivated("Insert Gap");

    screen.autoScanButton()->click();
    ASSERT_TRUE(idle());
    EXPECT_EQ(screen.statusLabel()->text(), "Auto-scan complete (3 events)");
    screen.continueButton()->click();
    EXPECT_EQ(screen.shownStep(), "mapping");
    ASSERT_EQ(screen.previewTable()->rowCount(), 3);
    // Camera B has nothing at the second event, in the table, the grid and the timeline.
    EXPECT_EQ(screen.previewTable()->item(1, 4)->text(), "–");
    EXPECT_EQ(screen.previewTable()->item(1, 3)->text(), "✓");
    EXPECT_FALSE(screen.coverageGrid()->isCovered(1, 1));
    const RebuildTimeline* timeline = screen.timeline();
    ASSERT_EQ(timeline->events().size(), 3);
    EXPECT_EQ(timeline->gapCount(), 1);
    EXPECT_DOUBLE_EQ(timeline->events()[1].startSeconds - timeline->events()[0].startSeconds, 20);

    screen.validateButton()->click();
    ASSERT_TRUE(idle());
    EXPECT_EQ(screen.shownStep(), "validate");
    EXPECT_EQ(screen.statusLabel()->text(), "Validation complete.");
    bool warned = false;
    for (int i = 0; i < screen.validationList()->count(); ++i) {
        const QString text = screen.validationList()->item(i)->text();
        warned = warned || (text.startsWith("WARNING") && text.contains("lane V2"));
    }
    EXPECT_TRUE(warned);

    screen.buildButton()->click();
    ASSERT_TRUE(idle());
    EXPECT_EQ(screen.shownStep(), "report");
    const fs::path written = dir / "out/cut.fcpxml";
    ASSERT_TRUE(fs::exists(written));
    EXPECT_TRUE(screen.reportView()->toPlainText().startsWith("Output: " + q(written)));

    QUrl opened;
    uiHooks().openUrl = [&](const QUrl& url) {
        opened = url;
        return true;
    };
    screen.findChild<QPushButton*>("rebuildReveal")->click();
    EXPECT_EQ(opened, QUrl::fromLocalFile(q(dir / "out")));
    screen.findChild<QPushButton*>("rebuildStartOver")->click();
    EXPECT_EQ(screen.shownStep(), "inputs");
}

}  // namespace
}  // namespace norvane::gui
