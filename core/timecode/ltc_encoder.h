#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "core/timecode/timecode.h"

namespace norvane {

// SMPTE 12M linear timecode, generated offline at the exact frame rate
// (30000/1001 frames in 1001 seconds, never drifting from the frame grid).
struct LTCEncoderOptions {
    FrameRateConfig rate;
    std::int64_t sampleRate = 48000;
    double levelDBFS = -12;            // peak level of the square wave
    double riseTimeMicroseconds = 40;  // 10-90 % edge time; 0 gives hard steps
    bool invertPolarity = false;       // start low instead of high
};

// The 80 bits of one frame, bit 0 first: BCD time fields least significant bit
// first, the drop-frame flag (bit 10) for drop-frame rates, the biphase
// polarity-correction bit (bit 27, bit 59 at 25 fps) set so that every frame
// holds an even number of ones, all user bits 0, and the sync word
// 0011111111111101 in bits 64..79.
std::array<std::uint8_t, 80> ltcFrameBits(const Timecode& timecode, const FrameRateConfig& rate);

// `frames` consecutive frames from `start` (timecode counting by the rate,
// drop-frame numbers skipped, wrapping at midnight), biphase-mark modulated.
// Frame k begins at k x sampleRate x denominator / numerator samples; the
// sample where each frame's first transition lands (rounded up) is appended to
// `frameStartSamples` when given. Returns exactly
// ceil(frames x sampleRate x denominator / numerator) samples.
std::vector<float> encodeLTC(const Timecode& start, std::int64_t frames,
                             const LTCEncoderOptions& options,
                             std::vector<std::int64_t>* frameStartSamples = nullptr);

// A recording whose code restarts at jumps: silence before `leadInSamples`,
// then each segment's code from its `atSample` (a frame begins there) up to the
// next segment's start, cut mid-frame as a recorder cuts it.
struct LTCProgramSegment {
    std::int64_t atSample = 0;
    Timecode start;
};
struct LTCProgram {
    std::int64_t leadInSamples = 0;
    std::int64_t totalSamples = 0;
    std::vector<LTCProgramSegment> segments;  // sorted by atSample
};

// Samples of the whole program (totalSamples of them). Segments that start
// before the lead-in ends are silent until it ends. `frameStartSamples`
// receives the start of every frame that begins inside the program.
std::vector<float> encodeLTCProgram(const LTCProgram& program, const LTCEncoderOptions& options,
                                    std::vector<std::int64_t>* frameStartSamples = nullptr);

}  // namespace norvane
