#pragma once

// What the timeline rebuild reads from a source timeline (FCPXML as editors
// export it): the video formats, the media assets, the multicam media with
// their angles, and the camera clips of the project's sequence: on the
// primary storyline, in connected storylines and connected to other clips.
//
// Times are read in every form exports write ("1001/30000s", "26s", with or
// without the "s"); a clip without `start` starts where its media starts.

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "core/common/error.h"
#include "core/rebuild/rational_time.h"
#include "core/rebuild/xml_tree.h"
#include "core/timecode/timecode.h"

namespace norvane {

using XMLAttributes = std::vector<std::pair<std::string, std::string>>;

// The value of `key` in `attrs`, or nullopt.
std::optional<std::string_view> attributeValue(const XMLAttributes& attrs, std::string_view key);

// A failure to read the source timeline. All three cases belong to the domain
// "ResolveTimelineRebuildEngine"; the message is the user-facing description.
class SourceTimelineError : public Error {
  public:
    static constexpr std::string_view kDomain = "ResolveTimelineRebuildEngine";
    enum class Code { notUTF8 = 1, parseFailed = 2, missingStructure = 3 };

    // "Source XML is not UTF-8."
    static SourceTimelineError notUTF8();
    // The parser's own description, or "Failed to parse source XML." when empty.
    static SourceTimelineError parseFailed(const std::string& parserDescription);
    // "Source XML missing resources/sequence/spine."
    static SourceTimelineError missingStructure();

    Code code() const { return code_; }
    int codeNumber() const { return static_cast<int>(code_); }
    std::string_view domain() const { return kDomain; }

  private:
    SourceTimelineError(Code code, const std::string& message) : Error(message), code_(code) {}
    Code code_;
};

struct SourceFormat {
    std::string id;
    XMLAttributes attrs;
    std::optional<RationalTime> frameDuration;
};

struct SourceAsset {
    std::string id;
    XMLAttributes attrs;
    std::optional<XMLAttributes> mediaRep;  // the first media-rep child
    bool hasVideo = false;
};

// A camera clip: on a lane of the sequence, or inside a multicam angle.
// [start, start + duration) is the range of the clip's own media it shows;
// startFrame and durationFrames are the same range in sequence frames
// (durationFrames at least 1). These frames are what event matching compares.
struct CameraCandidate {
    std::int64_t laneRaw = 0;
    std::string assetRef;
    std::string clipName;
    std::optional<std::string> formatID;
    RationalTime start;
    RationalTime duration;
    std::int64_t startFrame = 0;
    std::int64_t durationFrames = 1;
    // The source element: "asset-clip", "clip", "sync-clip" or "ref-clip".
    // For a clip or sync-clip, assetRef is the asset of its video; for a
    // ref-clip it is the compound clip's media.
    std::string elementName = "asset-clip";
    // The range the clip's media covers in media time (the asset's, or the
    // compound sequence's), when the source gives it. A clip placed on the
    // rebuilt timeline never runs past it.
    std::optional<TimeRange> mediaRange;
    // Position in the parent's timeline (multicam angle clips use it to map
    // media time to multicam time), when it parses.
    std::optional<RationalTime> offset;
    // The clip's own tcFormat when it is "DF" or "NDF".
    std::optional<std::string> tcFormat;
};

struct MulticamAngle {
    std::string angleID;
    std::string name;
    std::vector<CameraCandidate> clips;
};

// A `media` resource holding a `multicam`. [startFrame, endFrame) is the range
// its angle clips cover in their media time, in sequence frames (0, 0 when no
// angle clip could be read).
struct MulticamMedia {
    std::string id;
    std::string name;
    std::string formatID;
    RationalTime tcStart;
    std::string tcFormat;
    std::vector<MulticamAngle> angles;
    std::string defaultAngleID;          // the first angle's id
    const XMLNode* mediaNode = nullptr;  // owned by SourceContext::document
    std::int64_t startFrame = 0;
    std::int64_t endFrame = 0;
};

// An mc-clip on a lane of the sequence.
struct MulticamCandidate {
    std::int64_t laneRaw = 0;
    MulticamMedia multicam;
    std::string clipName;
    std::string angleID;
    RationalTime start;
    RationalTime duration;
    std::int64_t startFrame = 0;
    std::int64_t durationFrames = 1;
};

using VideoCandidate = std::variant<CameraCandidate, MulticamCandidate>;

// One video lane of the source, in ascending source lane order.
struct VideoSource {
    std::int64_t sourceIndex = 0;
    std::int64_t rawLane = 0;
    std::int64_t outputLane = 1;  // camera lanes go above the event: 1, 2, ...
    std::string label;            // "V1", "V2", ...
    std::vector<VideoCandidate> candidates;
};

struct SourceContext {
    std::vector<SourceFormat> formats;
    std::map<std::string, SourceAsset> assetsByID;
    std::map<std::string, MulticamMedia> multicamMediaByID;
    // The root's version attribute ("1.9", "1.13"), empty when absent.
    std::string version;
    std::string sequenceFormatID = "r0";
    std::string sequenceTCFormat = "NDF";
    FrameRateConfig frameRate;
    std::vector<CameraCandidate> candidates;
    std::vector<MulticamCandidate> multicamCandidates;
    std::vector<VideoSource> videoSources;
    // Every `media` resource holding a compound clip's sequence, by id.
    std::map<std::string, const XMLNode*, std::less<>> compoundMediaByID;
    // The parsed document, kept for the generator (MulticamMedia::mediaNode).
    std::shared_ptr<const XMLNode> document;

    // The source's format element of the sequence, if it has one.
    const SourceFormat* sequenceFormat() const;
    const SourceFormat* format(std::string_view id) const;
    // The first multicam candidate over all video sources, in order.
    const MulticamCandidate* firstMulticam() const;
};

// "24", "25", "23.976", "29.97", "59.94 DF": the rate with at most three
// decimals (trailing zeros dropped) and " DF" for drop-frame.
std::string frameRateLabel(std::int64_t numerator, std::int64_t denominator, bool dropFrame);

// Reads a source timeline. Throws SourceTimelineError (codes 1 to 3); a
// context is returned only whole.
SourceContext readSourceTimeline(std::string_view sourceBytes);

}  // namespace norvane
