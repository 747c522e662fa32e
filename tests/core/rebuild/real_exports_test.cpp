// Every real export in the shared fixtures, read by the source reader and
// compared with a census written here from the FCPXML DTD's story elements.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>

#include "core/common/file_output.h"
#include "core/rebuild/source_timeline.h"
#include "core/rebuild/xml_tree.h"
#include "tests/support/test_support.h"

namespace norvane {
namespace {

namespace fs = std::filesystem;

std::string readText(const fs::path& path) {
    ByteBuffer bytes = readWholeFile(path);
    return std::string(bytes.begin(), bytes.end());
}

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
        std::string text = readText(file);
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

}  // namespace
}  // namespace norvane
