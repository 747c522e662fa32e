#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/audio/bext.h"
#include "core/audio/ixml.h"
#include "core/audio/wav_file.h"

namespace norvane {

// The recorder metadata of a multichannel file, read once and handed to every
// mono output split from it.
struct SplitSourceMetadata {
    WAVFmtChunk fmt;
    std::optional<BextChunk> bext;             // the first bext of at least 602 bytes
    std::optional<IXMLElement> ixml;           // the first iXML, when well-formed
    std::optional<ByteBuffer> unreadableIXML;  // ... its bytes when it is not
};

namespace SplitMetadata {

SplitSourceMetadata read(const WAVFile& source);

// The chunks of the mono file of channel `channelIndex` (0-based), as id and
// payload, in writing order:
// - "bext" when the source has one: every field kept (TimeReference,
//   description, originator, dates, UMID, loudness) and one coding-history
//   line appended for the split;
// - "iXML" when the source's parses: every element kept, <TRACK_LIST> holding
//   only this channel's track with CHANNEL_INDEX and INTERLEAVE_INDEX 1;
// - the source iXML's bytes under kUnreadableIXMLChunkId when it does not parse.
// A source without metadata gives none: its mono files stay "fmt " + "data".
std::vector<std::pair<std::string, ByteBuffer>> monoChunks(const SplitSourceMetadata& source,
                                                           int channelIndex);

// The iXML track name of channel `channelIndex` (0-based); empty when unknown.
std::string trackName(const SplitSourceMetadata& source, int channelIndex);

// `name` made usable inside a file name on every common file system: path
// separators, the characters \ / : * ? " < > | and control characters become
// "_", surrounding spaces and dots go, and the result is cut to at most 64
// bytes on a character boundary. Empty when nothing usable is left.
std::string fileNameSafe(std::string_view name);

}  // namespace SplitMetadata
}  // namespace norvane
