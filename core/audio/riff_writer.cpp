#include "core/audio/riff_writer.h"

#include <limits>
#include <stdexcept>

namespace norvane {

RIFFWriteError RIFFWriteError::outputTooLarge() {
    return RIFFWriteError(Kind::outputTooLarge, "Output would exceed the 4 GiB WAV size limit.");
}

RIFFWriteError RIFFWriteError::byteRateTooLarge() {
    return RIFFWriteError(Kind::byteRateTooLarge,
                          "The byte rate does not fit the 32-bit WAV header field.");
}

namespace {
constexpr std::uint64_t kMax32 = std::numeric_limits<std::uint32_t>::max();
}

std::uint64_t serializedRIFFSize(std::span<const RIFFChunk> chunks) {
    std::uint64_t size = 12;
    for (const RIFFChunk& chunk : chunks) {
        size += 8 + chunk.payload.size() + (chunk.payload.size() & 1);
    }
    return size;
}

ByteBuffer serializeRIFF(std::span<const RIFFChunk> chunks) {
    const std::uint64_t total = serializedRIFFSize(chunks);
    // The RIFF size field holds everything after itself: total - 8.
    if (total - 8 > kMax32) {
        throw RIFFWriteError::outputTooLarge();
    }
    for (const RIFFChunk& chunk : chunks) {
        if (chunk.payload.size() > kMax32) {
            throw RIFFWriteError::outputTooLarge();
        }
        if (chunk.id.size() != 4) {
            throw std::invalid_argument("RIFF chunk ids have four characters");
        }
    }
    ByteBuffer out;
    out.reserve(static_cast<std::size_t>(total));
    appendText(out, "RIFF");
    appendLE32(out, static_cast<std::uint32_t>(total - 8));
    appendText(out, "WAVE");
    for (const RIFFChunk& chunk : chunks) {
        appendText(out, chunk.id);
        appendLE32(out, static_cast<std::uint32_t>(chunk.payload.size()));
        out.insert(out.end(), chunk.payload.begin(), chunk.payload.end());
        if (chunk.payload.size() & 1) {
            out.push_back(0);
        }
    }
    return out;
}

}  // namespace norvane
