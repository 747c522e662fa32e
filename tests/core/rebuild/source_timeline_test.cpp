#include "core/rebuild/source_timeline.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "core/common/file_output.h"
#include "tests/core/rebuild/rebuild_fixtures.h"

namespace norvane {
namespace {

std::string fixture(const std::string& name) {
    return testing::readText(testing::dataDir() / "fcpxml" / name);
}

SourceTimelineError readError(const std::string& text) {
    try {
        readSourceTimeline(text);
    } catch (const SourceTimelineError& e) {
        return e;
    }
    ADD_FAILURE() << "no error for: " << text.substr(0, 80);
    return SourceTimelineError::missingStructure();
}

const std::string kCamera =
    "<format id=\"r1\" frameDuration=\"1/25s\"/>"
    "<asset id=\"a1\" name=\"CamA\" hasVideo=\"1\" format=\"r1\"><media-rep src=\"file:///a.mov\" "
    "kind=\"original-media\"/></asset>"
    "<asset id=\"snd\" name=\"Sound\" hasAudio=\"1\"/>";

// --- Real exports -------------------------------------------------------------

TEST(SourceTimelineExports, RatesAndEveryTimeFormOfRealExports) {
    SourceContext c = readSourceTimeline(fixture("24.fcpxml"));
    ASSERT_EQ(c.formats.size(), 3u);
    EXPECT_EQ(c.formats[1].frameDuration, RationalTime(1001, 24000));
    EXPECT_EQ(c.frameRate.label, "24");  // frameDuration 100/2400s
    // The first clip has no start: it starts where its asset does ("0s").
    EXPECT_EQ(c.candidates[0].start, RationalTime::zero());
    EXPECT_EQ(c.candidates[0].mediaRange->duration, RationalTime(416166, 1000));
    const CameraCandidate& second = c.candidates[1];
    EXPECT_EQ(second.formatID, "r5");
    EXPECT_EQ(second.start, RationalTime(79079, 1600));
    EXPECT_EQ(second.startFrame, 1186);  // 49.424... s at 24 fps
    EXPECT_EQ(second.durationFrames, 901);
    EXPECT_EQ(c.candidates[2].duration, RationalTime(26, 1));  // "26s"
    // A clip of the connected storyline above the fifth spine clip.
    EXPECT_EQ(c.candidates[5].start, RationalTime(397699, 2400));
    // The compound clip: its media's sequence is its range.
    auto ref = std::find_if(c.candidates.begin(), c.candidates.end(),
                            [](const CameraCandidate& k) { return k.elementName == "ref-clip"; });
    ASSERT_NE(ref, c.candidates.end());
    EXPECT_EQ(ref->assetRef, "r8");
    EXPECT_EQ(ref->mediaRange->duration, RationalTime(174174, 30000));

    SourceContext pal = readSourceTimeline(fixture("25i.fcpxml"));
    EXPECT_EQ(pal.frameRate.numerator, 25);
    EXPECT_EQ(pal.candidates.at(0).startFrame, 0);  // no start: read from 0
    EXPECT_EQ(pal.candidates.at(1).startFrame, 179);
    SourceContext ntsc = readSourceTimeline(fixture("29.97d.fcpxml"));
    EXPECT_EQ(ntsc.sequenceTCFormat, "DF");
    EXPECT_EQ(ntsc.frameRate.label, "29.97 DF");
    auto cut = std::find_if(ntsc.candidates.begin(), ntsc.candidates.end(),
                            [](const CameraCandidate& k) { return k.start != RationalTime(); });
    ASSERT_NE(cut, ntsc.candidates.end());
    EXPECT_EQ(cut->start, RationalTime(214214, 30000));
    EXPECT_EQ(cut->startFrame, 214);
    EXPECT_EQ(cut->durationFrames, 106);
    EXPECT_EQ(readSourceTimeline(fixture("AudioOnly.fcpxml")).frameRate.label, "23.976");
}

TEST(SourceTimelineExports, MulticamAnglesWithWholeSecondAndMissingStarts) {
    SourceContext c = readSourceTimeline(fixture("MulticamSample.fcpxml"));
    ASSERT_EQ(c.multicamMediaByID.size(), 1u);
    const MulticamMedia& media = c.multicamMediaByID.at("r2");
    ASSERT_EQ(media.angles.size(), 4u);
    EXPECT_EQ(media.angles[1].angleID, "UNx7r0rBQK+YH4GNKotbRg");
    // The first angle is audio only; the picture angles omit start (their
    // assets start at 0) and sit after a gap in the multicam.
    EXPECT_TRUE(media.angles[0].clips.empty());
    for (std::size_t i = 1; i < 4; ++i) {
        ASSERT_EQ(media.angles[i].clips.size(), 1u);
        EXPECT_EQ(media.angles[i].clips[0].start, RationalTime::zero());
    }
    EXPECT_EQ(media.angles[1].clips[0].offset, RationalTime(260260, 24000));
    EXPECT_EQ(media.startFrame, 0);
    EXPECT_EQ(media.endFrame, 6260);  // 12532520/48000 s, the longest angle clip
    ASSERT_EQ(c.multicamCandidates.size(), 1u);
    ASSERT_EQ(c.videoSources.size(), 1u);
}

// --- Rules on small documents ---------------------------------------------------

TEST(SourceTimeline, SequenceFormatAndRateDefaults) {
    // No format attribute: the format with id r0; none or an unusable one:
    // 24 fps; a time without its trailing s is still a time; 2002/60000 is
    // normalised before inverting; lower-case df is drop-frame.
    const std::tuple<std::string, std::string, std::string> cases[] = {
        {"<format id=\"r0\" frameDuration=\"1/50s\"/>", "tcFormat=\"df\"", "50/1 DF"},
        {"", "", "24/1 NDF"},
        {"<format id=\"r1\" frameDuration=\"1/25\"/>", "format=\"r1\" tcFormat=\"DFX\"",
         "25/1 NDF"},
        {"<format id=\"r1\" frameDuration=\"1/0s\"/>", "format=\"r1\"", "24/1 NDF"},
        {"<format id=\"r9\" frameDuration=\"2002/60000s\"/>", "format=\"r9\"", "30000/1001 NDF"}};
    for (const auto& [format, sequence, expected] : cases) {
        const SourceContext c = readSourceTimeline(testing::sourceDocument(format, sequence, ""));
        EXPECT_EQ(std::to_string(c.frameRate.numerator) + "/" +
                      std::to_string(c.frameRate.denominator) + " " + c.sequenceTCFormat,
                  expected);
        EXPECT_EQ(c.frameRate.dropFrame, c.sequenceTCFormat == "DF");
    }
}

TEST(SourceTimeline, CameraClipRules) {
    std::string spine =
        // Spine clip: lane 0; its video child supplies ref and start.
        "<clip name=\"C0\" start=\"0/1s\" duration=\"10/1s\"><video ref=\"a1\" "
        "start=\"3600/1s\"/></clip>"
        // A lane that is not an integer: skipped, its connected clip still found.
        "<asset-clip ref=\"a1\" lane=\"up\" name=\"bad\" start=\"0/1s\" duration=\"1/1s\">"
        "<asset-clip ref=\"a1\" lane=\"2\" name=\"C2\" start=\"7201/2s\" duration=\"1/50s\"/>"
        "</asset-clip>"
        // Audio-only asset and unknown ref: skipped. Whole seconds: read.
        "<asset-clip ref=\"snd\" lane=\"1\" name=\"s\" start=\"0/1s\" duration=\"1/1s\"/>"
        "<asset-clip ref=\"zz\" lane=\"1\" name=\"z\" start=\"0/1s\" duration=\"1/1s\"/>"
        "<asset-clip ref=\"a1\" lane=\"1\" name=\"w\" start=\"3600s\" duration=\"1\"/>"
        // Connected to a gap, negative lane.
        "<gap start=\"0/1s\" duration=\"5/1s\"><asset-clip ref=\"a1\" lane=\"-3\" name=\"G\" "
        "start=\"1/1s\" duration=\"1/1s\"/></gap>"
        // A connected storyline: its clips stand on its lane, and a clip
        // connected to one of them counts its lane from there.
        "<spine lane=\"1\"><asset-clip ref=\"a1\" name=\"S\" start=\"0/1s\" duration=\"1/1s\">"
        "<asset-clip ref=\"a1\" lane=\"2\" name=\"S3\" duration=\"1/1s\"/></asset-clip></spine>"
        // A sync-clip shows its video item: local time 2 s is media 3602 s.
        "<sync-clip name=\"Y\" start=\"2s\" duration=\"4s\"><asset-clip ref=\"snd\" lane=\"-1\" "
        "duration=\"9s\"/><asset-clip ref=\"a1\" offset=\"0s\" start=\"3600s\" duration=\"9s\"/>"
        "</sync-clip>";
    SourceContext c = readSourceTimeline(testing::sourceDocument(kCamera, "format=\"r1\"", spine));
    std::vector<std::string> names;
    for (const CameraCandidate& k : c.candidates) {
        names.push_back(k.clipName + "@" + std::to_string(k.laneRaw));
    }
    EXPECT_THAT(names, ::testing::ElementsAre("C0@0", "C2@2", "w@1", "G@-3", "S@1", "S3@3", "Y@0"));
    EXPECT_EQ(c.candidates[0].start, RationalTime(3600, 1));
    EXPECT_EQ(c.candidates[0].startFrame, 90000);
    EXPECT_EQ(c.candidates[0].durationFrames, 250);
    EXPECT_EQ(c.candidates[1].startFrame, 90013);  // 90012.5 rounds away from zero
    EXPECT_EQ(c.candidates[1].durationFrames, 1);  // half a frame still counts as one
    EXPECT_EQ(c.candidates[2].start, RationalTime(3600, 1));
    EXPECT_EQ(c.candidates[5].start, RationalTime::zero());  // no start, asset without one
    EXPECT_EQ(c.candidates[6].start, RationalTime(3602, 1));

    ASSERT_EQ(c.videoSources.size(), 5u);  // lanes -3, 0, 1, 2, 3 in numeric order
    EXPECT_EQ(c.videoSources[0].rawLane, -3);
    EXPECT_EQ(c.videoSources[3].rawLane, 2);
    EXPECT_EQ(c.videoSources[3].outputLane, 4);
    EXPECT_EQ(c.videoSources[3].label, "V4");
}

TEST(SourceTimeline, MulticamMediaAndClips) {
    std::string resources =
        kCamera +
        "<asset id=\"a2\" name=\"CamB\" hasVideo=\"1\"><media-rep src=\"file:///b.mov\"/></asset>"
        "<media id=\"m1\"><multicam format=\"r1\" tcStart=\"3600/1s\" tcFormat=\"NDF\">"
        "<mc-angle name=\"A\" angleID=\"angA\">"
        "<asset-clip ref=\"a1\" offset=\"3600/1s\" start=\"3600/1s\" duration=\"60/1s\"/>"
        "<asset-clip ref=\"a1\" offset=\"3700/1s\" start=\"3700/1s\" duration=\"10\"/></mc-angle>"
        "<mc-angle name=\"B\" angleID=\"angB\">"
        "<asset-clip ref=\"a2\" offset=\"3590/1s\" start=\"3590/1s\" duration=\"20/1s\"/>"
        "</mc-angle></multicam></media>"
        "<media id=\"cmp\"><sequence><spine/></sequence></media>";
    std::string spine =
        "<mc-clip ref=\"m1\" name=\"MC\" start=\"3600/1s\" duration=\"30/1s\">"
        "<mc-source angleID=\"angA\" srcEnable=\"audio\"/>"
        "<mc-source angleID=\"angB\" srcEnable=\"video\"/></mc-clip>"
        "<mc-clip ref=\"cmp\" lane=\"1\" name=\"not multicam\" start=\"0/1s\" duration=\"1/1s\"/>"
        "<mc-clip ref=\"m1\" lane=\"1\" name=\"MC2\" start=\"3600/1s\" duration=\"1/1s\"/>";
    SourceContext c =
        readSourceTimeline(testing::sourceDocument(resources, "format=\"r1\"", spine));
    ASSERT_EQ(c.multicamMediaByID.size(), 1u);
    const MulticamMedia& media = c.multicamMediaByID.at("m1");
    EXPECT_EQ(media.angles[0].clips.size(), 2u);
    EXPECT_EQ(media.startFrame, 3590 * 25);
    EXPECT_EQ(media.endFrame, 3710 * 25);

    ASSERT_EQ(c.multicamCandidates.size(), 2u);
    EXPECT_EQ(c.multicamCandidates[0].clipName, "MC");
    EXPECT_EQ(c.multicamCandidates[0].angleID, "angB");  // the mc-source that enables video
    EXPECT_EQ(c.multicamCandidates[1].angleID, "angA");  // no mc-source: the first angle
    EXPECT_EQ(c.multicamCandidates[1].laneRaw, 1);
}

TEST(SourceTimeline, CodedErrors) {
    const std::tuple<std::string, int, std::string> cases[] = {
        {"<fcpxml>\xE9</fcpxml>", 1, "Source XML is not UTF-8."},
        {"<fcpxml><resources></fcpxml>", 2, "XML parse error at line 1, column 22: mismatched tag"},
        {"<fcpxml><resources/><library><event><project><sequence/></project></event></library>"
         "</fcpxml>",
         3, "Source XML missing resources/sequence/spine."},
        {"<fcpxml><sequence><spine/></sequence></fcpxml>", 3,
         "Source XML missing resources/sequence/spine."}};
    for (const auto& [text, code, message] : cases) {
        const SourceTimelineError e = readError(text);
        EXPECT_EQ(e.codeNumber(), code) << text;
        EXPECT_EQ(e.message(), message);
    }
    EXPECT_EQ(readError("   ").codeNumber(), 2);
}

}  // namespace
}  // namespace norvane
