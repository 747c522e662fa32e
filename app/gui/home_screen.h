#pragma once

#include <QPushButton>
#include <QWidget>

namespace norvane::gui {

// The start screen: one card per tool and a way to the settings.
class HomeScreen : public QWidget {
    Q_OBJECT

  public:
    explicit HomeScreen(QWidget* parent = nullptr);

    // The card of a feature area ("ltcStamp", "polyWavSplit", "timelineRebuild").
    QPushButton* card(const QString& area) const;

  signals:
    void toolChosen(const QString& area);
    void settingsRequested();

  private:
    QPushButton* addCard(const QString& area, const QString& title, const QString& subtitle,
                         const QString& shortcut);
    QList<QPushButton*> cards_;
};

}  // namespace norvane::gui
