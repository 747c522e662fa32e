#include "cli/cli_common.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iostream>

#include "core/common/file_output.h"
#include "core/common/text.h"
#include "core/timecode/ltc_decoder.h"

namespace norvane::cli {

std::optional<FrameRatePreset> parseFrameRateArgument(std::string_view text) {
    const std::string lower = toLowerASCII(trim(text));
    if (lower == "auto")
        return FrameRatePreset::auto_;
    if (lower == "23.976" || lower == "23.98")
        return FrameRatePreset::fps23_976;
    if (lower == "24")
        return FrameRatePreset::fps24;
    if (lower == "25")
        return FrameRatePreset::fps25;
    if (lower == "29.97" || lower == "29.97ndf" || lower == "29.97 ndf") {
        return FrameRatePreset::fps29_97NDF;
    }
    if (lower == "29.97df" || lower == "29.97 df")
        return FrameRatePreset::fps29_97DF;
    if (lower == "30")
        return FrameRatePreset::fps30;
    return std::nullopt;
}

std::string frameRateArgumentHelp() {
    return "auto, 23.976, 24, 25, 29.97 (non-drop), 29.97df, 30, or a label such as \"29.97 DF\"";
}

std::string cancelledMessage(const std::string& command) {
    if (command == "gen-ltc") {
        return "LTC generation was cancelled.";
    }
    std::string title = command;
    if (!title.empty() && title[0] >= 'a' && title[0] <= 'z') {
        title[0] = static_cast<char>(title[0] - 'a' + 'A');
    }
    return title + " was cancelled.";
}

int printError(const std::string& message) {
    std::cerr << "error: " << message << std::endl;
    return kExitFailure;
}

namespace {
bool verboseFlag = false;
}  // namespace

void addVerboseFlag(CLI::App& app) {
    app.add_flag("-v,--verbose", verboseFlag,
                 "Print diagnostics (frame-rate candidates, decoder details) on standard error");
    // Subcommands hand options they do not know to the parent, so -v works
    // after the subcommand too.
    app.fallthrough();
}

bool verbose() {
    return verboseFlag;
}

void routeDiagnostics() {
    setFrameRateDiagnosticsStream(verboseFlag ? &std::cerr : nullptr);
}

void addSyncFlags(CLI::App& app) {
    app.add_flag_callback(
        "--sync", [] { setFlushOutputs(true); },
        "Wait for each output to reach the disk before naming it, so it is complete or absent "
        "even after a power cut (slower: the run waits for the disk)");
    app.add_flag_callback(
        "--no-sync", [] { setFlushOutputs(false); },
        "Do not wait for the disk (the default, as fast as a plain copy)");
}

bool stderrIsTerminal() {
    return ::isatty(STDERR_FILENO) == 1;
}

ProgressBar::ProgressBar(bool enabled)
    : enabled_(enabled && stderrIsTerminal()), started_(std::chrono::steady_clock::now()) {}

ProgressBar::~ProgressBar() {
    finish();
}

void ProgressBar::update(double fraction, const std::string& text) {
    if (!enabled_ ||
        (!drawn_ && std::chrono::steady_clock::now() - started_ < std::chrono::seconds(1))) {
        return;
    }
    fraction = std::clamp(fraction, 0.0, 1.0);
    constexpr int kWidth = 30;
    const int filled = static_cast<int>(fraction * kWidth + 0.5);
    std::string bar(static_cast<std::size_t>(filled), '#');
    bar.resize(kWidth, '-');
    std::string line =
        "[" + bar + "] " + std::to_string(static_cast<int>(fraction * 100 + 0.5)) + "% " + text;
    if (line.size() > 100) {
        line.resize(100);
    }
    std::fprintf(stderr, "\r\033[K%s", line.c_str());
    std::fflush(stderr);
    drawn_ = true;
}

void ProgressBar::finish() {
    if (enabled_ && drawn_) {
        std::fprintf(stderr, "\r\033[K");
        std::fflush(stderr);
        drawn_ = false;
    }
}

}  // namespace norvane::cli
