// A session's frames through chosen getters: the table, the JSON and the CSV
// of `metautils-inspect --frames` (the timelines are drawn in Svg.h), each a
// view of one list of frames.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Report.h"

namespace inspect {

// What the getters gave on one frame of a session.
struct FrameCalls {
    int64_t number = 0;
    int64_t timestamp = 0;
    std::vector<CallRecord> calls;
};

// The getters a session is usually read for: zoom ratio, crop region, final
// crop, AF mode and state, flash mode, sensitivity, exposure time, thermal
// level.
std::vector<const Getter*> defaultFrameGetters();

// The getters named in `names` ("GetAFState,GetSensitivity", or "all"), in
// the order given; empty with `error` set when a name is not a getter's.
std::vector<const Getter*> chooseGetters(const std::string& names, std::string* error);

// One line per frame: frame number, timestamp, then each getter's result.
std::string framesTable(const std::vector<FrameCalls>& frames);

// {"frames": [{"frame": N, "timestamp": T, "calls": [...]}]}, each call as in
// the single-frame JSON report.
Json framesJson(const std::vector<FrameCalls>& frames, bool withLogs);

// One row per frame, one column per output field ("GetAndroidCropRegion.width"),
// with each getter's result and, for enum values, their Android name.
std::string framesCsv(const std::vector<FrameCalls>& frames);

// What a table cell shows of a call: the output on one line, an enum value
// with its name, the result code where the call failed.
std::string cellText(const CallRecord& call);

}  // namespace inspect
