#include "app/viewmodels/poly_split_workflow.h"

#include <algorithm>
#include <exception>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "app/viewmodels/view_model_support.h"
#include "core/audio/wav_file.h"
#include "core/audio/wav_reader.h"
#include "core/common/error.h"
#include "core/common/text.h"
#include "core/settings/output_folder.h"
#include "core/split/poly_wav_split_processor.h"
#include "core/split/split_metadata.h"

namespace norvane {

namespace fs = std::filesystem;

namespace {

// What a finished split hands back to the main thread.
struct SplitOutcome {
    std::optional<PolyWavSplitReport> report;
    bool cancelled = false;
    std::string errorDescription;
};

// The header of a queued file: format, length and the iXML track names the
// outputs may carry. Reads no audio.
QVariantMap describeSplitInput(const fs::path& path) {
    QVariantMap row{{QStringLiteral("path"), toQString(path)},
                    {QStringLiteral("fileName"), toQString(path.filename().string())}};
    try {
        const WavReader reader(path);
        const WAVFile headers = WAVFile::headersOf(reader);
        const WAVFmtChunk& fmt = headers.fmt();
        const SplitSourceMetadata metadata = SplitMetadata::read(headers);
        QStringList tracks;
        for (int channel = 0; channel < fmt.channelCount; ++channel) {
            tracks.append(toQString(SplitMetadata::trackName(metadata, channel)));
        }
        row.insert(QStringLiteral("state"), QStringLiteral("ready"));
        row.insert(QStringLiteral("channels"), static_cast<int>(fmt.channelCount));
        row.insert(QStringLiteral("sampleRate"), static_cast<qint64>(fmt.sampleRate));
        row.insert(QStringLiteral("bitsPerSample"), static_cast<int>(fmt.bitsPerSample));
        row.insert(QStringLiteral("isFloat"), fmt.audioFormat == 3);
        row.insert(QStringLiteral("durationSeconds"), headers.duration());
        row.insert(QStringLiteral("trackNames"), tracks);
    } catch (const std::exception& error) {
        row.insert(QStringLiteral("state"), QStringLiteral("unreadable"));
        row.insert(QStringLiteral("statusReason"), toQString(describeError(error)));
    }
    return row;
}

}  // namespace

PolySplitWorkflow::PolySplitWorkflow(const AppSettingsStore& settings, QObject* parent)
    : QObject(parent),
      outputFolder_(toQString(settings.polySplitDefaultOutputFolderURL())),
      appendTrackNames_(settings.polySplitAppendTrackNames()),
      describeTask_(this),
      polySplitTask_(this) {
    savedOutputFolder_ = outputFolder_;
    connect(this, &PolySplitWorkflow::polySplitInputURLsChanged, this,
            &PolySplitWorkflow::refreshFiles);
    connect(this, &PolySplitWorkflow::polySplitAppendTrackNamesChanged, this,
            &PolySplitWorkflow::refreshFiles);
}

void PolySplitWorkflow::refreshFiles() {
    PolyWavSplitNaming naming;
    naming.appendTrackNames = appendTrackNames_;
    QVariantList rows;
    std::vector<fs::path> unknown;
    for (const QString& path : inputURLs_) {
        QVariantMap row = headers_.value(path);
        if (row.isEmpty()) {
            row = {{QStringLiteral("path"), path},
                   {QStringLiteral("fileName"), fileNameOf(path)},
                   {QStringLiteral("state"), QStringLiteral("reading")}};
            unknown.push_back(toPath(path));
        }
        const int channels = row.value(QStringLiteral("channels")).toInt();
        const QStringList tracks = row.value(QStringLiteral("trackNames")).toStringList();
        QStringList outputs;
        const std::string base = toPath(path).stem().string();
        for (int channel = 1; channel <= channels && channels > 1; ++channel) {
            outputs.append(toQString(PolyWavSplitProcessor::outputFileName(
                base, PolyWavSplitProcessor::channelLabel(channel, channels),
                toStdString(tracks.value(channel - 1)), naming)));
        }
        row.insert(QStringLiteral("outputs"), outputs);
        if (row.value(QStringLiteral("state")) == QStringLiteral("unreadable")) {
            row.insert(QStringLiteral("status"), QStringLiteral("failed"));
        } else if (channels == 1) {
            row.insert(QStringLiteral("status"), QStringLiteral("warning"));
            row.insert(QStringLiteral("statusReason"),
                       QStringLiteral("File has one channel; nothing to split."));
        }
        // What the last run did with the file wins over what is expected of it.
        const QVariantMap result = results_.value(path);
        for (auto it = result.begin(); it != result.end(); ++it) {
            row.insert(it.key(), it.value());
        }
        rows.append(row);
    }
    if (rows != files_) {
        files_ = rows;
        emit polySplitFilesChanged();
    }
    if (unknown.empty() || describing_) {
        return;
    }
    describing_ = true;
    describeTask_.start([this, unknown](const BackgroundTask::Context& task) {
        for (const fs::path& path : unknown) {
            if (task.stopRequested()) {
                return;
            }
            QVariantMap row = describeSplitInput(path);
            task.post([this, row] {
                headers_.insert(row.value(QStringLiteral("path")).toString(), row);
            });
        }
        // Files queued meanwhile are read by the next refresh.
        task.post([this] {
            describing_ = false;
            refreshFiles();
        });
    });
}

void PolySplitWorkflow::recordResults(const PolyWavSplitReport& report) {
    results_.clear();
    for (const PolyWavSplitFileResult& result : report.fileResults) {
        QStringList outputs;
        for (const fs::path& output : result.outputURLs) {
            outputs.append(toQString(output.filename().string()));
        }
        QVariantMap row;
        if (result.skipped) {
            row.insert(QStringLiteral("status"), QStringLiteral("warning"));
            row.insert(QStringLiteral("statusReason"),
                       QStringLiteral("Skipped: ") + toQString(result.skipReason.value_or("")));
        } else {
            row.insert(QStringLiteral("outputs"), outputs);
            row.insert(QStringLiteral("status"),
                       result.warnings.empty() ? QStringLiteral("ok") : QStringLiteral("warning"));
            QStringList reason = {QStringLiteral("Wrote ") + QString::number(outputs.size()) +
                                  QStringLiteral(" channel file(s)")};
            for (const std::string& warning : result.warnings) {
                reason.append(toQString(warning));
            }
            row.insert(QStringLiteral("statusReason"), reason.join(QStringLiteral("\n")));
        }
        results_.insert(toQString(result.inputURL), row);
    }
    refreshFiles();
}

PolySplitWorkflow::~PolySplitWorkflow() = default;

void PolySplitWorkflow::appendLog(const QString& message) {
    logLines_.append(timestampedLogLine(message));
    emit polySplitLogLinesChanged();
}

void PolySplitWorkflow::setStatus(const QString& status) {
    if (statusMessage_ != status) {
        statusMessage_ = status;
        emit polySplitStatusMessageChanged();
    }
}

void PolySplitWorkflow::setProgress(double progress) {
    if (progress_ != progress) {
        progress_ = progress;
        emit polySplitProgressChanged();
    }
}

void PolySplitWorkflow::setProcessing(bool processing) {
    if (isProcessing_ != processing) {
        isProcessing_ = processing;
        emit polySplitIsProcessingChanged();
    }
}

void PolySplitWorkflow::setPolySplitOverwriteExisting(bool overwrite) {
    if (overwriteExisting_ != overwrite) {
        overwriteExisting_ = overwrite;
        emit polySplitOverwriteExistingChanged();
    }
}

void PolySplitWorkflow::setPolySplitAppendTrackNames(bool append) {
    if (appendTrackNames_ != append) {
        appendTrackNames_ = append;
        emit polySplitAppendTrackNamesChanged();
    }
}

void PolySplitWorkflow::setOutputFolder(const QString& path) {
    if (outputFolder_ != path) {
        outputFolderChosen_ = true;
        outputFolder_ = path;
        emit polySplitOutputFolderChanged();
    }
}

void PolySplitWorkflow::addFiles(const QStringList& paths) {
    const std::vector<fs::path> found = expandDroppedWavFiles(paths);
    QStringList merged = inputURLs_;
    for (const fs::path& path : found) {
        const QString text = toQString(path);
        if (!merged.contains(text)) {
            merged.append(text);
        }
    }
    std::stable_sort(merged.begin(), merged.end(), [](const QString& a, const QString& b) {
        return fileBrowserLess(toPath(a).filename().string(), toPath(b).filename().string());
    });
    if (merged != inputURLs_) {
        inputURLs_ = merged;
        emit polySplitInputURLsChanged();
    }
    if (!outputFolderChosen_ && !found.empty()) {
        // Outputs go beside the recordings unless a folder was chosen before.
        const QString beside = toQString(defaultOutputFolder(toPath(savedOutputFolder_),
                                                             AppSettingsStore::homeDirectoryPath(),
                                                             toPath(inputURLs_.front()), "Split"));
        if (beside != outputFolder_) {
            outputFolder_ = beside;
            emit polySplitOutputFolderChanged();
        }
    }
    const QString count = QString::number(inputURLs_.size());
    setStatus(inputURLs_.isEmpty()
                  ? QStringLiteral("No WAV files in selection.")
                  : QStringLiteral("Loaded ") + count + QStringLiteral(" file(s)."));
    appendLog(QStringLiteral("Loaded ") + count + QStringLiteral(" poly WAV file(s) for split."));
}

void PolySplitWorkflow::clearList() {
    if (!inputURLs_.isEmpty()) {
        inputURLs_.clear();
        emit polySplitInputURLsChanged();
    }
}

void PolySplitWorkflow::startSplit() {
    if (inputURLs_.isEmpty()) {
        setStatus(QStringLiteral("Add at least one WAV file."));
        appendLog(QStringLiteral("Split aborted: no input files."));
        return;
    }
    if (!outputFolderExists()) {
        // Nothing starts: the screen offers to create the folder first.
        const QString reason = QStringLiteral("The output folder does not exist: ") + outputFolder_;
        setStatus(reason);
        appendLog(QStringLiteral("Split aborted: ") + reason);
        return;
    }
    const bool overwrite = overwriteExisting_;
    appendLog(
        QStringLiteral("Starting split to ") + outputFolder_ + QStringLiteral(" (overwrite: ") +
        (overwrite ? QStringLiteral("true") : QStringLiteral("false")) + QStringLiteral(")\u2026"));
    setProcessing(true);
    setProgress(0);
    setStatus(QStringLiteral("Splitting\u2026"));

    std::vector<fs::path> inputs;
    for (const QString& url : inputURLs_) {
        inputs.push_back(toPath(url));
    }
    const fs::path folder = toPath(outputFolder_);

    PolyWavSplitNaming naming;
    naming.appendTrackNames = appendTrackNames_;
    polySplitTask_.start([this, inputs, folder, overwrite,
                          naming](const BackgroundTask::Context& task) {
        SplitOutcome outcome;
        try {
            outcome.report = PolyWavSplitProcessor::split(
                inputs, folder, overwrite, naming,
                [this, &task](double fraction) {
                    task.post([this, fraction] { setProgress(fraction); });
                },
                [&task] { return task.stopRequested(); });
        } catch (const PolyWavSplitError& error) {
            outcome.cancelled = error.kind() == PolyWavSplitError::Kind::cancelled;
            outcome.errorDescription = describeError(error);
        } catch (const std::exception& error) {
            outcome.errorDescription = describeError(error);
        }
        task.post([this, outcome = std::move(outcome)] {
            if (outcome.report) {
                for (const auto& result : outcome.report->fileResults) {
                    const QString name = toQString(fs::path(result.inputURL).filename().string());
                    if (result.skipped) {
                        appendLog(QStringLiteral("Skipped ") + name + QStringLiteral(": ") +
                                  toQString(result.skipReason.value_or(std::string())));
                    } else {
                        appendLog(
                            QStringLiteral("Wrote ") + QString::number(result.outputURLs.size()) +
                            QStringLiteral(" channel file(s) for ") + name + QStringLiteral("."));
                    }
                    for (const std::string& warning : result.warnings) {
                        appendLog(QStringLiteral("Warning: ") + toQString(warning));
                    }
                }
                recordResults(*outcome.report);
                setStatus(QStringLiteral("Done. ") +
                          QString::number(outcome.report->outputPaths.size()) +
                          QStringLiteral(" file(s) written."));
                setProgress(1.0);
                emit outputFolderUsed(outputFolder_);
            } else if (outcome.cancelled) {
                appendLog(QStringLiteral("Split cancelled."));
                setStatus(QStringLiteral("Cancelled"));
            } else {
                const QString description = toQString(outcome.errorDescription);
                appendLog(QStringLiteral("Error: ") + description);
                setStatus(QStringLiteral("Failed: ") + description);
            }
            setProcessing(false);
        });
    });
}

void PolySplitWorkflow::cancelSplit() {
    polySplitTask_.cancel();
}

void PolySplitWorkflow::removeFiles(const QStringList& paths) {
    if (isProcessing_) {
        return;
    }
    const auto before = inputURLs_.size();
    inputURLs_.removeIf([&](const QString& url) { return paths.contains(url); });
    if (inputURLs_.size() != before) {
        emit polySplitInputURLsChanged();
        setStatus(QStringLiteral("Loaded ") + QString::number(inputURLs_.size()) +
                  QStringLiteral(" file(s)."));
    }
}

bool PolySplitWorkflow::outputFolderExists() const {
    std::error_code error;
    return !outputFolder_.trimmed().isEmpty() && fs::is_directory(toPath(outputFolder_), error);
}

bool PolySplitWorkflow::createOutputFolder() {
    std::error_code error;
    const fs::path folder = toPath(outputFolder_);
    if (!outputFolder_.trimmed().isEmpty()) {
        fs::create_directories(folder, error);
    }
    if (outputFolder_.trimmed().isEmpty() || error || !fs::is_directory(folder, error)) {
        const QString reason =
            QStringLiteral("Cannot create the output folder ") + outputFolder_ +
            (error ? QStringLiteral(": ") + toQString(error.message()) : QString());
        setStatus(reason);
        appendLog(reason);
        return false;
    }
    appendLog(QStringLiteral("Created the output folder ") + outputFolder_ + QStringLiteral("."));
    return true;
}

}  // namespace norvane
