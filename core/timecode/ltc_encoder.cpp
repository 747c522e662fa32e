#include "core/timecode/ltc_encoder.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <stdexcept>

namespace norvane {

namespace {

constexpr int kFrameBits = 80;

void putBCD(std::array<std::uint8_t, 80>& bits, int first, int count, std::int64_t value) {
    for (int i = 0; i < count; ++i) {
        bits[static_cast<std::size_t>(first + i)] = static_cast<std::uint8_t>((value >> i) & 1);
    }
}

// Exact position of a half-cell boundary: `halfCells` half cells after a frame
// grid that starts at `origin`, at sampleRate x denominator / (numerator x 160)
// samples per half cell. The integer part is exact; only the remainder is a
// fraction, so long programs keep sub-sample accuracy.
double halfCellPosition(std::int64_t origin, std::int64_t halfCells, std::int64_t sampleRate,
                        const FrameRateConfig& rate) {
    // Frame starts first (frame x sampleRate x denominator stays far inside 64
    // bits for any recording), then the half cells inside the frame.
    const std::int64_t frame = halfCells / (2 * kFrameBits);
    const std::int64_t inFrame = halfCells % (2 * kFrameBits);
    const std::int64_t frameNumerator = frame * sampleRate * rate.denominator;
    const std::int64_t whole = frameNumerator / rate.numerator;
    const std::int64_t remainder = frameNumerator % rate.numerator;
    const double fraction = static_cast<double>(remainder) / static_cast<double>(rate.numerator) +
                            static_cast<double>(inFrame * sampleRate * rate.denominator) /
                                static_cast<double>(rate.numerator * 2 * kFrameBits);
    return static_cast<double>(origin + whole) + fraction;
}

std::int64_t ceilToSample(double position) {
    return static_cast<std::int64_t>(std::ceil(position));
}

void validate(const LTCEncoderOptions& options) {
    if (options.rate.numerator <= 0 || options.rate.denominator <= 0) {
        throw std::invalid_argument("LTC frame rate must be positive");
    }
    if (options.sampleRate <= 0) {
        throw std::invalid_argument("LTC sample rate must be positive");
    }
}

// Renders the biphase-mark code of consecutive frames from a frame grid that
// starts at `origin`, into out[from, to) (indices are absolute; out covers
// [0, out.size())). Samples before `silentUntil` stay 0. `level` is the level
// before the first transition and is left at the level after the last one
// rendered, so that the next segment continues without a spurious edge.
class BiphaseRenderer {
  public:
    explicit BiphaseRenderer(const LTCEncoderOptions& options) : options_(options) {
        const double amplitude = std::pow(10.0, options.levelDBFS / 20.0);
        amplitude_ = std::clamp(amplitude, 0.0, 1.0);
        // A raised-cosine edge rises 10-90 % in 0.59 of its width; keep the
        // edge well inside a half cell.
        const double halfCell = static_cast<double>(options.sampleRate) *
                                static_cast<double>(options.rate.denominator) /
                                (static_cast<double>(options.rate.numerator) * 2 * kFrameBits);
        const double rise = std::max(options.riseTimeMicroseconds, 0.0) * 1e-6 *
                            static_cast<double>(options.sampleRate);
        edgeWidth_ = std::min(rise / 0.59, 0.5 * halfCell);
    }

    double amplitude() const { return amplitude_; }

    void render(std::vector<float>& out, std::int64_t origin, const Timecode& start,
                std::int64_t from, std::int64_t to, std::int64_t silentUntil, double& level,
                std::vector<std::int64_t>* frameStarts) const {
        const std::int64_t startCount = TimecodeMath::frameCount(start, options_.rate);
        std::int64_t frame = 0;
        std::array<std::uint8_t, 80> bits{};
        std::int64_t halfCell = 0;  // index of the pending half-cell boundary in the grid
        auto loadFrame = [&] {
            bits = ltcFrameBits(
                TimecodeMath::timecodeFromFrameCount(startCount + frame, options_.rate),
                options_.rate);
        };
        loadFrame();
        // Position of the next transition at or after half cell `halfCell`.
        auto advanceToTransition = [&]() -> double {
            for (;;) {
                const std::int64_t inFrame = halfCell - frame * 2 * kFrameBits;
                if (inFrame >= 2 * kFrameBits) {
                    ++frame;
                    loadFrame();
                    continue;
                }
                // Every cell starts with a transition; a 1 has one in its middle too.
                const bool transition =
                    (inFrame % 2 == 0) || bits[static_cast<std::size_t>(inFrame / 2)] == 1;
                if (transition) {
                    return halfCellPosition(origin, halfCell, options_.sampleRate, options_.rate);
                }
                ++halfCell;
            }
        };

        double next = advanceToTransition();
        const double halfWidth = edgeWidth_ / 2;
        std::int64_t lastFrameReported = -1;
        for (std::int64_t t = from; t < to; ++t) {
            const auto time = static_cast<double>(t);
            // Transitions whose edge has fully passed flip the level.
            while (next + halfWidth <= time) {
                if (frameStarts && halfCell % (2 * kFrameBits) == 0) {
                    const std::int64_t thisFrame = halfCell / (2 * kFrameBits);
                    if (thisFrame != lastFrameReported) {
                        reportFrame(frameStarts, next, from, to, silentUntil);
                        lastFrameReported = thisFrame;
                    }
                }
                level = -level;
                ++halfCell;
                next = advanceToTransition();
            }
            double value = level;
            if (edgeWidth_ > 0 && next - halfWidth < time) {
                const double x = (time - (next - halfWidth)) / edgeWidth_;
                const double shape = 0.5 - 0.5 * std::cos(std::numbers::pi * x);
                value = level + (-2.0 * level) * shape;
            }
            if (t >= silentUntil && t >= 0 && t < static_cast<std::int64_t>(out.size())) {
                out[static_cast<std::size_t>(t)] = static_cast<float>(value);
            }
        }
        // A frame whose first edge is still pending at the end of the range.
        if (frameStarts && halfCell % (2 * kFrameBits) == 0 &&
            halfCell / (2 * kFrameBits) != lastFrameReported) {
            reportFrame(frameStarts, next, from, to, silentUntil);
        }
    }

  private:
    static void reportFrame(std::vector<std::int64_t>* frameStarts, double position,
                            std::int64_t from, std::int64_t to, std::int64_t silentUntil) {
        const std::int64_t sample = ceilToSample(position);
        if (sample >= from && sample < to && sample >= silentUntil) {
            frameStarts->push_back(sample);
        }
    }

    LTCEncoderOptions options_;
    double amplitude_ = 0;
    double edgeWidth_ = 0;
};

}  // namespace

std::array<std::uint8_t, 80> ltcFrameBits(const Timecode& timecode, const FrameRateConfig& rate) {
    std::array<std::uint8_t, 80> bits{};
    putBCD(bits, 0, 4, timecode.frames % 10);
    putBCD(bits, 8, 2, timecode.frames / 10);
    bits[10] = rate.dropFrame ? 1 : 0;
    putBCD(bits, 16, 4, timecode.seconds % 10);
    putBCD(bits, 24, 3, timecode.seconds / 10);
    putBCD(bits, 32, 4, timecode.minutes % 10);
    putBCD(bits, 40, 3, timecode.minutes / 10);
    putBCD(bits, 48, 4, timecode.hours % 10);
    putBCD(bits, 56, 2, timecode.hours / 10);
    static constexpr std::uint8_t kSync[16] = {0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0, 1};
    std::copy(std::begin(kSync), std::end(kSync), bits.begin() + 64);
    // Polarity correction: an even number of ones gives every frame an even
    // number of transitions, so each frame starts on the same level.
    const std::size_t parityBit =
        TimecodeMath::nominalFramesPerSecond(rate.numerator, rate.denominator) == 25 ? 59 : 27;
    int ones = 0;
    for (std::uint8_t b : bits) {
        ones += b;
    }
    bits[parityBit] = static_cast<std::uint8_t>(ones % 2);
    return bits;
}

std::vector<float> encodeLTC(const Timecode& start, std::int64_t frames,
                             const LTCEncoderOptions& options,
                             std::vector<std::int64_t>* frameStartSamples) {
    validate(options);
    if (frames <= 0) {
        return {};
    }
    LTCProgram program;
    program.totalSamples = ceilToSample(
        halfCellPosition(0, frames * 2 * kFrameBits, options.sampleRate, options.rate));
    program.segments.push_back(LTCProgramSegment{0, start});
    return encodeLTCProgram(program, options, frameStartSamples);
}

std::vector<float> encodeLTCProgram(const LTCProgram& program, const LTCEncoderOptions& options,
                                    std::vector<std::int64_t>* frameStartSamples) {
    validate(options);
    if (program.totalSamples < 0) {
        throw std::invalid_argument("LTC program length must not be negative");
    }
    std::vector<float> out(static_cast<std::size_t>(program.totalSamples), 0.0f);
    BiphaseRenderer renderer(options);
    // Level before the first edge: the first edge goes high (low when inverted).
    double level = options.invertPolarity ? renderer.amplitude() : -renderer.amplitude();
    std::vector<LTCProgramSegment> segments = program.segments;
    std::stable_sort(segments.begin(), segments.end(),
                     [](const auto& a, const auto& b) { return a.atSample < b.atSample; });
    for (std::size_t i = 0; i < segments.size(); ++i) {
        const std::int64_t from = std::max<std::int64_t>(segments[i].atSample, 0);
        const std::int64_t to = i + 1 < segments.size()
                                    ? std::min(segments[i + 1].atSample, program.totalSamples)
                                    : program.totalSamples;
        if (from >= to) {
            continue;
        }
        renderer.render(out, segments[i].atSample, segments[i].start, from, to,
                        program.leadInSamples, level, frameStartSamples);
    }
    return out;
}

}  // namespace norvane
