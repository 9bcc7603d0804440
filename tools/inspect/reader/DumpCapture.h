// From a camera metadata dump to a capture: which camera, which blocks make
// its frame, which block holds each camera's static metadata, and the tags of
// those blocks resolved into the host tag table.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "Capture.h"
#include "Dump.h"

namespace inspect {

// The choices a reader of a dump can make instead of the defaults.
struct DumpOptions {
    std::optional<int> camera;                 // the camera whose frame is read
    std::optional<int> frame;                  // the frame is this block alone
    std::map<uint32_t, int> statics;           // camera id -> the block of its static metadata
    std::optional<std::pair<int, int>> input;  // the input image size
};

// The capture of a dump, with what the reader chose in `notes` and the
// dump's warnings with those of tag resolution in `warnings`. Throws
// InputError naming the file for options that the dump cannot satisfy.
//
// Resolving tags registers in the host tag table the vendor tags that it
// does not know.
Capture captureFromDump(const Dump& dump, const DumpOptions& options);

// The blocks of a dump, one line each: number, line, what it is, camera,
// entries read of those declared, warnings.
std::string listBlocks(const Dump& dump);

}  // namespace inspect
