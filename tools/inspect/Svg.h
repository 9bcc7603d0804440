// The geometry of a capture as an SVG picture: on the left the sensor's
// active array with the crop regions, faces and AF region in sensor
// coordinates; on the right the input image with what the library mapped
// into it.
#pragma once

#include <cstdint>
#include <memory>
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

// The same drawn as the frames go by, in order: each chart keeps, per pixel
// column, the first, last, least and greatest value of the frames that fall
// in it, and the runs of frames where a getter failed, so that a session of
// any length costs what the picture's width does. Values hold until the
// next frame with one: the lines are steps.
class TimelineDrawing {
public:
    // The session's first and last frame numbers: the charts' frame axis.
    TimelineDrawing(int64_t firstFrame, int64_t lastFrame);
    ~TimelineDrawing();
    TimelineDrawing(const TimelineDrawing&) = delete;
    TimelineDrawing& operator=(const TimelineDrawing&) = delete;

    // The charts are those of the first frame's recorded tags and getters.
    void add(const FrameCalls& frame);
    // A getter whose chart is not drawn after all (its tags were in no frame).
    void leaveOut(const std::string& method);
    std::string draw(const std::string& title,
                     const std::vector<kvanalysis::Finding>& findings = {}) const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace inspect
