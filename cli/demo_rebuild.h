#pragma once

#include <filesystem>

namespace norvane::cli {

// The rebuild part of `norvane demo`: a source timeline with camera lanes, a
// stereo mix and stamped synced files in `folder`, rebuilt into a new timeline.
// Returns the command's exit code.
int runRebuildDemo(const std::filesystem::path& folder);

}  // namespace norvane::cli
