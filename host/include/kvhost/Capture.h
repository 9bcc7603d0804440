// Loading a capture into the host stand-ins: a capture description (JSON,
// docs/capture-format.md) or a device's camera metadata dump (the output of
// `dumpsys media.camera`, or a log with a metadata buffer in it;
// docs/device-dumps.md), told apart by content. What metautils-inspect shows
// is what a plug-in's test gets from here:
//
//   kvhost::LoadResult loaded = kvhost::loadCapture("dumpsys.txt");
//   ASSERT_TRUE(loaded) << loaded.error;
//   const kvhost::Capture& c = *loaded.capture;
//   kvalgo2::MetaUtils utils;
//   utils.SetCameraId(c.cameraId, c.satCameraId);
//   utils.GetFaceRect(c.frame, c.inputWidth, c.inputHeight, &faces, c.useInSensorZoom);
//
// A successful load registers the static metadata of every camera of the
// capture (replacing all that was registered), scripts the platform
// adapter stand-in with the capture's answers, and registers in the tag
// table the device's vendor tags that it does not know. A failed load
// changes none of these.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Metadata.h"

namespace kvhost {

struct CaptureGyroSample {
    float x = 0, y = 0, z = 0;
    uint64_t ticks = 0;  // of the platform's 19.2 MHz timer
};

// The answers the platform adapter stand-in is scripted with.
struct AdapterAnswers {
    bool present = true;                               // false: the library gives no instance
    std::vector<std::pair<int, int>> roles;            // (camera id, role id)
    std::optional<std::pair<int32_t, int32_t>> shift;  // the shift query's answer, if any
    bool shiftInSensorZoom = false;                    // the shift was measured on an ISZ frame
    int gyroEnable = 1;                                // result of the gyro enable operation
    std::vector<CaptureGyroSample> gyro;
};

// What a capture says besides its metadata: the ids and sizes a plug-in
// passes, the arguments of the getters, the adapter's answers, and what the
// reader chose and could not read.
struct CaptureInfo {
    std::string file;
    std::string description;
    // Where the file left a choice (a dump's camera, blocks and input size),
    // what the reader chose; what it could not read, "file:line: tag: what".
    std::vector<std::string> notes;
    std::vector<std::string> warnings;
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
    AdapterAnswers adapter;
};

// A loaded capture: its frame's metadata and the static metadata of its
// cameras, as registered with the platform stand-in.
struct Capture : CaptureInfo {
    std::shared_ptr<Metadata> frame;
    std::map<uint32_t, std::shared_ptr<Metadata>> statics;  // by camera id

    // Null when the camera has no static metadata.
    std::shared_ptr<Metadata> staticOf(int cameraId) const;
};

// The choices of a dump that a reader can make instead of the defaults (the
// first camera with a request or result, its last request with its latest
// result laid over it, each camera's static characteristics, the active
// array's size as the input size). Any of them on a capture description is
// an error.
struct DumpOptions {
    std::optional<int> camera;                 // the camera whose frame is read
    std::optional<int> frame;                  // the frame is this block alone (from 1)
    std::map<uint32_t, int> statics;           // camera id -> the block of its static metadata
    std::optional<std::pair<int, int>> input;  // the input image size
};

struct LoadResult {
    std::optional<Capture> capture;     // set when the load succeeded
    std::string error;                  // "file: position: what" when it failed
    std::vector<std::string> warnings;  // what was left out, as in capture->warnings

    explicit operator bool() const { return capture.has_value(); }
};

// Loads the file at `path`. With `saveAs`, a dump's capture is also written
// there as a capture description (one tag a line), to edit or keep as a test.
LoadResult loadCapture(const std::string& path, const DumpOptions& options = {},
                       const std::string& saveAs = "");

// ---- Sequences: a camera session's frames ---------------------------------
//
// What Android's tag monitor logged of a session (`dumpsys media.camera -m
// <tags>`, `cmd media.camera watch dump`; docs/device-dumps.md, "Sessions"),
// or a log of many frame metadata blocks, as frames one after the other:
//
//   kvhost::SequenceResult s = kvhost::loadSequence({"dumpsys.txt"});
//   ASSERT_TRUE(s) << s.error;
//   for (size_t i = 0; i < s.sequence->frameCount(); ++i) {
//       kvhost::LoadResult f = s.sequence->frame(i);  // installed, as loadCapture installs
//       utils.GetAndroidZoomRatio(f.capture->frame, &ratio);
//   }

struct FrameInfo {
    int64_t number = 0;     // the frame number the device gave it
    int64_t timestamp = 0;  // ns
};

// A tag a session recorded frame by frame (Sequence::recordedTags).
struct RecordedTag {
    std::string name;
    uint32_t id = 0;          // in the host tag table: the tag of a frame's container
    int64_t firstFrame = 0;   // the frame number of its first event in the log
    size_t resultFrames = 0;  // the frames on which the log set its result side
};

// From frame `frame` (an index of the sequence) on, one side of a recorded
// tag holds `count` elements of `type` at `bytes`, or nothing when `removed`
// (the log said "(Removed)", a block lacks it, or a new file starts). The
// bytes are the sequence's own, valid while it or a copy of it lives: a
// session's changes are read without a copy of each.
struct TagChange {
    size_t frame = 0;
    bool result = false;  // the result's side; false: the request's
    bool removed = false;
    TagType type = TagType::Byte;
    uint32_t count = 0;
    const uint8_t* bytes = nullptr;  // count elements, little-endian; null when removed
};

// A loaded sequence holds the events of its files and the base capture of
// each (static metadata, input size, the tags that events do not carry), not
// its frames: frame(i) builds one. Copies share what they hold.
class Sequence {
public:
    size_t frameCount() const;
    // Frame i's number and timestamp; zeros for i past the end.
    FrameInfo info(size_t i) const;
    // Every frame's, in order: what a walk over the whole session reads
    // without a search a frame.
    std::vector<FrameInfo> infos() const;
    // Frame i built and installed into the stand-ins (static metadata,
    // adapter script) as loadCapture installs a capture; errors as values.
    // The frames of one file share their static metadata containers.
    LoadResult frame(size_t i) const;
    // The tags whose values the session recorded frame by frame: the tag
    // monitor's monitored tags that have events, in the order the log
    // lists them, or every tag of a log of frame blocks but the framework
    // camera id (kovani.snapshot.fwkCameraId), which names the camera. The
    // other tags of a frame come from the dump's request and result blocks
    // and are the same in every frame.
    std::vector<RecordedTag> recordedTags() const;
    // Whether the log printed tag `id` for frame i, on either side. The tag
    // monitor logs changes only: a frame without an event kept the value.
    bool changed(size_t i, uint32_t id) const;
    // The frames i for which changed(i, id) holds, ascending: a session's
    // read without a search a frame.
    std::vector<size_t> changedFrames(uint32_t id) const;
    // The index (among the files read) of the file frame i comes from: the
    // frames of one file share their static metadata, input size and the
    // tags from its blocks.
    size_t fileOf(size_t i) const;
    // The values tag `id` takes on each side of the frames, by the frame
    // rule, without building a frame: a change at each frame and side where
    // the log sets it anew, in frame order (a frame's request side first).
    // Empty for a tag the session did not record.
    std::vector<TagChange> changes(uint32_t id) const;
    // The changes of one side (`result`: the result's), in frame order:
    // those of changes(id) of that side.
    std::vector<TagChange> changes(uint32_t id, bool result) const;
    // What the reader chose, and what it left out ("file:line: what").
    const std::vector<std::string>& notes() const;
    const std::vector<std::string>& warnings() const;

    struct Data;  // the reader's
    explicit Sequence(std::shared_ptr<const Data> data) : data_(std::move(data)) {}

private:
    std::shared_ptr<const Data> data_;
};

// DumpOptions apply to each file as loadCapture applies them (a file of
// events takes `camera` as the camera whose events are read); `physical`
// reads the events of that physical camera of the camera instead of the
// logical camera's; `client` the events of that app (its package) of a watch
// command's output instead of the active one's.
//
// Unlike loadCapture, a file without static metadata reads: it takes that
// of the file before it that has some (a dump of the same phone), else its
// input size stays unknown (0x0) and what maps into the input image cannot
// be run; the notes say which.
struct SequenceOptions : DumpOptions {
    std::optional<std::string> physical;
    std::optional<std::string> client;
};

struct SequenceResult {
    std::optional<Sequence> sequence;   // set when the load succeeded
    std::string error;                  // "file: what" when it failed
    std::vector<std::string> warnings;  // as sequence->warnings()

    explicit operator bool() const { return sequence.has_value(); }
};

// Loads the files at `paths` as one sequence: their frames one after the
// other, in the order given. A failed load registers nothing.
SequenceResult loadSequence(const std::vector<std::string>& paths,
                            const SequenceOptions& options = {});

// The metadata blocks of a dump, one line each: number, line, what it is,
// camera, entries read of those declared, warnings. Loads nothing.
struct BlockList {
    std::string text;
    std::string error;  // when the file is not a dump
    std::vector<std::string> warnings;
};
BlockList listDumpBlocks(const std::string& path);

}  // namespace kvhost
