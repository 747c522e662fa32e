#include "core/timecode/timecode.h"

#include <cmath>
#include <limits>
#include <stdexcept>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace norvane {

namespace {

std::int64_t mul(std::int64_t a, std::int64_t b) {
    std::int64_t r = 0;
    if (__builtin_mul_overflow(a, b, &r)) {
        throw std::overflow_error("timecode arithmetic overflow");
    }
    return r;
}
std::int64_t add(std::int64_t a, std::int64_t b) {
    std::int64_t r = 0;
    if (__builtin_add_overflow(a, b, &r)) {
        throw std::overflow_error("timecode arithmetic overflow");
    }
    return r;
}
std::int64_t sub(std::int64_t a, std::int64_t b) {
    std::int64_t r = 0;
    if (__builtin_sub_overflow(a, b, &r)) {
        throw std::overflow_error("timecode arithmetic overflow");
    }
    return r;
}

// ((n mod m) + m) mod m: wraps negative counts into [0, m).
std::int64_t wrap(std::int64_t n, std::int64_t m) {
    return ((n % m) + m) % m;
}

struct PresetRow {
    FrameRatePreset preset;
    const char* label;
    std::int64_t numerator;
    std::int64_t denominator;
    bool dropFrame;
};

constexpr PresetRow kPresets[] = {
    {FrameRatePreset::auto_, "Auto", 0, 0, false},
    {FrameRatePreset::fps23_976, "23.976", 24000, 1001, false},
    {FrameRatePreset::fps24, "24", 24, 1, false},
    {FrameRatePreset::fps25, "25", 25, 1, false},
    {FrameRatePreset::fps29_97NDF, "29.97 NDF", 30000, 1001, false},
    {FrameRatePreset::fps29_97DF, "29.97 DF", 30000, 1001, true},
    {FrameRatePreset::fps30, "30", 30, 1, false},
};

}  // namespace

std::int64_t roundHalfAwayFromZero(double value) {
    double r = std::round(value);  // std::round rounds halves away from zero
    if (!std::isfinite(r) || r >= 9223372036854775808.0 || r < -9223372036854775808.0) {
        throw std::overflow_error("value does not fit a 64-bit integer");
    }
    return static_cast<std::int64_t>(r);
}

std::string Timecode::description() const {
    return fmt::format("{:02d}:{:02d}:{:02d}{}{:02d}", hours, minutes, seconds,
                       dropFrame ? ";" : ":", frames);
}

const std::array<FrameRatePreset, 7>& allFrameRatePresets() {
    static const std::array<FrameRatePreset, 7> all = {
        FrameRatePreset::auto_,       FrameRatePreset::fps23_976,  FrameRatePreset::fps24,
        FrameRatePreset::fps25,       FrameRatePreset::fps29_97NDF, FrameRatePreset::fps29_97DF,
        FrameRatePreset::fps30};
    return all;
}

std::string label(FrameRatePreset preset) {
    for (const auto& row : kPresets) {
        if (row.preset == preset) {
            return row.label;
        }
    }
    return "Auto";
}

std::optional<FrameRatePreset> frameRatePresetFromLabel(std::string_view text) {
    for (const auto& row : kPresets) {
        if (text == row.label) {
            return row.preset;
        }
    }
    return std::nullopt;
}

std::optional<FrameRateConfig> frameRateConfig(FrameRatePreset preset) {
    for (const auto& row : kPresets) {
        if (row.preset == preset && preset != FrameRatePreset::auto_) {
            return FrameRateConfig{row.numerator, row.denominator, row.dropFrame, row.label};
        }
    }
    return std::nullopt;
}

const std::vector<FrameRateConfig>& candidateFrameRates() {
    static const std::vector<FrameRateConfig> candidates = [] {
        std::vector<FrameRateConfig> out;
        for (FrameRatePreset p : allFrameRatePresets()) {
            if (auto config = frameRateConfig(p)) {
                out.push_back(*config);
            }
        }
        return out;
    }();
    return candidates;
}

namespace TimecodeMath {

std::int64_t nominalFramesPerSecond(std::int64_t numerator, std::int64_t denominator) {
    if (numerator == 24000 && denominator == 1001) {
        return 24;
    }
    if (numerator == 30000 && denominator == 1001) {
        return 30;
    }
    if (denominator == 0) {
        throw std::overflow_error("frame rate with a zero denominator");
    }
    return roundHalfAwayFromZero(static_cast<double>(numerator) / static_cast<double>(denominator));
}

std::int64_t frameCount(const Timecode& tc, const FrameRateConfig& rate) {
    const std::int64_t fps = nominalFramesPerSecond(rate.numerator, rate.denominator);
    const std::int64_t totalSeconds =
        add(add(mul(tc.hours, 3600), mul(tc.minutes, 60)), tc.seconds);
    std::int64_t count = add(mul(totalSeconds, fps), tc.frames);
    if (rate.dropFrame) {
        const std::int64_t totalMinutes = add(mul(tc.hours, 60), tc.minutes);
        const std::int64_t dropped = mul(2, sub(totalMinutes, totalMinutes / 10));
        count = sub(count, dropped);
    }
    return count;
}

Timecode timecodeFromFrameCount(std::int64_t n, const FrameRateConfig& rate) {
    const std::int64_t fps = nominalFramesPerSecond(rate.numerator, rate.denominator);
    if (fps <= 0) {
        throw std::overflow_error("frame rate below one frame per second");
    }
    Timecode tc;
    tc.dropFrame = rate.dropFrame;
    if (rate.dropFrame) {
        const std::int64_t per10 = fps * 600 - 18;
        const std::int64_t perMin = fps * 60 - 2;
        const std::int64_t perHour = fps * 3600 - 108;
        const std::int64_t perDay = perHour * 24;
        n = wrap(n, perDay);
        tc.hours = n / perHour;
        std::int64_t r = n - tc.hours * perHour;
        const std::int64_t tens = r / per10;
        r -= tens * per10;
        tc.minutes = tens * 10;
        if (r >= fps * 60) {
            // Past the first (full) minute of the ten-minute block: the following
            // minutes each lack frame numbers 00 and 01.
            r -= fps * 60;
            const std::int64_t k = r / perMin;
            tc.minutes = tens * 10 + 1 + k;
            r = r - k * perMin + 2;
        }
        tc.seconds = r / fps;
        tc.frames = r - tc.seconds * fps;
    } else {
        const std::int64_t perDay = mul(fps, 86400);
        n = wrap(n, perDay);
        tc.hours = n / (fps * 3600);
        std::int64_t r = n - tc.hours * fps * 3600;
        tc.minutes = r / (fps * 60);
        r -= tc.minutes * fps * 60;
        tc.seconds = r / fps;
        tc.frames = r - tc.seconds * fps;
    }
    return tc;
}

Timecode timecodeMinusFrames(const Timecode& timecode, std::int64_t frames,
                             const FrameRateConfig& rate) {
    return timecodeFromFrameCount(sub(frameCount(timecode, rate), frames), rate);
}

double secondsForFrames(std::int64_t frames, const FrameRateConfig& rate) {
    return static_cast<double>(frames) * static_cast<double>(rate.denominator) /
           static_cast<double>(rate.numerator);
}

std::uint64_t samplePosition(const Timecode& timecode, std::int64_t sampleRate,
                             const FrameRateConfig& rate) {
    const std::int64_t frames = frameCount(timecode, rate);
    const double position = static_cast<double>(rate.denominator) /
                            static_cast<double>(rate.numerator) *
                            static_cast<double>(sampleRate) * static_cast<double>(frames);
    const std::int64_t rounded = roundHalfAwayFromZero(position);
    return rounded < 0 ? 0 : static_cast<std::uint64_t>(rounded);
}

}  // namespace TimecodeMath

void to_json(nlohmann::ordered_json& j, const FrameRateConfig& rate) {
    j = nlohmann::ordered_json{{"numerator", rate.numerator},
                               {"denominator", rate.denominator},
                               {"dropFrame", rate.dropFrame},
                               {"label", rate.label}};
}
void from_json(const nlohmann::ordered_json& j, FrameRateConfig& rate) {
    rate.numerator = j.at("numerator").get<std::int64_t>();
    rate.denominator = j.at("denominator").get<std::int64_t>();
    rate.dropFrame = j.at("dropFrame").get<bool>();
    rate.label = j.at("label").get<std::string>();
}
void to_json(nlohmann::ordered_json& j, const Timecode& tc) {
    j = nlohmann::ordered_json{{"hours", tc.hours},
                               {"minutes", tc.minutes},
                               {"seconds", tc.seconds},
                               {"frames", tc.frames},
                               {"dropFrame", tc.dropFrame}};
}
void from_json(const nlohmann::ordered_json& j, Timecode& tc) {
    tc.hours = j.at("hours").get<std::int64_t>();
    tc.minutes = j.at("minutes").get<std::int64_t>();
    tc.seconds = j.at("seconds").get<std::int64_t>();
    tc.frames = j.at("frames").get<std::int64_t>();
    tc.dropFrame = j.at("dropFrame").get<bool>();
}
void to_json(nlohmann::ordered_json& j, FrameRatePreset preset) {
    j = label(preset);
}
void from_json(const nlohmann::ordered_json& j, FrameRatePreset& preset) {
    auto parsed = frameRatePresetFromLabel(j.get<std::string>());
    if (!parsed) {
        throw nlohmann::ordered_json::other_error::create(501, "unknown frame rate preset label", &j);
    }
    preset = *parsed;
}

}  // namespace norvane
