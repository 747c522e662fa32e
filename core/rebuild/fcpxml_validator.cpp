#include "core/rebuild/fcpxml_validator.h"

#include <algorithm>
#include <map>
#include <set>
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

    if (result.issues.empty()) {
        result.issues.push_back(
            {ResolveRebuildIssueSeverity::info, "Generated FCPXML validation passed."});
    }
    return result;
}

}  // namespace norvane
