#include "core/timecode/ltc_frame_decoder.h"

#include <algorithm>
#include <cmath>

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
    // The envelope follows the signal's extremes and relaxes towards its
    // middle within about ten milliseconds, so level changes and DC are
    // followed while one bit cell never moves it much.
    const float relax = static_cast<float>(1.0 / (0.01 * static_cast<double>(sampleRate_)));
    std::int64_t position = firstSample;
    for (const float raw : block) {
        const float x = std::isfinite(raw) ? raw : 0.0f;
        peak_ = std::max(peak_, std::fabs(x));
        if (!primed_) {
            primed_ = true;
            previous_ = x;
            envHigh_ = x;
            envLow_ = x;
            ++position;
            continue;
        }
        const float swingBefore = envHigh_ - envLow_;
        envHigh_ = std::max(x, envHigh_ - relax * swingBefore);
        envLow_ = std::min(x, envLow_ + relax * swingBefore);
        const float swing = envHigh_ - envLow_;
        const float mid = 0.5f * (envHigh_ + envLow_);
        if ((previous_ - mid) * (x - mid) < 0.0f || (x == mid && previous_ != mid)) {
            lastMidCrossing_ = static_cast<double>(position - 1) +
                               static_cast<double>((mid - previous_) / (x - previous_));
        }
        if (swing >= kMinimumSwing) {
            const float band = kHysteresis * swing;
            int level = 0;
            if (x > mid + band) {
                level = 1;
            } else if (x < mid - band) {
                level = -1;
            }
            if (level != 0 && level != state_) {
                if (state_ != 0) {
                    const double edge = lastMidCrossing_ > lastEdge_ && lastMidCrossing_ >= 0
                                            ? lastMidCrossing_
                                            : static_cast<double>(position);
                    onEdge(edge);
                }
                state_ = level;
            }
        } else {
            state_ = 0;
        }
        previous_ = x;
        ++position;
    }
    const auto count = static_cast<std::int64_t>(block.size());
    samplesSeen_ += count;
    nextSample_ = firstSample + count;
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
        // overlap, so the first interval in the full band sets the clock. That
        // interval itself is not read: its phase is not known yet.
        if (interval >= 0.9 * minBit_ && interval <= 1.1 * maxBit_) {
            bitPeriod_ = interval;
            clockLocked_ = true;
            lockCount_ = 0;
        }
        halfPending_ = false;
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
    frame.firstPosition = at(0).start;
    frame.endPosition = end;
    frame.firstSample = static_cast<std::int64_t>(std::llround(frame.firstPosition));
    frame.endSample = static_cast<std::int64_t>(std::llround(frame.endPosition));
    frame.samplesPerBit = (frame.endPosition - frame.firstPosition) / kFrameBits;
    for (std::size_t i = 1; i < ring_.size(); ++i) {
        frame.bitErrors += at(i).errors;
    }
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
    frame.firstPosition = at(0).start;
    frame.endPosition = end;
    frame.firstSample = static_cast<std::int64_t>(std::llround(frame.firstPosition));
    frame.endSample = static_cast<std::int64_t>(std::llround(frame.endPosition));
    frame.samplesPerBit = (frame.endPosition - frame.firstPosition) / kFrameBits;
    for (std::size_t i = 1; i < ring_.size(); ++i) {
        frame.bitErrors += at(i).errors;
    }
    frames_.push_back(frame);
}

std::vector<LTCFrame> LTCFrameDecoder::takeFrames() {
    std::vector<LTCFrame> out;
    out.swap(frames_);
    return out;
}

}  // namespace norvane
