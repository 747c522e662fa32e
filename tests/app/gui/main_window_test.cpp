#include "app/gui/main_window.h"

#include <gtest/gtest.h>

#include <QAction>
#include <QApplication>
#include <QLabel>
#include <QPushButton>
#include <QSettings>
#include <QTest>
#include <QToolButton>
#include <filesystem>

#include "app/gui/home_screen.h"
#include "app/gui/poly_split_screen.h"
#include "app/gui/rebuild_screen.h"
#include "app/gui/ui_hooks.h"
#include "app/viewmodels/app_view_model.h"
#include "app/viewmodels/timeline_rebuild_workflow.h"
#include "tests/app/gui/gui_test_support.h"
#include "tests/support/test_support.h"
#include "tests/support/wav_builder.h"

namespace norvane::gui {
namespace {

namespace fs = std::filesystem;

class MainWindowTest : public ::testing::Test {
  protected:
    void SetUp() override {
        window.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    }

    testing::TempDir dir;
    AppViewModel viewModel{dir.path() / "settings.json"};
    MainWindow window{viewModel};
};

// Each home card names its tool and opens it; Back returns; the view model
// can move the window too.
TEST_F(MainWindowTest, HomeCardsAndShortcutsOpenTheToolsAndBackReturns) {
    EXPECT_EQ(window.currentPage(), "home");
    EXPECT_FALSE(window.backButton()->isVisible());
    const QStringList cards[] = {{"ltcStamp", "LTC stamp", "Stamp synced WAV metadata from LTC."},
                                 {"polyWavSplit", "Poly WAV split",
                                  "Split multi-channel WAVs to mono (PCM or 32-bit float)."},
                                 {"timelineRebuild", "Timeline rebuild",
                                  "Rebuild multicam timeline from synced audio and stereo mix."}};
    for (const QStringList& card : cards) {
        QPushButton* button = window.homeScreen()->card(card[0]);
        ASSERT_NE(button, nullptr) << card[0].toStdString();
        EXPECT_EQ(button->findChild<QLabel*>("toolCardTitle")->text(), card[1]);
        EXPECT_EQ(button->findChild<QLabel*>("toolCardSubtitle")->text(), card[2]);
        button->click();
        EXPECT_EQ(viewModel.featureArea(), card[0]);
        EXPECT_EQ(window.currentPage(), card[0]);
        EXPECT_TRUE(window.backButton()->isVisible());
        window.backButton()->click();
        EXPECT_EQ(window.currentPage(), "home");
    }
    viewModel.setFeatureArea("polyWavSplit");
    EXPECT_EQ(window.currentPage(), "polyWavSplit");

    // Ctrl+1..3 and Ctrl+, switch screens, Settings goes back where it came
    // from, and a screen's own shortcuts reach it once shown.
    window.activateWindow();
    QTest::keyClick(&window, Qt::Key_3, Qt::ControlModifier);
    EXPECT_EQ(window.currentPage(), "timelineRebuild");
    QTest::keyClick(&window, Qt::Key_Comma, Qt::ControlModifier);
    EXPECT_EQ(window.currentPage(), "settings");
    EXPECT_EQ(window.backButton()->text(), "‹ Timeline rebuild");
    window.backButton()->click();
    EXPECT_EQ(window.currentPage(), "timelineRebuild");
    QTest::keyClick(&window, Qt::Key_1, Qt::ControlModifier);
    EXPECT_EQ(window.currentPage(), "ltcStamp");
    QTest::keyClick(&window, Qt::Key_Left, Qt::AltModifier);
    EXPECT_EQ(window.currentPage(), "home");

    QTest::keyClick(&window, Qt::Key_2, Qt::ControlModifier);
    ASSERT_EQ(window.currentPage(), "polyWavSplit");
    QWidget* focus = QApplication::focusWidget();
    ASSERT_NE(focus, nullptr);
    ASSERT_TRUE(window.polySplitScreen()->isAncestorOf(focus));
    QTest::keyClick(focus, Qt::Key_Return, Qt::ControlModifier);
    EXPECT_EQ(viewModel.polySplit()->polySplitStatusMessage(), "Add at least one WAV file.");
}

// Validate disables its own button while it runs; when it is done the focus
// is on the rebuild's controls, not on the way out ("‹ Home").
TEST_F(MainWindowTest, AfterValidateTheFocusStaysOnTheRebuild) {
    testing::writeRebuildInputs(dir / "rebuild");
    fs::create_directories(dir / "out");
    const QString root = QString::fromStdString((dir / "rebuild").string());
    window.showArea("timelineRebuild");
    window.activateWindow();
    RebuildScreen* screen = window.rebuildScreen();
    screen->routeDroppedPaths({root + "/source.fcpxml", root + "/stereo_mix.wav", root + "/synced",
                               QString::fromStdString((dir / "out").string())});
    screen->validateButton()->setFocus();
    screen->validateButton()->click();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !viewModel.timelineRebuild()->isBusy(); }, 30000));
    QApplication::processEvents();
    QWidget* focus = QApplication::focusWidget();
    ASSERT_NE(focus, nullptr);
    EXPECT_NE(focus, window.backButton());
    EXPECT_TRUE(screen->isAncestorOf(focus)) << focus->objectName().toStdString();
}

TEST_F(MainWindowTest, MenusFollowTheScreenAndTheWindowSizeIsKept) {
    // File > Add files… goes to the screen on show.
    const fs::path take = dir / "T01.wav";
    testing::writeBytes(take, testing::makePcm16(48000, {{0.1f, 0.2f}, {0.3f, 0.4f}}));
    uiHooks().chooseFiles = [&](QWidget*, const QString&, const QString&, const QString&) {
        return QStringList{QString::fromStdString(take.string())};
    };
    window.showArea("polyWavSplit");
    window.addFilesAction()->trigger();
    resetUiHooks();
    EXPECT_EQ(viewModel.polySplit()->polySplitInputURLs().size(), 1);

    // Run > Process is named after the screen's own button and follows it.
    window.showArea("timelineRebuild");
    window.refreshRunActions();
    EXPECT_EQ(window.processAction()->text(), "Build");
    EXPECT_FALSE(window.processAction()->isEnabled());  // the inputs are not chosen
    EXPECT_FALSE(window.cancelAction()->isEnabled());
    window.showArea("ltcStamp");
    window.refreshRunActions();
    EXPECT_EQ(window.processAction()->text(), "Stamp");
    EXPECT_TRUE(window.processAction()->isEnabled());
    window.processAction()->trigger();
    EXPECT_NE(viewModel.stamp()->statusMessage(), "");

    // The window's size is kept for the next session.
    window.resize(900, 640);
    window.close();
    AppViewModel otherModel{dir.path() / "settings.json"};
    MainWindow next{otherModel};
    next.restoreWindowState();
    EXPECT_EQ(next.size(), QSize(900, 640));
    QSettings().clear();
}

}  // namespace
}  // namespace norvane::gui
