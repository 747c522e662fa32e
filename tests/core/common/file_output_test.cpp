#include "core/common/file_output.h"

#include <gtest/gtest.h>

#include "core/common/error.h"
#include "tests/support/test_support.h"
#include "tests/support/wav_builder.h"

namespace norvane {
namespace {

namespace fs = std::filesystem;

std::size_t entries(const fs::path& dir) {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(dir), fs::directory_iterator()));
}

const ByteBuffer kOld = {'o', 'l', 'd'};
const ByteBuffer kNew = {'n', 'e', 'w', '!'};

TEST(FileOutputTest, ReplaceAtomicallyReplacesAndLeavesNoTemporary) {
    testing::TempDir dir;
    const fs::path target = dir / "out.wav";
    writeFile(target, kOld, WriteMode::replaceAtomically);
    EXPECT_EQ(readWholeFile(target), kOld);
    writeFile(target, kNew, WriteMode::replaceAtomically);
    EXPECT_EQ(readWholeFile(target), kNew);
    EXPECT_EQ(entries(dir.path()), 1u);
}

TEST(FileOutputTest, CreateNewRefusesAnExistingFile) {
    testing::TempDir dir;
    const fs::path target = dir / "out.wav";
    writeFile(target, kNew, WriteMode::createNew);
    try {
        writeFile(target, kOld, WriteMode::createNew);
        FAIL() << "expected EEXIST";
    } catch (const fs::filesystem_error& e) {
        EXPECT_EQ(e.code(), std::errc::file_exists);
        EXPECT_EQ(e.path1(), target);
        EXPECT_NE(describeError(e).find("File exists"), std::string::npos) << describeError(e);
    }
    EXPECT_EQ(readWholeFile(target), kNew);
    EXPECT_EQ(entries(dir.path()), 1u);
}

TEST(FileOutputTest, UncommittedOutputIsDiscarded) {
    testing::TempDir dir;
    {
        OutputFile out(dir / "half.wav", WriteMode::replaceAtomically);
        out.write(kNew);
        EXPECT_EQ(entries(dir.path()), 1u);  // only the hidden temporary
        EXPECT_FALSE(fs::exists(dir / "half.wav"));
    }
    EXPECT_EQ(entries(dir.path()), 0u);
}

TEST(FileOutputTest, MissingOrBlockedFolderLeavesNothing) {
    testing::TempDir dir;
    EXPECT_THROW(writeFile(dir / "no" / "x.wav", kNew, WriteMode::createNew), fs::filesystem_error);
    // A folder standing at the destination makes the final rename fail.
    fs::create_directory(dir / "x.wav");
    EXPECT_THROW(writeFile(dir / "x.wav", kNew, WriteMode::replaceAtomically),
                 fs::filesystem_error);
    EXPECT_EQ(entries(dir.path()), 1u);
    EXPECT_TRUE(fs::is_empty(dir / "x.wav"));
}

TEST(FileOutputTest, ReadWholeFileErrors) {
    testing::TempDir dir;
    try {
        readWholeFile(dir / "missing");
        FAIL();
    } catch (const fs::filesystem_error& e) {
        EXPECT_EQ(e.code(), std::errc::no_such_file_or_directory);
    }
    EXPECT_THROW(readWholeFile(dir.path()), fs::filesystem_error);
    testing::writeBytes(dir / "empty", {});
    EXPECT_TRUE(readWholeFile(dir / "empty").empty());
}

}  // namespace
}  // namespace norvane
