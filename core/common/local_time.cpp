#include "core/common/local_time.h"

#include <ctime>

namespace norvane {

std::string formatLocalTime(std::chrono::system_clock::time_point t, const char* pattern) {
    std::time_t seconds = std::chrono::system_clock::to_time_t(t);
    std::tm parts{};
    localtime_r(&seconds, &parts);
    char buffer[128];
    std::size_t n = std::strftime(buffer, sizeof buffer, pattern, &parts);
    return std::string(buffer, n);
}

std::string iso8601UTC(std::chrono::system_clock::time_point t) {
    std::time_t seconds = std::chrono::system_clock::to_time_t(t);
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    char buffer[64];
    std::size_t n = std::strftime(buffer, sizeof buffer, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return std::string(buffer, n);
}

}  // namespace norvane
