#pragma once

// libltc's ltcdump of a field recording, kept beside it as "<file>.ltcdump":
// one line a frame, "4f434950   00:00:03:01 |      387     2306" (user bits,
// timecode, first and last sample); '#' lines are comments.

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace norvane::testing {

struct DumpFrame {
    std::string timecode;
    std::int64_t first = 0;
};

inline std::vector<DumpFrame> readLtcDump(const std::filesystem::path& recording) {
    std::ifstream in(recording.string() + ".ltcdump");
    std::vector<DumpFrame> frames;
    for (std::string line; std::getline(in, line);) {
        std::istringstream fields(line);
        std::string userBits, bar;
        DumpFrame f;
        if (!line.starts_with("#") && fields >> userBits >> f.timecode >> bar >> f.first) {
            frames.push_back(f);
        }
    }
    return frames;
}

}  // namespace norvane::testing
