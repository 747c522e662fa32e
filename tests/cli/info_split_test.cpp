// `norvane info` and `norvane split`: arguments, exit codes, text and JSON.
#include "tests/cli/cli_fixture.h"

namespace norvane::testing {
namespace {

namespace fs = std::filesystem;

// A stereo 24-bit file of 480 frames stamped at 01:00:00:00 (25 fps, 48 kHz),
// with an iXML TIMECODE of `ixmlTimecode`.
ByteBuffer stampedFile(const std::string& ixmlTimecode = "01:00:00:00") {
    WavRecipe recipe;
    recipe.bits = 24;
    recipe.frames = 480;
    const std::string ixml = "<BWFXML>\n  <TIMECODE>" + ixmlTimecode + "</TIMECODE>\n</BWFXML>";
    recipe.beforeData = {{"bext", makeBextPayload(172'800'000)},
                         {"iXML", ByteBuffer(ixml.begin(), ixml.end())}};
    return makeWav(recipe);
}

using InfoCommandTest = CommandTest;

TEST_F(InfoCommandTest, TextAndJSONAtEveryRate) {
    write("a.wav", stampedFile());
    auto r = succeeds("info a.wav");
    for (const char* line :
         {"2 channel(s), 48000 Hz, 24-bit, block align 6", "frames: 480",
          "fmt  (16), bext (602), iXML (53), data (2880)",
          "172800000 samples, timecode at 25: 01:00:00:00", "iXML TIMECODE: 01:00:00:00"}) {
        EXPECT_THAT(r.out, HasSubstr(line));
    }
    EXPECT_EQ(json::parse(norvane("info --json a.wav").out)[0]["chunks"][3]["size"], 2880);
    // 3600 s are 86,400 frames at 24 fps; 107,892 frames at 30000/1001, which
    // drop frame labels 01:00:00;00 and non-drop counting 3.6 s behind.
    for (const auto& [fps, timecode] :
         {std::pair{"24", "01:00:00:00"}, std::pair{"29.97df", "01:00:00;00"},
          std::pair{"29.97", "00:59:56:12"}}) {
        r = succeeds(std::string("info --json a.wav --fps ") + fps);
        EXPECT_EQ(json::parse(r.out)[0]["timecode"], timecode) << fps;
    }

    // JSON is UTF-8 whatever the bytes of the name and the iXML.
    write("take\xFE.wav", stampedFile("01:00\xFF"));
    const auto j = json::parse(norvane("info --json 'take\xFE.wav'").out)[0];
    EXPECT_EQ(j["path"], "take\uFFFD.wav");
    EXPECT_EQ(j["ixmlTimecode"], "01:00\uFFFD");
}

// Unreadable files are reported and the others shown; a recording cut off
// before its header was finished (data size 0 with the audio after it) shows
// the audio present and a warning naming the file.
TEST_F(InfoCommandTest, UnreadableAndCutOffFiles) {
    write("good.wav", makePcm16(48000, {{0.0f}}));
    write("bad.wav", ByteBuffer(20, 'x'));
    WavRecipe recipe;
    recipe.frames = 480;
    recipe.dataDeclaredSize = 0;
    write("crash.wav", makeWav(recipe));
    auto r = norvane("info bad.wav good.wav crash.wav");
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_THAT(r.err, HasSubstr("error: bad.wav: File is not RIFF/WAV."));
    EXPECT_THAT(r.out, HasSubstr("good.wav"));
    EXPECT_THAT(r.out, HasSubstr("bext TimeReference: none"));
    EXPECT_THAT(r.out, HasSubstr("frames: 480"));
    EXPECT_THAT(r.out, HasSubstr("warning: crash.wav: the data chunk size does not match"));

    r = norvane("info --json missing.wav good.wav");
    EXPECT_EQ(r.exitCode, 2);
    const auto j = json::parse(r.out);
    ASSERT_EQ(j.size(), 2u);
    EXPECT_THAT(j[0]["error"].get<std::string>(), HasSubstr("No such file or directory"));
    EXPECT_EQ(norvane("info --fps 12 good.wav").exitCode, 64);
    fs::create_directories(dir / "empty");
    r = norvane("info empty");
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_EQ(r.err, "error: No WAV files in selection.\n");
}

// A recorder file counts its timecode at its own iXML rate, not at --fps.
TEST_F(InfoCommandTest, RecorderFilesShowTheirOwnRateTracksAndTake) {
    const fs::path take = sharedFixture("field/sd702T_A101_1.WAV");
    if (take.empty()) {
        return;
    }
    fs::create_directories(dir / "day" / "sub");
    fs::copy_file(take, dir / "day" / "sub" / "A101_1.WAV");
    write("day/notes.txt", "");
    auto r = succeeds("info --fps 25 day");
    for (const char* line :
         {"A101_1.WAV\n",
          "2190940753 samples, timecode at 23.976 (the file's iXML rate): 12:39:59:00",
          "iXML rate: 24000/1001 NDF (23.976)", "project BMH, scene A101, take 1, tape 18Y12M31",
          "tracks: 1 \"MKH516 A\", 2 \"Boom\""}) {
        EXPECT_THAT(r.out, HasSubstr(line));
    }
    EXPECT_THAT(r.out, Not(HasSubstr("notes.txt")));
    const auto j = json::parse(norvane("info --json day/sub/A101_1.WAV").out)[0];
    EXPECT_EQ(j["frameRateSource"], "iXML");
    EXPECT_EQ(j["tracks"][1]["name"], "Boom");
}

using SplitCommandTest = CommandTest;

TEST_F(SplitCommandTest, SplitsFoldersAndReports) {
    write("in/Take1.wav", makePcm16(48000, {{0.5f, 0.25f}, {-0.5f, -0.25f}}));
    write("in/day2/Take1.WAV", makeFloat32(48000, {{0.5f}, {0.1f}, {0.2f}}));
    write("in/mono.wav", makePcm16(48000, {{0.5f}}));
    write("in/notes.txt", "");
    auto r = succeeds("split in -o out");
    EXPECT_EQ(r.out,
              "Wrote 2 channel file(s) for Take1.wav.\n"
              "Wrote 3 channel file(s) for Take1.WAV.\n"
              "Skipped mono.wav: File has one channel; nothing to split.\n"
              "Done. 5 file(s) written.\n"
              "Output folder: " +
                  (dir / "out").string() + "\n");
    EXPECT_TRUE(r.err.empty()) << r.err;  // no progress bar when not on a terminal

    // Again without --overwrite: the first output exists.
    r = norvane("split in/Take1.wav -o out");
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_EQ(r.err,
              "error: Output file already exists: Take1_CH01.wav. Enable overwrite or choose "
              "another folder.\n");
    r = succeeds("split --overwrite --sync --json in/Take1.wav in/mono.wav -o out");
    const auto j = json::parse(r.out);
    EXPECT_EQ(j["fileResults"][0]["outputURLs"][1], (dir / "out" / "Take1_CH02.wav").string());
    EXPECT_EQ(j["fileResults"][1]["skipReason"], "File has one channel; nothing to split.");

    EXPECT_EQ(norvane("split -o out").exitCode, 64);
}

// Track names come from the flag or the saved setting; the output folder
// defaults to the saved one.
TEST_F(SplitCommandTest, SavedSettingsAreTheDefaultsOfTheFlags) {
    const fs::path take = sharedFixture("field/sd702T_A101_1.WAV");
    if (take.empty()) {
        return;
    }
    fs::copy_file(take, dir / "A101_1.WAV");
    ASSERT_EQ(norvane("split --track-names A101_1.WAV -o named").exitCode, 0);
    EXPECT_TRUE(exists("named/A101_1_CH02_Boom.wav"));

    write("settings.json", R"({"settings.polySplitAppendTrackNames": true,
                               "settings.polySplitDefaultOutputFolderPath": ")" +
                               (dir / "saved").string() + "\"}");
    ASSERT_EQ(norvane("split A101_1.WAV").exitCode, 0);
    EXPECT_TRUE(exists("saved/A101_1_CH02_Boom.wav"));
    ASSERT_EQ(norvane("split --no-track-names A101_1.WAV -o plain").exitCode, 0);
    EXPECT_TRUE(exists("plain/A101_1_CH02.wav"));
}

}  // namespace
}  // namespace norvane::testing
