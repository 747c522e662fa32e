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
    return RationalTime::parseAnyForm(*value);
}

bool isClipElement(std::string_view name) {
    return name == "asset-clip" || name == "clip" || name == "sync-clip" || name == "ref-clip" ||
           name == "mc-clip";
}

struct Reader {
    SourceContext& context;

    const SourceAsset* videoAsset(std::string_view id) const {
        auto it = context.assetsByID.find(std::string(id));
        return it != context.assetsByID.end() && it->second.hasVideo ? &it->second : nullptr;
    }

    std::optional<TimeRange> assetRange(const SourceAsset& asset) const {
        auto start = attributeValue(asset.attrs, "start");
        auto duration = attributeValue(asset.attrs, "duration");
        auto startTime = start ? RationalTime::parseAnyForm(*start) : RationalTime::zero();
        auto durationTime = duration ? RationalTime::parseAnyForm(*duration) : std::nullopt;
        if (!startTime || !durationTime || *durationTime <= RationalTime::zero()) {
            return std::nullopt;
        }
        return TimeRange{*startTime, *durationTime};
    }

    RationalTime assetStart(const SourceAsset& asset) const {
        auto range = assetRange(asset);
        if (range) {
            return range->start;
        }
        auto start = attributeValue(asset.attrs, "start");
        return start ? RationalTime::parseAnyForm(*start).value_or(RationalTime::zero())
                     : RationalTime::zero();
    }

    // The compound clip's sequence range: [tcStart, tcStart + duration).
    std::optional<TimeRange> compoundRange(const XMLNode& media) const {
        const XMLNode* sequence = media.firstChild("sequence");
        if (sequence == nullptr) {
            return std::nullopt;
        }
        auto start = timeAttr(*sequence, "tcStart").value_or(RationalTime::zero());
        auto duration = timeAttr(*sequence, "duration");
        if (!duration || *duration <= RationalTime::zero()) {
            return std::nullopt;
        }
        return TimeRange{start, *duration};
    }

    void setFrames(CameraCandidate& candidate) const {
        candidate.startFrame = candidate.start.frames(context.frameRate);
        candidate.durationFrames =
            std::max<std::int64_t>(1, candidate.duration.frames(context.frameRate));
    }

    void setCommon(CameraCandidate& candidate, const XMLNode& clip, std::int64_t lane) const {
        candidate.laneRaw = lane;
        candidate.clipName = attrOr(clip, "name", "");
        if (auto format = clip.attr("format")) {
            candidate.formatID = std::string(*format);
        }
        candidate.elementName = clip.name;
        candidate.offset = timeAttr(clip, "offset");
        if (auto tc = clip.attr("tcFormat"); tc && (*tc == "DF" || *tc == "NDF")) {
            candidate.tcFormat = std::string(*tc);
        }
    }

    // The item a clip or sync-clip shows its picture from: its first story
    // element (no lane) that holds video, searched through nested clips.
    // Returns the asset and the media time at the container's local time 0.
    struct VideoSourceItem {
        const SourceAsset* asset = nullptr;
        RationalTime mediaAtLocalZero;
    };
    std::optional<VideoSourceItem> pictureOf(const XMLNode& container, int depth = 0) const {
        if (depth > 8) {
            return std::nullopt;
        }
        for (const auto& child : container.children) {
            if (child->hasAttr("lane")) {
                continue;
            }
            const std::string& name = child->name;
            if (name != "video" && name != "asset-clip" && name != "clip" && name != "spine") {
                continue;
            }
            RationalTime offset = timeAttr(*child, "offset").value_or(RationalTime::zero());
            if (name == "spine") {
                if (auto inner = pictureOf(*child, depth + 1)) {
                    return VideoSourceItem{inner->asset, inner->mediaAtLocalZero - offset};
                }
                continue;
            }
            if (name == "clip") {
                auto inner = pictureOf(*child, depth + 1);
                if (!inner) {
                    continue;
                }
                RationalTime start = timeAttr(*child, "start").value_or(RationalTime::zero());
                return VideoSourceItem{inner->asset, inner->mediaAtLocalZero + start - offset};
            }
            auto ref = child->attr("ref");
            const SourceAsset* asset = ref ? videoAsset(*ref) : nullptr;
            if (asset == nullptr) {
                continue;
            }
            RationalTime start = timeAttr(*child, "start").value_or(assetStart(*asset));
            return VideoSourceItem{asset, start - offset};
        }
        return std::nullopt;
    }

    // A camera clip element at `lane`: nullopt when it shows no video or its
    // times cannot be used.
    std::optional<CameraCandidate> cameraClip(const XMLNode& clip, std::int64_t lane) const {
        CameraCandidate candidate;
        setCommon(candidate, clip, lane);
        auto duration = timeAttr(clip, "duration");
        if (clip.name == "asset-clip" || clip.name == "video") {
            auto ref = clip.attr("ref");
            const SourceAsset* asset = ref ? videoAsset(*ref) : nullptr;
            if (asset == nullptr) {
                return std::nullopt;
            }
            candidate.assetRef = asset->id;
            candidate.start = timeAttr(clip, "start").value_or(assetStart(*asset));
            candidate.mediaRange = assetRange(*asset);
        } else if (clip.name == "clip" || clip.name == "sync-clip") {
            // Older documents put ref/start/duration on a clip's video child.
            const XMLNode* video = clip.firstChild("video");
            auto picture = pictureOf(clip);
            if (!picture) {
                return std::nullopt;
            }
            candidate.assetRef = picture->asset->id;
            RationalTime local = timeAttr(clip, "start").value_or(RationalTime::zero());
            candidate.start = picture->mediaAtLocalZero + local;
            candidate.mediaRange = assetRange(*picture->asset);
            if (!duration && video != nullptr) {
                duration = timeAttr(*video, "duration");
            }
        } else if (clip.name == "ref-clip") {
            if (clip.attr("srcEnable") == std::optional<std::string_view>("audio")) {
                return std::nullopt;
            }
            auto ref = clip.attr("ref");
            auto media =
                ref ? context.compoundMediaByID.find(*ref) : context.compoundMediaByID.end();
            if (media == context.compoundMediaByID.end()) {
                return std::nullopt;
            }
            candidate.assetRef = std::string(*ref);
            candidate.mediaRange = compoundRange(*media->second);
            RationalTime mediaStart =
                candidate.mediaRange ? candidate.mediaRange->start : RationalTime::zero();
            candidate.start = timeAttr(clip, "start").value_or(mediaStart);
        } else {
            return std::nullopt;
        }
        if (!duration) {
            return std::nullopt;
        }
        candidate.duration = *duration;
        setFrames(candidate);
        return candidate;
    }

    std::optional<MulticamCandidate> multicamClip(const XMLNode& clip, std::int64_t lane) const {
        auto ref = clip.attr("ref");
        auto duration = timeAttr(clip, "duration");
        if (!ref || !duration) {
            return std::nullopt;
        }
        auto media = context.multicamMediaByID.find(std::string(*ref));
        if (media == context.multicamMediaByID.end()) {
            return std::nullopt;
        }
        MulticamCandidate candidate;
        candidate.laneRaw = lane;
        candidate.multicam = media->second;
        candidate.clipName = attrOr(clip, "name", "");
        // The angle the clip takes its picture from: its first mc-source
        // that enables video (editors also list the audio angle, sometimes
        // first), else its first mc-source, else the multicam's first angle.
        const XMLNode* source = nullptr;
        for (const auto& child : clip.children) {
            if (child->name != "mc-source") {
                continue;
            }
            if (source == nullptr) {
                source = child.get();
            }
            if (child->attr("srcEnable").value_or("all") != "audio") {
                source = child.get();
                break;
            }
        }
        candidate.angleID =
            source != nullptr ? attrOr(*source, "angleID", "") : media->second.defaultAngleID;
        candidate.start = timeAttr(clip, "start").value_or(media->second.tcStart);
        candidate.duration = *duration;
        candidate.startFrame = candidate.start.frames(context.frameRate);
        candidate.durationFrames = std::max<std::int64_t>(1, duration->frames(context.frameRate));
        return candidate;
    }

    void examine(const XMLNode& clip, std::int64_t lane) {
        if (clip.name == "mc-clip") {
            if (auto candidate = multicamClip(clip, lane)) {
                context.multicamCandidates.push_back(std::move(*candidate));
            }
        } else if (auto candidate = cameraClip(clip, lane)) {
            context.candidates.push_back(std::move(*candidate));
        }
    }

    // The items of a storyline (the primary spine or a connected storyline at
    // `lane`): every clip on it, and what is connected to each item. An
    // item's own lane attribute counts from its parent's lane.
    void walkStoryline(const XMLNode& storyline, std::int64_t lane, int depth = 0) {
        if (depth > kMaxXMLDepth) {
            return;
        }
        for (const auto& child : storyline.children) {
            walkItem(*child, lane, depth + 1);
        }
    }

    void walkItem(const XMLNode& item, std::int64_t parentLane, int depth) {
        std::optional<std::int64_t> own = parseLane(attrOr(item, "lane", "0"));
        if (!own) {
            // An unreadable lane: the clip is left out, what hangs on it is not.
            walkConnected(item, parentLane, depth);
            return;
        }
        std::int64_t lane = parentLane + *own;
        if (item.name == "spine") {
            walkStoryline(item, lane, depth);
        } else if (item.name == "audition") {
            // The first object of an audition is the one that plays.
            for (const auto& pick : item.children) {
                if (isClipElement(pick->name)) {
                    walkItem(*pick, lane, depth + 1);
                    break;
                }
            }
        } else if (isClipElement(item.name) || item.name == "video") {
            // A video element standing in a storyline shows its asset like
            // an asset-clip (effects and generators have no video asset).
            examine(item, lane);
            walkConnected(item, lane, depth);
        } else if (item.name == "gap" || item.name == "transition" || item.name == "title" ||
                   item.name == "audio") {
            walkConnected(item, lane, depth);
        }
    }

    // Connected items: the children of a story element that carry a lane.
    void walkConnected(const XMLNode& parent, std::int64_t lane, int depth) {
        for (const auto& child : parent.children) {
            if (child->hasAttr("lane")) {
                walkItem(*child, lane, depth + 1);
            }
        }
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
                if (clipNode->name != "asset-clip" && clipNode->name != "clip") {
                    continue;
                }
                auto clip = cameraClip(*clipNode, 0);
                if (!clip) {
                    continue;
                }
                if (!clip->offset) {
                    clip->offset = RationalTime::zero();
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
    context.version = attrOr(*root, "version", "");

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
        if (child->name == "media" && child->firstChild("sequence") != nullptr) {
            context.compoundMediaByID[attrOr(*child, "id", "")] = child.get();
        }
    }
    for (const auto& child : resources->children) {
        if (child->name != "media") {
            continue;
        }
        if (const XMLNode* multicam = child->firstChild("multicam")) {
            MulticamMedia media = reader.multicamMedia(*child, *multicam);
            context.multicamMediaByID[media.id] = std::move(media);
        }
    }

    reader.walkStoryline(*spine, 0);

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
