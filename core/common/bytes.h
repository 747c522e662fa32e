#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace norvane {

using ByteBuffer = std::vector<std::uint8_t>;
using ByteView = std::span<const std::uint8_t>;

// Little-endian reads at an offset, byte by byte. The caller guarantees bounds.
inline std::uint16_t readLE16(ByteView b, std::size_t at) {
    return static_cast<std::uint16_t>(b[at] | (b[at + 1] << 8));
}
inline std::uint32_t readLE32(ByteView b, std::size_t at) {
    return static_cast<std::uint32_t>(b[at]) | (static_cast<std::uint32_t>(b[at + 1]) << 8) |
           (static_cast<std::uint32_t>(b[at + 2]) << 16) |
           (static_cast<std::uint32_t>(b[at + 3]) << 24);
}
inline std::uint64_t readLE64(ByteView b, std::size_t at) {
    return static_cast<std::uint64_t>(readLE32(b, at)) |
           (static_cast<std::uint64_t>(readLE32(b, at + 4)) << 32);
}

inline void appendLE16(ByteBuffer& out, std::uint16_t v) {
    out.push_back(static_cast<std::uint8_t>(v & 0xFF));
    out.push_back(static_cast<std::uint8_t>(v >> 8));
}
inline void appendLE32(ByteBuffer& out, std::uint32_t v) {
    for (int i = 0; i < 4; ++i) {
        out.push_back(static_cast<std::uint8_t>((v >> (8 * i)) & 0xFF));
    }
}
inline void appendLE64(ByteBuffer& out, std::uint64_t v) {
    for (int i = 0; i < 8; ++i) {
        out.push_back(static_cast<std::uint8_t>((v >> (8 * i)) & 0xFF));
    }
}
inline void writeLE16(std::uint8_t* at, std::uint16_t v) {
    at[0] = static_cast<std::uint8_t>(v & 0xFF);
    at[1] = static_cast<std::uint8_t>(v >> 8);
}
inline void writeLE32(std::uint8_t* at, std::uint32_t v) {
    for (int i = 0; i < 4; ++i) {
        at[i] = static_cast<std::uint8_t>((v >> (8 * i)) & 0xFF);
    }
}
inline void writeLE64(std::uint8_t* at, std::uint64_t v) {
    for (int i = 0; i < 8; ++i) {
        at[i] = static_cast<std::uint8_t>((v >> (8 * i)) & 0xFF);
    }
}

inline void appendText(ByteBuffer& out, std::string_view text) {
    out.insert(out.end(), text.begin(), text.end());
}

}  // namespace norvane
