#pragma once

#include <QStringList>
#include <QVector>
#include <QWidget>

namespace norvane::gui {

// Which camera lane has a clip at which event: one row per event, one column
// per lane, each cell filled when covered and hatched when missing.
class CoverageGrid : public QWidget {
    Q_OBJECT

  public:
    explicit CoverageGrid(QWidget* parent = nullptr);

    // `covered[row][column]`; missing entries count as not covered.
    void setData(QStringList eventLabels, QStringList laneLabels, QVector<QVector<bool>> covered);
    void clear();

    int rowCount() const { return static_cast<int>(events_.size()); }
    int columnCount() const { return static_cast<int>(lanes_.size()); }
    bool isCovered(int row, int column) const;
    int coveredCount() const;
    int missingCount() const { return rowCount() * columnCount() - coveredCount(); }

    // Where a cell is drawn, and the cell under a widget position ({-1,-1}: none).
    QRect cellRect(int row, int column) const;
    QPoint cellAt(const QPoint& position) const;
    QString describeCell(int row, int column) const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

    static QColor coveredColor();
    static QColor missingColor();

  protected:
    void paintEvent(QPaintEvent* event) override;
    bool event(QEvent* event) override;
    void changeEvent(QEvent* event) override;

  private:
    int rowHeaderWidth() const;
    int columnWidth() const;
    int rowHeight() const;
    int headerHeight() const;

    QStringList events_;
    QStringList lanes_;
    QVector<QVector<bool>> covered_;
};

}  // namespace norvane::gui
