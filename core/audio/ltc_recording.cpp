#include "core/audio/ltc_recording.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <numbers>

#include <fmt/format.h>

#include "core/audio/riff_writer.h"
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

ByteBuffer buildLTCRecording(const LTCRecordingOptions& options, LTCRecordingSummary* summary) {
    validate(options);
    const std::int64_t frames =
        std::max<std::int64_t>(toSample(options.seconds, options.sampleRate), 1);
    const int width = bytesPerSample(options.format);
    const std::uint64_t dataBytes = static_cast<std::uint64_t>(frames) *
                                    static_cast<std::uint64_t>(options.channels) *
                                    static_cast<std::uint64_t>(width);
    // RIFF header, fmt chunk and data chunk header: 44 bytes.
    if (dataBytes + 44 - 8 > 0xFFFFFFFFull) {
        throw RIFFWriteError::outputTooLarge();
    }
    const std::uint64_t byteRate = static_cast<std::uint64_t>(options.sampleRate) *
                                   static_cast<std::uint64_t>(options.channels) *
                                   static_cast<std::uint64_t>(width);
    if (byteRate > 0xFFFFFFFFull) {
        throw RIFFWriteError::byteRateTooLarge();
    }

    LTCProgram program;
    program.leadInSamples = std::min(options.leadInSamples, frames);
    program.totalSamples = frames;
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
    const std::vector<float> code = encodeLTCProgram(program, encoder, &starts);

    if (summary) {
        summary->frameCount = frames;
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

    ByteBuffer fmtChunk;
    appendLE16(fmtChunk, options.format == LTCRecordingFormat::float32 ? 3 : 1);
    appendLE16(fmtChunk, static_cast<std::uint16_t>(options.channels));
    appendLE32(fmtChunk, static_cast<std::uint32_t>(options.sampleRate));
    appendLE32(fmtChunk, static_cast<std::uint32_t>(byteRate));
    appendLE16(fmtChunk, static_cast<std::uint16_t>(options.channels * width));
    appendLE16(fmtChunk, static_cast<std::uint16_t>(width * 8));

    ByteBuffer data;
    data.reserve(static_cast<std::size_t>(dataBytes));
    const double toneAmplitude = std::pow(10.0, kToneDBFS / 20.0);
    for (std::int64_t i = 0; i < frames; ++i) {
        for (int c = 0; c < options.channels; ++c) {
            float value = 0;
            if (c + 1 == options.ltcChannel) {
                value = code[static_cast<std::size_t>(i)];
            } else {
                const double frequency = 300.0 + 110.0 * c;
                value = static_cast<float>(
                    toneAmplitude *
                    std::sin(2 * std::numbers::pi * frequency * static_cast<double>(i) /
                             static_cast<double>(options.sampleRate)));
            }
            appendSample(data, value, options.format);
        }
    }
    const RIFFChunk chunks[] = {{"fmt ", fmtChunk}, {"data", data}};
    return serializeRIFF(chunks);
}

LTCRecordingSummary writeLTCRecording(const std::filesystem::path& path,
                                      const LTCRecordingOptions& options, bool overwrite) {
    LTCRecordingSummary summary;
    const ByteBuffer bytes = buildLTCRecording(options, &summary);
    writeFile(path, bytes, overwrite ? WriteMode::replaceAtomically : WriteMode::createNew);
    return summary;
}

}  // namespace norvane
