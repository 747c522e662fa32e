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
    };

    explicit LTCDecodeError(Kind kind);
    Kind kind() const { return kind_; }

    static std::string description(Kind kind);
    static LTCDecodeError noSignal() { return LTCDecodeError(Kind::noSignal); }
    static LTCDecodeError noFrameDetected() { return LTCDecodeError(Kind::noFrameDetected); }

  private:
    Kind kind_;
};

// A global, fixed-grid biphase-mark reader: all zero crossings are found once,
// a bit grid with the period of the exact frame rate is laid over them at the
// best of a few phases, every cell is read, and frames are found by their sync
// word. It tolerates a timing error of +-20 % of a bit period between grid and
// signal, so it locks only when the code begins within the first 200 bit cells
// (about 2.5 frames) of the samples given. Pure and reentrant.
namespace LTCDecoder {

// One candidate rate tried by an automatic decode.
struct AutoCandidateEvaluation {
    FrameRateConfig rate;
    bool success = false;
    double confidence = 0;            // 0 on failure
    std::optional<double> bestScore;  // phase score of the bit grid, 0..1
    std::optional<int> validRun;      // 1 or 2 consecutive decodable frames
    std::optional<LTCDecodeResult> result;
};

// Decodes one channel of float samples (-1..1). With a rate only that rate is
// tried; without one the six candidate rates are tried, one is selected
// (FrameRateDetection::select) and the "Auto FPS candidates:" diagnostic is
// written to the frame-rate diagnostics stream. Throws LTCDecodeError.
LTCDecodeResult decode(std::span<const float> samples, std::int64_t sampleRate,
                       const std::optional<FrameRateConfig>& rate = std::nullopt);

// Decodes windows of `windowSeconds` every `hopSeconds` (the hop is widened so
// that at most `maxWindows` windows are decoded) and returns one point per
// decodable window, sorted by sample and thinned to at least half a hop apart.
// Never throws a decode error; a cancellation returns the points found so far.
std::vector<LTCTimelinePoint> decodeTimeline(
    std::span<const float> samples, std::int64_t sampleRate,
    const std::optional<FrameRateConfig>& rate, double windowSeconds, double hopSeconds,
    std::optional<std::int64_t> maxWindows = std::nullopt,
    const std::function<bool()>& isCancelled = {},
    const std::function<void(std::int64_t done, std::int64_t total)>& progress = {});

// The decode of one rate with its grid score and valid run; nullopt when the
// rate yields no frame.
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
