#include "app/gui/widgets/log_pane.h"

#include <gtest/gtest.h>

#include <QTextBlock>

#include "app/gui/style.h"
#include "tests/app/gui/gui_test_support.h"

namespace norvane::gui {
namespace {

QColor colorOfLine(const LogPane& pane, int line) {
    const QTextBlock block = pane.document()->findBlockByNumber(line);
    return block.begin().fragment().charFormat().foreground().color();
}

TEST(LogPaneTest, AppendsNewLinesColouredByLevelAndRestartsOnAnotherLog) {
    LogPane pane;
    pane.setLines({"[10:00:00] [info] Loaded 2 WAV files from drop event."});
    pane.setLines({"[10:00:00] [info] Loaded 2 WAV files from drop event.",
                   "[10:00:01] [warn] Skipped a.wav: bad", "[10:00:02] [error] Failed",
                   "[10:00:03] [success] Processing finished. Wrote 2 output file(s)."});
    EXPECT_EQ(pane.document()->blockCount(), 4);
    EXPECT_EQ(pane.toPlainText().count('\n'), 3);
    EXPECT_EQ(colorOfLine(pane, 1), colorForLogLine("[warn] "));
    EXPECT_EQ(colorOfLine(pane, 2), colorForLogLine("[error] "));
    EXPECT_EQ(colorOfLine(pane, 3), colorForLogLine("[success] "));
    EXPECT_NE(colorOfLine(pane, 0), colorOfLine(pane, 2));

    // A list that does not continue the shown one replaces it (e.g. after clear).
    pane.setLines({"[init] App initialized. Ready."});
    EXPECT_EQ(pane.toPlainText(), "[init] App initialized. Ready.");
    pane.setLines({});
    EXPECT_EQ(pane.toPlainText(), "");
}

}  // namespace
}  // namespace norvane::gui
