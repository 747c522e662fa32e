#pragma once

// Decoding the LTC of a file on a named channel, or finding the channel that
// carries it when none is named.

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "core/audio/wav_file.h"
#include "core/audio/wav_reader.h"
#include "core/timecode/ltc_decoder.h"

namespace norvane {

struct ChannelDecode {
    LTCDecodeResult result;
    std::int64_t channelIndex = 0;  // the channel decoded, 0-based
};

// With a channel: that channel (clamped into the file's channels) is decoded.
// Without one: every channel is decoded and the highest confidence wins, the
// lower channel on a tie, so LTC on any track of a poly file is found. `rate`
// absent selects the rate automatically; the "Auto FPS candidates:" diagnostic
// is then written once, for the channel chosen. Throws LTCDecodeError when no
// channel decodes (noFrameDetected if any channel carried a signal).
ChannelDecode decodeFileLTC(const WAVFile& file, std::optional<std::int64_t> channelIndex,
                            const std::optional<FrameRateConfig>& rate);
// The same streamed from disk: only the channel being decoded is read into
// memory, block by block.
ChannelDecode decodeFileLTC(const WavReader& file, std::optional<std::int64_t> channelIndex,
                            const std::optional<FrameRateConfig>& rate);

// The channel decodeFileLTC would use; the named one when given, else the
// best-decoding channel (0 when none decodes). Writes no diagnostics.
std::int64_t chooseLTCChannel(const WAVFile& file, std::optional<std::int64_t> channelIndex,
                              const std::optional<FrameRateConfig>& rate);
std::int64_t chooseLTCChannel(const WavReader& file, std::optional<std::int64_t> channelIndex,
                              const std::optional<FrameRateConfig>& rate);

// Channel `channel` of frames [0, endFrame) (the whole file without an end)
// as WAVFile::samples gives it, read block by block.
std::vector<float> channelSamples(const WavReader& file, std::int64_t channel,
                                  std::optional<std::int64_t> endFrame = std::nullopt);

}  // namespace norvane
