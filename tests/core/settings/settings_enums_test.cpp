#include "core/settings/settings_enums.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/common/text.h"

namespace norvane {
namespace {

TEST(SettingsEnumsTest, LabelsRoundTripInDeclarationOrder) {
    const auto check = [](const auto& cases, std::vector<std::string> labels, auto fromLabel) {
        ASSERT_EQ(cases.size(), labels.size());
        for (std::size_t i = 0; i < cases.size(); ++i) {
            EXPECT_EQ(label(cases[i]), labels[i]);
            EXPECT_EQ(fromLabel(labels[i]), cases[i]);
            EXPECT_FALSE(fromLabel(toLowerASCII(labels[i]) + " ").has_value());
        }
    };
    check(allLowConfidenceBehaviors(), {"Ask", "Always Proceed"}, lowConfidenceBehaviorFromLabel);
    check(allDurationTolerancePresets(), {"Tight (20 ms)", "Standard (50 ms)", "Loose (100 ms)"},
          durationTolerancePresetFromLabel);
    check(allMissingCameraBehaviors(), {"Insert Gap", "Skip Clip", "Fail Export"},
          missingCameraBehaviorFromLabel);
    check(allTimecodeSourcePriorities(),
          {"iXML / BWF bext -> Filename", "Filename Only", "Input XML Only"},
          timecodeSourcePriorityFromLabel);
    check(allVideoFrameRateModes(), {"Same as LTC", "Double LTC (50/60 fps video)"},
          videoFrameRateModeFromLabel);
    EXPECT_EQ(milliseconds(DurationTolerancePreset::tight), 20);
    EXPECT_EQ(milliseconds(DurationTolerancePreset::standard), 50);
    EXPECT_EQ(milliseconds(DurationTolerancePreset::loose), 100);
}

}  // namespace
}  // namespace norvane
