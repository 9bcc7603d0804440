// A session's frames through chosen getters: the table, the JSON and the CSV
// of `metautils-inspect --frames` (the timelines are drawn in Svg.h), each a
// view of one list of frames. Each view shows the values of the tags the
// session recorded frame by frame beside the getters' results, and marks
// the results that read tags from the dump's request and result blocks,
// which are the same in every frame.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
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
    // By call and by recorded tag: a stamp that FrameBuilder gives each call
    // record and each recorded value it makes, new for every one that
    // differs from the one before it (a call run again that gives what it
    // gave keeps its stamp); 0 (or none) for one made elsewhere. While a
    // stamp holds, what a view made of that call or value stands: the views
    // make a cell once.
    std::vector<uint64_t> callStamps;
    std::vector<uint64_t> recordedStamps;
};

// Frame i's values of the session's recorded tags, from its installed capture.
std::vector<RecordedValue> recordedValues(const kvhost::Sequence& sequence, size_t i,
                                          const Capture& frame,
                                          const std::vector<kvhost::RecordedTag>& tags);

// A recorded tag's value from `count` elements of its type at `data` (null
// for none).
RecordedValue recordedValue(const kvhost::RecordedTag& tag, const uint8_t* data, size_t count);

// Builds a session's frames in order, each from the one before. A getter
// runs again only on a frame where a tag it looked up in the frame changed
// (by the frame rule, on either side: Sequence::changes) or where a new
// file starts; elsewhere its previous record stands, which is what running
// it again gives: the getters keep nothing between frames, and what else
// they read (static metadata, the input size, the adapter's script) is the
// same for every frame of a file. A call that looked nothing up in a frame
// it was given runs again on any change. A recorded value is made again
// only where its tag changed. The frame is built and installed only for
// getters that run, or for every frame with `install` (the page draws each).
class FrameBuilder {
public:
    FrameBuilder(const kvhost::Sequence& sequence, std::vector<const Getter*> getters,
                 bool install = false);
    // Frame i: from the previous frame when it was i - 1, else built whole.
    // Null with `error` set when the frame cannot be built.
    const FrameCalls* frame(size_t i, std::string* error);
    // The capture installed for the last frame; null when no getter ran on it.
    const Capture* capture() const { return built_ ? &*built_.capture : nullptr; }
    // The getter calls run and reused so far.
    size_t callsRun() const { return run_; }
    size_t callsReused() const { return reused_; }

private:
    void restart();

    const kvhost::Sequence& sequence_;
    std::vector<const Getter*> getters_;
    bool install_;
    std::vector<kvhost::RecordedTag> recorded_;
    // By recorded tag: its changes, the next one to apply, the latest
    // applied on each side (request, result).
    std::vector<std::vector<kvhost::TagChange>> changes_;
    std::vector<size_t> next_;
    std::vector<std::array<const kvhost::TagChange*, 2>> sides_;
    // By recorded tag: the frames the log printed it for, the next one due.
    std::vector<std::vector<size_t>> printed_;
    std::vector<size_t> nextPrinted_;
    std::optional<size_t> last_;  // the frame built last
    FrameCalls frame_;
    kvhost::LoadResult built_;
    size_t run_ = 0;
    size_t reused_ = 0;
};

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

// The views below are written a frame at a time, so that a session of any
// length is never held whole: each frame's text is made from that frame
// alone, with what the whole session decides (the table's widths, the CSV's
// columns) measured on every frame beforehand.

// One line per frame: frame number, timestamp, the first recorded tags'
// values, then each getter's result, " *" after one from the dump's blocks.
// Columns as wide as their widest cell among the frames measured. A cell of
// a recorded value or a call is made once while its stamp holds.
class TableWriter {
public:
    void measure(const FrameCalls& frame);
    std::string header() const;
    std::string row(const FrameCalls& frame) const;
    // Leaves out the column of the getter `method`.
    void drop(const std::string& method);

private:
    struct Cell {
        uint64_t stamp = 0;
        std::string text;
    };
    const std::string& recordedCell(const FrameCalls& frame, size_t k) const;
    const std::string& callCell(const FrameCalls& frame, size_t k) const;
    std::string line(const std::vector<std::string>& cells) const;
    std::vector<std::string> header_;
    std::vector<size_t> width_;
    mutable std::vector<Cell> recordedCells_;  // by recorded tag
    mutable std::vector<Cell> callCells_;      // by call
};

// One row per frame, one column per output field ("GetAndroidCropRegion.width",
// "android.control.afRegions[0]"), with each getter's result, "fromBlocks"
// where it has any, and, for enum values, their Android name; the columns
// those of the frames measured, a getter's or a tag's together. The fields
// of a recorded value or a call are made once while its stamp holds.
class CsvWriter {
public:
    void measure(const FrameCalls& frame);
    std::string header() const;
    std::string row(const FrameCalls& frame) const;
    // Leaves out the columns of the getter `method`.
    void drop(const std::string& method);

private:
    struct Field {
        std::string group;
        std::string column;
        std::string text;
    };
    // The fields of a recorded value or a call, and, for the columns as they
    // stand (`layout`), each one's column and its CSV text.
    struct Group {
        uint64_t stamp = 0;
        uint64_t measured = 0;  // the stamp whose fields measure() has taken
        std::vector<Field> fields;
        uint64_t layout = 0;
        std::vector<std::pair<size_t, std::string>> cells;
    };
    static void recordedFields(const RecordedValue& value, std::vector<Field>& out);
    static void callFields(const FrameCalls& frame, size_t k, std::vector<Field>& out);
    // The group of recorded value (`call` false) or call k of `frame`.
    Group& group(const FrameCalls& frame, bool call, size_t k) const;
    void add(const Field& field);
    void ordered();
    std::vector<std::string> columns_;  // in the order written
    std::map<std::string, size_t> index_;
    std::vector<size_t> groupOf_;  // by column, as first met
    std::vector<std::string> groups_;
    std::vector<std::string> met_;  // columns as first met
    uint64_t layout_ = 1;           // changes with the columns
    mutable std::vector<Group> recordedGroups_;
    mutable std::vector<Group> callGroups_;
};

// A frame as the JSON views give it: {"frame": N, "timestamp": T,
// "recorded": [{"tag", "values", "name", "changed"}], "calls": [...]}, each
// call as in the single-frame JSON report, with "fromBlocks" where it has
// any; its log lines with `withLogs`, its tag lookups ("reads") with
// `withTags`.
Json frameJson(const FrameCalls& frame, bool withLogs, bool withTags);

// The JSON report of a session in pieces: the opening up to its frames
// (with the members of `before` that sort ahead of "frames"), each frame
// (`first` for the first one), and the closing with the others. Joined,
// the same text as the whole object printed with an indent of 2.
std::string jsonReportOpening(const Json& before);
std::string jsonReportFrame(const Json& frame, bool first);
std::string jsonReportClosing(const Json& after, bool anyFrame);

// The frames of the JSON views as text, the same as frameJson printed: a
// line a frame (jsonText without indent), or the report's pieces
// (jsonReportFrame). The text of a recorded value or a call is made once
// while its stamp holds.
class JsonFrameWriter {
public:
    JsonFrameWriter(bool report, bool withLogs, bool withTags)
        : report_(report), withLogs_(withLogs), withTags_(withTags) {}
    // Appends the text of `frame` to `out`: for the report, `first` for the first one.
    void write(const FrameCalls& frame, bool first, std::string& out);

private:
    struct Piece {
        uint64_t stamp = 0;
        std::string text;
        size_t changedAt = 0;  // recorded values: where "changed" takes its value
    };
    // `value` as an element of the frame's "recorded" or "calls".
    std::string elementText(const Json& value) const;
    bool report_;
    bool withLogs_;
    bool withTags_;
    std::vector<Piece> recorded_;
    std::vector<Piece> calls_;
};

std::string framesTable(const std::vector<FrameCalls>& frames);
// {"notes": [...], "warnings": [...], "frames": [frameJson(...), ...]}.
Json framesJson(const std::vector<FrameCalls>& frames, bool withLogs,
                const std::vector<std::string>& notes = {},
                const std::vector<std::string>& warnings = {}, bool withTags = true);
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
