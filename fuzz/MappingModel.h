// Reference model of MetaUtils::MapRectToInput, written out step by step from
// the mapping's rules and kept apart from the library's code, so that the
// fuzz targets can compare the library's rectangle with an independent one
// pixel for pixel.
//
// Rules: the reference region fills the input image on one axis (the width
// when the sensor is not wider than the image, also for equal ratios; the
// height otherwise, also for a ratio that is not a number) and is
// centre-cropped on the other. Offsets are unsigned 32-bit, the visible
// extent of the cut axis a wrapping signed 32-bit product divided with
// truncation, positions rounded half away from zero in single precision,
// sizes floored, both limited by the image border, and sizes made even.
#pragma once

#include <cmath>
#include <cstdint>

#include "MetaUtils.h"

namespace kvfuzz {

struct MappedRect {
    int result = -1;           // 0 accepted, -1 rejected
    __UtilsImage_Rect rect{};  // meaningful when accepted
};

// min(value, limit) where value is a non-negative float holding an integer,
// compared in exact arithmetic (no conversion of large floats to integers).
inline uint32_t AtMost(float value, uint32_t limit) {
    const double v = static_cast<double>(value);
    return v >= static_cast<double>(limit) ? limit : static_cast<uint32_t>(v);
}

inline MappedRect ModelMapRect(const kvalgo2::ChiRect& src, const kvalgo2::ChiRect& refer,
                               int32_t inputWidth, int32_t inputHeight,
                               const kvalgo2::ChiRect& sensor) {
    MappedRect out;
    if (inputHeight < 1 || inputWidth < 1 || src.width == 0 || src.height == 0 ||
        refer.width == 0 || refer.height == 0) {
        return out;
    }
    const uint32_t relX = src.left < refer.left ? 0u : src.left - refer.left;
    const uint32_t relY = src.top <= refer.top ? 0u : src.top - refer.top;

    const float sensorRatio = static_cast<float>(sensor.width) / static_cast<float>(sensor.height);
    const float inputRatio = static_cast<float>(inputWidth) / static_cast<float>(inputHeight);
    const bool widthFills = sensorRatio <= inputRatio;

    // Fill axis and cut axis of the image, of the reference and of the offsets.
    const int32_t imageFill = widthFills ? inputWidth : inputHeight;
    const int32_t imageCut = widthFills ? inputHeight : inputWidth;
    const uint32_t referFill = widthFills ? refer.width : refer.height;
    const uint32_t referCut = widthFills ? refer.height : refer.width;
    const uint32_t relFill = widthFills ? relX : relY;
    const uint32_t relCut = widthFills ? relY : relX;

    const float scale = static_cast<float>(imageFill) / static_cast<float>(referFill);
    // Reference extent that the image shows on the cut axis, signed 32-bit.
    const int32_t shown =
        static_cast<int32_t>(referFill * static_cast<uint32_t>(imageCut)) / imageFill;
    const int32_t hidden = static_cast<int32_t>(referCut - static_cast<uint32_t>(shown));
    const int32_t margin = hidden < 0 ? 0 : hidden / 2;

    // Positions: rounded, non-negative (scale and offsets are), then limited
    // to the last pixel of the image.
    float fillPos = std::round(scale * static_cast<float>(relFill));
    float cutPos = 0.0f;
    if (static_cast<float>(relCut) > static_cast<float>(margin)) {
        cutPos = std::round(scale * static_cast<float>(relCut - static_cast<uint32_t>(margin)));
    }
    const float posX = widthFills ? fillPos : cutPos;
    const float posY = widthFills ? cutPos : fillPos;

    const uint32_t w = static_cast<uint32_t>(inputWidth);
    const uint32_t h = static_cast<uint32_t>(inputHeight);
    out.rect.left = AtMost(posX, w - 1);
    out.rect.top = AtMost(posY, h - 1);
    out.rect.width = AtMost(std::floor(scale * static_cast<float>(src.width)), w - out.rect.left);
    out.rect.height = AtMost(std::floor(scale * static_cast<float>(src.height)), h - out.rect.top);
    out.rect.width &= ~1u;
    out.rect.height &= ~1u;
    out.result = 0;
    return out;
}

// The rules every accepted mapping obeys, whatever its arguments.
inline bool InsideImage(const __UtilsImage_Rect& r, int32_t inputWidth, int32_t inputHeight) {
    const uint64_t w = static_cast<uint32_t>(inputWidth);
    const uint64_t h = static_cast<uint32_t>(inputHeight);
    return r.left < w && r.left + static_cast<uint64_t>(r.width) <= w && r.top < h &&
           r.top + static_cast<uint64_t>(r.height) <= h && r.width % 2 == 0 && r.height % 2 == 0;
}

}  // namespace kvfuzz
