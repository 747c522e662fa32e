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

TEST(ProcessingModelTest, LowConfidenceIsTruncatedToAWholePercent) {
    EXPECT_EQ(ProcessingError::lowConfidence(0.999).description(),
              "LTC decoding confidence is low (99%). Confirm before stamping.");
    EXPECT_THROW(ProcessingError::lowConfidence(std::nan("")), std::logic_error);
}

}  // namespace
}  // namespace norvane
