#include "app/gui/widgets/drop_area.h"

#include <gtest/gtest.h>

#include <QDragEnterEvent>
#include <QMimeData>
#include <QPushButton>
#include <QSignalSpy>
#include <QUrl>

#include "tests/app/gui/gui_test_support.h"

namespace norvane::gui {
namespace {

bool enter(DropArea& area, const QMimeData* mime) {
    QDragEnterEvent event(QPoint(10, 10), Qt::CopyAction, mime, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(&area, &event);
    return event.isAccepted();
}

bool drop(DropArea& area, const QMimeData* mime) {
    QDropEvent event(QPointF(10, 10), Qt::CopyAction, mime, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(&area, &event);
    return event.isAccepted();
}

// Local files highlight the area while they hover and arrive in order without
// the remote ones; drags without local files are refused; leaving clears the
// highlight; the browse button asks for the picker.
TEST(DropAreaTest, TakesLocalFilesOnlyAndHighlightsWhileTheyHover) {
    DropArea area("Drag files here", "WAV only");
    area.resize(320, 120);
    QSignalSpy dropped(&area, &DropArea::pathsDropped);
    QSignalSpy targeted(&area, &DropArea::dropTargetedChanged);
    QSignalSpy browse(&area, &DropArea::browseRequested);
    QMimeData mime, text, remote;
    mime.setUrls({QUrl::fromLocalFile("/media/day1"), QUrl("https://example.com/a.wav"),
                  QUrl::fromLocalFile("/media/b.wav")});
    text.setText("/media/a.wav");
    remote.setUrls({QUrl("https://example.com/a.wav")});
    EXPECT_FALSE(enter(area, &text));
    EXPECT_FALSE(enter(area, &remote));
    EXPECT_FALSE(drop(area, &remote));
    EXPECT_FALSE(area.isDropTargeted());

    EXPECT_TRUE(enter(area, &mime));
    EXPECT_TRUE(area.isDropTargeted());
    // The highlight is visible: the border turns to the accent colour.
    EXPECT_TRUE(testing::containsColor(testing::renderWidget(area), QRect(0, 0, 320, 4),
                                       QColor(0x1F, 0x5F, 0xBF), 12));
    QDragLeaveEvent leave;
    QCoreApplication::sendEvent(&area, &leave);
    EXPECT_FALSE(area.isDropTargeted());
    EXPECT_EQ(targeted.count(), 2);
    enter(area, &mime);
    EXPECT_TRUE(drop(area, &mime));
    EXPECT_FALSE(area.isDropTargeted());
    ASSERT_EQ(dropped.count(), 1);
    EXPECT_EQ(dropped.at(0).at(0).toStringList(), QStringList({"/media/day1", "/media/b.wav"}));

    area.addBrowseButton("Add files…")->click();
    EXPECT_EQ(browse.count(), 1);
}

}  // namespace
}  // namespace norvane::gui
