#include "core/stamp/output_naming.h"

#include <fmt/format.h>

#include "core/common/text.h"

namespace norvane::OutputNaming {

namespace fs = std::filesystem;

namespace {

// Counts anything at the path, also a dangling symbolic link, as taken.
bool pathIsTaken(const fs::path& path) {
    std::error_code ec;
    return fs::exists(fs::symlink_status(path, ec));
}

}  // namespace

std::string outputName(const fs::path& source, std::optional<std::int64_t> segmentIndex,
                       std::string_view suffix) {
    std::string name = source.stem().string();
    if (segmentIndex) {
        name += fmt::format("_seg{:03d}", *segmentIndex);
    }
    name += suffix;
    name += ".wav";
    return name;
}

std::string safeName(std::string_view name) {
    const std::string trimmed = trim(name);
    const auto refuse = [&] { return ProcessingError::unsafeOutputFilename(std::string(name)); };
    if (trimmed.empty() || trimmed == "." || trimmed == "..") {
        throw refuse();
    }
    if (trimmed.find('/') != std::string::npos || trimmed.find('\\') != std::string::npos) {
        throw refuse();
    }
    if (fs::path(trimmed).filename().string() != trimmed) {
        throw refuse();
    }
    return trimmed;
}

fs::path resolveDestination(const fs::path& folder, std::string_view name,
                            OutputCollisionBehavior behavior) {
    const std::string safe = safeName(name);
    const fs::path candidate = folder / safe;
    if (!pathIsTaken(candidate)) {
        return candidate;
    }
    switch (behavior) {
        case OutputCollisionBehavior::ask:
            throw ProcessingError::outputFileAlreadyExists(safe);
        case OutputCollisionBehavior::overwrite:
            return candidate;
        case OutputCollisionBehavior::keepBoth:
            break;
    }
    const fs::path asPath(safe);
    const std::string base = asPath.stem().string();
    const std::string extension = asPath.extension().string();  // with its dot, or empty
    for (std::int64_t n = 2;; ++n) {
        const fs::path numbered = folder / (base + "_" + std::to_string(n) + extension);
        if (!pathIsTaken(numbered)) {
            return numbered;
        }
    }
}

}  // namespace norvane::OutputNaming
