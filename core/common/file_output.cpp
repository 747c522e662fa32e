#include "core/common/file_output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <system_error>
#include <vector>

namespace norvane {
namespace fs = std::filesystem;

namespace {

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

}  // namespace

OutputFile::OutputFile(fs::path destination, WriteMode mode)
    : destination_(std::move(destination)), mode_(mode) {
    fs::path folder = destination_.parent_path();
    if (folder.empty()) {
        folder = ".";
    }
    std::string pattern =
        (folder / ("." + destination_.filename().string() + ".norvane-XXXXXX")).string();
    fd_ = ::mkstemp(pattern.data());
    if (fd_ < 0) {
        throwErrno("cannot create output file", destination_, errno);
    }
    temporary_ = pattern;
    ::fchmod(fd_, 0644);
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
    const std::uint8_t* p = bytes.data();
    std::size_t left = bytes.size();
    while (left > 0) {
        ssize_t n = ::write(fd_, p, left);
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
    }
}

void OutputFile::copyFrom(int fromFd, std::uint64_t offset, std::uint64_t length) {
    bool kernelCopy = true;
    std::vector<std::uint8_t> buffer;
    while (length > 0) {
        if (kernelCopy) {
            auto from = static_cast<off_t>(offset);
            const ssize_t n = ::copy_file_range(
                fromFd, &from, fd_, nullptr,
                static_cast<std::size_t>(std::min<std::uint64_t>(length, std::uint64_t{1} << 30)),
                0);
            if (n > 0) {
                offset += static_cast<std::uint64_t>(n);
                length -= static_cast<std::uint64_t>(n);
                continue;
            }
            if (n < 0 && errno == EINTR) {
                continue;
            }
            if (n < 0 && (errno == EXDEV || errno == EINVAL || errno == ENOSYS ||
                          errno == EOPNOTSUPP || errno == EBADF)) {
                kernelCopy = false;  // not offered here: copy through a buffer
                continue;
            }
            const int err = n == 0 ? EIO : errno;
            discard();
            throwErrno("cannot write output file", destination_, err);
        }
        if (buffer.empty()) {
            buffer.resize(std::size_t{1} << 20);
        }
        const auto want = static_cast<std::size_t>(std::min<std::uint64_t>(length, buffer.size()));
        const ssize_t n = ::pread(fromFd, buffer.data(), want, static_cast<off_t>(offset));
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            const int err = n == 0 ? EIO : errno;
            discard();
            throwErrno("cannot read file", destination_, err);
        }
        write(ByteView(buffer.data(), static_cast<std::size_t>(n)));
        offset += static_cast<std::uint64_t>(n);
        length -= static_cast<std::uint64_t>(n);
    }
}

void OutputFile::commit() {
    if (::fsync(fd_) != 0 || ::close(fd_) != 0) {
        int err = errno;
        fd_ = -1;
        discard();
        throwErrno("cannot write output file", destination_, err);
    }
    fd_ = -1;
    int err = 0;
    if (mode_ == WriteMode::replaceAtomically) {
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
