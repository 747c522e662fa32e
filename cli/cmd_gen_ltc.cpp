// norvane gen-ltc: write a WAV recording with LTC on one channel.
#include <cmath>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "cli/cli_common.h"
#include "core/audio/ltc_recording.h"
#include "core/timecode/timecode_text.h"

namespace norvane::cli {

namespace {

struct GenLtcOptions {
    std::string output;
    std::string start;
    std::string fps;
    double seconds = 0;
    std::int64_t sampleRate = 48000;
    int channels = 1;
    int ltcChannel = 1;
    std::string format = "pcm24";
    std::int64_t leadIn = 0;
    double level = -12;
    std::vector<std::string> jumps;
    bool overwrite = false;
};

int usageError(const std::string& message) {
    std::cerr << "error: " << message << std::endl;
    return kExitUsage;
}

std::string timecodeHelp(const FrameRateConfig& rate) {
    return rate.dropFrame ? "HH:MM:SS;FF" : "HH:MM:SS:FF";
}

int run(const GenLtcOptions& o) {
    const auto preset = parseFrameRateArgument(o.fps);
    if (!preset) {
        return usageError("unknown frame rate \"" + o.fps + "\"; use " + frameRateArgumentHelp());
    }
    const auto rate = frameRateConfig(*preset);
    if (!rate) {
        return usageError("gen-ltc needs a fixed frame rate, not Auto");
    }
    const auto start = parseTimecodeText(o.start, *rate);
    if (!start) {
        return usageError(fmt::format("invalid start timecode \"{}\" at {}; use {}", o.start,
                                      rate->label, timecodeHelp(*rate)));
    }
    const auto format = ltcRecordingFormatFromLabel(o.format);
    if (!format) {
        return usageError("unknown format \"" + o.format +
                          "\"; use pcm16, pcm24, pcm32 or float32");
    }

    LTCRecordingOptions options;
    options.rate = *rate;
    options.start = *start;
    options.seconds = o.seconds;
    options.sampleRate = o.sampleRate;
    options.channels = o.channels;
    options.ltcChannel = o.ltcChannel;
    options.format = *format;
    options.leadInSamples = o.leadIn;
    options.levelDBFS = o.level;
    for (const std::string& jump : o.jumps) {
        const auto equals = jump.find('=');
        if (equals == std::string::npos) {
            return usageError("invalid jump \"" + jump + "\"; use SECONDS=" + timecodeHelp(*rate));
        }
        double at = 0;
        try {
            std::size_t used = 0;
            at = std::stod(jump.substr(0, equals), &used);
            if (used != equals) {
                throw std::invalid_argument("trailing text");
            }
        } catch (const std::exception&) {
            return usageError("invalid jump \"" + jump + "\"; use SECONDS=" + timecodeHelp(*rate));
        }
        const auto to = parseTimecodeText(jump.substr(equals + 1), *rate);
        if (!to) {
            return usageError(fmt::format("invalid jump timecode \"{}\" at {}; use {}",
                                          jump.substr(equals + 1), rate->label,
                                          timecodeHelp(*rate)));
        }
        options.jumps.push_back({at, *to});
    }

    try {
        const LTCRecordingSummary summary = writeLTCRecording(o.output, options, o.overwrite);
        std::cout << fmt::format(
                         "Wrote {}: {} samples ({:.3f} s) at {} Hz, {} channel(s), {}; LTC on "
                         "channel {} at {} from {}",
                         o.output, summary.frameCount,
                         static_cast<double>(summary.frameCount) /
                             static_cast<double>(options.sampleRate),
                         options.sampleRate, options.channels, label(options.format),
                         options.ltcChannel, rate->label, start->description())
                  << (options.leadInSamples > 0
                          ? fmt::format(" after {} samples of silence", options.leadInSamples)
                          : "")
                  << std::endl;
        for (const LTCRecordingJump& jump : options.jumps) {
            std::cout << fmt::format("  jump at {:.3f} s to {}", jump.atSeconds,
                                     jump.start.description())
                      << std::endl;
        }
    } catch (const LTCRecordingError& e) {
        return usageError(e.what());
    }
    return kExitOk;
}

}  // namespace

Command addGenLtcCommand(CLI::App& parent) {
    auto options = std::make_shared<GenLtcOptions>();
    Command command;
    command.app = parent.add_subcommand(
        "gen-ltc", "Write a WAV recording with LTC on one channel and quiet tones on the others.");
    CLI::App& app = *command.app;
    app.add_option("-o,--output", options->output, "WAV file to write")->required();
    app.add_option("--start", options->start, "Timecode of the first frame (HH:MM:SS:FF)")
        ->required();
    app.add_option("--fps", options->fps, "Frame rate: " + frameRateArgumentHelp())->required();
    app.add_option("--seconds", options->seconds, "Length of the recording in seconds")->required();
    app.add_option("--sample-rate", options->sampleRate, "Samples per second (default 48000)");
    app.add_option("--channels", options->channels, "Channel count (default 1)");
    app.add_option("--channel,--ltc-channel", options->ltcChannel,
                   "Channel that carries the LTC, 1-based (default 1)");
    app.add_option("--format", options->format,
                   "Sample format: pcm16, pcm24, pcm32 or float32 (default pcm24)");
    app.add_option("--lead-in", options->leadIn,
                   "Samples of silence on the LTC channel before the code starts (default 0)");
    app.add_option("--level", options->level, "LTC peak level in dBFS (default -12)");
    app.add_option("--jump", options->jumps,
                   "Restart the code at SECONDS with timecode TC (SECONDS=TC; repeatable)");
    app.add_flag("-f,--overwrite", options->overwrite, "Replace an existing output file");
    command.run = [options] { return run(*options); };
    return command;
}

}  // namespace norvane::cli
