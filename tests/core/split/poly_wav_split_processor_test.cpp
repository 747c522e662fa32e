#include "core/split/poly_wav_split_processor.h"

#include <algorithm>

#include <gtest/gtest.h>

#include "tests/support/sndfile_check.h"
#include "tests/support/test_support.h"
#include "tests/support/wav_builder.h"

namespace norvane {
namespace {

namespace fs = std::filesystem;
using testing::WavRecipe;

// Distinct bytes everywhere: byte k of the data is k * 7 + 3 (mod 256), so a
// wrong offset or stride shows up as a mismatch.
ByteBuffer patternedData(std::size_t size) {
    ByteBuffer data(size);
    for (std::size_t k = 0; k < size; ++k) {
        data[k] = static_cast<std::uint8_t>(k * 7 + 3 + k / 251);
    }
    return data;
}

// Each sample layout once, at channel counts that change the stride: every
// output holds its channel's bytes (taken independently from the source),
// keeps the source's bext, and libsndfile reads it as a plain mono file.
TEST(PolyWavSplitTest, EveryOutputHoldsItsChannelBytesWithAPlainHeader) {
    struct Case {
        int channels;
        std::uint16_t format, subFormat, bits;
        int sndfileSubtype;
    };
    for (const Case& c :
         {Case{2, testing::kWavPCM, 1, 16, SF_FORMAT_PCM_16},
          Case{3, testing::kWavPCM, 1, 24, SF_FORMAT_PCM_24},
          Case{8, testing::kWavPCM, 1, 32, SF_FORMAT_PCM_32},
          Case{10, testing::kWavFloat, 3, 32, SF_FORMAT_FLOAT},
          Case{5, testing::kWavExtensible, testing::kWavPCM, 24, SF_FORMAT_PCM_24},
          Case{6, testing::kWavExtensible, testing::kWavFloat, 32, SF_FORMAT_FLOAT}}) {
        SCOPED_TRACE(::testing::Message()
                     << c.channels << " ch, tag " << c.format << ", " << c.bits);
        testing::TempDir dir;
        const std::size_t bytesPerSample = c.bits / 8u;
        const std::size_t block = bytesPerSample * static_cast<std::size_t>(c.channels);
        WavRecipe recipe;
        recipe.format = c.format;
        recipe.subFormat = c.subFormat;
        recipe.bits = c.bits;
        recipe.channels = static_cast<std::uint16_t>(c.channels);
        recipe.sampleRate = 44100;
        recipe.data = patternedData(3 * block);
        if (c.bits == 32 && c.sndfileSubtype == SF_FORMAT_FLOAT) {
            // Keep float samples finite so libsndfile reads sane values.
            for (std::size_t k = 3; k < recipe.data->size(); k += 4) {
                (*recipe.data)[k] = 0x3E;
            }
        }
        recipe.beforeData = {{"bext", testing::makeBextPayload(42)}};
        testing::writeBytes(dir / "Take.wav", testing::makeWav(recipe));
        fs::create_directory(dir / "out");

        const auto report = PolyWavSplitProcessor::split({dir / "Take.wav"}, dir / "out", false);
        ASSERT_EQ(report.outputPaths.size(), static_cast<std::size_t>(c.channels));
        EXPECT_EQ(report.outputPaths.back().filename(),
                  "Take_CH" + std::string(c.channels < 10 ? "0" : "") + std::to_string(c.channels) +
                      ".wav");
        for (int ch = 0; ch < c.channels; ++ch) {
            const auto chunks = testing::listChunks(testing::readBytes(report.outputPaths[ch]));
            ASSERT_EQ(chunks.size(), 3u);
            EXPECT_EQ(chunks[1].id, "bext");
            EXPECT_EQ(readLE64(chunks[1].payload, 338), 42u);
            // A plain 16-byte fmt (tag 1 or 3, never extensible); libsndfile
            // checks the rest below except the byte rate.
            ASSERT_EQ(chunks[0].payload.size(), 16u);
            EXPECT_EQ(chunks[0].payload[0], c.sndfileSubtype == SF_FORMAT_FLOAT ? 3 : 1);
            EXPECT_EQ(readLE32(chunks[0].payload, 8), 44100u * bytesPerSample);
            ByteBuffer expected;
            for (std::size_t f = 0; f < 3; ++f) {
                const auto at = recipe.data->begin() +
                                static_cast<std::ptrdiff_t>(f * block + ch * bytesPerSample);
                expected.insert(expected.end(), at,
                                at + static_cast<std::ptrdiff_t>(bytesPerSample));
            }
            ASSERT_EQ(chunks[2].payload, expected) << "channel " << ch;
            const auto view = testing::openWithSndfile(report.outputPaths[ch]);
            EXPECT_EQ(view.channels, 1);
            EXPECT_EQ(view.format, SF_FORMAT_WAV | c.sndfileSubtype);
        }
    }
    // Labels are as wide as the channel count needs, at least two digits.
    EXPECT_EQ(PolyWavSplitProcessor::channelLabel(1, 2), "CH01");
    EXPECT_EQ(PolyWavSplitProcessor::channelLabel(1, 100), "CH001");
    EXPECT_EQ(PolyWavSplitProcessor::channelLabel(100, 100), "CH100");
}

TEST(PolyWavSplitTest, SortedInputsAndDisambiguatedNames) {
    testing::TempDir dir;
    fs::create_directories(dir / "A");
    fs::create_directories(dir / "B");
    fs::create_directories(dir / "out");
    const ByteBuffer stereo = testing::makePcm16(48000, {{0.1f, 0.2f}, {0.3f, 0.4f}});
    testing::writeBytes(dir / "A" / "Take1.wav", stereo);
    testing::writeBytes(dir / "B" / "Take1.wav", stereo);
    testing::writeBytes(dir / "B" / "Take1.WAV.wav", stereo);
    // Given in reverse order, one of them twice (once through "..").
    const auto report = PolyWavSplitProcessor::split(
        {dir / "B" / "Take1.wav", dir / "A" / "Take1.wav", dir / "A" / ".." / "B" / "Take1.wav"},
        dir / "out", false);
    ASSERT_EQ(report.fileResults.size(), 2u);
    EXPECT_EQ(report.fileResults[0].inputURL, dir / "A" / "Take1.wav");
    const fs::path out = dir / "out";
    EXPECT_EQ(report.outputPaths,
              (std::vector<fs::path>{out / "Take1_CH01.wav", out / "Take1_CH02.wav",
                                     out / "Take1 (2)_CH01.wav", out / "Take1 (2)_CH02.wav"}));
}

TEST(PolyWavSplitTest, SkippedFilesAndProgress) {
    testing::TempDir dir;
    fs::create_directory(dir / "out");
    testing::writeBytes(dir / "a_mono.wav", testing::makePcm16(48000, {{0.1f, 0.2f}}));
    testing::writeBytes(dir / "b_garbage.wav", ByteBuffer(40, 'x'));
    testing::writeBytes(dir / "c_quad.wav", testing::makeFloat32(48000, {{0}, {0}, {0}, {0}}));
    std::vector<double> fractions;
    const auto report = PolyWavSplitProcessor::split(
        {dir / "c_quad.wav", dir / "a_mono.wav", dir / "b_garbage.wav", dir / "missing.wav"},
        dir / "out", false, [&](double f) { fractions.push_back(f); });
    ASSERT_EQ(report.fileResults.size(), 4u);
    EXPECT_TRUE(report.fileResults[0].skipped);
    EXPECT_EQ(report.fileResults[0].skipReason, "File has one channel; nothing to split.");
    EXPECT_EQ(report.fileResults[1].skipReason, "Could not read: File is not RIFF/WAV.");
    EXPECT_FALSE(report.fileResults[2].skipped);
    EXPECT_EQ(report.fileResults[3].skipReason,
              "Could not read: No such file or directory: " + (dir / "missing.wav").string());
    // The run counts audio bytes: 16 of the quad file, one for each file
    // skipped; the mono input is never copied.
    ASSERT_GE(fractions.size(), 4u);
    EXPECT_TRUE(std::is_sorted(fractions.begin(), fractions.end()));
    EXPECT_EQ(fractions.front(), 1.0 / 19);
    EXPECT_EQ(fractions.back(), 1.0);
    EXPECT_EQ(report.outputPaths.size(), 4u);
}

TEST(PolyWavSplitTest, StopsOnAnExistingOutputTakingBackTheFilesChannels) {
    testing::TempDir dir;
    testing::writeBytes(dir / "Take1.wav", testing::makePcm16(48000, {{0.1f}, {0.2f}, {0.3f}}));
    testing::writeBytes(dir / "Take1_CH02.wav", ByteBuffer{'o', 'l', 'd'});
    EXPECT_EQ(testing::thrownMessage(
                  [&] { PolyWavSplitProcessor::split({dir / "Take1.wav"}, dir.path(), false); }),
              "Output file already exists: Take1_CH02.wav. Enable overwrite or choose another "
              "folder.");
    // Every output of the file is checked before the one pass writes them.
    EXPECT_FALSE(fs::exists(dir / "Take1_CH01.wav"));
    EXPECT_EQ(testing::readBytes(dir / "Take1_CH02.wav"), (ByteBuffer{'o', 'l', 'd'}));

    const auto report = PolyWavSplitProcessor::split({dir / "Take1.wav"}, dir.path(), true);
    EXPECT_EQ(report.outputPaths.size(), 3u);
    EXPECT_EQ(testing::listChunks(testing::readBytes(dir / "Take1_CH02.wav")).size(), 2u);
}

// A recording cut off mid-write (data size 0 with the audio after it) splits
// to its last whole frame, with a warning.
TEST(PolyWavSplitTest, CutOffInputsSplitToTheLastWholeFrame) {
    testing::TempDir dir;
    WavRecipe cut;
    cut.channels = 4;
    cut.bits = 24;
    cut.data = patternedData(12 * 1000 + 5);  // 1000 frames and a partial one
    cut.dataDeclaredSize = 0;
    testing::writeBytes(dir / "cut.wav", testing::makeWav(cut));
    const auto report = PolyWavSplitProcessor::split({dir / "cut.wav"}, dir.path(), false);
    ASSERT_EQ(report.outputPaths.size(), 4u);
    ASSERT_EQ(report.fileResults[0].warnings.size(), 1u);
    EXPECT_NE(report.fileResults[0].warnings[0].find("cut.wav"), std::string::npos);
    EXPECT_EQ(testing::openWithSndfile(dir / "cut_CH03.wav").frames, 1000);
    const ByteBuffer mono = testing::readBytes(dir / "cut_CH03.wav");
    EXPECT_TRUE(std::equal(mono.end() - 3, mono.end(), cut.data->begin() + 999 * 12 + 6));
}

TEST(PolyWavSplitTest, CancellationWhileWriting) {
    testing::TempDir dir;
    fs::create_directory(dir / "out");
    testing::writeBytes(dir / "a.wav", testing::makePcm16(48000, {{0}, {0}}));
    testing::writeBytes(dir / "t.wav", testing::makePcm16(48000, {{0}, {0}, {0}, {0}}));
    int polls = 0;
    // Polled before each file, before its outputs are opened and after each
    // block: a.wav is written, t.wav is stopped in its first block.
    EXPECT_EQ(testing::thrownMessage([&] {
                  PolyWavSplitProcessor::split({dir / "a.wav", dir / "t.wav"}, dir / "out", false,
                                               {}, [&] { return ++polls > 5; });
              }),
              "Split was cancelled.");
    // a.wav's two outputs stay; none of t.wav's, and no temporary file.
    EXPECT_EQ(testing::entryCount(dir / "out"), 2u);
    EXPECT_TRUE(fs::exists(dir / "out" / "a_CH02.wav"));
}

TEST(PolyWavSplitTest, ExpandWavInputs) {
    testing::TempDir dir;
    fs::create_directories(dir / "day1" / ".hidden");
    for (const char* name : {"day1/a.WAV", "day1/b.wav", "day1/notes.txt", "day1/.hidden/c.wav",
                             "loose.Wav", "loose.mp3"}) {
        testing::writeBytes(dir / name, {});
    }
    fs::create_directory(dir / "day1" / "folder.wav");
    const auto found = expandWavInputs(
        {dir / "day1", dir / "loose.Wav", dir / "loose.mp3", dir / "day1" / "b.wav"});
    EXPECT_EQ(found,
              (std::vector<fs::path>{dir / "day1" / ".hidden" / "c.wav", dir / "day1" / "a.WAV",
                                     dir / "day1" / "b.wav", dir / "loose.Wav"}));
    EXPECT_TRUE(expandWavInputs({dir / "day1" / "notes.txt"}).empty());
}

}  // namespace
}  // namespace norvane
