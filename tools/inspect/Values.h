// The library's outputs as JSON values: numbers as numbers (floats in their
// shortest exact decimal), rectangles as {left, top, width, height}, records
// field by field, opaque records as their size and bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <type_traits>

#include "MetaUtils.h"

namespace inspect {

using Json = nlohmann::ordered_json;

Json value(float f);

template <typename T, typename = std::enable_if_t<std::is_integral_v<T>>>
Json value(T v) {
    return v;
}

Json floats(const float* v, size_t n);

// Opaque records of the algorithm layer: their size and bytes in hex.
Json blob(const void* data, size_t size);

template <typename Record>
Json value(const Record& r, decltype(r.bytes)* = nullptr) {
    return blob(r.bytes, sizeof r.bytes);
}

// kvalgo2::ChiRect and __UtilsImage_Rect: the same four fields.
template <typename Rect, typename = decltype(Rect::left + Rect::top + Rect::width + Rect::height)>
Json value(const Rect& r) {
    return Json{{"left", r.left}, {"top", r.top}, {"width", r.width}, {"height", r.height}};
}

Json sizeValue(uint32_t width, uint32_t height);

Json value(const kvalgo2::KVFaceInfo& info);
Json value(const AIspFaceInfo& info);
Json value(const kvalgo2::LaserDistance& d);
Json value(const kvalgo2::Sunset_Scene_t& s);
Json value(const kvalgo2::KvAiSceneClsResult& r);
Json value(const AIspAnchorMeta& m);
Json value(const char (&name)[128]);
Json value(const kvalgo2::PreviewBrightnessInfo& h);
Json value(const AIspGammaTbl& t);

// Records that the library never writes: null.
Json value(const kvalgo2::AWBGainAdj&);
Json value(const kvalgo2::KVSensorModeInfo&);
Json value(const kvalgo2::KVSensorCaps&);

}  // namespace inspect
