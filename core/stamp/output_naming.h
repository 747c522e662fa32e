#pragma once

// Names of stamped outputs, the guard against names that would leave the
// output folder, and what happens when a file of that name already exists.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "core/stamp/processing_model.h"

namespace norvane::OutputNaming {

// The source's file name without extension, "_seg%03d" for a segment, the
// suffix and ".wav" (always lower case): "Take 3.WAV" -> "Take 3_tc.wav".
std::string outputName(const std::filesystem::path& source,
                       std::optional<std::int64_t> segmentIndex, std::string_view suffix);

// The name trimmed of whitespace at both ends. Throws
// ProcessingError::unsafeOutputFilename (carrying `name` as given) for an empty
// name, ".", "..", or anything with path structure or a slash or backslash.
std::string safeName(std::string_view name);

// Where an output named `name` goes in `folder`. An existing file (tested at the
// moment of the call) is handled by `behavior`: ask throws
// outputFileAlreadyExists, keepBoth numbers the name from _2 on
// ("A_tc.wav" -> "A_tc_2.wav"), overwrite keeps the path.
std::filesystem::path resolveDestination(const std::filesystem::path& folder, std::string_view name,
                                         OutputCollisionBehavior behavior);

}  // namespace norvane::OutputNaming
