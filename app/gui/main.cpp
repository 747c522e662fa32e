#include <QApplication>

#include "app/gui/home_screen.h"
#include "app/gui/style.h"

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QApplication::setApplicationName("Norvane");
    QApplication::setOrganizationName("Norvane");
    norvane::gui::applyAppStyle(app);
    norvane::gui::HomeScreen home;
    home.show();
    return QApplication::exec();
}
