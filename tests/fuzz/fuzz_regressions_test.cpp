#include <functional>
#include <map>

#include <gtest/gtest.h>

#include "fuzz/fuzz_targets.h"
#include "tests/support/test_support.h"
#include "tests/support/wav_builder.h"

namespace norvane {
namespace {

namespace fs = std::filesystem;

// Every seed and every kept crasher of each target goes through its entry
// point; one that crashes, hangs or throws anything but the expected typed
// errors fails the run. Each target must have seeds, so a renamed folder
// cannot make this pass by finding nothing.
TEST(FuzzRegressionTest, SeedsAndCrashersReplayCleanly) {
    const std::map<std::string, std::function<void(ByteView)>> targets = {
        {"fcpxml_source", fuzz::exerciseSourceTimeline},
        {"ltc_decoder", fuzz::exerciseLTCDecoder},
        {"bwf_metadata", fuzz::exerciseBWFMetadata},
        {"settings", fuzz::exerciseSettings},
    };
    for (const auto& [name, exercise] : targets) {
        std::size_t replayed = 0;
        for (const fs::path& folder :
             {fs::path(NORVANE_FUZZ_CORPUS_DIR) / name, testing::dataDir() / "fuzz" / name}) {
            if (!fs::is_directory(folder)) {
                continue;
            }
            for (const auto& entry : fs::directory_iterator(folder)) {
                SCOPED_TRACE(entry.path().string());
                const ByteBuffer bytes = testing::readBytes(entry.path());
                EXPECT_NO_THROW(exercise(bytes));
                ++replayed;
            }
        }
        EXPECT_GE(replayed, 3u) << name;
    }
}

}  // namespace
}  // namespace norvane
