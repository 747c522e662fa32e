#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include <nlohmann/json.hpp>

#include "core/audio/ltc_recording.h"
#include "core/audio/wav_file.h"
#include "tests/support/test_support.h"

namespace norvane {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

class LTCCommandTest : public ::testing::Test {
  protected:
    testing::TempDir dir;

    testing::CommandResult norvane(const std::string& arguments) {
        return testing::runCommand("cd '" + dir.path().string() + "' && '" +
                                   testing::cliPath().string() + "' " + arguments);
    }
};

TEST_F(LTCCommandTest, GenLtcThenDecodeFindsTheStartOnTheLTCChannel) {
    auto gen = norvane(
        "gen-ltc -o take.wav --start 10:00:00:00 --fps 25 --seconds 2 --channels 4 "
        "--ltc-channel 3 --format pcm16 --lead-in 480");
    ASSERT_EQ(gen.exitCode, 0) << gen.err;
    EXPECT_THAT(gen.out, HasSubstr("LTC on channel 3 at 25 from 10:00:00:00"));
    EXPECT_EQ(WAVFile(dir / "take.wav").frameCount(), 96000);

    // Without --channel every channel is tried and the LTC channel wins.
    auto decoded = norvane("decode -v take.wav --json");
    ASSERT_EQ(decoded.exitCode, 0) << decoded.err;
    const auto j = nlohmann::ordered_json::parse(decoded.out);
    EXPECT_EQ(j["channel"], 3);
    EXPECT_EQ(j["timecode"], "10:00:00:00");
    EXPECT_NEAR(j["firstValidSample"].get<double>(), 480, 5);
    // With -v the frame-rate diagnostics go to standard error; without, nowhere.
    EXPECT_THAT(decoded.err, HasSubstr("Auto FPS candidates:"));
    EXPECT_EQ(norvane("decode take.wav --json").err, "");

    auto text = norvane("decode take.wav --channel 3 --fps 25");
    ASSERT_EQ(text.exitCode, 0) << text.err;
    EXPECT_THAT(text.out, HasSubstr("timecode: 10:00:00:00\nframe rate: 25\n"));
    EXPECT_EQ(text.err, "");

    // A tone channel has no code.
    auto tone = norvane("decode take.wav --channel 1");
    EXPECT_EQ(tone.exitCode, 2);
    EXPECT_THAT(tone.err, HasSubstr("error: Could not decode a valid LTC frame."));
}

TEST_F(LTCCommandTest, SilenceFailsWithTheDecoderMessage) {
    LTCRecordingOptions options;
    options.rate = *frameRateConfig(FrameRatePreset::fps25);
    options.seconds = 0.5;
    options.leadInSamples = 48000;  // the whole file is lead-in
    writeLTCRecording(dir / "silent.wav", options);
    auto r = norvane("decode silent.wav");
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_THAT(r.err, HasSubstr("error: LTC signal appears silent or invalid."));
}

TEST_F(LTCCommandTest, TimelineShowsBothSidesOfAJump) {
    auto gen = norvane(
        "gen-ltc -o jump.wav --start '01:00:00;00' --fps 29.97df --seconds 3 --format float32 "
        "--jump '1.5=14:30:00;00'");
    ASSERT_EQ(gen.exitCode, 0) << gen.err;
    EXPECT_THAT(gen.out, HasSubstr("jump at 1.500 s to 14:30:00;00"));
    auto r = norvane("decode jump.wav --fps 29.97df --timeline --json");
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const auto j = nlohmann::ordered_json::parse(r.out);
    EXPECT_EQ(j["timecode"], "01:00:00;00");
    EXPECT_EQ(j["frameRate"], "29.97 DF");
    bool before = false;
    bool after = false;
    for (const auto& p : j["points"]) {
        const std::string tc = p["timecode"];
        const auto sample = p["sample"].get<std::int64_t>();
        if (sample < 72000) {
            EXPECT_EQ(tc.substr(0, 6), "01:00:");
            before = true;
        } else {
            EXPECT_EQ(tc.substr(0, 6), "14:30:");
            after = true;
        }
    }
    EXPECT_TRUE(before);
    EXPECT_TRUE(after);
}

TEST_F(LTCCommandTest, GenLtcRefusesBadArgumentsAndExistingFiles) {
    auto auto_ = norvane("gen-ltc -o a.wav --start 01:00:00:00 --fps auto --seconds 1");
    EXPECT_EQ(auto_.exitCode, 64);
    EXPECT_THAT(auto_.err, HasSubstr("gen-ltc needs a fixed frame rate"));
    auto frames = norvane("gen-ltc -o a.wav --start 01:00:00:25 --fps 25 --seconds 1");
    EXPECT_EQ(frames.exitCode, 64);
    EXPECT_THAT(frames.err, HasSubstr("invalid start timecode \"01:00:00:25\" at 25"));
    auto dropped = norvane("gen-ltc -o a.wav --start '01:01:00;00' --fps 29.97df --seconds 1");
    EXPECT_EQ(dropped.exitCode, 64);
    EXPECT_FALSE(fs::exists(dir / "a.wav"));

    ASSERT_EQ(norvane("gen-ltc -o a.wav --start 01:00:00:00 --fps 24 --seconds 1").exitCode, 0);
    const auto size = fs::file_size(dir / "a.wav");
    auto again = norvane("gen-ltc -o a.wav --start 01:00:00:00 --fps 24 --seconds 2");
    EXPECT_EQ(again.exitCode, 2);
    EXPECT_THAT(again.err, HasSubstr("File exists"));
    EXPECT_EQ(fs::file_size(dir / "a.wav"), size);
    EXPECT_EQ(norvane("gen-ltc -f -o a.wav --start 01:00:00:00 --fps 24 --seconds 2").exitCode, 0);
    EXPECT_GT(fs::file_size(dir / "a.wav"), size);
}

}  // namespace
}  // namespace norvane
