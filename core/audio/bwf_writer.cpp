#include "core/audio/bwf_writer.h"

#include <algorithm>
#include <vector>

#include "core/audio/bext.h"
#include "core/audio/riff_writer.h"
#include "core/common/file_output.h"

namespace norvane::BWFWriter {

ByteBuffer encodeBext(const BWFStampInfo& stamp) {
    // Version 1, no UMID, loudness or coding history: the 602 fixed bytes.
    BextChunk bext;
    bext.description = stamp.description;
    bext.originator = stamp.originator;
    bext.originatorReference = stamp.originatorReference;
    bext.originationDate = stamp.originationDate;
    bext.originationTime = stamp.originationTime;
    bext.timeReference = stamp.timeReferenceSamples;
    bext.version = 1;
    return norvane::encodeBext(bext);
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
