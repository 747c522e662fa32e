#include "app/gui/widgets/day_ruler.h"

#include <QHelpEvent>
#include <QPainter>
#include <QToolTip>
#include <QWheelEvent>
#include <algorithm>
#include <cmath>
#include <map>

namespace norvane::gui {

namespace {

constexpr double kRowHeight = 18;
constexpr double kRowGap = 4;
constexpr double kAxisHeight = 18;
constexpr double kMargin = 6;

QColor statusColor(const QString& status, const QPalette& palette) {
    if (status == "failed") {
        return QColor(0xd0, 0x3b, 0x3b);
    }
    if (status == "warning") {
        return QColor(0xd9, 0x8e, 0x1a);
    }
    if (status == "ltc") {
        return palette.color(QPalette::Mid);
    }
    return palette.color(QPalette::Highlight);
}

}  // namespace

QString timeOfDayText(double seconds) {
    if (!std::isfinite(seconds)) {
        return "–";
    }
    auto whole = static_cast<long long>(std::floor(seconds));
    whole = ((whole % 86400) + 86400) % 86400;
    return QString("%1:%2:%3")
        .arg(whole / 3600, 2, 10, QChar('0'))
        .arg(whole / 60 % 60, 2, 10, QChar('0'))
        .arg(whole % 60, 2, 10, QChar('0'));
}

DayRuler::DayRuler(QWidget* parent) : QWidget(parent) {
    setObjectName("dayRuler");
    setMouseTracking(true);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    setAccessibleName("Day ruler");
}

QColor DayRuler::outlierColor() {
    return QColor(0x9b, 0x4d, 0xca);
}

void DayRuler::setBars(QVector<Bar> bars) {
    std::stable_sort(bars.begin(), bars.end(),
                     [](const Bar& a, const Bar& b) { return a.startSeconds < b.startSeconds; });
    // Greedy stacking: each bar takes the first row whose last bar has ended.
    std::vector<double> rowEnds;
    for (Bar& bar : bars) {
        const double end = bar.startSeconds + std::max(bar.durationSeconds, 0.0);
        auto free = std::find_if(rowEnds.begin(), rowEnds.end(),
                                 [&](double rowEnd) { return rowEnd <= bar.startSeconds; });
        if (free == rowEnds.end()) {
            rowEnds.push_back(end);
            bar.row = static_cast<int>(rowEnds.size()) - 1;
        } else {
            *free = end;
            bar.row = static_cast<int>(free - rowEnds.begin());
        }
    }
    bars_ = std::move(bars);
    updateGeometry();
    update();
}

QString DayRuler::commonRate() const {
    std::map<QString, int> counts;
    for (const Bar& bar : bars_) {
        if (!bar.rate.isEmpty()) {
            ++counts[bar.rate];
        }
    }
    QString best;
    int most = 0;
    for (const auto& [rate, count] : counts) {
        if (count > most) {
            best = rate;
            most = count;
        }
    }
    return best;
}

bool DayRuler::isOutlier(const Bar& bar) const {
    return !bar.rate.isEmpty() && bar.rate != commonRate();
}

int DayRuler::rowCount() const {
    int rows = 0;
    for (const Bar& bar : bars_) {
        rows = std::max(rows, bar.row + 1);
    }
    return rows;
}

void DayRuler::setZoom(double zoom) {
    zoom_ = std::clamp(zoom, 1.0, 200.0);
    update();
}

double DayRuler::spanStart() const {
    double start = 0;
    bool any = false;
    for (const Bar& bar : bars_) {
        start = any ? std::min(start, bar.startSeconds) : bar.startSeconds;
        any = true;
    }
    return start;
}

double DayRuler::spanEnd() const {
    double end = spanStart();
    for (const Bar& bar : bars_) {
        end = std::max(end, bar.startSeconds + std::max(bar.durationSeconds, 0.0));
    }
    // A lone zero-length bar still gets a visible span.
    const double full = std::max(end - spanStart(), 1.0);
    return spanStart() + full / zoom_;
}

QRectF DayRuler::plotRect() const {
    return QRectF(kMargin, kMargin, std::max(1.0, width() - 2 * kMargin),
                  std::max(1.0, height() - 2 * kMargin - kAxisHeight));
}

double DayRuler::xForSeconds(double seconds) const {
    const QRectF plot = plotRect();
    const double span = std::max(spanEnd() - spanStart(), 1e-9);
    return plot.left() + (seconds - spanStart()) / span * plot.width();
}

QRectF DayRuler::barRect(int index) const {
    const Bar& bar = bars_[index];
    const double left = xForSeconds(bar.startSeconds);
    const double right = xForSeconds(bar.startSeconds + std::max(bar.durationSeconds, 0.0));
    const double top = plotRect().top() + bar.row * (kRowHeight + kRowGap);
    return QRectF(left, top, std::max(right - left, 2.0), kRowHeight);
}

QString DayRuler::describe(int index) const {
    const Bar& bar = bars_[index];
    QString text = QString("%1\n%2 – %3")
                       .arg(bar.label, timeOfDayText(bar.startSeconds),
                            timeOfDayText(bar.startSeconds + bar.durationSeconds));
    if (!bar.rate.isEmpty()) {
        text += QString(" @ %1").arg(bar.rate);
        if (isOutlier(bar)) {
            text += QString(" (the day runs at %1)").arg(commonRate());
        }
    }
    if (bar.status.isEmpty()) {
        text += "\nStart from the LTC found on ingest; not stamped yet";
    }
    return text;
}

int DayRuler::indexAt(const QPointF& point) const {
    for (int i = 0; i < bars_.size(); ++i) {
        if (barRect(i).adjusted(-1, -1, 1, 1).contains(point)) {
            return i;
        }
    }
    return -1;
}

QSize DayRuler::sizeHint() const {
    const int rows = std::max(rowCount(), 1);
    return QSize(400, static_cast<int>(2 * kMargin + kAxisHeight + rows * (kRowHeight + kRowGap)));
}

QSize DayRuler::minimumSizeHint() const {
    return QSize(120, sizeHint().height());
}

void DayRuler::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QPalette& pal = palette();
    const QRectF plot = plotRect();
    painter.fillRect(rect(), pal.color(QPalette::Base));
    if (bars_.isEmpty()) {
        painter.setPen(pal.color(QPalette::PlaceholderText));
        painter.drawText(rect(), Qt::AlignCenter,
                         "The day's files appear here at their start times.");
        return;
    }
    // Hour and minute ticks on the axis.
    const double span = spanEnd() - spanStart();
    const double steps[] = {1, 5, 10, 30, 60, 300, 600, 1800, 3600, 7200, 14400};
    double step = steps[std::size(steps) - 1];
    for (double candidate : steps) {
        if (span / candidate <= std::max(2.0, plot.width() / 90.0)) {
            step = candidate;
            break;
        }
    }
    painter.setPen(pal.color(QPalette::Mid));
    const double axisTop = height() - kMargin - kAxisHeight;
    for (double t = std::ceil(spanStart() / step) * step; t <= spanEnd(); t += step) {
        const double x = xForSeconds(t);
        painter.drawLine(QPointF(x, plot.top()), QPointF(x, axisTop + 4));
        // Labels at the ends stay inside the widget.
        const double left = std::clamp(x - 40, 0.0, std::max(0.0, width() - 80.0));
        painter.drawText(QRectF(left, axisTop + 2, 80, kAxisHeight), Qt::AlignCenter,
                         timeOfDayText(t));
    }
    for (int i = 0; i < bars_.size(); ++i) {
        const Bar& bar = bars_[i];
        const QRectF box = barRect(i);
        QColor fill = isOutlier(bar) ? outlierColor() : statusColor(bar.status, pal);
        if (bar.status.isEmpty()) {
            fill.setAlpha(150);  // probed, not yet stamped
        }
        painter.setPen(Qt::NoPen);
        painter.setBrush(fill);
        painter.drawRoundedRect(box, 3, 3);
        if (box.width() > 40) {
            painter.setPen(pal.color(QPalette::HighlightedText));
            painter.drawText(box.adjusted(4, 0, -2, 0), Qt::AlignVCenter | Qt::AlignLeft,
                             painter.fontMetrics().elidedText(bar.label, Qt::ElideRight,
                                                              static_cast<int>(box.width()) - 6));
        }
    }
}

bool DayRuler::event(QEvent* event) {
    if (event->type() == QEvent::ToolTip) {
        auto* help = static_cast<QHelpEvent*>(event);
        const int index = indexAt(help->pos());
        if (index >= 0) {
            QToolTip::showText(help->globalPos(), describe(index), this);
        } else {
            QToolTip::hideText();
        }
        return true;
    }
    return QWidget::event(event);
}

void DayRuler::wheelEvent(QWheelEvent* event) {
    if (event->modifiers() & Qt::ControlModifier) {
        setZoom(zoom_ * (event->angleDelta().y() > 0 ? 1.25 : 0.8));
        event->accept();
        return;
    }
    QWidget::wheelEvent(event);
}

}  // namespace norvane::gui
