#include "core/rebuild/xml_tree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>

namespace norvane {
namespace {

using ::testing::HasSubstr;

std::string parseError(const std::string& text) {
    try {
        parseXMLTree(text);
    } catch (const XMLParseError& e) {
        return e.message();
    }
    return "(parsed)";
}

TEST(XMLTree, KeepsElementsAndAttributesOnly) {
    auto root = parseXMLTree(
        "<?xml version=\"1.0\"?>\n<!-- c --><a x=\"1\" y='&amp;&lt;&quot;'>text<b/><?pi x?>"
        "<c><b z=\"2\"/></c></a>");
    ASSERT_TRUE(root);
    EXPECT_EQ(root->name, "a");
    EXPECT_EQ(root->parent, nullptr);
    ASSERT_EQ(root->attrs.size(), 2u);
    EXPECT_EQ(root->attrs[0].first, "x");
    EXPECT_EQ(root->attr("y"), "&<\"");
    EXPECT_FALSE(root->attr("z"));
    ASSERT_EQ(root->children.size(), 2u);
    EXPECT_EQ(root->children[1]->parent, root.get());
    EXPECT_EQ(root->firstChild("b"), root->children[0].get());
    // Depth-first document order: the direct <b> comes before the nested one.
    EXPECT_EQ(root->findDescendant("b"), root->children[0].get());
    EXPECT_EQ(root->children[1]->findDescendant("b")->attr("z"), "2");
    EXPECT_EQ(root->findDescendant("a"), nullptr);  // strictly below
}

TEST(XMLTree, RefusesEntityDeclarationsAndExternalReferences) {
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
}

TEST(XMLTree, RefusesDeepNestingQuickly) {
    std::string ok;
    for (int i = 0; i < kMaxXMLDepth; ++i) {
        ok += "<e>";
    }
    for (int i = 0; i < kMaxXMLDepth; ++i) {
        ok += "</e>";
    }
    EXPECT_NO_THROW(parseXMLTree(ok));

    std::string deep;
    for (int i = 0; i < 200000; ++i) {
        deep += "<e>";
    }
    EXPECT_THAT(parseError(deep), HasSubstr("nested deeper than 256 levels"));
}

TEST(XMLTree, ValidatesUTF8Strictly) {
    EXPECT_TRUE(isValidUTF8("plain ascii"));
    EXPECT_TRUE(isValidUTF8("caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x8E\xAC"));
    EXPECT_FALSE(isValidUTF8("\xC3"));                  // truncated
    EXPECT_FALSE(isValidUTF8("caf\xE9"));               // Latin-1
    EXPECT_FALSE(isValidUTF8("\xC0\xAF"));              // overlong "/"
    EXPECT_FALSE(isValidUTF8("\xED\xA0\x80"));          // surrogate
    EXPECT_FALSE(isValidUTF8("\xF4\x90\x80\x80"));      // above U+10FFFF
    EXPECT_FALSE(isValidUTF8("\xE2\x82"));              // truncated at the end
    EXPECT_FALSE(isValidUTF8(std::string("\x80", 1)));  // lone continuation
}

}  // namespace
}  // namespace norvane
