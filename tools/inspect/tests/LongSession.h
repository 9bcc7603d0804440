// A long session in the layout of `cmd media.camera watch dump`: the event
// lines of sessions in the tree (the active client's of watch output, the
// tag monitor's event log of a dump, oldest first), one after the other in
// the watch layout, request and result lines interleaved as the phones
// printed them, repeated with frame numbers and timestamps shifted past the
// previous copy until `events` events. Shared by the outputs' test and the
// session benchmark.
#pragma once

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <regex>
#include <string>
#include <vector>

namespace inspect {
namespace testing {

// The text of such a session from the files at `samples`; empty when they
// have no event line.
inline std::string longWatchSession(const std::vector<std::string>& samples, int64_t events) {
    struct Line {
        int64_t frame = 0;
        int64_t timestamp = 0;
        std::string gap;   // the spaces that set request and result lines apart
        std::string rest;  // from "REQ:" or "RES:"
    };
    // "[0:com.example.camera]  f200:86406666666600ns:<spaces>RES:..."; the
    // active client of watch output is 0.
    const std::regex event(R"(^(?:(\d+):\S+)?\s*f(\d+):(\d+)ns:(\s+)(RE[QS]:.*)$)");
    std::vector<Line> pattern;
    int64_t end = 0;  // past the frames of the files before
    for (const std::string& path : samples) {
        std::ifstream in(path, std::ios::binary);
        std::vector<Line> lines;
        for (std::string text; std::getline(in, text);) {
            std::smatch m;
            if (!std::regex_match(text, m, event) || (m[1].matched && m[1] != "0")) continue;
            lines.push_back({std::stoll(m[2]), std::stoll(m[3]), m[4], m[5]});
        }
        if (lines.empty()) continue;
        // A dump's event log is newest first.
        if (lines.front().frame > lines.back().frame) std::reverse(lines.begin(), lines.end());
        int64_t lowest = lines.front().frame, highest = lines.front().frame;
        for (const Line& l : lines) {
            lowest = std::min(lowest, l.frame);
            highest = std::max(highest, l.frame);
        }
        for (Line& l : lines) {
            l.timestamp = l.timestamp == 0 ? 0 : l.timestamp + (end - lowest) * 33333333;
            l.frame += end - lowest;
            pattern.push_back(std::move(l));
        }
        end += highest - lowest + 1;
    }
    if (pattern.empty()) return "";
    std::string out = "Client: com.example.camera (active)\n";
    out.reserve(static_cast<size_t>(events) * 110);
    for (int64_t k = 0; k < events; ++k) {
        const Line& l = pattern[static_cast<size_t>(k) % pattern.size()];
        const int64_t shift = k / static_cast<int64_t>(pattern.size()) * end;
        out += "0:com.example.camera  f" + std::to_string(l.frame + shift) + ":" +
               std::to_string(l.timestamp == 0 ? 0 : l.timestamp + shift * 33333333) +
               "ns:" + l.gap + l.rest + "\n";
    }
    return out;
}

}  // namespace testing
}  // namespace inspect
