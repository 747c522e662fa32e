#include "core/rebuild/demo_timeline.h"

#include <algorithm>

#include "core/rebuild/fcpxml_generator.h"
#include "core/rebuild/synced_audio.h"
#include "core/timecode/timecode.h"

namespace norvane {

std::string makeDemoSourceTimeline(const DemoTimelineSpec& recipe) {
    FrameRateConfig rate;
    rate.numerator = recipe.rateNumerator;
    rate.denominator = recipe.rateDenominator;
    rate.dropFrame = recipe.dropFrame;
    auto timeOf = [&](const std::string& text) {
        Timecode tc = parseEventTimecode(text).value_or(Timecode{});
        return RationalTime::fromFrames(TimecodeMath::frameCount(tc, rate), rate);
    };
    const RationalTime frame = RationalTime::fromFrames(1, rate);
    const std::string tcFormat = recipe.dropFrame ? "DF" : "NDF";

    RationalTime first;
    RationalTime last;
    bool any = false;
    for (const auto& lane : recipe.lanes) {
        for (const auto& clip : lane.clips) {
            RationalTime start = timeOf(clip.timecode);
            first = any ? std::min(first, start) : start;
            last = any ? std::max(last, start + clip.duration) : start + clip.duration;
            any = true;
        }
    }
    const RationalTime span = any ? last - first : RationalTime::seconds(60);

    std::string x = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE fcpxml>\n";
    x += "<fcpxml version=\"1.9\">\n  <resources>\n";
    x += "    <format id=\"r1\" name=\"Demo\" frameDuration=\"" + frame.text() +
         "\" width=\"1920\" height=\"1080\"/>\n";
    for (std::size_t i = 0; i < recipe.lanes.size(); ++i) {
        const auto& lane = recipe.lanes[i];
        x += "    <asset id=\"cam" + std::to_string(i + 1) + "\" name=\"" +
             escapeXMLAttribute(lane.name) + "\" start=\"" + first.text() + "\" duration=\"" +
             span.text() + "\" hasVideo=\"1\" format=\"r1\" hasAudio=\"1\">\n";
        x += "      <media-rep kind=\"original-media\" src=\"file:///demo/" +
             escapeXMLAttribute(lane.name) + ".mov\"/>\n    </asset>\n";
    }
    if (recipe.multicam) {
        x += "    <media id=\"mc1\" name=\"Demo Multicam\">\n      <multicam format=\"r1\" "
             "tcStart=\"0/1s\" tcFormat=\"" +
             tcFormat + "\">\n";
        for (std::size_t i = 0; i < recipe.lanes.size(); ++i) {
            x += "        <mc-angle name=\"" + escapeXMLAttribute(recipe.lanes[i].name) +
                 "\" angleID=\"angle" + std::to_string(i + 1) + "\">\n";
            for (const auto& clip : recipe.lanes[i].clips) {
                RationalTime start = timeOf(clip.timecode);
                x += "          <asset-clip ref=\"cam" + std::to_string(i + 1) + "\" offset=\"" +
                     start.text() + "\" name=\"" + escapeXMLAttribute(recipe.lanes[i].name) +
                     "\" start=\"" + start.text() + "\" duration=\"" + clip.duration.text() +
                     "\"/>\n";
            }
            x += "        </mc-angle>\n";
        }
        x += "      </multicam>\n    </media>\n";
    }
    x += "  </resources>\n  <library>\n    <event name=\"Demo\">\n      <project name=\"Demo "
         "Source\">\n";
    x += "        <sequence format=\"r1\" duration=\"" + span.text() +
         "\" tcStart=\"0/1s\" tcFormat=\"" + tcFormat + "\">\n          <spine>\n";
    if (recipe.multicam) {
        x += "            <mc-clip ref=\"mc1\" offset=\"0/1s\" name=\"Demo Multicam\" start=\"" +
             first.text() + "\" duration=\"" + span.text() +
             "\">\n              <mc-source angleID=\"angle1\" srcEnable=\"all\"/>\n"
             "            </mc-clip>\n";
    } else {
        x += "            <gap name=\"Gap\" offset=\"0/1s\" start=\"" + first.text() +
             "\" duration=\"" + span.text() + "\">\n";
        for (std::size_t i = 0; i < recipe.lanes.size(); ++i) {
            for (const auto& clip : recipe.lanes[i].clips) {
                RationalTime start = timeOf(clip.timecode);
                x += "              <asset-clip ref=\"cam" + std::to_string(i + 1) + "\" lane=\"" +
                     std::to_string(i + 1) + "\" offset=\"" + start.text() + "\" name=\"" +
                     escapeXMLAttribute(recipe.lanes[i].name) + "\" start=\"" + start.text() +
                     "\" duration=\"" + clip.duration.text() + "\" tcFormat=\"" + tcFormat +
                     "\"/>\n";
            }
        }
        x += "            </gap>\n";
    }
    x += "          </spine>\n        </sequence>\n      </project>\n    </event>\n  "
         "</library>\n</fcpxml>\n";
    return x;
}

}  // namespace norvane
