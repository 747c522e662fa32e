#include "core/rebuild/source_timeline.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <set>

#include "core/common/text.h"

namespace norvane {

std::optional<std::string_view> attributeValue(const XMLAttributes& attrs, std::string_view key) {
    for (const auto& [k, v] : attrs) {
        if (k == key) {
            return std::string_view(v);
        }
    }
    return std::nullopt;
}

SourceTimelineError SourceTimelineError::notUTF8() {
    return SourceTimelineError(Code::notUTF8, "Source XML is not UTF-8.");
}

SourceTimelineError SourceTimelineError::parseFailed(const std::string& parserDescription) {
    return SourceTimelineError(Code::parseFailed, parserDescription.empty()
                                                      ? "Failed to parse source XML."
                                                      : parserDescription);
}

SourceTimelineError SourceTimelineError::missingStructure() {
    return SourceTimelineError(Code::missingStructure,
                               "Source XML missing resources/sequence/spine.");
}

const SourceFormat* SourceContext::format(std::string_view id) const {
    for (const SourceFormat& f : formats) {
        if (f.id == id) {
            return &f;
        }
    }
    return nullptr;
}

const SourceFormat* SourceContext::sequenceFormat() const {
    return format(sequenceFormatID);
}

const MulticamCandidate* SourceContext::firstMulticam() const {
    for (const VideoSource& source : videoSources) {
        for (const VideoCandidate& candidate : source.candidates) {
            if (const auto* mc = std::get_if<MulticamCandidate>(&candidate)) {
                return mc;
            }
        }
    }
    return nullptr;
}

std::string frameRateLabel(std::int64_t numerator, std::int64_t denominator, bool dropFrame) {
    std::string text;
    if (denominator == 1 || denominator == 0) {
        text = std::to_string(numerator);
    } else {
        char buffer[64];
        std::snprintf(buffer, sizeof buffer, "%.3f",
                      static_cast<double>(numerator) / static_cast<double>(denominator));
        text = buffer;
        while (!text.empty() && text.back() == '0') {
            text.pop_back();
        }
        if (!text.empty() && text.back() == '.') {
            text.pop_back();
        }
    }
    return dropFrame ? text + " DF" : text;
}

namespace {

std::optional<std::int64_t> parseLane(std::string_view text) {
    std::int64_t value = 0;
    if (!text.empty() && text.front() == '+') {
        text.remove_prefix(1);
        if (!text.empty() && text.front() == '-') {
            return std::nullopt;
        }
    }
    if (text.empty()) {
        return std::nullopt;
    }
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value, 10);
    if (ec != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

std::string attrOr(const XMLNode& node, std::string_view key, std::string_view fallback) {
    auto value = node.attr(key);
    return std::string(value ? *value : fallback);
}

std::optional<RationalTime> timeAttr(const XMLNode& node, std::string_view key) {
    auto value = node.attr(key);
    if (!value) {
        return std::nullopt;
    }
    return RationalTime::parse(*value);
}

struct Reader {
    SourceContext& context;

    bool isVideoAsset(std::string_view id) const {
        auto it = context.assetsByID.find(std::string(id));
        return it != context.assetsByID.end() && it->second.hasVideo;
    }

    // A camera clip element read with its first video child: nullopt when its
    // lane, ref or times cannot be used.
    std::optional<CameraCandidate> cameraClip(const XMLNode& clip) const {
        auto lane = parseLane(attrOr(clip, "lane", "0"));
        if (!lane) {
            return std::nullopt;
        }
        const XMLNode* video = clip.firstChild("video");
        auto pick = [&](std::string_view key) -> std::optional<std::string_view> {
            if (video != nullptr) {
                if (auto v = video->attr(key)) {
                    return v;
                }
            }
            return clip.attr(key);
        };
        auto ref = pick("ref");
        auto startText = pick("start");
        auto durationText = pick("duration");
        if (!ref || !isVideoAsset(*ref) || !startText || !durationText) {
            return std::nullopt;
        }
        auto start = RationalTime::parse(*startText);
        auto duration = RationalTime::parse(*durationText);
        if (!start || !duration) {
            return std::nullopt;
        }
        CameraCandidate candidate;
        candidate.laneRaw = *lane;
        candidate.assetRef = std::string(*ref);
        candidate.clipName = attrOr(clip, "name", "");
        if (auto format = clip.attr("format")) {
            candidate.formatID = std::string(*format);
        }
        candidate.start = *start;
        candidate.duration = *duration;
        candidate.startFrame = start->frames(context.frameRate);
        candidate.durationFrames = std::max<std::int64_t>(1, duration->frames(context.frameRate));
        candidate.elementName = clip.name;
        candidate.offset = timeAttr(clip, "offset");
        if (auto tc = clip.attr("tcFormat"); tc && (*tc == "DF" || *tc == "NDF")) {
            candidate.tcFormat = std::string(*tc);
        }
        return candidate;
    }

    static bool isClipContainer(std::string_view name) {
        return name == "gap" || name == "clip" || name == "asset-clip";
    }

    void walkClips(const XMLNode& node) {
        if (node.name == "clip" || node.name == "asset-clip") {
            if (auto candidate = cameraClip(node)) {
                context.candidates.push_back(std::move(*candidate));
            }
        }
        for (const auto& child : node.children) {
            if (isClipContainer(child->name)) {
                walkClips(*child);
            }
        }
    }

    void walkMulticamClips(const XMLNode& node) {
        if (node.name == "mc-clip") {
            if (auto candidate = multicamClip(node)) {
                context.multicamCandidates.push_back(std::move(*candidate));
            }
        }
        for (const auto& child : node.children) {
            if (isClipContainer(child->name) || child->name == "mc-clip") {
                walkMulticamClips(*child);
            }
        }
    }

    std::optional<MulticamCandidate> multicamClip(const XMLNode& clip) const {
        auto lane = parseLane(attrOr(clip, "lane", "0"));
        auto ref = clip.attr("ref");
        auto start = timeAttr(clip, "start");
        auto duration = timeAttr(clip, "duration");
        if (!lane || !ref || !start || !duration) {
            return std::nullopt;
        }
        auto media = context.multicamMediaByID.find(std::string(*ref));
        if (media == context.multicamMediaByID.end()) {
            return std::nullopt;
        }
        MulticamCandidate candidate;
        candidate.laneRaw = *lane;
        candidate.multicam = media->second;
        candidate.clipName = attrOr(clip, "name", "");
        // The angle of the clip's first mc-source (editors write the video
        // source first); the multicam's first angle when the clip has none.
        const XMLNode* source = clip.firstChild("mc-source");
        candidate.angleID =
            source != nullptr ? attrOr(*source, "angleID", "") : media->second.defaultAngleID;
        candidate.start = *start;
        candidate.duration = *duration;
        candidate.startFrame = start->frames(context.frameRate);
        candidate.durationFrames = std::max<std::int64_t>(1, duration->frames(context.frameRate));
        return candidate;
    }

    MulticamMedia multicamMedia(const XMLNode& media, const XMLNode& multicam) const {
        MulticamMedia result;
        result.id = attrOr(media, "id", "");
        result.name = attrOr(media, "name", "Multicam");
        result.formatID = attrOr(multicam, "format", "");
        result.tcStart = timeAttr(multicam, "tcStart").value_or(RationalTime::zero());
        result.tcFormat = attrOr(multicam, "tcFormat", "NDF");
        result.mediaNode = &media;
        bool any = false;
        for (const auto& angleNode : multicam.children) {
            if (angleNode->name != "mc-angle") {
                continue;
            }
            MulticamAngle angle;
            angle.angleID = attrOr(*angleNode, "angleID", "");
            angle.name = attrOr(*angleNode, "name", "");
            for (const auto& clipNode : angleNode->children) {
                if (clipNode->name != "asset-clip") {
                    continue;
                }
                auto clip = cameraClip(*clipNode);
                if (!clip) {
                    continue;
                }
                std::int64_t end = clip->startFrame + clip->durationFrames;
                result.startFrame =
                    any ? std::min(result.startFrame, clip->startFrame) : clip->startFrame;
                result.endFrame = any ? std::max(result.endFrame, end) : end;
                any = true;
                angle.clips.push_back(std::move(*clip));
            }
            if (result.defaultAngleID.empty()) {
                result.defaultAngleID = angle.angleID;
            }
            result.angles.push_back(std::move(angle));
        }
        return result;
    }
};

const XMLNode* projectSequence(const XMLNode& root) {
    std::vector<const XMLNode*> stack{&root};
    while (!stack.empty()) {
        const XMLNode* node = stack.back();
        stack.pop_back();
        if (node->name == "project") {
            if (const XMLNode* sequence = node->firstChild("sequence")) {
                return sequence;
            }
        }
        for (auto it = node->children.rbegin(); it != node->children.rend(); ++it) {
            stack.push_back(it->get());
        }
    }
    return nullptr;
}

}  // namespace

SourceContext readSourceTimeline(std::string_view sourceBytes) {
    if (!isValidUTF8(sourceBytes)) {
        throw SourceTimelineError::notUTF8();
    }
    std::shared_ptr<const XMLNode> root;
    try {
        root = parseXMLTree(sourceBytes);
    } catch (const XMLParseError& e) {
        throw SourceTimelineError::parseFailed(e.message());
    }

    // The first of each in document order. Compound clips keep sequences of
    // their own inside the resources, before the project; the sequence read is
    // the first project's, and the first sequence anywhere only when the
    // document has no project holding one.
    const XMLNode* resources = root->findDescendant("resources");
    const XMLNode* sequence = projectSequence(*root);
    if (sequence == nullptr) {
        sequence = root->findDescendant("sequence");
    }
    const XMLNode* spine = sequence != nullptr ? sequence->findDescendant("spine") : nullptr;
    if (resources == nullptr || sequence == nullptr || spine == nullptr) {
        throw SourceTimelineError::missingStructure();
    }

    SourceContext context;
    context.document = root;

    for (const auto& child : resources->children) {
        if (child->name == "format") {
            SourceFormat format;
            format.id = attrOr(*child, "id", "");
            format.attrs = child->attrs;
            format.frameDuration = timeAttr(*child, "frameDuration");
            context.formats.push_back(std::move(format));
        }
    }

    context.sequenceFormatID = attrOr(*sequence, "format", "r0");
    std::string tcFormat = attrOr(*sequence, "tcFormat", "NDF");
    for (char& c : tcFormat) {
        if (c >= 'a' && c <= 'z') {
            c = static_cast<char>(c - 'a' + 'A');
        }
    }
    context.sequenceTCFormat = tcFormat == "DF" ? "DF" : "NDF";
    bool dropFrame = context.sequenceTCFormat == "DF";

    // The rate is the inverted frame duration; 1/24 s when the format is
    // missing or its frame duration unusable.
    RationalTime frameDuration(1, 24);
    if (const SourceFormat* format = context.sequenceFormat();
        format != nullptr && format->frameDuration &&
        *format->frameDuration > RationalTime::zero()) {
        frameDuration = *format->frameDuration;
    }
    context.frameRate.numerator = frameDuration.denominator();
    context.frameRate.denominator = frameDuration.numerator();
    context.frameRate.dropFrame = dropFrame;
    context.frameRate.label =
        frameRateLabel(context.frameRate.numerator, context.frameRate.denominator, dropFrame);

    for (const auto& child : resources->children) {
        if (child->name != "asset") {
            continue;
        }
        SourceAsset asset;
        asset.id = attrOr(*child, "id", "");
        asset.attrs = child->attrs;
        if (const XMLNode* rep = child->firstChild("media-rep")) {
            asset.mediaRep = rep->attrs;
        }
        asset.hasVideo = child->attr("hasVideo") == std::optional<std::string_view>("1");
        context.assetsByID[asset.id] = std::move(asset);
    }

    Reader reader{context};
    for (const auto& child : resources->children) {
        if (child->name != "media") {
            continue;
        }
        if (const XMLNode* multicam = child->firstChild("multicam")) {
            MulticamMedia media = reader.multicamMedia(*child, *multicam);
            context.multicamMediaByID[media.id] = std::move(media);
        }
    }

    reader.walkClips(*spine);
    reader.walkMulticamClips(*spine);

    std::set<std::int64_t> lanes;
    for (const auto& c : context.candidates) {
        lanes.insert(c.laneRaw);
    }
    for (const auto& c : context.multicamCandidates) {
        lanes.insert(c.laneRaw);
    }
    for (std::int64_t lane : lanes) {
        VideoSource source;
        source.sourceIndex = static_cast<std::int64_t>(context.videoSources.size());
        source.rawLane = lane;
        source.outputLane = source.sourceIndex + 1;
        source.label = "V" + std::to_string(source.outputLane);
        for (const auto& c : context.candidates) {
            if (c.laneRaw == lane) {
                source.candidates.emplace_back(c);
            }
        }
        for (const auto& c : context.multicamCandidates) {
            if (c.laneRaw == lane) {
                source.candidates.emplace_back(c);
            }
        }
        context.videoSources.push_back(std::move(source));
    }
    return context;
}

}  // namespace norvane
