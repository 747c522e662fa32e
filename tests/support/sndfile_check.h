#pragma once

// What libsndfile sees in a file we wrote: an independent reader; and the
// sparse files that stand in for recordings past 4 GiB. Header-only: tests
// that include it link libsndfile.
#include <fcntl.h>
#include <sndfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <vector>

#include "core/common/bytes.h"

namespace norvane::testing {

struct SndfileView {
    bool opened = false;
    sf_count_t frames = 0;
    int channels = 0;
    int sampleRate = 0;
    int format = 0;                              // SF_FORMAT_* (major | subtype)
    std::vector<double> samples;                 // interleaved, normalised by libsndfile
    std::optional<std::uint64_t> timeReference;  // the bext TimeReference, when there is a bext

    std::vector<float> channel(int index) const {
        std::vector<float> out;
        for (std::size_t i = static_cast<std::size_t>(index); i < samples.size();
             i += static_cast<std::size_t>(channels)) {
            out.push_back(static_cast<float>(samples[i]));
        }
        return out;
    }
};

// `readSamples` false reads the header only (for sparse files of gigabytes).
inline SndfileView openWithSndfile(const std::filesystem::path& path, bool readSamples = true) {
    SndfileView view;
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (file == nullptr) {
        return view;
    }
    view.opened = true;
    view.frames = info.frames;
    view.channels = info.channels;
    view.sampleRate = info.samplerate;
    view.format = info.format;
    if (readSamples) {
        view.samples.resize(static_cast<std::size_t>(info.frames * info.channels));
        sf_read_double(file, view.samples.data(), info.frames * info.channels);
    }
    SF_BROADCAST_INFO_VAR(16384) bext{};
    if (sf_command(file, SFC_GET_BROADCAST_INFO, &bext, sizeof bext) == SF_TRUE) {
        view.timeReference =
            (std::uint64_t{bext.time_reference_high} << 32) | bext.time_reference_low;
    }
    sf_close(file);
    return view;
}

// Creates a sparse file of `size` bytes beginning with `head`; false when the
// file system would have to write the holes (the caller skips then).
inline bool makeSparse(const std::filesystem::path& path, ByteView head, std::uint64_t size) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0) {
        return false;
    }
    bool ok = ::write(fd, head.data(), head.size()) == static_cast<ssize_t>(head.size()) &&
              ::ftruncate(fd, static_cast<off_t>(size)) == 0;
    struct stat st {};
    ok = ok && ::fstat(fd, &st) == 0 && static_cast<std::uint64_t>(st.st_blocks) * 512 < size / 2;
    ::close(fd);
    return ok;
}

}  // namespace norvane::testing
