#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include <CLI/CLI.hpp>

#include "core/timecode/timecode.h"

namespace norvane::cli {

// Exit codes of the command line.
inline constexpr int kExitOk = 0;
inline constexpr int kExitJobsFailed = 1;         // the run finished, some jobs failed
inline constexpr int kExitFailure = 2;            // the run or the command failed
inline constexpr int kExitNeedsConfirmation = 3;  // nothing written; a decision is needed
inline constexpr int kExitUsage = 64;
// A run stopped by a signal exits 128 + its number: 130 for SIGINT (Ctrl-C),
// 143 for SIGTERM, 129 for SIGHUP.
inline constexpr int interruptedExitCode(int signal) {
    return 128 + signal;
}
// "Stamp was cancelled.", "Split was cancelled." ... for a subcommand's name.
std::string cancelledMessage(const std::string& command);

// One subcommand: its CLI11 node and what runs when it was chosen.
struct Command {
    CLI::App* app = nullptr;
    std::function<int()> run;
};

Command addInfoCommand(CLI::App& parent);
Command addDecodeCommand(CLI::App& parent);
Command addGenLtcCommand(CLI::App& parent);
Command addStampCommand(CLI::App& parent);
Command addSplitCommand(CLI::App& parent);
Command addRebuildCommand(CLI::App& parent);
Command addSettingsCommand(CLI::App& parent);
Command addDemoCommand(CLI::App& parent);

// "auto", "23.976", "24", "25", "29.97" (non-drop), "29.97df", "30" and the
// exact labels ("29.97 NDF", "29.97 DF", "Auto"); case-insensitive.
std::optional<FrameRatePreset> parseFrameRateArgument(std::string_view text);
// What parseFrameRateArgument accepts, for usage messages.
std::string frameRateArgumentHelp();

// "error: " + message on standard error; returns kExitFailure.
int printError(const std::string& message);

// -v/--verbose, given before or after the subcommand: diagnostics (such as the
// frame-rate candidates of an automatic decode) go to standard error only then.
void addVerboseFlag(CLI::App& app);
bool verbose();
// Sends the frame-rate diagnostics to standard error when verbose, else nowhere.
void routeDiagnostics();

// --sync: every output reaches the disk before it takes its final name, so it
// is complete or absent even after a power cut. --no-sync, the default, is
// still taken for scripts that ask for it.
void addSyncFlags(CLI::App& app);

// A one-line progress bar on standard error, drawn only when it is a terminal
// and only once the work has run for longer than a second, so quick runs and
// piped output stay clean.
class ProgressBar {
  public:
    explicit ProgressBar(bool enabled);
    ~ProgressBar();
    // fraction 0..1; `text` is shown after the bar.
    void update(double fraction, const std::string& text);
    void finish();

  private:
    bool enabled_;
    bool drawn_ = false;
    std::chrono::steady_clock::time_point started_;
};
bool stderrIsTerminal();

}  // namespace norvane::cli
