#pragma once

// Evidence over decoded LTC frames. A timecode is believed only when frames
// that follow one another in the audio also count on by one frame each (down,
// for LTC played backwards): a run. Runs give the start timecode of a channel,
// measure its frame rate, and show where the code jumps.

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "core/timecode/ltc_decoder.h"
#include "core/timecode/ltc_frame_decoder.h"
#include "core/timecode/timecode.h"

namespace norvane {

// Frames that follow one another and count on by one each. A run holds its
// evidence as figures, not as every frame it read: its first and last frames,
// its length, the least-squares fit of frame start against frame index, its
// error counts, and the frames its timeline needs. Its memory stays the same
// over hours of code unless a timeline of every frame is asked for.
struct LTCRun {
    LTCFrame firstFrame;
    LTCFrame lastFrame;
    std::size_t length = 0;      // frames in the run; a dropped frame leaves a gap
    int direction = 1;           // +1 counting up, -1 counting down (reverse play)
    FrameRateConfig rate;        // the rate the run is read at
    std::string rateEvidence;    // what chose the rate, for diagnostics
    double measuredFps = 0;      // sample rate / measured samples per frame
    double samplesPerFrame = 0;  // measured over the run (least squares)
    double startPosition = 0;    // fitted start of the first frame (sub-sample)
    double jitter = 0;           // rms of frame starts around the fit, in samples
    int bitErrors = 0;           // clock irregularities inside the run's frames
    double confidence = 0;       // 0..1 from run length, bit errors and clock stability
    bool rateMismatch = false;   // a given rate that the measured period contradicts
    // A timeline frame as kept: where it starts and what it reads (LTC fields
    // are two BCD digits at most), 16 bytes where a full point takes 56.
    struct Mark {
        std::int64_t sample = 0;
        std::uint8_t hours = 0;
        std::uint8_t minutes = 0;
        std::uint8_t seconds = 0;
        std::uint8_t frames = 0;
    };
    // The run's first frame, then frames at least the scanner's spacing apart;
    // empty when no timeline was asked for. A deque: hours of marks grow block
    // by block, never copied into a buffer twice as big.
    std::deque<Mark> timeline;

    std::int64_t firstSample() const { return firstFrame.firstSample; }
    std::int64_t endSample() const { return lastFrame.endSample; }
    // Frame count (at `rate`) of the frame that starts at `position`, projected
    // along the run; rounded half away from zero.
    std::int64_t frameCountAt(double position) const;
    // A timeline mark as a point counted at `rate`.
    LTCTimelinePoint point(const Mark& mark) const;
};

// Least squares of frame start against frame index, updated frame by frame
// (Welford's co-moments) around a provisional line: the deviations from the
// line stay a few samples over hours of code, so their sums keep the
// precision that a fit over a few frames has.
struct LTCRunningFit {
    double origin = 0;  // provisional line: position = origin + step * index
    double step = 0;
    std::size_t n = 0;
    long double meanIndex = 0;
    long double meanDeviation = 0;  // of position from the provisional line
    long double cII = 0;            // sums of products of deviations from the means
    long double cID = 0;
    long double cDD = 0;

    void add(long double index, double position);
    double slope() const;  // samples per frame
    double start() const;  // fitted position of index 0
    double residualSquares() const;
};

// Groups frames into runs as they arrive. A frame continues a run when it
// starts where the run's last frame ended, or a whole number of frames later
// (frames lost to a dropout), and its timecode is the run's last plus the
// frames elapsed. A run stays open for one second after its last frame, so a
// misread frame in the middle does not break it.
//
// `timelineSpacing` (samples) keeps each run's first frame and then frames at
// least that far apart as its timeline (0 keeps every frame); without it no
// timeline is kept. Closed chains shorter than `shortestKept` frames are
// forgotten: a scan that wants verified runs only need not hold the noise.
class LTCRunBuilder {
  public:
    LTCRunBuilder(std::int64_t sampleRate, std::optional<FrameRateConfig> rate,
                  std::optional<std::int64_t> timelineSpacing = std::nullopt,
                  std::size_t shortestKept = 0);

    void add(const LTCFrame& frame);
    // Closes the runs whose last frame ended more than a second before `position`.
    void closeBefore(double position);
    // All runs, closed or not, in order of their first frame, with their rate
    // and evidence filled in. `takeRuns` moves the timelines out instead of
    // copying them and leaves the builder empty.
    std::vector<LTCRun> allRuns() const;
    std::vector<LTCRun> takeRuns();

    struct Summary {
        double first = 0;  // position of the first frame
        std::size_t frames = 0;
        bool open = false;  // a later frame may still extend it
    };
    // The runs so far in order of their first frame, without their evidence.
    std::vector<Summary> summary() const;

    // Frames a run keeps one by one; a longer run's figures come from its
    // running fits. Up to this length they are computed from the frames
    // themselves, exactly as a fit over all of them.
    static constexpr std::size_t kExactFitFrames = 1024;

  private:
    struct Chain {
        LTCRun run;  // first and last frames, length, bit errors and timeline so far
        std::vector<LTCFrame> head;  // every frame while length <= kExactFitFrames
        // One fit per counting the run may be read at: [0] the chain's own;
        // [1] 30 fps drop-frame numbering, where Auto decides between drop-frame
        // and non-drop numbering from the majority of the frames' bits.
        std::array<LTCRunningFit, 2> fits;
        std::size_t dropFrameBits = 0;
        std::size_t framesWithErrors = 0;
        int direction = 0;  // 0 until a second frame decides
        int nominal = 0;    // 24, 25 or 30
        bool dropFrame = false;
    };
    bool extends(const Chain& chain, const LTCFrame& frame, int& direction) const;
    void append(Chain& chain, const LTCFrame& frame) const;
    void closeOpenBefore(double horizon);
    void assess(const Chain& chain, LTCRun& run) const;
    std::vector<FrameRateConfig> countings(const Chain& chain) const;

    std::int64_t sampleRate_;
    std::optional<FrameRateConfig> rate_;
    std::optional<std::int64_t> timelineSpacing_;
    std::size_t shortestKept_;
    std::vector<Chain> open_;
    std::vector<Chain> closed_;
};

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
// rate under Auto: the timeline of a recording, and its cuts. Runs keep
// timeline frames only when `timelineSpacing` is given (see LTCRunBuilder).
class LTCRunScanner {
  public:
    LTCRunScanner(std::int64_t sampleRate, std::optional<FrameRateConfig> rate,
                  std::optional<std::int64_t> timelineSpacing = std::nullopt);

    void push(std::span<const float> block, std::int64_t firstSample);
    // The runs, in order of their first frame; call it once, at the end.
    std::vector<LTCRun> finish();
    float peak() const { return decoder_.peak(); }

  private:
    std::int64_t sampleRate_;
    std::optional<FrameRateConfig> rate_;
    LTCFrameDecoder decoder_;
    LTCRunBuilder builder_;
};

// The timeline frames of all runs sorted by sample (where two runs hold the
// same sample, in the order of the runs). `forEachTimelinePoint` hands them
// out one by one without gathering them.
void forEachTimelinePoint(const std::vector<LTCRun>& runs,
                          const std::function<void(const LTCTimelinePoint&)>& visit);
std::vector<LTCTimelinePoint> timelinePoints(const std::vector<LTCRun>& runs);

// The shortest run believed where the audio has room for it.
inline constexpr std::size_t kMinimumRunFrames = 3;

}  // namespace norvane
