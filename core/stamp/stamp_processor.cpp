#include "core/stamp/stamp_processor.h"

#include <algorithm>
#include <set>
#include <unordered_set>

#include <fmt/format.h>

#include "core/audio/wav_file.h"
#include "core/audio/wav_reader.h"
#include "core/common/error.h"
#include "core/common/local_time.h"
#include "core/common/output_guard.h"
#include "core/common/text.h"
#include "core/common/uuid.h"
#include "core/stamp/csv_logger.h"
#include "core/stamp/ltc_source.h"
#include "core/stamp/output_naming.h"
#include "core/timecode/frame_rate_detection.h"

namespace norvane {

namespace fs = std::filesystem;

namespace {

// Sends one progress step to the caller, when it asked for progress.
auto progressReporter(const ProgressCallback& progress) {
    return [&progress](const std::string& phase, const std::string& message, std::int64_t done,
                       std::int64_t total) {
        if (progress) {
            progress(ProcessingProgress{phase, message, done, total});
        }
    };
}

// The bytes a run writes, known before its first output: each output is
// about as large as its source (a segment's share of it), so the run's bar
// moves evenly however the files' sizes differ. While an output is written
// its exact bytes count; after each job the count is set to the estimates of
// the jobs done, so a failed or skipped job moves the bar on as well.
class RunBytes {
  public:
    RunBytes(const std::vector<ProcessingJob>& jobs, const std::vector<FileDescriptor>& files,
             const ProcessingOptions& options) {
        cumulative_.push_back(0);
        for (const ProcessingJob& job : jobs) {
            std::uint64_t bytes = 0;
            std::vector<fs::path> sources = job.targetFileURLs;
            if (job.includeLTCOutput && options.includeLTCOutputs) {
                sources.push_back(job.ltcFileURL);
            }
            for (const fs::path& source : sources) {
                bytes += estimate(source, job.segment, files);
            }
            cumulative_.push_back(cumulative_.back() + bytes);
        }
    }

    std::uint64_t total() const { return cumulative_.back(); }
    std::uint64_t done() const {
        return std::min(total(), cumulative_[jobsDone_] + withinJob_ + current_);
    }
    void output(std::uint64_t done, std::uint64_t of) {
        if (done >= of) {
            withinJob_ += of;
            current_ = 0;
        } else {
            current_ = done;
        }
    }
    void jobsDone(std::size_t count) {
        jobsDone_ = std::min(count, cumulative_.size() - 1);
        withinJob_ = 0;
        current_ = 0;
    }

  private:
    static std::uint64_t estimate(const fs::path& source,
                                  const std::optional<SegmentBoundary>& segment,
                                  const std::vector<FileDescriptor>& files) {
        std::error_code ec;
        const std::uintmax_t size = fs::file_size(source, ec);
        if (ec) {
            return 0;
        }
        if (segment) {
            for (const FileDescriptor& file : files) {
                if (file.url == source && file.frameCount > 0) {
                    const double share = static_cast<double>(std::max<std::int64_t>(
                                             segment->endSample - segment->startSample, 0)) /
                                         static_cast<double>(file.frameCount);
                    return static_cast<std::uint64_t>(static_cast<double>(size) *
                                                      std::min(share, 1.0));
                }
            }
        }
        return size;
    }

    std::vector<std::uint64_t> cumulative_;  // estimated bytes of the first n jobs
    std::size_t jobsDone_ = 0;
    std::uint64_t withinJob_ = 0;  // exact bytes of the current job's finished outputs
    std::uint64_t current_ = 0;    // bytes of the output being written
};

using SourceKey = std::pair<fs::path, std::optional<std::int64_t>>;

std::vector<SourceKey> distinctSources(const std::vector<ProcessingJob>& jobs) {
    std::vector<SourceKey> sources;
    for (const ProcessingJob& job : jobs) {
        SourceKey key{job.ltcFileURL, job.ltcChannelIndex};
        if (std::find(sources.begin(), sources.end(), key) == sources.end()) {
            sources.push_back(key);
        }
    }
    return sources;
}

std::int64_t workUnits(const ProcessingJob& job, const ProcessingOptions& options) {
    const auto units = static_cast<std::int64_t>(job.targetFileURLs.size()) +
                       (job.includeLTCOutput && options.includeLTCOutputs ? 1 : 0);
    return std::max<std::int64_t>(units, 1);
}

// Header values of the report, from the first job that succeeds.
struct Header {
    std::string ltcFile;
    std::int64_t sampleRate = 0;
    std::string frameRate;
    std::int64_t firstValidSample = 0;
    double firstValidSeconds = 0;
    std::optional<Timecode> startTC;
    std::optional<LTCDecodeResult> decode;
};

std::optional<FrameRateConfig> batchVote(const std::vector<ProcessingJob>& jobs) {
    std::vector<FrameRateDetection::VoteSource> sources;
    for (const SourceKey& source : distinctSources(jobs)) {
        sources.push_back(
            {[source]() -> std::optional<std::pair<std::vector<float>, std::int64_t>> {
                const WavReader wav(source.first);
                const std::int64_t channel = chooseLTCChannel(wav, source.second, std::nullopt);
                return std::pair{channelSamples(wav, channel),
                                 static_cast<std::int64_t>(wav.fmt().sampleRate)};
            }});
    }
    return FrameRateDetection::batchVoteFrameRate(sources);
}

}  // namespace

std::string csvLogName(std::chrono::system_clock::time_point time) {
    // Milliseconds keep runs of one second apart; writeNew numbers the rest.
    std::string stamp = iso8601UTC(time);
    const auto millis =
        std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count() %
        1000;
    stamp.insert(stamp.size() - 1, fmt::format(".{:03d}", millis));
    return "ltc_stamp_log_" + replaceAll(stamp, ":", "-") + ".csv";
}

FileDescriptor StampProcessor::describeFile(const fs::path& url) {
    return describeFile(WavReader(url));  // the header only
}

FileDescriptor StampProcessor::describeFile(const WavReader& wav) {
    FileDescriptor file;
    file.id = makeUUID();
    file.url = wav.path();
    file.sampleRate = wav.fmt().sampleRate;
    file.channels = wav.fmt().channelCount;
    file.frameCount = wav.frameCount();
    file.durationSeconds = wav.duration();
    return file;
}

std::vector<ProcessingJob> StampProcessor::buildJobs(const std::vector<FileDescriptor>& files,
                                                     const std::optional<fs::path>& selectedLTCFile,
                                                     const ProcessingOptions& options,
                                                     const ProgressCallback& progress,
                                                     const CancellationQuery& isCancelled) const {
    // A single recording that carries its own LTC is its own LTC file.
    const std::optional<fs::path> ltcFile =
        selectedLTCFile ? selectedLTCFile
                        : (files.size() == 1 ? std::optional(files.front().url) : std::nullopt);
    switch (options.mode) {
        case ProcessingMode::single: {
            if (!ltcFile) {
                throw ProcessingError::ltcFileMissing();
            }
            ProcessingJob job;
            job.id = makeUUID();
            job.mode = ProcessingMode::single;
            job.groupID = "single";
            job.ltcFileURL = *ltcFile;
            job.ltcChannelIndex = options.ltcChannelIndex;
            job.includeLTCOutput = options.includeLTCOutputs;
            for (const FileDescriptor& file : files) {
                if (file.url != *ltcFile) {
                    job.targetFileURLs.push_back(file.url);
                }
            }
            if (job.targetFileURLs.empty()) {
                // The recording alone: it is stamped from its own code, once.
                job.targetFileURLs.push_back(*ltcFile);
                job.includeLTCOutput = false;
            }
            return {job};
        }
        case ProcessingMode::groupedBatch:
            Grouping::validateRule(options.groupingConfig);
            return Grouping::buildGroupedJobs(files, options);
        case ProcessingMode::cutDetect: {
            if (!ltcFile) {
                throw ProcessingError::ltcFileMissing();
            }
            const CutDetection::CutAnalysis analysis = CutDetection::analyze(
                *ltcFile, options.ltcChannelIndex, options, progress, isCancelled, false);
            if (analysis.segments.empty()) {
                throw ProcessingError::noCutBoundariesDetected();
            }
            return CutDetection::segmentJobs(analysis.segments, files, *ltcFile, options);
        }
    }
    return {};
}

ProcessingReport StampProcessor::run(const std::vector<FileDescriptor>& files,
                                     const std::optional<fs::path>& selectedLTCFile,
                                     const ProcessingOptions& options,
                                     const ProgressCallback& progress,
                                     const CancellationQuery& isCancelled) const {
    const auto cancelled = [&] { return isCancelled && isCancelled(); };
    const auto report = progressReporter(progress);
    // One recording is enough where it carries its own LTC (single and cut
    // modes); grouping needs files to group.
    const bool alone = files.size() == 1 && options.mode != ProcessingMode::groupedBatch;
    if (files.size() < 2 && !alone) {
        throw ProcessingError::notEnoughWavs();
    }
    if (cancelled()) {
        throw ProcessingError::cancelled();
    }
    report("Preparing", "Inspecting input...", 0, 1);
    return runJobs(buildJobs(files, selectedLTCFile, options, progress, isCancelled), files,
                   options, progress, isCancelled);
}

ProcessingReport StampProcessor::runJobs(const std::vector<ProcessingJob>& jobs,
                                         const std::vector<FileDescriptor>& files,
                                         const ProcessingOptions& options,
                                         const ProgressCallback& progress,
                                         const CancellationQuery& isCancelled) const {
    const auto cancelled = [&] { return isCancelled && isCancelled(); };
    if (cancelled()) {
        throw ProcessingError::cancelled();
    }
    // No output of the run may land on one of its inputs: refused here,
    // before anything is written, whatever the collision behaviour.
    std::vector<fs::path> inputs;
    for (const FileDescriptor& file : files) {
        inputs.push_back(file.url);
    }
    for (const ProcessingJob& job : jobs) {
        inputs.push_back(job.ltcFileURL);
        inputs.insert(inputs.end(), job.targetFileURLs.begin(), job.targetFileURLs.end());
    }
    const RunOutputGuard guard(inputs);
    for (const fs::path& planned : plannedOutputs(jobs, options)) {
        guard.checkPlannedOutput(planned);
    }
    std::int64_t totalUnits = 0;
    for (const ProcessingJob& job : jobs) {
        totalUnits += workUnits(job, options);
    }
    totalUnits = std::max<std::int64_t>(totalUnits, 1);

    // The segments of a cut run come from one recording whose runs carry
    // their own measured rates: nothing to vote on.
    const bool allCut = std::all_of(jobs.begin(), jobs.end(), [](const ProcessingJob& job) {
        return job.mode == ProcessingMode::cutDetect;
    });
    std::optional<FrameRateConfig> votedRate;
    if (options.frameRatePreset == FrameRatePreset::auto_ && jobs.size() >= 2 && !allCut) {
        votedRate = batchVote(jobs);
        if (!votedRate) {
            throw ProcessingError::batchVoteFailed();
        }
    }
    if (std::any_of(jobs.begin(), jobs.end(), [](const ProcessingJob& job) {
            return job.mode == ProcessingMode::groupedBatch;
        })) {
        Grouping::preCheck(jobs, options, votedRate);
    }

    std::vector<ProcessedFileRecord> records;
    std::vector<std::string> outputs;
    std::vector<ProcessingWarning> warnings;
    std::vector<JobReport> jobReports;
    Header header;
    std::int64_t completed = 0;

    RunBytes bytes(jobs, files, options);
    // Between outputs the bytes stay where they are; units as the phases say.
    std::int64_t unitsShown = 0;
    const auto reportStep = [&](const std::string& phase, const std::string& message,
                                std::int64_t done, std::int64_t total) {
        unitsShown = done;
        if (progress) {
            ProcessingProgress p{phase, message, done, total};
            p.bytesDone = bytes.done();
            p.bytesTotal = bytes.total();
            progress(p);
        }
    };
    const auto outputBytes = [&](const fs::path& source, std::uint64_t done, std::uint64_t of) {
        bytes.output(done, of);
        if (progress) {
            ProcessingProgress p{"Processing", "Writing " + source.filename().string() + "...",
                                 unitsShown, totalUnits};
            p.file = source.filename().string();
            p.fileBytesDone = std::min(done, of);
            p.fileBytesTotal = of;
            p.bytesDone = bytes.done();
            p.bytesTotal = bytes.total();
            progress(p);
        }
    };
    if (allCut) {
        CutExecution cut = JobExecutor::executeCutJobs(
            jobs, options, votedRate,
            [&](const ProcessingProgress& p) {
                // Units here are segment jobs done.
                bytes.jobsDone(static_cast<std::size_t>(
                    std::max<std::int64_t>(p.phase == "Processing" ? p.completedUnits : 0, 0)));
                reportStep(p.phase, p.message,
                           p.totalUnits > 0 ? p.completedUnits * totalUnits / p.totalUnits : 0,
                           totalUnits);
            },
            isCancelled, outputBytes);
        records = std::move(cut.records);
        outputs = std::move(cut.outputs);
        warnings = std::move(cut.warnings);
        jobReports = std::move(cut.jobReports);
        if (!jobs.empty()) {
            header = Header{cut.ltcFile,
                            cut.sampleRate,
                            cut.decode.frameRate.label,
                            cut.decode.firstValidSample,
                            cut.decode.firstValidSeconds,
                            cut.startTC,
                            cut.decode};
        }
    } else {
        bool haveHeader = false;
        for (std::size_t jobIndex = 0; jobIndex < jobs.size(); ++jobIndex) {
            const ProcessingJob& job = jobs[jobIndex];
            if (cancelled()) {
                throw ProcessingError::cancelled();
            }
            bytes.jobsDone(jobIndex);
            reportStep("Processing", "Processing " + job.groupID + "...", completed, totalUnits);
            JobReport jobReport;
            jobReport.mode = job.mode;
            jobReport.groupID = job.groupID;
            if (job.segment) {
                jobReport.segmentIndex = job.segment->segmentIndex;
            }
            std::optional<std::string> failure;
            try {
                JobExecution execution =
                    JobExecutor::execute(job, options, votedRate, isCancelled, outputBytes);
                records.insert(records.end(), execution.records.begin(), execution.records.end());
                outputs.insert(outputs.end(), execution.outputs.begin(), execution.outputs.end());
                warnings.insert(warnings.end(), execution.warnings.begin(),
                                execution.warnings.end());
                completed +=
                    std::max<std::int64_t>(static_cast<std::int64_t>(execution.records.size()), 1);
                bytes.jobsDone(jobIndex + 1);
                reportStep("Processing",
                           "Wrote " + std::to_string(execution.records.size()) + " file(s)",
                           completed, totalUnits);
                jobReport.outputs = execution.outputs;
                for (const ProcessingWarning& w : execution.warnings) {
                    jobReport.warnings.push_back(w.message);
                }
                if (!haveHeader) {
                    haveHeader = true;
                    header = Header{execution.ltcFile,
                                    execution.sampleRate,
                                    execution.decode.frameRate.label,
                                    execution.decode.firstValidSample,
                                    execution.decode.firstValidSeconds,
                                    execution.startTC,
                                    execution.decode};
                }
            } catch (const std::exception& e) {
                failure = describeError(e);
            }
            if (failure && cancelled()) {
                throw ProcessingError::cancelled();  // the failure was the interrupted write
            }
            if (failure) {
                completed += workUnits(job, options);
                bytes.jobsDone(jobIndex + 1);
                reportStep("Processing", "Skipped failed job " + job.groupID, completed,
                           totalUnits);
                warnings.push_back(ProcessingWarning{"Job failed: " + *failure});
                jobReport.error = failure;
                records.push_back(JobExecutor::failureRecord(job, *failure));
            }
            jobReports.push_back(std::move(jobReport));
        }
    }

    std::vector<fs::path> sources;
    for (const FileDescriptor& file : files) {
        sources.push_back(file.url);
    }
    for (const ProcessingJob& job : jobs) {
        sources.push_back(job.ltcFileURL);
    }
    const auto validation =
        JobExecutor::validateFrameLengths(records, sources, options.outputFolder);
    warnings.insert(warnings.end(), validation.begin(), validation.end());

    fs::path csvLog;
    try {
        csvLog = CSVLogger::writeNew(records, options.outputFolder,
                                     csvLogName(std::chrono::system_clock::now()));
    } catch (const std::exception& e) {
        if (outputs.empty()) {
            throw;
        }
        // The outputs are on disk: their report matters more than the log.
        warnings.push_back(
            ProcessingWarning{"CSV log could not be written: " + describeError(e) + "."});
    }
    bytes.jobsDone(jobs.size());
    reportStep("Complete", "Done", totalUnits, totalUnits);

    ProcessingReport result;
    result.chosenLTCFile = !header.ltcFile.empty() ? header.ltcFile
                           : jobs.empty()          ? std::string()
                                                   : jobs.front().ltcFileURL.filename().string();
    result.sampleRate = header.sampleRate;
    result.detectedFrameRate = header.frameRate;
    result.firstValidLTCSample = header.firstValidSample;
    result.firstValidLTCSeconds = header.firstValidSeconds;
    result.stampedStartTimecode = header.startTC ? header.startTC->description() : std::string();
    result.timeReferenceMode = label(options.timeReferenceMode);
    if (header.decode && header.startTC) {
        const LTCDecodeResult& d = *header.decode;
        result.confidence = d.confidence;
        result.ltcRunFrames = d.runFrames;
        result.ltcBitErrors = d.bitErrors;
        result.rateEvidence = d.rateEvidence;
        const double perFrame = JobExecutor::samplesPerFrame(header.sampleRate, d.frameRate);
        result.subFrameOffsetSamples =
            static_cast<double>(TimecodeMath::frameCount(d.timecode, d.frameRate) -
                                TimecodeMath::frameCount(*header.startTC, d.frameRate)) *
                perFrame -
            (d.direction < 0 ? -1.0 : 1.0) * d.firstValidPosition;
    }
    result.warnings = std::move(warnings);
    result.outputFiles = std::move(outputs);
    result.csvLogURL = csvLog;
    result.jobs = std::move(jobReports);
    result.records = std::move(records);
    result.summary.totalJobs = static_cast<std::int64_t>(result.jobs.size());
    result.summary.successfulJobs = std::count_if(result.jobs.begin(), result.jobs.end(),
                                                  [](const JobReport& j) { return !j.error; });
    result.summary.failedJobs = result.summary.totalJobs - result.summary.successfulJobs;
    result.summary.warningCount = static_cast<std::int64_t>(result.warnings.size());
    return result;
}

std::vector<fs::path> StampProcessor::existingOutputs(const std::vector<ProcessingJob>& jobs,
                                                      const ProcessingOptions& options) const {
    std::vector<fs::path> existing;
    for (const fs::path& path : plannedOutputs(jobs, options)) {
        std::error_code ec;
        if (fs::exists(fs::symlink_status(path, ec)) &&
            std::find(existing.begin(), existing.end(), path) == existing.end()) {
            existing.push_back(path);
        }
    }
    return existing;
}

std::vector<fs::path> plannedOutputs(const std::vector<ProcessingJob>& jobs,
                                     const ProcessingOptions& options) {
    std::vector<fs::path> planned;
    for (const ProcessingJob& job : jobs) {
        std::vector<fs::path> sources = job.targetFileURLs;
        if (job.includeLTCOutput && options.includeLTCOutputs) {
            sources.push_back(job.ltcFileURL);
        }
        for (const fs::path& source : sources) {
            const std::string name = OutputNaming::outputName(
                source, job.segment ? std::optional(job.segment->segmentIndex) : std::nullopt,
                options.outputNaming.suffix);
            std::string safe;
            try {
                safe = OutputNaming::safeName(name);
            } catch (const ProcessingError&) {
                continue;  // the job itself reports the unsafe name
            }
            planned.push_back(options.outputFolder / safe);
        }
    }
    return planned;
}

LTCPrecheck StampProcessor::precheckLTC(const std::vector<ProcessingJob>& jobs,
                                        const ProcessingOptions& options) const {
    LTCPrecheck result;
    const std::optional<FrameRateConfig> rate = frameRateConfig(options.frameRatePreset);
    for (const SourceKey& source : distinctSources(jobs)) {
        try {
            const WavReader wav(source.first);
            const ChannelDecode decoded = decodeFileLTC(wav, source.second, rate);
            const FrameRateConfig& found = decoded.result.frameRate;
            if (std::find(result.detectedRates.begin(), result.detectedRates.end(), found) ==
                result.detectedRates.end()) {
                result.detectedRates.push_back(found);
            }
            result.lowestConfidence =
                std::min(result.lowestConfidence.value_or(1.0), decoded.result.confidence);
        } catch (const std::exception& e) {
            result.failures.push_back(source.first.filename().string() + ": " + describeError(e));
        }
    }
    return result;
}

std::string reportText(const ProcessingReport& report) {
    std::vector<std::string> lines;
    lines.push_back("Chosen LTC file: " + report.chosenLTCFile);
    lines.push_back("Detected sample rate: " + std::to_string(report.sampleRate) + " Hz");
    lines.push_back("Detected frame rate: " + report.detectedFrameRate);
    lines.push_back(fmt::format("First valid LTC location: {} samples ({:.6f} s)",
                                report.firstValidLTCSample, report.firstValidLTCSeconds));
    lines.push_back("Calculated file-set start TC: " + report.stampedStartTimecode);
    if (report.ltcRunFrames > 0) {
        lines.push_back(fmt::format(
            "LTC evidence: run of {} frames, {} bit errors, confidence {:.3f}; rate: {}",
            report.ltcRunFrames, report.ltcBitErrors, report.confidence, report.rateEvidence));
        lines.push_back(fmt::format("Sub-frame offset: {:+.2f} samples (TimeReference: {})",
                                    report.subFrameOffsetSamples, report.timeReferenceMode));
    }
    lines.push_back(fmt::format("Jobs: {}, Success: {}, Failed: {}, Warnings: {}",
                                report.summary.totalJobs, report.summary.successfulJobs,
                                report.summary.failedJobs, report.summary.warningCount));
    if (!report.outputFiles.empty()) {
        lines.push_back("Output files:");
        for (const std::string& output : report.outputFiles) {
            lines.push_back("- " + output);
        }
    }
    if (!report.warnings.empty()) {
        lines.push_back("Warnings:");
        for (const ProcessingWarning& warning : report.warnings) {
            lines.push_back("- " + warning.message);
        }
    }
    if (!report.jobs.empty()) {
        lines.push_back("Job details:");
        for (const JobReport& job : report.jobs) {
            std::string line = "- [" + std::string(job.error ? "failed" : "ok") + "] " +
                               label(job.mode) + " | " + job.groupID +
                               " | outputs: " + std::to_string(job.outputs.size());
            if (job.error) {
                line += " | error: " + *job.error;
            }
            lines.push_back(line);
        }
    }
    lines.push_back("CSV log: " + report.csvLogURL.string());
    std::string text;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (i > 0) {
            text += '\n';
        }
        text += lines[i];
    }
    return text;
}

}  // namespace norvane
