#include "core/stamp/output_naming.h"

#include <cerrno>

#include <fmt/format.h>

#include "core/common/output_guard.h"
#include "core/common/text.h"

namespace norvane::OutputNaming {

namespace fs = std::filesystem;

namespace {

// Counts anything at the path, also a dangling symbolic link, as taken, and a
// name an earlier output of the run took (even one since taken back).
bool pathIsTaken(const fs::path& path) {
    std::error_code ec;
    if (fs::exists(fs::symlink_status(path, ec))) {
        return true;
    }
    const RunOutputGuard* run = RunOutputGuard::current();
    return run != nullptr && run->wroteEarlier(path);
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
    const RunOutputGuard* run = RunOutputGuard::current();
    if (run != nullptr) {
        run->checkPlannedOutput(candidate);
    }
    if (!pathIsTaken(candidate)) {
        return candidate;
    }
    switch (behavior) {
        case OutputCollisionBehavior::ask:
            throw ProcessingError::outputFileAlreadyExists(safe);
        case OutputCollisionBehavior::overwrite:
            if (run == nullptr || !run->wroteEarlier(candidate)) {
                return candidate;
            }
            break;
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

fs::path writeResolved(const fs::path& folder, std::string_view name,
                       OutputCollisionBehavior behavior,
                       const std::function<void(const fs::path&, bool replace)>& write) {
    for (;;) {
        const fs::path destination = resolveDestination(folder, name, behavior);
        const RunOutputGuard* run = RunOutputGuard::current();
        const bool replace = behavior == OutputCollisionBehavior::overwrite &&
                             (run == nullptr || !run->wroteEarlier(destination));
        try {
            write(destination, replace);
            return destination;
        } catch (const fs::filesystem_error& e) {
            if (replace || e.code().value() != EEXIST) {
                throw;
            }
            if (behavior == OutputCollisionBehavior::ask) {
                throw ProcessingError::outputFileAlreadyExists(safeName(name));
            }
            // Another run took the name since it was resolved: resolve again.
        }
    }
}

}  // namespace norvane::OutputNaming
