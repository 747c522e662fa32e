#pragma once

#include <QColor>
#include <QString>

class QApplication;
class QPalette;
class QLabel;

namespace norvane::gui {

// The application's look: the Fusion style with a light or dark palette,
// following the desktop (NORVANE_THEME=dark or light overrides it), and one
// style sheet drawn from that palette for the home cards, drop areas, section
// titles, panes and the action bar.
void applyAppStyle(QApplication& app);
QString appStyleSheet();
QString appStyleSheet(const QPalette& palette);
// Dark when NORVANE_THEME says so, else when the platform's window colour is dark.
bool prefersDarkTheme(const QPalette& platform);
QPalette appPalette(bool dark);

// Colours for messages by level and validation items by severity.
QColor colorForSeverity(const QString& severity);  // "error", "warning", "info" (any case)
QColor colorForLogLine(const QString& line);       // by its "[error] "... marker

// A bold section title label.
QLabel* makeSectionTitle(const QString& text);

}  // namespace norvane::gui
