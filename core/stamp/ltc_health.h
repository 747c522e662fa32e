#pragma once

// What a file's LTC looks like before it is stamped: which channel carries it
// (found from the signal, not from the file name) and how well it decodes
// along the recording.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/audio/wav_file.h"
#include "core/audio/wav_reader.h"
#include "core/timecode/ltc_decoder.h"

namespace norvane {

// The channel that carries LTC, found by decoding short stretches of every
// channel.
struct LTCProbe {
    std::int64_t channelIndex = 0;      // 0-based
    FrameRateConfig rate;               // the rate the best stretch decoded at
    Timecode timecode;                  // of the first valid frame found
    std::int64_t firstValidSample = 0;  // absolute sample of that frame
    double confidence = 0;              // 0..1, of the best stretch
    // The decoder's evidence for that stretch.
    std::int64_t runFrames = 0;  // consecutive frames in the run
    std::int64_t bitErrors = 0;  // clock irregularities inside it
    std::string rateEvidence;    // what chose the rate
};

// Decodes stretches of `stretchSeconds` at the start and a few later points of
// each channel (LTC often begins after a lead-in) and returns the channel with
// the highest confidence, the lower channel on a tie; with `channelIndex`
// only that channel is tried. nullopt when no channel decodes. Writes no
// frame-rate diagnostics.
std::optional<LTCProbe> probeLTC(const WAVFile& file,
                                 std::optional<std::int64_t> channelIndex = std::nullopt,
                                 const std::optional<FrameRateConfig>& rate = std::nullopt,
                                 double stretchSeconds = 2.0);
// The same read from disk: only the stretches tried are read and converted.
std::optional<LTCProbe> probeLTC(const WavReader& file,
                                 std::optional<std::int64_t> channelIndex = std::nullopt,
                                 const std::optional<FrameRateConfig>& rate = std::nullopt,
                                 double stretchSeconds = 2.0);

// How the LTC of one channel looks along the whole recording.
struct LTCHealth {
    struct Stretch {
        std::int64_t beginSample = 0;
        std::int64_t endSample = 0;
        std::optional<double> confidence;  // absent: nothing decoded in this stretch
    };
    std::int64_t channelIndex = 0;
    std::int64_t frameCount = 0;
    std::int64_t sampleRate = 0;
    std::vector<float> envelope;     // peak |sample| per equal slice of the file, 0..1
    std::vector<Stretch> stretches;  // equal stretches covering the file, in order
    std::optional<std::int64_t> firstValidSample;  // first frame decoded in any stretch
    std::optional<FrameRateConfig> rate;           // the rate the stretches decoded at
};

// The envelope in `envelopeSlices` slices and the decode confidence of
// `stretchCount` stretches (at most, and each at most `stretchSeconds` long,
// taken at the start of its share of the file; a file shorter than
// stretchCount stretches gets one a stretch length). With no rate the first
// decodable stretch settles it for the others.
LTCHealth measureLTCHealth(const WAVFile& file, std::int64_t channelIndex,
                           const std::optional<FrameRateConfig>& rate, int envelopeSlices = 400,
                           int stretchCount = 48, double stretchSeconds = 1.0);
// The same streamed from disk: one pass for the envelope, the stretches read alone.
LTCHealth measureLTCHealth(const WavReader& file, std::int64_t channelIndex,
                           const std::optional<FrameRateConfig>& rate, int envelopeSlices = 400,
                           int stretchCount = 48, double stretchSeconds = 1.0);

// green: decodes with enough confidence to stamp; amber: decodes, but below
// it; red: nothing decoded.
enum class LTCHealthLevel { green, amber, red };
LTCHealthLevel healthLevel(const std::optional<double>& confidence);

}  // namespace norvane
