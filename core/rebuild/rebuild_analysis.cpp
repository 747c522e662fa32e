#include "core/rebuild/rebuild_analysis.h"

#include <algorithm>
#include <map>
#include <set>

#include "core/common/text.h"

namespace norvane {

bool ResolveRebuildAnalysis::hasErrors() const {
    return std::any_of(issues.begin(), issues.end(), [](const ResolveRebuildIssue& issue) {
        return issue.severity == ResolveRebuildIssueSeverity::error;
    });
}

FrameRateConfig timecodeRate(const FrameRateConfig& sequenceRate, VideoFrameRateMode mode) {
    if (mode == VideoFrameRateMode::sameAsLTC) {
        return sequenceRate;
    }
    FrameRateConfig half = sequenceRate;
    if (half.numerator % 2 == 0) {
        half.numerator /= 2;
    } else {
        half.denominator *= 2;
    }
    half.label = "LTC " + frameRateLabel(half.numerator, half.denominator, half.dropFrame);
    return half;
}

namespace {

std::string fileLabel(const ResolveRebuildAudioInput& input) {
    std::string file = input.url.filename().string();
    return file.empty() ? input.name : file;
}

// Where the event's time falls in a multicam's own timeline: through the
// angle clip that shows it (the chosen angle first), mapping media time to
// multicam time by that clip's offset.
RationalTime multicamStart(const MulticamCandidate& candidate, const RationalTime& time,
                           std::int64_t frame) {
    const CameraCandidate* reference = nullptr;
    auto covers = [&](const CameraCandidate& clip) {
        return clip.startFrame <= frame && frame < clip.startFrame + clip.durationFrames;
    };
    for (const MulticamAngle& angle : candidate.multicam.angles) {
        for (const CameraCandidate& clip : angle.clips) {
            if (!covers(clip)) {
                continue;
            }
            if (angle.angleID == candidate.angleID) {
                reference = &clip;
                break;
            }
            if (reference == nullptr) {
                reference = &clip;
            }
        }
        if (reference != nullptr && angle.angleID == candidate.angleID) {
            break;
        }
    }
    if (reference == nullptr) {
        for (const MulticamAngle& angle : candidate.multicam.angles) {
            if (!angle.clips.empty()) {
                reference = &angle.clips.front();
                break;
            }
        }
    }
    if (reference == nullptr) {
        return time;
    }
    return reference->offset.value_or(RationalTime::zero()) + (time - reference->start);
}

}  // namespace

RebuildPlan planRebuild(const SourceContext& context,
                        const std::vector<ResolveRebuildAudioInput>& inputs,
                        const ResolveRebuildOptions& options) {
    RebuildPlan plan;
    plan.sequenceRate = context.frameRate;
    plan.timecodeRate = timecodeRate(context.frameRate, options.videoFrameRateMode);
    plan.timelineStart = options.timelineStart;
    ResolveRebuildAnalysis& analysis = plan.analysis;
    auto raise = [&](ResolveRebuildIssueSeverity severity, std::string message) {
        analysis.issues.push_back({severity, std::move(message)});
    };

    for (const VideoSource& source : context.videoSources) {
        analysis.videoLanes.push_back(
            {source.outputLane, source.label, static_cast<std::int64_t>(source.candidates.size())});
    }
    if (const MulticamCandidate* mc = context.firstMulticam()) {
        analysis.hasMulticam = true;
        analysis.multicamName = mc->multicam.name;
    }

    // Events in ascending index; files keep their input order inside.
    std::map<std::int64_t, std::vector<std::size_t>> byEvent;
    for (std::size_t i = 0; i < inputs.size(); ++i) {
        byEvent[inputs[i].eventOrder].push_back(i);
    }

    // Duplicates: the first file of an event/track pair is kept.
    std::map<std::int64_t, std::vector<std::size_t>> keptByEvent;
    std::set<std::string, decltype(&fileBrowserLess)> keys(&fileBrowserLess);
    for (const auto& [order, indices] : byEvent) {
        std::map<std::string, std::size_t> seen;
        for (std::size_t i : indices) {
            const ResolveRebuildAudioInput& input = inputs[i];
            auto [it, fresh] = seen.emplace(input.trackKey, i);
            if (!fresh) {
                raise(ResolveRebuildIssueSeverity::warning,
                      "Duplicate track " + input.trackKey + " at event " + std::to_string(order) +
                          "; keeping " + fileLabel(inputs[it->second]) + ", ignoring " +
                          fileLabel(input) + ".");
                continue;
            }
            keptByEvent[order].push_back(plan.keptInputs.size());
            plan.keptInputs.push_back(input);
            keys.insert(input.trackKey);
        }
    }
    plan.trackKeys.assign(keys.begin(), keys.end());
    auto laneOfKey = [&](const std::string& key) {
        auto it = std::find(plan.trackKeys.begin(), plan.trackKeys.end(), key);
        return -2 - static_cast<std::int64_t>(it - plan.trackKeys.begin());
    };

    const std::string behaviourSuffix =
        options.missingCameraBehavior == MissingCameraBehavior::insertGap  ? "; emitting lane gap."
        : options.missingCameraBehavior == MissingCameraBehavior::skipClip ? "; skipping clip."
                                                                           : "; failing export.";
    const ResolveRebuildIssueSeverity cameraSeverity =
        options.missingCameraBehavior == MissingCameraBehavior::failExport
            ? ResolveRebuildIssueSeverity::error
            : ResolveRebuildIssueSeverity::warning;

    RationalTime position = options.timelineStart;
    RationalTime mixPosition;
    for (const auto& [order, kept] : keptByEvent) {
        RebuildPlan::Event event;
        event.order = order;
        const std::string orderText = std::to_string(order);

        std::optional<Timecode> parsed;
        for (std::size_t k : kept) {
            if ((parsed = parseEventTimecode(plan.keptInputs[k].eventTimecode))) {
                event.timecode = plan.keptInputs[k].eventTimecode;
                break;
            }
        }
        if (!parsed) {
            raise(ResolveRebuildIssueSeverity::error,
                  "Could not parse event timecode for order " + orderText + ": " +
                      plan.keptInputs[kept.front()].eventTimecode);
            event.timecode = "00:00:00:00";
            parsed = Timecode{};
        }
        event.time = RationalTime::fromFrames(TimecodeMath::frameCount(*parsed, plan.timecodeRate),
                                              plan.timecodeRate);
        const std::int64_t eventFrame = event.time.frames(plan.sequenceRate);

        RationalTime longest;
        for (std::size_t k : kept) {
            longest = std::max(longest, plan.keptInputs[k].duration());
        }
        if (longest <= RationalTime::zero()) {
            raise(ResolveRebuildIssueSeverity::warning,
                  "Event " + orderText + " had zero duration clips; defaulting to 1s.");
            longest = RationalTime::seconds(1);
        }
        event.contentDuration = longest;
        event.duration =
            RationalTime::fromFrames(longest.framesRoundedUp(plan.sequenceRate), plan.sequenceRate);
        event.offset = position;
        event.mixStart = mixPosition;

        ResolveRebuildEventAnalysis eventAnalysis;
        eventAnalysis.eventOrder = order;
        eventAnalysis.timecode = event.timecode;
        eventAnalysis.audioTrackCount = static_cast<std::int64_t>(byEvent[order].size());

        for (const VideoSource& source : context.videoSources) {
            const VideoCandidate* match = nullptr;
            bool hasMulticam = false;
            for (const VideoCandidate& candidate : source.candidates) {
                if (const auto* native = std::get_if<CameraCandidate>(&candidate)) {
                    if (native->startFrame <= eventFrame &&
                        eventFrame < native->startFrame + native->durationFrames) {
                        match = &candidate;
                        break;
                    }
                } else {
                    const auto& mc = std::get<MulticamCandidate>(candidate);
                    hasMulticam = true;
                    if (mc.multicam.startFrame <= eventFrame && eventFrame < mc.multicam.endFrame) {
                        match = &candidate;
                        break;
                    }
                }
            }
            ResolveRebuildEventCameraMatch cameraMatch;
            cameraMatch.laneLabel = source.label;
            if (match != nullptr) {
                RebuildPlan::Camera camera{static_cast<std::size_t>(source.sourceIndex),
                                           source.outputLane, *match, event.time};
                if (const auto* mc = std::get_if<MulticamCandidate>(match)) {
                    camera.start = multicamStart(*mc, event.time, eventFrame);
                    cameraMatch.clipName = mc->clipName;
                } else {
                    cameraMatch.clipName = std::get<CameraCandidate>(*match).clipName;
                }
                cameraMatch.hasMatch = true;
                event.cameras.push_back(std::move(camera));
            } else {
                std::string message =
                    hasMulticam ? "Event " + orderText + " (" + event.timecode +
                                      ") outside multicam range for lane " + source.label
                                : "Missing camera clip for lane " + source.label + " at event " +
                                      orderText + " (" + event.timecode + ")";
                raise(cameraSeverity, message + behaviourSuffix);
                if (options.missingCameraBehavior == MissingCameraBehavior::insertGap) {
                    event.cameraGapLanes.push_back(source.outputLane);
                }
            }
            eventAnalysis.cameraMatches.push_back(std::move(cameraMatch));
        }

        std::set<std::string> present;
        for (std::size_t k : kept) {
            const ResolveRebuildAudioInput& input = plan.keptInputs[k];
            RationalTime duration = input.duration();
            if (duration <= RationalTime::zero()) {
                duration = event.contentDuration;
            }
            event.tracks.push_back({k, laneOfKey(input.trackKey), duration});
            present.insert(input.trackKey);
        }
        for (const std::string& key : plan.trackKeys) {
            if (!present.contains(key)) {
                raise(ResolveRebuildIssueSeverity::info,
                      "Track " + key + " missing at event " + orderText + "; emitting lane gap.");
                event.trackGapLanes.push_back(laneOfKey(key));
            }
        }

        position += event.duration;
        mixPosition += event.contentDuration;
        analysis.events.push_back(std::move(eventAnalysis));
        plan.events.push_back(std::move(event));
    }
    plan.totalDuration = position - options.timelineStart;
    return plan;
}

}  // namespace norvane
