#include "app/gui/widgets/path_field.h"

#include <gtest/gtest.h>

#include <QDropEvent>
#include <QLineEdit>
#include <QMimeData>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QUrl>
#include <filesystem>

#include "app/gui/ui_hooks.h"
#include "tests/app/gui/gui_test_support.h"
#include "tests/support/test_support.h"
#include "tests/support/wav_builder.h"

namespace norvane::gui {
namespace {

namespace fs = std::filesystem;

class PathFieldTest : public ::testing::Test {
  protected:
    void SetUp() override {
        fs::create_directories(dir.path() / "folder");
        testing::writeBytes(dir / "Mix.WAV", ByteBuffer{'R'});
        testing::writeBytes(dir / "cut.fcpxml", ByteBuffer{'<'});
    }
    void TearDown() override { resetUiHooks(); }
    QString q(const std::string& name) const {
        return QString::fromStdString((dir.path() / name).string());
    }
    // A drop on the line edit, as the user makes it.
    static bool drop(PathField& field, const QString& path) {
        QMimeData mime;
        mime.setUrls({QUrl::fromLocalFile(path)});
        QDragEnterEvent enter(QPoint(2, 2), Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
        QCoreApplication::sendEvent(field.lineEdit(), &enter);
        if (!enter.isAccepted()) {
            return false;
        }
        QDropEvent event(QPointF(2, 2), Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
        QCoreApplication::sendEvent(field.lineEdit(), &event);
        return event.isAccepted();
    }

    testing::TempDir dir;
};

// File fields take only their extensions by drop, folder fields only folders.
TEST_F(PathFieldTest, DropsPickingAndTyping) {
    PathField mix(PathField::Kind::file, "Stereo mix WAV");
    mix.setExtensions({"wav"});
    QSignalSpy chosen(&mix, &PathField::pathChosen);
    EXPECT_FALSE(drop(mix, q("cut.fcpxml")));
    EXPECT_FALSE(drop(mix, q("folder")));
    EXPECT_TRUE(drop(mix, q("Mix.WAV")));  // extension case does not matter
    EXPECT_EQ(mix.path(), q("Mix.WAV"));
    ASSERT_EQ(chosen.count(), 1);

    PathField folder(PathField::Kind::folder, "Output folder");
    EXPECT_FALSE(drop(folder, q("Mix.WAV")));
    EXPECT_TRUE(drop(folder, q("folder")));
    EXPECT_EQ(folder.path(), q("folder"));

    // The picker starts in the field's folder; neither setPath nor a
    // cancelled picker announce a choice, typing does.
    QSignalSpy picked(&folder, &PathField::pathChosen);
    QString startedIn;
    uiHooks().chooseFolder = [&](QWidget*, const QString& title, const QString& start) {
        EXPECT_EQ(title, "Output folder");
        startedIn = start;
        return QString();  // cancelled
    };
    folder.setPath(q("folder"));
    folder.chooseButton()->click();
    EXPECT_EQ(startedIn, q("folder"));
    EXPECT_EQ(picked.count(), 0);

    folder.lineEdit()->clear();
    QTest::keyClicks(folder.lineEdit(), "/somewhere/else");
    emit folder.lineEdit()->editingFinished();
    ASSERT_EQ(picked.count(), 1);
    EXPECT_EQ(picked.at(0).at(0).toString(), "/somewhere/else");
}

}  // namespace
}  // namespace norvane::gui
