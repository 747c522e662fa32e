#include "tests/support/wav_builder.h"

#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace norvane::testing {
namespace fs = std::filesystem;

namespace {

void put16(ByteBuffer& out, std::uint32_t v) {
    out.push_back(static_cast<std::uint8_t>(v));
    out.push_back(static_cast<std::uint8_t>(v >> 8));
}
void put32(ByteBuffer& out, std::uint32_t v) {
    for (int i = 0; i < 4; ++i) {
        out.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
    }
}
std::uint32_t get32(ByteView b, std::size_t at) {
    return b[at] | (b[at + 1] << 8) | (b[at + 2] << 16) |
           (static_cast<std::uint32_t>(b[at + 3]) << 24);
}

std::size_t frameLength(const std::vector<std::vector<std::int32_t>>& channels) {
    return channels.empty() ? 0 : channels.front().size();
}

}  // namespace

ByteBuffer makeFmtPayload(const WavSpec& recipe) {
    if (recipe.fmtPayload) {
        return *recipe.fmtPayload;
    }
    const std::uint16_t blockAlign =
        recipe.blockAlign.value_or(static_cast<std::uint16_t>(recipe.channels * recipe.bits / 8));
    ByteBuffer p;
    put16(p, recipe.format);
    put16(p, recipe.channels);
    put32(p, recipe.sampleRate);
    put32(p, recipe.byteRate.value_or(recipe.sampleRate * blockAlign));
    put16(p, blockAlign);
    put16(p, recipe.bits);
    if (recipe.format == kWavExtensible) {
        put16(p, 22);         // cbSize
        put16(p, recipe.bits);  // valid bits per sample
        put32(p, 0);          // channel mask
        const std::uint8_t guidTail[14] = {0x00, 0x00, 0x00, 0x00, 0x10, 0x00, 0x80,
                                           0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};
        put16(p, recipe.subFormat);
        p.insert(p.end(), std::begin(guidTail), std::end(guidTail));
    }
    return p;
}

ByteBuffer makeChunk(const WavChunkSpec& chunk) {
    if (chunk.id.size() != 4) {
        throw std::invalid_argument("chunk id must have four characters");
    }
    ByteBuffer out(chunk.id.begin(), chunk.id.end());
    put32(out, chunk.declaredSize.value_or(static_cast<std::uint32_t>(chunk.payload.size())));
    out.insert(out.end(), chunk.payload.begin(), chunk.payload.end());
    if (chunk.pad && chunk.payload.size() % 2 == 1) {
        out.push_back(0);
    }
    return out;
}

ByteBuffer makeRiff(const ByteBuffer& body) {
    ByteBuffer out = {'R', 'I', 'F', 'F'};
    put32(out, static_cast<std::uint32_t>(4 + body.size()));
    out.insert(out.end(), {'W', 'A', 'V', 'E'});
    out.insert(out.end(), body.begin(), body.end());
    return out;
}

ByteBuffer makeWav(const WavSpec& recipe) {
    ByteBuffer body;
    auto add = [&](const WavChunkSpec& c) {
        ByteBuffer bytes = makeChunk(c);
        body.insert(body.end(), bytes.begin(), bytes.end());
    };
    for (const auto& c : recipe.beforeFmt)
        add(c);
    if (recipe.includeFmt)
        add({"fmt ", makeFmtPayload(recipe), std::nullopt, true});
    for (const auto& c : recipe.beforeData)
        add(c);
    if (recipe.includeData) {
        ByteBuffer data = recipe.data.value_or(ByteBuffer(
            static_cast<std::size_t>(recipe.frames) *
                recipe.blockAlign.value_or(static_cast<std::uint16_t>(recipe.channels * recipe.bits / 8)),
            0));
        add({"data", std::move(data), recipe.dataDeclaredSize, true});
    }
    for (const auto& c : recipe.afterData)
        add(c);
    body.insert(body.end(), recipe.trailing.begin(), recipe.trailing.end());
    return makeRiff(body);
}

ByteBuffer interleavePcm(int bits, const std::vector<std::vector<std::int32_t>>& channels) {
    ByteBuffer out;
    const int bytes = bits / 8;
    for (std::size_t f = 0; f < frameLength(channels); ++f) {
        for (const auto& channel : channels) {
            std::int32_t v = channel.at(f);
            if (bits == 8) {
                v += 128;
            }
            for (int i = 0; i < bytes; ++i) {
                out.push_back(static_cast<std::uint8_t>(static_cast<std::uint32_t>(v) >> (8 * i)));
            }
        }
    }
    return out;
}

ByteBuffer interleaveFloat(const std::vector<std::vector<float>>& channels) {
    ByteBuffer out;
    const std::size_t frames = channels.empty() ? 0 : channels.front().size();
    for (std::size_t f = 0; f < frames; ++f) {
        for (const auto& channel : channels) {
            std::uint32_t u;
            std::memcpy(&u, &channel.at(f), 4);
            put32(out, u);
        }
    }
    return out;
}

ByteBuffer makePcm(int bits, std::uint32_t sampleRate,
                   const std::vector<std::vector<float>>& channels) {
    const double full = std::ldexp(1.0, bits - 1) - 1;
    std::vector<std::vector<std::int32_t>> ints;
    for (const auto& channel : channels) {
        std::vector<std::int32_t> c;
        for (float x : channel) {
            const double v = std::round(std::fmax(-1.0, std::fmin(1.0, x)) * full);
            c.push_back(static_cast<std::int32_t>(v));
        }
        ints.push_back(std::move(c));
    }
    WavSpec recipe;
    recipe.channels = static_cast<std::uint16_t>(channels.size());
    recipe.sampleRate = sampleRate;
    recipe.bits = static_cast<std::uint16_t>(bits);
    recipe.data = interleavePcm(bits, ints);
    return makeWav(recipe);
}

ByteBuffer makePcm16(std::uint32_t sampleRate, const std::vector<std::vector<float>>& channels) {
    return makePcm(16, sampleRate, channels);
}

ByteBuffer makeFloat32(std::uint32_t sampleRate, const std::vector<std::vector<float>>& channels) {
    WavSpec recipe;
    recipe.format = kWavFloat;
    recipe.channels = static_cast<std::uint16_t>(channels.size());
    recipe.sampleRate = sampleRate;
    recipe.bits = 32;
    recipe.data = interleaveFloat(channels);
    return makeWav(recipe);
}

ByteBuffer makeBextPayload(std::uint64_t timeReference, const std::string& description) {
    ByteBuffer p(602, 0);
    std::memcpy(p.data(), description.data(), std::min<std::size_t>(description.size(), 256));
    for (int i = 0; i < 8; ++i) {
        p[338 + i] = static_cast<std::uint8_t>(timeReference >> (8 * i));
    }
    p[346] = 1;  // version
    return p;
}

void writeBytes(const fs::path& path, ByteView bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
    if (!out) {
        throw std::runtime_error("cannot write " + path.string());
    }
}

ByteBuffer readBytes(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw std::runtime_error("cannot read " + path.string());
    }
    return ByteBuffer(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::vector<RawChunk> listChunks(ByteView riff) {
    std::vector<RawChunk> chunks;
    std::size_t at = 12;
    while (at + 8 <= riff.size()) {
        const std::size_t size = get32(riff, at + 4);
        if (at + 8 + size > riff.size()) {
            break;
        }
        chunks.push_back({std::string(riff.begin() + static_cast<std::ptrdiff_t>(at),
                                      riff.begin() + static_cast<std::ptrdiff_t>(at + 4)),
                          ByteBuffer(riff.begin() + static_cast<std::ptrdiff_t>(at + 8),
                                     riff.begin() + static_cast<std::ptrdiff_t>(at + 8 + size))});
        at += 8 + size + (size & 1);
    }
    return chunks;
}

}  // namespace norvane::testing
