#include "app/gui/home_screen.h"

#include <gtest/gtest.h>

#include <QLabel>
#include <QSignalSpy>

#include "tests/app/gui/gui_test_support.h"

namespace norvane::gui {
namespace {

TEST(HomeScreenTest, EachCardOpensItsToolAndShowsItsPurpose) {
    testing::ensureGuiApp();
    HomeScreen home;
    QSignalSpy chosen(&home, &HomeScreen::toolChosen);
    const QList<QPair<QString, QString>> expected = {
        {"ltcStamp", "Stamp synced WAV metadata from LTC."},
        {"polyWavSplit", "Split multi-channel WAVs to mono (PCM or 32-bit float)."},
        {"timelineRebuild", "Rebuild multicam timeline from synced audio and stereo mix."}};
    for (const auto& [area, subtitle] : expected) {
        QPushButton* card = home.card(area);
        ASSERT_NE(card, nullptr) << area.toStdString();
        EXPECT_EQ(card->findChild<QLabel*>("toolCardSubtitle")->text(), subtitle);
        card->click();
        ASSERT_FALSE(chosen.isEmpty());
        EXPECT_EQ(chosen.takeLast().at(0).toString(), area);
    }
    EXPECT_EQ(home.card("ltcStamp")->findChild<QLabel*>("toolCardTitle")->text(), "LTC stamp");
    EXPECT_EQ(home.card("polyWavSplit")->findChild<QLabel*>("toolCardTitle")->text(),
              "Poly WAV split");
    EXPECT_EQ(home.card("timelineRebuild")->findChild<QLabel*>("toolCardTitle")->text(),
              "Timeline rebuild");
    EXPECT_EQ(home.card("settings"), nullptr);
}

}  // namespace
}  // namespace norvane::gui
