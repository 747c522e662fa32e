#include "app/gui/widgets/ltc_health_strip.h"

#include <QPainter>
#include <algorithm>
#include <cmath>

namespace norvane::gui {

namespace {
constexpr double kMargin = 4;
constexpr double kLabelHeight = 16;
}  // namespace

LTCHealthStrip::LTCHealthStrip(QWidget* parent) : QWidget(parent) {
    setObjectName("ltcHealthStrip");
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    setAccessibleName("LTC health");
}

QColor LTCHealthStrip::colorFor(Level level) {
    switch (level) {
        case Level::green:
            return QColor(0x2e, 0xa0, 0x43);
        case Level::amber:
            return QColor(0xe0, 0x9b, 0x1b);
        case Level::red:
            break;
    }
    return QColor(0xd0, 0x3b, 0x3b);
}

void LTCHealthStrip::setHealth(const QVariantMap& health) {
    fileName_ = health.value("fileName").toString();
    channel_ = health.value("channel").toInt();
    rate_ = health.value("rate").toString();
    frameCount_ = health.value("frameCount").toLongLong();
    sampleRate_ = health.value("sampleRate").toLongLong();
    firstValidSample_ =
        health.contains("firstValidSample") ? health.value("firstValidSample").toLongLong() : -1;
    envelope_.clear();
    for (const QVariant& peak : health.value("envelope").toList()) {
        envelope_.append(peak.toDouble());
    }
    stretches_.clear();
    for (const QVariant& entry : health.value("stretches").toList()) {
        const QVariantMap map = entry.toMap();
        const QString level = map.value("level").toString();
        stretches_.append({map.value("begin").toLongLong(), map.value("end").toLongLong(),
                           level == "green"   ? Level::green
                           : level == "amber" ? Level::amber
                                              : Level::red});
    }
    setToolTip(summary());
    update();
}

QString LTCHealthStrip::summary() const {
    if (isEmpty()) {
        return {};
    }
    std::int64_t good = 0;
    std::int64_t total = 0;
    for (const Stretch& stretch : stretches_) {
        total += stretch.end - stretch.begin;
        good += stretch.level == Level::green ? stretch.end - stretch.begin : 0;
    }
    const int percent = total > 0 ? static_cast<int>(std::lround(100.0 * static_cast<double>(good) /
                                                                 static_cast<double>(total)))
                                  : 0;
    QString text = QString("LTC: %1, channel %2").arg(fileName_).arg(channel_);
    text += rate_.isEmpty() ? QString(", no rate detected") : QString(", %1 fps").arg(rate_);
    text += QString(" — %1 % of the file decodes").arg(percent);
    if (firstValidSample_ >= 0 && sampleRate_ > 0) {
        text += QString("; first valid frame at %1 s")
                    .arg(static_cast<double>(firstValidSample_) / static_cast<double>(sampleRate_),
                         0, 'f', 2);
    }
    return text;
}

QRectF LTCHealthStrip::plotRect() const {
    return QRectF(kMargin, kMargin + kLabelHeight, std::max(1.0, width() - 2 * kMargin),
                  std::max(1.0, height() - 2 * kMargin - kLabelHeight));
}

double LTCHealthStrip::xForSample(std::int64_t sample) const {
    const QRectF plot = plotRect();
    if (frameCount_ <= 0) {
        return plot.left();
    }
    return plot.left() +
           static_cast<double>(sample) / static_cast<double>(frameCount_) * plot.width();
}

QSize LTCHealthStrip::sizeHint() const {
    return QSize(400, 64);
}

QSize LTCHealthStrip::minimumSizeHint() const {
    return QSize(120, 56);
}

void LTCHealthStrip::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    const QPalette& pal = palette();
    painter.fillRect(rect(), pal.color(QPalette::Base));
    painter.setPen(pal.color(QPalette::Text));
    if (isEmpty()) {
        painter.setPen(pal.color(QPalette::PlaceholderText));
        painter.drawText(rect(), Qt::AlignCenter, "The LTC source's health shows here.");
        return;
    }
    painter.drawText(QRectF(kMargin, kMargin, width() - 2 * kMargin, kLabelHeight),
                     Qt::AlignLeft | Qt::AlignVCenter,
                     painter.fontMetrics().elidedText(summary(), Qt::ElideRight,
                                                      width() - 2 * static_cast<int>(kMargin)));
    const QRectF plot = plotRect();
    // Confidence behind, envelope in front.
    for (const Stretch& stretch : stretches_) {
        QColor color = colorFor(stretch.level);
        color.setAlpha(90);
        const double left = xForSample(stretch.begin);
        painter.fillRect(QRectF(left, plot.top(), xForSample(stretch.end) - left, plot.height()),
                         color);
    }
    if (!envelope_.isEmpty()) {
        painter.setPen(Qt::NoPen);
        painter.setBrush(pal.color(QPalette::Text));
        const double slice = plot.width() / envelope_.size();
        const double mid = plot.center().y();
        for (int i = 0; i < envelope_.size(); ++i) {
            const double h = std::clamp(envelope_[i], 0.0, 1.0) * plot.height() * 0.5;
            painter.drawRect(QRectF(plot.left() + i * slice, mid - h, std::max(slice, 1.0),
                                    std::max(2 * h, 0.5)));
        }
    }
    if (firstValidSample_ >= 0) {
        const double x = xForSample(firstValidSample_);
        painter.setPen(QPen(pal.color(QPalette::Highlight), 2));
        painter.drawLine(QPointF(x, plot.top()), QPointF(x, plot.bottom()));
    }
}

}  // namespace norvane::gui
