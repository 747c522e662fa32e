#include "app/viewmodels/poly_split_workflow.h"

#include "app/viewmodels/app_view_model.h"

#include <gtest/gtest.h>

#include "tests/app/viewmodels/viewmodel_test_support.h"
#include "tests/support/test_support.h"
#include "tests/support/wav_builder.h"

namespace norvane {
namespace {

namespace fs = std::filesystem;
using testing::q;
using testing::TempDir;

// Zero audio of `channels` x `frames`.
void writeWav(const fs::path& path, int channels, int frames = 480) {
    testing::WavRecipe recipe;
    recipe.channels = static_cast<std::uint16_t>(channels);
    recipe.frames = frames;
    fs::create_directories(path.parent_path());
    testing::writeBytes(path, testing::makeWav(recipe));
}

bool finished(const PolySplitWorkflow& split) {
    return testing::waitUntil([&] { return !split.polySplitIsProcessing(); });
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
    split.addFiles({q(drop / "notes.txt")});
    EXPECT_EQ(split.polySplitStatusMessage(), "No WAV files in selection.");
    split.startSplit();
    EXPECT_EQ(split.polySplitStatusMessage(), "Add at least one WAV file.");
    EXPECT_FALSE(split.polySplitIsProcessing());

    split.addFiles({q(drop)});
    EXPECT_EQ(split.polySplitInputURLs(), (QStringList{q(drop / "a.WAV"), q(drop / "b.wav")}));
    split.addFiles({q(drop)});  // the same folder again adds nothing
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
    ASSERT_TRUE(finished(split));
    EXPECT_TRUE(fs::exists(f.output / "A101_1_CH02_Boom.wav"));
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
    ASSERT_TRUE(finished(split));
    EXPECT_EQ(split.polySplitStatusMessage(), "Done. 2 file(s) written.");
    EXPECT_EQ(split.polySplitProgress(), 1.0);
    // The engine works in path order: mono.wav before stereo.wav.
    EXPECT_EQ(testing::withoutTimestamps(split.polySplitLogLines()).mid(2),
              (QStringList{"Skipped mono.wav: File has one channel; nothing to split.",
                           "Wrote 2 channel file(s) for stereo.wav."}));

    // The list survives; running again without overwrite stops at the first file.
    split.startSplit();
    ASSERT_TRUE(finished(split));
    const QString exists = QStringLiteral(
        "Output file already exists: stereo_CH01.wav. Enable overwrite or choose another "
        "folder.");
    EXPECT_EQ(split.polySplitStatusMessage(), QStringLiteral("Failed: ") + exists);
    EXPECT_EQ(testing::withoutTimestamps(split.polySplitLogLines()).last(),
              QStringLiteral("Error: ") + exists);
    split.setPolySplitOverwriteExisting(true);
    split.startSplit();
    ASSERT_TRUE(finished(split));
    EXPECT_EQ(split.polySplitStatusMessage(), "Done. 2 file(s) written.");
}

// The bar follows the engine during the run: a cancel at its first move ends
// with the cancel texts and keeps what was written; starting again while a
// split runs replaces it, and only the new run reports.
TEST(PolySplitWorkflowTest, CancelAndRestartDuringARun) {
    Fixture f;
    PolySplitWorkflow split(f.store);
    for (int i = 0; i < 12; ++i) {
        writeWav(f.dir / "in" / ("poly" + std::to_string(i) + ".wav"), 8, 48000);
    }
    split.addFiles({q(f.dir / "in")});
    const auto cancelMidway =
        QObject::connect(&split, &PolySplitWorkflow::polySplitProgressChanged, &split, [&] {
            if (split.polySplitProgress() > 0 && split.polySplitProgress() < 1) {
                split.cancelSplit();
            }
        });
    split.startSplit();
    ASSERT_TRUE(finished(split));
    EXPECT_EQ(split.polySplitStatusMessage(), "Cancelled");
    EXPECT_EQ(testing::withoutTimestamps(split.polySplitLogLines()).last(), "Split cancelled.");
    EXPECT_LT(split.polySplitProgress(), 1.0);
    EXPECT_TRUE(fs::exists(f.output / "poly0_CH01.wav"));

    QObject::disconnect(cancelMidway);
    split.removeFiles(split.polySplitInputURLs().mid(2));
    split.setPolySplitOverwriteExisting(true);
    split.startSplit();
    split.startSplit();  // the first run is cancelled and its outcome dropped
    const qsizetype linesBefore = split.polySplitLogLines().size();
    ASSERT_TRUE(finished(split));
    EXPECT_EQ(split.polySplitStatusMessage(), "Done. 16 file(s) written.");
    const QStringList log = split.polySplitLogLines().mid(linesBefore);
    EXPECT_TRUE(log.filter("Split cancelled.").isEmpty());
    EXPECT_EQ(log.filter("Wrote 8 channel file(s)").size(), 2);
}

TEST(PolySplitWorkflowTest, OutputsGoBesideTheSourcesIntoAFolderCreatedOnRequest) {
    TempDir dir;
    testing::writeSettingsFile(dir / "settings.json", "{}");  // the home folder by default
    writeWav(dir / "day" / "take.wav", 2);
    writeWav(dir / "day" / "other.wav", 2);
    const fs::path beside = dir / "day" / "Split";
    {
        AppViewModel app(dir / "settings.json");
        PolySplitWorkflow& split = *app.polySplit();
        split.addFiles({q(dir / "day")});
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
        ASSERT_TRUE(finished(split));
        EXPECT_EQ(split.polySplitStatusMessage(), "Done. 2 file(s) written.");
        EXPECT_TRUE(fs::exists(beside / "take_CH01.wav"));
    }
    // The next launch starts in the folder the last split wrote to.
    AppViewModel again(dir / "settings.json");
    EXPECT_EQ(again.polySplit()->polySplitOutputFolder(), q(beside));
}

}  // namespace
}  // namespace norvane
