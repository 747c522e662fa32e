#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "core/common/bytes.h"

namespace norvane {

// Every field of a Broadcast Wave "bext" chunk (EBU Tech 3285 v2). Text fields
// hold the bytes up to the first NUL of their fixed-width field.
struct BextChunk {
    std::string description;              // 256 bytes at 0
    std::string originator;               // 32 bytes at 256
    std::string originatorReference;      // 32 bytes at 288
    std::string originationDate;          // 10 bytes at 320, "yyyy-mm-dd"
    std::string originationTime;          // 8 bytes at 330, "hh:mm:ss"
    std::uint64_t timeReference = 0;      // at 338: samples since midnight
    std::uint16_t version = 1;            // at 346
    std::array<std::uint8_t, 64> umid{};  // at 348: SMPTE 330M UMID, zero when absent
    // Loudness (version 2) at 412..421, each a signed 16-bit value x 100:
    // integrated loudness LUFS, loudness range LU, max true peak dBTP, max
    // momentary and max short-term loudness LUFS. Zero when absent.
    std::int16_t loudnessValue = 0;
    std::int16_t loudnessRange = 0;
    std::int16_t maxTruePeakLevel = 0;
    std::int16_t maxMomentaryLoudness = 0;
    std::int16_t maxShortTermLoudness = 0;
    std::array<std::uint8_t, 180> reserved{};  // at 422
    // From 602 to the chunk's end: CR/LF-terminated lines (EBU R 98), the NUL
    // padding that writers leave after them removed.
    std::string codingHistory;

    friend bool operator==(const BextChunk&, const BextChunk&) = default;
};

// The payload: 602 fixed bytes, text fields UTF-8 cut to their width in bytes
// and zero-filled, then the coding history without terminator.
ByteBuffer encodeBext(const BextChunk& bext);

// nullopt when the payload is shorter than the 602 fixed bytes.
std::optional<BextChunk> decodeBext(ByteView payload);

}  // namespace norvane
