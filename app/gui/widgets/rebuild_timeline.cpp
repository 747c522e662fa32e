#include "app/gui/widgets/rebuild_timeline.h"

#include <QHelpEvent>
#include <QPainter>
#include <QRegularExpression>
#include <QToolTip>
#include <QWheelEvent>
#include <algorithm>
#include <cmath>
#include <limits>

#include "app/gui/widgets/day_ruler.h"

namespace norvane::gui {

namespace {
constexpr double kLabelWidth = 96;
constexpr double kLaneHeight = 26;
constexpr double kLaneGap = 6;
constexpr double kAxisHeight = 18;
constexpr double kMargin = 6;
constexpr double kPixelsPerSecond = 6;  // at zoom 1 for a short day
}  // namespace

double secondsOfTimecodeText(const QString& text, double fps) {
    static const QRegularExpression pattern(R"(^(\d{1,2}):(\d{2}):(\d{2})[:;.](\d{2,3})$)");
    const auto match = pattern.match(text.trimmed());
    if (!match.hasMatch()) {
        return std::numeric_limits<double>::quiet_NaN();
    }
    return match.captured(1).toDouble() * 3600 + match.captured(2).toDouble() * 60 +
           match.captured(3).toDouble() + match.captured(4).toDouble() / fps;
}

RebuildTimeline::RebuildTimeline(QWidget* parent) : QWidget(parent) {
    setObjectName("rebuildTimeline");
    setMouseTracking(true);
    setAccessibleName("Rebuilt timeline");
}

void RebuildTimeline::setData(QStringList cameraLanes, QVector<Event> events) {
    std::stable_sort(events.begin(), events.end(), [](const Event& a, const Event& b) {
        return a.startSeconds < b.startSeconds;
    });
    lanes_ = std::move(cameraLanes);
    events_ = std::move(events);
    updateGeometry();
    resize(sizeHint().expandedTo(size()));
    update();
}

int RebuildTimeline::clipCount() const {
    int clips = 0;
    for (const Event& event : events_) {
        clips += static_cast<int>(std::count(event.covered.begin(), event.covered.end(), true));
    }
    return clips;
}

int RebuildTimeline::gapCount() const {
    return static_cast<int>(events_.size() * lanes_.size()) - clipCount();
}

void RebuildTimeline::setZoom(double zoom) {
    zoom_ = std::clamp(zoom, 0.05, 50.0);
    updateGeometry();
    resize(QSize(sizeHint().width(), height()));
    update();
}

double RebuildTimeline::spanStart() const {
    double start = events_.isEmpty() ? 0 : events_.front().startSeconds;
    for (const Event& event : events_) {
        start = std::min(start, event.startSeconds);
    }
    return start;
}

double RebuildTimeline::spanEnd() const {
    double end = spanStart();
    for (const Event& event : events_) {
        end = std::max(end, event.startSeconds + std::max(event.durationSeconds, 0.0));
    }
    return std::max(end, spanStart() + 1.0);
}

double RebuildTimeline::xForSeconds(double seconds) const {
    const double width = std::max(1.0, this->width() - kLabelWidth - 2 * kMargin);
    return kLabelWidth + kMargin + (seconds - spanStart()) / (spanEnd() - spanStart()) * width;
}

QRectF RebuildTimeline::laneRect(int lane) const {
    return QRectF(kLabelWidth + kMargin, kMargin + lane * (kLaneHeight + kLaneGap),
                  std::max(1.0, width() - kLabelWidth - 2 * kMargin), kLaneHeight);
}

QSize RebuildTimeline::sizeHint() const {
    const double seconds = spanEnd() - spanStart();
    const int width = static_cast<int>(
        kLabelWidth + 2 * kMargin + std::clamp(seconds * kPixelsPerSecond, 400.0, 1600.0) * zoom_);
    const int height =
        static_cast<int>(2 * kMargin + kAxisHeight + laneCount() * (kLaneHeight + kLaneGap));
    return QSize(width, height);
}

QSize RebuildTimeline::minimumSizeHint() const {
    return QSize(240, sizeHint().height());
}

void RebuildTimeline::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    const QPalette& pal = palette();
    painter.fillRect(rect(), pal.color(QPalette::Base));
    if (events_.isEmpty()) {
        painter.setPen(pal.color(QPalette::PlaceholderText));
        painter.drawText(rect(), Qt::AlignCenter,
                         "Auto-scan to see the rebuilt timeline drawn in time.");
        return;
    }
    QStringList names = lanes_;
    names << "Mix"
          << "Tracks";
    const QColor clip = pal.color(QPalette::Highlight);
    const QColor mix(0x2e, 0xa0, 0x43);
    const QColor tracks(0xd9, 0x8e, 0x1a);
    QBrush hatch(pal.color(QPalette::Mid), Qt::BDiagPattern);
    for (int lane = 0; lane < laneCount(); ++lane) {
        const QRectF row = laneRect(lane);
        painter.setPen(pal.color(QPalette::Text));
        painter.drawText(QRectF(kMargin, row.top(), kLabelWidth - kMargin, row.height()),
                         Qt::AlignVCenter | Qt::AlignLeft,
                         painter.fontMetrics().elidedText(names[lane], Qt::ElideRight,
                                                          static_cast<int>(kLabelWidth - kMargin)));
        // Everything not covered is a gap: hatched under the clips.
        painter.fillRect(row, hatch);
        for (const Event& event : events_) {
            const double left = xForSeconds(event.startSeconds);
            const double right = xForSeconds(event.startSeconds + event.durationSeconds);
            const QRectF box(left, row.top() + 2, std::max(right - left, 2.0), row.height() - 4);
            QColor fill;
            QString label;
            if (lane < lanes_.size()) {
                if (lane >= event.covered.size() || !event.covered[lane]) {
                    continue;  // the camera misses this event: the hatch shows through
                }
                fill = clip;
                label = event.label;
            } else if (lane == lanes_.size()) {
                fill = mix;
            } else {
                fill = tracks;
                label = QString("%1 track(s)").arg(event.trackCount);
            }
            painter.fillRect(box, pal.color(QPalette::Base));
            painter.fillRect(box, fill);
            if (!label.isEmpty() && box.width() > 30) {
                painter.setPen(pal.color(QPalette::HighlightedText));
                painter.drawText(box.adjusted(3, 0, -2, 0), Qt::AlignVCenter | Qt::AlignLeft,
                                 painter.fontMetrics().elidedText(
                                     label, Qt::ElideRight, static_cast<int>(box.width()) - 5));
            }
        }
    }
    // The mix runs under the whole timeline.
    const QRectF mixRow = laneRect(static_cast<int>(lanes_.size()));
    painter.setPen(QPen(mix, 2));
    painter.drawLine(QPointF(xForSeconds(spanStart()), mixRow.center().y()),
                     QPointF(xForSeconds(spanEnd()), mixRow.center().y()));
    // Time axis.
    const double axisTop = laneRect(laneCount() - 1).bottom() + kLaneGap;
    painter.setPen(pal.color(QPalette::Text));
    const double span = spanEnd() - spanStart();
    const double plotWidth = width() - kLabelWidth - 2 * kMargin;
    double step = 1;
    for (double candidate : {1.0, 5.0, 10.0, 30.0, 60.0, 300.0, 600.0, 1800.0, 3600.0}) {
        step = candidate;
        if (span / candidate <= std::max(2.0, plotWidth / 90.0)) {
            break;
        }
    }
    for (double t = std::ceil(spanStart() / step) * step; t <= spanEnd(); t += step) {
        const double x = xForSeconds(t);
        painter.drawLine(QPointF(x, axisTop), QPointF(x, axisTop + 4));
        painter.drawText(QRectF(x - 40, axisTop + 2, 80, kAxisHeight), Qt::AlignCenter,
                         timeOfDayText(t));
    }
}

void RebuildTimeline::wheelEvent(QWheelEvent* event) {
    if (event->modifiers() & Qt::ControlModifier) {
        setZoom(zoom_ * (event->angleDelta().y() > 0 ? 1.25 : 0.8));
        event->accept();
        return;
    }
    QWidget::wheelEvent(event);
}

bool RebuildTimeline::event(QEvent* event) {
    if (event->type() == QEvent::ToolTip) {
        auto* help = static_cast<QHelpEvent*>(event);
        for (int lane = 0; lane < laneCount(); ++lane) {
            if (!laneRect(lane).contains(help->pos())) {
                continue;
            }
            for (const Event& item : events_) {
                const double left = xForSeconds(item.startSeconds);
                const double right = xForSeconds(item.startSeconds + item.durationSeconds);
                if (help->pos().x() >= left && help->pos().x() <= right) {
                    const bool gap = lane < lanes_.size() &&
                                     (lane >= item.covered.size() || !item.covered[lane]);
                    QToolTip::showText(
                        help->globalPos(),
                        QString("%1\n%2 – %3%4")
                            .arg(item.label, timeOfDayText(item.startSeconds),
                                 timeOfDayText(item.startSeconds + item.durationSeconds),
                                 gap ? QString("\nNo clip on %1: a gap").arg(lanes_[lane])
                                     : QString()),
                        this);
                    return true;
                }
            }
        }
        QToolTip::hideText();
        return true;
    }
    return QWidget::event(event);
}

}  // namespace norvane::gui
