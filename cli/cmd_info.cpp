// norvane info: format, chunks and timecode metadata of WAV files.
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "cli/cli_common.h"
#include "core/audio/bwf_reader.h"
#include "core/audio/wav_file.h"
#include "core/common/error.h"
#include "core/common/text.h"

namespace norvane::cli {

namespace {

struct InfoOptions {
    std::vector<std::string> files;
    std::string fps = "25";
    bool json = false;
};

// The text of the iXML <TIMECODE> element, if any.
std::optional<std::string> ixmlTimecode(const std::string& ixml) {
    const std::string open = "<TIMECODE>";
    const std::string close = "</TIMECODE>";
    const auto begin = ixml.find(open);
    if (begin == std::string::npos) {
        return std::nullopt;
    }
    const auto end = ixml.find(close, begin + open.size());
    if (end == std::string::npos) {
        return std::nullopt;
    }
    return trim(std::string_view(ixml).substr(begin + open.size(), end - begin - open.size()));
}

std::string formatName(std::uint16_t tag) {
    return tag == 1 ? "PCM" : tag == 3 ? "float" : "unknown";
}

std::string printableId(const std::string& id) {
    return id.empty() ? "(non-ASCII)" : id;
}

nlohmann::ordered_json describeFile(const std::string& path, const FrameRateConfig& rate,
                                    std::string& textOut) {
    nlohmann::ordered_json j;
    j["path"] = path;
    const WAVFile file{std::filesystem::path(path)};
    const WAVFmtChunk& f = file.fmt();
    j["audioFormat"] = f.audioFormat;
    j["channels"] = f.channelCount;
    j["sampleRate"] = f.sampleRate;
    j["bitsPerSample"] = f.bitsPerSample;
    j["blockAlign"] = f.blockAlign;
    j["byteRate"] = f.byteRate;
    j["frames"] = file.frameCount();
    j["durationSeconds"] = file.duration();
    j["chunks"] = nlohmann::ordered_json::array();
    std::vector<std::string> chunkTexts;
    for (const WAVChunk& chunk : file.chunks()) {
        j["chunks"].push_back({{"id", chunk.id}, {"size", chunk.data.size()}});
        chunkTexts.push_back(fmt::format("{} ({})", printableId(chunk.id), chunk.data.size()));
    }
    const auto bwf = BWFReader::info(file);
    std::optional<std::string> timecode;
    if (bwf) {
        timecode = BWFReader::timecode(bwf->timeReferenceSamples, bwf->sampleRate, rate.numerator,
                                       rate.denominator, rate.dropFrame);
    }
    std::optional<std::string> ixmlTC;
    if (auto ixml = BWFReader::ixmlText(file)) {
        ixmlTC = ixmlTimecode(*ixml);
    }
    j["timeReferenceSamples"] =
        bwf ? nlohmann::ordered_json(bwf->timeReferenceSamples) : nlohmann::ordered_json();
    j["timecode"] = timecode ? nlohmann::ordered_json(*timecode) : nlohmann::ordered_json();
    j["ixmlTimecode"] = ixmlTC ? nlohmann::ordered_json(*ixmlTC) : nlohmann::ordered_json();
    j["error"] = nullptr;

    std::string& t = textOut;
    t += path + "\n";
    t += fmt::format(
        "  format: {} ({}), {} channel(s), {} Hz, {}-bit, block align {}, byte rate {}\n",
        formatName(f.audioFormat), f.audioFormat, f.channelCount, f.sampleRate, f.bitsPerSample,
        f.blockAlign, f.byteRate);
    t += fmt::format("  frames: {}, duration: {:.6f} s\n", file.frameCount(), file.duration());
    t += "  chunks: ";
    for (std::size_t i = 0; i < chunkTexts.size(); ++i) {
        t += (i ? ", " : "") + chunkTexts[i];
    }
    t += "\n";
    if (bwf) {
        t += fmt::format("  bext TimeReference: {} samples, timecode at {}: {}\n",
                         bwf->timeReferenceSamples, rate.label, timecode.value_or("none"));
    } else {
        t += "  bext TimeReference: none\n";
    }
    t += "  iXML TIMECODE: " + ixmlTC.value_or("none") + "\n";
    return j;
}

}  // namespace

Command addInfoCommand(CLI::App& parent) {
    auto options = std::make_shared<InfoOptions>();
    Command command;
    command.app = parent.add_subcommand(
        "info", "Show the format, chunks and timecode metadata of WAV files.");
    command.app->add_option("files", options->files, "WAV files")->required();
    command.app->add_option(
        "--fps", options->fps,
        "Frame rate for the bext timecode (default 25; auto means 25): " + frameRateArgumentHelp());
    command.app->add_flag("--json", options->json, "Print one JSON object per file in an array");
    command.run = [options] {
        const auto preset = parseFrameRateArgument(options->fps);
        if (!preset) {
            std::cerr << "error: unknown frame rate \"" << options->fps << "\"; use "
                      << frameRateArgumentHelp() << std::endl;
            return kExitUsage;
        }
        const FrameRateConfig rate =
            frameRateConfig(*preset).value_or(*frameRateConfig(FrameRatePreset::fps25));

        bool failed = false;
        nlohmann::ordered_json all = nlohmann::ordered_json::array();
        for (std::size_t i = 0; i < options->files.size(); ++i) {
            const std::string& path = options->files[i];
            std::string text;
            try {
                all.push_back(describeFile(path, rate, text));
                if (!options->json) {
                    std::cout << (i ? "\n" : "") << text;
                }
            } catch (const std::exception& e) {
                failed = true;
                const std::string message = describeError(e);
                // File-system messages already name the path.
                const bool namesPath = message.find(path) != std::string::npos;
                std::cerr << "error: " << (namesPath ? "" : path + ": ") << message << std::endl;
                nlohmann::ordered_json j;
                for (const char* key :
                     {"path", "audioFormat", "channels", "sampleRate", "bitsPerSample",
                      "blockAlign", "byteRate", "frames", "durationSeconds", "chunks",
                      "timeReferenceSamples", "timecode", "ixmlTimecode", "error"}) {
                    j[key] = nullptr;
                }
                j["path"] = path;
                j["error"] = message;
                all.push_back(j);
            }
        }
        if (options->json) {
            std::cout << all.dump(2) << std::endl;
        }
        return failed ? kExitFailure : kExitOk;
    };
    return command;
}

}  // namespace norvane::cli
