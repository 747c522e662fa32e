// `norvane demo` is the first thing a new user runs: it must work end to end,
// and what it writes must be what the tools promise.
#include "core/audio/bwf_reader.h"
#include "core/audio/wav_file.h"
#include "tests/cli/cli_fixture.h"
#include "tests/core/rebuild/rebuild_fixtures.h"

namespace norvane::testing {
namespace {

using DemoCommandTest = CommandTest;

TEST_F(DemoCommandTest, StampsSplitsAndRebuildsItsShootDay) {
    const auto result = norvane("demo demo");
    ASSERT_EQ(result.exitCode, 0) << result.out << result.err;
    EXPECT_THAT(result.out, HasSubstr("Stamped start timecode matches the generated signal."));
    EXPECT_THAT(result.out, HasSubstr("Calculated file-set start TC: 14:23:05:11"));
    // The stamped boom stem carries the expected start: 14:23:05:11 at 25 fps,
    // 48 kHz = ((14 * 3600 + 23 * 60 + 5) * 25 + 11) * 1920 samples.
    const WAVFile boom{dir / "demo" / "stamped" / "A012_T03_boom_tc.wav"};
    EXPECT_EQ(BWFReader::info(boom)->timeReferenceSamples,
              ((14u * 3600 + 23 * 60 + 5) * 25 + 11) * 1920u);
    EXPECT_TRUE(exists("demo/split/A012_T03_CH04.wav"));
    EXPECT_EQ(dtdProblems(read("demo/rebuild/output/timeline_rebuild.fcpxml")), "");
    // A second run over the same folder replaces its own outputs.
    const auto again = norvane("demo demo");
    EXPECT_EQ(again.exitCode, 0) << again.out << again.err;
}

}  // namespace
}  // namespace norvane::testing
