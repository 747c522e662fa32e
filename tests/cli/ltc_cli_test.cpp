// `norvane gen-ltc` and `norvane decode`: arguments, exit codes, text and JSON.
#include <set>

#include "core/audio/wav_file.h"
#include "tests/cli/cli_fixture.h"

namespace norvane::testing {
namespace {

using LTCCommandTest = CommandTest;

TEST_F(LTCCommandTest, GenLtcThenDecodeFindsTheStartOnTheLTCChannel) {
    auto gen = succeeds(
        "gen-ltc -o take.wav --start 10:00:00:00 --fps 25 --seconds 2 --channels 4 "
        "--ltc-channel 3 --format pcm16 --lead-in 480");
    EXPECT_THAT(gen.out, HasSubstr("LTC on channel 3 at 25 from 10:00:00:00"));
    EXPECT_EQ(WAVFile(dir / "take.wav").frameCount(), 96000);

    // Without --channel every channel is tried and the LTC channel wins; with
    // -v the frame-rate diagnostics go to standard error, without, nowhere.
    auto decoded = succeeds("decode -v take.wav --json");
    const auto j = json::parse(decoded.out);
    EXPECT_EQ(j["channel"], 3);
    EXPECT_EQ(j["timecode"], "10:00:00:00");
    EXPECT_NEAR(j["firstValidSample"].get<double>(), 480, 5);
    EXPECT_THAT(decoded.err, HasSubstr("Auto FPS candidates:"));

    auto text = succeeds("decode take.wav --channel 3 --fps 25");
    EXPECT_THAT(text.out, HasSubstr("timecode: 10:00:00:00\nframe rate: 25\n"));
    EXPECT_EQ(text.err, "");

    // A tone channel has no code.
    auto tone = norvane("decode take.wav --channel 1");
    EXPECT_EQ(tone.exitCode, 2);
    EXPECT_THAT(tone.err, HasSubstr("error: Could not decode a valid LTC frame."));
}

TEST_F(LTCCommandTest, TimelineShowsBothSidesOfAJump) {
    auto gen = norvane(
        "gen-ltc -o jump.wav --start '01:00:00;00' --fps 29.97df --seconds 3 --format float32 "
        "--jump '1.5=14:30:00;00'");
    ASSERT_EQ(gen.exitCode, 0) << gen.err;
    EXPECT_THAT(gen.out, HasSubstr("jump at 1.500 s to 14:30:00;00"));
    auto r = succeeds("decode jump.wav --fps 29.97df --timeline --json");
    const auto j = json::parse(r.out);
    EXPECT_EQ(j["timecode"], "01:00:00;00");
    EXPECT_EQ(j["frameRate"], "29.97 DF");
    std::set<std::string> hours;
    for (const auto& p : j["points"]) {
        const std::string tc = p["timecode"];
        EXPECT_EQ(tc.substr(0, 6), p["sample"].get<std::int64_t>() < 72000 ? "01:00:" : "14:30:");
        hours.insert(tc.substr(0, 2));
    }
    EXPECT_EQ(hours, (std::set<std::string>{"01", "14"}));
}

TEST_F(LTCCommandTest, GenLtcRefusesBadArgumentsAndExistingFiles) {
    const std::string gen = "gen-ltc -o a.wav --start ";
    auto auto_ = norvane(gen + "01:00:00:00 --fps auto --seconds 1");
    EXPECT_EQ(auto_.exitCode, 64);
    EXPECT_THAT(auto_.err, HasSubstr("gen-ltc needs a fixed frame rate"));
    auto frames = norvane(gen + "01:00:00:25 --fps 25 --seconds 1");
    EXPECT_EQ(frames.exitCode, 64);
    EXPECT_THAT(frames.err, HasSubstr("invalid start timecode \"01:00:00:25\" at 25"));
    EXPECT_EQ(norvane(gen + "'01:01:00;00' --fps 29.97df --seconds 1").exitCode, 64);
    EXPECT_FALSE(exists("a.wav"));

    ASSERT_EQ(norvane(gen + "01:00:00:00 --fps 24 --seconds 1").exitCode, 0);
    const auto size = std::filesystem::file_size(dir / "a.wav");
    auto again = norvane(gen + "01:00:00:00 --fps 24 --seconds 2");
    EXPECT_EQ(again.exitCode, 2);
    EXPECT_THAT(again.err, HasSubstr("File exists"));
    EXPECT_EQ(std::filesystem::file_size(dir / "a.wav"), size);
    EXPECT_EQ(norvane("gen-ltc -f -o a.wav --start 01:00:00:00 --fps 24 --seconds 2").exitCode, 0);
    EXPECT_GT(std::filesystem::file_size(dir / "a.wav"), size);
}

}  // namespace
}  // namespace norvane::testing
