#include "core/stamp/output_naming.h"

#include <fstream>

#include <gtest/gtest.h>

#include "tests/support/test_support.h"

namespace norvane {
namespace {

namespace fs = std::filesystem;
using testing::TempDir;

void touch(const fs::path& path) {
    std::ofstream(path) << "x";
}

std::string unsafeMessage(std::string_view name) {
    try {
        OutputNaming::safeName(name);
    } catch (const ProcessingError& e) {
        EXPECT_EQ(e.kind(), ProcessingError::Kind::unsafeOutputFilename);
        return e.message();
    }
    return "accepted";
}

TEST(OutputNamingTest, NamesCarrySegmentSuffixAndLowerCaseExtension) {
    EXPECT_EQ(OutputNaming::outputName("/in/Take 3.WAV", std::nullopt, "_tc"), "Take 3_tc.wav");
    EXPECT_EQ(OutputNaming::outputName("/in/A.wav", 1, "_tc"), "A_seg001_tc.wav");
    EXPECT_EQ(OutputNaming::outputName("/in/A.wav", 12, ""), "A_seg012.wav");
    EXPECT_EQ(OutputNaming::outputName("/in/A.wav", 1234, "_x"), "A_seg1234_x.wav");
    EXPECT_EQ(OutputNaming::outputName("/in/A.b.wav", std::nullopt, "_tc"), "A.b_tc.wav");
}

TEST(OutputNamingTest, SafeNameTrimsAndRefusesPathLikeNames) {
    EXPECT_EQ(OutputNaming::safeName(" Take 1_tc.wav\n"), "Take 1_tc.wav");
    EXPECT_EQ(unsafeMessage("A/x.wav"), "Unsafe output filename: A/x.wav");
    EXPECT_EQ(unsafeMessage("a\\b.wav"), "Unsafe output filename: a\\b.wav");
    EXPECT_EQ(unsafeMessage("  "), "Unsafe output filename:   ");
    EXPECT_EQ(unsafeMessage(""), "Unsafe output filename: ");
    EXPECT_EQ(unsafeMessage("."), "Unsafe output filename: .");
    EXPECT_EQ(unsafeMessage(" .. "), "Unsafe output filename:  .. ");
    EXPECT_EQ(unsafeMessage("/"), "Unsafe output filename: /");
    // A suffix with a slash makes every name unsafe.
    EXPECT_EQ(unsafeMessage(OutputNaming::outputName("/in/A.wav", std::nullopt, "/x")),
              "Unsafe output filename: A/x.wav");
}

TEST(OutputNamingTest, CollisionBehaviours) {
    TempDir dir;
    const fs::path folder = dir.path();
    EXPECT_EQ(OutputNaming::resolveDestination(folder, " A_tc.wav", OutputCollisionBehavior::ask),
              folder / "A_tc.wav");
    touch(folder / "A_tc.wav");
    try {
        OutputNaming::resolveDestination(folder, "A_tc.wav", OutputCollisionBehavior::ask);
        ADD_FAILURE() << "expected outputFileAlreadyExists";
    } catch (const ProcessingError& e) {
        EXPECT_EQ(e.kind(), ProcessingError::Kind::outputFileAlreadyExists);
        EXPECT_EQ(e.message(), "Output file already exists: A_tc.wav");
    }
    EXPECT_EQ(
        OutputNaming::resolveDestination(folder, "A_tc.wav", OutputCollisionBehavior::overwrite),
        folder / "A_tc.wav");
    EXPECT_EQ(
        OutputNaming::resolveDestination(folder, "A_tc.wav", OutputCollisionBehavior::keepBoth),
        folder / "A_tc_2.wav");
    touch(folder / "A_tc_2.wav");
    EXPECT_EQ(
        OutputNaming::resolveDestination(folder, "A_tc.wav", OutputCollisionBehavior::keepBoth),
        folder / "A_tc_3.wav");
    touch(folder / "noext");
    EXPECT_EQ(OutputNaming::resolveDestination(folder, "noext", OutputCollisionBehavior::keepBoth),
              folder / "noext_2");
    // A dangling link still takes the name.
    fs::create_symlink(folder / "missing", folder / "L_tc.wav");
    EXPECT_EQ(
        OutputNaming::resolveDestination(folder, "L_tc.wav", OutputCollisionBehavior::keepBoth),
        folder / "L_tc_2.wav");
}

}  // namespace
}  // namespace norvane
