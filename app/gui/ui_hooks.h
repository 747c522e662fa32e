#pragma once

#include <QString>
#include <QStringList>
#include <QUrl>
#include <functional>

class QWidget;

namespace norvane::gui {

// Every dialog and desktop hand-off the screens use goes through these
// functions, so that tests (and the screenshot mode) can answer them without
// a person at the keyboard. The defaults open the platform's dialogs.
struct UiHooks {
    // Existing files (empty: cancelled). `filter` is a QFileDialog name filter.
    std::function<QStringList(QWidget* parent, const QString& title, const QString& folder,
                              const QString& filter)>
        chooseFiles;
    // One existing file (empty: cancelled).
    std::function<QString(QWidget* parent, const QString& title, const QString& folder,
                          const QString& filter)>
        chooseFile;
    // An existing folder (empty: cancelled).
    std::function<QString(QWidget* parent, const QString& title, const QString& folder)>
        chooseFolder;
    // A yes/no question; true when the user accepts with `acceptText`.
    std::function<bool(QWidget* parent, const QString& title, const QString& text,
                       const QString& acceptText)>
        confirm;
    // One of `choices`, or empty when the user cancels.
    std::function<QString(QWidget* parent, const QString& title, const QString& text,
                          const QStringList& choices)>
        choose;
    // Shows a folder or file in the desktop's file manager.
    std::function<bool(const QUrl& url)> openUrl;
};

// The hooks in use (process-wide, main thread only).
UiHooks& uiHooks();
// Puts the platform dialogs back.
void resetUiHooks();

// The folder a picker starts in: the last folder the user browsed to in this
// session, else `fallback`.
QString lastBrowseFolder(const QString& fallback = {});
void rememberBrowseFolder(const QString& pathOrFolder);

}  // namespace norvane::gui
