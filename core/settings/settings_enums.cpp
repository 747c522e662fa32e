#include "core/settings/settings_enums.h"

#include <cstddef>

namespace norvane {

namespace {

// One table per enumeration, in declaration order: the label of case i is
// labels[i], so the order of iteration and the labels cannot drift apart.
template <typename Enum, std::size_t N>
struct LabelTable {
    std::array<Enum, N> cases;
    std::array<std::string_view, N> labels;

    std::string labelOf(Enum value) const {
        for (std::size_t i = 0; i < N; ++i) {
            if (cases[i] == value) {
                return std::string(labels[i]);
            }
        }
        return std::string(labels[0]);
    }

    std::optional<Enum> fromLabel(std::string_view text) const {
        for (std::size_t i = 0; i < N; ++i) {
            if (labels[i] == text) {
                return cases[i];
            }
        }
        return std::nullopt;
    }
};

constexpr LabelTable<LowConfidenceBehavior, 2> kLowConfidence{
    {LowConfidenceBehavior::ask, LowConfidenceBehavior::alwaysProceed}, {"Ask", "Always Proceed"}};

constexpr LabelTable<DurationTolerancePreset, 3> kDurationTolerance{
    {DurationTolerancePreset::tight, DurationTolerancePreset::standard,
     DurationTolerancePreset::loose},
    {"Tight (20 ms)", "Standard (50 ms)", "Loose (100 ms)"}};

constexpr LabelTable<MissingCameraBehavior, 3> kMissingCamera{
    {MissingCameraBehavior::insertGap, MissingCameraBehavior::skipClip,
     MissingCameraBehavior::failExport},
    {"Insert Gap", "Skip Clip", "Fail Export"}};

constexpr LabelTable<TimecodeSourcePriority, 3> kTimecodeSource{
    {TimecodeSourcePriority::bwfIXMLThenFilename, TimecodeSourcePriority::filenameOnly,
     TimecodeSourcePriority::inputXMLOnly},
    {"iXML / BWF bext -> Filename", "Filename Only", "Input XML Only"}};

constexpr LabelTable<VideoFrameRateMode, 2> kVideoFrameRate{
    {VideoFrameRateMode::sameAsLTC, VideoFrameRateMode::doubleLTC},
    {"Same as LTC", "Double LTC (50/60 fps video)"}};

}  // namespace

const std::array<LowConfidenceBehavior, 2>& allLowConfidenceBehaviors() {
    return kLowConfidence.cases;
}
const std::array<DurationTolerancePreset, 3>& allDurationTolerancePresets() {
    return kDurationTolerance.cases;
}
const std::array<MissingCameraBehavior, 3>& allMissingCameraBehaviors() {
    return kMissingCamera.cases;
}
const std::array<TimecodeSourcePriority, 3>& allTimecodeSourcePriorities() {
    return kTimecodeSource.cases;
}
const std::array<VideoFrameRateMode, 2>& allVideoFrameRateModes() {
    return kVideoFrameRate.cases;
}

std::string label(LowConfidenceBehavior value) {
    return kLowConfidence.labelOf(value);
}
std::string label(DurationTolerancePreset value) {
    return kDurationTolerance.labelOf(value);
}
std::string label(MissingCameraBehavior value) {
    return kMissingCamera.labelOf(value);
}
std::string label(TimecodeSourcePriority value) {
    return kTimecodeSource.labelOf(value);
}
std::string label(VideoFrameRateMode value) {
    return kVideoFrameRate.labelOf(value);
}

std::optional<LowConfidenceBehavior> lowConfidenceBehaviorFromLabel(std::string_view text) {
    return kLowConfidence.fromLabel(text);
}
std::optional<DurationTolerancePreset> durationTolerancePresetFromLabel(std::string_view text) {
    return kDurationTolerance.fromLabel(text);
}
std::optional<MissingCameraBehavior> missingCameraBehaviorFromLabel(std::string_view text) {
    return kMissingCamera.fromLabel(text);
}
std::optional<TimecodeSourcePriority> timecodeSourcePriorityFromLabel(std::string_view text) {
    return kTimecodeSource.fromLabel(text);
}
std::optional<VideoFrameRateMode> videoFrameRateModeFromLabel(std::string_view text) {
    return kVideoFrameRate.fromLabel(text);
}

std::int64_t milliseconds(DurationTolerancePreset preset) {
    static constexpr std::array<std::int64_t, 3> kMilliseconds = {20, 50, 100};
    for (std::size_t i = 0; i < kDurationTolerance.cases.size(); ++i) {
        if (kDurationTolerance.cases[i] == preset) {
            return kMilliseconds[i];
        }
    }
    return 50;
}

}  // namespace norvane
