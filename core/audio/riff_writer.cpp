#include "core/audio/riff_writer.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <stdexcept>

#include "core/common/file_output.h"

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

void appendBytes(ByteBuffer& to, ByteView bytes) {
    if (!bytes.empty()) {
        const std::size_t at = to.size();
        to.resize(at + bytes.size());
        std::memcpy(to.data() + at, bytes.data(), bytes.size());
    }
}
}  // namespace

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

RIFFLayout::RIFFLayout(std::vector<Chunk> chunks, std::uint64_t frameCount)
    : chunks_(std::move(chunks)), frameCount_(frameCount) {
    std::uint64_t body = 4;  // "WAVE"
    for (const Chunk& chunk : chunks_) {
        if (chunk.id.size() != 4) {
            throw std::invalid_argument("RIFF chunk ids have four characters");
        }
        body += 8 + chunk.size + padding(chunk.size);
        if (chunk.id == "data") {
            dataSize_ = chunk.size;
        }
    }
    rf64_ = body > kMax32;
    if (rf64_) {
        body += 8 + 28;  // the ds64 chunk
        for (const Chunk& chunk : chunks_) {
            if (chunk.size > kMax32 && chunk.id != "data") {
                throw RIFFWriteError::outputTooLarge();
            }
        }
    }
    total_ = 8 + body;
}

ByteBuffer RIFFLayout::fileHeader() const {
    ByteBuffer out;
    out.reserve(48);
    if (!rf64_) {
        appendText(out, "RIFF");
        appendLE32(out, static_cast<std::uint32_t>(total_ - 8));
        appendText(out, "WAVE");
        return out;
    }
    appendText(out, "RF64");
    appendLE32(out, 0xFFFFFFFF);
    appendText(out, "WAVE");
    appendText(out, "ds64");
    appendLE32(out, 28);
    appendLE64(out, total_ - 8);
    appendLE64(out, dataSize_);
    appendLE64(out, frameCount_);
    appendLE32(out, 0);  // no table: only the data chunk passes 4 GiB
    return out;
}

ByteBuffer RIFFLayout::chunkHeader(std::size_t i) const {
    const Chunk& chunk = chunks_.at(i);
    ByteBuffer out;
    out.reserve(8);
    appendText(out, chunk.id);
    appendLE32(out,
               rf64_ && chunk.id == "data" ? 0xFFFFFFFF : static_cast<std::uint32_t>(chunk.size));
    return out;
}

bool writeRIFF(OutputFile& out, std::span<const RIFFStreamChunk> chunks, std::uint64_t frameCount,
               const ByteProgress& progress) {
    std::vector<RIFFLayout::Chunk> sizes;
    sizes.reserve(chunks.size());
    for (const RIFFStreamChunk& chunk : chunks) {
        sizes.push_back({chunk.id, chunk.size()});
    }
    const RIFFLayout layout(std::move(sizes), frameCount);
    const std::uint64_t total = layout.totalSize();
    std::uint64_t done = 0;
    // Small pieces are gathered and written together.
    ByteBuffer pending = layout.fileHeader();
    auto flush = [&] {
        out.write(pending);
        done += pending.size();
        pending.clear();
    };
    for (std::size_t i = 0; i < chunks.size(); ++i) {
        const RIFFStreamChunk& chunk = chunks[i];
        appendBytes(pending, layout.chunkHeader(i));
        if (!chunk.fromFile) {
            appendBytes(pending, chunk.payload);
        } else {
            flush();
            const FileRange& range = *chunk.fromFile;
            for (std::uint64_t at = 0; at < range.size;) {
                if (progress && !progress(done, total)) {
                    return false;
                }
                const std::uint64_t n = std::min(kProgressBytes, range.size - at);
                out.copyFrom(range.fd, range.offset + at, n);
                at += n;
                done += n;
            }
        }
        if (RIFFLayout::padding(chunk.size())) {
            pending.push_back(0);
        }
    }
    flush();
    if (progress) {
        progress(done, total);
    }
    return true;
}

}  // namespace norvane
