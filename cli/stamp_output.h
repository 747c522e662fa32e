#pragma once

#include <nlohmann/json.hpp>

#include "core/stamp/processing_model.h"

namespace norvane::cli {

// The report as one JSON object: chosenLTCFile, sampleRate, detectedFrameRate,
// firstValidLTCSample, firstValidLTCSeconds, stampedStartTimecode, warnings,
// outputFiles, csvLogURL, summary {totalJobs, successfulJobs, failedJobs,
// warningCount}, jobs [{mode, groupID, segmentIndex, outputs, warnings, error}].
nlohmann::ordered_json reportJSON(const ProcessingReport& report);

}  // namespace norvane::cli
