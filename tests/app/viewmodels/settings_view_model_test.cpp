#include "app/viewmodels/settings_view_model.h"

#include <gtest/gtest.h>

#include <QSignalSpy>

#include "tests/app/viewmodels/viewmodel_test_support.h"
#include "tests/support/test_support.h"

namespace norvane {
namespace {

using testing::TempDir;

// The screens read labels; a label goes to the store and back as a signal,
// a text that is no label changes nothing, a change made on the store directly
// (the command line, another screen) reaches the screens, and a reset
// announces each setting it restores.
TEST(SettingsViewModelTest, LabelsGoToTheStoreAndChangesComeBackAsSignals) {
    TempDir dir;
    testing::writeSettingsFile(dir / "settings.json",
                               R"({"settings.defaultFrameRatePreset": "31 fps",
        "settings.outputCollisionBehavior": "Keep Both"})");
    AppSettingsStore store(dir / "settings.json");
    SettingsViewModel settings(store);
    EXPECT_EQ(settings.defaultFrameRatePreset(), "Auto");
    EXPECT_EQ(settings.outputCollisionBehavior(), "Keep Both");
    QSignalSpy rateChanged(&settings, &SettingsViewModel::defaultFrameRatePresetChanged);
    QSignalSpy suffixChanged(&settings, &SettingsViewModel::outputFilenameSuffixChanged);
    EXPECT_TRUE(settings.setProperty("defaultFrameRatePreset", QStringLiteral("29.97 DF")));
    EXPECT_EQ(rateChanged.count(), 1);
    EXPECT_EQ(store.defaultFrameRatePreset(), FrameRatePreset::fps29_97DF);
    settings.setDefaultFrameRatePreset(QStringLiteral("29.97"));
    EXPECT_EQ(settings.defaultFrameRatePreset(), "29.97 DF");

    store.setOutputFilenameSuffix("_synced");
    EXPECT_EQ(suffixChanged.count(), 1);
    EXPECT_EQ(settings.outputFilenameSuffix(), "_synced");
    settings.resetToSystemDefaults();
    EXPECT_EQ(settings.outputFilenameSuffix(), "_tc");
    EXPECT_EQ(suffixChanged.count(), 2);
    EXPECT_EQ(settings.defaultFrameRatePreset(), "Auto");
    EXPECT_EQ(rateChanged.count(), 2);
}

}  // namespace
}  // namespace norvane
