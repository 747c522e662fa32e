#pragma once

#include <QColor>
#include <QString>

class QApplication;
class QLabel;

namespace norvane::gui {

// The application's look: the Fusion style with a light palette and one
// style sheet for the home cards, drop areas, section titles and panes.
void applyAppStyle(QApplication& app);
QString appStyleSheet();

// Colours for messages by level and validation items by severity.
QColor colorForSeverity(const QString& severity);  // "error", "warning", "info" (any case)
QColor colorForLogLine(const QString& line);       // by its "[error] "... marker

// A bold section title label.
QLabel* makeSectionTitle(const QString& text);

}  // namespace norvane::gui
