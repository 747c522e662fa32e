#include "core/rebuild/rebuild_analysis.h"

#include <algorithm>
#include <cstdio>
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

bool isLTCRate(const FrameRateConfig& rate) {
    if (rate.denominator <= 0 || rate.numerator <= 0) {
        return false;
    }
    RationalTime fps(rate.numerator, rate.denominator);
    for (const RationalTime& ltc :
         {RationalTime(24000, 1001), RationalTime(24, 1), RationalTime(25, 1),
          RationalTime(30000, 1001), RationalTime(30, 1)}) {
        if (fps == ltc) {
            return true;
        }
    }
    return false;
}

RationalTime oneHourOf(const FrameRateConfig& sequenceRate) {
    Timecode hour;
    hour.hours = 1;
    return RationalTime::fromFrames(TimecodeMath::frameCount(hour, sequenceRate), sequenceRate);
}

std::int64_t framesRoundedDown(const RationalTime& t, const FrameRateConfig& rate) {
    return -(-t).framesRoundedUp(rate);
}

namespace {

// Versions up to 1.9 (and a document that names none) are read as they are;
// newer ones by the same rules, which the analysis notes.
bool isKnownFCPXMLVersion(std::string_view version) {
    if (version.empty()) {
        return true;
    }
    if (version.substr(0, 2) != "1.") {
        return false;
    }
    std::string_view minor = version.substr(2);
    return minor.size() == 1 && minor[0] >= '0' && minor[0] <= '9';
}

std::string secondsText(const RationalTime& t) {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%.3f", t.toSeconds());
    return buffer;
}

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

// The range of multicam time the clip's angle has picture for: from its
// first clip's offset to its last clip's end (every angle's when the chosen
// one has none).
std::optional<TimeRange> multicamCoverage(const MulticamCandidate& candidate) {
    std::optional<RationalTime> first, last;
    auto extend = [&](const MulticamAngle& angle) {
        for (const CameraCandidate& clip : angle.clips) {
            RationalTime offset = clip.offset.value_or(RationalTime::zero());
            first = first ? std::min(*first, offset) : offset;
            last = last ? std::max(*last, offset + clip.duration) : offset + clip.duration;
        }
    };
    for (const MulticamAngle& angle : candidate.multicam.angles) {
        if (angle.angleID == candidate.angleID) {
            extend(angle);
        }
    }
    if (!first) {
        for (const MulticamAngle& angle : candidate.multicam.angles) {
            extend(angle);
        }
    }
    if (!first) {
        return std::nullopt;
    }
    return TimeRange{*first, *last - *first};
}

RationalTime onGrid(const RationalTime& t, const FrameRateConfig& rate) {
    return RationalTime::fromFrames(t.frames(rate), rate);
}

}  // namespace

RebuildPlan planRebuild(const SourceContext& context,
                        const std::vector<ResolveRebuildAudioInput>& inputs,
                        const ResolveRebuildOptions& options) {
    RebuildPlan plan;
    plan.sequenceRate = context.frameRate;
    plan.timecodeRate = timecodeRate(context.frameRate, options.videoFrameRateMode);
    plan.timelineStart = options.timelineStart.value_or(oneHourOf(plan.sequenceRate));
    ResolveRebuildAnalysis& analysis = plan.analysis;
    auto raise = [&](ResolveRebuildIssueSeverity severity, std::string message) {
        analysis.issues.push_back({severity, std::move(message)});
    };

    if (!isKnownFCPXMLVersion(context.version)) {
        raise(ResolveRebuildIssueSeverity::info,
              "Source FCPXML version " + context.version +
                  " is newer than 1.9; it was read by the 1.9 rules.");
    }
    if (options.videoFrameRateMode == VideoFrameRateMode::doubleLTC &&
        !isLTCRate(plan.timecodeRate)) {
        // Half of this picture rate is no LTC rate (25p would count 12.5 fps
        // LTC and move every event): the timecodes are read at the sequence
        // rate and the build is refused.
        raise(ResolveRebuildIssueSeverity::error,
              "Double LTC needs a 47.952, 48, 50, 59.94 or 60 fps sequence; this sequence runs "
              "at " +
                  context.frameRate.label + " fps.");
        plan.timecodeRate = context.frameRate;
    }

    for (const VideoSource& source : context.videoSources) {
        analysis.videoLanes.push_back(
            {source.outputLane, source.label, static_cast<std::int64_t>(source.candidates.size())});
    }
    if (const MulticamCandidate* mc = context.firstMulticam()) {
        analysis.hasMulticam = true;
        analysis.multicamName = mc->multicam.name;
    }

    // Events in ascending index; files keep their input order inside. A file
    // whose name holds no event index belongs to no event (validation names
    // it as an error).
    std::map<std::int64_t, std::vector<std::size_t>> byEvent;
    for (std::size_t i = 0; i < inputs.size(); ++i) {
        if (inputs[i].eventOrder != kNoEventIndex) {
            byEvent[inputs[i].eventOrder].push_back(i);
        }
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
    const FrameRateConfig& grid = plan.sequenceRate;

    RationalTime position = plan.timelineStart;
    RationalTime mixPosition;
    for (const auto& [order, kept] : keptByEvent) {
        RebuildPlan::Event event;
        event.order = order;
        const std::string orderText = std::to_string(order);

        // The event's timecode counts frames at the rate of the file it came
        // from (a 23.976 recorder in a 24p sequence), else at the LTC rate.
        std::optional<Timecode> parsed;
        FrameRateConfig rate = plan.timecodeRate;
        for (std::size_t k : kept) {
            const ResolveRebuildAudioInput& input = plan.keptInputs[k];
            if ((parsed = parseEventTimecode(input.eventTimecode))) {
                event.timecode = input.eventTimecode;
                event.sourceFile = fileLabel(input);
                if (input.timecodeRate && isLTCRate(*input.timecodeRate)) {
                    rate = *input.timecodeRate;
                }
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
        const RationalTime exactTime =
            RationalTime::fromFrames(TimecodeMath::frameCount(*parsed, rate), rate);
        event.time = onGrid(exactTime, grid);
        const std::int64_t eventFrame = event.time.frames(grid);

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
        event.duration = RationalTime::fromFrames(longest.framesRoundedUp(grid), grid);
        event.offset = position;
        event.mixStart = mixPosition;

        ResolveRebuildEventAnalysis eventAnalysis;
        eventAnalysis.eventOrder = order;
        eventAnalysis.timecode = event.timecode;
        eventAnalysis.sourceFile = event.sourceFile;
        eventAnalysis.audioTrackCount = static_cast<std::int64_t>(byEvent[order].size());
        eventAnalysis.offsetSeconds = (event.offset - plan.timelineStart).toSeconds();
        eventAnalysis.durationSeconds = event.duration.toSeconds();

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
            std::optional<RebuildPlan::Camera> camera;
            if (match != nullptr) {
                camera = RebuildPlan::Camera{static_cast<std::size_t>(source.sourceIndex),
                                             source.outputLane,
                                             *match,
                                             event.time,
                                             RationalTime::zero(),
                                             event.duration};
                std::optional<TimeRange> covered;
                std::string clipName;
                if (const auto* mc = std::get_if<MulticamCandidate>(match)) {
                    camera->start = onGrid(multicamStart(*mc, event.time, eventFrame), grid);
                    covered = multicamCoverage(*mc);
                    clipName = mc->clipName;
                } else {
                    const auto& native = std::get<CameraCandidate>(*match);
                    covered = native.mediaRange;
                    clipName = native.clipName;
                }
                // Never past the media: the clip shows only the part of the
                // event its media covers, in whole frames inside the media.
                std::int64_t leadFrames = 0;
                std::int64_t frames = event.duration.framesRoundedUp(grid);
                if (covered) {
                    if (camera->start < covered->start) {
                        leadFrames = (covered->start - camera->start).framesRoundedUp(grid);
                    }
                    RationalTime shown = covered->end() - camera->start;
                    frames = std::min(frames, framesRoundedDown(shown, grid));
                }
                if (frames - leadFrames <= 0) {
                    camera.reset();
                } else {
                    camera->lead = RationalTime::fromFrames(leadFrames, grid);
                    camera->start += camera->lead;
                    camera->duration = RationalTime::fromFrames(frames - leadFrames, grid);
                    RationalTime trimmed = event.duration - camera->duration;
                    if (trimmed > RationalTime::zero()) {
                        raise(ResolveRebuildIssueSeverity::warning,
                              "Lane " + source.label + " at event " + orderText + ": camera clip " +
                                  clipName + " trimmed by " + secondsText(trimmed) +
                                  "s where its media does not cover the event; emitting lane "
                                  "gap.");
                    }
                    cameraMatch.clipName = clipName;
                    cameraMatch.hasMatch = true;
                    cameraMatch.leadSeconds = camera->lead.toSeconds();
                    cameraMatch.coveredSeconds = camera->duration.toSeconds();
                    event.cameras.push_back(*camera);
                }
            }
            if (!camera) {
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
            duration = RationalTime::fromFrames(duration.framesRoundedUp(grid), grid);
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
    plan.totalDuration = position - plan.timelineStart;
    return plan;
}

}  // namespace norvane
