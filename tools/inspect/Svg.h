// The geometry of a capture as an SVG picture: on the left the sensor's
// active array with the crop regions, faces and AF region in sensor
// coordinates; on the right the input image with what the library mapped
// into it.
#pragma once

#include <string>
#include <vector>

#include "Report.h"

namespace inspect {

std::string drawGeometry(const Capture& capture, const std::vector<CallRecord>& calls);

}  // namespace inspect
