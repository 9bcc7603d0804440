// A camera session's frames: from the tag monitor's event log of a dump
// (TagMonitor.h), or from the frame metadata blocks of a log without one,
// in one compact table per file; frame i is built from that table when
// asked, never stored.
//
// The frame rule, for frame number N of the chosen camera: a monitored tag
// takes its value from the latest result-side event of a frame number at
// most N unless that event says the tag was removed, else from the latest
// request-side one on the same terms, else it is absent. Tags that are not
// monitored come from the camera's last request and latest result blocks
// (the result's entry winning), the same in every frame.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Capture.h"
#include "InputText.h"
#include "TagMonitor.h"
#include "kvhost/Capture.h"

namespace kvhost {
namespace loader {

// One file's frames.
struct SequencePart {
    struct Frame {
        int64_t number = 0;
        int64_t timestamp = 0;
        // Frame blocks: the frame's tags are the events [first, end).
        uint32_t first = 0;
        uint32_t end = 0;
    };
    // A monitored tag: its events of each side, in the order of their frame
    // numbers (and, within one frame, of the log), with what its values
    // are read from. A tag's events lie apart in the log's table; these
    // lie one after the other.
    struct Track {
        struct Event {
            int64_t frame = 0;
            uint32_t offset = 0;  // of its payload, as the log's TagEvent
            uint32_t count = 0;
            bool removed = false;
        };
        const kvhost::TagInfo* info = nullptr;
        std::vector<Event> sides[2];  // by Side
        size_t resultFrames = 0;      // the frames of its result side's events
    };

    Capture base;  // the statics, input and notes; the frame: unmonitored tags from blocks
    std::map<uint32_t, std::shared_ptr<kvhost::Metadata>> statics;  // built once for all frames
    EventLog log;                               // the chosen camera's events only
    std::vector<const kvhost::TagInfo*> infos;  // by tag index of log.tags
    std::vector<Track> tracks;                  // events: the monitored tags
    bool fromBlocks = false;                    // frames are metadata blocks, not events
    std::vector<Frame> frames;
};

// The tag payloads of frame `i` of `part`: the frame rule applied to its
// event table, or its block's tags.
std::vector<TagPayload> frameTags(const SequencePart& part, size_t i);

}  // namespace loader

struct Sequence::Data {
    std::vector<loader::SequencePart> parts;
    std::vector<size_t> firstFrame;  // by part: the sequence's index of its first frame
    size_t frameCount = 0;
    std::vector<std::string> notes;
    std::vector<std::string> warnings;
};

namespace loader {

// The sequence of the files at `paths`, their frames one after the other.
// Throws InputError naming the file that cannot be read or holds neither
// events nor metadata blocks; a failure registers nothing.
std::shared_ptr<const Sequence::Data> readSequence(const std::vector<std::string>& paths,
                                                   const SequenceOptions& options);

// A file's name (for notes, warnings and errors) and its text.
struct SequenceText {
    std::string path;
    Text text;
    std::string note;  // what was read of the file, when not all of it (InputText)
};

// The same from texts already read: readSequence reads its files and reads
// them here.
std::shared_ptr<const Sequence::Data> readSequenceTexts(std::vector<SequenceText> texts,
                                                        const SequenceOptions& options);

}  // namespace loader
}  // namespace kvhost
