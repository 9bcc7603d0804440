#include "Svg.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <iterator>
#include <optional>
#include <sstream>
#include <utility>

namespace inspect {
namespace {

constexpr double kPanelWidth = 560;
constexpr double kPanelHeight = 420;
constexpr double kMargin = 30;

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
            sensor.rect(visibleBand(*crop, *extent, capture.inputWidth, capture.inputHeight),
                        kVisible);
            left.push_back({&kVisible, "part of the crop region the input image shows"});
        }
        for (auto it = std::rbegin(crops); it != std::rend(crops); ++it) {
            if (const auto r = rectOf(it->rect)) sensor.rect(*r, *it->style);
        }
        const bool converted =
            !member(stages, "afterInSensorZoom").is_null() &&
            member(stages, "afterInSensorZoom") != member(stages, "sensorPolicy");
        for (size_t i = 0; i < std::size(crops); ++i) {
            if (!rectOf(crops[i].rect)) continue;
            std::string text = described(crops[i].name, crops[i].rect);
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
        int i = 0;
        for (const Json& f : mapped["faces"]) {
            const bool isLargest = i == largest;
            if (const auto r = rectOf(member(f, "rect"))) {
                image.rect(*r, isLargest ? kLargestFace : kFace,
                           std::to_string(i) + (isLargest ? " largest" : ""));
            }
            const auto x = number(member(f, "center"), "x"), y = number(member(f, "center"), "y");
            if (x && y) image.cross(*x, *y, kFace.stroke);
            ++i;
        }
        right.push_back({&kFace, "mapped faces with centres (+); thick: the largest, face " +
                                     std::to_string(largest)});
    }
    if (const auto roi = rectOf(member(focus, "roi"))) {
        image.rect(*roi, kFocus, "focus", true);
        std::string text = described("focus region", focus["roi"]);
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
    if (const std::string missing = absent.text(); !missing.empty()) {
        double y = height - kMargin + 8;
        body << wrapped(missing, width, y, "#a01010");
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
constexpr size_t kMostSeries = std::size(kSeriesColours);  // a recorded tag's values drawn

const CallRecord* callOf(const FrameCalls& f, const char* method) {
    return findCall(f.calls, method);
}

bool failed(const CallRecord* call) {
    return call != nullptr &&
           (!call->outcome.skipped.empty() || (call->outcome.result && *call->outcome.result != 0));
}

// What one chart draws: a line per series over the frames, and the frames to
// mark under it.
struct ChartData {
    std::string title;
    bool named = false;
    std::vector<std::string> labels;                         // by series
    std::vector<std::vector<std::optional<double>>> values;  // by series, by frame
    std::vector<int64_t> marked;                             // frame numbers
    std::function<std::string(double)> nameOf;               // an enum value's name; "" for none
};

class Timelines {
public:
    explicit Timelines(const std::vector<FrameCalls>& frames) : frames_(frames) {
        if (!frames.empty()) {
            first_ = static_cast<double>(frames.front().number);
            last_ = std::max(first_ + 1, static_cast<double>(frames.back().number));
        }
    }

    double px(double frame) const {
        return kChartLeft + (frame - first_) / (last_ - first_) * kChartWidth;
    }

    void chart(const ChartData& c) {
        const double left = kChartLeft, right = kChartLeft + kChartWidth;
        double lo = 0, hi = 0;
        bool any = false;
        for (const auto& series : c.values) {
            for (const auto& v : series) {
                if (!v) continue;
                lo = any ? std::min(lo, *v) : *v;
                hi = any ? std::max(hi, *v) : *v;
                any = true;
            }
        }
        if (hi - lo < 1e-9) hi = lo + 1;
        const double top = y_ + 20, bottom = top + kChartHeight;
        const auto py = [&](double v) { return bottom - (v - lo) / (hi - lo) * kChartHeight; };
        body_ << "<text x=\"" << fmt(kMargin) << "\" y=\"" << fmt(y_ + 12)
              << "\" font-weight=\"bold\">" << escaped(c.title) << "</text>\n";
        body_ << "<rect x=\"" << fmt(left) << "\" y=\"" << fmt(top) << "\" width=\""
              << fmt(kChartWidth) << "\" height=\"" << fmt(kChartHeight)
              << "\" fill=\"#fafafa\" stroke=\"#bbbbbb\"/>\n";
        // The axis: the named values, or the range's ends.
        std::vector<double> ticks;
        if (c.named) {
            for (const auto& series : c.values) {
                for (const auto& v : series) {
                    if (v && std::find(ticks.begin(), ticks.end(), *v) == ticks.end())
                        ticks.push_back(*v);
                }
            }
        } else if (any) {
            ticks = {lo, hi};
        }
        for (const double t : ticks) {
            std::string label = fmt(t);
            if (label.size() > 2 && label.compare(label.size() - 2, 2, ".0") == 0)
                label.resize(label.size() - 2);
            if (c.named && c.nameOf) {
                const std::string name = c.nameOf(t);
                if (!name.empty()) label += " " + name;
            }
            body_ << "<text x=\"" << fmt(left - 6) << "\" y=\"" << fmt(py(t) + 4)
                  << "\" text-anchor=\"end\" font-size=\"11\">" << escaped(label) << "</text>\n";
        }
        for (size_t s = 0; s < c.values.size(); ++s) {
            const char* colour = kSeriesColours[s % std::size(kSeriesColours)];
            std::string path;
            bool open = false;
            for (size_t i = 0; i < frames_.size(); ++i) {
                const auto& v = c.values[s][i];
                if (!v) {
                    open = false;
                    continue;
                }
                const double x = px(static_cast<double>(frames_[i].number)), vy = py(*v);
                if (!open) {
                    path += "M" + fmt(x) + " " + fmt(vy);
                } else if (c.named) {
                    path += "H" + fmt(x) + "V" + fmt(vy);  // a state holds until it changes
                } else {
                    path += "L" + fmt(x) + " " + fmt(vy);
                }
                open = true;
                body_ << "<circle cx=\"" << fmt(x) << "\" cy=\"" << fmt(vy)
                      << "\" r=\"2.5\" fill=\"" << colour << "\" data-frame=\"" << frames_[i].number
                      << "\"/>\n";
            }
            if (!path.empty()) {
                body_ << "<path d=\"" << path << "\" fill=\"none\" stroke=\"" << colour
                      << "\" stroke-width=\"1.5\"/>\n";
            }
            if (c.values.size() > 1) {
                body_ << "<text x=\"" << fmt(right + 8) << "\" y=\""
                      << fmt(top + 14 + 16.0 * static_cast<double>(s)) << "\" fill=\"" << colour
                      << "\">" << escaped(c.labels[s]) << "</text>\n";
            }
        }
        // Frames where a getter of the chart failed: a red mark under the chart.
        for (const int64_t number : c.marked) {
            const double x = px(static_cast<double>(number));
            body_ << "<path d=\"M" << fmt(x) << " " << fmt(bottom + 3) << "v8\" stroke=\"#d62728\" "
                  << "stroke-width=\"2\" data-frame=\"" << number << "\"/>\n";
        }
        // The frame numbers at the ends.
        body_ << "<text x=\"" << fmt(left) << "\" y=\"" << fmt(bottom + 24)
              << "\" font-size=\"11\">frame " << frames_.front().number << "</text>\n<text x=\""
              << fmt(right) << "\" y=\"" << fmt(bottom + 24)
              << "\" font-size=\"11\" text-anchor=\"end\">frame " << frames_.back().number
              << "</text>\n";
        y_ = bottom + kChartGap - 20;
        ++drawn_;
    }

    void line(const std::string& text, const char* colour = "#333333") {
        body_ << "<text x=\"" << fmt(kMargin) << "\" y=\"" << fmt(y_ + 16) << "\" fill=\"" << colour
              << "\">" << escaped(text) << "</text>\n";
        y_ += 24;
    }

    // The findings' lanes, one a check in the order of their first finding,
    // each finding a band from its first frame to its last that selects its
    // first frame; then the frames' range over the charts below, drawn over
    // them (overlay()) once their height is known.
    void findings(const std::vector<kvanalysis::Finding>& findings) {
        if (findings.empty() || frames_.empty()) return;
        std::vector<std::string> lanes;
        for (const kvanalysis::Finding& f : findings) {
            if (std::find(lanes.begin(), lanes.end(), f.check) == lanes.end())
                lanes.push_back(f.check);
        }
        body_ << "<text x=\"" << fmt(kMargin) << "\" y=\"" << fmt(y_ + 12)
              << "\" font-weight=\"bold\">findings of the session checks</text>\n";
        const double top = y_ + 20;
        for (size_t k = 0; k < lanes.size(); ++k) {
            const double y = top + kLaneHeight * static_cast<double>(k);
            body_ << "<text x=\"" << fmt(kChartLeft - 6) << "\" y=\"" << fmt(y + 13)
                  << "\" text-anchor=\"end\" font-size=\"11\">" << escaped(lanes[k]) << "</text>\n"
                  << "<rect x=\"" << fmt(kChartLeft) << "\" y=\"" << fmt(y) << "\" width=\""
                  << fmt(kChartWidth) << "\" height=\"" << fmt(kLaneHeight - 2)
                  << "\" fill=\"#fafafa\" stroke=\"#dddddd\"/>\n";
        }
        for (size_t n = 0; n < findings.size(); ++n) {
            const kvanalysis::Finding& f = findings[n];
            const size_t lane =
                static_cast<size_t>(std::find(lanes.begin(), lanes.end(), f.check) - lanes.begin());
            const auto [x, width] = span(f);
            body_ << "<rect x=\"" << fmt(x) << "\" y=\""
                  << fmt(top + kLaneHeight * static_cast<double>(lane) + 1) << "\" width=\""
                  << fmt(width) << "\" height=\"" << fmt(kLaneHeight - 4) << "\" fill=\""
                  << severityColour(f.severity) << "\" fill-opacity=\"0.7\" data-frame=\""
                  << f.firstNumber << "\" data-finding=\"" << n << "\"><title>"
                  << escaped(f.check + ", frames " + std::to_string(f.firstNumber) + ".." +
                             std::to_string(f.lastNumber) + ": " + f.message)
                  << "</title></rect>\n";
        }
        y_ = top + kLaneHeight * static_cast<double>(lanes.size()) + 16;
        chartsTop_ = y_;
        findings_ = &findings;
    }

    // The findings' frames across the charts, faint, under the pointer's reach.
    std::string overlay() const {
        std::ostringstream out;
        if (findings_ == nullptr || drawn_ == 0) return out.str();
        for (const kvanalysis::Finding& f : *findings_) {
            const auto [x, width] = span(f);
            out << "<rect x=\"" << fmt(x) << "\" y=\"" << fmt(chartsTop_) << "\" width=\""
                << fmt(width) << "\" height=\"" << fmt(y_ - chartsTop_) << "\" fill=\""
                << severityColour(f.severity)
                << "\" fill-opacity=\"0.08\" pointer-events=\"none\"/>\n";
        }
        return out.str();
    }

    size_t drawn() const { return drawn_; }
    double y() const { return y_; }
    std::string body() const { return body_.str(); }

private:
    static constexpr double kLaneHeight = 18;

    static const char* severityColour(kvanalysis::Severity s) {
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

    // A finding's frames in picture coordinates, at least 3 wide.
    std::pair<double, double> span(const kvanalysis::Finding& f) const {
        const double a = px(static_cast<double>(f.firstNumber));
        const double b = px(static_cast<double>(f.lastNumber));
        const double width = std::max(3.0, b - a);
        return {std::min(a, kChartLeft + kChartWidth - width), width};
    }

    const std::vector<FrameCalls>& frames_;
    const std::vector<kvanalysis::Finding>* findings_ = nullptr;
    double chartsTop_ = 0;
    std::ostringstream body_;
    double y_ = 44;
    double first_ = 0, last_ = 1;
    size_t drawn_ = 0;
};

// A getter chart's values and marks; empty when the frames did not run it.
std::optional<ChartData> getterChart(const Chart& chart, const std::vector<FrameCalls>& frames) {
    if (frames.empty()) return std::nullopt;
    const CallRecord* first = callOf(frames.front(), chart.series.front().method);
    if (first == nullptr) return std::nullopt;
    ChartData c;
    c.title = chart.title;
    c.named = chart.named;
    const Getter* g = first->getter;
    c.nameOf = [g](double v) {
        const char* name = valueName(*g, Json(static_cast<int64_t>(v)));
        return std::string(name ? name : "");
    };
    bool fromBlocks = false;
    for (const Series& s : chart.series) {
        c.labels.push_back(s.label);
        c.values.emplace_back();
        for (const FrameCalls& f : frames) {
            const CallRecord* call = callOf(f, s.method);
            std::optional<double> v;
            if (call != nullptr && !failed(call)) v = s.of(call->outcome.output);
            if (v && !std::isfinite(*v)) v.reset();
            c.values.back().push_back(v);
            const size_t k = call ? static_cast<size_t>(call - f.calls.data()) : f.calls.size();
            fromBlocks = fromBlocks || (k < f.fromBlocks.size() && !f.fromBlocks[k].empty());
        }
    }
    for (const FrameCalls& f : frames) {
        for (const Series& s : chart.series) {
            if (!failed(callOf(f, s.method))) continue;
            c.marked.push_back(f.number);
            break;
        }
    }
    if (fromBlocks) c.title += " (reads tags of the dump's blocks, not recorded)";
    return c;
}

// A recorded tag's chart: a series per value (up to kMostSeries numbers a
// frame), its enum values as named steps; none for other values.
std::optional<ChartData> recordedChart(size_t k, const std::vector<FrameCalls>& frames) {
    ChartData c;
    c.title = frames.front().recorded[k].tag;
    const kvhost::TagInfo* info = kvhost::findTag(c.title.c_str());
    c.named = info != nullptr && !info->enums.empty();
    if (c.named) {
        c.nameOf = [info](double v) {
            const char* name = kvhost::enumName(*info, static_cast<int32_t>(v));
            return std::string(name ? name : "");
        };
    }
    size_t width = 0;
    for (const FrameCalls& f : frames) {
        const Json& v = f.recorded[k].values;
        if (v.is_null()) continue;
        if (v.empty() || v.size() > kMostSeries ||
            !std::all_of(v.begin(), v.end(), [](const Json& e) { return e.is_number(); })) {
            return std::nullopt;
        }
        width = std::max(width, v.size());
    }
    if (width == 0) return std::nullopt;
    c.values.assign(width, {});
    for (size_t s = 0; s < width; ++s) {
        c.labels.push_back("[" + std::to_string(s) + "]");
        for (const FrameCalls& f : frames) {
            const Json& v = f.recorded[k].values;
            std::optional<double> value;
            if (s < v.size()) value = v[s].get<double>();
            if (value && !std::isfinite(*value)) value.reset();
            c.values[s].push_back(value);
        }
    }
    return c;
}

}  // namespace

std::string drawTimelines(const std::vector<FrameCalls>& frames, const std::string& title,
                          const std::vector<kvanalysis::Finding>& findings) {
    Timelines t(frames);
    t.findings(findings);
    if (!frames.empty()) {
        const size_t recorded = std::min(frames.front().recorded.size(), kShownRecordedTags);
        for (size_t k = 0; k < recorded; ++k) {
            if (const auto c = recordedChart(k, frames)) {
                t.chart(*c);
            } else {
                t.line(frames.front().recorded[k].tag + ": not drawn (no value, or not up to " +
                       std::to_string(kMostSeries) +
                       " numbers a frame); the table and --csv show it");
            }
        }
    }
    for (const Chart& chart : kCharts) {
        if (const auto c = getterChart(chart, frames)) t.chart(*c);
    }
    if (t.drawn() == 0) {
        t.line(
            "no chart: no recorded tag, and none of the getters run has a timeline (zoom, "
            "crop, final crop, AF, sensitivity, exposure)");
    }
    const std::string overlay = t.overlay();
    t.line("red marks: frames where the getter failed (result not 0, or not called)", "#d62728");
    if (!findings.empty()) {
        t.line(
            "bands: the frames of each finding of the session checks (red error, orange "
            "warning, blue info)");
    }
    const double width = kChartLeft + kChartWidth + 120, height = t.y() + 16;
    return document(width, height, title + " (" + std::to_string(frames.size()) + " frames)",
                    t.body() + overlay);
}

}  // namespace inspect
