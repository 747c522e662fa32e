#pragma once

// What keeps a run from destroying data: its inputs can never be replaced by
// one of its outputs, and a job that fails takes back what it wrote.
//
// Both guards are scoped objects on the thread that runs the engine. Every
// OutputFile committed on that thread while they live reports its final path
// to them, so the engines need no bookkeeping of their own.

#include <compare>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <set>
#include <vector>

#include "core/common/error.h"

namespace norvane {

// A file as the file system knows it: device and inode, after following
// links, so a symbolic or hard link to a file is that file.
struct InodeIdentity {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    friend auto operator<=>(const InodeIdentity&, const InodeIdentity&) = default;
};

// Absent when nothing (or a dangling link) is at `path`.
std::optional<InodeIdentity> inodeIdentity(const std::filesystem::path& path);

// An output that would land on one of the run's inputs.
class OutputConflictError : public Error {
  public:
    static OutputConflictError outputIsInput(const std::filesystem::path& output);
    const std::filesystem::path& output() const { return output_; }

  private:
    OutputConflictError(const std::string& message, std::filesystem::path output)
        : Error(message), output_(std::move(output)) {}
    std::filesystem::path output_;
};

// True when `path` is an input of a run in progress anywhere in this process.
bool isProtectedInput(const std::filesystem::path& path);

// The inputs of one run. While it lives, no OutputFile in the process will
// replace any of them (whatever its write mode), and it records every output
// its thread commits, so names can be kept unique across the run.
class RunOutputGuard {
  public:
    explicit RunOutputGuard(const std::vector<std::filesystem::path>& inputs);
    ~RunOutputGuard();
    RunOutputGuard(const RunOutputGuard&) = delete;
    RunOutputGuard& operator=(const RunOutputGuard&) = delete;

    // Whether `path` is (a link to) one of the inputs.
    bool isInput(const std::filesystem::path& path) const;
    // Throws OutputConflictError::outputIsInput when it is. Called on every
    // planned output before anything is written.
    void checkPlannedOutput(const std::filesystem::path& path) const;
    // Whether an earlier output of this run was committed at `path`.
    bool wroteEarlier(const std::filesystem::path& path) const;
    const std::vector<std::filesystem::path>& written() const { return written_; }

    // The guard of the run on this thread, if any.
    static RunOutputGuard* current();
    void recordCommitted(const std::filesystem::path& path);

  private:
    std::vector<InodeIdentity> inputs_;
    std::vector<std::filesystem::path> written_;
    std::set<std::filesystem::path> writtenSet_;
    RunOutputGuard* previous_;
};

// The outputs one job (a stamp job, one split input) has committed. Unless
// kept, they are removed when the guard is destroyed: a job that fails or is
// cancelled leaves nothing behind, so the disk agrees with the report.
class JobOutputGuard {
  public:
    JobOutputGuard();
    ~JobOutputGuard();
    JobOutputGuard(const JobOutputGuard&) = delete;
    JobOutputGuard& operator=(const JobOutputGuard&) = delete;

    void keep() noexcept { kept_ = true; }
    const std::vector<std::filesystem::path>& committed() const { return committed_; }

    static JobOutputGuard* current();
    void recordCommitted(const std::filesystem::path& path);

  private:
    std::vector<std::filesystem::path> committed_;
    bool kept_ = false;
    JobOutputGuard* previous_;
};

}  // namespace norvane
