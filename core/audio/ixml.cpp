#include "core/audio/ixml.h"

#include <expat.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <memory>
#include <utility>

#include <fmt/format.h>

#include "core/common/text.h"

namespace norvane {

const IXMLElement* IXMLElement::child(std::string_view childName) const {
    for (const IXMLElement& c : children) {
        if (c.name == childName) {
            return &c;
        }
    }
    return nullptr;
}

IXMLElement* IXMLElement::child(std::string_view childName) {
    return const_cast<IXMLElement*>(std::as_const(*this).child(childName));
}

std::optional<std::string> IXMLElement::childText(std::string_view childName) const {
    const IXMLElement* c = child(childName);
    return c ? std::optional(c->text) : std::nullopt;
}

IXMLElement& IXMLElement::ensureChild(std::string_view childName) {
    if (IXMLElement* c = child(childName)) {
        return *c;
    }
    // Blank text beside child elements is layout, as the parser reads it.
    if (text.find_first_not_of(" \t\r\n") == std::string::npos) {
        text.clear();
    }
    children.push_back(IXMLElement{std::string(childName), {}, {}, {}});
    return children.back();
}

void IXMLElement::setChildText(std::string_view childName, std::string value) {
    ensureChild(childName).text = std::move(value);
}

namespace IXML {

namespace {

// Deeper nesting than any iXML document has; refusing it bounds the recursion
// of serialize() and of the tree's copies.
constexpr std::size_t kMaxDepth = 64;

bool isBlank(std::string_view text) {
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; });
}

struct Builder {
    XML_Parser parser = nullptr;
    std::optional<IXMLElement> root;
    std::vector<IXMLElement*> stack;
    bool refused = false;

    void refuse() {
        refused = true;
        XML_StopParser(parser, XML_FALSE);
    }
};

void XMLCALL onStart(void* userData, const XML_Char* name, const XML_Char** atts) {
    auto* b = static_cast<Builder*>(userData);
    if (b->refused) {
        return;
    }
    if (b->stack.size() >= kMaxDepth || (b->stack.empty() && b->root)) {
        b->refuse();
        return;
    }
    IXMLElement element{name, {}, {}, {}};
    for (int i = 0; atts[i] != nullptr; i += 2) {
        element.attributes.emplace_back(atts[i], atts[i + 1]);
    }
    if (b->stack.empty()) {
        b->root = std::move(element);
        b->stack.push_back(&*b->root);
    } else {
        // Pointers into a parent's children stay valid: only the innermost
        // open element ever gets new children.
        b->stack.back()->children.push_back(std::move(element));
        b->stack.push_back(&b->stack.back()->children.back());
    }
}

void XMLCALL onEnd(void* userData, const XML_Char*) {
    auto* b = static_cast<Builder*>(userData);
    if (b->stack.empty()) {
        return;
    }
    IXMLElement* element = b->stack.back();
    if (!element->children.empty()) {
        // Between child elements text is layout; anything else is kept trimmed.
        element->text = isBlank(element->text) ? std::string() : trim(element->text);
    }
    b->stack.pop_back();
}

void XMLCALL onText(void* userData, const XML_Char* s, int length) {
    auto* b = static_cast<Builder*>(userData);
    if (!b->stack.empty()) {
        b->stack.back()->text.append(s, static_cast<std::size_t>(length));
    }
}

void XMLCALL onEntityDecl(void* userData, const XML_Char*, int, const XML_Char*, int,
                          const XML_Char*, const XML_Char*, const XML_Char*, const XML_Char*) {
    static_cast<Builder*>(userData)->refuse();
}

struct ParserDeleter {
    void operator()(XML_Parser p) const { XML_ParserFree(p); }
};

void escapeInto(std::string& out, std::string_view text, bool attribute) {
    for (char c : text) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            // A parser turns a raw CR into LF (and in attributes tabs and
            // line feeds into spaces): references keep them.
            case '\r':
                out += "&#13;";
                break;
            case '"':
                out += attribute ? "&quot;" : "\"";
                break;
            case '\t':
                out += attribute ? "&#9;" : "\t";
                break;
            case '\n':
                out += attribute ? "&#10;" : "\n";
                break;
            default:
                out += c;
        }
    }
}

void serializeInto(std::string& out, const IXMLElement& element, int depth) {
    const std::string indent(static_cast<std::size_t>(depth), '\t');
    out += indent + "<" + element.name;
    for (const auto& [key, value] : element.attributes) {
        out += " " + key + "=\"";
        escapeInto(out, value, true);
        out += "\"";
    }
    out += ">";
    escapeInto(out, element.text, false);
    if (!element.children.empty()) {
        out += "\n";
        for (const IXMLElement& c : element.children) {
            serializeInto(out, c, depth + 1);
        }
        out += indent;
    }
    out += "</" + element.name + ">\n";
}

std::optional<std::int64_t> parseInteger(std::string_view text) {
    const std::string t = trim(text);
    std::int64_t value = 0;
    const auto [end, ec] = std::from_chars(t.data(), t.data() + t.size(), value);
    if (ec != std::errc() || end != t.data() + t.size() || t.empty()) {
        return std::nullopt;
    }
    return value;
}

// "24000/1001", "25/1", "25", "23.976", "29.97 DF" (our own top-level label).
std::optional<FrameRateConfig> parseRate(std::string_view text, bool dropFrame) {
    std::string t = trim(text);
    if (const auto space = t.find(' '); space != std::string::npos) {
        t.resize(space);
    }
    FrameRateConfig rate;
    if (const auto slash = t.find('/'); slash != std::string::npos) {
        const auto n = parseInteger(std::string_view(t).substr(0, slash));
        const auto d = parseInteger(std::string_view(t).substr(slash + 1));
        if (!n || !d || *n <= 0 || *d <= 0) {
            return std::nullopt;
        }
        rate.numerator = *n;
        rate.denominator = *d;
    } else {
        double value = 0;
        const auto [end, ec] = std::from_chars(t.data(), t.data() + t.size(), value);
        if (ec != std::errc() || end != t.data() + t.size() || !(value > 0) || value > 1000) {
            return std::nullopt;
        }
        const double nominal = std::round(value);
        if (std::fabs(value - nominal) < 1e-6) {
            rate.numerator = static_cast<std::int64_t>(nominal);
            rate.denominator = 1;
        } else if (std::fabs(value - nominal * 1000.0 / 1001.0) < 0.005) {
            rate.numerator = static_cast<std::int64_t>(nominal) * 1000;
            rate.denominator = 1001;
        } else {
            return std::nullopt;
        }
    }
    rate.dropFrame = dropFrame;
    rate.label.clear();
    for (const FrameRateConfig& known : candidateFrameRates()) {
        if (known.numerator * rate.denominator == rate.numerator * known.denominator &&
            known.dropFrame == dropFrame) {
            return known;
        }
    }
    rate.label = rate.denominator == 1
                     ? std::to_string(rate.numerator)
                     : fmt::format("{:.3f}", static_cast<double>(rate.numerator) /
                                                 static_cast<double>(rate.denominator));
    return rate;
}

bool isDropFrameFlag(const std::optional<std::string>& flag) {
    return flag && toLowerASCII(trim(*flag)) == "df";
}

}  // namespace

std::optional<IXMLElement> parse(std::string_view text) {
    while (!text.empty() && (text.back() == '\0' || text.back() == ' ' || text.back() == '\n' ||
                             text.back() == '\r' || text.back() == '\t')) {
        text.remove_suffix(1);
    }
    if (text.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
        return std::nullopt;
    }
    std::unique_ptr<XML_ParserStruct, ParserDeleter> parser(XML_ParserCreate(nullptr));
    if (!parser) {
        return std::nullopt;
    }
    Builder builder;
    builder.parser = parser.get();
    XML_SetUserData(parser.get(), &builder);
    XML_SetElementHandler(parser.get(), onStart, onEnd);
    XML_SetCharacterDataHandler(parser.get(), onText);
    XML_SetEntityDeclHandler(parser.get(), onEntityDecl);
    const bool ok = XML_Parse(parser.get(), text.data(), static_cast<int>(text.size()), XML_TRUE) ==
                    XML_STATUS_OK;
    if (!ok || builder.refused || !builder.root) {
        return std::nullopt;
    }
    return std::move(builder.root);
}

std::string serialize(const IXMLElement& root) {
    std::string out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
    serializeInto(out, root, 0);
    return out;
}

std::string rationalRate(const FrameRateConfig& rate) {
    return std::to_string(rate.numerator) + "/" + std::to_string(rate.denominator);
}

void mergeStamp(IXMLElement& root, const IXMLStampValues& stamp) {
    const std::string flag = stamp.rate.dropFrame ? "DF" : "NDF";
    // The root and SPEED gain children: their text is then read as the parser
    // reads text beside child elements (blank is layout, anything else
    // trimmed), so what is written reads back as the same tree.
    const auto asBesideChildren = [](IXMLElement& element) {
        element.text = isBlank(element.text) ? std::string() : trim(element.text);
    };
    asBesideChildren(root);
    // Our own top-level elements, placed after IXML_VERSION when the document
    // has none of them yet.
    const std::pair<const char*, std::string> topLevel[] = {
        {"TIMECODE_RATE", stamp.rate.label},
        {"TIMECODE_FLAG", flag},
        {"TIMECODE", stamp.start.description()}};
    auto at = std::find_if(root.children.begin(), root.children.end(),
                           [](const IXMLElement& c) { return c.name == "IXML_VERSION"; });
    std::size_t insertAt =
        at == root.children.end() ? 0 : static_cast<std::size_t>(at - root.children.begin()) + 1;
    for (const auto& [name, value] : topLevel) {
        if (IXMLElement* existing = root.child(name)) {
            existing->text = value;
            insertAt = static_cast<std::size_t>(existing - root.children.data()) + 1;
        } else {
            root.children.insert(root.children.begin() + static_cast<std::ptrdiff_t>(insertAt),
                                 IXMLElement{name, {}, value, {}});
            ++insertAt;
        }
    }

    IXMLElement& speed = root.ensureChild("SPEED");
    asBesideChildren(speed);
    speed.setChildText("TIMECODE_RATE", rationalRate(stamp.rate));
    speed.setChildText("TIMECODE_FLAG", flag);
    speed.setChildText("TIMESTAMP_SAMPLE_RATE", std::to_string(stamp.sampleRate));
    speed.setChildText("TIMESTAMP_SAMPLES_SINCE_MIDNIGHT_HI",
                       fmt::format("{:010}", stamp.timeReferenceSamples >> 32));
    speed.setChildText("TIMESTAMP_SAMPLES_SINCE_MIDNIGHT_LO",
                       fmt::format("{:010}", stamp.timeReferenceSamples & 0xFFFFFFFFu));
}

std::optional<FrameRateConfig> timecodeRate(const IXMLElement& root) {
    if (const IXMLElement* speed = root.child("SPEED")) {
        if (const auto text = speed->childText("TIMECODE_RATE")) {
            if (auto rate = parseRate(*text, isDropFrameFlag(speed->childText("TIMECODE_FLAG")))) {
                return rate;
            }
        }
    }
    if (const auto text = root.childText("TIMECODE_RATE")) {
        // Our own label says "29.97 DF".
        const bool labelledDF =
            text->find("DF") != std::string::npos && text->find("NDF") == std::string::npos;
        return parseRate(*text, isDropFrameFlag(root.childText("TIMECODE_FLAG")) || labelledDF);
    }
    return std::nullopt;
}

std::optional<std::uint64_t> samplesSinceMidnight(const IXMLElement& root) {
    const IXMLElement* speed = root.child("SPEED");
    if (!speed) {
        return std::nullopt;
    }
    const auto hi = speed->childText("TIMESTAMP_SAMPLES_SINCE_MIDNIGHT_HI");
    const auto lo = speed->childText("TIMESTAMP_SAMPLES_SINCE_MIDNIGHT_LO");
    const auto hiValue = hi ? parseInteger(*hi) : std::optional<std::int64_t>(0);
    const auto loValue = lo ? parseInteger(*lo) : std::nullopt;
    if (!loValue || !hiValue || *loValue < 0 || *loValue > 0xFFFFFFFFll || *hiValue < 0 ||
        *hiValue > 0xFFFFFFFFll) {
        return std::nullopt;
    }
    return (static_cast<std::uint64_t>(*hiValue) << 32) | static_cast<std::uint64_t>(*loValue);
}

std::vector<IXMLTrack> tracks(const IXMLElement& root) {
    std::vector<IXMLTrack> result;
    const IXMLElement* list = root.child("TRACK_LIST");
    if (!list) {
        return result;
    }
    for (const IXMLElement& track : list->children) {
        if (track.name != "TRACK") {
            continue;
        }
        IXMLTrack t;
        auto index = [&](std::string_view name) -> std::optional<int> {
            const auto text = track.childText(name);
            const auto value = text ? parseInteger(*text) : std::nullopt;
            if (!value || *value < 0 || *value > 1'000'000) {
                return std::nullopt;
            }
            return static_cast<int>(*value);
        };
        t.channelIndex = index("CHANNEL_INDEX");
        t.interleaveIndex = index("INTERLEAVE_INDEX");
        t.name = track.childText("NAME").value_or("");
        result.push_back(std::move(t));
    }
    return result;
}

namespace {

// The index among TRACK_LIST's children of the TRACK for interleave position
// `channelNumber`, or nullopt.
std::optional<std::size_t> trackElementIndex(const IXMLElement& list, int channelNumber) {
    bool anyInterleave = false;
    std::vector<std::size_t> trackIndices;
    for (std::size_t i = 0; i < list.children.size(); ++i) {
        const IXMLElement& track = list.children[i];
        if (track.name != "TRACK") {
            continue;
        }
        trackIndices.push_back(i);
        if (const auto text = track.childText("INTERLEAVE_INDEX")) {
            anyInterleave = true;
            if (parseInteger(*text) == channelNumber) {
                return i;
            }
        }
    }
    if (!anyInterleave && channelNumber >= 1 &&
        static_cast<std::size_t>(channelNumber) <= trackIndices.size()) {
        return trackIndices[static_cast<std::size_t>(channelNumber) - 1];
    }
    return std::nullopt;
}

}  // namespace

std::string trackName(const IXMLElement& root, int channelNumber) {
    const IXMLElement* list = root.child("TRACK_LIST");
    if (!list) {
        return {};
    }
    const auto index = trackElementIndex(*list, channelNumber);
    return index ? list->children[*index].childText("NAME").value_or("") : std::string();
}

IXMLElement forSingleChannel(const IXMLElement& root, int channelNumber) {
    IXMLElement result = root;
    IXMLElement& list = result.ensureChild("TRACK_LIST");
    IXMLElement track{"TRACK", {}, {}, {}};
    if (const auto index = trackElementIndex(list, channelNumber)) {
        track = list.children[*index];
    }
    track.setChildText("CHANNEL_INDEX", "1");
    track.setChildText("INTERLEAVE_INDEX", "1");
    // The other tracks go; every other element of the list stays where it was,
    // the single track taking the place of the first one.
    std::vector<IXMLElement> kept;
    bool placed = false;
    for (IXMLElement& c : list.children) {
        if (c.name != "TRACK") {
            kept.push_back(std::move(c));
        } else if (!placed) {
            kept.push_back(track);
            placed = true;
        }
    }
    if (!placed) {
        kept.push_back(std::move(track));
    }
    list.children = std::move(kept);
    list.setChildText("TRACK_COUNT", "1");
    // TRACK_COUNT leads the list, as recorders write it.
    auto count = std::find_if(list.children.begin(), list.children.end(),
                              [](const IXMLElement& c) { return c.name == "TRACK_COUNT"; });
    std::rotate(list.children.begin(), count, count + 1);
    return result;
}

}  // namespace IXML
}  // namespace norvane
