#pragma once

// What libsndfile sees in a file we wrote: an independent reader.
#include <sndfile.h>

#include <filesystem>
#include <vector>

namespace norvane::testing {

struct SndfileView {
    bool opened = false;
    sf_count_t frames = 0;
    int channels = 0;
    int sampleRate = 0;
    int format = 0;               // SF_FORMAT_* (major | subtype)
    std::vector<double> samples;  // interleaved, normalised by libsndfile
};

inline SndfileView openWithSndfile(const std::filesystem::path& path) {
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
    view.samples.resize(static_cast<std::size_t>(info.frames * info.channels));
    sf_read_double(file, view.samples.data(), info.frames * info.channels);
    sf_close(file);
    return view;
}

}  // namespace norvane::testing
