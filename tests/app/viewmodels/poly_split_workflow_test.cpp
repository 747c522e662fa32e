#include "app/viewmodels/poly_split_workflow.h"

#include "app/viewmodels/app_view_model.h"

#include <cmath>
#include <vector>

#include <gtest/gtest.h>

#include "tests/app/viewmodels/viewmodel_test_support.h"
#include "tests/support/test_support.h"
#include "tests/support/wav_builder.h"

namespace norvane {
namespace {

namespace fs = std::filesystem;
using testing::TempDir;

std::vector<float> ramp(int frames, float scale) {
    std::vector<float> samples(frames);
    for (int i = 0; i < frames; ++i) {
        samples[i] = scale * std::sin(0.01f * static_cast<float>(i));
    }
    return samples;
}

void writeWav(const fs::path& path, int channels, int frames = 480) {
    std::vector<std::vector<float>> data;
    for (int c = 0; c < channels; ++c) {
        data.push_back(ramp(frames, 0.1f * static_cast<float>(c + 1)));
    }
    fs::create_directories(path.parent_path());
    testing::writeBytes(path, testing::makePcm16(48000, data));
}

QString q(const fs::path& path) {
    return QString::fromStdString(path.string());
}

struct Fixture {
    TempDir dir;
    AppSettingsStore store{dir / "settings.json"};
    fs::path output = dir / "out";

    Fixture() {
        fs::create_directories(output);
        store.setPolySplitDefaultOutputFolderPath(output.string());
    }
};

TEST(PolySplitWorkflowTest, AddingFilesMergesSortsAndCounts) {
    Fixture f;
    PolySplitWorkflow split(f.store);
    EXPECT_EQ(split.polySplitOutputFolder(), q(f.output));

    const fs::path drop = f.dir / "drop";
    writeWav(drop / "b.wav", 2);
    writeWav(drop / "a.WAV", 2);
    testing::writeBytes(drop / "notes.txt", ByteBuffer{'h', 'i'});

    split.addFiles({q(drop)});
    EXPECT_EQ(split.polySplitInputURLs(), (QStringList{q(drop / "a.WAV"), q(drop / "b.wav")}));
    EXPECT_EQ(split.polySplitStatusMessage(), "Loaded 2 file(s).");

    split.addFiles({q(drop)});  // the same folder again adds nothing
    EXPECT_EQ(split.polySplitInputURLs().size(), 2);
    EXPECT_EQ(split.polySplitStatusMessage(), "Loaded 2 file(s).");

    // Subfolders and hidden files are searched; names sort as a file browser
    // shows them, numbers by value.
    writeWav(drop / "more" / "take10.wav", 2);
    writeWav(drop / "more" / ".take2.wav", 2);
    writeWav(f.dir / "take2.wav", 2);
    split.addFiles({q(drop / "more"), q(f.dir / "take2.wav")});
    QStringList names;
    for (const QString& url : split.polySplitInputURLs()) {
        names.append(QString::fromStdString(fs::path(url.toStdString()).filename().string()));
    }
    EXPECT_EQ(names, (QStringList{".take2.wav", "a.WAV", "b.wav", "take2.wav", "take10.wav"}));
    EXPECT_EQ(split.polySplitStatusMessage(), "Loaded 5 file(s).");

    split.clearList();
    EXPECT_TRUE(split.polySplitInputURLs().isEmpty());
}

TEST(PolySplitWorkflowTest, NothingUsableDroppedOrQueued) {
    Fixture f;
    PolySplitWorkflow split(f.store);
    testing::writeBytes(f.dir / "notes.txt", ByteBuffer{'x'});

    split.addFiles({q(f.dir / "notes.txt")});
    EXPECT_EQ(split.polySplitStatusMessage(), "No WAV files in selection.");

    split.startSplit();
    EXPECT_EQ(split.polySplitStatusMessage(), "Add at least one WAV file.");
    EXPECT_FALSE(split.polySplitIsProcessing());
    EXPECT_EQ(split.polySplitProgress(), 0.0);
}

TEST(PolySplitWorkflowTest, TrackNamesStartFromTheSettingAndNameTheOutputs) {
    const fs::path take = testing::sharedFixture("field/sd702T_A101_1.WAV");
    if (take.empty()) {
        return;
    }
    Fixture f;
    f.store.setPolySplitAppendTrackNames(true);
    PolySplitWorkflow split(f.store);
    EXPECT_TRUE(split.polySplitAppendTrackNames());
    fs::create_directories(f.dir / "in");
    fs::copy_file(take, f.dir / "in" / "A101_1.WAV");
    split.addFiles({q(f.dir / "in")});
    split.startSplit();
    ASSERT_TRUE(testing::waitUntil([&] { return !split.polySplitIsProcessing(); }));
    EXPECT_TRUE(fs::exists(f.output / "A101_1_CH02_Boom.wav"));
    split.setPolySplitAppendTrackNames(false);
    split.startSplit();
    ASSERT_TRUE(testing::waitUntil([&] { return !split.polySplitIsProcessing(); }));
    EXPECT_TRUE(fs::exists(f.output / "A101_1_CH02.wav"));
}

TEST(PolySplitWorkflowTest, SplitsStereoSkipsMonoAndRefusesToOverwrite) {
    Fixture f;
    PolySplitWorkflow split(f.store);
    writeWav(f.dir / "in" / "stereo.wav", 2);
    writeWav(f.dir / "in" / "mono.wav", 1);
    split.addFiles({q(f.dir / "in")});

    split.startSplit();
    EXPECT_TRUE(split.polySplitIsProcessing());
    EXPECT_EQ(split.polySplitStatusMessage(), QStringLiteral("Splitting\u2026"));
    ASSERT_TRUE(testing::waitUntil([&] { return !split.polySplitIsProcessing(); }));

    EXPECT_EQ(split.polySplitStatusMessage(), "Done. 2 file(s) written.");
    EXPECT_EQ(split.polySplitProgress(), 1.0);
    const QStringList log = testing::withoutTimestamps(split.polySplitLogLines());
    // The engine works in path order: mono.wav before stereo.wav.
    EXPECT_EQ(log.mid(2), (QStringList{"Skipped mono.wav: File has one channel; nothing to split.",
                                       "Wrote 2 channel file(s) for stereo.wav."}));
    EXPECT_TRUE(fs::exists(f.output / "stereo_CH02.wav"));  // the split's own tests read it

    // The list survives; running again without overwrite stops at the first file.
    split.startSplit();
    ASSERT_TRUE(testing::waitUntil([&] { return !split.polySplitIsProcessing(); }));
    const QString exists = QStringLiteral(
        "Output file already exists: stereo_CH01.wav. Enable overwrite or choose another "
        "folder.");
    EXPECT_EQ(split.polySplitStatusMessage(), QStringLiteral("Failed: ") + exists);
    EXPECT_EQ(testing::withoutTimestamps(split.polySplitLogLines()).last(),
              QStringLiteral("Error: ") + exists);

    split.setPolySplitOverwriteExisting(true);
    split.startSplit();
    ASSERT_TRUE(testing::waitUntil([&] { return !split.polySplitIsProcessing(); }));
    EXPECT_EQ(split.polySplitStatusMessage(), "Done. 2 file(s) written.");
}

TEST(PolySplitWorkflowTest, CancelDuringARunEndsWithTheCancelTexts) {
    Fixture f;
    PolySplitWorkflow split(f.store);
    for (int i = 0; i < 12; ++i) {
        writeWav(f.dir / "in" / ("poly" + std::to_string(i) + ".wav"), 8, 48000);
    }
    split.addFiles({q(f.dir / "in")});
    // Cancel as soon as the first progress arrives, in the middle of the run.
    QObject::connect(&split, &PolySplitWorkflow::polySplitProgressChanged, &split, [&] {
        if (split.polySplitProgress() > 0 && split.polySplitProgress() < 1) {
            split.cancelSplit();
        }
    });

    split.startSplit();
    ASSERT_TRUE(testing::waitUntil([&] { return !split.polySplitIsProcessing(); }));

    EXPECT_EQ(split.polySplitStatusMessage(), "Cancelled");
    EXPECT_EQ(testing::withoutTimestamps(split.polySplitLogLines()).last(), "Split cancelled.");
    EXPECT_LT(split.polySplitProgress(), 1.0);
    // What was written before the cancel stays.
    EXPECT_TRUE(fs::exists(f.output / "poly0_CH01.wav"));
}

TEST(PolySplitWorkflowTest, StartingAgainReplacesTheRunningSplit) {
    Fixture f;
    PolySplitWorkflow split(f.store);
    for (int i = 0; i < 6; ++i) {
        writeWav(f.dir / "in" / ("poly" + std::to_string(i) + ".wav"), 4, 24000);
    }
    split.addFiles({q(f.dir / "in")});
    split.setPolySplitOverwriteExisting(true);
    split.startSplit();
    split.startSplit();  // the first run is cancelled and its outcome dropped
    ASSERT_TRUE(testing::waitUntil([&] { return !split.polySplitIsProcessing(); }));
    EXPECT_EQ(split.polySplitStatusMessage(), "Done. 24 file(s) written.");
    const QStringList log = testing::withoutTimestamps(split.polySplitLogLines());
    EXPECT_FALSE(log.contains("Split cancelled."));
    EXPECT_EQ(log.filter("Wrote 4 channel file(s)").size(), 6);
}

TEST(PolySplitWorkflowTest, OutputsGoBesideTheSourcesIntoAFolderCreatedOnRequest) {
    TempDir dir;
    testing::writeSettingsFile(dir / "settings.json", "{}");  // the home folder by default
    writeWav(dir / "day" / "take.wav", 2);
    writeWav(dir / "day" / "other.wav", 2);
    {
        AppViewModel app(dir / "settings.json");
        PolySplitWorkflow& split = *app.polySplit();
        split.addFiles({q(dir / "day")});
        const fs::path beside = dir / "day" / "Split";
        EXPECT_EQ(split.polySplitOutputFolder(), q(beside));

        // The folder does not exist yet: nothing starts until it is created.
        split.startSplit();
        EXPECT_FALSE(split.polySplitIsProcessing());
        EXPECT_EQ(split.polySplitStatusMessage(), "The output folder does not exist: " + q(beside));
        EXPECT_FALSE(fs::exists(beside));

        split.removeFiles({q(dir / "day" / "other.wav")});
        EXPECT_EQ(split.polySplitInputURLs(), QStringList{q(dir / "day" / "take.wav")});
        ASSERT_TRUE(split.createOutputFolder());
        split.startSplit();
        ASSERT_TRUE(testing::waitUntil([&] { return !split.polySplitIsProcessing(); }));
        EXPECT_EQ(split.polySplitStatusMessage(), "Done. 2 file(s) written.");
        EXPECT_TRUE(fs::exists(beside / "take_CH01.wav"));
    }
    // The next launch starts in the folder the last split wrote to.
    AppViewModel again(dir / "settings.json");
    EXPECT_EQ(again.polySplit()->polySplitOutputFolder(), q(dir / "day" / "Split"));
}

}  // namespace
}  // namespace norvane
