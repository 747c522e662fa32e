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

// Progress units of one file: its channel count, or 1 when it will be skipped.
// Only the header is read.
std::int64_t progressUnits(const fs::path& input) {
    try {
        const WavReader file(input);
        if (!isSplittableFormat(file.fmt()) || file.fmt().channelCount < 2) {
            return 1;
        }
        return file.fmt().channelCount;
    } catch (const std::exception&) {
        return 1;
    }
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

    std::int64_t total = 0;
    for (const fs::path& file : files) {
        total += progressUnits(file);
    }
    total = std::max<std::int64_t>(1, total);
    std::int64_t done = 0;
    auto advance = [&] {
        ++done;
        if (progress) {
            progress(static_cast<double>(done) / static_cast<double>(total));
        }
    };
    // Within a file its channels' units fill in as the bytes are written.
    auto partly = [&](std::int64_t units, std::uint64_t bytes, std::uint64_t of) {
        if (progress && of > 0) {
            progress((static_cast<double>(done) + static_cast<double>(units) *
                                                      static_cast<double>(bytes) /
                                                      static_cast<double>(of)) /
                     static_cast<double>(total));
        }
    };
    auto checkCancelled = [&] {
        if (isCancelled && isCancelled()) {
            throw PolyWavSplitError::cancelled();
        }
    };

    std::map<std::string, int> seenBaseNames;
    const WriteMode mode = overwriteExisting ? WriteMode::replaceAtomically : WriteMode::createNew;
    for (const fs::path& input : files) {
        checkCancelled();
        PolyWavSplitFileResult result;
        result.inputURL = input;
        std::string base = input.stem().string();
        const int seen = ++seenBaseNames[base];
        if (seen >= 2) {
            base += " (" + std::to_string(seen) + ")";
        }
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
        const bool finished = MonoWAVWriter::writeChannels(
            *file, outputs, [&](std::uint64_t bytes, std::uint64_t of) {
                if (isCancelled && isCancelled()) {
                    return false;
                }
                partly(channels, bytes, of);
                return true;
            });
        if (!finished) {
            throw PolyWavSplitError::cancelled();  // the outputs' temporary files go
        }
        for (int channel = 0; channel < channels; ++channel) {
            outs[static_cast<std::size_t>(channel)]->commit();
            result.outputURLs.push_back(urls[static_cast<std::size_t>(channel)]);
            report.outputPaths.push_back(urls[static_cast<std::size_t>(channel)]);
        }
        done += channels - 1;
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
