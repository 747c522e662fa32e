#include "app/gui/stamp_screen.h"

#include <gtest/gtest.h>

#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QTableWidget>
#include <QTest>
#include <QTimer>
#include <filesystem>

#include "app/gui/screenshot_mode.h"
#include "app/gui/ui_hooks.h"
#include "app/gui/widgets/cut_timeline_strip.h"
#include "app/gui/widgets/day_ruler.h"
#include "app/gui/widgets/drop_area.h"
#include "app/gui/widgets/log_pane.h"
#include "app/gui/widgets/path_field.h"
#include "app/viewmodels/cancellation_token.h"
#include "app/viewmodels/stamp_workflow.h"
#include "tests/app/gui/gui_test_support.h"
#include "tests/core/stamp/stamp_fixtures.h"
#include "tests/support/test_support.h"

namespace norvane::gui {
namespace {

namespace fs = std::filesystem;

// Through the screen only: the demo inputs hold an LTC track with two stems
// (LTC from 10:14:32:05 at 25 fps after a 2400-sample lead-in) and a long
// take whose code jumps at 8 s and 16 s.
class StampScreenTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        testing::ensureGuiApp();
        inputs = new testing::TempDir;
        ASSERT_EQ(writeDemoInputs(q(inputs->path())), "");
    }
    static void TearDownTestSuite() { delete inputs; }
    void SetUp() override {
        resetUiHooks();
        fs::create_directories(dir.path() / "out");
    }
    void TearDown() override { resetUiHooks(); }

    static QString q(const fs::path& path) { return QString::fromStdString(path.string()); }
    static fs::path input(const std::string& name) { return inputs->path() / name; }

    void addStampTakeAndChooseOutput() {
        uiHooks().chooseFiles = [](QWidget*, const QString&, const QString&, const QString&) {
            return QStringList{q(input("stamp/Sc12_T03_Boom.wav")),
                               q(input("stamp/Sc12_T03_LTC.wav")),
                               q(input("stamp/Sc12_T03_Lavs.wav"))};
        };
        uiHooks().chooseFolder = [this](QWidget*, const QString&, const QString&) {
            return q(dir.path() / "out");
        };
        screen.dropArea()->findChild<QPushButton*>("dropAreaBrowse")->click();
        ASSERT_TRUE(ingested());
        screen.outputFolderField()->chooseButton()->click();
        QComboBox* ltc = screen.ltcFilePicker();
        const int index = ltc->findData(q(input("stamp/Sc12_T03_LTC.wav")));
        ASSERT_GT(index, 0);
        ltc->setCurrentIndex(index);
        emit ltc->activated(index);
    }

    // Dropped files are listed once their headers are read in the background.
    bool ingested() {
        return QTest::qWaitFor([this] { return !stamp.isIngesting(); }, 10000);
    }

    bool finished() {
        return QTest::qWaitFor([this] { return !stamp.isProcessing(); }, 30000);
    }

    std::vector<fs::path> outputs() const {
        std::vector<fs::path> wavs;
        for (const auto& entry : fs::directory_iterator(dir.path() / "out")) {
            if (entry.path().extension() == ".wav") {
                wavs.push_back(entry.path());
            }
        }
        std::sort(wavs.begin(), wavs.end());
        return wavs;
    }

    static inline testing::TempDir* inputs = nullptr;
    testing::GuiApp app;
    testing::TempDir dir;
    AppSettingsStore store{dir.path() / "settings.json"};
    CancellationToken token;
    StampWorkflow stamp{store, token};
    StampScreen screen{stamp};
};

TEST_F(StampScreenTest, ListsTheFilesAndStampsTheStemsFromTheChosenLTCFile) {
    emit screen.dropArea()->pathsDropped({q(input("rebuild/source.fcpxml"))});
    ASSERT_TRUE(ingested());
    EXPECT_EQ(screen.statusLabel()->text(), "No WAV files found in dropped items.");
    EXPECT_EQ(screen.fileTable()->rowCount(), 0);
    addStampTakeAndChooseOutput();
    QTableWidget* table = screen.fileTable();
    ASSERT_EQ(table->rowCount(), 3);
    EXPECT_EQ(table->item(0, 0)->text(), "Sc12_T03_Boom.wav");
    EXPECT_TRUE(table->item(1, StampScreen::ltcColumn)->text().endsWith("(source)"));

    screen.processButton()->click();
    ASSERT_TRUE(finished());
    EXPECT_EQ(screen.statusLabel()->text(), "Success");
    // The table is the report: each stem's start with its rate, output and a tick.
    const QString start = table->item(0, StampScreen::startColumn)->text();
    EXPECT_TRUE(start.startsWith("10:14:32:0") && start.endsWith(" @ 25")) << start.toStdString();
    // Its tooltip, like the Report pane, says what the decode rests on.
    const QString evidence = table->item(0, StampScreen::startColumn)->toolTip();
    for (const char* part : {"from Sc12_T03_LTC.wav", "LTC evidence: run of ", " bit errors",
                             "; rate: ", "Sub-frame offset: "}) {
        EXPECT_TRUE(evidence.contains(part)) << part << " in " << evidence.toStdString();
    }
    EXPECT_TRUE(screen.reportPane()->toPlainText().contains("LTC evidence: run of "));
    EXPECT_EQ(table->item(0, StampScreen::outputColumn)->text(), "Sc12_T03_Boom_tc.wav");
    EXPECT_EQ(table->item(0, StampScreen::statusColumn)->text(), "✓");

    // libsndfile reads a bext time reference at the file's first sample:
    // 10:14:32:05 less the 2400-sample lead-in, within one frame.
    const double expected = (10 * 3600 + 14 * 60 + 32 + 5.0 / 25) * 48000 - 2400;
    const std::vector<fs::path> written = outputs();
    ASSERT_EQ(written.size(), 2u);
    for (const fs::path& path : written) {
        const auto reference = testing::sndfileTimeReference(path);
        ASSERT_TRUE(reference.has_value()) << path;
        EXPECT_NEAR(static_cast<double>(*reference), expected, 1920.0) << path;
    }

    // Files come off the list from the context menu (Delete).
    table->selectRow(0);
    auto* remove = table->findChild<QAction*>("stampRemoveFiles");
    ASSERT_NE(remove, nullptr);
    EXPECT_TRUE(remove->shortcuts().contains(QKeySequence(QKeySequence::Delete)));
    remove->trigger();
    ASSERT_EQ(table->rowCount(), 2);
    EXPECT_EQ(table->item(0, 0)->text(), "Sc12_T03_LTC.wav");
}

TEST_F(StampScreenTest, TheActionBarStaysInViewAndAMissingFolderIsCreatedOnlyWhenAgreed) {
    addStampTakeAndChooseOutput();
    screen.resize(800, 600);
    screen.show();
    for (const char* mode : {"Single", "Grouped Batch", "LTC Cut Detect"}) {
        stamp.setMode(mode);
        QApplication::processEvents();
        for (QWidget* widget :
             std::initializer_list<QWidget*>{screen.processButton(), screen.cancelButton(),
                                             screen.progressBar(), screen.outputFolderField()}) {
            const QRect inScreen(widget->mapTo(&screen, QPoint(0, 0)), widget->size());
            EXPECT_TRUE(widget->isVisible()) << mode;
            EXPECT_TRUE(screen.rect().contains(inScreen)) << mode;
            // Not clipped away inside a scroll area either.
            EXPECT_FALSE(widget->visibleRegion().isEmpty()) << mode;
        }
    }

    // A missing output folder is created after the user agrees.
    stamp.setMode("Single");
    const fs::path typed = dir.path() / "new" / "day1";
    stamp.setOutputFolder(q(typed));  // as typed in the field
    ASSERT_EQ(screen.outputFolderField()->lineEdit()->text(), q(typed));
    QString asked;
    uiHooks().confirm = [&](QWidget*, const QString&, const QString& text, const QString&) {
        asked = text;
        return false;
    };
    screen.processButton()->click();
    EXPECT_TRUE(asked.contains(q(typed)));
    EXPECT_FALSE(stamp.isProcessing());
    EXPECT_FALSE(fs::exists(typed));
    uiHooks().confirm = [](QWidget*, const QString&, const QString&, const QString&) {
        return true;
    };
    screen.processButton()->click();
    ASSERT_TRUE(finished());
    EXPECT_EQ(stamp.statusMessage(), "Success") << stamp.reportText().toStdString();
    EXPECT_TRUE(fs::exists(typed / "Sc12_T03_Boom_tc.wav"));
}

TEST_F(StampScreenTest, ExistingOutputsAreResolvedThroughTheChoiceDialog) {
    addStampTakeAndChooseOutput();
    screen.processButton()->click();
    ASSERT_TRUE(finished());
    ASSERT_EQ(outputs().size(), 2u);

    QString question;
    uiHooks().choose = [&](QWidget*, const QString&, const QString& text, const QStringList&) {
        question = text;
        return QString("Keep Both");
    };
    screen.processButton()->click();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !question.isEmpty(); }, 30000));
    EXPECT_TRUE(question.contains("Sc12_T03_Boom_tc.wav"));
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return stamp.statusMessage() == "Success" && !stamp.isProcessing(); }, 30000));
    EXPECT_EQ(outputs().size(), 4u);
}

TEST_F(StampScreenTest, LowConfidenceAsksAndOnlyAConfirmationWrites) {
    stamp.setLTCPrecheckForTesting([](const std::vector<ProcessingJob>&, const ProcessingOptions&) {
        LTCPrecheck precheck;
        precheck.detectedRates = {*frameRateConfig(FrameRatePreset::fps25)};
        precheck.lowestConfidence = 0.42;
        return precheck;
    });
    addStampTakeAndChooseOutput();
    int asked = 0;
    bool answer = false;
    uiHooks().confirm = [&](QWidget*, const QString& title, const QString&, const QString&) {
        EXPECT_EQ(title, "Low LTC confidence");
        ++asked;
        return answer;
    };
    screen.processButton()->click();
    ASSERT_TRUE(QTest::qWaitFor([&] { return asked == 1; }, 30000));
    QTest::qWait(50);
    EXPECT_EQ(screen.statusLabel()->text(), "Confirmation required");
    EXPECT_TRUE(outputs().empty());

    answer = true;
    screen.processButton()->click();
    ASSERT_TRUE(QTest::qWaitFor([&] { return asked == 2; }, 30000));
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return stamp.statusMessage() == "Success" && !stamp.isProcessing(); }, 30000));
    EXPECT_EQ(outputs().size(), 2u);
}

TEST_F(StampScreenTest, CutAnalysisFillsTheSegmentListAndTheStrip) {
    emit screen.dropArea()->pathsDropped({q(input("cut/Day2_Roll4.wav"))});
    ASSERT_TRUE(ingested());
    QComboBox* mode = screen.modePicker();
    mode->setCurrentText("LTC Cut Detect");
    emit mode->textActivated("LTC Cut Detect");
    EXPECT_EQ(stamp.mode(), "LTC Cut Detect");
    EXPECT_TRUE(screen.analyzeButton()->isVisibleTo(&screen));
    screen.frameRatePicker()->setCurrentText("25");
    emit screen.frameRatePicker()->textActivated("25");
    const int ltc = screen.ltcFilePicker()->findData(q(input("cut/Day2_Roll4.wav")));
    emit screen.ltcFilePicker()->activated(ltc);
    const int channel = screen.ltcChannelPicker()->findData(2);
    ASSERT_GE(channel, 0);
    emit screen.ltcChannelPicker()->activated(channel);
    EXPECT_EQ(stamp.ltcChannelChoice(), 2);

    screen.analyzeButton()->click();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !stamp.isAnalyzingCuts(); }, 30000));
    EXPECT_EQ(screen.statusLabel()->text(), "Cut analysis complete");
    EXPECT_EQ(screen.segmentPreview()->count(), 3);
    const QVector<std::int64_t> cuts = screen.cutStrip()->cutSamples();
    ASSERT_EQ(cuts.size(), 2);
    EXPECT_NEAR(static_cast<double>(cuts[0]), 8 * 48000.0, 1920.0);
    EXPECT_NEAR(static_cast<double>(cuts[1]), 16 * 48000.0, 1920.0);
}

TEST_F(StampScreenTest, LTCChannelPickerOffersAutoAndTheChannelsOfTheLTCFile) {
    addStampTakeAndChooseOutput();
    QComboBox* channel = screen.ltcChannelPicker();
    const auto entries = [channel] {
        QStringList texts;
        for (int i = 0; i < channel->count(); ++i) {
            texts.append(channel->itemText(i));
        }
        return texts;
    };
    // The one-channel LTC track.
    EXPECT_EQ(entries(), QStringList({"Auto (best channel)", "Channel 1"}));
    EXPECT_EQ(channel->currentIndex(), 0);

    // The four-channel lavalier file carries its LTC on the last track.
    QComboBox* file = screen.ltcFilePicker();
    emit file->activated(file->findData(q(input("stamp/Sc12_T03_Lavs.wav"))));
    EXPECT_EQ(entries().size(), 5);
    channel->setCurrentIndex(4);
    emit channel->activated(4);
    EXPECT_EQ(stamp.ltcChannelChoice(), 4);

    // Back to a file without a fourth channel: Auto again.
    emit file->activated(file->findData(q(input("stamp/Sc12_T03_Boom.wav"))));
    EXPECT_EQ(entries().size(), 3);
    EXPECT_EQ(channel->currentText(), "Auto (best channel)");
    EXPECT_EQ(stamp.ltcChannelChoice(), 0);
}

TEST_F(StampScreenTest, GroupedBatchShowsItsGroupsAndTakesAPerGroupLTCFile) {
    uiHooks().chooseFolder = [this](QWidget*, const QString&, const QString& start) {
        return start.isEmpty() ? QString() : q(dir.path() / "out");
    };
    emit screen.dropArea()->pathsDropped({q(input("stamp"))});
    ASSERT_TRUE(ingested());
    screen.outputFolderField()->chooseButton()->click();
    emit screen.modePicker()->textActivated("Grouped Batch");
    screen.modePicker()->setCurrentText("Grouped Batch");
    EXPECT_EQ(stamp.mode(), "Grouped Batch");
    EXPECT_FALSE(screen.ltcFilePicker()->isVisibleTo(&screen));
    EXPECT_TRUE(screen.groupTable()->isVisibleTo(&screen));

    // The three takes share their duration: one group.
    ASSERT_EQ(screen.groupTable()->rowCount(), 1);
    EXPECT_EQ(screen.groupTable()->item(0, 1)->text(), "3");
    EXPECT_EQ(screen.groupTable()->item(0, 0)->text(), "Sc12_T03");  // the take, not its key
    const QString group = stamp.groupIDs().first();
    auto* ltc = qobject_cast<QComboBox*>(screen.groupTable()->cellWidget(0, 2));
    ASSERT_NE(ltc, nullptr);
    const int index = ltc->findData(q(input("stamp/Sc12_T03_LTC.wav")));
    ASSERT_GT(index, 0);
    emit ltc->activated(index);
    EXPECT_EQ(stamp.groupResolvedLTCByID().value(group).toString(),
              q(input("stamp/Sc12_T03_LTC.wav")));

    emit screen.frameRatePicker()->textActivated("25");
    screen.processButton()->click();
    ASSERT_TRUE(finished());
    EXPECT_EQ(screen.statusLabel()->text(), "Success") << stamp.reportText().toStdString();
    EXPECT_EQ(outputs().size(), 2u);
}

TEST(StampChoiceDialogTest, EnterPicksNeitherChoice) {
    testing::GuiApp app;
    resetUiHooks();  // the platform dialog itself
    QWidget parent;
    QTimer::singleShot(100, [] {
        if (QWidget* box = QApplication::activeModalWidget()) {
            QTest::keyClick(box, Qt::Key_Return);
        }
    });
    const QString choice = uiHooks().choose(&parent, "Outputs already exist", "2 output file(s)",
                                            {"Overwrite", "Keep Both"});
    EXPECT_EQ(choice, "");
}

}  // namespace
}  // namespace norvane::gui
