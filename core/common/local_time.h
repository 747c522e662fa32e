#pragma once

#include <chrono>
#include <string>

namespace norvane {

// strftime-style formatting of an instant in the local time zone.
std::string formatLocalTime(std::chrono::system_clock::time_point t, const char* pattern);
// "yyyy-MM-dd" and "HH:mm:ss" of the local time.
inline std::string localDate(std::chrono::system_clock::time_point t) {
    return formatLocalTime(t, "%Y-%m-%d");
}
inline std::string localClock(std::chrono::system_clock::time_point t) {
    return formatLocalTime(t, "%H:%M:%S");
}
// ISO 8601 date-time in UTC with a Z, to the second: 2026-11-21T22:37:28Z.
std::string iso8601UTC(std::chrono::system_clock::time_point t);

}  // namespace norvane
