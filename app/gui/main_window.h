#pragma once

#include <QMainWindow>
#include <QMap>

class QLabel;
class QStackedWidget;
class QToolButton;

namespace norvane {
class AppViewModel;
}

namespace norvane::gui {

class HomeScreen;
class PolySplitScreen;
class RebuildScreen;
class SettingsScreen;
class StampScreen;

// The one window: a header bar (the way back home, the screen's title, the
// settings) over the screen of the current feature area. The area itself
// lives in the view model; the settings page is this window's own.
class MainWindow : public QMainWindow {
    Q_OBJECT

  public:
    explicit MainWindow(AppViewModel& viewModel, QWidget* parent = nullptr);

    // "home", "ltcStamp", "polyWavSplit", "timelineRebuild" or "settings".
    QString currentPage() const;
    void showArea(const QString& area);
    void showSettings();
    void goBack();

    HomeScreen* homeScreen() const { return home_; }
    StampScreen* stampScreen() const { return stamp_; }
    PolySplitScreen* polySplitScreen() const { return polySplit_; }
    RebuildScreen* rebuildScreen() const { return rebuild_; }
    SettingsScreen* settingsScreen() const { return settings_; }
    QToolButton* backButton() const { return back_; }

    // Window geometry and state from the last session (QSettings); saved on
    // close unless turned off (the screenshot mode leaves them alone).
    void restoreWindowState();
    void setSavesWindowState(bool saves) { savesWindowState_ = saves; }

  protected:
    void closeEvent(QCloseEvent* event) override;

  private:
    void addPage(const QString& name, const QString& title, QWidget* page);
    void showPage(const QString& name);
    void buildMenus();

    AppViewModel& viewModel_;
    QToolButton* back_;
    QLabel* title_;
    QToolButton* settingsButton_;
    QStackedWidget* stack_;
    QMap<QString, QWidget*> pages_;
    QMap<QString, QString> titles_;
    QString pageBeforeSettings_ = "home";
    bool savesWindowState_ = true;
    HomeScreen* home_ = nullptr;
    StampScreen* stamp_ = nullptr;
    PolySplitScreen* polySplit_ = nullptr;
    RebuildScreen* rebuild_ = nullptr;
    SettingsScreen* settings_ = nullptr;
};

}  // namespace norvane::gui
