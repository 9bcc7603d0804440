// A capture description: the frame's metadata, the static metadata of each
// camera, the camera ids and image sizes a plug-in would pass, and what the
// platform adapter answers. Loaded and checked whole before anything runs.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "TagPayload.h"

class KvMetadata;

namespace inspect {

struct GyroSample {
    float x = 0, y = 0, z = 0;
    uint64_t ticks = 0;  // of the platform's 19.2 MHz timer
};

// The scripted answers of the platform adapter library.
struct AdapterAnswers {
    bool present = true;                               // false: the library gives no instance
    std::vector<std::pair<int, int>> roles;            // (camera id, role id)
    std::optional<std::pair<int32_t, int32_t>> shift;  // the shift query's answer, if any
    bool shiftInSensorZoom = false;                    // the shift was measured on an ISZ frame
    int gyroEnable = 1;                                // result of the gyro enable operation
    std::vector<GyroSample> gyro;
};

struct Capture {
    std::string file;
    std::string description;
    int cameraId = 0;  // SetCameraId(cameraId, satCameraId)
    int satCameraId = 0;
    int inputWidth = 0;  // the plug-in's input image
    int inputHeight = 0;
    // Arguments that a plug-in passes from its own knowledge of the frame.
    // GetFinalCropRegion's sensor size; the active array's size when absent.
    std::optional<std::pair<uint32_t, uint32_t>> sensorSize;
    bool isInSensorZoom = false;  // GetFinalCropRegion
    int useInSensorZoom = 0;      // GetFaceRect
    std::string gyroKey;          // GetGyroData
    int gyroQuery = 0;
    std::vector<TagPayload> frame;
    std::map<uint32_t, std::vector<TagPayload>> statics;  // by camera id
    AdapterAnswers adapter;
    // What a reader chose where the file leaves a choice (a dump's camera,
    // blocks and input size), and what it could not read ("file:line: tag:
    // what"); both shown in the report.
    std::vector<std::string> notes;
    std::vector<std::string> warnings;
};

// Reads and checks a capture description given as text. Every problem is an
// InputError whose text starts with `file`. (Load.h reads files.)
Capture parseCapture(const std::string& text, const std::string& file);

// The description (with the notes), camera ids, input size, frame and static
// metadata of a capture as a capture description, one tag a line (the
// arguments and adapter answers are left at their defaults): what a dump's
// capture is saved as.
std::string captureText(const Capture& c);

// The containers built from a capture description.
struct Installed {
    std::shared_ptr<KvMetadata> frame;
    std::map<uint32_t, std::shared_ptr<KvMetadata>> statics;  // also registered with the platform

    // Null when the camera has no static metadata.
    std::shared_ptr<KvMetadata> staticOf(int cameraId) const;
};

// Builds the frame's metadata, registers the static metadata of every camera
// and scripts the platform adapter.
Installed installCapture(const Capture& capture);

}  // namespace inspect
