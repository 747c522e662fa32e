#include "app/gui/main_window.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QSettings>
#include <QStackedWidget>
#include <QToolButton>
#include <QVBoxLayout>

#include "app/gui/home_screen.h"
#include "app/gui/poly_split_screen.h"
#include "app/gui/property_binding.h"
#include "app/gui/rebuild_screen.h"
#include "app/gui/settings_screen.h"
#include "app/gui/stamp_screen.h"
#include "app/gui/view_model_access.h"
#include "app/viewmodels/app_view_model.h"

namespace norvane::gui {

MainWindow::MainWindow(AppViewModel& viewModel, QWidget* parent)
    : QMainWindow(parent),
      viewModel_(viewModel),
      back_(new QToolButton),
      title_(new QLabel),
      settingsButton_(new QToolButton),
      stack_(new QStackedWidget) {
    setWindowTitle("Norvane");
    setObjectName("mainWindow");

    auto* header = new QFrame;
    header->setObjectName("headerBar");
    back_->setObjectName("backButton");
    back_->setText("‹ Home");
    back_->setToolTip("Back to the tools (Alt+Left)");
    back_->setAutoRaise(true);
    title_->setObjectName("screenTitle");
    settingsButton_->setObjectName("settingsButton");
    settingsButton_->setText("Settings");
    settingsButton_->setToolTip("Defaults of all three tools (Ctrl+,)");
    settingsButton_->setAutoRaise(true);
    auto* headerLayout = new QHBoxLayout(header);
    headerLayout->setContentsMargins(8, 4, 8, 4);
    headerLayout->addWidget(back_);
    headerLayout->addWidget(title_, 1);
    headerLayout->addWidget(settingsButton_);
    connect(back_, &QToolButton::clicked, this, &MainWindow::goBack);
    connect(settingsButton_, &QToolButton::clicked, this, &MainWindow::showSettings);

    auto* central = new QWidget;
    auto* layout = new QVBoxLayout(central);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(header);
    layout->addWidget(stack_, 1);
    setCentralWidget(central);

    home_ = new HomeScreen;
    connect(home_, &HomeScreen::toolChosen, this, &MainWindow::showArea);
    connect(home_, &HomeScreen::settingsRequested, this, &MainWindow::showSettings);
    addPage("home", "", home_);
    stamp_ = new StampScreen(deref(viewModel_.stamp()));
    addPage("ltcStamp", "LTC stamp", stamp_);
    polySplit_ = new PolySplitScreen(deref(viewModel_.polySplit()));
    addPage("polyWavSplit", "Poly WAV split", polySplit_);
    rebuild_ = new RebuildScreen(deref(viewModel_.timelineRebuild()));
    addPage("timelineRebuild", "Timeline rebuild", rebuild_);
    settings_ = new SettingsScreen(deref(viewModel_.settings()));
    addPage("settings", "Settings", settings_);

    buildMenus();
    watchProperty(&viewModel_, "featureArea", this,
                  [this] { showPage(viewModel_.property("featureArea").toString()); });
    resize(980, 760);
    setMinimumSize(640, 480);
}

void MainWindow::addPage(const QString& name, const QString& title, QWidget* page) {
    pages_.insert(name, page);
    titles_.insert(name, title);
    stack_->addWidget(page);
}

QString MainWindow::currentPage() const {
    return pages_.key(stack_->currentWidget());
}

void MainWindow::showArea(const QString& area) {
    if (!pages_.contains(area) || area == "settings") {
        return;
    }
    viewModel_.setProperty("featureArea", area);
    // Also when the area did not change (coming back from the settings page).
    showPage(area);
}

void MainWindow::showSettings() {
    if (currentPage() != "settings") {
        pageBeforeSettings_ = currentPage();
    }
    showPage("settings");
}

void MainWindow::goBack() {
    if (currentPage() == "settings" && pageBeforeSettings_ != "home") {
        showArea(pageBeforeSettings_);
        return;
    }
    showArea("home");
}

void MainWindow::showPage(const QString& name) {
    QWidget* page = pages_.value(name, home_);
    stack_->setCurrentWidget(page);
    const QString key = pages_.key(page);
    const bool home = key == "home";
    back_->setVisible(!home);
    back_->setText(key == "settings" && pageBeforeSettings_ != "home"
                       ? "‹ " + titles_.value(pageBeforeSettings_)
                       : QString("‹ Home"));
    // The home screen carries its own heading.
    title_->setText(home ? QString() : titles_.value(key));
    settingsButton_->setVisible(key != "settings");
    setWindowTitle(home ? QString("Norvane") : titles_.value(key) + " — Norvane");
    if (!home) {
        page->setFocus();
    }
}

void MainWindow::buildMenus() {
    QMenu* file = menuBar()->addMenu("&File");
    auto addAction = [this](QMenu* menu, const QString& text, const QKeySequence& keys, auto slot) {
        QAction* action = menu->addAction(text);
        action->setShortcut(keys);
        action->setShortcutContext(Qt::WindowShortcut);
        connect(action, &QAction::triggered, this, slot);
        return action;
    };
    addAction(file, "Home", QKeySequence("Ctrl+0"), [this] { showArea("home"); });
    addAction(file, "LTC stamp", QKeySequence("Ctrl+1"), [this] { showArea("ltcStamp"); });
    addAction(file, "Poly WAV split", QKeySequence("Ctrl+2"), [this] { showArea("polyWavSplit"); });
    addAction(file, "Timeline rebuild", QKeySequence("Ctrl+3"),
              [this] { showArea("timelineRebuild"); });
    file->addSeparator();
    addAction(file, "Settings…", QKeySequence("Ctrl+,"), [this] { showSettings(); });
    file->addSeparator();
    addAction(file, "Quit", QKeySequence::Quit, [this] { close(); });

    QMenu* go = menuBar()->addMenu("&Go");
    addAction(go, "Back", QKeySequence("Alt+Left"), [this] { goBack(); });

    QMenu* help = menuBar()->addMenu("&Help");
    addAction(help, "About Norvane", QKeySequence(), [this] {
        QMessageBox::about(this, "About Norvane",
                           "Norvane " + QApplication::applicationVersion() +
                               "\nLTC stamp, poly WAV split and timeline rebuild.");
    });
}

void MainWindow::restoreWindowState() {
    QSettings state;
    restoreGeometry(state.value("window/geometry").toByteArray());
    restoreState(state.value("window/state").toByteArray());
}

void MainWindow::closeEvent(QCloseEvent* event) {
    if (!savesWindowState_) {
        QMainWindow::closeEvent(event);
        return;
    }
    QSettings state;
    state.setValue("window/geometry", saveGeometry());
    state.setValue("window/state", saveState());
    QMainWindow::closeEvent(event);
}

}  // namespace norvane::gui
