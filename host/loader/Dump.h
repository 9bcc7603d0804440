// Reading the text that Android's camera metadata dump writes: a log line
// with one metadata buffer, or a whole `dumpsys media.camera` with the static
// characteristics of every camera and the requests and results of the open
// ones. The reader is a pipeline: lines (cleaned of what copies add: CR,
// logcat prefixes, indentation, Markdown fences, // comments), blocks (one
// per "Dumping camera metadata array" line, with what the surrounding
// sections say of it), entries (a header and its value rows) and typed
// payloads. Nothing is guessed: an entry that does not read whole is left out
// with a warning naming its line and tag, and the rest is kept.
//
// Text with entries but no "Dumping camera metadata array" line, pasted from
// the middle of a dump, is one block of unknown kind. A physical id list that
// a device printed as its characters without the NUL after each id is
// rebuilt when the camera ids that the dump names allow exactly one reading.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "DumpText.h"
#include "kvhost/Metadata.h"

namespace kvhost {
namespace loader {

// One entry as the dump prints it, with its payload.
struct DumpEntry {
    size_t line = 0;
    std::string name;  // "unknownSection.unknownTag" when the device did not know it
    uint32_t id = 0;   // the device's id
    kvhost::TagType type = kvhost::TagType::Byte;
    size_t count = 0;            // elements
    std::vector<uint8_t> bytes;  // count elements, little-endian
    // The ids of a physical id list rebuilt from its printed characters.
    std::vector<std::string> rebuiltIds;
};

enum class BlockKind {
    Static,           // a camera's static characteristics
    PhysicalStatic,   // a physical camera's, inside a logical camera's
    Request,          // an open camera's last request (logical settings)
    PhysicalRequest,  // the settings of one physical camera of that request
    Result,           // an open camera's latest received result
    Other,            // any other buffer: a log line's, or unlabelled
};

const char* blockKindName(BlockKind kind);

struct DumpBlock {
    int number = 0;  // from 1, in the order the blocks appear
    size_t line = 0;
    BlockKind kind = BlockKind::Other;
    std::string camera;            // the camera the dump files it under; "" when none
    bool previousSession = false;  // under "Dumpsys from previous open session"
    size_t declaredEntries = 0;    // the count its first line gives; a fragment's entry lines
    bool fragment = false;         // entries of a text with no block line
    std::vector<DumpEntry> entries;
    size_t warnings = 0;  // warnings about this block's lines
};

// A vendor tag of the dump's "== Vendor tags: ==" section.
struct DumpVendorTag {
    uint32_t id = 0;
    std::string name;  // section and name: "org.example.section.name"
    kvhost::TagType type = kvhost::TagType::Byte;
};

struct Dump {
    std::string file;
    std::vector<DumpBlock> blocks;
    std::vector<DumpVendorTag> vendorTags;
    std::vector<std::string> warnings;  // "file:line: tag: what", in line order
};

// Reads the dump text of `file`. Throws InputError naming the file when the
// text holds no metadata block, or entry lines without any value.
Dump readDump(std::string_view text, const std::string& file);

}  // namespace loader
}  // namespace kvhost
