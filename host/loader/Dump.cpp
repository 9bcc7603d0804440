#include "Dump.h"

#include <algorithm>
#include <optional>
#include <set>
#include <utility>

#include "DumpText.h"
#include "JsonReader.h"

namespace kvhost {
namespace loader {
namespace {

using kvhost::TagType;

constexpr std::string_view kBlockLine = "Dumping camera metadata array";
constexpr uint32_t kPhysicalIds = 0x1A0000;  // android.logicalMultiCamera.physicalIds

// ---- Entries ----------------------------------------------------------------

struct Header {
    std::string_view name;
    uint32_t id = 0;
    std::string_view typeText;
    size_t count = 0;
    std::string_view rest;  // a value row joined onto the header line
};

// "section.name (hexid): type[count]" and what follows it.
bool parseHeader(std::string_view s, Header& h) {
    const size_t open = s.find(" (");
    if (open == std::string_view::npos || open == 0) return false;
    h.name = s.substr(0, open);
    if (!contains(h.name, ".") || h.name.find_first_of(" \t[]()") != std::string_view::npos) {
        return false;
    }
    size_t p = open + 2;
    const size_t hexStart = p;
    while (p < s.size() && std::isxdigit(static_cast<unsigned char>(s[p]))) ++p;
    if (!parseNumber(s.substr(hexStart, p - hexStart), &h.id, 16)) return false;
    if (!skipChar(s, p, ')') || !skipChar(s, p, ':')) return false;
    skipBlanks(s, p);
    const size_t bracket = s.find('[', p);
    if (bracket == std::string_view::npos) return false;
    h.typeText = trim(s.substr(p, bracket - p));
    p = bracket + 1;
    const size_t countStart = p;
    if (!skipDigits(s, p) || !parseNumber(s.substr(countStart, p - countStart), &h.count) ||
        !skipChar(s, p, ']')) {
        return false;
    }
    h.rest = trim(s.substr(p));
    return true;
}

// An entry being read: its payload grows row by row.
struct OpenEntry {
    DumpEntry entry;
    RowFormat format;
    bool bad = false;  // a warning was given; its rows are skipped
    bool elided = false;
    size_t values = 0;
};

// Calls `f` with each line of `text`, cleaned, until it returns false.
template <typename F>
void forEachLine(std::string_view text, F&& f) {
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string_view::npos) end = text.size();
        if (!f(cleanDumpLine(text.substr(start, end - start)))) return;
        start = end + 1;
    }
}

bool opensBlock(std::string_view s) {
    return startsWith(s, kBlockLine);
}

// A physical id list as some devices print it: its characters, one a value,
// without the NUL that ends each id ("[5 8 5 6 ]" for the ids 58 and 56).
bool isPrintedIdList(const DumpEntry& e) {
    return e.id == kPhysicalIds && e.type == TagType::Byte && !e.bytes.empty() &&
           e.bytes.size() < e.count &&
           std::all_of(e.bytes.begin(), e.bytes.end(), [](uint8_t c) { return c <= 9; });
}

// The ways to cut the digits `chars` into `count` ids of `cameras`; the
// first two, which is enough to tell one from many. A logical camera lists
// each of its physical cameras once, so no more ids than cameras.
std::vector<std::vector<std::string>> splitIds(const std::string& chars, size_t count,
                                               const std::set<std::string>& cameras) {
    std::vector<std::vector<std::string>> splits;
    std::set<size_t> lengths;
    for (const std::string& c : cameras) lengths.insert(c.size());
    const size_t n = chars.size();
    if (count == 0 || count > cameras.size() || n > count * *lengths.rbegin()) return splits;
    // ways[i * w + j]: the cuts of chars[i..] into j ids, counted up to 2.
    const size_t w = count + 1;
    std::vector<uint8_t> ways((n + 1) * w);
    ways[n * w] = 1;
    const auto isId = [&](size_t i, size_t len) {
        return len <= n - i && cameras.count(chars.substr(i, len)) != 0;
    };
    for (size_t i = n; i-- > 0;) {
        for (const size_t len : lengths) {
            if (!isId(i, len)) continue;
            for (size_t j = 1; j <= count; ++j) {
                ways[i * w + j] = std::min(2, ways[i * w + j] + ways[(i + len) * w + j - 1]);
            }
        }
    }
    // Only cuts that lead to a whole split are followed.
    std::vector<std::string> ids;
    const auto follow = [&](const auto& self, size_t i, size_t j) -> void {
        if (j == 0) return splits.push_back(ids);
        for (const size_t len : lengths) {
            if (splits.size() == 2 || !isId(i, len) || ways[(i + len) * w + j - 1] == 0) continue;
            ids.push_back(chars.substr(i, len));
            self(self, i + len, j - 1);
            ids.pop_back();
        }
    };
    if (ways[count] != 0) follow(follow, 0, count);
    return splits;
}

class Reader {
public:
    Reader(std::string_view text, const std::string& file) : text_(text) { dump_.file = file; }

    Dump read() {
        const auto noBlock = [&] {
            return InputError(dump_.file +
                              ": neither a capture description nor a camera metadata dump: no \"" +
                              std::string(kBlockLine) + "\" line");
        };
        // Text with no block line is a fragment pasted from the middle of a dump.
        fragment_ = true;
        if (contains(text_, kBlockLine)) {
            forEachLine(text_, [&](std::string_view s) {
                if (opensBlock(s)) fragment_ = false;
                return fragment_;
            });
        } else if (!contains(text_, "):")) {
            throw noBlock();  // and no entry header "name (id): type[n]" to open a fragment
        }
        forEachLine(text_, [&](std::string_view s) {
            ++lineNumber_;
            readLine(s);
            return true;
        });
        closeBlock();
        rebuildIdLists();
        if (dump_.blocks.empty()) throw noBlock();
        if (fragment_ && valueRows_ == 0) {
            const size_t headers = dump_.blocks[0].declaredEntries;
            throw InputError(dump_.file + ": " + std::to_string(headers) + " entry line" +
                             (headers == 1 ? "" : "s") +
                             " and no values (as grep prints them); no metadata to read");
        }
        std::stable_sort(warnings_.begin(), warnings_.end(),
                         [](const auto& a, const auto& b) { return a.first < b.first; });
        for (auto& w : warnings_) dump_.warnings.push_back(std::move(w.second));
        return std::move(dump_);
    }

private:
    enum class Section { None, Static, Dynamic, VendorTags };

    void warn(const std::string& message, std::string_view tag = {}) {
        warnAt(lineNumber_, message, tag);
    }

    // A warning about `line`, counted for the open block.
    void warnAt(size_t line, const std::string& message, std::string_view tag) {
        std::string text = dump_.file + ":" + std::to_string(line) + ": ";
        if (!tag.empty()) text += std::string(tag) + ": ";
        warnings_.emplace_back(line, text + message);
        if (block_ != nullptr) ++block_->warnings;
    }

    void readLine(std::string_view s) {
        if (s.empty()) return;
        if (opensBlock(s)) return openBlock(s);
        if (Header h; block_ == nullptr && fragment_ && parseHeader(s, h)) openFragment();
        if (block_ != nullptr && readBlockLine(s)) return;
        closeBlock();
        readContext(s);
    }

    // A line inside a block; false when the line ends the block.
    bool readBlockLine(std::string_view s) {
        if (startsWith(s, "Version:")) return true;
        if (startsWith(s, "...")) {
            // Elided rows leave their entry short: it takes the rows up to the
            // next header and is left out. Rows after elided entries have
            // lost their header: they are skipped, the elision said so.
            if (entry_ && !entry_->bad && entry_->values < entry_->entry.count) {
                entry_->elided = true;
            } else {
                closeEntry();
                orphansWarned_ = true;
            }
            return true;
        }
        if (s[0] == '[') {
            readValues(s);
            return true;
        }
        Header h;
        if (!parseHeader(s, h)) return false;
        closeEntry();
        openEntry(h);
        if (!h.rest.empty()) readValues(h.rest);
        return true;
    }

    void readValues(std::string_view row) {
        if (!entry_) {
            if (!orphansWarned_) warn("value rows without an entry header are skipped");
            orphansWarned_ = true;
            return;
        }
        ++valueRows_;
        if (entry_->bad || entry_->elided) return;
        const std::string problem =
            readRow(row, entry_->format, entry_->entry.bytes, entry_->values);
        if (!problem.empty()) {
            warn(problem + "; the entry is left out", entry_->entry.name);
            entry_->bad = true;
        }
    }

    void openEntry(const Header& h) {
        orphansWarned_ = false;
        entry_.emplace();
        DumpEntry& e = entry_->entry;
        e.line = lineNumber_;
        e.name = std::string(h.name);
        e.id = h.id;
        e.count = h.count;
        if (block_->fragment) ++block_->declaredEntries;
        if (!kvhost::parseTypeName(h.typeText, &entry_->format.type)) {
            warn("unknown type \"" + std::string(h.typeText) + "\"; the entry is left out", h.name);
            entry_->bad = true;
            return;
        }
        e.type = entry_->format.type;
        // Enum names are Android's; a dump prints them for Android's tags.
        if (h.id < 0x80000000u) entry_->format.names = kvhost::findTag(h.id);
    }

    void closeEntry() {
        if (!entry_) return;
        OpenEntry& e = *entry_;
        if (!e.bad) {
            const std::string shown = "shows " + std::to_string(e.values) + " of its " +
                                      std::to_string(e.entry.count) + " values";
            // The warnings point at the entry's header.
            if (e.elided) {
                warnAt(e.entry.line, shown + ", the others elided; the entry is left out",
                       e.entry.name);
            } else if (e.values == e.entry.count) {
                block_->entries.push_back(std::move(e.entry));
            } else if (isPrintedIdList(e.entry)) {
                // Rebuilt once every camera id of the dump is known.
                idLists_.emplace_back(block_->number - 1, block_->entries.size());
                block_->entries.push_back(std::move(e.entry));
            } else {
                warnAt(e.entry.line, shown + "; the entry is left out", e.entry.name);
            }
        }
        entry_.reset();
    }

    // Each physical id list printed as its characters becomes the ids that
    // its characters and byte count allow, when the dump's cameras allow
    // exactly one cut; else it is left out.
    void rebuildIdLists() {
        // From the last, so that leaving one out keeps the others' places.
        for (auto list = idLists_.rbegin(); list != idLists_.rend(); ++list) {
            block_ = &dump_.blocks[list->first];
            DumpEntry& e = block_->entries[list->second];
            std::string chars;
            std::string shown;
            for (const uint8_t c : e.bytes) {
                chars += static_cast<char>('0' + c);
                shown += (shown.empty() ? "" : " ") + chars.substr(chars.size() - 1);
            }
            // Each id takes its characters and a NUL: the NULs count the ids.
            const auto splits = splitIds(chars, e.count - chars.size(), cameras_);
            if (splits.size() == 1) {
                e.bytes.clear();
                for (const std::string& id : splits[0]) {
                    e.bytes.insert(e.bytes.end(), id.begin(), id.end());
                    e.bytes.push_back(0);
                }
                e.rebuiltIds = splits[0];
                continue;
            }
            const std::string split =
                " of the characters " + shown + " into camera ids of the dump give" +
                (splits.empty() ? "s " : " ") + std::to_string(e.count) + " bytes";
            if (splits.empty()) {
                warnAt(e.line, "no split" + split + "; the entry is left out", e.name);
            } else {
                std::string found;
                for (const auto& ids : splits) {
                    std::string one;
                    for (const std::string& id : ids) one += (one.empty() ? "" : ", ") + id;
                    found += (found.empty() ? "" : " and ") + one;
                }
                warnAt(e.line,
                       "2 or more splits" + split + " (" + found +
                           "): ambiguous; the entry is left out",
                       e.name);
            }
            block_->entries.erase(block_->entries.begin() +
                                  static_cast<std::ptrdiff_t>(list->second));
        }
        block_ = nullptr;
    }

    void openBlock(std::string_view s) {
        closeBlock();
        DumpBlock& block = addBlock();
        block.camera = camera_;
        block.previousSession = previousSession_;
        block.kind = section_ == Section::Static ? BlockKind::Static : BlockKind::Other;
        if (next_) {
            block.kind = *next_;
            if (!nextCamera_.empty()) block.camera = nextCamera_;
        }
        next_.reset();
        nextCamera_.clear();
        if (!block.camera.empty()) cameras_.insert(block.camera);
        // "Dumping camera metadata array: 12 / 14 entries, ..."
        const size_t colon = s.find(':');
        size_t p = colon == std::string_view::npos ? s.size() : colon + 1;
        skipBlanks(s, p);
        const size_t numberStart = p;
        if (skipDigits(s, p)) {
            parseNumber(s.substr(numberStart, p - numberStart), &block.declaredEntries);
        }
    }

    // The one block of a fragment: opened at its first entry, taken up again
    // by entries after other text.
    void openFragment() {
        if (!dump_.blocks.empty()) {
            block_ = &dump_.blocks.back();
            return;
        }
        addBlock().fragment = true;
        warn("the text has no \"" + std::string(kBlockLine) +
             "\" line: its entries are read as one block of unknown kind (a pasted fragment)");
    }

    // A new block at this line, open.
    DumpBlock& addBlock() {
        DumpBlock block;
        block.number = static_cast<int>(dump_.blocks.size()) + 1;
        block.line = lineNumber_;
        dump_.blocks.push_back(std::move(block));
        block_ = &dump_.blocks.back();
        orphansWarned_ = false;
        return *block_;
    }

    void closeBlock() {
        closeEntry();
        block_ = nullptr;
    }

    // The id after the last '/' of "== Camera HAL device device@3.7/internal/0 (v3.7) ...".
    static std::string halCameraId(std::string_view s) {
        const size_t paren = s.find(" (");
        const std::string_view head = s.substr(0, paren);
        const size_t slash = head.rfind('/');
        return slash == std::string_view::npos ? "" : std::string(head.substr(slash + 1));
    }

    // The first word after `prefix` in s, "" when there is none.
    static std::string wordAfter(std::string_view s, std::string_view prefix) {
        const size_t at = s.find(prefix);
        if (at == std::string_view::npos) return "";
        size_t p = at + prefix.size();
        const size_t start = p;
        while (p < s.size() && !isBlank(s[p]) && s[p] != ':') ++p;
        return std::string(s.substr(start, p - start));
    }

    // Lines between blocks: the sections and labels that say what the next
    // block is, and the vendor tag list.
    void readContext(std::string_view s) {
        if (startsWith(s, "==")) {
            section_ = Section::None;
            camera_.clear();
            previousSession_ = false;
            next_.reset();
            if (contains(s, "Camera HAL device") && contains(s, "static information")) {
                section_ = Section::Static;
                camera_ = halCameraId(s);
            } else if (const auto camera = dynamicInfoCamera(s)) {
                section_ = Section::Dynamic;
                camera_ = *camera;
            } else if (contains(s, "Vendor tags")) {
                section_ = Section::VendorTags;
            }
            return;
        }
        if (contains(s, "Dumpsys from previous open session")) {
            previousSession_ = true;
        } else if (startsWith(s, "Latest received frame")) {
            setNext(BlockKind::Result);
        } else if (startsWith(s, "Last request sent") ||
                   startsWith(s, "Logical request settings")) {
            setNext(BlockKind::Request);
        } else if (startsWith(s, "Physical request settings")) {
            setNext(BlockKind::PhysicalRequest, wordAfter(s, "camera "));
        } else if (startsWith(s, "Physical camera ") && contains(s, "characteristics")) {
            setNext(BlockKind::PhysicalStatic, wordAfter(s, "Physical camera "));
        } else if (startsWith(s, "API2 camera characteristics")) {
            setNext(BlockKind::Static);
        } else if (startsWith(s, "Device ") && contains(s, " maps to \"")) {
            // The service's camera list: "Device 0 maps to \"0\"".
            const size_t open = s.find('"');
            const size_t close = s.find('"', open + 1);
            if (close != std::string_view::npos && close > open + 1) {
                cameras_.emplace(s.substr(open + 1, close - open - 1));
            }
        } else if (section_ == Section::VendorTags && startsWith(s, "0x")) {
            readVendorTag(s);
        } else if (Header h; parseHeader(s, h)) {
            warn("entry outside a metadata block is skipped", h.name);
        }
    }

    void setNext(BlockKind kind, std::string camera = "") {
        next_ = kind;
        nextCamera_ = std::move(camera);
    }

    // "0x80010000 (name) with type 1 (int32) defined in section org.example.section"
    void readVendorTag(std::string_view s) {
        DumpVendorTag tag;
        const size_t open = s.find(" (");
        const size_t close = s.find(')', open);
        const size_t typeOpen = s.find('(', close);
        const size_t typeClose = s.find(')', typeOpen);
        const size_t section = s.find("defined in section ");
        if (open == std::string_view::npos || close == std::string_view::npos ||
            typeOpen == std::string_view::npos || typeClose == std::string_view::npos ||
            section == std::string_view::npos || !parseNumber(s.substr(2, open - 2), &tag.id, 16) ||
            !kvhost::parseTypeName(s.substr(typeOpen + 1, typeClose - typeOpen - 1), &tag.type)) {
            warn("vendor tag line does not read; skipped");
            return;
        }
        const std::string_view name = s.substr(open + 2, close - open - 2);
        const std::string_view sectionName = trim(s.substr(section + 19));
        tag.name = std::string(sectionName) + "." + std::string(name);
        dump_.vendorTags.push_back(std::move(tag));
    }

    std::string_view text_;
    Dump dump_;
    size_t lineNumber_ = 0;
    Section section_ = Section::None;
    std::string camera_;
    bool previousSession_ = false;
    std::optional<BlockKind> next_;  // what the labels before a block say it is
    std::string nextCamera_;
    DumpBlock* block_ = nullptr;  // the open block, in dump_.blocks
    std::optional<OpenEntry> entry_;
    bool orphansWarned_ = false;
    bool fragment_ = false;  // no line of the text opens a block
    size_t valueRows_ = 0;
    std::set<std::string> cameras_;                         // every camera id the dump names
    std::vector<std::pair<size_t, size_t>> idLists_;        // printed id lists: block, entry index
    std::vector<std::pair<size_t, std::string>> warnings_;  // by line
};

}  // namespace

const char* blockKindName(BlockKind kind) {
    switch (kind) {
        case BlockKind::Static:
            return "static characteristics";
        case BlockKind::PhysicalStatic:
            return "physical camera characteristics";
        case BlockKind::Request:
            return "last request";
        case BlockKind::PhysicalRequest:
            return "physical request settings";
        case BlockKind::Result:
            return "latest result";
        case BlockKind::Other:
            break;
    }
    return "metadata";
}

Dump readDump(std::string_view text, const std::string& file) {
    return Reader(text, file).read();
}

}  // namespace loader
}  // namespace kvhost
