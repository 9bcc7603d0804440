#include "Values.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace inspect {

// The shortest decimal that reads back as the same float, so 0.48f prints
// as 0.48 and not as the double nearest to it.
Json value(float f) {
    if (std::isnan(f)) return "nan";
    if (std::isinf(f)) return f > 0 ? "inf" : "-inf";
    char text[32];
    for (int digits = 1; digits <= 9; ++digits) {
        std::snprintf(text, sizeof text, "%.*g", digits, static_cast<double>(f));
        if (std::strtof(text, nullptr) == f) break;
    }
    return std::strtod(text, nullptr);
}

Json floats(const float* v, size_t n) {
    Json out = Json::array();
    for (size_t i = 0; i < n; ++i) out.push_back(value(v[i]));
    return out;
}

Json blob(const void* data, size_t size) {
    static const char kDigits[] = "0123456789abcdef";
    std::string hex;
    for (size_t i = 0; i < size; ++i) {
        const auto b = static_cast<const uint8_t*>(data)[i];
        hex += kDigits[b >> 4];
        hex += kDigits[b & 15];
    }
    return Json{{"size", size}, {"hex", hex}};
}

Json sizeValue(uint32_t width, uint32_t height) {
    return Json{{"width", width}, {"height", height}};
}

Json value(const kvalgo2::KVFaceInfo& info) {
    Json faces = Json::array();
    for (int i = 0; i < std::min(info.faceCount, 10); ++i) {
        const kvalgo2::KVFaceEntry& f = info.faces[i];
        const int32_t* extra = info.faceExtra[i];
        faces.push_back({{"rect", value(f.rect)},
                         {"center", {{"x", f.centerX}, {"y", f.centerY}}},
                         {"rotation", f.rotation},
                         {"extra", {extra[0], extra[1], extra[2]}}});
    }
    return Json{{"faceCount", info.faceCount},
                {"largestFaceIndex", info.largestFaceIndex},
                {"faces", faces}};
}

Json value(const AIspFaceInfo& info) {
    Json faces = Json::array();
    for (int i = 0; i < std::min(info.count, 50); ++i) {
        const int32_t* r = info.rect[i];
        const int32_t* extra = info.faceExtra[i];
        faces.push_back({{"left", r[0]},
                         {"top", r[1]},
                         {"right", r[2]},
                         {"bottom", r[3]},
                         {"luma", value(info.luma[i])},
                         {"extra", {extra[0], extra[1], extra[2]}}});
    }
    return Json{{"count", info.count}, {"faces", faces}};
}

Json value(const kvalgo2::LaserDistance& d) {
    return Json{{"distance", d.distance}};
}

Json value(const kvalgo2::Sunset_Scene_t& s) {
    return Json{{"isSunset", s.isSunset}, {"confidence", s.confidence}};
}

Json value(const kvalgo2::KvAiSceneClsResult& r) {
    return Json::array({Json{{"class", r.class0}, {"confidence", value(r.confidence0)}},
                        Json{{"class", r.class1}, {"confidence", value(r.confidence1)}}});
}

Json value(const AIspAnchorMeta& m) {
    return Json{{"eyeDet", m.eyeDet}, {"eyeOpen", m.eyeOpen}};
}

Json value(const char (&name)[128]) {
    return std::string(name, strnlen(name, sizeof name));
}

Json value(const kvalgo2::PreviewBrightnessInfo& h) {
    return Json{{"binCount", h.binCount}, {"bins", std::vector<uint32_t>(h.bins, h.bins + 256)}};
}

Json value(const AIspGammaTbl& t) {
    const size_t n = t.count >= 0 && t.count <= 512 ? static_cast<size_t>(t.count) : 0;
    return Json{{"count", t.count}, {"x", floats(t.x, n)}, {"y", floats(t.y, n)}};
}

Json value(const kvalgo2::AWBGainAdj&) {
    return nullptr;
}
Json value(const kvalgo2::KVSensorModeInfo&) {
    return nullptr;
}
Json value(const kvalgo2::KVSensorCaps&) {
    return nullptr;
}

}  // namespace inspect
