#include "core/split/split_metadata.h"

#include <gtest/gtest.h>

#include <map>

#include "core/audio/bwf_reader.h"
#include "core/split/poly_wav_split_processor.h"
#include "tests/support/sndfile_check.h"
#include "tests/support/test_support.h"
#include "tests/support/wav_builder.h"

namespace norvane {
namespace {

namespace fs = std::filesystem;

void flattenInto(const IXMLElement& e, const std::string& path,
                 std::map<std::string, std::string>& out) {
    out[path] = e.text;
    std::map<std::string, int> seen;
    for (const IXMLElement& c : e.children) {
        flattenInto(c, path + "/" + c.name + "[" + std::to_string(seen[c.name]++) + "]", out);
    }
}

// A recorder's poly take split into mono files: each keeps the take's
// timecode, scene, take and its own track, as other programs read them.
TEST(SplitMetadataTest, EveryMonoFileOfARecorderTakeKeepsItsMetadata) {
    const fs::path take = testing::sharedFixture("field/sd702T_A101_1.WAV");
    if (take.empty()) {
        return;
    }
    testing::TempDir in, out;
    fs::copy_file(take, in / "A101_1.WAV");
    const PolyWavSplitReport report = PolyWavSplitProcessor::split({in / "A101_1.WAV"}, out.path(),
                                                                   false, PolyWavSplitNaming{true});
    ASSERT_EQ(report.outputPaths, (std::vector<fs::path>{out / "A101_1_CH01_MKH516 A.wav",
                                                         out / "A101_1_CH02_Boom.wav"}));

    const WAVFile source(take);
    const BextChunk sourceBext = *SplitMetadata::read(source).bext;
    std::map<std::string, std::string> sourceElements;
    flattenInto(*SplitMetadata::read(source).ixml, "BWFXML", sourceElements);
    const char* names[] = {"MKH516 A", "Boom"};
    for (int channel = 0; channel < 2; ++channel) {
        const fs::path mono = report.outputPaths[static_cast<std::size_t>(channel)];
        SCOPED_TRACE(mono.string());
        EXPECT_EQ(testing::chunkIds(testing::readBytes(mono)),
                  (std::vector<std::string>{"fmt ", "bext", "iXML", "data"}));
        const SplitSourceMetadata written = SplitMetadata::read(WAVFile(mono));
        ASSERT_TRUE(written.bext);
        BextChunk bext = *written.bext;
        EXPECT_EQ(bext.codingHistory, sourceBext.codingHistory +
                                          "A=PCM,F=48000,W=24,M=mono,T=Norvane split channel " +
                                          std::to_string(channel + 1) + "\r\n");
        bext.codingHistory = sourceBext.codingHistory;
        EXPECT_EQ(bext, sourceBext);

        ASSERT_TRUE(written.ixml);
        EXPECT_EQ(IXML::tracks(*written.ixml), (std::vector<IXMLTrack>{{1, 1, names[channel]}}));
        std::map<std::string, std::string> elements;
        flattenInto(*written.ixml, "BWFXML", elements);
        for (const auto& [path, text] : sourceElements) {
            if (!path.starts_with("BWFXML/TRACK_LIST")) {
                EXPECT_EQ(elements[path], text) << path;
            }
        }

        // libsndfile and ffprobe find the take's time reference in the mono file.
        EXPECT_EQ(testing::openWithSndfile(mono, false).timeReference, 2190940753u);
        const auto probe = testing::runCommand(
            "ffprobe -v error -show_entries format_tags=time_reference -of "
            "default=noprint_wrappers=1 '" +
            mono.string() + "'");
        EXPECT_EQ(probe.out, "TAG:time_reference=2190940753\n") << probe.err;
    }
    // Without track names the outputs keep their channel labels only.
    testing::TempDir plain;
    EXPECT_EQ(PolyWavSplitProcessor::split({in / "A101_1.WAV"}, plain.path(), false).outputPaths,
              (std::vector<fs::path>{plain / "A101_1_CH01.wav", plain / "A101_1_CH02.wav"}));
}

TEST(SplitMetadataTest, ATakeWithoutMetadataOrWithBrokenIXML) {
    testing::WavRecipe recipe;
    recipe.frames = 4;
    const WAVFile bare = WAVFile::fromBytes(testing::makeWav(recipe));
    EXPECT_TRUE(SplitMetadata::monoChunks(SplitMetadata::read(bare), 0).empty());
    EXPECT_EQ(SplitMetadata::trackName(SplitMetadata::read(bare), 0), "");

    const std::string broken = "<BWFXML><NOTE>a & b</NOTE></BWFXML>";
    recipe.beforeData = {{"iXML", ByteBuffer(broken.begin(), broken.end())}};
    const auto chunks = SplitMetadata::monoChunks(
        SplitMetadata::read(WAVFile::fromBytes(testing::makeWav(recipe))), 1);
    ASSERT_EQ(chunks.size(), 1u);
    EXPECT_EQ(chunks[0].first, kUnreadableIXMLChunkId);
    EXPECT_EQ(chunks[0].second, ByteBuffer(broken.begin(), broken.end()));
}

TEST(SplitMetadataTest, TrackNamesAreMadeSafeForFileNames) {
    EXPECT_EQ(SplitMetadata::fileNameSafe("MKH516 A"), "MKH516 A");
    EXPECT_EQ(SplitMetadata::fileNameSafe("Boom/Lav:1*?\"<>|\\"), "Boom_Lav_1_______");
    EXPECT_EQ(SplitMetadata::fileNameSafe("  ..  "), "");
    EXPECT_EQ(SplitMetadata::fileNameSafe("Tab\there\n"), "Tab_here_");
    EXPECT_EQ(SplitMetadata::fileNameSafe("Mic Éa"), "Mic Éa");
    // 63 ASCII bytes then a two-byte character: cut before it, not inside it.
    const std::string longName = std::string(63, 'x') + "é";
    EXPECT_EQ(SplitMetadata::fileNameSafe(longName), std::string(63, 'x'));
    EXPECT_EQ(PolyWavSplitProcessor::outputFileName("T", "CH03", "", {true}), "T_CH03.wav");
    EXPECT_EQ(PolyWavSplitProcessor::outputFileName("T", "CH03", "Boom", {false}), "T_CH03.wav");
}

}  // namespace
}  // namespace norvane
