// norvane decode: read the LTC of a WAV file, once or window by window.
#include <algorithm>
#include <iostream>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "cli/cli_common.h"
#include "core/audio/wav_file.h"
#include "core/common/error.h"
#include "core/timecode/ltc_decoder.h"
#include "core/timecode/ltc_stream_decode.h"

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

// One verified run: where it lies, what it carries and the evidence for it.
nlohmann::ordered_json runJSON(const LTCRun& r) {
    return nlohmann::ordered_json{{"firstSample", r.firstSample()},
                                  {"endSample", r.endSample()},
                                  {"frames", r.frames.size()},
                                  {"direction", r.direction > 0 ? "forward" : "reverse"},
                                  {"firstTimecode", r.frames.front().timecode.description()},
                                  {"lastTimecode", r.frames.back().timecode.description()},
                                  {"frameRate", r.rate.label},
                                  {"measuredFps", r.measuredFps},
                                  {"rateEvidence", r.rateEvidence},
                                  {"bitErrors", r.bitErrors},
                                  {"jitterSamples", r.jitter},
                                  {"confidence", r.confidence}};
}

std::string runText(std::size_t index, const LTCRun& r, std::int64_t sampleRate) {
    const double rate = static_cast<double>(std::max<std::int64_t>(sampleRate, 1));
    return fmt::format(
        "  run {}: samples {}..{} ({:.3f} s..{:.3f} s), {} frames {}, {} .. {} @ {}\n"
        "    measured {:.4f} fps ({}); bit errors {}, jitter {:.2f} samples, confidence {:.3f}\n",
        index, r.firstSample(), r.endSample(), static_cast<double>(r.firstSample()) / rate,
        static_cast<double>(r.endSample()) / rate, r.frames.size(),
        r.direction > 0 ? "forward" : "reverse", r.frames.front().timecode.description(),
        r.frames.back().timecode.description(), r.rate.label, r.measuredFps, r.rateEvidence,
        r.bitErrors, r.jitter, r.confidence);
}

// What lies between two runs: a jump in the code, or only lost frames.
std::string breakText(const LTCRun& before, const LTCRun& after, std::int64_t sampleRate) {
    const double gapSeconds = static_cast<double>(after.firstSample() - before.endSample()) /
                              static_cast<double>(std::max<std::int64_t>(sampleRate, 1));
    if (before.rate.numerator != after.rate.numerator ||
        before.rate.denominator != after.rate.denominator) {
        return fmt::format("  -- break: {:.3f} s without code; the rate changes from {} to {}\n",
                           gapSeconds, before.rate.label, after.rate.label);
    }
    const std::int64_t expected = before.frameCountAt(static_cast<double>(after.firstSample()));
    const std::int64_t actual = TimecodeMath::frameCount(after.frames.front().timecode, after.rate);
    return fmt::format("  -- break: {:.3f} s without code; the code jumps {:+} frame(s)\n",
                       gapSeconds, actual - expected);
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
    routeDiagnostics();

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
            std::cout << resultJSON(*best).dump(2, ' ', false,
                                                nlohmann::json::error_handler_t::replace)
                      << std::endl;
        } else {
            std::cout << resultText(*best);
        }
        return kExitOk;
    }

    // The runs of the whole channel: frames that follow one another and count on
    // by one, each with its own measured rate under Auto, fed in blocks of a
    // second so the progress moves.
    const std::vector<float> samples = channelSamples(best->channel);
    ProgressBar bar(!o.json);
    LTCRunScanner scanner(sampleRate, rate);
    const auto block = static_cast<std::size_t>(std::max<std::int64_t>(sampleRate, 1));
    for (std::size_t at = 0; at < samples.size(); at += block) {
        const std::size_t n = std::min(block, samples.size() - at);
        scanner.push(std::span<const float>(samples).subspan(at, n), static_cast<std::int64_t>(at));
        bar.update(static_cast<double>(at + n) / static_cast<double>(samples.size()),
                   fmt::format("{:.0f} s of {:.0f} s", static_cast<double>(at + n) / sampleRate,
                               static_cast<double>(samples.size()) / sampleRate));
    }
    bar.finish();
    const std::vector<LTCRun> runs = scanner.finish();
    const auto spacing = std::max<std::int64_t>(static_cast<std::int64_t>(sampleRate * o.hop), 1);
    const std::vector<LTCTimelinePoint> points = timelinePoints(runs, spacing);
    if (!best->result && runs.empty()) {
        return printError(best->error->message());
    }

    if (o.json) {
        nlohmann::ordered_json j = resultJSON(*best);
        j["runs"] = nlohmann::ordered_json::array();
        for (const LTCRun& r : runs) {
            j["runs"].push_back(runJSON(r));
        }
        j["points"] = nlohmann::ordered_json::array();
        for (const LTCTimelinePoint& p : points) {
            j["points"].push_back(nlohmann::ordered_json{{"sample", p.sample},
                                                         {"timecode", p.timecode.description()},
                                                         {"frameCount", p.frameCount}});
        }
        std::cout << j.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << std::endl;
    } else {
        std::cout << resultText(*best);
        std::cout << fmt::format("runs: {}\n", runs.size());
        for (std::size_t i = 0; i < runs.size(); ++i) {
            if (i > 0) {
                std::cout << breakText(runs[i - 1], runs[i], sampleRate);
            }
            std::cout << runText(i + 1, runs[i], sampleRate);
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
    app.add_option("--channel,--ltc-channel", options->channel,
                   "Channel to decode, 1-based (default: the most confident channel)");
    app.add_option("--fps", options->fps, "Frame rate (default auto): " + frameRateArgumentHelp());
    app.add_flag("--json", options->json, "Print JSON");
    app.add_flag("--timeline", options->timeline,
                 "Also list every verified run of the code (frames counting on one by one) with "
                 "its evidence, and the breaks between runs");
    app.add_option("--window", options->window, "Kept for scripts; runs need no window");
    app.add_option("--hop", options->hop,
                   "Spacing of the JSON timeline points in seconds (default 0.2)");
    command.run = [options] { return run(*options); };
    return command;
}

}  // namespace norvane::cli
