#include "core/audio/ixml.h"

#include <gtest/gtest.h>

#include <map>
#include <set>

#include "core/audio/bwf_reader.h"
#include "core/audio/wav_file.h"
#include "tests/support/test_support.h"

namespace norvane {
namespace {

// Every element as "PATH/TO/NAME[n]" -> text, n counting same-named siblings.
void flattenInto(const IXMLElement& e, const std::string& path,
                 std::map<std::string, std::string>& out) {
    out[path] = e.text;
    std::map<std::string, int> seen;
    for (const IXMLElement& c : e.children) {
        flattenInto(c, path + "/" + c.name + "[" + std::to_string(seen[c.name]++) + "]", out);
    }
}
std::map<std::string, std::string> flatten(const IXMLElement& root) {
    std::map<std::string, std::string> out;
    flattenInto(root, root.name, out);
    return out;
}

IXMLElement recorderDocument(const std::string& fixture) {
    const auto path = testing::sharedFixture("field/" + fixture);
    if (path.empty()) {
        return {};
    }
    const auto text = BWFReader::ixmlText(WAVFile(path));
    EXPECT_TRUE(text);
    const auto doc = IXML::parse(text.value_or(""));
    EXPECT_TRUE(doc) << fixture;
    return doc.value_or(IXMLElement{});
}

const FrameRateConfig k23976 = *frameRateConfig(FrameRatePreset::fps23_976);
const FrameRateConfig k2997DF = *frameRateConfig(FrameRatePreset::fps29_97DF);

TEST(IXMLTest, RecorderDocumentsSurviveSerializeAndMerge) {
    for (const char* fixture :
         {"sd702T_A101_1.WAV", "zoomF8_TrL_R.WAV", "protools_A101_4.A1.wav"}) {
        SCOPED_TRACE(fixture);
        const IXMLElement doc = recorderDocument(fixture);
        if (doc.name.empty()) {
            return;
        }
        EXPECT_EQ(IXML::parse(IXML::serialize(doc)), doc);

        IXMLElement merged = doc;
        IXML::mergeStamp(merged, {k23976, {12, 39, 59, 0, false}, 2190940753ull, 48000});
        const auto before = flatten(doc);
        const auto after = flatten(merged);
        const std::set<std::string> stamped = {
            "BWFXML/SPEED[0]/TIMECODE_RATE[0]", "BWFXML/SPEED[0]/TIMECODE_FLAG[0]",
            "BWFXML/SPEED[0]/TIMESTAMP_SAMPLE_RATE[0]",
            "BWFXML/SPEED[0]/TIMESTAMP_SAMPLES_SINCE_MIDNIGHT_HI[0]",
            "BWFXML/SPEED[0]/TIMESTAMP_SAMPLES_SINCE_MIDNIGHT_LO[0]"};
        for (const auto& [path, text] : before) {
            ASSERT_TRUE(after.count(path)) << path;
            if (!stamped.count(path)) {
                EXPECT_EQ(after.at(path), text) << path;
            }
        }
        // Recorders have no top-level timecode elements: ours are added once.
        EXPECT_EQ(after.size(), before.size() + 3);
        EXPECT_EQ(merged.childText("TIMECODE"), "12:39:59:00");
        EXPECT_EQ(IXML::samplesSinceMidnight(merged), 2190940753ull);
        EXPECT_EQ(IXML::timecodeRate(merged), k23976);
    }
}

TEST(IXMLTest, MergeCreatesSpeedAndSplitsTheTimeReferenceAt32Bits) {
    IXMLElement doc = *IXML::parse("<BWFXML><SCENE>12</SCENE></BWFXML>");
    IXML::mergeStamp(doc, {k2997DF, {1, 0, 0, 2, true}, (1ull << 32) + 5, 96000});
    EXPECT_EQ(doc.childText("TIMECODE_RATE"), "29.97 DF");
    EXPECT_EQ(doc.childText("TIMECODE"), "01:00:00;02");
    const IXMLElement* speed = doc.child("SPEED");
    ASSERT_TRUE(speed);
    EXPECT_EQ(speed->childText("TIMECODE_RATE"), "30000/1001");
    EXPECT_EQ(speed->childText("TIMESTAMP_SAMPLES_SINCE_MIDNIGHT_HI"), "0000000001");
    EXPECT_EQ(speed->childText("TIMESTAMP_SAMPLES_SINCE_MIDNIGHT_LO"), "0000000005");
    EXPECT_EQ(IXML::timecodeRate(doc), k2997DF);
    // A second merge changes values, never duplicates elements.
    const std::size_t count = doc.children.size();
    IXML::mergeStamp(doc, {k23976, {2, 0, 0, 0, false}, 7, 48000});
    EXPECT_EQ(doc.children.size(), count);
    EXPECT_EQ(IXML::samplesSinceMidnight(doc), 7u);
}

TEST(IXMLTest, TextAttributesAndPaddingRoundTrip) {
    std::string text =
        "<?xml version=\"1.0\"?>\n<BWFXML v=\"a&quot;b&#9;c\">\n<NOTE>Tom &amp; Jerry &lt;3&#13;\n"
        "</NOTE><X-UNKNOWN><DEEP>1</DEEP></X-UNKNOWN><EMPTY/></BWFXML>";
    text += std::string(40, ' ') + std::string(3, '\0');  // recorders pad the chunk
    const auto doc = IXML::parse(text);
    ASSERT_TRUE(doc);
    EXPECT_EQ(doc->attributes[0].second, "a\"b\tc");
    EXPECT_EQ(doc->childText("NOTE"), "Tom & Jerry <3\r\n");
    EXPECT_EQ(doc->child("X-UNKNOWN")->childText("DEEP"), "1");
    EXPECT_EQ(IXML::parse(IXML::serialize(*doc)), doc);
}

TEST(IXMLTest, DocumentsThatAreNotWellFormedAreRefused) {
    for (const std::string& bad :
         {std::string("<BWFXML><SCENE>1</BWFXML>"), std::string(""), std::string("plain text"),
          std::string("<BWFXML><NOTE>\xFF</NOTE></BWFXML>"), std::string("<A/><B/>"),
          std::string("<!DOCTYPE x [<!ENTITY a \"aaaa\">]><BWFXML>&a;</BWFXML>")}) {
        EXPECT_FALSE(IXML::parse(bad)) << bad;
    }
    std::string deep;
    for (int i = 0; i < 100; ++i) {
        deep += "<A>";
    }
    EXPECT_FALSE(IXML::parse(deep));
}

}  // namespace
}  // namespace norvane
