#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "core/timecode/timecode.h"

namespace norvane {

// An exact time in seconds, numerator / denominator, as timelines write it
// ("1001/30000s"). Always normalised: the denominator is positive and the
// fraction is reduced, so two equal times have equal fields (2/4 is 1/2,
// 3/-6 is -1/2, and a zero denominator is taken as 1: 5/0 is 5/1).
//
// Arithmetic is exact. Sums and differences are formed over the least common
// multiple of the denominators with 128-bit intermediates; a result that does
// not fit 64-bit fields after reduction throws std::overflow_error, it never
// wraps. Comparison is exact and never throws.
class RationalTime {
  public:
    constexpr RationalTime() = default;
    // Throws std::overflow_error when the reduced fraction does not fit
    // (only possible with INT64_MIN in either field).
    RationalTime(std::int64_t numerator, std::int64_t denominator);

    static constexpr RationalTime zero() { return RationalTime(); }
    static RationalTime seconds(std::int64_t wholeSeconds) { return {wholeSeconds, 1}; }
    // `frames` frames of `rate`: frames x denominator / numerator seconds.
    static RationalTime fromFrames(std::int64_t frames, const FrameRateConfig& rate);
    // `samples` sample frames at `sampleRate` Hz.
    static RationalTime fromSamples(std::int64_t samples, std::int64_t sampleRate);
    // The narrow text form of timeline attributes: optional white space, a
    // numerator, "/", a non-zero denominator, "s" (both base-10, optional sign).
    // "3600s", "1/0s", "/2s" and "1/2" give nullopt, as does anything else.
    static std::optional<RationalTime> parse(std::string_view text);
    // Every form a timeline export writes a time in: "1001/30000s", "26s", and
    // the same without the trailing "s" ("1001/30000", "26"). A zero
    // denominator or any other text gives nullopt.
    static std::optional<RationalTime> parseAnyForm(std::string_view text);

    constexpr std::int64_t numerator() const { return numerator_; }
    constexpr std::int64_t denominator() const { return denominator_; }

    // "1001/30000s", "0/1s", "-1/2s".
    std::string text() const;
    double toSeconds() const {
        return static_cast<double>(numerator_) / static_cast<double>(denominator_);
    }
    // The nearest whole number of frames at `rate`, computed in double precision
    // with halves away from zero. Throws std::overflow_error when the result is
    // not finite or does not fit 64 bits.
    std::int64_t frames(const FrameRateConfig& rate) const;
    // The smallest whole number of frames at `rate` that is not shorter than this
    // time (exact, no floating point). Throws std::overflow_error.
    std::int64_t framesRoundedUp(const FrameRateConfig& rate) const;

    RationalTime operator-() const;
    friend RationalTime operator+(const RationalTime& a, const RationalTime& b);
    friend RationalTime operator-(const RationalTime& a, const RationalTime& b);
    RationalTime& operator+=(const RationalTime& other) { return *this = *this + other; }
    RationalTime& operator-=(const RationalTime& other) { return *this = *this - other; }

    friend constexpr bool operator==(const RationalTime&, const RationalTime&) = default;
    friend std::strong_ordering operator<=>(const RationalTime& a, const RationalTime& b);

  private:
    std::int64_t numerator_ = 0;
    std::int64_t denominator_ = 1;
};

// A half-open range of time [start, start + duration).
struct TimeRange {
    RationalTime start;
    RationalTime duration;

    RationalTime end() const { return start + duration; }
    bool contains(const RationalTime& t) const { return start <= t && t < end(); }
    friend bool operator==(const TimeRange&, const TimeRange&) = default;
};

}  // namespace norvane
