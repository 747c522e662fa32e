#include "app/viewmodels/view_model_support.h"

#include <algorithm>
#include <system_error>

#include <QTime>

#include "core/common/text.h"

namespace norvane {

QString timestampedLogLine(const QString& message) {
    return QStringLiteral("[") + QTime::currentTime().toString(QStringLiteral("HH:mm:ss")) +
           QStringLiteral("] ") + message;
}

namespace {

bool hasWavExtension(const std::filesystem::path& path) {
    return toLowerASCII(path.extension().string()) == ".wav";
}

}  // namespace

std::vector<std::filesystem::path> expandDroppedWavFiles(const QStringList& paths) {
    namespace fs = std::filesystem;
    std::vector<fs::path> found;
    for (const QString& text : paths) {
        const fs::path path = toPath(text);
        std::error_code error;
        if (fs::is_directory(path, error)) {
            const std::size_t first = found.size();
            fs::recursive_directory_iterator it(path, fs::directory_options::skip_permission_denied,
                                                error);
            for (; !error && it != fs::recursive_directory_iterator(); it.increment(error)) {
                std::error_code typeError;
                if (!it->is_directory(typeError) && hasWavExtension(it->path())) {
                    found.push_back(it->path());
                }
            }
            // Listing order is the file system's; show a folder as a file browser would.
            std::sort(found.begin() + static_cast<std::ptrdiff_t>(first), found.end(),
                      [](const fs::path& a, const fs::path& b) {
                          return fileBrowserLess(a.string(), b.string());
                      });
        } else if (hasWavExtension(path)) {
            found.push_back(path);
        }
    }
    return found;
}

QString fileNameOf(const QString& path) {
    return toQString(toPath(path).filename().string());
}

}  // namespace norvane
