#pragma once

#include <optional>
#include <string_view>

#include "core/timecode/timecode.h"

namespace norvane {

// Reads "HH:MM:SS:FF" (non-drop) or "HH:MM:SS;FF" (drop-frame, dropFrame set);
// each field one or two digits, hours 0-23, minutes and seconds 0-59, frames
// 0-29. Surrounding white space is ignored. nullopt for anything else.
std::optional<Timecode> parseTimecodeText(std::string_view text);

// The same, also requiring the frames to exist at `rate` (below its nominal
// rate, and not one of the numbers drop-frame counting skips). The result's
// dropFrame is the rate's.
std::optional<Timecode> parseTimecodeText(std::string_view text, const FrameRateConfig& rate);

}  // namespace norvane
