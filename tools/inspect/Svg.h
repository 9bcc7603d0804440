// The geometry of a capture as an SVG picture: on the left the sensor's
// active array with the crop regions, faces and AF region in sensor
// coordinates; on the right the input image with what the library mapped
// into it.
#pragma once

#include <string>
#include <vector>

#include "Frames.h"
#include "Report.h"
#include "kvanalysis/Checks.h"

namespace inspect {

std::string drawGeometry(const Capture& capture, const std::vector<CallRecord>& calls);
// The getters whose outputs drawGeometry reads.
std::vector<const Getter*> geometryGetters();

// A session's timelines: one small chart per quantity over the frame number:
// first the recorded tags' own values (enum values as named steps), then
// zoom, crop size and centre, final crop, AF state and mode, sensitivity and
// exposure for the getters the frames ran, titled as reading the dump's
// blocks where they did; the frames where a getter failed are marked under
// its chart. Each finding of the session checks is a band over its frames:
// in a lane of its check's, labelled with the check id, above the charts,
// and lightly across them.
std::string drawTimelines(const std::vector<FrameCalls>& frames, const std::string& title,
                          const std::vector<kvanalysis::Finding>& findings = {});

}  // namespace inspect
