#pragma once

// The push decoder of LTC: samples in, frames out. It follows the signal the
// way a tape machine's reader does: edges are found against a level that
// tracks the signal's envelope (so DC offset, level and polarity do not
// matter), the bit clock is recovered from the edge intervals (any rate from
// about 21 to 33 frames per second, with drift and jitter), biphase-mark cells
// are read from that clock, and frames are recognised by their sync word in
// either direction of play.

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "core/timecode/timecode.h"

namespace norvane {

// One LTC frame as it was read. Positions are absolute sample positions of the
// stream fed to the decoder (a block's `firstSample` plus the index in it).
struct LTCFrame {
    Timecode timecode;          // dropFrame is the frame's own drop-frame bit (bit 10)
    bool dropFrameBit = false;  // bit 10
    bool colourFrameBit = false;
    bool reverse = false;  // read backwards (sync word first)
    // The sample at which the frame begins in stream order: the edge that
    // opens bit 0 (forward) or bit 79 (reverse), rounded to the nearest sample.
    std::int64_t firstSample = 0;
    std::int64_t endSample = 0;  // the edge that closes the frame, exclusive
    double firstPosition = 0;    // firstSample with its sub-sample fraction
    double endPosition = 0;
    double samplesPerBit = 0;    // (endPosition - firstPosition) / 80
    int bitErrors = 0;           // clock irregularities inside the frame
    std::uint32_t userBits = 0;  // the eight user-bit groups, group 1 in the low nibble

    friend bool operator==(const LTCFrame&, const LTCFrame&) = default;
};

class LTCFrameDecoder {
  public:
    explicit LTCFrameDecoder(std::int64_t sampleRate);

    // Feeds one block of samples (-1..1) whose first sample has the absolute
    // position `firstSample`. Blocks follow one another; a block that does not
    // continue the previous one restarts the reader.
    void push(std::span<const float> block, std::int64_t firstSample);
    // The frames completed since the last call, in stream order.
    std::vector<LTCFrame> takeFrames();

    std::int64_t sampleRate() const { return sampleRate_; }
    // The largest absolute sample value seen so far.
    float peak() const { return peak_; }
    // Number of samples fed so far.
    std::int64_t samplesSeen() const { return samplesSeen_; }

  private:
    struct Bit {
        std::uint8_t value = 0;
        double start = 0;  // position of the edge that opens the cell
        int errors = 0;    // clock irregularities just before this cell
    };

    void reset();
    void onEdge(double position);
    void replayHistory();
    void onBit(std::uint8_t value, double start, double end);
    void place(LTCFrame& frame, double end) const;
    void emitForward(double end);
    void emitReverse(double end);

    std::int64_t sampleRate_;
    double minBit_;  // plausible range of the bit period in samples
    double maxBit_;

    // Level tracking and edge finding.
    bool primed_ = false;
    std::int64_t nextSample_ = 0;  // absolute position expected next
    float previous_ = 0;
    float envHigh_ = 0;
    float envLow_ = 0;
    int state_ = 0;                // +1 high, -1 low, 0 unknown
    double lastMidCrossing_ = -1;  // latest crossing of the mid level since the last edge
    float peak_ = 0;
    std::int64_t samplesSeen_ = 0;

    // Clock and cells.
    double lastEdge_ = -1;
    double bitPeriod_ = 0;
    bool clockLocked_ = false;
    int lockCount_ = 0;
    bool halfPending_ = false;
    double halfStart_ = 0;
    int pendingErrors_ = 0;
    std::vector<double> history_;  // edges seen while the clock is not locked

    // The last 80 cells, oldest first in ring order.
    std::array<Bit, 80> ring_{};
    std::size_t ringHead_ = 0;  // index of the oldest
    std::size_t ringCount_ = 0;
    double lastBitEnd_ = 0;
    std::vector<LTCFrame> frames_;
};

}  // namespace norvane
