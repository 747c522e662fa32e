#include "core/rebuild/xml_tree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include "tests/support/test_support.h"

namespace norvane {
namespace {

using ::testing::HasSubstr;

std::string parseError(const std::string& text) {
    return testing::thrownMessage([&] { parseXMLTree(text); });
}

TEST(XMLTree, RefusesEntityDeclarationsExternalReferencesAndDeepNesting) {
    std::string bomb = "<?xml version=\"1.0\"?><!DOCTYPE a [<!ENTITY l0 \"ha\">";
    for (int i = 1; i < 30; ++i) {
        bomb += "<!ENTITY l" + std::to_string(i) + " \"&l" + std::to_string(i - 1) + ";&l" +
                std::to_string(i - 1) + ";\">";
    }
    bomb += "]><a>&l29;</a>";
    auto begin = std::chrono::steady_clock::now();
    EXPECT_THAT(parseError(bomb), HasSubstr("entity declarations are not allowed"));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));

    EXPECT_THAT(parseError("<!DOCTYPE a [<!ENTITY x SYSTEM \"file:///etc/passwd\">]><a>&x;</a>"),
                HasSubstr("entity declarations are not allowed"));
    EXPECT_THAT(parseError("<!DOCTYPE a [<!ENTITY % p SYSTEM \"file:///etc/passwd\"> %p;]><a/>"),
                HasSubstr("entity declarations are not allowed"));
    // An external DTD is named but never read.
    auto root = parseXMLTree("<!DOCTYPE a SYSTEM \"/nonexistent/x.dtd\"><a/>");
    EXPECT_EQ(root->name, "a");
    const auto repeat = [](const std::string& text, int times) {
        std::string out;
        for (int i = 0; i < times; ++i) {
            out += text;
        }
        return out;
    };
    EXPECT_NO_THROW(parseXMLTree(repeat("<e>", kMaxXMLDepth) + repeat("</e>", kMaxXMLDepth)));
    EXPECT_THAT(parseError(repeat("<e>", 200000)), HasSubstr("nested deeper than 256 levels"));
}

TEST(XMLTree, ValidatesUTF8Strictly) {
    EXPECT_TRUE(isValidUTF8("caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x8E\xAC"));
    // Truncated, Latin-1, overlong "/", a surrogate, above U+10FFFF, cut at the
    // end, a lone continuation byte.
    for (const char* bad :
         {"\xC3", "caf\xE9", "\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xE2\x82", "\x80"}) {
        EXPECT_FALSE(isValidUTF8(bad)) << bad;
    }
}

}  // namespace
}  // namespace norvane
