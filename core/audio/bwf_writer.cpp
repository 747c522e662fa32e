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
