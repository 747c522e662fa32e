#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "core/audio/bwf_writer.h"
#include "core/audio/ixml.h"
#include "core/audio/wav_file.h"
#include "core/timecode/timecode.h"

namespace norvane {

// The timecode and identity one stamped output is given.
struct StampValues {
    FrameRateConfig rate;
    Timecode start;
    std::uint64_t timeReference = 0;  // bext TimeReference, samples since midnight
    std::string originatorReference;  // used only when the source has none
    std::string originationDate;      // "yyyy-MM-dd", used only when the source has none
    std::string originationTime;      // "HH:mm:ss", idem
};

// The chunks of a stamped copy and what the user should know about them.
struct StampMetadata {
    StampChunks chunks;
    std::vector<std::string> warnings;
};

namespace StampMetadataComposer {

// What a stamp writes for `source`, merging with the recorder's metadata
// instead of replacing it:
// - bext: a source bext keeps its description, originator, originator
//   reference, origination date and time, UMID, loudness fields, reserved
//   bytes and version (at least 1); ours fill only the empty text fields; the
//   TimeReference is the stamp's, and one coding-history line is appended.
//   Without a source bext: "Stamped by Norvane", "Norvane" and the values
//   given, as a plain 602-byte chunk.
// - iXML: a source document keeps every element, with the timecode elements
//   and <SPEED> set (IXML::mergeStamp). Without one: the plain document of
//   JobExecutor::ixmlDocument. A source iXML that is not well-formed is kept
//   under kUnreadableIXMLChunkId with a warning, and the plain document is written.
StampMetadata compose(const WAVFile& source, const StampValues& stamp);

// The iXML written when the source has none (or one that does not parse): the
// stamp's top-level TIMECODE_RATE / TIMECODE_FLAG / TIMECODE and a <SPEED>
// block with the rational rate ("24000/1001"), the flag, TIMESTAMP_SAMPLE_RATE
// and TIMESTAMP_SAMPLES_SINCE_MIDNIGHT_HI/LO.
std::string plainIXML(const StampValues& stamp, std::uint32_t sampleRate);

// The coding-history line a stamp appends (EBU R 98):
// "A=PCM,F=48000,W=24,M=stereo,T=Norvane LTC stamp\r\n".
std::string codingHistoryLine(const WAVFmtChunk& fmt);

}  // namespace StampMetadataComposer
}  // namespace norvane
