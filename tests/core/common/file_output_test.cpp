#include "core/common/file_output.h"

#include <gtest/gtest.h>

#include "core/common/error.h"
#include "tests/support/test_support.h"

namespace norvane {
namespace {

namespace fs = std::filesystem;

const ByteBuffer kOld = {'o', 'l', 'd'};
const ByteBuffer kNew = {'n', 'e', 'w', '!'};

// Replacing leaves one file and no temporary; an output never committed, or
// blocked at its destination, leaves nothing behind.
TEST(FileOutputTest, ReplaceAtomicallyAndDiscardedOutputs) {
    testing::TempDir dir;
    writeFile(dir / "out.wav", kOld, WriteMode::replaceAtomically);
    writeFile(dir / "out.wav", kNew, WriteMode::replaceAtomically);
    EXPECT_EQ(readWholeFile(dir / "out.wav"), kNew);
    EXPECT_EQ(testing::entryCount(dir.path()), 1u);
    {
        OutputFile out(dir / "half.wav", WriteMode::replaceAtomically);
        out.write(kNew);
        EXPECT_EQ(testing::entryCount(dir.path()), 2u);  // the hidden temporary
        EXPECT_FALSE(fs::exists(dir / "half.wav"));
    }
    EXPECT_EQ(testing::entryCount(dir.path()), 1u);
    EXPECT_THROW(writeFile(dir / "no" / "x.wav", kNew, WriteMode::createNew), fs::filesystem_error);
    // A folder standing at the destination makes the final rename fail.
    fs::create_directory(dir / "x.wav");
    EXPECT_THROW(writeFile(dir / "x.wav", kNew, WriteMode::replaceAtomically),
                 fs::filesystem_error);
    EXPECT_EQ(testing::entryCount(dir.path()), 2u);
    EXPECT_TRUE(fs::is_empty(dir / "x.wav"));
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
    EXPECT_EQ(testing::entryCount(dir.path()), 1u);
    EXPECT_THROW(readWholeFile(dir / "missing"), fs::filesystem_error);
    EXPECT_THROW(readWholeFile(dir.path()), fs::filesystem_error);
}

}  // namespace
}  // namespace norvane
