#include "app/gui/stamp_screen.h"

#include <gtest/gtest.h>

#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTableWidget>
#include <QTest>
#include <QTimer>
#include <filesystem>

#include "app/gui/ui_hooks.h"
#include "app/gui/widgets/cut_timeline_strip.h"
#include "app/gui/widgets/drop_area.h"
#include "app/gui/widgets/path_field.h"
#include "app/viewmodels/cancellation_token.h"
#include "app/viewmodels/stamp_workflow.h"
#include "tests/app/gui/gui_test_support.h"
#include "tests/support/test_support.h"

namespace norvane::gui {
namespace {

namespace fs = std::filesystem;

// Through the screen only, over the inputs of writeStampInputs (written once
// per test process).
class StampScreenTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        inputs = new testing::TempDir;
        testing::writeStampInputs(inputs->path());
    }
    static void TearDownTestSuite() { delete inputs; }
    void SetUp() override { fs::create_directories(dir.path() / "out"); }
    void TearDown() override { resetUiHooks(); }

    static QString q(const fs::path& path) { return QString::fromStdString(path.string()); }
    static QString input(const std::string& name) { return q(inputs->path() / name); }

    void addStampTakeAndChooseOutput() {
        uiHooks().chooseFiles = [](QWidget*, const QString&, const QString&, const QString&) {
            return QStringList{input("stamp/Sc12_T03_Boom.wav"), input("stamp/Sc12_T03_LTC.wav"),
                               input("stamp/Sc12_T03_Lavs.wav")};
        };
        uiHooks().chooseFolder = [this](QWidget*, const QString&, const QString&) {
            return q(dir.path() / "out");
        };
        screen.dropArea()->findChild<QPushButton*>("dropAreaBrowse")->click();
        ASSERT_TRUE(ingested());
        screen.outputFolderField()->chooseButton()->click();
        pick(screen.ltcFilePicker(), input("stamp/Sc12_T03_LTC.wav"));
    }
    static void pick(QComboBox* box, const QVariant& data) {
        const int index = box->findData(data);
        ASSERT_GE(index, 0) << data.toString().toStdString();
        box->setCurrentIndex(index);
        emit box->activated(index);
    }
    // Dropped files are listed once their headers are read in the background.
    bool ingested() {
        return QTest::qWaitFor([this] { return !stamp.isIngesting(); }, 10000);
    }
    bool succeeded() {
        return QTest::qWaitFor(
            [this] { return stamp.statusMessage() == "Success" && !stamp.isProcessing(); }, 30000);
    }
    std::size_t outputCount() const {
        std::size_t wavs = 0;
        for (const auto& entry : fs::directory_iterator(dir.path() / "out")) {
            wavs += entry.path().extension() == ".wav" ? 1 : 0;
        }
        return wavs;
    }

    static inline testing::TempDir* inputs = nullptr;
    testing::TempDir dir;
    AppSettingsStore store{dir.path() / "settings.json"};
    CancellationToken token;
    StampWorkflow stamp{store, token};
    StampScreen screen{stamp};
};

TEST_F(StampScreenTest, StampsFromTheChosenLTCFileAndAsksBeforeReplacingOutputs) {
    addStampTakeAndChooseOutput();
    QTableWidget* table = screen.fileTable();
    ASSERT_EQ(table->rowCount(), 3);
    EXPECT_EQ(table->item(0, 0)->text(), "Sc12_T03_Boom.wav");
    EXPECT_TRUE(table->item(1, StampScreen::ltcColumn)->text().endsWith("(source)"));

    screen.processButton()->click();
    ASSERT_TRUE(succeeded()) << stamp.statusMessage().toStdString();
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
    ASSERT_EQ(outputCount(), 2u);

    // Again: the existing outputs come back as a question; Keep Both adds two.
    QString question;
    uiHooks().choose = [&](QWidget*, const QString&, const QString& text, const QStringList&) {
        question = text;
        return QString("Keep Both");
    };
    screen.processButton()->click();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !question.isEmpty(); }, 30000));
    EXPECT_TRUE(question.contains("Sc12_T03_Boom_tc.wav"));
    ASSERT_TRUE(succeeded()) << stamp.statusMessage().toStdString();
    EXPECT_EQ(outputCount(), 4u);

    // Files come off the list from the context menu (Delete).
    table->selectRow(0);
    auto* remove = table->findChild<QAction*>("stampRemoveFiles");
    ASSERT_NE(remove, nullptr);
    EXPECT_TRUE(remove->shortcuts().contains(QKeySequence(QKeySequence::Delete)));
    remove->trigger();
    ASSERT_EQ(table->rowCount(), 2);
    EXPECT_EQ(table->item(0, 0)->text(), "Sc12_T03_LTC.wav");
}

TEST_F(StampScreenTest, AMissingFolderIsCreatedOnlyWhenAgreed) {
    addStampTakeAndChooseOutput();
    const fs::path typed = dir.path() / "new" / "day1";
    stamp.setOutputFolder(q(typed));  // as typed in the field
    ASSERT_EQ(screen.outputFolderField()->lineEdit()->text(), q(typed));
    int asked = 0;
    bool answer = false;
    uiHooks().confirm = [&](QWidget*, const QString&, const QString& text, const QString&) {
        EXPECT_TRUE(text.contains(q(typed))) << text.toStdString();
        ++asked;
        return answer;
    };
    screen.processButton()->click();
    EXPECT_EQ(asked, 1);
    EXPECT_FALSE(stamp.isProcessing());
    EXPECT_FALSE(fs::exists(typed));
    answer = true;
    screen.processButton()->click();
    ASSERT_TRUE(succeeded()) << stamp.reportText().toStdString();
    EXPECT_TRUE(fs::exists(typed / "Sc12_T03_Boom_tc.wav"));
}

TEST_F(StampScreenTest, CutAnalysisFillsTheSegmentListAndTheStrip) {
    emit screen.dropArea()->pathsDropped({input("cut/Day2_Roll4.wav")});
    ASSERT_TRUE(ingested());
    QComboBox* mode = screen.modePicker();
    mode->setCurrentText("LTC Cut Detect");
    emit mode->textActivated("LTC Cut Detect");
    EXPECT_EQ(stamp.mode(), "LTC Cut Detect");
    EXPECT_TRUE(screen.analyzeButton()->isVisibleTo(&screen));
    emit screen.frameRatePicker()->textActivated("25");
    pick(screen.ltcFilePicker(), input("cut/Day2_Roll4.wav"));
    pick(screen.ltcChannelPicker(), 2);
    EXPECT_EQ(stamp.ltcChannelChoice(), 2);

    screen.analyzeButton()->click();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !stamp.isAnalyzingCuts(); }, 30000));
    EXPECT_EQ(screen.statusLabel()->text(), "Cut analysis complete");
    EXPECT_EQ(screen.segmentPreview()->count(), 3);
    const QVector<std::int64_t> cuts = screen.cutStrip()->cutSamples();
    ASSERT_EQ(cuts.size(), 2);
    EXPECT_NEAR(static_cast<double>(cuts[0]), 2 * 48000.0, 1920.0);
    EXPECT_NEAR(static_cast<double>(cuts[1]), 4 * 48000.0, 1920.0);
}

// The channel picker follows the LTC file; Grouped Batch swaps it for a table
// of groups, each with its own LTC file.
TEST_F(StampScreenTest, LTCSourcePickersInSingleAndGroupedBatch) {
    addStampTakeAndChooseOutput();
    QComboBox* channel = screen.ltcChannelPicker();
    ASSERT_EQ(channel->count(), 2);
    EXPECT_EQ(channel->itemText(1), "Channel 1");
    EXPECT_EQ(channel->currentText(), "Auto (best channel)");
    pick(screen.ltcFilePicker(), input("stamp/Sc12_T03_Lavs.wav"));
    EXPECT_EQ(channel->count(), 5);
    pick(channel, 4);
    EXPECT_EQ(stamp.ltcChannelChoice(), 4);
    // Back to a file without a fourth channel: Auto again.
    pick(screen.ltcFilePicker(), input("stamp/Sc12_T03_Boom.wav"));
    EXPECT_EQ(channel->count(), 3);
    EXPECT_EQ(channel->currentText(), "Auto (best channel)");
    EXPECT_EQ(stamp.ltcChannelChoice(), 0);

    screen.modePicker()->setCurrentText("Grouped Batch");
    emit screen.modePicker()->textActivated("Grouped Batch");
    EXPECT_EQ(stamp.mode(), "Grouped Batch");
    EXPECT_FALSE(screen.ltcFilePicker()->isVisibleTo(&screen));
    EXPECT_TRUE(screen.groupTable()->isVisibleTo(&screen));
    // The three takes share their duration: one group, named by its take.
    ASSERT_EQ(screen.groupTable()->rowCount(), 1);
    EXPECT_EQ(screen.groupTable()->item(0, 0)->text(), "Sc12_T03");
    EXPECT_EQ(screen.groupTable()->item(0, 1)->text(), "3");
    auto* ltc = qobject_cast<QComboBox*>(screen.groupTable()->cellWidget(0, 2));
    ASSERT_NE(ltc, nullptr);
    pick(ltc, input("stamp/Sc12_T03_LTC.wav"));
    EXPECT_EQ(stamp.groupResolvedLTCByID().value(stamp.groupIDs().first()).toString(),
              input("stamp/Sc12_T03_LTC.wav"));
    emit screen.frameRatePicker()->textActivated("25");
    screen.processButton()->click();
    ASSERT_TRUE(succeeded()) << stamp.reportText().toStdString();
    EXPECT_EQ(outputCount(), 2u);
}

TEST(StampChoiceDialogTest, EnterPicksNeitherChoice) {
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
