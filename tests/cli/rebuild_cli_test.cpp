// `norvane rebuild`: arguments, exit codes, messages and JSON, over real files.
#include "core/rebuild/demo_timeline.h"
#include "tests/cli/cli_fixture.h"
#include "tests/core/rebuild/rebuild_fixtures.h"

namespace norvane::testing {
namespace {

namespace fs = std::filesystem;

class RebuildCommandTest : public CommandTest {
  protected:
    void SetUp() override {
        CommandTest::SetUp();
        // One camera on lane 1 covering 01:00:00:00 to 01:02:00:00 at 25 fps.
        DemoTimelineSpec source;
        source.lanes = {{"CamA", {{"01:00:00:00", RationalTime::seconds(120)}}}};
        write("source.fcpxml", makeDemoSourceTimeline(source));
        fs::create_directory(dir / "synced");
        writeSyncedWav(dir / "synced" / "evt1_trk1.wav", {48000, 48000, 1, 3610ull * 48000, {}});
        writeSyncedWav(dir / "synced" / "evt2_trk1.wav", {48000, 48000, 1, 3620ull * 48000, {}});
        writeSyncedWav(dir / "mix.wav", {96000, 48000, 2, {}, {}});
    }

    CommandResult rebuild(const std::string& extra, const std::string& source = "source.fcpxml",
                          const std::string& out = "out") {
        return norvane("rebuild --source-xml " + source +
                       " --stereo-mix mix.wav --synced synced -o " + out + " " + extra);
    }
};

// A missing output folder is created once the inputs pass; a second run
// replaces the timeline.
TEST_F(RebuildCommandTest, WritesAValidTimelineAndReplacesItOnRerun) {
    auto result = rebuild("", "source.fcpxml", "new/out");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    for (const char* line : {"Info: Validation passed with no issues.\n",
                             "Info: Duration boundary: stereo 2.000s, rebuilt 2.000s, delta "
                             "+0.000s (tolerance 0.050s).\n",
                             "Info: Generated FCPXML validation passed.\n",
                             "Rebuilt timeline written to new/out/timeline_rebuild.fcpxml"}) {
        EXPECT_THAT(result.out, HasSubstr(line));
    }
    const std::string xml = read("new/out/timeline_rebuild.fcpxml");
    EXPECT_EQ(dtdProblems(xml), "");
    EXPECT_THAT(xml, HasSubstr("<gap name=\"Gap\" start=\"3620/1s\" offset=\"3601/1s\" "
                               "duration=\"1/1s\">"));
    EXPECT_EQ(rebuild("", "source.fcpxml", "new/out").exitCode, 0);

    result = rebuild("--json --missing-camera skip-clip --tc-source metadata");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const auto j = json::parse(result.out);
    EXPECT_EQ(j["outcome"], "written");
    EXPECT_EQ(j["analysis"]["events"][1]["cameraMatches"][0]["clipName"], "CamA");
    EXPECT_EQ(j["detectedAudioInputs"][0]["timecodeProvenance"], "BWF");
    EXPECT_THAT(j["report"]["fcpxmlValidationSummary"].get<std::string>(),
                StartsWith("Generated FCPXML valid ("));
}

// Every refusal exits 2 (64 for usage) with its message and writes nothing; a
// missing output folder is created only once the input checks pass.
TEST_F(RebuildCommandTest, RefusalsWriteNothing) {
    fs::create_directory(dir / "out");
    write("broken.fcpxml", "<fcpxml><resources></fcpxml>");
    writeSyncedWav(dir / "synced" / "wild.wav", {48000, 48000, 1, {}, {}});
    const std::string blocked = "error: Build blocked by validation errors.\n";
    struct Case {
        std::string extra, source, out;
        int exitCode;
        std::string stdOut, stdErr;
    };
    const Case cases[] = {
        {"--validate-only", "source.fcpxml", "out", 2,
         "Error: 1 synced clips have unparseable or missing event timecode.\n", blocked},
        {"--tc-source filename", "source.fcpxml", "out", 2,
         "Error: 3 synced clips have unparseable or missing event timecode.\n", blocked},
        {"", "source.txt", "new/out", 2, "", "error: Source timeline must be XML/FCPXML.\n"},
        {"--name ../x", "source.fcpxml", "out", 2, "",
         "error: Set a simple FCPXML filename without folders or path traversal.\n"},
        {"", "broken.fcpxml", "out", 2, "",
         "error: Build failed: XML parse error at line 1, column 22: mismatched tag\n"},
        {"--video-rate triple", "source.fcpxml", "out", 64, "", ""},
    };
    for (const Case& c : cases) {
        const auto r = rebuild(c.extra, c.source, c.out);
        EXPECT_EQ(r.exitCode, c.exitCode) << c.extra << c.source;
        EXPECT_THAT(r.out, HasSubstr(c.stdOut));
        if (!c.stdErr.empty()) {
            EXPECT_EQ(r.err, c.stdErr);
        }
    }
    EXPECT_FALSE(exists("new"));

    // Without clips the generated document's own check stops the build.
    fs::remove_all(dir / "synced");
    fs::create_directory(dir / "synced");
    const auto empty = rebuild("");
    EXPECT_EQ(empty.exitCode, 2);
    EXPECT_THAT(empty.out, HasSubstr("Error: Generated FCPXML contains invalid durations: "
                                     "sequence duration=0/1s.\n"));
    EXPECT_EQ(empty.err, "error: Build blocked by generated FCPXML validation errors.\n");
    EXPECT_TRUE(fs::is_empty(dir / "out"));
}

}  // namespace
}  // namespace norvane::testing
