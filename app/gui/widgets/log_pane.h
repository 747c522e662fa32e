#pragma once

#include <QPlainTextEdit>
#include <QStringList>

namespace norvane::gui {

// A read-only log: shows a list of lines, each coloured by its level marker
// ("[error] ", "[warn] ", "[success] "). When the new list extends the shown
// one only the new lines are appended, so long logs stay cheap and keep the
// scroll position at the end.
class LogPane : public QPlainTextEdit {
    Q_OBJECT

  public:
    explicit LogPane(QWidget* parent = nullptr);

    void setLines(const QStringList& lines);
    const QStringList& lines() const { return lines_; }

  private:
    void appendLine(const QString& line);
    QStringList lines_;
};

}  // namespace norvane::gui
