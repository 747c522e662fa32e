// `norvane stamp`: its arguments, exit codes, messages and JSON. What a run
// writes is the stamp engine's and is checked there.
#include "tests/cli/cli_fixture.h"
#include "tests/core/stamp/stamp_fixtures.h"

namespace norvane::testing {
namespace {

namespace fs = std::filesystem;

class StampCommandTest : public CommandTest {
  protected:
    void SetUp() override {
        CommandTest::SetUp();
        std::filesystem::create_directories(dir / "in");
        writeLTC({10, 0, 0, 0, false}, 1000);
        writeStem(dir / "in/Take 1 Boom.WAV", 3, 1);
    }

    // 3 s of 25 fps code on the second of two channels of "in/Take 1 LTC.wav".
    void writeLTC(const Timecode& start, std::int64_t leadIn,
                  std::vector<LTCRecordingJump> jumps = {}) {
        writeLTCFile(dir / "in" / "Take 1 LTC.wav", FrameRatePreset::fps25, start, leadIn, 3, 2, 2,
                     std::move(jumps));
    }
};

const std::string kLTC = " --ltc 'in/Take 1 LTC.wav' ";

TEST_F(StampCommandTest, ReportsInTextAndJSONAndAsksBeforeReplacing) {
    write("in/notes.txt", "x");
    auto run = succeeds("stamp in in/notes.txt -o out --fps 25" + kLTC);
    EXPECT_THAT(run.out, HasSubstr("Calculated file-set start TC: 09:59:59:24\n"));
    EXPECT_THAT(run.out, HasSubstr("Output files:\n- Take 1 Boom_tc.wav\n"));
    EXPECT_THAT(run.err, HasSubstr("Ignored notes.txt (not a WAV file)."));
    // One frame before 10:00:00:00 at 1,920 samples per frame.
    EXPECT_EQ(sndfileTimeReference(dir / "out/Take 1 Boom_tc.wav"), (36000u * 25u - 1u) * 1920u);
    EXPECT_EQ(entries("out"), 2u);  // the output and the CSV log

    // Under "Ask" an existing output stops the run before anything is written.
    auto again = norvane("stamp in -o out --fps 25" + kLTC);
    EXPECT_EQ(again.exitCode, 3);
    EXPECT_THAT(again.err, HasSubstr("- " + (dir / "out" / "Take 1 Boom_tc.wav").string()));
    EXPECT_EQ(entries("out"), 2u);

    // JSON names the outputs in UTF-8 even where the file name is not.
    writeStem(dir / "in/Take 1 \xff.wav", 3, 1);
    auto kept = succeeds(
        "stamp in -o out --fps 25 --collision keep-both --json --include-ltc --sync" + kLTC);
    const auto report = json::parse(kept.out);
    EXPECT_THAT(report["outputFiles"].get<std::vector<std::string>>(),
                ::testing::UnorderedElementsAre("Take 1 Boom_tc_2.wav", "Take 1 LTC_tc.wav",
                                                "Take 1 \xef\xbf\xbd_tc.wav"));
    EXPECT_EQ(report["stampedStartTimecode"], "09:59:59:24");
    EXPECT_EQ(report["timeReferenceMode"], "frame");
    EXPECT_TRUE(fs::exists(report["csvLogURL"].get<std::string>()));
    EXPECT_TRUE(exists("out/Take 1 \xff_tc.wav"));
}

TEST_F(StampCommandTest, ExitCodesOfFailures) {
    struct Case {
        std::string arguments;
        int exitCode;
        std::string text;  // a part of what it printed
    };
    const Case cases[] = {
        {"in --collision sometimes" + kLTC, 64,
         "--collision: expected ask, keep-both or overwrite"},
        {"in --overwrite --collision keep-both", 64, ""},
        // One recording is stamped from its own code; without code nothing runs.
        {"'in/Take 1 Boom.WAV'", 2,
         "error: No LTC found on any channel of the 1 input file(s); name the LTC file with "
         "--ltc FILE.\n"},
        {"'in/Take 1 Boom.WAV' --mode grouped", 2,
         "error: Please supply at least two WAV files (one LTC + one or more stems).\n"},
        {"'in/Take 1 LTC.wav' --fps 25", 0, ""},
        // The LTC file's first channel carries no code: the job fails.
        {"in --fps 25 --ltc-channel 1" + kLTC, 1,
         "- [failed] Single | single | outputs: 0 | error: "},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        const Case& c = cases[i];
        const auto r = norvane("stamp -o out" + std::to_string(i) + " " + c.arguments);
        EXPECT_EQ(r.exitCode, c.exitCode) << c.arguments << "\n" << r.err;
        EXPECT_THAT(r.out + r.err, HasSubstr(c.text)) << c.arguments;
    }
    EXPECT_TRUE(exists("out4/Take 1 LTC_tc.wav"));
}

TEST_F(StampCommandTest, FindsTheLTCByItsSignalAndShowsDiagnosticsOnlyWhenVerbose) {
    // The LTC file's name says nothing; its second channel carries the code.
    fs::rename(dir / "in" / "Take 1 LTC.wav", dir / "in" / "Take 1 A.wav");
    auto run = succeeds("stamp in -o out --fps 25");
    EXPECT_THAT(run.err, HasSubstr("LTC: Take 1 A.wav, channel 2 (25 fps, starts "));
    EXPECT_THAT(run.out, HasSubstr("Calculated file-set start TC: 09:59:59:24\n"));
    EXPECT_THAT(run.err, Not(HasSubstr("Auto FPS")));

    // --channel names the LTC channel (--ltc-channel stays an alias);
    // --overwrite replaces what the first run wrote.
    auto again = succeeds("stamp in -o out --channel 2 --overwrite --verbose");
    EXPECT_THAT(again.err, HasSubstr("channel 2"));
    EXPECT_THAT(again.err, HasSubstr("Auto FPS candidates:"));
    EXPECT_EQ(norvane("stamp in -o out --ltc-channel 2 --overwrite").exitCode, 0);
}

TEST_F(StampCommandTest, SavedSettingsAreTheDefaultsOfTheFlags) {
    // Without -o the outputs go beside the sources.
    ASSERT_EQ(norvane("stamp in --fps 25" + kLTC).exitCode, 0);
    EXPECT_TRUE(exists("in/Stamped/Take 1 Boom_tc.wav"));

    writeLTC({1, 0, 0, 0, false}, 0, {{1.5, {2, 0, 0, 0, false}}});
    for (const char* setting :
         {"settings.outputFilenameSuffix _synced", "defaultTimeReferenceMode sample",
          "settings.defaultOutputFolderPath chosen"}) {
        ASSERT_EQ(norvane(std::string("settings set ") + setting).exitCode, 0) << setting;
    }
    auto cut = succeeds("stamp in --mode cut --json" + kLTC);
    const auto report = json::parse(cut.out);
    EXPECT_EQ(report["timeReferenceMode"], "sample");
    EXPECT_EQ(report["outputFiles"],
              json::array({"Take 1 Boom_seg001_synced.wav", "Take 1 Boom_seg002_synced.wav"}));
    EXPECT_EQ(sndfileTimeReference(dir / "chosen/Take 1 Boom_seg001_synced.wav"), 90000u * 1920u);
    auto given = succeeds("stamp in -o given --time-reference frame --json" + kLTC);
    EXPECT_EQ(json::parse(given.out)["timeReferenceMode"], "frame");
}

}  // namespace
}  // namespace norvane::testing
