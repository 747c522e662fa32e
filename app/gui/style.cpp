#include "app/gui/style.h"

#include <QApplication>
#include <QLabel>
#include <QPalette>
#include <QStyle>
#include <QStyleFactory>

namespace norvane::gui {

QString appStyleSheet() {
    return appStyleSheet(QApplication::palette());
}

QString appStyleSheet(const QPalette& palette) {
    // Every colour comes from the palette, so light and dark themes both read.
    const auto c = [&](QPalette::ColorRole role) { return palette.color(role).name(); };
    const QColor window = palette.color(QPalette::Window);
    const bool dark = window.lightness() < 128;
    const QString muted = dark ? "#A9B4BF" : "#5B6670";
    return QString(R"(
QFrame#dropArea {
    border: 2px dashed %1;
    border-radius: 8px;
    background: %2;
}
QFrame#dropArea[dropTargeted="true"] {
    border: 2px solid %3;
    background: %4;
}
QLabel#dropAreaTitle { font-weight: 600; }
QLabel#dropAreaSubtitle { color: %5; }
QPushButton#toolCard {
    text-align: left;
    border: 1px solid %1;
    border-radius: 10px;
    background: %6;
    padding: 14px;
}
QPushButton#toolCard:hover { border-color: %3; background: %4; }
QPushButton#toolCard:focus { border: 2px solid %3; }
QLabel#toolCardTitle { font-weight: 600; font-size: 13pt; }
QLabel#toolCardSubtitle { color: %5; }
QLabel#homeTitle { font-size: 20pt; font-weight: 600; }
QLabel#homeSubtitle { color: %5; }
QLabel#screenTitle { font-size: 14pt; font-weight: 600; }
QLabel#sectionTitle { font-weight: 600; color: %7; }
QLabel#statusLine { color: %7; }
QLabel#helpText { color: %5; }
QFrame#headerBar { border-bottom: 1px solid %1; background: %2; }
QFrame#actionBar { border-top: 1px solid %1; background: %2; }
QPlainTextEdit#logPane, QPlainTextEdit#reportPane {
    font-family: "DejaVu Sans Mono", monospace;
}
)")
        .arg(c(QPalette::Mid), c(QPalette::AlternateBase), c(QPalette::Highlight),
             (dark ? palette.color(QPalette::Highlight).darker(250)
                   : palette.color(QPalette::Highlight).lighter(185))
                 .name(),
             muted, c(QPalette::Base), c(QPalette::WindowText));
}

bool prefersDarkTheme(const QPalette& platform) {
    const QByteArray theme = qgetenv("NORVANE_THEME").toLower();
    if (theme == "dark") {
        return true;
    }
    if (theme == "light") {
        return false;
    }
    return platform.color(QPalette::Window).lightness() < 128;
}

QPalette appPalette(bool dark) {
    QPalette palette;
    if (dark) {
        palette.setColor(QPalette::Window, QColor(0x23, 0x26, 0x2B));
        palette.setColor(QPalette::WindowText, QColor(0xE6, 0xE9, 0xED));
        palette.setColor(QPalette::Base, QColor(0x1A, 0x1C, 0x20));
        palette.setColor(QPalette::AlternateBase, QColor(0x2A, 0x2E, 0x34));
        palette.setColor(QPalette::Text, QColor(0xE6, 0xE9, 0xED));
        palette.setColor(QPalette::Button, QColor(0x31, 0x35, 0x3B));
        palette.setColor(QPalette::ButtonText, QColor(0xE6, 0xE9, 0xED));
        palette.setColor(QPalette::ToolTipBase, QColor(0x31, 0x35, 0x3B));
        palette.setColor(QPalette::ToolTipText, QColor(0xE6, 0xE9, 0xED));
        palette.setColor(QPalette::Highlight, QColor(0x3D, 0x7E, 0xE0));
        palette.setColor(QPalette::HighlightedText, Qt::white);
        palette.setColor(QPalette::Link, QColor(0x6C, 0xA6, 0xF5));
        palette.setColor(QPalette::PlaceholderText, QColor(0x8A, 0x94, 0x9E));
        palette.setColor(QPalette::Mid, QColor(0x4A, 0x50, 0x58));
        palette.setColor(QPalette::Light, QColor(0x3A, 0x3F, 0x46));
        palette.setColor(QPalette::Midlight, QColor(0x34, 0x38, 0x3F));
        palette.setColor(QPalette::Dark, QColor(0x15, 0x17, 0x1A));
        palette.setColor(QPalette::Shadow, Qt::black);
        palette.setColor(QPalette::BrightText, QColor(0xFF, 0x6B, 0x6B));
        for (auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText}) {
            palette.setColor(QPalette::Disabled, role, QColor(0x7A, 0x82, 0x8C));
        }
        return palette;
    }
    if (QStyle* fusion = QStyleFactory::create("Fusion")) {
        palette = fusion->standardPalette();
        delete fusion;
    }
    palette.setColor(QPalette::Window, QColor(0xFA, 0xFB, 0xFC));
    palette.setColor(QPalette::Base, Qt::white);
    palette.setColor(QPalette::AlternateBase, QColor(0xF2, 0xF5, 0xF8));
    palette.setColor(QPalette::Highlight, QColor(0x1F, 0x5F, 0xBF));
    palette.setColor(QPalette::PlaceholderText, QColor(0x8A, 0x94, 0x9E));
    palette.setColor(QPalette::Mid, QColor(0xC9, 0xD1, 0xD9));
    return palette;
}

void applyAppStyle(QApplication& app) {
    // The platform's palette says whether the desktop is dark; read it before
    // the Fusion style replaces it.
    const bool dark = prefersDarkTheme(QApplication::palette());
    if (QStyle* fusion = QStyleFactory::create("Fusion")) {
        app.setStyle(fusion);
    }
    const QPalette palette = appPalette(dark);
    app.setPalette(palette);
    app.setStyleSheet(appStyleSheet(palette));
}

QColor colorForSeverity(const QString& severity) {
    const QString lower = severity.toLower();
    if (lower.startsWith("error")) {
        return QColor(0xB3, 0x26, 0x1E);
    }
    if (lower.startsWith("warn")) {
        return QColor(0x9A, 0x62, 0x00);
    }
    return QColor(0x2A, 0x5D, 0xA8);
}

QColor colorForLogLine(const QString& line) {
    if (line.contains("[error]") || line.contains("Error:") || line.contains("Failed")) {
        return QColor(0xB3, 0x26, 0x1E);
    }
    if (line.contains("[warn]") || line.contains("Skipped ") || line.contains("cancelled")) {
        return QColor(0x9A, 0x62, 0x00);
    }
    if (line.contains("[success]")) {
        return QColor(0x2E, 0xA0, 0x43);
    }
    return QApplication::palette().color(QPalette::Text);
}

QLabel* makeSectionTitle(const QString& text) {
    auto* label = new QLabel(text);
    label->setObjectName("sectionTitle");
    return label;
}

}  // namespace norvane::gui
