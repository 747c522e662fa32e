#include "core/timecode/ltc_frame_decoder.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace norvane {

namespace {

constexpr int kFrameBits = 80;
// Frame rates the clock follows: the LTC rates with a tenth of speed change.
constexpr double kSlowestFps = 21.0;
constexpr double kFastestFps = 33.0;
// Below this peak-to-peak swing the input is treated as silence: no edges.
constexpr float kMinimumSwing = 0.004f;
// Hysteresis around the mid level, as a fraction of the swing.
constexpr float kHysteresis = 0.2f;
// Clock irregularities in a row after which the clock is acquired anew.
constexpr int kErrorsToUnlock = 3;
// Edges kept while the clock is not locked, to read the cells before the lock.
constexpr std::size_t kHistoryEdges = 2 * kFrameBits + 2;

// Bits 64..79 of a frame, bit 64 first.
constexpr std::array<std::uint8_t, 16> kSyncWord = {0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0, 1};

}  // namespace

LTCFrameDecoder::LTCFrameDecoder(std::int64_t sampleRate)
    : sampleRate_(std::max<std::int64_t>(sampleRate, 1)),
      minBit_(static_cast<double>(sampleRate_) / (kFastestFps * kFrameBits)),
      maxBit_(static_cast<double>(sampleRate_) / (kSlowestFps * kFrameBits)) {}

void LTCFrameDecoder::reset() {
    primed_ = false;
    state_ = 0;
    lastMidCrossing_ = -1;
    lastEdge_ = -1;
    clockLocked_ = false;
    lockCount_ = 0;
    halfPending_ = false;
    pendingErrors_ = 0;
    history_.clear();
    ringCount_ = 0;
    ringHead_ = 0;
}

void LTCFrameDecoder::push(std::span<const float> block, std::int64_t firstSample) {
    if (block.empty()) {
        return;
    }
    if (primed_ && firstSample != nextSample_) {
        reset();
    }
    const auto count = static_cast<std::int64_t>(block.size());
    samplesSeen_ += count;
    nextSample_ = firstSample + count;
    const float* in = block.data();
    std::int64_t i = 0;
    if (!primed_) {
        const float x = std::isfinite(in[0]) ? in[0] : 0.0f;
        primed_ = true;
        peak_ = std::max(peak_, std::fabs(x));
        previous_ = x;
        envHigh_ = x;
        envLow_ = x;
        i = 1;
    }
    // The loop keeps the tracking state in locals: edges are rare, and a
    // member written on every sample would put a store and a reload on the
    // envelope's dependency chain.
    //
    // The envelope follows the signal's extremes and relaxes towards its
    // middle within about ten milliseconds, so level changes and DC are
    // followed while one bit cell never moves it much.
    const float relax = static_cast<float>(1.0 / (0.01 * static_cast<double>(sampleRate_)));
    const double recentWindow = 0.25 * minBit_;
    float previous = previous_;
    float high = envHigh_;
    float low = envLow_;
    float peak = peak_;
    int state = state_;
    double lastMidCrossing = lastMidCrossing_;
    for (; i < count; ++i) {
        const float raw = in[i];
        // Not finite (NaN or infinite) reads as silence.
        const float x = std::fabs(raw) <= std::numeric_limits<float>::max() ? raw : 0.0f;
        peak = std::max(peak, std::fabs(x));
        const float swingBefore = high - low;
        high = std::max(x, high - relax * swingBefore);
        low = std::min(x, low + relax * swingBefore);
        const float swing = high - low;
        const float mid = 0.5f * (high + low);
        const float prior = previous;
        previous = x;
        if ((prior - mid) * (x - mid) < 0.0f || (x == mid && prior != mid)) [[unlikely]] {
            lastMidCrossing = static_cast<double>(firstSample + i - 1) +
                              static_cast<double>((mid - prior) / (x - prior));
        }
        if (swing < kMinimumSwing) [[unlikely]] {
            state = 0;
            continue;
        }
        const float band = kHysteresis * swing;
        const int level = x > mid + band ? 1 : (x < mid - band ? -1 : 0);
        if (level != 0 && level != state) [[unlikely]] {
            // Leaving silence counts as an edge too: code that starts from
            // silence opens its first cell there.
            // The edge is where the signal crossed the mid level on its way
            // here: a crossing of a quarter bit ago at most (an older one
            // belongs to noise before the transition).
            const auto position = static_cast<double>(firstSample + i);
            const bool recent =
                lastMidCrossing > lastEdge_ && position - lastMidCrossing <= recentWindow;
            onEdge(recent ? lastMidCrossing : position - 0.5);
            state = level;
        }
    }
    previous_ = previous;
    envHigh_ = high;
    envLow_ = low;
    peak_ = peak;
    state_ = state;
    lastMidCrossing_ = lastMidCrossing;
}

void LTCFrameDecoder::onEdge(double position) {
    if (lastEdge_ < 0) {
        lastEdge_ = position;
        return;
    }
    const double interval = position - lastEdge_;
    const double previousEdge = lastEdge_;
    lastEdge_ = position;

    if (!clockLocked_) {
        // Acquisition: half cells lie below 0.55 of the longest plausible bit
        // period, full cells above 0.9 of the shortest; these bands do not
        // overlap, so the first interval in the full band sets the clock. It
        // is a whole cell, a zero, and it fixes the cell phase: the edges
        // before it are read backwards from it, so the cells that came before
        // the lock are not lost.
        history_.push_back(previousEdge);
        if (history_.size() > kHistoryEdges) {
            history_.erase(history_.begin(), history_.begin() + (history_.size() - kHistoryEdges));
        }
        if (interval >= 0.9 * minBit_ && interval <= 1.1 * maxBit_) {
            bitPeriod_ = std::clamp(interval, 0.9 * minBit_, 1.1 * maxBit_);
            clockLocked_ = true;
            lockCount_ = 0;
            halfPending_ = false;
            replayHistory();
            onBit(0, previousEdge, position);
        }
        return;
    }

    const double ratio = interval / bitPeriod_;
    if (ratio >= 0.75 && ratio <= 1.4) {
        // A full cell: a zero.
        if (halfPending_) {
            ++pendingErrors_;
            halfPending_ = false;
        }
        bitPeriod_ += 0.08 * (interval - bitPeriod_);
        bitPeriod_ = std::clamp(bitPeriod_, 0.9 * minBit_, 1.1 * maxBit_);
        lockCount_ = 0;
        onBit(0, previousEdge, position);
    } else if (ratio >= 0.3 && ratio < 0.75) {
        if (!halfPending_) {
            halfPending_ = true;
            halfStart_ = previousEdge;
            return;
        }
        halfPending_ = false;
        const double cell = position - halfStart_;
        if (cell / bitPeriod_ < 0.75 || cell / bitPeriod_ > 1.4) {
            ++pendingErrors_;
            ++lockCount_;
        } else {
            bitPeriod_ += 0.08 * (cell - bitPeriod_);
            bitPeriod_ = std::clamp(bitPeriod_, 0.9 * minBit_, 1.1 * maxBit_);
            lockCount_ = 0;
            onBit(1, halfStart_, position);
            return;
        }
    } else {
        // Too short (a glitch) or too long (a dropout): the cells around it
        // are not to be trusted.
        ++pendingErrors_;
        ++lockCount_;
        halfPending_ = false;
        if (ratio > 3.0) {
            // A gap: whatever was read before cannot belong to a frame after it.
            ringCount_ = 0;
            clockLocked_ = false;
            return;
        }
    }
    if (lockCount_ >= kErrorsToUnlock) {
        clockLocked_ = false;
        lockCount_ = 0;
    }
}

void LTCFrameDecoder::replayHistory() {
    // history_ ends with the edge that opens the locking cell. Walking back:
    // a full interval is a zero, two half intervals are a one.
    std::vector<std::pair<std::uint8_t, double>> cells;  // value, start; latest first
    std::size_t j = history_.size() - 1;
    auto kind = [&](std::size_t at) {
        const double ratio = (history_[at] - history_[at - 1]) / bitPeriod_;
        if (ratio >= 0.75 && ratio <= 1.4) {
            return 2;
        }
        return ratio >= 0.3 && ratio < 0.75 ? 1 : 0;
    };
    while (j >= 1) {
        const int k = kind(j);
        if (k == 2) {
            cells.emplace_back(0, history_[j - 1]);
            j -= 1;
        } else if (k == 1 && j >= 2 && kind(j - 1) == 1) {
            cells.emplace_back(1, history_[j - 2]);
            j -= 2;
        } else {
            break;
        }
    }
    const double lockStart = history_.back();
    history_.clear();
    // At most one frame's worth matters; older cells would only be pushed out.
    const std::size_t keep = std::min<std::size_t>(cells.size(), kFrameBits);
    for (std::size_t i = keep; i-- > 0;) {
        onBit(cells[i].first, cells[i].second, i == 0 ? lockStart : cells[i - 1].second);
    }
}

void LTCFrameDecoder::onBit(std::uint8_t value, double start, double end) {
    Bit bit;
    bit.value = value;
    bit.start = start;
    bit.errors = pendingErrors_;
    pendingErrors_ = 0;
    if (ringCount_ < ring_.size()) {
        ring_[(ringHead_ + ringCount_) % ring_.size()] = bit;
        ++ringCount_;
    } else {
        ring_[ringHead_] = bit;
        ringHead_ = (ringHead_ + 1) % ring_.size();
    }
    lastBitEnd_ = end;
    if (ringCount_ < ring_.size()) {
        return;
    }
    auto at = [this](std::size_t i) -> const Bit& { return ring_[(ringHead_ + i) % ring_.size()]; };
    bool forward = true;
    bool reverse = true;
    for (std::size_t i = 0; i < kSyncWord.size() && (forward || reverse); ++i) {
        forward = forward && at(64 + i).value == kSyncWord[i];
        // Read backwards, bit 79 arrives first.
        reverse = reverse && at(i).value == kSyncWord[kSyncWord.size() - 1 - i];
    }
    if (forward) {
        emitForward(end);
    } else if (reverse) {
        emitReverse(end);
    }
}

namespace {

struct Fields {
    bool valid = false;
    Timecode timecode;
    bool dropFrame = false;
    bool colourFrame = false;
    std::uint32_t userBits = 0;
};

// BCD fields of 80 bits in frame order (bit 0 first), least significant bit
// first within each group.
template <typename BitAt>
Fields readFields(BitAt bit) {
    auto field = [&](int first, int count) {
        std::int64_t value = 0;
        for (int i = 0; i < count; ++i) {
            value |= static_cast<std::int64_t>(bit(first + i)) << i;
        }
        return value;
    };
    Fields f;
    const std::int64_t frameUnits = field(0, 4);
    const std::int64_t secondUnits = field(16, 4);
    const std::int64_t minuteUnits = field(32, 4);
    const std::int64_t hourUnits = field(48, 4);
    f.timecode.frames = field(8, 2) * 10 + frameUnits;
    f.timecode.seconds = field(24, 3) * 10 + secondUnits;
    f.timecode.minutes = field(40, 3) * 10 + minuteUnits;
    f.timecode.hours = field(56, 2) * 10 + hourUnits;
    f.dropFrame = bit(10) != 0;
    f.colourFrame = bit(11) != 0;
    f.timecode.dropFrame = f.dropFrame;
    for (int group = 0; group < 8; ++group) {
        f.userBits |= static_cast<std::uint32_t>(field(4 + 8 * group, 4)) << (4 * group);
    }
    f.valid = frameUnits <= 9 && secondUnits <= 9 && minuteUnits <= 9 && hourUnits <= 9 &&
              f.timecode.hours <= 23 && f.timecode.minutes <= 59 && f.timecode.seconds <= 59 &&
              f.timecode.frames < 30;
    return f;
}

}  // namespace

void LTCFrameDecoder::place(LTCFrame& frame, double end) const {
    // The cell boundaries of the frame lie on a line: fitting it places the
    // frame from all 81 of them, so one late or early edge (the first after a
    // lead-in of noise, a click) does not move it. Boundaries more than a
    // quarter cell off the first fit are left out of the second.
    auto startOf = [this, end](std::size_t i) {
        return i < ring_.size() ? ring_[(ringHead_ + i) % ring_.size()].start : end;
    };
    constexpr std::size_t kPoints = kFrameBits + 1;
    double a = startOf(0);
    double b = (end - startOf(0)) / kFrameBits;
    for (int pass = 0; pass < 2; ++pass) {
        double n = 0, si = 0, sp = 0, sii = 0, sip = 0;
        for (std::size_t i = 0; i < kPoints; ++i) {
            const double p = startOf(i);
            const auto x = static_cast<double>(i);
            if (pass == 1 && std::fabs(p - (a + b * x)) > 0.25 * b) {
                continue;
            }
            n += 1;
            si += x;
            sp += p;
            sii += x * x;
            sip += x * p;
        }
        const double det = n * sii - si * si;
        if (n < 2 || !(det > 0)) {
            break;
        }
        b = (n * sip - si * sp) / det;
        a = (sp - b * si) / n;
    }
    frame.firstPosition = a;
    frame.endPosition = a + b * kFrameBits;
    frame.firstSample = static_cast<std::int64_t>(std::llround(frame.firstPosition));
    frame.endSample = static_cast<std::int64_t>(std::llround(frame.endPosition));
    frame.samplesPerBit = b;
    for (std::size_t i = 1; i < ring_.size(); ++i) {
        frame.bitErrors += ring_[(ringHead_ + i) % ring_.size()].errors;
    }
}

void LTCFrameDecoder::emitForward(double end) {
    auto at = [this](std::size_t i) -> const Bit& { return ring_[(ringHead_ + i) % ring_.size()]; };
    const Fields f = readFields([&](int i) { return at(static_cast<std::size_t>(i)).value; });
    if (!f.valid) {
        return;
    }
    LTCFrame frame;
    frame.timecode = f.timecode;
    frame.dropFrameBit = f.dropFrame;
    frame.colourFrameBit = f.colourFrame;
    frame.userBits = f.userBits;
    frame.reverse = false;
    place(frame, end);
    frames_.push_back(frame);
}

void LTCFrameDecoder::emitReverse(double end) {
    auto at = [this](std::size_t i) -> const Bit& { return ring_[(ringHead_ + i) % ring_.size()]; };
    const Fields f =
        readFields([&](int i) { return at(static_cast<std::size_t>(kFrameBits - 1 - i)).value; });
    if (!f.valid) {
        return;
    }
    LTCFrame frame;
    frame.timecode = f.timecode;
    frame.dropFrameBit = f.dropFrame;
    frame.colourFrameBit = f.colourFrame;
    frame.userBits = f.userBits;
    frame.reverse = true;
    place(frame, end);
    frames_.push_back(frame);
}

std::vector<LTCFrame> LTCFrameDecoder::takeFrames() {
    std::vector<LTCFrame> out;
    out.swap(frames_);
    return out;
}

}  // namespace norvane
