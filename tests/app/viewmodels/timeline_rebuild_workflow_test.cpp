#include "app/viewmodels/timeline_rebuild_workflow.h"

#include <gtest/gtest.h>

#include "core/common/file_output.h"
#include "core/rebuild/demo_timeline.h"
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

// A synced take whose iXML carries its event timecode.
void writeTake(const fs::path& path, const std::string& timecode, double seconds) {
    testing::WavSpec recipe;
    recipe.channels = 1;
    recipe.frames = static_cast<std::int64_t>(seconds * 48000);
    const std::string ixml = "<BWFXML><TIMECODE>" + timecode + "</TIMECODE></BWFXML>";
    recipe.beforeData.emplace_back("iXML", ByteBuffer(ixml.begin(), ixml.end()));
    fs::create_directories(path.parent_path());
    testing::writeBytes(path, testing::makeWav(recipe));
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
        const std::string xml = makeDemoSourceTimeline(recipe);
        writeFile(source, ByteBuffer(xml.begin(), xml.end()), WriteMode::createNew);
        writeTake(synced / "evt1_trk1.wav", "01:00:00:00", 2);
        writeTake(synced / "evt1_trk2.wav", "01:00:00:00", 2);
        writeTake(synced / "evt2_trk1.wav", "01:00:20:00", 3);
        testing::WavSpec stereo;
        stereo.frames = 5 * 48000;
        testing::writeBytes(mix, testing::makeWav(stereo));
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

QList<bool> readiness(const TimelineRebuildWorkflow& rebuild) {
    QList<bool> ready;
    for (const QVariant& item : rebuild.readinessItems()) {
        ready.append(item.toMap().value("isReady").toBool());
    }
    return ready;
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
    const QString unset = "/tmp/.norvane-unset-timeline-input";
    EXPECT_EQ(rebuild.step(), "inputs");
    EXPECT_EQ(rebuild.statusMessage(), "Add inputs to begin.");
    EXPECT_EQ(rebuild.missingCameraBehavior(), "Skip Clip");
    EXPECT_EQ(rebuild.checkInputs(), "Source timeline must be XML/FCPXML.");

    rebuild.continueToMapping();
    EXPECT_EQ(rebuild.statusMessage(), "Complete required inputs first.");
    EXPECT_EQ(rebuild.step(), "inputs");

    rebuild.setSourceXMLURL(q(f.dir / "EXPORT.XML"));  // capitals pass
    EXPECT_EQ(rebuild.checkInputs(), "Stereo mix must be a WAV file.");
    rebuild.setStereoMixURL(q(f.mix));
    EXPECT_EQ(rebuild.checkInputs(), "Choose a synced audio folder.");
    rebuild.setSyncedAudioFolderURL(q(f.synced));
    EXPECT_EQ(rebuild.checkInputs(), "Choose an output folder.");
    EXPECT_EQ(readiness(rebuild), (QList<bool>{true, true, true, false}));
    rebuild.setOutputFolderURL(q(f.output));
    rebuild.setOutputFilename("../x");  // the file name rule is the core's test
    EXPECT_EQ(rebuild.checkInputs(),
              "Set a simple FCPXML filename without folders or path traversal.");
    EXPECT_FALSE(readiness(rebuild)[3]);
    rebuild.setOutputFilename("cut");
    EXPECT_EQ(rebuild.checkInputs(), "");
    EXPECT_EQ(readiness(rebuild), (QList<bool>{true, true, true, true}));
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
    EXPECT_EQ(next.stereoMixURL(), unset);
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
    EXPECT_EQ(rebuild.statusMessage(), QString::fromStdString("Rebuilt timeline written to " +
                                                              (f.output / "cut.fcpxml").string()));
    EXPECT_TRUE(fs::exists(f.output / "cut.fcpxml"));
    EXPECT_EQ(rebuild.report().value("outputXMLURL"), q(f.output / "cut.fcpxml"));
    EXPECT_EQ(rebuild.progressPercent(), 1.0);

    rebuild.reset();
    EXPECT_EQ(rebuild.step(), "inputs");
    EXPECT_TRUE(rebuild.report().isEmpty());
}

TEST(TimelineRebuildWorkflowTest, FailuresKeepTheStateAndSayWhy) {
    Fixture f;
    TimelineRebuildWorkflow rebuild(f.store);
    f.choose(rebuild);
    rebuild.autoScan();
    ASSERT_TRUE(idle(rebuild));
    ASSERT_EQ(rebuild.detectedEvents().size(), 2);

    // A file without an event number blocks the build; nothing is written.
    writeTake(f.synced / "crash.wav", "01:00:00:00", 1);
    rebuild.build();
    ASSERT_TRUE(idle(rebuild));
    EXPECT_EQ(rebuild.statusMessage(), "Build blocked by validation errors.");
    EXPECT_FALSE(fs::exists(f.output / "timeline_rebuild.fcpxml"));

    const std::string broken = "<fcpxml><resources>";
    writeFile(f.dir / "broken.fcpxml", ByteBuffer(broken.begin(), broken.end()),
              WriteMode::createNew);
    rebuild.setSourceXMLURL(q(f.dir / "broken.fcpxml"));
    rebuild.validate();
    ASSERT_TRUE(idle(rebuild));
    EXPECT_TRUE(rebuild.statusMessage().startsWith("Validation failed: "))
        << rebuild.statusMessage().toStdString();
    rebuild.autoScan();
    ASSERT_TRUE(idle(rebuild));
    EXPECT_TRUE(rebuild.statusMessage().startsWith("Auto-scan failed: "))
        << rebuild.statusMessage().toStdString();
    EXPECT_EQ(rebuild.detectedEvents().size(), 2);  // the last good scan stays
}

TEST(TimelineRebuildWorkflowTest, AScanOrValidationDuringABuildLeavesNoBuildingFlag) {
    Fixture f;
    TimelineRebuildWorkflow rebuild(f.store);
    f.choose(rebuild);
    rebuild.build();
    EXPECT_TRUE(rebuild.isBuilding());
    rebuild.validate();  // supersedes the build, whose posts are dropped
    ASSERT_TRUE(idle(rebuild));
    EXPECT_FALSE(rebuild.isBuilding());
    rebuild.build();
    rebuild.autoScan();
    ASSERT_TRUE(idle(rebuild));
    EXPECT_FALSE(rebuild.isBuilding());
}

TEST(TimelineRebuildWorkflowTest, EventRowsShowTheTimecodeTheAnalysisUsed) {
    Fixture f;
    // Event 3's first file has no timecode; its second file gives it.
    testing::WavSpec bare;
    bare.channels = 1;
    bare.frames = 48000;
    testing::writeBytes(f.synced / "evt3_trk1.wav", testing::makeWav(bare));
    writeTake(f.synced / "evt3_trk2.wav", "01:00:21:00", 1);
    TimelineRebuildWorkflow rebuild(f.store);
    f.choose(rebuild);
    rebuild.autoScan();
    ASSERT_TRUE(idle(rebuild));
    ASSERT_EQ(rebuild.detectedEvents().size(), 3);
    const QVariantMap event = rebuild.detectedEvents()[2].toMap();
    EXPECT_EQ(event.value("timecode"), "01:00:21:00");
    EXPECT_EQ(event.value("timecodeSource"), "evt3_trk2.wav");
    const QVariantMap preview = rebuild.previewRows()[2].toMap();
    EXPECT_EQ(preview.value("eventTimecode"), "01:00:21:00");
    // The lane's clip stands in the whole one-second event.
    const QVariantList lanes = preview.value("lanes").toList();
    ASSERT_EQ(lanes.size(), 1);
    EXPECT_TRUE(lanes[0].toMap().value("hasMatch").toBool());
    EXPECT_DOUBLE_EQ(lanes[0].toMap().value("coveredSeconds").toDouble(), 1.0);
    EXPECT_DOUBLE_EQ(preview.value("offsetSeconds").toDouble(), 5.0);  // after 2 s and 3 s
}

TEST(TimelineRebuildWorkflowTest, AGeneratedDocumentThatFailsItsCheckShowsWhy) {
    Fixture f;
    testing::WavSpec empty;
    empty.frames = 0;
    testing::writeBytes(f.mix, testing::makeWav(empty));
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
