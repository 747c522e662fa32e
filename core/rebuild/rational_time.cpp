#include "core/rebuild/rational_time.h"

#include <charconv>
#include <limits>
#include <stdexcept>

#include "core/common/text.h"

namespace norvane {

namespace {

__extension__ typedef __int128 Wide;

constexpr Wide kMax64 = std::numeric_limits<std::int64_t>::max();
constexpr Wide kMin64 = std::numeric_limits<std::int64_t>::min();

[[noreturn]] void overflow() {
    throw std::overflow_error("Rational time arithmetic overflowed 64 bits.");
}

Wide absWide(Wide v) {
    return v < 0 ? -v : v;
}

Wide gcdWide(Wide a, Wide b) {
    a = absWide(a);
    b = absWide(b);
    while (b != 0) {
        Wide t = a % b;
        a = b;
        b = t;
    }
    return a;
}

std::int64_t narrow(Wide v) {
    if (v > kMax64 || v < kMin64) {
        overflow();
    }
    return static_cast<std::int64_t>(v);
}

// Reduces n/d (d != 0) and moves the sign to the numerator.
std::pair<std::int64_t, std::int64_t> normalised(Wide n, Wide d) {
    if (d == 0) {
        d = 1;
    }
    if (d < 0) {
        n = -n;
        d = -d;
    }
    Wide g = gcdWide(n, d);
    if (g < 1) {
        g = 1;
    }
    return {narrow(n / g), narrow(d / g)};
}

// A base-10 integer with an optional sign and nothing else.
std::optional<std::int64_t> parseInteger(std::string_view text) {
    if (!text.empty() && text.front() == '+') {
        text.remove_prefix(1);
        if (!text.empty() && (text.front() == '-' || text.front() == '+')) {
            return std::nullopt;
        }
    }
    if (text.empty()) {
        return std::nullopt;
    }
    std::int64_t value = 0;
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value, 10);
    if (ec != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

}  // namespace

RationalTime::RationalTime(std::int64_t numerator, std::int64_t denominator) {
    auto [n, d] = normalised(numerator, denominator);
    numerator_ = n;
    denominator_ = d;
}

RationalTime RationalTime::fromFrames(std::int64_t frames, const FrameRateConfig& rate) {
    if (rate.numerator == 0) {
        overflow();
    }
    auto [n, d] = normalised(static_cast<Wide>(frames) * rate.denominator, rate.numerator);
    return RationalTime(n, d);
}

RationalTime RationalTime::fromSamples(std::int64_t samples, std::int64_t sampleRate) {
    if (sampleRate <= 0) {
        return zero();
    }
    return RationalTime(samples, sampleRate);
}

std::optional<RationalTime> RationalTime::parseAnyForm(std::string_view text) {
    std::string trimmed = trim(text);
    std::string_view body(trimmed);
    if (!body.empty() && body.back() == 's') {
        body.remove_suffix(1);
    }
    std::size_t slash = body.find('/');
    if (slash == std::string_view::npos) {
        auto whole = parseInteger(body);
        return whole ? std::optional<RationalTime>(RationalTime(*whole, 1)) : std::nullopt;
    }
    auto numerator = parseInteger(body.substr(0, slash));
    auto denominator = parseInteger(body.substr(slash + 1));
    if (!numerator || !denominator || *denominator == 0) {
        return std::nullopt;
    }
    try {
        return RationalTime(*numerator, *denominator);
    } catch (const std::overflow_error&) {
        return std::nullopt;
    }
}

std::optional<RationalTime> RationalTime::parse(std::string_view text) {
    std::string trimmed = trim(text);
    if (trimmed.empty() || trimmed.back() != 's') {
        return std::nullopt;
    }
    std::string_view body(trimmed);
    body.remove_suffix(1);
    std::size_t slash = body.find('/');
    if (slash == std::string_view::npos || body.find('/', slash + 1) != std::string_view::npos) {
        return std::nullopt;
    }
    auto numerator = parseInteger(body.substr(0, slash));
    auto denominator = parseInteger(body.substr(slash + 1));
    if (!numerator || !denominator || *denominator == 0) {
        return std::nullopt;
    }
    try {
        return RationalTime(*numerator, *denominator);
    } catch (const std::overflow_error&) {
        return std::nullopt;
    }
}

std::string RationalTime::text() const {
    return std::to_string(numerator_) + "/" + std::to_string(denominator_) + "s";
}

std::int64_t RationalTime::frames(const FrameRateConfig& rate) const {
    double value =
        toSeconds() * (static_cast<double>(rate.numerator) / static_cast<double>(rate.denominator));
    return roundHalfAwayFromZero(value);
}

std::int64_t RationalTime::framesRoundedUp(const FrameRateConfig& rate) const {
    if (rate.numerator <= 0 || rate.denominator <= 0) {
        overflow();
    }
    // t x rate = (n x rn) / (d x rd); both factors below 2^63, so the products fit.
    Wide top = static_cast<Wide>(numerator_) * rate.numerator;
    Wide bottom = static_cast<Wide>(denominator_) * rate.denominator;
    Wide quotient = top / bottom;
    if (top % bottom != 0 && top > 0) {
        ++quotient;
    }
    return narrow(quotient);
}

RationalTime RationalTime::operator-() const {
    return RationalTime(narrow(-static_cast<Wide>(numerator_)), denominator_);
}

RationalTime operator+(const RationalTime& a, const RationalTime& b) {
    // Over the least common multiple |(da / gcd) x db|.
    Wide g = gcdWide(a.denominator_, b.denominator_);
    Wide lcm = absWide(static_cast<Wide>(a.denominator_) / g * b.denominator_);
    Wide left = static_cast<Wide>(a.numerator_) * (lcm / a.denominator_);
    Wide right = static_cast<Wide>(b.numerator_) * (lcm / b.denominator_);
    auto [n, d] = normalised(left + right, lcm);
    RationalTime result;
    result.numerator_ = n;
    result.denominator_ = d;
    return result;
}

RationalTime operator-(const RationalTime& a, const RationalTime& b) {
    Wide g = gcdWide(a.denominator_, b.denominator_);
    Wide lcm = absWide(static_cast<Wide>(a.denominator_) / g * b.denominator_);
    Wide left = static_cast<Wide>(a.numerator_) * (lcm / a.denominator_);
    Wide right = static_cast<Wide>(b.numerator_) * (lcm / b.denominator_);
    auto [n, d] = normalised(left - right, lcm);
    RationalTime result;
    result.numerator_ = n;
    result.denominator_ = d;
    return result;
}

std::strong_ordering operator<=>(const RationalTime& a, const RationalTime& b) {
    // Cross products of 64-bit values fit in 128 bits; denominators are positive.
    Wide left = static_cast<Wide>(a.numerator_) * b.denominator_;
    Wide right = static_cast<Wide>(b.numerator_) * a.denominator_;
    if (left < right) {
        return std::strong_ordering::less;
    }
    if (left > right) {
        return std::strong_ordering::greater;
    }
    return std::strong_ordering::equal;
}

}  // namespace norvane
