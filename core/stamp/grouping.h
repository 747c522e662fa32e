#pragma once

// Sorting the files of a grouped batch into sets recorded together, each with
// one LTC carrier, and turning the sets into jobs.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "core/stamp/processing_model.h"
#include "core/timecode/timecode.h"

namespace norvane::Grouping {

// The key of files whose group cannot be derived from their name.
inline constexpr const char* kUngrouped = "ungrouped";
// Longest grouping pattern accepted, in characters.
inline constexpr std::size_t kMaxPatternLength = 256;

// Checks the regex rule (other methods always pass): the trimmed pattern may be
// empty; otherwise it must be at most 256 characters (invalidRegex "Pattern
// must be 256 characters or fewer."), hold no quantified group that itself
// contains a quantifier (invalidRegex "Nested quantifiers are not allowed.")
// and compile (norvane::Error with the regex engine's message).
void validateRule(const GroupingConfig& config);

// The key of one file name (without extension) by token or regex; "ungrouped"
// when the name yields none. Not used for duration grouping.
std::string nameKey(const std::string& baseName, const GroupingConfig& config);

// A working cluster of equally long files of one sample rate.
struct DurationCluster {
    std::int64_t sampleRate = 0;
    std::int64_t centerFrameCount = 0;  // mean of the items' frame counts, truncated
    std::vector<FileDescriptor> items;
};

// Clusters the files by frame count, per sample rate, within the tolerance
// (sampleRate x toleranceMs / 1000 samples, at least 1). Files are visited in
// order of sample rate, frame count and name; a file joins the nearest cluster
// within tolerance (the earlier one on a tie) or starts its own.
std::vector<DurationCluster> durationClusters(const std::vector<FileDescriptor>& files,
                                              std::int64_t toleranceMs);

// "sr" + sample rate + "_f" + centre frame count, e.g. "sr48000_f1440000".
std::string clusterKey(const DurationCluster& cluster);

// Group key -> files, each group in input order.
std::map<std::string, std::vector<FileDescriptor>> groupFiles(
    const std::vector<FileDescriptor>& files, const GroupingConfig& config);

// The channel index stored in a grouped job for a 1-based manual channel
// number: clamped into 1..commonChannels (commonChannels at least 1), 0-based.
std::int64_t clampedChannelIndex(std::int64_t channelNumber, std::int64_t commonChannels);

// The smallest channel count among the files, at least 1.
std::int64_t commonChannelCount(const std::vector<FileDescriptor>& files);

// Picks the LTC file of a group: the file whose LTC decodes with the highest
// confidence (the earlier on a tie), else the one file whose lower-cased name
// holds "ltc", "timecode" or "tc", else the one file marked isLTC; otherwise
// groupingCouldNotResolve("auto"). `rate` absent lets the decoder choose.
std::filesystem::path resolveGroupLTCFile(const std::vector<FileDescriptor>& groupFiles,
                                          std::optional<std::int64_t> channelIndex,
                                          const std::optional<FrameRateConfig>& rate);

// One job per group with at least one target, groups in ascending key order.
// Throws invalidGroupingRule when no group forms, and the errors of
// resolveGroupLTCFile for groups without a manual LTC file.
std::vector<ProcessingJob> buildGroupedJobs(const std::vector<FileDescriptor>& files,
                                            const ProcessingOptions& options);

// Decodes each distinct (LTC file, channel) of the grouped jobs once and ends
// the run with ltcDecodeFailed when one decodes below 0.55 and the options do
// not force low confidence. A file that cannot be read or decoded passes its
// error on.
void preCheck(const std::vector<ProcessingJob>& jobs, const ProcessingOptions& options,
              const std::optional<FrameRateConfig>& votedRate);

}  // namespace norvane::Grouping
