#pragma once

#include <QColor>
#include <QImage>
#include <QRect>
#include <QString>

class QWidget;

namespace norvane::testing {

// The process's QApplication on the offscreen platform, made on first use,
// with NORVANE_SETTINGS pointing at a fresh file in a temporary folder.
void ensureGuiApp();
// As the first member of a fixture whose other members are widgets.
struct GuiApp {
    GuiApp() { ensureGuiApp(); }
};

// What the widget shows, painted into an image at its current size.
QImage renderWidget(QWidget& widget);

// Whether any pixel inside `area` of `image` is within `tolerance` of `color`
// on each of the red, green and blue components.
bool containsColor(const QImage& image, const QRect& area, const QColor& color, int tolerance = 24);

}  // namespace norvane::testing
