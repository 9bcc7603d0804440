// The HTML report: one self-contained page that a browser opens from disk.
// The page is data plus one renderer: the report's JSON inline once, one
// script that builds the table and shows the pictures, the styles in one
// block. A session's values are stored once per getter; each frame names
// the values its calls gave, and the geometry pictures are kept once each.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "Frames.h"
#include "Report.h"

namespace inspect {

class HtmlPage {
public:
    // One line of what was read: "file", "camera", "note", "warning"...
    void addRead(const std::string& label, const std::string& text);
    // A frame's calls (with their log lines), its recorded tags' values and
    // its geometry picture. Every frame runs the same getters in the same
    // order and has the same recorded tags.
    void addFrame(const FrameCalls& frame, const std::string& geometrySvg);
    void setTitle(const std::string& title) { title_ = title; }
    // A session's page: frame numbers, the selector and the timelines.
    void setSession(bool session) { session_ = session; }
    void setTimelines(const std::string& svg) { timelines_ = svg; }
    // The session checks' results as the JSON report has them
    // ({"checks": [...], "findings": [...]}): the page's findings panel.
    void setChecks(Json checks) { checks_ = std::move(checks); }

    std::string html() const;

private:
    struct Column {
        Json values = Json::array();
        std::map<std::string, size_t> index;  // a value's JSON text -> its place in `values`
    };
    std::string title_;
    bool session_ = false;
    Json read_ = Json::array();
    std::vector<const Getter*> getters_;
    std::vector<Column> columns_;
    std::vector<std::string> recordedTags_;
    std::vector<Column> recorded_;  // by recorded tag
    std::vector<std::string> geometries_;
    std::map<std::string, size_t> geometryIndex_;
    Json frames_ = Json::array();
    std::string timelines_;
    Json checks_;
};

// Text made safe to stand inside a <script> element: `<`, `>`, `&`, U+2028
// and U+2029 as JSON escapes (the text is JSON, whose strings hold them).
std::string scriptSafe(const std::string& json);

}  // namespace inspect
