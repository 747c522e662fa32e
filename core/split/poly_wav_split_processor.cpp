#include "core/split/poly_wav_split_processor.h"

#include <algorithm>
#include <map>
#include <memory>
#include <set>

#include <fmt/format.h>

#include "core/audio/mono_wav_writer.h"
#include "core/audio/wav_file.h"
#include "core/audio/wav_reader.h"
#include "core/common/file_output.h"
#include "core/common/interrupt.h"
#include "core/common/output_guard.h"
#include "core/common/text.h"
#include "core/split/split_metadata.h"

namespace norvane {
namespace fs = std::filesystem;

PolyWavSplitError PolyWavSplitError::outputExists(const fs::path& url) {
    return PolyWavSplitError(Kind::outputExists,
                             "Output file already exists: " + url.filename().string() +
                                 ". Enable overwrite or choose another folder.",
                             url);
}

PolyWavSplitError PolyWavSplitError::cancelled() {
    return PolyWavSplitError(Kind::cancelled, "Split was cancelled.");
}

namespace PolyWavSplitProcessor {

namespace {

bool isSplittableFormat(const WAVFmtChunk& fmt) {
    return fmt.audioFormat == 1 || (fmt.audioFormat == 3 && fmt.bitsPerSample == 32);
}

// Base names unique across the run: the n-th file of one base name gets
// " (n)", and a name that is still taken (C/Take1 (2).wav after B/Take1.wav
// became "Take1 (2)") counts on until it is free.
std::vector<std::string> disambiguatedBaseNames(const std::vector<fs::path>& files) {
    std::map<std::string, int> seen;
    std::set<std::string> used;
    std::vector<std::string> names;
    for (const fs::path& file : files) {
        const std::string base = file.stem().string();
        int n = ++seen[base];
        std::string name = n >= 2 ? base + " (" + std::to_string(n) + ")" : base;
        while (used.count(name) > 0) {
            n = std::max(n, 1) + 1;
            name = base + " (" + std::to_string(n) + ")";
        }
        used.insert(name);
        names.push_back(std::move(name));
    }
    return names;
}

}  // namespace

std::string channelLabel(int channelNumber, int channelCount) {
    const int width = std::max(2, static_cast<int>(std::to_string(channelCount).size()));
    return fmt::format("CH{:0{}d}", channelNumber, width);
}

std::string outputFileName(const std::string& base, const std::string& label,
                           const std::string& trackName, const PolyWavSplitNaming& naming) {
    std::string name = base + "_" + label;
    if (naming.appendTrackNames) {
        if (const std::string safe = SplitMetadata::fileNameSafe(trackName); !safe.empty()) {
            name += "_" + safe;
        }
    }
    return name + ".wav";
}

namespace {

// The output names of one file, in channel order, and the audio bytes its
// split writes; none when it will be skipped. Only the header and metadata
// chunks are read.
std::vector<std::string> plannedNames(const fs::path& input, const std::string& base,
                                      const PolyWavSplitNaming& naming, std::uint64_t& bytes) {
    std::vector<std::string> names;
    bytes = 0;
    try {
        const WavReader file(input);
        bytes = file.dataChunk().size;
        const int channels = file.fmt().channelCount;
        if (!isSplittableFormat(file.fmt()) || channels < 2) {
            return names;
        }
        const SplitSourceMetadata metadata = SplitMetadata::read(WAVFile::headersOf(file));
        for (int channel = 0; channel < channels; ++channel) {
            names.push_back(outputFileName(base, channelLabel(channel + 1, channels),
                                           SplitMetadata::trackName(metadata, channel), naming));
        }
    } catch (const std::exception&) {
    }
    return names;
}

}  // namespace

PolyWavSplitReport split(const std::vector<fs::path>& inputs, const fs::path& outputFolder,
                         bool overwriteExisting, const std::function<void(double)>& progress,
                         const std::function<bool()>& isCancelled) {
    return split(inputs, outputFolder, overwriteExisting, PolyWavSplitNaming{}, progress,
                 isCancelled);
}

PolyWavSplitReport split(const std::vector<fs::path>& inputs, const fs::path& outputFolder,
                         bool overwriteExisting, const PolyWavSplitNaming& naming,
                         const std::function<void(double)>& progress,
                         const std::function<bool()>& isCancelled) {
    PolyWavSplitReport report;
    // std::set<std::string> orders by bytes: code-point order for UTF-8 paths.
    std::set<std::string> unique;
    for (const fs::path& input : inputs) {
        unique.insert(fs::absolute(input).lexically_normal().string());
    }
    if (unique.empty()) {
        return report;
    }
    const std::vector<fs::path> files(unique.begin(), unique.end());

    // Plan every output first: none may be one of the inputs (also through a
    // link), whatever the overwrite flag, and nothing is written if one is.
    const RunOutputGuard guard(files);
    const std::vector<std::string> bases = disambiguatedBaseNames(files);
    // Progress counts the audio bytes of the run, so the fraction moves evenly
    // across files of any size; a file skipped (or without audio) counts as
    // one byte.
    std::vector<double> weights;
    double total = 0;
    for (std::size_t i = 0; i < files.size(); ++i) {
        std::uint64_t bytes = 0;
        const std::vector<std::string> names = plannedNames(files[i], bases[i], naming, bytes);
        weights.push_back(names.empty() ? 1.0 : std::max(static_cast<double>(bytes), 1.0));
        total += weights.back();
        for (const std::string& name : names) {
            guard.checkPlannedOutput(outputFolder / name);
        }
    }
    double done = 0;
    std::size_t current = 0;  // index of the file in hand
    auto advance = [&] {
        done += weights[current];
        if (progress) {
            progress(current + 1 == files.size() ? 1.0 : done / total);
        }
    };
    // Within a file its share fills in as the bytes are written.
    auto partly = [&](std::uint64_t bytes, std::uint64_t of) {
        if (progress && of > 0) {
            progress(
                (done + weights[current] * static_cast<double>(bytes) / static_cast<double>(of)) /
                total);
        }
    };
    auto checkCancelled = [&] {
        if (isCancelled && isCancelled()) {
            throw PolyWavSplitError::cancelled();
        }
    };

    const WriteMode mode = overwriteExisting ? WriteMode::replaceAtomically : WriteMode::createNew;
    for (std::size_t index = 0; index < files.size(); ++index) {
        const fs::path& input = files[index];
        current = index;
        checkCancelled();
        PolyWavSplitFileResult result;
        result.inputURL = input;
        const std::string& base = bases[index];
        result.disambiguatedBaseName = base;

        auto skip = [&](std::string reason) {
            result.skipped = true;
            result.skipReason = std::move(reason);
            report.fileResults.push_back(result);
            advance();
        };
        // The header and metadata chunks only; the audio is read once below.
        std::optional<WavReader> file;
        try {
            file.emplace(input);
        } catch (const std::exception& e) {
            skip("Could not read: " + describeError(e));
            continue;
        }
        if (!isSplittableFormat(file->fmt())) {
            skip("Unsupported format; use linear PCM or 32-bit float WAV.");
            continue;
        }
        const int channels = file->fmt().channelCount;
        if (channels < 2) {
            skip("File has one channel; nothing to split.");
            continue;
        }
        result.warnings = file->warnings();
        const SplitSourceMetadata metadata = SplitMetadata::read(WAVFile::headersOf(*file));
        // Every output is named and checked before any is written.
        std::vector<fs::path> urls;
        for (int channel = 0; channel < channels; ++channel) {
            const fs::path url =
                outputFolder / outputFileName(base, channelLabel(channel + 1, channels),
                                              SplitMetadata::trackName(metadata, channel), naming);
            if (!overwriteExisting && fs::exists(fs::symlink_status(url))) {
                throw PolyWavSplitError::outputExists(url);
            }
            urls.push_back(url);
        }
        checkCancelled();
        // One pass over the audio: each block feeds every channel's output.
        std::vector<std::unique_ptr<OutputFile>> outs;
        std::vector<MonoWAVWriter::ChannelOutput> outputs;
        for (int channel = 0; channel < channels; ++channel) {
            outs.push_back(
                std::make_unique<OutputFile>(urls[static_cast<std::size_t>(channel)], mode));
            outputs.push_back(
                {channel, outs.back().get(), SplitMetadata::monoChunks(metadata, channel)});
        }
        bool finished = false;
        try {
            finished = MonoWAVWriter::writeChannels(*file, outputs,
                                                    [&](std::uint64_t bytes, std::uint64_t of) {
                                                        if (isCancelled && isCancelled()) {
                                                            return false;
                                                        }
                                                        partly(bytes, of);
                                                        return true;
                                                    });
        } catch (const InterruptedError&) {
        }
        if (!finished) {
            throw PolyWavSplitError::cancelled();  // the outputs' temporary files go
        }
        // A file whose outputs cannot all be committed (a concurrent run took
        // a name) takes back those it did commit: complete or absent.
        JobOutputGuard written;
        for (int channel = 0; channel < channels; ++channel) {
            const fs::path& url = urls[static_cast<std::size_t>(channel)];
            try {
                outs[static_cast<std::size_t>(channel)]->commit();
            } catch (const fs::filesystem_error& e) {
                if (!overwriteExisting && e.code() == std::errc::file_exists) {
                    throw PolyWavSplitError::outputExists(url);
                }
                throw;
            }
            result.outputURLs.push_back(url);
            report.outputPaths.push_back(url);
        }
        written.keep();
        advance();
        report.fileResults.push_back(std::move(result));
    }
    return report;
}

}  // namespace PolyWavSplitProcessor

std::vector<fs::path> expandWavInputs(const std::vector<fs::path>& inputs) {
    std::vector<fs::path> found;
    std::set<fs::path> seen;
    auto keep = [&](const fs::path& path) {
        if (toLowerASCII(path.extension().string()) == ".wav" && seen.insert(path).second) {
            found.push_back(path);
        }
    };
    for (const fs::path& input : inputs) {
        std::error_code ec;
        if (!fs::is_directory(input, ec)) {
            keep(input);
            continue;
        }
        std::vector<fs::path> inFolder;
        fs::recursive_directory_iterator it(input, ec);
        for (; !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
            if (!it->is_directory(ec)) {
                inFolder.push_back(it->path());
            }
        }
        std::sort(inFolder.begin(), inFolder.end());
        for (const fs::path& path : inFolder) {
            keep(path);
        }
    }
    return found;
}

}  // namespace norvane
