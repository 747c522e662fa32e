#include "core/stamp/output_naming.h"

#include <fstream>

#include <gtest/gtest.h>

#include "core/common/file_output.h"
#include "core/common/output_guard.h"
#include "tests/support/test_support.h"

namespace norvane {
namespace {

namespace fs = std::filesystem;
using testing::TempDir;

void touch(const fs::path& path) {
    std::ofstream(path) << "x";
}

TEST(OutputNamingTest, NamesCarrySegmentSuffixAndLowerCaseExtensionAndRefusePaths) {
    EXPECT_EQ(OutputNaming::outputName("/in/Take 3.WAV", std::nullopt, "_tc"), "Take 3_tc.wav");
    EXPECT_EQ(OutputNaming::outputName("/in/A.wav", 1, "_tc"), "A_seg001_tc.wav");
    EXPECT_EQ(OutputNaming::outputName("/in/A.wav", 1234, "_x"), "A_seg1234_x.wav");
    EXPECT_EQ(OutputNaming::outputName("/in/A.b.wav", std::nullopt, "_tc"), "A.b_tc.wav");
    EXPECT_EQ(OutputNaming::safeName(" Take 1_tc.wav\n"), "Take 1_tc.wav");
    for (const char* bad : {"A/x.wav", "a\\b.wav", "  ", "", ".", " .. ", "/"}) {
        EXPECT_EQ(testing::thrownMessage([&] { OutputNaming::safeName(bad); }),
                  std::string("Unsafe output filename: ") + bad);
    }
}

// The stamp run checks ask, keep both and overwrite on real outputs; here
// the one case it cannot make: a dangling link still takes the name.
TEST(OutputNamingTest, DanglingLinkTakesTheName) {
    TempDir dir;
    fs::create_symlink(dir / "missing", dir / "L_tc.wav");
    EXPECT_EQ(
        OutputNaming::resolveDestination(dir.path(), "L_tc.wav", OutputCollisionBehavior::keepBoth),
        dir / "L_tc_2.wav");
}

// Within a run: a name that is (a link to) one of the inputs is refused under
// every behaviour; a name an earlier output of the run took is numbered even
// under overwrite, while a file from before the run is replaced as asked.
TEST(OutputNamingTest, RunsNeverNameAnOutputAfterAnInputOrAnEarlierOutput) {
    TempDir dir;
    touch(dir / "A.wav");
    fs::create_symlink(dir / "A.wav", dir / "A_tc.wav");
    touch(dir / "B_tc.wav");
    const RunOutputGuard run({dir / "A.wav"});
    for (auto behavior : {OutputCollisionBehavior::ask, OutputCollisionBehavior::keepBoth,
                          OutputCollisionBehavior::overwrite}) {
        EXPECT_THROW(OutputNaming::resolveDestination(dir.path(), "A_tc.wav", behavior),
                     OutputConflictError);
    }
    const auto write = [](const fs::path& path, bool replace) {
        writeFile(path, ByteBuffer{'x'},
                  replace ? WriteMode::replaceAtomically : WriteMode::createNew);
    };
    const auto overwrite = OutputCollisionBehavior::overwrite;
    EXPECT_EQ(OutputNaming::writeResolved(dir.path(), "B_tc.wav", overwrite, write),
              dir / "B_tc.wav");
    EXPECT_EQ(OutputNaming::writeResolved(dir.path(), "B_tc.wav", overwrite, write),
              dir / "B_tc_2.wav");
}

// A name taken between the check and the write (another process) is not
// replaced: keepBoth moves on to the next number, ask reports the name.
TEST(OutputNamingTest, NamesTakenWhileWritingAreNotReplaced) {
    TempDir dir;
    const auto racing = [&](const fs::path& path, bool replace) {
        if (!fs::exists(dir / "C_tc.wav")) {
            touch(dir / "C_tc.wav");  // the other run wins the name
        }
        writeFile(path, ByteBuffer{'x'},
                  replace ? WriteMode::replaceAtomically : WriteMode::createNew);
    };
    EXPECT_EQ(OutputNaming::writeResolved(dir.path(), "C_tc.wav", OutputCollisionBehavior::keepBoth,
                                          racing),
              dir / "C_tc_2.wav");
    fs::remove(dir / "C_tc.wav");
    EXPECT_EQ(testing::thrownMessage([&] {
                  OutputNaming::writeResolved(dir.path(), "C_tc.wav", OutputCollisionBehavior::ask,
                                              racing);
              }),
              "Output file already exists: C_tc.wav");
}

}  // namespace
}  // namespace norvane
