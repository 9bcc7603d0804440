// Host lookup recorder: every tag lookup made through KvMetadata::find on a
// host container can be recorded in one process-wide store and read back by
// tests and tools, to see which tags a call read, where, and what it found.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "kvhost/Metadata.h"

namespace kvhost {

// Where a looked-up container stands.
enum class LookupPlace {
    Frame,      // the container named by LookupRecorder::setFrame
    Static,     // a container registered with setStaticMetadata (cameraId says which)
    Container,  // any other container
};

// "frame", "static", "container".
const char* lookupPlaceName(LookupPlace place);

struct LookupRecord {
    // The tag's full name in the tag table; for a lookup by a name the table
    // does not know, that name; "" for a lookup by an id the table does not know.
    std::string tag;
    uint32_t id = 0;     // 0 for a name the table does not know
    bool known = false;  // the tag table knows the tag
    LookupPlace place = LookupPlace::Container;
    uint32_t cameraId = 0;         // Static only
    bool found = false;            // the container holds an entry (possibly with count 0)
    TagType type = TagType::Byte;  // found only: the entry's element type
    size_t count = 0;              // found only: the entry's element count
};

// Records every KvMetadata::find, process-wide, from construction until
// destruction: by name or by id, on any host container, from any thread.
//
// One store serves all recorders, as with LogCapture: the first recorder to
// start empties it, a recorder made while another is alive shares it and
// sees the same records, and the store (the frame included) is emptied when
// the last live recorder is destroyed. While no recorder is alive a lookup
// costs one relaxed atomic load and nothing is kept.
//
// Where a lookup happened: the container named by setFrame is the frame; a
// container registered with setStaticMetadata is the static metadata of its
// camera (the camera of the thread's latest getStaticMetadata when that gave
// this container, otherwise the lowest camera id it is registered under);
// anything else is a container. The frame wins over a registration.
class LookupRecorder {
public:
    LookupRecorder();
    ~LookupRecorder();
    LookupRecorder(const LookupRecorder&) = delete;
    LookupRecorder& operator=(const LookupRecorder&) = delete;

    // Names the frame for every live recorder; null names none. The store
    // keeps only a weak reference: a frame destroyed is no longer matched,
    // even by a container made at its address.
    void setFrame(const std::shared_ptr<KvMetadata>& frame);

    // In arrival order.
    std::vector<LookupRecord> records() const;
    void clear();
};

// Number of lookups the store holds now (0 while no recorder is alive).
size_t retainedLookupRecords();

}  // namespace kvhost
