#include "app/viewmodels/app_view_model.h"

#include <gtest/gtest.h>

#include <QSignalSpy>

#include "tests/app/viewmodels/viewmodel_test_support.h"
#include "tests/support/test_support.h"

namespace norvane {
namespace {

using testing::TempDir;

TEST(AppViewModelTest, OwnsTheWorkflowsOverOneSettingsFile) {
    TempDir dir;
    testing::writeSettingsFile(dir / "settings.json",
                               R"({"settings.defaultFrameRatePreset": "25",
                                   "settings.polySplitDefaultOutputFolderPath": "/splits"})");
    AppViewModel app(dir / "settings.json");
    EXPECT_EQ(app.featureArea(), "home");
    EXPECT_EQ(app.stamp()->frameRatePreset(), "25");
    EXPECT_EQ(app.polySplit()->polySplitOutputFolder(), "/splits");
    EXPECT_EQ(app.property("settings").value<SettingsViewModel*>(), app.settings());

    // A change on the settings screen is what the next run reads.
    app.settings()->setLowConfidenceBehavior("Always Proceed");
    EXPECT_EQ(app.settingsStore().lowConfidenceBehavior(), LowConfidenceBehavior::alwaysProceed);

    QSignalSpy areaChanged(&app, &AppViewModel::featureAreaChanged);
    app.setFeatureArea("timelineRebuild");
    app.setFeatureArea("nowhere");
    EXPECT_EQ(app.featureArea(), "timelineRebuild");
    EXPECT_EQ(areaChanged.count(), 1);
}

TEST(AppViewModelTest, GoesAwayCleanlyWhileWorkRuns) {
    TempDir dir;
    auto app = std::make_unique<AppViewModel>(dir / "settings.json");
    app->timelineRebuild()->setSyncedAudioFolderURL(QString::fromStdString(dir.path().string()));
    app->timelineRebuild()->autoScan();
    app->polySplit()->addFiles({QString::fromStdString(dir.path().string())});
    app.reset();  // joins the background threads; nothing may call back afterwards
    EXPECT_TRUE(testing::waitUntil([] { return true; }));
}

}  // namespace
}  // namespace norvane
