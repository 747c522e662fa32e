#include "core/rebuild/rebuild_inputs.h"

#include "core/common/text.h"

namespace norvane {

namespace fs = std::filesystem;

std::optional<std::string> normalizedOutputFilename(std::string_view typed) {
    std::string name = trim(typed);
    if (name.empty() || name == "." || name == ".." ||
        name.find_first_of("/\\") != std::string::npos || fs::path(name).filename() != name) {
        return std::nullopt;
    }
    if (!endsWithNoCase(name, ".fcpxml")) {
        name += ".fcpxml";
    }
    return name;
}

std::optional<std::string> checkRebuildInputs(const RebuildInputs& inputs) {
    std::string sourceExtension = toLowerASCII(inputs.sourceXML.extension().string());
    if (sourceExtension != ".xml" && sourceExtension != ".fcpxml") {
        return "Source timeline must be XML/FCPXML.";
    }
    if (toLowerASCII(inputs.stereoMix.extension().string()) != ".wav") {
        return "Stereo mix must be a WAV file.";
    }
    std::error_code ec;
    if (!fs::is_directory(inputs.syncedFolder, ec)) {
        return "Choose a synced audio folder.";
    }
    if (!fs::is_directory(inputs.outputFolder, ec)) {
        return "Choose an output folder.";
    }
    if (!normalizedOutputFilename(inputs.outputFilename)) {
        return "Set a simple FCPXML filename without folders or path traversal.";
    }
    return std::nullopt;
}

}  // namespace norvane
