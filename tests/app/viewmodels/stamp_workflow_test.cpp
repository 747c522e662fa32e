#include "app/viewmodels/stamp_workflow.h"

#include "app/viewmodels/app_view_model.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <cmath>

#include "core/audio/ltc_recording.h"
#include "core/common/bytes.h"
#include "core/timecode/ltc_encoder.h"
#include "tests/app/viewmodels/viewmodel_test_support.h"
#include "tests/support/test_support.h"
#include "tests/support/wav_builder.h"

namespace norvane {
namespace {

namespace fs = std::filesystem;
using testing::TempDir;

QString q(const fs::path& path) {
    return QString::fromStdString(path.string());
}

FrameRateConfig fps25() {
    return *frameRateConfig(FrameRatePreset::fps25);
}

void writeLTC(const fs::path& path, double seconds, int channels = 1,
              std::vector<LTCRecordingJump> jumps = {}) {
    LTCRecordingOptions options;
    options.rate = fps25();
    options.start = Timecode{1, 0, 0, 0, false};
    options.seconds = seconds;
    options.channels = channels;
    options.jumps = std::move(jumps);
    fs::create_directories(path.parent_path());
    writeLTCRecording(path, options, true);
}

// A stem: tone-free silence of the same length as the LTC file.
void writeStem(const fs::path& path, double seconds, int channels = 2) {
    testing::WavSpec recipe;
    recipe.channels = static_cast<std::uint16_t>(channels);
    recipe.bits = 24;
    recipe.frames = static_cast<std::int64_t>(seconds * 48000);
    fs::create_directories(path.parent_path());
    testing::writeBytes(path, testing::makeWav(recipe));
}

// A 16-bit two-channel recording of the given channel signals (equal lengths).
void writeTwoChannels(const fs::path& path, const std::vector<float>& first,
                      const std::vector<float>& second) {
    ByteBuffer data;
    for (std::size_t i = 0; i < first.size(); ++i) {
        for (const float x : {first[i], second[i]}) {
            appendLE16(data, static_cast<std::uint16_t>(
                                 static_cast<std::int16_t>(std::lround(x * 32767.0f))));
        }
    }
    testing::WavSpec recipe;
    recipe.channels = 2;
    recipe.bits = 16;
    recipe.data = std::move(data);
    fs::create_directories(path.parent_path());
    testing::writeBytes(path, testing::makeWav(recipe));
}

std::vector<float> ltcFrom(const Timecode& start, std::int64_t frames) {
    LTCEncoderOptions options;
    options.rate = fps25();
    return encodeLTC(start, frames, options);
}

std::uint64_t bextTimeReference(const fs::path& path) {
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    EXPECT_NE(file, nullptr) << path;
    if (file == nullptr) {
        return 0;
    }
    SF_BROADCAST_INFO bext{};
    const int found = sf_command(file, SFC_GET_BROADCAST_INFO, &bext, sizeof bext);
    sf_close(file);
    EXPECT_EQ(found, SF_TRUE) << path;
    return (static_cast<std::uint64_t>(bext.time_reference_high) << 32) | bext.time_reference_low;
}

struct Fixture {
    TempDir dir;
    fs::path output = dir / "out";
    std::unique_ptr<AppSettingsStore> store;
    CancellationToken token;

    explicit Fixture(const std::string& settingsJSON = "{}") {
        fs::create_directories(output);
        testing::writeSettingsFile(dir / "settings.json", settingsJSON);
        store = std::make_unique<AppSettingsStore>(dir / "settings.json");
        store->setDefaultOutputFolderPath(output.string());
    }
    std::size_t outputCount() const {
        return static_cast<std::size_t>(
            std::distance(fs::directory_iterator(output), fs::directory_iterator()));
    }
};

// Ingest returns at once; the files are listed when their headers are read.
void ingested(StampWorkflow& stamp, const QStringList& paths) {
    stamp.ingest(paths);
    ASSERT_TRUE(testing::waitUntil([&] { return !stamp.isIngesting(); }));
}

bool finished(const StampWorkflow& stamp) {
    return testing::waitUntil([&] { return !stamp.isProcessing() && !stamp.isAnalyzingCuts(); });
}

TEST(StampWorkflowTest, StartsFromTheSettings) {
    Fixture f(R"({"settings.defaultFrameRatePreset": "31.5",
                  "settings.defaultGroupedLTCChannel": 0,
                  "settings.defaultIncludeLTCOutputs": true,
                  "settings.defaultGroupingMethod": "Token"})");
    StampWorkflow stamp(*f.store, f.token);
    EXPECT_EQ(stamp.frameRatePreset(), "Auto");
    EXPECT_EQ(stamp.designatedLTCChannel(), 1);
    EXPECT_EQ(stamp.groupingMethod(), "Token");
    EXPECT_EQ(stamp.outputFolder(), q(f.output));
}

TEST(StampWorkflowTest, IngestReportsWhatItCouldNotUse) {
    Fixture f;
    StampWorkflow stamp(*f.store, f.token);
    testing::writeBytes(f.dir / "notes.txt", ByteBuffer{'x'});
    ingested(stamp, {q(f.dir / "notes.txt")});
    EXPECT_EQ(stamp.statusMessage(), "No WAV files found in dropped items.");
    EXPECT_TRUE(stamp.files().isEmpty());

    // A file without its format chunk. (A header that promises more audio than
    // the file holds is a cut-off recording and is read to its last frame.)
    testing::WavSpec recipe;
    recipe.frames = 100;
    recipe.includeFmt = false;
    fs::create_directories(f.dir / "bad");
    testing::writeBytes(f.dir / "bad" / "nofmt.wav", testing::makeWav(recipe));
    testing::writeBytes(f.dir / "bad" / "junk.wav", ByteBuffer(64, 'j'));
    ingested(stamp, {q(f.dir / "bad")});
    EXPECT_EQ(stamp.statusMessage(),
              "No readable WAV files found. Some files may be truncated or invalid.");
    EXPECT_TRUE(stamp.files().isEmpty());
    EXPECT_EQ(stamp.ignoredFiles().size(), 2);
}

TEST(StampWorkflowTest, IngestListsFilesOnceWithFormatAndTimecode) {
    Fixture f;
    StampWorkflow stamp(*f.store, f.token);
    writeLTC(f.dir / "in" / "day1_LTC.wav", 2);
    writeStem(f.dir / "in" / "day1_mix.wav", 2);
    ingested(stamp, {q(f.dir / "in")});
    ASSERT_EQ(stamp.files().size(), 2);
    EXPECT_EQ(stamp.files()[0].toMap().value("fileName"), "day1_LTC.wav");  // browser order
    EXPECT_EQ(stamp.statusMessage(), "Loaded 2 WAV file(s).");
    // The file named as the LTC carrier is marked and selected.
    EXPECT_EQ(stamp.selectedLTCFile(), q(f.dir / "in" / "day1_LTC.wav"));

    ingested(stamp, {q(f.dir / "in")});  // the same folder again adds nothing
    EXPECT_EQ(stamp.files().size(), 2);

    QVariantMap mix;
    for (const QVariant& row : stamp.files()) {
        if (row.toMap().value("fileName") == "day1_mix.wav") {
            mix = row.toMap();
        }
    }
    EXPECT_EQ(mix.value("format").toString(), "48000 Hz, 2 ch, 24-bit PCM");
    EXPECT_FALSE(mix.value("isLTC").toBool());
}

TEST(StampWorkflowTest, IngestReturnsAtOnceAndADropMadeMeanwhileIsNotLost) {
    Fixture f;
    StampWorkflow stamp(*f.store, f.token);
    writeLTC(f.dir / "in" / "A_ltc.wav", 2);
    writeStem(f.dir / "more" / "B_stem.wav", 2);
    stamp.ingest({q(f.dir / "in")});
    // The window keeps going: nothing is listed yet, a run waits, a second drop queues.
    EXPECT_TRUE(stamp.isIngesting());
    EXPECT_TRUE(stamp.files().isEmpty());
    stamp.process();
    EXPECT_FALSE(stamp.isProcessing());
    EXPECT_EQ(stamp.statusMessage(), "Still reading the dropped files; try again in a moment.");
    stamp.ingest({q(f.dir / "more")});
    ASSERT_TRUE(testing::waitUntil([&] { return !stamp.isIngesting(); }));
    ASSERT_EQ(stamp.files().size(), 2);
    EXPECT_EQ(stamp.statusMessage(), "Loaded 1 WAV file(s).");  // the second drop
    EXPECT_EQ(f.outputCount(), 0u);
}

TEST(StampWorkflowTest, SingleRunStampsThenAsksBeforeReplacing) {
    Fixture f;
    StampWorkflow stamp(*f.store, f.token);
    writeLTC(f.dir / "in" / "A_ltc.wav", 2);
    writeStem(f.dir / "in" / "A_stem.wav", 2);
    ingested(stamp, {q(f.dir / "in")});
    stamp.setFrameRatePreset("25");
    // Counts the LTC decodes before writing (the real decode runs in the job).
    int prechecks = 0;
    stamp.setLTCPrecheckForTesting(
        [&](const std::vector<ProcessingJob>&, const ProcessingOptions&) {
            ++prechecks;
            LTCPrecheck precheck;
            precheck.detectedRates = {*frameRateConfig(FrameRatePreset::fps25)};
            precheck.lowestConfidence = 1.0;
            return precheck;
        });

    stamp.process();
    EXPECT_TRUE(stamp.isProcessing());
    EXPECT_EQ(stamp.statusMessage(), "Processing...");
    ASSERT_TRUE(finished(stamp));
    EXPECT_EQ(stamp.statusMessage(), "Success") << stamp.reportText().toStdString();
    EXPECT_EQ(stamp.progressPercent(), 1.0);
    EXPECT_TRUE(stamp.reportText().contains("Calculated file-set start TC: 01:00:00:00"));
    // 01:00:00:00 at 25 fps is 90000 frames of 1920 samples.
    EXPECT_EQ(bextTimeReference(f.output / "A_stem_tc.wav"), 90000u * 1920u);

    // Again under "Ask": the existing output comes back as a question, asked
    // from the output names before any LTC is decoded; the answer goes on
    // with the same jobs and decodes once.
    stamp.process();
    ASSERT_TRUE(finished(stamp));
    EXPECT_EQ(stamp.pendingOutputConflicts(), QStringList{"A_stem_tc.wav"});
    EXPECT_EQ(stamp.statusMessage(), "Output conflict");
    EXPECT_EQ(prechecks, 1);

    stamp.resolveOutputConflicts("Keep Both");
    EXPECT_TRUE(stamp.pendingOutputConflicts().isEmpty());
    ASSERT_TRUE(finished(stamp));
    EXPECT_EQ(stamp.statusMessage(), "Success");
    EXPECT_EQ(prechecks, 2);
    EXPECT_TRUE(fs::exists(f.output / "A_stem_tc_2.wav"));
    EXPECT_EQ(bextTimeReference(f.output / "A_stem_tc_2.wav"), 90000u * 1920u);
}

TEST(StampWorkflowTest, AutoRateIsReportedBeforeProcessing) {
    Fixture f;
    StampWorkflow stamp(*f.store, f.token);
    writeLTC(f.dir / "in" / "B_ltc.wav", 2);
    writeStem(f.dir / "in" / "B_stem.wav", 2);
    ingested(stamp, {q(f.dir / "in")});
    ASSERT_EQ(stamp.frameRatePreset(), "Auto");
    stamp.process();
    ASSERT_TRUE(finished(stamp));
    EXPECT_EQ(stamp.statusMessage(), "Success") << stamp.reportText().toStdString();
    EXPECT_TRUE(testing::withoutTimestamps(stamp.logLines())
                    .contains("[info] Auto frame-rate detected: 25 fps"));
}

TEST(StampWorkflowTest, LowConfidenceAsksUnlessConfirmedOrAlwaysProceed) {
    const auto lowConfidence = [](const std::vector<ProcessingJob>&, const ProcessingOptions&) {
        LTCPrecheck precheck;
        precheck.detectedRates = {*frameRateConfig(FrameRatePreset::fps25)};
        precheck.lowestConfidence = 0.42;
        return precheck;
    };
    {
        Fixture f;
        StampWorkflow stamp(*f.store, f.token);
        stamp.setLTCPrecheckForTesting(lowConfidence);
        writeLTC(f.dir / "in" / "C_ltc.wav", 2);
        writeStem(f.dir / "in" / "C_stem.wav", 2);
        ingested(stamp, {q(f.dir / "in")});
        stamp.setFrameRatePreset("25");
        stamp.process();
        ASSERT_TRUE(finished(stamp));
        const QString description =
            "LTC decoding confidence is low (42%). Confirm before stamping.";
        EXPECT_EQ(stamp.statusMessage(), "Confirmation required");
        EXPECT_TRUE(stamp.pendingLowConfidence());
        EXPECT_EQ(stamp.reportText(), description);
        EXPECT_EQ(f.outputCount(), 0u);

        stamp.process(true);  // the user confirmed
        ASSERT_TRUE(finished(stamp));
        EXPECT_EQ(stamp.statusMessage(), "Success");
        EXPECT_FALSE(stamp.pendingLowConfidence());
        EXPECT_TRUE(fs::exists(f.output / "C_stem_tc.wav"));
    }
    {
        Fixture f(R"({"settings.lowConfidenceBehavior": "Always Proceed"})");
        StampWorkflow stamp(*f.store, f.token);
        stamp.setLTCPrecheckForTesting(lowConfidence);
        writeLTC(f.dir / "in" / "D_ltc.wav", 2);
        writeStem(f.dir / "in" / "D_stem.wav", 2);
        ingested(stamp, {q(f.dir / "in")});
        stamp.setFrameRatePreset("25");
        stamp.process();
        ASSERT_TRUE(finished(stamp));
        EXPECT_EQ(stamp.statusMessage(), "Success");
        EXPECT_FALSE(stamp.pendingLowConfidence());
    }
}

TEST(StampWorkflowTest, GroupedAutoWithUndecodableLTCStopsBeforeWriting) {
    Fixture f;
    StampWorkflow stamp(*f.store, f.token);
    writeStem(f.dir / "in" / "S1-ltc.wav", 1, 1);
    writeStem(f.dir / "in" / "S1-boom.wav", 1, 2);
    ingested(stamp, {q(f.dir / "in")});
    stamp.setMode("Grouped Batch");
    ASSERT_EQ(stamp.groupingMethod(), "Duration Exact");
    ASSERT_EQ(stamp.groupIDs(), QStringList{"sr48000_f48000"});
    // The group's files are decoded off the main thread; the name decides
    // when none carries code.
    EXPECT_EQ(stamp.groupPreviewRows()[0].toStdString(),
              "S1 | Files: 2 | LTC file: decoding… | LTC Audio CH: auto");
    EXPECT_TRUE(testing::waitUntil([&] {
        return stamp.groupPreviewRows()[0] ==
               "S1 | Files: 2 | LTC file: S1-ltc.wav | LTC Audio CH: auto";
    })) << stamp.groupPreviewRows()[0].toStdString();

    stamp.process();
    ASSERT_TRUE(finished(stamp));
    EXPECT_TRUE(
        stamp.statusMessage().startsWith("Auto frame-rate pre-check failed in Grouped mode: "))
        << stamp.statusMessage().toStdString();
    EXPECT_EQ(f.outputCount(), 0u);  // not even a CSV log
}

TEST(StampWorkflowTest, GroupingPreviewFollowsTheChoices) {
    Fixture f;
    StampWorkflow stamp(*f.store, f.token);
    writeLTC(f.dir / "in" / "A001-SC1-ltc.wav", 1, 2);
    writeStem(f.dir / "in" / "A001-SC1-T1.wav", 1, 4);
    writeStem(f.dir / "in" / "A001-SC2-T1.wav", 1, 2);
    ingested(stamp, {q(f.dir / "in")});
    stamp.setGroupingMethod("Token");
    stamp.setMode("Grouped Batch");
    ASSERT_EQ(stamp.groupIDs(), (QStringList{"SC1", "SC2"}));
    ASSERT_TRUE(
        testing::waitUntil([&] { return !stamp.groupPreviewRows().join("").contains("…"); }));
    EXPECT_EQ(stamp.groupPreviewRows()[0].toStdString(),
              "SC1 | Files: 2 | LTC file: A001-SC1-ltc.wav | LTC Audio CH: auto (found on 1)");
    EXPECT_EQ(stamp.commonLTCChannelCandidates(), (QVariantList{1, 2}));

    stamp.setGroupLTCChannel("SC1", 9);  // clamped to the group's two channels
    EXPECT_EQ(stamp.groupPreviewRows()[0],
              "SC1 | Files: 2 | LTC file: A001-SC1-ltc.wav | LTC Audio CH: 2");

    stamp.setGroupingMethod("Regex");
    stamp.setGroupingRegex("(a+)+");
    EXPECT_EQ(stamp.groupPreviewRows(),
              QStringList{"Invalid grouping regex: Nested quantifiers are not allowed."});
}

TEST(StampWorkflowTest, GroupsAreNamedByTheirTakeInFileBrowserOrder) {
    const std::pair<std::vector<std::string>, std::string> names[] = {
        {{"Sc12_T03_Boom", "Sc12_T03_Lavs"}, "Sc12_T03"},
        {{"A001_C001", "A001_C002"}, "A001"},  // not cut inside a word
        {{"T07_lav", "T01"}, "T01 + 1 more"},  // nothing shared
        {{"T1"}, "T1"},
    };
    for (const auto& [stems, name] : names) {
        EXPECT_EQ(groupDisplayName(stems), name);
    }
    // Equal lengths group the takes (ids from the length, in text order
    // 3 s, 1 s, 2 s); the screen lists them by take, T2 before T10.
    Fixture f;
    StampWorkflow stamp(*f.store, f.token);
    const std::pair<const char*, double> takes[] = {{"T10", 1}, {"T2", 2}, {"T03", 3}};
    for (const auto& [take, seconds] : takes) {
        writeStem(f.dir / "in" / (std::string(take) + "_boom.wav"), seconds, 1);
        writeStem(f.dir / "in" / (std::string(take) + "_lav.wav"), seconds, 1);
    }
    ingested(stamp, {q(f.dir / "in")});
    stamp.setMode("Grouped Batch");
    QStringList shown;
    for (const QString& id : stamp.groupIDs()) {
        shown.append(stamp.groupNamesByID().value(id).toString());
    }
    EXPECT_EQ(shown, QStringList({"T2", "T03", "T10"}));
    EXPECT_TRUE(stamp.groupPreviewRows().first().startsWith("T2 | Files: 2 | "));
}

TEST(StampWorkflowTest, CutAnalysisPreviewsTheSegments) {
    Fixture f;
    StampWorkflow stamp(*f.store, f.token);
    writeLTC(f.dir / "in" / "long_ltc.wav", 6, 1, {{3.0, Timecode{2, 0, 0, 0, false}}});
    writeStem(f.dir / "in" / "long_mix.wav", 6);
    ingested(stamp, {q(f.dir / "in")});
    stamp.setMode("LTC Cut Detect");
    stamp.setFrameRatePreset("25");

    stamp.analyzeCuts();
    EXPECT_TRUE(stamp.isAnalyzingCuts());
    EXPECT_EQ(stamp.statusMessage(), "Analyzing LTC cuts...");
    ASSERT_TRUE(finished(stamp));
    EXPECT_EQ(stamp.statusMessage(), "Cut analysis complete");
    ASSERT_EQ(stamp.segmentPreviewRows().size(), 2);
    EXPECT_TRUE(stamp.segmentPreviewRows()[1].startsWith("Segment 002"));
    EXPECT_TRUE(stamp.segmentPreviewRows()[1].contains("TC 02:00:00:0"))
        << stamp.segmentPreviewRows()[1].toStdString();
    ASSERT_EQ(stamp.cutSegments().size(), 2);
    // The cut lies on the first frame boundary after the jump.
    const qint64 cut = stamp.cutSegments()[1].toMap().value("startSample").toLongLong();
    EXPECT_GE(cut, 3 * 48000);
    EXPECT_LE(cut, 3 * 48000 + 2 * 1920);
    EXPECT_EQ(cut % 1920, 0);
    EXPECT_FALSE(stamp.cutTimelinePoints().isEmpty());

    stamp.process();
    ASSERT_TRUE(finished(stamp));
    EXPECT_EQ(stamp.statusMessage(), "Success") << stamp.reportText().toStdString();
    // The second segment starts at 02:00:00:00 plus the frames between the
    // jump and the cut.
    EXPECT_EQ(bextTimeReference(f.output / "long_mix_seg002_tc.wav"),
              2u * 3600u * 25u * 1920u + static_cast<std::uint64_t>(cut - 3 * 48000));
}

TEST(StampWorkflowTest, CancelStopsARunningAnalysis) {
    Fixture f;
    StampWorkflow stamp(*f.store, f.token);
    writeLTC(f.dir / "in" / "hour_ltc.wav", 120);
    writeStem(f.dir / "in" / "hour_mix.wav", 1);
    ingested(stamp, {q(f.dir / "in")});
    stamp.setMode("LTC Cut Detect");
    stamp.setFrameRatePreset("25");
    QObject::connect(&stamp, &StampWorkflow::progressMessageChanged, &stamp, [&] {
        if (stamp.progressMessage().startsWith("Analyzing cuts: ")) {
            stamp.cancel();
        }
    });
    stamp.analyzeCuts();
    ASSERT_TRUE(finished(stamp));
    EXPECT_EQ(stamp.statusMessage(), "Stopped by user");
    EXPECT_TRUE(stamp.segmentPreviewRows().isEmpty());
}

}  // namespace
}  // namespace norvane

namespace norvane {
namespace {

// Two channels of equally clean LTC: 03:00:00:00 on channel 1, 01:00:00:00 on
// channel 2. Only the picked channel may decide the stamp.
TEST(StampWorkflowTest, SingleRunsReadThePickedLTCChannel) {
    Fixture f;
    StampWorkflow stamp(*f.store, f.token);
    writeTwoChannels(f.dir / "in" / "E_ltc.wav", ltcFrom(Timecode{3, 0, 0, 0, false}, 75),
                     ltcFrom(Timecode{1, 0, 0, 0, false}, 75));
    writeStem(f.dir / "in" / "E_stem.wav", 3);
    ingested(stamp, {q(f.dir / "in")});
    stamp.setFrameRatePreset("25");
    ASSERT_EQ(stamp.selectedLTCFile(), q(f.dir / "in" / "E_ltc.wav"));
    EXPECT_EQ(stamp.selectedLTCChannelCount(), 2);
    EXPECT_EQ(stamp.ltcChannelChoice(), 0);  // the engine's pick unless the user chooses

    const auto stampWith = [&](int channel, const std::string& folder) {
        stamp.setLTCChannelChoice(channel);
        stamp.setOutputFolder(q(f.dir / folder));
        fs::create_directories(f.dir / folder);
        stamp.process();
        EXPECT_TRUE(finished(stamp));
        EXPECT_EQ(stamp.statusMessage(), "Success") << stamp.reportText().toStdString();
        return bextTimeReference(f.dir / folder / "E_stem_tc.wav");
    };
    EXPECT_EQ(stampWith(2, "ch2"), 90000u * 1920u);
    EXPECT_EQ(stampWith(1, "ch1"), 3u * 90000u * 1920u);

    // A channel the file does not have, or clearing the list, means Auto again.
    stamp.setLTCChannelChoice(2);
    stamp.setLTCChannelChoice(3);
    EXPECT_EQ(stamp.ltcChannelChoice(), 0);
    stamp.setLTCChannelChoice(2);
    stamp.clearFiles();
    EXPECT_EQ(stamp.selectedLTCChannelCount(), 0);
    EXPECT_EQ(stamp.ltcChannelChoice(), 0);

    // Auto finds LTC on the last track of a poly recording without being told.
    LTCRecordingOptions poly;
    poly.rate = fps25();
    poly.start = Timecode{5, 0, 0, 0, false};
    poly.seconds = 3;
    poly.channels = 4;
    poly.ltcChannel = 4;
    fs::create_directories(f.dir / "poly");
    writeLTCRecording(f.dir / "poly" / "F_ltc.wav", poly, true);
    writeStem(f.dir / "poly" / "F_stem.wav", 3);
    ingested(stamp, {q(f.dir / "poly")});
    stamp.setFrameRatePreset("25");
    EXPECT_EQ(stamp.selectedLTCChannelCount(), 4);
    stamp.setOutputFolder(q(f.output));
    stamp.process();
    ASSERT_TRUE(finished(stamp));
    EXPECT_EQ(stamp.statusMessage(), "Success") << stamp.reportText().toStdString();
    EXPECT_EQ(bextTimeReference(f.output / "F_stem_tc.wav"), 5u * 90000u * 1920u);
}

// Channel 1 jumps from 03:00:00:00 to 04:00:00:00 at 2 s; channel 2 runs on
// from 01:00:00:00. The analysis and the cut run follow the picked channel.
TEST(StampWorkflowTest, CutAnalysisAndCutRunsReadThePickedLTCChannel) {
    Fixture f;
    StampWorkflow stamp(*f.store, f.token);
    LTCProgram program;
    program.totalSamples = 4 * 48000;
    program.segments = {{0, Timecode{3, 0, 0, 0, false}}, {2 * 48000, Timecode{4, 0, 0, 0, false}}};
    LTCEncoderOptions encoder;
    encoder.rate = fps25();
    writeTwoChannels(f.dir / "in" / "roll_ltc.wav", encodeLTCProgram(program, encoder),
                     ltcFrom(Timecode{1, 0, 0, 0, false}, 100));
    writeStem(f.dir / "in" / "roll_mix.wav", 4);
    ingested(stamp, {q(f.dir / "in")});
    stamp.setMode("LTC Cut Detect");
    stamp.setFrameRatePreset("25");

    stamp.setLTCChannelChoice(1);
    stamp.analyzeCuts();
    ASSERT_TRUE(finished(stamp));
    ASSERT_EQ(stamp.segmentPreviewRows().size(), 2) << stamp.statusMessage().toStdString();
    EXPECT_TRUE(stamp.segmentPreviewRows()[0].contains("TC 03:00:00:00"))
        << stamp.segmentPreviewRows()[0].toStdString();
    EXPECT_TRUE(stamp.segmentPreviewRows()[1].contains("TC 04:00:00:0"))
        << stamp.segmentPreviewRows()[1].toStdString();

    stamp.setLTCChannelChoice(2);
    stamp.analyzeCuts();
    ASSERT_TRUE(finished(stamp));
    ASSERT_EQ(stamp.segmentPreviewRows().size(), 1) << stamp.statusMessage().toStdString();
    EXPECT_TRUE(stamp.segmentPreviewRows()[0].contains("TC 01:00:00:00"))
        << stamp.segmentPreviewRows()[0].toStdString();

    stamp.process();
    ASSERT_TRUE(finished(stamp));
    EXPECT_EQ(stamp.statusMessage(), "Success") << stamp.reportText().toStdString();
    EXPECT_EQ(bextTimeReference(f.output / "roll_mix_seg001_tc.wav"), 90000u * 1920u);
    EXPECT_FALSE(fs::exists(f.output / "roll_mix_seg002_tc.wav"));
}

TEST(StampWorkflowTest, CancelStopsARunningProcess) {
    Fixture f;
    StampWorkflow stamp(*f.store, f.token);
    writeLTC(f.dir / "in" / "long_ltc.wav", 120);
    writeStem(f.dir / "in" / "long_mix.wav", 1);
    ingested(stamp, {q(f.dir / "in")});
    stamp.setMode("LTC Cut Detect");
    stamp.setFrameRatePreset("25");
    // The cut scan reports its windows; cancel at the first one.
    QObject::connect(&stamp, &StampWorkflow::progressMessageChanged, &stamp, [&] {
        if (stamp.progressMessage() == "Scanning LTC timeline...") {
            stamp.cancel();
        }
    });
    stamp.process();
    ASSERT_TRUE(finished(stamp));
    EXPECT_EQ(stamp.statusMessage(), "Stopped by user");
    EXPECT_FALSE(stamp.isProcessing());
    EXPECT_EQ(f.outputCount(), 0u);
}

}  // namespace
}  // namespace norvane

namespace norvane {
namespace {

QVariantMap rowNamed(const StampWorkflow& stamp, const QString& name) {
    for (const QVariant& row : stamp.files()) {
        if (row.toMap().value("fileName").toString() == name) {
            return row.toMap();
        }
    }
    return {};
}

// A two-track recording with LTC on its second track and nothing in its name
// that says so, beside a stem.
void writeTakeWithLTCOnTrack2(const fs::path& folder) {
    LTCRecordingOptions take;
    take.rate = fps25();
    take.start = Timecode{10, 0, 0, 0, false};
    take.seconds = 3;
    take.channels = 2;
    take.ltcChannel = 2;
    fs::create_directories(folder);
    writeLTCRecording(folder / "T01_mix.wav", take, true);
    writeStem(folder / "T01_boom.wav", 3);
}

TEST(StampWorkflowTest, TheSignalNotTheNameChoosesTheLTCAndTheTableShowsTheResults) {
    Fixture f;
    StampWorkflow stamp(*f.store, f.token);
    writeTakeWithLTCOnTrack2(f.dir / "in");
    ingested(stamp, {q(f.dir / "in")});
    EXPECT_EQ(rowNamed(stamp, "T01_mix.wav").value("ltcProbe"), "probing");
    ASSERT_TRUE(testing::waitUntil([&] { return !stamp.isProbing(); }));

    const QVariantMap mix = rowNamed(stamp, "T01_mix.wav");
    EXPECT_EQ(mix.value("ltcProbe"), "found");
    EXPECT_EQ(mix.value("ltcChannel"), 2);
    EXPECT_EQ(rowNamed(stamp, "T01_boom.wav").value("ltcProbe"), "none");
    EXPECT_EQ(stamp.selectedLTCFile(), q(f.dir / "in" / "T01_mix.wav"));
    // The health of the LTC source before anything is stamped.
    ASSERT_TRUE(testing::waitUntil([&] { return !stamp.ltcHealth().isEmpty(); }));
    EXPECT_EQ(stamp.ltcHealth().value("stretches").toList().size(), 3);  // one a second
    for (const QVariant& stretch : stamp.ltcHealth().value("stretches").toList()) {
        EXPECT_EQ(stretch.toMap().value("level").toString(), "green");
    }
    // The recording on the day ruler at its probed start (the stem has no
    // code of its own until it is stamped).
    ASSERT_EQ(stamp.dayRuler().size(), 1);
    EXPECT_NEAR(stamp.dayRuler().front().toMap().value("startSeconds").toDouble(), 36000, 0.05);

    stamp.setFrameRatePreset("25");
    stamp.process();
    ASSERT_TRUE(finished(stamp));
    ASSERT_EQ(stamp.statusMessage(), "Success") << stamp.reportText().toStdString();
    // The recording carries its own LTC, so it is stamped like the stem.
    for (const char* name : {"T01_mix.wav", "T01_boom.wav"}) {
        const QVariantMap row = rowNamed(stamp, name);
        EXPECT_EQ(row.value("startTimecode"), "10:00:00:00 @ 25") << name;
        EXPECT_EQ(row.value("status"), "ok") << name;
    }
    EXPECT_EQ(bextTimeReference(f.output / "T01_mix_tc.wav"), 10u * 90000u * 1920u);
    ASSERT_EQ(stamp.dayRuler().size(), 2);
    EXPECT_EQ(stamp.dayRuler().front().toMap().value("status"), "ok");

    // A new run starts from a clean table; Clear leaves no progress behind.
    fs::create_directories(f.dir / "elsewhere");
    stamp.setOutputFolder(q(f.dir / "elsewhere"));
    stamp.process();
    EXPECT_FALSE(rowNamed(stamp, "T01_mix.wav").contains("status"));
    ASSERT_TRUE(finished(stamp));
    stamp.clearFiles();
    EXPECT_EQ(stamp.progressPercent(), 0.0);
    EXPECT_EQ(stamp.progressMessage(), "");
    EXPECT_TRUE(stamp.dayRuler().isEmpty());
}

TEST(StampWorkflowTest, AMissingOutputFolderIsCreatedOnlyWhenAsked) {
    Fixture f;
    StampWorkflow stamp(*f.store, f.token);
    writeLTC(f.dir / "in" / "A_ltc.wav", 2);
    writeStem(f.dir / "in" / "A_stem.wav", 2);
    ingested(stamp, {q(f.dir / "in")});
    stamp.setFrameRatePreset("25");
    const fs::path typed = f.dir / "typed" / "deeper";
    stamp.setOutputFolder(q(typed));
    EXPECT_FALSE(stamp.outputFolderExists());

    // Nothing starts and nothing claims progress.
    stamp.process();
    EXPECT_FALSE(stamp.isProcessing());
    EXPECT_EQ(stamp.statusMessage(), "The output folder does not exist: " + q(typed));
    EXPECT_EQ(stamp.progressPercent(), 0.0);
    EXPECT_FALSE(fs::exists(typed));

    ASSERT_TRUE(stamp.createOutputFolder());
    stamp.process();
    ASSERT_TRUE(finished(stamp));
    EXPECT_EQ(stamp.statusMessage(), "Success") << stamp.reportText().toStdString();
    EXPECT_TRUE(fs::exists(typed / "A_stem_tc.wav"));

    // Taking the stem off the list leaves the LTC file.
    stamp.removeFiles({q(f.dir / "in" / "A_stem.wav")});
    ASSERT_EQ(stamp.files().size(), 1);
    EXPECT_EQ(stamp.files().front().toMap().value("fileName"), "A_ltc.wav");
}

TEST(StampWorkflowTest, OutputsDefaultBesideTheSourcesAndTheLastFolderIsRemembered) {
    TempDir dir;
    testing::writeSettingsFile(dir / "settings.json", "{}");  // the home folder by default
    writeLTC(dir / "day1" / "A_ltc.wav", 2);
    writeStem(dir / "day1" / "A_stem.wav", 2);
    {
        AppViewModel app(dir / "settings.json");
        StampWorkflow& stamp = *app.stamp();
        ingested(stamp, {q(dir / "day1")});
        EXPECT_EQ(stamp.outputFolder(), q(dir / "day1" / "Stamped"));
        stamp.setFrameRatePreset("25");
        ASSERT_TRUE(stamp.createOutputFolder());
        stamp.process();
        ASSERT_TRUE(finished(stamp));
        ASSERT_EQ(stamp.statusMessage(), "Success") << stamp.reportText().toStdString();
    }
    // The next launch starts in the folder the last run wrote to.
    AppViewModel again(dir / "settings.json");
    EXPECT_EQ(again.stamp()->outputFolder(), q(dir / "day1" / "Stamped"));
    ingested(*again.stamp(), {q(dir / "day1" / "A_stem.wav")});
    EXPECT_EQ(again.stamp()->outputFolder(), q(dir / "day1" / "Stamped"));
}

}  // namespace
}  // namespace norvane
