// `norvane demo` is the first thing a new user runs: it must work end to end,
// and what it writes must be what the tools promise.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "core/audio/bwf_reader.h"
#include "core/audio/wav_file.h"
#include "tests/support/test_support.h"

namespace norvane {
namespace {

namespace fs = std::filesystem;
using testing::runCommand;
using testing::TempDir;

TEST(DemoCommandTest, StampsSplitsAndRebuildsItsShootDay) {
    TempDir dir;
    const fs::path demo = dir / "demo";
    const auto result = runCommand("NORVANE_SETTINGS='" + (dir / "settings.json").string() + "' '" +
                                   testing::cliPath().string() + "' demo '" + demo.string() + "'");
    ASSERT_EQ(result.exitCode, 0) << result.out << result.err;
    EXPECT_NE(result.out.find("Stamped start timecode matches the generated signal."),
              std::string::npos)
        << result.out;
    EXPECT_NE(result.out.find("Calculated file-set start TC: 14:23:05:11"), std::string::npos);

    // The stamped boom stem carries the expected start: 14:23:05:11 at 25 fps,
    // 48 kHz = ((14 * 3600 + 23 * 60 + 5) * 25 + 11) * 1920 samples.
    const WAVFile boom{demo / "stamped" / "A012_T03_boom_tc.wav"};
    EXPECT_EQ(BWFReader::info(boom)->timeReferenceSamples,
              ((14u * 3600 + 23 * 60 + 5) * 25 + 11) * 1920u);
    EXPECT_TRUE(fs::exists(demo / "split" / "A012_T03_CH04.wav"));

    const fs::path timeline = demo / "rebuild" / "output" / "timeline_rebuild.fcpxml";
    ASSERT_TRUE(fs::exists(timeline));
    const auto dtd = runCommand("xmllint --noout --dtdvalid '" +
                                (testing::dataDir() / "fcpxml" / "fcpxml-1.9.dtd").string() +
                                "' '" + timeline.string() + "'");
    EXPECT_EQ(dtd.exitCode, 0) << dtd.err;

    // A second run over the same folder replaces its own outputs.
    const auto again = runCommand("NORVANE_SETTINGS='" + (dir / "settings.json").string() + "' '" +
                                  testing::cliPath().string() + "' demo '" + demo.string() + "'");
    EXPECT_EQ(again.exitCode, 0) << again.out << again.err;
}

}  // namespace
}  // namespace norvane
