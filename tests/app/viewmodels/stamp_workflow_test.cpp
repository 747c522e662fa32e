#include "app/viewmodels/stamp_workflow.h"

#include "app/viewmodels/app_view_model.h"

#include <gtest/gtest.h>

#include "core/timecode/ltc_encoder.h"
#include "tests/app/viewmodels/viewmodel_test_support.h"
#include "tests/core/stamp/stamp_fixtures.h"
#include "tests/support/test_support.h"
#include "tests/support/wav_builder.h"

namespace norvane {
namespace {

namespace fs = std::filesystem;
using testing::q;
using testing::TempDir;

// 25 fps LTC from `start` on one channel (of `channels`).
fs::path writeLTC(const fs::path& path, double seconds, const Timecode& start = {1, 0, 0, 0, false},
                  int channels = 1, int ltcChannel = 1) {
    fs::create_directories(path.parent_path());
    return testing::writeLTCFile(path, FrameRatePreset::fps25, start, 0, seconds, channels,
                                 ltcChannel);
}

fs::path writeStem(const fs::path& path, double seconds, int channels = 2) {
    fs::create_directories(path.parent_path());
    return testing::writeStem(path, seconds, channels);
}

// Two channels of clean 25 fps LTC, each its own program of (sample, start) pieces.
void writeTwoLTCChannels(const fs::path& path, std::int64_t samples,
                         const std::vector<LTCProgramSegment>& first,
                         const std::vector<LTCProgramSegment>& second) {
    LTCEncoderOptions encoder;
    encoder.rate = testing::rateOf(FrameRatePreset::fps25);
    std::vector<std::vector<float>> channels;
    for (const auto& segments : {first, second}) {
        channels.push_back(encodeLTCProgram(LTCProgram{0, samples, segments}, encoder));
    }
    fs::create_directories(path.parent_path());
    testing::writeBytes(path, testing::makePcm16(48000, channels));
}

// A stand-in for the LTC decode before writing: 25 fps at `confidence`,
// counting its calls in `calls`.
auto precheckAt(double confidence, int* calls = nullptr) {
    return [=](const std::vector<ProcessingJob>&, const ProcessingOptions&) {
        if (calls != nullptr) {
            ++*calls;
        }
        LTCPrecheck precheck;
        precheck.detectedRates = {testing::rateOf(FrameRatePreset::fps25)};
        precheck.lowestConfidence = confidence;
        return precheck;
    };
}

struct Fixture {
    TempDir dir;
    fs::path in = dir / "in";
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
    // An LTC file and a stem of two seconds: the smallest stamp run.
    void writeTake(const std::string& take) const {
        writeLTC(in / (take + "_ltc.wav"), 2);
        writeStem(in / (take + "_stem.wav"), 2);
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

QVariantMap rowNamed(const StampWorkflow& stamp, const QString& name) {
    for (const QVariant& row : stamp.files()) {
        if (row.toMap().value("fileName").toString() == name) {
            return row.toMap();
        }
    }
    return {};
}

TEST(StampWorkflowTest, StartsFromTheSettingsAndIngestsWhatItCanUse) {
    Fixture f(R"({"settings.defaultFrameRatePreset": "31.5",
                  "settings.defaultGroupingMethod": "Token"})");
    StampWorkflow stamp(*f.store, f.token);
    EXPECT_EQ(stamp.frameRatePreset(), "Auto");
    EXPECT_EQ(stamp.groupingMethod(), "Token");
    EXPECT_EQ(stamp.outputFolder(), q(f.output));

    testing::writeBytes(f.dir / "notes.txt", ByteBuffer{'x'});
    ingested(stamp, {q(f.dir / "notes.txt")});
    EXPECT_EQ(stamp.statusMessage(), "No WAV files found in dropped items.");
    fs::create_directories(f.dir / "bad");
    testing::writeBytes(f.dir / "bad" / "junk.wav", ByteBuffer(64, 'j'));
    ingested(stamp, {q(f.dir / "bad")});
    EXPECT_EQ(stamp.statusMessage(),
              "No readable WAV files found. Some files may be truncated or invalid.");
    EXPECT_TRUE(stamp.files().isEmpty());
    EXPECT_EQ(stamp.ignoredFiles().size(), 1);

    writeLTC(f.in / "day1_LTC.wav", 1);
    writeStem(f.in / "day1_mix.wav", 1);
    ingested(stamp, {q(f.in)});
    EXPECT_EQ(stamp.statusMessage(), "Loaded 2 WAV file(s).");
    ingested(stamp, {q(f.in)});  // the same folder again adds nothing
    ASSERT_EQ(stamp.files().size(), 2);
    EXPECT_EQ(stamp.files()[0].toMap().value("fileName"), "day1_LTC.wav");  // browser order
    // The file named as the LTC carrier is selected.
    EXPECT_EQ(stamp.selectedLTCFile(), q(f.in / "day1_LTC.wav"));
    const QVariantMap mix = rowNamed(stamp, "day1_mix.wav");
    EXPECT_EQ(mix.value("format").toString(), "48000 Hz, 2 ch, 24-bit PCM");
    EXPECT_FALSE(mix.value("isLTC").toBool());

    // Ingest returns at once: nothing is listed yet, a run waits, a second
    // drop queues behind the first.
    stamp.clearFiles();
    writeStem(f.dir / "more" / "B_stem.wav", 1);
    stamp.ingest({q(f.in)});
    EXPECT_TRUE(stamp.isIngesting());
    EXPECT_TRUE(stamp.files().isEmpty());
    stamp.process();
    EXPECT_FALSE(stamp.isProcessing());
    EXPECT_EQ(stamp.statusMessage(), "Still reading the dropped files; try again in a moment.");
    ingested(stamp, {q(f.dir / "more")});
    EXPECT_EQ(stamp.files().size(), 3);
    EXPECT_EQ(stamp.statusMessage(), "Loaded 1 WAV file(s).");  // the second drop
    EXPECT_EQ(f.outputCount(), 0u);
}

TEST(StampWorkflowTest, SingleRunStampsThenAsksBeforeReplacing) {
    Fixture f;
    StampWorkflow stamp(*f.store, f.token);
    f.writeTake("A");
    ingested(stamp, {q(f.in)});
    stamp.setFrameRatePreset("25");
    int prechecks = 0;
    stamp.setLTCPrecheckForTesting(precheckAt(1.0, &prechecks));

    stamp.process();
    EXPECT_TRUE(stamp.isProcessing());
    EXPECT_EQ(stamp.statusMessage(), "Processing...");
    ASSERT_TRUE(finished(stamp));
    EXPECT_EQ(stamp.statusMessage(), "Success") << stamp.reportText().toStdString();
    EXPECT_EQ(stamp.progressPercent(), 1.0);
    EXPECT_TRUE(fs::exists(f.output / "A_stem_tc.wav"));

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
}

TEST(StampWorkflowTest, LowConfidenceAsksUnlessConfirmedOrAlwaysProceed) {
    for (const bool alwaysProceed : {false, true}) {
        Fixture f(alwaysProceed ? R"({"settings.lowConfidenceBehavior": "Always Proceed"})" : "{}");
        StampWorkflow stamp(*f.store, f.token);
        stamp.setLTCPrecheckForTesting(precheckAt(0.42));
        f.writeTake("C");
        ingested(stamp, {q(f.in)});
        stamp.setFrameRatePreset("25");
        stamp.process();
        ASSERT_TRUE(finished(stamp));
        if (!alwaysProceed) {
            EXPECT_EQ(stamp.statusMessage(), "Confirmation required");
            EXPECT_TRUE(stamp.pendingLowConfidence());
            EXPECT_EQ(stamp.reportText(),
                      "LTC decoding confidence is low (42%). Confirm before stamping.");
            EXPECT_EQ(f.outputCount(), 0u);
            stamp.process(true);  // the user confirmed
            ASSERT_TRUE(finished(stamp));
        }
        EXPECT_EQ(stamp.statusMessage(), "Success") << alwaysProceed;
        EXPECT_FALSE(stamp.pendingLowConfidence());
        EXPECT_TRUE(fs::exists(f.output / "C_stem_tc.wav"));
    }
}

TEST(StampWorkflowTest, GroupingPreviewFollowsTheChoices) {
    Fixture f;
    StampWorkflow stamp(*f.store, f.token);
    writeLTC(f.in / "A001-SC1-ltc.wav", 1, {1, 0, 0, 0, false}, 2);
    writeStem(f.in / "A001-SC1-T1.wav", 1, 4);
    writeStem(f.in / "A001-SC2-T1.wav", 1, 2);
    ingested(stamp, {q(f.in)});
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

// Groups are named by the take their files share and listed by it, T2 before
// T10; their files are decoded off the main thread, and the name decides when
// none carries code; without decodable LTC an Auto grouped run stops before
// writing.
TEST(StampWorkflowTest, GroupsAreNamedByTheirTakeAndAutoNeedsDecodableLTC) {
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
    // 3 s, 1 s, 2 s).
    Fixture f;
    StampWorkflow stamp(*f.store, f.token);
    const std::pair<const char*, double> takes[] = {{"T10", 1}, {"T2", 2}, {"T03", 3}};
    for (const auto& [take, seconds] : takes) {
        writeStem(f.in / (std::string(take) + "_boom.wav"), seconds, 1);
        writeStem(f.in / (std::string(take) + "_ltc.wav"), seconds, 1);
    }
    ingested(stamp, {q(f.in)});
    stamp.setMode("Grouped Batch");
    ASSERT_EQ(stamp.groupingMethod(), "Duration Exact");
    QStringList shown;
    for (const QString& id : stamp.groupIDs()) {
        shown.append(stamp.groupNamesByID().value(id).toString());
    }
    EXPECT_EQ(shown, QStringList({"T2", "T03", "T10"}));
    EXPECT_EQ(stamp.groupPreviewRows()[0].toStdString(),
              "T2 | Files: 2 | LTC file: decoding… | LTC Audio CH: auto");
    EXPECT_TRUE(testing::waitUntil([&] {
        return stamp.groupPreviewRows()[0] ==
               "T2 | Files: 2 | LTC file: T2_ltc.wav | LTC Audio CH: auto";
    })) << stamp.groupPreviewRows()[0].toStdString();

    stamp.process();
    ASSERT_TRUE(finished(stamp));
    EXPECT_TRUE(
        stamp.statusMessage().startsWith("Auto frame-rate pre-check failed in Grouped mode: "))
        << stamp.statusMessage().toStdString();
    EXPECT_EQ(f.outputCount(), 0u);  // not even a CSV log
}

// Channel 1 jumps from 03:00:00:00 to 04:00:00:00 at 2 s; channel 2 runs on
// from 01:00:00:00. The analysis and the cut run follow the picked channel.
TEST(StampWorkflowTest, CutAnalysisAndCutRunsReadThePickedLTCChannel) {
    Fixture f;
    StampWorkflow stamp(*f.store, f.token);
    writeTwoLTCChannels(f.in / "roll_ltc.wav", 4 * 48000,
                        {{0, {3, 0, 0, 0, false}}, {2 * 48000, {4, 0, 0, 0, false}}},
                        {{0, {1, 0, 0, 0, false}}});
    writeStem(f.in / "roll_mix.wav", 4);
    ingested(stamp, {q(f.in)});
    stamp.setMode("LTC Cut Detect");
    stamp.setFrameRatePreset("25");
    EXPECT_EQ(stamp.selectedLTCChannelCount(), 2);
    EXPECT_EQ(stamp.ltcChannelChoice(), 0);  // the engine's pick unless the user chooses
    stamp.setLTCChannelChoice(1);
    stamp.analyzeCuts();
    EXPECT_TRUE(stamp.isAnalyzingCuts());
    EXPECT_EQ(stamp.statusMessage(), "Analyzing LTC cuts...");
    ASSERT_TRUE(finished(stamp));
    EXPECT_EQ(stamp.statusMessage(), "Cut analysis complete");
    const QStringList rows = stamp.segmentPreviewRows();
    ASSERT_EQ(rows.size(), 2) << stamp.statusMessage().toStdString();
    EXPECT_TRUE(rows[0].contains("TC 03:00:00:00")) << rows[0].toStdString();
    EXPECT_TRUE(rows[1].startsWith("Segment 002") && rows[1].contains("TC 04:00:00:0"))
        << rows[1].toStdString();
    EXPECT_EQ(stamp.cutSegments().size(), 2);
    EXPECT_FALSE(stamp.cutTimelinePoints().isEmpty());

    stamp.setLTCChannelChoice(2);
    stamp.analyzeCuts();
    ASSERT_TRUE(finished(stamp));
    ASSERT_EQ(stamp.segmentPreviewRows().size(), 1) << stamp.statusMessage().toStdString();
    EXPECT_TRUE(stamp.segmentPreviewRows()[0].contains("TC 01:00:00:00"));
    stamp.process();
    ASSERT_TRUE(finished(stamp));
    EXPECT_EQ(stamp.statusMessage(), "Success") << stamp.reportText().toStdString();
    EXPECT_EQ(testing::sndfileTimeReference(f.output / "roll_mix_seg001_tc.wav"), 90000u * 1920u);
    EXPECT_FALSE(fs::exists(f.output / "roll_mix_seg002_tc.wav"));
    // A channel the file does not have, or clearing the list, means Auto again.
    stamp.setLTCChannelChoice(3);
    EXPECT_EQ(stamp.ltcChannelChoice(), 0);
    stamp.setLTCChannelChoice(2);
    stamp.clearFiles();
    EXPECT_EQ(stamp.selectedLTCChannelCount(), 0);
    EXPECT_EQ(stamp.ltcChannelChoice(), 0);
}

// Cancel at the first scan report, of the analysis and of a cut run: the
// state is reset, nothing is previewed and nothing written.
TEST(StampWorkflowTest, CancelStopsARunningAnalysisAndARunningProcess) {
    Fixture f;
    StampWorkflow stamp(*f.store, f.token);
    writeLTC(f.in / "long_ltc.wav", 120);
    writeStem(f.in / "long_mix.wav", 1);
    ingested(stamp, {q(f.in)});
    stamp.setMode("LTC Cut Detect");
    stamp.setFrameRatePreset("25");
    QObject::connect(&stamp, &StampWorkflow::progressMessageChanged, &stamp, [&] {
        if (stamp.progressMessage().contains("Scanning LTC timeline...")) {
            stamp.cancel();
        }
    });
    stamp.analyzeCuts();
    ASSERT_TRUE(finished(stamp));
    EXPECT_EQ(stamp.statusMessage(), "Stopped by user");
    EXPECT_TRUE(stamp.segmentPreviewRows().isEmpty());

    stamp.process();
    ASSERT_TRUE(finished(stamp));
    EXPECT_EQ(stamp.statusMessage(), "Stopped by user");
    EXPECT_FALSE(stamp.isProcessing());
    EXPECT_EQ(f.outputCount(), 0u);
}

// A two-track recording with LTC on its second track and nothing in its name
// that says so, beside a stem: the probe finds it and the table shows the run.
TEST(StampWorkflowTest, TheSignalNotTheNameChoosesTheLTCAndTheTableShowsTheResults) {
    Fixture f;
    StampWorkflow stamp(*f.store, f.token);
    writeLTC(f.in / "T01_mix.wav", 3, {10, 0, 0, 0, false}, 2, 2);
    writeStem(f.in / "T01_boom.wav", 3);
    ingested(stamp, {q(f.in)});
    EXPECT_EQ(rowNamed(stamp, "T01_mix.wav").value("ltcProbe"), "probing");
    ASSERT_TRUE(testing::waitUntil([&] { return !stamp.isProbing(); }));
    const QVariantMap mix = rowNamed(stamp, "T01_mix.wav");
    EXPECT_EQ(mix.value("ltcProbe"), "found");
    EXPECT_EQ(mix.value("ltcChannel"), 2);
    EXPECT_EQ(rowNamed(stamp, "T01_boom.wav").value("ltcProbe"), "none");
    EXPECT_EQ(stamp.selectedLTCFile(), q(f.in / "T01_mix.wav"));
    // The health of the LTC source before anything is stamped.
    ASSERT_TRUE(testing::waitUntil([&] { return !stamp.ltcHealth().isEmpty(); }));
    EXPECT_EQ(stamp.ltcHealth().value("channel"), 2);
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

// With the home folder as the default, outputs go beside the sources; the
// next launch starts in the folder the last run wrote to. Auto reports the
// rate it found before processing.
TEST(StampWorkflowTest, OutputsDefaultBesideTheSourcesAndTheLastFolderIsRemembered) {
    TempDir dir;
    testing::writeSettingsFile(dir / "settings.json", "{}");
    writeLTC(dir / "day1" / "A_ltc.wav", 2);
    writeStem(dir / "day1" / "A_stem.wav", 2);
    const QString beside = q(dir / "day1" / "Stamped");
    {
        AppViewModel app(dir / "settings.json");
        StampWorkflow& stamp = *app.stamp();
        ingested(stamp, {q(dir / "day1")});
        EXPECT_EQ(stamp.outputFolder(), beside);
        ASSERT_EQ(stamp.frameRatePreset(), "Auto");
        ASSERT_TRUE(stamp.createOutputFolder());
        stamp.process();
        ASSERT_TRUE(finished(stamp));
        ASSERT_EQ(stamp.statusMessage(), "Success") << stamp.reportText().toStdString();
        EXPECT_TRUE(testing::withoutTimestamps(stamp.logLines())
                        .contains("[info] Auto frame-rate detected: 25 fps"));
    }
    AppViewModel again(dir / "settings.json");
    EXPECT_EQ(again.stamp()->outputFolder(), beside);
    ingested(*again.stamp(), {q(dir / "day1" / "A_stem.wav")});
    EXPECT_EQ(again.stamp()->outputFolder(), beside);
}

}  // namespace
}  // namespace norvane
