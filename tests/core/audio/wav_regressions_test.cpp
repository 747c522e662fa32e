#include <gtest/gtest.h>

#include "fuzz/wav_fuzz_target.h"
#include "tests/support/test_support.h"
#include "tests/support/wav_builder.h"

namespace norvane {
namespace {

// Replays every file in tests/data/wav_regressions (hostile inputs and the
// fuzzer's findings) through the same code the fuzzer drives: only typed
// errors may come out, never a crash or another exception.
TEST(WAVRegressionTest, HostileFilesGiveTypedErrorsOnly) {
    const auto folder = testing::dataDir() / "wav_regressions";
    int replayed = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        SCOPED_TRACE(entry.path().filename().string());
        const ByteBuffer bytes = testing::readBytes(entry.path());
        EXPECT_NO_THROW(fuzz::exerciseWAV(bytes));
        // Every prefix too: truncation anywhere must be handled.
        for (std::size_t n = 0; n < bytes.size(); n += 3) {
            EXPECT_NO_THROW(fuzz::exerciseWAV(ByteView(bytes).first(n)));
        }
        ++replayed;
    }
    EXPECT_GE(replayed, 4);
}

TEST(WAVRegressionTest, KnownHostileCasesHaveTheirOutcome) {
    const auto folder = testing::dataDir() / "wav_regressions";
    // (A data size of 0xFFFFFFFF, a header never finished, is the reader's
    // cut-off test.)
    EXPECT_THROW(WAVFile(folder / "extensible-huge-cbsize.wav"), WAVError);
    WAVFile narrow(folder / "narrow-block-many-channels.wav");
    EXPECT_EQ(narrow.fmt().channelCount, 65535);
    EXPECT_EQ(narrow.frameCount(), 2);
    EXPECT_TRUE(narrow.samples(0).empty());  // a 4-byte sample does not fit a 3-byte block
    WAVFile zero(folder / "float-zero-channels-short-bext.wav");
    EXPECT_TRUE(zero.samples(0, true).empty());
    EXPECT_FALSE(BWFReader::info(zero).has_value());
    EXPECT_EQ(zero.chunks().size(), 3u);
}

}  // namespace
}  // namespace norvane
