#pragma once

// Evidence over decoded LTC frames. A timecode is believed only when frames
// that follow one another in the audio also count on by one frame each (down,
// for LTC played backwards): a run. Runs give the start timecode of a channel,
// measure its frame rate, and show where the code jumps.

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "core/timecode/ltc_decoder.h"
#include "core/timecode/ltc_frame_decoder.h"
#include "core/timecode/timecode.h"

namespace norvane {

// Frames that follow one another and count on by one each.
struct LTCRun {
    std::vector<LTCFrame> frames;  // in stream order; a dropped frame leaves a gap
    int direction = 1;             // +1 counting up, -1 counting down (reverse play)
    FrameRateConfig rate;          // the rate the run is read at
    std::string rateEvidence;      // what chose the rate, for diagnostics
    double measuredFps = 0;        // sample rate / measured samples per frame
    double samplesPerFrame = 0;    // measured over the run (least squares)
    double startPosition = 0;      // fitted start of the first frame (sub-sample)
    double jitter = 0;             // rms of frame starts around the fit, in samples
    int bitErrors = 0;             // clock irregularities inside the run's frames
    double confidence = 0;         // 0..1 from run length, bit errors and clock stability
    bool rateMismatch = false;     // a given rate that the measured period contradicts

    std::int64_t firstSample() const { return frames.front().firstSample; }
    std::int64_t endSample() const { return frames.back().endSample; }
    // Frame count (at `rate`) of the frame that starts at `position`, projected
    // along the run; rounded half away from zero.
    std::int64_t frameCountAt(double position) const;
};

// Groups frames into runs as they arrive. A frame continues a run when it
// starts where the run's last frame ended, or a whole number of frames later
// (frames lost to a dropout), and its timecode is the run's last plus the
// frames elapsed. A run stays open for one second after its last frame, so a
// misread frame in the middle does not break it.
class LTCRunBuilder {
  public:
    LTCRunBuilder(std::int64_t sampleRate, std::optional<FrameRateConfig> rate);

    void add(const LTCFrame& frame);
    // Closes the runs whose last frame ended more than a second before `position`.
    void closeBefore(double position);
    // All runs, closed or not, in order of their first frame, with their rate
    // and evidence filled in.
    std::vector<LTCRun> allRuns() const;

    struct Summary {
        double first = 0;  // position of the first frame
        std::size_t frames = 0;
        bool open = false;  // a later frame may still extend it
    };
    // The runs so far in order of their first frame, without their evidence.
    std::vector<Summary> summary() const;

  private:
    struct Chain {
        std::vector<LTCFrame> frames;
        int direction = 0;  // 0 until a second frame decides
        int nominal = 0;    // 24, 25 or 30
        bool dropFrame = false;
    };
    bool extends(const Chain& chain, const LTCFrame& frame, int& direction) const;

    std::int64_t sampleRate_;
    std::optional<FrameRateConfig> rate_;
    std::vector<Chain> open_;
    std::vector<Chain> closed_;
};

// Fills in a run's measured rate, chosen rate, evidence and confidence.
// `given` is the user's rate; without it the rate comes from the measured
// frame period and the drop-frame bit.
void assessRun(LTCRun& run, std::int64_t sampleRate, const std::optional<FrameRateConfig>& given);

// Confidence of a run of `frames` frames of which `framesWithErrors` had clock
// irregularities, with `jitter` samples rms of a bit of `samplesPerBit`.
double runConfidence(std::size_t frames, std::size_t framesWithErrors, double jitter,
                     double samplesPerBit);

// The start timecode of one channel: the first run of at least three frames
// (two when the audio holds no longer run; such a run's confidence stays below
// the low-confidence threshold), projected back to the channel's first sample.
class LTCStartDecoder {
  public:
    LTCStartDecoder(std::int64_t sampleRate, std::optional<FrameRateConfig> rate);

    void push(std::span<const float> block, std::int64_t firstSample);
    // True once more audio cannot change the answer: the caller may stop reading.
    bool certain() const;
    // The verified answer, or throws LTCDecodeError. The result's position is
    // relative to the first sample pushed.
    LTCDecodeResult finish() const;
    // The run the answer comes from, when there is one.
    std::optional<LTCRun> run() const;

  private:
    std::int64_t sampleRate_;
    std::optional<FrameRateConfig> rate_;
    LTCFrameDecoder decoder_;
    LTCRunBuilder builder_;
    std::optional<std::int64_t> origin_;
    double lastPosition_ = 0;
    bool certain_ = false;
};

// All verified runs of a channel (three frames or more), each with its own
// rate under Auto: the timeline of a recording, and its cuts.
class LTCRunScanner {
  public:
    LTCRunScanner(std::int64_t sampleRate, std::optional<FrameRateConfig> rate);

    void push(std::span<const float> block, std::int64_t firstSample);
    std::vector<LTCRun> finish() const;
    float peak() const { return decoder_.peak(); }

  private:
    std::int64_t sampleRate_;
    std::optional<FrameRateConfig> rate_;
    LTCFrameDecoder decoder_;
    LTCRunBuilder builder_;
};

// Timeline points of runs: every run's first frame, then its frames at least
// `spacing` samples apart; frame counts at each run's rate. Sorted by sample.
std::vector<LTCTimelinePoint> timelinePoints(const std::vector<LTCRun>& runs, std::int64_t spacing);

// The shortest run believed where the audio has room for it.
inline constexpr std::size_t kMinimumRunFrames = 3;

}  // namespace norvane
