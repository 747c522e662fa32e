#pragma once

#include <filesystem>

#include <QColor>
#include <QImage>
#include <QRect>
#include <QString>

class QWidget;

namespace norvane::testing {

// The process's QApplication (on the offscreen platform, with NORVANE_SETTINGS
// pointing at a fresh file in a temporary folder) is made by the tests' main().

// What the widget shows, painted into an image at its current size.
QImage renderWidget(QWidget& widget);

// Whether any pixel inside `area` of `image` is within `tolerance` of `color`
// on each of the red, green and blue components.
bool containsColor(const QImage& image, const QRect& area, const QColor& color, int tolerance = 24);

// Short inputs for the stamp screen under `folder`: stamp/Sc12_T03_LTC.wav (LTC
// from 10:14:32:05 at 25 fps after a 2400-sample lead-in), stamp/Sc12_T03_Boom.wav
// (2 ch, LTC on channel 1) and stamp/Sc12_T03_Lavs.wav (4 ch, LTC on channel 4),
// 2 s each; and cut/Day2_Roll4.wav, 6 s of two channels whose LTC (channel 2)
// starts at 11:00:00:00 and jumps at 2 s and 4 s.
void writeStampInputs(const std::filesystem::path& folder);

// A rebuild project under `folder`: source.fcpxml with cameras CamA (events 1-3)
// and CamB (events 1 and 3), stereo_mix.wav, and synced/evtN_trkM.wav, one-second
// takes (3, 2 and 3 tracks) whose iXML timecodes are 01:00:00:00, 01:00:20:00
// and 01:00:40:00.
void writeRebuildInputs(const std::filesystem::path& folder);

}  // namespace norvane::testing
