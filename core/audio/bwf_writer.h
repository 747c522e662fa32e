#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/audio/riff_writer.h"
#include "core/audio/wav_file.h"
#include "core/audio/wav_reader.h"

namespace norvane {

// What a stamp writes into a copy of a WAV file: the bext fields and,
// optionally, an iXML document embedded as it is.
struct BWFStampInfo {
    std::uint64_t timeReferenceSamples = 0;  // samples since midnight
    std::string description;
    std::string originator;
    std::string originatorReference;
    std::string originationDate;  // "yyyy-MM-dd"
    std::string originationTime;  // "HH:mm:ss"
    std::optional<std::string> ixml;
};

// The chunks a stamped copy carries in place of the source's "bext" and
// "iXML" chunks, as payloads ready to write. `extra` chunks follow them (for
// instance a source iXML that could not be read, kept under another id).
struct StampChunks {
    ByteBuffer bext;
    std::optional<ByteBuffer> ixml;
    std::vector<std::pair<std::string, ByteBuffer>> extra;  // id (4 bytes), payload
};

namespace BWFWriter {

// The 602-byte bext payload (EBU Tech 3285 version 1, no CodingHistory): text
// fields are UTF-8 cut to their width in bytes and zero-filled (Description
// 0/256, Originator 256/32, OriginatorReference 288/32, OriginationDate 320/10,
// OriginationTime 330/8), TimeReference 64-bit LE at 338, Version 1 at 346,
// UMID, loudness and reserved bytes zero.
ByteBuffer encodeBext(const BWFStampInfo& stamp);

// The stamp's plain chunks: encodeBext(stamp) and the iXML text as it is.
StampChunks stampChunks(const BWFStampInfo& stamp);

// The stamped file's bytes: the source chunks in order without any "bext" or
// "iXML" chunk, the new bext, iXML and extra chunks right after the first
// "fmt " chunk (at the front when there is none). Every other chunk is copied
// byte for byte with the id bytes it had, ASCII or not. Throws RIFFWriteError
// when the result would not fit the 32-bit RIFF sizes.
ByteBuffer build(const WAVFile& file, const StampChunks& stamp);
ByteBuffer build(const WAVFile& file, const BWFStampInfo& stamp);

// build() written in one operation: atomically replacing an existing file
// when `overwrite`, otherwise failing with EEXIST if `url` exists. Errors of
// the file system are std::filesystem::filesystem_error.
void write(const WAVFile& file, const StampChunks& stamp, const std::filesystem::path& url,
           bool overwrite);
void write(const WAVFile& file, const BWFStampInfo& stamp, const std::filesystem::path& url,
           bool overwrite);

// The chunks of the stamped copy of `source`, in the order build() writes
// them. Chunks the reader holds are views into it, the others (the audio,
// large chunks) ranges of its file; all stay valid while `source` and `stamp`
// live.
// With `frames` [first, end), every "data" chunk carries only those frames of
// the audio (a segment of a recording).
std::vector<RIFFStreamChunk> stampedChunks(
    const WavReader& source, const StampChunks& stamp,
    std::optional<std::pair<std::int64_t, std::int64_t>> frames = std::nullopt);

// The stamped copy streamed into `out` (not committed): the bytes build()
// gives for the same file up to 4 GiB, an RF64 file beyond; the audio is
// copied in blocks (by the kernel where it can), never held in memory.
// Returns false when `progress` asked to stop.
bool write(const WavReader& source, const StampChunks& stamp, OutputFile& out,
           const ByteProgress& progress = {},
           std::optional<std::pair<std::int64_t, std::int64_t>> frames = std::nullopt);

}  // namespace BWFWriter
}  // namespace norvane
