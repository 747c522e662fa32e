#include "tests/support/wav_builder.h"

#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace norvane::testing {
namespace fs = std::filesystem;

namespace {

// `bytes` little-endian bytes of `v`.
void put(ByteBuffer& out, std::uint64_t v, int bytes) {
    for (int i = 0; i < bytes; ++i) {
        out.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
    }
}

std::uint32_t get32(ByteView b, std::size_t at) {
    return b[at] | (b[at + 1] << 8) | (b[at + 2] << 16) |
           (static_cast<std::uint32_t>(b[at + 3]) << 24);
}

std::uint16_t blockAlignOf(const WavRecipe& recipe) {
    return recipe.blockAlign.value_or(
        static_cast<std::uint16_t>(recipe.channels * recipe.bits / 8));
}

}  // namespace

ByteBuffer makeFmtPayload(const WavRecipe& recipe) {
    if (recipe.fmtPayload) {
        return *recipe.fmtPayload;
    }
    const std::uint16_t blockAlign = blockAlignOf(recipe);
    ByteBuffer p;
    put(p, recipe.format, 2);
    put(p, recipe.channels, 2);
    put(p, recipe.sampleRate, 4);
    put(p, recipe.byteRate.value_or(recipe.sampleRate * blockAlign), 4);
    put(p, blockAlign, 2);
    put(p, recipe.bits, 2);
    if (recipe.format == kWavExtensible) {
        put(p, 22, 2);           // cbSize
        put(p, recipe.bits, 2);  // valid bits per sample
        put(p, 0, 4);            // channel mask
        put(p, recipe.subFormat, 2);
        p.insert(p.end(), {0x00, 0x00, 0x00, 0x00, 0x10, 0x00, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38,
                           0x9B, 0x71});
    }
    return p;
}

ByteBuffer makeWav(const WavRecipe& recipe) {
    ByteBuffer body;
    auto add = [&](const WavChunkSpec& chunk) {
        body.insert(body.end(), chunk.id.begin(), chunk.id.end());
        put(body, chunk.declaredSize.value_or(static_cast<std::uint32_t>(chunk.payload.size())), 4);
        body.insert(body.end(), chunk.payload.begin(), chunk.payload.end());
        if (chunk.pad && chunk.payload.size() % 2 == 1) {
            body.push_back(0);
        }
    };
    for (const auto& c : recipe.beforeFmt)
        add(c);
    if (recipe.includeFmt)
        add({"fmt ", makeFmtPayload(recipe)});
    for (const auto& c : recipe.beforeData)
        add(c);
    if (recipe.includeData) {
        add({"data",
             recipe.data.value_or(
                 ByteBuffer(static_cast<std::size_t>(recipe.frames) * blockAlignOf(recipe), 0)),
             recipe.dataDeclaredSize});
    }
    for (const auto& c : recipe.afterData)
        add(c);
    body.insert(body.end(), recipe.trailing.begin(), recipe.trailing.end());
    ByteBuffer out = {'R', 'I', 'F', 'F'};
    put(out, 4 + body.size(), 4);
    out.insert(out.end(), {'W', 'A', 'V', 'E'});
    out.insert(out.end(), body.begin(), body.end());
    return out;
}

ByteBuffer interleavePcm(int bits, const std::vector<std::vector<std::int32_t>>& channels) {
    ByteBuffer out;
    for (std::size_t f = 0; !channels.empty() && f < channels.front().size(); ++f) {
        for (const auto& channel : channels) {
            put(out, static_cast<std::uint32_t>(channel.at(f) + (bits == 8 ? 128 : 0)), bits / 8);
        }
    }
    return out;
}

ByteBuffer interleaveFloat(const std::vector<std::vector<float>>& channels) {
    ByteBuffer out;
    for (std::size_t f = 0; !channels.empty() && f < channels.front().size(); ++f) {
        for (const auto& channel : channels) {
            std::uint32_t u;
            std::memcpy(&u, &channel.at(f), 4);
            put(out, u, 4);
        }
    }
    return out;
}

ByteBuffer makePcm(int bits, std::uint32_t sampleRate,
                   const std::vector<std::vector<float>>& channels) {
    const double full = std::ldexp(1.0, bits - 1) - 1;
    std::vector<std::vector<std::int32_t>> ints;
    for (const auto& channel : channels) {
        std::vector<std::int32_t>& c = ints.emplace_back();
        for (float x : channel) {
            c.push_back(
                static_cast<std::int32_t>(std::round(std::fmax(-1.0, std::fmin(1.0, x)) * full)));
        }
    }
    WavRecipe recipe;
    recipe.channels = static_cast<std::uint16_t>(channels.size());
    recipe.sampleRate = sampleRate;
    recipe.bits = static_cast<std::uint16_t>(bits);
    recipe.data = interleavePcm(bits, ints);
    return makeWav(recipe);
}

ByteBuffer makeFloat32(std::uint32_t sampleRate, const std::vector<std::vector<float>>& channels) {
    WavRecipe recipe;
    recipe.format = kWavFloat;
    recipe.channels = static_cast<std::uint16_t>(channels.size());
    recipe.sampleRate = sampleRate;
    recipe.bits = 32;
    recipe.data = interleaveFloat(channels);
    return makeWav(recipe);
}

ByteBuffer makeBextPayload(std::uint64_t timeReference, const std::string& description) {
    ByteBuffer p(description.begin(),
                 description.begin() + std::min<std::size_t>(description.size(), 256));
    p.resize(338, 0);
    put(p, timeReference, 8);
    p.push_back(1);  // version
    p.resize(602, 0);
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
    for (std::size_t at = 12; at + 8 <= riff.size();) {
        const std::size_t size = get32(riff, at + 4);
        if (at + 8 + size > riff.size()) {
            break;
        }
        const auto* p = riff.data() + at;
        chunks.push_back({std::string(p, p + 4), ByteBuffer(p + 8, p + 8 + size)});
        at += 8 + size + (size & 1);
    }
    return chunks;
}

std::vector<std::string> chunkIds(ByteView riff) {
    std::vector<std::string> ids;
    for (const RawChunk& chunk : listChunks(riff)) {
        ids.push_back(chunk.id);
    }
    return ids;
}

}  // namespace norvane::testing
