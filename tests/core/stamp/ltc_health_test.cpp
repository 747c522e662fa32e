#include "core/stamp/ltc_health.h"

#include <gtest/gtest.h>

#include "tests/core/stamp/stamp_fixtures.h"
#include "tests/support/ltcdump.h"
#include "tests/support/test_support.h"

namespace norvane {
namespace {

// Silence for the first 5 s of the LTC track (the third of four): the opening
// stretch holds nothing, a later one does.
TEST(LTCHealthTest, ProbeAndStretchesFindTheCodeOnAnyTrackAfterALeadIn) {
    const WAVFile take = WAVFile::fromBytes(buildLTCRecording(
        testing::ltcOptions(FrameRatePreset::fps25, {14, 0, 0, 0, false}, 5 * 48000, 20, 4, 3)));
    const auto probe = probeLTC(take);
    ASSERT_TRUE(probe.has_value());
    EXPECT_EQ(probe->channelIndex, 2);
    EXPECT_EQ(probe->rate.label, "25");
    EXPECT_GT(probe->confidence, 0.9);
    // The frame found sits where the recording put it: 1,920 samples a frame
    // from 14:00:00:00 at the end of the lead-in.
    const auto frames = TimecodeMath::frameCount(probe->timecode, probe->rate) - 14 * 3600 * 25;
    EXPECT_NEAR(static_cast<double>(probe->firstValidSample),
                5.0 * 48000 + static_cast<double>(frames) * 1920, 4);
    // Named channel: only that one is tried.
    EXPECT_FALSE(probeLTC(take, 0).has_value());
    EXPECT_EQ(probeLTC(take, 2)->channelIndex, 2);

    const LTCHealth health = measureLTCHealth(take, 2, std::nullopt, 100, 20);
    ASSERT_EQ(health.stretches.size(), 20u);
    EXPECT_EQ(health.envelope.size(), 100u);
    EXPECT_EQ(health.frameCount, 20 * 48000);
    // One second a stretch: the first five are silent, the rest decode.
    for (std::size_t i = 0; i < health.stretches.size(); ++i) {
        EXPECT_EQ(healthLevel(health.stretches[i].confidence),
                  i < 5 ? LTCHealthLevel::red : LTCHealthLevel::green)
            << "stretch " << i;
    }
    EXPECT_FLOAT_EQ(health.envelope.front(), 0.0f);
    EXPECT_NEAR(health.envelope.back(), 0.25, 0.02);  // -12 dBFS peaks
    ASSERT_TRUE(health.firstValidSample.has_value());
    EXPECT_NEAR(static_cast<double>(*health.firstValidSample), 5.0 * 48000, 1920 + 4);
    ASSERT_TRUE(health.rate.has_value());
    EXPECT_EQ(health.rate->label, "25");
    EXPECT_EQ(healthLevel(0.3), LTCHealthLevel::amber);
}

TEST(LTCHealthTest, RealDeviceRecordingsProbeAsLibltcReadsThem) {
    for (const char* name : {"field/atem_25fps.wav", "field/atem_2997fps_ndf.wav"}) {
        SCOPED_TRACE(name);
        const auto path = testing::sharedFixture(name);
        if (path.empty()) {
            return;
        }
        const WAVFile file(path);
        const auto probe = probeLTC(file);
        ASSERT_TRUE(probe.has_value());
        EXPECT_EQ(probe->channelIndex, 0);
        const auto dump = testing::readLtcDump(path);
        ASSERT_FALSE(dump.empty());
        EXPECT_EQ(probe->timecode.description(), dump[0].timecode);
        EXPECT_NEAR(static_cast<double>(probe->firstValidSample),
                    static_cast<double>(dump[0].first), 3);
        for (const auto& stretch : measureLTCHealth(file, 0, std::nullopt, 50, 10).stretches) {
            EXPECT_EQ(healthLevel(stretch.confidence), LTCHealthLevel::green);
        }
    }
}

}  // namespace
}  // namespace norvane
