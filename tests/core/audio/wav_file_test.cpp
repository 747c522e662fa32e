#include "core/audio/wav_file.h"

#include <gtest/gtest.h>

#include <cmath>

#include "tests/support/test_support.h"
#include "tests/support/wav_builder.h"

namespace norvane {
namespace {

using testing::makeWav;
using testing::WavChunkSpec;
using testing::WavRecipe;

// Parses `bytes` and returns the WAVError message, or "" when it parses.
std::string parseError(ByteBuffer bytes) {
    return testing::thrownMessage([&] { WAVFile::fromBytes(std::move(bytes)); });
}

// The bytes of a literal, embedded zeros included, without the terminator.
template <std::size_t N>
ByteBuffer text(const char (&s)[N]) {
    return ByteBuffer(s, s + N - 1);
}

TEST(WAVFileTest, HeaderFaultsHaveTheirMessages) {
    const std::string truncated = "Invalid or truncated WAV chunk.";
    const ByteBuffer good = makeWav(WavRecipe{});
    const auto with = [&good](std::size_t at, const char* four) {
        ByteBuffer b = good;
        std::copy_n(four, 4, b.begin() + static_cast<std::ptrdiff_t>(at));
        return b;
    };
    WavRecipe shortFmt, onlyData, onlyFmt, early;
    shortFmt.fmtPayload = ByteBuffer(14, 0);
    onlyData.includeFmt = false;
    onlyData.frames = 2;
    onlyFmt.includeData = false;
    // A chunk that runs past the end before fmt and data were seen.
    early.beforeFmt = {{"JUNK", ByteBuffer(4, 0), 500, true}};
    const std::pair<ByteBuffer, std::string> cases[] = {
        {text("RIFF\0\0\0\0WA"), truncated},
        {ByteBuffer(10, 0), truncated},
        {with(0, "RIFX"), "File is not RIFF/WAV."},
        {with(0, "riff"), "File is not RIFF/WAV."},
        // RF64 is read, but only with the ds64 chunk that carries its sizes.
        {with(0, "RF64"), truncated},
        {with(8, "AVI "), "RIFF file is not WAVE format."},
        {text("RIFF\x04\0\0\0WAVE"), "WAV file is missing fmt chunk."},
        {makeWav(shortFmt), truncated},
        {makeWav(onlyData), "WAV file is missing fmt chunk."},
        {makeWav(onlyFmt), "WAV file is missing data chunk."},
        {makeWav(early), truncated},
    };
    for (const auto& [bytes, message] : cases) {
        EXPECT_EQ(parseError(bytes), message) << message;
    }
}

TEST(WAVFileTest, ChunkWalkPadBytesAndTruncatedTails) {
    WavRecipe recipe;
    recipe.frames = 3;
    recipe.beforeFmt = {{"junk", {1, 2, 3}, std::nullopt, true}};
    recipe.afterData = {{"LIST", text("INFOabcde"), std::nullopt, true}};
    std::string walk;
    const WAVFile file = WAVFile::fromBytes(makeWav(recipe), "/x/a.wav");
    for (const auto& c : file.chunks()) {
        walk += c.id + ":" + std::to_string(c.data.size()) + " ";
    }
    EXPECT_EQ(walk, "junk:3 fmt :16 data:12 LIST:9 ");

    // A trailing chunk cut off, or with a bogus 4 GiB size, after fmt and
    // data: the file opens without it.
    WavRecipe tail;
    tail.frames = 2;
    const ByteBuffer tails[] = {text("LIST\x40\0\0\0INFO"), text("JUNK\xFF\xFF\xFF\xFFzz")};
    for (const ByteBuffer& trailing : tails) {
        tail.trailing = trailing;
        EXPECT_EQ(WAVFile::fromBytes(makeWav(tail)).chunks().size(), 2u);
    }
    // A second data chunk cut off: the first one already made the file usable.
    WavRecipe twoData;
    twoData.frames = 1;
    twoData.afterData = {{"data", ByteBuffer(8, 7), 100, true}};
    EXPECT_EQ(WAVFile::fromBytes(makeWav(twoData)).dataChunk().size(), 4u);
}

TEST(WAVFileTest, FormatSelection) {
    const auto recipeOf = [](std::uint16_t format, std::uint16_t bits,
                             std::uint16_t subFormat = 1) {
        WavRecipe recipe;
        recipe.format = format;
        recipe.subFormat = subFormat;
        recipe.bits = bits;
        return recipe;
    };
    const WavRecipe float64 = recipeOf(testing::kWavFloat, 64);
    WavRecipe badExt = recipeOf(testing::kWavExtensible, 24);
    ByteBuffer shortExtension = testing::makeFmtPayload(badExt);
    shortExtension[16] = 20;  // cbSize below 22: not extensible PCM
    badExt.fmtPayload = shortExtension;
    for (const WavRecipe& bad :
         {float64, recipeOf(2, 16), recipeOf(testing::kWavExtensible, 16, testing::kWavFloat),
          badExt}) {
        EXPECT_EQ(parseError(makeWav(bad)),
                  "Unsupported WAV format: Only linear PCM and 32-bit float WAV are supported")
            << bad.format << "/" << bad.bits;
    }
    WavRecipe ext24 = recipeOf(testing::kWavExtensible, 24);
    ext24.data = testing::interleavePcm(24, {{-8388608, 8388607}, {4194304, -1}});
    WAVFile e = WAVFile::fromBytes(makeWav(ext24));
    EXPECT_EQ(e.fmt(), (WAVFmtChunk{1, 2, 48000, 288000, 6, 24}));
    EXPECT_EQ(e.samples(1), (std::vector<float>{4194304.0f / 8388607.0f, -1.0f / 8388607.0f}));
    EXPECT_EQ(WAVFile::fromBytes(makeWav(recipeOf(testing::kWavExtensible, 32, testing::kWavFloat)))
                  .fmt()
                  .audioFormat,
              3);
    // 8-bit files open (for their metadata) but give no samples.
    WavRecipe eight = recipeOf(testing::kWavPCM, 8);
    eight.frames = 4;
    EXPECT_TRUE(WAVFile::fromBytes(makeWav(eight)).samples(0).empty());
    // Plain PCM wins over an earlier candidate of another kind.
    WavRecipe two;
    two.fmtPayload = testing::makeFmtPayload(float64);
    two.beforeData = {{"fmt ", testing::makeFmtPayload(WavRecipe{}), std::nullopt, true}};
    EXPECT_EQ(WAVFile::fromBytes(makeWav(two)).fmt().bitsPerSample, 16);
}

}  // namespace
}  // namespace norvane
