// The rebuilt timeline, written line by line.
//
// Placement:
// - Each event is one gap on the primary storyline. Gaps follow each other
//   from the timeline start (01:00:00:00 of the sequence's timecode); a gap
//   is as long as the event's longest synced file, rounded up to whole
//   sequence frames, so every gap starts on the sequence's frame grid. Every
//   offset, start and duration in the spine is a whole number of sequence
//   frames, except the start of an audio clip inside its file (sample exact).
// - A gap's own `start` is the event's timecode in seconds (on the frame
//   grid), so inside the gap
//   local time reads as the recording's timecode. Every item in the gap is
//   connected at that time (offset = gap start): the moment of the event's
//   timecode lines up in all lanes.
// - Camera lanes stand above the gap (lanes 1, 2, ... in the source's lane
//   order). A camera clip starts at the event's timecode in its own media (for
//   a multicam, the matching time in the multicam's timeline) and runs for the
//   event, but never past its media: the part of the event the media does not
//   cover is a lane gap.
// - The stereo mix is on lane -1 and the synced tracks below it, one lane per
//   track key in key order (Trk1 on -2, Trk2 on -3, ...), the same in every
//   event. A synced clip starts at its file's own start (its bext time) and
//   runs for the whole file. The stereo mix is taken as the events' audio laid
//   end to end: at each event it starts at the sum of the previous events'
//   content durations.
// - A lane left empty for an event gets a connected storyline holding one gap
//   for the event. A gap cannot be connected on its own (FCPXML does not allow
//   it), so the storyline carries the lane.
// - Resources from the source (camera assets, their formats, multicam and
//   compound clip media with their story elements) are copied with the attributes FCPXML 1.9
//   defines; times written as whole seconds ("26s") are rewritten as "26/1s".
#include "core/rebuild/fcpxml_generator.h"

#include <algorithm>
#include <functional>
#include <map>
#include <set>

#include "core/common/text.h"

namespace norvane {

std::string escapeXMLAttribute(std::string_view text) {
    std::string out = replaceAll(std::string(text), "&", "&amp;");
    out = replaceAll(std::move(out), "\"", "&quot;");
    out = replaceAll(std::move(out), "<", "&lt;");
    return replaceAll(std::move(out), ">", "&gt;");
}

std::string fileURL(const std::filesystem::path& path) {
    std::error_code ec;
    std::filesystem::path absolute = std::filesystem::absolute(path, ec);
    std::string text = (ec ? path : absolute).generic_string();
    static const char* hex = "0123456789ABCDEF";
    std::string out = "file://";
    for (unsigned char c : text) {
        // The characters a URL path may hold as they are: unreserved ones,
        // "/", ":", "@" and the sub-delimiters other than ";". So "&" stays
        // "&" (escaped as "&amp;" in the attribute) and a space becomes "%20".
        bool keep = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                    std::string_view("-._~/:@!$&'()*+,=").find(static_cast<char>(c)) !=
                        std::string_view::npos;
        if (keep) {
            out += static_cast<char>(c);
        } else {
            out += '%';
            out += hex[c >> 4];
            out += hex[c & 0xF];
        }
    }
    return out;
}

std::string syncedAssetID(std::size_t index, std::string_view baseName) {
    std::string lower = toLowerASCII(baseName);
    std::string cleaned;
    bool inRun = false;
    for (char c : lower) {
        bool ok = (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
        if (ok) {
            cleaned += c;
            inRun = false;
        } else if (!inRun) {
            cleaned += '_';
            inRun = true;
        }
    }
    return "rA_" + std::to_string(index) + "_" + cleaned;
}

namespace {

// Attributes FCPXML 1.9 defines for the resource elements we copy.
const std::map<std::string, std::set<std::string>, std::less<>>& knownAttributes() {
    static const std::map<std::string, std::set<std::string>, std::less<>> table = {
        {"format",
         {"id", "name", "frameDuration", "fieldOrder", "width", "height", "paspH", "paspV",
          "colorSpace", "projection", "stereoscopic"}},
        {"asset",
         {"id", "name", "uid", "start", "duration", "hasVideo", "format", "hasAudio",
          "videoSources", "audioSources", "audioChannels", "audioRate", "customLUTOverride",
          "colorSpaceOverride", "projectionOverride", "stereoscopicOverride"}},
        {"media-rep", {"kind", "sig", "src", "suggestedFilename"}},
        {"media", {"id", "name", "uid", "modDate"}},
        {"multicam", {"format", "duration", "tcStart", "tcFormat", "renderFormat"}},
        {"sequence",
         {"format", "duration", "tcStart", "tcFormat", "audioLayout", "audioRate", "renderFormat",
          "keywords"}},
        {"mc-angle", {"name", "angleID"}},
        {"spine", {"lane", "offset", "name", "format"}},
        {"asset-clip",
         {"ref", "lane", "offset", "name", "start", "duration", "enabled", "srcEnable",
          "audioStart", "audioDuration", "format", "tcStart", "tcFormat", "modDate", "audioRole",
          "videoRole"}},
        {"clip",
         {"lane", "offset", "name", "start", "duration", "enabled", "format", "audioStart",
          "audioDuration", "tcStart", "tcFormat", "modDate"}},
        {"sync-clip",
         {"lane", "offset", "name", "start", "duration", "enabled", "format", "audioStart",
          "audioDuration", "tcStart", "tcFormat", "modDate"}},
        {"ref-clip",
         {"ref", "lane", "offset", "name", "start", "duration", "enabled", "srcEnable",
          "audioStart", "audioDuration", "useAudioSubroles", "modDate"}},
        {"mc-clip",
         {"ref", "lane", "offset", "name", "start", "duration", "enabled", "srcEnable",
          "audioStart", "audioDuration", "modDate"}},
        {"mc-source", {"angleID", "srcEnable"}},
        {"video",
         {"ref", "lane", "offset", "name", "start", "duration", "enabled", "srcID", "role"}},
        {"audio",
         {"ref", "lane", "offset", "name", "start", "duration", "enabled", "srcID", "role", "srcCh",
          "outCh"}},
        {"gap", {"name", "offset", "start", "duration", "enabled"}},
    };
    return table;
}

bool isTimeAttribute(std::string_view key) {
    return key == "start" || key == "duration" || key == "offset" || key == "tcStart" ||
           key == "audioStart" || key == "audioDuration" || key == "frameDuration";
}

// "26s" -> "26/1s"; other text unchanged.
std::string normalisedTime(std::string_view value) {
    std::string text = trim(value);
    if (text.size() >= 2 && text.back() == 's') {
        std::string_view digits(text.data(), text.size() - 1);
        if (!digits.empty() && digits.front() == '-') {
            digits.remove_prefix(1);
        }
        if (!digits.empty() && std::all_of(digits.begin(), digits.end(),
                                           [](char c) { return c >= '0' && c <= '9'; })) {
            return text.substr(0, text.size() - 1) + "/1s";
        }
    }
    return std::string(value);
}

std::string copiedAttributes(std::string_view element, const XMLAttributes& attrs) {
    const auto& known = knownAttributes().find(element)->second;
    std::string out;
    for (const auto& [key, value] : attrs) {
        if (!known.contains(key)) {
            continue;
        }
        std::string v = isTimeAttribute(key) ? normalisedTime(value) : value;
        out += " " + key + "=\"" + escapeXMLAttribute(v) + "\"";
    }
    return out;
}

std::string attr(std::string_view key, std::string_view value) {
    return " " + std::string(key) + "=\"" + escapeXMLAttribute(value) + "\"";
}

std::string timeAttr(std::string_view key, const RationalTime& t) {
    return " " + std::string(key) + "=\"" + t.text() + "\"";
}

std::string laneAttr(std::int64_t lane) {
    return " lane=\"" + std::to_string(lane) + "\"";
}

const XMLNode* mediaNode(const SourceContext& context, std::string_view id);
bool keptInCopy(const SourceContext& context, const XMLNode& node);

// Which source resources the document needs, in the order they are written.
struct SourceResources {
    std::vector<std::string> formats;
    std::vector<std::string> assets;
    std::vector<std::string> media;
    std::set<std::string> seen;

    void addFormat(const SourceContext& context, std::string_view id) {
        if (context.format(id) != nullptr && seen.emplace("f:" + std::string(id)).second) {
            formats.emplace_back(id);
        }
    }
    void addAsset(const SourceContext& context, std::string_view id) {
        auto it = context.assetsByID.find(std::string(id));
        if (it == context.assetsByID.end() || !seen.emplace("a:" + std::string(id)).second) {
            return;
        }
        assets.emplace_back(id);
        if (auto format = attributeValue(it->second.attrs, "format")) {
            addFormat(context, *format);
        }
    }
    // A multicam or compound clip's media, with every asset, format and
    // media its copied content refers to.
    void addMedia(const SourceContext& context, std::string_view id) {
        const XMLNode* node = mediaNode(context, id);
        if (node == nullptr || !seen.emplace("m:" + std::string(id)).second) {
            return;
        }
        media.emplace_back(id);
        collect(context, *node);
    }

    void collect(const SourceContext& context, const XMLNode& node) {
        for (const auto& child : node.children) {
            if (!keptInCopy(context, *child)) {
                continue;
            }
            if (auto format = child->attr("format")) {
                addFormat(context, *format);
            }
            if (auto ref = child->attr("ref")) {
                if (context.assetsByID.contains(std::string(*ref))) {
                    addAsset(context, *ref);
                } else {
                    addMedia(context, *ref);
                }
            }
            collect(context, *child);
        }
    }
};

// The media element of a multicam or compound clip, or null.
const XMLNode* mediaNode(const SourceContext& context, std::string_view id) {
    if (auto it = context.multicamMediaByID.find(std::string(id));
        it != context.multicamMediaByID.end()) {
        return it->second.mediaNode;
    }
    auto it = context.compoundMediaByID.find(id);
    return it != context.compoundMediaByID.end() ? it->second : nullptr;
}

// What of a multicam's or compound clip's content is copied: the story
// elements and containers FCPXML 1.9 defines, when what they refer to is
// copied too. Titles, effects, markers and filters are left out.
bool keptInCopy(const SourceContext& context, const XMLNode& node) {
    static const std::set<std::string, std::less<>> containers = {
        "multicam", "sequence", "mc-angle", "spine", "gap", "clip", "sync-clip", "mc-source"};
    if (containers.contains(node.name)) {
        return true;
    }
    if (node.name == "asset-clip" || node.name == "video" || node.name == "audio") {
        auto ref = node.attr("ref");
        return ref && context.assetsByID.contains(std::string(*ref)) && node.hasAttr("duration");
    }
    if (node.name == "ref-clip" || node.name == "mc-clip") {
        auto ref = node.attr("ref");
        return ref && mediaNode(context, *ref) != nullptr && node.hasAttr("duration");
    }
    return false;
}

void writeCopy(std::vector<std::string>& lines, const SourceContext& context, const XMLNode& node,
               std::size_t indent) {
    std::string pad(indent, ' ');
    std::string open = pad + "<" + node.name + copiedAttributes(node.name, node.attrs);
    std::vector<const XMLNode*> kept;
    for (const auto& child : node.children) {
        if (keptInCopy(context, *child)) {
            kept.push_back(child.get());
        }
    }
    if (kept.empty()) {
        lines.push_back(open + "/>");
        return;
    }
    lines.push_back(open + ">");
    for (const XMLNode* child : kept) {
        writeCopy(lines, context, *child, indent + 2);
    }
    lines.push_back(pad + "</" + node.name + ">");
}

void writeSourceAsset(std::vector<std::string>& lines, const SourceAsset& asset) {
    lines.push_back("    <asset" + copiedAttributes("asset", asset.attrs) + ">");
    if (asset.mediaRep) {
        lines.push_back("      <media-rep" + copiedAttributes("media-rep", *asset.mediaRep) + "/>");
    } else {
        // Older documents name the file on the asset itself.
        auto src = attributeValue(asset.attrs, "src");
        lines.push_back("      <media-rep kind=\"original-media\"" + attr("src", src.value_or("")) +
                        "/>");
    }
    lines.push_back("    </asset>");
}

void writeMedia(std::vector<std::string>& lines, const SourceContext& context,
                const XMLNode& media) {
    lines.push_back("    <media" + copiedAttributes("media", media.attrs) + ">");
    for (const auto& child : media.children) {
        if (child->name == "multicam" || child->name == "sequence") {
            writeCopy(lines, context, *child, 6);
            break;
        }
    }
    lines.push_back("    </media>");
}

void writeAudioAsset(std::vector<std::string>& lines, std::string_view id, std::string_view name,
                     const RationalTime& start, std::int64_t channels, const RationalTime& duration,
                     const std::filesystem::path& url) {
    lines.push_back("    <asset id=\"" + escapeXMLAttribute(id) + "\" name=\"" +
                    escapeXMLAttribute(name) + "\" start=\"" + start.text() +
                    "\" hasAudio=\"1\" audioChannels=\"" + std::to_string(channels) +
                    "\" audioSources=\"1\" duration=\"" + duration.text() + "\">");
    lines.push_back("      <media-rep src=\"" + escapeXMLAttribute(fileURL(url)) +
                    "\" kind=\"original-media\"/>");
    lines.push_back("    </asset>");
}

std::string audioClip(std::int64_t lane, std::string_view name, const RationalTime& start,
                      std::string_view ref, const RationalTime& duration,
                      const RationalTime& offset) {
    return "              <asset-clip" + laneAttr(lane) + attr("name", name) +
           timeAttr("start", start) + " enabled=\"1\"" + attr("ref", ref) +
           timeAttr("duration", duration) + timeAttr("offset", offset) + "/>";
}

std::string laneGap(std::int64_t lane, const RationalTime& start, const RationalTime& duration) {
    return "              <spine" + laneAttr(lane) + timeAttr("offset", start) +
           "><gap name=\"Gap\"" + timeAttr("start", start) + " offset=\"0/1s\"" +
           timeAttr("duration", duration) + "/></spine>";
}

std::string syncedFileName(const ResolveRebuildAudioInput& input) {
    std::string file = input.url.filename().string();
    if (endsWithNoCase(file, ".wav")) {
        return file;
    }
    return input.name + ".wav";
}

}  // namespace

ResolveRebuildBuildOutput generateFCPXML(const SourceContext& context,
                                         const std::vector<ResolveRebuildAudioInput>& inputs,
                                         const StereoMixInfo& stereoMix,
                                         const ResolveRebuildOptions& options) {
    ResolveRebuildBuildOutput output;
    output.plan = planRebuild(context, inputs, options);
    const RebuildPlan& plan = output.plan;

    const SourceFormat* sequenceFormat = context.sequenceFormat();
    const std::string sequenceFormatID = sequenceFormat != nullptr ? sequenceFormat->id : "r0";

    SourceResources resources;
    resources.seen.insert("f:" + sequenceFormatID);
    for (const RebuildPlan::Event& event : plan.events) {
        for (const RebuildPlan::Camera& camera : event.cameras) {
            if (const auto* native = std::get_if<CameraCandidate>(&camera.candidate)) {
                if (native->elementName == "ref-clip") {
                    resources.addMedia(context, native->assetRef);
                    continue;
                }
                resources.addAsset(context, native->assetRef);
                if (native->formatID) {
                    resources.addFormat(context, *native->formatID);
                }
            } else {
                resources.addMedia(context,
                                   std::get<MulticamCandidate>(camera.candidate).multicam.id);
            }
        }
    }

    std::vector<std::string> lines;
    lines.push_back("<?xml version=\"1.0\" encoding=\"UTF-8\"?>");
    lines.push_back("<!DOCTYPE fcpxml>");
    lines.push_back("<fcpxml version=\"1.9\">");
    lines.push_back("  <resources>");
    if (sequenceFormat != nullptr) {
        lines.push_back("    <format" + copiedAttributes("format", sequenceFormat->attrs) + "/>");
    } else {
        lines.push_back(
            "    <format id=\"r0\" name=\"FFVideoFormat1080p24\" frameDuration=\"1/24s\" "
            "width=\"1920\" height=\"1080\"/>");
    }
    for (const std::string& id : resources.formats) {
        lines.push_back("    <format" + copiedAttributes("format", context.format(id)->attrs) +
                        "/>");
    }
    for (const std::string& id : resources.assets) {
        writeSourceAsset(lines, context.assetsByID.at(id));
    }
    for (const std::string& id : resources.media) {
        writeMedia(lines, context, *mediaNode(context, id));
    }

    const std::string mixName = stereoMix.url.filename().string();
    const RationalTime mixDuration = stereoMix.duration();
    writeAudioAsset(lines, "rStereoMix", mixName, RationalTime::zero(), 2, mixDuration,
                    stereoMix.url);

    std::vector<std::string> assetIDs;
    for (std::size_t i = 0; i < plan.keptInputs.size(); ++i) {
        const ResolveRebuildAudioInput& input = plan.keptInputs[i];
        assetIDs.push_back(syncedAssetID(i + 1, input.name));
        RationalTime duration = input.duration();
        if (duration <= RationalTime::zero()) {
            // An empty file still needs a positive length: the event's.
            for (const RebuildPlan::Event& event : plan.events) {
                for (const RebuildPlan::Audio& track : event.tracks) {
                    if (track.inputIndex == i) {
                        duration = track.duration;
                    }
                }
            }
        }
        writeAudioAsset(lines, assetIDs.back(), syncedFileName(input), input.sourceMediaStart,
                        input.channels, duration, input.url);
    }

    lines.push_back("  </resources>");
    lines.push_back("  <library>");
    lines.push_back("    <event name=\"Timeline Rebuild\">");
    lines.push_back("      <project name=\"Rebuilt Timeline\">");
    lines.push_back("        <sequence tcStart=\"" + plan.timelineStart.text() + "\" tcFormat=\"" +
                    context.sequenceTCFormat + "\" duration=\"" + plan.totalDuration.text() +
                    "\" format=\"" + escapeXMLAttribute(sequenceFormatID) + "\">");
    lines.push_back("          <spine>");

    for (const RebuildPlan::Event& event : plan.events) {
        const RationalTime& at = event.time;
        lines.push_back("            <gap name=\"Gap\"" + timeAttr("start", at) +
                        timeAttr("offset", event.offset) + timeAttr("duration", event.duration) +
                        ">");

        // Camera lanes in lane order: matched clips and lane gaps interleaved.
        std::vector<std::pair<std::int64_t, std::vector<std::string>>> cameraItems;
        for (const RebuildPlan::Camera& camera : event.cameras) {
            std::vector<std::string> item;
            // The clip covers [clipAt, clipAt + duration) of the event; lane
            // gaps fill what its media does not cover.
            const RationalTime clipAt = at + camera.lead;
            if (camera.lead > RationalTime::zero()) {
                item.push_back(laneGap(camera.lane, at, camera.lead));
            }
            if (const auto* native = std::get_if<CameraCandidate>(&camera.candidate)) {
                std::string format;
                if (native->formatID && context.format(*native->formatID) != nullptr) {
                    format = attr("format", *native->formatID);
                }
                std::string tcFormat = native->tcFormat ? attr("tcFormat", *native->tcFormat) : "";
                if (native->elementName == "ref-clip") {
                    item.push_back("              <ref-clip" + laneAttr(camera.lane) +
                                   attr("ref", native->assetRef) + attr("name", native->clipName) +
                                   timeAttr("start", camera.start) + timeAttr("offset", clipAt) +
                                   timeAttr("duration", camera.duration) + "/>");
                } else if (native->elementName == "clip") {
                    item.push_back("              <clip" + laneAttr(camera.lane) +
                                   attr("name", native->clipName) + timeAttr("start", clipAt) +
                                   timeAttr("offset", clipAt) +
                                   timeAttr("duration", camera.duration) + format + tcFormat + ">");
                    item.push_back("                <video" + timeAttr("start", camera.start) +
                                   attr("ref", native->assetRef) +
                                   timeAttr("duration", camera.duration) +
                                   timeAttr("offset", clipAt) + "/>");
                    item.push_back("              </clip>");
                } else {
                    item.push_back("              <asset-clip" + laneAttr(camera.lane) +
                                   attr("ref", native->assetRef) + attr("name", native->clipName) +
                                   timeAttr("start", camera.start) + timeAttr("offset", clipAt) +
                                   timeAttr("duration", camera.duration) + format + tcFormat +
                                   "/>");
                }
            } else {
                const auto& mc = std::get<MulticamCandidate>(camera.candidate);
                item.push_back("              <mc-clip" + laneAttr(camera.lane) +
                               attr("ref", mc.multicam.id) + attr("name", mc.clipName) +
                               timeAttr("start", camera.start) + timeAttr("offset", clipAt) +
                               timeAttr("duration", camera.duration) + ">");
                item.push_back("                <mc-source" + attr("angleID", mc.angleID) +
                               " srcEnable=\"video\"/>");
                item.push_back("              </mc-clip>");
            }
            const RationalTime clipEnd = clipAt + camera.duration;
            if (clipEnd < at + event.duration) {
                item.push_back(laneGap(camera.lane, clipEnd, at + event.duration - clipEnd));
            }
            cameraItems.emplace_back(camera.lane, std::move(item));
        }
        for (std::int64_t lane : event.cameraGapLanes) {
            cameraItems.push_back({lane, {laneGap(lane, at, event.duration)}});
        }
        std::stable_sort(cameraItems.begin(), cameraItems.end(),
                         [](const auto& a, const auto& b) { return a.first < b.first; });
        for (const auto& [lane, item] : cameraItems) {
            lines.insert(lines.end(), item.begin(), item.end());
        }

        if (event.mixStart < mixDuration) {
            RationalTime length = std::min(event.contentDuration, mixDuration - event.mixStart);
            length = RationalTime::fromFrames(length.framesRoundedUp(plan.sequenceRate),
                                              plan.sequenceRate);
            lines.push_back(audioClip(-1, mixName, event.mixStart, "rStereoMix", length, at));
        }

        std::vector<std::pair<std::int64_t, std::string>> audioItems;
        for (const RebuildPlan::Audio& track : event.tracks) {
            const ResolveRebuildAudioInput& input = plan.keptInputs[track.inputIndex];
            audioItems.emplace_back(
                track.lane, audioClip(track.lane, syncedFileName(input), input.sourceMediaStart,
                                      assetIDs[track.inputIndex], track.duration, at));
        }
        for (std::int64_t lane : event.trackGapLanes) {
            audioItems.emplace_back(lane, laneGap(lane, at, event.duration));
        }
        std::stable_sort(audioItems.begin(), audioItems.end(),
                         [](const auto& a, const auto& b) { return a.first > b.first; });
        for (const auto& [lane, line] : audioItems) {
            lines.push_back(line);
        }
        lines.push_back("            </gap>");
    }

    lines.push_back("          </spine>");
    lines.push_back("        </sequence>");
    lines.push_back("      </project>");
    lines.push_back("    </event>");
    lines.push_back("  </library>");
    lines.push_back("</fcpxml>");

    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (i > 0) {
            output.xml += '\n';
        }
        output.xml += lines[i];
    }
    output.analysis = plan.analysis;
    return output;
}

}  // namespace norvane
