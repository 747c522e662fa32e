#include "core/stamp/grouping.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <numeric>
#include <set>

#include <unicode/brkiter.h>
#include <unicode/locid.h>
#include <unicode/unistr.h>

#include "core/audio/wav_file.h"
#include "core/common/regex.h"
#include "core/common/text.h"
#include "core/common/uuid.h"
#include "core/stamp/ltc_source.h"

namespace norvane::Grouping {

namespace fs = std::filesystem;

namespace {

constexpr double kMinimumConfidence = 0.55;

// A parenthesised group holding + or * that is itself followed by +, * or {:
// a coarse guard against patterns that backtrack without bound.
const Regex& nestedQuantifierGuard() {
    static const Regex guard(R"(\((?:[^()\\]|\\.)*[+*](?:[^()\\]|\\.)*\)[+*{])");
    return guard;
}

std::string regexKey(const std::string& baseName, const Regex& regex) {
    auto match = regex.firstMatch(baseName);
    if (!match || match->size() < 2 || !(*match)[1]) {
        return kUngrouped;
    }
    return *(*match)[1];
}

// The length of a pattern as its user sees it: user-perceived characters
// (grapheme clusters), so "é" typed as e + combining accent counts once.
std::size_t characterCount(const std::string& text) {
    const icu::UnicodeString unicode = icu::UnicodeString::fromUTF8(text);
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::BreakIterator> characters(
        icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
    if (U_FAILURE(status) || !characters) {
        return static_cast<std::size_t>(unicode.countChar32());
    }
    characters->setText(unicode);
    std::size_t count = 0;
    characters->first();
    while (characters->next() != icu::BreakIterator::DONE) {
        ++count;
    }
    return count;
}

// sampleRate x toleranceMs / 1000 samples, truncated, at least 1; a tolerance
// too large for the product saturates instead of overflowing.
std::int64_t toleranceSamples(std::int64_t sampleRate, std::int64_t toleranceMs) {
    const std::int64_t ms = std::max<std::int64_t>(toleranceMs, 1);
    const std::int64_t rate = std::max<std::int64_t>(sampleRate, 0);
    if (rate != 0 && ms > std::numeric_limits<std::int64_t>::max() / rate) {
        return std::numeric_limits<std::int64_t>::max();
    }
    return std::max<std::int64_t>(rate * ms / 1000, 1);
}

std::string baseNameOf(const FileDescriptor& file) {
    return file.url.stem().string();
}

}  // namespace

void validateRule(const GroupingConfig& config) {
    if (config.method != GroupingMethod::regex) {
        return;
    }
    const std::string pattern = trim(config.regexPattern);
    if (pattern.empty()) {
        return;
    }
    if (pattern.size() > kMaxPatternLength && characterCount(pattern) > kMaxPatternLength) {
        throw ProcessingError::invalidRegex("Pattern must be 256 characters or fewer.");
    }
    if (nestedQuantifierGuard().matches(pattern)) {
        throw ProcessingError::invalidRegex("Nested quantifiers are not allowed.");
    }
    (void)Regex(pattern);  // throws the regex engine's message
}

std::string nameKey(const std::string& baseName, const GroupingConfig& config) {
    if (config.method == GroupingMethod::regex) {
        const std::string pattern = trim(config.regexPattern);
        if (pattern.empty()) {
            return kUngrouped;
        }
        return regexKey(baseName, Regex(pattern));
    }
    const std::vector<std::string> parts = splitOn(baseName, config.delimiter);
    if (config.tokenIndex < 0 || static_cast<std::uint64_t>(config.tokenIndex) >= parts.size()) {
        return kUngrouped;
    }
    return parts[static_cast<std::size_t>(config.tokenIndex)];
}

std::vector<DurationCluster> durationClusters(const std::vector<FileDescriptor>& files,
                                              std::int64_t toleranceMs) {
    std::vector<FileDescriptor> ordered = files;
    std::stable_sort(
        ordered.begin(), ordered.end(), [](const FileDescriptor& a, const FileDescriptor& b) {
            if (a.sampleRate != b.sampleRate) {
                return a.sampleRate < b.sampleRate;
            }
            if (a.frameCount != b.frameCount) {
                return a.frameCount < b.frameCount;
            }
            return fileBrowserLess(a.url.filename().string(), b.url.filename().string());
        });
    std::vector<DurationCluster> clusters;
    for (const FileDescriptor& file : ordered) {
        const std::int64_t tolerance = toleranceSamples(file.sampleRate, toleranceMs);
        DurationCluster* nearest = nullptr;
        std::int64_t nearestDistance = std::numeric_limits<std::int64_t>::max();
        for (DurationCluster& cluster : clusters) {
            if (cluster.sampleRate != file.sampleRate) {
                continue;
            }
            const std::int64_t distance = cluster.centerFrameCount > file.frameCount
                                              ? cluster.centerFrameCount - file.frameCount
                                              : file.frameCount - cluster.centerFrameCount;
            if (distance <= tolerance && distance < nearestDistance) {
                nearest = &cluster;
                nearestDistance = distance;
            }
        }
        if (nearest == nullptr) {
            clusters.push_back(DurationCluster{file.sampleRate, file.frameCount, {file}});
            continue;
        }
        nearest->items.push_back(file);
        std::int64_t sum = 0;
        for (const FileDescriptor& item : nearest->items) {
            sum += item.frameCount;
        }
        nearest->centerFrameCount = sum / static_cast<std::int64_t>(nearest->items.size());
    }
    return clusters;
}

std::string clusterKey(const DurationCluster& cluster) {
    return "sr" + std::to_string(cluster.sampleRate) + "_f" +
           std::to_string(cluster.centerFrameCount);
}

std::map<std::string, std::vector<FileDescriptor>> groupFiles(
    const std::vector<FileDescriptor>& files, const GroupingConfig& config) {
    // Key of each input position, so every group lists its files in input order.
    std::vector<std::string> keys(files.size());
    if (config.method == GroupingMethod::durationExact) {
        std::vector<FileDescriptor> indexed = files;
        for (std::size_t i = 0; i < indexed.size(); ++i) {
            indexed[i].id = std::to_string(i);  // position travels through the clustering
        }
        for (const DurationCluster& cluster :
             durationClusters(indexed, config.durationToleranceMs)) {
            for (const FileDescriptor& item : cluster.items) {
                keys[std::stoul(item.id)] = clusterKey(cluster);
            }
        }
    } else if (config.method == GroupingMethod::regex) {
        const std::string pattern = trim(config.regexPattern);
        std::optional<Regex> regex;
        if (!pattern.empty()) {
            regex.emplace(pattern);
        }
        for (std::size_t i = 0; i < files.size(); ++i) {
            keys[i] = regex ? regexKey(baseNameOf(files[i]), *regex) : kUngrouped;
        }
    } else {
        for (std::size_t i = 0; i < files.size(); ++i) {
            keys[i] = nameKey(baseNameOf(files[i]), config);
        }
    }
    std::map<std::string, std::vector<FileDescriptor>> groups;
    for (std::size_t i = 0; i < files.size(); ++i) {
        groups[keys[i]].push_back(files[i]);
    }
    return groups;
}

std::int64_t commonChannelCount(const std::vector<FileDescriptor>& files) {
    std::int64_t common = std::numeric_limits<std::int64_t>::max();
    for (const FileDescriptor& file : files) {
        common = std::min(common, file.channels);
    }
    return files.empty() ? 1 : std::max<std::int64_t>(common, 1);
}

std::int64_t clampedChannelIndex(std::int64_t channelNumber, std::int64_t commonChannels) {
    return std::clamp<std::int64_t>(channelNumber, 1, std::max<std::int64_t>(commonChannels, 1)) -
           1;
}

fs::path resolveGroupLTCFile(const std::vector<FileDescriptor>& groupFiles,
                             std::optional<std::int64_t> channelIndex,
                             const std::optional<FrameRateConfig>& rate) {
    std::optional<fs::path> best;
    double bestConfidence = -std::numeric_limits<double>::infinity();
    for (const FileDescriptor& file : groupFiles) {
        try {
            const WAVFile wav(file.url);
            const ChannelDecode decoded = decodeFileLTC(wav, channelIndex, rate);
            if (decoded.result.confidence > bestConfidence) {
                bestConfidence = decoded.result.confidence;
                best = file.url;
            }
        } catch (const std::exception&) {
            // An unreadable or undecodable file simply is not the LTC carrier.
        }
    }
    if (best) {
        return *best;
    }
    std::vector<fs::path> named;
    for (const FileDescriptor& file : groupFiles) {
        const std::string name = toLowerASCII(file.url.filename().string());
        if (name.find("ltc") != std::string::npos || name.find("timecode") != std::string::npos ||
            name.find("tc") != std::string::npos) {
            named.push_back(file.url);
        }
    }
    if (named.size() == 1) {
        return named.front();
    }
    std::vector<fs::path> marked;
    for (const FileDescriptor& file : groupFiles) {
        if (file.isLTC) {
            marked.push_back(file.url);
        }
    }
    if (marked.size() == 1) {
        return marked.front();
    }
    throw ProcessingError::groupingCouldNotResolve("auto");
}

std::vector<ProcessingJob> buildGroupedJobs(const std::vector<FileDescriptor>& files,
                                            const ProcessingOptions& options) {
    const auto groups = groupFiles(files, options.groupingConfig);
    if (groups.empty()) {
        throw ProcessingError::invalidGroupingRule();
    }
    const std::optional<FrameRateConfig> rate = frameRateConfig(options.frameRatePreset);
    std::vector<ProcessingJob> jobs;
    for (const auto& [key, members] : groups) {  // std::map: ascending keys
        std::optional<std::int64_t> channel;
        if (auto it = options.manualLTCChannelByGroup.find(key);
            it != options.manualLTCChannelByGroup.end()) {
            channel = clampedChannelIndex(it->second, commonChannelCount(members));
        }
        fs::path ltcFile;
        if (auto it = options.manualLTCByGroup.find(key); it != options.manualLTCByGroup.end()) {
            ltcFile = it->second;
        } else {
            ltcFile = resolveGroupLTCFile(members, channel, rate);
        }
        ProcessingJob job;
        job.id = makeUUID();
        job.mode = ProcessingMode::groupedBatch;
        job.groupID = key;
        job.ltcFileURL = ltcFile;
        job.ltcChannelIndex = channel;
        job.includeLTCOutput = options.includeLTCOutputs;
        for (const FileDescriptor& member : members) {
            if (member.url != ltcFile) {
                job.targetFileURLs.push_back(member.url);
            }
        }
        if (!job.targetFileURLs.empty()) {
            jobs.push_back(std::move(job));
        }
    }
    return jobs;
}

void preCheck(const std::vector<ProcessingJob>& jobs, const ProcessingOptions& options,
              const std::optional<FrameRateConfig>& votedRate) {
    const std::optional<FrameRateConfig> rate =
        votedRate ? votedRate : frameRateConfig(options.frameRatePreset);
    std::set<std::pair<fs::path, std::optional<std::int64_t>>> seen;
    for (const ProcessingJob& job : jobs) {
        if (job.mode != ProcessingMode::groupedBatch ||
            !seen.insert({job.ltcFileURL, job.ltcChannelIndex}).second) {
            continue;
        }
        const WAVFile wav(job.ltcFileURL);
        const ChannelDecode decoded = decodeFileLTC(wav, job.ltcChannelIndex, rate);
        if (decoded.result.confidence < kMinimumConfidence && !options.forceLowConfidence) {
            const std::string channel = job.ltcChannelIndex
                                            ? "CH " + std::to_string(*job.ltcChannelIndex + 1)
                                            : std::string("default channel");
            throw ProcessingError::ltcDecodeFailed(
                "Grouped pre-check failed for " + job.ltcFileURL.filename().string() + " (" +
                channel + "): low LTC confidence (" +
                std::to_string(truncatedPercent(decoded.result.confidence)) +
                "%). Check designated LTC channel.");
        }
    }
}

}  // namespace norvane::Grouping
