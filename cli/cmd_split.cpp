// norvane split: one mono WAV per channel of multichannel WAV files.
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "cli/cli_common.h"
#include "core/common/error.h"
#include "core/common/interrupt.h"
#include "core/settings/app_settings_store.h"
#include "core/settings/output_folder.h"
#include "core/split/poly_wav_split_processor.h"

namespace norvane::cli {

namespace {
namespace fs = std::filesystem;

struct SplitOptions {
    std::vector<std::string> inputs;
    std::string outputFolder;
    bool overwrite = false;
    bool json = false;
    bool trackNames = false;
    CLI::Option* trackNamesOption = nullptr;  // not given: the saved setting
};

nlohmann::ordered_json reportJSON(const PolyWavSplitReport& report) {
    nlohmann::ordered_json j;
    j["fileResults"] = nlohmann::ordered_json::array();
    for (const PolyWavSplitFileResult& r : report.fileResults) {
        nlohmann::ordered_json f;
        f["inputURL"] = r.inputURL.string();
        f["disambiguatedBaseName"] = r.disambiguatedBaseName;
        f["outputURLs"] = nlohmann::ordered_json::array();
        for (const fs::path& p : r.outputURLs) {
            f["outputURLs"].push_back(p.string());
        }
        f["skipped"] = r.skipped;
        f["skipReason"] =
            r.skipReason ? nlohmann::ordered_json(*r.skipReason) : nlohmann::ordered_json();
        f["warnings"] = r.warnings;
        j["fileResults"].push_back(f);
    }
    j["outputPaths"] = nlohmann::ordered_json::array();
    for (const fs::path& p : report.outputPaths) {
        j["outputPaths"].push_back(p.string());
    }
    return j;
}

}  // namespace

Command addSplitCommand(CLI::App& parent) {
    auto options = std::make_shared<SplitOptions>();
    Command command;
    command.app =
        parent.add_subcommand("split", "Split multi-channel WAVs to mono (PCM or 32-bit float).");
    command.app
        ->add_option("inputs", options->inputs, "WAV files or folders (searched recursively)")
        ->required();
    command.app->add_option("-o,--output", options->outputFolder,
                            "Output folder (default: the saved split folder, else a \"Split\" "
                            "folder beside the first input)");
    command.app->add_flag("--overwrite", options->overwrite, "Replace existing output files");
    command.app->add_flag("--json", options->json, "Print the split report as JSON");
    addSyncFlags(*command.app);
    options->trackNamesOption =
        command.app->add_flag("--track-names,!--no-track-names", options->trackNames,
                              "Append each channel's iXML track name to its file name "
                              "(default: the saved split setting)");
    command.run = [options] {
        std::vector<fs::path> given(options->inputs.begin(), options->inputs.end());
        const std::vector<fs::path> inputs = expandWavInputs(given);
        if (inputs.empty()) {
            return printError("No WAV files in selection.");
        }
        // The saved settings are read once, and only when an option is left to them.
        std::optional<AppSettingsStore> settings;
        auto saved = [&]() -> const AppSettingsStore& {
            if (!settings) {
                settings.emplace();
            }
            return *settings;
        };
        fs::path outputFolder = options->outputFolder;
        if (outputFolder.empty()) {
            outputFolder =
                defaultOutputFolder(saved().polySplitDefaultOutputFolderURL(),
                                    AppSettingsStore::homeDirectoryPath(), inputs.front(), "Split");
        }
        if (outputFolder.empty()) {
            return printError("No output folder: pass -o DIR.");
        }
        outputFolder = fs::absolute(outputFolder).lexically_normal();
        std::error_code ec;
        fs::create_directories(outputFolder, ec);
        if (!fs::is_directory(outputFolder)) {
            return printError("Output folder is not a folder: " + outputFolder.string());
        }

        PolyWavSplitNaming naming;
        naming.appendTrackNames = options->trackNamesOption->count() > 0
                                      ? options->trackNames
                                      : saved().polySplitAppendTrackNames();

        ProgressBar bar(!options->json);
        PolyWavSplitReport report;
        try {
            // A signal stops the split before its next file or channel (or
            // block written); the file cut short is taken back.
            report = PolyWavSplitProcessor::split(
                inputs, outputFolder, options->overwrite, naming,
                [&](double fraction) { bar.update(fraction, "Splitting…"); },
                [] { return interruptRequested(); });
        } catch (...) {
            bar.finish();
            throw;  // main prints "error: " + its message
        }
        bar.finish();

        if (options->json) {
            // Paths need not be UTF-8; their stray bytes print as U+FFFD.
            std::cout << reportJSON(report).dump(2, ' ', false,
                                                 nlohmann::ordered_json::error_handler_t::replace)
                      << std::endl;
            return kExitOk;
        }
        for (const PolyWavSplitFileResult& r : report.fileResults) {
            const std::string name = r.inputURL.filename().string();
            if (r.skipped && r.skipReason) {
                std::cout << "Skipped " << name << ": " << *r.skipReason << "\n";
            } else {
                std::cout << "Wrote " << r.outputURLs.size() << " channel file(s) for " << name
                          << ".\n";
            }
            for (const std::string& warning : r.warnings) {
                std::cout << "Warning: " << warning << "\n";
            }
        }
        std::cout << "Done. " << report.outputPaths.size() << " file(s) written." << std::endl;
        std::cout << "Output folder: " << outputFolder.string() << std::endl;
        return kExitOk;
    };
    return command;
}

}  // namespace norvane::cli
