#include "tests/app/gui/gui_test_support.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QDir>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QWidget>
#include <cstdlib>

#include "app/gui/style.h"
#include "core/rebuild/demo_timeline.h"
#include "tests/core/rebuild/rebuild_fixtures.h"
#include "tests/core/stamp/stamp_fixtures.h"
#include "tests/support/wav_builder.h"

namespace norvane::testing {

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

void writeStampInputs(const std::filesystem::path& folder) {
    std::filesystem::create_directories(folder / "stamp");
    std::filesystem::create_directories(folder / "cut");
    const Timecode take{10, 14, 32, 5, false};
    const auto fps25 = FrameRatePreset::fps25;
    writeLTCFile(folder / "stamp/Sc12_T03_LTC.wav", fps25, take, 2400, 2, 1, 1);
    writeLTCFile(folder / "stamp/Sc12_T03_Boom.wav", fps25, take, 2400, 2, 2, 1);
    writeLTCFile(folder / "stamp/Sc12_T03_Lavs.wav", fps25, take, 2400, 2, 4, 4);
    writeLTCFile(folder / "cut/Day2_Roll4.wav", fps25, {11, 0, 0, 0, false}, 2400, 6, 2, 2,
                 {{2.0, {11, 20, 0, 0, false}}, {4.0, {12, 5, 30, 0, false}}});
}

void writeRebuildInputs(const std::filesystem::path& folder) {
    std::filesystem::create_directories(folder / "synced");
    DemoTimelineSpec recipe;
    recipe.lanes = {{"CamA", {{"01:00:00:00"}, {"01:00:20:00"}, {"01:00:40:00"}}},
                    {"CamB", {{"01:00:00:00"}, {"01:00:40:00"}}}};
    writeText(folder / "source.fcpxml", makeDemoSourceTimeline(recipe));
    writeSyncedWav(folder / "stereo_mix.wav", {3 * 48000, 48000, 2, {}, {}});
    const char* timecodes[] = {"01:00:00:00", "01:00:20:00", "01:00:40:00"};
    const int tracks[] = {3, 2, 3};
    for (int event = 0; event < 3; ++event) {
        const std::string ixml =
            std::string("<BWFXML><TIMECODE>") + timecodes[event] + "</TIMECODE></BWFXML>";
        for (int track = 1; track <= tracks[event]; ++track) {
            writeSyncedWav(
                folder / "synced" /
                    ("evt" + std::to_string(event + 1) + "_trk" + std::to_string(track) + ".wav"),
                {48000, 48000, 1, {}, ixml});
        }
    }
}

}  // namespace norvane::testing

// One QApplication on the offscreen platform for the whole process, made
// before any test; the tests' settings and window state never touch the user's own.
int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QTemporaryDir settingsDir;
    qputenv("NORVANE_SETTINGS", QDir(settingsDir.path()).filePath("settings.json").toUtf8());
    QStandardPaths::setTestModeEnabled(true);
    QApplication app(argc, argv);
    QApplication::setOrganizationName("NorvaneTests");
    QApplication::setApplicationName("gui_tests");
    norvane::gui::applyAppStyle(app);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
