#include "app/gui/screenshot_mode.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QPixmap>
#include <QSize>
#include <QTabWidget>
#include <QThread>
#include <cmath>
#include <filesystem>
#include <iostream>

#include "app/gui/main_window.h"
#include "app/gui/rebuild_screen.h"
#include "app/gui/stamp_screen.h"
#include "app/gui/ui_hooks.h"
#include "app/gui/widgets/day_ruler.h"
#include "app/viewmodels/app_view_model.h"
#include "core/audio/bwf_writer.h"
#include "core/audio/ltc_recording.h"
#include "core/audio/wav_file.h"
#include "core/common/bytes.h"
#include "core/common/error.h"
#include "core/common/file_output.h"
#include "core/rebuild/demo_timeline.h"
#include "core/timecode/timecode.h"

namespace norvane::gui {

namespace fs = std::filesystem;

namespace {

Timecode timecodeAt(int hours, int minutes, int seconds, int frames = 0) {
    Timecode timecode;
    timecode.hours = hours;
    timecode.minutes = minutes;
    timecode.seconds = seconds;
    timecode.frames = frames;
    return timecode;
}

LTCRecordingOptions recording(int channels, int ltcChannel, double seconds, const Timecode& start) {
    LTCRecordingOptions options;
    options.rate = *frameRateConfig(FrameRatePreset::fps25);
    options.start = start;
    options.seconds = seconds;
    options.channels = channels;
    options.ltcChannel = ltcChannel;
    options.format = LTCRecordingFormat::pcm24;
    options.leadInSamples = 2400;
    return options;
}

// A synced take: tones with a bext time reference and an iXML timecode.
void writeSyncedTake(const fs::path& path, int channels, double seconds, int minute, int second) {
    LTCRecordingOptions options = recording(channels, 1, seconds, timecodeAt(1, minute, second));
    const WAVFile take = WAVFile::fromBytes(buildLTCRecording(options), path);
    BWFStampInfo stamp;
    stamp.timeReferenceSamples = static_cast<std::uint64_t>((3600 + minute * 60 + second)) * 48000u;
    stamp.description = "demo take";
    const QString timecode =
        QString("01:%1:%2:00").arg(minute, 2, 10, QChar('0')).arg(second, 2, 10, QChar('0'));
    stamp.ixml = "<BWFXML><TIMECODE>" + timecode.toStdString() + "</TIMECODE></BWFXML>";
    BWFWriter::write(take, stamp, path, true);
}

void writeSilence(const fs::path& path, int channels, double seconds) {
    LTCRecordingOptions options = recording(channels, 1, seconds, timecodeAt(1, 0, 0));
    options.levelDBFS = -60;
    writeLTCRecording(path, options, true);
}

QString toQ(const fs::path& path) {
    return QString::fromStdString(path.string());
}

}  // namespace

bool waitUntil(const std::function<bool()>& done, int timeoutMs) {
    QElapsedTimer timer;
    timer.start();
    while (!done()) {
        if (timer.elapsed() > timeoutMs) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
        QThread::msleep(10);
    }
    QCoreApplication::processEvents();
    return true;
}

QString writeDemoInputs(const QString& folder) {
    try {
        const fs::path root = folder.toStdString();
        for (const char* sub : {"stamp", "cut", "split", "rebuild/synced", "out/stamp", "out/cut",
                                "out/split", "out/rebuild"}) {
            fs::create_directories(root / sub);
        }
        // Stamp: the LTC track of a take and two stems recorded with it.
        writeLTCRecording(root / "stamp/Sc12_T03_LTC.wav",
                          recording(1, 1, 4, timecodeAt(10, 14, 32, 5)), true);
        writeLTCRecording(root / "stamp/Sc12_T03_Boom.wav",
                          recording(2, 1, 4, timecodeAt(10, 14, 32, 5)), true);
        writeLTCRecording(root / "stamp/Sc12_T03_Lavs.wav",
                          recording(4, 4, 4, timecodeAt(10, 14, 32, 5)), true);
        // A morning of takes, each with its own LTC: one overlaps the one
        // before, one runs at another rate.
        struct DayTake {
            const char* name;
            int minute, second;
            double seconds;
            FrameRatePreset rate;
        };
        const DayTake day[] = {{"Day1_T01", 0, 0, 20, FrameRatePreset::fps25},
                               {"Day1_T02", 0, 30, 25, FrameRatePreset::fps25},
                               {"Day1_T03", 0, 48, 20, FrameRatePreset::fps25},
                               {"Day1_T04", 1, 25, 15, FrameRatePreset::fps30},
                               {"Day1_T05", 1, 50, 20, FrameRatePreset::fps25}};
        fs::create_directories(root / "day");
        for (const DayTake& take : day) {
            LTCRecordingOptions options =
                recording(1, 1, take.seconds, timecodeAt(10, take.minute, take.second));
            options.rate = *frameRateConfig(take.rate);
            writeLTCRecording(root / "day" / (std::string(take.name) + ".wav"), options, true);
        }
        // Cut detect: one long take whose code restarts twice.
        LTCRecordingOptions longTake = recording(2, 2, 24, timecodeAt(11, 0, 0));
        longTake.jumps = {{8.0, timecodeAt(11, 20, 0)}, {16.0, timecodeAt(12, 5, 30)}};
        writeLTCRecording(root / "cut/Day2_Roll4.wav", longTake, true);
        // Split: poly files.
        writeSilence(root / "split/Drums_8ch.wav", 8, 2);
        writeSilence(root / "split/Dialogue_4ch.wav", 4, 2);
        writeSilence(root / "split/Room_stereo.wav", 2, 2);
        // Rebuild: two cameras, three events (camera B misses the second).
        DemoTimelineSpec recipe;
        recipe.lanes = {{"CamA", {{"01:00:00:00"}, {"01:00:20:00"}, {"01:00:40:00"}}},
                        {"CamB", {{"01:00:00:00"}, {"01:00:40:00"}}}};
        const std::string xml = makeDemoSourceTimeline(recipe);
        writeFile(root / "rebuild/source.fcpxml", ByteBuffer(xml.begin(), xml.end()),
                  WriteMode::replaceAtomically);
        writeSilence(root / "rebuild/stereo_mix.wav", 2, 24);
        const int starts[3] = {0, 20, 40};
        const int tracks[3] = {3, 2, 3};
        for (int event = 0; event < 3; ++event) {
            for (int track = 1; track <= tracks[event]; ++track) {
                writeSyncedTake(root / "rebuild/synced" /
                                    ("evt" + std::to_string(event + 1) + "_trk" +
                                     std::to_string(track) + ".wav"),
                                1, 8, starts[event] / 60, starts[event] % 60);
            }
        }
        return {};
    } catch (const std::exception& error) {
        return QString::fromStdString(describeError(error));
    }
}

int runScreenshotMode(MainWindow& window, AppViewModel& viewModel, const QString& inputsFolder,
                      const QString& outputFolder) {
    if (const QString error = writeDemoInputs(inputsFolder); !error.isEmpty()) {
        std::cerr << "error: could not write the demo inputs: " << error.toStdString() << "\n";
        return 2;
    }
    QDir().mkpath(outputFolder);
    const fs::path root = inputsFolder.toStdString();
    uiHooks().confirm = [](QWidget*, const QString&, const QString&, const QString&) {
        return true;
    };
    uiHooks().choose = [](QWidget*, const QString&, const QString&, const QStringList& choices) {
        return choices.value(1, choices.value(0));
    };
    uiHooks().openUrl = [](const QUrl&) { return true; };

    window.setSavesWindowState(false);
    // NORVANE_SCREENSHOT_SIZE=WxH checks the screens at other window sizes.
    QSize size(1120, 840);
    if (const QStringList parts = qEnvironmentVariable("NORVANE_SCREENSHOT_SIZE").split('x');
        parts.size() == 2 && parts[0].toInt() > 0 && parts[1].toInt() > 0) {
        size = QSize(parts[0].toInt(), parts[1].toInt());
    }
    window.resize(size);
    window.show();
    int failures = 0;
    auto shoot = [&](const QString& name) {
        waitUntil([] { return false; }, 150);  // let layouts settle
        const QString path = QDir(outputFolder).filePath(name + ".png");
        if (!window.grab().save(path)) {
            std::cerr << "error: could not save " << path.toStdString() << "\n";
            ++failures;
        }
    };
    auto wait = [&](const char* what, const std::function<bool()>& done) {
        if (!waitUntil(done, 120000)) {
            std::cerr << "warning: timed out waiting for " << what << "\n";
            ++failures;
        }
    };

    window.showArea("home");
    shoot("01-home");

    // LTC Cut Detect on the long take.
    StampWorkflow& stamp = *viewModel.stamp();
    window.showArea("ltcStamp");
    stamp.ingest({toQ(root / "cut/Day2_Roll4.wav")});
    wait("the ingest", [&] { return !stamp.isIngesting(); });
    stamp.setMode("LTC Cut Detect");
    stamp.setFrameRatePreset("25");
    stamp.setSelectedLTCFile(toQ(root / "cut/Day2_Roll4.wav"));
    stamp.setLTCChannelChoice(2);
    stamp.setOutputFolder(toQ(root / "out/cut"));
    stamp.analyzeCuts();
    wait("the cut analysis", [&] { return !stamp.isAnalyzingCuts(); });
    // Stamped: each segment's start in the table.
    stamp.process(false);
    wait("the cut run", [&] {
        return !stamp.isProcessing() && !stamp.pendingLowConfidence() &&
               stamp.pendingOutputConflicts().isEmpty();
    });
    shoot("03-ltc-cut-detect");

    // Single: one LTC file and its stems, processed.
    stamp.clearFiles();
    stamp.setMode("Single");
    stamp.setFrameRatePreset("Auto");
    stamp.ingest({toQ(root / "stamp")});
    wait("the ingest", [&] { return !stamp.isIngesting(); });
    stamp.setSelectedLTCFile(toQ(root / "stamp/Sc12_T03_LTC.wav"));
    stamp.setLTCChannelChoice(0);
    stamp.setOutputFolder(toQ(root / "out/stamp"));
    stamp.process(false);
    wait("the stamp run", [&] {
        return !stamp.isProcessing() && !stamp.pendingLowConfidence() &&
               stamp.pendingOutputConflicts().isEmpty();
    });
    shoot("02-ltc-stamp");
    stamp.setMode("Grouped Batch");
    stamp.refreshGroupingPreview();
    shoot("02b-ltc-grouped-batch");
    // The morning's takes, placed on the day ruler by the LTC found on ingest.
    stamp.clearFiles();
    stamp.setMode("Single");
    stamp.ingest({toQ(root / "day")});
    wait("the ingest", [&] { return !stamp.isIngesting(); });
    wait("the LTC probes", [&] { return !stamp.isProbing(); });
    shoot("02c-ltc-day");
    // The day ruler alone, for the README.
    if (!window.stampScreen()->dayRuler()->grab().save(
            QDir(outputFolder).filePath("day-ruler.png"))) {
        ++failures;
    }

    // Poly split.
    PolySplitWorkflow& split = *viewModel.polySplit();
    window.showArea("polyWavSplit");
    split.addFiles({toQ(root / "split")});
    split.setOutputFolder(toQ(root / "out/split"));
    split.setPolySplitOverwriteExisting(true);
    split.startSplit();
    wait("the split", [&] { return !split.polySplitIsProcessing(); });
    shoot("04-poly-wav-split");

    // Timeline rebuild, step by step.
    TimelineRebuildWorkflow& rebuild = *viewModel.timelineRebuild();
    window.showArea("timelineRebuild");
    rebuild.reset();
    rebuild.setSourceXMLURL(toQ(root / "rebuild/source.fcpxml"));
    rebuild.setStereoMixURL(toQ(root / "rebuild/stereo_mix.wav"));
    rebuild.setSyncedAudioFolderURL(toQ(root / "rebuild/synced"));
    rebuild.setOutputFolderURL(toQ(root / "out/rebuild"));
    rebuild.autoScan();
    wait("the auto-scan", [&] { return !rebuild.isBusy(); });
    shoot("05-rebuild-inputs");
    rebuild.continueToMapping();
    waitUntil([] { return false; }, 50);
    shoot("06-rebuild-mapping");
    RebuildScreen* screen = window.rebuildScreen();
    screen->mappingTabs()->setCurrentIndex(3);
    shoot("07-rebuild-preview");
    screen->mappingTabs()->setCurrentIndex(4);
    shoot("08-rebuild-timeline");
    screen->mappingTabs()->setCurrentIndex(5);
    shoot("08b-rebuild-coverage");
    rebuild.validate();
    wait("the validation", [&] { return !rebuild.isBusy(); });
    shoot("09-rebuild-validate");
    // The Build step before the build: what it will write, the lanes in time.
    screen->showStep("build");
    shoot("09b-rebuild-build");
    rebuild.build();
    wait("the build", [&] { return !rebuild.isBusy(); });
    shoot("10-rebuild-report");

    window.showSettings();
    shoot("11-settings");

    std::cout << QDir(outputFolder).absolutePath().toStdString() << "\n";
    window.close();
    return failures == 0 ? 0 : 1;
}

}  // namespace norvane::gui
