#include "tests/app/gui/gui_test_support.h"

#include <QApplication>
#include <QDir>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QWidget>
#include <cstdlib>

#include "app/gui/style.h"

namespace norvane::testing {

void ensureGuiApp() {
    if (QApplication::instance() != nullptr) {
        return;
    }
    qputenv("QT_QPA_PLATFORM", "offscreen");
    // Settings and window state of the tests never touch the user's own.
    static QTemporaryDir settingsDir;
    qputenv("NORVANE_SETTINGS", QDir(settingsDir.path()).filePath("settings.json").toUtf8());
    QStandardPaths::setTestModeEnabled(true);
    static int argc = 1;
    static char name[] = "gui_tests";
    static char* argv[] = {name, nullptr};
    auto* app = new QApplication(argc, argv);  // lives until the process ends
    QApplication::setOrganizationName("NorvaneTests");
    QApplication::setApplicationName("gui_tests");
    norvane::gui::applyAppStyle(*app);
}

QImage renderWidget(QWidget& widget) {
    widget.ensurePolished();
    return widget.grab().toImage().convertToFormat(QImage::Format_RGB32);
}

bool containsColor(const QImage& image, const QRect& area, const QColor& color, int tolerance) {
    const QRect clipped = area.intersected(image.rect());
    for (int y = clipped.top(); y <= clipped.bottom(); ++y) {
        for (int x = clipped.left(); x <= clipped.right(); ++x) {
            const QColor pixel = image.pixelColor(x, y);
            if (std::abs(pixel.red() - color.red()) <= tolerance &&
                std::abs(pixel.green() - color.green()) <= tolerance &&
                std::abs(pixel.blue() - color.blue()) <= tolerance) {
                return true;
            }
        }
    }
    return false;
}

}  // namespace norvane::testing
