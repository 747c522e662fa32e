#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>

#include <QString>
#include <QStringList>

namespace norvane::testing {

inline QString q(const std::filesystem::path& path) {
    return QString::fromStdString(path.string());
}

// Runs the Qt event loop until `done` holds or `timeout` passes; returns `done()`.
bool waitUntil(const std::function<bool()>& done,
               std::chrono::milliseconds timeout = std::chrono::seconds(30));

// Writes a settings file holding `json` (an object of "settings." keys).
void writeSettingsFile(const std::filesystem::path& file, const std::string& json);

// The lines of `lines` with their "[HH:mm:ss] " stamp removed; fails the
// current test for a line without a well-formed stamp.
QStringList withoutTimestamps(const QStringList& lines);

}  // namespace norvane::testing
