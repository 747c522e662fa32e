#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "core/common/bytes.h"
#include "core/common/error.h"

namespace norvane {

// A WAV that cannot be written because a 32-bit RIFF field would overflow.
class RIFFWriteError : public Error {
  public:
    enum class Kind { outputTooLarge, byteRateTooLarge };

    // "Output would exceed the 4 GiB WAV size limit."
    static RIFFWriteError outputTooLarge();
    static RIFFWriteError byteRateTooLarge();

    Kind kind() const { return kind_; }

  private:
    RIFFWriteError(Kind kind, const std::string& message) : Error(message), kind_(kind) {}
    Kind kind_;
};

// One chunk to serialize: a four-character id and its payload (a view; the
// caller keeps the bytes alive until serializeRIFF returns).
struct RIFFChunk {
    std::string_view id;
    ByteView payload;
};

// The size of "RIFF" + size + "WAVE" + the chunks as serializeRIFF writes them.
std::uint64_t serializedRIFFSize(std::span<const RIFFChunk> chunks);

// "RIFF", a 32-bit LE size of 4 + the serialized chunks, "WAVE", then each
// chunk as id, 32-bit LE payload length, payload and a zero pad byte after an
// odd-length payload (the pad counts in the RIFF size, not in the chunk's).
// Throws RIFFWriteError::outputTooLarge before allocating anything when a
// payload or the RIFF size does not fit 32 bits.
ByteBuffer serializeRIFF(std::span<const RIFFChunk> chunks);

}  // namespace norvane
