#include "app/gui/widgets/cut_timeline_strip.h"

#include <QHelpEvent>
#include <QPainter>
#include <QPainterPath>
#include <QToolTip>
#include <algorithm>
#include <cmath>

namespace norvane::gui {

namespace {

constexpr int kTopBand = 18;     // segment numbers
constexpr int kBottomBand = 18;  // time labels
constexpr int kSide = 8;

const QColor kBandColors[2] = {QColor(0xE3, 0xEC, 0xF8), QColor(0xEE, 0xF4, 0xE6)};

}  // namespace

CutTimelineStrip::CutTimelineStrip(QWidget* parent) : QWidget(parent) {
    setObjectName("cutTimelineStrip");
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    setAttribute(Qt::WA_OpaquePaintEvent);
}

QColor CutTimelineStrip::cutColor() {
    return QColor(0xD9, 0x30, 0x25);
}
QColor CutTimelineStrip::lineColor() {
    return QColor(0x1F, 0x5F, 0xBF);
}

void CutTimelineStrip::setData(QVector<Point> points, QVector<Segment> segments,
                               std::int64_t fileFrameCount, std::int64_t sampleRate) {
    points_ = std::move(points);
    segments_ = std::move(segments);
    fileFrameCount_ = std::max<std::int64_t>(fileFrameCount, 0);
    sampleRate_ = sampleRate > 0 ? sampleRate : 48000;
    std::sort(points_.begin(), points_.end(),
              [](const Point& a, const Point& b) { return a.sample < b.sample; });
    std::sort(segments_.begin(), segments_.end(),
              [](const Segment& a, const Segment& b) { return a.startSample < b.startSample; });
    minFrames_ = 0;
    maxFrames_ = 0;
    if (!points_.isEmpty()) {
        const auto [lo, hi] = std::minmax_element(
            points_.begin(), points_.end(),
            [](const Point& a, const Point& b) { return a.frameCount < b.frameCount; });
        minFrames_ = lo->frameCount;
        maxFrames_ = hi->frameCount;
    }
    update();
}

void CutTimelineStrip::clear() {
    setData({}, {}, 0, sampleRate_);
}

QVector<std::int64_t> CutTimelineStrip::cutSamples() const {
    QVector<std::int64_t> cuts;
    for (int i = 1; i < segments_.size(); ++i) {
        cuts.append(segments_[i].startSample);
    }
    return cuts;
}

QRectF CutTimelineStrip::plotRect() const {
    return QRectF(kSide, kTopBand, std::max(1, width() - 2 * kSide),
                  std::max(1, height() - kTopBand - kBottomBand));
}

double CutTimelineStrip::xForSample(std::int64_t sample) const {
    const QRectF plot = plotRect();
    if (fileFrameCount_ <= 0) {
        return plot.left();
    }
    const double fraction =
        std::clamp(static_cast<double>(sample) / static_cast<double>(fileFrameCount_), 0.0, 1.0);
    return plot.left() + fraction * plot.width();
}

double CutTimelineStrip::yForFrameCount(std::int64_t frameCount) const {
    const QRectF plot = plotRect().adjusted(0, 4, 0, -4);
    if (maxFrames_ <= minFrames_) {
        return plot.center().y();
    }
    const double fraction =
        static_cast<double>(frameCount - minFrames_) / static_cast<double>(maxFrames_ - minFrames_);
    return plot.bottom() - fraction * plot.height();
}

QString CutTimelineStrip::timeLabel(std::int64_t sample) const {
    const double seconds = static_cast<double>(sample) / static_cast<double>(sampleRate_);
    const auto whole = static_cast<std::int64_t>(std::floor(seconds));
    const std::int64_t hours = whole / 3600;
    const std::int64_t minutes = (whole / 60) % 60;
    const std::int64_t secs = whole % 60;
    if (hours > 0) {
        return QString("%1:%2:%3")
            .arg(hours)
            .arg(minutes, 2, 10, QChar('0'))
            .arg(secs, 2, 10, QChar('0'));
    }
    return QString("%1:%2").arg(minutes).arg(secs, 2, 10, QChar('0'));
}

int CutTimelineStrip::segmentAt(std::int64_t sample) const {
    for (int i = 0; i < segments_.size(); ++i) {
        if (sample >= segments_[i].startSample && sample < segments_[i].endSample) {
            return i;
        }
    }
    return -1;
}

QString CutTimelineStrip::describePosition(double x) const {
    if (fileFrameCount_ <= 0) {
        return {};
    }
    const QRectF plot = plotRect();
    const double fraction = std::clamp((x - plot.left()) / plot.width(), 0.0, 1.0);
    const auto sample =
        static_cast<std::int64_t>(std::llround(fraction * static_cast<double>(fileFrameCount_)));
    QString text = "Position " + timeLabel(sample);
    // The window that starts at or before the position carries its timecode.
    const Point* nearest = nullptr;
    for (const Point& point : points_) {
        if (point.sample > sample) {
            break;
        }
        nearest = &point;
    }
    if (nearest != nullptr && !nearest->timecode.isEmpty()) {
        text += "\nLTC " + nearest->timecode;
    }
    const int segment = segmentAt(sample);
    if (segment >= 0) {
        text += QString("\nSegment %1").arg(segments_[segment].segmentIndex);
    }
    return text;
}

QSize CutTimelineStrip::sizeHint() const {
    return QSize(480, 120);
}
QSize CutTimelineStrip::minimumSizeHint() const {
    return QSize(160, 84);
}

bool CutTimelineStrip::event(QEvent* event) {
    if (event->type() == QEvent::ToolTip) {
        auto* help = static_cast<QHelpEvent*>(event);
        const QString text = describePosition(help->pos().x());
        if (text.isEmpty()) {
            QToolTip::hideText();
        } else {
            QToolTip::showText(help->globalPos(), text, this);
        }
        return true;
    }
    return QWidget::event(event);
}

void CutTimelineStrip::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.fillRect(rect(), palette().base());
    painter.setRenderHint(QPainter::Antialiasing, true);
    const QRectF plot = plotRect();
    const QFontMetrics metrics(font());

    if (fileFrameCount_ <= 0) {
        painter.setPen(palette().color(QPalette::PlaceholderText));
        painter.drawText(rect(), Qt::AlignCenter, "Analyze cuts to see the LTC timeline.");
        return;
    }

    // Segment bands, numbered along the top.
    for (int i = 0; i < segments_.size(); ++i) {
        const Segment& segment = segments_[i];
        const double left = xForSample(segment.startSample);
        const double right = xForSample(segment.endSample);
        const QRectF band(left, plot.top(), std::max(1.0, right - left), plot.height());
        painter.fillRect(band, kBandColors[i % 2]);
        const QString number = QString::number(segment.segmentIndex);
        if (metrics.horizontalAdvance(number) + 4 <= band.width()) {
            painter.setPen(palette().color(QPalette::Text));
            painter.drawText(QRectF(left, 0, band.width(), kTopBand), Qt::AlignCenter, number);
        }
    }
    painter.setPen(QPen(palette().color(QPalette::Mid), 1));
    painter.drawRect(plot);

    // The decoded timecode, broken at every cut so that jumps are not drawn as slopes.
    painter.setPen(QPen(lineColor(), 2));
    QPainterPath path;
    int previousSegment = -2;
    for (const Point& point : points_) {
        const QPointF at(xForSample(point.sample), yForFrameCount(point.frameCount));
        const int segment = segmentAt(point.sample);
        if (path.elementCount() == 0 || segment != previousSegment) {
            path.moveTo(at);
        } else {
            path.lineTo(at);
        }
        previousSegment = segment;
    }
    painter.drawPath(path);
    painter.setBrush(lineColor());
    painter.setPen(Qt::NoPen);
    if (points_.size() <= plot.width() / 4) {
        for (const Point& point : points_) {
            painter.drawEllipse(QPointF(xForSample(point.sample), yForFrameCount(point.frameCount)),
                                2.0, 2.0);
        }
    }

    // Cuts.
    painter.setRenderHint(QPainter::Antialiasing, false);
    painter.setPen(QPen(cutColor(), 2));
    for (const std::int64_t cut : cutSamples()) {
        const int x = static_cast<int>(std::lround(xForSample(cut)));
        painter.drawLine(x, static_cast<int>(plot.top()), x, static_cast<int>(plot.bottom()));
    }

    // Time labels: start and end of the file.
    painter.setPen(palette().color(QPalette::Text));
    const QRectF labels(plot.left(), plot.bottom() + 1, plot.width(), kBottomBand - 1);
    painter.drawText(labels, Qt::AlignLeft | Qt::AlignVCenter, timeLabel(0));
    painter.drawText(labels, Qt::AlignRight | Qt::AlignVCenter, timeLabel(fileFrameCount_));
    if (!points_.isEmpty()) {
        const QString range =
            points_.front().timecode.isEmpty()
                ? QString()
                : "LTC " + points_.front().timecode + " … " + points_.back().timecode;
        painter.drawText(labels, Qt::AlignHCenter | Qt::AlignVCenter, range);
    }
}

}  // namespace norvane::gui
