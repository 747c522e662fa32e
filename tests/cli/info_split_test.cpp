#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "core/audio/wav_file.h"
#include "tests/support/test_support.h"
#include "tests/support/wav_builder.h"

namespace norvane {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using testing::runCommand;

std::string cli() {
    return "'" + testing::cliPath().string() + "'";
}
std::string quoted(const fs::path& p) {
    return "'" + p.string() + "'";
}

// A stereo 24-bit file stamped at 01:00:00:00 (25 fps, 48 kHz) with iXML.
ByteBuffer stampedFile() {
    testing::WavSpec recipe;
    recipe.bits = 24;
    recipe.frames = 480;
    const std::string ixml = "<BWFXML>\n  <TIMECODE>01:00:00:00</TIMECODE>\n</BWFXML>";
    recipe.beforeData = {{"bext", testing::makeBextPayload(172'800'000)},
                         {"iXML", ByteBuffer(ixml.begin(), ixml.end())}};
    return testing::makeWav(recipe);
}

TEST(InfoCommandTest, TextAndJson) {
    testing::TempDir dir;
    testing::writeBytes(dir / "a.wav", stampedFile());
    auto r = runCommand(cli() + " info " + quoted(dir / "a.wav"));
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_THAT(r.out, HasSubstr("2 channel(s), 48000 Hz, 24-bit, block align 6"));
    EXPECT_THAT(r.out, HasSubstr("frames: 480"));
    EXPECT_THAT(r.out, HasSubstr("fmt  (16), bext (602), iXML (53), data (2880)"));
    EXPECT_THAT(r.out, HasSubstr("172800000 samples, timecode at 25: 01:00:00:00"));
    EXPECT_THAT(r.out, HasSubstr("iXML TIMECODE: 01:00:00:00"));

    r = runCommand(cli() + " info --json --fps 24 " + quoted(dir / "a.wav"));
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const auto j = nlohmann::json::parse(r.out);
    EXPECT_EQ(j[0]["chunks"][3]["size"], 2880);
    // 172,800,000 samples at 48 kHz are 3600 s: 86,400 frames at 24 fps.
    EXPECT_EQ(j[0]["timecode"], "01:00:00:00");

    // One hour is 107,892 frames at 30000/1001: drop frame labels it 01:00:00;00,
    // non-drop counting falls 3.6 s behind.
    r = runCommand(cli() + " info --json --fps 29.97df " + quoted(dir / "a.wav"));
    EXPECT_EQ(nlohmann::json::parse(r.out)[0]["timecode"], "01:00:00;00");
    r = runCommand(cli() + " info --json --fps 29.97 " + quoted(dir / "a.wav"));
    EXPECT_EQ(nlohmann::json::parse(r.out)[0]["timecode"], "00:59:56:12");
}

// A recording cut off before its header was finished (data size 0 with the
// audio after it) shows the audio present and a warning naming the file.
TEST(InfoCommandTest, CutOffRecordingIsShownWithAWarning) {
    testing::TempDir dir;
    testing::WavSpec recipe;
    recipe.bits = 24;
    recipe.frames = 480;
    recipe.dataDeclaredSize = 0;
    testing::writeBytes(dir / "crash.wav", testing::makeWav(recipe));
    auto r = runCommand(cli() + " info " + quoted(dir / "crash.wav"));
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_THAT(r.out, HasSubstr("frames: 480"));
    EXPECT_THAT(r.out, HasSubstr("warning: crash.wav: the data chunk size does not match"));
}

TEST(InfoCommandTest, UnreadableFilesAreReportedAndTheOthersShown) {
    testing::TempDir dir;
    testing::writeBytes(dir / "good.wav", testing::makePcm16(48000, {{0.0f}}));
    testing::writeBytes(dir / "bad.wav", ByteBuffer(20, 'x'));
    auto r =
        runCommand(cli() + " info " + quoted(dir / "bad.wav") + " " + quoted(dir / "good.wav"));
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_THAT(r.err,
                HasSubstr("error: " + (dir / "bad.wav").string() + ": File is not RIFF/WAV."));
    EXPECT_THAT(r.out, HasSubstr("good.wav"));
    EXPECT_THAT(r.out, HasSubstr("bext TimeReference: none"));

    r = runCommand(cli() + " info --json " + quoted(dir / "missing.wav") + " " +
                   quoted(dir / "good.wav"));
    EXPECT_EQ(r.exitCode, 2);
    const auto j = nlohmann::json::parse(r.out);
    ASSERT_EQ(j.size(), 2u);
    EXPECT_THAT(j[0]["error"].get<std::string>(), HasSubstr("No such file or directory"));
    EXPECT_EQ(runCommand(cli() + " info --fps 12 " + quoted(dir / "good.wav")).exitCode, 64);
}

// A recorder file counts its timecode at its own iXML rate, not at --fps.
TEST(InfoCommandTest, RecorderFilesShowTheirOwnRateTracksAndTake) {
    const fs::path take = testing::sharedFixture("field/sd702T_A101_1.WAV");
    if (take.empty()) {
        return;
    }
    testing::TempDir dir;
    fs::create_directories(dir / "day" / "sub");
    fs::copy_file(take, dir / "day" / "sub" / "A101_1.WAV");
    testing::writeBytes(dir / "day" / "notes.txt", {});
    auto r = runCommand(cli() + " info --fps 25 " + quoted(dir / "day"));
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_THAT(r.out, HasSubstr("A101_1.WAV\n"));
    EXPECT_THAT(r.out, HasSubstr("2190940753 samples, timecode at 23.976 (the file's iXML rate): "
                                 "12:39:59:00"));
    EXPECT_THAT(r.out, HasSubstr("iXML rate: 24000/1001 NDF (23.976)"));
    EXPECT_THAT(r.out, HasSubstr("project BMH, scene A101, take 1, tape 18Y12M31"));
    EXPECT_THAT(r.out, HasSubstr("tracks: 1 \"MKH516 A\", 2 \"Boom\""));
    EXPECT_THAT(r.out, ::testing::Not(HasSubstr("notes.txt")));

    r = runCommand(cli() + " info --json " + quoted(dir / "day" / "sub" / "A101_1.WAV"));
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const auto j = nlohmann::json::parse(r.out)[0];
    EXPECT_EQ(j["frameRateSource"], "iXML");
    EXPECT_EQ(j["tracks"][1]["name"], "Boom");
    fs::create_directories(dir / "empty");
    r = runCommand(cli() + " info " + quoted(dir / "empty"));
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_EQ(r.err, "error: No WAV files in selection.\n");
}

TEST(InfoCommandTest, JSONSurvivesBytesThatAreNotUTF8) {
    testing::TempDir dir;
    testing::WavSpec recipe;
    recipe.frames = 4;
    const std::string ixml = "<BWFXML><TIMECODE>01:00\xFF</TIMECODE></BWFXML>";
    recipe.beforeData = {{"bext", testing::makeBextPayload(172'800'000)},
                         {"iXML", ByteBuffer(ixml.begin(), ixml.end())}};
    const fs::path path = dir / "take\xFE.wav";
    testing::writeBytes(path, testing::makeWav(recipe));
    const auto r = runCommand(cli() + " info --json " + quoted(path));
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const auto j = nlohmann::json::parse(r.out)[0];
    EXPECT_EQ(j["path"], (dir / "take\uFFFD.wav").string());
    EXPECT_EQ(j["ixmlTimecode"], "01:00\uFFFD");
    EXPECT_EQ(j["timecode"], "01:00:00:00");
}

TEST(SplitCommandTest, TrackNamesFromTheFlagOrTheSavedSetting) {
    const fs::path take = testing::sharedFixture("field/sd702T_A101_1.WAV");
    if (take.empty()) {
        return;
    }
    testing::TempDir dir;
    fs::copy_file(take, dir / "A101_1.WAV");
    auto r = runCommand(cli() + " split --track-names " + quoted(dir / "A101_1.WAV") + " -o " +
                        quoted(dir / "named"));
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_TRUE(fs::exists(dir / "named" / "A101_1_CH02_Boom.wav"));

    const std::string settings = R"({"settings.polySplitAppendTrackNames": true})";
    testing::writeBytes(dir / "settings.json", ByteBuffer(settings.begin(), settings.end()));
    const std::string env = "NORVANE_SETTINGS=" + quoted(dir / "settings.json") + " ";
    r = runCommand(env + cli() + " split " + quoted(dir / "A101_1.WAV") + " -o " +
                   quoted(dir / "saved"));
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_TRUE(fs::exists(dir / "saved" / "A101_1_CH02_Boom.wav"));
    r = runCommand(env + cli() + " split --no-track-names " + quoted(dir / "A101_1.WAV") + " -o " +
                   quoted(dir / "plain"));
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_TRUE(fs::exists(dir / "plain" / "A101_1_CH02.wav"));
}

TEST(SplitCommandTest, SplitsFoldersAndReports) {
    testing::TempDir dir;
    fs::create_directories(dir / "in" / "day2");
    testing::writeBytes(dir / "in" / "Take1.wav",
                        testing::makePcm16(48000, {{0.5f, 0.25f}, {-0.5f, -0.25f}}));
    testing::writeBytes(dir / "in" / "day2" / "Take1.WAV",
                        testing::makeFloat32(48000, {{0.5f}, {0.1f}, {0.2f}}));
    testing::writeBytes(dir / "in" / "mono.wav", testing::makePcm16(48000, {{0.5f}}));
    testing::writeBytes(dir / "in" / "notes.txt", {});
    auto r = runCommand(cli() + " split " + quoted(dir / "in") + " -o " + quoted(dir / "out"));
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out,
              "Wrote 2 channel file(s) for Take1.wav.\n"
              "Wrote 3 channel file(s) for Take1.WAV.\n"
              "Skipped mono.wav: File has one channel; nothing to split.\n"
              "Done. 5 file(s) written.\n"
              "Output folder: " +
                  (dir / "out").string() + "\n");
    WAVFile second(dir / "out" / "Take1 (2)_CH03.wav");
    EXPECT_EQ(second.fmt().audioFormat, 3);
    EXPECT_EQ(second.samples(0), std::vector<float>{0.2f});
    EXPECT_TRUE(r.err.empty()) << r.err;  // no progress bar when not on a terminal

    // Again without --overwrite: the first output exists.
    r = runCommand(cli() + " split " + quoted(dir / "in" / "Take1.wav") + " -o " +
                   quoted(dir / "out"));
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_EQ(r.err,
              "error: Output file already exists: Take1_CH01.wav. Enable overwrite or choose "
              "another folder.\n");

    r = runCommand(cli() + " split --overwrite --no-sync --json " + quoted(dir / "in" / "Take1.wav") + " " +
                   quoted(dir / "in" / "mono.wav") + " -o " + quoted(dir / "out"));
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const auto j = nlohmann::json::parse(r.out);
    EXPECT_EQ(j["fileResults"][0]["outputURLs"][1], (dir / "out" / "Take1_CH02.wav").string());
    EXPECT_EQ(j["fileResults"][1]["skipReason"], "File has one channel; nothing to split.");
}

TEST(SplitCommandTest, OutputFolderDefaultsToTheSavedSetting) {
    testing::TempDir dir;
    testing::writeBytes(dir / "t.wav", testing::makePcm16(48000, {{0.1f}, {0.2f}}));
    const std::string settings =
        R"({"settings.polySplitDefaultOutputFolderPath": ")" + (dir / "saved").string() + "\"}";
    testing::writeBytes(dir / "settings.json", ByteBuffer(settings.begin(), settings.end()));
    auto r = runCommand("NORVANE_SETTINGS=" + quoted(dir / "settings.json") + " " + cli() +
                        " split " + quoted(dir / "t.wav"));
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_TRUE(fs::exists(dir / "saved" / "t_CH02.wav"));
}

TEST(SplitCommandTest, FailuresAndUsage) {
    testing::TempDir dir;
    testing::WavSpec eight;
    eight.bits = 8;
    eight.frames = 2;
    testing::writeBytes(dir / "eight.wav", testing::makeWav(eight));
    auto r =
        runCommand(cli() + " split " + quoted(dir / "eight.wav") + " -o " + quoted(dir / "out"));
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_EQ(r.err, "error: Bit depth 8 is not supported for mono export (use 16, 24, or 32).\n");
    EXPECT_TRUE(fs::is_empty(dir / "out"));

    EXPECT_EQ(runCommand(cli() + " split -o " + quoted(dir.path())).exitCode, 64);
}

}  // namespace
}  // namespace norvane
