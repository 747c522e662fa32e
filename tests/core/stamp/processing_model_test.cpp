#include "core/stamp/processing_model.h"

#include <gtest/gtest.h>

#include <cmath>

namespace norvane {
namespace {

// A grouping tolerance below 1 ms is 1 ms; a low confidence is shown
// truncated to a whole percent, and a NaN never reaches the message.
TEST(ProcessingModelTest, ToleranceClampAndLowConfidenceMessage) {
    EXPECT_EQ(GroupingConfig(GroupingMethod::durationExact, "_", 0, "", -20).durationToleranceMs,
              1);
    EXPECT_EQ(ProcessingError::lowConfidence(0.999).description(),
              "LTC decoding confidence is low (99%). Confirm before stamping.");
    EXPECT_THROW(ProcessingError::lowConfidence(std::nan("")), std::logic_error);
}

}  // namespace
}  // namespace norvane
