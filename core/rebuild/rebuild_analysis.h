#pragma once

// Events, camera lanes and audio lanes of a rebuild, worked out once and used
// both for the analysis shown before a build and for the generated document.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/rebuild/rational_time.h"
#include "core/rebuild/rebuild_issue.h"
#include "core/rebuild/source_timeline.h"
#include "core/rebuild/synced_audio.h"
#include "core/settings/settings_enums.h"

namespace norvane {

struct ResolveRebuildVideoLaneInfo {
    std::int64_t lane = 0;  // output lane
    std::string label;
    std::int64_t candidateClipCount = 0;
};

struct ResolveRebuildEventCameraMatch {
    std::string laneLabel;
    bool hasMatch = false;
    std::optional<std::string> clipName;
    // Where the matched clip stands inside the event, in seconds from the
    // event's start: it shows [leadSeconds, leadSeconds + coveredSeconds);
    // the rest of the event is a lane gap. Both 0 without a match.
    double leadSeconds = 0;
    double coveredSeconds = 0;
};

struct ResolveRebuildEventAnalysis {
    std::int64_t eventOrder = 0;
    std::string timecode;
    // The file whose timecode the event uses (empty when none parsed).
    std::string sourceFile;
    std::int64_t audioTrackCount = 0;
    // The event on the rebuilt timeline, in seconds from its start.
    double offsetSeconds = 0;
    double durationSeconds = 0;
    std::vector<ResolveRebuildEventCameraMatch> cameraMatches;  // one per video lane
};

struct ResolveRebuildAnalysis {
    std::vector<ResolveRebuildVideoLaneInfo> videoLanes;
    std::vector<ResolveRebuildEventAnalysis> events;  // ascending event order
    std::vector<ResolveRebuildIssue> issues;          // in the order raised
    bool hasMulticam = false;
    std::optional<std::string> multicamName;

    bool hasErrors() const;
};

struct ResolveRebuildOptions {
    // Where the rebuilt timeline starts; by default 01:00:00:00 of the
    // sequence's own timecode (3603.6 s at 23.976 NDF, 3600 s at 25).
    std::optional<RationalTime> timelineStart;
    MissingCameraBehavior missingCameraBehavior = MissingCameraBehavior::insertGap;
    VideoFrameRateMode videoFrameRateMode = VideoFrameRateMode::sameAsLTC;
};

// The rate event timecodes count in: the sequence rate, or half of it for
// Double LTC (50/60 fps picture stamped from 25/30 fps LTC), labelled
// "LTC " + that rate.
FrameRateConfig timecodeRate(const FrameRateConfig& sequenceRate, VideoFrameRateMode mode);
// Whether a rate is one LTC can carry: 23.976, 24, 25, 29.97 or 30.
bool isLTCRate(const FrameRateConfig& rate);
// 01:00:00:00 of a sequence's own timecode, in seconds.
RationalTime oneHourOf(const FrameRateConfig& sequenceRate);
// The largest whole number of frames at `rate` not longer than `t`.
std::int64_t framesRoundedDown(const RationalTime& t, const FrameRateConfig& rate);

// The placement of one rebuild, as exact times.
struct RebuildPlan {
    struct Camera {
        std::size_t sourceIndex = 0;  // into SourceContext::videoSources
        std::int64_t lane = 1;
        VideoCandidate candidate;
        RationalTime start;  // where the event's timecode is in the clip's media
        // The part of the event the clip's media covers: it begins `lead`
        // after the event gap's start and lasts `duration` (both whole
        // sequence frames); the rest of the event is a lane gap.
        RationalTime lead;
        RationalTime duration;
    };
    struct Audio {
        std::size_t inputIndex = 0;  // into RebuildPlan::keptInputs
        std::int64_t lane = -2;
        RationalTime duration;  // the file's length rounded up to whole frames
    };
    struct Event {
        std::int64_t order = 0;
        std::string timecode;          // as shown ("00:00:00:00" when unparseable)
        std::string sourceFile;        // the file the timecode came from
        RationalTime time;             // the timecode in seconds, on the sequence's frame grid
        RationalTime offset;           // the gap's position on the timeline
        RationalTime duration;         // the gap's length, whole sequence frames
        RationalTime contentDuration;  // the longest file (1 s when all are empty)
        RationalTime mixStart;         // the stereo mix's position at this event
        std::vector<Camera> cameras;
        std::vector<std::int64_t> cameraGapLanes;
        std::vector<Audio> tracks;
        std::vector<std::int64_t> trackGapLanes;
    };

    FrameRateConfig sequenceRate;
    FrameRateConfig timecodeRate;
    RationalTime timelineStart;
    RationalTime totalDuration;
    std::vector<std::string> trackKeys;                // audio lanes -2, -3, ... in this order
    std::vector<ResolveRebuildAudioInput> keptInputs;  // duplicates left out
    std::vector<Event> events;
    ResolveRebuildAnalysis analysis;
};

// Groups the inputs into events (ascending index), picks each event's
// timecode and duration, matches every camera lane and assigns audio lanes.
// Problems become issues of the analysis; only arithmetic overflow throws.
RebuildPlan planRebuild(const SourceContext& context,
                        const std::vector<ResolveRebuildAudioInput>& inputs,
                        const ResolveRebuildOptions& options);

}  // namespace norvane
