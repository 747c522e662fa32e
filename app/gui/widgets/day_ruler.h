#pragma once

#include <QString>
#include <QVector>
#include <QWidget>

namespace norvane::gui {

// The shoot day at a glance: every file, group or segment as a bar at its
// (stamped or probed) start for its length on a time-of-day axis. Bars that
// overlap are stacked on separate rows, gaps stay empty, and a bar whose rate
// differs from the day's most common rate is drawn in the outlier colour.
class DayRuler : public QWidget {
    Q_OBJECT

  public:
    struct Bar {
        QString label;
        double startSeconds = 0;  // since midnight
        double durationSeconds = 0;
        QString rate;    // frame-rate label
        QString status;  // "ok", "warning", "failed", "ltc" or empty (not yet stamped)
        bool isLTC = false;
        int row = 0;  // set by setBars: the stacking row
    };

    explicit DayRuler(QWidget* parent = nullptr);

    // From the stamp workflow's dayRuler rows.
    void setBars(QVector<Bar> bars);
    const QVector<Bar>& bars() const { return bars_; }
    bool isEmpty() const { return bars_.isEmpty(); }
    // The rate most bars share; bars at another rate are outliers.
    QString commonRate() const;
    bool isOutlier(const Bar& bar) const;
    // Stacking rows in use (overlapping bars never share one).
    int rowCount() const;
    // Horizontal zoom: 1 shows the whole span of the bars.
    void setZoom(double zoom);
    double zoom() const { return zoom_; }
    // The visible time span, seconds since midnight.
    double spanStart() const;
    double spanEnd() const;
    double xForSeconds(double seconds) const;
    QRectF barRect(int index) const;
    QString describe(int index) const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

    static QColor outlierColor();

  protected:
    void paintEvent(QPaintEvent* event) override;
    bool event(QEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;

  private:
    QRectF plotRect() const;
    int indexAt(const QPointF& point) const;

    QVector<Bar> bars_;
    double zoom_ = 1.0;
};

// "10:00:00" from seconds since midnight (days wrap).
QString timeOfDayText(double seconds);

}  // namespace norvane::gui
