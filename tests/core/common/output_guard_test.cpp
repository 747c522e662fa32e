#include "core/common/output_guard.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>

#include <gtest/gtest.h>

#include "core/common/file_output.h"
#include "tests/support/test_support.h"
#include "tests/support/wav_builder.h"

namespace norvane {
namespace {

namespace fs = std::filesystem;

const ByteBuffer kInput = {'i', 'n', 'p', 'u', 't'};
const ByteBuffer kOutput = {'o', 'u', 't'};

// The input itself, a symbolic link to it and a hard link to it are all the
// input: none of them is replaced while the run lives, whatever the mode.
TEST(OutputGuardTest, AnInputIsNeverReplacedThroughAnyOfItsNames) {
    testing::TempDir dir;
    const fs::path input = dir / "A.wav";
    testing::writeBytes(input, kInput);
    fs::create_symlink(input, dir / "soft.wav");
    fs::create_hard_link(input, dir / "hard.wav");
    testing::writeBytes(dir / "other.wav", kInput);
    {
        RunOutputGuard run({dir / "soft.wav"});  // given through the link
        for (const char* name : {"A.wav", "soft.wav", "hard.wav"}) {
            EXPECT_TRUE(run.isInput(dir / name)) << name;
            EXPECT_THROW(run.checkPlannedOutput(dir / name), OutputConflictError) << name;
            EXPECT_EQ(testing::thrownMessage(
                          [&] { writeFile(dir / name, kOutput, WriteMode::replaceAtomically); }),
                      std::string("Output would replace an input file: ") + name +
                          ". Choose another output folder or name.");
        }
        EXPECT_FALSE(run.isInput(dir / "other.wav"));
        EXPECT_FALSE(run.isInput(dir / "absent.wav"));
        writeFile(dir / "other.wav", kOutput, WriteMode::replaceAtomically);
        EXPECT_TRUE(run.wroteEarlier(dir / "other.wav"));
    }
    EXPECT_EQ(readWholeFile(input), kInput);
    EXPECT_EQ(testing::entryCount(dir.path()), 4u);  // no temporary left behind
    // Once the run is over the file is an ordinary output target again.
    writeFile(dir / "hard.wav", kOutput, WriteMode::replaceAtomically);
    EXPECT_EQ(readWholeFile(dir / "hard.wav"), kOutput);
}

TEST(OutputGuardTest, AFailedJobTakesBackWhatItWroteAndAKeptOneStays) {
    testing::TempDir dir;
    {
        JobOutputGuard job;
        writeFile(dir / "1.wav", kOutput, WriteMode::createNew);
        writeFile(dir / "2.wav", kOutput, WriteMode::createNew);
        EXPECT_EQ(job.committed().size(), 2u);
    }
    EXPECT_EQ(testing::entryCount(dir.path()), 0u);
    {
        JobOutputGuard job;
        writeFile(dir / "3.wav", kOutput, WriteMode::createNew);
        job.keep();
    }
    EXPECT_TRUE(fs::exists(dir / "3.wav"));
}

TEST(OutputGuardTest, TemporaryNamesStayWithinNameMaxAndFinalNamesAreKept) {
    testing::TempDir dir;
    for (std::size_t length : {200u, 239u, 240u, 255u}) {
        const std::string name = std::string(length - 4, 'x') + ".wav";
        writeFile(dir / name, kOutput, WriteMode::createNew);
        EXPECT_EQ(readWholeFile(dir / name), kOutput) << length;
    }
    // A name of multi-byte characters is cut at a character boundary.
    std::string wide;
    while (wide.size() < 240) {
        wide += "\xC3\xA9";  // é
    }
    writeFile(dir / (wide + ".wav"), kOutput, WriteMode::createNew);
    EXPECT_EQ(testing::entryCount(dir.path()), 5u);
}

TEST(OutputGuardTest, StaleTemporariesAreRemovedButLiveOnesAndOthersStay) {
    testing::TempDir dir;
    const auto runStart = std::chrono::system_clock::now() - std::chrono::minutes(30);
    const auto setTime = [&](const fs::path& path) {
        fs::last_write_time(path, fs::file_time_type::clock::now() - std::chrono::hours(2));
    };
    for (const char* name :
         {".A.wav.norvane-Ab12Cd", ".locked.wav.norvane-zzzzzz", ".recent.wav.norvane-qqqqqq",
          ".A.wav.norvane-toolong7", "A.wav.norvane-Ab12Cd", "A.wav"}) {
        testing::writeBytes(dir / name, kOutput);
        if (std::string(name) != ".recent.wav.norvane-qqqqqq") {
            setTime(dir / name);
        }
    }
    const int held = ::open((dir / ".locked.wav.norvane-zzzzzz").c_str(), O_RDONLY);
    ASSERT_GE(held, 0);
    ASSERT_EQ(::flock(held, LOCK_EX), 0);  // a concurrent run still writing it
    EXPECT_EQ(removeStaleTemporaries(dir.path(), runStart), 1u);
    ::close(held);
    EXPECT_FALSE(fs::exists(dir / ".A.wav.norvane-Ab12Cd"));
    EXPECT_EQ(testing::entryCount(dir.path()), 5u);
    // The first output written into a folder sweeps it on its own.
    testing::TempDir other;
    testing::writeBytes(other / ".B.wav.norvane-000000", kOutput);
    setTime(other / ".B.wav.norvane-000000");
    writeFile(other / "B.wav", kOutput, WriteMode::createNew);
    EXPECT_EQ(testing::entryCount(other.path()), 1u);
}

}  // namespace
}  // namespace norvane
