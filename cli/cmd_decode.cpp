// norvane decode: read the LTC of a WAV file, its start or every run of it.
// The file is streamed from disk: the start decode reads only until its answer
// is certain, the timeline reads the chosen channel once, block by block.
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
#include "core/audio/wav_reader.h"
#include "core/common/error.h"
#include "core/stamp/ltc_source.h"
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
struct DecodedChannel {
    int channel = 0;  // 1-based
    std::optional<LTCDecodeResult> result;
    std::optional<LTCDecodeError> error;
};

nlohmann::ordered_json resultJSON(const DecodedChannel& d) {
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

std::string resultText(const DecodedChannel& d) {
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
                                  {"frames", r.length},
                                  {"direction", r.direction > 0 ? "forward" : "reverse"},
                                  {"firstTimecode", r.firstFrame.timecode.description()},
                                  {"lastTimecode", r.lastFrame.timecode.description()},
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
        static_cast<double>(r.endSample()) / rate, r.length,
        r.direction > 0 ? "forward" : "reverse", r.firstFrame.timecode.description(),
        r.lastFrame.timecode.description(), r.rate.label, r.measuredFps, r.rateEvidence,
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
    const std::int64_t actual = TimecodeMath::frameCount(after.firstFrame.timecode, after.rate);
    return fmt::format("  -- break: {:.3f} s without code; the code jumps {:+} frame(s)\n",
                       gapSeconds, actual - expected);
}

// `j` with a last member "points": the timeline points of `runs`, written one
// by one as they come (hours of points as one JSON document would be hundreds
// of megabytes), laid out as `dump(2)` lays them out.
void printWithPoints(const nlohmann::ordered_json& j, const std::vector<LTCRun>& runs) {
    const auto dump = [](const nlohmann::ordered_json& value, int indent) {
        return value.dump(indent, ' ', false, nlohmann::json::error_handler_t::replace);
    };
    nlohmann::ordered_json head = j;
    head["points"] = nlohmann::ordered_json::array();
    std::string text = dump(head, 2);
    const std::string empty = "[]\n}";
    text.resize(text.size() - empty.size());  // ends in "\"points\": "
    std::cout << text;
    bool first = true;
    forEachTimelinePoint(runs, [&](const LTCTimelinePoint& p) {
        std::cout << (first ? "[\n" : ",\n") << "    {\n      \"sample\": " << p.sample
                  << ",\n      \"timecode\": " << dump(p.timecode.description(), -1)
                  << ",\n      \"frameCount\": " << p.frameCount << "\n    }";
        first = false;
    });
    std::cout << (first ? "[]" : "\n  ]") << "\n}" << std::endl;
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

    const WavReader file{std::filesystem::path(o.file)};
    const int channels = file.fmt().channelCount;
    const auto sampleRate = static_cast<std::int64_t>(file.fmt().sampleRate);
    if (o.channel && (*o.channel < 1 || *o.channel > channels)) {
        return printError(fmt::format("channel {} does not exist; the file has {} channel(s)",
                                      *o.channel, channels));
    }
    if (file.frameCount() > 0 && !file.canReadSamples(o.channel.value_or(1) - 1)) {
        throw Error(fmt::format("the samples of this file cannot be read ({}-bit, format {})",
                                file.fmt().bitsPerSample, file.fmt().audioFormat));
    }

    // The chosen channel, or the most confident one (the lowest on a tie),
    // each read only until its start is certain.
    const std::optional<std::int64_t> channel =
        o.channel ? std::optional<std::int64_t>(*o.channel - 1) : std::nullopt;
    DecodedChannel best;
    try {
        const ChannelDecode decoded = decodeFileLTC(file, channel, rate);
        best.channel = static_cast<int>(decoded.channelIndex) + 1;
        best.result = decoded.result;
    } catch (const LTCDecodeError& e) {
        best.error = e;
    }

    if (!o.timeline) {
        if (!best.result) {
            return printError(best.error->message());
        }
        if (o.json) {
            std::cout << resultJSON(best).dump(2, ' ', false,
                                               nlohmann::json::error_handler_t::replace)
                      << std::endl;
        } else {
            std::cout << resultText(best);
        }
        return kExitOk;
    }
    if (!best.result) {
        best.channel = static_cast<int>(chooseLTCChannel(file, channel, rate)) + 1;
    }

    // The runs of the whole channel: frames that follow one another and count on
    // by one, each with its own measured rate under Auto, streamed block by block.
    ProgressBar bar(!o.json);
    // Only the JSON lists timeline points: the text report keeps none.
    const auto spacing = std::max<std::int64_t>(static_cast<std::int64_t>(sampleRate * o.hop), 1);
    LTCRunScanner scanner(sampleRate, rate,
                          o.json ? std::optional<std::int64_t>(spacing) : std::nullopt);
    const double total = static_cast<double>(std::max<std::int64_t>(file.frameCount(), 1));
    const double perSecond = static_cast<double>(std::max<std::int64_t>(sampleRate, 1));
    file.forEachChannelBlock(best.channel - 1, [&](std::span<const float> block,
                                                   std::int64_t first) {
        scanner.push(block, first);
        const auto done = static_cast<double>(first + static_cast<std::int64_t>(block.size()));
        bar.update(done / total, fmt::format("{:.0f} s of {:.0f} s", done / perSecond,
                                             static_cast<double>(file.frameCount()) / perSecond));
        return true;
    });
    bar.finish();
    const std::vector<LTCRun> runs = scanner.finish();
    if (!best.result && runs.empty()) {
        return printError(best.error->message());
    }

    if (o.json) {
        nlohmann::ordered_json j = resultJSON(best);
        j["runs"] = nlohmann::ordered_json::array();
        for (const LTCRun& r : runs) {
            j["runs"].push_back(runJSON(r));
        }
        printWithPoints(j, runs);
    } else {
        std::cout << resultText(best);
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
