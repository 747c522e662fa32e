#include "core/rebuild/fcpxml_validator.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>

#include "core/common/text.h"
#include "core/rebuild/rational_time.h"
#include "core/rebuild/xml_tree.h"

namespace norvane {

std::string label(ResolveRebuildIssueSeverity severity) {
    switch (severity) {
        case ResolveRebuildIssueSeverity::error:
            return "Error";
        case ResolveRebuildIssueSeverity::warning:
            return "Warning";
        case ResolveRebuildIssueSeverity::info:
            return "Info";
    }
    return "Info";
}

bool ResolveGeneratedFCPXMLValidation::hasErrors() const {
    return std::any_of(issues.begin(), issues.end(), [](const ResolveRebuildIssue& issue) {
        return issue.severity == ResolveRebuildIssueSeverity::error;
    });
}

namespace {

ResolveRebuildIssue error(std::string message) {
    return {ResolveRebuildIssueSeverity::error, std::move(message)};
}

template <typename Visit>
void forEachNode(const XMLNode& root, Visit visit) {
    std::vector<const XMLNode*> stack{&root};
    while (!stack.empty()) {
        const XMLNode* node = stack.back();
        stack.pop_back();
        visit(*node);
        for (auto it = node->children.rbegin(); it != node->children.rend(); ++it) {
            stack.push_back(it->get());
        }
    }
}

std::optional<RationalTime> timeOf(const XMLNode& node, std::string_view key) {
    auto value = node.attr(key);
    return value ? RationalTime::parseAnyForm(*value) : std::nullopt;
}

// Whether `t` is a whole number of frames of `frameDuration`.
bool onGrid(const RationalTime& t, const RationalTime& frameDuration) {
    FrameRateConfig rate;
    rate.numerator = frameDuration.denominator();
    rate.denominator = frameDuration.numerator();
    try {
        return RationalTime::fromFrames(t.framesRoundedUp(rate), rate) == t;
    } catch (const std::overflow_error&) {
        return false;
    }
}

std::string secondsText(const RationalTime& t) {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%.3f", t.toSeconds());
    return buffer;
}

// What the placement checks need from the document's resources.
struct PlacementContext {
    std::map<std::string, const XMLNode*, std::less<>> byID;

    const XMLNode* resource(std::string_view id) const {
        auto it = byID.find(id);
        return it != byID.end() ? it->second : nullptr;
    }

    // The range of media a clip element may show: the asset's, a compound
    // clip's sequence, or the span of a multicam's angle.
    std::optional<TimeRange> mediaRange(const XMLNode& clip) const {
        auto ref = clip.attr("ref");
        const XMLNode* target = ref ? resource(*ref) : nullptr;
        if (target == nullptr) {
            return std::nullopt;
        }
        if (target->name == "asset") {
            if (target->attr("hasVideo") != std::optional<std::string_view>("1")) {
                return std::nullopt;
            }
            auto duration = timeOf(*target, "duration");
            if (!duration) {
                return std::nullopt;
            }
            return TimeRange{timeOf(*target, "start").value_or(RationalTime()), *duration};
        }
        if (const XMLNode* sequence = target->firstChild("sequence")) {
            auto duration = timeOf(*sequence, "duration");
            if (!duration) {
                return std::nullopt;
            }
            return TimeRange{timeOf(*sequence, "tcStart").value_or(RationalTime()), *duration};
        }
        if (const XMLNode* multicam = target->firstChild("multicam")) {
            const XMLNode* source = clip.firstChild("mc-source");
            std::string_view angleID = source ? source->attr("angleID").value_or("") : "";
            std::optional<RationalTime> first, last;
            for (bool anyAngle : {false, true}) {
                for (const auto& angle : multicam->children) {
                    if (!anyAngle && angle->attr("angleID") != angleID) {
                        continue;
                    }
                    for (const auto& item : angle->children) {
                        if (item->name == "gap") {
                            continue;
                        }
                        auto offset = timeOf(*item, "offset").value_or(RationalTime());
                        auto duration = timeOf(*item, "duration").value_or(RationalTime());
                        first = first ? std::min(*first, offset) : offset;
                        last = last ? std::max(*last, offset + duration) : offset + duration;
                    }
                }
                if (first) {
                    break;
                }
            }
            if (!first) {
                return std::nullopt;
            }
            return TimeRange{*first, *last - *first};
        }
        return std::nullopt;
    }

    bool isAudioOnly(const XMLNode& clip) const {
        auto ref = clip.attr("ref");
        const XMLNode* target = ref ? resource(*ref) : nullptr;
        return target != nullptr && target->name == "asset" &&
               target->attr("hasVideo") != std::optional<std::string_view>("1");
    }
};

// Story times off the sequence's frame grid, and camera clips that show
// time their media does not have.
void checkPlacement(const XMLNode& root, std::vector<ResolveRebuildIssue>& issues) {
    const XMLNode* project = root.findDescendant("project");
    const XMLNode* sequence = project != nullptr ? project->firstChild("sequence") : nullptr;
    const XMLNode* spine = sequence != nullptr ? sequence->firstChild("spine") : nullptr;
    const XMLNode* resources = root.findDescendant("resources");
    if (spine == nullptr || resources == nullptr) {
        return;
    }
    PlacementContext context;
    for (const auto& child : resources->children) {
        if (auto id = child->attr("id")) {
            context.byID.emplace(std::string(*id), child.get());
        }
    }
    std::optional<RationalTime> frameDuration;
    if (auto format = sequence->attr("format")) {
        if (const XMLNode* node = context.resource(*format)) {
            frameDuration = timeOf(*node, "frameDuration");
        }
    }
    if (frameDuration && *frameDuration <= RationalTime()) {
        frameDuration.reset();
    }

    std::vector<std::string> offGrid;
    std::vector<std::string> pastMedia;
    forEachNode(*spine, [&](const XMLNode& node) {
        if (frameDuration) {
            for (const char* key : {"offset", "start", "duration"}) {
                // An audio clip's start inside its file stays sample exact.
                if (std::string_view(key) == "start" && context.isAudioOnly(node)) {
                    continue;
                }
                auto value = node.attr(key);
                auto time = value ? RationalTime::parseAnyForm(*value) : std::nullopt;
                if (time && !onGrid(*time, *frameDuration)) {
                    offGrid.push_back(node.name + " " + key + "=" + std::string(*value));
                }
            }
        }
        if (node.name == "asset-clip" || node.name == "video" || node.name == "ref-clip" ||
            node.name == "mc-clip") {
            auto range = context.mediaRange(node);
            auto duration = timeOf(node, "duration");
            if (!range || !duration) {
                return;
            }
            RationalTime start = timeOf(node, "start").value_or(range->start);
            std::string name(node.attr("name").value_or(node.attr("ref").value_or("")));
            std::string lane(node.attr("lane").value_or("0"));
            if (start < range->start) {
                pastMedia.push_back(name + " (lane " + lane + ") starts " +
                                    secondsText(range->start - start) + "s before its media");
            } else if (start + *duration > range->end()) {
                pastMedia.push_back(name + " (lane " + lane + ") runs " +
                                    secondsText(start + *duration - range->end()) +
                                    "s past its media");
            }
        }
    });
    if (!offGrid.empty()) {
        issues.push_back(error("Generated FCPXML has times off the sequence frame grid: " +
                               joinFirstEight(offGrid) + "."));
    }
    if (!pastMedia.empty()) {
        issues.push_back(error("Generated FCPXML has camera clips outside their media: " +
                               joinFirstEight(pastMedia) + "."));
    }
}

}  // namespace

ResolveGeneratedFCPXMLValidation validateGeneratedFCPXML(std::string_view document) {
    ResolveGeneratedFCPXMLValidation result;
    if (!isValidUTF8(document)) {
        result.issues.push_back(error("Generated FCPXML is not UTF-8."));
        return result;
    }
    std::unique_ptr<XMLNode> root;
    try {
        root = parseXMLTree(document);
    } catch (const XMLParseError& e) {
        std::string description = e.message();
        result.issues.push_back(error(description.empty()
                                          ? "Generated FCPXML is malformed."
                                          : "Generated FCPXML parse failed: " + description));
        return result;
    }

    if (root->name != "fcpxml") {
        result.issues.push_back(error("Generated FCPXML root must be <fcpxml>."));
    }
    for (const char* name : {"resources", "library", "event", "project", "sequence", "spine"}) {
        if (root->findDescendant(name) == nullptr) {
            result.issues.push_back(
                error(std::string("Generated FCPXML missing <") + name + "> element."));
        }
    }

    std::set<std::string> ids;
    std::set<std::string> duplicates;
    if (const XMLNode* resources = root->findDescendant("resources")) {
        for (const auto& child : resources->children) {
            if (auto id = child->attr("id")) {
                if (!ids.emplace(*id).second) {
                    duplicates.emplace(*id);
                }
            }
        }
    }
    if (!duplicates.empty()) {
        result.issues.push_back(error("Generated FCPXML has duplicate resource IDs: " +
                                      joinFirstEight({duplicates.begin(), duplicates.end()}) +
                                      "."));
    }

    std::set<std::string> unresolved;
    std::vector<std::string> badDurations;
    forEachNode(*root, [&](const XMLNode& node) {
        if (auto ref = node.attr("ref"); ref && !ids.contains(std::string(*ref))) {
            unresolved.emplace(*ref);
        }
        if (auto duration = node.attr("duration")) {
            auto value = RationalTime::parse(*duration);
            if (!value || !(value->toSeconds() > 0)) {
                badDurations.push_back(node.name + " duration=" + std::string(*duration));
            }
        }
    });
    if (!unresolved.empty()) {
        result.issues.push_back(error("Generated FCPXML has unresolved resource refs: " +
                                      joinFirstEight({unresolved.begin(), unresolved.end()}) +
                                      "."));
    }
    if (!badDurations.empty()) {
        result.issues.push_back(error(
            "Generated FCPXML contains invalid durations: " + joinFirstEight(badDurations) + "."));
    }

    checkPlacement(*root, result.issues);

    if (result.issues.empty()) {
        result.issues.push_back(
            {ResolveRebuildIssueSeverity::info, "Generated FCPXML validation passed."});
    }
    return result;
}

}  // namespace norvane
