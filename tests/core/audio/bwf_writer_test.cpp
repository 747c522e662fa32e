#include "core/audio/bwf_writer.h"

#include <gtest/gtest.h>

#include "core/audio/bwf_reader.h"
#include "core/audio/riff_writer.h"
#include "tests/support/sndfile_check.h"
#include "tests/support/test_support.h"
#include "tests/support/wav_builder.h"

namespace norvane {
namespace {

namespace fs = std::filesystem;
using testing::WavChunkSpec;
using testing::WavRecipe;

ByteBuffer bytesOf(const std::string& s) {
    return ByteBuffer(s.begin(), s.end());
}

BWFStampInfo sampleStamp() {
    BWFStampInfo stamp;
    stamp.timeReferenceSamples = 172'800'000;
    stamp.description = "Stamped by Norvane";
    stamp.originator = "Norvane";
    stamp.originatorReference = "0123ABCD-4567-89EF-0123-456789ABCDEF";
    stamp.originationDate = "2026-11-21";
    stamp.originationTime = "22:50:01";
    stamp.ixml = "<BWFXML>\n  <TIMECODE>01:00:00:00</TIMECODE>\n</BWFXML>";
    return stamp;
}

// The bext layout is the bext test's (read back by libsndfile); here how the
// stamp's texts fit their fields.
TEST(BWFWriterTest, StampTextsAreCutToTheirFieldsInBytes) {
    BWFStampInfo stamp = sampleStamp();
    stamp.description = std::string(300, 'a');
    stamp.originator = std::string(31, 'o') + "\xC3\xA9";  // 31 bytes + a 2-byte character
    const ByteBuffer bext = BWFWriter::encodeBext(stamp);
    ASSERT_EQ(bext.size(), 602u);
    EXPECT_EQ(std::string(bext.begin(), bext.begin() + 256), std::string(256, 'a'));
    EXPECT_EQ(bext[256], 'o');
    EXPECT_EQ(bext[287], 0xC3);
    // The 36-character UUID is cut to the 32-byte OriginatorReference.
    EXPECT_EQ(std::string(bext.begin() + 288, bext.begin() + 320),
              "0123ABCD-4567-89EF-0123-456789AB");
    EXPECT_EQ(readLE64(bext, 338), 172'800'000u);
    EXPECT_EQ(bext[346], 1);  // version 1
}

TEST(BWFWriterTest, ChunkPlacementPadBytesAndReadBack) {
    WavRecipe recipe;
    recipe.bits = 24;
    recipe.data = testing::interleavePcm(24, {{1, 2, 3}, {-4, -5, -6}});
    recipe.beforeData = {{"bext", testing::makeBextPayload(77)}};
    recipe.afterData = {{"iXML", bytesOf("<old/>")}, {"LIST", bytesOf("INFOxyz")}};
    WAVFile source = WAVFile::fromBytes(testing::makeWav(recipe));
    BWFStampInfo stamp = sampleStamp();
    stamp.ixml = "odd";  // odd length: a pad byte follows
    ByteBuffer out = BWFWriter::build(source, stamp);
    EXPECT_EQ(testing::chunkIds(out),
              (std::vector<std::string>{"fmt ", "bext", "iXML", "data", "LIST"}));
    // RIFF size equals the bytes after the size field, pad bytes included.
    EXPECT_EQ(readLE32(out, 4), out.size() - 8);
    EXPECT_EQ(testing::listChunks(out).at(4).payload, bytesOf("INFOxyz"));  // after the pad
    WAVFile back = WAVFile::fromBytes(out);
    EXPECT_EQ(ByteBuffer(back.dataChunk().begin(), back.dataChunk().end()),
              ByteBuffer(source.dataChunk().begin(), source.dataChunk().end()));
    EXPECT_EQ(BWFReader::info(back), (BWFInfo{172'800'000, 48000}));
    EXPECT_EQ(BWFReader::ixmlText(back), "odd");

    WavRecipe junkFirst;
    junkFirst.frames = 2;
    junkFirst.beforeFmt = {{"JUNK", ByteBuffer(28, 0)}};
    out = BWFWriter::build(WAVFile::fromBytes(testing::makeWav(junkFirst)), sampleStamp());
    EXPECT_EQ(testing::chunkIds(out),
              (std::vector<std::string>{"JUNK", "fmt ", "bext", "iXML", "data"}));

    // Without ixml no iXML chunk is written and the old one is still removed;
    // a second fmt chunk gets nothing.
    BWFStampInfo noIxml = sampleStamp();
    noIxml.ixml.reset();
    WavRecipe twoFmt = recipe;
    twoFmt.beforeData.push_back({"fmt ", testing::makeFmtPayload(WavRecipe{})});
    out = BWFWriter::build(WAVFile::fromBytes(testing::makeWav(twoFmt)), noIxml);
    EXPECT_EQ(testing::chunkIds(out),
              (std::vector<std::string>{"fmt ", "bext", "fmt ", "data", "LIST"}));
}

TEST(BWFWriterTest, WrittenFilesOpenInLibsndfile) {
    testing::TempDir dir;
    struct Case {
        ByteBuffer bytes;
        int subtype;
    };
    const std::vector<std::vector<float>> two = {{0.5f, -0.5f, 0.25f, 0}, {0.1f, 0.2f, 0.3f, 0.4f}};
    WavRecipe ext;
    ext.format = testing::kWavExtensible;
    ext.bits = 24;
    ext.channels = 3;
    ext.frames = 5;
    std::vector<Case> cases = {{testing::makePcm16(48000, two), SF_FORMAT_PCM_16},
                               {testing::makePcm(24, 48000, two), SF_FORMAT_PCM_24},
                               {testing::makePcm(32, 48000, two), SF_FORMAT_PCM_32},
                               {testing::makeFloat32(48000, two), SF_FORMAT_FLOAT},
                               {testing::makeWav(ext), SF_FORMAT_PCM_24}};
    int n = 0;
    for (const Case& c : cases) {
        WAVFile source = WAVFile::fromBytes(c.bytes);
        const fs::path out = dir / ("stamped" + std::to_string(n++) + ".wav");
        BWFWriter::write(source, sampleStamp(), out, false);
        const auto view = testing::openWithSndfile(out);
        ASSERT_TRUE(view.opened) << out;
        EXPECT_EQ(view.frames, source.frameCount());
        EXPECT_EQ(view.format & SF_FORMAT_SUBMASK, c.subtype);
        if (source.fmt().channelCount == 2) {
            EXPECT_NEAR(view.samples[0], 0.5, 1e-4);
            EXPECT_NEAR(view.samples[3], 0.2, 1e-4);
        }
    }
}

}  // namespace
}  // namespace norvane
