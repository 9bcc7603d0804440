#include "Frames.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <set>
#include <sstream>

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

// A row of fields in columns grouped by what they show: a getter's, a tag's.
struct Field {
    std::string group;
    std::string column;
    std::string text;
};

}  // namespace

const char* const kFromBlocksNote =
    "*: the result read tags from the dump's request and result blocks, which the session did "
    "not record: the same in every frame (add them to -m to record them)";

std::vector<RecordedValue> recordedValues(const kvhost::Sequence& sequence, size_t i,
                                          const Capture& frame,
                                          const std::vector<kvhost::RecordedTag>& tags) {
    std::vector<RecordedValue> out;
    out.reserve(tags.size());
    for (const kvhost::RecordedTag& t : tags) {
        RecordedValue v;
        v.tag = t.name;
        v.changed = sequence.changed(i, t.id);
        const kvhost::TagInfo* info = kvhost::findTag(t.id);
        const camera_metadata_ro_entry_t e =
            frame.frame ? frame.frame->find(t.id) : camera_metadata_ro_entry_t{};
        if (info != nullptr && e.data.u8 != nullptr && e.type == static_cast<uint8_t>(info->type)) {
            kvhost::loader::TagPayload p;
            p.info = info;
            p.count = e.count;
            p.bytes.assign(e.data.u8, e.data.u8 + e.count * kvhost::typeSize(info->type));
            v.values = kvhost::loader::tagToJson(p)["values"];
            if (e.count == 1 && v.values[0].is_number_integer()) {
                const char* name = kvhost::enumName(*info, v.values[0].get<int32_t>());
                if (name != nullptr) v.name = name;
            }
        }
        out.push_back(std::move(v));
    }
    return out;
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

std::string framesTable(const std::vector<FrameCalls>& frames) {
    std::vector<std::vector<std::string>> rows;
    std::vector<std::string> header{"frame", "timestamp"};
    if (!frames.empty()) {
        const std::vector<RecordedValue>& recorded = frames.front().recorded;
        for (size_t k = 0; k < recorded.size() && k < kShownRecordedTags; ++k) {
            header.push_back(recorded[k].tag);
        }
        for (const CallRecord& c : frames.front().calls) header.push_back(c.getter->method);
    }
    rows.push_back(header);
    for (const FrameCalls& f : frames) {
        std::vector<std::string> row{std::to_string(f.number), std::to_string(f.timestamp)};
        for (size_t k = 0; k < f.recorded.size() && k < kShownRecordedTags; ++k) {
            row.push_back(recordedText(f.recorded[k]));
        }
        for (size_t k = 0; k < f.calls.size(); ++k) {
            const bool fixed = k < f.fromBlocks.size() && !f.fromBlocks[k].empty();
            row.push_back(cellText(f.calls[k]) + (fixed ? " *" : ""));
        }
        rows.push_back(std::move(row));
    }
    std::vector<size_t> width(header.size(), 0);
    for (const auto& row : rows) {
        for (size_t i = 0; i < row.size() && i < width.size(); ++i) {
            width[i] = std::max(width[i], row[i].size());
        }
    }
    std::string out;
    for (const auto& row : rows) {
        std::string line;
        for (size_t i = 0; i < row.size() && i < width.size(); ++i) {
            std::string cell = row[i];
            // Numbers of the frame and the time to the right, the rest to the left.
            if (i < 2) cell.insert(0, width[i] - cell.size(), ' ');
            if (i + 1 < row.size()) cell.resize(width[i], ' ');
            line += (i == 0 ? "" : "  ") + cell;
        }
        out += line + "\n";
    }
    return out;
}

Json framesJson(const std::vector<FrameCalls>& frames, bool withLogs,
                const std::vector<std::string>& notes, const std::vector<std::string>& warnings) {
    Json list = Json::array();
    for (const FrameCalls& f : frames) {
        Json recorded = Json::array();
        for (const RecordedValue& v : f.recorded) {
            Json value{{"tag", v.tag}, {"values", v.values}};
            if (!v.name.empty()) value["name"] = v.name;
            value["changed"] = v.changed;
            recorded.push_back(std::move(value));
        }
        Json calls = Json::array();
        for (size_t k = 0; k < f.calls.size(); ++k) {
            calls.push_back(callJson(f.calls[k], withLogs));
            if (k < f.fromBlocks.size() && !f.fromBlocks[k].empty()) {
                calls.back()["fromBlocks"] = f.fromBlocks[k];
            }
        }
        list.push_back({{"frame", f.number},
                        {"timestamp", f.timestamp},
                        {"recorded", recorded},
                        {"calls", calls}});
    }
    return Json{{"notes", notes}, {"warnings", warnings}, {"frames", list}};
}

std::string framesCsv(const std::vector<FrameCalls>& frames) {
    // Columns in the order the frames first show them, a getter's or a
    // tag's together.
    std::vector<std::string> columns;
    std::vector<size_t> groupOf;  // by column
    std::vector<std::string> groups;
    std::map<std::string, size_t> column;
    std::vector<std::map<size_t, std::string>> rows;
    // A group's fields: its output's, a scalar under `scalar`.
    const auto addOutput = [](std::vector<Field>& fields, const std::string& group, const Json& v,
                              const std::string& scalar) {
        std::vector<std::pair<std::string, std::string>> flat;
        flatten(v, group, flat);
        if (flat.size() == 1 && flat[0].first == group) flat[0].first = scalar;
        for (auto& [name, text] : flat) fields.push_back({group, name, std::move(text)});
    };
    for (const FrameCalls& f : frames) {
        std::vector<Field> fields{{"frame", "frame", std::to_string(f.number)},
                                  {"timestamp", "timestamp", std::to_string(f.timestamp)}};
        for (const RecordedValue& v : f.recorded) {
            // A single value is the tag's column itself: "android.control.aeState".
            addOutput(fields, v.tag, v.values.size() == 1 ? v.values[0] : v.values, v.tag);
            if (!v.name.empty()) fields.push_back({v.tag, v.tag + ".name", v.name});
        }
        for (size_t k = 0; k < f.calls.size(); ++k) {
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
        std::map<size_t, std::string> row;
        for (Field& field : fields) {
            auto [at, added] = column.emplace(field.column, columns.size());
            if (added) {
                columns.push_back(field.column);
                const auto g = std::find(groups.begin(), groups.end(), field.group);
                groupOf.push_back(static_cast<size_t>(g - groups.begin()));
                if (g == groups.end()) groups.push_back(field.group);
            }
            row[at->second] = std::move(field.text);
        }
        rows.push_back(std::move(row));
    }
    // Columns that appear only in later frames go after their group's others.
    std::vector<size_t> order(columns.size());
    for (size_t i = 0; i < order.size(); ++i) order[i] = i;
    std::stable_sort(order.begin(), order.end(),
                     [&](size_t a, size_t b) { return groupOf[a] < groupOf[b]; });
    std::string out;
    for (size_t i = 0; i < order.size(); ++i) out += (i ? "," : "") + csvField(columns[order[i]]);
    out += "\n";
    for (const auto& row : rows) {
        for (size_t i = 0; i < order.size(); ++i) {
            const auto cell = row.find(order[i]);
            out += (i ? "," : "") + (cell == row.end() ? "" : csvField(cell->second));
        }
        out += "\n";
    }
    return out;
}

}  // namespace inspect
