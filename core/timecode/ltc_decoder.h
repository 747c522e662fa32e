#pragma once

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "core/common/error.h"
#include "core/timecode/timecode.h"

namespace norvane {

// One decoded LTC frame: the frame that starts at `firstValidSample` carries
// `timecode`. No correction is made for LTC's one-frame delay (a frame's code
// is complete only at its end).
struct LTCDecodeResult {
    Timecode timecode;  // dropFrame is the rate's flag, not the frame's bit 10
    FrameRateConfig frameRate;
    std::int64_t firstValidSample = 0;  // index of the frame's bit 0 in the samples given
    double firstValidSeconds = 0;       // firstValidSample / sample rate
    double confidence = 0;              // 0..1
    // The evidence behind the answer: the run of consecutive frames it comes from.
    double firstValidPosition = 0;  // firstValidSample with its sub-sample fraction
    int direction = 1;              // -1: the code counts down (LTC played backwards)
    std::int64_t runFrames = 0;     // frames in the run
    std::int64_t bitErrors = 0;     // clock irregularities inside the run
    double measuredFps = 0;         // frame rate measured over the run
    double samplesPerFrame = 0;     // measured frame period in samples
    double jitter = 0;              // rms scatter of frame starts, samples
    std::string rateEvidence;       // what chose the rate

    friend bool operator==(const LTCDecodeResult&, const LTCDecodeResult&) = default;
};

// One point of a windowed decode.
struct LTCTimelinePoint {
    std::int64_t sample = 0;  // absolute sample of the frame start (window offset + first valid)
    Timecode timecode;
    std::int64_t frameCount = 0;  // TimecodeMath::frameCount of the timecode at the decoded rate

    friend bool operator==(const LTCTimelinePoint&, const LTCTimelinePoint&) = default;
};

class LTCDecodeError : public Error {
  public:
    enum class Kind {
        noSignal,         // "LTC signal appears silent or invalid."
        noFrameDetected,  // "Could not decode a valid LTC frame."
        rateMismatch,     // the code runs at another rate than the one chosen
    };

    explicit LTCDecodeError(Kind kind);
    LTCDecodeError(Kind kind, const std::string& message);
    Kind kind() const { return kind_; }

    static std::string description(Kind kind);
    static LTCDecodeError noSignal() { return LTCDecodeError(Kind::noSignal); }
    static LTCDecodeError noFrameDetected() { return LTCDecodeError(Kind::noFrameDetected); }
    // "The LTC runs at 25.000 fps, not at the chosen frame rate (24)."
    static LTCDecodeError rateMismatch(double measuredFps, const std::string& chosenLabel);

  private:
    Kind kind_;
};

// Whole-span entry points over the push decoders of ltc_frame_decoder.h and
// ltc_stream_decode.h: the signal is tracked edge by edge wherever the code
// begins, and a timecode is returned only from a run of frames that count on
// one by one. Pure and reentrant.
namespace LTCDecoder {

// One candidate rate tried by an automatic decode.
struct AutoCandidateEvaluation {
    FrameRateConfig rate;
    bool success = false;
    double confidence = 0;            // 0 on failure
    std::optional<double> bestScore;  // unused by the tracking decoder
    std::optional<int> validRun;      // frames in the run the result comes from
    std::optional<LTCDecodeResult> result;
};

// Decodes one channel of float samples (-1..1): the first run of consecutive
// frames, projected to the first sample. With a rate the frames are counted at
// that rate; without one the rate is measured from the run (frame period and
// drop-frame bit) and the "Auto FPS candidates:" diagnostic is written to the
// frame-rate diagnostics stream. Throws LTCDecodeError.
LTCDecodeResult decode(std::span<const float> samples, std::int64_t sampleRate,
                       const std::optional<FrameRateConfig>& rate = std::nullopt);

// decode without the diagnostic.
LTCDecodeResult decodeQuietly(std::span<const float> samples, std::int64_t sampleRate,
                              const std::optional<FrameRateConfig>& rate = std::nullopt);

// The verified runs of the samples as points: each run's first frame, then
// its frames at least half a hop apart, sorted by sample. The window length
// and window count no longer matter (every frame is read once); they are kept
// for callers. Never throws a decode error; a cancellation returns the points
// found so far.
std::vector<LTCTimelinePoint> decodeTimeline(
    std::span<const float> samples, std::int64_t sampleRate,
    const std::optional<FrameRateConfig>& rate, double windowSeconds, double hopSeconds,
    std::optional<std::int64_t> maxWindows = std::nullopt,
    const std::function<bool()>& isCancelled = {},
    const std::function<void(std::int64_t done, std::int64_t total)>& progress = {});

// The decode at one rate with its run length; nullopt when nothing decodes.
std::optional<AutoCandidateEvaluation> evaluateCandidate(std::span<const float> samples,
                                                         std::int64_t sampleRate,
                                                         const FrameRateConfig& rate);

}  // namespace LTCDecoder

// Where the frame-rate diagnostics ("Auto FPS candidates:", "Auto FPS batch
// vote:") go: std::cout by default; the command line sets std::cerr; nullptr
// silences them. Blocks are written whole under a lock.
void setFrameRateDiagnosticsStream(std::ostream* stream);

namespace detail {
// Writes one diagnostic block to the current diagnostics stream.
void writeFrameRateDiagnostics(const std::string& text);
}  // namespace detail

}  // namespace norvane
