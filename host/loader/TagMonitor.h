// Reading the event log of Android's camera tag monitor: what `dumpsys
// media.camera -m <tags>` prints under each open camera ("Tag monitoring
// enabled for tags:", then "Monitored tag event log:", newest first), and
// what `cmd media.camera watch dump` and `watch live` print (per client
// "Client: <package> (active)", or "(cached)" with a "Cached @ MM-DD
// HH:MM:SS" line for a closed one, then its events oldest first, each line
// led by "<cameraId>:<package>"). One event a line:
//
//   f<frame>:<timestamp>ns: [<physical id>] REQ:|RES:<section.tag>: [v v ]
//
// with long arrays continued on the next lines, "(Removed)" for a tag that
// went away, and stream id changes of their own. Lines are cleaned and value
// rows read as the dump reader does (DumpText.h); Android 13's values
// printed without blanks between them are cut apart there.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "kvhost/Metadata.h"

namespace kvhost {
namespace loader {

enum class Side : uint8_t { Request, Result };

// One event: a tag's new value on one side of a frame, or a change of the
// request's streams (no tag). Its payload is `count` elements of its tag's
// type at `offset` of the log's payload buffer.
struct TagEvent {
    static constexpr uint32_t kNoTag = std::numeric_limits<uint32_t>::max();

    int64_t frame = 0;
    int64_t timestamp = 0;  // ns
    uint32_t tag = kNoTag;  // index into EventLog::tags
    uint32_t offset = 0;
    uint32_t count = 0;
    uint32_t line = 0;
    uint16_t camera = 0;    // index into EventLog::cameras
    uint16_t physical = 0;  // index into EventLog::physicalIds; 0 for the logical camera
    uint16_t client = 0;    // index into EventLog::clients; 0 when the line names none
    Side side = Side::Request;
    bool removed = false;
    bool added = false;  // by the reader (a block's framework camera id), not printed
};

struct EventTag {
    std::string name;
    kvhost::TagType type = kvhost::TagType::Int32;
};

// An app whose session a watch command printed.
struct EventClient {
    std::string package;   // "" when no line named one
    std::string state;     // "active", "cached", or "" when no "Client:" line said
    std::string cachedAt;  // "MM-DD HH:MM:SS" of its "Cached @" line
};

struct EventLog {
    std::string file;
    std::vector<EventTag> tags;
    // In the order they happened within each camera's log (a dumpsys's
    // newest-first log is turned round).
    std::vector<TagEvent> events;
    std::vector<uint8_t> payload;
    std::vector<std::string> cameras{""};      // "" when no line named the camera
    std::vector<std::string> physicalIds{""};  // "" is the logical camera
    std::vector<EventClient> clients{EventClient{}};
    // The tags listed under "Tag monitoring enabled for tags:", by camera.
    std::map<std::string, std::vector<std::string>> monitored;
    bool monitoringDisabled = false;    // a "Tag monitoring disabled" line
    std::vector<std::string> warnings;  // "file:line: tag: what", in line order
};

// What the reader knows of tags besides the host tag table: the types of the
// dump's vendor tag list and the element counts of the tags in its blocks
// (which tell joined byte digits apart), by name.
struct EventTyping {
    std::map<std::string, kvhost::TagType> vendorTypes;
    std::map<std::string, size_t> counts;
};

// The events of `text`. A tag that neither the host table nor `typing`
// types takes its type from its printed values (integers int32, decimals
// float, "(n / d)" rational), with a warning. An event line that does not
// read is left out with a warning naming its line; the rest is read.
EventLog readEventLog(std::string_view text, const std::string& file, const EventTyping& typing);

}  // namespace loader
}  // namespace kvhost
