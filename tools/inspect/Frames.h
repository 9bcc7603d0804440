// A session's frames through chosen getters: the table, the JSON and the CSV
// of `metautils-inspect --frames` (the timelines are drawn in Svg.h), each a
// view of one list of frames. Each view shows the values of the tags the
// session recorded frame by frame beside the getters' results, and marks
// the results that read tags from the dump's request and result blocks,
// which are the same in every frame.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Report.h"

namespace inspect {

// A recorded tag's value on one frame.
struct RecordedValue {
    std::string tag;
    Json values;           // as a capture description writes them; null when the frame lacks it
    std::string name;      // the Android name of a single enum value; "" for none
    bool changed = false;  // the log printed it for this frame (the monitor logs changes only)
};

// What the getters gave on one frame of a session.
struct FrameCalls {
    int64_t number = 0;
    int64_t timestamp = 0;
    std::vector<CallRecord> calls;
    // The recorded tags, in the session's order.
    std::vector<RecordedValue> recorded;
    // By call: the tags it found in the frame that the session did not
    // record, which come from the dump's request and result blocks; empty
    // for a call that read only recorded tags.
    std::vector<std::vector<std::string>> fromBlocks;
};

// Frame i's values of the session's recorded tags, from its installed capture.
std::vector<RecordedValue> recordedValues(const kvhost::Sequence& sequence, size_t i,
                                          const Capture& frame,
                                          const std::vector<kvhost::RecordedTag>& tags);

// By call of `calls`: the tags it found in the frame besides `recorded`
// (and the framework camera id, which names the camera, not the frame).
std::vector<std::vector<std::string>> tagsFromBlocks(
    const std::vector<CallRecord>& calls, const std::vector<kvhost::RecordedTag>& recorded);

// The line the notes give to the mark of such results.
extern const char* const kFromBlocksNote;

// The getters a session is usually read for: zoom ratio, crop region, final
// crop, AF mode and state, flash mode, sensitivity, exposure time, thermal
// level.
std::vector<const Getter*> defaultFrameGetters();

// The getters named in `names` ("GetAFState,GetSensitivity", or "all"), in
// the order given; empty with `error` set when a name is not a getter's.
std::vector<const Getter*> chooseGetters(const std::string& names, std::string* error);

// One line per frame: frame number, timestamp, the first recorded tags'
// values, then each getter's result, " *" after one from the dump's blocks.
std::string framesTable(const std::vector<FrameCalls>& frames);

// {"notes": [...], "warnings": [...], "frames": [{"frame": N, "timestamp": T,
// "recorded": [{"tag", "values", "name", "changed"}], "calls": [...]}]}, each
// call as in the single-frame JSON report, with "fromBlocks" where it has any.
Json framesJson(const std::vector<FrameCalls>& frames, bool withLogs,
                const std::vector<std::string>& notes = {},
                const std::vector<std::string>& warnings = {});

// One row per frame, one column per output field ("GetAndroidCropRegion.width",
// "android.control.afRegions[0]"), with each getter's result, "fromBlocks"
// where it has any, and, for enum values, their Android name.
std::string framesCsv(const std::vector<FrameCalls>& frames);

// What a table cell shows of a recorded value: "-" when absent, an enum
// value with its name, an array on one line.
std::string recordedText(const RecordedValue& v);

// How many recorded tags the table and the timelines show; the JSON and
// the CSV show them all.
constexpr size_t kShownRecordedTags = 12;

// What a table cell shows of a call: the output on one line, an enum value
// with its name, the result code where the call failed.
std::string cellText(const CallRecord& call);

}  // namespace inspect
