#include "app/gui/widgets/day_ruler.h"

#include <gtest/gtest.h>

#include "app/gui/widgets/ltc_health_strip.h"
#include "tests/app/gui/gui_test_support.h"

namespace norvane::gui {
namespace {

TEST(DayRulerTest, OverlapsStackGapsStayEmptyAndOddRatesStandOut) {
    DayRuler ruler;
    // 10:00 for 10 min, 10:05 for 10 min (overlaps the first), 10:30 for 5 min
    // (after a gap), and one file at another rate.
    ruler.setBars({{"T01", 36000, 600, "25", "ok", false, 0},
                   {"T02", 36300, 600, "25", "ok", false, 0},
                   {"T03", 37800, 300, "25", "", false, 0},
                   {"T04", 38400, 60, "23.976", "warning", false, 0}});
    ruler.resize(800, ruler.sizeHint().height());
    ASSERT_EQ(ruler.bars().size(), 4);
    EXPECT_EQ(ruler.bars()[0].row, 0);
    EXPECT_EQ(ruler.bars()[1].row, 1);  // overlapping: a row of its own
    EXPECT_EQ(ruler.bars()[2].row, 0);  // the first row is free again
    EXPECT_EQ(ruler.rowCount(), 2);
    EXPECT_EQ(ruler.commonRate(), "25");
    EXPECT_FALSE(ruler.isOutlier(ruler.bars()[0]));
    EXPECT_TRUE(ruler.isOutlier(ruler.bars()[3]));
    EXPECT_TRUE(ruler.describe(3).contains("the day runs at 25"));
    EXPECT_TRUE(ruler.describe(0).startsWith("T01\n10:00:00 – 10:10:00 @ 25"));
    // To scale: the gap between T02's end and T03's start is visible.
    EXPECT_GT(ruler.barRect(2).left() - ruler.barRect(1).right(), 100);
    EXPECT_NEAR(ruler.barRect(0).width() * 2, ruler.barRect(1).width() * 2, 1);

    // Zooming in narrows the span and widens the bars.
    const double before = ruler.barRect(0).width();
    ruler.setZoom(2);
    EXPECT_NEAR(ruler.barRect(0).width(), 2 * before, 1);
    EXPECT_EQ(timeOfDayText(86400 + 3661), "01:01:01");
}

TEST(DayRulerTest, HealthStripSumsUpWhereTheCodeDecodes) {
    LTCHealthStrip strip;
    EXPECT_TRUE(strip.isEmpty());
    strip.setHealth(
        {{"fileName", "A.wav"},
         {"channel", 4},
         {"rate", "25"},
         {"frameCount", 480000},
         {"sampleRate", 48000},
         {"firstValidSample", 96000},
         {"envelope", QVariantList{0.0, 0.25}},
         {"stretches",
          QVariantList{QVariantMap{{"begin", 0}, {"end", 120000}, {"level", "red"}},
                       QVariantMap{{"begin", 120000}, {"end", 480000}, {"level", "green"}}}}});
    EXPECT_EQ(strip.summary(),
              "LTC: A.wav, channel 4, 25 fps — 75 % of the file decodes; first valid frame at "
              "2.00 s");
    ASSERT_EQ(strip.stretches().size(), 2);
    EXPECT_EQ(strip.stretches()[0].level, LTCHealthStrip::Level::red);
    strip.resize(400, 64);
    EXPECT_LT(strip.xForSample(96000), strip.xForSample(120000));
}

}  // namespace
}  // namespace norvane::gui
