#include "app/viewmodels/poly_split_workflow.h"

#include <algorithm>
#include <exception>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "app/viewmodels/view_model_support.h"
#include "core/common/error.h"
#include "core/common/text.h"
#include "core/settings/output_folder.h"
#include "core/split/poly_wav_split_processor.h"

namespace norvane {

namespace fs = std::filesystem;

namespace {

// What a finished split hands back to the main thread.
struct SplitOutcome {
    std::optional<PolyWavSplitReport> report;
    bool cancelled = false;
    std::string errorDescription;
};

}  // namespace

PolySplitWorkflow::PolySplitWorkflow(const AppSettingsStore& settings, QObject* parent)
    : QObject(parent),
      outputFolder_(toQString(settings.polySplitDefaultOutputFolderURL())),
      appendTrackNames_(settings.polySplitAppendTrackNames()),
      polySplitTask_(this) {
    savedOutputFolder_ = outputFolder_;
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
