#include "core/timecode/timecode_text.h"

#include "core/common/text.h"

namespace norvane {

namespace {

// One or two ASCII digits.
std::optional<std::int64_t> readField(std::string_view field) {
    if (field.empty() || field.size() > 2) {
        return std::nullopt;
    }
    std::int64_t value = 0;
    for (char c : field) {
        if (c < '0' || c > '9') {
            return std::nullopt;
        }
        value = value * 10 + (c - '0');
    }
    return value;
}

}  // namespace

std::optional<Timecode> parseTimecodeText(std::string_view text) {
    const std::string trimmed = trim(text);
    std::string_view rest = trimmed;
    const auto lastSeparator = rest.find_last_of(":;");
    if (lastSeparator == std::string_view::npos) {
        return std::nullopt;
    }
    const bool dropFrame = rest[lastSeparator] == ';';
    const std::string_view framesText = rest.substr(lastSeparator + 1);
    rest = rest.substr(0, lastSeparator);

    std::int64_t fields[3] = {0, 0, 0};
    for (int i = 0; i < 3; ++i) {
        std::string_view field = rest;
        if (i < 2) {
            const auto colon = rest.find(':');
            if (colon == std::string_view::npos) {
                return std::nullopt;
            }
            field = rest.substr(0, colon);
            rest = rest.substr(colon + 1);
        }
        const auto value = readField(field);
        if (!value) {
            return std::nullopt;
        }
        fields[i] = *value;
    }
    const auto frames = readField(framesText);
    if (!frames) {
        return std::nullopt;
    }
    Timecode tc{fields[0], fields[1], fields[2], *frames, dropFrame};
    if (tc.hours > 23 || tc.minutes > 59 || tc.seconds > 59 || tc.frames > 29) {
        return std::nullopt;
    }
    return tc;
}

std::optional<Timecode> parseTimecodeText(std::string_view text, const FrameRateConfig& rate) {
    std::optional<Timecode> tc = parseTimecodeText(text);
    if (!tc) {
        return std::nullopt;
    }
    if (rate.numerator <= 0 || rate.denominator <= 0) {
        return std::nullopt;
    }
    const std::int64_t fps = TimecodeMath::nominalFramesPerSecond(rate.numerator, rate.denominator);
    if (tc->frames >= fps) {
        return std::nullopt;
    }
    // Drop-frame counting skips frame numbers 0 and 1 at the start of every
    // minute except each tenth.
    if (rate.dropFrame && tc->seconds == 0 && tc->frames < 2 && tc->minutes % 10 != 0) {
        return std::nullopt;
    }
    tc->dropFrame = rate.dropFrame;
    return tc;
}

}  // namespace norvane
