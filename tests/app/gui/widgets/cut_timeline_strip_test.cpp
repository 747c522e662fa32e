#include "app/gui/widgets/cut_timeline_strip.h"

#include <gtest/gtest.h>

#include <cmath>

#include "tests/app/gui/gui_test_support.h"

namespace norvane::gui {
namespace {

using Point = CutTimelineStrip::Point;

// Ten seconds at 48 kHz, one window a second: LTC from 10:00:00:00 for four
// seconds, then a jump back to 09:00:00:00 (25 fps frame counts). Cuts sit at
// the start of every later segment; the jump is not drawn as a slope; the
// pointer's position is described.
TEST(CutTimelineStripTest, CutsSitAtTheStartOfEveryLaterSegment) {
    CutTimelineStrip strip;
    strip.resize(508, 160);
    QVector<Point> points;
    for (int second = 0; second < 10; ++second) {
        const std::int64_t base = second < 4 ? 900000 : 810000;
        const int offset = second < 4 ? second : second - 4;
        points.append({second * 48000LL, base + offset * 25,
                       QString("%1:00:0%2:00").arg(second < 4 ? 10 : 9).arg(offset)});
    }
    // Segments given out of order on purpose.
    strip.setData(points, {{192000, 480000, 2}, {0, 192000, 1}}, 480000, 48000);
    ASSERT_EQ(strip.cutSamples(), QVector<std::int64_t>({192000}));
    const QRectF plot = strip.plotRect();
    EXPECT_DOUBLE_EQ(strip.xForSample(0), plot.left());
    EXPECT_DOUBLE_EQ(strip.xForSample(480000), plot.right());
    EXPECT_NEAR(strip.xForSample(192000), plot.left() + 0.4 * plot.width(), 1e-9);
    // Later timecode is drawn higher.
    EXPECT_LT(strip.yForFrameCount(900075), strip.yForFrameCount(810000));

    const QImage image = testing::renderWidget(strip);
    const int cutX = static_cast<int>(std::lround(strip.xForSample(192000)));
    const int midY = static_cast<int>(plot.center().y());
    EXPECT_TRUE(testing::containsColor(image, QRect(cutX - 1, midY - 5, 3, 10),
                                       CutTimelineStrip::cutColor()));
    EXPECT_FALSE(
        testing::containsColor(image, QRect(20, 20, 60, 60), CutTimelineStrip::cutColor()));
    // Within a segment the line is there ...
    const double x1 = strip.xForSample(48000), x2 = strip.xForSample(96000);
    const double y1 = strip.yForFrameCount(900025), y2 = strip.yForFrameCount(900050);
    const QPoint within(static_cast<int>((x1 + x2) / 2), static_cast<int>((y1 + y2) / 2));
    EXPECT_TRUE(testing::containsColor(image, QRect(within - QPoint(2, 2), QSize(5, 5)),
                                       CutTimelineStrip::lineColor(), 40));
    // ... between the last point before the cut and the first after it, it is not.
    const double xa = strip.xForSample(144000), xb = strip.xForSample(192000);
    const double ya = strip.yForFrameCount(900075), yb = strip.yForFrameCount(810000);
    const QPoint across(static_cast<int>(xa + (xb - xa) / 4), static_cast<int>(ya + (yb - ya) / 4));
    EXPECT_FALSE(testing::containsColor(image, QRect(across - QPoint(1, 1), QSize(3, 3)),
                                        CutTimelineStrip::lineColor(), 40));
    // The position under the pointer.
    const QString text = strip.describePosition(strip.xForSample(5 * 48000 + 100));
    EXPECT_EQ(text, "Position 0:05\nLTC 9:00:01:00\nSegment 2");
    EXPECT_TRUE(strip.describePosition(strip.xForSample(0)).endsWith("Segment 1"));
}

TEST(CutTimelineStripTest, EmptyOrDegenerateDataPaintsWithoutData) {
    CutTimelineStrip strip;
    strip.resize(300, 100);
    EXPECT_TRUE(strip.isEmpty());
    EXPECT_EQ(strip.describePosition(50), "");
    testing::renderWidget(strip);
    // One point, no segments, a zero-length file: nothing to scale against.
    strip.setData({{0, 5, "00:00:00:05"}}, {}, 0, 0);
    EXPECT_TRUE(strip.isEmpty());
    testing::renderWidget(strip);
    strip.setData({{0, 5, ""}, {10, 5, ""}}, {{0, 20, 1}}, 20, 48000);
    EXPECT_FALSE(strip.isEmpty());
    EXPECT_DOUBLE_EQ(strip.yForFrameCount(5), strip.plotRect().center().y());
    testing::renderWidget(strip);
}

}  // namespace
}  // namespace norvane::gui
