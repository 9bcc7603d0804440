#include "Frames.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <sstream>

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

}  // namespace

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
        for (const CallRecord& c : frames.front().calls) header.push_back(c.getter->method);
    }
    rows.push_back(header);
    for (const FrameCalls& f : frames) {
        std::vector<std::string> row{std::to_string(f.number), std::to_string(f.timestamp)};
        for (const CallRecord& c : f.calls) row.push_back(cellText(c));
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

Json framesJson(const std::vector<FrameCalls>& frames, bool withLogs) {
    Json list = Json::array();
    for (const FrameCalls& f : frames) {
        Json calls = Json::array();
        for (const CallRecord& c : f.calls) calls.push_back(callJson(c, withLogs));
        list.push_back({{"frame", f.number}, {"timestamp", f.timestamp}, {"calls", calls}});
    }
    return Json{{"frames", list}};
}

std::string framesCsv(const std::vector<FrameCalls>& frames) {
    // Columns in the order the frames first show them, a getter's together.
    std::vector<std::string> columns;
    std::map<std::string, size_t> column;
    std::vector<std::map<size_t, std::string>> rows;
    for (const FrameCalls& f : frames) {
        std::vector<std::pair<std::string, std::string>> fields{
            {"frame", std::to_string(f.number)}, {"timestamp", std::to_string(f.timestamp)}};
        for (const CallRecord& c : f.calls) {
            const std::string method = c.getter->method;
            fields.emplace_back(method + ".result", resultText(c.outcome));
            const size_t first = fields.size();
            flatten(c.outcome.output, method, fields);
            // A scalar output is the method's column itself: "GetSensitivity".
            if (fields.size() == first + 1 && fields.back().first == method) {
                fields.back().first = method + ".value";
            }
            if (const char* name = valueName(*c.getter, c.outcome.output)) {
                fields.emplace_back(method + ".name", name);
            }
        }
        std::map<size_t, std::string> row;
        for (auto& [name, text] : fields) {
            auto [at, added] = column.emplace(name, columns.size());
            if (added) columns.push_back(name);
            row[at->second] = std::move(text);
        }
        rows.push_back(std::move(row));
    }
    // Columns that appear only in later frames go after their getter's others.
    std::vector<size_t> order(columns.size());
    for (size_t i = 0; i < order.size(); ++i) order[i] = i;
    const auto getterOf = [&](size_t i) {
        return columns[i].substr(0, columns[i].find_first_of(".["));
    };
    std::vector<std::string> getters;
    for (size_t i = 0; i < columns.size(); ++i) {
        if (std::find(getters.begin(), getters.end(), getterOf(i)) == getters.end()) {
            getters.push_back(getterOf(i));
        }
    }
    std::stable_sort(order.begin(), order.end(), [&](size_t a, size_t b) {
        return std::find(getters.begin(), getters.end(), getterOf(a)) <
               std::find(getters.begin(), getters.end(), getterOf(b));
    });
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
