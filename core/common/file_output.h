#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <vector>

#include "core/common/bytes.h"

namespace norvane {

// How an output reaches its final name.
enum class WriteMode {
    replaceAtomically,  // an existing file is replaced in one rename
    createNew,          // an existing file makes the write fail with "File exists"
};

// A file being written. Bytes go to a hidden temporary file beside the
// destination; commit() flushes it to disk and moves it to the final name in
// one step, so no partial file ever appears there, even if the process dies.
// Without commit() (an exception, a cancellation) the temporary file is removed.
//
// The temporary name is "." + name + ".norvane-XXXXXX", the name part cut so
// the whole stays within the file system's NAME_MAX; the file is locked while
// it is written and gets the mode 0666 less the umask. commit() flushes the
// file and then its folder. It never replaces an input of a run in progress
// (OutputConflictError, see output_guard.h), and reports the committed path to
// the thread's RunOutputGuard and JobOutputGuard. write() stops with
// InterruptedError once SIGINT, SIGTERM or SIGHUP was received.
//
// The first OutputFile in a folder removes the stale temporary files there
// (see removeStaleTemporaries) older than the process.
//
// Errors are std::filesystem::filesystem_error carrying the operating system's
// error code (ENOSPC, EACCES, EEXIST for createNew over an existing file ...).
class OutputFile {
  public:
    OutputFile(std::filesystem::path destination, WriteMode mode);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    void write(ByteView bytes);
    // Appends `length` bytes of the open file `fromFd` starting at `offset`.
    // A source shorter than announced fails with EIO.
    void copyFrom(int fromFd, std::uint64_t offset, std::uint64_t length);
    void commit();

    const std::filesystem::path& destination() const { return destination_; }

  private:
    void discard() noexcept;
    // Starts the kernel writing out what was appended since the last start,
    // once that is at least kWriteBehindBytes, and waits for what was started
    // more than kWriteBehindWindow ago: commit's flush then waits only for the
    // tail, an output's unwritten pages stay bounded, progress follows the
    // disk and a cancel is not held up by gigabytes still to be flushed.
    void writeBehind() noexcept;

    static constexpr std::uint64_t kWriteBehindBytes = std::uint64_t{8} << 20;
    static constexpr std::uint64_t kWriteBehindWindow = std::uint64_t{32} << 20;

    std::filesystem::path destination_;
    std::filesystem::path temporary_;
    WriteMode mode_;
    int fd_ = -1;
    bool committed_ = false;
    std::uint64_t written_ = 0;  // bytes appended so far
    std::uint64_t started_ = 0;  // bytes whose writeback was started
    std::uint64_t settled_ = 0;  // bytes known to be written out
    std::vector<std::uint8_t> copyBuffer_;
};

// Whether commit() waits for an output's data to reach the disk before it
// takes its final name. Off by default, like a plain copy: an output is still
// complete or absent whatever happens to the program, but a power cut soon
// after a run can leave a final name holding only part of its data. With the
// wait, that holds across a power cut too, and a run costs the time the disk
// takes to write what it made. Process-wide; set once before the work starts.
void setFlushOutputs(bool flush);
bool flushOutputs();

// The whole of `bytes` written to `destination` through an OutputFile.
void writeFile(const std::filesystem::path& destination, ByteView bytes, WriteMode mode);

// Removes the hidden temporary files ".*.norvane-XXXXXX" in `folder` that
// were last written before `olderThan` and that no OutputFile holds (a run
// that was killed or lost power). Returns how many were removed.
std::size_t removeStaleTemporaries(const std::filesystem::path& folder,
                                   std::chrono::system_clock::time_point olderThan);

// The whole file read into memory; throws std::filesystem::filesystem_error.
ByteBuffer readWholeFile(const std::filesystem::path& path);

}  // namespace norvane
