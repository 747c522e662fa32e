#include "core/split/poly_wav_split_processor.h"

#include <algorithm>
#include <map>
#include <set>

#include <fmt/format.h>

#include "core/audio/mono_wav_writer.h"
#include "core/audio/wav_file.h"
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
std::int64_t progressUnits(const fs::path& input) {
    try {
        const WAVFile file(input);
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
        std::optional<WAVFile> file;
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
        const SplitSourceMetadata metadata = SplitMetadata::read(*file);
        for (int channel = 0; channel < channels; ++channel) {
            checkCancelled();
            const fs::path url =
                outputFolder / outputFileName(base, channelLabel(channel + 1, channels),
                                              SplitMetadata::trackName(metadata, channel), naming);
            if (!overwriteExisting && fs::exists(fs::symlink_status(url))) {
                throw PolyWavSplitError::outputExists(url);
            }
            const auto payloads = SplitMetadata::monoChunks(metadata, channel);
            std::vector<RIFFChunk> chunks;
            for (const auto& [id, payload] : payloads) {
                chunks.push_back({id, payload});
            }
            const ByteBuffer bytes = MonoWAVWriter::build(*file, channel, chunks);
            writeFile(url, bytes, mode);
            result.outputURLs.push_back(url);
            report.outputPaths.push_back(url);
            advance();
        }
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
