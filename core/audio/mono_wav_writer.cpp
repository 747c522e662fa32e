#include "core/audio/mono_wav_writer.h"

#include <array>
#include <cstring>
#include <limits>
#include <vector>

#include "core/audio/riff_writer.h"
#include "core/common/file_output.h"

namespace norvane {

MonoWAVError MonoWAVError::invalidChannel(int index, int channelCount) {
    return MonoWAVError(Kind::invalidChannel, "Channel index " + std::to_string(index) +
                                                  " is out of range (file has " +
                                                  std::to_string(channelCount) + " channel(s)).");
}
MonoWAVError MonoWAVError::unsupportedBitDepth(int bits) {
    return MonoWAVError(Kind::unsupportedBitDepth,
                        "Bit depth " + std::to_string(bits) +
                            " is not supported for mono export (use 16, 24, or 32).");
}
MonoWAVError MonoWAVError::unsupportedSourceFormat() {
    return MonoWAVError(Kind::unsupportedSourceFormat,
                        "Source must be linear PCM or 32-bit float WAVE.");
}
MonoWAVError MonoWAVError::unexpectedBlockLayout() {
    return MonoWAVError(Kind::unexpectedBlockLayout,
                        "WAV block alignment does not match channel count and bit depth.");
}

namespace MonoWAVWriter {

namespace {

// Checks the source in the order users see the errors; returns bytes per sample.
std::size_t checkSource(const WAVFmtChunk& fmt, int channelIndex) {
    const int channels = fmt.channelCount;
    auto checkChannel = [&] {
        if (channelIndex < 0 || channelIndex >= channels) {
            throw MonoWAVError::invalidChannel(channelIndex, channels);
        }
    };
    if (fmt.audioFormat == 1) {
        checkChannel();
        const int bits = fmt.bitsPerSample;
        if (bits != 16 && bits != 24 && bits != 32) {
            throw MonoWAVError::unsupportedBitDepth(bits);
        }
        if (fmt.blockAlign != bits / 8 * channels) {
            throw MonoWAVError::unexpectedBlockLayout();
        }
        return static_cast<std::size_t>(bits / 8);
    }
    if (fmt.audioFormat != 3 || fmt.bitsPerSample != 32) {
        throw MonoWAVError::unsupportedSourceFormat();
    }
    checkChannel();
    if (fmt.blockAlign != channels * 4) {
        throw MonoWAVError::unexpectedBlockLayout();
    }
    return 4;
}

}  // namespace

ByteBuffer build(const WAVFile& file, int channelIndex) {
    return build(file, channelIndex, {});
}

ByteBuffer build(const WAVFile& file, int channelIndex, std::span<const RIFFChunk> metadata) {
    const WAVFmtChunk& fmt = file.fmt();
    const std::size_t bytesPerSample = checkSource(fmt, channelIndex);
    const std::size_t block = fmt.blockAlign;
    const ByteView source = file.dataChunk();
    const std::size_t frames = source.size() / block;
    const std::uint64_t dataSize = static_cast<std::uint64_t>(frames) * bytesPerSample;

    const std::uint64_t byteRate = static_cast<std::uint64_t>(fmt.sampleRate) * bytesPerSample;
    if (byteRate > std::numeric_limits<std::uint32_t>::max()) {
        throw RIFFWriteError::byteRateTooLarge();
    }
    // RIFF size = "WAVE" + fmt chunk (8 + 16) + metadata + data chunk (8 + data + pad).
    const std::uint64_t metadataSize = serializedRIFFSize(metadata) - 12;
    if (4 + 24 + metadataSize + 8 + dataSize + (dataSize & 1) >
        std::numeric_limits<std::uint32_t>::max()) {
        throw RIFFWriteError::outputTooLarge();
    }

    std::array<std::uint8_t, 16> fmtPayload{};
    writeLE16(fmtPayload.data(), fmt.audioFormat);
    writeLE16(fmtPayload.data() + 2, 1);
    writeLE32(fmtPayload.data() + 4, fmt.sampleRate);
    writeLE32(fmtPayload.data() + 8, static_cast<std::uint32_t>(byteRate));
    writeLE16(fmtPayload.data() + 12, static_cast<std::uint16_t>(bytesPerSample));
    writeLE16(fmtPayload.data() + 14, static_cast<std::uint16_t>(bytesPerSample * 8));

    ByteBuffer data(static_cast<std::size_t>(dataSize));
    const std::uint8_t* at =
        source.data() + static_cast<std::size_t>(channelIndex) * bytesPerSample;
    std::uint8_t* to = data.data();
    for (std::size_t f = 0; f < frames; ++f, at += block, to += bytesPerSample) {
        std::memcpy(to, at, bytesPerSample);
    }

    std::vector<RIFFChunk> chunks = {RIFFChunk{"fmt ", fmtPayload}};
    chunks.insert(chunks.end(), metadata.begin(), metadata.end());
    chunks.push_back(RIFFChunk{"data", data});
    return serializeRIFF(chunks);
}

void write(const WAVFile& file, int channelIndex, const std::filesystem::path& url,
           bool overwrite) {
    const ByteBuffer bytes = build(file, channelIndex);
    writeFile(url, bytes, overwrite ? WriteMode::replaceAtomically : WriteMode::createNew);
}

}  // namespace MonoWAVWriter
}  // namespace norvane
