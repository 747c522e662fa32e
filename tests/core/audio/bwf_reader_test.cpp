#include "core/audio/bwf_reader.h"

#include <gtest/gtest.h>

#include "tests/support/wav_builder.h"

namespace norvane {
namespace {

using testing::WavChunkSpec;
using testing::WavRecipe;

WAVFile fileWith(std::vector<WavChunkSpec> extra, std::uint32_t rate = 48000) {
    WavRecipe recipe;
    recipe.sampleRate = rate;
    recipe.frames = 1;
    recipe.beforeData = std::move(extra);
    return WAVFile::fromBytes(testing::makeWav(recipe));
}

TEST(BWFReaderTest, InfoReadsTheFirstLongEnoughBextChunk) {
    EXPECT_FALSE(BWFReader::info(fileWith({})).has_value());

    ByteBuffer shortBext = testing::makeBextPayload(1234);
    shortBext.resize(345);
    EXPECT_FALSE(BWFReader::info(fileWith({{"bext", shortBext}})).has_value());
    shortBext.resize(346);
    EXPECT_EQ(BWFReader::info(fileWith({{"bext", shortBext}})), (BWFInfo{1234, 48000}));

    // Two bext chunks: only the first counts, even when a later one would read.
    auto two = fileWith({{"bext", testing::makeBextPayload(0x1'0000'0002ULL)},
                         {"bext", testing::makeBextPayload(99)}},
                        96000);
    EXPECT_EQ(BWFReader::info(two), (BWFInfo{0x1'0000'0002ULL, 96000}));
    auto firstShort =
        fileWith({{"bext", ByteBuffer(100, 0)}, {"bext", testing::makeBextPayload(9)}});
    EXPECT_FALSE(BWFReader::info(firstShort).has_value());
}

TEST(BWFReaderTest, TimecodeAndStartTimeFromTimeReference) {
    EXPECT_EQ(BWFReader::timecode(172'800'000, 48000, 24, 1, false), "01:00:00:00");
    EXPECT_EQ(BWFReader::timecode(48000 * 3600 + 48000 / 25 * 3, 48000, 25, 1, false),
              "01:00:00:03");
    // Not stamped / unusable inputs.
    EXPECT_FALSE(BWFReader::timecode(0, 48000, 25, 1, false));
    EXPECT_FALSE(BWFReader::timecode(1000, 48000, 25, 0, false));
    EXPECT_FALSE(BWFReader::timecode(UINT64_MAX, 1, 1000000, 1, false));

    // 29.97 DF: 10 minutes are exactly 17982 frames = 17982 x 1001/30000 s.
    const std::uint64_t tenMinutes = 17982ULL * 1001 * 48000 / 30000;
    EXPECT_EQ(BWFReader::timecode(tenMinutes, 48000, 30000, 1001, true), "00:10:00;00");
    // One minute in drop frame is 1798 frames and is labelled 00:01:00;02.
    const std::uint64_t oneMinute = 1800ULL * 1001 * 48000 / 30000;
    EXPECT_EQ(BWFReader::timecode(oneMinute, 48000, 30000, 1001, true), "00:01:00;02");
    EXPECT_EQ(BWFReader::timecode(oneMinute, 48000, 30000, 1001, false), "00:01:00:00");
    // 1920 samples per frame at 25 fps / 48 kHz: 960 samples is exactly half a frame.
    EXPECT_EQ(BWFReader::timecode(48000 + 959, 48000, 25, 1, false), "00:00:01:00");
    EXPECT_EQ(BWFReader::timecode(48000 + 960, 48000, 25, 1, false), "00:00:01:01");
    EXPECT_EQ(BWFReader::startTime(48048, 48000, 30000, 1001),  // 30 frames
              (std::pair<std::int64_t, std::int64_t>{30 * 1001, 30000}));
    EXPECT_FALSE(BWFReader::startTime(0, 48000, 25, 1));
    // frames x denominator overflows 64 bits.
    EXPECT_FALSE(BWFReader::startTime(1ULL << 62, 1, 4, 3));
    EXPECT_TRUE(BWFReader::startTime(1ULL << 60, 1, 4, 3));
}

TEST(BWFReaderTest, IxmlText) {
    EXPECT_FALSE(BWFReader::ixmlText(fileWith({})));
    const std::string doc = "<BWFXML><TIMECODE>01:00:00:00</TIMECODE></BWFXML>";
    ByteBuffer padded(doc.begin(), doc.end());
    padded.insert(padded.end(), 3, 0);
    auto file = fileWith({{"iXML", padded}, {"iXML", ByteBuffer{'x'}}});
    EXPECT_EQ(BWFReader::ixmlText(file), doc);
}

}  // namespace
}  // namespace norvane
