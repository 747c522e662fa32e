#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include <QString>
#include <QStringList>

namespace norvane {

// A log pane line: "[" + local time "HH:mm:ss" + "] " + message.
QString timestampedLogLine(const QString& message);

inline QString toQString(const std::string& text) {
    return QString::fromStdString(text);
}
inline std::string toStdString(const QString& text) {
    return text.toStdString();
}
inline std::filesystem::path toPath(const QString& text) {
    return std::filesystem::path(text.toStdString());
}
inline QString toQString(const std::filesystem::path& path) {
    return QString::fromStdString(path.string());
}

// Folders are walked recursively (hidden entries included) and every file
// found is taken, in file-browser order; other paths are taken as given. Then only names whose
// extension is "wav", compared without case, are kept. Unreadable folders give
// what could be listed.
std::vector<std::filesystem::path> expandDroppedWavFiles(const QStringList& paths);

// The file name ("last path component") of a path text.
QString fileNameOf(const QString& path);

}  // namespace norvane
