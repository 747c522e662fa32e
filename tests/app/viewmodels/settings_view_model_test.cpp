#include "app/viewmodels/settings_view_model.h"

#include <gtest/gtest.h>

#include <QSignalSpy>

#include "core/common/file_output.h"
#include "tests/app/viewmodels/viewmodel_test_support.h"
#include "tests/support/test_support.h"

namespace norvane {
namespace {

using testing::TempDir;

std::string readText(const std::filesystem::path& file) {
    const ByteBuffer bytes = readWholeFile(file);
    return std::string(bytes.begin(), bytes.end());
}

TEST(SettingsViewModelTest, LoadRulesShowThroughAsLabels) {
    TempDir dir;
    const auto file = dir / "settings.json";
    testing::writeSettingsFile(file, R"({"settings.defaultGroupedLTCChannel": 0,
        "settings.defaultFrameRatePreset": "31 fps",
        "settings.lowConfidenceBehavior": "Always Proceed",
        "settings.defaultSaveCSVReport": "yes",
        "settings.outputCollisionBehavior": "Keep Both"})");
    AppSettingsStore store(file);
    SettingsViewModel settings(store);

    EXPECT_EQ(settings.defaultGroupedLTCChannel(), 1);
    EXPECT_EQ(settings.defaultFrameRatePreset(), "Auto");
    EXPECT_EQ(settings.lowConfidenceBehavior(), "Always Proceed");
    EXPECT_TRUE(settings.defaultSaveCSVReport());  // a string is not a boolean
    EXPECT_EQ(settings.outputCollisionBehavior(), "Keep Both");
}

TEST(SettingsViewModelTest, WritesGoToTheStoreAndComeBackAsSignals) {
    TempDir dir;
    const auto file = dir / "settings.json";
    AppSettingsStore store(file);
    SettingsViewModel settings(store);
    QSignalSpy rateChanged(&settings, &SettingsViewModel::defaultFrameRatePresetChanged);
    QSignalSpy suffixChanged(&settings, &SettingsViewModel::outputFilenameSuffixChanged);

    EXPECT_TRUE(settings.setProperty("defaultFrameRatePreset", QStringLiteral("29.97 DF")));
    EXPECT_EQ(rateChanged.count(), 1);
    EXPECT_EQ(store.defaultFrameRatePreset(), FrameRatePreset::fps29_97DF);
    EXPECT_NE(readText(file).find("\"29.97 DF\""), std::string::npos);

    // A text that is no label changes nothing.
    settings.setDefaultFrameRatePreset(QStringLiteral("29.97"));
    EXPECT_EQ(settings.defaultFrameRatePreset(), "29.97 DF");

    // A change made on the store directly (the command line, another screen)
    // reaches the screens too.
    store.setOutputFilenameSuffix("_synced");
    EXPECT_EQ(suffixChanged.count(), 1);
    EXPECT_EQ(settings.outputFilenameSuffix(), "_synced");
}

TEST(SettingsViewModelTest, ResetRestoresDefaultsAndAnnouncesEachSetting) {
    TempDir dir;
    AppSettingsStore store(dir / "settings.json");
    SettingsViewModel settings(store);
    settings.setOutputFilenameSuffix(QStringLiteral("_x"));
    settings.setPolySplitDefaultOutputFolderPath(QStringLiteral("/nowhere"));
    settings.setTimelineRebuildRecentStereoMixPath(QStringLiteral("/mix.wav"));
    QSignalSpy suffixChanged(&settings, &SettingsViewModel::outputFilenameSuffixChanged);
    QSignalSpy folderChanged(&settings,
                             &SettingsViewModel::polySplitDefaultOutputFolderPathChanged);

    settings.resetToSystemDefaults();

    const QString home = QString::fromStdString(AppSettingsStore::homeDirectoryPath().string());
    EXPECT_EQ(settings.outputFilenameSuffix(), "_tc");
    EXPECT_EQ(settings.polySplitDefaultOutputFolderPath(), home);
    EXPECT_GE(suffixChanged.count(), 1);
    EXPECT_GE(folderChanged.count(), 1);
}

}  // namespace
}  // namespace norvane
