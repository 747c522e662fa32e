// norvane info: format, chunks and timecode metadata of WAV files.
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include "cli/cli_common.h"
#include "core/audio/bwf_reader.h"
#include "core/audio/ixml.h"
#include "core/audio/wav_file.h"
#include "core/audio/wav_reader.h"
#include "core/common/error.h"
#include "core/common/text.h"
#include "core/split/poly_wav_split_processor.h"

namespace norvane::cli {

namespace {

struct InfoOptions {
    std::vector<std::string> files;
    std::string fps;  // empty: 25 unless the file gives its own rate
    bool json = false;
};

// Every file to describe: folders searched recursively for WAV files, other
// paths kept as given (so that a wrong one is reported, not skipped).
std::vector<std::string> expandInputs(const std::vector<std::string>& given) {
    std::vector<std::string> files;
    for (const std::string& path : given) {
        std::error_code ec;
        if (std::filesystem::is_directory(path, ec)) {
            for (const std::filesystem::path& wav : expandWavInputs({path})) {
                files.push_back(wav.string());
            }
        } else {
            files.push_back(path);
        }
    }
    return files;
}

nlohmann::ordered_json optionalJSON(const std::optional<std::string>& text) {
    return text ? nlohmann::ordered_json(*text) : nlohmann::ordered_json();
}

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

nlohmann::ordered_json describeFile(const std::string& path,
                                    const std::optional<FrameRateConfig>& requestedRate,
                                    std::string& textOut) {
    nlohmann::ordered_json j;
    j["path"] = path;
    // The header and metadata chunks only: the audio is never read.
    const WavReader reader{std::filesystem::path(path)};
    const WAVFile file = WAVFile::headersOf(reader);
    const WAVFmtChunk& f = file.fmt();
    j["audioFormat"] = f.audioFormat;
    j["channels"] = f.channelCount;
    j["sampleRate"] = f.sampleRate;
    j["bitsPerSample"] = f.bitsPerSample;
    j["blockAlign"] = f.blockAlign;
    j["byteRate"] = f.byteRate;
    j["frames"] = file.frameCount();
    j["durationSeconds"] = file.duration();
    j["warnings"] = reader.warnings();
    j["chunks"] = nlohmann::ordered_json::array();
    std::vector<std::string> chunkTexts;
    for (const WavChunkInfo& chunk : reader.chunks()) {
        j["chunks"].push_back({{"id", chunk.idText}, {"size", chunk.size}});
        chunkTexts.push_back(fmt::format("{} ({})", printableId(chunk.idText), chunk.size));
    }

    // The file's own iXML: its rate comes before --fps, as recorders write
    // the rate the timecode was counted at.
    const std::optional<std::string> ixmlText = BWFReader::ixmlText(file);
    const std::optional<IXMLElement> ixml =
        ixmlText ? IXML::parse(*ixmlText) : std::optional<IXMLElement>();
    const std::optional<FrameRateConfig> ownRate =
        ixml ? IXML::timecodeRate(*ixml) : std::optional<FrameRateConfig>();
    const FrameRateConfig rate =
        ownRate ? *ownRate : requestedRate.value_or(*frameRateConfig(FrameRatePreset::fps25));
    const std::string rateSource = ownRate ? "iXML" : requestedRate ? "--fps" : "default";

    const auto bwf = BWFReader::info(file);
    std::optional<std::string> timecode;
    if (bwf) {
        timecode = BWFReader::timecode(bwf->timeReferenceSamples, bwf->sampleRate, rate.numerator,
                                       rate.denominator, rate.dropFrame);
    }
    std::optional<std::string> ixmlTC;
    if (ixml) {
        if (auto text = ixml->childText("TIMECODE")) {
            ixmlTC = trim(*text);
        }
    } else if (ixmlText) {
        ixmlTC = ixmlTimecode(*ixmlText);
    }
    auto element = [&](std::string_view name) {
        return ixml ? ixml->childText(name) : std::nullopt;
    };
    std::optional<std::string> ixmlRate;
    if (ownRate) {
        ixmlRate = IXML::rationalRate(*ownRate) + (ownRate->dropFrame ? " DF" : " NDF");
    }
    const std::vector<IXMLTrack> tracks = ixml ? IXML::tracks(*ixml) : std::vector<IXMLTrack>();

    j["timeReferenceSamples"] =
        bwf ? nlohmann::ordered_json(bwf->timeReferenceSamples) : nlohmann::ordered_json();
    j["timecode"] = optionalJSON(timecode);
    j["frameRate"] = rate.label;
    j["frameRateSource"] = rateSource;
    j["ixmlTimecode"] = optionalJSON(ixmlTC);
    j["ixmlRate"] = optionalJSON(ixmlRate);
    j["ixmlReadable"] =
        ixmlText ? nlohmann::ordered_json(ixml.has_value()) : nlohmann::ordered_json();
    j["project"] = optionalJSON(element("PROJECT"));
    j["scene"] = optionalJSON(element("SCENE"));
    j["take"] = optionalJSON(element("TAKE"));
    j["tape"] = optionalJSON(element("TAPE"));
    j["tracks"] = nlohmann::ordered_json::array();
    for (const IXMLTrack& track : tracks) {
        j["tracks"].push_back(
            {{"channelIndex", track.channelIndex ? nlohmann::ordered_json(*track.channelIndex)
                                                 : nlohmann::ordered_json()},
             {"interleaveIndex", track.interleaveIndex
                                     ? nlohmann::ordered_json(*track.interleaveIndex)
                                     : nlohmann::ordered_json()},
             {"name", track.name}});
    }
    j["error"] = nullptr;

    std::string& t = textOut;
    t += path + "\n";
    t += fmt::format(
        "  format: {} ({}), {} channel(s), {} Hz, {}-bit, block align {}, byte rate {}\n",
        formatName(f.audioFormat), f.audioFormat, f.channelCount, f.sampleRate, f.bitsPerSample,
        f.blockAlign, f.byteRate);
    t += fmt::format("  frames: {}, duration: {:.6f} s\n", file.frameCount(), file.duration());
    for (const std::string& warning : reader.warnings()) {
        t += "  warning: " + warning + "\n";
    }
    t += "  chunks: ";
    for (std::size_t i = 0; i < chunkTexts.size(); ++i) {
        t += (i ? ", " : "") + chunkTexts[i];
    }
    t += "\n";
    if (bwf) {
        t += fmt::format("  bext TimeReference: {} samples, timecode at {}{}: {}\n",
                         bwf->timeReferenceSamples, rate.label,
                         ownRate ? " (the file's iXML rate)" : "", timecode.value_or("none"));
    } else {
        t += "  bext TimeReference: none\n";
    }
    t += "  iXML TIMECODE: " + ixmlTC.value_or("none") + "\n";
    if (ixmlText && !ixml) {
        t += "  iXML: not well-formed XML\n";
    }
    if (ixmlRate) {
        t += "  iXML rate: " + *ixmlRate + " (" + ownRate->label + ")\n";
    }
    if (ixml) {
        std::vector<std::string> parts;
        for (const auto& [label, name] :
             {std::pair{"project", "PROJECT"}, std::pair{"scene", "SCENE"},
              std::pair{"take", "TAKE"}, std::pair{"tape", "TAPE"}}) {
            if (const auto value = element(name); value && !value->empty()) {
                parts.push_back(std::string(label) + " " + *value);
            }
        }
        if (!parts.empty()) {
            t += "  " + fmt::format("{}", fmt::join(parts, ", ")) + "\n";
        }
    }
    if (!tracks.empty()) {
        std::vector<std::string> names;
        for (std::size_t i = 0; i < tracks.size(); ++i) {
            const int number = tracks[i].interleaveIndex.value_or(static_cast<int>(i) + 1);
            names.push_back(std::to_string(number) + " \"" + tracks[i].name + "\"");
        }
        t += "  tracks: " + fmt::format("{}", fmt::join(names, ", ")) + "\n";
    }
    return j;
}

}  // namespace

Command addInfoCommand(CLI::App& parent) {
    auto options = std::make_shared<InfoOptions>();
    Command command;
    command.app = parent.add_subcommand(
        "info", "Show the format, chunks and timecode metadata of WAV files.");
    command.app->add_option("files", options->files, "WAV files or folders (searched recursively)")
        ->required();
    command.app->add_option("--fps", options->fps,
                            "Frame rate for the bext timecode of files whose iXML gives none "
                            "(default 25; auto means 25): " +
                                frameRateArgumentHelp());
    command.app->add_flag("--json", options->json, "Print one JSON object per file in an array");
    command.run = [options] {
        std::optional<FrameRateConfig> rate;
        if (!options->fps.empty()) {
            const auto preset = parseFrameRateArgument(options->fps);
            if (!preset) {
                std::cerr << "error: unknown frame rate \"" << options->fps << "\"; use "
                          << frameRateArgumentHelp() << std::endl;
                return kExitUsage;
            }
            rate = frameRateConfig(*preset).value_or(*frameRateConfig(FrameRatePreset::fps25));
        }
        const std::vector<std::string> files = expandInputs(options->files);
        if (files.empty()) {
            return printError("No WAV files in selection.");
        }

        bool failed = false;
        nlohmann::ordered_json all = nlohmann::ordered_json::array();
        for (std::size_t i = 0; i < files.size(); ++i) {
            const std::string& path = files[i];
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
                for (const char* key : {"path",
                                        "audioFormat",
                                        "channels",
                                        "sampleRate",
                                        "bitsPerSample",
                                        "blockAlign",
                                        "byteRate",
                                        "frames",
                                        "durationSeconds",
                                        "chunks",
                                        "timeReferenceSamples",
                                        "timecode",
                                        "frameRate",
                                        "frameRateSource",
                                        "ixmlTimecode",
                                        "ixmlRate",
                                        "ixmlReadable",
                                        "project",
                                        "scene",
                                        "take",
                                        "tape",
                                        "tracks",
                                        "error"}) {
                    j[key] = nullptr;
                }
                j["path"] = path;
                j["error"] = message;
                all.push_back(j);
            }
        }
        if (options->json) {
            // Paths and iXML text may hold bytes that are not UTF-8: they are
            // printed as U+FFFD rather than losing the whole report.
            std::cout << all.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace)
                      << std::endl;
        }
        return failed ? kExitFailure : kExitOk;
    };
    return command;
}

}  // namespace norvane::cli
