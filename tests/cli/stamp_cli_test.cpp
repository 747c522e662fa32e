#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include <nlohmann/json.hpp>

#include "core/audio/bwf_reader.h"
#include "core/audio/ltc_recording.h"
#include "core/audio/wav_file.h"
#include "core/common/file_output.h"
#include "tests/support/test_support.h"
#include "tests/support/wav_builder.h"

namespace norvane {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;

class StampCommandTest : public ::testing::Test {
  protected:
    testing::TempDir dir;

    void SetUp() override {
        fs::create_directories(dir / "in");
        writeLTC("in/Take 1 LTC.wav", {10, 0, 0, 0, false}, 1000);
        writeStem("in/Take 1 Boom.WAV");
    }

    testing::CommandResult norvane(const std::string& arguments) {
        // A settings file of its own, so the user's defaults never leak in.
        return testing::runCommand("cd '" + dir.path().string() + "' && NORVANE_SETTINGS='" +
                                   (dir / "settings.json").string() + "' '" +
                                   testing::cliPath().string() + "' " + arguments);
    }

    void writeLTC(const std::string& name, const Timecode& start, std::int64_t leadIn,
                  std::vector<LTCRecordingJump> jumps = {}) {
        LTCRecordingOptions options;
        options.rate = *frameRateConfig(FrameRatePreset::fps25);
        options.start = start;
        options.seconds = 3;
        options.channels = 2;
        options.ltcChannel = 2;
        options.leadInSamples = leadIn;
        options.jumps = std::move(jumps);
        writeLTCRecording(dir / name, options, true);
    }

    void writeStem(const std::string& name, std::uint32_t rate = 48000) {
        std::vector<float> tone(static_cast<std::size_t>(rate) * 3);
        for (std::size_t i = 0; i < tone.size(); ++i) {
            tone[i] = static_cast<float>((i % 100) / 1000.0);
        }
        writeFile(dir / name, testing::makePcm(24, rate, {tone}), WriteMode::replaceAtomically);
    }

    std::size_t entries(const std::string& folder) {
        return static_cast<std::size_t>(
            std::distance(fs::directory_iterator(dir / folder), fs::directory_iterator()));
    }

    std::uint64_t timeReference(const std::string& name) {
        const auto info = BWFReader::info(WAVFile(dir / name));
        return info ? info->timeReferenceSamples : 0;
    }
};

TEST_F(StampCommandTest, SingleRunReportsAndStamps) {
    writeFile(dir / "in" / "notes.txt", ByteBuffer{'x'}, WriteMode::createNew);
    auto run = norvane("stamp in in/notes.txt -o out --ltc 'in/Take 1 LTC.wav' --fps 25");
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_THAT(run.out, HasSubstr("Calculated file-set start TC: 09:59:59:24\n"));
    EXPECT_THAT(run.out, HasSubstr("Output files:\n- Take 1 Boom_tc.wav\n"));
    EXPECT_THAT(run.err, HasSubstr("Ignored notes.txt (not a WAV file)."));
    // One frame before 10:00:00:00 at 1,920 samples per frame.
    EXPECT_EQ(timeReference("out/Take 1 Boom_tc.wav"), (36000u * 25u - 1u) * 1920u);
    EXPECT_EQ(entries("out"), 2u);  // the output and the CSV log

    // Under "Ask" an existing output stops the run before anything is written.
    auto again = norvane("stamp in -o out --ltc 'in/Take 1 LTC.wav' --fps 25");
    EXPECT_EQ(again.exitCode, 3);
    EXPECT_THAT(again.err, HasSubstr("- " + (dir / "out" / "Take 1 Boom_tc.wav").string()));
    EXPECT_EQ(entries("out"), 2u);

    auto kept = norvane(
        "stamp in -o out --ltc 'in/Take 1 LTC.wav' --fps 25 --collision keep-both --json "
        "--include-ltc --no-sync");
    ASSERT_EQ(kept.exitCode, 0) << kept.err;
    const auto json = nlohmann::json::parse(kept.out);
    EXPECT_EQ(json["outputFiles"],
              nlohmann::json::array({"Take 1 Boom_tc_2.wav", "Take 1 LTC_tc.wav"}));
    EXPECT_EQ(json["stampedStartTimecode"], "09:59:59:24");
    EXPECT_TRUE(fs::exists(json["csvLogURL"].get<std::string>()));
}

TEST_F(StampCommandTest, JSONReportOfFileNamesThatAreNotUTF8) {
    writeStem("in/Take 1 \xff.wav");
    auto run = norvane("stamp in -o out --ltc 'in/Take 1 LTC.wav' --fps 25 --json");
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const auto json = nlohmann::json::parse(run.out);
    EXPECT_THAT(
        json["outputFiles"].get<std::vector<std::string>>(),
        ::testing::UnorderedElementsAre("Take 1 Boom_tc.wav", "Take 1 \xef\xbf\xbd_tc.wav"));
    EXPECT_TRUE(fs::exists(dir / "out" / "Take 1 \xff_tc.wav"));
}

TEST_F(StampCommandTest, ExitCodesOfFailures) {
    auto usage = norvane("stamp in -o out --ltc 'in/Take 1 LTC.wav' --collision sometimes");
    EXPECT_EQ(usage.exitCode, 64);
    EXPECT_THAT(usage.err, HasSubstr("--collision: expected ask, keep-both or overwrite"));

    // One recording is stamped from its own code; without code nothing runs.
    auto one = norvane("stamp 'in/Take 1 Boom.WAV' -o out");
    EXPECT_EQ(one.exitCode, 2);
    EXPECT_EQ(one.err,
              "error: No LTC found on any channel of the 1 input file(s); name the LTC file with "
              "--ltc FILE.\n");
    auto alone = norvane("stamp 'in/Take 1 LTC.wav' -o out --fps 25");
    EXPECT_EQ(alone.exitCode, 0) << alone.out << alone.err;
    EXPECT_TRUE(fs::exists(dir / "out" / "Take 1 LTC_tc.wav"));
    auto grouped = norvane("stamp 'in/Take 1 Boom.WAV' -o out --mode grouped");
    EXPECT_EQ(grouped.exitCode, 2);
    EXPECT_EQ(grouped.err,
              "error: Please supply at least two WAV files (one LTC + one or more stems).\n");

    // The LTC file's first channel carries no code: the job fails, exit 1.
    auto wrongChannel =
        norvane("stamp in -o out --ltc 'in/Take 1 LTC.wav' --fps 25 --ltc-channel 1");
    EXPECT_EQ(wrongChannel.exitCode, 1) << wrongChannel.err;
    EXPECT_THAT(wrongChannel.out, HasSubstr("- [failed] Single | single | outputs: 0 | error: "));
}

TEST_F(StampCommandTest, CutModeAndSettingsDefaults) {
    writeLTC("in/Take 1 LTC.wav", {1, 0, 0, 0, false}, 0, {{1.5, {2, 0, 0, 0, false}}});
    auto set = norvane("settings set settings.outputFilenameSuffix _synced");
    ASSERT_EQ(set.exitCode, 0) << set.err;
    ASSERT_EQ(norvane("settings set defaultTimeReferenceMode sample").exitCode, 0);
    auto cut = norvane("stamp in -o out --mode cut --ltc 'in/Take 1 LTC.wav' --json --verbose");
    ASSERT_EQ(cut.exitCode, 0) << cut.err;
    const auto json = nlohmann::json::parse(cut.out);
    EXPECT_EQ(json["timeReferenceMode"], "sample");  // the settings' default
    auto given =
        norvane("stamp in -o given --ltc 'in/Take 1 LTC.wav' --time-reference frame --json");
    ASSERT_EQ(given.exitCode, 0) << given.err;
    EXPECT_EQ(nlohmann::json::parse(given.out)["timeReferenceMode"], "frame");
    EXPECT_EQ(json["outputFiles"], nlohmann::json::array({"Take 1 Boom_seg001_synced.wav",
                                                          "Take 1 Boom_seg002_synced.wav"}));
    EXPECT_EQ(timeReference("out/Take 1 Boom_seg001_synced.wav"), 90000u * 1920u);
    // With --verbose the frame-rate diagnostics go to standard error.
    EXPECT_THAT(cut.err, HasSubstr("Auto FPS candidates:"));
}

TEST_F(StampCommandTest, FindsTheLTCByItsSignalAndKeepsDiagnosticsForVerbose) {
    // The LTC file's name says nothing; its second channel carries the code.
    fs::rename(dir / "in" / "Take 1 LTC.wav", dir / "in" / "Take 1 A.wav");
    auto run = norvane("stamp in -o out --fps 25");
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_THAT(run.err, HasSubstr("LTC: Take 1 A.wav, channel 2 (25 fps, starts "));
    EXPECT_THAT(run.out, HasSubstr("Calculated file-set start TC: 09:59:59:24\n"));
    EXPECT_THAT(run.err, Not(HasSubstr("Auto FPS")));

    // --channel names the LTC channel (--ltc-channel stays an alias);
    // --overwrite replaces what the first run wrote.
    auto again = norvane("stamp in -o out --channel 2 --overwrite");
    ASSERT_EQ(again.exitCode, 0) << again.err;
    EXPECT_THAT(again.err, HasSubstr("channel 2"));
    EXPECT_EQ(norvane("stamp in -o out --ltc-channel 2 --overwrite").exitCode, 0);
    EXPECT_EQ(norvane("stamp in -o out --overwrite --collision keep-both").exitCode, 64);
}

TEST_F(StampCommandTest, WithoutAnOutputFolderWritesBesideTheSources) {
    auto run = norvane("stamp in --ltc 'in/Take 1 LTC.wav' --fps 25");
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_TRUE(fs::exists(dir / "in" / "Stamped" / "Take 1 Boom_tc.wav"));
    // A folder chosen once in the settings is used instead.
    ASSERT_EQ(
        norvane("settings set settings.defaultOutputFolderPath '" + (dir / "chosen").string() + "'")
            .exitCode,
        0);
    ASSERT_EQ(norvane("stamp in --ltc 'in/Take 1 LTC.wav' --fps 25").exitCode, 0);
    EXPECT_TRUE(fs::exists(dir / "chosen" / "Take 1 Boom_tc.wav"));
}

}  // namespace
}  // namespace norvane
