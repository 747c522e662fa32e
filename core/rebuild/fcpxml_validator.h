#pragma once

#include <string_view>
#include <vector>

#include "core/rebuild/rebuild_issue.h"

namespace norvane {

// The structural check every generated document passes before it is written.
struct ResolveGeneratedFCPXMLValidation {
    std::vector<ResolveRebuildIssue> issues;

    bool hasErrors() const;
};

// Checks, in this order: UTF-8 and well-formedness (either failure ends the
// check), the <fcpxml> root, the containers resources, library, event,
// project, sequence and spine, resource ids defined once, every ref defined,
// every duration a positive "n/ds" time, every offset, start and duration in
// the project's spine a whole number of sequence frames (an audio clip's start
// inside its file excepted), and every camera clip (asset, compound clip or
// multicam angle) inside its media. A clean document gives the single
// Info "Generated FCPXML validation passed.". Never throws.
ResolveGeneratedFCPXMLValidation validateGeneratedFCPXML(std::string_view document);

}  // namespace norvane
