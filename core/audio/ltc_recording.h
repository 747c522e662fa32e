#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/common/bytes.h"
#include "core/common/error.h"
#include "core/timecode/timecode.h"

namespace norvane {

// Sample formats of a generated recording ("pcm16", "pcm24", "pcm32", "float32").
enum class LTCRecordingFormat { pcm16, pcm24, pcm32, float32 };
std::string label(LTCRecordingFormat format);
std::optional<LTCRecordingFormat> ltcRecordingFormatFromLabel(std::string_view text);

// A restart of the code: from `atSeconds` into the recording the LTC runs from
// `start`, as when a recorder is paused or its timecode re-jammed.
struct LTCRecordingJump {
    double atSeconds = 0;
    Timecode start;
};

// A test recording: LTC on one channel, quiet distinct tones on the others.
struct LTCRecordingOptions {
    FrameRateConfig rate;
    Timecode start;       // code of the frame that begins at the lead-in's end
    double seconds = 10;  // length of the whole recording
    std::int64_t sampleRate = 48000;
    int channels = 1;
    int ltcChannel = 1;  // 1-based
    LTCRecordingFormat format = LTCRecordingFormat::pcm24;
    std::int64_t leadInSamples = 0;  // silence on the LTC channel before the code starts
    double levelDBFS = -12;          // LTC peak level
    std::vector<LTCRecordingJump> jumps;
};

// Bad options ("LTC channel 3 does not exist in a 2-channel recording.").
class LTCRecordingError : public Error {
  public:
    explicit LTCRecordingError(const std::string& message) : Error(message) {}
};

// What was generated: the recording's length and where each LTC frame starts
// (the first sample at or after its first edge), with the code it carries.
struct LTCRecordingFrame {
    std::int64_t sample = 0;
    Timecode timecode;
};
struct LTCRecordingSummary {
    std::int64_t frameCount = 0;  // sample frames per channel
    std::vector<LTCRecordingFrame> frames;
};

// The complete WAV file (RIFF, a plain 16-byte fmt chunk, data). Throws
// LTCRecordingError for bad options and RIFFWriteError when the file would not
// fit the 32-bit RIFF sizes.
ByteBuffer buildLTCRecording(const LTCRecordingOptions& options,
                             LTCRecordingSummary* summary = nullptr);

// buildLTCRecording written to `path`: atomically replacing an existing file
// when `overwrite` is set, otherwise failing if it exists.
LTCRecordingSummary writeLTCRecording(const std::filesystem::path& path,
                                      const LTCRecordingOptions& options, bool overwrite = false);

}  // namespace norvane
