#include "app/gui/file_table_cells.h"

#include <QColor>
#include <QTableWidgetItem>
#include <cmath>

namespace norvane::gui {

QString durationText(double seconds) {
    if (!(seconds >= 0) || !std::isfinite(seconds)) {
        return "–";
    }
    const auto tenths = static_cast<long long>(std::llround(seconds * 10.0));
    const long long minutes = tenths / 600;
    const double rest = static_cast<double>(tenths % 600) / 10.0;
    return QString("%1:%2").arg(minutes).arg(rest, 4, 'f', 1, QChar('0'));
}

QString channelsFormatText(int channels, double sampleRate, int bitsPerSample, bool isFloat) {
    return QString("%1 ch · %2 kHz %3-bit %4")
        .arg(channels)
        .arg(sampleRate / 1000.0, 0, 'g', 4)
        .arg(bitsPerSample)
        .arg(isFloat ? "float" : "PCM");
}

QTableWidgetItem* statusItem(const QString& status, const QString& reason) {
    auto* item = new QTableWidgetItem;
    if (status == "ok") {
        item->setText("✓");
        item->setForeground(QColor(0x2e, 0xa0, 0x43));
    } else if (status == "warning") {
        item->setText("⚠");
        item->setForeground(QColor(0xd9, 0x8e, 0x1a));
    } else if (status == "failed") {
        item->setText("✗");
        item->setForeground(QColor(0xd0, 0x3b, 0x3b));
    } else if (status == "ltc") {
        item->setText("LTC");
    }
    item->setTextAlignment(Qt::AlignCenter);
    item->setToolTip(reason);
    return item;
}

}  // namespace norvane::gui
