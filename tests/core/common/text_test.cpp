#include "core/common/text.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace norvane {
namespace {

TEST(TextTest, FileBrowserOrder) {
    EXPECT_LT(fileBrowserCompare("Take 2", "Take 10"), 0);
    EXPECT_GT(fileBrowserCompare("Take 10", "Take 2"), 0);
    EXPECT_LT(fileBrowserCompare("a.wav", "B.wav"), 0);  // case does not come first
    EXPECT_TRUE(fileBrowserLess("T1_CH2.wav", "T1_CH10.wav"));
    std::vector<std::string> names = {"Take 10.wav", "take 1.wav", "Take 2.wav", "Take 1b.wav"};
    std::sort(names.begin(), names.end(),
              [](const std::string& a, const std::string& b) { return fileBrowserLess(a, b); });
    EXPECT_EQ(names,
              (std::vector<std::string>{"take 1.wav", "Take 1b.wav", "Take 2.wav", "Take 10.wav"}));
}

TEST(TextTest, ListsShowEightThenAnEllipsis) {
    std::vector<std::string> nine = {"1", "2", "3", "4", "5", "6", "7", "8", "9"};
    EXPECT_EQ(joinFirstEight(nine), "1, 2, 3, 4, 5, 6, 7, 8...");
    nine.pop_back();
    EXPECT_EQ(joinFirstEight(nine), "1, 2, 3, 4, 5, 6, 7, 8");
    EXPECT_EQ(joinFirstEight({}), "");
    EXPECT_EQ(splitOn("a,,b,", ","), (std::vector<std::string>{"a", "", "b", ""}));
}

TEST(TextTest, ValidUTF8ReplacesEveryBadByteAndKeepsGoodText) {
    const std::string fffd = "\xEF\xBF\xBD";
    EXPECT_EQ(validUTF8("Take 1 \xC3\xA9\xE2\x82\xAC\xF0\x9F\x8E\xAC"),
              "Take 1 \xC3\xA9\xE2\x82\xAC\xF0\x9F\x8E\xAC");
    EXPECT_EQ(validUTF8("bad\xFF\xFE.wav"), "bad" + fffd + fffd + ".wav");
    EXPECT_EQ(validUTF8("\xC0\xAF"), fffd + fffd);                        // overlong "/"
    EXPECT_EQ(validUTF8("\xED\xA0\x80"), fffd + fffd + fffd);             // a surrogate
    EXPECT_EQ(validUTF8("\xE2\x82"), fffd + fffd);                        // cut short at the end
    EXPECT_EQ(validUTF8("\xF4\x90\x80\x80"), fffd + fffd + fffd + fffd);  // past U+10FFFF
    EXPECT_EQ(validUTF8(std::string("a\0b", 3)), std::string("a\0b", 3));
}

}  // namespace
}  // namespace norvane
