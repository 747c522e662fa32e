#pragma once

#include <QString>

class QTableWidgetItem;

namespace norvane::gui {

// The cells the stamp and split file tables share, so that a file reads the
// same on both screens.

// "m:ss.s" (0:06.0, 61:00.0); "–" for a length that is not known.
QString durationText(double seconds);

// "4 ch · 48 kHz 24-bit PCM"; "32-bit float" for float data.
QString channelsFormatText(int channels, double sampleRate, int bitsPerSample, bool isFloat);

// ✓ (status "ok"), ⚠ ("warning"), ✗ ("failed") or "LTC" ("ltc"), coloured,
// with `reason` as tooltip; empty for any other status.
QTableWidgetItem* statusItem(const QString& status, const QString& reason);

}  // namespace norvane::gui
