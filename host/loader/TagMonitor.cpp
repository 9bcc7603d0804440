#include "TagMonitor.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <unordered_map>
#include <utility>

#include "DumpText.h"

namespace kvhost {
namespace loader {
namespace {

using kvhost::TagType;

constexpr std::string_view kEnabled = "Tag monitoring enabled for tags:";
constexpr std::string_view kDisabled = "Tag monitoring disabled";
constexpr std::string_view kEventLog = "Monitored tag event log:";
constexpr std::string_view kClient = "Client: ";
constexpr std::string_view kCachedAt = "Cached @ ";
constexpr std::string_view kOutputStreams = "output stream ids:";
constexpr std::string_view kInputStream = "input stream id:";

// An event line's "f<frame>:<timestamp>ns:".
struct EventHead {
    int64_t frame = 0;
    int64_t timestamp = 0;
    size_t end = 0;  // where the rest of the line starts
};

// An optional '-' and digits at `p` as a number, `p` left after them;
// false when there are no digits or the number passes int64. Every event
// line has two: added up as they are skipped, the long ones read again.
bool readInteger(std::string_view s, size_t& p, int64_t* value) {
    const size_t start = p;
    const bool negative = skipChar(s, p, '-');
    const size_t digits = p;
    uint64_t n = 0;
    while (p < s.size() && isDigit(s[p])) n = n * 10 + static_cast<uint64_t>(s[p++] - '0');
    if (p == digits) return false;
    if (p - digits > 18) return parseNumber(s.substr(start, p - start), value);
    *value = negative ? -static_cast<int64_t>(n) : static_cast<int64_t>(n);
    return true;
}

// The head at the start of `s`, if it has one.
bool readEventHead(std::string_view s, EventHead* head) {
    size_t p = 0;
    if (!skipChar(s, p, 'f') || p >= s.size() || s[p] == '-' || !readInteger(s, p, &head->frame) ||
        !skipChar(s, p, ':') || !readInteger(s, p, &head->timestamp)) {
        return false;
    }
    head->end = p + 3;
    return s.substr(p, 3) == "ns:";
}

// A tag's name as the monitor prints it: "section.name", no blanks or brackets.
bool isTagName(std::string_view s) {
    bool dotted = false;
    for (const char c : s) {
        switch (c) {
            case ' ':
            case '\t':
            case '[':
            case ']':
            case '(':
            case ')':
            case ':':
                return false;
            case '.':
                dotted = true;
                break;
            default:
                break;
        }
    }
    return dotted;
}

// The type of a tag that nothing else types, from its first value row.
TagType typeFromValues(std::string_view row) {
    if (contains(row, "(")) return TagType::Rational;
    if (contains(row, ".") || contains(row, "nan") || contains(row, "inf")) return TagType::Float;
    return TagType::Int32;
}

class EventReader {
public:
    EventReader(const std::string& file, const EventTyping& typing) : typing_(typing) {
        log_.file = file;
    }

    EventLog read(std::string_view text) {
        // An event line is rarely shorter than 64 bytes: room for the events
        // at once (up to a million), not a copy of them each time the table grows.
        log_.events.reserve(std::min<size_t>(text.size() / 64 + 1, size_t{1} << 20));
        size_t start = 0;
        while (start < text.size()) {
            size_t end = text.find('\n', start);
            if (end == std::string_view::npos) end = text.size();
            ++line_;
            readLine(cleanDumpLine(text.substr(start, end - start)));
            start = end + 1;
        }
        finishSection();
        return std::move(log_);
    }

private:
    void warn(std::string_view tag, const std::string& what) {
        log_.warnings.push_back(log_.file + ":" + std::to_string(line_) + ": " +
                                (tag.empty() ? "" : std::string(tag) + ": ") + what);
    }

    static uint32_t indexOf(std::vector<std::string>& names, std::string_view name) {
        const auto at = std::find(names.begin(), names.end(), name);
        if (at != names.end()) return static_cast<uint32_t>(at - names.begin());
        names.emplace_back(name);
        return static_cast<uint32_t>(names.size() - 1);
    }

    void readLine(std::string_view s) {
        if (s.empty()) return;
        // The lines of sections and lists start with one of these; most
        // lines are events.
        const char c = s[0];
        if ((c == '=' || c == 'T' || c == 'M' || c == 'C') && readSectionLine(s)) return;
        readEventOrRow(s);
    }

    // A line that opens a section or a client or turns monitoring on or
    // off; false when `s` is none of those.
    bool readSectionLine(std::string_view s) {
        if (const auto camera = dynamicInfoCamera(s)) {
            finishSection();
            camera_ = indexOf(log_.cameras, *camera);
            listing_ = false;
            open_ = false;
            return true;
        }
        if (startsWith(s, kEnabled)) {
            listing_ = true;
            log_.monitored[log_.cameras[camera_]].clear();
            return true;
        }
        if (startsWith(s, kDisabled)) {
            log_.monitoringDisabled = true;
            return true;
        }
        if (startsWith(s, kEventLog) || startsWith(s, kClient)) {
            // A dumpsys's log is newest first; a watch dump's clients, oldest first.
            finishSection();
            newestFirst_ = startsWith(s, kEventLog);
            listing_ = false;
            open_ = false;
            client_ = 0;
            if (startsWith(s, kClient)) readClient(s.substr(kClient.size()));
            return true;
        }
        if (startsWith(s, kCachedAt) && client_ != 0) {
            log_.clients[client_].cachedAt = std::string(trim(s.substr(kCachedAt.size())));
            return true;
        }
        return false;
    }

    // An event line, a value row continuing the last event, or a line of
    // the list of monitored tags.
    void readEventOrRow(std::string_view s) {
        uint32_t camera = camera_;
        uint16_t client = client_;
        EventHead head;
        std::string_view body = s;
        bool event = readEventHead(s, &head);
        if (!event) body = watchPrefixed(s, &camera, &client, &head, &event);
        if (event) {
            listing_ = false;
            open_ = false;
            readEvent(body.substr(head.end), head, camera, client);
            return;
        }
        if (open_ && body[0] == '[') return continueEvent(body);
        open_ = false;
        if (listing_ && isTagName(s)) {
            log_.monitored[log_.cameras[camera_]].emplace_back(s);
            return;
        }
        listing_ = false;
    }

    // "<package> (active)" or "<package> (cached)": the client of the lines
    // that follow.
    void readClient(std::string_view s) {
        const size_t open = s.rfind(" (");
        const std::string_view package = trim(s.substr(0, open));
        if (package.empty()) return;
        client_ = clientIndex(package);
        if (open != std::string_view::npos && s.back() == ')') {
            log_.clients[client_].state = std::string(s.substr(open + 2, s.size() - open - 3));
        }
    }

    uint16_t clientIndex(std::string_view package) {
        for (size_t i = 1; i < log_.clients.size(); ++i) {
            if (log_.clients[i].package == package) return static_cast<uint16_t>(i);
        }
        if (log_.clients.size() > UINT16_MAX) return 0;  // more apps than a phone runs
        log_.clients.push_back({std::string(package), "", ""});
        return static_cast<uint16_t>(log_.clients.size() - 1);
    }

    // A watch line's "<cameraId>:<package>" taken off: the rest, with the
    // camera in *camera and the package in *client, and in *event whether
    // the rest is an event line (its head in *head); `s` itself when it has
    // no such lead.
    std::string_view watchPrefixed(std::string_view s, uint32_t* camera, uint16_t* client,
                                   EventHead* head, bool* event) {
        size_t p = 0;
        while (p < s.size() && !isBlank(s[p])) ++p;
        const std::string_view lead = s.substr(0, p);
        const size_t colon = lead.find(':');
        if (colon == 0 || colon == std::string_view::npos || !skipBlanks(s, p)) return s;
        const std::string_view rest = s.substr(p);
        *event = readEventHead(rest, head);
        if (rest[0] != '[' && !*event) return s;
        // The lead of the line before, most often.
        if (lead != lead_.text) {
            lead_.text = lead;
            lead_.camera = indexOf(log_.cameras, lead.substr(0, colon));
            lead_.client = colon + 1 < lead.size()
                               ? std::optional<uint16_t>(clientIndex(lead.substr(colon + 1)))
                               : std::nullopt;
        }
        *camera = lead_.camera;
        if (lead_.client) *client = *lead_.client;
        return rest;
    }

    // An event line's rest after its head.
    void readEvent(std::string_view s, const EventHead& head, uint32_t camera, uint16_t client) {
        TagEvent e;
        e.line = static_cast<uint32_t>(line_);
        e.camera = camera;
        e.client = client;
        e.frame = head.frame;
        e.timestamp = head.timestamp;
        size_t p = 0;
        skipBlanks(s, p);
        std::string_view rest = s.substr(p);
        if (!startsWith(rest, "REQ:") && !startsWith(rest, "RES:")) {
            // The physical camera's id, right-aligned before the side.
            size_t q = 0;
            while (q < rest.size() && !isBlank(rest[q])) ++q;
            e.physical = indexOf(log_.physicalIds, rest.substr(0, q));
            skipBlanks(rest, q);
            rest = rest.substr(q);
        }
        if (!startsWith(rest, "REQ:") && !startsWith(rest, "RES:")) {
            return warn("", "an event line without REQ: or RES:; the event is left out");
        }
        e.side = rest[2] == 'Q' ? Side::Request : Side::Result;
        rest = trim(rest.substr(4));
        if (startsWith(rest, kOutputStreams) || startsWith(rest, kInputStream)) {
            log_.events.push_back(e);  // a change of streams: a frame, no tag
            return;
        }
        const size_t colon = rest.find(':');
        const std::string_view name = rest.substr(0, colon);
        // A name seen before is a tag's name.
        const auto known = colon == std::string_view::npos ? tagIndex_.end() : tagIndex_.find(name);
        if (known == tagIndex_.end() && (colon == std::string_view::npos || !isTagName(name))) {
            return warn("", "an event line without \"section.tag:\"; the event is left out");
        }
        std::string_view value = trim(rest.substr(colon + 1));
        // Android 12 adds the request's streams after the value.
        for (const std::string_view streams : {kOutputStreams, kInputStream}) {
            value = trim(value.substr(0, value.find(streams)));
        }
        e.tag = known != tagIndex_.end() ? known->second : addTag(name);
        if (value == "(Removed)") {
            e.removed = true;
            log_.events.push_back(e);
            return;
        }
        if (value.empty() || value[0] != '[') {
            return warn(name, "an event without a value row; the event is left out");
        }
        EventTag& tag = log_.tags[e.tag];
        if (!typed_[e.tag]) {
            tag.type = typeFromValues(value);
            typed_[e.tag] = true;
            warn(name, std::string("neither the tag table nor the dump's vendor tags type it; "
                                   "read as ") +
                           kvhost::typeName(tag.type) + " from its printed values");
        }
        format_ = RowFormat{};
        format_.type = tag.type;
        format_.names = names_[e.tag];
        format_.joined = true;
        format_.count = counts_[e.tag];
        e.offset = static_cast<uint32_t>(log_.payload.size());
        log_.events.push_back(e);
        open_ = true;
        values_ = 0;
        continueEvent(value);
    }

    // A value row of the open event, the first or a continuation.
    void continueEvent(std::string_view row) {
        TagEvent& e = log_.events.back();
        const std::string problem = readRow(row, format_, log_.payload, values_);
        if (!problem.empty()) {
            warn(log_.tags[e.tag].name, problem + "; the event is left out");
            log_.payload.resize(e.offset);
            log_.events.pop_back();
            open_ = false;
            return;
        }
        e.count = static_cast<uint32_t>(values_);
    }

    // A tag's first event: its entry in the table. `name` is of the text,
    // which outlives the reader.
    uint32_t addTag(std::string_view name) {
        EventTag tag;
        tag.name = std::string(name);
        const kvhost::TagInfo* info = kvhost::findTag(tag.name.c_str());
        const auto listed = typing_.vendorTypes.find(tag.name);
        const bool typed = info != nullptr || listed != typing_.vendorTypes.end();
        if (info != nullptr) {
            tag.type = info->type;
        } else if (typed) {
            tag.type = listed->second;
        }
        // Enum names are Android's; the monitor prints them for Android's tags.
        names_.push_back(info != nullptr && info->id < 0x80000000u ? info : nullptr);
        typed_.push_back(typed);
        const auto count = typing_.counts.find(tag.name);
        counts_.push_back(count == typing_.counts.end() ? 0 : count->second);
        log_.tags.push_back(std::move(tag));
        const auto index = static_cast<uint32_t>(log_.tags.size() - 1);
        tagIndex_.emplace(name, index);
        return index;
    }

    void finishSection() {
        if (newestFirst_) {
            std::reverse(log_.events.begin() + static_cast<std::ptrdiff_t>(sectionStart_),
                         log_.events.end());
        }
        newestFirst_ = false;
        sectionStart_ = log_.events.size();
    }

    const EventTyping& typing_;
    EventLog log_;
    size_t line_ = 0;
    uint32_t camera_ = 0;
    uint16_t client_ = 0;       // of the "Client:" section
    bool listing_ = false;      // in the list of monitored tags
    bool open_ = false;         // the last event takes continuation rows
    bool newestFirst_ = false;  // the events since sectionStart_ are newest first
    size_t sectionStart_ = 0;
    RowFormat format_;  // of the open event
    size_t values_ = 0;
    std::unordered_map<std::string_view, uint32_t> tagIndex_;  // names of the text
    struct {
        std::string_view text;  // of the text
        uint32_t camera = 0;
        std::optional<uint16_t> client;
    } lead_;                                     // the last watch lead read, "<cameraId>:<package>"
    std::vector<const kvhost::TagInfo*> names_;  // by tag index
    std::vector<bool> typed_;                    // by tag index
    std::vector<size_t> counts_;                 // by tag index: its entry's count, 0 unknown
};

}  // namespace

EventLog readEventLog(std::string_view text, const std::string& file, const EventTyping& typing) {
    return EventReader(file, typing).read(text);
}

}  // namespace loader
}  // namespace kvhost
