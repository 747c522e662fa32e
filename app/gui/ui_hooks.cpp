#include "app/gui/ui_hooks.h"

#include <QDesktopServices>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QMessageBox>
#include <QPushButton>

namespace norvane::gui {

namespace {

UiHooks platformHooks() {
    UiHooks hooks;
    hooks.chooseFiles = [](QWidget* parent, const QString& title, const QString& folder,
                           const QString& filter) {
        return QFileDialog::getOpenFileNames(parent, title, folder, filter);
    };
    hooks.chooseFile = [](QWidget* parent, const QString& title, const QString& folder,
                          const QString& filter) {
        return QFileDialog::getOpenFileName(parent, title, folder, filter);
    };
    hooks.chooseFolder = [](QWidget* parent, const QString& title, const QString& folder) {
        return QFileDialog::getExistingDirectory(parent, title, folder);
    };
    hooks.confirm = [](QWidget* parent, const QString& title, const QString& text,
                       const QString& acceptText) {
        QMessageBox box(QMessageBox::Question, title, text, QMessageBox::NoButton, parent);
        QPushButton* accept = box.addButton(acceptText, QMessageBox::AcceptRole);
        box.addButton(QMessageBox::Cancel);
        box.setDefaultButton(accept);
        box.exec();
        return box.clickedButton() == accept;
    };
    hooks.choose = [](QWidget* parent, const QString& title, const QString& text,
                      const QStringList& choices) {
        QMessageBox box(QMessageBox::Question, title, text, QMessageBox::NoButton, parent);
        QList<QPushButton*> buttons;
        for (const QString& choice : choices) {
            buttons.append(box.addButton(choice, QMessageBox::AcceptRole));
        }
        // Enter never picks a choice that replaces or writes files.
        box.setDefaultButton(box.addButton(QMessageBox::Cancel));
        box.exec();
        const auto index = buttons.indexOf(qobject_cast<QPushButton*>(box.clickedButton()));
        return index >= 0 ? choices[index] : QString();
    };
    hooks.openUrl = [](const QUrl& url) { return QDesktopServices::openUrl(url); };
    return hooks;
}

QString& browseFolder() {
    static QString folder;
    return folder;
}

}  // namespace

UiHooks& uiHooks() {
    static UiHooks hooks = platformHooks();
    return hooks;
}

void resetUiHooks() {
    uiHooks() = platformHooks();
}

QString lastBrowseFolder(const QString& fallback) {
    if (!browseFolder().isEmpty() && QFileInfo(browseFolder()).isDir()) {
        return browseFolder();
    }
    return fallback.isEmpty() ? QDir::homePath() : fallback;
}

void rememberBrowseFolder(const QString& pathOrFolder) {
    if (pathOrFolder.isEmpty()) {
        return;
    }
    const QFileInfo info(pathOrFolder);
    browseFolder() = info.isDir() ? info.absoluteFilePath() : info.absolutePath();
}

}  // namespace norvane::gui
