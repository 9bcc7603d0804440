#include "Frames.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cstring>
#include <map>
#include <set>
#include <sstream>
#include <tuple>

#include "DumpCapture.h"
#include "TagPayload.h"

namespace inspect {
namespace {

constexpr const char* kDefaultGetters[] = {
    "GetAndroidZoomRatio", "GetAndroidCropRegion", "GetFinalCropRegion", "GetAFMode",
    "GetAFState",          "GetANDROIDFlashMode",  "GetSensitivity",     "GetSensorExposureTime",
    "GetThermalLevel",
};

// The longest a cell of the table may be; longer outputs are cut.
constexpr size_t kCellWidth = 40;

const Getter* getterNamed(const std::string& method) {
    for (const Getter& g : getterTable()) {
        if (method == g.method) return &g;
    }
    return nullptr;
}

// An output's fields as CSV columns: "crop.left", "gains[2]"; scalars under
// the prefix itself.
void flatten(const Json& v, const std::string& prefix,
             std::vector<std::pair<std::string, std::string>>& out) {
    if (v.is_object()) {
        for (const auto& item : v.items()) flatten(item.value(), prefix + "." + item.key(), out);
    } else if (v.is_array()) {
        for (size_t i = 0; i < v.size(); ++i) {
            flatten(v[i], prefix + "[" + std::to_string(i) + "]", out);
        }
    } else if (!v.is_null()) {
        out.emplace_back(prefix, v.is_string() ? v.get<std::string>() : v.dump());
    }
}

std::string csvField(const std::string& s) {
    if (s.find_first_of(",\"\r\n") == std::string::npos) return s;
    std::string out = "\"";
    for (char c : s) out += c == '"' ? std::string("\"\"") : std::string(1, c);
    return out + "\"";
}

// A stamp no record made before has had.
uint64_t newStamp() {
    static std::atomic<uint64_t> last{0};
    return ++last;
}

// The stamp of `frame`'s entry k of `stamps` (its call's or recorded value's); 0 when it has none.
uint64_t stampOf(const std::vector<uint64_t>& stamps, size_t size, size_t k) {
    return stamps.size() == size && k < size ? stamps[k] : 0;
}

// Entry k of `cache`, made again by `make` unless it was made for `stamp`.
template <typename Entry, typename Make>
Entry& cached(std::vector<Entry>& cache, size_t k, uint64_t stamp, Make make) {
    if (cache.size() <= k) cache.resize(k + 1);
    Entry& entry = cache[k];
    if (stamp == 0 || entry.stamp != stamp) {
        make(entry);
        entry.stamp = stamp;
    }
    return entry;
}

// Whether two values are the same to the last type: 1 and 1.0 print apart.
bool sameJson(const Json& a, const Json& b) {
    if (a.type() != b.type() || a.size() != b.size()) return false;
    if (a.is_object()) {
        auto x = a.items().begin();
        for (const auto& y : b.items()) {
            if (x.key() != y.key() || !sameJson(x.value(), y.value())) return false;
            ++x;
        }
        return true;
    }
    if (a.is_array()) return std::equal(a.begin(), a.end(), b.begin(), sameJson);
    return a == b;
}

// Whether a call run again gave the record it gave before, in everything
// a view shows of it: then it keeps its stamp.
bool sameCall(const CallRecord& a, const CallRecord& b) {
    const auto log = [](const kvhost::LogRecord& r) {
        return std::tie(r.sink, r.level, r.group, r.tag, r.file, r.line, r.func, r.letter, r.format,
                        r.text, r.priority);
    };
    const auto read = [](const kvhost::LookupRecord& r) {
        return std::tie(r.tag, r.id, r.known, r.place, r.cameraId, r.found, r.type, r.count);
    };
    return a.getter == b.getter && a.given == b.given && a.empty == b.empty &&
           a.outcome.result == b.outcome.result && a.outcome.skipped == b.outcome.skipped &&
           sameJson(a.outcome.output, b.outcome.output) && sameJson(a.adapter, b.adapter) &&
           std::equal(a.logs.begin(), a.logs.end(), b.logs.begin(), b.logs.end(),
                      [&](const auto& x, const auto& y) { return log(x) == log(y); }) &&
           std::equal(a.reads.begin(), a.reads.end(), b.reads.begin(), b.reads.end(),
                      [&](const auto& x, const auto& y) { return read(x) == read(y); });
}

// A number as text, without a string of its own.
struct NumberText {
    explicit NumberText(int64_t v)
        : size(std::to_chars(digits, digits + sizeof digits, v).ptr - digits) {}
    std::string_view view() const { return {digits, size}; }
    char digits[24];
    size_t size;
};

}  // namespace

const char* const kFromBlocksNote =
    "*: the result read tags from the dump's request and result blocks, which the session did "
    "not record: the same in every frame (add them to -m to record them)";

RecordedValue recordedValue(const kvhost::RecordedTag& tag, const uint8_t* data, size_t count) {
    RecordedValue v;
    v.tag = tag.name;
    const kvhost::TagInfo* info = kvhost::findTag(tag.id);
    if (info == nullptr || data == nullptr) return v;
    v.values = kvhost::loader::valuesToJson(*info, data, count);
    if (count == 1 && v.values[0].is_number_integer()) {
        const char* name = kvhost::enumName(*info, v.values[0].get<int32_t>());
        if (name != nullptr) v.name = name;
    }
    return v;
}

std::vector<RecordedValue> recordedValues(const kvhost::Sequence& sequence, size_t i,
                                          const Capture& frame,
                                          const std::vector<kvhost::RecordedTag>& tags) {
    std::vector<RecordedValue> out;
    out.reserve(tags.size());
    for (const kvhost::RecordedTag& t : tags) {
        const kvhost::TagInfo* info = kvhost::findTag(t.id);
        const camera_metadata_ro_entry_t e =
            frame.frame ? frame.frame->find(t.id) : camera_metadata_ro_entry_t{};
        const bool typed = info != nullptr && e.type == static_cast<uint8_t>(info->type);
        out.push_back(recordedValue(t, typed ? e.data.u8 : nullptr, e.count));
        out.back().changed = sequence.changed(i, t.id);
    }
    return out;
}

FrameBuilder::FrameBuilder(const kvhost::Sequence& sequence, std::vector<const Getter*> getters,
                           bool install)
    : sequence_(sequence),
      getters_(std::move(getters)),
      install_(install),
      recorded_(sequence.recordedTags()) {
    for (const kvhost::RecordedTag& t : recorded_) {
        changes_.push_back(sequence.changes(t.id));
        printed_.push_back(sequence.changedFrames(t.id));
    }
    nextPrinted_.assign(recorded_.size(), 0);
}

void FrameBuilder::restart() {
    next_.assign(recorded_.size(), 0);
    sides_.assign(recorded_.size(), {nullptr, nullptr});
    frame_ = FrameCalls{};
    frame_.recorded.resize(recorded_.size());
    frame_.calls.resize(getters_.size());
    frame_.fromBlocks.resize(getters_.size());
    frame_.recordedStamps.assign(recorded_.size(), 0);
    frame_.callStamps.assign(getters_.size(), 0);
    last_.reset();
}

const FrameCalls* FrameBuilder::frame(size_t i, std::string* error) {
    if (i >= sequence_.frameCount()) {
        *error = "frame " + std::to_string(i) + ": the sequence has " +
                 std::to_string(sequence_.frameCount()) + " frames";
        return nullptr;
    }
    const bool follows = last_ && *last_ + 1 == i;
    if (!follows) restart();
    const bool newFile = !follows || sequence_.fileOf(i) != sequence_.fileOf(i - 1);
    built_ = kvhost::LoadResult{};
    // A file's first frame is built whole: its recorded tags that the file
    // does not record come from its blocks.
    if (newFile || install_) {
        built_ = sequence_.frame(i);
        if (!built_) {
            *error = built_.error;
            last_.reset();
            return nullptr;
        }
    }
    // The recorded tags that changed since the last frame built; their
    // values made again.
    std::vector<uint32_t> changed;
    for (size_t t = 0; t < recorded_.size(); ++t) {
        const std::vector<kvhost::TagChange>& list = changes_[t];
        bool moved = false;
        for (; next_[t] < list.size() && list[next_[t]].frame <= i; ++next_[t]) {
            sides_[t][list[next_[t]].result ? 1 : 0] = &list[next_[t]];
            moved = true;
        }
        if (moved) changed.push_back(recorded_[t].id);
        if (!moved || newFile) continue;
        const kvhost::TagChange* held = nullptr;
        for (const kvhost::TagChange* side : {sides_[t][1], sides_[t][0]}) {
            if (side != nullptr && !side->removed) {
                held = side;
                break;
            }
        }
        const kvhost::TagInfo* info = kvhost::findTag(recorded_[t].id);
        const bool typed = held != nullptr && info != nullptr && held->type == info->type;
        frame_.recorded[t] =
            recordedValue(recorded_[t], typed ? held->bytes : nullptr, typed ? held->count : 0);
        frame_.recordedStamps[t] = newStamp();
    }
    if (newFile) {
        frame_.recorded = recordedValues(sequence_, i, *built_.capture, recorded_);
        for (uint64_t& stamp : frame_.recordedStamps) stamp = newStamp();
    }
    for (size_t t = 0; t < recorded_.size(); ++t) {
        const std::vector<size_t>& printed = printed_[t];
        size_t& next = nextPrinted_[t];
        if (!follows) {
            next = static_cast<size_t>(std::lower_bound(printed.begin(), printed.end(), i) -
                                       printed.begin());
        }
        while (next < printed.size() && printed[next] < i) ++next;
        frame_.recorded[t].changed = next < printed.size() && printed[next] == i;
    }
    std::sort(changed.begin(), changed.end());
    // The getters whose answer may differ from the last frame's.
    std::vector<size_t> again;
    for (size_t k = 0; k < getters_.size(); ++k) {
        const CallRecord& call = frame_.calls[k];
        // What the adapter answers is the stand-in's state, which installing
        // a frame sets: a call that asked it runs on every frame.
        bool stale = newFile || call.getter == nullptr || !call.adapter.empty();
        if (!stale && call.getter->given == Given::Frame && call.reads.empty()) {
            stale = !changed.empty();
        }
        for (size_t r = 0; !stale && r < call.reads.size(); ++r) {
            const kvhost::LookupRecord& read = call.reads[r];
            stale = read.known && read.place != kvhost::LookupPlace::Static &&
                    std::binary_search(changed.begin(), changed.end(), read.id);
        }
        if (stale) again.push_back(k);
    }
    if (!again.empty() && !built_) {
        built_ = sequence_.frame(i);
        if (!built_) {
            *error = built_.error;
            last_.reset();
            return nullptr;
        }
    }
    if (!again.empty()) {
        std::vector<const Getter*> getters;
        for (size_t k : again) getters.push_back(getters_[k]);
        std::vector<CallRecord> calls = runGetters(*built_.capture, getters);
        std::vector<std::vector<std::string>> fromBlocks = tagsFromBlocks(calls, recorded_);
        for (size_t n = 0; n < again.size(); ++n) {
            const size_t k = again[n];
            const bool same = frame_.callStamps[k] != 0 && sameCall(frame_.calls[k], calls[n]) &&
                              frame_.fromBlocks[k] == fromBlocks[n];
            frame_.calls[k] = std::move(calls[n]);
            frame_.fromBlocks[k] = std::move(fromBlocks[n]);
            if (!same) frame_.callStamps[k] = newStamp();
        }
    }
    run_ += again.size();
    reused_ += getters_.size() - again.size();
    const kvhost::FrameInfo info = sequence_.info(i);
    frame_.number = info.number;
    frame_.timestamp = info.timestamp;
    last_ = i;
    return &frame_;
}

std::vector<std::vector<std::string>> tagsFromBlocks(
    const std::vector<CallRecord>& calls, const std::vector<kvhost::RecordedTag>& recorded) {
    std::set<uint32_t> ids;
    for (const kvhost::RecordedTag& t : recorded) ids.insert(t.id);
    if (const kvhost::TagInfo* fwk = kvhost::findTag(kvhost::loader::kFwkCameraId)) {
        ids.insert(fwk->id);
    }
    std::vector<std::vector<std::string>> out;
    out.reserve(calls.size());
    for (const CallRecord& call : calls) {
        std::vector<std::string> tags;
        for (const kvhost::LookupRecord& r : call.reads) {
            if (r.place != kvhost::LookupPlace::Frame || !r.found || !r.known ||
                ids.count(r.id) != 0 || std::find(tags.begin(), tags.end(), r.tag) != tags.end()) {
                continue;
            }
            tags.push_back(r.tag);
        }
        out.push_back(std::move(tags));
    }
    return out;
}

std::string recordedText(const RecordedValue& v) {
    if (v.values.is_null()) return "-";
    std::string text = v.values.size() == 1 ? inlineText(v.values[0]) : inlineText(v.values);
    if (text.empty()) text = "(" + std::to_string(v.values.size()) + " values)";
    if (!v.name.empty()) text += " " + v.name;
    if (text.size() > kCellWidth) text = text.substr(0, kCellWidth - 3) + "...";
    return text;
}

std::vector<const Getter*> defaultFrameGetters() {
    std::vector<const Getter*> out;
    for (const char* method : kDefaultGetters) out.push_back(getterNamed(method));
    return out;
}

std::vector<const Getter*> chooseGetters(const std::string& names, std::string* error) {
    std::vector<const Getter*> out;
    if (names == "all") {
        for (const Getter& g : getterTable()) out.push_back(&g);
        return out;
    }
    std::istringstream list(names);
    for (std::string name; std::getline(list, name, ',');) {
        const Getter* g = getterNamed(name);
        if (g == nullptr) {
            *error = "--getters: no getter \"" + name + "\" (the names are the report's)";
            return {};
        }
        out.push_back(g);
    }
    if (out.empty()) *error = "--getters: no getter named";
    return out;
}

std::string cellText(const CallRecord& call) {
    const Outcome& o = call.outcome;
    if (!o.skipped.empty()) return "--";
    if (o.result && *o.result != 0) return "rc " + std::to_string(*o.result);
    // The final crop's record holds its stages: the crop is what a row shows.
    const Json& shown =
        o.output.is_object() && o.output.contains("crop") ? o.output["crop"] : o.output;
    std::string text = outerText(shown);
    if (text.empty()) text = "(" + std::to_string(shown.size()) + " values)";
    if (const char* name = valueName(*call.getter, o.output)) text += std::string(" ") + name;
    if (text.size() > kCellWidth) text = text.substr(0, kCellWidth - 3) + "...";
    return text;
}

const std::string& TableWriter::recordedCell(const FrameCalls& f, size_t k) const {
    return cached(recordedCells_, k, stampOf(f.recordedStamps, f.recorded.size(), k),
                  [&](Cell& c) { c.text = recordedText(f.recorded[k]); })
        .text;
}

const std::string& TableWriter::callCell(const FrameCalls& f, size_t k) const {
    return cached(callCells_, k, stampOf(f.callStamps, f.calls.size(), k),
                  [&](Cell& c) {
                      const bool fixed = k < f.fromBlocks.size() && !f.fromBlocks[k].empty();
                      c.text = cellText(f.calls[k]) + (fixed ? " *" : "");
                  })
        .text;
}

void TableWriter::measure(const FrameCalls& f) {
    if (header_.empty()) {
        header_ = {"frame", "timestamp"};
        for (size_t k = 0; k < f.recorded.size() && k < kShownRecordedTags; ++k) {
            header_.push_back(f.recorded[k].tag);
        }
        for (const CallRecord& c : f.calls) header_.push_back(c.getter->method);
        for (const std::string& h : header_) width_.push_back(h.size());
    }
    const auto widen = [&](size_t i, size_t n) {
        if (i < width_.size()) width_[i] = std::max(width_[i], n);
    };
    widen(0, NumberText(f.number).size);
    widen(1, NumberText(f.timestamp).size);
    size_t i = 2;
    for (size_t k = 0; k < f.recorded.size() && k < kShownRecordedTags; ++k) {
        widen(i++, recordedCell(f, k).size());
    }
    for (size_t k = 0; k < f.calls.size(); ++k) widen(i++, callCell(f, k).size());
}

std::string TableWriter::line(const std::vector<std::string>& row) const {
    std::string line;
    for (size_t i = 0; i < row.size() && i < width_.size(); ++i) {
        std::string cell = row[i];
        // Numbers of the frame and the time to the right, the rest to the left.
        if (i < 2 && cell.size() < width_[i]) cell.insert(0, width_[i] - cell.size(), ' ');
        if (i + 1 < row.size()) cell.resize(std::max(width_[i], cell.size()), ' ');
        line += (i == 0 ? "" : "  ") + cell;
    }
    return line + "\n";
}

std::string TableWriter::header() const {
    if (header_.empty()) return "frame  timestamp\n";
    return line(header_);
}

std::string TableWriter::row(const FrameCalls& f) const {
    // As line() lays out the header, without a string a cell.
    const size_t shown = std::min(f.recorded.size(), kShownRecordedTags);
    const size_t cells = 2 + shown + f.calls.size();
    std::string out;
    size_t i = 0;
    const auto put = [&](std::string_view cell) {
        if (i >= width_.size()) return;
        size_t size = cell.size();
        if (i > 0) out += "  ";
        if (i < 2 && size < width_[i]) {
            out.append(width_[i] - size, ' ');
            size = width_[i];
        }
        out += cell;
        if (i + 1 < cells && size < width_[i]) out.append(width_[i] - size, ' ');
        ++i;
    };
    put(NumberText(f.number).view());
    put(NumberText(f.timestamp).view());
    for (size_t k = 0; k < shown; ++k) put(recordedCell(f, k));
    for (size_t k = 0; k < f.calls.size(); ++k) put(callCell(f, k));
    out += '\n';
    return out;
}

void TableWriter::drop(const std::string& method) {
    for (size_t i = 2; i < header_.size(); ++i) {
        if (header_[i] != method) continue;
        header_.erase(header_.begin() + static_cast<std::ptrdiff_t>(i));
        width_.erase(width_.begin() + static_cast<std::ptrdiff_t>(i));
        return;
    }
}

std::string framesTable(const std::vector<FrameCalls>& frames) {
    TableWriter table;
    for (const FrameCalls& f : frames) table.measure(f);
    std::string out = table.header();
    for (const FrameCalls& f : frames) out += table.row(f);
    return out;
}

namespace {

// A recorded value as an element of a frame's "recorded".
Json recordedJson(const RecordedValue& v) {
    Json value{{"tag", v.tag}, {"values", v.values}};
    if (!v.name.empty()) value["name"] = v.name;
    value["changed"] = v.changed;
    return value;
}

// Call k of a frame as an element of its "calls".
Json frameCallJson(const FrameCalls& f, size_t k, bool withLogs, bool withTags) {
    Json call = callJson(f.calls[k], withLogs);
    if (!withTags) call.erase("reads");
    if (k < f.fromBlocks.size() && !f.fromBlocks[k].empty()) call["fromBlocks"] = f.fromBlocks[k];
    return call;
}

}  // namespace

Json frameJson(const FrameCalls& f, bool withLogs, bool withTags) {
    Json recorded = Json::array();
    for (const RecordedValue& v : f.recorded) recorded.push_back(recordedJson(v));
    Json calls = Json::array();
    for (size_t k = 0; k < f.calls.size(); ++k) {
        calls.push_back(frameCallJson(f, k, withLogs, withTags));
    }
    return {{"frame", f.number},
            {"timestamp", f.timestamp},
            {"recorded", std::move(recorded)},
            {"calls", std::move(calls)}};
}

namespace {

// `value` printed with an indent of 2, its lines after the first `depth`
// spaces in.
std::string nested(const Json& value, size_t depth) {
    const std::string text = kvhost::loader::jsonText(value, 2);
    std::string out;
    out.reserve(text.size() + text.size() / 8);
    for (char c : text) {
        out += c;
        if (c == '\n') out.append(depth, ' ');
    }
    return out;
}

std::string members(const Json& object, bool ahead) {
    std::string out;
    for (const auto& item : object.items()) {
        if ((item.key() < "frames") != ahead || item.key() == "frames") continue;
        out += (ahead ? "" : ",\n") + std::string("  ") + kvhost::loader::jsonText(item.key()) +
               ": " + nested(item.value(), 2) + (ahead ? ",\n" : "");
    }
    return out;
}

}  // namespace

std::string jsonReportOpening(const Json& before) {
    return "{\n" + members(before, true) + "  \"frames\": [";
}

std::string jsonReportFrame(const Json& frame, bool first) {
    return (first ? "\n    " : ",\n    ") + nested(frame, 4);
}

std::string jsonReportClosing(const Json& after, bool anyFrame) {
    return (anyFrame ? "\n  ]" : "]") + members(after, false) + "\n}\n";
}

// In the report a frame's members are 6 spaces in, the elements of its
// arrays 8 (jsonReportFrame): an element printed alone takes 8 more spaces
// a line. In a line all is printed without blanks.
std::string JsonFrameWriter::elementText(const Json& value) const {
    return report_ ? nested(value, 8) : kvhost::loader::jsonText(value);
}

void JsonFrameWriter::write(const FrameCalls& f, bool first, std::string& out) {
    const char* const member = report_ ? "\n      \"" : "\"";
    const char* const colon = report_ ? "\": " : "\":";
    const char* const element = report_ ? "\n        " : "";
    const char* const close = report_ ? "\n      ]" : "]";
    const auto array = [&](const char* name, size_t n, const auto& each) {
        out.append(",").append(member).append(name).append(colon);
        if (n == 0) {
            out += "[]";
            return;
        }
        out += '[';
        for (size_t k = 0; k < n; ++k) {
            if (k > 0) out += ',';
            out += element;
            each(k);
        }
        out += close;
    };
    if (report_) out += first ? "\n    " : ",\n    ";
    out += '{';
    out.append(member).append("frame").append(colon).append(NumberText(f.number).view());
    out.append(",").append(member).append("timestamp").append(colon);
    out.append(NumberText(f.timestamp).view());
    array("recorded", f.recorded.size(), [&](size_t k) {
        const Piece& p = cached(recorded_, k, stampOf(f.recordedStamps, f.recorded.size(), k),
                                [&](Piece& piece) {
                                    Json value = recordedJson(f.recorded[k]);
                                    value["changed"] = false;
                                    piece.text = elementText(value);
                                    piece.changedAt = piece.text.rfind("false");
                                });
        out.append(p.text, 0, p.changedAt);
        out += f.recorded[k].changed ? "true" : "false";
        out.append(p.text, p.changedAt + 5, std::string::npos);
    });
    array("calls", f.calls.size(), [&](size_t k) {
        out += cached(calls_, k, stampOf(f.callStamps, f.calls.size(), k), [&](Piece& piece) {
                   piece.text = elementText(frameCallJson(f, k, withLogs_, withTags_));
               }).text;
    });
    out += report_ ? "\n    }" : "}";
}

Json framesJson(const std::vector<FrameCalls>& frames, bool withLogs,
                const std::vector<std::string>& notes, const std::vector<std::string>& warnings,
                bool withTags) {
    Json list = Json::array();
    for (const FrameCalls& f : frames) list.push_back(frameJson(f, withLogs, withTags));
    return Json{{"notes", notes}, {"warnings", warnings}, {"frames", list}};
}

namespace {

// A group's fields: its output's, a scalar under `scalar`.
template <typename Field>
void addOutput(std::vector<Field>& fields, const std::string& group, const Json& v,
               const std::string& scalar) {
    std::vector<std::pair<std::string, std::string>> flat;
    flatten(v, group, flat);
    if (flat.size() == 1 && flat[0].first == group) flat[0].first = scalar;
    for (auto& [name, text] : flat) fields.push_back({group, name, std::move(text)});
}

}  // namespace

void CsvWriter::recordedFields(const RecordedValue& v, std::vector<Field>& fields) {
    // A single value is the tag's column itself: "android.control.aeState".
    addOutput(fields, v.tag, v.values.size() == 1 ? v.values[0] : v.values, v.tag);
    if (!v.name.empty()) fields.push_back({v.tag, v.tag + ".name", v.name});
}

void CsvWriter::callFields(const FrameCalls& f, size_t k, std::vector<Field>& fields) {
    const CallRecord& c = f.calls[k];
    const std::string method = c.getter->method;
    fields.push_back({method, method + ".result", resultText(c.outcome)});
    // A scalar output is "GetSensitivity.value".
    addOutput(fields, method, c.outcome.output, method + ".value");
    if (const char* name = valueName(*c.getter, c.outcome.output)) {
        fields.push_back({method, method + ".name", name});
    }
    if (k < f.fromBlocks.size() && !f.fromBlocks[k].empty()) {
        std::string tags;
        for (const std::string& t : f.fromBlocks[k]) tags += (tags.empty() ? "" : " ") + t;
        fields.push_back({method, method + ".fromBlocks", tags});
    }
}

CsvWriter::Group& CsvWriter::group(const FrameCalls& f, bool call, size_t k) const {
    const uint64_t stamp = call ? stampOf(f.callStamps, f.calls.size(), k)
                                : stampOf(f.recordedStamps, f.recorded.size(), k);
    return cached(call ? callGroups_ : recordedGroups_, k, stamp, [&](Group& g) {
        g.fields.clear();
        g.measured = 0;
        g.layout = 0;
        if (call) {
            callFields(f, k, g.fields);
        } else {
            recordedFields(f.recorded[k], g.fields);
        }
    });
}

void CsvWriter::add(const Field& field) {
    if (index_.count(field.column) != 0) return;
    index_.emplace(field.column, met_.size());
    met_.push_back(field.column);
    const auto g = std::find(groups_.begin(), groups_.end(), field.group);
    groupOf_.push_back(static_cast<size_t>(g - groups_.begin()));
    if (g == groups_.end()) groups_.push_back(field.group);
}

void CsvWriter::measure(const FrameCalls& f) {
    // Columns in the order the frames first show them; those that appear
    // only in later frames go after their group's others. A group measured
    // with its stamp has no column to add.
    const size_t known = met_.size();
    add({"frame", "frame", ""});
    add({"timestamp", "timestamp", ""});
    for (const bool call : {false, true}) {
        const size_t n = call ? f.calls.size() : f.recorded.size();
        for (size_t k = 0; k < n; ++k) {
            Group& g = group(f, call, k);
            if (g.stamp != 0 && g.measured == g.stamp) continue;
            for (const Field& field : g.fields) add(field);
            g.measured = g.stamp;
        }
    }
    if (met_.size() != known) ordered();
}

// The columns in the order written: a group's together, the groups as first met.
void CsvWriter::ordered() {
    std::vector<size_t> order(met_.size());
    for (size_t i = 0; i < order.size(); ++i) order[i] = i;
    std::stable_sort(order.begin(), order.end(),
                     [&](size_t a, size_t b) { return groupOf_[a] < groupOf_[b]; });
    columns_.clear();
    for (size_t i : order) columns_.push_back(met_[i]);
    for (size_t i = 0; i < columns_.size(); ++i) index_[columns_[i]] = i;
    ++layout_;
}

void CsvWriter::drop(const std::string& method) {
    std::vector<std::string> kept;
    for (const std::string& c : columns_) {
        if (groups_[groupOf_[std::find(met_.begin(), met_.end(), c) - met_.begin()]] == method) {
            index_.erase(c);
        } else {
            kept.push_back(c);
        }
    }
    columns_ = std::move(kept);
    for (size_t i = 0; i < columns_.size(); ++i) index_[columns_[i]] = i;
    ++layout_;
}

std::string CsvWriter::header() const {
    std::string out;
    for (size_t i = 0; i < columns_.size(); ++i) out += (i ? "," : "") + csvField(columns_[i]);
    return out + "\n";
}

std::string CsvWriter::row(const FrameCalls& f) const {
    std::vector<std::string_view> cells(columns_.size());
    const NumberText number(f.number), timestamp(f.timestamp);
    for (const auto& [column, text] :
         {std::pair{"frame", number.view()}, std::pair{"timestamp", timestamp.view()}}) {
        const auto at = index_.find(column);
        if (at != index_.end()) cells[at->second] = text;
    }
    for (const bool call : {false, true}) {
        const size_t n = call ? f.calls.size() : f.recorded.size();
        for (size_t k = 0; k < n; ++k) {
            Group& g = group(f, call, k);
            if (g.layout != layout_) {
                g.cells.clear();
                for (const Field& field : g.fields) {
                    const auto at = index_.find(field.column);
                    if (at != index_.end()) g.cells.emplace_back(at->second, csvField(field.text));
                }
                g.layout = layout_;
            }
            for (const auto& [column, text] : g.cells) cells[column] = text;
        }
    }
    std::string out;
    for (size_t i = 0; i < cells.size(); ++i) {
        if (i > 0) out += ',';
        out += cells[i];
    }
    out += '\n';
    return out;
}

std::string framesCsv(const std::vector<FrameCalls>& frames) {
    CsvWriter csv;
    for (const FrameCalls& f : frames) csv.measure(f);
    std::string out = csv.header();
    for (const FrameCalls& f : frames) out += csv.row(f);
    return out;
}

}  // namespace inspect
