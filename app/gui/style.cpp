#include "app/gui/style.h"

#include <QApplication>
#include <QLabel>
#include <QPalette>
#include <QStyle>
#include <QStyleFactory>

namespace norvane::gui {

QString appStyleSheet() {
    return R"(
QFrame#dropArea {
    border: 2px dashed #9AA5B1;
    border-radius: 8px;
    background: #F7F9FB;
}
QFrame#dropArea[dropTargeted="true"] {
    border: 2px solid #1F5FBF;
    background: #E4EEFB;
}
QLabel#dropAreaTitle { font-weight: 600; }
QLabel#dropAreaSubtitle { color: #5B6670; }
QPushButton#toolCard {
    text-align: left;
    border: 1px solid #C9D1D9;
    border-radius: 10px;
    background: #FFFFFF;
    padding: 14px;
}
QPushButton#toolCard:hover { border-color: #1F5FBF; background: #F3F7FD; }
QPushButton#toolCard:focus { border: 2px solid #1F5FBF; }
QLabel#toolCardTitle { font-weight: 600; font-size: 13pt; }
QLabel#toolCardSubtitle { color: #4B5560; }
QLabel#homeTitle { font-size: 20pt; font-weight: 600; }
QLabel#homeSubtitle { color: #5B6670; }
QLabel#screenTitle { font-size: 14pt; font-weight: 600; }
QLabel#sectionTitle { font-weight: 600; color: #2A3138; }
QLabel#statusLine { color: #2A3138; }
QLabel#helpText { color: #5B6670; }
QFrame#headerBar { border-bottom: 1px solid #D5DBE1; background: #F3F5F7; }
QPlainTextEdit#logPane, QPlainTextEdit#reportPane {
    font-family: "DejaVu Sans Mono", monospace;
}
)";
}

void applyAppStyle(QApplication& app) {
    if (QStyle* fusion = QStyleFactory::create("Fusion")) {
        app.setStyle(fusion);
    }
    QPalette palette = app.style()->standardPalette();
    palette.setColor(QPalette::Window, QColor(0xFA, 0xFB, 0xFC));
    palette.setColor(QPalette::Base, Qt::white);
    palette.setColor(QPalette::AlternateBase, QColor(0xF2, 0xF5, 0xF8));
    palette.setColor(QPalette::Highlight, QColor(0x1F, 0x5F, 0xBF));
    palette.setColor(QPalette::PlaceholderText, QColor(0x8A, 0x94, 0x9E));
    app.setPalette(palette);
    app.setStyleSheet(appStyleSheet());
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
        return QColor(0x1E, 0x7B, 0x3A);
    }
    return QColor(0x2A, 0x31, 0x38);
}

QLabel* makeSectionTitle(const QString& text) {
    auto* label = new QLabel(text);
    label->setObjectName("sectionTitle");
    return label;
}

}  // namespace norvane::gui
