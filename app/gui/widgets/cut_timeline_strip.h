#pragma once

#include <QString>
#include <QVector>
#include <QWidget>
#include <cstdint>

namespace norvane::gui {

// Decoded LTC against file position for one long recording: the decoded frame
// count of each analysis window as a line, the detected segments as numbered
// bands and the cuts between them as red markers. Positions are sample
// indices into the file; the horizontal axis spans the whole file.
class CutTimelineStrip : public QWidget {
    Q_OBJECT

  public:
    struct Point {
        std::int64_t sample = 0;      // first sample of the window
        std::int64_t frameCount = 0;  // decoded timecode as frames since midnight
        QString timecode;             // its label, for tool tips
    };
    struct Segment {
        std::int64_t startSample = 0;  // inclusive
        std::int64_t endSample = 0;    // exclusive
        int segmentIndex = 0;          // 1-based number shown in the band
    };

    explicit CutTimelineStrip(QWidget* parent = nullptr);

    // `fileFrameCount`: sample frames in the file; `sampleRate` in Hz (for the
    // time labels). A non-positive length clears the picture.
    void setData(QVector<Point> points, QVector<Segment> segments, std::int64_t fileFrameCount,
                 std::int64_t sampleRate);
    void clear();

    const QVector<Point>& points() const { return points_; }
    const QVector<Segment>& segments() const { return segments_; }
    bool isEmpty() const { return fileFrameCount_ <= 0; }

    // Sample positions of the cuts: the start of every segment after the first,
    // in position order.
    QVector<std::int64_t> cutSamples() const;
    // Widget x of a sample position, and y of a decoded frame count.
    double xForSample(std::int64_t sample) const;
    double yForFrameCount(std::int64_t frameCount) const;
    // The area the data is drawn in.
    QRectF plotRect() const;
    // The tool tip text for a widget x position.
    QString describePosition(double x) const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

    static QColor cutColor();
    static QColor lineColor();

  protected:
    void paintEvent(QPaintEvent* event) override;
    bool event(QEvent* event) override;

  private:
    QString timeLabel(std::int64_t sample) const;
    int segmentAt(std::int64_t sample) const;

    QVector<Point> points_;
    QVector<Segment> segments_;
    std::int64_t fileFrameCount_ = 0;
    std::int64_t sampleRate_ = 48000;
    std::int64_t minFrames_ = 0;
    std::int64_t maxFrames_ = 0;
};

}  // namespace norvane::gui
