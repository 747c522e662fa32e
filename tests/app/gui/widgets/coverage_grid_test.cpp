#include "app/gui/widgets/coverage_grid.h"

#include <gtest/gtest.h>

#include "tests/app/gui/gui_test_support.h"

namespace norvane::gui {
namespace {

TEST(CoverageGridTest, CellsShowWhichLaneCoversWhichEvent) {
    CoverageGrid grid;
    // The last row is short: its missing entry counts as not covered.
    grid.setData({"01 10:00:00:00", "02 10:05:00:00", "03 10:09:30:00"}, {"V1", "V2", "V3"},
                 {{true, true, false}, {false, true, true}, {true}});
    grid.resize(grid.sizeHint());
    EXPECT_EQ(grid.rowCount(), 3);
    EXPECT_EQ(grid.columnCount(), 3);
    EXPECT_EQ(grid.coveredCount(), 5);
    EXPECT_EQ(grid.missingCount(), 4);
    EXPECT_FALSE(grid.isCovered(2, 2));
    EXPECT_FALSE(grid.isCovered(7, 0));

    const QImage image = testing::renderWidget(grid);
    for (int row = 0; row < 3; ++row) {
        for (int column = 0; column < 3; ++column) {
            const QRect cell = grid.cellRect(row, column);
            ASSERT_TRUE(image.rect().contains(cell)) << row << "," << column;
            EXPECT_EQ(grid.cellAt(cell.center()), QPoint(column, row));
            const bool filled =
                testing::containsColor(image, QRect(cell.center() - QPoint(3, 3), QSize(7, 7)),
                                       CoverageGrid::coveredColor(), 8);
            EXPECT_EQ(filled, grid.isCovered(row, column)) << row << "," << column;
        }
    }
    EXPECT_EQ(grid.describeCell(1, 0), "02 10:05:00:00 · V1: no camera clip");
    EXPECT_EQ(grid.describeCell(0, 1), "01 10:00:00:00 · V2: camera clip found");
    EXPECT_EQ(grid.cellAt(QPoint(1, 1)), QPoint(-1, -1));
    EXPECT_EQ(grid.describeCell(3, 0), "");

    // Long labels keep the cells inside the widget; an empty grid paints.
    grid.setData({QString(300, 'E')}, {QString(200, 'L'), "V2"}, {{true, false}});
    EXPECT_LE(grid.sizeHint().width(), 800);
    grid.resize(grid.sizeHint());
    EXPECT_TRUE(grid.rect().contains(grid.cellRect(0, 1)));
    grid.setData({}, {}, {});
    EXPECT_EQ(grid.coveredCount(), 0);
    testing::renderWidget(grid);
}

}  // namespace
}  // namespace norvane::gui
