#pragma once

#include <filesystem>
#include <string>

namespace norvane {

// Where a tool writes when the user has not chosen: the folder saved for the
// tool, unless it is still the untouched default (the home folder) or empty;
// then a folder named `besideName` ("Stamped", "Split") next to the first
// source, so a day's outputs land beside the day's recordings.
inline std::filesystem::path defaultOutputFolder(const std::filesystem::path& saved,
                                                 const std::filesystem::path& home,
                                                 const std::filesystem::path& firstSource,
                                                 const std::string& besideName) {
    namespace fs = std::filesystem;
    const bool untouched = saved.empty() || saved.lexically_normal() == home.lexically_normal() ||
                           saved.lexically_normal() == (home / "").lexically_normal();
    if (!untouched || firstSource.empty()) {
        return saved;
    }
    return fs::absolute(firstSource).lexically_normal().parent_path() / besideName;
}

}  // namespace norvane
