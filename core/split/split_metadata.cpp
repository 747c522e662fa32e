#include "core/split/split_metadata.h"

#include <algorithm>
#include <string>

namespace norvane::SplitMetadata {

namespace {

constexpr std::size_t kMaxNameBytes = 64;

}  // namespace

SplitSourceMetadata read(const WAVFile& source) {
    SplitSourceMetadata metadata;
    metadata.fmt = source.fmt();
    if (const WAVChunk* bext = source.firstChunk("bext")) {
        metadata.bext = decodeBext(bext->data);
    }
    if (const WAVChunk* ixml = source.firstChunk("iXML")) {
        metadata.ixml = IXML::parse(std::string(ixml->data.begin(), ixml->data.end()));
        if (!metadata.ixml) {
            metadata.unreadableIXML = ByteBuffer(ixml->data.begin(), ixml->data.end());
        }
    }
    return metadata;
}

std::vector<std::pair<std::string, ByteBuffer>> monoChunks(const SplitSourceMetadata& source,
                                                           int channelIndex) {
    std::vector<std::pair<std::string, ByteBuffer>> chunks;
    if (source.bext) {
        BextChunk bext = *source.bext;
        if (!bext.codingHistory.empty() && !bext.codingHistory.ends_with("\r\n")) {
            bext.codingHistory += "\r\n";
        }
        bext.codingHistory += "A=PCM,F=" + std::to_string(source.fmt.sampleRate) +
                              ",W=" + std::to_string(source.fmt.bitsPerSample) +
                              ",M=mono,T=Norvane split channel " +
                              std::to_string(channelIndex + 1) + "\r\n";
        chunks.emplace_back("bext", encodeBext(bext));
    }
    if (source.ixml) {
        const std::string text =
            IXML::serialize(IXML::forSingleChannel(*source.ixml, channelIndex + 1));
        chunks.emplace_back("iXML", ByteBuffer(text.begin(), text.end()));
    } else if (source.unreadableIXML) {
        chunks.emplace_back(kUnreadableIXMLChunkId, *source.unreadableIXML);
    }
    return chunks;
}

std::string trackName(const SplitSourceMetadata& source, int channelIndex) {
    return source.ixml ? IXML::trackName(*source.ixml, channelIndex + 1) : std::string();
}

std::string fileNameSafe(std::string_view name) {
    std::string safe;
    for (char c : name) {
        const auto u = static_cast<unsigned char>(c);
        const bool forbidden = u < 0x20 || u == 0x7F ||
                               std::string_view("\\/:*?\"<>|").find(c) != std::string_view::npos;
        safe += forbidden ? '_' : c;
    }
    const auto keep = [](char c) { return c != ' ' && c != '.'; };
    const auto first = std::find_if(safe.begin(), safe.end(), keep);
    const auto last = std::find_if(safe.rbegin(), safe.rend(), keep).base();
    safe = first < last ? std::string(first, last) : std::string();
    if (safe.size() > kMaxNameBytes) {
        std::size_t cut = kMaxNameBytes;
        // Never end inside a UTF-8 sequence: back up over continuation bytes.
        while (cut > 0 && (static_cast<unsigned char>(safe[cut]) & 0xC0) == 0x80) {
            --cut;
        }
        safe.resize(cut);
        while (!safe.empty() && !keep(safe.back())) {
            safe.pop_back();
        }
    }
    return safe;
}

}  // namespace norvane::SplitMetadata
