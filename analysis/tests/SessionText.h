// Sessions written as phones print them, for the checks' tests: the same
// events in Android 7-11's dumpsys (newest first, a blank after each
// value), Android 13's (values joined) and `cmd media.camera watch dump`
// (oldest first, each line led by camera and package).
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace kvanalysis {
namespace testing {

enum class Layout { Dumpsys11, Dumpsys13, Watch };

struct Event {
    int64_t frame;
    bool result;
    std::string tag;
    std::vector<std::string> values;  // as printed: numbers, floats, enum names
};

// The events of `tag` on one side from frame `from` on, one value a frame
// from `values`; as the tag monitor logs them, only where the value changes.
inline void add(std::vector<Event>& events, const std::string& tag, bool result, int64_t from,
                const std::vector<std::vector<std::string>>& values) {
    for (size_t k = 0; k < values.size(); ++k) {
        if (k > 0 && values[k] == values[k - 1]) continue;
        events.push_back({from + static_cast<int64_t>(k), result, tag, values[k]});
    }
}

// The sensor timestamp monitored, which changes on every frame: the log
// holds every frame from `from` to `to`.
inline void clock(std::vector<Event>& events, int64_t from, int64_t to) {
    for (int64_t f = from; f <= to; ++f) {
        events.push_back({f, true, "android.sensor.timestamp", {std::to_string(f * 33333333)}});
    }
}

// `n` frames of one value.
inline std::vector<std::vector<std::string>> repeat(std::vector<std::string> v, size_t n) {
    return std::vector<std::vector<std::string>>(n, v);
}

inline std::vector<std::vector<std::string>> operator+(
    std::vector<std::vector<std::string>> a, const std::vector<std::vector<std::string>>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// `dropAt`: the sensor dropped a frame before this frame number, whose
// timestamp and all later ones are a frame late.
inline std::string line(Layout layout, const Event& e, int64_t dropAt) {
    std::string values;
    for (const std::string& v : e.values) {
        values += v;
        if (layout == Layout::Dumpsys11 || e.values.size() > 1) values += " ";
    }
    // A request's event is logged a little before the frame's result.
    const int64_t ns =
        (e.frame + (dropAt && e.frame >= dropAt ? 1 : 0)) * 33333333 - (e.result ? 0 : 25000000);
    const std::string event = "f" + std::to_string(e.frame) + ":" + std::to_string(ns) +
                              "ns:               " + (e.result ? "RES:" : "REQ:") + e.tag + ": [" +
                              values + "]\n";
    return layout == Layout::Watch ? "0:com.example.camera  " + event : "        " + event;
}

// The session's text; the dumpsys layouts with the static metadata of a
// 4000x3000 sensor (watch output has none).
inline std::string sessionText(Layout layout, std::vector<Event> events, int64_t dropAt = 0) {
    std::stable_sort(events.begin(), events.end(), [](const Event& a, const Event& b) {
        return a.frame != b.frame ? a.frame < b.frame : a.result < b.result;
    });
    std::string out;
    if (layout == Layout::Watch) {
        out = "Client: com.example.camera (active)\n";
        for (const Event& e : events) out += line(layout, e, dropAt);
        return out;
    }
    std::vector<std::string> tags;
    for (const Event& e : events) {
        bool known = false;
        for (const std::string& t : tags) known = known || t == e.tag;
        if (!known) tags.push_back(e.tag);
    }
    out =
        "== Camera HAL device device@3.7/internal/0 (v3.7) static information: ==\n"
        "  API2 camera characteristics:\n"
        "      Dumping camera metadata array: 1 / 1 entries, 64 / 256 bytes of extra data.\n"
        "        Version: 1, Flags: 00000000\n"
        "        android.sensor.info.activeArraySize (f0000): int32[4]\n"
        "          [0 0 4000 3000 ]\n\n"
        "== Camera device 0 dynamic info: ==\n"
        "     Tag monitoring enabled for tags:\n";
    for (const std::string& t : tags) out += "        " + t + "\n";
    out += "     Monitored tag event log:\n";
    for (size_t k = events.size(); k-- > 0;) out += line(layout, events[k], dropAt);
    return out + "\n";
}

inline const char* layoutName(Layout layout) {
    switch (layout) {
        case Layout::Dumpsys11:
            return "Dumpsys11";
        case Layout::Dumpsys13:
            return "Dumpsys13";
        case Layout::Watch:
            return "Watch";
    }
    return "";
}

}  // namespace testing
}  // namespace kvanalysis
