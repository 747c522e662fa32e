#include <gtest/gtest.h>

#include <memory>

#include "core/audio/bwf_writer.h"
#include "core/audio/mono_wav_writer.h"
#include "core/audio/riff_writer.h"
#include "core/audio/wav_reader.h"
#include "core/common/file_output.h"
#include "tests/support/sndfile_check.h"
#include "tests/support/test_support.h"
#include "tests/support/wav_builder.h"

namespace norvane {
namespace {

using testing::makeWav;
using testing::WavRecipe;

// Every WAV the tests have: the recorders' own files and the repository's.
std::vector<std::filesystem::path> sampleFiles() {
    std::vector<std::filesystem::path> files;
    auto add = [&files](const std::filesystem::path& folder) {
        std::error_code ec;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder, ec)) {
            const auto ext = entry.path().extension().string();
            // The four console LTC files share one layout: one of them will do.
            const auto name = entry.path().filename().string();
            if (name.starts_with("atem_") && name != "atem_25fps.wav") {
                continue;
            }
            if (entry.is_regular_file() && (ext == ".wav" || ext == ".WAV")) {
                files.push_back(entry.path());
            }
        }
    };
    add(testing::sharedFixturesDir() / "field");
    add(testing::dataDir());
    return files;
}

// Streaming changes no byte: the stamped copy and every mono channel written
// from the reader equal what the whole-file writers build, on every sample
// file that parses (chunk layouts of real recorders and DAWs, odd sizes,
// extensible formats, hostile headers).
TEST(StreamWriterTest, StreamedOutputsEqualTheWholeFileWriters) {
    testing::TempDir dir;
    StampChunks stamp;
    BWFStampInfo info;
    info.timeReferenceSamples = 123456789;
    info.description = "sSCENE=1";
    info.ixml = "<BWFXML><SCENE>1</SCENE></BWFXML>x";  // odd length: a pad byte
    stamp = BWFWriter::stampChunks(info);
    stamp.extra.push_back({"ZZZZ", ByteBuffer{1, 2, 3}});
    int stamped = 0;
    int split = 0;
    for (const auto& path : sampleFiles()) {
        SCOPED_TRACE(path.string());
        std::optional<WAVFile> whole;
        try {
            whole.emplace(path);
        } catch (const WAVError&) {
            continue;  // a hostile file both readers refuse
        }
        const WavReader reader(path);
        {
            OutputFile out(dir / "stamped.wav", WriteMode::replaceAtomically);
            ASSERT_TRUE(BWFWriter::write(reader, stamp, out));
            out.commit();
        }
        EXPECT_EQ(testing::readBytes(dir / "stamped.wav"), BWFWriter::build(*whole, stamp));
        ++stamped;

        const int channels = whole->fmt().channelCount;
        if (channels < 1 || channels > 16) {
            continue;
        }
        std::vector<std::unique_ptr<OutputFile>> files;
        std::vector<MonoWAVWriter::ChannelOutput> outputs;
        for (int c = 0; c < channels; ++c) {
            files.push_back(std::make_unique<OutputFile>(dir / ("ch" + std::to_string(c) + ".wav"),
                                                         WriteMode::replaceAtomically));
            outputs.push_back({c, files.back().get(), {}});
        }
        try {
            MonoWAVWriter::build(*whole, 0);
        } catch (const std::exception& e) {
            // The same refusal, before anything is written.
            EXPECT_THROW(MonoWAVWriter::writeChannels(reader, outputs), std::exception);
            continue;
        }
        ASSERT_TRUE(MonoWAVWriter::writeChannels(reader, outputs));
        for (int c = 0; c < channels; ++c) {
            files[c]->commit();
            EXPECT_EQ(testing::readBytes(dir / ("ch" + std::to_string(c) + ".wav")),
                      MonoWAVWriter::build(*whole, c))
                << "channel " << c;
        }
        ++split;
    }
    EXPECT_GE(stamped, 9);
    EXPECT_GE(split, 5);
}

// Past 4 GiB the layout is RF64. Its header is checked by writing it in front
// of a sparse data chunk and letting libsndfile and our reader read it.
TEST(StreamWriterTest, OutputsPast4GiBAreRF64) {
    const std::uint64_t frames = 1600000000;  // 24-bit mono: 4.8 GB of data
    const std::array<std::uint8_t, 16> fmt = {1,    0,    1,    0, 0x80, 0xBB, 0,  0,
                                              0x80, 0x32, 0x02, 0, 3,    0,    24, 0};
    const RIFFLayout big({{"fmt ", 16}, {"bext", 602}, {"data", frames * 3}}, frames);
    EXPECT_TRUE(big.rf64());
    EXPECT_FALSE(RIFFLayout({{"fmt ", 16}, {"data", 1000}}, 333).rf64());
    EXPECT_THROW(RIFFLayout({{"fmt ", 16}, {"LIST", 5000000000ull}, {"data", 4}}, 1),
                 RIFFWriteError);

    testing::TempDir dir;
    ByteBuffer head = big.fileHeader();
    auto append = [&head](ByteView b) { head.insert(head.end(), b.begin(), b.end()); };
    append(big.chunkHeader(0));
    append(fmt);
    append(big.chunkHeader(1));
    head.resize(head.size() + 602, 0);
    append(big.chunkHeader(2));
    if (!testing::makeSparse(dir / "big.wav", head, big.totalSize())) {
        GTEST_SKIP() << "the temporary folder's file system does not keep sparse files";
    }
    const WavReader reader(dir / "big.wav");
    EXPECT_EQ(static_cast<std::uint64_t>(reader.frameCount()), frames);
    EXPECT_TRUE(reader.warnings().empty());
    std::vector<std::byte> last(3, std::byte{1});  // past 4 GiB in the file
    reader.readFrames(reader.frameCount() - 1, 1, last);
    EXPECT_EQ(last[2], std::byte{0});
    const testing::SndfileView view = testing::openWithSndfile(dir / "big.wav", false);
    EXPECT_EQ(static_cast<std::uint64_t>(view.frames), frames);
    EXPECT_EQ(view.format & SF_FORMAT_TYPEMASK, SF_FORMAT_RF64);
}

}  // namespace
}  // namespace norvane
