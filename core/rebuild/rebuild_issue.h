#pragma once

#include <string>

namespace norvane {

// How much a rebuild finding matters: an error blocks the build.
enum class ResolveRebuildIssueSeverity { error, warning, info };

// "Error", "Warning", "Info".
std::string label(ResolveRebuildIssueSeverity severity);

// A finding of the timeline rebuild.
struct ResolveRebuildIssue {
    ResolveRebuildIssueSeverity severity = ResolveRebuildIssueSeverity::info;
    std::string message;

    friend bool operator==(const ResolveRebuildIssue&, const ResolveRebuildIssue&) = default;
};

}  // namespace norvane
