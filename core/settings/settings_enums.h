#pragma once

// The choices the settings store persists for the stamp and timeline rebuild
// tools. Each enumeration persists and displays by its label; decoding a label
// that matches no case gives nullopt (the store then falls back to its default).
// Standard library only, so any engine can include it.

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace norvane {

// Whether a run whose LTC decode confidence is low waits for the user.
enum class LowConfidenceBehavior { ask, alwaysProceed };

// The duration tolerance of "Duration Exact" file grouping.
enum class DurationTolerancePreset { tight, standard, loose };

// What the timeline rebuild does for an event where a camera lane has no clip.
enum class MissingCameraBehavior { insertGap, skipClip, failExport };

// Where the timeline rebuild takes each synced file's event timecode from.
enum class TimecodeSourcePriority { bwfIXMLThenFilename, filenameOnly, inputXMLOnly };

// Frame rate of the rebuilt picture relative to the LTC rate: the same, or
// twice it (50/60 fps picture stamped from 25/30 fps LTC).
enum class VideoFrameRateMode { sameAsLTC, doubleLTC };

// Every case in declaration order.
const std::array<LowConfidenceBehavior, 2>& allLowConfidenceBehaviors();
const std::array<DurationTolerancePreset, 3>& allDurationTolerancePresets();
const std::array<MissingCameraBehavior, 3>& allMissingCameraBehaviors();
const std::array<TimecodeSourcePriority, 3>& allTimecodeSourcePriorities();
const std::array<VideoFrameRateMode, 2>& allVideoFrameRateModes();

// The label shown to users and stored in settings ("Always Proceed", "Tight (20 ms)",
// "Insert Gap", "iXML / BWF bext -> Filename", "Double LTC (50/60 fps video)", ...).
std::string label(LowConfidenceBehavior value);
std::string label(DurationTolerancePreset value);
std::string label(MissingCameraBehavior value);
std::string label(TimecodeSourcePriority value);
std::string label(VideoFrameRateMode value);

// The case whose label is exactly `text` (case-sensitive); nullopt otherwise.
std::optional<LowConfidenceBehavior> lowConfidenceBehaviorFromLabel(std::string_view text);
std::optional<DurationTolerancePreset> durationTolerancePresetFromLabel(std::string_view text);
std::optional<MissingCameraBehavior> missingCameraBehaviorFromLabel(std::string_view text);
std::optional<TimecodeSourcePriority> timecodeSourcePriorityFromLabel(std::string_view text);
std::optional<VideoFrameRateMode> videoFrameRateModeFromLabel(std::string_view text);

// Tolerance of a preset in milliseconds: 20, 50 or 100.
std::int64_t milliseconds(DurationTolerancePreset preset);

}  // namespace norvane
