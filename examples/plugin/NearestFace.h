// An example plug-in on kvalgo2::MetaUtils: of the faces detected in a frame,
// the one whose centre lies nearest the centre of the frame's final crop,
// mapped into the pixels of the plug-in's input image, which shows that crop.
#pragma once

#include <memory>

#include "MetaUtils.h"

namespace nearestface {

// What the camera pipeline hands the plug-in with each frame.
struct Request {
    std::shared_ptr<KvMetadata> frame;
    int inputWidth = 0;  // the input image, in pixels
    int inputHeight = 0;
    bool inSensorZoom = false;  // the frame was read out with in-sensor zoom
};

struct Face {
    int index = -1;            // position in the frame's face list
    __UtilsImage_Rect rect{};  // in input-image pixels
};

class NearestFace {
public:
    // The framework camera id and the physical camera whose crop applies.
    NearestFace(int cameraId, int satCameraId);

    // 0 with *face written; -1 when the frame's face list is empty; otherwise
    // the code of the getter that failed (-2 for a frame without a face
    // list). *face is written only on success.
    int Process(const Request& request, Face* face);

private:
    kvalgo2::MetaUtils utils_;
};

}  // namespace nearestface
