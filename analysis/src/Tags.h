// The Android tags and enum values the checks read, by name.
#pragma once

namespace kvanalysis {
namespace tag {

constexpr const char* kAeState = "android.control.aeState";
constexpr const char* kAeMode = "android.control.aeMode";
constexpr const char* kAeLock = "android.control.aeLock";
constexpr const char* kAeCompensation = "android.control.aeExposureCompensation";
constexpr const char* kAeFps = "android.control.aeTargetFpsRange";
constexpr const char* kAeRegions = "android.control.aeRegions";
constexpr const char* kAePrecapture = "android.control.aePrecaptureTrigger";
constexpr const char* kAfState = "android.control.afState";
constexpr const char* kAfMode = "android.control.afMode";
constexpr const char* kAfTrigger = "android.control.afTrigger";
constexpr const char* kAfRegions = "android.control.afRegions";
constexpr const char* kCaptureIntent = "android.control.captureIntent";
constexpr const char* kZoomRatio = "android.control.zoomRatio";
constexpr const char* kCropRegion = "android.scaler.cropRegion";
constexpr const char* kExposureTime = "android.sensor.exposureTime";
constexpr const char* kSensitivity = "android.sensor.sensitivity";
constexpr const char* kFlashMode = "android.flash.mode";
constexpr const char* kFlashState = "android.flash.state";
constexpr const char* kActiveArray = "android.sensor.info.activeArraySize";
constexpr const char* kPipelineMaxDepth = "android.request.pipelineMaxDepth";
constexpr const char* kPolicyCrop = "com.kovani.camera.sensorpolicy.cropregions";

}  // namespace tag

// Values of Android's enum-valued tags.
namespace ae {
enum : int {
    kInactive = 0,
    kSearching = 1,
    kConverged = 2,
    kLocked = 3,
    kFlashRequired = 4,
    kPrecapture = 5
};
enum : int { kModeOff = 0, kModeOn = 1, kAutoFlash = 2, kAlwaysFlash = 3, kAutoFlashRedeye = 4 };
}  // namespace ae
namespace af {
enum : int {
    kInactive = 0,
    kPassiveScan = 1,
    kPassiveFocused = 2,
    kActiveScan = 3,
    kFocusedLocked = 4,
    kNotFocusedLocked = 5,
    kPassiveUnfocused = 6
};
enum : int {
    kModeOff = 0,
    kAuto = 1,
    kMacro = 2,
    kContinuousVideo = 3,
    kContinuousPicture = 4,
    kEdof = 5
};
}  // namespace af
namespace trigger {
enum : int { kIdle = 0, kStart = 1, kCancel = 2 };
}  // namespace trigger
namespace flash {
enum : int { kOff = 0, kSingle = 1, kTorch = 2 };
enum : int { kUnavailable = 0, kCharging = 1, kReady = 2, kFired = 3, kPartial = 4 };
}  // namespace flash
constexpr int kStillCapture = 2;  // android.control.captureIntent

}  // namespace kvanalysis
