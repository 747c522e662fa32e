#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace norvane {

// Trims spaces, tabs, line feeds, carriage returns, vertical tabs and form feeds.
std::string trim(std::string_view text);
std::string toLowerASCII(std::string_view text);
bool endsWithNoCase(std::string_view text, std::string_view suffix);
std::string replaceAll(std::string text, std::string_view from, std::string_view to);
std::vector<std::string> splitOn(std::string_view text, std::string_view delimiter);

// `text` with every byte that is not part of valid UTF-8 replaced by U+FFFD,
// for reports that must stay valid text whatever bytes a file name holds.
std::string validUTF8(std::string_view text);

// "a, b, c" of at most eight entries, followed by "..." when there are more.
std::string joinFirstEight(const std::vector<std::string>& items);

// The order a file browser shows names in: case-insensitive, accents
// secondary, runs of digits compared by value ("Take 2" before "Take 10").
// Returns <0, 0 or >0.
int fileBrowserCompare(std::string_view a, std::string_view b);
inline bool fileBrowserLess(std::string_view a, std::string_view b) {
    return fileBrowserCompare(a, b) < 0;
}

}  // namespace norvane
