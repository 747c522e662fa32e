#include "core/audio/wav_reader.h"

#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "tests/support/sndfile_check.h"
#include "tests/support/test_support.h"
#include "tests/support/wav_builder.h"

namespace norvane {
namespace {

using testing::makeWav;
using testing::WavRecipe;

// A channel read through the reader's blocks, concatenated.
std::vector<float> blocksOf(const WavReader& reader, int channel, std::int64_t begin = 0,
                            std::int64_t end = INT64_MAX) {
    std::vector<float> all;
    std::int64_t expected = std::max<std::int64_t>(begin, 0);
    reader.forEachChannelBlock(channel, begin, end, [&](std::span<const float> b, std::int64_t at) {
        EXPECT_EQ(at, expected);
        expected += static_cast<std::int64_t>(b.size());
        all.insert(all.end(), b.begin(), b.end());
        return true;
    });
    return all;
}

bool sameFloats(const std::vector<float>& a, const std::vector<float>& b) {
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0;
}

// The reader's blocks and the whole-file decoding (a second implementation)
// agree on every sample of every channel, bit for bit, and the metadata view
// keeps every chunk but the audio. Recorders' own files cover the chunk
// layouts met in practice.
void expectReaderMatchesWholeFile(const std::filesystem::path& path) {
    SCOPED_TRACE(path.filename().string());
    const WAVFile whole(path);
    const WavReader reader(path);
    const WAVFile headers = WAVFile::headersOf(reader);
    EXPECT_EQ(headers.frameCount(), whole.frameCount());
    ASSERT_EQ(headers.chunks().size(), whole.chunks().size());
    for (std::size_t i = 0; i < whole.chunks().size(); ++i) {
        const ByteView a = headers.chunks()[i].data;
        const ByteView b = whole.chunks()[i].data;
        if (whole.chunks()[i].id != "data") {
            EXPECT_TRUE(std::equal(a.begin(), a.end(), b.begin(), b.end())) << i;
        }
    }
    for (int c = 0; c < reader.fmt().channelCount; ++c) {
        EXPECT_TRUE(sameFloats(blocksOf(reader, c), whole.samples(c))) << "channel " << c;
    }
}

TEST(WavReaderTest, AgreesWithTheWholeFileParserOnRealFiles) {
    const auto field = testing::sharedFixture("field/README.md");
    if (field.empty()) {
        return;
    }
    int files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(field.parent_path())) {
        const auto ext = entry.path().extension().string();
        if (ext == ".wav" || ext == ".WAV") {
            expectReaderMatchesWholeFile(entry.path());
            ++files;
        }
    }
    EXPECT_GE(files, 9);
}

TEST(WavReaderTest, BlocksSpanTheRangeAndStopWhenAsked) {
    testing::TempDir dir;
    // 24-bit, 3 channels, enough frames for several blocks, with extreme values.
    const std::int64_t frames = 3 * WavReader::kBlockBytes / 9 + 17;
    std::vector<std::vector<std::int32_t>> channels(3, std::vector<std::int32_t>(frames));
    for (std::int64_t f = 0; f < frames; ++f) {
        channels[0][f] = static_cast<std::int32_t>(f % 16777216) - 8388608;
        channels[1][f] = (f % 2) ? 8388607 : -8388608;
        channels[2][f] = static_cast<std::int32_t>((f * 7919) % 4096) - 2048;
    }
    WavRecipe recipe;
    recipe.channels = 3;
    recipe.bits = 24;
    recipe.data = testing::interleavePcm(24, channels);
    testing::writeBytes(dir / "a.wav", makeWav(recipe));
    expectReaderMatchesWholeFile(dir / "a.wav");

    const WavReader reader(dir / "a.wav");
    const WAVFile whole(dir / "a.wav");
    const std::vector<float> all = whole.samples(1);
    // A range in the middle, across a block boundary.
    const std::vector<float> part = blocksOf(reader, 1, 1000, frames - 1000);
    EXPECT_TRUE(sameFloats(part, std::vector<float>(all.begin() + 1000, all.end() - 1000)));
    // The sink stops the reading.
    int calls = 0;
    reader.forEachChannelBlock(0, [&](std::span<const float>, std::int64_t) {
        ++calls;
        return false;
    });
    EXPECT_EQ(calls, 1);
    std::vector<std::byte> out(4 * 9);
    EXPECT_THROW(reader.readFrames(frames - 3, 4, out), std::out_of_range);
}

// A recording cut off by a power loss, or written to a pipe, leaves the data
// size at 0, at 0xFFFFFFFF or larger than what was written: the audio present
// is read to the last whole frame, with a warning naming the file.
TEST(WavReaderTest, CutOffDataChunksAreReadToTheLastWholeFrame) {
    testing::TempDir dir;
    ByteBuffer audio = testing::interleavePcm(16, {{1, 2, 3, 4, 5}, {-1, -2, -3, -4, -5}});
    struct Case {
        const char* name;
        std::uint32_t declared;
        std::size_t extraBytes;  // a partial frame after the audio
    };
    for (const Case& c : {Case{"unknown.wav", 0xFFFFFFFF, 0}, Case{"past-end.wav", 1000, 2},
                          Case{"zero.wav", 0, 1}}) {
        SCOPED_TRACE(c.name);
        WavRecipe recipe;
        recipe.data = audio;
        recipe.data->insert(recipe.data->end(), c.extraBytes, 0x55);
        recipe.dataDeclaredSize = c.declared;
        const ByteBuffer bytes = makeWav(recipe);
        testing::writeBytes(dir / c.name, bytes);

        const WavReader reader(dir / c.name);
        EXPECT_TRUE(reader.dataCutOff());
        EXPECT_EQ(reader.frameCount(), 5);
        ASSERT_EQ(reader.warnings().size(), 1u);
        EXPECT_NE(reader.warnings()[0].find(c.name), std::string::npos);
        std::vector<std::byte> raw(20);
        reader.readFrames(0, 5, raw);
        EXPECT_EQ(std::memcmp(raw.data(), audio.data(), 20), 0);

        const WAVFile whole = WAVFile::fromBytes(bytes, dir / c.name);
        EXPECT_EQ(whole.warnings(), reader.warnings());
        EXPECT_TRUE(sameFloats(blocksOf(reader, 1), whole.samples(1)));
    }
    // An empty data chunk followed by a real chunk is just empty.
    WavRecipe empty;
    empty.afterData = {{"LIST", ByteBuffer(12, 'a')}};
    EXPECT_TRUE(WAVFile::fromBytes(makeWav(empty)).warnings().empty());

    // Past 4 GiB (8 ch x 24 bit, 200 M frames and a partial one), where the
    // 32-bit size cannot say. RF64 past 4 GiB is the stream writer's test.
    WavRecipe big;
    big.channels = 8;
    big.bits = 24;
    big.dataDeclaredSize = 0xFFFFFFFF;
    const ByteBuffer head = makeWav(big);
    if (testing::makeSparse(dir / "big.wav", head, head.size() + 4800000000ull + 5)) {
        const WavReader reader(dir / "big.wav");
        EXPECT_TRUE(reader.dataCutOff());
        EXPECT_EQ(reader.frameCount(), 200000000);
    }
}

TEST(WavReaderTest, RefusesWhatIsNotARegularFileWithoutWaiting) {
    testing::TempDir dir;
    ASSERT_EQ(::mkfifo((dir / "pipe.wav").c_str(), 0600), 0);
    // Opening a FIFO for reading would wait for a writer forever.
    EXPECT_THAT([&] { WavReader reader(dir / "pipe.wav"); },
                ::testing::Throws<WAVError>(
                    ::testing::Property(&WAVError::kind, WAVError::Kind::notRegularFile)));
    EXPECT_THROW(WavReader("/dev/zero"), WAVError);
}

// An RF64 header with ds64 (the chunk table of 64-bit sizes) as recorders
// write it past 4 GiB: "RF64", -1, "WAVE", ds64, fmt, data with size -1.
ByteBuffer rf64Header(std::uint64_t dataSize, std::uint16_t channels, std::uint16_t bits,
                      const char* magic = "RF64") {
    ByteBuffer out;
    appendText(out, magic);
    appendLE32(out, 0xFFFFFFFF);
    appendText(out, "WAVE");
    appendText(out, "ds64");
    appendLE32(out, 28);
    appendLE64(out, 4 + 36 + 24 + 8 + dataSize);  // RIFF size
    appendLE64(out, dataSize);
    appendLE64(out, dataSize / (channels * bits / 8));
    appendLE32(out, 0);
    appendText(out, "fmt ");
    appendLE32(out, 16);
    appendLE16(out, 1);
    appendLE16(out, channels);
    appendLE32(out, 48000);
    appendLE32(out, 48000u * channels * bits / 8);
    appendLE16(out, static_cast<std::uint16_t>(channels * bits / 8));
    appendLE16(out, bits);
    appendText(out, "data");
    appendLE32(out, 0xFFFFFFFF);
    return out;
}

TEST(WavReaderTest, ReadsRF64InMemoryAndAgreesWithLibsndfile) {
    testing::TempDir dir;
    const ByteBuffer audio = testing::interleavePcm(24, {{100, 200, -300}, {7, -8, 9}});
    for (const char* magic : {"RF64", "BW64"}) {
        ByteBuffer file = rf64Header(audio.size(), 2, 24, magic);
        file.insert(file.end(), audio.begin(), audio.end());
        const auto path = dir / (std::string(magic) + ".wav");
        testing::writeBytes(path, file);
        const WavReader reader(path);
        EXPECT_EQ(reader.container(), WavContainer::rf64);
        EXPECT_FALSE(reader.dataCutOff());
        EXPECT_EQ(WAVFile(path).dataChunk().size(), audio.size());
        if (std::string(magic) == "RF64") {
            const auto view = testing::openWithSndfile(path);
            ASSERT_TRUE(view.opened);
            EXPECT_EQ(view.frames, 3);
            EXPECT_NEAR(view.samples[4] * 8388608.0, -300, 1e-6);
        }
        EXPECT_FLOAT_EQ(blocksOf(reader, 0)[2], -300.0f / 8388607.0f);
    }
}

}  // namespace
}  // namespace norvane
