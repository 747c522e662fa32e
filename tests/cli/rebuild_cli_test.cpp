// `norvane rebuild` end to end: real files in, an FCPXML out.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include <nlohmann/json.hpp>

#include "core/common/file_output.h"
#include "tests/core/rebuild/rebuild_fixtures.h"
#include "tests/support/test_support.h"

namespace norvane {
namespace {

using ::testing::HasSubstr;
namespace fs = std::filesystem;

// One camera on lane 1 covering 01:00:00:00 to 01:02:00:00 at 25 fps.
const char* kSource = R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE fcpxml>
<fcpxml version="1.9">
  <resources>
    <format id="r1" frameDuration="1/25s" width="1920" height="1080"/>
    <asset id="cam1" name="CamA" start="3600/1s" duration="120/1s" hasVideo="1" format="r1">
      <media-rep kind="original-media" src="file:///demo/CamA.mov"/>
    </asset>
  </resources>
  <library><event><project name="Source">
    <sequence format="r1" duration="120/1s" tcStart="0/1s" tcFormat="NDF">
      <spine>
        <gap name="Gap" offset="0/1s" start="3600/1s" duration="120/1s">
          <asset-clip ref="cam1" lane="1" offset="3600/1s" name="CamA" start="3600/1s" duration="120/1s"/>
        </gap>
      </spine>
    </sequence>
  </project></event></library>
</fcpxml>
)";

class RebuildCLITest : public ::testing::Test {
  protected:
    void SetUp() override {
        testing::writeText(dir / "source.fcpxml", kSource);
        fs::create_directory(dir / "synced");
        fs::create_directory(dir / "out");
        testing::writeSyncedWav(dir / "synced" / "evt1_trk1.wav",
                                {48000, 48000, 1, 3610ull * 48000, {}});
        testing::writeSyncedWav(dir / "synced" / "evt2_trk1.wav",
                                {48000, 48000, 1, 3620ull * 48000, {}});
        testing::writeSyncedWav(dir / "mix.wav", {96000, 48000, 2, {}, {}});
    }

    testing::CommandResult rebuild(const std::string& extra,
                                   const std::string& source = "source.fcpxml") {
        return testing::runCommand("cd '" + dir.path().string() + "' && NORVANE_SETTINGS='" +
                                   (dir / "settings.json").string() + "' '" +
                                   testing::cliPath().string() + "' rebuild --source-xml " +
                                   source + " --stereo-mix mix.wav --synced synced -o out " +
                                   extra);
    }

    std::string readOut(const std::string& name) {
        ByteBuffer bytes = readWholeFile(dir / "out" / name);
        return std::string(bytes.begin(), bytes.end());
    }

    testing::TempDir dir;
};

TEST_F(RebuildCLITest, WritesAValidTimelineAndReplacesItOnRerun) {
    auto result = rebuild("");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_THAT(result.out, HasSubstr("Info: Validation passed with no issues.\n"));
    EXPECT_THAT(result.out, HasSubstr("Info: Duration boundary: stereo 2.000s, rebuilt 2.000s, "
                                      "delta +0.000s (tolerance 0.050s).\n"));
    EXPECT_THAT(result.out, HasSubstr("Info: Generated FCPXML validation passed.\n"));
    EXPECT_THAT(result.out, HasSubstr("Rebuilt timeline written to out/timeline_rebuild.fcpxml"));
    std::string xml = readOut("timeline_rebuild.fcpxml");
    EXPECT_EQ(testing::dtdProblems(xml), "");
    EXPECT_THAT(xml, HasSubstr("<gap name=\"Gap\" start=\"3620/1s\" offset=\"3601/1s\" "
                               "duration=\"1/1s\">"));

    auto replaced = rebuild("");
    EXPECT_EQ(replaced.exitCode, 0) << replaced.err;
}

TEST_F(RebuildCLITest, JsonCarriesItemsAnalysisAndReport) {
    auto result = rebuild("--json --missing-camera skip-clip --tc-source metadata");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    auto j = nlohmann::json::parse(result.out);
    EXPECT_EQ(j["outcome"], "written");
    EXPECT_EQ(j["analysis"]["events"][1]["cameraMatches"][0]["clipName"], "CamA");
    EXPECT_EQ(j["detectedAudioInputs"][0]["timecodeProvenance"], "BWF");
    EXPECT_THAT(j["report"]["fcpxmlValidationSummary"].get<std::string>(),
                ::testing::StartsWith("Generated FCPXML valid ("));
}

TEST_F(RebuildCLITest, ValidationErrorsBlockAndWriteNothing) {
    testing::writeSyncedWav(dir / "synced" / "wild.wav", {48000, 48000, 1, {}, {}});
    auto check = rebuild("--validate-only");
    EXPECT_EQ(check.exitCode, 2);
    EXPECT_THAT(check.out, HasSubstr("Error: 1 synced clips have unparseable or missing event "
                                     "timecode.\n"));
    EXPECT_EQ(check.err, "error: Build blocked by validation errors.\n");

    auto build = rebuild("--tc-source filename");
    EXPECT_EQ(build.exitCode, 2);
    EXPECT_THAT(build.out, HasSubstr("Error: 3 synced clips have unparseable or missing event "
                                     "timecode.\n"));
    EXPECT_EQ(build.err, "error: Build blocked by validation errors.\n");
    EXPECT_TRUE(fs::is_empty(dir / "out"));
}

TEST_F(RebuildCLITest, AnEmptyTimelineIsStoppedByTheGeneratedDocumentCheck) {
    fs::remove(dir / "synced" / "evt1_trk1.wav");
    fs::remove(dir / "synced" / "evt2_trk1.wav");
    auto result = rebuild("");
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_THAT(result.out, HasSubstr("Error: Generated FCPXML contains invalid durations: "
                                      "sequence duration=0/1s.\n"));
    EXPECT_EQ(result.err, "error: Build blocked by generated FCPXML validation errors.\n");
    EXPECT_TRUE(fs::is_empty(dir / "out"));
}

TEST_F(RebuildCLITest, InputChecksFailuresAndUsage) {
    auto wrongSource = rebuild("", "source.txt");
    EXPECT_EQ(wrongSource.exitCode, 2);
    EXPECT_EQ(wrongSource.err, "error: Source timeline must be XML/FCPXML.\n");

    auto badName = rebuild("--name ../x");
    EXPECT_EQ(badName.exitCode, 2);
    EXPECT_EQ(badName.err,
              "error: Set a simple FCPXML filename without folders or path traversal.\n");

    testing::writeText(dir / "broken.fcpxml", "<fcpxml><resources></fcpxml>");
    auto broken = rebuild("", "broken.fcpxml");
    EXPECT_EQ(broken.exitCode, 2);
    EXPECT_EQ(broken.err,
              "error: Build failed: XML parse error at line 1, column 22: mismatched tag\n");

    EXPECT_EQ(rebuild("--video-rate triple").exitCode, 64);
    EXPECT_TRUE(fs::is_empty(dir / "out"));
}

TEST_F(RebuildCLITest, AMissingOutputFolderIsCreatedOnlyOnceTheInputsPass) {
    const std::string base = "cd '" + dir.path().string() + "' && NORVANE_SETTINGS='" +
                             (dir / "settings.json").string() + "' '" +
                             testing::cliPath().string() +
                             "' rebuild --stereo-mix mix.wav --synced synced ";
    auto refused = testing::runCommand(base + "--source-xml source.txt -o new/a");
    EXPECT_EQ(refused.err, "error: Source timeline must be XML/FCPXML.\n");
    EXPECT_FALSE(fs::exists(dir / "new"));

    auto built = testing::runCommand(base + "--source-xml source.fcpxml -o new/a");
    ASSERT_EQ(built.exitCode, 0) << built.err;
    EXPECT_TRUE(fs::exists(dir / "new" / "a" / "timeline_rebuild.fcpxml"));
}

}  // namespace
}  // namespace norvane
