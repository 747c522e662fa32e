#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <nlohmann/json.hpp>

#include "tests/support/test_support.h"

namespace norvane {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class SettingsCommandTest : public ::testing::Test {
  protected:
    testing::TempDir dir;
    fs::path file = dir / "settings.json";
    fs::path home = dir / "home";

    void SetUp() override { fs::create_directories(home); }

    // `norvane settings <arguments>` against a private settings file and home.
    testing::CommandResult settings(const std::string& arguments) {
        return testing::runCommand("cd '" + dir.path().string() + "' && HOME='" + home.string() +
                                   "' NORVANE_SETTINGS='" + file.string() + "' '" +
                                   testing::cliPath().string() + "' settings " + arguments);
    }

    std::string fileText() {
        std::ifstream in(file);
        std::stringstream ss;
        ss << in.rdbuf();
        return ss.str();
    }
};

TEST_F(SettingsCommandTest, ShowListsEveryKeyInOrderWithoutWriting) {
    const auto result = settings("show");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.err, "");
    std::vector<std::string> lines;
    std::istringstream in(result.out);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    ASSERT_EQ(lines.size(), 20u);
    EXPECT_EQ(lines[0], "settings.defaultFrameRatePreset = Auto");
    EXPECT_EQ(lines[3], "settings.defaultOutputFolderPath = " + home.string());
    EXPECT_EQ(lines[19], "settings.defaultTimeReferenceMode = frame");
    EXPECT_FALSE(fs::exists(file));

    // Bare `settings` shows too; `path` names the file in use.
    EXPECT_EQ(settings("").out, result.out);
    EXPECT_EQ(settings("path").out, file.string() + "\n");
}

TEST_F(SettingsCommandTest, SetSavesTypedValuesThatGetAndJsonShowBack) {
    auto result = settings("set defaultFrameRatePreset 29.97df");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, "settings.defaultFrameRatePreset = 29.97 DF\n");
    EXPECT_EQ(settings("set settings.defaultGroupedLTCChannel 4").exitCode, 0);
    EXPECT_EQ(settings("set defaultIncludeLTCOutputs true").exitCode, 0);
    EXPECT_EQ(settings("set lowConfidenceBehavior 'always proceed'").exitCode, 0);
    // Relative paths are saved absolute, resolved from where the command ran.
    EXPECT_EQ(settings("set polySplitDefaultOutputFolderPath out/../split").exitCode, 0);

    EXPECT_EQ(settings("get defaultFrameRatePreset").out, "29.97 DF\n");
    EXPECT_EQ(settings("get settings.lowConfidenceBehavior").out, "Always Proceed\n");
    EXPECT_EQ(settings("get polySplitDefaultOutputFolderPath").out,
              (dir.path() / "split").string() + "\n");

    result = settings("show --json");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const auto shown = nlohmann::ordered_json::parse(result.out);
    EXPECT_EQ(shown.size(), 20u);
    EXPECT_EQ(shown["settings.defaultGroupedLTCChannel"], 4);
    EXPECT_EQ(shown["settings.defaultIncludeLTCOutputs"], true);
    EXPECT_EQ(nlohmann::json::parse(fileText())["settings.defaultFrameRatePreset"], "29.97 DF");
}

TEST_F(SettingsCommandTest, RefusesUnknownKeysAndValuesWithWhatIsAccepted) {
    ASSERT_EQ(settings("set outputFilenameSuffix _x").exitCode, 0);
    const std::string before = fileText();

    auto result = settings("set frameRate 25");
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_THAT(result.err, StartsWith("error: Unknown setting \"frameRate\". Known settings: "
                                       "defaultFrameRatePreset, "));

    result = settings("set defaultFrameRatePreset 26");
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.err,
              "error: Invalid value \"26\" for settings.defaultFrameRatePreset; accepted: one of "
              "\"Auto\", \"23.976\", \"24\", \"25\", \"29.97 NDF\", \"29.97 DF\", \"30\".\n");
    result = settings("set defaultGroupedLTCChannel 0");
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_THAT(result.err, HasSubstr("accepted: an integer >= 1."));
    result = settings("set defaultSaveCSVReport maybe");
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_THAT(result.err, HasSubstr("accepted: true or false."));
    result = settings("set defaultTimeReferenceMode samples");
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_THAT(result.err, HasSubstr("accepted: one of \"frame\", \"sample\"."));

    EXPECT_EQ(fileText(), before);                                 // nothing refused was saved
    EXPECT_EQ(settings("set defaultSaveCSVReport").exitCode, 64);  // a usage error
}

TEST_F(SettingsCommandTest, ResetRestoresTheDefaults) {
    ASSERT_EQ(settings("set outputFilenameSuffix _stamped").exitCode, 0);
    ASSERT_EQ(settings("set defaultOutputFolderPath /media/out").exitCode, 0);

    const auto result = settings("reset");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_THAT(result.out, HasSubstr("reset to system defaults"));
    EXPECT_EQ(settings("get outputFilenameSuffix").out, "_tc\n");
    EXPECT_EQ(settings("get defaultOutputFolderPath").out, home.string() + "\n");
    EXPECT_EQ(nlohmann::json::parse(fileText()).size(), 20u);
}

TEST_F(SettingsCommandTest, CorruptFileWarnsAndFallsBackToDefaults) {
    std::ofstream(file) << "{ not json";
    const auto result = settings("get outputFilenameSuffix");
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out, "_tc\n");
    EXPECT_THAT(result.err, StartsWith("warning: The settings file " + file.string() +
                                       " is not valid settings JSON; it was kept as "));
    EXPECT_FALSE(fs::exists(file));
}

}  // namespace
}  // namespace norvane
