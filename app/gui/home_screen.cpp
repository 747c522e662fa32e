#include "app/gui/home_screen.h"

#include <QLabel>
#include <QVBoxLayout>

namespace norvane::gui {

HomeScreen::HomeScreen(QWidget* parent) : QWidget(parent) {
    setObjectName("homeScreen");
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(32, 24, 32, 24);

    auto* column = new QVBoxLayout;
    column->setSpacing(12);
    auto* title = new QLabel("Norvane");
    title->setObjectName("homeTitle");
    auto* subtitle = new QLabel("Choose a tool.");
    subtitle->setObjectName("homeSubtitle");
    column->addWidget(title);
    column->addWidget(subtitle);
    column->addSpacing(8);

    for (QPushButton* card :
         {addCard("ltcStamp", "LTC stamp", "Stamp synced WAV metadata from LTC.", "Ctrl+1"),
          addCard("polyWavSplit", "Poly WAV split",
                  "Split multi-channel WAVs to mono (PCM or 32-bit float).", "Ctrl+2"),
          addCard("timelineRebuild", "Timeline rebuild",
                  "Rebuild multicam timeline from synced audio and stereo mix.", "Ctrl+3")}) {
        column->addWidget(card);
    }

    column->addSpacing(8);
    auto* settings = new QPushButton("Settings…");
    settings->setObjectName("homeSettingsButton");
    settings->setToolTip("Defaults of all three tools (Ctrl+,)");
    connect(settings, &QPushButton::clicked, this, &HomeScreen::settingsRequested);
    auto* settingsRow = new QHBoxLayout;
    settingsRow->addWidget(settings);
    settingsRow->addStretch();
    column->addLayout(settingsRow);

    auto* centre = new QHBoxLayout;
    centre->addStretch(1);
    centre->addLayout(column, 4);
    centre->addStretch(1);
    outer->addStretch(1);
    outer->addLayout(centre);
    outer->addStretch(2);
}

QPushButton* HomeScreen::addCard(const QString& area, const QString& title, const QString& subtitle,
                                 const QString& shortcut) {
    auto* card = new QPushButton;
    card->setObjectName("toolCard");
    card->setProperty("area", area);
    card->setAccessibleName(title);
    card->setAccessibleDescription(subtitle);
    card->setToolTip(subtitle + " (" + shortcut + ")");
    card->setCursor(Qt::PointingHandCursor);
    card->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Minimum);

    auto* titleLabel = new QLabel(title, card);
    titleLabel->setObjectName("toolCardTitle");
    auto* subtitleLabel = new QLabel(subtitle, card);
    subtitleLabel->setObjectName("toolCardSubtitle");
    subtitleLabel->setWordWrap(true);
    for (QLabel* label : {titleLabel, subtitleLabel}) {
        label->setAttribute(Qt::WA_TransparentForMouseEvents);
    }
    auto* layout = new QVBoxLayout(card);
    layout->setContentsMargins(16, 12, 16, 12);
    layout->setSpacing(4);
    layout->addWidget(titleLabel);
    layout->addWidget(subtitleLabel);
    card->setMinimumHeight(layout->sizeHint().height());

    connect(card, &QPushButton::clicked, this, [this, area] { emit toolChosen(area); });
    cards_.append(card);
    return card;
}

QPushButton* HomeScreen::card(const QString& area) const {
    for (QPushButton* card : cards_) {
        if (card->property("area").toString() == area) {
            return card;
        }
    }
    return nullptr;
}

}  // namespace norvane::gui
