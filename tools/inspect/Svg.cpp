#include "Svg.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <sstream>

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

// A rectangle in picture coordinates.
void drawRect(std::ostream& out, const Rect& r, const Style& s) {
    out << "<rect x=\"" << fmt(r.left) << "\" y=\"" << fmt(r.top) << "\" width=\"" << fmt(r.width)
        << "\" height=\"" << fmt(r.height) << "\" fill=\"" << s.fill << "\" stroke=\"" << s.stroke
        << "\" stroke-width=\"" << s.width << "\"";
    if (*s.dash != '\0') out << " stroke-dasharray=\"" << s.dash << "\"";
    out << "/>\n";
}

// A rectangle of a call's output: {"left", "top", "width", "height"}.
std::optional<Rect> rectOf(const Json& v) {
    if (!v.is_object() || !v.contains("left") || !v.contains("height")) return std::nullopt;
    return Rect{v["left"].get<double>(), v["top"].get<double>(), v["width"].get<double>(),
                v["height"].get<double>()};
}

// The output of a call that succeeded, or null.
const Json& outputOf(const std::vector<CallRecord>& calls, const char* method) {
    static const Json kNone;
    const CallRecord* call = findCall(calls, method);
    return call != nullptr && call->outcome.result == 0 ? call->outcome.output : kNone;
}

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

// The capture's description under the title, wrapped to the picture's width;
// `bottom` receives the height it takes.
std::string description(const std::string& text, double width, double& bottom) {
    const size_t perLine = static_cast<size_t>((width - 2 * kMargin) / 7);
    std::string out;
    std::string line;
    double y = 44;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        if (!line.empty() && line.size() + word.size() + 1 > perLine) {
            out += "<text x=\"" + fmt(kMargin) + "\" y=\"" + fmt(y) + "\" fill=\"#444444\">" +
                   escaped(line) + "</text>\n";
            line.clear();
            y += 16;
        }
        line += (line.empty() ? "" : " ") + word;
    }
    bottom = y + 40;
    return out + "<text x=\"" + fmt(kMargin) + "\" y=\"" + fmt(y) + "\" fill=\"#444444\">" +
           escaped(line) + "</text>\n";
}

std::string described(const char* what, const Json& rect) {
    return what + (" " + inlineText(rect));
}

}  // namespace

std::string drawGeometry(const Capture& capture, const std::vector<CallRecord>& calls) {
    const double width = kMargin * 4 + kPanelWidth * 2;
    double top = 0;  // of the panels, below the title and the description
    std::ostringstream body;
    body << description(capture.description, width, top);
    std::vector<LegendItem> left;
    std::vector<LegendItem> right;

    // ---- Sensor coordinates ----
    const Json& finalCrop = outputOf(calls, "GetFinalCropRegion");
    std::optional<Rect> array = rectOf(outputOf(calls, "GetActiveArraySize"));
    if (!array && finalCrop.contains("sensorSize")) {
        array = Rect{0, 0, finalCrop["sensorSize"]["width"].get<double>(),
                     finalCrop["sensorSize"]["height"].get<double>()};
    }
    const double sensorX = kMargin;
    double legendY = top + kPanelHeight + 40;
    if (array && array->width > 0 && array->height > 0) {
        Panel sensor(body, sensorX, top, *array);
        sensor.rect(*array, kArray);
        sensor.text(sensorX, top - 8,
                    "sensor: active array " + inlineText(outputOf(calls, "GetActiveArraySize")),
                    "#333333", "bold");
        left.push_back({&kArray, "active array"});
        const Json& androidCrop = outputOf(calls, "GetAndroidCropRegion");
        if (const auto crop = rectOf(androidCrop)) {
            sensor.rect(visibleBand(*crop, *array, capture.inputWidth, capture.inputHeight),
                        kVisible);
            left.push_back({&kVisible, "part of the crop region the input image shows"});
        }
        // The crops from the request to the final one. They often coincide:
        // drawn widest stroke first, and the legend says which are equal.
        const Json stages = finalCrop.value("stages", Json::object());
        const struct {
            const char* name;
            const Style* style;
            Json rect;
        } crops[] = {
            {"Android crop region", &kAndroidCrop, androidCrop},
            {"sensor-policy crop", &kPolicyCrop, stages.value("sensorPolicy", Json())},
            {"final crop before the shift", &kBeforeShift, stages.value("aspectCorrected", Json())},
            {"final crop", &kFinalCrop, finalCrop.value("crop", Json())},
        };
        for (auto it = std::rbegin(crops); it != std::rend(crops); ++it) {
            if (const auto r = rectOf(it->rect)) sensor.rect(*r, *it->style);
        }
        for (size_t i = 0; i < std::size(crops); ++i) {
            if (!rectOf(crops[i].rect)) continue;
            std::string text = described(crops[i].name, crops[i].rect);
            for (size_t k = 0; k < i; ++k) {
                if (crops[k].rect == crops[i].rect) {
                    text += " (= " + std::string(crops[k].name) + ")";
                    break;
                }
            }
            const bool converted =
                stages.contains("afterInSensorZoom") &&
                stages["afterInSensorZoom"] != stages.value("sensorPolicy", Json());
            if (crops[i].style != &kAndroidCrop && crops[i].style != &kPolicyCrop && converted) {
                text += ", in in-sensor-zoom readout coordinates";
            }
            if (crops[i].style == &kFinalCrop && stages.contains("shift")) {
                const Json& shift = stages["shift"];
                text += ", shift (" + shift["x"].dump() + ", " + shift["y"].dump() + ") from " +
                        shift["from"].get<std::string>() +
                        (shift["applied"].get<bool>() ? "" : ", not applied");
            }
            left.push_back({crops[i].style, text});
        }
        const Json& faces = outputOf(calls, "GetFacesInfoHolder");
        if (faces.contains("faces")) {
            for (size_t i = 0; i < faces["faces"].size(); ++i) {
                const Json& f = faces["faces"][i];
                const double l = f["left"].get<double>(), t = f["top"].get<double>();
                sensor.rect({l, t, f["right"].get<double>() - l, f["bottom"].get<double>() - t},
                            kFace, std::to_string(i));
            }
            left.push_back({&kFace, std::to_string(faces["faces"].size()) + " faces (numbered)"});
        }
        const Json& focus = outputOf(calls, "GetfocusROI");
        if (const auto af = rectOf(focus.value("sensorRect", Json()))) {
            sensor.rect(*af, kFocus, "AF", true);
            left.push_back({&kFocus, described("AF region", focus["sensorRect"])});
        }
        legendY = std::max(legendY, sensor.bottom() + 40);
    } else {
        Panel(body, sensorX, top, {0, 0, 1, 1})
            .text(sensorX, top + 20, "no active array: nothing to draw in sensor coordinates",
                  "#333333");
    }

    // ---- Input image ----
    const double inputX = kMargin * 3 + kPanelWidth;
    const Rect input{0, 0, static_cast<double>(capture.inputWidth),
                     static_cast<double>(capture.inputHeight)};
    Panel image(body, inputX, top, input);
    image.rect(input, kArray);
    image.text(inputX, top - 8,
               "input image " + std::to_string(capture.inputWidth) + "x" +
                   std::to_string(capture.inputHeight),
               "#333333", "bold");
    right.push_back({&kArray, "input image"});
    const Json& mapped = outputOf(calls, "GetFaceRect");
    if (mapped.contains("faces")) {
        const int largest = mapped["largestFaceIndex"].get<int>();
        for (size_t i = 0; i < mapped["faces"].size(); ++i) {
            const Json& f = mapped["faces"][i];
            const bool isLargest = static_cast<int>(i) == largest;
            image.rect(*rectOf(f["rect"]), isLargest ? kLargestFace : kFace,
                       std::to_string(i) + (isLargest ? " largest" : ""));
            image.cross(f["center"]["x"].get<double>(), f["center"]["y"].get<double>(),
                        kFace.stroke);
        }
        right.push_back({&kFace, "mapped faces with centres (+); thick: the largest, face " +
                                     std::to_string(largest)});
    }
    const Json& focus = outputOf(calls, "GetfocusROI");
    if (const auto roi = rectOf(focus.value("roi", Json()))) {
        image.rect(*roi, kFocus, "focus", true);
        std::string text = described("focus region", focus["roi"]);
        const Json& point = outputOf(calls, "GetfocusTP");
        if (point.contains("x")) {
            image.dot(point["x"].get<double>(), point["y"].get<double>(), kFocus.stroke);
            text += ", touch point (o) " + inlineText(point);
        }
        right.push_back({&kFocus, text});
    }
    legendY = std::max(legendY, image.bottom() + 40);

    legend(body, sensorX, legendY, left);
    legend(body, inputX, legendY, right);
    const double height = legendY + 18.0 * std::max(left.size(), right.size()) + kMargin;

    std::ostringstream svg;
    svg << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << fmt(width) << "\" height=\""
        << fmt(height) << "\" viewBox=\"0 0 " << fmt(width) << " " << fmt(height)
        << "\" font-family=\"sans-serif\" font-size=\"13\">\n"
        << "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n"
        << "<text x=\"" << kMargin << "\" y=\"24\" font-size=\"16\" font-weight=\"bold\">"
        << escaped(capture.file) << "</text>\n"
        << body.str() << "</svg>\n";
    return svg.str();
}

}  // namespace inspect
