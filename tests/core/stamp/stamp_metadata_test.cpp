#include "core/stamp/stamp_metadata.h"

#include <gtest/gtest.h>

#include <map>

#include "core/audio/bext.h"
#include "core/audio/bwf_reader.h"
#include "core/audio/ixml.h"
#include "core/stamp/job_executor.h"
#include "tests/core/stamp/stamp_fixtures.h"
#include "tests/support/test_support.h"

namespace norvane {
namespace {

namespace fs = std::filesystem;
using testing::TempDir;

ByteBuffer bytes(ByteView view) {
    return ByteBuffer(view.begin(), view.end());
}

// Every element path of a document with its text.
void flattenInto(const IXMLElement& e, const std::string& path,
                 std::map<std::string, std::string>& out) {
    out[path] = e.text;
    std::map<std::string, int> seen;
    for (const IXMLElement& c : e.children) {
        flattenInto(c, path + "/" + c.name + "[" + std::to_string(seen[c.name]++) + "]", out);
    }
}

const StampValues kStamp{*frameRateConfig(FrameRatePreset::fps23_976),
                         {12, 39, 59, 0, false},
                         2190940753ull,
                         "NEWREF",
                         "2026-11-23",
                         "10:00:00"};

// A real recording stamped through the whole run: LTC from a generated file,
// the recorder's poly take as the target.
TEST(StampMetadataTest, ARecorderTakeKeepsEveryElementAndFieldThroughARun) {
    const fs::path recorded = testing::sharedFixture("field/sd702T_A101_1.WAV");
    if (recorded.empty()) {
        return;
    }
    TempDir in, out;
    const fs::path take = in / "A101_1.WAV";
    fs::copy_file(recorded, take);
    const fs::path ltc = testing::writeLTCFile(in / "LTC.wav", FrameRatePreset::fps23_976,
                                               {12, 39, 59, 0, false}, 0, 3);
    const ProcessingOptions options =
        testing::optionsFor(ProcessingMode::single, FrameRatePreset::fps23_976, out.path());
    const ProcessingReport report =
        StampProcessor().run(testing::describeAll({take, ltc}), ltc, options, {});
    ASSERT_EQ(report.outputFiles, (std::vector<std::string>{"A101_1_tc.wav"}));
    EXPECT_TRUE(report.warnings.empty());
    const std::uint64_t timeReference =
        BWFReader::info(WAVFile(out / "A101_1_tc.wav"))->timeReferenceSamples;

    const WAVFile source(take);
    const WAVFile stamped(out / "A101_1_tc.wav");
    const BextChunk before = *decodeBext(source.firstChunk("bext")->data);
    BextChunk after = *decodeBext(stamped.firstChunk("bext")->data);
    EXPECT_EQ(after.timeReference, timeReference);
    EXPECT_EQ(after.codingHistory,
              before.codingHistory + "A=PCM,F=48000,W=24,M=stereo,T=Norvane LTC stamp\r\n");
    after.timeReference = before.timeReference;
    after.codingHistory = before.codingHistory;
    EXPECT_EQ(after, before);  // description, originator, reference, date, time, UMID...

    const IXMLElement sourceDoc = *IXML::parse(*BWFReader::ixmlText(source));
    const auto stampedDoc = IXML::parse(*BWFReader::ixmlText(stamped));
    ASSERT_TRUE(stampedDoc);
    std::map<std::string, std::string> was, is;
    flattenInto(sourceDoc, "BWFXML", was);
    flattenInto(*stampedDoc, "BWFXML", is);
    for (const auto& [path, text] : was) {
        ASSERT_TRUE(is.count(path)) << path;
        if (path.find("TIMESTAMP_SAMPLES_SINCE_MIDNIGHT") == std::string::npos) {
            EXPECT_EQ(is[path], text) << path;
        }
    }
    EXPECT_EQ(IXML::samplesSinceMidnight(*stampedDoc), timeReference);
    EXPECT_EQ(stampedDoc->childText("TIMECODE"), report.stampedStartTimecode);
    EXPECT_EQ(stampedDoc->child("SPEED")->childText("TIMECODE_RATE"), "24000/1001");
    // The audio and the fmt chunk are the recorder's bytes.
    EXPECT_EQ(bytes(stamped.dataChunk()), bytes(source.dataChunk()));
    EXPECT_EQ(bytes(stamped.firstChunk("fmt ")->data), bytes(source.firstChunk("fmt ")->data));
    EXPECT_EQ(testing::sndfileTimeReference(out / "A101_1_tc.wav"), timeReference);
}

TEST(StampMetadataTest, DAWChunksStayByteForByte) {
    const fs::path path = testing::sharedFixture("field/protools_A101_4.A1.wav");
    if (path.empty()) {
        return;
    }
    const WAVFile source(path);
    const StampMetadata metadata = StampMetadataComposer::compose(source, kStamp);
    EXPECT_TRUE(metadata.warnings.empty());
    const ByteBuffer built = BWFWriter::build(source, metadata.chunks);
    const WAVFile stamped = WAVFile::fromBytes(built);
    EXPECT_EQ(testing::chunkIds(built),
              (std::vector<std::string>{"fmt ", "bext", "iXML", "data", "umid", "minf", "regn"}));
    for (const char* id : {"umid", "minf", "regn", "data", "fmt "}) {
        EXPECT_EQ(bytes(stamped.firstChunk(id)->data), bytes(source.firstChunk(id)->data)) << id;
    }
    // A version 0 bext is written as version 1; its fields stay.
    const BextChunk bext = *decodeBext(stamped.firstChunk("bext")->data);
    EXPECT_EQ(bext.version, 1);
    EXPECT_EQ(bext.originatorReference, "aa4CKtcd13Vk");
    EXPECT_TRUE(bext.description.starts_with("dUBITS=12311804\r\n"));
}

TEST(StampMetadataTest, EmptyFieldsAreFilledAndASourceWithoutMetadataGetsThePlainStamp) {
    testing::WavRecipe recipe;
    recipe.frames = 10;
    const WAVFile plain = WAVFile::fromBytes(testing::makeWav(recipe));
    StampMetadata m = StampMetadataComposer::compose(plain, kStamp);
    BWFStampInfo info{kStamp.timeReference, "Stamped by Norvane", "Norvane",   "NEWREF",
                      "2026-11-23",         "10:00:00",           std::nullopt};
    EXPECT_EQ(m.chunks.bext, BWFWriter::encodeBext(info));
    const std::string doc =
        testing::ixmlFor(kStamp.rate, kStamp.start.description(), kStamp.timeReference);
    EXPECT_EQ(m.chunks.ixml, ByteBuffer(doc.begin(), doc.end()));
    EXPECT_TRUE(m.chunks.extra.empty());

    // A bext with only a description: the rest is ours.
    recipe.beforeData = {{"bext", testing::makeBextPayload(99, "Scene 5")}};
    m = StampMetadataComposer::compose(WAVFile::fromBytes(testing::makeWav(recipe)), kStamp);
    const BextChunk bext = *decodeBext(m.chunks.bext);
    EXPECT_EQ(bext.description, "Scene 5");
    EXPECT_EQ(bext.originator, "Norvane");
    EXPECT_EQ(bext.originatorReference, "NEWREF");
    EXPECT_EQ(bext.originationDate, "2026-11-23");
    EXPECT_EQ(bext.timeReference, kStamp.timeReference);
    EXPECT_EQ(bext.codingHistory, "A=PCM,F=48000,W=16,M=stereo,T=Norvane LTC stamp\r\n");
}

TEST(StampMetadataTest, AnIXMLThatDoesNotParseIsKeptBesideTheNewOne) {
    const std::string broken = "<BWFXML><SCENE>5 & 6</SCENE></BWFXML>";
    testing::WavRecipe recipe;
    recipe.frames = 10;
    recipe.beforeData = {{"iXML", ByteBuffer(broken.begin(), broken.end())}};
    const WAVFile source = WAVFile::fromBytes(testing::makeWav(recipe), "take.wav");
    const StampMetadata m = StampMetadataComposer::compose(source, kStamp);
    ASSERT_EQ(m.warnings.size(), 1u);
    EXPECT_EQ(m.warnings[0],
              "The iXML of take.wav is not well-formed XML; it is kept unchanged in an \"oXML\" "
              "chunk and a new iXML was written.");
    const WAVFile stamped = WAVFile::fromBytes(BWFWriter::build(source, m.chunks));
    const std::string doc =
        testing::ixmlFor(kStamp.rate, kStamp.start.description(), kStamp.timeReference);
    EXPECT_EQ(BWFReader::ixmlText(stamped), doc);
    EXPECT_EQ(bytes(stamped.firstChunk(kUnreadableIXMLChunkId)->data),
              ByteBuffer(broken.begin(), broken.end()));
}

// What other programs read from a stamped recorder file: the same time reference.
TEST(StampMetadataTest, FFprobeAndLibsndfileReadTheStampedTimeReference) {
    const fs::path path = testing::sharedFixture("field/zoomF8_TrL_R.WAV");
    if (path.empty()) {
        return;
    }
    TempDir out;
    const StampValues stamp{*frameRateConfig(FrameRatePreset::fps25),
                            {1, 2, 3, 4, false},
                            178'659'840ull,  // 01:02:03:04 at 25 fps, 48 kHz
                            "R",
                            "2026-11-23",
                            "10:00:00"};
    const WAVFile source(path);
    BWFWriter::write(source, StampMetadataComposer::compose(source, stamp).chunks, out / "mix.wav",
                     false);
    EXPECT_EQ(testing::sndfileTimeReference(out / "mix.wav"), 178'659'840ull);
    const auto probe = testing::runCommand(
        "ffprobe -v error -show_entries format_tags=time_reference,comment,encoded_by -of "
        "default=noprint_wrappers=1 '" +
        (out / "mix.wav").string() + "'");
    ASSERT_EQ(probe.exitCode, 0) << probe.err;
    EXPECT_NE(probe.out.find("TAG:time_reference=178659840"), std::string::npos) << probe.out;
    EXPECT_NE(probe.out.find("TAG:encoded_by=ZOOM F8"), std::string::npos) << probe.out;
}

}  // namespace
}  // namespace norvane
