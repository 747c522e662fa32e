#include <QApplication>
#include <QCommandLineParser>
#include <QTimer>
#include <iostream>

#include "app/gui/main_window.h"
#include "app/gui/screenshot_mode.h"
#include "app/gui/style.h"
#include "app/viewmodels/app_view_model.h"

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QApplication::setApplicationName("Norvane");
    QApplication::setOrganizationName("Norvane");
    QApplication::setApplicationVersion("0.1.0");

    QCommandLineParser parser;
    parser.setApplicationDescription("LTC stamp, poly WAV split and timeline rebuild.");
    parser.addHelpOption();
    parser.addVersionOption();
    // Hidden options behind scripts/screenshots: fill every screen from
    // generated inputs and save a picture of each.
    QCommandLineOption screenshotDir("screenshot-dir", "Save screen pictures to DIR.", "DIR");
    screenshotDir.setFlags(QCommandLineOption::HiddenFromHelp);
    QCommandLineOption demoInputs("demo-inputs", "Generate demo inputs in DIR.", "DIR");
    demoInputs.setFlags(QCommandLineOption::HiddenFromHelp);
    parser.addOption(screenshotDir);
    parser.addOption(demoInputs);
    parser.process(app);

    norvane::gui::applyAppStyle(app);
    norvane::AppViewModel viewModel;
    norvane::gui::MainWindow window(viewModel);

    if (parser.isSet(screenshotDir)) {
        const QString inputs = parser.isSet(demoInputs) ? parser.value(demoInputs)
                                                        : parser.value(screenshotDir) + "/inputs";
        return norvane::gui::runScreenshotMode(window, viewModel, inputs,
                                               parser.value(screenshotDir));
    }
    window.restoreWindowState();
    window.show();
    return QApplication::exec();
}
