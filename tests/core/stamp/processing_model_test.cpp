#include "core/stamp/processing_model.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace norvane {
namespace {

using json = nlohmann::ordered_json;

TEST(ProcessingModelTest, LabelsRoundTripInOrderAndDecodeOnlyExactCase) {
    std::vector<std::string> modes;
    for (auto m : allProcessingModes()) {
        modes.push_back(label(m));
        EXPECT_EQ(processingModeFromLabel(label(m)), m);
    }
    EXPECT_EQ(modes, (std::vector<std::string>{"Single", "Grouped Batch", "LTC Cut Detect"}));
    std::vector<std::string> methods;
    for (auto m : allGroupingMethods()) {
        methods.push_back(label(m));
        EXPECT_EQ(groupingMethodFromLabel(label(m)), m);
    }
    EXPECT_EQ(methods, (std::vector<std::string>{"Duration Exact", "Token", "Regex"}));
    std::vector<std::string> behaviors;
    for (auto b : allOutputCollisionBehaviors()) {
        behaviors.push_back(label(b));
        EXPECT_EQ(outputCollisionBehaviorFromLabel(label(b)), b);
    }
    EXPECT_EQ(behaviors, (std::vector<std::string>{"Ask", "Keep Both", "Overwrite"}));

    EXPECT_EQ(processingModeFromLabel("LTC Cut Detect"), ProcessingMode::cutDetect);
    EXPECT_FALSE(processingModeFromLabel("ltc cut detect"));
    EXPECT_FALSE(groupingMethodFromLabel("token"));
    EXPECT_FALSE(outputCollisionBehaviorFromLabel("keepBoth"));
    EXPECT_FALSE(outputCollisionBehaviorFromLabel(""));
}

TEST(ProcessingModelTest, GroupingConfigDefaultsAndToleranceClamp) {
    GroupingConfig defaults;
    EXPECT_EQ(defaults.method, GroupingMethod::token);
    EXPECT_EQ(defaults.delimiter, "-");
    EXPECT_EQ(defaults.tokenIndex, 1);
    EXPECT_EQ(defaults.regexPattern, "");
    EXPECT_EQ(defaults.durationToleranceMs, 50);

    EXPECT_EQ(
        GroupingConfig::make(GroupingMethod::durationExact, "_", 0, "", 0).durationToleranceMs, 1);
    EXPECT_EQ(GroupingConfig(GroupingMethod::durationExact, "_", 0, "", -20).durationToleranceMs,
              1);
    EXPECT_EQ(GroupingConfig(GroupingMethod::durationExact, "_", 0, "", 100).durationToleranceMs,
              100);
    // Decoding goes through the same clamp.
    auto decoded = json{
        {"method", "Regex"},
        {"delimiter", "_"},
        {"tokenIndex", 2},
        {"regexPattern", "^(\\w+)_"},
        {"durationToleranceMs",
         0}}.get<GroupingConfig>();
    EXPECT_EQ(decoded, GroupingConfig(GroupingMethod::regex, "_", 2, "^(\\w+)_", 1));
}

TEST(ProcessingModelTest, ConfigRecordsCodeByTheirKeysInOrder) {
    GroupingConfig grouping(GroupingMethod::durationExact, "_", 3, "x(y)", 20);
    EXPECT_EQ(
        json(grouping).dump(),
        R"J({"method":"Duration Exact","delimiter":"_","tokenIndex":3,"regexPattern":"x(y)",)J"
        R"("durationToleranceMs":20})");
    EXPECT_EQ(json(grouping).get<GroupingConfig>(), grouping);

    CutDetectConfig cut{12, 40};
    EXPECT_EQ(json(cut).dump(), R"({"minSegmentFrames":12,"discontinuityFrameThreshold":40})");
    EXPECT_EQ(json(cut).get<CutDetectConfig>(), cut);

    OutputNamingConfig naming{"", OutputCollisionBehavior::keepBoth};
    EXPECT_EQ(json(naming).dump(), R"({"suffix":"","collisionBehavior":"Keep Both"})");
    EXPECT_EQ(json(naming).get<OutputNamingConfig>(), naming);
    EXPECT_EQ(OutputNamingConfig{}.suffix, "_tc");

    SegmentBoundary anchored{0, 48000, 1, 90000};
    EXPECT_EQ(json(anchored).dump(),
              R"({"startSample":0,"endSample":48000,"segmentIndex":1,"startFrameCount":90000})");
    EXPECT_EQ(json(anchored).get<SegmentBoundary>(), anchored);
    SegmentBoundary unanchored{10, 20, 2, std::nullopt};
    EXPECT_EQ(json(unanchored).get<SegmentBoundary>(), unanchored);

    EXPECT_THROW(json("keep both").get<OutputCollisionBehavior>(), nlohmann::json::exception);
    EXPECT_THROW(json({{"minSegmentFrames", 1}}).get<CutDetectConfig>(), nlohmann::json::exception);
}

TEST(ProcessingModelTest, ErrorDescriptions) {
    EXPECT_EQ(ProcessingError::lowConfidence(0.999).description(),
              "LTC decoding confidence is low (99%). Confirm before stamping.");
    EXPECT_EQ(ProcessingError::lowConfidence(0.876).message(),
              "LTC decoding confidence is low (87%). Confirm before stamping.");
    EXPECT_EQ(ProcessingError::lowConfidence(0.0).message(),
              "LTC decoding confidence is low (0%). Confirm before stamping.");
    EXPECT_DOUBLE_EQ(ProcessingError::lowConfidence(0.5).confidence(), 0.5);
    EXPECT_THROW(ProcessingError::lowConfidence(std::nan("")), std::logic_error);

    EXPECT_EQ(ProcessingError::ltcDecodeFailed("x").message(), "LTC decode failed: x");
    EXPECT_EQ(ProcessingError::groupingCouldNotResolve("auto").message(),
              "Could not resolve a single LTC file for group: auto");
    EXPECT_EQ(ProcessingError::outputFileAlreadyExists("A_tc.wav").message(),
              "Output file already exists: A_tc.wav");
    EXPECT_EQ(ProcessingError::unsafeOutputFilename("a/b").message(),
              "Unsafe output filename: a/b");
    EXPECT_EQ(ProcessingError::invalidRegex("Nested quantifiers are not allowed.").message(),
              "Invalid grouping regex: Nested quantifiers are not allowed.");
    EXPECT_EQ(ProcessingError::notEnoughWavs().message(),
              "Please supply at least two WAV files (one LTC + one or more stems).");
    EXPECT_EQ(ProcessingError::ltcFileMissing().message(), "No LTC source file selected.");
    EXPECT_EQ(ProcessingError::sampleRateMismatch().message(),
              "All WAV files in a job must have matching sample rates.");
    EXPECT_EQ(ProcessingError::invalidGroupingRule().message(), "Grouping rule is invalid.");
    EXPECT_EQ(ProcessingError::noCutBoundariesDetected().message(),
              "No cut boundaries were detected from LTC discontinuities.");
    EXPECT_EQ(ProcessingError::cancelled().message(), "Operation cancelled.");
    EXPECT_EQ(ProcessingError::cancelled().kind(), ProcessingError::Kind::cancelled);
    EXPECT_EQ(ProcessingError::batchVoteFailed().message(),
              "Auto frame-rate batch vote failed: no decodable LTC source in this run.");
    // The shared description of any exception shows the same text.
    EXPECT_EQ(describeError(ProcessingError::notEnoughWavs()),
              ProcessingError::notEnoughWavs().message());
}

}  // namespace
}  // namespace norvane
