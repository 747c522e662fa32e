#pragma once

// Builds WAV files byte by byte for tests, independently of core/audio, so
// that readers and writers are checked against a second implementation.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/common/bytes.h"

namespace norvane::testing {

// Format tags.
inline constexpr std::uint16_t kWavPCM = 1;
inline constexpr std::uint16_t kWavFloat = 3;
inline constexpr std::uint16_t kWavExtensible = 0xFFFE;

// A chunk to place in a file. `declaredSize` replaces the size field (for
// lying or truncated headers); the payload is written as given, followed by a
// pad byte when its length is odd (unless `pad` is false).
struct WavChunkSpec {
    WavChunkSpec(std::string id_, ByteBuffer payload_,
                 std::optional<std::uint32_t> declaredSize_ = std::nullopt, bool pad_ = true)
        : id(std::move(id_)),
          payload(std::move(payload_)),
          declaredSize(declaredSize_),
          pad(pad_) {}

    std::string id;
    ByteBuffer payload;
    std::optional<std::uint32_t> declaredSize;
    bool pad = true;
};

struct WavRecipe {
    std::uint16_t format = kWavPCM;     // 1, 3, 0xFFFE or anything else
    std::uint16_t subFormat = kWavPCM;  // for 0xFFFE: 1 (PCM) or 3 (float) GUID
    std::uint16_t channels = 2;
    std::uint32_t sampleRate = 48000;
    std::uint16_t bits = 16;
    std::optional<std::uint16_t> blockAlign;  // default channels x bits / 8
    std::optional<std::uint32_t> byteRate;    // default sampleRate x blockAlign
    std::optional<ByteBuffer> fmtPayload;     // replaces the whole fmt payload

    std::int64_t frames = 0;         // zero audio of this many frames ...
    std::optional<ByteBuffer> data;  // ... unless the data bytes are given
    std::optional<std::uint32_t> dataDeclaredSize;

    std::vector<WavChunkSpec> beforeFmt;   // between "WAVE" and "fmt "
    std::vector<WavChunkSpec> beforeData;  // between "fmt " and "data"
    std::vector<WavChunkSpec> afterData;
    bool includeFmt = true;
    bool includeData = true;
    // Bytes appended after everything (a truncated trailing chunk, garbage ...).
    ByteBuffer trailing;
};

// The 16-byte (plain) or 40-byte (extensible, cbSize 22) fmt payload of a WavRecipe.
ByteBuffer makeFmtPayload(const WavRecipe& recipe);
ByteBuffer makeWav(const WavRecipe& recipe);

// Interleaves integer samples (one vector per channel, equal lengths) as
// little-endian PCM of 16, 24 or 32 bits (8 bits: unsigned, offset 128).
ByteBuffer interleavePcm(int bits, const std::vector<std::vector<std::int32_t>>& channels);
// Interleaves 32-bit IEEE floats.
ByteBuffer interleaveFloat(const std::vector<std::vector<float>>& channels);

// Complete files from per-channel samples in -1..1 (PCM: round(x x full scale)).
ByteBuffer makePcm(int bits, std::uint32_t sampleRate,
                   const std::vector<std::vector<float>>& channels);
inline ByteBuffer makePcm16(std::uint32_t sampleRate,
                            const std::vector<std::vector<float>>& channels) {
    return makePcm(16, sampleRate, channels);
}
ByteBuffer makeFloat32(std::uint32_t sampleRate, const std::vector<std::vector<float>>& channels);

// A 602-byte bext payload with the given TimeReference (offset 338) and
// Description, everything else zero.
ByteBuffer makeBextPayload(std::uint64_t timeReference, const std::string& description = {});

void writeBytes(const std::filesystem::path& path, ByteView bytes);
ByteBuffer readBytes(const std::filesystem::path& path);

// The chunks of a RIFF file as (id, payload) in order, walked independently;
// stops at the end or at a chunk that does not fit.
struct RawChunk {
    std::string id;
    ByteBuffer payload;
};
std::vector<RawChunk> listChunks(ByteView riff);
// The ids of listChunks(riff), in order.
std::vector<std::string> chunkIds(ByteView riff);

}  // namespace norvane::testing
