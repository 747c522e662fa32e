// norvane stamp: stamp WAV files with the start timecode decoded from LTC.
#include <algorithm>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "cli/cli_common.h"
#include "cli/stamp_output.h"
#include "core/common/interrupt.h"
#include "core/common/text.h"
#include "core/settings/app_settings_store.h"
#include "core/settings/output_folder.h"
#include "core/stamp/ltc_health.h"
#include "core/stamp/stamp_processor.h"
#include "core/timecode/ltc_decoder.h"

namespace norvane::cli {

namespace {

namespace fs = std::filesystem;

struct StampArguments {
    std::vector<std::string> inputs;
    std::string outputFolder;
    std::string mode = "single";
    std::string ltcFile;
    std::string fps;
    std::optional<std::string> suffix;
    std::string collision;
    bool includeLTC = false;
    bool overwrite = false;
    bool force = false;
    std::string timeReference;  // empty: the settings' default
    std::string groupBy;
    std::string delimiter = "-";
    std::int64_t tokenIndex = 1;
    std::string regex;
    std::optional<std::int64_t> toleranceMs;
    std::optional<std::int64_t> ltcChannel;
    std::vector<std::string> groupLTC;
    std::vector<std::string> groupChannel;
    std::int64_t minSegmentFrames = 24;
    std::int64_t jumpThreshold = 1;
    bool json = false;
};

// A usage problem found after parsing: message on standard error, exit 64.
struct UsageError {
    std::string message;
};

std::optional<ProcessingMode> parseMode(const std::string& text) {
    const std::string lower = toLowerASCII(text);
    if (lower == "single") {
        return ProcessingMode::single;
    }
    if (lower == "grouped") {
        return ProcessingMode::groupedBatch;
    }
    if (lower == "cut") {
        return ProcessingMode::cutDetect;
    }
    return processingModeFromLabel(text);
}

std::optional<OutputCollisionBehavior> parseCollision(const std::string& text) {
    const std::string lower = toLowerASCII(text);
    if (lower == "ask") {
        return OutputCollisionBehavior::ask;
    }
    if (lower == "keep-both") {
        return OutputCollisionBehavior::keepBoth;
    }
    if (lower == "overwrite") {
        return OutputCollisionBehavior::overwrite;
    }
    return outputCollisionBehaviorFromLabel(text);
}

std::optional<GroupingMethod> parseGroupBy(const std::string& text) {
    const std::string lower = toLowerASCII(text);
    if (lower == "duration") {
        return GroupingMethod::durationExact;
    }
    if (lower == "token") {
        return GroupingMethod::token;
    }
    if (lower == "regex") {
        return GroupingMethod::regex;
    }
    return groupingMethodFromLabel(text);
}

std::pair<std::string, std::string> splitKeyValue(const std::string& text, const char* option) {
    const std::size_t at = text.find('=');
    if (at == std::string::npos || at == 0) {
        throw UsageError{std::string(option) + " takes KEY=VALUE, got \"" + text + "\""};
    }
    return {text.substr(0, at), text.substr(at + 1)};
}

std::int64_t channelNumber(const std::string& text, const char* option) {
    try {
        std::size_t used = 0;
        const long long value = std::stoll(text, &used);
        if (used == text.size() && value >= 1) {
            return value;
        }
    } catch (const std::exception&) {
    }
    throw UsageError{std::string(option) + ": channel numbers count from 1, got \"" + text + "\""};
}

bool isWAV(const fs::path& path) {
    return endsWithNoCase(path.filename().string(), ".wav");
}

// Folders become the WAV files directly inside them, in file-browser order.
std::vector<fs::path> expandInputs(const std::vector<std::string>& inputs) {
    std::vector<fs::path> paths;
    for (const std::string& input : inputs) {
        const fs::path path(input);
        std::error_code ec;
        if (fs::is_directory(path, ec)) {
            std::vector<fs::path> inside;
            for (const auto& entry : fs::directory_iterator(path)) {
                if (entry.is_regular_file(ec) && isWAV(entry.path())) {
                    inside.push_back(entry.path());
                }
            }
            std::sort(inside.begin(), inside.end(), [](const fs::path& a, const fs::path& b) {
                return fileBrowserLess(a.filename().string(), b.filename().string());
            });
            paths.insert(paths.end(), inside.begin(), inside.end());
        } else if (!fs::exists(path, ec)) {
            throw fs::filesystem_error("cannot open input", path,
                                       std::make_error_code(std::errc::no_such_file_or_directory));
        } else if (isWAV(path)) {
            paths.push_back(path);
        } else {
            std::cerr << "warning: Ignored " << path.filename().string() << " (not a WAV file)."
                      << std::endl;
        }
    }
    return paths;
}

std::vector<FileDescriptor> describeInputs(const std::vector<fs::path>& paths) {
    std::vector<FileDescriptor> files;
    for (const fs::path& path : paths) {
        if (std::any_of(files.begin(), files.end(),
                        [&](const FileDescriptor& f) { return f.url == path; })) {
            continue;  // the same file named twice is one input
        }
        try {
            files.push_back(StampProcessor::describeFile(path));
        } catch (const std::exception& e) {
            std::cerr << "warning: Skipped " << path.filename().string() << ": " << describeError(e)
                      << std::endl;
        }
    }
    return files;
}

struct FoundLTC {
    fs::path file;
    LTCProbe probe;
};

// The input whose channels decode best (the earlier file on a tie); with
// `channel`, only that channel of each file is tried.
std::optional<FoundLTC> findLTCSource(const std::vector<FileDescriptor>& files,
                                      std::optional<std::int64_t> channel) {
    std::optional<FoundLTC> best;
    for (const FileDescriptor& descriptor : files) {
        try {
            const WavReader file(descriptor.url);
            const auto probe = probeLTC(file, channel);
            if (probe && (!best || probe->confidence > best->probe.confidence)) {
                best = FoundLTC{descriptor.url, *probe};
            }
        } catch (const std::exception&) {
            // unreadable inputs are reported by the run itself
        }
    }
    return best;
}

fs::path absolutePath(const std::string& text) {
    return fs::absolute(fs::path(text)).lexically_normal();
}

ProcessingOptions buildOptions(const StampArguments& args, const AppSettingsStore& settings,
                               const std::vector<FileDescriptor>& files) {
    ProcessingOptions options;
    const auto mode = parseMode(args.mode);
    if (!mode) {
        throw UsageError{"--mode: expected single, grouped or cut, got \"" + args.mode + "\""};
    }
    options.mode = *mode;
    options.frameRatePreset = settings.defaultFrameRatePreset();
    if (!args.fps.empty()) {
        const auto preset = parseFrameRateArgument(args.fps);
        if (!preset) {
            throw UsageError{"--fps: expected " + frameRateArgumentHelp() + ", got \"" + args.fps +
                             "\""};
        }
        options.frameRatePreset = *preset;
    }
    const std::string folder =
        !args.outputFolder.empty()
            ? args.outputFolder
            : defaultOutputFolder(settings.defaultOutputFolderPath(),
                                  AppSettingsStore::homeDirectoryPath(),
                                  files.empty() ? fs::path() : files.front().url, "Stamped")
                  .string();
    if (folder.empty()) {
        throw UsageError{"an output folder is required (-o DIR)"};
    }
    options.outputFolder = absolutePath(folder);
    if (args.timeReference.empty()) {
        options.timeReferenceMode = settings.defaultTimeReferenceMode();
    } else if (const auto reference = timeReferenceModeFromLabel(args.timeReference)) {
        options.timeReferenceMode = *reference;
    } else {
        throw UsageError{"--time-reference: expected frame or sample, got \"" + args.timeReference +
                         "\""};
    }
    options.forceLowConfidence =
        args.force || settings.lowConfidenceBehavior() == LowConfidenceBehavior::alwaysProceed;
    options.includeLTCOutputs = args.includeLTC;

    GroupingMethod method = settings.defaultGroupingMethod();
    if (!args.groupBy.empty()) {
        const auto parsed = parseGroupBy(args.groupBy);
        if (!parsed) {
            throw UsageError{"--group-by: expected duration, token or regex, got \"" +
                             args.groupBy + "\""};
        }
        method = *parsed;
    }
    if (args.tokenIndex < 0) {
        throw UsageError{"--token-index counts from 0 and cannot be negative"};
    }
    options.groupingConfig =
        GroupingConfig(method, args.delimiter, args.tokenIndex, args.regex,
                       args.toleranceMs.value_or(milliseconds(settings.durationTolerancePreset())));

    options.outputNaming.suffix = args.suffix.value_or(settings.outputFilenameSuffix());
    options.outputNaming.collisionBehavior = settings.outputCollisionBehavior();
    if (!args.collision.empty()) {
        const auto parsed = parseCollision(args.collision);
        if (!parsed) {
            throw UsageError{"--collision: expected ask, keep-both or overwrite, got \"" +
                             args.collision + "\""};
        }
        options.outputNaming.collisionBehavior = *parsed;
    }
    if (args.overwrite) {
        if (!args.collision.empty() &&
            options.outputNaming.collisionBehavior != OutputCollisionBehavior::overwrite) {
            throw UsageError{"--overwrite contradicts --collision " + args.collision};
        }
        options.outputNaming.collisionBehavior = OutputCollisionBehavior::overwrite;
    }
    options.cutDetectConfig = CutDetectConfig{args.minSegmentFrames, args.jumpThreshold};

    if (args.ltcChannel) {
        if (*args.ltcChannel < 1) {
            throw UsageError{"--channel: channel numbers count from 1"};
        }
        if (options.mode == ProcessingMode::groupedBatch) {
            // One channel for every group; --group-channel overrides per group.
            for (const auto& [key, members] : Grouping::groupFiles(files, options.groupingConfig)) {
                options.manualLTCChannelByGroup[key] = *args.ltcChannel;
            }
        } else {
            options.ltcChannelIndex = *args.ltcChannel - 1;
        }
    }
    for (const std::string& entry : args.groupChannel) {
        const auto [key, value] = splitKeyValue(entry, "--group-channel");
        options.manualLTCChannelByGroup[key] = channelNumber(value, "--group-channel");
    }
    for (const std::string& entry : args.groupLTC) {
        const auto [key, value] = splitKeyValue(entry, "--group-ltc");
        options.manualLTCByGroup[key] = absolutePath(value);
    }
    return options;
}

int runStamp(const StampArguments& args) {
    routeDiagnostics();
    AppSettingsStore settings;
    for (const std::string& warning : settings.loadWarnings()) {
        std::cerr << "warning: " << warning << std::endl;
    }

    std::vector<fs::path> paths;
    for (const fs::path& path : expandInputs(args.inputs)) {
        paths.push_back(absolutePath(path.string()));
    }
    std::optional<fs::path> ltcFile;
    if (!args.ltcFile.empty()) {
        ltcFile = absolutePath(args.ltcFile);
        if (std::find(paths.begin(), paths.end(), *ltcFile) == paths.end()) {
            paths.insert(paths.begin(), *ltcFile);
        }
    }
    const std::vector<FileDescriptor> files = describeInputs(paths);
    const auto mode = parseMode(args.mode);
    std::optional<std::int64_t> probedChannel;
    if (!ltcFile && mode && *mode != ProcessingMode::groupedBatch && !files.empty()) {
        // No --ltc: the file whose signal decodes best carries it.
        const std::optional<std::int64_t> wanted =
            args.ltcChannel ? std::optional<std::int64_t>(*args.ltcChannel - 1) : std::nullopt;
        if (const auto found = findLTCSource(files, wanted)) {
            ltcFile = found->file;
            probedChannel = found->probe.channelIndex;
            std::cerr << "LTC: " << found->file.filename().string() << ", channel "
                      << found->probe.channelIndex + 1 << " (" << found->probe.rate.label
                      << " fps, starts " << found->probe.timecode.description() << ")" << std::endl;
        } else {
            return printError("No LTC found on any channel of the " + std::to_string(files.size()) +
                              " input file(s); name the LTC file with --ltc FILE.");
        }
    }
    if (ltcFile && std::none_of(files.begin(), files.end(),
                                [&](const FileDescriptor& f) { return f.url == *ltcFile; })) {
        return printError("cannot read the LTC file " + ltcFile->string());
    }
    ProcessingOptions options;
    try {
        options = buildOptions(args, settings, files);
    } catch (const UsageError& e) {
        std::cerr << "error: " << e.message << std::endl;
        return kExitUsage;
    }
    if (probedChannel && !options.ltcChannelIndex) {
        options.ltcChannelIndex = probedChannel;
    }
    std::error_code ec;
    fs::create_directories(options.outputFolder, ec);
    if (ec) {
        return printError("cannot create the output folder " + options.outputFolder.string() +
                          ": " + ec.message());
    }

    ProgressBar bar(!args.json);
    const auto progress = [&](const ProcessingProgress& p) {
        std::string text = p.phase + ": ";
        if (!p.file.empty() && p.fileBytesTotal > 0) {
            // The file's own bytes first: long names are cut at the end.
            constexpr double kMiB = 1024.0 * 1024.0;
            text += fmt::format("{:.0f}/{:.0f} MiB ", static_cast<double>(p.fileBytesDone) / kMiB,
                                static_cast<double>(p.fileBytesTotal) / kMiB);
        }
        bar.update(p.fraction(), text + p.message);
    };
    StampProcessor processor;
    try {
        // Before anything is written, the two questions the desktop app asks:
        // existing outputs under "Ask", and low decode confidence.
        const bool ask = options.outputNaming.collisionBehavior == OutputCollisionBehavior::ask;
        std::optional<std::vector<ProcessingJob>> jobs;
        if (files.size() >= 2 && (ask || !options.forceLowConfidence ||
                                  options.frameRatePreset == FrameRatePreset::auto_)) {
            jobs = processor.buildJobs(files, ltcFile, options, progress);
            if (ask) {
                const auto existing = processor.existingOutputs(*jobs, options);
                if (!existing.empty()) {
                    bar.finish();
                    std::cerr << "Output files already exist (use --collision keep-both or "
                                 "--collision overwrite):\n";
                    for (const fs::path& path : existing) {
                        std::cerr << "- " << path.string() << "\n";
                    }
                    std::cerr.flush();
                    return kExitNeedsConfirmation;
                }
            }
            const LTCPrecheck precheck = processor.precheckLTC(*jobs, options);
            if (options.frameRatePreset == FrameRatePreset::auto_) {
                std::vector<std::string> labels;
                for (const FrameRateConfig& rate : precheck.detectedRates) {
                    labels.push_back(rate.label);
                }
                bar.finish();
                if (labels.empty()) {
                    std::cerr << "warning: Auto frame-rate is enabled, but no frame rate could be "
                                 "detected before processing."
                              << std::endl;
                } else if (labels.size() == 1) {
                    std::cerr << "Auto frame-rate detected: " << labels.front() << " fps"
                              << std::endl;
                } else {
                    std::cerr << "Auto frame-rate detected multiple rates: "
                              << joinFirstEight(labels) << std::endl;
                }
            }
            if (!options.forceLowConfidence && precheck.lowestConfidence &&
                *precheck.lowestConfidence < kMinimumLTCConfidence) {
                bar.finish();
                std::cerr << ProcessingError::lowConfidence(*precheck.lowestConfidence).message()
                          << " Re-run with --force to stamp anyway." << std::endl;
                return kExitNeedsConfirmation;
            }
        }

        // Jobs built for the checks are run as they are (a cut scan is not repeated).
        // A signal cancels the run like the app's Cancel (see main).
        const auto interrupted = [] { return interruptRequested(); };
        const ProcessingReport report =
            jobs ? processor.runJobs(*jobs, files, options, progress, interrupted)
                 : processor.run(files, ltcFile, options, progress, interrupted);
        bar.finish();
        if (args.json) {
            // File names need not be UTF-8; their stray bytes print as U+FFFD
            // rather than losing the report of a run that has already written.
            std::cout << reportJSON(report).dump(2, ' ', false,
                                                 nlohmann::ordered_json::error_handler_t::replace)
                      << std::endl;
        } else {
            std::cout << reportText(report) << std::endl;
        }
        return report.summary.failedJobs > 0 ? kExitJobsFailed : kExitOk;
    } catch (const ProcessingError& e) {
        bar.finish();
        if (e.kind() == ProcessingError::Kind::lowConfidence) {
            std::cerr << e.message() << " Re-run with --force to stamp anyway." << std::endl;
            return kExitNeedsConfirmation;
        }
        if (e.kind() == ProcessingError::Kind::cancelled) {
            return printError(cancelledMessage("stamp"));
        }
        return printError(e.message());
    } catch (const std::exception& e) {
        bar.finish();
        return printError(describeError(e));
    }
}

}  // namespace

Command addStampCommand(CLI::App& parent) {
    auto args = std::make_shared<StampArguments>();
    Command command;
    CLI::App* app = parent.add_subcommand(
        "stamp", "Stamp WAV files with the start timecode decoded from their LTC (bext + iXML).");
    command.app = app;
    app->add_option("inputs", args->inputs, "WAV files, or folders of WAV files")->required();
    app->add_option("-o,--output", args->outputFolder,
                    "Output folder (default: the settings' output folder, else a \"Stamped\" "
                    "folder beside the first input)");
    app->add_option("--mode", args->mode, "single, grouped or cut (default single)");
    app->add_option("--ltc", args->ltcFile, "The file carrying the LTC (single and cut modes)");
    app->add_option("--fps", args->fps, "Frame rate: " + frameRateArgumentHelp());
    app->add_option("--suffix", args->suffix, "Appended to output names (default \"_tc\")");
    app->add_option("--collision", args->collision,
                    "When an output exists: ask, keep-both or overwrite");
    app->add_flag("--overwrite", args->overwrite,
                  "Replace existing outputs (the same as --collision overwrite)");
    app->add_flag("--include-ltc", args->includeLTC, "Also write a stamped copy of the LTC file");
    app->add_flag("--force", args->force, "Stamp even when the LTC decodes with low confidence");
    app->add_option("--time-reference", args->timeReference,
                    "TimeReference of the file's frame-aligned start (frame) or of its exact "
                    "first sample (sample); default: settings.defaultTimeReferenceMode");
    app->add_option("--group-by", args->groupBy, "Grouped mode: duration, token or regex");
    app->add_option("--delimiter", args->delimiter, "Token grouping delimiter (default \"-\")");
    app->add_option("--token-index", args->tokenIndex,
                    "Token grouping: which part of the name, counted from 0 (default 1)");
    app->add_option("--regex", args->regex, "Regex grouping: capture group 1 is the group key");
    app->add_option("--tolerance-ms", args->toleranceMs, "Duration grouping tolerance in ms");
    app->add_option("--channel,--ltc-channel", args->ltcChannel,
                    "LTC channel, counted from 1 (default: the channel that decodes best)");
    app->add_option("--group-ltc", args->groupLTC,
                    "Grouped mode: KEY=FILE, the LTC file of a group");
    app->add_option("--group-channel", args->groupChannel,
                    "Grouped mode: KEY=N, the LTC channel of a group (from 1)");
    app->add_option("--min-segment-frames", args->minSegmentFrames,
                    "Cut mode: shortest segment in frames (default 24)");
    app->add_option("--jump-threshold", args->jumpThreshold,
                    "Cut mode: timecode jump in frames that counts as a cut (default 1)");
    app->add_flag("--json", args->json, "Print the report as JSON");
    addSyncFlags(*app);
    command.run = [args] { return runStamp(*args); };
    return command;
}

}  // namespace norvane::cli
