// From a camera metadata dump to a capture: which camera, which blocks make
// its frame, which block holds each camera's static metadata, and the tags of
// those blocks resolved into the host tag table.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Capture.h"
#include "Dump.h"

namespace kvhost {
namespace loader {

// The capture of a dump, with what the reader chose in `notes` and the
// dump's warnings with those of tag resolution in `warnings`. Throws
// InputError naming the file for options that the dump cannot satisfy.
//
// Resolving tags registers in the host tag table the vendor tags that it
// does not know.
//
// Without `inputRequired`, a camera without an active array size is no
// error: the input size stays 0x0 and a note starting with kUnknownInput
// says so.
Capture captureFromDump(const Dump& dump, const DumpOptions& options, bool inputRequired = true);

constexpr const char* kUnknownInput = "input image size unknown";

// The tag through which the library finds a frame's static metadata; the
// reader adds it to a frame that lacks it.
constexpr const char* kFwkCameraId = "kovani.snapshot.fwkCameraId";

// The active array's width and height of a camera's static metadata; none
// when it has no such tag or an empty one.
std::optional<std::pair<int, int>> activeArraySize(const std::vector<TagPayload>& statics);

// The entries of each of `blocks` (of `dump`) as a frame takes them,
// resolved into the host tag table as captureFromDump resolves them (vendor
// tags that the table does not know are registered); what is left out is
// added to `warnings`.
std::vector<std::vector<TagPayload>> blockTags(const Dump& dump,
                                               const std::vector<const DumpBlock*>& blocks,
                                               std::vector<std::string>& warnings);

// The blocks of a dump, one line each: number, line, what it is, camera,
// entries read of those declared, warnings: the reader's and the entries a
// capture would leave out, which go into `warnings` with the dump's.
std::string listBlocks(const Dump& dump, std::vector<std::string>* warnings = nullptr);

}  // namespace loader
}  // namespace kvhost
