#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/common/error.h"

namespace norvane {

// One element of a parsed document: its name, its attributes in document order
// and its child elements. Text, comments and processing instructions are not
// kept. Children are owned by their parent; `parent` is a plain back pointer
// (null for the root).
struct XMLNode {
    std::string name;
    std::vector<std::pair<std::string, std::string>> attrs;
    std::vector<std::unique_ptr<XMLNode>> children;
    XMLNode* parent = nullptr;

    // The value of attribute `key`, or nullopt. The view lives as long as the node.
    std::optional<std::string_view> attr(std::string_view key) const;
    bool hasAttr(std::string_view key) const { return attr(key).has_value(); }
    // The first direct child named `childName`.
    const XMLNode* firstChild(std::string_view childName) const;
    // The first element named `elementName` strictly below this node, in
    // depth-first document order.
    const XMLNode* findDescendant(std::string_view elementName) const;
};

// A document that could not be parsed: the parser's own description with the
// line and column where it stopped, e.g.
// "XML parse error at line 3, column 7: mismatched tag".
class XMLParseError : public Error {
  public:
    XMLParseError(const std::string& description, std::int64_t line, std::int64_t column);
    std::int64_t line() const { return line_; }
    std::int64_t column() const { return column_; }

  private:
    std::int64_t line_;
    std::int64_t column_;
};

// Deepest element nesting a document may have.
inline constexpr int kMaxXMLDepth = 256;

// Parses UTF-8 text into an element tree (expat, the text always read as
// UTF-8). Hardened for documents from anywhere: no DTD or external entity is
// ever loaded, a document that declares entities is refused (so entity
// expansion cannot grow without bound), and nesting deeper than kMaxXMLDepth
// is refused. Throws XMLParseError; a document without any element is an error
// too ("no element found").
std::unique_ptr<XMLNode> parseXMLTree(std::string_view text);

// Whether `bytes` is well-formed UTF-8 (no overlong forms, no surrogates,
// nothing above U+10FFFF).
bool isValidUTF8(std::string_view bytes);

}  // namespace norvane
