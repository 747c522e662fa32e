#include "core/rebuild/fcpxml_generator.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/common/file_output.h"
#include "core/rebuild/demo_timeline.h"
#include "core/rebuild/fcpxml_validator.h"
#include "core/rebuild/xml_tree.h"
#include "tests/core/rebuild/rebuild_fixtures.h"

namespace norvane {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

ResolveRebuildAudioInput audio(std::int64_t event, const std::string& key, const std::string& name,
                               std::int64_t frames, const std::string& timecode,
                               RationalTime start) {
    return {"/takes/" + name + ".wav", name, event, timecode, frames, 48000, 1, key, start, {}};
}

StereoMixInfo mix(std::int64_t frames) {
    return {"/takes/mix.wav", frames, 48000, 2};
}

// Every element named `name` in document order.
std::vector<const XMLNode*> all(const XMLNode& node, std::string_view name) {
    std::vector<const XMLNode*> found;
    if (node.name == name) {
        found.push_back(&node);
    }
    for (const auto& child : node.children) {
        const auto below = all(*child, name);
        found.insert(found.end(), below.begin(), below.end());
    }
    return found;
}

std::string attrs(const XMLNode& node) {
    std::string out = node.name;
    for (const auto& [k, v] : node.attrs) {
        out += " " + k + "=" + v;
    }
    return out;
}

std::vector<std::string> childAttrs(const XMLNode& node) {
    std::vector<std::string> out;
    for (const auto& child : node.children) {
        out.push_back(attrs(*child));
    }
    return out;
}

// Both checks every generated document must pass.
void expectValid(const std::string& xml) {
    EXPECT_EQ(testing::dtdProblems(xml), "");
    auto own = validateGeneratedFCPXML(xml);
    EXPECT_FALSE(own.hasErrors()) << own.issues.front().message;
}

std::string twoCameraSource() {
    DemoTimelineSpec recipe;
    recipe.lanes = {{"CamA", {{"01:00:00:00", RationalTime::seconds(120)}}},
                    {"CamB", {{"01:00:00:00", RationalTime::seconds(30)}}}};
    return makeDemoSourceTimeline(recipe);
}

std::vector<ResolveRebuildAudioInput> twoEvents() {
    return {audio(1, "Trk1", "evt1_trk1", 480001, "01:00:10:00", RationalTime(3610, 1)),
            audio(1, "Trk2", "evt1_trk2", 384000, "01:00:10:00", RationalTime(3610, 1)),
            audio(2, "Trk1", "evt2_trk1", 240000, "01:01:00:12", RationalTime(91512, 25))};
}

TEST(FCPXMLGenerator, PlacesEventsCamerasAndTracksOnExactTimes) {
    SourceContext context = readSourceTimeline(twoCameraSource());
    auto output = generateFCPXML(context, twoEvents(), mix(48000 * 15), {});
    expectValid(output.xml);
    auto root = parseXMLTree(output.xml);
    auto sequence = all(*root, "sequence");
    ASSERT_EQ(sequence.size(), 1u);
    EXPECT_EQ(attrs(*sequence[0]),
              "sequence tcStart=3600/1s tcFormat=NDF duration=376/25s format=r1");

    const auto& gaps = root->findDescendant("spine")->children;
    ASSERT_EQ(gaps.size(), 2u);
    // Event 1: 480001 samples round up to 251 frames at 25 fps.
    EXPECT_EQ(attrs(*gaps[0]), "gap name=Gap start=3610/1s offset=3600/1s duration=251/25s");
    EXPECT_EQ(attrs(*gaps[1]), "gap name=Gap start=91512/25s offset=90251/25s duration=5/1s");

    EXPECT_THAT(childAttrs(*gaps[0]),
                ElementsAre("asset-clip lane=1 ref=cam1 name=CamA start=3610/1s offset=3610/1s "
                            "duration=251/25s tcFormat=NDF",
                            "asset-clip lane=2 ref=cam2 name=CamB start=3610/1s offset=3610/1s "
                            "duration=251/25s tcFormat=NDF",
                            // Audio durations round up to whole frames; starts
                            // inside the files stay sample exact.
                            "asset-clip lane=-1 name=mix.wav start=0/1s enabled=1 ref=rStereoMix "
                            "duration=251/25s offset=3610/1s",
                            "asset-clip lane=-2 name=evt1_trk1.wav start=3610/1s enabled=1 "
                            "ref=rA_1_evt1_trk1 duration=251/25s offset=3610/1s",
                            "asset-clip lane=-3 name=evt1_trk2.wav start=3610/1s enabled=1 "
                            "ref=rA_2_evt1_trk2 duration=8/1s offset=3610/1s"));

    // CamB's clip ends at 01:00:30:00: lane 2 holds a gap; Trk2 is missing too.
    ASSERT_THAT(childAttrs(*gaps[1]),
                ElementsAre("asset-clip lane=1 ref=cam1 name=CamA start=91512/25s "
                            "offset=91512/25s duration=5/1s tcFormat=NDF",
                            "spine lane=2 offset=91512/25s",
                            "asset-clip lane=-1 name=mix.wav start=480001/48000s enabled=1 "
                            "ref=rStereoMix duration=5/1s offset=91512/25s",
                            "asset-clip lane=-2 name=evt2_trk1.wav start=91512/25s enabled=1 "
                            "ref=rA_3_evt2_trk1 duration=5/1s offset=91512/25s",
                            "spine lane=-3 offset=91512/25s"));
    EXPECT_EQ(attrs(*gaps[1]->children[1]->children[0]),
              "gap name=Gap start=91512/25s offset=0/1s duration=5/1s");

    EXPECT_THAT(testing::texts(output.analysis.issues),
                ElementsAre("Warning: Missing camera clip for lane V2 at event 2 (01:01:00:12); "
                            "emitting lane gap.",
                            "Info: Track Trk2 missing at event 2; emitting lane gap."));
    auto assets = all(*root, "asset");
    ASSERT_EQ(assets.size(), 6u);  // two cameras, the mix, three tracks
    EXPECT_EQ(attrs(*assets[2]),
              "asset id=rStereoMix name=mix.wav start=0/1s hasAudio=1 audioChannels=2 "
              "audioSources=1 duration=15/1s");
}

// Insert Gap is the first test's default; the other two write no lane gap.
TEST(FCPXMLGenerator, SkipClipAndFailExportWriteNoLaneGap) {
    SourceContext context = readSourceTimeline(twoCameraSource());
    for (auto behaviour : {MissingCameraBehavior::skipClip, MissingCameraBehavior::failExport}) {
        ResolveRebuildOptions options;
        options.missingCameraBehavior = behaviour;
        auto output = generateFCPXML(context, twoEvents(), mix(48000 * 15), options);
        expectValid(output.xml);
        EXPECT_EQ(all(*parseXMLTree(output.xml), "spine").size(), 2u);  // the main and Trk2's
        EXPECT_EQ(testing::texts(output.analysis.issues).front(),
                  behaviour == MissingCameraBehavior::skipClip
                      ? "Warning: Missing camera clip for lane V2 at event 2 (01:01:00:12); "
                        "skipping clip."
                      : "Error: Missing camera clip for lane V2 at event 2 (01:01:00:12); "
                        "failing export.");
    }
}

TEST(FCPXMLGenerator, DuplicatesEscapingAndAssetIDs) {
    SourceContext context = readSourceTimeline(twoCameraSource());
    std::string odd = "evt1 \"A&B\" <x> Trk1";
    auto inputs = std::vector<ResolveRebuildAudioInput>{
        audio(1, "Trk1", odd, 48000, "01:00:10:00", RationalTime(3610, 1)),
        audio(1, "Trk1", "evt1_copy", 48000, "01:00:10:00", RationalTime(3610, 1))};
    StereoMixInfo stereo{"/takes/Mix & \"Final\".wav", 48000, 48000, 2};
    auto output = generateFCPXML(context, inputs, stereo, {});
    expectValid(output.xml);
    EXPECT_THAT(testing::texts(output.analysis.issues),
                ElementsAre("Warning: Duplicate track Trk1 at event 1; keeping " + odd +
                            ".wav, ignoring evt1_copy.wav."));
    EXPECT_THAT(output.xml, HasSubstr("name=\"evt1 &quot;A&amp;B&quot; &lt;x&gt; Trk1.wav\""));
    EXPECT_THAT(output.xml, HasSubstr("name=\"Mix &amp; &quot;Final&quot;.wav\""));
    EXPECT_THAT(output.xml, HasSubstr("src=\"file:///takes/Mix%20&amp;%20%22Final%22.wav\""));
    EXPECT_THAT(output.xml, HasSubstr("id=\"rA_1_evt1_a_b_x_trk1\""));
    EXPECT_THAT(output.xml, ::testing::Not(HasSubstr("evt1_copy")));
    EXPECT_EQ(syncedAssetID(7, "Évt 12--Trk_3"), "rA_7__vt_12_trk_3");
    EXPECT_EQ(escapeXMLAttribute("&amp;\"<>"), "&amp;amp;&quot;&lt;&gt;");
    // A URL names the file exactly: a space and a non-ASCII letter are escaped.
    EXPECT_EQ(fileURL("/\xC3\x9C ber/x#1.wav"), "file:///%C3%9C%20ber/x%231.wav");
}

TEST(FCPXMLGenerator, DefaultsForBareSourcesAndBadTimecodes) {
    // No format element: 24 fps and the fixed format line.
    SourceContext context = readSourceTimeline(testing::sourceDocument(
        "<asset id=\"v\" hasVideo=\"1\" name=\"V\" src=\"file:///v.mov\"/>", "",
        "<asset-clip ref=\"v\" lane=\"3\" name=\"V\" start=\"0/1s\" duration=\"86400/1s\"/>"));
    auto inputs = std::vector<ResolveRebuildAudioInput>{
        audio(4, "Trk1", "empty", 0, "UNRESOLVED", RationalTime::zero())};
    auto output = generateFCPXML(context, inputs, mix(0), {});
    EXPECT_THAT(output.xml,
                HasSubstr("\n    <format id=\"r0\" name=\"FFVideoFormat1080p24\" "
                          "frameDuration=\"1/24s\" width=\"1920\" height=\"1080\"/>\n"));
    EXPECT_THAT(testing::texts(output.analysis.issues),
                ElementsAre("Error: Could not parse event timecode for order 4: UNRESOLVED",
                            "Warning: Event 4 had zero duration clips; defaulting to 1s."));
    auto root = parseXMLTree(output.xml);
    auto gap = root->findDescendant("spine")->children.at(0).get();
    EXPECT_EQ(attrs(*gap), "gap name=Gap start=0/1s offset=3600/1s duration=1/1s");
    // The camera clip covers 00:00:00:00; the empty file gets the event's length.
    // (an empty stereo mix gets no clip)
    EXPECT_THAT(childAttrs(*gap),
                ElementsAre("asset-clip lane=1 ref=v name=V start=0/1s offset=0/1s duration=1/1s",
                            "asset-clip lane=-2 name=empty.wav start=0/1s enabled=1 ref=rA_1_empty "
                            "duration=1/1s offset=0/1s"));
    // The empty mix's zero-length asset passes the DTD; the build's own check
    // refuses it (the engine's test).
    EXPECT_EQ(testing::dtdProblems(output.xml), "");
}

TEST(FCPXMLGenerator, DoubleLTCCountsTimecodeAtHalfTheSequenceRate) {
    DemoTimelineSpec recipe;
    recipe.rateNumerator = 50;
    recipe.lanes = {{"Cam", {{"01:00:00:00", RationalTime::seconds(10)}}}};
    SourceContext context = readSourceTimeline(makeDemoSourceTimeline(recipe));
    EXPECT_EQ(context.frameRate.numerator, 50);
    ResolveRebuildOptions options;
    options.videoFrameRateMode = VideoFrameRateMode::doubleLTC;
    auto inputs = std::vector<ResolveRebuildAudioInput>{
        audio(1, "Trk1", "e1", 48000, "01:00:00:24", RationalTime(90024, 25))};
    auto output = generateFCPXML(context, inputs, mix(48000), options);
    expectValid(output.xml);
    EXPECT_EQ(output.plan.timecodeRate.label, "LTC 25");
    EXPECT_EQ(output.plan.events.at(0).time, RationalTime(90024, 25));  // frame 24 of 25
    EXPECT_TRUE(output.analysis.issues.empty());

    // 25p: half would be 12.5, no LTC rate. The events still stand where the
    // 25 fps timecode puts them.
    recipe.rateNumerator = 25;
    context = readSourceTimeline(makeDemoSourceTimeline(recipe));
    output = generateFCPXML(context, inputs, mix(48000), options);
    EXPECT_THAT(testing::texts(output.analysis.issues),
                ElementsAre("Error: Double LTC needs a 47.952, 48, 50, 59.94 or 60 fps sequence; "
                            "this sequence runs at 25 fps."));
    EXPECT_EQ(output.plan.events.at(0).time, RationalTime(90024, 25));
    EXPECT_TRUE(output.analysis.events.at(0).cameraMatches.at(0).hasMatch);
}

TEST(FCPXMLGenerator, CameraClipsStopWhereTheirMediaEnds) {
    DemoTimelineSpec recipe;
    recipe.lanes = {{"CamA", {{"01:00:00:00", RationalTime::seconds(10)}}}};
    SourceContext context = readSourceTimeline(makeDemoSourceTimeline(recipe));
    // Ten seconds of sound from 01:00:05:00: the camera ran out at 01:00:10:00.
    auto inputs = std::vector<ResolveRebuildAudioInput>{
        audio(1, "Trk1", "e1", 480000, "01:00:05:00", RationalTime(3605, 1))};
    auto output = generateFCPXML(context, inputs, mix(480000), {});
    expectValid(output.xml);
    EXPECT_THAT(testing::texts(output.analysis.issues),
                ElementsAre("Warning: Lane V1 at event 1: camera clip CamA trimmed by 5.000s "
                            "where its media does not cover the event; emitting lane gap."));
    auto root = parseXMLTree(output.xml);
    auto gap = root->findDescendant("spine")->children.at(0).get();
    EXPECT_EQ(attrs(*gap->children[0]),
              "asset-clip lane=1 ref=cam1 name=CamA start=3605/1s offset=3605/1s duration=5/1s "
              "tcFormat=NDF");
    EXPECT_EQ(attrs(*gap->children[1]), "spine lane=1 offset=3610/1s");
    EXPECT_EQ(attrs(*gap->children[1]->children[0]),
              "gap name=Gap start=3610/1s offset=0/1s duration=5/1s");
}

TEST(FCPXMLGenerator, TimelineAndEventsStandOnTheSequenceFrameGrid) {
    // 23.976 NDF: one hour of the sequence's own timecode is 86400 frames.
    DemoTimelineSpec ntsc;
    ntsc.rateNumerator = 24000;
    ntsc.rateDenominator = 1001;
    ntsc.lanes = {{"Cam", {{"01:00:00:00", RationalTime::seconds(600)}}}};
    SourceContext slow = readSourceTimeline(makeDemoSourceTimeline(ntsc));
    auto inputs = std::vector<ResolveRebuildAudioInput>{
        audio(1, "Trk1", "e1", 48000, "01:00:10:00", RationalTime::zero())};
    auto output = generateFCPXML(slow, inputs, mix(48000), {});
    expectValid(output.xml);
    auto root = parseXMLTree(output.xml);
    EXPECT_EQ(root->findDescendant("sequence")->attr("tcStart"), "18018/5s");  // 3603.6 s
    EXPECT_EQ(root->findDescendant("spine")->children.at(0)->attr("offset"), "18018/5s");

    // A 23.976 recorder in a 24p sequence: its 01:00:10:00 counts 86640
    // frames of 1001/24000 s (3613.61 s), placed on the nearest 24p frame.
    DemoTimelineSpec film;
    film.rateNumerator = 24;
    film.lanes = {{"Cam", {{"01:00:00:00", RationalTime::seconds(600)}}}};
    SourceContext context = readSourceTimeline(makeDemoSourceTimeline(film));
    inputs[0].timecodeRate = *frameRateConfig(FrameRatePreset::fps23_976);
    output = generateFCPXML(context, inputs, mix(48000), {});
    expectValid(output.xml);
    EXPECT_EQ(output.plan.events.at(0).time, RationalTime(86727, 24));
    inputs[0].timecodeRate.reset();
    EXPECT_EQ(generateFCPXML(context, inputs, mix(48000), {}).plan.events.at(0).time,
              RationalTime(3610, 1));
}

}  // namespace
}  // namespace norvane
