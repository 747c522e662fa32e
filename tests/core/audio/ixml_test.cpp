#include "core/audio/ixml.h"

#include <gtest/gtest.h>

namespace norvane {
namespace {

const FrameRateConfig k23976 = *frameRateConfig(FrameRatePreset::fps23_976);
const FrameRateConfig k2997DF = *frameRateConfig(FrameRatePreset::fps29_97DF);

// A recorder's own document through a merge is the stamp's metadata test
// (and through a split, the split's); here what those do not reach.
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
