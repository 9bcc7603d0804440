#include "Sequence.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <limits>
#include <new>
#include <optional>
#include <set>
#include <utility>

#include "Dump.h"
#include "DumpCapture.h"
#include "DumpText.h"
#include "InputText.h"
#include "Load.h"

namespace kvhost {
namespace loader {
namespace {

constexpr uint32_t kFrameNumber = 0x170000;  // android.sync.frameNumber
constexpr uint32_t kTimestamp = 0xE0010;     // android.sensor.timestamp

// A file as read, before any tag is resolved.
struct FileText {
    std::string path;
    Text text;
    std::string note;          // what was read of the file (a bug report's camera text)
    std::optional<Dump> dump;  // none when the text has no metadata block
    EventLog log;
};

bool isNumber(const std::string& s) {
    int v = 0;
    const auto [ptr, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
    return !s.empty() && ec == std::errc() && ptr == s.data() + s.size() && v >= 0;
}

std::string joined(const std::vector<std::string>& items) {
    std::string out;
    for (const std::string& i : items) out += (out.empty() ? "" : ", ") + i;
    return out;
}

template <typename T>
std::optional<T> firstElement(const std::vector<TagPayload>& tags, uint32_t id) {
    for (const TagPayload& p : tags) {
        if (p.info->id != id || p.count == 0 || p.bytes.size() < sizeof(T)) continue;
        T v{};
        std::memcpy(&v, p.bytes.data(), sizeof v);
        return v;
    }
    return std::nullopt;
}

FileText readFile(const SequenceText& in) {
    FileText f;
    f.path = in.path;
    f.text = in.text;
    f.note = in.note;
    const std::string& path = f.path;
    if (isCaptureDescription(f.text)) {
        throw InputError(path + ": a capture description; a sequence reads dumps and logs");
    }
    try {
        f.dump = readDump(f.text, path);
    } catch (const InputError&) {
        // Watch output holds events and no block: its frames have no base.
    }
    EventTyping typing;
    if (f.dump) {
        for (const DumpVendorTag& v : f.dump->vendorTags) typing.vendorTypes[v.name] = v.type;
        for (const DumpBlock& b : f.dump->blocks) {
            for (const DumpEntry& e : b.entries) typing.counts[e.name] = e.count;
        }
    }
    f.log = readEventLog(f.text, path, typing);
    if (f.log.events.empty() && !f.dump) {
        throw InputError(path +
                         ": neither a tag monitor event log nor a camera metadata dump: no event "
                         "line and no \"Dumping camera metadata array\" line");
    }
    return f;
}

class PartBuilder {
public:
    // `lender`: the latest file before this one with static metadata, if any.
    // The part takes the events it reads out of `f`.
    PartBuilder(FileText& f, const SequenceOptions& options, const SequencePart* lender)
        : f_(f), options_(options), lender_(lender) {}

    SequencePart build(std::vector<std::string>& notes, std::vector<std::string>& warnings) {
        if (!f_.note.empty()) note(f_.note);
        if (!f_.log.events.empty()) {
            fromEvents();
        } else {
            fromBlocks();
        }
        borrowStatics();
        try {
            part_.statics = buildStatics(part_.base);
        } catch (const InputError& e) {
            fail(e.what());  // named after the file
        }
        for (const std::string& n : part_.base.notes) notes.push_back(f_.path + ": " + n);
        notes.insert(notes.end(), notes_.begin(), notes_.end());
        warnings.insert(warnings.end(), part_.base.warnings.begin(), part_.base.warnings.end());
        warnings.insert(warnings.end(), f_.log.warnings.begin(), f_.log.warnings.end());
        warnings.insert(warnings.end(), warnings_.begin(), warnings_.end());
        return std::move(part_);
    }

private:
    [[noreturn]] void fail(const std::string& what) const {
        throw InputError(f_.path + ": " + what);
    }

    void note(const std::string& what) { notes_.push_back(f_.path + ": " + what); }

    const Dump& dump() {
        if (f_.dump) return *f_.dump;
        if (!empty_) {
            empty_.emplace();
            empty_->file = f_.path;
        }
        return *empty_;
    }

    // A file without static metadata of its own (watch output, a HAL's log)
    // takes that of the file before it: a dump of the same phone.
    void borrowStatics() {
        Capture& base = part_.base;
        if (lender_ == nullptr || !base.statics.empty() || !options_.statics.empty()) return;
        base.statics = lender_->base.statics;
        std::string cameras;
        for (const auto& item : base.statics) {
            cameras += (cameras.empty() ? "" : ", ") + std::to_string(item.first);
        }
        note("static metadata of camera" + std::string(base.statics.size() == 1 ? " " : "s ") +
             cameras + ": from " + lender_->base.file + ", the file before it (it has none)");
        if (base.inputWidth != 0) return;
        const auto stat = base.statics.find(static_cast<uint32_t>(base.cameraId));
        const auto size = stat == base.statics.end() ? std::nullopt : activeArraySize(stat->second);
        if (!size) return;
        std::tie(base.inputWidth, base.inputHeight) = *size;
        base.notes.erase(
            std::remove_if(base.notes.begin(), base.notes.end(),
                           [](const std::string& n) { return n.rfind(kUnknownInput, 0) == 0; }),
            base.notes.end());
        note("input image " + std::to_string(size->first) + "x" + std::to_string(size->second) +
             ": the active array of camera " + std::to_string(base.cameraId) + " in " +
             lender_->base.file);
    }

    // ---- A file with events -------------------------------------------------

    // "com.example.camera (active)", "com.other.app (cached @ 03-14 09:40:11)".
    std::string clientText(uint16_t client) const {
        const EventClient& c = f_.log.clients[client];
        std::string state = c.state;
        if (!c.cachedAt.empty()) state += (state.empty() ? "" : " ") + ("@ " + c.cachedAt);
        return c.package + (state.empty() ? "" : " (" + state + ")");
    }

    // The app whose events are read: the one given, else the active one
    // (the first listed), else that of the file's first event; 0 when no
    // line names an app (a dumpsys).
    uint16_t chooseClient() {
        const EventLog& log = f_.log;
        std::vector<size_t> count(log.clients.size());
        const TagEvent* first = nullptr;
        for (const TagEvent& e : log.events) {
            ++count[e.client];
            if (e.client != 0 && (first == nullptr || e.line < first->line)) first = &e;
        }
        std::vector<std::string> named;
        for (size_t i = 1; i < log.clients.size(); ++i) {
            if (count[i] != 0) named.push_back(clientText(static_cast<uint16_t>(i)));
        }
        uint16_t chosen = first ? first->client : 0;
        std::string why = "the client of the file's first event";
        if (options_.client) {
            const auto at =
                std::find_if(log.clients.begin() + 1, log.clients.end(),
                             [&](const EventClient& c) { return c.package == *options_.client; });
            const auto i = static_cast<size_t>(at - log.clients.begin());
            if (at == log.clients.end() || count[i] == 0) {
                fail("client " + *options_.client + " has no tag monitor event (" +
                     (named.empty() ? std::string("the events name no client")
                                    : "the log has events of " + joined(named)) +
                     ")");
            }
            chosen = static_cast<uint16_t>(i);
            why = "given";
        } else {
            for (size_t i = 1; i < log.clients.size(); ++i) {
                if (count[i] == 0 || log.clients[i].state != "active") continue;
                chosen = static_cast<uint16_t>(i);
                why = "the active client";
                break;
            }
        }
        if (chosen == 0) return 0;
        std::string others;
        size_t left = 0;
        for (size_t i = 0; i < log.clients.size(); ++i) {
            if (i == chosen || count[i] == 0) continue;
            left += count[i];
            others += (others.empty() ? "" : ", ") +
                      (i == 0 ? std::string("no client") : clientText(static_cast<uint16_t>(i)));
        }
        note("client " + clientText(chosen) + ": " + why +
             (others.empty() ? ""
                             : "; " + std::to_string(left) + " events of " + others +
                                   " left out (--client PACKAGE reads another's)"));
        return chosen;
    }

    void fromEvents() {
        EventLog& log = f_.log;
        const uint16_t client = chooseClient();
        const uint32_t camera = chooseCamera(client);
        uint32_t physical = 0;
        if (options_.physical) {
            const auto at =
                std::find(log.physicalIds.begin() + 1, log.physicalIds.end(), *options_.physical);
            if (at == log.physicalIds.end()) {
                fail("physical camera " + *options_.physical + ": no event of it in the log");
            }
            physical = static_cast<uint32_t>(at - log.physicalIds.begin());
        }
        // The base: the blocks' frame and the file's statics and input size.
        DumpOptions o = options_;
        const std::string& name = log.cameras[camera];
        const bool fromEvents = !o.camera && isNumber(name);
        if (fromEvents) o.camera = std::stoi(name);
        part_.base = captureFromDump(dump(), o, false);
        part_.base.satCameraId = part_.base.cameraId;
        // The reader, not the user, chose the camera: its note says so.
        if (fromEvents && !part_.base.notes.empty()) {
            part_.base.notes.front() = "camera " + name + ": the camera of the events";
        }

        // The chosen camera's events, in the order of the log, taken out of
        // the file's table where they stand: a session's events are not copied.
        part_.log.file = log.file;
        part_.log.tags = log.tags;
        part_.log.cameras = log.cameras;
        part_.log.physicalIds = log.physicalIds;
        std::set<std::string> otherPhysical;
        size_t otherCameras = 0;
        const size_t inFile = log.events.size();
        size_t kept = 0;
        for (const TagEvent& e : log.events) {
            if (e.client != client) continue;  // said by the client's note
            if (e.camera != camera) {
                ++otherCameras;
            } else if (e.physical != physical) {
                otherPhysical.insert(log.physicalIds[e.physical].empty()
                                         ? "the logical camera"
                                         : log.physicalIds[e.physical]);
            } else {
                log.events[kept++] = e;
            }
        }
        log.events.resize(kept);
        part_.log.events = std::move(log.events);
        part_.log.payload = std::move(log.payload);
        const std::string who =
            "camera " + (name.empty() ? std::string("of the dump") : name) +
            (physical ? " (physical camera " + log.physicalIds[physical] + ")" : "") +
            (client ? " by " + log.clients[client].package : "");
        note("frames: the tag monitor events of " + who + ", " +
             std::to_string(part_.log.events.size()) + " of the " + std::to_string(inFile) +
             " in the file");
        if (otherCameras) {
            note(std::to_string(otherCameras) + " events of other cameras left out (--camera " +
                 "ID reads another's)");
        }
        if (!otherPhysical.empty()) {
            std::vector<std::string> ids(otherPhysical.begin(), otherPhysical.end());
            note("events of " + joined(ids) + " left out (--physical reads a physical camera's)");
        }
        resolveMonitored(name);
        frameNumbers();
    }

    // The camera whose events are read, among the client's: the one given,
    // else the camera of the client's first event.
    uint32_t chooseCamera(uint16_t client) {
        const EventLog& log = f_.log;
        std::vector<bool> has(log.cameras.size());
        const TagEvent* first = nullptr;
        for (const TagEvent& e : log.events) {
            if (e.client != client) continue;
            has[e.camera] = true;
            if (first == nullptr || e.line < first->line) first = &e;
        }
        if (!options_.camera) return first->camera;
        const std::string wanted = std::to_string(*options_.camera);
        const auto at = std::find(log.cameras.begin(), log.cameras.end(), wanted);
        if (at != log.cameras.end() && has[static_cast<size_t>(at - log.cameras.begin())]) {
            return static_cast<uint32_t>(at - log.cameras.begin());
        }
        if (has[0]) {
            note("the events name no camera; read as camera " + wanted + "'s");
            return 0;
        }
        std::vector<std::string> with;
        for (size_t i = 0; i < has.size(); ++i) {
            if (has[i]) with.push_back(log.cameras[i]);
        }
        fail("camera " + wanted + " has no tag monitor event (the log has events of camera" +
             (with.size() == 1 ? " " : "s ") + joined(with) + ")");
    }

    // The monitored tags resolved into the host tag table, taken out of the
    // base frame, and their events sorted into tracks.
    void resolveMonitored(const std::string& camera) {
        EventLog& log = part_.log;
        // By tag: the line of its first event, 0 when it has none.
        std::vector<uint32_t> firstLine(log.tags.size());
        for (const TagEvent& e : log.events) {
            if (e.tag == TagEvent::kNoTag) continue;
            uint32_t& line = firstLine[e.tag];
            if (line == 0 || e.line < line) line = e.line;
        }
        std::vector<std::string> monitored;
        const auto listed = f_.log.monitored.find(camera);
        if (listed != f_.log.monitored.end()) {
            monitored = listed->second;
            note("monitored tags: the " + std::to_string(monitored.size()) +
                 " that the dump lists");
        } else {
            for (size_t t = 0; t < log.tags.size(); ++t) {
                if (firstLine[t] != 0) monitored.push_back(log.tags[t].name);
            }
            note("monitored tags: the " + std::to_string(monitored.size()) +
                 " with events (the file does not list them)");
        }
        part_.infos.assign(log.tags.size(), nullptr);
        std::vector<int> track(log.tags.size(), -1);
        std::set<const kvhost::TagInfo*> taken;
        for (const std::string& name : monitored) {
            const auto at = std::find_if(log.tags.begin(), log.tags.end(),
                                         [&](const EventTag& t) { return t.name == name; });
            const size_t t = static_cast<size_t>(at - log.tags.begin());
            const bool events = at != log.tags.end() && firstLine[t] != 0;
            const kvhost::TagInfo* info =
                resolve(name, events ? &*at : nullptr, events ? firstLine[t] : 0);
            if (info == nullptr) continue;
            taken.insert(info);
            if (!events || track[t] >= 0) continue;
            part_.infos[t] = info;
            track[t] = static_cast<int>(part_.tracks.size());
            part_.tracks.emplace_back().info = info;
        }
        auto& frame = part_.base.frame;
        frame.erase(std::remove_if(frame.begin(), frame.end(),
                                   [&](const TagPayload& p) { return taken.count(p.info) != 0; }),
                    frame.end());
        std::map<std::string, uint32_t> unlisted;  // by name: the line of its first event
        // By tag: whether its payloads are checked for length.
        std::vector<bool> checked(log.tags.size());
        for (size_t t = 0; t < log.tags.size(); ++t) {
            checked[t] = part_.infos[t] != nullptr && hasLengthRule(*part_.infos[t]);
        }
        for (uint32_t i = 0; i < log.events.size(); ++i) {
            const TagEvent& e = log.events[i];
            if (e.tag == TagEvent::kNoTag) continue;
            if (track[e.tag] < 0) {
                unlisted.emplace(log.tags[e.tag].name, firstLine[e.tag]);
                continue;
            }
            if (!e.removed && checked[e.tag] && !fits(e)) continue;
            part_.tracks[static_cast<size_t>(track[e.tag])]
                .sides[static_cast<size_t>(e.side)]
                .push_back({e.frame, e.offset, e.count, e.removed});
        }
        for (const auto& [name, line] : unlisted) {
            warnings_.push_back(f_.path + ":" + std::to_string(line) + ": " + name +
                                ": events of a tag the dump does not list as monitored are "
                                "left out");
        }
        for (SequencePart::Track& t : part_.tracks) {
            for (std::vector<SequencePart::Track::Event>& side : t.sides) {
                std::stable_sort(
                    side.begin(), side.end(),
                    [](const SequencePart::Track::Event& a, const SequencePart::Track::Event& b) {
                        return a.frame < b.frame;
                    });
            }
            // In frame order, a side's frames are its runs of one frame.
            const auto& results = t.sides[static_cast<size_t>(Side::Result)];
            for (size_t k = 0; k < results.size(); ++k) {
                t.resultFrames += k == 0 || results[k].frame != results[k - 1].frame;
            }
        }
    }

    // A monitored tag in the host table: Android's and the table's own by
    // name, a vendor tag registered from the dump's vendor tag list or from
    // its events. Null when it has no event to type it by, or cannot be
    // registered (a warning naming `line`, its first event's).
    const kvhost::TagInfo* resolve(const std::string& name, const EventTag* events, uint32_t line) {
        const kvhost::TagInfo* info = kvhost::findTag(name.c_str());
        if (info != nullptr) return info;
        if (events == nullptr) return nullptr;
        uint32_t id = 0;
        if (f_.dump) {
            for (const DumpVendorTag& v : f_.dump->vendorTags) {
                if (v.name == name) id = v.id;
            }
        }
        int rc = 0;
        info = addVendorTag(name, id, events->type, &rc);
        if (info == nullptr) {
            warnings_.push_back(f_.path + ":" + std::to_string(line) + ": " + name +
                                ": cannot be registered in the tag table (" + std::to_string(rc) +
                                "); its events are left out");
        }
        return info;
    }

    // Whether the library can read the event's payload whole; a warning
    // when not.
    bool fits(const TagEvent& e) {
        TagPayload& p = scratch_;  // its bytes' storage reused from event to event
        p.info = part_.infos[e.tag];
        p.count = e.count;
        const size_t size = e.count * kvhost::typeSize(p.info->type);
        p.bytes.assign(part_.log.payload.begin() + e.offset,
                       part_.log.payload.begin() + e.offset + static_cast<std::ptrdiff_t>(size));
        const std::string problem = lengthProblem(p);
        if (problem.empty()) return true;
        warnings_.push_back(f_.path + ":" + std::to_string(e.line) + ": " + p.info->name + ": " +
                            problem + "; the event is left out");
        return false;
    }

    // One frame per distinct frame number, ascending; its timestamp that of
    // its result-side events, else of its request-side ones.
    void frameNumbers() {
        const std::vector<TagEvent>& events = part_.log.events;
        std::vector<uint32_t> order(events.size());
        for (uint32_t i = 0; i < order.size(); ++i) order[i] = i;
        std::stable_sort(order.begin(), order.end(),
                         [&](uint32_t a, uint32_t b) { return events[a].frame < events[b].frame; });
        std::optional<int64_t> result;
        for (size_t k = 0; k < order.size(); ++k) {
            const TagEvent& e = events[order[k]];
            if (part_.frames.empty() || part_.frames.back().number != e.frame) {
                part_.frames.emplace_back().number = e.frame;
                part_.frames.back().timestamp = e.timestamp;
                result.reset();
            }
            if (e.side == Side::Result && !result) {
                result = e.timestamp;
                part_.frames.back().timestamp = e.timestamp;
            }
        }
    }

    // ---- A file of frame blocks ---------------------------------------------

    void fromBlocks() {
        const Dump& d = dump();
        part_.fromBlocks = true;
        if (f_.log.monitoringDisabled) {
            note(
                "tag monitoring was off (dumpsys media.camera -m <tags> turns it on): the "
                "frames are the dump's metadata blocks");
        }
        if (options_.physical) note("--physical applies to tag monitor events; not used");
        part_.base = captureFromDump(d, options_);
        // The frames: each block of no kind alone, the camera's request
        // and result as one (the base's frame), in the order of the file.
        std::vector<const DumpBlock*> alone;
        std::vector<int> order;             // >= 0: index into `alone`; -1: the base's frame
        const DumpBlock* merged = nullptr;  // the first block of the base's frame
        for (const DumpBlock& b : d.blocks) {
            const bool camerasFrame =
                (b.kind == BlockKind::Request || b.kind == BlockKind::Result) &&
                b.camera == std::to_string(part_.base.cameraId) && !b.previousSession;
            if (options_.frame) {
                if (b.number != *options_.frame) continue;
                order.push_back(-1);
                merged = &b;
            } else if (b.kind == BlockKind::Other) {
                order.push_back(static_cast<int>(alone.size()));
                alone.push_back(&b);
            } else if (camerasFrame && !merged) {
                order.push_back(-1);
                merged = &b;
            }
        }
        if (order.empty()) order.push_back(-1);
        std::vector<std::string> left;
        auto tags = blockTags(d, alone, left);
        // Each warning about a block's entries is given once, by the base.
        for (std::string& w : left) {
            if (std::find(part_.base.warnings.begin(), part_.base.warnings.end(), w) ==
                part_.base.warnings.end()) {
                warnings_.push_back(std::move(w));
            }
        }
        const TagPayload* fwk = nullptr;
        for (const TagPayload& p : part_.base.frame) {
            if (p.info->name == kFwkCameraId) fwk = &p;
        }
        std::set<size_t> lines;
        for (const DumpBlock* b : alone) lines.insert(b->line);
        if (merged != nullptr) lines.insert(merged->line);
        const std::map<size_t, int64_t> times = lineTimes(lines);
        for (const int k : order) {
            std::vector<TagPayload>& frame =
                k < 0 ? part_.base.frame : tags[static_cast<size_t>(k)];
            const bool addFwk = k >= 0 && fwk != nullptr &&
                                std::none_of(frame.begin(), frame.end(), [&](const TagPayload& p) {
                                    return p.info == fwk->info;
                                });
            if (addFwk) frame.push_back(*fwk);
            SequencePart::Frame f;
            const DumpBlock* block = k < 0 ? merged : alone[static_cast<size_t>(k)];
            f.number = firstElement<int64_t>(frame, kFrameNumber)
                           .value_or(block ? block->number : static_cast<int64_t>(1));
            const auto stamp = firstElement<int64_t>(frame, kTimestamp);
            const auto time = block ? times.find(block->line) : times.end();
            f.timestamp = stamp ? *stamp : time != times.end() ? time->second : 0;
            f.first = static_cast<uint32_t>(part_.log.events.size());
            for (const TagPayload& p : frame) addEvent(f, p);
            if (addFwk) part_.log.events.back().added = true;
            f.end = static_cast<uint32_t>(part_.log.events.size());
            part_.frames.push_back(f);
        }
        part_.base.frame.clear();
        note("frames: " + std::to_string(part_.frames.size()) +
             " metadata blocks (the file has no tag monitor event)");
    }

    // The time of the log line of each of `lines` (ascending), where it has one.
    std::map<size_t, int64_t> lineTimes(const std::set<size_t>& lines) const {
        std::map<size_t, int64_t> times;
        size_t line = 1;
        size_t at = 0;
        const std::string_view text = f_.text;
        for (const size_t wanted : lines) {
            while (line < wanted && at < text.size()) {
                at = text.find('\n', at);
                at = at == std::string_view::npos ? text.size() : at + 1;
                ++line;
            }
            const size_t end = std::min(text.find('\n', at), text.size());
            const auto t = logLineTime(text.substr(at, end - at));
            if (t) times[wanted] = *t;
        }
        return times;
    }

    // A block's tag as an event of the table.
    void addEvent(const SequencePart::Frame& f, const TagPayload& p) {
        TagEvent e;
        e.frame = f.number;
        e.timestamp = f.timestamp;
        e.side = Side::Result;
        e.tag = static_cast<uint32_t>(part_.infos.size());
        e.count = static_cast<uint32_t>(p.count);
        e.offset = static_cast<uint32_t>(part_.log.payload.size());
        part_.log.payload.insert(part_.log.payload.end(), p.bytes.begin(), p.bytes.end());
        part_.infos.push_back(p.info);
        part_.log.events.push_back(e);
    }

    FileText& f_;
    TagPayload scratch_;
    const SequenceOptions& options_;
    const SequencePart* lender_;
    std::optional<Dump> empty_;
    SequencePart part_;
    std::vector<std::string> notes_;
    std::vector<std::string> warnings_;
};

// The first of the part's frames from `k` on whose number is not below
// `number`, for a number beyond the next few frames: a gallop, then a binary
// search, so that a tag set on few frames of a long session costs what it
// has, not a walk over every frame.
size_t frameFromFar(const SequencePart& part, size_t k, int64_t number) {
    const std::vector<SequencePart::Frame>& frames = part.frames;
    size_t end = k;
    for (size_t step = 1; end < frames.size() && frames[end].number < number; step *= 2) {
        k = end + 1;
        end += step;
    }
    end = std::min(end, frames.size());
    return static_cast<size_t>(
        std::lower_bound(frames.begin() + static_cast<std::ptrdiff_t>(k),
                         frames.begin() + static_cast<std::ptrdiff_t>(end), number,
                         [](const SequencePart::Frame& f, int64_t n) { return f.number < n; }) -
        frames.begin());
}

// The same from any `k`: a tag set on every frame or every few takes a few
// steps (up to 16, a handful of cache lines), inlined where it is called
// once a change.
inline size_t frameFrom(const SequencePart& part, size_t k, int64_t number) {
    const std::vector<SequencePart::Frame>& frames = part.frames;
    for (const size_t near = std::min(frames.size(), k + 16); k < near; ++k) {
        if (frames[k].number >= number) return k;
    }
    return frameFromFar(part, k, number);
}

// The latest event of `side` (sorted by frame number) with a frame number
// at most `number`; null when none.
const SequencePart::Track::Event* latest(const std::vector<SequencePart::Track::Event>& side,
                                         int64_t number) {
    const auto after = std::upper_bound(
        side.begin(), side.end(), number,
        [](int64_t n, const SequencePart::Track::Event& e) { return n < e.frame; });
    return after == side.begin() ? nullptr : &*(after - 1);
}

// The `count` values at `offset` of the part's payloads.
TagPayload payloadOf(const SequencePart& part, uint32_t offset, uint32_t count,
                     const kvhost::TagInfo* info) {
    TagPayload p;
    p.info = info;
    p.count = count;
    const auto first = part.log.payload.begin() + offset;
    p.bytes.assign(first,
                   first + static_cast<std::ptrdiff_t>(count * kvhost::typeSize(info->type)));
    return p;
}

}  // namespace

namespace {

std::vector<TagPayload> frameTagsAsLogged(const SequencePart& part, size_t i) {
    const SequencePart::Frame& f = part.frames[i];
    std::vector<TagPayload> tags;
    if (part.fromBlocks) {
        for (uint32_t k = f.first; k < f.end; ++k) {
            const TagEvent& e = part.log.events[k];
            tags.push_back(payloadOf(part, e.offset, e.count, part.infos[e.tag]));
        }
        return tags;
    }
    tags = part.base.frame;
    for (const SequencePart::Track& t : part.tracks) {
        for (const Side side : {Side::Result, Side::Request}) {
            const auto* e = latest(t.sides[static_cast<size_t>(side)], f.number);
            if (e == nullptr || e->removed) continue;
            tags.push_back(payloadOf(part, e->offset, e->count, t.info));
            break;
        }
    }
    return tags;
}

}  // namespace

std::vector<TagPayload> frameTags(const SequencePart& part, size_t i) {
    // A tag once, the first of its entries: a block may print a tag twice,
    // and two monitored names may resolve to one tag.
    std::vector<TagPayload> tags = frameTagsAsLogged(part, i);
    std::set<uint32_t> seen;
    tags.erase(std::remove_if(tags.begin(), tags.end(),
                              [&](const TagPayload& p) { return !seen.insert(p.info->id).second; }),
               tags.end());
    return tags;
}

std::shared_ptr<const Sequence::Data> readSequence(const std::vector<std::string>& paths,
                                                   const SequenceOptions& options) {
    std::vector<SequenceText> texts;
    for (const std::string& path : paths) {
        InputText in = readInput(path);
        texts.push_back({path, std::move(in.text), std::move(in.note)});
    }
    return readSequenceTexts(std::move(texts), options);
}

std::shared_ptr<const Sequence::Data> readSequenceTexts(std::vector<SequenceText> texts,
                                                        const SequenceOptions& options) {
    if (texts.empty()) throw InputError("no file given");
    std::vector<FileText> files;
    const auto read = [&] {
        files.clear();
        for (const SequenceText& t : texts) files.push_back(readFile(t));
    };
    read();
    const auto build = [&](Sequence::Data& d) {
        const SequencePart* lender = nullptr;
        for (FileText& f : files) {
            d.firstFrame.push_back(d.frameCount);
            d.parts.push_back(PartBuilder(f, options, lender).build(d.notes, d.warnings));
            d.frameCount += d.parts.back().frames.size();
            if (!d.parts.back().base.statics.empty()) lender = &d.parts.back();
        }
    };
    // The first pass makes every choice and finds every error without
    // registering a tag: a sequence that fails changes nothing. When it had
    // no tag to register, what it read is the sequence.
    {
        const DryRun dry;
        auto d = std::make_shared<Sequence::Data>();
        d->parts.reserve(files.size());
        build(*d);
        if (dry.registeredNone()) return d;
    }
    read();  // the first pass took the files' events
    auto data = std::make_shared<Sequence::Data>();
    data->parts.reserve(files.size());  // the lender stays where it is
    build(*data);
    return data;
}

}  // namespace loader

size_t Sequence::frameCount() const {
    return data_ ? data_->frameCount : 0;
}

namespace {

// The part of frame i and the frame's index in it.
std::pair<const loader::SequencePart*, size_t> locate(const Sequence::Data& d, size_t i) {
    const auto after = std::upper_bound(d.firstFrame.begin(), d.firstFrame.end(), i);
    const size_t part = static_cast<size_t>(after - d.firstFrame.begin()) - 1;
    return {&d.parts[part], i - d.firstFrame[part]};
}

}  // namespace

FrameInfo Sequence::info(size_t i) const {
    if (i >= frameCount()) return {};
    const auto [part, k] = locate(*data_, i);
    return {part->frames[k].number, part->frames[k].timestamp};
}

std::vector<FrameInfo> Sequence::infos() const {
    std::vector<FrameInfo> out;
    if (!data_) return out;
    out.reserve(frameCount());
    for (const loader::SequencePart& part : data_->parts) {
        for (const loader::SequencePart::Frame& f : part.frames)
            out.push_back({f.number, f.timestamp});
    }
    return out;
}

LoadResult Sequence::frame(size_t i) const {
    LoadResult result;
    if (i >= frameCount()) {
        result.error = "frame " + std::to_string(i) + ": the sequence has " +
                       std::to_string(frameCount()) + " frames";
        return result;
    }
    try {
        const auto [part, k] = locate(*data_, i);
        loader::Capture c;
        static_cast<CaptureInfo&>(c) = part->base;
        c.frame = loader::frameTags(*part, k);
        const loader::SequencePart::Frame& f = part->frames[k];
        const std::string which =
            "frame " + std::to_string(i + 1) + " of " + std::to_string(frameCount()) + " (number " +
            std::to_string(f.number) + ", timestamp " + std::to_string(f.timestamp) + " ns)";
        c.description = which + " of " + part->base.file;
        c.notes.push_back(which + ": " +
                          (part->fromBlocks
                               ? "the tags of its metadata block"
                               : "each monitored tag from its latest result event of a frame "
                                 "number at most " +
                                     std::to_string(f.number) +
                                     ", else its latest request event; the other tags from the "
                                     "dump's blocks"));
        result.warnings = c.warnings;
        result.capture = loader::install(std::move(c), part->statics);
    } catch (const loader::InputError& e) {
        result.error = e.what();
    } catch (const std::bad_alloc&) {
        result.error = "frame " + std::to_string(i) + ": out of memory";
    }
    return result;
}

size_t Sequence::fileOf(size_t i) const {
    if (i >= frameCount()) return 0;
    return static_cast<size_t>(locate(*data_, i).first - data_->parts.data());
}

std::vector<RecordedTag> Sequence::recordedTags() const {
    std::vector<RecordedTag> tags;
    if (!data_) return tags;
    const auto add = [&](const kvhost::TagInfo* info, int64_t frame, size_t results) {
        const auto known = std::find_if(tags.begin(), tags.end(),
                                        [&](const RecordedTag& t) { return t.id == info->id; });
        if (known == tags.end()) {
            tags.push_back({info->name, info->id, frame, results});
            return;
        }
        known->firstFrame = std::min(known->firstFrame, frame);
        known->resultFrames += results;
    };
    for (const loader::SequencePart& part : data_->parts) {
        if (part.fromBlocks) {
            // The framework camera id, which the reader adds to each block,
            // names the camera, not a value of the frame.
            for (const loader::SequencePart::Frame& f : part.frames) {
                for (uint32_t k = f.first; k < f.end; ++k) {
                    const loader::TagEvent& e = part.log.events[k];
                    if (!e.added) add(part.infos[e.tag], f.number, 1);
                }
            }
            continue;
        }
        for (const loader::SequencePart::Track& t : part.tracks) {
            int64_t first = std::numeric_limits<int64_t>::max();
            for (const auto& side : t.sides) {
                if (!side.empty()) first = std::min(first, side.front().frame);
            }
            add(t.info, first, t.resultFrames);
        }
    }
    return tags;
}

bool Sequence::changed(size_t i, uint32_t id) const {
    if (i >= frameCount()) return false;
    // Not a structured binding: the lambda below captures the part.
    const std::pair<const loader::SequencePart*, size_t> at = locate(*data_, i);
    const loader::SequencePart* part = at.first;
    const loader::SequencePart::Frame& f = part->frames[at.second];
    if (part->fromBlocks) {
        for (uint32_t k = f.first; k < f.end; ++k) {
            const loader::TagEvent& e = part->log.events[k];
            if (!e.added && part->infos[e.tag]->id == id) return true;
        }
        return false;
    }
    for (const loader::SequencePart::Track& t : part->tracks) {
        if (t.info->id != id) continue;
        for (const auto& side : t.sides) {
            const auto first = std::lower_bound(
                side.begin(), side.end(), f.number,
                [](const loader::SequencePart::Track::Event& e, int64_t n) { return e.frame < n; });
            if (first != side.end() && first->frame == f.number) return true;
        }
    }
    return false;
}

std::vector<size_t> Sequence::changedFrames(uint32_t id) const {
    std::vector<size_t> out;
    if (!data_) return out;
    for (size_t p = 0; p < data_->parts.size(); ++p) {
        const loader::SequencePart& part = data_->parts[p];
        const size_t base = data_->firstFrame[p];
        const size_t begin = out.size();
        if (part.fromBlocks) {
            for (size_t k = 0; k < part.frames.size(); ++k) {
                const loader::SequencePart::Frame& f = part.frames[k];
                for (uint32_t e = f.first; e < f.end; ++e) {
                    const loader::TagEvent& event = part.log.events[e];
                    if (event.added || part.infos[event.tag]->id != id) continue;
                    out.push_back(base + k);
                    break;
                }
            }
            continue;
        }
        for (const loader::SequencePart::Track& t : part.tracks) {
            if (t.info->id != id) continue;
            for (const auto& side : t.sides) {
                // Each side is in frame order, as the frames are.
                size_t k = 0;
                for (const loader::SequencePart::Track::Event& e : side) {
                    k = loader::frameFrom(part, k, e.frame);
                    out.push_back(base + k);
                }
            }
        }
        std::sort(out.begin() + static_cast<std::ptrdiff_t>(begin), out.end());
        out.erase(std::unique(out.begin() + static_cast<std::ptrdiff_t>(begin), out.end()),
                  out.end());
    }
    return out;
}

std::vector<TagChange> Sequence::changes(uint32_t id, bool result) const {
    std::vector<TagChange> out;
    if (!data_) return out;
    const size_t side = static_cast<size_t>(result ? loader::Side::Result : loader::Side::Request);
    bool before = false;  // an earlier file set the tag, on either side
    for (size_t p = 0; p < data_->parts.size(); ++p) {
        const loader::SequencePart& part = data_->parts[p];
        const size_t base = data_->firstFrame[p];
        const size_t begin = out.size();
        bool present = false;  // this file sets the tag, on either side
        // `e`: a TagEvent or a track's event; null: the tag went away.
        const auto set = [&](size_t frame, const auto* e, const kvhost::TagInfo* info) {
            // Filled in place: a change built aside and copied in costs a
            // stalled load of the bytes just stored, on every change.
            TagChange& c = out.emplace_back();
            c.frame = base + frame;
            c.result = result;
            c.removed = e == nullptr || e->removed;
            if (!c.removed) {
                c.type = info->type;
                c.count = e->count;
                c.bytes = part.log.payload.data() + e->offset;
            }
        };
        if (part.fromBlocks) {
            // A block without the tag is a frame without it; blocks are results.
            bool held = false;
            for (size_t k = 0; k < part.frames.size(); ++k) {
                const loader::SequencePart::Frame& f = part.frames[k];
                const loader::TagEvent* found = nullptr;
                for (uint32_t e = f.first; e < f.end; ++e) {
                    if (part.infos[part.log.events[e].tag]->id == id) found = &part.log.events[e];
                }
                if (result && (found != nullptr || held)) {
                    set(k, found, found ? part.infos[found->tag] : nullptr);
                }
                held = found != nullptr;
                present = present || held;
            }
        } else {
            size_t tracks = 0;
            for (const loader::SequencePart::Track& t : part.tracks) {
                if (t.info->id != id) continue;
                ++tracks;
                present = present || !t.sides[0].empty() || !t.sides[1].empty();
                const auto& events = t.sides[side];
                out.reserve(out.size() + events.size() + 1);
                size_t k = 0;
                for (size_t n = 0; n < events.size(); ++n) {
                    const loader::SequencePart::Track::Event& e = events[n];
                    // Of one frame's events, the later one holds.
                    if (n + 1 < events.size() && events[n + 1].frame == e.frame) continue;
                    k = loader::frameFrom(part, k, e.frame);
                    set(k, &e, t.info);
                }
            }
            // A tag with two tracks in one file (two names of one tag): their
            // changes in frame order.
            if (tracks > 1) {
                std::stable_sort(
                    out.begin() + static_cast<std::ptrdiff_t>(begin), out.end(),
                    [](const TagChange& a, const TagChange& b) { return a.frame < b.frame; });
            }
        }
        // A new file starts with the tag unset on both sides.
        if (before && (out.size() == begin || out[begin].frame != base)) {
            TagChange c;
            c.frame = base;
            c.result = result;
            c.removed = true;
            out.insert(out.begin() + static_cast<std::ptrdiff_t>(begin), c);
        }
        before = before || present;
    }
    return out;
}

std::vector<TagChange> Sequence::changes(uint32_t id) const {
    const std::vector<TagChange> request = changes(id, false), result = changes(id, true);
    std::vector<TagChange> out(request.size() + result.size());
    // A frame's request change ahead of its result change.
    std::merge(request.begin(), request.end(), result.begin(), result.end(), out.begin(),
               [](const TagChange& a, const TagChange& b) { return a.frame < b.frame; });
    return out;
}

namespace {
const std::vector<std::string> kNone;
}  // namespace

const std::vector<std::string>& Sequence::notes() const {
    return data_ ? data_->notes : kNone;
}

const std::vector<std::string>& Sequence::warnings() const {
    return data_ ? data_->warnings : kNone;
}

SequenceResult loadSequence(const std::vector<std::string>& paths, const SequenceOptions& options) {
    SequenceResult result;
    try {
        result.sequence.emplace(loader::readSequence(paths, options));
        result.warnings = result.sequence->warnings();
    } catch (const loader::InputError& e) {
        result.error = e.what();
    } catch (const std::bad_alloc&) {
        result.error = (paths.empty() ? std::string("sequence") : paths[0]) + ": out of memory";
    }
    return result;
}

}  // namespace kvhost
