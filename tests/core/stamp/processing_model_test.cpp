#include "core/stamp/processing_model.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace norvane {
namespace {

using json = nlohmann::ordered_json;

TEST(ProcessingModelTest, ToleranceIsClampedWhereverAConfigIsMade) {
    EXPECT_EQ(GroupingConfig(GroupingMethod::durationExact, "_", 0, "", -20).durationToleranceMs,
              1);
    const auto decoded = json::parse(R"({"method": "Regex", "delimiter": "_", "tokenIndex": 2,
        "regexPattern": "^(\\w+)_", "durationToleranceMs": 0})")
                             .get<GroupingConfig>();
    EXPECT_EQ(decoded, GroupingConfig(GroupingMethod::regex, "_", 2, "^(\\w+)_", 1));
}

TEST(ProcessingModelTest, ConfigRecordsRoundTrip) {
    GroupingConfig grouping(GroupingMethod::durationExact, "_", 3, "x(y)", 20);
    EXPECT_EQ(json(grouping).get<GroupingConfig>(), grouping);
    OutputNamingConfig naming{"", OutputCollisionBehavior::keepBoth};
    EXPECT_EQ(json(naming).dump(), R"({"suffix":"","collisionBehavior":"Keep Both"})");
    SegmentBoundary unanchored{10, 20, 2, std::nullopt, std::nullopt, std::nullopt};
    EXPECT_EQ(json(unanchored).get<SegmentBoundary>(), unanchored);
    SegmentBoundary anchored{0,     48000, 1, 90000, *frameRateConfig(FrameRatePreset::fps29_97DF),
                             1234.5};
    EXPECT_EQ(json(anchored).get<SegmentBoundary>(), anchored);
    EXPECT_THROW(json({{"minSegmentFrames", 1}}).get<CutDetectConfig>(), nlohmann::json::exception);
}

TEST(ProcessingModelTest, LowConfidenceIsTruncatedToAWholePercent) {
    EXPECT_EQ(ProcessingError::lowConfidence(0.999).description(),
              "LTC decoding confidence is low (99%). Confirm before stamping.");
    EXPECT_THROW(ProcessingError::lowConfidence(std::nan("")), std::logic_error);
}

}  // namespace
}  // namespace norvane
