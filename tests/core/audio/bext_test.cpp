#include "core/audio/bext.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include "core/audio/bwf_writer.h"
#include "core/audio/wav_file.h"
#include "tests/support/test_support.h"
#include "tests/support/wav_builder.h"

namespace norvane {
namespace {

TEST(BextTest, RecorderChunksDecodeAndEncodeBack) {
    const auto path = testing::sharedFixture("field/sd702T_A101_1.WAV");
    if (path.empty()) {
        return;
    }
    const WAVFile file(path);
    const ByteView payload = file.firstChunk("bext")->data;
    const auto bext = decodeBext(payload);
    ASSERT_TRUE(bext);
    EXPECT_TRUE(bext->description.starts_with("sSPEED=023.976-ND\r\nsTAKE=1\r\n"));
    EXPECT_EQ(bext->originatorReference, "USSDVGR1112089007124001008206301");  // all 32 bytes
    EXPECT_EQ(bext->timeReference, 2190940753u);
    EXPECT_EQ(bext->codingHistory, "A=PCM,F=48000,W=24,M=stereo,R=48000,T=2 Ch\r\n");
    // Re-encoding gives the recorder's bytes up to the NUL padding of the history.
    const ByteBuffer again = encodeBext(*bext);
    ASSERT_LE(again.size(), payload.size());
    EXPECT_TRUE(std::equal(again.begin(), again.end(), payload.begin()));
    EXPECT_TRUE(std::all_of(payload.begin() + static_cast<std::ptrdiff_t>(again.size()),
                            payload.end(), [](std::uint8_t b) { return b == 0; }));
}

TEST(BextTest, EveryFieldRoundTripsAndLibsndfileAgrees) {
    BextChunk bext;
    bext.description = "Scene 4 take 2";
    bext.originator = "Recorder";
    bext.originatorReference = "REF0123456789";
    bext.originationDate = "2026-11-21";
    bext.originationTime = "22:50:01";
    bext.timeReference = (1ull << 32) + 2;
    bext.version = 2;
    for (std::size_t i = 0; i < bext.umid.size(); ++i) {
        bext.umid[i] = static_cast<std::uint8_t>(i + 1);
    }
    bext.loudnessValue = -2300;
    bext.loudnessRange = 550;
    bext.maxTruePeakLevel = -100;
    bext.maxMomentaryLoudness = -1800;
    bext.maxShortTermLoudness = -2000;
    bext.reserved[179] = 7;
    bext.codingHistory = "A=PCM,F=48000,W=24,M=mono,T=x\r\n";
    const ByteBuffer payload = encodeBext(bext);
    EXPECT_EQ(payload.size(), 602 + bext.codingHistory.size());
    EXPECT_EQ(decodeBext(payload), bext);
    EXPECT_FALSE(decodeBext(ByteView(payload).first(601)));

    testing::TempDir dir;
    StampChunks chunks;
    chunks.bext = payload;
    testing::WavRecipe recipe;
    recipe.frames = 4;
    BWFWriter::write(WAVFile::fromBytes(testing::makeWav(recipe)), chunks, dir / "b.wav", false);
    SF_INFO info{};
    SNDFILE* file = sf_open((dir / "b.wav").c_str(), SFM_READ, &info);
    ASSERT_TRUE(file);
    SF_BROADCAST_INFO_VAR(1024) read{};
    ASSERT_EQ(sf_command(file, SFC_GET_BROADCAST_INFO, &read, sizeof read), SF_TRUE);
    sf_close(file);
    EXPECT_STREQ(read.description, "Scene 4 take 2");
    EXPECT_STREQ(read.originator, "Recorder");
    EXPECT_STREQ(read.originator_reference, "REF0123456789");
    EXPECT_EQ(std::string(read.origination_date, 10) + std::string(read.origination_time, 8),
              "2026-11-2122:50:01");
    EXPECT_EQ(read.time_reference_high, 1u);
    EXPECT_EQ(read.time_reference_low, 2u);
    EXPECT_EQ(read.version, 2);
    EXPECT_EQ(read.umid[63], 64);
    EXPECT_EQ(read.loudness_value, -2300);
    EXPECT_EQ(read.max_shortterm_loudness, -2000);
    EXPECT_EQ(std::string(read.coding_history, read.coding_history_size), bext.codingHistory);
}

}  // namespace
}  // namespace norvane
