// The one table of the session checks. Where a number comes from one of
// Android's camera tests, its anchor names the test; "ours" marks our own.
#include "Tags.h"
#include "kvanalysis/Checks.h"

namespace kvanalysis {

using namespace tag;

const std::vector<CheckInfo>& checkTable() {
    static const std::vector<CheckInfo> table = {
        {"ae-converge",
         "auto-exposure reaches CONVERGED, FLASH_REQUIRED or LOCKED in time",
         Severity::Error,
         "a stretch of SEARCHING or PRECAPTURE (AE on) longer than `frames` frames since its "
         "start or the last change of AE settings, or longer than `precapture-frames` after a "
         "precapture trigger",
         {kAeState},
         {kAeMode, kAeLock, kAeCompensation, kAeFps, kAeRegions, kAePrecapture},
         {{"frames", 100, "frames (results) for aeState to converge",
           "CTS CameraTestUtils waitForAeStable"},
          {"precapture-frames", 40, "frames to converge after a precapture trigger",
           "ITS test_ae_precapture_trigger"}}},
        {"ae-precapture",
         "a precapture sequence completes and stays complete",
         Severity::Error,
         "after a precapture trigger START, aeState leaves PRECAPTURE for CONVERGED or "
         "FLASH_REQUIRED only, within `frames` frames, and is not PRECAPTURE again within "
         "`after` frames of completing without a new trigger",
         {kAeState, kAePrecapture},
         {kAeMode},
         {{"frames", 180, "frames for the sequence to complete", "CTS RobustnessTest"},
          {"after", 10, "frames after completion that must not be PRECAPTURE",
           "CTS RobustnessTest"}}},
        {"ae-lock",
         "exposure holds while auto-exposure is locked",
         Severity::Error,
         "with aeLock ON for more than `settle` frames: aeState is LOCKED, and exposure time and "
         "sensitivity do not change at all",
         {kAeLock},
         {kAeState, kExposureTime, kSensitivity, kAeMode},
         {{"settle", 8, "frames after the lock by which aeState must be LOCKED",
           "ITS test_ev_compensation; CTS CaptureRequestTest for equal exposures"}}},
        {"ae-oscillation",
         "exposure does not swing back and forth under an unchanged request",
         Severity::Warning,
         "more than `reversals` reversals of exposure (sensitivity x exposure time, steps over "
         "`step`), or more than `reversals` returns from CONVERGED to SEARCHING, within `window` "
         "frames without a change of AE settings",
         {},
         {kSensitivity, kExposureTime, kAeState, kAeMode, kAeLock, kAeCompensation, kAeFps,
          kAeRegions, kAePrecapture},
         {{"step", 0.03, "relative exposure step that counts as a move",
           "ITS test_auto_per_frame_control"},
          {"reversals", 3, "reversals allowed within the window", "ours"},
          {"window", 30, "frames of the window", "ours"}}},
        {"af-sequence",
         "an AF trigger ends in a lock that holds",
         Severity::Error,
         "after an AF trigger START, afState reaches FOCUSED_LOCKED or NOT_FOCUSED_LOCKED within "
         "`frames` frames, and leaves it only on a cancel, a new trigger or a change of AF mode",
         {kAfState, kAfTrigger},
         {kAfMode},
         {{"frames", 180, "frames for the lock", "CTS RobustnessTest"}}},
        {"af-hunting",
         "continuous AF does not scan again and again",
         Severity::Warning,
         "in a continuous AF mode, more than `scans` entries into PASSIVE_SCAN within `window` "
         "frames without a change of AF mode, regions or trigger",
         {kAfState, kAfMode},
         {kAfRegions, kAfTrigger},
         {{"scans", 3, "scans allowed within the window", "ours"},
          {"window", 60, "frames of the window", "ours"}}},
        {"zoom",
         "the result's zoom follows the request and the crop follows the zoom",
         Severity::Error,
         "the result's zoom ratio within `ratio` of one requested in the last `latency` frames; "
         "monotonic while the request is; the crop region's size that of the active array or of "
         "the active array over the zoom within `crop-size` x max(1, zoom), its centre within "
         "`crop-centre` x max(1, zoom) of the array's; frames off within `latency` frames of "
         "each other are one finding",
         {kZoomRatio},
         {kCropRegion},
         {{"ratio", 0.05, "relative error of the result's zoom ratio", "CTS CaptureRequestTest"},
          {"crop-size", 0.05, "relative error of the crop's size", "CTS CaptureRequestTest"},
          {"crop-centre", 0.01, "error of the crop's centre, of the array's size",
           "CTS CaptureRequestTest"},
          {"latency", 8,
           "frames a result may lag its request (android.request.pipelineMaxDepth "
           "when the dump has it)",
           "CTS CaptureRequestTest"}}},
        {"final-crop",
         "our GetFinalCropRegion moves only with its inputs",
         Severity::Error,
         "between frames with zoom, sensor-policy crop and shift source unchanged, the final "
         "crop's centre moves at most `jump` of its width; its width does not grow by more than "
         "`jump` as the zoom grows (or shrink as it falls); its shift source (platform or "
         "kovani.sat.output.shift) does not change while the zoom moves",
         {kZoomRatio, kPolicyCrop},
         {},
         {{"jump", 0.05, "centre move or size change, of the crop's width", "ours"}},
         true},
        {"getter-flaps",
         "a getter fails on some frames and not on others",
         Severity::Warning,
         "a getter whose result code changes between frames: the frames where it fails, and "
         "what its lookups found",
         {},
         {},
         {},
         true},
        {"flash",
         "the flash fires when asked and recovers",
         Severity::Error,
         "flash mode SINGLE: flash state FIRED in that frame; TORCH: FIRED within `torch-frames` "
         "frames; FLASH_REQUIRED then a still capture (auto-flash AE): FIRED on the capture; "
         "after a flash, READY or PARTIAL again within `ready-frames` frames",
         {kFlashState},
         {kFlashMode, kAeState, kCaptureIntent, kAeMode},
         {{"torch-frames", 10, "frames for the torch to show FIRED", "CTS CaptureRequestTest"},
          {"ready-frames", 10, "frames for the flash to be READY again",
           "CTS CaptureRequestTest, ITS test_auto_flash"}}},
        {"timestamps",
         "sensor timestamps rise and frames are not dropped",
         Severity::Error,
         "timestamps strictly increasing with the frame number; with a tag recorded that "
         "changes on every frame, no interval between consecutive frames over `drop` x the "
         "median",
         {},
         {},
         {{"drop", 1.5, "interval that counts as a drop, of the median",
           "CTS SurfaceViewPreviewTest, ITS test_sensor_fusion"}}},
    };
    return table;
}

const CheckInfo* findCheck(std::string_view id) {
    for (const CheckInfo& c : checkTable()) {
        if (id == c.id) return &c;
    }
    return nullptr;
}

const char* severityName(Severity severity) {
    switch (severity) {
        case Severity::Info:
            return "info";
        case Severity::Warning:
            return "warning";
        case Severity::Error:
            return "error";
    }
    return "error";
}

bool parseSeverity(std::string_view text, Severity* severity) {
    for (const Severity s : {Severity::Info, Severity::Warning, Severity::Error}) {
        if (text == severityName(s)) {
            *severity = s;
            return true;
        }
    }
    return false;
}

const char* statusName(Status status) {
    switch (status) {
        case Status::Passed:
            return "passed";
        case Status::Failed:
            return "failed";
        case Status::NotDecidable:
            return "not decidable";
    }
    return "not decidable";
}

}  // namespace kvanalysis
