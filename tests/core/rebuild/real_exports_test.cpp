// Every real export in the shared fixtures, read by the source reader and
// compared with a census written here from the FCPXML DTD's story elements.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>

#include "core/common/file_output.h"
#include "core/rebuild/fcpxml_generator.h"
#include "core/rebuild/fcpxml_validator.h"
#include "core/rebuild/source_timeline.h"
#include "core/rebuild/xml_tree.h"
#include "tests/core/rebuild/rebuild_fixtures.h"
#include "tests/support/test_support.h"

namespace norvane {
namespace {

namespace fs = std::filesystem;

std::vector<fs::path> exports() {
    std::vector<fs::path> files;
    fs::path dir = testing::sharedFixturesDir() / "fcpxml";
    std::error_code ec;
    for (const auto& entry : fs::directory_iterator(dir, ec)) {
        if (entry.path().extension() == ".fcpxml") {
            files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

// The census: story elements of the DTD that can show picture, counted per
// lane. A story item stands directly in the primary spine or a connected
// storyline (a spine with a lane), or carries a lane of its own (connected
// to another item); its lane is the sum of the lane attributes on it and its
// ancestors. A clip's own content (children without a lane, its inner spine)
// is part of that clip, not another clip.
struct Census {
    std::set<std::string> videoAssets, multicams, compounds;
    std::map<std::int64_t, int> perLane;

    static std::int64_t laneOf(const XMLNode& node) {
        auto lane = node.attr("lane");
        return lane ? std::stoll(std::string(*lane)) : 0;
    }

    bool showsPicture(const XMLNode& node) const {
        auto ref = std::string(node.attr("ref").value_or(""));
        if (node.name == "asset-clip" || node.name == "video") {
            return videoAssets.contains(ref);
        }
        if (node.name == "mc-clip") {
            return multicams.contains(ref);
        }
        if (node.name == "ref-clip") {
            return compounds.contains(ref) && node.attr("srcEnable") != "audio";
        }
        if (node.name == "clip" || node.name == "sync-clip") {
            for (const auto& child : node.children) {
                if (!child->hasAttr("lane") && showsPicture(*child)) {
                    return true;
                }
                if (child->name == "spine" && !child->hasAttr("lane")) {
                    for (const auto& inner : child->children) {
                        if (showsPicture(*inner)) {
                            return true;
                        }
                    }
                }
            }
        }
        return false;
    }

    void walk(const XMLNode& node, std::int64_t lane, bool storyline) {
        for (const auto& child : node.children) {
            std::int64_t childLane = lane + laneOf(*child);
            bool storyItem = storyline || child->hasAttr("lane");
            if (storyItem && showsPicture(*child)) {
                ++perLane[childLane];
            }
            if (!storyItem) {
                continue;  // a clip's own content
            }
            walk(*child, childLane, child->name == "spine");
        }
    }

    explicit Census(const XMLNode& root) {
        const XMLNode* resources = root.findDescendant("resources");
        for (const auto& r : resources->children) {
            std::string id(r->attr("id").value_or(""));
            if (r->name == "asset" && r->attr("hasVideo") == "1") {
                videoAssets.insert(id);
            } else if (r->name == "media" && r->firstChild("multicam") != nullptr) {
                multicams.insert(id);
            } else if (r->name == "media" && r->firstChild("sequence") != nullptr) {
                compounds.insert(id);
            }
        }
        // The first project's sequence; a document without a project (a
        // lone compound clip) is read from its first sequence.
        const XMLNode* project = root.findDescendant("project");
        const XMLNode* sequence = (project != nullptr ? *project : root).findDescendant("sequence");
        walk(*sequence->firstChild("spine"), 0, true);
    }
};

TEST(RealExports, EveryVideoClipOfTheProjectIsReadOnItsLane) {
    auto files = exports();
    if (files.empty()) {
        GTEST_SKIP() << "shared fixtures not found under " << testing::sharedFixturesDir();
    }
    int clipsSeen = 0;
    for (const fs::path& file : files) {
        SCOPED_TRACE(file.filename().string());
        std::string text = testing::readText(file);
        SourceContext context = readSourceTimeline(text);
        Census census(*parseXMLTree(text));

        std::map<std::int64_t, int> read;
        for (const VideoSource& source : context.videoSources) {
            read[source.rawLane] = static_cast<int>(source.candidates.size());
        }
        EXPECT_EQ(read, census.perLane);
        for (const auto& [lane, count] : census.perLane) {
            clipsSeen += count;
        }
    }
    // The collection holds well over a hundred clips; a census that finds
    // none would prove nothing.
    EXPECT_GE(clipsSeen, 100);
}

// One ten-minute event per camera lane, timed one frame into the lane's
// first clip: longer than any clip of the collection, so every camera clip
// must be trimmed to its media.
std::vector<ResolveRebuildAudioInput> eventsIntoEachLane(const SourceContext& context) {
    std::vector<ResolveRebuildAudioInput> inputs;
    const FrameRateConfig& rate = context.frameRate;
    for (const VideoSource& source : context.videoSources) {
        std::int64_t frame = std::visit(
            [](const auto& c) {
                if constexpr (std::is_same_v<std::decay_t<decltype(c)>, CameraCandidate>) {
                    return c.startFrame;
                } else {
                    return c.multicam.startFrame;
                }
            },
            source.candidates.front());
        ResolveRebuildAudioInput input;
        input.eventOrder = static_cast<std::int64_t>(inputs.size()) + 1;
        input.name = "evt" + std::to_string(input.eventOrder) + "_trk1";
        input.url = "/takes/" + input.name + ".wav";
        input.eventTimecode = TimecodeMath::timecodeFromFrameCount(frame + 1, rate).description();
        input.frameCount = 600 * 48000;
        input.sampleRate = 48000;
        input.channels = 1;
        inputs.push_back(input);
    }
    return inputs;
}

TEST(RealExports, RebuiltTimelinesPassTheDTDTheFrameGridAndStayInsideTheMedia) {
    auto files = exports();
    if (files.empty()) {
        GTEST_SKIP() << "shared fixtures not found under " << testing::sharedFixturesDir();
    }
    int built = 0;
    for (const fs::path& file : files) {
        SCOPED_TRACE(file.filename().string());
        SourceContext context = readSourceTimeline(testing::readText(file));
        if (context.videoSources.empty()) {
            continue;
        }
        auto inputs = eventsIntoEachLane(context);
        StereoMixInfo mix{"/takes/mix.wav", 3600 * 48000, 48000, 2};
        ResolveRebuildBuildOutput output = generateFCPXML(context, inputs, mix, {});
        ++built;

        EXPECT_EQ(testing::dtdProblems(output.xml), "");
        ResolveGeneratedFCPXMLValidation check = validateGeneratedFCPXML(output.xml);
        ASSERT_FALSE(check.issues.empty());
        EXPECT_EQ(check.issues.front().message, "Generated FCPXML validation passed.");

        // Each event finds the clip it was timed into, trimmed to its media.
        ASSERT_EQ(output.analysis.events.size(), context.videoSources.size());
        for (std::size_t i = 0; i < context.videoSources.size(); ++i) {
            EXPECT_TRUE(output.analysis.events[i].cameraMatches.at(i).hasMatch)
                << "event " << i + 1;
        }
        bool trimmed = std::any_of(output.analysis.issues.begin(), output.analysis.issues.end(),
                                   [](const ResolveRebuildIssue& issue) {
                                       return issue.message.find("trimmed by") != std::string::npos;
                                   });
        EXPECT_TRUE(trimmed);
        // Newer exports are read by the same rules, and the analysis says so.
        bool newer = context.version != "1.9" && context.version != "1.8";
        bool noted = std::any_of(output.analysis.issues.begin(), output.analysis.issues.end(),
                                 [&](const ResolveRebuildIssue& issue) {
                                     return issue.message == "Source FCPXML version " +
                                                                 context.version +
                                                                 " is newer than 1.9; it was "
                                                                 "read by the 1.9 rules.";
                                 });
        EXPECT_EQ(noted, newer) << context.version;
    }
    EXPECT_GE(built, 12);
}

}  // namespace
}  // namespace norvane
