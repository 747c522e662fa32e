#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace norvane {

// The location an input holds until the user chooses one.
inline constexpr std::string_view kUnsetTimelineInputPath = "/tmp/.norvane-unset-timeline-input";

// What a rebuild reads and where it writes.
struct RebuildInputs {
    std::filesystem::path sourceXML{std::string(kUnsetTimelineInputPath)};
    std::filesystem::path stereoMix{std::string(kUnsetTimelineInputPath)};
    std::filesystem::path syncedFolder{std::string(kUnsetTimelineInputPath)};
    std::filesystem::path outputFolder{std::string(kUnsetTimelineInputPath)};
    std::string outputFilename = "timeline_rebuild.fcpxml";
};

// The output file name as it will be written: trimmed, ".fcpxml" appended
// unless it already ends so (in any case). nullopt when it is empty, ".", "..",
// or holds a folder part, "/" or "\".
std::optional<std::string> normalizedOutputFilename(std::string_view typed);

// The first failing input check, as the message shown to the user:
// "Source timeline must be XML/FCPXML.", "Stereo mix must be a WAV file.",
// "Choose a synced audio folder.", "Choose an output folder.",
// "Set a simple FCPXML filename without folders or path traversal.".
std::optional<std::string> checkRebuildInputs(const RebuildInputs& inputs);

}  // namespace norvane
