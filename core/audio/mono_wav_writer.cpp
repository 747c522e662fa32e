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

namespace {

// The plain 16-byte fmt payload of a one-channel output.
std::array<std::uint8_t, 16> monoFmt(const WAVFmtChunk& fmt, std::size_t bytesPerSample) {
    const std::uint64_t byteRate = static_cast<std::uint64_t>(fmt.sampleRate) * bytesPerSample;
    if (byteRate > std::numeric_limits<std::uint32_t>::max()) {
        throw RIFFWriteError::byteRateTooLarge();
    }
    std::array<std::uint8_t, 16> payload{};
    writeLE16(payload.data(), fmt.audioFormat);
    writeLE16(payload.data() + 2, 1);
    writeLE32(payload.data() + 4, fmt.sampleRate);
    writeLE32(payload.data() + 8, static_cast<std::uint32_t>(byteRate));
    writeLE16(payload.data() + 12, static_cast<std::uint16_t>(bytesPerSample));
    writeLE16(payload.data() + 14, static_cast<std::uint16_t>(bytesPerSample * 8));
    return payload;
}

// Every frame of `frames` at a stride of `block` sends one sample of `width`
// bytes to each output: sample `k` of a frame (at byte `offsets[k]`) goes to
// `outs[k]`. Channels go four at a time, their pointers held in locals (byte
// stores could alias anything the loop would otherwise reload), which moves
// a 24-bit 8-channel block two and a half times as fast as one channel after
// another per frame. Three-byte samples are moved as four (the next store
// overwrites the extra byte), so `in` and every output hold a byte past the
// last sample.
template <std::size_t width>
void deinterleave(const std::uint8_t* in, std::size_t block, std::size_t frames,
                  std::span<const std::size_t> offsets, std::span<std::uint8_t* const> outs) {
    constexpr std::size_t moved = width == 3 ? 4 : width;
    std::size_t k = 0;
    for (; k + 4 <= offsets.size(); k += 4) {
        const std::uint8_t* s0 = in + offsets[k];
        const std::uint8_t* s1 = in + offsets[k + 1];
        const std::uint8_t* s2 = in + offsets[k + 2];
        const std::uint8_t* s3 = in + offsets[k + 3];
        std::uint8_t* d0 = outs[k];
        std::uint8_t* d1 = outs[k + 1];
        std::uint8_t* d2 = outs[k + 2];
        std::uint8_t* d3 = outs[k + 3];
        for (std::size_t f = 0; f < frames; ++f) {
            const std::size_t from = f * block;
            const std::size_t to = f * width;
            std::memcpy(d0 + to, s0 + from, moved);
            std::memcpy(d1 + to, s1 + from, moved);
            std::memcpy(d2 + to, s2 + from, moved);
            std::memcpy(d3 + to, s3 + from, moved);
        }
    }
    for (; k < offsets.size(); ++k) {
        const std::uint8_t* source = in + offsets[k];
        std::uint8_t* out = outs[k];
        for (std::size_t f = 0; f < frames; ++f) {
            std::memcpy(out + f * width, source + f * block, moved);
        }
    }
}

}  // namespace

bool writeChannels(const WavReader& source, std::span<const ChannelOutput> outputs,
                   const ByteProgress& progress) {
    const WAVFmtChunk& fmt = source.fmt();
    std::size_t bytesPerSample = 0;
    for (const ChannelOutput& output : outputs) {
        bytesPerSample = checkSource(fmt, output.channel);
    }
    if (outputs.empty()) {
        return true;
    }
    const std::array<std::uint8_t, 16> fmtPayload = monoFmt(fmt, bytesPerSample);
    const std::size_t block = fmt.blockAlign;
    const auto frames = static_cast<std::uint64_t>(source.frameCount());
    const std::uint64_t dataSize = frames * bytesPerSample;

    // Every header first, so a layout that cannot be written fails before
    // any output has a byte.
    std::vector<ByteBuffer> heads;
    std::uint64_t total = 0;
    for (const ChannelOutput& output : outputs) {
        std::vector<RIFFLayout::Chunk> sizes{{"fmt ", fmtPayload.size()}};
        for (const auto& [id, payload] : output.extraChunks) {
            sizes.push_back({id, payload.size()});
        }
        sizes.push_back({"data", dataSize});
        const RIFFLayout layout(sizes, frames);
        ByteBuffer head = layout.fileHeader();
        auto append = [&head](const ByteBuffer& bytes) {
            head.insert(head.end(), bytes.begin(), bytes.end());
        };
        append(layout.chunkHeader(0));
        head.insert(head.end(), fmtPayload.begin(), fmtPayload.end());
        for (std::size_t i = 0; i < output.extraChunks.size(); ++i) {
            const ByteBuffer& payload = output.extraChunks[i].second;
            append(layout.chunkHeader(i + 1));
            append(payload);
            head.resize(head.size() + RIFFLayout::padding(payload.size()), 0);
        }
        append(layout.chunkHeader(sizes.size() - 1));
        heads.push_back(std::move(head));
        total += layout.totalSize();
    }
    std::uint64_t done = 0;
    for (std::size_t i = 0; i < outputs.size(); ++i) {
        outputs[i].out->write(heads[i]);
        done += heads[i].size();
    }

    const std::uint64_t perBlock = std::max<std::uint64_t>(1, WavReader::kBlockBytes / block);
    const auto blockFrames =
        static_cast<std::size_t>(std::min(perBlock, std::max<std::uint64_t>(frames, 1)));
    ByteBuffer in(blockFrames * block + 1);  // + the byte a three-byte move reads past
    std::vector<ByteBuffer> mono(outputs.size(), ByteBuffer(blockFrames * bytesPerSample + 1));
    std::vector<std::size_t> offsets;
    std::vector<std::uint8_t*> to;
    for (std::size_t k = 0; k < outputs.size(); ++k) {
        offsets.push_back(static_cast<std::size_t>(outputs[k].channel) * bytesPerSample);
        to.push_back(mono[k].data());
    }
    for (std::uint64_t at = 0; at < frames; at += perBlock) {
        const std::size_t n = static_cast<std::size_t>(std::min(perBlock, frames - at));
        source.readFrames(static_cast<std::int64_t>(at), static_cast<std::int64_t>(n),
                          std::as_writable_bytes(std::span<std::uint8_t>(in)));
        switch (bytesPerSample) {
            case 2:
                deinterleave<2>(in.data(), block, n, offsets, to);
                break;
            case 3:
                deinterleave<3>(in.data(), block, n, offsets, to);
                break;
            default:
                deinterleave<4>(in.data(), block, n, offsets, to);
                break;
        }
        for (std::size_t k = 0; k < outputs.size(); ++k) {
            outputs[k].out->write(ByteView(mono[k].data(), n * bytesPerSample));
            done += n * bytesPerSample;
        }
        // After every block (a few MiB of input): cancel takes effect at once.
        if (progress && !progress(done, total)) {
            return false;
        }
    }
    if (dataSize & 1) {
        const std::uint8_t pad = 0;
        for (const ChannelOutput& output : outputs) {
            output.out->write(ByteView(&pad, 1));
        }
        done += outputs.size();
    }
    if (progress) {
        progress(done, total);
    }
    return true;
}

void write(const WAVFile& file, int channelIndex, const std::filesystem::path& url,
           bool overwrite) {
    const ByteBuffer bytes = build(file, channelIndex);
    writeFile(url, bytes, overwrite ? WriteMode::replaceAtomically : WriteMode::createNew);
}

}  // namespace MonoWAVWriter
}  // namespace norvane
