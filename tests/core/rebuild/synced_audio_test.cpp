#include "core/rebuild/synced_audio.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/core/rebuild/rebuild_fixtures.h"

namespace norvane {
namespace {

using testing::SyncedWavSpec;
using testing::TempDir;
using testing::writeSyncedWav;

FrameRateConfig fps25() {
    return *frameRateConfig(FrameRatePreset::fps25);
}

TEST(SyncedAudioNames, EventIndexPatternsInOrder) {
    EXPECT_EQ(eventIndex("Event_007_trk2.wav"), 7);
    EXPECT_EQ(eventIndex("SEG12.WAV"), 12);
    EXPECT_EQ(eventIndex("evt-0003 take 9.wav"), 3);  // the token wins over later digits
    EXPECT_EQ(eventIndex("a3-012_mix.wav"), 12);
    EXPECT_EQ(eventIndex("A10-7.wav"), 7);
    EXPECT_EQ(eventIndex("take 5 part 9.wav"), 9);
    EXPECT_EQ(eventIndex("crash.wav"), kNoEventIndex);
    EXPECT_EQ(eventIndex("seg000.wav"), 0);
    EXPECT_EQ(eventIndex("take_99999999999999999999.wav"), kNoEventIndex);  // overflow
    EXPECT_EQ(eventIndex("scene.wav.wav"), kNoEventIndex);
}

TEST(SyncedAudioNames, ExplicitTrackKeyNeedsSeparators) {
    EXPECT_EQ(explicitTrackKey("Event_007_trk2.wav"), "Trk2");
    EXPECT_EQ(explicitTrackKey("take_CH02.wav"), "Trk2");
    EXPECT_EQ(explicitTrackKey("Track 010-x.wav"), "Trk10");
    EXPECT_EQ(explicitTrackKey("take-channel 3.wav"), "Trk3");
    EXPECT_EQ(explicitTrackKey("match1.wav"), std::nullopt);     // "ch" inside a word
    EXPECT_EQ(explicitTrackKey("take_ch2x.wav"), std::nullopt);  // number must end the token
    EXPECT_EQ(explicitTrackKey("SEG12.WAV"), std::nullopt);
    EXPECT_EQ(trackKeyOrDefault("SEG12.WAV"), "Trk1");
}

TEST(SyncedAudioNames, EventTimecodeText) {
    EXPECT_EQ(parseEventTimecode("01:02:03:04")->description(), "01:02:03:04");
    EXPECT_EQ(parseEventTimecode("10:00:00;12")->frames, 12);
    EXPECT_EQ(parseEventTimecode("10:00:00")->frames, 0);
    for (const char* bad : {"UNRESOLVED", "1:00:00:00", "01:00:00:00:00", "01:00:00.12", ""}) {
        EXPECT_FALSE(parseEventTimecode(bad)) << bad;
    }
}

TEST(SyncedAudioScan, MetadataPriorityAndProvenance) {
    TempDir dir;
    // iXML wins over bext; bext over the name; the name is the fallback.
    writeSyncedWav(
        dir / "evt1_trk1 10:00:00:00.wav",
        {48000, 48000, 1, 48000ull * 3600, "<BWFXML><TIMECODE> 01:00:00:05 \n</TIMECODE>"});
    writeSyncedWav(dir / "evt1_trk2.wav", {48000, 48000, 1, 48000ull * 3600 + 1920 * 6, {}});
    writeSyncedWav(dir / "evt2_trk1 02:00:00:00.wav", {24000, 48000, 2, {}, {}});
    writeSyncedWav(dir / "evt3_trk1.wav",
                   {48000, 48000, 1, {}, "<TIMECODE_RATE>25</TIMECODE_RATE>"});

    // Each row's event timecode, its source, whether the name was a
    // fallback, and the file's first sample on the sequence's grid.
    const auto scan = [&](TimecodeSourcePriority priority) {
        std::vector<std::string> out;
        const auto rows = scanSyncedAudio(dir.path(), priority, fps25(), fps25());
        for (const auto& row : *rows) {
            out.push_back(row.eventTimecode + " " + label(row.timecodeProvenance) +
                          (row.usedFallback ? " fallback " : " ") + row.sourceMediaStart.text());
        }
        return out;
    };
    using ::testing::ElementsAre;
    EXPECT_THAT(scan(TimecodeSourcePriority::bwfIXMLThenFilename),
                ElementsAre("01:00:00:05 iXML 3600/1s", "01:00:00:06 BWF 90006/25s",
                            "02:00:00:00 Filename fallback 0/1s", "UNRESOLVED Unresolved 0/1s"));
    EXPECT_THAT(scan(TimecodeSourcePriority::filenameOnly),
                ElementsAre("10:00:00:00 Filename 3600/1s", "UNRESOLVED Unresolved 90006/25s",
                            "02:00:00:00 Filename 0/1s", "UNRESOLVED Unresolved 0/1s"));
    EXPECT_THAT(scan(TimecodeSourcePriority::inputXMLOnly),
                ::testing::Each(::testing::StartsWith("UNRESOLVED Unresolved ")));
}

TEST(SyncedAudioScan, FileOrderImplicitKeysAndFinalSort) {
    TempDir dir;
    for (const char* name : {"evt10_a.wav", "evt10_trk3.wav", "evt10_b.wav", "evt2_x.WAV",
                             "evt2_ch1.wav", "notes.wave", "evt3.aif", ".hidden9.wav"}) {
        writeSyncedWav(dir / name, {});
    }
    std::filesystem::create_directory(dir / "evt7.wav");  // a folder is not a file
    auto rows =
        *scanSyncedAudio(dir.path(), TimecodeSourcePriority::filenameOnly, fps25(), fps25());
    std::vector<std::string> got;
    for (const auto& row : rows) {
        got.push_back(std::to_string(row.eventOrder) + " " + row.trackKey + " " + row.name + " " +
                      label(row.trackProvenance));
    }
    // evt2 sorts before evt10 (numbers by value). In event 10 the files
    // without a token take Trk1 and Trk2 in file order and trk3 keeps its key;
    // in event 2 the counter starts at 1 again, next to the explicit ch1.
    EXPECT_THAT(got, ::testing::ElementsAre("2 Trk1 evt2_ch1 Explicit", "2 Trk1 evt2_x Implicit",
                                            "10 Trk1 evt10_a Implicit", "10 Trk2 evt10_b Implicit",
                                            "10 Trk3 evt10_trk3 Explicit"));
}

TEST(SyncedAudioScan, UnreadableFilesAndFoldersAreReported) {
    TempDir dir;
    testing::writeText(dir / "evt1.wav", "not a wav at all");
    try {
        scanSyncedAudio(dir.path(), TimecodeSourcePriority::filenameOnly, fps25(), fps25());
        FAIL() << "no error";
    } catch (const SyncedAudioError& e) {
        EXPECT_THAT(e.message(), ::testing::StartsWith("Cannot read synced WAV evt1.wav: "));
    }
    EXPECT_THROW(
        scanSyncedAudio(dir / "missing", TimecodeSourcePriority::filenameOnly, fps25(), fps25()),
        std::filesystem::filesystem_error);
    int polls = 0;
    EXPECT_FALSE(scanSyncedAudio(dir.path(), TimecodeSourcePriority::filenameOnly, fps25(), fps25(),
                                 [&] { return ++polls > 0; }));
}

// Recorders' own files, linked into a folder under the names their file
// sets use.
class RecorderFileSets : public ::testing::Test {
  protected:
    TempDir dir;
    bool link(const std::string& fixture, const std::string& name) {
        auto source = testing::sharedFixture("field/" + fixture);
        if (source.empty()) {
            return false;
        }
        std::filesystem::create_symlink(source, dir / name);
        return true;
    }
};

TEST_F(RecorderFileSets, AMultitrackTakeIsOneEvent) {
    for (int take = 1; take <= 2; ++take) {
        std::string base = "Scene_1_2AG-T00" + std::to_string(take);
        for (int track = 1; track <= (take == 1 ? 8 : 2); ++track) {
            if (!link("zoomF8_TrL_R.WAV", base + "_Tr" + std::to_string(track) + ".WAV")) {
                GTEST_SKIP() << "shared fixtures not found";
            }
        }
        link("zoomF8_TrL_R.WAV", base + "_TrL_R.WAV");
    }
    auto rows =
        scanSyncedAudio(dir.path(), TimecodeSourcePriority::bwfIXMLThenFilename, fps25(), fps25());
    ASSERT_TRUE(rows);
    ASSERT_EQ(rows->size(), 12u);
    std::vector<std::string> keys;
    for (const auto& row : *rows) {
        keys.push_back(std::to_string(row.eventOrder) + ":" + row.trackKey);
        EXPECT_EQ(row.trackProvenance, TimelineTrackProvenance::explicit_);
        // bext TimeReference 3917280000 at 48 kHz, counted at the file's 25/1.
        EXPECT_EQ(row.eventTimecode, "22:40:10:00");
        ASSERT_TRUE(row.timecodeRate);
        EXPECT_EQ(row.timecodeRate->numerator, 25);
    }
    EXPECT_THAT(
        keys, ::testing::ElementsAre("1:Trk1", "1:Trk2", "1:Trk3", "1:Trk4", "1:Trk5", "1:Trk6",
                                     "1:Trk7", "1:Trk8", "1:TrkLR", "2:Trk1", "2:Trk2", "2:TrkLR"));
    EXPECT_EQ(rows->front().namingRule, kTrackSuffixRule);
    EXPECT_EQ((*rows)[8].namingRule, kMixSuffixRule);
}

TEST_F(RecorderFileSets, MonoFilesOfAPolyTakeAndTheFilesOwnRate) {
    // A101_1_1 and A101_1_2: take 1's two tracks (the recorder's iXML says
    // TAKE 1); A101_2 is another take and must not meet track 2 of take 1.
    if (!link("sd702T_A101_1.WAV", "A101_1_1.WAV")) {
        GTEST_SKIP() << "shared fixtures not found";
    }
    link("sd702T_A101_1.WAV", "A101_1_2.WAV");
    link("sd702T_A101_1.WAV", "A101_2.WAV");
    // The sequence runs at 25; the recorder counted 23.976 NDF.
    auto rows =
        scanSyncedAudio(dir.path(), TimecodeSourcePriority::bwfIXMLThenFilename, fps25(), fps25());
    ASSERT_TRUE(rows);
    std::vector<std::string> keys;
    for (const auto& row : *rows) {
        keys.push_back(row.name + "=" + std::to_string(row.eventOrder) + ":" + row.trackKey);
        // Its own bext TimeReference 2190940753 is 12:39:59:00 at 23.976.
        EXPECT_EQ(row.eventTimecode, "12:39:59:00");
        ASSERT_TRUE(row.timecodeRate);
        EXPECT_EQ(row.timecodeRate->numerator, 24000);
        EXPECT_EQ(row.timecodeRate->denominator, 1001);
    }
    EXPECT_THAT(keys,
                ::testing::ElementsAre("A101_1_1=1:Trk1", "A101_1_2=1:Trk2", "A101_2=2:Trk1"));
    EXPECT_EQ((*rows)[0].namingRule, kTakeTrackRule);
    EXPECT_EQ((*rows)[2].namingRule, kGenericNamingRule);
}

}  // namespace
}  // namespace norvane
