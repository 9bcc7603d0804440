#include "Html.h"

#include <algorithm>

#include "JsonReader.h"
#include "ReportPage.h"
#include "Svg.h"

namespace inspect {
namespace {

// The page around the data (page/report.html with its styles and script),
// joined once.
const std::string& pageText() {
    static const std::string text = [] {
        std::string joined;
        for (const char* piece : page::kPieces) joined += piece;
        return joined;
    }();
    return text;
}

// What a frame's page holds of a call is the same as the frame before's.
bool sameCall(const CallRecord& a, const CallRecord& b) {
    const auto sameLogs = [](const kvhost::LogRecord& x, const kvhost::LogRecord& y) {
        return x.sink == y.sink && x.level == y.level && x.text == y.text;
    };
    const auto sameReads = [](const kvhost::LookupRecord& x, const kvhost::LookupRecord& y) {
        return x.tag == y.tag && x.id == y.id && x.known == y.known && x.place == y.place &&
               x.cameraId == y.cameraId && x.found == y.found && x.type == y.type &&
               x.count == y.count;
    };
    return a.getter == b.getter && a.given == b.given && a.outcome.result == b.outcome.result &&
           a.outcome.skipped == b.outcome.skipped && a.outcome.output == b.outcome.output &&
           a.adapter == b.adapter &&
           std::equal(a.logs.begin(), a.logs.end(), b.logs.begin(), b.logs.end(), sameLogs) &&
           std::equal(a.reads.begin(), a.reads.end(), b.reads.begin(), b.reads.end(), sameReads);
}

// Each number as its difference from the one before (the first from 0):
// frame numbers and timestamps are small steps.
Json steps(const std::vector<int64_t>& numbers) {
    Json out = Json::array();
    int64_t before = 0;
    for (const int64_t n : numbers) {
        out.push_back(n - before);
        before = n;
    }
    return out;
}

}  // namespace

std::string scriptSafe(const std::string& json) {
    std::string out;
    out.reserve(json.size());
    for (size_t i = 0; i < json.size(); ++i) {
        const char c = json[i];
        if (c == '<') {
            out += "\\u003c";
        } else if (c == '>') {
            out += "\\u003e";
        } else if (c == '&') {
            out += "\\u0026";
        } else if (c == '\xE2' && i + 2 < json.size() && json[i + 1] == '\x80' &&
                   (json[i + 2] == '\xA8' || json[i + 2] == '\xA9')) {
            out += json[i + 2] == '\xA8' ? "\\u2028" : "\\u2029";
            i += 2;
        } else {
            out += c;
        }
    }
    return out;
}

// The geometry getters run over the session by their own builder, which
// runs them again only where their tags change; a picture is drawn for each
// distinct set of their answers.
struct HtmlPage::Pictures {
    explicit Pictures(const kvhost::Sequence& sequence) : builder(sequence, geometryGetters()) {}
    FrameBuilder builder;
    Capture drawn;  // the file and the input size a picture names
};

HtmlPage::HtmlPage() = default;

HtmlPage::HtmlPage(const kvhost::Sequence& sequence)
    : session_(true), pictures_(std::make_unique<Pictures>(sequence)) {}

HtmlPage::~HtmlPage() = default;

size_t HtmlPage::Column::add(size_t frame, Json value, const std::string& key) {
    const auto [it, added] = index.emplace(key, values.size());
    if (added) values.push_back(std::move(value));
    at(frame, it->second);
    return it->second;
}

void HtmlPage::Column::at(size_t frame, size_t value) {
    if (changes.empty() || changes.back().second != value) changes.emplace_back(frame, value);
}

void HtmlPage::addRead(const std::string& label, const std::string& text) {
    read_.push_back({label, text});
}

void HtmlPage::addFrame(const FrameCalls& frame, const std::string& geometrySvg) {
    numbers_.push_back(frame.number);
    timestamps_.push_back(frame.timestamp);
    geometries_.add(0, geometrySvg, geometrySvg);
    addCalls(0, frame);
}

bool HtmlPage::addFrame(size_t i, const FrameCalls& frame, std::string* error) {
    numbers_.push_back(frame.number);
    timestamps_.push_back(frame.timestamp);
    const FrameCalls* geometry = pictures_->builder.frame(i, error);
    if (geometry == nullptr) return false;
    // No geometry getter ran again: the frame before's picture.
    if (const Capture* capture = pictures_->builder.capture(); capture != nullptr || i == 0) {
        if (capture != nullptr) {
            pictures_->drawn.file = capture->file;
            pictures_->drawn.inputWidth = capture->inputWidth;
            pictures_->drawn.inputHeight = capture->inputHeight;
        }
        const Capture& drawn = pictures_->drawn;
        std::string key = drawn.file + "\n" + std::to_string(drawn.inputWidth) + "x" +
                          std::to_string(drawn.inputHeight);
        for (const CallRecord& call : geometry->calls) {
            key += "\n" + resultText(call.outcome) + " " + call.outcome.skipped + " " +
                   kvhost::loader::jsonText(call.outcome.output);
        }
        const auto known = geometries_.index.find(key);
        if (known != geometries_.index.end()) {
            geometries_.at(i, known->second);
        } else {
            // Drawn without the caption, which names the frame: frames of the
            // same geometry share one picture.
            geometries_.add(i, drawGeometry(drawn, geometry->calls), key);
        }
    }
    addCalls(i, frame);
    return true;
}

void HtmlPage::addCalls(size_t i, const FrameCalls& frame) {
    if (i == 0) {
        for (const CallRecord& call : frame.calls) getters_.push_back(call.getter);
        calls_.resize(getters_.size());
        lastCalls_.resize(getters_.size());
        lastFromBlocks_.resize(getters_.size());
        for (const RecordedValue& v : frame.recorded) recordedTags_.push_back(v.tag);
        recorded_.resize(recordedTags_.size());
        lastRecorded_.resize(recordedTags_.size());
        logged_.resize(recordedTags_.size());
    }
    static const std::vector<std::string> kNone;
    for (size_t k = 0; k < frame.calls.size() && k < calls_.size(); ++k) {
        const CallRecord& call = frame.calls[k];
        const std::vector<std::string>& fromBlocks =
            k < frame.fromBlocks.size() ? frame.fromBlocks[k] : kNone;
        if (lastCalls_[k] && sameCall(*lastCalls_[k], call) && lastFromBlocks_[k] == fromBlocks) {
            continue;
        }
        Json value = callJson(call, true);
        value.erase("subsystem");
        value.erase("method");
        value["text"] = callText(call);
        if (const char* name = valueName(*call.getter, call.outcome.output)) value["name"] = name;
        if (!fromBlocks.empty()) value["fromBlocks"] = fromBlocks;
        const std::string key = kvhost::loader::jsonText(value);
        calls_[k].add(i, std::move(value), key);
        lastCalls_[k] = call;
        lastFromBlocks_[k] = fromBlocks;
    }
    for (size_t k = 0; k < frame.recorded.size() && k < recorded_.size(); ++k) {
        const RecordedValue& v = frame.recorded[k];
        if (v.changed) logged_[k].push_back(i);
        if (i > 0 && lastRecorded_[k] == v.values) continue;
        Json value{{"values", v.values}, {"text", recordedText(v)}};
        if (!v.name.empty()) value["name"] = v.name;
        const std::string key = kvhost::loader::jsonText(value);
        recorded_[k].add(i, std::move(value), key);
        lastRecorded_[k] = v.values;
    }
}

void HtmlPage::dropGetter(size_t k) {
    if (k >= getters_.size()) return;
    const auto at = [k](auto& list) { list.erase(list.begin() + static_cast<std::ptrdiff_t>(k)); };
    at(getters_);
    at(calls_);
    at(lastCalls_);
    at(lastFromBlocks_);
}

std::string HtmlPage::html() const {
    // A column's changes as pairs of the frames since the change before and
    // the value's place, in one flat list.
    const auto changes = [](const Column& c) {
        Json out = Json::array();
        size_t before = 0;
        for (const auto& [frame, value] : c.changes) {
            out.push_back(frame - before);
            out.push_back(value);
            before = frame;
        }
        return out;
    };
    Json data;
    data["title"] = title_;
    data["session"] = session_;
    data["read"] = read_;
    data["frames"] = {{"numbers", steps(numbers_)}, {"timestamps", steps(timestamps_)}};
    Json& getters = data["getters"] = Json::array();
    for (size_t k = 0; k < getters_.size(); ++k) {
        getters.push_back({{"subsystem", getters_[k]->subsystem},
                           {"method", getters_[k]->method},
                           {"values", calls_[k].values},
                           {"changes", changes(calls_[k])}});
    }
    Json& recorded = data["recorded"] = Json::array();
    for (size_t k = 0; k < recordedTags_.size(); ++k) {
        std::vector<int64_t> logged(logged_[k].begin(), logged_[k].end());
        recorded.push_back({{"tag", recordedTags_[k]},
                            {"values", recorded_[k].values},
                            {"changes", changes(recorded_[k])},
                            {"logged", steps(logged)}});
    }
    data["geometries"] = {{"values", geometries_.values}, {"changes", changes(geometries_)}};
    data["checks"] = checks_.is_object() ? checks_.value("checks", Json()) : Json();
    data["findings"] = checks_.is_object() ? checks_.value("findings", Json()) : Json();
    const std::string& page = pageText();
    const size_t at = page.find("@DATA@");
    return page.substr(0, at) + scriptSafe(kvhost::loader::jsonText(data)) + page.substr(at + 6);
}

}  // namespace inspect
