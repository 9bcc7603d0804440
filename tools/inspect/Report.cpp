#include "Report.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <sstream>

#include "Messages.h"
#include "kvhost/Adapter.h"

namespace inspect {
namespace {

constexpr size_t kLineWidth = 120;
constexpr size_t kLongText = 64;   // strings longer than this are cut in the text report
constexpr size_t kLongArray = 10;  // arrays longer than this show their ends

// Points the call at the metadata its method is given; returns it in words.
std::string giveMetadata(const Capture& capture, Call& call, Given given) {
    int camera = capture.satCameraId;
    switch (given) {
        case Given::Frame:
            return "frame";
        case Given::Nothing:
            return "";
        case Given::FrameStatic:
            if (call.utils.GetFwkCameraId(call.capture.frame, &camera) != 0) {
                call.md = nullptr;
                return "static metadata of the frame's camera (the frame names none)";
            }
            break;
        case Given::SatStatic:
            break;
    }
    call.md = call.capture.staticOf(camera);
    return "static metadata of camera " + std::to_string(camera) + (call.md ? "" : " (none)");
}

// An object of exactly these numeric members, in this order.
bool hasShape(const Json& v, std::initializer_list<const char*> keys) {
    if (!v.is_object() || v.size() != keys.size()) return false;
    auto key = keys.begin();
    for (const auto& item : v.items()) {
        if (item.key() != *key++ || !item.value().is_number()) return false;
    }
    return true;
}

bool isRect(const Json& v) {
    return hasShape(v, {"left", "top", "width", "height"});
}

bool isScalar(const Json& v) {
    return !v.is_object() && !v.is_array();
}

std::string scalarText(const Json& v) {
    if (v.is_null()) return "-";
    if (!v.is_string()) return v.dump();
    const std::string& s = v.get_ref<const std::string&>();
    if (s.empty()) return "\"\"";  // "" is what does not fit on a line
    if (s.size() <= kLongText) return s;
    return s.substr(0, kLongText - 16) + "... (" + std::to_string(s.size()) + " chars)";
}

std::string joined(const std::vector<std::string>& parts, const char* open, const char* close) {
    std::string out = open;
    for (size_t i = 0; i < parts.size(); ++i) out += (i == 0 ? "" : ", ") + parts[i];
    return out + close;
}

std::string arrayText(const Json& v) {
    std::vector<std::string> parts;
    const bool cut = v.size() > kLongArray && std::all_of(v.begin(), v.end(), isScalar);
    for (size_t i = 0; i < v.size(); ++i) {
        if (cut && i == kLongArray - 3) {
            parts.push_back("...");
            i = v.size() - 2;
            continue;
        }
        const std::string part = inlineText(v[i]);
        if (part.empty()) return "";
        parts.push_back(part);
    }
    return joined(parts, "[", "]") + (cut ? " (" + std::to_string(v.size()) + " values)" : "");
}

std::string objectText(const Json& v, bool nested) {
    if (isRect(v)) {
        return "(" + v["left"].dump() + ", " + v["top"].dump() + ") " + v["width"].dump() + "x" +
               v["height"].dump();
    }
    if (hasShape(v, {"width", "height"})) return v["width"].dump() + "x" + v["height"].dump();
    if (hasShape(v, {"x", "y"})) return "(" + v["x"].dump() + ", " + v["y"].dump() + ")";
    std::vector<std::string> parts;
    for (const auto& item : v.items()) {
        const std::string part = inlineText(item.value());
        if (part.empty()) return "";
        parts.push_back(item.key() + " " + part);
    }
    return nested ? joined(parts, "{", "}") : joined(parts, "", "");
}

std::string fitted(std::string text, size_t indent) {
    return indent + text.size() <= kLineWidth ? text : "";
}

// Items after a label, as many to a line as fit.
void writeWrapped(std::ostringstream& out, const std::string& label, const Json& items) {
    const std::string pad(6 + label.size() + 2, ' ');
    std::string line = std::string(6, ' ') + label + ": ";
    for (size_t i = 0; i < items.size(); ++i) {
        const std::string item = items[i].get<std::string>() + (i + 1 < items.size() ? "," : "");
        if (line.size() > pad.size() && line.size() + item.size() > kLineWidth) {
            out << line.substr(0, line.size() - 1) << "\n";
            line = pad;
        }
        line += item + " ";
    }
    out << line.substr(0, line.size() - 1) << "\n";
}

// A value over several lines: members and elements one per line, each as
// short as it can be.
void writeBlock(std::ostringstream& out, const std::string& label, const Json& v, size_t indent) {
    const std::string pad(indent, ' ');
    // A scalar has no parts to spread: it stays on its line, however long.
    const std::string text =
        isScalar(v) ? scalarText(v) : fitted(outerText(v), indent + label.size() + 1);
    if (!text.empty()) {
        out << pad << label << (label.empty() ? "" : " ") << text << "\n";
        return;
    }
    if (!label.empty()) out << pad << label << ":\n";
    const size_t inner = label.empty() ? indent : indent + 2;
    if (v.is_object()) {
        for (const auto& item : v.items()) writeBlock(out, item.key(), item.value(), inner);
        return;
    }
    for (size_t i = 0; i < v.size(); ++i) {
        writeBlock(out, "[" + std::to_string(i) + "]", v[i], inner);
    }
}

// The primary convention sends each statement online and then offline with
// the same text: one line says both.
void writeLogs(std::ostringstream& out, const std::vector<kvhost::LogRecord>& logs) {
    for (size_t i = 0; i < logs.size(); ++i) {
        const kvhost::LogRecord& r = logs[i];
        std::string sink = kvhost::sinkName(r.sink);
        if (r.sink == kvhost::LogSink::Online && i + 1 < logs.size() &&
            logs[i + 1].sink == kvhost::LogSink::Offline && logs[i + 1].text == r.text &&
            logs[i + 1].level == r.level) {
            sink += "+offline";
            ++i;
        }
        out << "      | " << sink << " L" << r.level << " " << r.text << "\n";
    }
}

std::string hexId(uint32_t id) {
    char text[16];
    std::snprintf(text, sizeof(text), "0x%08x", id);
    return text;
}

// The tag of a lookup by its name, or its id when the table has no name.
std::string readName(const kvhost::LookupRecord& r) {
    return r.tag.empty() ? hexId(r.id) : r.tag;
}

std::string placeText(const kvhost::LookupRecord& r) {
    switch (r.place) {
        case kvhost::LookupPlace::Frame:
            return "the frame";
        case kvhost::LookupPlace::Static:
            return "the static metadata of camera " + std::to_string(r.cameraId);
        case kvhost::LookupPlace::Container:
            break;
    }
    return "another container";
}

// "int32[4]".
std::string entryText(const kvhost::LookupRecord& r) {
    return std::string(kvhost::typeName(r.type)) + "[" + std::to_string(r.count) + "]";
}

// Android's own tags, whose declared types are Android's; vendor tags start
// at Android's vendor boundary, and the table's types for those read by name
// are not the types the library reads them as.
constexpr uint32_t kVendorTagStart = 0x80000000u;

// One call the platform adapter received, in words.
std::string adapterCall(const kvhost::AdapterCall& call) {
    const std::string name = kvhost::adapterOpName(call.op);
    const std::string key = call.keyIsNull ? "null" : "\"" + call.key + "\"";
    switch (call.op) {
        case kvhost::AdapterOp::EnableGyro:
            return name + "(" + key + ", " + std::to_string(call.arg1) + ", " +
                   std::to_string(call.arg2) + ")";
        case kvhost::AdapterOp::DisableGyro:
        case kvhost::AdapterOp::GetGyroData:
            return name + "(" + key + ", " + std::to_string(call.arg1) + ")";
        case kvhost::AdapterOp::GetShift:
            return name + "(timestamp " + std::to_string(call.shift.timestamp) + ", cameraId " +
                   std::to_string(call.shift.cameraId) + ", nodeType " +
                   std::to_string(call.shift.nodeType) + ", tolerance " +
                   std::to_string(call.tolerance) + ")";
        default:
            return name;
    }
}

std::string header(const Capture& c, bool allMessages) {
    std::ostringstream out;
    out << "capture " << c.file << "\n";
    if (!c.description.empty()) out << "  " << c.description << "\n";
    for (const std::string& note : messageLines(c.notes, allMessages)) out << "  " << note << "\n";
    for (const std::string& warning : messageLines(c.warnings, allMessages)) {
        out << "  warning: " << warning << "\n";
    }
    out << "  camera " << c.cameraId << ", SAT camera " << c.satCameraId << "; input "
        << c.inputWidth << "x" << c.inputHeight << "; sensor size ";
    if (c.sensorSize) {
        out << c.sensorSize->first << "x" << c.sensorSize->second;
    } else {
        out << "from the active array";
    }
    out << "; isInSensorZoom " << std::boolalpha << c.isInSensorZoom << ", useInSensorZoom "
        << c.useInSensorZoom;
    out << "\n  frame: " << (c.frame ? c.frame->size() : 0) << " tags; static metadata of cameras:";
    if (c.statics.empty()) out << " none";
    for (const auto& item : c.statics) {
        out << (item.first == c.statics.begin()->first ? " " : ", ") << item.first;
    }
    const kvhost::AdapterAnswers& a = c.adapter;
    out << "\n  platform adapter: ";
    if (!a.present) {
        out << "absent\n";
        return out.str();
    }
    out << a.roles.size() << " camera roles, ";
    if (a.shift) {
        out << "shift (" << a.shift->first << ", " << a.shift->second << ")"
            << (a.shiftInSensorZoom ? " measured in-sensor-zoom" : "");
    } else {
        out << "no shift";
    }
    out << ", " << a.gyro.size() << " gyro samples\n";
    return out.str();
}

}  // namespace

std::string outerText(const Json& v) {
    return v.is_object() ? objectText(v, false) : inlineText(v);
}

std::string inlineText(const Json& v) {
    if (v.is_object()) return objectText(v, true);
    if (v.is_array()) return arrayText(v);
    return scalarText(v);
}

std::string readText(const kvhost::LookupRecord& r) {
    const std::string tag =
        r.known ? r.tag + " (" + hexId(r.id) + ")" : readName(r) + " (unknown to the tag table)";
    return tag + " in " + placeText(r) + ": " + (r.found ? entryText(r) : "not found");
}

std::string failureClause(const CallRecord& call) {
    const std::optional<int>& rc = call.outcome.result;
    if (!rc || (*rc != -1 && *rc != -2)) return "";
    const std::vector<kvhost::LookupRecord>& reads = call.reads;
    if (reads.empty()) return "no tag looked up";
    // A getter stops at the lookup that fails it: the last one that found
    // nothing is the likely cause.
    for (auto r = reads.rbegin(); r != reads.rend(); ++r) {
        if (!r->known) return readName(*r) + ": unknown to the tag table";
        if (!r->found) return r->tag + ": not in " + placeText(*r);
        if (r->count == 0) return r->tag + ": empty in " + placeText(*r);
    }
    // The library's reads are not visible here; an Android tag's declared
    // type is what a reader of it expects.
    for (const kvhost::LookupRecord& r : reads) {
        const kvhost::TagInfo* info = kvhost::findTag(r.id);
        if (r.id < kVendorTagStart && info != nullptr && info->type != r.type) {
            return r.tag + ": found " + entryText(r) + ", the tag table declares " +
                   kvhost::typeName(info->type);
        }
    }
    return reads.back().tag + ": found " + entryText(reads.back()) + " in " +
           placeText(reads.back());
}

namespace {

// A rectangle of no area, {"left", "top", "width", "height"}, as the
// reports print it ("0x0"); "" for anything else.
std::string zeroRect(const Json& v) {
    if (!v.is_object()) return "";
    const auto w = v.find("width"), h = v.find("height");
    if (w == v.end() || h == v.end() || !w->is_number() || !h->is_number()) return "";
    if (*w != 0 && *h != 0) return "";
    return w->dump() + "x" + h->dump();
}

}  // namespace

std::string emptyClause(const CallRecord& call) {
    const std::optional<int>& rc = call.outcome.result;
    if (!rc || *rc != 0) return "";
    const Json& out = call.outcome.output;
    std::string what;
    if (const std::string size = zeroRect(out); !size.empty()) {
        what = "a " + size + " rectangle";
    } else if (out.is_object() && out.contains("crop")) {
        if (const std::string crop = zeroRect(out["crop"]); !crop.empty()) what = "crop " + crop;
    }
    if (what.empty()) return "";
    std::string why;
    for (const kvhost::LookupRecord& r : call.reads) {
        if (r.found && r.count > 0) continue;
        why += (why.empty() ? "" : ", ") + r.tag + (r.found ? ": empty in " : ": not in ") +
               placeText(r);
    }
    // The crop table is there but holds nothing for this camera: the
    // library's lines say which camera it looked for and what it found.
    const std::vector<long long> looked = loggedNumbers(
        call.logs,
        "allInOneCrop get crop region from SAT camId = %d isInSensorZoom = %d cropregion: [%d "
        "%d %d %d]");
    if (why.empty() && looked.size() == 6) {
        const bool matched =
            !loggedNumbers(call.logs,
                           "allInOneCrop get crop region from SAT camId = %d cropregion: [%d %d "
                           "%d %d]")
                 .empty();
        why = std::string("com.kovani.camera.sensorpolicy.cropregions ") +
              (matched ? "gives a 0x0 crop" : "has no entry") + " for SAT camera " +
              std::to_string(looked[0]);
    }
    if (why.empty()) {
        for (const kvhost::LookupRecord& r : call.reads) {
            why += (why.empty() ? "from " : ", ") + r.tag;
        }
    }
    return what + (why.empty() ? "" : ": " + why);
}

std::vector<CallRecord> runGetters(const Capture& capture) {
    std::vector<const Getter*> all;
    for (const Getter& getter : getterTable()) all.push_back(&getter);
    return runGetters(capture, all);
}

std::vector<CallRecord> runGetters(const Capture& capture,
                                   const std::vector<const Getter*>& getters) {
    kvalgo2::MetaUtils utils;
    utils.SetCameraId(capture.cameraId, capture.satCameraId);
    std::vector<CallRecord> calls;
    calls.reserve(getters.size());
    for (const Getter* getter : getters) {
        kvhost::LogCapture logs;
        kvhost::LookupRecorder reads;
        reads.setFrame(capture.frame);
        Call call{utils, capture, capture.frame, logs, reads};
        CallRecord record;
        record.getter = getter;
        record.given = call.quietly([&] { return giveMetadata(capture, call, getter->given); });
        const kvhost::AdapterRecorder adapterCalls;
        record.outcome = getter->call(call);
        record.logs = logs.records();
        record.reads = reads.records();
        for (const kvhost::AdapterCall& a : adapterCalls.calls()) {
            record.adapter.push_back(adapterCall(a));
        }
        record.empty = emptyClause(record);
        calls.push_back(std::move(record));
    }
    return calls;
}

const CallRecord* findCall(const std::vector<CallRecord>& calls, const char* method) {
    for (const CallRecord& call : calls) {
        if (std::strcmp(call.getter->method, method) == 0) return &call;
    }
    return nullptr;
}

std::string textReport(const Capture& capture, const std::vector<CallRecord>& calls, bool withLogs,
                       bool withTags, bool allMessages) {
    std::ostringstream out;
    out << header(capture, allMessages);
    size_t width = 0;
    for (const CallRecord& call : calls) width = std::max(width, std::strlen(call.getter->method));
    // Each subsystem's calls under one heading, the subsystems in the order
    // their first call was asked for.
    std::vector<const CallRecord*> ordered;
    for (const CallRecord& first : calls) {
        const auto same = [&](const CallRecord* c) {
            return std::strcmp(c->getter->subsystem, first.getter->subsystem) == 0;
        };
        if (std::any_of(ordered.begin(), ordered.end(), same)) continue;
        for (const CallRecord& c : calls) {
            if (same(&c)) ordered.push_back(&c);
        }
    }
    const char* subsystem = "";
    for (const CallRecord* in : ordered) {
        const CallRecord& call = *in;
        if (std::strcmp(subsystem, call.getter->subsystem) != 0) {
            subsystem = call.getter->subsystem;
            out << "\n" << subsystem << "\n";
        }
        const Outcome& o = call.outcome;
        std::string method = call.getter->method;
        method.resize(width, ' ');
        std::string result = resultText(o);
        result.insert(0, 3 - std::min<size_t>(3, result.size()), ' ');
        const std::string lead = "  " + method + "  " + result + "  ";
        const std::string given =
            call.given.empty() || call.given == "frame" ? "" : "  [given the " + call.given + "]";
        std::string text = o.skipped.empty()
                               ? fitted(outerText(o.output), lead.size() + given.size())
                               : "not called: " + o.skipped;
        if (const char* name = valueName(*call.getter, o.output)) text += std::string(" ") + name;
        const std::string clause = failureClause(call);
        const std::string why = !clause.empty()       ? "  (" + clause + ")"
                                : !call.empty.empty() ? "  (empty: " + call.empty + ")"
                                                      : "";
        if (!text.empty() || o.output.is_null()) {
            out << lead << (text.empty() ? "-" : text) << given << why << "\n";
        } else {
            out << lead.substr(0, lead.find_last_not_of(' ') + 1) << given << why << "\n";
            writeBlock(out, "", o.output, 6);
        }
        if (!call.adapter.empty()) writeWrapped(out, "adapter", call.adapter);
        if (withTags) {
            for (const kvhost::LookupRecord& r : call.reads)
                out << "      reads " << readText(r) << "\n";
        }
        if (withLogs) writeLogs(out, call.logs);
    }
    return out.str();
}

std::string callText(const CallRecord& call) {
    const Outcome& o = call.outcome;
    std::ostringstream out;
    std::string text =
        o.skipped.empty() ? fitted(outerText(o.output), 0) : "not called: " + o.skipped;
    if (const char* name = valueName(*call.getter, o.output)) text += std::string(" ") + name;
    if (!text.empty() || o.output.is_null()) {
        out << (text.empty() ? "-" : text) << "\n";
    } else {
        writeBlock(out, "", o.output, 0);
    }
    if (!call.adapter.empty()) writeWrapped(out, "adapter", call.adapter);
    std::string all = out.str();
    all.pop_back();  // the last line's end
    return all;
}

std::string resultText(const Outcome& o) {
    return o.result ? std::to_string(*o.result) : o.skipped.empty() ? "" : "--";
}

Json callJson(const CallRecord& call, bool withLogs) {
    Json entry = {{"subsystem", call.getter->subsystem},
                  {"method", call.getter->method},
                  {"given", call.given},
                  {"result", call.outcome.result ? Json(*call.outcome.result) : Json()},
                  {"output", call.outcome.output}};
    if (!call.outcome.skipped.empty()) entry["skipped"] = call.outcome.skipped;
    if (!call.empty.empty()) entry["empty"] = call.empty;
    // What made a call give -1 or -2, as the text report says it.
    if (std::string why = failureClause(call); !why.empty()) entry["why"] = std::move(why);
    if (!call.adapter.empty()) entry["adapter"] = call.adapter;
    Json& reads = entry["reads"] = Json::array();
    for (const kvhost::LookupRecord& r : call.reads) {
        Json read = {{"tag", readName(r)},
                     {"id", r.known ? Json(hexId(r.id)) : Json()},
                     {"in", kvhost::lookupPlaceName(r.place)}};
        if (r.place == kvhost::LookupPlace::Static) read["camera"] = r.cameraId;
        read["found"] = r.found;
        if (r.found) {
            read["type"] = kvhost::typeName(r.type);
            read["count"] = r.count;
        }
        reads.push_back(std::move(read));
    }
    if (withLogs) {
        Json& logs = entry["logs"] = Json::array();
        for (const kvhost::LogRecord& r : call.logs) {
            logs.push_back(
                {{"sink", kvhost::sinkName(r.sink)}, {"level", r.level}, {"text", r.text}});
        }
    }
    return entry;
}

Json jsonReport(const Capture& capture, const std::vector<CallRecord>& calls, bool withLogs) {
    Json report;
    report["capture"] = capture.file;
    report["description"] = capture.description;
    report["notes"] = capture.notes;
    report["warnings"] = capture.warnings;
    // The kinds of warning, for a reader that wants the gist.
    Json kinds = Json::array();
    for (const MessageGroup& g : groupMessages(capture.warnings)) {
        kinds.push_back({{"kind", g.kind}, {"count", g.messages.size()}});
    }
    report["warningKinds"] = std::move(kinds);
    report["camera"] = {{"cameraId", capture.cameraId}, {"satCameraId", capture.satCameraId}};
    report["input"] = {{"width", capture.inputWidth}, {"height", capture.inputHeight}};
    report["arguments"] = {
        {"sensorSize", capture.sensorSize ? Json{{"width", capture.sensorSize->first},
                                                 {"height", capture.sensorSize->second}}
                                          : Json()},
        {"isInSensorZoom", capture.isInSensorZoom},
        {"useInSensorZoom", capture.useInSensorZoom},
        {"gyroKey", capture.gyroKey},
        {"gyroQuery", capture.gyroQuery}};
    Json& list = report["calls"] = Json::array();
    for (const CallRecord& call : calls) list.push_back(callJson(call, withLogs));
    return report;
}

}  // namespace inspect
