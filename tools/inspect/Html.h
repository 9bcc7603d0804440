// The HTML report: one self-contained page that a browser opens from disk.
// The page is data plus one renderer: the report's JSON inline once, one
// script (page/report.js) that builds the table and draws the timelines, the
// styles in one block. The data holds what changes, not what each frame
// repeats: each getter's and each recorded tag's distinct values once, and
// the frames where its value changes; the geometry pictures once each, and
// the frames where the picture changes.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Frames.h"
#include "Report.h"

namespace inspect {

class HtmlPage {
public:
    HtmlPage();
    // A session's page: frame numbers, the selector and the timelines; each
    // frame's geometry picture drawn from `sequence` by the page itself,
    // where the geometry getters' answers change.
    explicit HtmlPage(const kvhost::Sequence& sequence);
    ~HtmlPage();
    HtmlPage(const HtmlPage&) = delete;
    HtmlPage& operator=(const HtmlPage&) = delete;

    // One line of what was read: "file", "camera", "note", "warning"...
    void addRead(const std::string& label, const std::string& text);
    // The one frame of a single capture, with its geometry picture.
    void addFrame(const FrameCalls& frame, const std::string& geometrySvg);
    // Frame `i` of the session, in order from 0. Every frame runs the same
    // getters in the same order and has the same recorded tags. False with
    // `error` set when its picture's frame cannot be built.
    bool addFrame(size_t i, const FrameCalls& frame, std::string* error);
    // Leaves out the column of getter `k` (in the frames' order).
    void dropGetter(size_t k);
    void setTitle(const std::string& title) { title_ = title; }
    // The session checks' results as the JSON report has them
    // ({"checks": [...], "findings": [...]}): the page's findings panel and
    // the bands on the timelines.
    void setChecks(Json checks) { checks_ = std::move(checks); }

    std::string html() const;

private:
    // A list of values that holds each distinct one once, and where the
    // frames change from one to another.
    struct Column {
        Json values = Json::array();
        std::map<std::string, size_t> index;             // a value's key -> its place
        std::vector<std::pair<size_t, size_t>> changes;  // (frame, value) where it changes
        // From frame `frame` on, `value` (known by `key`); its place.
        size_t add(size_t frame, Json value, const std::string& key);
        // From frame `frame` on, the value at `value`.
        void at(size_t frame, size_t value);
    };
    struct Pictures;
    void addCalls(size_t i, const FrameCalls& frame);

    std::string title_;
    bool session_ = false;
    Json read_ = Json::array();
    std::vector<const Getter*> getters_;
    std::vector<Column> calls_;  // by getter
    std::vector<std::optional<CallRecord>> lastCalls_;
    std::vector<std::vector<std::string>> lastFromBlocks_;
    std::vector<std::string> recordedTags_;
    std::vector<Column> recorded_;               // by recorded tag
    std::vector<Json> lastRecorded_;             // by recorded tag
    std::vector<std::vector<size_t>> logged_;    // by recorded tag: the frames that logged it
    Column geometries_;                          // the pictures as JSON strings
    std::unique_ptr<Pictures> pictures_;         // a session's
    std::vector<int64_t> numbers_, timestamps_;  // by frame
    Json checks_;
};

// Text made safe to stand inside a <script> element: `<`, `>`, `&`, U+2028
// and U+2029 as JSON escapes (the text is JSON, whose strings hold them).
std::string scriptSafe(const std::string& json);

}  // namespace inspect
