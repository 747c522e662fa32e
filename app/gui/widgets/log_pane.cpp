#include "app/gui/widgets/log_pane.h"

#include <QScrollBar>
#include <QTextBlock>
#include <QTextCursor>

#include "app/gui/style.h"

namespace norvane::gui {

LogPane::LogPane(QWidget* parent) : QPlainTextEdit(parent) {
    setObjectName("logPane");
    setReadOnly(true);
    setLineWrapMode(QPlainTextEdit::WidgetWidth);
    setMaximumBlockCount(20000);
    setTabChangesFocus(true);
}

void LogPane::setLines(const QStringList& lines) {
    const bool extends =
        lines.size() >= lines_.size() && std::equal(lines_.begin(), lines_.end(), lines.begin());
    if (!extends) {
        clear();
        lines_.clear();
    }
    for (qsizetype i = lines_.size(); i < lines.size(); ++i) {
        appendLine(lines[i]);
    }
    lines_ = lines;
    verticalScrollBar()->setValue(verticalScrollBar()->maximum());
}

void LogPane::appendLine(const QString& line) {
    QTextCharFormat format;
    format.setForeground(colorForLogLine(line));
    QTextCursor cursor(document());
    cursor.movePosition(QTextCursor::End);
    if (!document()->isEmpty()) {
        cursor.insertBlock();
    }
    cursor.insertText(line, format);
}

}  // namespace norvane::gui
