#include "core/common/file_output.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <fstream>
#include <mutex>
#include <set>
#include <string>
#include <system_error>
#include <vector>

#include "core/common/interrupt.h"
#include "core/common/output_guard.h"

namespace norvane {
namespace fs = std::filesystem;

namespace {

std::atomic<bool> flushBeforeRename{false};

[[noreturn]] void throwErrno(const std::string& what, const fs::path& path, int err) {
    throw fs::filesystem_error(what, path, std::error_code(err, std::generic_category()));
}

// rename() that refuses to replace an existing destination. Prefers the
// kernel's RENAME_NOREPLACE, falls back to link()+unlink() where a file system
// does not offer it.
int renameNoReplace(const fs::path& from, const fs::path& to) {
#ifdef SYS_renameat2
    constexpr unsigned kRenameNoReplace = 1;  // RENAME_NOREPLACE
    if (syscall(SYS_renameat2, AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), kRenameNoReplace) ==
        0) {
        return 0;
    }
    if (errno != EINVAL && errno != ENOSYS && errno != ENOTSUP) {
        return errno;
    }
#endif
    if (::link(from.c_str(), to.c_str()) == 0) {
        ::unlink(from.c_str());
        return 0;
    }
    return errno;
}

constexpr std::string_view kTemporaryMarker = ".norvane-";
constexpr std::size_t kTemporaryRandom = 6;  // mkstemp's XXXXXX

// When this process started: temporary files older than that belong to a run
// that ended without cleaning up (killed, power lost).
const std::chrono::system_clock::time_point processStart = std::chrono::system_clock::now();

// The process's umask, read without changing it where the kernel reports it.
mode_t processUmask() {
    static const mode_t mask = [] {
        std::ifstream status("/proc/self/status");
        std::string line;
        while (std::getline(status, line)) {
            if (line.rfind("Umask:", 0) == 0) {
                return static_cast<mode_t>(std::stoul(line.substr(6), nullptr, 8));
            }
        }
        const mode_t current = ::umask(022);
        ::umask(current);
        return current;
    }();
    return mask;
}

// The longest file name the folder's file system takes (NAME_MAX on Linux).
std::size_t nameMax(const fs::path& folder) {
    const long value = ::pathconf(folder.c_str(), _PC_NAME_MAX);
    return value > 0 ? static_cast<std::size_t>(value) : NAME_MAX;
}

// The hidden temporary name for `name`: "." + name + ".norvane-XXXXXX", the
// name cut (at a UTF-8 character boundary) so the whole stays within
// `limit` bytes; the final name is never shortened.
std::string temporaryPattern(const std::string& name, std::size_t limit) {
    const std::size_t overhead = 1 + kTemporaryMarker.size() + kTemporaryRandom;
    std::string stem = name;
    if (limit > overhead && stem.size() + overhead > limit) {
        std::size_t keep = limit - overhead;
        while (keep > 0 && (static_cast<unsigned char>(stem[keep]) & 0xC0) == 0x80) {
            --keep;  // do not cut inside a UTF-8 sequence
        }
        stem.resize(keep);
    }
    return "." + stem + std::string(kTemporaryMarker) + std::string(kTemporaryRandom, 'X');
}

bool isTemporaryName(const std::string& name) {
    if (name.size() < 1 + kTemporaryMarker.size() + kTemporaryRandom || name[0] != '.') {
        return false;
    }
    const std::size_t marker = name.size() - kTemporaryRandom - kTemporaryMarker.size();
    return name.compare(marker, kTemporaryMarker.size(), kTemporaryMarker) == 0;
}

void syncFolder(const fs::path& folder) {
    const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        ::fsync(fd);
        ::close(fd);
    }
}

// Sweeps each folder once per process.
void sweepOnce(const fs::path& folder) {
    static std::mutex mutex;
    static std::set<fs::path> swept;
    {
        const std::lock_guard lock(mutex);
        if (!swept.insert(fs::absolute(folder).lexically_normal()).second) {
            return;
        }
    }
    removeStaleTemporaries(folder, processStart);
}

}  // namespace

void setFlushOutputs(bool flush) {
    flushBeforeRename.store(flush, std::memory_order_relaxed);
}

bool flushOutputs() {
    return flushBeforeRename.load(std::memory_order_relaxed);
}

std::size_t removeStaleTemporaries(const fs::path& folder,
                                   std::chrono::system_clock::time_point olderThan) {
    DIR* dir = ::opendir(folder.c_str());
    if (dir == nullptr) {
        return 0;
    }
    const auto limit =
        std::chrono::duration_cast<std::chrono::seconds>(olderThan.time_since_epoch()).count();
    std::size_t removed = 0;
    while (const dirent* entry = ::readdir(dir)) {
        const std::string name = entry->d_name;
        if (!isTemporaryName(name)) {
            continue;
        }
        const int fd =
            ::openat(::dirfd(dir), name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
        if (fd < 0) {
            continue;
        }
        struct stat st {};
        // A temporary file still being written is locked by its OutputFile.
        if (::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_mtime < limit &&
            ::flock(fd, LOCK_EX | LOCK_NB) == 0) {
            if (::unlinkat(::dirfd(dir), name.c_str(), 0) == 0) {
                ++removed;
            }
        }
        ::close(fd);
    }
    ::closedir(dir);
    return removed;
}

OutputFile::OutputFile(fs::path destination, WriteMode mode)
    : destination_(std::move(destination)), mode_(mode) {
    fs::path folder = destination_.parent_path();
    if (folder.empty()) {
        folder = ".";
    }
    sweepOnce(folder);
    std::string pattern =
        (folder / temporaryPattern(destination_.filename().string(), nameMax(folder))).string();
    fd_ = ::mkostemp(pattern.data(), O_CLOEXEC);
    if (fd_ < 0) {
        throwErrno("cannot create output file", destination_, errno);
    }
    temporary_ = pattern;
    ::flock(fd_, LOCK_EX | LOCK_NB);
    ::fchmod(fd_, 0666 & ~processUmask());
}

OutputFile::~OutputFile() {
    if (!committed_) {
        discard();
    }
}

void OutputFile::discard() noexcept {
    if (fd_ >= 0) {
        ::close(fd_);
        fd_ = -1;
    }
    if (!temporary_.empty()) {
        ::unlink(temporary_.c_str());
        temporary_.clear();
    }
}

void OutputFile::write(ByteView bytes) {
    // Written in slices of 128 KiB, as `cp` writes: the kernel fills a large
    // write with large page-cache blocks, which need long runs of free memory;
    // on a virtual machine whose idle memory went back to the host those cost
    // up to eight times a plain copy, while small blocks come from memory in
    // use. Slicing also lets an interrupt stop a long write soon.
    constexpr std::size_t kSlice = std::size_t{128} << 10;
    const std::uint8_t* p = bytes.data();
    std::size_t left = bytes.size();
    do {
        if (interruptRequested()) {
            discard();
            throw InterruptedError();
        }
        if (left == 0) {
            break;
        }
        ssize_t n = ::write(fd_, p, std::min(left, kSlice));
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            int err = errno;
            discard();
            throwErrno("cannot write output file", destination_, err);
        }
        p += n;
        left -= static_cast<std::size_t>(n);
        written_ += static_cast<std::uint64_t>(n);
        writeBehind();
    } while (left > 0);
}

void OutputFile::writeBehind() noexcept {
#ifdef SYNC_FILE_RANGE_WRITE
    if (written_ - started_ < kWriteBehindBytes || !flushOutputs()) {
        return;
    }
    // Only a hint: where the file system does not take it, commit's fsync
    // does all the work as before.
    ::sync_file_range(fd_, static_cast<off_t>(started_), static_cast<off_t>(written_ - started_),
                      SYNC_FILE_RANGE_WRITE);
    started_ = written_;
    if (started_ - settled_ > kWriteBehindWindow) {
        const std::uint64_t upTo = started_ - kWriteBehindWindow;
        ::sync_file_range(
            fd_, static_cast<off_t>(settled_), static_cast<off_t>(upTo - settled_),
            SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE | SYNC_FILE_RANGE_WAIT_AFTER);
        settled_ = upTo;
    }
#endif
}

void OutputFile::copyFrom(int fromFd, std::uint64_t offset, std::uint64_t length) {
    // Through a buffer of a couple of MiB, not copy_file_range: an output's
    // audio rarely starts at the same place in its page as the source's (a
    // stamped header is longer), and the kernel's copy then costs half as much
    // again as a plain copy, while read + write through a buffer that stays in
    // the CPU cache runs at the speed of `cp`.
    constexpr std::size_t kCopyBuffer = std::size_t{2} << 20;
    if (copyBuffer_.empty()) {
        copyBuffer_.resize(kCopyBuffer);
    }
    while (length > 0) {
        const auto want =
            static_cast<std::size_t>(std::min<std::uint64_t>(length, copyBuffer_.size()));
        const ssize_t n = ::pread(fromFd, copyBuffer_.data(), want, static_cast<off_t>(offset));
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {  // a source shorter than announced
            const int err = n == 0 ? EIO : errno;
            discard();
            throwErrno("cannot read file", destination_, err);
        }
        write(ByteView(copyBuffer_.data(), static_cast<std::size_t>(n)));
        offset += static_cast<std::uint64_t>(n);
        length -= static_cast<std::uint64_t>(n);
    }
}

void OutputFile::commit() {
    if (interruptRequested()) {
        discard();
        throw InterruptedError();
    }
    if ((flushOutputs() && ::fsync(fd_) != 0) || ::close(fd_) != 0) {
        int err = errno;
        fd_ = -1;
        discard();
        throwErrno("cannot write output file", destination_, err);
    }
    fd_ = -1;
    int err = 0;
    if (mode_ == WriteMode::replaceAtomically) {
        if (isProtectedInput(destination_)) {
            discard();
            throw OutputConflictError::outputIsInput(destination_);
        }
        err = ::rename(temporary_.c_str(), destination_.c_str()) == 0 ? 0 : errno;
    } else {
        err = renameNoReplace(temporary_, destination_);
    }
    if (err != 0) {
        discard();
        throwErrno("cannot write output file", destination_, err);
    }
    temporary_.clear();
    committed_ = true;
    // The new directory entry is durable only once the folder is flushed.
    if (flushOutputs()) {
        fs::path folder = destination_.parent_path();
        syncFolder(folder.empty() ? fs::path(".") : folder);
    }
    if (RunOutputGuard* run = RunOutputGuard::current()) {
        run->recordCommitted(destination_);
    }
    if (JobOutputGuard* job = JobOutputGuard::current()) {
        job->recordCommitted(destination_);
    }
}

void writeFile(const fs::path& destination, ByteView bytes, WriteMode mode) {
    OutputFile out(destination, mode);
    out.write(bytes);
    out.commit();
}

ByteBuffer readWholeFile(const fs::path& path) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        throwErrno("cannot read file", path, errno);
    }
    struct stat st {};
    if (::fstat(fd, &st) != 0) {
        int err = errno;
        ::close(fd);
        throwErrno("cannot read file", path, err);
    }
    if (S_ISDIR(st.st_mode)) {
        ::close(fd);
        throwErrno("cannot read file", path, EISDIR);
    }
    ByteBuffer buffer;
    buffer.reserve(static_cast<std::size_t>(st.st_size));
    std::uint8_t chunk[1 << 16];
    for (;;) {
        ssize_t n = ::read(fd, chunk, sizeof chunk);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            int err = errno;
            ::close(fd);
            throwErrno("cannot read file", path, err);
        }
        if (n == 0) {
            break;
        }
        buffer.insert(buffer.end(), chunk, chunk + n);
    }
    ::close(fd);
    return buffer;
}

}  // namespace norvane
