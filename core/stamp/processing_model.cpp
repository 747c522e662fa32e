#include "core/stamp/processing_model.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

#include <nlohmann/json.hpp>

namespace norvane {

std::string label(TimeReferenceMode mode) {
    return mode == TimeReferenceMode::sample ? "sample" : "frame";
}

std::optional<TimeReferenceMode> timeReferenceModeFromLabel(std::string_view text) {
    if (text == "frame") {
        return TimeReferenceMode::frame;
    }
    if (text == "sample") {
        return TimeReferenceMode::sample;
    }
    return std::nullopt;
}

const std::array<TimeReferenceMode, 2>& allTimeReferenceModes() {
    static constexpr std::array<TimeReferenceMode, 2> kAll = {TimeReferenceMode::frame,
                                                              TimeReferenceMode::sample};
    return kAll;
}

namespace {

template <typename Enum, std::size_t N>
std::optional<Enum> fromLabel(const std::array<Enum, N>& all, std::string_view text) {
    for (Enum value : all) {
        if (label(value) == text) {
            return value;
        }
    }
    return std::nullopt;
}

template <typename Enum>
void decodeLabel(const nlohmann::ordered_json& j, Enum& value,
                 std::optional<Enum> (*parse)(std::string_view), const char* what) {
    auto parsed = parse(j.get<std::string>());
    if (!parsed) {
        throw nlohmann::ordered_json::other_error::create(501, std::string("unknown ") + what, &j);
    }
    value = *parsed;
}

}  // namespace

std::string label(ProcessingMode mode) {
    switch (mode) {
        case ProcessingMode::single:
            return "Single";
        case ProcessingMode::groupedBatch:
            return "Grouped Batch";
        case ProcessingMode::cutDetect:
            return "LTC Cut Detect";
    }
    return {};
}

std::string label(GroupingMethod method) {
    switch (method) {
        case GroupingMethod::durationExact:
            return "Duration Exact";
        case GroupingMethod::token:
            return "Token";
        case GroupingMethod::regex:
            return "Regex";
    }
    return {};
}

std::string label(OutputCollisionBehavior behavior) {
    switch (behavior) {
        case OutputCollisionBehavior::ask:
            return "Ask";
        case OutputCollisionBehavior::keepBoth:
            return "Keep Both";
        case OutputCollisionBehavior::overwrite:
            return "Overwrite";
    }
    return {};
}

const std::array<ProcessingMode, 3>& allProcessingModes() {
    static const std::array<ProcessingMode, 3> all = {
        ProcessingMode::single, ProcessingMode::groupedBatch, ProcessingMode::cutDetect};
    return all;
}

const std::array<GroupingMethod, 3>& allGroupingMethods() {
    static const std::array<GroupingMethod, 3> all = {GroupingMethod::durationExact,
                                                      GroupingMethod::token, GroupingMethod::regex};
    return all;
}

const std::array<OutputCollisionBehavior, 3>& allOutputCollisionBehaviors() {
    static const std::array<OutputCollisionBehavior, 3> all = {OutputCollisionBehavior::ask,
                                                               OutputCollisionBehavior::keepBoth,
                                                               OutputCollisionBehavior::overwrite};
    return all;
}

std::optional<ProcessingMode> processingModeFromLabel(std::string_view text) {
    return fromLabel(allProcessingModes(), text);
}
std::optional<GroupingMethod> groupingMethodFromLabel(std::string_view text) {
    return fromLabel(allGroupingMethods(), text);
}
std::optional<OutputCollisionBehavior> outputCollisionBehaviorFromLabel(std::string_view text) {
    return fromLabel(allOutputCollisionBehaviors(), text);
}

GroupingConfig::GroupingConfig(GroupingMethod method, std::string delimiter,
                               std::int64_t tokenIndex, std::string regexPattern,
                               std::int64_t durationToleranceMs)
    : method(method),
      delimiter(std::move(delimiter)),
      tokenIndex(tokenIndex),
      regexPattern(std::move(regexPattern)),
      durationToleranceMs(std::max<std::int64_t>(durationToleranceMs, 1)) {}

std::int64_t truncatedPercent(double confidence) {
    const double percent = confidence * 100.0;
    // The bounds are the nearest doubles inside the signed 64-bit range.
    if (!std::isfinite(percent) || percent >= 9223372036854775808.0 ||
        percent < -9223372036854775808.0) {
        throw std::logic_error("confidence is not a finite value in range");
    }
    return static_cast<std::int64_t>(percent);  // truncates toward zero
}

ProcessingError ProcessingError::ltcDecodeFailed(const std::string& text) {
    return {Kind::ltcDecodeFailed, "LTC decode failed: " + text, text};
}
ProcessingError ProcessingError::lowConfidence(double confidence) {
    return {Kind::lowConfidence,
            "LTC decoding confidence is low (" + std::to_string(truncatedPercent(confidence)) +
                "%). Confirm before stamping.",
            {},
            confidence};
}
ProcessingError ProcessingError::groupingCouldNotResolve(const std::string& groupKey) {
    return {Kind::groupingCouldNotResolve,
            "Could not resolve a single LTC file for group: " + groupKey, groupKey};
}
ProcessingError ProcessingError::outputFileAlreadyExists(const std::string& name) {
    return {Kind::outputFileAlreadyExists, "Output file already exists: " + name, name};
}
ProcessingError ProcessingError::unsafeOutputFilename(const std::string& name) {
    return {Kind::unsafeOutputFilename, "Unsafe output filename: " + name, name};
}
ProcessingError ProcessingError::invalidRegex(const std::string& reason) {
    return {Kind::invalidRegex, "Invalid grouping regex: " + reason, reason};
}
ProcessingError ProcessingError::notEnoughWavs() {
    return {Kind::notEnoughWavs,
            "Please supply at least two WAV files (one LTC + one or more stems)."};
}
ProcessingError ProcessingError::ltcFileMissing() {
    return {Kind::ltcFileMissing, "No LTC source file selected."};
}
ProcessingError ProcessingError::sampleRateMismatch() {
    return {Kind::sampleRateMismatch, "All WAV files in a job must have matching sample rates."};
}
ProcessingError ProcessingError::invalidGroupingRule() {
    return {Kind::invalidGroupingRule, "Grouping rule is invalid."};
}
ProcessingError ProcessingError::noCutBoundariesDetected() {
    return {Kind::noCutBoundariesDetected,
            "No cut boundaries were detected from LTC discontinuities."};
}
ProcessingError ProcessingError::cancelled() {
    return {Kind::cancelled, "Operation cancelled."};
}
ProcessingError ProcessingError::batchVoteFailed() {
    return {Kind::batchVoteFailed,
            "Auto frame-rate batch vote failed: no decodable LTC source in this run."};
}

void to_json(nlohmann::ordered_json& j, ProcessingMode mode) {
    j = label(mode);
}
void from_json(const nlohmann::ordered_json& j, ProcessingMode& mode) {
    decodeLabel(j, mode, &processingModeFromLabel, "processing mode label");
}
void to_json(nlohmann::ordered_json& j, GroupingMethod method) {
    j = label(method);
}
void from_json(const nlohmann::ordered_json& j, GroupingMethod& method) {
    decodeLabel(j, method, &groupingMethodFromLabel, "grouping method label");
}
void to_json(nlohmann::ordered_json& j, OutputCollisionBehavior behavior) {
    j = label(behavior);
}
void from_json(const nlohmann::ordered_json& j, OutputCollisionBehavior& behavior) {
    decodeLabel(j, behavior, &outputCollisionBehaviorFromLabel, "collision behavior label");
}

void to_json(nlohmann::ordered_json& j, const GroupingConfig& config) {
    j = nlohmann::ordered_json::object();
    j["method"] = config.method;
    j["delimiter"] = config.delimiter;
    j["tokenIndex"] = config.tokenIndex;
    j["regexPattern"] = config.regexPattern;
    j["durationToleranceMs"] = config.durationToleranceMs;
}
void from_json(const nlohmann::ordered_json& j, GroupingConfig& config) {
    config = GroupingConfig(
        j.at("method").get<GroupingMethod>(), j.at("delimiter").get<std::string>(),
        j.at("tokenIndex").get<std::int64_t>(), j.at("regexPattern").get<std::string>(),
        j.at("durationToleranceMs").get<std::int64_t>());
}

void to_json(nlohmann::ordered_json& j, const CutDetectConfig& config) {
    j = nlohmann::ordered_json{{"minSegmentFrames", config.minSegmentFrames},
                               {"discontinuityFrameThreshold", config.discontinuityFrameThreshold}};
}
void from_json(const nlohmann::ordered_json& j, CutDetectConfig& config) {
    config.minSegmentFrames = j.at("minSegmentFrames").get<std::int64_t>();
    config.discontinuityFrameThreshold = j.at("discontinuityFrameThreshold").get<std::int64_t>();
}

void to_json(nlohmann::ordered_json& j, const OutputNamingConfig& config) {
    j = nlohmann::ordered_json::object();
    j["suffix"] = config.suffix;
    j["collisionBehavior"] = config.collisionBehavior;
}
void from_json(const nlohmann::ordered_json& j, OutputNamingConfig& config) {
    config.suffix = j.at("suffix").get<std::string>();
    config.collisionBehavior = j.at("collisionBehavior").get<OutputCollisionBehavior>();
}

void to_json(nlohmann::ordered_json& j, const SegmentBoundary& segment) {
    j = nlohmann::ordered_json{{"startSample", segment.startSample},
                               {"endSample", segment.endSample},
                               {"segmentIndex", segment.segmentIndex}};
    if (segment.startFrameCount) {
        j["startFrameCount"] = *segment.startFrameCount;
    }
    if (segment.rate) {
        j["rate"] = *segment.rate;
    }
    if (segment.startSamplesSinceMidnight) {
        j["startSamplesSinceMidnight"] = *segment.startSamplesSinceMidnight;
    }
}
void from_json(const nlohmann::ordered_json& j, SegmentBoundary& segment) {
    segment.startSample = j.at("startSample").get<std::int64_t>();
    segment.endSample = j.at("endSample").get<std::int64_t>();
    segment.segmentIndex = j.at("segmentIndex").get<std::int64_t>();
    segment.startFrameCount.reset();
    if (auto it = j.find("startFrameCount"); it != j.end() && !it->is_null()) {
        segment.startFrameCount = it->get<std::int64_t>();
    }
    segment.rate.reset();
    if (auto it = j.find("rate"); it != j.end() && !it->is_null()) {
        segment.rate = it->get<FrameRateConfig>();
    }
    segment.startSamplesSinceMidnight.reset();
    if (auto it = j.find("startSamplesSinceMidnight"); it != j.end() && !it->is_null()) {
        segment.startSamplesSinceMidnight = it->get<double>();
    }
}

}  // namespace norvane
