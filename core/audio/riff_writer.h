#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

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

class OutputFile;

// Bytes written so far and the total of one output; returns false to stop
// (the caller cancels). Called at least every kProgressBytes.
using ByteProgress = std::function<bool(std::uint64_t done, std::uint64_t total)>;
inline constexpr std::uint64_t kProgressBytes = std::uint64_t{8} << 20;

// A range of an open file, copied into an output without being held in
// memory (the audio of a source).
struct FileRange {
    int fd = -1;
    std::uint64_t offset = 0;
    std::uint64_t size = 0;
};

// One chunk of a streamed file: its id and its payload, in memory or in a file.
struct RIFFStreamChunk {
    std::string id;
    ByteView payload;  // when `fromFile` is empty
    std::optional<FileRange> fromFile;

    std::uint64_t size() const { return fromFile ? fromFile->size : payload.size(); }
};

// The framing of a WAV file whose chunk sizes are known before any payload
// is written. Up to 4 GiB it is the RIFF file serializeRIFF writes, byte for
// byte. Beyond, it is RF64: "RF64", 0xFFFFFFFF, "WAVE", a 28-byte ds64 chunk
// (RIFF size, data size, sample count, an empty table) and 0xFFFFFFFF in the
// data chunk's size field. Throws RIFFWriteError::outputTooLarge when a chunk
// other than data passes 4 GiB.
class RIFFLayout {
  public:
    struct Chunk {
        std::string id;  // four characters
        std::uint64_t size = 0;
    };
    // `frameCount` is the ds64 sample count (frames of the data chunk).
    RIFFLayout(std::vector<Chunk> chunks, std::uint64_t frameCount);

    bool rf64() const { return rf64_; }
    std::uint64_t totalSize() const { return total_; }
    // "RIFF"/"RF64", size, "WAVE" and, for RF64, the ds64 chunk.
    ByteBuffer fileHeader() const;
    // Id and 32-bit size of chunk `i`.
    ByteBuffer chunkHeader(std::size_t i) const;
    // 1 after an odd-length payload: the zero pad byte.
    static std::size_t padding(std::uint64_t size) { return static_cast<std::size_t>(size & 1); }

  private:
    std::vector<Chunk> chunks_;
    std::uint64_t frameCount_ = 0;
    std::uint64_t dataSize_ = 0;
    std::uint64_t total_ = 0;
    bool rf64_ = false;
};

// The chunks written to `out` in the layout of RIFFLayout, file ranges copied
// by the kernel where it can. `progress` may stop the copy: then false is
// returned and the output is incomplete (not committed by the caller).
bool writeRIFF(OutputFile& out, std::span<const RIFFStreamChunk> chunks, std::uint64_t frameCount,
               const ByteProgress& progress = {});

}  // namespace norvane
