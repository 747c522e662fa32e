#pragma once

#include <cstdint>
#include <filesystem>

#include "core/common/bytes.h"

namespace norvane::cli {

// A 24-bit PCM WAV of `channels` channels holding a quiet tone (48 kHz).
ByteBuffer demoToneWav(int channels, std::int64_t frames, double frequency);

// The rebuild part of `norvane demo`: a source timeline with camera lanes, a
// stereo mix and stamped synced files in `folder`, rebuilt into a new timeline.
// Returns the command's exit code.
int runRebuildDemo(const std::filesystem::path& folder);

}  // namespace norvane::cli
