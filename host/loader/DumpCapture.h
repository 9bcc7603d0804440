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
Capture captureFromDump(const Dump& dump, const DumpOptions& options);

// The entries of each of `blocks` (of `dump`) as a frame takes them,
// resolved into the host tag table as captureFromDump resolves them (vendor
// tags that the table does not know are registered); what is left out is
// added to `warnings`.
std::vector<std::vector<TagPayload>> blockTags(const Dump& dump,
                                               const std::vector<const DumpBlock*>& blocks,
                                               std::vector<std::string>& warnings);

// The blocks of a dump, one line each: number, line, what it is, camera,
// entries read of those declared, warnings.
std::string listBlocks(const Dump& dump);

}  // namespace loader
}  // namespace kvhost
