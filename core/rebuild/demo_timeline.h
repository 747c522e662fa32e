#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "core/rebuild/rational_time.h"

namespace norvane {

// A small source timeline for demonstrations and tests: one camera asset per
// lane whose clips cover the given timecodes.
struct DemoCameraClip {
    std::string timecode;  // "HH:MM:SS:FF" where the clip's media starts
    RationalTime duration = RationalTime::seconds(10);
};

struct DemoCameraLane {
    std::string name;  // also the camera file's name, "<name>.mov"
    std::vector<DemoCameraClip> clips;
};

struct DemoTimelineSpec {
    std::int64_t rateNumerator = 25;
    std::int64_t rateDenominator = 1;
    bool dropFrame = false;
    std::vector<DemoCameraLane> lanes;
    // One multicam media whose angles are the lanes, cut into the project as
    // one mc-clip, instead of plain clips on lanes 1, 2, ...
    bool multicam = false;
};

// FCPXML text: format "r1", assets "cam1", "cam2", ..., and either every clip
// connected to one long spine gap on the lane of its camera (lane 1 for the
// first camera) or one mc-clip of media "mc1".
std::string makeDemoSourceTimeline(const DemoTimelineSpec& recipe);

}  // namespace norvane
