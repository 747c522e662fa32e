#include "core/stamp/job_executor.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <exception>
#include <set>
#include <system_error>

#include <fmt/format.h>

#include "core/audio/bwf_writer.h"
#include "core/audio/wav_reader.h"
#include "core/common/file_output.h"
#include "core/common/local_time.h"
#include "core/common/output_guard.h"
#include "core/common/uuid.h"
#include "core/stamp/cut_detection.h"
#include "core/stamp/ltc_source.h"
#include "core/stamp/output_naming.h"
#include "core/stamp/stamp_metadata.h"

namespace norvane::JobExecutor {

namespace fs = std::filesystem;

namespace {

std::string fileName(const fs::path& path) {
    return path.filename().string();
}

std::string joinWarnings(const std::vector<ProcessingWarning>& warnings) {
    std::string joined;
    for (const ProcessingWarning& w : warnings) {
        if (!joined.empty()) {
            joined += " | ";
        }
        joined += w.message;
    }
    return joined;
}

// What every output of one job (or one segment) is stamped with.
struct Stamp {
    const ProcessingJob* job = nullptr;
    const ProcessingOptions* options = nullptr;
    LTCDecodeResult decode;
    std::int64_t sampleRate = 0;
    Timecode start;
    std::uint64_t timeReference = 0;
    std::string originationDate;
    std::string originationTime;
    std::vector<ProcessingWarning> warnings;
    // Where the warnings of single outputs (their metadata) go.
    std::vector<ProcessingWarning>* outputWarnings = nullptr;
};

// Names, stamps and writes one source (a segment's stretch of it for a segment
// job), appending the output and its record. The audio is copied from the
// file in blocks, never held; `isCancelled` is polled between blocks.
void writeOutput(const WavReader& source, const Stamp& stamp, const std::string& ltcFileName,
                 std::vector<ProcessedFileRecord>& records, std::vector<std::string>& outputs,
                 const std::function<bool()>& isCancelled, const OutputBytesProgress& outputBytes) {
    const ProcessingJob& job = *stamp.job;
    const ProcessingOptions& options = *stamp.options;
    const std::optional<SegmentBoundary>& segment = job.segment;
    const std::string name = OutputNaming::outputName(
        source.path(), segment ? std::optional(segment->segmentIndex) : std::nullopt,
        options.outputNaming.suffix);
    // The recorder's bext and iXML are merged with the stamp, never replaced.
    const StampMetadata metadata = StampMetadataComposer::compose(
        WAVFile::headersOf(source),
        StampValues{stamp.decode.frameRate, stamp.start, stamp.timeReference, makeUUID(),
                    stamp.originationDate, stamp.originationTime});
    const StampChunks& info = metadata.chunks;
    std::optional<std::pair<std::int64_t, std::int64_t>> frames;
    if (segment) {
        // Only the segment's frames are copied.
        frames = std::pair{segment->startSample, segment->endSample};
    }
    const auto writeTo = [&](const fs::path& destination, bool overwrite) {
        OutputFile out(destination,
                       overwrite ? WriteMode::replaceAtomically : WriteMode::createNew);
        const bool finished = BWFWriter::write(
            source, info, out,
            [&](std::uint64_t done, std::uint64_t total) {
                if (outputBytes) {
                    outputBytes(source.path(), done, total);
                }
                return !(isCancelled && isCancelled());
            },
            frames);
        if (!finished) {
            throw ProcessingError::cancelled();  // the temporary file goes with `out`
        }
        out.commit();
    };
    // The name is claimed when the file is committed, so concurrent runs into
    // one folder each get their own (or "already exists" under ask).
    const fs::path destination = OutputNaming::writeResolved(
        options.outputFolder, name, options.outputNaming.collisionBehavior, writeTo);

    ProcessedFileRecord record;
    record.sourceFile = fileName(source.path());
    record.outputFile = fileName(destination);
    record.ltcFile = ltcFileName;
    record.sampleRate = stamp.sampleRate;
    record.frameRate = stamp.decode.frameRate.label;
    record.firstValidLTCSample = stamp.decode.firstValidSample;
    record.firstValidLTCSeconds = stamp.decode.firstValidSeconds;
    record.stampedStartTimecode = stamp.start.description();
    record.status = "ok";
    std::vector<ProcessingWarning> warnings = stamp.warnings;
    std::vector<std::string> notes = source.warnings();  // a cut-off recording
    notes.insert(notes.end(), metadata.warnings.begin(), metadata.warnings.end());
    for (const std::string& message : notes) {
        warnings.push_back({message});
        if (stamp.outputWarnings) {
            stamp.outputWarnings->push_back({message});
        }
    }
    record.warning = joinWarnings(warnings);
    record.mode = label(job.mode);
    record.groupID = job.groupID;
    if (segment) {
        record.segmentIndex = std::to_string(segment->segmentIndex);
        record.segmentStartSample = std::to_string(segment->startSample);
        record.segmentEndSample = std::to_string(segment->endSample);
        record.segmentLengthSamples =
            std::to_string(std::max<std::int64_t>(segment->endSample - segment->startSample, 0));
    } else {
        record.segmentLengthSamples = std::to_string(source.frameCount());
    }
    record.timeReferenceSamples = std::to_string(stamp.timeReference);
    records.push_back(std::move(record));
    outputs.push_back(fileName(destination));
}

// The frame count of the source a record was made from. Sources of one name
// in different folders: the one of the recorded length is taken.
std::int64_t sourceFrameCount(const std::vector<fs::path>& sources,
                              const ProcessedFileRecord& record) {
    std::optional<std::int64_t> found;
    std::exception_ptr failure;
    for (const fs::path& source : sources) {
        if (source.filename().string() != record.sourceFile) {
            continue;
        }
        try {
            const std::int64_t frames = WavReader(source).frameCount();
            if (!found || std::to_string(frames) == record.segmentLengthSamples) {
                found = frames;
            }
        } catch (const std::exception&) {
            failure = std::current_exception();
        }
    }
    if (found) {
        return *found;
    }
    if (failure) {
        std::rethrow_exception(failure);
    }
    throw fs::filesystem_error("cannot find source", fs::path(record.sourceFile),
                               std::make_error_code(std::errc::no_such_file_or_directory));
}

void stampOriginationNow(Stamp& stamp) {
    const auto now = std::chrono::system_clock::now();
    stamp.originationDate = localDate(now);
    stamp.originationTime = localClock(now);
}

}  // namespace

double samplesPerFrame(std::int64_t sampleRate, const FrameRateConfig& rate) {
    return static_cast<double>(sampleRate) * static_cast<double>(rate.denominator) /
           static_cast<double>(rate.numerator);
}

Timecode startTimecode(const LTCDecodeResult& decode, std::int64_t anchorSample,
                       std::int64_t sampleRate) {
    const double perFrame = samplesPerFrame(sampleRate, decode.frameRate);
    // Code played backwards counts down along the file.
    const std::int64_t offset =
        roundHalfAwayFromZero(static_cast<double>(anchorSample) / perFrame) *
        (decode.direction < 0 ? -1 : 1);
    return TimecodeMath::timecodeFromFrameCount(
        TimecodeMath::frameCount(decode.timecode, decode.frameRate) - offset, decode.frameRate);
}

std::uint64_t timeReference(const Timecode& start, const FrameRateConfig& rate,
                            std::int64_t sampleRate) {
    const std::int64_t frames = TimecodeMath::frameCount(start, rate);
    const std::int64_t samples =
        roundHalfAwayFromZero(static_cast<double>(frames) * samplesPerFrame(sampleRate, rate));
    return samples < 0 ? 0 : static_cast<std::uint64_t>(samples);
}

std::uint64_t exactTimeReference(const LTCDecodeResult& decode, double sample,
                                 std::int64_t sampleRate) {
    const double frameStart =
        static_cast<double>(TimecodeMath::frameCount(decode.timecode, decode.frameRate)) *
        samplesPerFrame(sampleRate, decode.frameRate);
    const double position = frameStart + static_cast<double>(decode.direction >= 0 ? 1 : -1) *
                                             (sample - decode.firstValidPosition);
    const std::int64_t samples = roundHalfAwayFromZero(position);
    return samples < 0 ? 0 : static_cast<std::uint64_t>(samples);
}

std::string ixmlDocument(const FrameRateConfig& rate, const Timecode& start) {
    return "<BWFXML>\n  <IXML_VERSION>1.5</IXML_VERSION>\n  <TIMECODE_RATE>" + rate.label +
           "</TIMECODE_RATE>\n  <TIMECODE_FLAG>" + (rate.dropFrame ? "DF" : "NDF") +
           "</TIMECODE_FLAG>\n  <TIMECODE>" + start.description() + "</TIMECODE>\n</BWFXML>";
}

std::vector<ProcessingWarning> confidenceWarnings(double confidence, bool forceLowConfidence) {
    if (confidence < kMinimumLTCConfidence && !forceLowConfidence) {
        throw ProcessingError::lowConfidence(confidence);
    }
    if (confidence < kIdealLTCConfidence) {
        return {ProcessingWarning{"Decode confidence is below ideal (" +
                                  std::to_string(truncatedPercent(confidence)) + "%)."}};
    }
    return {};
}

JobExecution execute(const ProcessingJob& job, const ProcessingOptions& options,
                     const std::optional<FrameRateConfig>& votedRate,
                     const std::function<bool()>& isCancelled,
                     const OutputBytesProgress& outputBytes) {
    // A job that fails part-way removes the outputs it already wrote.
    JobOutputGuard written;
    // Every file is opened (its header read) before anything is written; the
    // audio is read when it is copied.
    const WavReader ltcReader(job.ltcFileURL);
    std::vector<WavReader> targets;
    std::set<std::uint32_t> rates = {ltcReader.fmt().sampleRate};
    for (const fs::path& url : job.targetFileURLs) {
        targets.emplace_back(url);
        rates.insert(targets.back().fmt().sampleRate);
    }
    if (rates.size() != 1) {
        throw ProcessingError::sampleRateMismatch();
    }

    JobExecution execution;
    execution.sampleRate = *rates.begin();
    execution.ltcFile = fileName(job.ltcFileURL);
    const std::optional<FrameRateConfig> rate =
        votedRate ? votedRate : frameRateConfig(options.frameRatePreset);
    execution.decode = decodeFileLTC(ltcReader, job.ltcChannelIndex, rate).result;
    execution.warnings =
        confidenceWarnings(execution.decode.confidence, options.forceLowConfidence);

    const std::int64_t anchor =
        job.segment ? job.segment->startSample : execution.decode.firstValidSample;
    execution.startTC = startTimecode(execution.decode, anchor, execution.sampleRate);

    Stamp stamp;
    stamp.job = &job;
    stamp.options = &options;
    stamp.decode = execution.decode;
    stamp.sampleRate = execution.sampleRate;
    stamp.start = execution.startTC;
    stamp.timeReference =
        options.timeReferenceMode == TimeReferenceMode::sample
            ? exactTimeReference(execution.decode,
                                 job.segment ? static_cast<double>(job.segment->startSample) : 0.0,
                                 execution.sampleRate)
            : timeReference(execution.startTC, execution.decode.frameRate, execution.sampleRate);
    stamp.warnings = execution.warnings;
    stamp.outputWarnings = &execution.warnings;
    stampOriginationNow(stamp);

    for (const WavReader& target : targets) {
        writeOutput(target, stamp, execution.ltcFile, execution.records, execution.outputs,
                    isCancelled, outputBytes);
    }
    if (job.includeLTCOutput && options.includeLTCOutputs) {
        writeOutput(ltcReader, stamp, execution.ltcFile, execution.records, execution.outputs,
                    isCancelled, outputBytes);
    }
    written.keep();
    return execution;
}

ProcessedFileRecord failureRecord(const ProcessingJob& job, const std::string& description) {
    ProcessedFileRecord record;
    record.ltcFile = fileName(job.ltcFileURL);
    record.status = "failed";
    record.mode = label(ProcessingMode::cutDetect);
    record.groupID = "cut-detect";
    if (job.segment) {
        record.segmentIndex = std::to_string(job.segment->segmentIndex);
        record.segmentStartSample = std::to_string(job.segment->startSample);
        record.segmentEndSample = std::to_string(job.segment->endSample);
        record.segmentLengthSamples = std::to_string(
            std::max<std::int64_t>(job.segment->endSample - job.segment->startSample, 0));
    }
    record.errorCode = description;
    return record;
}

CutExecution executeCutJobs(const std::vector<ProcessingJob>& jobs,
                            const ProcessingOptions& options,
                            const std::optional<FrameRateConfig>& votedRate,
                            const std::function<void(const ProcessingProgress&)>& progress,
                            const std::function<bool()>& isCancelled,
                            const OutputBytesProgress& outputBytes) {
    CutExecution execution;
    if (jobs.empty()) {
        return execution;
    }
    const auto cancelled = [&] { return isCancelled && isCancelled(); };
    const auto report = [&](const std::string& message, std::int64_t done, std::int64_t total) {
        if (progress) {
            progress(ProcessingProgress{"Processing", message, done, total});
        }
    };
    const auto total = static_cast<std::int64_t>(jobs.size());
    if (cancelled()) {
        throw ProcessingError::cancelled();
    }

    const ProcessingJob& first = jobs.front();
    const WavReader ltcReader(first.ltcFileURL);
    execution.sampleRate = ltcReader.fmt().sampleRate;
    execution.ltcFile = fileName(first.ltcFileURL);
    const std::optional<FrameRateConfig> rate =
        votedRate ? votedRate : frameRateConfig(options.frameRatePreset);
    const ChannelDecode decoded = decodeFileLTC(ltcReader, first.ltcChannelIndex, rate);
    execution.decode = decoded.result;
    const std::vector<ProcessingWarning> confidence =
        confidenceWarnings(execution.decode.confidence, options.forceLowConfidence);
    execution.startTC =
        startTimecode(execution.decode, execution.decode.firstValidSample, execution.sampleRate);

    // The targets are the same for every segment: open each once.
    std::vector<std::optional<WavReader>> targets;
    std::vector<std::string> targetErrors;
    for (const fs::path& url : first.targetFileURLs) {
        try {
            targets.emplace_back(std::in_place, url);
            targetErrors.emplace_back();
        } catch (const std::exception& e) {
            targets.emplace_back(std::nullopt);
            targetErrors.push_back(describeError(e));
        }
    }

    std::int64_t done = 0;
    for (const ProcessingJob& job : jobs) {
        if (cancelled()) {
            throw ProcessingError::cancelled();
        }
        const std::int64_t index = job.segment ? job.segment->segmentIndex : done + 1;
        report("Rendering segment " + std::to_string(index), done, total);
        JobReport jobReport;
        jobReport.mode = job.mode;
        jobReport.groupID = job.groupID;
        if (job.segment) {
            jobReport.segmentIndex = job.segment->segmentIndex;
        }
        std::vector<ProcessedFileRecord> records;
        std::vector<std::string> outputs;
        JobOutputGuard written;  // a segment that fails removes what it wrote
        try {
            const SegmentBoundary segment = job.segment.value_or(SegmentBoundary{});
            // A segment is stamped from the run of code it starts in, at that
            // run's own rate, as the cut scan read it; one the scan did not
            // anchor steps from the file's start.
            const FrameRateConfig segmentRate = segment.rate.value_or(execution.decode.frameRate);
            const std::int64_t startFrames =
                segment.startFrameCount
                    ? *segment.startFrameCount
                    : TimecodeMath::frameCount(startTimecode(execution.decode, segment.startSample,
                                                             execution.sampleRate),
                                               segmentRate);
            Stamp stamp;
            stamp.job = &job;
            stamp.options = &options;
            stamp.decode = execution.decode;
            stamp.decode.frameRate = segmentRate;
            stamp.sampleRate = execution.sampleRate;
            stamp.start = TimecodeMath::timecodeFromFrameCount(startFrames, segmentRate);
            if (options.timeReferenceMode != TimeReferenceMode::sample) {
                stamp.timeReference = timeReference(stamp.start, segmentRate, execution.sampleRate);
            } else if (segment.startSamplesSinceMidnight) {
                const std::int64_t exact =
                    roundHalfAwayFromZero(*segment.startSamplesSinceMidnight);
                stamp.timeReference = exact < 0 ? 0 : static_cast<std::uint64_t>(exact);
            } else {
                stamp.timeReference =
                    exactTimeReference(execution.decode, static_cast<double>(segment.startSample),
                                       execution.sampleRate);
            }
            stamp.warnings = confidence;
            stamp.outputWarnings = &execution.warnings;
            stampOriginationNow(stamp);
            for (std::size_t t = 0; t < targets.size(); ++t) {
                if (!targets[t]) {
                    throw Error(targetErrors[t]);
                }
                if (targets[t]->fmt().sampleRate != ltcReader.fmt().sampleRate) {
                    throw ProcessingError::sampleRateMismatch();
                }
                writeOutput(*targets[t], stamp, execution.ltcFile, records, outputs, isCancelled,
                            outputBytes);
            }
            if (job.includeLTCOutput && options.includeLTCOutputs) {
                writeOutput(ltcReader, stamp, execution.ltcFile, records, outputs, isCancelled,
                            outputBytes);
            }
            jobReport.outputs = outputs;
            for (const ProcessingWarning& w : confidence) {
                jobReport.warnings.push_back(w.message);
                execution.warnings.push_back(w);
            }
            execution.records.insert(execution.records.end(), records.begin(), records.end());
            execution.outputs.insert(execution.outputs.end(), outputs.begin(), outputs.end());
            written.keep();
        } catch (const ProcessingError& e) {
            if (e.kind() == ProcessingError::Kind::cancelled) {
                throw;
            }
            jobReport.error = e.message();
        } catch (const std::exception& e) {
            jobReport.error = describeError(e);
        }
        if (jobReport.error && cancelled()) {
            throw ProcessingError::cancelled();  // the failure was the interrupted write
        }
        if (jobReport.error) {
            execution.warnings.push_back(ProcessingWarning{"Job failed: " + *jobReport.error});
            execution.records.push_back(failureRecord(job, *jobReport.error));
        }
        execution.jobReports.push_back(std::move(jobReport));
        ++done;
    }
    report("Rendering segment " + std::to_string(total), total, total);
    return execution;
}

std::vector<ProcessingWarning> validateFrameLengths(const std::vector<ProcessedFileRecord>& records,
                                                    const std::vector<fs::path>& sources,
                                                    const fs::path& outputFolder) {
    std::vector<ProcessingWarning> warnings;
    for (const ProcessedFileRecord& record : records) {
        if (record.sourceFile.empty() || record.outputFile.empty() || record.status != "ok") {
            continue;
        }
        std::int64_t expected = 0;
        if (!record.segmentIndex.empty()) {
            expected = std::stoll(record.segmentLengthSamples);
        } else {
            try {
                expected = sourceFrameCount(sources, record);
            } catch (const std::exception& e) {
                warnings.push_back({"Validation warning: could not read source " +
                                    record.sourceFile + " for frame-length check (" +
                                    describeError(e) + ")."});
                continue;
            }
        }
        std::int64_t actual = 0;
        std::int64_t rate = 0;
        try {
            const WavReader output(outputFolder / record.outputFile);
            actual = output.frameCount();
            rate = output.fmt().sampleRate;
        } catch (const std::exception& e) {
            warnings.push_back({"Validation warning: could not read output " + record.outputFile +
                                " for frame-length check (" + describeError(e) + ")."});
            continue;
        }
        if (actual != expected) {
            const std::int64_t delta = actual - expected;
            warnings.push_back({fmt::format(
                "Frame-length mismatch for {}: expected {}, got {} (delta {:+d} frames, {:.6f} s).",
                record.outputFile, expected, actual, delta,
                static_cast<double>(delta) /
                    static_cast<double>(std::max<std::int64_t>(rate, 1)))});
        }
    }
    return warnings;
}

}  // namespace norvane::JobExecutor
