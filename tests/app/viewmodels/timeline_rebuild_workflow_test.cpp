#include "app/viewmodels/timeline_rebuild_workflow.h"

#include <gtest/gtest.h>

#include <functional>
#include <tuple>

#include "core/rebuild/demo_timeline.h"
#include "tests/app/viewmodels/viewmodel_test_support.h"
#include "tests/core/rebuild/rebuild_fixtures.h"
#include "tests/support/test_support.h"

namespace norvane {
namespace {

namespace fs = std::filesystem;
using testing::q;
using testing::TempDir;

// A synced take whose iXML carries its event timecode.
void writeTake(const fs::path& path, const std::string& timecode, double seconds) {
    testing::writeSyncedWav(path, {static_cast<std::int64_t>(seconds * 48000),
                                   48000,
                                   1,
                                   {},
                                   "<BWFXML><TIMECODE>" + timecode + "</TIMECODE></BWFXML>"});
}

struct Fixture {
    TempDir dir;
    AppSettingsStore store{dir / "settings.json"};
    fs::path source = dir / "source.fcpxml";
    fs::path mix = dir / "mix.wav";
    fs::path synced = dir / "synced";
    fs::path output = dir / "out";

    Fixture() {
        DemoTimelineSpec recipe;
        recipe.lanes = {{"camA", {{"01:00:00:00"}, {"01:00:20:00"}}}};
        testing::writeText(source, makeDemoSourceTimeline(recipe));
        fs::create_directories(synced);
        writeTake(synced / "evt1_trk1.wav", "01:00:00:00", 2);
        writeTake(synced / "evt1_trk2.wav", "01:00:00:00", 2);
        writeTake(synced / "evt2_trk1.wav", "01:00:20:00", 3);
        testing::writeSyncedWav(mix, {5 * 48000, 48000, 2, {}, {}});
        fs::create_directories(output);
    }

    void choose(TimelineRebuildWorkflow& rebuild) const {
        rebuild.setSourceXMLURL(q(source));
        rebuild.setStereoMixURL(q(mix));
        rebuild.setSyncedAudioFolderURL(q(synced));
        rebuild.setOutputFolderURL(q(output));
    }
};

bool idle(const TimelineRebuildWorkflow& rebuild) {
    return testing::waitUntil([&] { return !rebuild.isBusy(); });
}

QStringList itemTexts(const TimelineRebuildWorkflow& rebuild) {
    QStringList messages;
    for (const QVariant& item : rebuild.validationItems()) {
        messages.append(item.toMap().value("severity").toString() + ": " +
                        item.toMap().value("message").toString());
    }
    return messages;
}

TEST(TimelineRebuildWorkflowTest, InputChecksReadinessAndRememberedLocations) {
    Fixture f;
    f.store.setTimelineRebuildDefaultMissingCameraBehavior(MissingCameraBehavior::skipClip);
    f.store.setTimelineRebuildRecentOutputFolderPath((f.dir / "gone").string());
    TimelineRebuildWorkflow rebuild(f.store);
    EXPECT_EQ(rebuild.step(), "inputs");
    EXPECT_EQ(rebuild.statusMessage(), "Add inputs to begin.");
    EXPECT_EQ(rebuild.missingCameraBehavior(), "Skip Clip");
    rebuild.continueToMapping();
    EXPECT_EQ(rebuild.statusMessage(), "Complete required inputs first.");
    // Each input in turn (the file name rule itself is the core's test): the
    // first missing one is named and the readiness list counts the rest.
    const std::tuple<std::function<void()>, QString, int> steps[] = {
        {[] {}, "Source timeline must be XML/FCPXML.", 0},
        {[&] { rebuild.setSourceXMLURL(q(f.dir / "EXPORT.XML")); },  // capitals pass
         "Stereo mix must be a WAV file.", 1},
        {[&] { rebuild.setStereoMixURL(q(f.mix)); }, "Choose a synced audio folder.", 2},
        {[&] { rebuild.setSyncedAudioFolderURL(q(f.synced)); }, "Choose an output folder.", 3},
        {[&] {
             rebuild.setOutputFolderURL(q(f.output));
             rebuild.setOutputFilename("../x");
         },
         "Set a simple FCPXML filename without folders or path traversal.", 3},
        {[&] { rebuild.setOutputFilename("cut"); }, "", 4},
    };
    for (const auto& [step, message, ready] : steps) {
        step();
        EXPECT_EQ(rebuild.checkInputs(), message);
        const QVariantList items = rebuild.readinessItems();
        EXPECT_EQ(
            std::count_if(items.begin(), items.end(),
                          [](const QVariant& i) { return i.toMap().value("isReady").toBool(); }),
            ready)
            << message.toStdString();
    }
    rebuild.continueToMapping();
    EXPECT_EQ(rebuild.step(), "mapping");
    EXPECT_EQ(rebuild.statusMessage(), "Inputs ready. Review mapping.");

    // The choices are remembered for the next start.
    EXPECT_EQ(f.store.timelineRebuildRecentStereoMixPath(), f.mix.string());
    TimelineRebuildWorkflow next(f.store);
    EXPECT_EQ(next.sourceXMLURL(), q(f.dir / "EXPORT.XML"));
    EXPECT_EQ(next.outputFolderURL(), q(f.output));
    next.clear();
    EXPECT_EQ(next.statusMessage(), "Inputs cleared.");
    EXPECT_EQ(next.stereoMixURL(), "/tmp/.norvane-unset-timeline-input");
    EXPECT_EQ(next.step(), "inputs");
}

TEST(TimelineRebuildWorkflowTest, ScanValidateAndBuild) {
    Fixture f;
    TimelineRebuildWorkflow rebuild(f.store);
    f.choose(rebuild);
    rebuild.setOutputFilename("cut");
    rebuild.autoScan();
    EXPECT_EQ(rebuild.statusMessage(), "Auto-scanning...");
    ASSERT_TRUE(idle(rebuild));
    EXPECT_EQ(rebuild.statusMessage(), "Auto-scan complete (2 events)");
    ASSERT_EQ(rebuild.detectedAudioInputs().size(), 3);
    const QVariantMap first = rebuild.detectedAudioInputs()[0].toMap();
    EXPECT_EQ(first.value("eventTimecode"), "01:00:00:00");
    EXPECT_EQ(first.value("timecodeProvenance"), "iXML");
    ASSERT_EQ(rebuild.detectedEvents().size(), 2);
    EXPECT_DOUBLE_EQ(rebuild.detectedEvents()[1].toMap().value("durationSeconds").toDouble(), 3.0);
    ASSERT_EQ(rebuild.previewRows().size(), 2);
    EXPECT_TRUE(rebuild.previewRows()[0].toMap().value("trackMatches").toMap().first().toBool());

    rebuild.validate();
    ASSERT_TRUE(idle(rebuild));
    EXPECT_EQ(rebuild.statusMessage(), "Validation complete.");
    EXPECT_EQ(rebuild.step(), "validate");
    const QStringList messages = itemTexts(rebuild);
    EXPECT_TRUE(messages.filter("Error: ").isEmpty()) << messages.join("\n").toStdString();
    EXPECT_TRUE(messages.contains("Info: Track Trk2 missing at event 2; emitting lane gap."))
        << messages.join("\n").toStdString();

    rebuild.build();
    EXPECT_TRUE(rebuild.isBuilding());
    EXPECT_EQ(rebuild.step(), "build");
    ASSERT_TRUE(idle(rebuild));
    EXPECT_FALSE(rebuild.isBuilding());
    EXPECT_EQ(rebuild.step(), "report");
    EXPECT_EQ(rebuild.statusMessage(), "Rebuilt timeline written to " + q(f.output / "cut.fcpxml"));
    EXPECT_EQ(rebuild.report().value("outputXMLURL"), q(f.output / "cut.fcpxml"));
    EXPECT_EQ(rebuild.progressPercent(), 1.0);
    rebuild.reset();
    EXPECT_EQ(rebuild.step(), "inputs");
    EXPECT_TRUE(rebuild.report().isEmpty());
}

TEST(TimelineRebuildWorkflowTest, FailuresKeepTheStateAndSayWhy) {
    Fixture f;
    testing::writeSyncedWav(f.synced / "evt3_trk1.wav", {});
    writeTake(f.synced / "evt3_trk2.wav", "01:00:21:00", 1);
    TimelineRebuildWorkflow rebuild(f.store);
    f.choose(rebuild);
    rebuild.autoScan();
    ASSERT_TRUE(idle(rebuild));
    ASSERT_EQ(rebuild.detectedEvents().size(), 3);
    // Event 3's first file has no timecode: the row shows the one its second
    // file gave the analysis.
    const QVariantMap event = rebuild.detectedEvents()[2].toMap();
    EXPECT_EQ(event.value("timecode"), "01:00:21:00");
    EXPECT_EQ(event.value("timecodeSource"), "evt3_trk2.wav");
    EXPECT_EQ(rebuild.previewRows()[2].toMap().value("eventTimecode"), "01:00:21:00");

    // A scan or validation started during a build supersedes it: no building flag stays.
    rebuild.build();
    EXPECT_TRUE(rebuild.isBuilding());
    rebuild.validate();
    ASSERT_TRUE(idle(rebuild));
    EXPECT_FALSE(rebuild.isBuilding());

    // A file without an event number (or timecode) blocks the build; nothing is written.
    writeTake(f.synced / "crash.wav", "01:00:00:00", 1);
    rebuild.build();
    rebuild.autoScan();
    ASSERT_TRUE(idle(rebuild));
    EXPECT_FALSE(rebuild.isBuilding());
    rebuild.build();
    ASSERT_TRUE(idle(rebuild));
    EXPECT_EQ(rebuild.statusMessage(), "Build blocked by validation errors.");
    EXPECT_FALSE(fs::exists(f.output / "timeline_rebuild.fcpxml"));

    testing::writeText(f.dir / "broken.fcpxml", "<fcpxml><resources>");
    rebuild.setSourceXMLURL(q(f.dir / "broken.fcpxml"));
    rebuild.validate();
    ASSERT_TRUE(idle(rebuild));
    EXPECT_TRUE(rebuild.statusMessage().startsWith("Validation failed: "))
        << rebuild.statusMessage().toStdString();
    rebuild.autoScan();
    ASSERT_TRUE(idle(rebuild));
    EXPECT_TRUE(rebuild.statusMessage().startsWith("Auto-scan failed: "))
        << rebuild.statusMessage().toStdString();
    EXPECT_FALSE(rebuild.detectedEvents().isEmpty());  // the last good scan stays
}

TEST(TimelineRebuildWorkflowTest, AGeneratedDocumentThatFailsItsCheckShowsWhy) {
    Fixture f;
    testing::writeSyncedWav(f.mix, {0, 48000, 2, {}, {}});
    TimelineRebuildWorkflow rebuild(f.store);
    f.choose(rebuild);
    rebuild.build();
    ASSERT_TRUE(idle(rebuild));
    EXPECT_EQ(rebuild.statusMessage(), "Build blocked by generated FCPXML validation errors.");
    EXPECT_TRUE(itemTexts(rebuild).contains(
        "Error: Generated FCPXML contains invalid durations: asset duration=0/1s."));
}

}  // namespace
}  // namespace norvane
