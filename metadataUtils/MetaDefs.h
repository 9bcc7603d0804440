// Tag ids and shared tables of the library's two source files.
#pragma once

#include <cstdint>
#include <string>

namespace kvalgo2 {
namespace tag {

// Android camera metadata tags (section in the high 16 bits).
constexpr uint32_t ANDROID_COLOR_CORRECTION_GAINS = 0x2;
constexpr uint32_t ANDROID_CONTROL_AF_MODE = 0x10007;
constexpr uint32_t ANDROID_CONTROL_AF_STATE = 0x10020;
constexpr uint32_t ANDROID_CONTROL_ENABLE_ZSL = 0x10029;
constexpr uint32_t ANDROID_CONTROL_ZOOM_RATIO = 0x1002F;
constexpr uint32_t ANDROID_FLASH_MODE = 0x40002;
constexpr uint32_t ANDROID_JPEG_ORIENTATION = 0x70003;
constexpr uint32_t ANDROID_LENS_APERTURE = 0x80000;
constexpr uint32_t ANDROID_LENS_FOCUS_DISTANCE = 0x80003;
constexpr uint32_t ANDROID_LENS_INFO_SHADING_MAP_SIZE = 0x90006;
constexpr uint32_t ANDROID_LOGICAL_MULTI_CAMERA_PHYSICAL_IDS = 0x1A0000;
constexpr uint32_t ANDROID_SCALER_CROP_REGION = 0xD0000;
constexpr uint32_t ANDROID_SENSOR_DYNAMIC_BLACK_LEVEL = 0xE001C;
constexpr uint32_t ANDROID_SENSOR_DYNAMIC_WHITE_LEVEL = 0xE001D;
constexpr uint32_t ANDROID_SENSOR_EXPOSURE_TIME = 0xE0000;
constexpr uint32_t ANDROID_SENSOR_FRAME_DURATION = 0xE0001;
constexpr uint32_t ANDROID_SENSOR_INFO_ACTIVE_ARRAY_SIZE = 0xF0000;
constexpr uint32_t ANDROID_SENSOR_INFO_ACTIVE_ARRAY_SIZE_MAXIMUM_RESOLUTION = 0xF000B;
constexpr uint32_t ANDROID_SENSOR_INFO_COLOR_FILTER_ARRANGEMENT = 0xF0002;
constexpr uint32_t ANDROID_SENSOR_SENSITIVITY = 0xE0002;
constexpr uint32_t ANDROID_SENSOR_TIMESTAMP = 0xE0010;
constexpr uint32_t ANDROID_STATISTICS_LENS_SHADING_MAP = 0x11000B;

// Platform tags addressed by id.
constexpr uint32_t MTK_COLOR_CORRECTION_GAINS = ANDROID_COLOR_CORRECTION_GAINS;
constexpr uint32_t MTK_3A_FEATURE_AF_REGION = 0x80060001;
constexpr uint32_t MTK_3A_FEATURE_AE_SENSOR_GAIN_VALUE = 0x80060010;
constexpr uint32_t MTK_3A_FEATURE_AE_ISP_GAIN_VALUE = 0x80060011;
// Named "kovani.bokeh.AuxAnchorFrame" in the log lines; always addressed by id.
constexpr uint32_t KOVANI_BOKEH_AUX_ANCHOR_FRAME = 0x80040006;

}  // namespace tag

namespace {
// Capture type names. Nothing reads them; each source file that includes this
// header carries its own copy.
[[maybe_unused]] const std::string kCaptureTypeNames[11] = {
    "CaptureType_SAT_SE",          "CaptureType_SAT_ELL",      "CaptureType_SN_SN",
    "CaptureType_SN_ELL",          "CaptureType_SN_FrontSN",   "CaptureType_Bokeh_SE",
    "CaptureType_UltraRaw_SN",     "CaptureType_UltraRaw_ELL", "CaptureType_LongExpBracket",
    "CaptureType_LongExpHandheld", "CaptureType_INVALID",
};
}  // namespace

}  // namespace kvalgo2
