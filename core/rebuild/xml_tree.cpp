#include "core/rebuild/xml_tree.h"

#include <expat.h>

#include <algorithm>
#include <vector>

namespace norvane {

std::optional<std::string_view> XMLNode::attr(std::string_view key) const {
    for (const auto& [k, v] : attrs) {
        if (k == key) {
            return std::string_view(v);
        }
    }
    return std::nullopt;
}

const XMLNode* XMLNode::firstChild(std::string_view childName) const {
    for (const auto& child : children) {
        if (child->name == childName) {
            return child.get();
        }
    }
    return nullptr;
}

const XMLNode* XMLNode::findDescendant(std::string_view elementName) const {
    // Iterative pre-order walk: documents may be deep.
    std::vector<std::pair<const XMLNode*, std::size_t>> stack{{this, 0}};
    while (!stack.empty()) {
        auto& [node, next] = stack.back();
        if (next == node->children.size()) {
            stack.pop_back();
            continue;
        }
        const XMLNode* child = node->children[next++].get();
        if (child->name == elementName) {
            return child;
        }
        stack.emplace_back(child, 0);
    }
    return nullptr;
}

XMLParseError::XMLParseError(const std::string& description, std::int64_t line, std::int64_t column)
    : Error("XML parse error at line " + std::to_string(line) + ", column " +
            std::to_string(column) + ": " + description),
      line_(line),
      column_(column) {}

namespace {

struct TreeBuilder {
    XML_Parser parser = nullptr;
    std::unique_ptr<XMLNode> root;
    std::vector<XMLNode*> stack;
    std::optional<std::string> refusal;  // why we stopped the parser ourselves

    void refuse(std::string why) {
        if (!refusal) {
            refusal = std::move(why);
        }
        XML_StopParser(parser, XML_FALSE);
    }
};

void XMLCALL onStart(void* userData, const XML_Char* name, const XML_Char** atts) {
    auto* builder = static_cast<TreeBuilder*>(userData);
    if (builder->refusal) {
        return;
    }
    if (builder->stack.size() >= static_cast<std::size_t>(kMaxXMLDepth)) {
        builder->refuse("elements nested deeper than " + std::to_string(kMaxXMLDepth) + " levels");
        return;
    }
    auto node = std::make_unique<XMLNode>();
    node->name = name;
    for (int i = 0; atts[i] != nullptr; i += 2) {
        node->attrs.emplace_back(atts[i], atts[i + 1]);
    }
    XMLNode* raw = node.get();
    if (builder->stack.empty()) {
        if (builder->root) {
            builder->refuse("more than one root element");
            return;
        }
        builder->root = std::move(node);
    } else {
        XMLNode* parent = builder->stack.back();
        raw->parent = parent;
        parent->children.push_back(std::move(node));
    }
    builder->stack.push_back(raw);
}

void XMLCALL onEnd(void* userData, const XML_Char*) {
    auto* builder = static_cast<TreeBuilder*>(userData);
    if (!builder->stack.empty()) {
        builder->stack.pop_back();
    }
}

void XMLCALL onEntityDecl(void* userData, const XML_Char*, int, const XML_Char*, int,
                          const XML_Char*, const XML_Char*, const XML_Char*, const XML_Char*) {
    static_cast<TreeBuilder*>(userData)->refuse("entity declarations are not allowed");
}

struct ParserDeleter {
    void operator()(XML_Parser p) const { XML_ParserFree(p); }
};

}  // namespace

std::unique_ptr<XMLNode> parseXMLTree(std::string_view text) {
    // The encoding argument overrides any declaration in the document: callers
    // have already checked that the bytes are UTF-8.
    std::unique_ptr<XML_ParserStruct, ParserDeleter> parser(XML_ParserCreate("UTF-8"));
    if (!parser) {
        throw XMLParseError("out of memory", 0, 0);
    }
    TreeBuilder builder;
    builder.parser = parser.get();
    XML_SetUserData(parser.get(), &builder);
    XML_SetElementHandler(parser.get(), onStart, onEnd);
    XML_SetEntityDeclHandler(parser.get(), onEntityDecl);
    // Parameter entities and external subsets are never read
    // (XML_SetParamEntityParsing stays at its default, NEVER).

    constexpr std::size_t kChunk = 1 << 20;
    std::size_t offset = 0;
    bool ok = true;
    do {
        std::size_t length = std::min(kChunk, text.size() - offset);
        bool last = offset + length == text.size();
        if (XML_Parse(parser.get(), text.data() + offset, static_cast<int>(length),
                      last ? XML_TRUE : XML_FALSE) != XML_STATUS_OK) {
            ok = false;
            break;
        }
        offset += length;
    } while (offset < text.size());

    auto line = static_cast<std::int64_t>(XML_GetCurrentLineNumber(parser.get()));
    auto column = static_cast<std::int64_t>(XML_GetCurrentColumnNumber(parser.get())) + 1;
    if (builder.refusal) {
        throw XMLParseError(*builder.refusal, line, column);
    }
    if (!ok) {
        const XML_LChar* message = XML_ErrorString(XML_GetErrorCode(parser.get()));
        throw XMLParseError(message ? message : "unknown error", line, column);
    }
    if (!builder.root) {
        throw XMLParseError("no element found", line, column);
    }
    return std::move(builder.root);
}

bool isValidUTF8(std::string_view bytes) {
    std::size_t i = 0;
    const std::size_t n = bytes.size();
    while (i < n) {
        auto c = static_cast<unsigned char>(bytes[i]);
        if (c < 0x80) {
            ++i;
            continue;
        }
        int extra = 0;
        std::uint32_t code = 0;
        std::uint32_t minimum = 0;
        if ((c & 0xE0) == 0xC0) {
            extra = 1;
            code = c & 0x1F;
            minimum = 0x80;
        } else if ((c & 0xF0) == 0xE0) {
            extra = 2;
            code = c & 0x0F;
            minimum = 0x800;
        } else if ((c & 0xF8) == 0xF0) {
            extra = 3;
            code = c & 0x07;
            minimum = 0x10000;
        } else {
            return false;
        }
        if (n - i <= static_cast<std::size_t>(extra)) {
            return false;
        }
        for (int k = 1; k <= extra; ++k) {
            auto cc = static_cast<unsigned char>(bytes[i + k]);
            if ((cc & 0xC0) != 0x80) {
                return false;
            }
            code = (code << 6) | (cc & 0x3F);
        }
        if (code < minimum || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) {
            return false;
        }
        i += static_cast<std::size_t>(extra) + 1;
    }
    return true;
}

}  // namespace norvane
