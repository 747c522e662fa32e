#include "core/rebuild/rebuild_engine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/rebuild/demo_timeline.h"
#include "core/rebuild/xml_tree.h"
#include "tests/core/rebuild/rebuild_fixtures.h"

namespace norvane {
namespace {

using ::testing::ElementsAre;
using testing::TempDir;
using testing::texts;

TimelineRebuildDetectedAudioInput row(std::int64_t event, const std::string& key,
                                      const std::string& timecode = "01:00:00:00") {
    TimelineRebuildDetectedAudioInput r;
    r.name = "f";
    r.eventOrder = event;
    r.trackKey = key;
    r.eventTimecode = timecode;
    r.trackProvenance = TimelineTrackProvenance::explicit_;
    r.timecodeProvenance = TimelineTimecodeProvenance::bwf;
    r.durationSeconds = 1;
    return r;
}

ResolveRebuildAnalysis oneLane() {
    ResolveRebuildAnalysis analysis;
    analysis.videoLanes.push_back({1, "V1", 1});
    return analysis;
}

TEST(RebuildInputs, FileNameRule) {
    EXPECT_EQ(normalizedOutputFilename("cut"), "cut.fcpxml");
    EXPECT_EQ(normalizedOutputFilename("  Cut.FCPXML \n"), "Cut.FCPXML");
    EXPECT_EQ(normalizedOutputFilename("cut.xml"), "cut.xml.fcpxml");
    for (const char* bad : {"../x", "a/b", "a\\b", ".", "..", "   ", "", "\t\n"}) {
        EXPECT_EQ(normalizedOutputFilename(bad), std::nullopt) << bad;
    }
}

TEST(RebuildValidation, FileChecksInOrderWithCounts) {
    std::vector<TimelineRebuildDetectedAudioInput> rows = {
        row(1, "Trk1"), row(2, "Trk1", "UNRESOLVED"), row(12, "Trk1", "1:00:00:00"), row(3, "Trk1"),
        row(3, "Trk1"), row(kNoEventIndex, "Trk1")};
    rows[1].timecodeProvenance = TimelineTimecodeProvenance::unresolved;
    rows[3].usedFallback = true;
    rows[3].timecodeProvenance = TimelineTimecodeProvenance::filename;
    rows[4].trackProvenance = TimelineTrackProvenance::implicit;
    ResolveRebuildAnalysis analysis;  // no video lane
    analysis.issues.push_back({ResolveRebuildIssueSeverity::info, "Track Trk2 missing."});
    EXPECT_THAT(
        texts(validationItems(rows, analysis, TimecodeSourcePriority::inputXMLOnly)),
        ElementsAre("Error: 2 synced clips have unparseable or missing event timecode.",
                    "Error: 1 synced clips are missing an incremental event index in filename.",
                    "Error: Broken incremental event sequence. Missing indices: 4, 5, 6, 7, 8, 9, "
                    "10, 11.",
                    "Error: 1 event+track duplicates found; each event/track pair must be unique.",
                    "Warning: 1 clips used filename fallback for event timecode.",
                    "Warning: 1 clips used filename-derived event timecode.",
                    "Warning: 1 clips used implicit track mapping from sorted file order.",
                    "Error: No camera/video sources detected in the source timeline XML.",
                    "Warning: Input XML only mode provides no synced WAV event timecodes in this "
                    "release; validation may fail unless filenames include parseable TC.",
                    "Info: Track Trk2 missing."));
}

// The findings over `rows` with one video lane and the analysis' issues.
std::vector<std::string> findings(const std::vector<TimelineRebuildDetectedAudioInput>& rows,
                                  const ResolveRebuildAnalysis& analysis = oneLane()) {
    return texts(validationItems(rows, analysis, TimecodeSourcePriority::bwfIXMLThenFilename));
}

TEST(RebuildValidation, MissingIndicesAndWhenValidationPasses) {
    EXPECT_THAT(findings({row(1, "Trk1"), row(2, "Trk1"), row(12, "Trk1")}),
                ElementsAre("Error: Broken incremental event sequence. Missing indices: 3, 4, 5, "
                            "6, 7, 8, 9, 10...."));
    // A huge gap is described without walking it.
    EXPECT_THAT(findings({row(1, "Trk1"), row(9000000000000000000, "Trk1")})[0],
                ::testing::EndsWith("2, 3, 4, 5, 6, 7, 8, 9...."));
    const auto twoEvents = std::vector{row(1, "Trk1"), row(2, "Trk1")};
    EXPECT_THAT(findings(twoEvents), ElementsAre("Info: Validation passed with no issues."));
    ResolveRebuildAnalysis analysis = oneLane();
    analysis.issues.push_back({ResolveRebuildIssueSeverity::warning, "Camera gap."});
    EXPECT_THAT(findings(twoEvents, analysis),
                ElementsAre("Warning: Camera gap.", "Info: Validation passed with no issues."));
    // An Error of the analysis blocks the build: no pass beside it; nor
    // beside one finding over the files.
    analysis.issues.push_back({ResolveRebuildIssueSeverity::error, "Unparseable."});
    EXPECT_THAT(findings(twoEvents, analysis),
                ElementsAre("Warning: Camera gap.", "Error: Unparseable."));
    auto implicit = std::vector{row(1, "Trk1")};
    implicit[0].trackProvenance = TimelineTrackProvenance::implicit;
    EXPECT_THAT(findings(implicit, analysis),
                ElementsAre("Warning: 1 clips used implicit track mapping from sorted file order.",
                            "Warning: Camera gap.", "Error: Unparseable."));
}

TEST(RebuildValidation, DurationBoundaryAndTolerance) {
    FrameRateConfig pal = *frameRateConfig(FrameRatePreset::fps25);
    auto rows = std::vector{row(1, "Trk1"), row(1, "Trk2"), row(2, "Trk1")};
    rows[0].durationSeconds = 60.0;
    rows[1].durationSeconds = 60.040;  // the longest file of event 1 counts
    rows[2].durationSeconds = 60.0;
    DurationBoundary inside = durationBoundary(120.0, rows, pal);
    EXPECT_EQ(inside.message,
              "Duration boundary: stereo 120.000s, rebuilt 120.040s, delta -0.040s (tolerance "
              "0.050s).");
    EXPECT_EQ(inside.severity, TimelineValidationSeverity::info);
    rows[1].durationSeconds = 60.060;
    EXPECT_EQ(durationBoundary(120.0, rows, pal).severity, TimelineValidationSeverity::warning);
    EXPECT_EQ(durationBoundary(121.0, rows, pal).message,
              "Duration boundary: stereo 121.000s, rebuilt 120.060s, delta +0.940s (tolerance "
              "0.050s).");
    FrameRateConfig slow = pal;  // one frame is longer than 50 ms
    slow.numerator = 10;
    EXPECT_DOUBLE_EQ(durationBoundary(0, {}, slow).toleranceSeconds, 0.1);
}

// A whole rebuild from files on disk: a two-camera source, a stereo mix and
// synced WAVs stamped with bext time references.
class RebuildRunTest : public ::testing::Test {
  protected:
    void SetUp() override {
        DemoTimelineSpec recipe;
        recipe.lanes = {{"CamA", {{"01:00:00:00", RationalTime::seconds(120)}}},
                        {"CamB", {{"01:00:00:00", RationalTime::seconds(30)}}}};
        testing::writeText(dir / "source.fcpxml", makeDemoSourceTimeline(recipe));
        std::filesystem::create_directory(dir / "synced");
        std::filesystem::create_directory(dir / "out");
        const std::uint64_t samplesPerFrame = 48000 / 25;
        testing::writeSyncedWav(dir / "synced" / "evt1_trk1.wav",
                                {96000, 48000, 1, 3610ull * 48000, {}});
        testing::writeSyncedWav(dir / "synced" / "evt1_trk2.wav",
                                {72000, 48000, 2, 3610ull * 48000, {}});
        testing::writeSyncedWav(dir / "synced" / "evt2_trk1.wav",
                                {48960, 48000, 1, (3660ull * 25 + 12) * samplesPerFrame, {}});
        testing::writeSyncedWav(dir / "mix.wav", {144960, 48000, 2, {}, {}});
        inputs.sourceXML = dir / "source.fcpxml";
        inputs.stereoMix = dir / "mix.wav";
        inputs.syncedFolder = dir / "synced";
        inputs.outputFolder = dir / "out";
        inputs.outputFilename = "rebuilt";
    }

    TempDir dir;
    RebuildInputs inputs;
};

TEST_F(RebuildRunTest, BuildsAndWritesAValidTimelineWithExactPlacement) {
    std::vector<std::string> phases;
    RebuildHooks hooks;
    hooks.progress = [&](const std::string& phase, double) { phases.push_back(phase); };
    RebuildBuildRun run = buildRebuild(inputs, {}, hooks);
    ASSERT_EQ(run.outcome, RebuildBuildOutcome::written) << run.statusMessage;
    EXPECT_THAT(texts(run.validation.items),
                ElementsAre("Warning: Missing camera clip for lane V2 at event 2 (01:01:00:12); "
                            "emitting lane gap.",
                            "Info: Track Trk2 missing at event 2; emitting lane gap.",
                            // The files themselves are clean: the analysis findings
                            // do not hide that.
                            "Info: Validation passed with no issues.",
                            "Info: Duration boundary: stereo 3.020s, rebuilt 3.020s, delta "
                            "+0.000s (tolerance 0.050s)."));
    EXPECT_EQ(run.validation.detectedAudioInputs[0].timecodeProvenance,
              TimelineTimecodeProvenance::bwf);

    const auto path = dir / "out" / "rebuilt.fcpxml";
    EXPECT_EQ(testing::readText(path), run.xml);
    EXPECT_EQ(testing::dtdProblems(run.xml), "");

    // Placement inside the document is the generator's test; here, the events
    // stand at the times the files' bext references give.
    auto root = parseXMLTree(run.xml);
    const auto& gaps = root->findDescendant("spine")->children;
    ASSERT_EQ(gaps.size(), 2u);
    EXPECT_EQ(gaps[0]->attr("start"), "3610/1s");
    EXPECT_EQ(gaps[1]->attr("start"), "91512/25s");  // 01:01:00:12
    EXPECT_EQ(gaps[1]->attr("duration"), "26/25s");  // 1.02 s rounds up to 26 frames
    EXPECT_EQ(run.stats.eventsProcessed, 2);
    EXPECT_EQ(run.stats.cameraMatches, 3);
    EXPECT_EQ(run.stats.gapsInserted, 2);
    ASSERT_TRUE(run.report);
    EXPECT_EQ(run.report->outputXMLURL, path);
    EXPECT_DOUBLE_EQ(run.report->sequenceDurationSeconds, 3.04);
    EXPECT_THAT(run.report->fcpxmlValidationSummary,
                ::testing::StartsWith("Generated FCPXML valid ("));
    EXPECT_THAT(run.report->trackLayoutSummary, ::testing::HasSubstr(", A1 stereo mix, A2+"));
    EXPECT_EQ(run.report->durationBoundarySummary, run.validation.duration.message);
    EXPECT_THAT(phases, ElementsAre("Parse inputs", "Match camera stacks", "Validate FCPXML",
                                    "Write output", "Write output"));

    // A rebuild is re-run often: the file is replaced.
    testing::writeSyncedWav(dir / "synced" / "evt2_trk2.wav",
                            {48960, 48000, 1, (3660ull * 25 + 12) * 1920, {}});
    RebuildBuildRun again = buildRebuild(inputs, {});
    ASSERT_EQ(again.outcome, RebuildBuildOutcome::written);
    EXPECT_EQ(testing::readText(path), again.xml);
}

TEST_F(RebuildRunTest, ValidationErrorsBlockTheBuildAndWriteNothing) {
    testing::writeSyncedWav(dir / "synced" / "evt1_copy_trk1.wav",
                            {48000, 48000, 1, 3610ull * 48000, {}});
    RebuildChoices choices;
    choices.missingCameraBehavior = MissingCameraBehavior::failExport;
    RebuildBuildRun run = buildRebuild(inputs, choices);
    EXPECT_EQ(run.outcome, RebuildBuildOutcome::blockedByValidation);
    EXPECT_EQ(run.statusMessage, "Build blocked by validation errors.");
    EXPECT_TRUE(run.xml.empty());
    EXPECT_THAT(texts(run.validation.items),
                ::testing::IsSupersetOf(
                    {"Error: 1 event+track duplicates found; each event/track pair must be unique.",
                     "Error: Missing camera clip for lane V2 at event 2 (01:01:00:12); failing "
                     "export."}));
    EXPECT_TRUE(std::filesystem::is_empty(dir / "out"));
}

TEST_F(RebuildRunTest, AGeneratedDocumentThatFailsItsCheckSaysWhy) {
    // An empty stereo mix gives an asset of no length: the document's own
    // check refuses it, and the reason is among the findings shown.
    testing::writeSyncedWav(dir / "mix.wav", {0, 48000, 2, {}, {}});
    RebuildBuildRun run = buildRebuild(inputs, {});
    EXPECT_EQ(run.outcome, RebuildBuildOutcome::blockedByGeneratedValidation);
    EXPECT_EQ(run.statusMessage, "Build blocked by generated FCPXML validation errors.");
    EXPECT_FALSE(run.validation.hasErrors());
    auto shown = texts(run.shownItems());
    EXPECT_THAT(shown, ::testing::Contains("Error: Generated FCPXML contains invalid durations: "
                                           "asset duration=0/1s."));
    EXPECT_THAT(shown,
                ::testing::Not(::testing::Contains("Info: Validation passed with no issues.")));
    EXPECT_TRUE(std::filesystem::is_empty(dir / "out"));
}

TEST_F(RebuildRunTest, CancellationAndUnreadableSourcesStopBeforeWriting) {
    RebuildHooks cancel;
    cancel.isCancelled = [] { return true; };
    EXPECT_THAT([&] { buildRebuild(inputs, {}, cancel); },
                ::testing::ThrowsMessage<RebuildError>("Rebuild cancelled."));
    testing::writeText(dir / "source.fcpxml", "<fcpxml><resources/></fcpxml>");
    EXPECT_THAT([&] { validateRebuild(inputs, {}); },
                ::testing::ThrowsMessage<SourceTimelineError>(
                    "Source XML missing resources/sequence/spine."));
    EXPECT_TRUE(std::filesystem::is_empty(dir / "out"));
}

}  // namespace
}  // namespace norvane
