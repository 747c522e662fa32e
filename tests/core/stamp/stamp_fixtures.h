#pragma once

#include <cstdio>

// Generated recordings and independent read-back for the stamp tests.

#include <cmath>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "core/audio/bwf_reader.h"
#include "core/audio/ltc_recording.h"
#include "core/audio/wav_file.h"
#include "core/common/file_output.h"
#include "core/common/text.h"
#include "core/stamp/stamp_processor.h"
#include "core/timecode/timecode.h"
#include "tests/support/sndfile_check.h"
#include "tests/support/wav_builder.h"

namespace norvane::testing {

inline FrameRateConfig rateOf(FrameRatePreset preset) {
    return *frameRateConfig(preset);
}

// LTC on `ltcChannel` (1-based) starting at `leadIn` samples with `start`;
// the other channels carry quiet tones.
inline LTCRecordingOptions ltcOptions(FrameRatePreset preset, const Timecode& start,
                                      std::int64_t leadIn, double seconds = 3, int channels = 1,
                                      int ltcChannel = 1, std::vector<LTCRecordingJump> jumps = {},
                                      std::int64_t sampleRate = 48000) {
    LTCRecordingOptions options;
    options.rate = rateOf(preset);
    options.start = start;
    options.seconds = seconds;
    options.sampleRate = sampleRate;
    options.channels = channels;
    options.ltcChannel = ltcChannel;
    options.leadInSamples = leadIn;
    options.jumps = std::move(jumps);
    return options;
}

inline std::filesystem::path writeLTCFile(const std::filesystem::path& path, FrameRatePreset preset,
                                          const Timecode& start, std::int64_t leadIn,
                                          double seconds = 3, int channels = 1, int ltcChannel = 1,
                                          std::vector<LTCRecordingJump> jumps = {},
                                          std::int64_t sampleRate = 48000) {
    writeLTCRecording(path,
                      ltcOptions(preset, start, leadIn, seconds, channels, ltcChannel,
                                 std::move(jumps), sampleRate),
                      true);
    return path;
}

// A stem without LTC: a quiet tone per channel.
inline std::filesystem::path writeStem(const std::filesystem::path& path, double seconds = 3,
                                       int channels = 2, std::uint32_t sampleRate = 48000,
                                       bool asFloat = false) {
    const auto frames = static_cast<std::size_t>(seconds * sampleRate);
    std::vector<std::vector<float>> data(static_cast<std::size_t>(channels),
                                         std::vector<float>(frames));
    for (std::size_t c = 0; c < data.size(); ++c) {
        for (std::size_t i = 0; i < frames; ++i) {
            data[c][i] = 0.1f * static_cast<float>(std::sin(0.01 * static_cast<double>(i) *
                                                            static_cast<double>(c + 1)));
        }
    }
    const ByteBuffer bytes =
        asFloat ? makeFloat32(sampleRate, data) : makePcm(24, sampleRate, data);
    writeFile(path, bytes, WriteMode::replaceAtomically);
    return path;
}

// The bext TimeReference and the frame count as libsndfile reads them.
inline std::optional<std::uint64_t> sndfileTimeReference(const std::filesystem::path& path) {
    return openWithSndfile(path, false).timeReference;
}

inline sf_count_t sndfileFrames(const std::filesystem::path& path) {
    const SndfileView view = openWithSndfile(path, false);
    return view.opened ? view.frames : -1;
}

inline ByteBuffer audioBytes(const std::filesystem::path& path) {
    const WAVFile wav(path);
    return ByteBuffer(wav.dataChunk().begin(), wav.dataChunk().end());
}

// The iXML a stamp writes into a file that had none: the three top-level
// timecode elements and the <SPEED> block that recorders write.
inline std::string ixmlFor(const FrameRateConfig& rate, const std::string& timecode,
                           std::uint64_t timeReference, std::uint32_t sampleRate = 48000) {
    const std::string flag = rate.dropFrame ? "DF" : "NDF";
    char hi[16];
    char lo[16];
    std::snprintf(hi, sizeof hi, "%010llu", static_cast<unsigned long long>(timeReference >> 32));
    std::snprintf(lo, sizeof lo, "%010llu",
                  static_cast<unsigned long long>(timeReference & 0xFFFFFFFFu));
    return "<BWFXML>\n  <IXML_VERSION>1.5</IXML_VERSION>\n  <TIMECODE_RATE>" + rate.label +
           "</TIMECODE_RATE>\n  <TIMECODE_FLAG>" + flag + "</TIMECODE_FLAG>\n  <TIMECODE>" +
           timecode + "</TIMECODE>\n  <SPEED>\n    <TIMECODE_RATE>" +
           std::to_string(rate.numerator) + "/" + std::to_string(rate.denominator) +
           "</TIMECODE_RATE>\n    <TIMECODE_FLAG>" + flag +
           "</TIMECODE_FLAG>\n    <TIMESTAMP_SAMPLE_RATE>" + std::to_string(sampleRate) +
           "</TIMESTAMP_SAMPLE_RATE>\n    <TIMESTAMP_SAMPLES_SINCE_MIDNIGHT_HI>" + hi +
           "</TIMESTAMP_SAMPLES_SINCE_MIDNIGHT_HI>\n    <TIMESTAMP_SAMPLES_SINCE_MIDNIGHT_LO>" +
           lo + "</TIMESTAMP_SAMPLES_SINCE_MIDNIGHT_LO>\n  </SPEED>\n</BWFXML>";
}

// The rows of a CSV log without quoting (our test names hold no commas).
inline std::vector<std::vector<std::string>> csvRows(const std::filesystem::path& path) {
    const ByteBuffer bytes = readWholeFile(path);
    std::vector<std::vector<std::string>> rows;
    for (const std::string& line : splitOn(std::string(bytes.begin(), bytes.end()), "\n")) {
        rows.push_back(splitOn(line, ","));
    }
    return rows;
}

// The expected file start: the timecode of the frame at `leadIn` stepped back
// by the whole frames nearest to the lead-in, and its time reference.
struct ExpectedStart {
    Timecode timecode;
    std::uint64_t timeReference = 0;
};
inline ExpectedStart expectedStart(const Timecode& atLeadIn, std::int64_t leadIn,
                                   const FrameRateConfig& rate, std::int64_t sampleRate = 48000) {
    const double perFrame = static_cast<double>(sampleRate) *
                            static_cast<double>(rate.denominator) /
                            static_cast<double>(rate.numerator);
    const auto back =
        static_cast<std::int64_t>(std::llround(static_cast<double>(leadIn) / perFrame));
    ExpectedStart expected;
    expected.timecode =
        TimecodeMath::timecodeFromFrameCount(TimecodeMath::frameCount(atLeadIn, rate) - back, rate);
    expected.timeReference = static_cast<std::uint64_t>(std::llround(
        static_cast<double>(TimecodeMath::frameCount(expected.timecode, rate)) * perFrame));
    return expected;
}

// The ingested form of each file, as the app lists them.
inline std::vector<FileDescriptor> describeAll(const std::vector<std::filesystem::path>& paths) {
    std::vector<FileDescriptor> files;
    for (const std::filesystem::path& p : paths) {
        files.push_back(StampProcessor::describeFile(p));
    }
    return files;
}

// Options of a run in `mode` at `preset`, writing into `out`; the rest default.
inline ProcessingOptions optionsFor(ProcessingMode mode, FrameRatePreset preset,
                                    const std::filesystem::path& out) {
    ProcessingOptions options;
    options.mode = mode;
    options.frameRatePreset = preset;
    options.outputFolder = out;
    return options;
}

}  // namespace norvane::testing
