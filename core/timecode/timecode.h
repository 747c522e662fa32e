#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace norvane {

// A frame rate as an exact rational (30000/1001 for 29.97) with its counting
// mode and the label users see ("29.97 DF"). Equality uses all four fields.
struct FrameRateConfig {
    std::int64_t numerator = 25;
    std::int64_t denominator = 1;
    bool dropFrame = false;
    std::string label = "25";

    friend bool operator==(const FrameRateConfig&, const FrameRateConfig&) = default;
};

// Hours 0-23, minutes 0-59, seconds 0-59, frames 0..nominal rate - 1 once
// normalised. `dropFrame` selects the ";" separator of the text form.
struct Timecode {
    std::int64_t hours = 0;
    std::int64_t minutes = 0;
    std::int64_t seconds = 0;
    std::int64_t frames = 0;
    bool dropFrame = false;

    friend bool operator==(const Timecode&, const Timecode&) = default;

    // "HH:MM:SS:FF", or "HH:MM:SS;FF" for drop-frame.
    std::string description() const;
};

// The user's frame-rate choice: Auto (detected from the LTC) or a fixed rate.
// `auto_` is the "Auto" case (auto is a C++ keyword).
enum class FrameRatePreset { auto_, fps23_976, fps24, fps25, fps29_97NDF, fps29_97DF, fps30 };

// Every preset in declaration order.
const std::array<FrameRatePreset, 7>& allFrameRatePresets();
// The raw value shown to users and stored in settings: "Auto", "23.976", ...
std::string label(FrameRatePreset preset);
// The preset whose raw value is exactly `text`; nullopt for anything else.
std::optional<FrameRatePreset> frameRatePresetFromLabel(std::string_view text);
// The fixed rate of a preset (its label as the config's label); nullopt for Auto.
std::optional<FrameRateConfig> frameRateConfig(FrameRatePreset preset);
// The six fixed rates in preset order: the candidates of automatic detection.
const std::vector<FrameRateConfig>& candidateFrameRates();

// Conversions between timecode, frame counts, seconds and sample positions.
// Overflow of the 64-bit arithmetic is a programming error and throws
// std::overflow_error; it never wraps.
namespace TimecodeMath {

// 24 for 24000/1001, 30 for 30000/1001, otherwise numerator/denominator rounded
// half away from zero (25/1 -> 25, 60000/1001 -> 60).
std::int64_t nominalFramesPerSecond(std::int64_t numerator, std::int64_t denominator);

// Frames since 00:00:00:00. The config (not the timecode's own flag) decides
// whether drop-frame counting applies: 2 frame numbers dropped each minute
// except every tenth.
std::int64_t frameCount(const Timecode& timecode, const FrameRateConfig& rate);

// The inverse of frameCount, wrapping into one day (negative counts wrap to the
// previous day). The result's dropFrame is the config's.
Timecode timecodeFromFrameCount(std::int64_t frames, const FrameRateConfig& rate);

Timecode timecodeMinusFrames(const Timecode& timecode, std::int64_t frames,
                             const FrameRateConfig& rate);

// frames x denominator / numerator.
double secondsForFrames(std::int64_t frames, const FrameRateConfig& rate);

// The bext TimeReference of a timecode: samples since midnight at the exact
// rate, round(denominator / numerator x sampleRate x frameCount) half away from
// zero, negative values clamped to 0.
std::uint64_t samplePosition(const Timecode& timecode, std::int64_t sampleRate,
                             const FrameRateConfig& rate);

}  // namespace TimecodeMath

// Rounds half away from zero to a 64-bit integer; throws std::overflow_error
// when the value is not finite or does not fit.
std::int64_t roundHalfAwayFromZero(double value);

void to_json(nlohmann::ordered_json& j, const FrameRateConfig& rate);
void from_json(const nlohmann::ordered_json& j, FrameRateConfig& rate);
void to_json(nlohmann::ordered_json& j, const Timecode& timecode);
void from_json(const nlohmann::ordered_json& j, Timecode& timecode);
void to_json(nlohmann::ordered_json& j, FrameRatePreset preset);
void from_json(const nlohmann::ordered_json& j, FrameRatePreset& preset);

}  // namespace norvane

template <>
struct std::hash<norvane::FrameRateConfig> {
    std::size_t operator()(const norvane::FrameRateConfig& r) const noexcept {
        std::size_t h = std::hash<std::int64_t>{}(r.numerator);
        h = h * 31 + std::hash<std::int64_t>{}(r.denominator);
        h = h * 31 + std::hash<bool>{}(r.dropFrame);
        h = h * 31 + std::hash<std::string>{}(r.label);
        return h;
    }
};
