#include "core/audio/mono_wav_writer.h"

#include <gtest/gtest.h>

#include "tests/support/test_support.h"
#include "tests/support/wav_builder.h"

namespace norvane {
namespace {

using testing::WavRecipe;

std::string buildError(const ByteBuffer& source, int channel) {
    return testing::thrownMessage(
        [&] { MonoWAVWriter::build(WAVFile::fromBytes(source), channel); });
}

TEST(MonoWAVWriterTest, ExtractsOneChannelWithAPlainHeader) {
    WavRecipe recipe;
    recipe.sampleRate = 44100;
    recipe.data = testing::interleavePcm(16, {{0x0A0A, 0x0B0B, 0x0C0C}, {0x1A1A, 0x1B1B, 0x1C1C}});
    recipe.data->insert(recipe.data->end(), {9, 9});  // a trailing partial frame is dropped
    recipe.beforeData = {{"bext", testing::makeBextPayload(99)}, {"LIST", ByteBuffer(4, 'x')}};
    const ByteBuffer out = MonoWAVWriter::build(WAVFile::fromBytes(testing::makeWav(recipe)), 1);
    const auto chunks = testing::listChunks(out);
    ASSERT_EQ(chunks.size(), 2u);
    EXPECT_EQ(chunks[0].id, "fmt ");
    // tag 1, 1 channel, 44100 Hz, byte rate 88200, block align 2, 16 bits
    EXPECT_EQ(chunks[0].payload,
              (ByteBuffer{1, 0, 1, 0, 0x44, 0xAC, 0, 0, 0x88, 0x58, 0x01, 0, 2, 0, 16, 0}));
    EXPECT_EQ(chunks[1].id, "data");
    EXPECT_EQ(chunks[1].payload, (ByteBuffer{0x1A, 0x1A, 0x1B, 0x1B, 0x1C, 0x1C}));
    EXPECT_EQ(readLE32(out, 4), out.size() - 8);
}

TEST(MonoWAVWriterTest, RefusedSourcesHaveTheirMessages) {
    WavRecipe eight;
    eight.bits = 8;
    eight.frames = 2;
    EXPECT_EQ(buildError(testing::makeWav(eight), 0),
              "Bit depth 8 is not supported for mono export (use 16, 24, or 32).");
    // The channel check comes first for PCM.
    EXPECT_EQ(buildError(testing::makeWav(eight), 5),
              "Channel index 5 is out of range (file has 2 channel(s)).");

    WavRecipe stereo;
    stereo.frames = 2;
    EXPECT_EQ(buildError(testing::makeWav(stereo), 2),
              "Channel index 2 is out of range (file has 2 channel(s)).");

    WavRecipe badBlock = stereo;
    badBlock.blockAlign = 6;
    EXPECT_EQ(buildError(testing::makeWav(badBlock), 0),
              "WAV block alignment does not match channel count and bit depth.");
    WavRecipe badFloatBlock;
    badFloatBlock.format = testing::kWavFloat;
    badFloatBlock.bits = 32;
    badFloatBlock.blockAlign = 4;
    badFloatBlock.data = ByteBuffer(8, 0);
    EXPECT_EQ(buildError(testing::makeWav(badFloatBlock), 1),
              "WAV block alignment does not match channel count and bit depth.");
}

}  // namespace
}  // namespace norvane
