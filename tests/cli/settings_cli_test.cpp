// `norvane settings`: show, get, set, reset and path against a private file.
#include "tests/cli/cli_fixture.h"

namespace norvane::testing {
namespace {

namespace fs = std::filesystem;

class SettingsCommandTest : public CommandTest {
  protected:
    CommandResult settings(const std::string& arguments) const {
        return norvane("settings " + arguments);
    }
};

TEST_F(SettingsCommandTest, ShowListsEveryKeyInOrderWithoutWriting) {
    const auto result = succeeds("settings show");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 20);
    EXPECT_THAT(result.out, StartsWith("settings.defaultFrameRatePreset = Auto\n"));
    EXPECT_THAT(result.out, HasSubstr("\nsettings.defaultOutputFolderPath = " + home.string()));
    EXPECT_THAT(result.out, ::testing::EndsWith("\nsettings.defaultTimeReferenceMode = frame\n"));
    EXPECT_FALSE(fs::exists(settingsFile));
    // Bare `settings` shows too; `path` names the file in use.
    EXPECT_EQ(settings("").out, result.out);
    EXPECT_EQ(settings("path").out, settingsFile.string() + "\n");
}

TEST_F(SettingsCommandTest, SetSavesTypedValuesThatGetAndJsonShowBack) {
    auto result = succeeds("settings set defaultFrameRatePreset 29.97df");
    EXPECT_EQ(result.out, "settings.defaultFrameRatePreset = 29.97 DF\n");
    // Relative paths are saved absolute, resolved from where the command ran.
    for (const char* set : {"settings.defaultGroupedLTCChannel 4", "defaultIncludeLTCOutputs true",
                            "lowConfidenceBehavior 'always proceed'",
                            "polySplitDefaultOutputFolderPath out/../split"}) {
        EXPECT_EQ(settings(std::string("set ") + set).exitCode, 0) << set;
    }
    EXPECT_EQ(settings("get defaultFrameRatePreset").out, "29.97 DF\n");
    EXPECT_EQ(settings("get settings.lowConfidenceBehavior").out, "Always Proceed\n");
    EXPECT_EQ(settings("get polySplitDefaultOutputFolderPath").out,
              (dir.path() / "split").string() + "\n");

    result = succeeds("settings show --json");
    const auto shown = json::parse(result.out);
    EXPECT_EQ(shown.size(), 20u);
    EXPECT_EQ(shown["settings.defaultGroupedLTCChannel"], 4);
    EXPECT_EQ(shown["settings.defaultIncludeLTCOutputs"], true);
    EXPECT_EQ(json::parse(read("settings.json"))["settings.defaultFrameRatePreset"], "29.97 DF");
}

TEST_F(SettingsCommandTest, RefusesUnknownKeysAndValuesWithWhatIsAccepted) {
    ASSERT_EQ(settings("set outputFilenameSuffix _x").exitCode, 0);
    const std::string before = read("settings.json");
    const std::pair<const char*, std::string> refusals[] = {
        {"frameRate 25",
         "error: Unknown setting \"frameRate\". Known settings: defaultFrameRatePreset, "},
        {"defaultFrameRatePreset 26",
         "error: Invalid value \"26\" for settings.defaultFrameRatePreset; accepted: one of "
         "\"Auto\", \"23.976\", \"24\", \"25\", \"29.97 NDF\", \"29.97 DF\", \"30\".\n"},
        {"defaultGroupedLTCChannel 0", "accepted: an integer >= 1."},
        {"defaultSaveCSVReport maybe", "accepted: true or false."},
        {"defaultTimeReferenceMode samples", "accepted: one of \"frame\", \"sample\"."},
    };
    for (const auto& [arguments, message] : refusals) {
        const auto result = settings(std::string("set ") + arguments);
        EXPECT_EQ(result.exitCode, 2) << arguments;
        EXPECT_THAT(result.err, HasSubstr(message));
    }
    EXPECT_EQ(read("settings.json"), before);                      // nothing refused was saved
    EXPECT_EQ(settings("set defaultSaveCSVReport").exitCode, 64);  // a usage error
}

TEST_F(SettingsCommandTest, ResetAndACorruptFileGiveTheDefaults) {
    ASSERT_EQ(settings("set outputFilenameSuffix _stamped").exitCode, 0);
    ASSERT_EQ(settings("set defaultOutputFolderPath /media/out").exitCode, 0);
    const auto result = succeeds("settings reset");
    EXPECT_THAT(result.out, HasSubstr("reset to system defaults"));
    EXPECT_EQ(settings("get outputFilenameSuffix").out, "_tc\n");
    EXPECT_EQ(settings("get defaultOutputFolderPath").out, home.string() + "\n");
    EXPECT_EQ(json::parse(read("settings.json")).size(), 20u);

    write("settings.json", "{ not json");
    const auto corrupt = settings("get outputFilenameSuffix");
    EXPECT_EQ(corrupt.exitCode, 0);
    EXPECT_EQ(corrupt.out, "_tc\n");
    EXPECT_THAT(corrupt.err, StartsWith("warning: The settings file " + settingsFile.string() +
                                        " is not valid settings JSON; it was kept as "));
    EXPECT_FALSE(fs::exists(settingsFile));
}

}  // namespace
}  // namespace norvane::testing
