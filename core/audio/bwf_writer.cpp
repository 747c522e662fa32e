#include "core/audio/bwf_writer.h"

#include <algorithm>
#include <vector>

#include "core/audio/riff_writer.h"
#include "core/common/file_output.h"

namespace norvane::BWFWriter {

namespace {

constexpr std::size_t kBextSize = 602;

// The UTF-8 bytes of `text` cut to `width` (a multi-byte character may be
// cut); the rest of the field keeps its zero fill.
void putField(ByteBuffer& bext, std::size_t offset, std::size_t width, const std::string& text) {
    std::copy_n(text.begin(), std::min(width, text.size()),
                bext.begin() + static_cast<std::ptrdiff_t>(offset));
}

}  // namespace

ByteBuffer encodeBext(const BWFStampInfo& stamp) {
    ByteBuffer bext(kBextSize, 0);
    putField(bext, 0, 256, stamp.description);
    putField(bext, 256, 32, stamp.originator);
    putField(bext, 288, 32, stamp.originatorReference);
    putField(bext, 320, 10, stamp.originationDate);
    putField(bext, 330, 8, stamp.originationTime);
    writeLE64(bext.data() + 338, stamp.timeReferenceSamples);
    writeLE16(bext.data() + 346, 1);  // Version
    return bext;
}

StampChunks stampChunks(const BWFStampInfo& stamp) {
    StampChunks chunks;
    chunks.bext = encodeBext(stamp);
    if (stamp.ixml) {
        chunks.ixml = ByteBuffer(stamp.ixml->begin(), stamp.ixml->end());
    }
    return chunks;
}

ByteBuffer build(const WAVFile& file, const StampChunks& stamp) {
    std::vector<RIFFChunk> added;
    added.push_back({"bext", stamp.bext});
    if (stamp.ixml) {
        added.push_back({"iXML", *stamp.ixml});
    }
    for (const auto& [id, payload] : stamp.extra) {
        added.push_back({id, payload});
    }
    std::vector<RIFFChunk> chunks;
    chunks.reserve(file.chunks().size() + added.size());
    bool inserted = false;
    for (const WAVChunk& chunk : file.chunks()) {
        if (chunk.id == "bext" || chunk.id == "iXML") {
            continue;
        }
        chunks.push_back({chunk.writtenId(), chunk.data});
        if (!inserted && chunk.id == "fmt ") {
            chunks.insert(chunks.end(), added.begin(), added.end());
            inserted = true;
        }
    }
    if (!inserted) {
        chunks.insert(chunks.begin(), added.begin(), added.end());
    }
    return serializeRIFF(chunks);
}

std::vector<RIFFStreamChunk> stampedChunks(
    const WavReader& source, const StampChunks& stamp,
    std::optional<std::pair<std::int64_t, std::int64_t>> frames) {
    std::optional<FileRange> segment;
    if (frames) {
        const std::uint64_t block = source.fmt().blockAlign;
        const std::int64_t count = source.frameCount();
        const std::int64_t first = std::clamp<std::int64_t>(frames->first, 0, count);
        const std::int64_t end = std::clamp<std::int64_t>(frames->second, first, count);
        segment = FileRange{source.fd(),
                            source.dataChunk().offset + static_cast<std::uint64_t>(first) * block,
                            static_cast<std::uint64_t>(end - first) * block};
    }
    std::vector<RIFFStreamChunk> added;
    added.push_back({"bext", stamp.bext, std::nullopt});
    if (stamp.ixml) {
        added.push_back({"iXML", *stamp.ixml, std::nullopt});
    }
    for (const auto& [id, payload] : stamp.extra) {
        added.push_back({id, payload, std::nullopt});
    }
    std::vector<RIFFStreamChunk> chunks;
    chunks.reserve(source.chunks().size() + added.size());
    bool inserted = false;
    for (std::size_t i = 0; i < source.chunks().size(); ++i) {
        const WavChunkInfo& chunk = source.chunks()[i];
        if (chunk.idText == "bext" || chunk.idText == "iXML") {
            continue;
        }
        // Written back with the id bytes it had, ASCII or not.
        RIFFStreamChunk out{std::string(chunk.id.begin(), chunk.id.end()), {}, std::nullopt};
        if (segment && chunk.idText == "data") {
            out.fromFile = segment;
        } else if (auto held = source.heldPayload(i)) {
            out.payload = *held;
        } else {
            out.fromFile = FileRange{source.fd(), chunk.offset, chunk.size};
        }
        chunks.push_back(std::move(out));
        if (!inserted && chunk.idText == "fmt ") {
            chunks.insert(chunks.end(), added.begin(), added.end());
            inserted = true;
        }
    }
    if (!inserted) {
        chunks.insert(chunks.begin(), added.begin(), added.end());
    }
    return chunks;
}

bool write(const WavReader& source, const StampChunks& stamp, OutputFile& out,
           const ByteProgress& progress,
           std::optional<std::pair<std::int64_t, std::int64_t>> frames) {
    const std::vector<RIFFStreamChunk> chunks = stampedChunks(source, stamp, frames);
    std::uint64_t frameCount = static_cast<std::uint64_t>(source.frameCount());
    for (const RIFFStreamChunk& chunk : chunks) {
        if (chunk.id == "data" && source.fmt().blockAlign > 0) {
            frameCount = chunk.size() / source.fmt().blockAlign;
        }
    }
    return writeRIFF(out, chunks, frameCount, progress);
}

ByteBuffer build(const WAVFile& file, const BWFStampInfo& stamp) {
    return build(file, stampChunks(stamp));
}

void write(const WAVFile& file, const StampChunks& stamp, const std::filesystem::path& url,
           bool overwrite) {
    const ByteBuffer bytes = build(file, stamp);
    writeFile(url, bytes, overwrite ? WriteMode::replaceAtomically : WriteMode::createNew);
}

void write(const WAVFile& file, const BWFStampInfo& stamp, const std::filesystem::path& url,
           bool overwrite) {
    const ByteBuffer bytes = build(file, stamp);
    writeFile(url, bytes, overwrite ? WriteMode::replaceAtomically : WriteMode::createNew);
}

}  // namespace norvane::BWFWriter
