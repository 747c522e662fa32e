#include "core/common/output_guard.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <mutex>

namespace norvane {
namespace fs = std::filesystem;

namespace {

// Inputs of every run in progress, counted (two runs may share an input).
std::mutex protectedMutex;
std::map<InodeIdentity, int>& protectedInputs() {
    static std::map<InodeIdentity, int> inputs;
    return inputs;
}

thread_local RunOutputGuard* currentRun = nullptr;
thread_local JobOutputGuard* currentJob = nullptr;

}  // namespace

std::optional<InodeIdentity> inodeIdentity(const fs::path& path) {
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) {
        return std::nullopt;
    }
    return InodeIdentity{static_cast<std::uint64_t>(st.st_dev),
                         static_cast<std::uint64_t>(st.st_ino)};
}

OutputConflictError OutputConflictError::outputIsInput(const fs::path& output) {
    return OutputConflictError("Output would replace an input file: " + output.filename().string() +
                                   ". Choose another output folder or name.",
                               output);
}

bool isProtectedInput(const fs::path& path) {
    const std::optional<InodeIdentity> id = inodeIdentity(path);
    if (!id) {
        return false;
    }
    const std::lock_guard lock(protectedMutex);
    return protectedInputs().count(*id) > 0;
}

RunOutputGuard::RunOutputGuard(const std::vector<fs::path>& inputs) : previous_(currentRun) {
    for (const fs::path& input : inputs) {
        if (const std::optional<InodeIdentity> id = inodeIdentity(input)) {
            if (std::find(inputs_.begin(), inputs_.end(), *id) == inputs_.end()) {
                inputs_.push_back(*id);
            }
        }
    }
    {
        const std::lock_guard lock(protectedMutex);
        for (const InodeIdentity& id : inputs_) {
            ++protectedInputs()[id];
        }
    }
    currentRun = this;
}

RunOutputGuard::~RunOutputGuard() {
    currentRun = previous_;
    const std::lock_guard lock(protectedMutex);
    for (const InodeIdentity& id : inputs_) {
        auto it = protectedInputs().find(id);
        if (it != protectedInputs().end() && --it->second == 0) {
            protectedInputs().erase(it);
        }
    }
}

bool RunOutputGuard::isInput(const fs::path& path) const {
    const std::optional<InodeIdentity> id = inodeIdentity(path);
    return id && std::find(inputs_.begin(), inputs_.end(), *id) != inputs_.end();
}

void RunOutputGuard::checkPlannedOutput(const fs::path& path) const {
    if (isInput(path)) {
        throw OutputConflictError::outputIsInput(path);
    }
}

bool RunOutputGuard::wroteEarlier(const fs::path& path) const {
    return writtenSet_.count(path.lexically_normal()) > 0;
}

RunOutputGuard* RunOutputGuard::current() {
    return currentRun;
}

void RunOutputGuard::recordCommitted(const fs::path& path) {
    written_.push_back(path);
    writtenSet_.insert(path.lexically_normal());
}

JobOutputGuard::JobOutputGuard() : previous_(currentJob) {
    currentJob = this;
}

JobOutputGuard::~JobOutputGuard() {
    currentJob = previous_;
    if (kept_) {
        // An enclosing job owns what this one kept.
        if (previous_ != nullptr) {
            for (const fs::path& path : committed_) {
                previous_->recordCommitted(path);
            }
        }
        return;
    }
    for (auto it = committed_.rbegin(); it != committed_.rend(); ++it) {
        ::unlink(it->c_str());
    }
}

JobOutputGuard* JobOutputGuard::current() {
    return currentJob;
}

void JobOutputGuard::recordCommitted(const fs::path& path) {
    committed_.push_back(path);
}

}  // namespace norvane
