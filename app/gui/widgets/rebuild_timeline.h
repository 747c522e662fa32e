#pragma once

#include <QString>
#include <QStringList>
#include <QVector>
#include <QWidget>

namespace norvane::gui {

// The rebuilt timeline drawn to scale: one lane per camera with a clip where
// the camera covers an event and a hatched gap where it does not, the stereo
// mix under the whole, and the synced tracks of each event in time. Ctrl and
// the mouse wheel zoom; the widget grows wide enough for the zoom (put it in
// a scroll area).
class RebuildTimeline : public QWidget {
    Q_OBJECT

  public:
    struct Event {
        QString label;            // event timecode and clip name
        double startSeconds = 0;  // from the event timecode
        double durationSeconds = 0;
        int trackCount = 0;
        QVector<bool> covered;  // per camera lane
    };

    explicit RebuildTimeline(QWidget* parent = nullptr);

    void setData(QStringList cameraLanes, QVector<Event> events);
    const QStringList& cameraLanes() const { return lanes_; }
    const QVector<Event>& events() const { return events_; }
    bool isEmpty() const { return events_.isEmpty(); }
    // Camera clips and gaps over all lanes.
    int clipCount() const;
    int gapCount() const;

    void setZoom(double zoom);
    double zoom() const { return zoom_; }
    double xForSeconds(double seconds) const;
    // Lane rows: cameras, then "Mix", then "Tracks".
    int laneCount() const { return static_cast<int>(lanes_.size()) + 2; }
    QRectF laneRect(int lane) const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

  protected:
    void paintEvent(QPaintEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    bool event(QEvent* event) override;

  private:
    double spanStart() const;
    double spanEnd() const;

    QStringList lanes_;
    QVector<Event> events_;
    double zoom_ = 1.0;
};

// Seconds of an "HH:MM:SS:FF" (or ";FF") timecode, frames at `fps`; NaN when
// the text is no timecode.
double secondsOfTimecodeText(const QString& text, double fps = 25.0);

}  // namespace norvane::gui
