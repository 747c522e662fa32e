#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/timecode/timecode.h"

namespace norvane {

// The id under which a source iXML that cannot be parsed is kept, byte for
// byte, beside a new "iXML" chunk: readers find exactly one "iXML" chunk, ours,
// and nothing of the recorder's document is lost.
inline constexpr const char* kUnreadableIXMLChunkId = "oXML";

// One element of an iXML document, kept whole so that a rewrite loses nothing:
// name, attributes in document order, its character data (whitespace-only
// text between child elements is layout and is dropped) and its children in
// document order, known or not.
struct IXMLElement {
    std::string name;
    std::vector<std::pair<std::string, std::string>> attributes;
    std::string text;
    std::vector<IXMLElement> children;

    friend bool operator==(const IXMLElement&, const IXMLElement&) = default;

    // The first direct child named `childName`, or null.
    const IXMLElement* child(std::string_view childName) const;
    IXMLElement* child(std::string_view childName);
    // The text of the first direct child named `childName`, or nullopt.
    std::optional<std::string> childText(std::string_view childName) const;
    // The first child named `childName`, appended (empty) when there is none.
    IXMLElement& ensureChild(std::string_view childName);
    // Sets the text of the first child named `childName`, appending it when missing.
    void setChildText(std::string_view childName, std::string value);
};

// One <TRACK> of a <TRACK_LIST>: CHANNEL_INDEX is the recorder's track number,
// INTERLEAVE_INDEX the 1-based position of the track in the file's frames.
struct IXMLTrack {
    std::optional<int> channelIndex;
    std::optional<int> interleaveIndex;
    std::string name;

    friend bool operator==(const IXMLTrack&, const IXMLTrack&) = default;
};

// What a timecode stamp writes into an iXML document.
struct IXMLStampValues {
    FrameRateConfig rate;
    Timecode start;
    std::uint64_t timeReferenceSamples = 0;  // the bext TimeReference
    std::uint32_t sampleRate = 0;            // the file's own rate, Hz
};

namespace IXML {

// Parses an iXML chunk's text (UTF-8; trailing NUL and space padding that
// recorders leave after the root is ignored) with expat. No DTD or entity
// declaration is accepted. nullopt when the text is not a well-formed document.
std::optional<IXMLElement> parse(std::string_view text);

// The document as text: an XML declaration, then the tree indented by tabs as
// recorders write it, with &, <, > (and " in attributes) escaped. parse() of the
// result gives back an equal tree.
std::string serialize(const IXMLElement& root);

// The rate as iXML writes it in <SPEED>: "24000/1001", "25/1", "30000/1001".
std::string rationalRate(const FrameRateConfig& rate);

// Sets the stamp in a parsed document, keeping every other element: the
// top-level TIMECODE_RATE (the rate's label), TIMECODE_FLAG (DF/NDF) and
// TIMECODE, and in <SPEED> (created when missing) TIMECODE_RATE as a rational,
// TIMECODE_FLAG, TIMESTAMP_SAMPLE_RATE and TIMESTAMP_SAMPLES_SINCE_MIDNIGHT_HI/LO
// (the 64-bit time reference split at 2^32, written as ten digits the way
// recorders do).
void mergeStamp(IXMLElement& root, const IXMLStampValues& stamp);

// The timecode rate a document declares: <SPEED><TIMECODE_RATE> ("24000/1001",
// also a decimal such as "23.976") with <SPEED><TIMECODE_FLAG>, else the
// top-level TIMECODE_RATE/TIMECODE_FLAG. The result carries the matching
// preset label when there is one ("23.976", "29.97 DF"). nullopt when absent
// or not understood.
std::optional<FrameRateConfig> timecodeRate(const IXMLElement& root);

// <SPEED><TIMESTAMP_SAMPLES_SINCE_MIDNIGHT_HI/LO> joined to 64 bits, or nullopt.
std::optional<std::uint64_t> samplesSinceMidnight(const IXMLElement& root);

// The tracks of <TRACK_LIST>, in document order.
std::vector<IXMLTrack> tracks(const IXMLElement& root);

// The name of the track that sits at interleave position `channelNumber`
// (1-based): the TRACK whose INTERLEAVE_INDEX matches, else the
// `channelNumber`-th TRACK when no track gives an interleave index. Empty
// when unknown.
std::string trackName(const IXMLElement& root, int channelNumber);

// The document of one channel split out of a multichannel file: every element
// of `root` kept, <TRACK_LIST> reduced to that channel's TRACK (all its
// elements kept) with CHANNEL_INDEX and INTERLEAVE_INDEX 1 and TRACK_COUNT 1.
// A source without a track for that channel gets a TRACK with the indices only.
IXMLElement forSingleChannel(const IXMLElement& root, int channelNumber);

}  // namespace IXML
}  // namespace norvane
