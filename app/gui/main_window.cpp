#include "app/gui/main_window.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QPushButton>
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
    addFiles_ = addAction(file, "Add files…", QKeySequence::Open, [this] { addFilesToScreen(); });
    file->addSeparator();
    addAction(file, "Settings…", QKeySequence("Ctrl+,"), [this] { showSettings(); });
    file->addSeparator();
    addAction(file, "Quit", QKeySequence::Quit, [this] { close(); });

    // The running screen's primary button and Cancel: the same keys on every tool screen.
    QMenu* run = menuBar()->addMenu("&Run");
    process_ = addAction(run, "Process", QKeySequence("Ctrl+Return"), [this] {
        if (QPushButton* button = screenButton(true); button && button->isEnabled()) {
            button->click();
        }
    });
    process_->setShortcuts({QKeySequence("Ctrl+Return"), QKeySequence("Ctrl+Enter")});
    cancel_ = addAction(run, "Cancel", QKeySequence(Qt::Key_Escape), [this] {
        if (QPushButton* button = screenButton(false); button && button->isEnabled()) {
            button->click();
        }
    });
    connect(run, &QMenu::aboutToShow, this, &MainWindow::refreshRunActions);
    // The keys stay live when the menu is closed; the screen's button decides.
    connect(run, &QMenu::aboutToHide, this, [this] {
        process_->setEnabled(true);
        cancel_->setEnabled(true);
    });

    QMenu* go = menuBar()->addMenu("&Go");
    addAction(go, "Back", QKeySequence("Alt+Left"), [this] { goBack(); });

    QMenu* help = menuBar()->addMenu("&Help");
    addAction(help, "How it works", QKeySequence::HelpContents,
              [this] { showHelpPage("How it works", howItWorksText()); });
    addAction(help, "Keyboard shortcuts", QKeySequence(),
              [this] { showHelpPage("Keyboard shortcuts", shortcutsText()); });
    help->addSeparator();
    addAction(help, "About Norvane", QKeySequence(), [this] {
        showHelpPage("About Norvane", "<p><b>Norvane " + QApplication::applicationVersion() +
                                          "</b></p><p>LTC stamp, poly WAV split and timeline "
                                          "rebuild.</p>");
    });
}

QPushButton* MainWindow::screenButton(bool primary) const {
    const QString page = currentPage();
    if (page == "ltcStamp") {
        return primary ? stamp_->processButton() : stamp_->cancelButton();
    }
    if (page == "polyWavSplit") {
        return primary ? polySplit_->startButton() : polySplit_->cancelButton();
    }
    if (page == "timelineRebuild") {
        return primary ? rebuild_->buildButton() : rebuild_->cancelButton();
    }
    return nullptr;
}

void MainWindow::addFilesToScreen() {
    const QString page = currentPage();
    if (page == "ltcStamp") {
        stamp_->addFilesFromPicker();
    } else if (page == "polyWavSplit") {
        polySplit_->addFilesFromPicker();
    } else if (page == "timelineRebuild") {
        rebuild_->addFilesFromPicker();
    }
}

void MainWindow::refreshRunActions() {
    QPushButton* primary = screenButton(true);
    QPushButton* cancel = screenButton(false);
    process_->setEnabled(primary != nullptr && primary->isEnabled());
    // The menu names the screen's own action: Stamp, Split or Build.
    process_->setText(primary != nullptr ? primary->text() : QString("Process"));
    cancel_->setEnabled(cancel != nullptr && cancel->isEnabled());
}

QString MainWindow::howItWorksText() {
    return "<h3>LTC stamp</h3>"
           "<p>Drop the day's WAV files or a folder. Norvane listens to every channel and finds "
           "the LTC by its signal: the LTC column shows the channel, the rate and how sure the "
           "decode is. Pick a mode (Single, Grouped Batch or LTC Cut Detect), check the day "
           "ruler and the LTC health strip, then Stamp. Each output is a copy of its source "
           "whose bext TimeReference and iXML timecode carry the start timecode; the table "
           "shows each file's start, output and status, the Report pane the full text.</p>"
           "<h3>Poly WAV split</h3>"
           "<p>Drop multichannel WAVs: each channel becomes a mono WAV in the output folder, "
           "named after the take and the channel (and the recorder's track name if you "
           "ask for it).</p>"
           "<h3>Timeline rebuild</h3>"
           "<p>Give the source timeline (FCPXML), the stereo mix and the folder of synced WAVs. "
           "Auto-scan matches every file to its event and track; Mapping shows the events "
           "against the camera lanes in time; Validate lists what is missing; Build writes a "
           "new FCPXML with the camera lanes, the mix and the synced tracks.</p>"
           "<p>Inputs are never changed: every output is a new file, complete or absent.</p>";
}

QString MainWindow::shortcutsText() {
    const QStringList rows = {"Ctrl+1, Ctrl+2, Ctrl+3|LTC stamp, Poly WAV split, Timeline rebuild",
                              "Ctrl+0 or Alt+Left|Home, back",
                              "Ctrl+O|Add files…",
                              "Ctrl+Shift+O|Add a folder",
                              "Ctrl+Return|Stamp, Split or Build",
                              "Esc|Cancel the running work",
                              "Delete|Remove the selected files from the list",
                              "Ctrl+Shift+S, Ctrl+Shift+V|Auto-scan, Validate (Timeline rebuild)",
                              "Ctrl+,|Settings",
                              "F1|How it works"};
    QString html = "<table cellspacing='6'>";
    for (const QString& row : rows) {
        const QStringList cells = row.split('|');
        html += "<tr><td><b>" + cells[0] + "</b></td><td>" + cells[1] + "</td></tr>";
    }
    return html + "</table>";
}

void MainWindow::showHelpPage(const QString& title, const QString& html) {
    QMessageBox box(this);
    box.setObjectName("helpPage");
    box.setWindowTitle(title);
    box.setTextFormat(Qt::RichText);
    box.setText(html);
    box.setStandardButtons(QMessageBox::Close);
    lastHelpText_ = html;
    if (showsDialogs_) {
        box.exec();
    }
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
