#include "app/gui/settings_screen.h"

#include <gtest/gtest.h>

#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QTest>
#include <nlohmann/json.hpp>

#include "app/gui/ui_hooks.h"
#include "app/gui/widgets/help_button.h"
#include "app/viewmodels/settings_view_model.h"
#include "tests/app/gui/gui_test_support.h"
#include "tests/support/test_support.h"

namespace norvane::gui {
namespace {

class SettingsScreenTest : public ::testing::Test {
  protected:
    void TearDown() override { resetUiHooks(); }

    // What the settings file holds, read as plain JSON.
    nlohmann::json saved() const {
        return nlohmann::json::parse(testing::readText(dir / "settings.json"));
    }

    testing::TempDir dir;
    AppSettingsStore store{dir.path() / "settings.json"};
    SettingsViewModel settings{store};
    SettingsScreen screen{settings};
};

// Every setting has an editor showing its value; edits are saved at once and
// changes made elsewhere are shown; Double LTC is explained in a popover.
TEST_F(SettingsScreenTest, EditorsShowSaveAndFollowEverySetting) {
    for (const std::string& key : AppSettingsStore::keys()) {
        EXPECT_NE(screen.editorFor(QString::fromStdString(key).mid(9)), nullptr) << key;
    }
    auto* collision = qobject_cast<QComboBox*>(screen.editorFor("outputCollisionBehavior"));
    EXPECT_EQ(collision->currentText(), "Ask");
    collision->setCurrentText("Keep Both");
    emit collision->textActivated("Keep Both");
    qobject_cast<QSpinBox*>(screen.editorFor("defaultGroupedLTCChannel"))->setValue(4);
    qobject_cast<QCheckBox*>(screen.editorFor("defaultSaveCSVReport"))->click();
    auto* suffix = qobject_cast<QLineEdit*>(screen.editorFor("outputFilenameSuffix"));
    suffix->clear();
    QTest::keyClicks(suffix, "_stamped");
    const nlohmann::json file = saved();
    EXPECT_EQ(file.at("settings.outputCollisionBehavior"), "Keep Both");
    EXPECT_EQ(file.at("settings.defaultGroupedLTCChannel"), 4);
    EXPECT_EQ(file.at("settings.defaultSaveCSVReport"), false);
    EXPECT_EQ(file.at("settings.outputFilenameSuffix"), "_stamped");

    store.setTimelineRebuildDefaultVideoFrameRateMode(VideoFrameRateMode::doubleLTC);
    EXPECT_EQ(qobject_cast<QComboBox*>(screen.editorFor("timelineRebuildDefaultVideoFrameRateMode"))
                  ->currentText(),
              "Double LTC (50/60 fps video)");
    auto* help = screen.findChild<HelpButton*>("help_timelineRebuildDefaultVideoFrameRateMode");
    ASSERT_NE(help, nullptr);
    screen.show();
    help->click();
    ASSERT_NE(help->popover(), nullptr);
    EXPECT_TRUE(help->popover()->isVisible());
    help->popover()->close();
}

TEST_F(SettingsScreenTest, ResetAsksFirstThenRestoresTheDefaults) {
    store.setOutputFilenameSuffix("_x");
    QString asked;
    bool answer = false;
    uiHooks().confirm = [&](QWidget*, const QString& title, const QString&, const QString&) {
        asked = title;
        return answer;
    };
    screen.resetButton()->click();
    EXPECT_EQ(asked, "Reset to System Defaults");
    EXPECT_EQ(store.outputFilenameSuffix(), "_x");
    answer = true;
    screen.resetButton()->click();
    EXPECT_EQ(store.outputFilenameSuffix(), "_tc");
    EXPECT_EQ(qobject_cast<QLineEdit*>(screen.editorFor("outputFilenameSuffix"))->text(), "_tc");
}

}  // namespace
}  // namespace norvane::gui
