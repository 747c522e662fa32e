#pragma once

#include <QMainWindow>
#include <QMap>

class QAction;
class QLabel;
class QPushButton;
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

    // The Run menu's actions follow the screen on show: enabled when its
    // primary button or Cancel is.
    QAction* addFilesAction() const { return addFiles_; }
    QAction* processAction() const { return process_; }
    QAction* cancelAction() const { return cancel_; }
    void refreshRunActions();
    // The text of the last help page opened; tests turn the dialogs off.
    const QString& lastHelpText() const { return lastHelpText_; }
    void setShowsDialogs(bool shows) { showsDialogs_ = shows; }

  protected:
    void closeEvent(QCloseEvent* event) override;

  private:
    void addPage(const QString& name, const QString& title, QWidget* page);
    void showPage(const QString& name);
    void buildMenus();
    // The current tool screen's primary button (or Cancel); none elsewhere.
    QPushButton* screenButton(bool primary) const;
    void addFilesToScreen();
    void showHelpPage(const QString& title, const QString& html);
    static QString howItWorksText();
    static QString shortcutsText();

    AppViewModel& viewModel_;
    QToolButton* back_;
    QLabel* title_;
    QToolButton* settingsButton_;
    QStackedWidget* stack_;
    QMap<QString, QWidget*> pages_;
    QMap<QString, QString> titles_;
    QString pageBeforeSettings_ = "home";
    bool savesWindowState_ = true;
    bool showsDialogs_ = true;
    QString lastHelpText_;
    QAction* addFiles_ = nullptr;
    QAction* process_ = nullptr;
    QAction* cancel_ = nullptr;
    HomeScreen* home_ = nullptr;
    StampScreen* stamp_ = nullptr;
    PolySplitScreen* polySplit_ = nullptr;
    RebuildScreen* rebuild_ = nullptr;
    SettingsScreen* settings_ = nullptr;
};

}  // namespace norvane::gui
