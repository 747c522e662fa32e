// norvane decode: read the LTC of a WAV file, once or window by window.
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "cli/cli_common.h"
#include "core/audio/wav_file.h"
#include "core/common/error.h"
#include "core/timecode/ltc_decoder.h"

namespace norvane::cli {

namespace {

struct DecodeOptions {
    std::string file;
    std::optional<int> channel;  // 1-based
    std::string fps = "auto";
    bool json = false;
    bool timeline = false;
    double window = 0.75;
    double hop = 0.2;
};

// The decode of one channel, or the decoder's error.
struct ChannelDecode {
    int channel = 0;  // 1-based
    std::optional<LTCDecodeResult> result;
    std::optional<LTCDecodeError> error;
};

ChannelDecode decodeChannel(const std::vector<float>& samples, std::int64_t sampleRate,
                            const std::optional<FrameRateConfig>& rate, int channel) {
    ChannelDecode d;
    d.channel = channel;
    try {
        d.result = LTCDecoder::decode(samples, sampleRate, rate);
    } catch (const LTCDecodeError& e) {
        d.error = e;
    }
    return d;
}

nlohmann::ordered_json resultJSON(const ChannelDecode& d) {
    nlohmann::ordered_json j;
    j["channel"] = d.channel;
    if (d.result) {
        j["timecode"] = d.result->timecode.description();
        j["frameRate"] = d.result->frameRate.label;
        j["firstValidSample"] = d.result->firstValidSample;
        j["firstValidSeconds"] = d.result->firstValidSeconds;
        j["confidence"] = d.result->confidence;
    } else {
        for (const char* key :
             {"timecode", "frameRate", "firstValidSample", "firstValidSeconds", "confidence"}) {
            j[key] = nullptr;
        }
        j["error"] = d.error ? d.error->message() : "";
    }
    return j;
}

std::string resultText(const ChannelDecode& d) {
    if (!d.result) {
        return fmt::format("channel: {}\nerror: {}\n", d.channel,
                           d.error ? d.error->message() : std::string());
    }
    const LTCDecodeResult& r = *d.result;
    return fmt::format(
        "channel: {}\ntimecode: {}\nframe rate: {}\nfirst valid sample: {}\nfirst valid seconds: "
        "{:.6f}\nconfidence: {:.3f}\n",
        d.channel, r.timecode.description(), r.frameRate.label, r.firstValidSample,
        r.firstValidSeconds, r.confidence);
}

int run(const DecodeOptions& o) {
    const auto preset = parseFrameRateArgument(o.fps);
    if (!preset) {
        std::cerr << "error: unknown frame rate \"" << o.fps << "\"; use "
                  << frameRateArgumentHelp() << std::endl;
        return kExitUsage;
    }
    if (!(o.window > 0) || !(o.hop > 0)) {
        std::cerr << "error: --window and --hop must be above 0 seconds" << std::endl;
        return kExitUsage;
    }
    const std::optional<FrameRateConfig> rate = frameRateConfig(*preset);
    setFrameRateDiagnosticsStream(&std::cerr);

    const WAVFile file{std::filesystem::path(o.file)};
    const int channels = file.fmt().channelCount;
    const auto sampleRate = static_cast<std::int64_t>(file.fmt().sampleRate);
    if (o.channel && (*o.channel < 1 || *o.channel > channels)) {
        return printError(fmt::format("channel {} does not exist; the file has {} channel(s)",
                                      *o.channel, channels));
    }
    auto channelSamples = [&](int channel) {
        std::vector<float> samples = file.samples(channel - 1);
        if (samples.empty() && file.frameCount() > 0) {
            throw Error(fmt::format("the samples of this file cannot be read ({}-bit, format {})",
                                    file.fmt().bitsPerSample, file.fmt().audioFormat));
        }
        return samples;
    };

    // The chosen channel, or the most confident one (the lowest on a tie).
    std::optional<ChannelDecode> best;
    std::optional<LTCDecodeError> firstError;
    const int firstChannel = o.channel.value_or(1);
    const int lastChannel = o.channel.value_or(channels);
    for (int c = firstChannel; c <= lastChannel; ++c) {
        ChannelDecode d = decodeChannel(channelSamples(c), sampleRate, rate, c);
        if (d.result) {
            if (!best || !best->result || d.result->confidence > best->result->confidence) {
                best = d;
            }
        } else {
            // "Could not decode" says more than "silent" when channels differ.
            if (!firstError || d.error->kind() == LTCDecodeError::Kind::noFrameDetected) {
                firstError = d.error;
            }
            if (!best) {
                best = d;
            }
        }
    }
    if (!best) {
        return printError(LTCDecodeError::description(LTCDecodeError::Kind::noSignal));
    }
    if (!best->result && firstError) {
        best->error = firstError;
    }

    if (!o.timeline) {
        if (!best->result) {
            return printError(best->error->message());
        }
        if (o.json) {
            std::cout << resultJSON(*best).dump(2) << std::endl;
        } else {
            std::cout << resultText(*best);
        }
        return kExitOk;
    }

    // Window by window at the rate found for the whole channel, so that every
    // point counts frames the same way.
    const std::optional<FrameRateConfig> timelineRate = rate ? rate
                                                        : best->result
                                                            ? std::optional(best->result->frameRate)
                                                            : std::nullopt;
    const std::vector<float> samples = channelSamples(best->channel);
    ProgressBar bar(!o.json);
    if (!timelineRate) {
        setFrameRateDiagnosticsStream(nullptr);  // one candidate block per window is noise
    }
    const std::vector<LTCTimelinePoint> points = LTCDecoder::decodeTimeline(
        samples, sampleRate, timelineRate, o.window, o.hop, std::nullopt, {},
        [&](std::int64_t done, std::int64_t total) {
            bar.update(
                static_cast<double>(done) / static_cast<double>(std::max<std::int64_t>(total, 1)),
                fmt::format("window {}/{}", done, total));
        });
    bar.finish();
    setFrameRateDiagnosticsStream(&std::cerr);
    if (!best->result && points.empty()) {
        return printError(best->error->message());
    }

    if (o.json) {
        nlohmann::ordered_json j = resultJSON(*best);
        j["points"] = nlohmann::ordered_json::array();
        for (const LTCTimelinePoint& p : points) {
            j["points"].push_back(nlohmann::ordered_json{{"sample", p.sample},
                                                         {"timecode", p.timecode.description()},
                                                         {"frameCount", p.frameCount}});
        }
        std::cout << j.dump(2) << std::endl;
    } else {
        std::cout << resultText(*best);
        std::cout << fmt::format("timeline: {} point(s)\n", points.size());
        for (const LTCTimelinePoint& p : points) {
            std::cout << fmt::format("  {:>12}  {}  {}\n", p.sample, p.timecode.description(),
                                     p.frameCount);
        }
    }
    return kExitOk;
}

}  // namespace

Command addDecodeCommand(CLI::App& parent) {
    auto options = std::make_shared<DecodeOptions>();
    Command command;
    command.app = parent.add_subcommand("decode", "Decode the LTC of a WAV file.");
    CLI::App& app = *command.app;
    app.add_option("file", options->file, "WAV file")->required();
    app.add_option("--channel", options->channel,
                   "Channel to decode, 1-based (default: the most confident channel)");
    app.add_option("--fps", options->fps, "Frame rate (default auto): " + frameRateArgumentHelp());
    app.add_flag("--json", options->json, "Print JSON");
    app.add_flag("--timeline", options->timeline,
                 "Also decode window by window and list the timeline points");
    app.add_option("--window", options->window, "Timeline window in seconds (default 0.75)");
    app.add_option("--hop", options->hop, "Timeline hop in seconds (default 0.2)");
    command.run = [options] { return run(*options); };
    return command;
}

}  // namespace norvane::cli
