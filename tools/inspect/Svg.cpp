#include "Svg.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <sstream>
#include <utility>

namespace inspect {
namespace {

constexpr double kPanelWidth = 560;
constexpr double kPanelHeight = 420;
constexpr double kMargin = 30;
const std::string kEmptyNotice = "succeeded with nothing usable: ";

// How each kind of rectangle is drawn.
struct Style {
    const char* stroke;
    const char* fill;
    double width;
    const char* dash;  // "" for solid
};

const Style kArray{"#555555", "#f2f2f2", 1.5, ""};
const Style kVisible{"#c9a227", "#fff4c2", 1, "2,3"};
const Style kAndroidCrop{"#1f77b4", "none", 2, ""};
const Style kPolicyCrop{"#ff7f0e", "none", 2, "8,4"};
const Style kBeforeShift{"#2ca02c", "none", 2, "3,3"};
const Style kFinalCrop{"#2ca02c", "none", 3, ""};
const Style kFace{"#d6268b", "none", 2, ""};
const Style kLargestFace{"#d6268b", "none", 4, ""};
const Style kFocus{"#17becf", "none", 2.5, "10,3,2,3"};

std::string fmt(double v) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f", v);
    return text;
}

std::string escaped(const std::string& s) {
    std::string out;
    for (char c : s) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

struct Rect {
    double left, top, width, height;
};

// The picture around its body: size, white ground and the title.
std::string document(double width, double height, const std::string& title,
                     const std::string& body) {
    std::ostringstream svg;
    svg << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << fmt(width) << "\" height=\""
        << fmt(height) << "\" viewBox=\"0 0 " << fmt(width) << " " << fmt(height)
        << "\" font-family=\"sans-serif\" font-size=\"13\">\n"
        << "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n"
        << "<text x=\"" << kMargin << "\" y=\"24\" font-size=\"16\" font-weight=\"bold\">"
        << escaped(title) << "</text>\n"
        << body << "</svg>\n";
    return svg.str();
}

// A rectangle in picture coordinates.
void drawRect(std::ostream& out, const Rect& r, const Style& s) {
    out << "<rect x=\"" << fmt(r.left) << "\" y=\"" << fmt(r.top) << "\" width=\"" << fmt(r.width)
        << "\" height=\"" << fmt(r.height) << "\" fill=\"" << s.fill << "\" stroke=\"" << s.stroke
        << "\" stroke-width=\"" << s.width << "\"";
    if (*s.dash != '\0') out << " stroke-dasharray=\"" << s.dash << "\"";
    out << "/>\n";
}

// The drawing reads the outputs of calls that may have failed or written
// only part of a record: every read goes through these, and what is not
// there is null or empty, never an exception.
const Json& member(const Json& v, const char* key) {
    static const Json kNone;
    if (!v.is_object()) return kNone;
    const auto it = v.find(key);
    return it == v.end() ? kNone : *it;
}

std::optional<double> number(const Json& v, const char* key) {
    const Json& m = member(v, key);
    if (!m.is_number()) return std::nullopt;
    return m.get<double>();
}

// A rectangle of a call's output: {"left", "top", "width", "height"}.
std::optional<Rect> rectOf(const Json& v) {
    const auto l = number(v, "left"), t = number(v, "top");
    const auto w = number(v, "width"), h = number(v, "height");
    if (!l || !t || !w || !h) return std::nullopt;
    return Rect{*l, *t, *w, *h};
}

// A face of the frame's face record, given by its corners.
std::optional<Rect> cornersOf(const Json& v) {
    const auto l = number(v, "left"), t = number(v, "top");
    const auto r = number(v, "right"), b = number(v, "bottom");
    if (!l || !t || !r || !b) return std::nullopt;
    return Rect{*l, *t, *r - *l, *b - *t};
}

// The output of a call that succeeded, or null.
const Json& outputOf(const std::vector<CallRecord>& calls, const char* method) {
    static const Json kNone;
    const CallRecord* call = findCall(calls, method);
    return call != nullptr && call->outcome.result == 0 ? call->outcome.output : kNone;
}

// What the picture lacks and why: "final crop (GetFinalCropRegion -2)".
class Absent {
public:
    Absent(const std::vector<CallRecord>& calls) : calls_(calls) {}

    void add(const std::string& what, const char* method) {
        std::string why;
        if (const CallRecord* call = findCall(calls_, method)) {
            const Outcome& o = call->outcome;
            why = o.skipped.empty() ? resultText(o) : "not called";
        }
        items_.push_back(what + (why.empty() ? "" : " (" + std::string(method) + " " + why + ")"));
    }

    std::string text() const {
        std::string out;
        for (const std::string& item : items_) out += (out.empty() ? "" : ", ") + item;
        return out.empty() ? "" : "not in this capture: " + out;
    }

private:
    const std::vector<CallRecord>& calls_;
    std::vector<std::string> items_;
};

// One panel: a coordinate space of `extent` drawn scaled into a box.
class Panel {
public:
    Panel(std::ostringstream& out, double x, double y, Rect extent) : out_(out), extent_(extent) {
        scale_ = std::min(kPanelWidth / std::max(1.0, extent.width),
                          kPanelHeight / std::max(1.0, extent.height));
        x_ = x;
        y_ = y;
    }

    double px(double v) const { return x_ + (v - extent_.left) * scale_; }
    double py(double v) const { return y_ + (v - extent_.top) * scale_; }
    double bottom() const { return py(extent_.top + extent_.height); }

    // A label goes above the rectangle's top-left corner, or below its
    // bottom-left corner, outside, so that it never hides what is inside.
    void rect(const Rect& r, const Style& s, const std::string& label = "", bool below = false) {
        if (r.width < 0 || r.height < 0) return;  // corners given the wrong way round
        drawRect(out_, {px(r.left), py(r.top), r.width * scale_, r.height * scale_}, s);
        if (label.empty()) return;
        text(px(r.left), below ? py(r.top + r.height) + 14 : py(r.top) - 4, label, s.stroke,
             "bold");
    }

    void cross(double x, double y, const char* colour) {
        const double cx = px(x), cy = py(y);
        out_ << "<path d=\"M" << fmt(cx - 6) << " " << fmt(cy) << "h12M" << fmt(cx) << " "
             << fmt(cy - 6) << "v12\" stroke=\"" << colour << "\" stroke-width=\"2\"/>\n";
    }

    void dot(double x, double y, const char* colour) {
        out_ << "<circle cx=\"" << fmt(px(x)) << "\" cy=\"" << fmt(py(y))
             << "\" r=\"5\" fill=\"none\" stroke=\"" << colour << "\" stroke-width=\"2.5\"/>\n";
    }

    void text(double x, double y, const std::string& s, const char* colour,
              const char* weight = "normal") {
        out_ << "<text x=\"" << fmt(x) << "\" y=\"" << fmt(y) << "\" fill=\"" << colour
             << "\" font-weight=\"" << weight << "\">" << escaped(s) << "</text>\n";
    }

private:
    std::ostringstream& out_;
    Rect extent_;
    double scale_ = 1, x_ = 0, y_ = 0;
};

struct LegendItem {
    const Style* style;
    std::string text;
};

void legend(std::ostringstream& out, double x, double y, const std::vector<LegendItem>& items) {
    for (const LegendItem& item : items) {
        drawRect(out, {x, y - 10, 28, 12}, *item.style);
        out << "<text x=\"" << fmt(x + 36) << "\" y=\"" << fmt(y) << "\">" << escaped(item.text)
            << "</text>\n";
        y += 18;
    }
}

// The smallest rectangle holding both.
Rect bounds(const Rect& a, const Rect& b) {
    const double left = std::min(a.left, b.left), top = std::min(a.top, b.top);
    return {left, top, std::max(a.left + a.width, b.left + b.width) - left,
            std::max(a.top + a.height, b.top + b.height) - top};
}

// The part of the reference region that the input image shows: the region
// fills the input's width or height, as the sensor's aspect picks, and is
// cut on the other axis (the rule the face and focus mapping follows).
Rect visibleBand(const Rect& crop, const Rect& sensor, double inputW, double inputH) {
    const bool widthFits = sensor.width / sensor.height <= inputW / inputH;
    if (widthFits) {
        const double h = crop.width * inputH / inputW;
        return {crop.left, crop.top + std::max(0.0, (crop.height - h) / 2), crop.width,
                std::min(h, crop.height)};
    }
    const double w = crop.height * inputW / inputH;
    return {crop.left + std::max(0.0, (crop.width - w) / 2), crop.top, std::min(w, crop.width),
            crop.height};
}

// Text wrapped to the picture's width, its first line at `y`; `y` receives
// the baseline of its last line.
std::string wrapped(const std::string& text, double width, double& y, const char* colour) {
    const size_t perLine = static_cast<size_t>((width - 2 * kMargin) / 7);
    std::string out;
    std::string line;
    const auto flush = [&] {
        out += "<text x=\"" + fmt(kMargin) + "\" y=\"" + fmt(y) + "\" fill=\"" + colour + "\">" +
               escaped(line) + "</text>\n";
    };
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        if (!line.empty() && line.size() + word.size() + 1 > perLine) {
            flush();
            line.clear();
            y += 16;
        }
        line += (line.empty() ? "" : " ") + word;
    }
    flush();
    return out;
}

// Where a sensor rectangle falls against the part of the sensor that the
// input image shows: the mapping clamps what lies outside to the image's
// edge, and the picture says so. "" when inside (to a pixel).
std::string outsideText(const Rect& r, const std::optional<Rect>& band) {
    if (!band || r.width <= 0 || r.height <= 0) return "";
    const Rect& b = *band;
    const double right = r.left + r.width, bottom = r.top + r.height;
    if (right <= b.left || r.left >= b.left + b.width || bottom <= b.top ||
        r.top >= b.top + b.height) {
        return "outside, clamped to the edge";
    }
    if (r.left < b.left - 1 || r.top < b.top - 1 || right > b.left + b.width + 1 ||
        bottom > b.top + b.height + 1) {
        return "clamped";
    }
    return "";
}

std::string described(const char* what, const Json& rect) {
    return what + (" " + inlineText(rect));
}

}  // namespace

std::vector<const Getter*> geometryGetters() {
    std::string error;
    return chooseGetters(
        "GetActiveArraySize,GetAndroidCropRegion,GetFinalCropRegion,GetFacesInfoHolder,"
        "GetfocusROI,GetFaceRect,GetfocusTP",
        &error);
}

std::string drawGeometry(const Capture& capture, const std::vector<CallRecord>& calls) {
    const double width = kMargin * 4 + kPanelWidth * 2;
    // The capture's description under the title, the panels below it.
    double top = 44;
    std::ostringstream body;
    body << wrapped(capture.description, width, top, "#444444");
    top += 40;
    std::vector<LegendItem> left;
    std::vector<LegendItem> right;
    Absent absent(calls);

    // ---- Sensor coordinates ----
    const Json& finalCrop = outputOf(calls, "GetFinalCropRegion");
    const Json& activeArray = outputOf(calls, "GetActiveArraySize");
    std::optional<Rect> array = rectOf(activeArray);
    if (!array) {
        const Json& size = member(finalCrop, "sensorSize");
        const auto w = number(size, "width"), h = number(size, "height");
        if (w && h) array = Rect{0, 0, *w, *h};
    }
    const double sensorX = kMargin;
    double legendY = top + kPanelHeight + 40;
    const Json& androidCrop = outputOf(calls, "GetAndroidCropRegion");
    const Json& stages = member(finalCrop, "stages");
    const Json& faces = member(outputOf(calls, "GetFacesInfoHolder"), "faces");
    const Json& focus = outputOf(calls, "GetfocusROI");
    // The crops from the request to the final one. They often coincide:
    // drawn widest stroke first, and the legend says which are equal.
    const struct {
        const char* name;
        const Style* style;
        const Json& rect;
    } crops[] = {
        {"Android crop region", &kAndroidCrop, androidCrop},
        {"sensor-policy crop", &kPolicyCrop, member(stages, "sensorPolicy")},
        {"final crop before the shift", &kBeforeShift, member(stages, "aspectCorrected")},
        {"final crop", &kFinalCrop, member(finalCrop, "crop")},
    };
    std::vector<Rect> faceBoxes;
    std::optional<Rect> band;  // the part of the sensor the input image shows
    for (const Json& f : faces.is_array() ? faces : Json::array()) {
        faceBoxes.push_back(cornersOf(f).value_or(Rect{0, 0, -1, -1}));
    }
    // Without an active array the panel spans what there is to draw.
    std::optional<Rect> extent = array;
    if (!extent) {
        std::vector<Rect> shown = faceBoxes;
        for (const auto& c : crops) {
            if (const auto r = rectOf(c.rect)) shown.push_back(*r);
        }
        if (const auto af = rectOf(member(focus, "sensorRect"))) shown.push_back(*af);
        for (const Rect& r : shown) {
            if (r.width <= 0 || r.height <= 0) continue;
            extent = !extent ? r : bounds(*extent, r);
        }
    }
    if (extent && extent->width > 0 && extent->height > 0) {
        Panel sensor(body, sensorX, top, *extent);
        if (array) {
            sensor.rect(*array, kArray);
            left.push_back({&kArray, activeArray.is_null() ? "sensor size" : "active array"});
        }
        sensor.text(sensorX, top - 8,
                    array ? activeArray.is_null()
                                ? "sensor: the final crop's sensor size"
                                : "sensor: active array " + inlineText(activeArray)
                          : "sensor coordinates: no active array, the panel spans what is drawn",
                    "#333333", "bold");
        const auto crop = rectOf(androidCrop);
        // The band follows the input image's aspect: none when its size is unknown.
        if (crop && capture.inputWidth > 0 && capture.inputHeight > 0) {
            band = visibleBand(*crop, *extent, capture.inputWidth, capture.inputHeight);
            sensor.rect(*band, kVisible);
            left.push_back({&kVisible, "part of the crop region the input image shows"});
        }
        for (auto it = std::rbegin(crops); it != std::rend(crops); ++it) {
            if (const auto r = rectOf(it->rect)) sensor.rect(*r, *it->style);
        }
        const bool converted =
            !member(stages, "afterInSensorZoom").is_null() &&
            member(stages, "afterInSensorZoom") != member(stages, "sensorPolicy");
        for (size_t i = 0; i < std::size(crops); ++i) {
            const auto r = rectOf(crops[i].rect);
            if (!r) continue;
            std::string text = described(crops[i].name, crops[i].rect);
            if (r->width <= 0 || r->height <= 0) text += " (empty: nothing drawn)";
            for (size_t k = 0; k < i; ++k) {
                if (crops[k].rect == crops[i].rect) {
                    text += " (= " + std::string(crops[k].name) + ")";
                    break;
                }
            }
            if (crops[i].style != &kAndroidCrop && crops[i].style != &kPolicyCrop && converted) {
                text += ", in in-sensor-zoom readout coordinates";
            }
            const Json& shift = member(stages, "shift");
            if (crops[i].style == &kFinalCrop && shift.is_object()) {
                const Json& from = member(shift, "from");
                text += ", shift (" + member(shift, "x").dump() + ", " + member(shift, "y").dump() +
                        ") from " + (from.is_string() ? from.get<std::string>() : from.dump()) +
                        (member(shift, "applied") == Json(false) ? ", not applied" : "");
            }
            left.push_back({crops[i].style, text});
        }
        for (size_t i = 0; i < faceBoxes.size(); ++i) {
            sensor.rect(faceBoxes[i], kFace, std::to_string(i));
        }
        if (faces.is_array()) {
            left.push_back({&kFace, std::to_string(faceBoxes.size()) + " faces (numbered)"});
        }
        if (const auto af = rectOf(member(focus, "sensorRect"))) {
            sensor.rect(*af, kFocus, "AF", true);
            left.push_back({&kFocus, described("AF region", focus["sensorRect"])});
        }
        legendY = std::max(legendY, sensor.bottom() + 40);
    } else {
        Panel(body, sensorX, top, {0, 0, 1, 1})
            .text(sensorX, top + 20, "nothing to draw in sensor coordinates", "#333333");
    }
    if (!array) absent.add("active array", "GetActiveArraySize");
    if (!rectOf(androidCrop)) absent.add("Android crop region", "GetAndroidCropRegion");
    if (!rectOf(member(finalCrop, "crop"))) absent.add("final crop", "GetFinalCropRegion");
    if (!faces.is_array()) absent.add("faces", "GetFacesInfoHolder");
    if (!rectOf(member(focus, "sensorRect"))) absent.add("AF region", "GetfocusROI");

    // ---- Input image ----
    const double inputX = kMargin * 3 + kPanelWidth;
    const Rect input{0, 0, static_cast<double>(capture.inputWidth),
                     static_cast<double>(capture.inputHeight)};
    Panel image(body, inputX, top, input);
    image.rect(input, kArray);
    image.text(inputX, top - 8,
               capture.inputWidth > 0 ? "input image " + std::to_string(capture.inputWidth) + "x" +
                                            std::to_string(capture.inputHeight)
                                      : std::string("input image: size unknown, nothing mapped"),
               "#333333", "bold");
    right.push_back({&kArray, "input image"});
    const Json& mapped = outputOf(calls, "GetFaceRect");
    if (member(mapped, "faces").is_array()) {
        const int largest = static_cast<int>(number(mapped, "largestFaceIndex").value_or(-1));
        size_t i = 0, clamped = 0;
        for (const Json& f : mapped["faces"]) {
            const bool isLargest = static_cast<int>(i) == largest;
            std::string where = i < faceBoxes.size() ? outsideText(faceBoxes[i], band) : "";
            if (const auto r = rectOf(member(f, "rect"))) {
                if (r->width <= 0 || r->height <= 0) where = "not mapped";
                image.rect(*r, isLargest ? kLargestFace : kFace,
                           std::to_string(i) + (isLargest ? " largest" : "") +
                               (where.empty() ? "" : " " + where));
            }
            clamped += where.empty() ? 0 : 1;
            const auto x = number(member(f, "center"), "x"), y = number(member(f, "center"), "y");
            if (x && y) image.cross(*x, *y, kFace.stroke);
            ++i;
        }
        right.push_back({&kFace, "mapped faces with centres (+); thick: the largest, face " +
                                     std::to_string(largest)});
        if (clamped > 0) {
            right.push_back(
                {&kFace, std::to_string(clamped) +
                             " partly or wholly outside the part the image shows: drawn "
                             "clamped at its edge, not where they are"});
        }
    }
    if (const auto roi = rectOf(member(focus, "roi"))) {
        const auto af = rectOf(member(focus, "sensorRect"));
        const std::string where = af ? outsideText(*af, band) : "";
        image.rect(*roi, kFocus, "focus" + (where.empty() ? "" : " " + where), true);
        std::string text = described("focus region", focus["roi"]);
        if (!where.empty()) text += ", " + where + " (the AF region lies outside the image)";
        const Json& point = outputOf(calls, "GetfocusTP");
        const auto x = number(point, "x"), y = number(point, "y");
        if (x && y) {
            image.dot(*x, *y, kFocus.stroke);
            text += ", touch point (o) " + inlineText(point);
        }
        right.push_back({&kFocus, text});
    }
    legendY = std::max(legendY, image.bottom() + 40);

    legend(body, sensorX, legendY, left);
    legend(body, inputX, legendY, right);
    double height = legendY + 18.0 * std::max(left.size(), right.size()) + kMargin;
    // What is missing, then the calls that succeeded with nothing to draw.
    std::vector<std::string> notices{absent.text()};
    for (const CallRecord& call : calls) {
        if (!call.empty.empty()) {
            notices.push_back(kEmptyNotice + (call.getter->method + (": " + call.empty)));
        }
    }
    for (const std::string& notice : notices) {
        if (notice.empty()) continue;
        double y = height - kMargin + 8;
        body << wrapped(notice, width, y, "#a01010");
        height = y + kMargin;
    }

    return document(width, height, capture.file, body.str());
}

namespace {

// One line of a chart: what it is and how it is read off a call's output.
struct Series {
    const char* label;
    const char* method;
    std::optional<double> (*of)(const Json& output);
};

struct Chart {
    const char* title;
    bool named;  // enum values: a step per change, the values' names on the axis
    std::vector<Series> series;
};

std::optional<double> scalar(const Json& v) {
    if (!v.is_number()) return std::nullopt;
    return v.get<double>();
}

std::optional<double> centre(const Json& rect, const char* at, const char* size) {
    const auto a = number(rect, at), s = number(rect, size);
    if (!a || !s) return std::nullopt;
    return *a + *s / 2;
}

const Chart kCharts[] = {
    {"zoom ratio", false, {{"zoom ratio", "GetAndroidZoomRatio", scalar}}},
    {"crop region size",
     false,
     {{"width", "GetAndroidCropRegion", [](const Json& v) { return number(v, "width"); }},
      {"height", "GetAndroidCropRegion", [](const Json& v) { return number(v, "height"); }}}},
    {"crop region centre",
     false,
     {{"x", "GetAndroidCropRegion", [](const Json& v) { return centre(v, "left", "width"); }},
      {"y", "GetAndroidCropRegion", [](const Json& v) { return centre(v, "top", "height"); }}}},
    {"final crop",
     false,
     {{"width", "GetFinalCropRegion",
       [](const Json& v) { return number(member(v, "crop"), "width"); }},
      {"centre x", "GetFinalCropRegion",
       [](const Json& v) { return centre(member(v, "crop"), "left", "width"); }}}},
    {"AF state", true, {{"AF state", "GetAFState", scalar}}},
    {"AF mode", true, {{"AF mode", "GetAFMode", scalar}}},
    {"sensitivity (ISO)", false, {{"ISO", "GetSensitivity", scalar}}},
    {"exposure time (ms)",
     false,
     {{"ms", "GetSensorExposureTime",
       [](const Json& v) {
           return v.is_number() ? std::optional<double>(v.get<double>() / 1e6) : std::nullopt;
       }}}},
};

const char* const kSeriesColours[] = {"#1f77b4", "#ff7f0e", "#2ca02c", "#9467bd"};
constexpr double kChartWidth = 900, kChartHeight = 110, kChartLeft = 190, kChartGap = 60;
constexpr double kLaneHeight = 18;
constexpr size_t kMostSeries = std::size(kSeriesColours);  // a recorded tag's values drawn
// A point a frame while the frames are this few; beyond, the lines alone.
constexpr size_t kMostDots = 300;
// A named chart's axis lists its values while they are this few.
constexpr size_t kMostNamedTicks = 16;

bool failed(const CallRecord* call) {
    return call != nullptr &&
           (!call->outcome.skipped.empty() || (call->outcome.result && *call->outcome.result != 0));
}

const char* severityColour(kvanalysis::Severity s) {
    switch (s) {
        case kvanalysis::Severity::Error:
            return "#d62728";
        case kvanalysis::Severity::Warning:
            return "#ff7f0e";
        case kvanalysis::Severity::Info:
            break;
    }
    return "#1f77b4";
}

// A line's frames that fall in one pixel column: its first and last value
// (where the steps enter and leave it), its least and greatest, and the
// last frame with a value.
struct Column {
    double first = 0, last = 0, lo = 0, hi = 0;
    int64_t frame = 0;
    bool any = false;

    void add(double v, int64_t number) {
        if (!any) first = lo = hi = v;
        lo = std::min(lo, v);
        hi = std::max(hi, v);
        last = v;
        frame = number;
        any = true;
    }
};

// One chart as the frames go by.
struct ChartState {
    std::string title;
    bool named = false;
    bool drawable = true;       // false: a recorded tag with other values than up to 4 numbers
    const Chart* of = nullptr;  // a getter chart's; null for a recorded tag's
    size_t recorded = 0;        // a recorded tag's index in the frame
    std::vector<std::string> labels;
    std::vector<std::vector<Column>> lines;           // by series, by pixel column
    std::vector<std::pair<int64_t, int64_t>> marked;  // runs of frames where a getter failed
    size_t lastMarked = SIZE_MAX;                     // the frame index that ended the last run
    std::vector<double> values;                       // a named chart's values, while few
    double lo = 0, hi = 0;
    bool any = false, fromBlocks = false;
    std::function<std::string(double)> nameOf;  // an enum value's name; "" for none
};

}  // namespace

struct TimelineDrawing::State {
    double first = 0, last = 1;
    size_t frames = 0;
    std::vector<ChartState> charts;
    std::vector<std::string> leftOut;

    double px(double frame) const {
        return kChartLeft + (frame - first) / (last - first) * kChartWidth;
    }
    size_t column(int64_t frame) const {
        const double c =
            std::round((static_cast<double>(frame) - first) / (last - first) * kChartWidth);
        return static_cast<size_t>(std::clamp(c, 0.0, kChartWidth));
    }

    void put(ChartState& c, size_t line, int64_t number, std::optional<double> v) {
        if (!v || !std::isfinite(*v)) return;
        if (c.lines.size() <= line) {
            c.lines.resize(line + 1, std::vector<Column>(static_cast<size_t>(kChartWidth) + 1));
        }
        c.lines[line][column(number)].add(*v, number);
        c.lo = c.any ? std::min(c.lo, *v) : *v;
        c.hi = c.any ? std::max(c.hi, *v) : *v;
        c.any = true;
        if (c.named && c.values.size() <= kMostNamedTicks &&
            std::find(c.values.begin(), c.values.end(), *v) == c.values.end()) {
            c.values.push_back(*v);
        }
    }

    // A failed frame joins the run before it when it follows that run's
    // last frame, or falls on the same pixel: the marks stay exact to the
    // pixel however many frames fail.
    void mark(ChartState& c, int64_t number) {
        if (!c.marked.empty() &&
            (c.lastMarked + 1 == frames ||
             px(static_cast<double>(number)) - px(static_cast<double>(c.marked.back().second)) <
                 1)) {
            c.marked.back().second = number;
        } else {
            c.marked.push_back({number, number});
        }
        c.lastMarked = frames;
    }

    void start(const FrameCalls& f) {
        const size_t recorded = std::min(f.recorded.size(), kShownRecordedTags);
        for (size_t k = 0; k < recorded; ++k) {
            ChartState c;
            c.title = f.recorded[k].tag;
            c.recorded = k;
            const kvhost::TagInfo* info = kvhost::findTag(c.title.c_str());
            c.named = info != nullptr && !info->enums.empty();
            if (c.named) {
                c.nameOf = [info](double v) {
                    const char* name = kvhost::enumName(*info, static_cast<int32_t>(v));
                    return std::string(name ? name : "");
                };
            }
            charts.push_back(std::move(c));
        }
        for (const Chart& chart : kCharts) {
            const CallRecord* call = findCall(f.calls, chart.series.front().method);
            if (call == nullptr) continue;
            ChartState c;
            c.title = chart.title;
            c.named = chart.named;
            c.of = &chart;
            const Getter* g = call->getter;
            c.nameOf = [g](double v) {
                const char* name = valueName(*g, Json(static_cast<int64_t>(v)));
                return std::string(name ? name : "");
            };
            for (const Series& series : chart.series) c.labels.push_back(series.label);
            charts.push_back(std::move(c));
        }
    }

    void addGetters(ChartState& c, const FrameCalls& f) {
        bool anyFailed = false;
        for (size_t s = 0; s < c.of->series.size(); ++s) {
            const Series& series = c.of->series[s];
            const CallRecord* call = findCall(f.calls, series.method);
            if (failed(call)) anyFailed = true;
            if (call != nullptr && !failed(call))
                put(c, s, f.number, series.of(call->outcome.output));
            const size_t k = call ? static_cast<size_t>(call - f.calls.data()) : f.calls.size();
            c.fromBlocks = c.fromBlocks || (k < f.fromBlocks.size() && !f.fromBlocks[k].empty());
        }
        if (anyFailed) mark(c, f.number);
    }

    void addRecorded(ChartState& c, const FrameCalls& f) {
        if (!c.drawable || c.recorded >= f.recorded.size()) return;
        const Json& v = f.recorded[c.recorded].values;
        if (v.is_null()) return;
        if (v.empty() || v.size() > kMostSeries ||
            !std::all_of(v.begin(), v.end(), [](const Json& e) { return e.is_number(); })) {
            c.drawable = false;
            c.lines.clear();
            return;
        }
        for (size_t s = 0; s < v.size(); ++s) put(c, s, f.number, v[s].get<double>());
    }
};

TimelineDrawing::TimelineDrawing(int64_t firstFrame, int64_t lastFrame)
    : state_(std::make_unique<State>()) {
    state_->first = static_cast<double>(firstFrame);
    state_->last = std::max(state_->first + 1, static_cast<double>(lastFrame));
}

TimelineDrawing::~TimelineDrawing() = default;

void TimelineDrawing::add(const FrameCalls& f) {
    State& st = *state_;
    if (st.frames == 0) st.start(f);
    for (ChartState& c : st.charts) {
        if (c.of != nullptr) {
            st.addGetters(c, f);
        } else {
            st.addRecorded(c, f);
        }
    }
    ++st.frames;
}

void TimelineDrawing::leaveOut(const std::string& method) {
    state_->leftOut.push_back(method);
}

namespace {

// Frame numbers along a chart's axis: round numbers, up to about six.
std::vector<int64_t> frameTicks(int64_t first, int64_t last) {
    const double span = static_cast<double>(std::max<int64_t>(1, last - first));
    double step = std::pow(10.0, std::floor(std::log10(span / 5)));
    for (const double m : {2.0, 5.0, 10.0}) {
        if (span / step <= 6) break;
        step = std::pow(10.0, std::floor(std::log10(span / 5))) * m;
    }
    const int64_t k = std::max<int64_t>(1, static_cast<int64_t>(step));
    std::vector<int64_t> ticks;
    for (int64_t t = (first / k + 1) * k; t < last; t += k) ticks.push_back(t);
    return ticks;
}

std::string tickLabel(double t, const ChartState& c) {
    std::string label = fmt(t);
    if (label.size() > 2 && label.compare(label.size() - 2, 2, ".0") == 0)
        label.resize(label.size() - 2);
    if (c.named && c.nameOf) {
        const std::string name = c.nameOf(t);
        if (!name.empty()) label += " " + name;
    }
    return label;
}

}  // namespace

std::string TimelineDrawing::draw(const std::string& title,
                                  const std::vector<kvanalysis::Finding>& findings) const {
    const State& st = *state_;
    std::ostringstream body;
    double y = 44;
    const auto line = [&](const std::string& text, const char* colour = "#333333") {
        body << "<text x=\"" << fmt(kMargin) << "\" y=\"" << fmt(y + 16) << "\" fill=\"" << colour
             << "\">" << escaped(text) << "</text>\n";
        y += 24;
    };
    // A finding's frames in picture coordinates, at least 3 wide.
    const auto span = [&](const kvanalysis::Finding& f) {
        const double a = st.px(static_cast<double>(f.firstNumber));
        const double b = st.px(static_cast<double>(f.lastNumber));
        const double width = std::max(3.0, b - a);
        return std::pair{std::min(a, kChartLeft + kChartWidth - width), width};
    };

    // The findings' lanes, one a check in the order of their first finding,
    // each finding a band from its first frame to its last that selects its
    // first frame.
    const bool withFindings = !findings.empty() && st.frames > 0;
    if (withFindings) {
        std::vector<std::string> lanes;
        for (const kvanalysis::Finding& f : findings) {
            if (std::find(lanes.begin(), lanes.end(), f.check) == lanes.end())
                lanes.push_back(f.check);
        }
        body << "<text x=\"" << fmt(kMargin) << "\" y=\"" << fmt(y + 12)
             << "\" font-weight=\"bold\">findings of the session checks</text>\n";
        const double top = y + 20;
        for (size_t k = 0; k < lanes.size(); ++k) {
            const double ly = top + kLaneHeight * static_cast<double>(k);
            body << "<text x=\"" << fmt(kChartLeft - 6) << "\" y=\"" << fmt(ly + 13)
                 << "\" text-anchor=\"end\" font-size=\"11\">" << escaped(lanes[k]) << "</text>\n"
                 << "<rect x=\"" << fmt(kChartLeft) << "\" y=\"" << fmt(ly) << "\" width=\""
                 << fmt(kChartWidth) << "\" height=\"" << fmt(kLaneHeight - 2)
                 << "\" fill=\"#fafafa\" stroke=\"#dddddd\"/>\n";
        }
        for (size_t n = 0; n < findings.size(); ++n) {
            const kvanalysis::Finding& f = findings[n];
            const size_t lane =
                static_cast<size_t>(std::find(lanes.begin(), lanes.end(), f.check) - lanes.begin());
            const auto [x, width] = span(f);
            body << "<rect x=\"" << fmt(x) << "\" y=\""
                 << fmt(top + kLaneHeight * static_cast<double>(lane) + 1) << "\" width=\""
                 << fmt(width) << "\" height=\"" << fmt(kLaneHeight - 4) << "\" fill=\""
                 << severityColour(f.severity) << "\" fill-opacity=\"0.7\" data-frame=\""
                 << f.firstNumber << "\" data-finding=\"" << n << "\"><title>"
                 << escaped(f.check + ", frames " + std::to_string(f.firstNumber) + ".." +
                            std::to_string(f.lastNumber) + ": " + f.message)
                 << "</title></rect>\n";
        }
        y = top + kLaneHeight * static_cast<double>(lanes.size()) + 16;
    }
    const double chartsTop = y;
    const int64_t firstFrame = static_cast<int64_t>(st.first);
    const int64_t lastFrame = static_cast<int64_t>(st.last);
    size_t drawn = 0;
    for (const ChartState& c : st.charts) {
        if (c.of != nullptr) {
            const char* method = c.of->series.front().method;
            if (std::find(st.leftOut.begin(), st.leftOut.end(), method) != st.leftOut.end())
                continue;
        } else if (!c.drawable || !c.any) {
            line(c.title + ": not drawn (no value, or not up to " + std::to_string(kMostSeries) +
                 " numbers a frame); the table and --csv show it");
            continue;
        }
        const double left = kChartLeft, right = kChartLeft + kChartWidth;
        const double lo = c.lo, hi = c.hi - c.lo < 1e-9 ? c.lo + 1 : c.hi;
        const double top = y + 20, bottom = top + kChartHeight;
        const auto py = [&](double v) { return bottom - (v - lo) / (hi - lo) * kChartHeight; };
        const std::string chartTitle =
            c.title + (c.fromBlocks ? " (reads tags of the dump's blocks, not recorded)" : "");
        body << "<text x=\"" << fmt(kMargin) << "\" y=\"" << fmt(y + 12)
             << "\" font-weight=\"bold\">" << escaped(chartTitle) << "</text>\n";
        body << "<rect x=\"" << fmt(left) << "\" y=\"" << fmt(top) << "\" width=\""
             << fmt(kChartWidth) << "\" height=\"" << fmt(kChartHeight)
             << "\" fill=\"#fafafa\" stroke=\"#bbbbbb\"/>\n";
        // The value axis: the named values while they are few, or the range's ends.
        std::vector<double> ticks;
        if (c.named && c.values.size() <= kMostNamedTicks) {
            ticks = c.values;
        } else if (c.any) {
            ticks = {lo, c.hi};
        }
        for (const double t : ticks) {
            body << "<text x=\"" << fmt(left - 6) << "\" y=\"" << fmt(py(t) + 4)
                 << "\" text-anchor=\"end\" font-size=\"11\">" << escaped(tickLabel(t, c))
                 << "</text>\n";
        }
        // Each line as steps: a value holds until the next frame that has
        // one; a pixel column of many frames is a stroke from their least
        // to their greatest value.
        for (size_t s = 0; s < c.lines.size(); ++s) {
            const char* colour = kSeriesColours[s % std::size(kSeriesColours)];
            std::string path;
            std::string dots;
            bool open = false;
            double at = 0;  // the path's height so far
            const auto to = [&](double v) {
                if (py(v) != at) path += "V" + fmt(py(v));
                at = py(v);
            };
            for (size_t k = 0; k < c.lines[s].size(); ++k) {
                const Column& col = c.lines[s][k];
                if (!col.any) continue;
                const double x = left + static_cast<double>(k);
                if (!open) {
                    path += "M" + fmt(x) + " " + fmt(py(col.first));
                    at = py(col.first);
                    open = true;
                } else {
                    path += "H" + fmt(x);
                    to(col.first);
                }
                if (col.lo != col.hi) {
                    to(col.lo);
                    to(col.hi);
                }
                to(col.last);
                if (st.frames <= kMostDots) {
                    dots += "<circle cx=\"" + fmt(x) + "\" cy=\"" + fmt(py(col.last)) +
                            "\" r=\"2.5\" fill=\"" + colour + "\" data-frame=\"" +
                            std::to_string(col.frame) + "\"/>\n";
                }
            }
            if (!path.empty()) {
                body << "<path d=\"" << path << "\" fill=\"none\" stroke=\"" << colour
                     << "\" stroke-width=\"1.5\"/>\n"
                     << dots;
            }
            if (c.lines.size() > 1) {
                const std::string label =
                    s < c.labels.size() ? c.labels[s] : "[" + std::to_string(s) + "]";
                body << "<text x=\"" << fmt(right + 8) << "\" y=\""
                     << fmt(top + 14 + 16.0 * static_cast<double>(s)) << "\" fill=\"" << colour
                     << "\">" << escaped(label) << "</text>\n";
            }
        }
        // Frames where a getter of the chart failed: red under the chart, a
        // run of frames one band.
        for (const auto& [a, b] : c.marked) {
            const double x = st.px(static_cast<double>(a));
            const double width = std::max(2.0, st.px(static_cast<double>(b)) - x);
            body << "<rect x=\"" << fmt(x - 1) << "\" y=\"" << fmt(bottom + 3) << "\" width=\""
                 << fmt(width) << "\" height=\"8\" fill=\"#d62728\" data-frame=\"" << a << "\"/>\n";
        }
        // The frame axis: the ends, and round numbers between them.
        body << "<text x=\"" << fmt(left) << "\" y=\"" << fmt(bottom + 24)
             << "\" font-size=\"11\">frame " << firstFrame << "</text>\n<text x=\"" << fmt(right)
             << "\" y=\"" << fmt(bottom + 24) << "\" font-size=\"11\" text-anchor=\"end\">frame "
             << lastFrame << "</text>\n";
        for (const int64_t t : frameTicks(firstFrame, lastFrame)) {
            const double x = st.px(static_cast<double>(t));
            if (x - left < 60 || right - x < 60) continue;  // clear of the ends' labels
            body << "<path d=\"M" << fmt(x) << " " << fmt(bottom) << "v4\" stroke=\"#999999\"/>"
                 << "<text x=\"" << fmt(x) << "\" y=\"" << fmt(bottom + 24)
                 << "\" font-size=\"11\" text-anchor=\"middle\">" << t << "</text>\n";
        }
        y = bottom + kChartGap - 20;
        ++drawn;
    }
    if (drawn == 0) {
        line(
            "no chart: no recorded tag, and none of the getters run has a timeline (zoom, "
            "crop, final crop, AF, sensitivity, exposure)");
    }
    // The findings' frames across the charts, faint, under the pointer's reach.
    if (withFindings && drawn > 0) {
        for (const kvanalysis::Finding& f : findings) {
            const auto [x, width] = span(f);
            body << "<rect x=\"" << fmt(x) << "\" y=\"" << fmt(chartsTop) << "\" width=\""
                 << fmt(width) << "\" height=\"" << fmt(y - chartsTop) << "\" fill=\""
                 << severityColour(f.severity)
                 << "\" fill-opacity=\"0.08\" pointer-events=\"none\"/>\n";
        }
    }
    line("red marks: frames where the getter failed (result not 0, or not called)", "#d62728");
    if (!findings.empty()) {
        line(
            "bands: the frames of each finding of the session checks (red error, orange "
            "warning, blue info)");
    }
    const double width = kChartLeft + kChartWidth + 120, height = y + 16;
    return document(width, height, title + " (" + std::to_string(st.frames) + " frames)",
                    body.str());
}

std::string drawTimelines(const std::vector<FrameCalls>& frames, const std::string& title,
                          const std::vector<kvanalysis::Finding>& findings) {
    TimelineDrawing drawing(frames.empty() ? 0 : frames.front().number,
                            frames.empty() ? 1 : frames.back().number);
    for (const FrameCalls& f : frames) drawing.add(f);
    return drawing.draw(title, findings);
}

}  // namespace inspect
