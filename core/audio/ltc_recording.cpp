#include "core/audio/ltc_recording.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <numbers>

#include <fmt/format.h>

#include "core/audio/riff_writer.h"  // RIFFWriteError
#include "core/common/file_output.h"
#include "core/timecode/ltc_encoder.h"

namespace norvane {

namespace {

constexpr std::array<std::pair<LTCRecordingFormat, const char*>, 4> kFormats = {{
    {LTCRecordingFormat::pcm16, "pcm16"},
    {LTCRecordingFormat::pcm24, "pcm24"},
    {LTCRecordingFormat::pcm32, "pcm32"},
    {LTCRecordingFormat::float32, "float32"},
}};

int bytesPerSample(LTCRecordingFormat format) {
    switch (format) {
        case LTCRecordingFormat::pcm16:
            return 2;
        case LTCRecordingFormat::pcm24:
            return 3;
        case LTCRecordingFormat::pcm32:
        case LTCRecordingFormat::float32:
            return 4;
    }
    return 4;
}

// The other channels carry quiet tones, each its own pitch, so that a stem is
// recognisable and never mistaken for code.
constexpr double kToneDBFS = -30;

std::int64_t toSample(double seconds, std::int64_t sampleRate) {
    return static_cast<std::int64_t>(std::llround(seconds * static_cast<double>(sampleRate)));
}

void validate(const LTCRecordingOptions& o) {
    if (o.rate.numerator <= 0 || o.rate.denominator <= 0) {
        throw LTCRecordingError("The LTC frame rate must be positive.");
    }
    if (o.sampleRate < 8000 || o.sampleRate > 768000) {
        throw LTCRecordingError(
            fmt::format("Sample rate {} is outside 8000 to 768000 Hz.", o.sampleRate));
    }
    if (o.channels < 1 || o.channels > 64) {
        throw LTCRecordingError(fmt::format("Channel count {} is outside 1 to 64.", o.channels));
    }
    if (o.ltcChannel < 1 || o.ltcChannel > o.channels) {
        throw LTCRecordingError(fmt::format(
            "LTC channel {} does not exist in a {}-channel recording.", o.ltcChannel, o.channels));
    }
    if (!(o.seconds > 0) || !std::isfinite(o.seconds) || o.seconds > 86400) {
        throw LTCRecordingError("The recording length must be above 0 and at most 86400 seconds.");
    }
    if (o.leadInSamples < 0) {
        throw LTCRecordingError("The lead-in must not be negative.");
    }
    if (!(o.levelDBFS <= 0) || !std::isfinite(o.levelDBFS)) {
        throw LTCRecordingError("The LTC level must be at most 0 dBFS.");
    }
    for (const LTCRecordingJump& jump : o.jumps) {
        if (!(jump.atSeconds > 0) || !(jump.atSeconds < o.seconds)) {
            throw LTCRecordingError(
                fmt::format("A jump at {} s lies outside the recording.", jump.atSeconds));
        }
    }
}

void appendSample(ByteBuffer& out, float value, LTCRecordingFormat format) {
    const double x = std::clamp(static_cast<double>(value), -1.0, 1.0);
    switch (format) {
        case LTCRecordingFormat::pcm16:
            appendLE16(out, static_cast<std::uint16_t>(
                                static_cast<std::int16_t>(std::lround(x * 32767.0))));
            break;
        case LTCRecordingFormat::pcm24: {
            const auto v =
                static_cast<std::uint32_t>(static_cast<std::int32_t>(std::lround(x * 8388607.0)));
            out.push_back(static_cast<std::uint8_t>(v & 0xFF));
            out.push_back(static_cast<std::uint8_t>((v >> 8) & 0xFF));
            out.push_back(static_cast<std::uint8_t>((v >> 16) & 0xFF));
            break;
        }
        case LTCRecordingFormat::pcm32:
            appendLE32(out, static_cast<std::uint32_t>(
                                static_cast<std::int32_t>(std::llround(x * 2147483647.0))));
            break;
        case LTCRecordingFormat::float32: {
            std::uint32_t bits = 0;
            std::memcpy(&bits, &value, sizeof bits);
            appendLE32(out, bits);
            break;
        }
    }
}

}  // namespace

std::string label(LTCRecordingFormat format) {
    for (const auto& [f, name] : kFormats) {
        if (f == format) {
            return name;
        }
    }
    return "pcm24";
}

std::optional<LTCRecordingFormat> ltcRecordingFormatFromLabel(std::string_view text) {
    for (const auto& [f, name] : kFormats) {
        if (text == name) {
            return f;
        }
    }
    return std::nullopt;
}

namespace {

// Everything a recording needs before its bytes are produced: the LTC
// channel's samples and the sizes.
struct PreparedRecording {
    std::int64_t frames = 0;
    int width = 0;
    std::uint64_t dataBytes = 0;
    std::uint64_t byteRate = 0;
    std::vector<float> code;
};

PreparedRecording prepare(const LTCRecordingOptions& options, LTCRecordingSummary* summary) {
    validate(options);
    PreparedRecording r;
    r.frames = std::max<std::int64_t>(toSample(options.seconds, options.sampleRate), 1);
    r.width = bytesPerSample(options.format);
    r.dataBytes = static_cast<std::uint64_t>(r.frames) *
                  static_cast<std::uint64_t>(options.channels) *
                  static_cast<std::uint64_t>(r.width);
    // RIFF size: "WAVE", the fmt chunk (8 + 16), the data chunk header and its pad.
    if (4 + 24 + 8 + r.dataBytes + (r.dataBytes & 1) > 0xFFFFFFFFull) {
        throw RIFFWriteError::outputTooLarge();
    }
    r.byteRate = static_cast<std::uint64_t>(options.sampleRate) *
                 static_cast<std::uint64_t>(options.channels) * static_cast<std::uint64_t>(r.width);
    if (r.byteRate > 0xFFFFFFFFull) {
        throw RIFFWriteError::byteRateTooLarge();
    }

    LTCProgram program;
    program.leadInSamples = std::min(options.leadInSamples, r.frames);
    program.totalSamples = r.frames;
    program.segments.push_back({program.leadInSamples, options.start});
    for (const LTCRecordingJump& jump : options.jumps) {
        program.segments.push_back({toSample(jump.atSeconds, options.sampleRate), jump.start});
    }
    std::stable_sort(program.segments.begin(), program.segments.end(),
                     [](const auto& a, const auto& b) { return a.atSample < b.atSample; });
    LTCEncoderOptions encoder;
    encoder.rate = options.rate;
    encoder.sampleRate = options.sampleRate;
    encoder.levelDBFS = options.levelDBFS;
    std::vector<std::int64_t> starts;
    r.code = encodeLTCProgram(program, encoder, &starts);

    if (summary) {
        summary->frameCount = r.frames;
        summary->frames.clear();
        const double samplesPerFrame = static_cast<double>(options.sampleRate) *
                                       static_cast<double>(options.rate.denominator) /
                                       static_cast<double>(options.rate.numerator);
        for (std::int64_t s : starts) {
            // The segment the frame belongs to: the last one starting at or before it.
            auto segment = std::upper_bound(
                program.segments.begin(), program.segments.end(), s,
                [](std::int64_t v, const LTCProgramSegment& seg) { return v < seg.atSample; });
            if (segment == program.segments.begin()) {
                continue;
            }
            --segment;
            const std::int64_t index =
                std::llround(static_cast<double>(s - segment->atSample) / samplesPerFrame);
            summary->frames.push_back(
                {s, TimecodeMath::timecodeFromFrameCount(
                        TimecodeMath::frameCount(segment->start, options.rate) + index,
                        options.rate)});
        }
    }
    return r;
}

// "RIFF", its size, "WAVE", a plain 16-byte fmt chunk and the data chunk header.
ByteBuffer header(const LTCRecordingOptions& options, const PreparedRecording& r) {
    ByteBuffer out;
    out.reserve(44);
    appendText(out, "RIFF");
    appendLE32(out, static_cast<std::uint32_t>(4 + 24 + 8 + r.dataBytes + (r.dataBytes & 1)));
    appendText(out, "WAVEfmt ");
    appendLE32(out, 16);
    appendLE16(out, options.format == LTCRecordingFormat::float32 ? 3 : 1);
    appendLE16(out, static_cast<std::uint16_t>(options.channels));
    appendLE32(out, static_cast<std::uint32_t>(options.sampleRate));
    appendLE32(out, static_cast<std::uint32_t>(r.byteRate));
    appendLE16(out, static_cast<std::uint16_t>(options.channels * r.width));
    appendLE16(out, static_cast<std::uint16_t>(r.width * 8));
    appendText(out, "data");
    appendLE32(out, static_cast<std::uint32_t>(r.dataBytes));
    return out;
}

// Interleaved sample bytes of frames [first, last).
void appendFrames(ByteBuffer& out, const LTCRecordingOptions& options, const PreparedRecording& r,
                  std::int64_t first, std::int64_t last) {
    const double toneAmplitude = std::pow(10.0, kToneDBFS / 20.0);
    for (std::int64_t i = first; i < last; ++i) {
        for (int c = 0; c < options.channels; ++c) {
            float value = 0;
            if (c + 1 == options.ltcChannel) {
                value = r.code[static_cast<std::size_t>(i)];
            } else {
                const double frequency = 300.0 + 110.0 * c;
                value = static_cast<float>(
                    toneAmplitude *
                    std::sin(2 * std::numbers::pi * frequency * static_cast<double>(i) /
                             static_cast<double>(options.sampleRate)));
            }
            appendSample(out, value, options.format);
        }
    }
}

}  // namespace

ByteBuffer buildLTCRecording(const LTCRecordingOptions& options, LTCRecordingSummary* summary) {
    const PreparedRecording r = prepare(options, summary);
    ByteBuffer out = header(options, r);
    out.reserve(out.size() + static_cast<std::size_t>(r.dataBytes) + 1);
    appendFrames(out, options, r, 0, r.frames);
    if (r.dataBytes & 1) {
        out.push_back(0);
    }
    return out;
}

LTCRecordingSummary writeLTCRecording(const std::filesystem::path& path,
                                      const LTCRecordingOptions& options, bool overwrite) {
    LTCRecordingSummary summary;
    const PreparedRecording r = prepare(options, &summary);
    // Streamed in blocks so that long recordings are never held twice.
    OutputFile file(path, overwrite ? WriteMode::replaceAtomically : WriteMode::createNew);
    file.write(header(options, r));
    constexpr std::int64_t kBlockFrames = 1 << 16;
    ByteBuffer block;
    for (std::int64_t first = 0; first < r.frames; first += kBlockFrames) {
        block.clear();
        appendFrames(block, options, r, first, std::min(r.frames, first + kBlockFrames));
        file.write(block);
    }
    if (r.dataBytes & 1) {
        const std::uint8_t pad[1] = {0};
        file.write(pad);
    }
    file.commit();
    return summary;
}

}  // namespace norvane
