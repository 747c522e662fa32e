#include "core/common/text.h"

#include <unicode/coll.h>
#include <unicode/locid.h>
#include <unicode/stringpiece.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <mutex>

namespace norvane {

namespace {
bool isTrimmed(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}
}  // namespace

std::string trim(std::string_view text) {
    std::size_t begin = 0;
    std::size_t end = text.size();
    while (begin < end && isTrimmed(text[begin])) {
        ++begin;
    }
    while (end > begin && isTrimmed(text[end - 1])) {
        --end;
    }
    return std::string(text.substr(begin, end - begin));
}

std::string toLowerASCII(std::string_view text) {
    std::string out(text);
    for (char& c : out) {
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c - 'A' + 'a');
        }
    }
    return out;
}

bool endsWithNoCase(std::string_view text, std::string_view suffix) {
    if (suffix.size() > text.size()) {
        return false;
    }
    return toLowerASCII(text.substr(text.size() - suffix.size())) == toLowerASCII(suffix);
}

std::string replaceAll(std::string text, std::string_view from, std::string_view to) {
    if (from.empty()) {
        return text;
    }
    std::size_t pos = 0;
    while ((pos = text.find(from, pos)) != std::string::npos) {
        text.replace(pos, from.size(), to);
        pos += to.size();
    }
    return text;
}

std::vector<std::string> splitOn(std::string_view text, std::string_view delimiter) {
    std::vector<std::string> parts;
    if (delimiter.empty()) {
        parts.emplace_back(text);
        return parts;
    }
    std::size_t start = 0;
    for (;;) {
        std::size_t pos = text.find(delimiter, start);
        if (pos == std::string_view::npos) {
            parts.emplace_back(text.substr(start));
            return parts;
        }
        parts.emplace_back(text.substr(start, pos - start));
        start = pos + delimiter.size();
    }
}

std::string joinFirstEight(const std::vector<std::string>& items) {
    std::string out;
    const std::size_t shown = std::min<std::size_t>(items.size(), 8);
    for (std::size_t i = 0; i < shown; ++i) {
        if (i > 0) {
            out += ", ";
        }
        out += items[i];
    }
    if (items.size() > 8) {
        out += "...";
    }
    return out;
}

namespace {
// ICU collators are not thread-safe for concurrent use; each thread clones one.
std::unique_ptr<icu::Collator> makeCollator() {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::Collator> collator(
        icu::Collator::createInstance(icu::Locale::getRoot(), status));
    if (U_FAILURE(status) || !collator) {
        return nullptr;
    }
    collator->setStrength(icu::Collator::SECONDARY);
    collator->setAttribute(UCOL_NUMERIC_COLLATION, UCOL_ON, status);
    return collator;
}
}  // namespace

int fileBrowserCompare(std::string_view a, std::string_view b) {
    thread_local std::unique_ptr<icu::Collator> collator = makeCollator();
    if (collator) {
        UErrorCode status = U_ZERO_ERROR;
        UCollationResult r = collator->compareUTF8(
            icu::StringPiece(a.data(), static_cast<int32_t>(a.size())),
            icu::StringPiece(b.data(), static_cast<int32_t>(b.size())), status);
        if (U_SUCCESS(status)) {
            if (r != UCOL_EQUAL) {
                return r == UCOL_LESS ? -1 : 1;
            }
        }
    }
    // Equal under the collator (or no collator): fall back to byte order so the
    // result is a strict weak order.
    return a.compare(b) < 0 ? -1 : (a == b ? 0 : 1);
}

std::string validUTF8(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    std::size_t i = 0;
    while (i < text.size()) {
        const auto byte = static_cast<unsigned char>(text[i]);
        std::size_t length = 0;
        std::uint32_t minimum = 0;
        if (byte < 0x80) {
            out += text[i++];
            continue;
        }
        if ((byte & 0xE0) == 0xC0) {
            length = 2;
            minimum = 0x80;
        } else if ((byte & 0xF0) == 0xE0) {
            length = 3;
            minimum = 0x800;
        } else if ((byte & 0xF8) == 0xF0) {
            length = 4;
            minimum = 0x10000;
        }
        bool valid = length > 0 && i + length <= text.size();
        std::uint32_t code = valid ? byte & (0x7F >> length) : 0;
        for (std::size_t k = 1; valid && k < length; ++k) {
            const auto next = static_cast<unsigned char>(text[i + k]);
            valid = (next & 0xC0) == 0x80;
            code = (code << 6) | (next & 0x3F);
        }
        // Overlong forms, surrogates and values past U+10FFFF are not UTF-8.
        valid = valid && code >= minimum && code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
        if (valid) {
            out.append(text.substr(i, length));
            i += length;
        } else {
            out += "\xEF\xBF\xBD";
            ++i;
        }
    }
    return out;
}

}  // namespace norvane
