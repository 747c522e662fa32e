// norvane rebuild: a new multicam timeline from a source FCPXML, a stereo mix
// and a folder of synced WAVs.
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "cli/cli_common.h"
#include "core/common/error.h"
#include "core/common/interrupt.h"
#include "core/rebuild/rebuild_engine.h"
#include "core/settings/app_settings_store.h"

namespace norvane::cli {

namespace {
namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

struct RebuildOptions {
    std::string sourceXML;
    std::string stereoMix;
    std::string synced;
    std::string output;
    std::string name = "timeline_rebuild.fcpxml";
    std::string missingCamera;
    std::string tcSource;
    std::string videoRate;
    bool validateOnly = false;
    bool json = false;
};

const std::map<std::string, MissingCameraBehavior>& missingCameraArguments() {
    static const std::map<std::string, MissingCameraBehavior> table = {
        {"insert-gap", MissingCameraBehavior::insertGap},
        {"skip-clip", MissingCameraBehavior::skipClip},
        {"fail-export", MissingCameraBehavior::failExport}};
    return table;
}
const std::map<std::string, TimecodeSourcePriority>& tcSourceArguments() {
    static const std::map<std::string, TimecodeSourcePriority> table = {
        {"metadata", TimecodeSourcePriority::bwfIXMLThenFilename},
        {"filename", TimecodeSourcePriority::filenameOnly},
        {"xml", TimecodeSourcePriority::inputXMLOnly}};
    return table;
}
const std::map<std::string, VideoFrameRateMode>& videoRateArguments() {
    static const std::map<std::string, VideoFrameRateMode> table = {
        {"same", VideoFrameRateMode::sameAsLTC}, {"double", VideoFrameRateMode::doubleLTC}};
    return table;
}

// The saved defaults, or the built-in ones when the settings cannot be read.
RebuildChoices savedChoices() {
    RebuildChoices choices;
    try {
        AppSettingsStore store;
        choices.missingCameraBehavior = store.timelineRebuildDefaultMissingCameraBehavior();
        choices.timecodeSourcePriority = store.timelineRebuildDefaultTimecodeSourcePriority();
        choices.videoFrameRateMode = store.timelineRebuildDefaultVideoFrameRateMode();
    } catch (const std::exception&) {
    }
    return choices;
}

Json itemsJSON(const std::vector<TimelineRebuildValidationItem>& items) {
    Json out = Json::array();
    for (const auto& item : items) {
        out.push_back({{"severity", label(item.severity)}, {"message", item.message}});
    }
    return out;
}

Json issuesJSON(const std::vector<ResolveRebuildIssue>& issues) {
    Json out = Json::array();
    for (const auto& issue : issues) {
        out.push_back({{"severity", label(issue.severity)}, {"message", issue.message}});
    }
    return out;
}

Json analysisJSON(const ResolveRebuildAnalysis& analysis) {
    Json j;
    j["videoLanes"] = Json::array();
    for (const auto& lane : analysis.videoLanes) {
        j["videoLanes"].push_back({{"lane", lane.lane},
                                   {"label", lane.label},
                                   {"candidateClipCount", lane.candidateClipCount}});
    }
    j["events"] = Json::array();
    for (const auto& event : analysis.events) {
        Json e{{"eventOrder", event.eventOrder},
               {"timecode", event.timecode},
               {"audioTrackCount", event.audioTrackCount}};
        e["cameraMatches"] = Json::array();
        for (const auto& match : event.cameraMatches) {
            e["cameraMatches"].push_back(
                {{"laneLabel", match.laneLabel},
                 {"hasMatch", match.hasMatch},
                 {"clipName", match.clipName ? Json(*match.clipName) : Json()}});
        }
        j["events"].push_back(e);
    }
    j["issues"] = issuesJSON(analysis.issues);
    j["hasMulticam"] = analysis.hasMulticam;
    j["multicamName"] = analysis.multicamName ? Json(*analysis.multicamName) : Json();
    return j;
}

Json inputsJSON(const std::vector<TimelineRebuildDetectedAudioInput>& rows) {
    Json out = Json::array();
    for (const auto& row : rows) {
        out.push_back(
            {{"name", row.name},
             {"sourceURL", row.sourceURL.string()},
             {"eventOrder", row.eventOrder == kNoEventIndex ? Json() : Json(row.eventOrder)},
             {"eventTimecode", row.eventTimecode},
             {"durationSeconds", row.durationSeconds},
             {"trackKey", row.trackKey},
             {"timecodeProvenance", label(row.timecodeProvenance)},
             {"trackProvenance", label(row.trackProvenance)},
             {"namingRule", row.namingRule},
             {"usedFallback", row.usedFallback},
             {"sourceMediaStart", row.sourceMediaStart.text()}});
    }
    return out;
}

void printItems(const std::vector<TimelineRebuildValidationItem>& items) {
    for (const auto& item : items) {
        std::cout << label(item.severity) << ": " << item.message << "\n";
    }
}

int runRebuild(const RebuildOptions& options) {
    RebuildInputs inputs;
    inputs.sourceXML = options.sourceXML;
    inputs.stereoMix = options.stereoMix;
    inputs.syncedFolder = options.synced;
    inputs.outputFolder = options.output;
    inputs.outputFilename = options.name;
    auto problem = checkRebuildInputs(inputs);
    std::error_code ec;
    if (problem && !inputs.outputFolder.empty() && !fs::exists(inputs.outputFolder, ec)) {
        // -o names the folder to write to: once the other inputs pass, a
        // missing one is created, as stamp and split do.
        RebuildInputs others = inputs;
        others.outputFolder = inputs.syncedFolder;  // stands in while the others are checked
        if (!checkRebuildInputs(others)) {
            fs::create_directories(inputs.outputFolder, ec);
            problem =
                ec ? std::optional<std::string>("Cannot create the output folder " +
                                                inputs.outputFolder.string() + ": " + ec.message())
                   : checkRebuildInputs(inputs);
        }
    }
    if (problem) {
        return printError(*problem);
    }

    RebuildChoices choices = savedChoices();
    if (!options.missingCamera.empty()) {
        choices.missingCameraBehavior = missingCameraArguments().at(options.missingCamera);
    }
    if (!options.tcSource.empty()) {
        choices.timecodeSourcePriority = tcSourceArguments().at(options.tcSource);
    }
    if (!options.videoRate.empty()) {
        choices.videoFrameRateMode = videoRateArguments().at(options.videoRate);
    }

    ProgressBar bar(!options.json);
    RebuildHooks hooks;
    hooks.isCancelled = [] { return interruptRequested(); };
    hooks.progress = [&](const std::string& phase, double percent) {
        bar.update(percent / 100.0, phase);
    };

    std::optional<RebuildValidationRun> validation;
    std::optional<RebuildBuildRun> build;
    try {
        if (options.validateOnly) {
            validation = validateRebuild(inputs, choices, hooks);
        } else {
            build = buildRebuild(inputs, choices, hooks);
        }
    } catch (const std::exception& e) {
        bar.finish();
        const std::string what = options.validateOnly ? "Validation" : "Build";
        if (const auto* r = dynamic_cast<const RebuildError*>(&e);
            r != nullptr && r->kind() == RebuildError::Kind::cancelled) {
            return printError(what + " cancelled.");
        }
        std::string description = describeError(e);
        return printError(description.empty() ? what + " failed."
                                              : what + " failed: " + description);
    }
    bar.finish();

    if (validation) {
        const bool blocked = validation->hasErrors();
        if (options.json) {
            Json j;
            j["items"] = itemsJSON(validation->items);
            j["detectedAudioInputs"] = inputsJSON(validation->detectedAudioInputs);
            j["analysis"] = analysisJSON(validation->analysis);
            j["sequenceFrameRate"] = validation->context.frameRate.label;
            j["timecodeFrameRate"] = validation->timecodeRate.label;
            std::cout << j.dump(2, ' ', false, Json::error_handler_t::replace) << std::endl;
        } else {
            printItems(validation->items);
        }
        return blocked ? printError("Build blocked by validation errors.") : kExitOk;
    }

    const RebuildBuildRun& run = *build;
    if (options.json) {
        Json j;
        j["items"] = itemsJSON(run.validation.items);
        j["detectedAudioInputs"] = inputsJSON(run.validation.detectedAudioInputs);
        j["analysis"] = analysisJSON(run.analysis);
        j["generatedValidation"] = issuesJSON(run.generated.issues);
        j["outcome"] = run.outcome == RebuildBuildOutcome::written ? "written" : "blocked";
        j["statusMessage"] = run.statusMessage;
        j["buildStats"] = {{"eventsProcessed", run.stats.eventsProcessed},
                           {"cameraMatches", run.stats.cameraMatches},
                           {"gapsInserted", run.stats.gapsInserted},
                           {"fallbackTimecodesUsed", run.stats.fallbackTimecodesUsed}};
        if (run.report) {
            const TimelineRebuildReport& r = *run.report;
            j["report"] = {{"outputXMLURL", r.outputXMLURL.string()},
                           {"sequenceDurationSeconds", r.sequenceDurationSeconds},
                           {"trackLayoutSummary", r.trackLayoutSummary},
                           {"durationBoundarySummary", r.durationBoundarySummary},
                           {"fcpxmlValidationSummary", r.fcpxmlValidationSummary},
                           {"provenanceSummary", r.provenanceSummary},
                           {"gapsByTrack", r.gapsByTrack},
                           {"notes", r.notes}};
        } else {
            j["report"] = nullptr;
        }
        std::cout << j.dump(2, ' ', false, Json::error_handler_t::replace) << std::endl;
    } else {
        printItems(run.validation.items);
        for (const auto& issue : run.generated.issues) {
            std::cout << label(issue.severity) << ": " << issue.message << "\n";
        }
        if (run.report) {
            std::cout << run.report->trackLayoutSummary << "\n"
                      << run.report->fcpxmlValidationSummary << "\n"
                      << run.report->provenanceSummary << "\n"
                      << run.statusMessage << std::endl;
        }
    }
    return run.outcome == RebuildBuildOutcome::written ? kExitOk : printError(run.statusMessage);
}

}  // namespace

Command addRebuildCommand(CLI::App& parent) {
    auto options = std::make_shared<RebuildOptions>();
    Command command;
    command.app = parent.add_subcommand(
        "rebuild",
        "Rebuild multicam timeline from synced audio and stereo mix. The FCPXML is written "
        "to the output folder only when validation finds no error; an existing file of the "
        "same name is replaced (atomically), since a rebuild is meant to be re-run.");
    command.app->add_option("--source-xml", options->sourceXML, "Source timeline (.xml/.fcpxml)")
        ->required();
    command.app->add_option("--stereo-mix", options->stereoMix, "Stereo reference mix (.wav)")
        ->required();
    command.app->add_option("--synced", options->synced, "Folder of synced WAV files")->required();
    command.app->add_option("-o,--output", options->output, "Output folder")->required();
    command.app
        ->add_option("--name", options->name,
                     "Output file name (\".fcpxml\" is added when missing)")
        ->capture_default_str();
    command.app
        ->add_option("--missing-camera", options->missingCamera,
                     "A camera lane without a clip at an event (default: saved setting)")
        ->check(CLI::IsMember(missingCameraArguments()));
    command.app
        ->add_option("--tc-source", options->tcSource,
                     "Event timecode source: metadata (iXML, bext, then file name), filename or "
                     "xml (default: saved setting)")
        ->check(CLI::IsMember(tcSourceArguments()));
    command.app
        ->add_option("--video-rate", options->videoRate,
                     "Picture rate: same as the LTC, or double (50/60 fps from 25/30 fps LTC)")
        ->check(CLI::IsMember(videoRateArguments()));
    command.app->add_flag("--validate-only", options->validateOnly,
                          "Validate and print the findings; write nothing");
    command.app->add_flag("--json", options->json, "Print findings, analysis and report as JSON");
    command.run = [options] { return runRebuild(*options); };
    return command;
}

}  // namespace norvane::cli
