#pragma once

// Names of stamped outputs, the guard against names that would leave the
// output folder, and what happens when a file of that name already exists.

#include <cstdint>
#include <filesystem>
#include <functional>
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
//
// Within a run (a RunOutputGuard on this thread) a name that is one of the
// run's inputs throws OutputConflictError whatever the behaviour, and a name an
// earlier output of the run took is numbered under overwrite too: one output
// of a run never replaces another.
std::filesystem::path resolveDestination(const std::filesystem::path& folder, std::string_view name,
                                         OutputCollisionBehavior behavior);

// Resolves the destination and hands it to `write` with whether it may
// replace a file there (overwrite of a file that was not this run's). The
// name is claimed atomically: when another process takes it between the check
// and the write (write's EEXIST), ask throws outputFileAlreadyExists and
// keepBoth takes the next free number. Returns the path written.
std::filesystem::path writeResolved(
    const std::filesystem::path& folder, std::string_view name, OutputCollisionBehavior behavior,
    const std::function<void(const std::filesystem::path&, bool replace)>& write);

}  // namespace norvane::OutputNaming
