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

ByteBuffer build(const WAVFile& file, const BWFStampInfo& stamp) {
    const ByteBuffer bext = encodeBext(stamp);
    const ByteView ixml = stamp.ixml
                              ? ByteView(reinterpret_cast<const std::uint8_t*>(stamp.ixml->data()),
                                         stamp.ixml->size())
                              : ByteView();
    std::vector<RIFFChunk> chunks;
    chunks.reserve(file.chunks().size() + 2);
    auto addStamp = [&] {
        chunks.push_back({"bext", bext});
        if (stamp.ixml) {
            chunks.push_back({"iXML", ixml});
        }
    };
    bool inserted = false;
    for (const WAVChunk& chunk : file.chunks()) {
        // An id that was not ASCII was read as "" and cannot be written back.
        if (chunk.id == "bext" || chunk.id == "iXML" || chunk.id.size() != 4) {
            continue;
        }
        chunks.push_back({chunk.id, chunk.data});
        if (!inserted && chunk.id == "fmt ") {
            addStamp();
            inserted = true;
        }
    }
    if (!inserted) {
        chunks.insert(chunks.begin(), {"bext", bext});
        if (stamp.ixml) {
            chunks.insert(chunks.begin() + 1, {"iXML", ixml});
        }
    }
    return serializeRIFF(chunks);
}

void write(const WAVFile& file, const BWFStampInfo& stamp, const std::filesystem::path& url,
           bool overwrite) {
    const ByteBuffer bytes = build(file, stamp);
    writeFile(url, bytes, overwrite ? WriteMode::replaceAtomically : WriteMode::createNew);
}

}  // namespace norvane::BWFWriter
