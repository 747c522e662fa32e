#pragma once

#include <QString>
#include <QVariantMap>
#include <QVector>
#include <QWidget>
#include <cstdint>

namespace norvane::gui {

// The LTC channel of one file before it is stamped: its envelope, each
// stretch coloured by how well it decodes (green: enough to stamp, amber:
// decodes weakly, red: nothing), a marker at the first valid frame and the
// detected rate.
class LTCHealthStrip : public QWidget {
    Q_OBJECT

  public:
    enum class Level { green, amber, red };
    struct Stretch {
        std::int64_t begin = 0;
        std::int64_t end = 0;
        Level level = Level::red;
    };

    explicit LTCHealthStrip(QWidget* parent = nullptr);

    // From the stamp workflow's ltcHealth map; an empty map clears the strip.
    void setHealth(const QVariantMap& health);
    bool isEmpty() const { return frameCount_ <= 0; }
    const QVector<Stretch>& stretches() const { return stretches_; }
    std::int64_t firstValidSample() const { return firstValidSample_; }
    // "LTC: A001.wav, channel 4, 23.976 fps — 96 % of the file decodes"
    QString summary() const;
    double xForSample(std::int64_t sample) const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

    static QColor colorFor(Level level);

  protected:
    void paintEvent(QPaintEvent* event) override;

  private:
    QRectF plotRect() const;

    QString fileName_;
    int channel_ = 0;
    QString rate_;
    std::int64_t frameCount_ = 0;
    std::int64_t sampleRate_ = 0;
    std::int64_t firstValidSample_ = -1;
    QVector<double> envelope_;
    QVector<Stretch> stretches_;
};

}  // namespace norvane::gui
