#include "app/gui/widgets/coverage_grid.h"

#include <QHelpEvent>
#include <QPainter>
#include <QToolTip>
#include <algorithm>

namespace norvane::gui {

namespace {
constexpr int kPadding = 6;
constexpr int kGap = 2;
}  // namespace

CoverageGrid::CoverageGrid(QWidget* parent) : QWidget(parent) {
    setObjectName("coverageGrid");
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
}

QColor CoverageGrid::coveredColor() {
    return QColor(0x3C, 0xA5, 0x5C);
}
QColor CoverageGrid::missingColor() {
    return QColor(0xF6, 0xD7, 0xD4);
}

void CoverageGrid::setData(QStringList eventLabels, QStringList laneLabels,
                           QVector<QVector<bool>> covered) {
    events_ = std::move(eventLabels);
    lanes_ = std::move(laneLabels);
    covered_ = std::move(covered);
    updateGeometry();
    adjustSize();
    update();
}

void CoverageGrid::clear() {
    setData({}, {}, {});
}

bool CoverageGrid::isCovered(int row, int column) const {
    if (row < 0 || row >= covered_.size() || column < 0 || column >= covered_[row].size()) {
        return false;
    }
    return covered_[row][column];
}

int CoverageGrid::coveredCount() const {
    int count = 0;
    for (int row = 0; row < rowCount(); ++row) {
        for (int column = 0; column < columnCount(); ++column) {
            count += isCovered(row, column) ? 1 : 0;
        }
    }
    return count;
}

int CoverageGrid::rowHeaderWidth() const {
    const QFontMetrics metrics(font());
    int widest = metrics.horizontalAdvance("Event");
    for (const QString& label : events_) {
        widest = std::max(widest, metrics.horizontalAdvance(label));
    }
    return std::min(widest, 260) + 2 * kPadding;
}

int CoverageGrid::columnWidth() const {
    const QFontMetrics metrics(font());
    int widest = metrics.height() * 2;
    for (const QString& label : lanes_) {
        widest = std::max(widest, metrics.horizontalAdvance(label));
    }
    return std::min(widest, 160) + 2 * kPadding;
}

int CoverageGrid::rowHeight() const {
    return QFontMetrics(font()).height() + kPadding;
}
int CoverageGrid::headerHeight() const {
    return QFontMetrics(font()).height() + kPadding;
}

QRect CoverageGrid::cellRect(int row, int column) const {
    return QRect(rowHeaderWidth() + column * columnWidth() + kGap,
                 headerHeight() + row * rowHeight() + kGap, columnWidth() - kGap,
                 rowHeight() - kGap);
}

QPoint CoverageGrid::cellAt(const QPoint& position) const {
    const int x = position.x() - rowHeaderWidth();
    const int y = position.y() - headerHeight();
    if (x < 0 || y < 0) {
        return {-1, -1};
    }
    const int column = x / columnWidth();
    const int row = y / rowHeight();
    if (row >= rowCount() || column >= columnCount()) {
        return {-1, -1};
    }
    return {column, row};
}

QString CoverageGrid::describeCell(int row, int column) const {
    if (row < 0 || row >= rowCount() || column < 0 || column >= columnCount()) {
        return {};
    }
    return events_[row] + " · " + lanes_[column] + ": " +
           (isCovered(row, column) ? "camera clip found" : "no camera clip");
}

QSize CoverageGrid::sizeHint() const {
    if (rowCount() == 0 || columnCount() == 0) {
        return QSize(240, headerHeight() * 2);
    }
    return QSize(rowHeaderWidth() + columnCount() * columnWidth() + kGap,
                 headerHeight() + rowCount() * rowHeight() + kGap);
}

QSize CoverageGrid::minimumSizeHint() const {
    return sizeHint();
}

bool CoverageGrid::event(QEvent* event) {
    if (event->type() == QEvent::ToolTip) {
        auto* help = static_cast<QHelpEvent*>(event);
        const QPoint cell = cellAt(help->pos());
        const QString text = describeCell(cell.y(), cell.x());
        if (text.isEmpty()) {
            QToolTip::hideText();
        } else {
            QToolTip::showText(help->globalPos(), text, this);
        }
        return true;
    }
    return QWidget::event(event);
}

void CoverageGrid::changeEvent(QEvent* event) {
    if (event->type() == QEvent::FontChange) {
        updateGeometry();
    }
    QWidget::changeEvent(event);
}

void CoverageGrid::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    const QFontMetrics metrics(font());
    if (rowCount() == 0 || columnCount() == 0) {
        painter.setPen(palette().color(QPalette::PlaceholderText));
        painter.drawText(rect(), Qt::AlignCenter, "No events scanned yet.");
        return;
    }
    painter.setPen(palette().color(QPalette::Text));
    const QRect corner(kPadding, 0, rowHeaderWidth() - kPadding, headerHeight());
    painter.drawText(corner, Qt::AlignLeft | Qt::AlignVCenter, "Event");
    for (int column = 0; column < columnCount(); ++column) {
        const QRect header(rowHeaderWidth() + column * columnWidth(), 0, columnWidth(),
                           headerHeight());
        painter.drawText(header, Qt::AlignCenter,
                         metrics.elidedText(lanes_[column], Qt::ElideRight, header.width() - 4));
    }
    for (int row = 0; row < rowCount(); ++row) {
        const QRect header(kPadding, headerHeight() + row * rowHeight(),
                           rowHeaderWidth() - kPadding, rowHeight());
        painter.setPen(palette().color(QPalette::Text));
        painter.drawText(header, Qt::AlignLeft | Qt::AlignVCenter,
                         metrics.elidedText(events_[row], Qt::ElideMiddle, header.width() - 4));
        for (int column = 0; column < columnCount(); ++column) {
            const QRect cell = cellRect(row, column);
            if (isCovered(row, column)) {
                painter.fillRect(cell, coveredColor());
            } else {
                painter.fillRect(cell, missingColor());
                painter.fillRect(cell, QBrush(QColor(0xC8, 0x4B, 0x3F), Qt::BDiagPattern));
            }
        }
    }
}

}  // namespace norvane::gui
