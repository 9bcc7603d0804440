#include "DumpCapture.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <limits>
#include <set>

namespace kvhost {
namespace loader {
namespace {

constexpr uint32_t kActiveArraySize = 0xF0000;  // android.sensor.info.activeArraySize

// A camera id of the dump as the library's int; empty for any other text.
std::optional<int> cameraNumber(const std::string& camera) {
    int id = 0;
    const char* end = camera.data() + camera.size();
    const auto [ptr, ec] = std::from_chars(camera.data(), end, id);
    if (camera.empty() || ec != std::errc() || ptr != end || id < 0) return std::nullopt;
    return id;
}

std::string blockText(const DumpBlock& b) {
    return "block " + std::to_string(b.number) + " (line " + std::to_string(b.line) + ", " +
           blockKindName(b.kind) + (b.camera.empty() ? "" : " of camera " + b.camera) + ")";
}

int32_t element(const TagPayload& p, size_t i) {
    int32_t v = 0;
    std::memcpy(&v, p.bytes.data() + i * sizeof v, sizeof v);
    return v;
}

class Builder {
public:
    Builder(const Dump& dump, const DumpOptions& options, bool inputRequired = true)
        : dump_(dump), options_(options), inputRequired_(inputRequired) {
        c_.file = dump.file;
        c_.warnings = dump.warnings;
        for (const DumpVendorTag& v : dump.vendorTags) vendorNames_.emplace(v.id, v.name);
    }

    Capture build() {
        chooseCamera();
        chooseFrame();
        chooseStatics();
        completeFrame();
        chooseInput();
        noteRebuiltEntries();
        c_.satCameraId = c_.cameraId;
        c_.description = "camera metadata dump, " + std::to_string(dump_.blocks.size()) +
                         " blocks; camera " + std::to_string(c_.cameraId);
        return std::move(c_);
    }

    // The tags of block `b` as a frame takes them; what is left out is added
    // to `warnings`.
    std::vector<TagPayload> tagsOfBlock(const DumpBlock& b, std::vector<std::string>& warnings) {
        const size_t before = c_.warnings.size();
        std::vector<TagPayload> tags = tagsOf(b);
        warnings.insert(warnings.end(), c_.warnings.begin() + static_cast<std::ptrdiff_t>(before),
                        c_.warnings.end());
        return tags;
    }

private:
    [[noreturn]] void fail(const std::string& message) const {
        throw InputError(dump_.file + ": " + message);
    }

    void warn(const DumpEntry& e, const std::string& message) {
        c_.warnings.push_back(dump_.file + ":" + std::to_string(e.line) + ": " + e.name + ": " +
                              message + "; the entry is left out");
    }

    const DumpBlock& block(int number, const char* option) const {
        if (number < 1 || static_cast<size_t>(number) > dump_.blocks.size()) {
            fail(std::string(option) + ": no block " + std::to_string(number) + " (the dump has " +
                 std::to_string(dump_.blocks.size()) + ")");
        }
        return dump_.blocks[static_cast<size_t>(number) - 1];
    }

    // The block of `kind` filed under camera `id` that the frame takes: the
    // last of the current session, else the last of a previous one.
    const DumpBlock* latest(int id, BlockKind kind) const {
        const DumpBlock* best = nullptr;
        for (const DumpBlock& b : dump_.blocks) {
            if (b.kind != kind || cameraNumber(b.camera) != id) continue;
            if (best == nullptr || b.previousSession <= best->previousSession) best = &b;
        }
        return best;
    }

    void chooseCamera() {
        if (options_.camera) {
            camera_ = options_.camera;
            // A camera that no block names is a slip of the user's, unless
            // no block names one (a pasted fragment).
            std::set<int> named;
            for (const DumpBlock& b : dump_.blocks) {
                if (const auto n = cameraNumber(b.camera)) named.insert(*n);
            }
            if (!named.empty() && named.count(*camera_) == 0) {
                std::string list;
                for (const int n : named) list += (list.empty() ? "" : ", ") + std::to_string(n);
                fail("--camera " + std::to_string(*camera_) + ": no camera " +
                     std::to_string(*camera_) + " in the dump (its blocks are of camera" +
                     (named.size() == 1 ? " " : "s ") + list + ")");
            }
            c_.notes.push_back("camera " + std::to_string(*camera_) + ": given");
            return;
        }
        if (options_.frame) {
            camera_ = cameraNumber(block(*options_.frame, "--frame").camera);
            if (camera_) {
                c_.notes.push_back("camera " + std::to_string(*camera_) + ": the camera of block " +
                                   std::to_string(*options_.frame));
                return;
            }
        }
        for (const bool dynamic : {true, false}) {
            for (const DumpBlock& b : dump_.blocks) {
                const bool isDynamic = b.kind == BlockKind::Request || b.kind == BlockKind::Result;
                const bool isStatic =
                    b.kind == BlockKind::Static || b.kind == BlockKind::PhysicalStatic;
                if (!(dynamic ? isDynamic : isStatic) || !cameraNumber(b.camera)) continue;
                camera_ = cameraNumber(b.camera);
                c_.notes.push_back("camera " + b.camera + ": the first camera with " +
                                   (dynamic ? "request or result blocks" : "static metadata"));
                return;
            }
        }
    }

    void chooseFrame() {
        if (options_.frame) {
            const DumpBlock& b = block(*options_.frame, "--frame");
            c_.frame = tagsOf(b);
            c_.notes.push_back("frame: " + blockText(b) + ", given");
            return;
        }
        if (camera_) {
            const DumpBlock* request = latest(*camera_, BlockKind::Request);
            const DumpBlock* result = latest(*camera_, BlockKind::Result);
            if (request != nullptr) c_.frame = tagsOf(*request);
            if (result != nullptr) overlay(tagsOf(*result));
            if (request != nullptr && result != nullptr) {
                c_.notes.push_back("frame: the request of " + blockText(*request) +
                                   " with the result of " + blockText(*result) +
                                   " laid over it (the result's values win)");
            } else if (request != nullptr || result != nullptr) {
                c_.notes.push_back("frame: " + blockText(request ? *request : *result) +
                                   "; the camera has no " + (request ? "result" : "request") +
                                   " block");
            } else {
                c_.notes.push_back("frame: camera " + std::to_string(*camera_) +
                                   " has no request or result block; the frame is empty");
            }
            return;
        }
        // A log's buffers name no camera: the frame is the last of them.
        const DumpBlock* last = nullptr;
        for (const DumpBlock& b : dump_.blocks) {
            if (b.camera.empty()) last = &b;
        }
        if (last == nullptr) {
            c_.notes.push_back("frame: the dump names no usable camera; the frame is empty");
            return;
        }
        c_.frame = tagsOf(*last);
        c_.notes.push_back("frame: " + blockText(*last) + ", the last block of no camera");
    }

    void chooseStatics() {
        std::map<uint32_t, const DumpBlock*> own;
        std::map<uint32_t, const DumpBlock*> physical;
        for (const DumpBlock& b : dump_.blocks) {
            const auto id = cameraNumber(b.camera);
            if (!id) continue;
            if (b.kind == BlockKind::Static) own[static_cast<uint32_t>(*id)] = &b;
            if (b.kind == BlockKind::PhysicalStatic && physical.count(*id) == 0) {
                physical[static_cast<uint32_t>(*id)] = &b;
            }
        }
        for (const auto& [id, b] : physical) own.emplace(id, b);  // only where none of its own
        for (const auto& [id, number] : options_.statics) own[id] = &block(number, "--static");
        for (const auto& [id, b] : own) {
            c_.statics[id] = tagsOf(*b);
            c_.notes.push_back("static metadata of camera " + std::to_string(id) + ": " +
                               blockText(*b) + (options_.statics.count(id) ? ", given" : ""));
        }
    }

    // The framework camera id through which the library finds the static
    // metadata, and the camera when nothing else named one.
    void completeFrame() {
        const kvhost::TagInfo* fwk = kvhost::findTag(kFwkCameraId);
        for (const TagPayload& p : c_.frame) {
            if (p.info != fwk || p.count == 0) continue;
            if (!camera_) {
                camera_ = element(p, 0);
                c_.notes.push_back("camera " + std::to_string(*camera_) + ": the frame's " +
                                   kFwkCameraId);
            }
            c_.cameraId = *camera_;
            return;
        }
        if (!camera_) {
            camera_ = 0;
            c_.notes.push_back("camera 0: the dump names no camera");
        }
        c_.cameraId = *camera_;
        TagPayload p;
        p.info = fwk;
        p.count = 1;
        p.bytes.resize(sizeof(int32_t));
        std::memcpy(p.bytes.data(), &c_.cameraId, sizeof(int32_t));
        c_.frame.push_back(std::move(p));
        c_.notes.push_back(std::string(kFwkCameraId) +
                           " added to the frame: " + std::to_string(c_.cameraId));
    }

    void chooseInput() {
        if (options_.input) {
            std::tie(c_.inputWidth, c_.inputHeight) = *options_.input;
            c_.notes.push_back("input image " + std::to_string(c_.inputWidth) + "x" +
                               std::to_string(c_.inputHeight) + ": given");
            return;
        }
        const auto stat = c_.statics.find(static_cast<uint32_t>(c_.cameraId));
        if (stat != c_.statics.end()) {
            if (const auto size = activeArraySize(stat->second)) {
                std::tie(c_.inputWidth, c_.inputHeight) = *size;
                c_.notes.push_back("input image " + std::to_string(c_.inputWidth) + "x" +
                                   std::to_string(c_.inputHeight) +
                                   ": the active array of camera " + std::to_string(c_.cameraId) +
                                   " (a dump does not hold the plug-in's input size)");
                return;
            }
        }
        const std::string why =
            "camera " + std::to_string(c_.cameraId) + " has no active array size in the dump";
        if (inputRequired_) fail("no input image size: " + why + "; give one with --input WxH");
        c_.notes.push_back(std::string(kUnknownInput) + ": " + why +
                           "; what maps into the input image is not run (--input WxH gives it)");
    }

    // The reader's readings of what a device printed lossily.
    void noteRebuiltEntries() {
        for (const DumpBlock& b : dump_.blocks) {
            for (const DumpEntry& e : b.entries) {
                if (e.rebuiltIds.empty()) continue;
                std::string ids;
                for (const std::string& id : e.rebuiltIds) ids += (ids.empty() ? "" : ", ") + id;
                c_.notes.push_back(e.name + " of block " + std::to_string(b.number) + " (line " +
                                   std::to_string(e.line) +
                                   "): rebuilt from the printed characters as the ids " + ids);
            }
        }
    }

    // The host tag table's tag for an entry; null, with a warning, when there
    // is none. Android's tags are known by id. Vendor tags are known by name,
    // since their ids differ from device to device, except those the library
    // reads by id; the others are registered from the dump.
    const kvhost::TagInfo* resolve(const DumpEntry& e) {
        const kvhost::TagInfo* info = nullptr;
        if (e.id < 0x80000000u) {
            info = kvhost::findTag(e.id);
            if (info == nullptr && !(info = newerAndroidTag(e))) return nullptr;
        } else {
            std::string name = e.name;
            if (kvhost::findTag(name.c_str()) == nullptr) {
                const auto listed = vendorNames_.find(e.id);
                if (listed != vendorNames_.end()) name = listed->second;
            }
            info = kvhost::findTag(name.c_str());
            const kvhost::TagInfo* byId = kvhost::findTag(e.id);
            if (info == nullptr && byId != nullptr && byId->fixedId) info = byId;
            if (info == nullptr && !(info = registerVendorTag(e, name))) return nullptr;
        }
        if (info->type != e.type) {
            warn(e, std::string("printed as ") + kvhost::typeName(e.type) + ", but " + info->name +
                        " holds " + kvhost::typeName(info->type) + " values");
            return nullptr;
        }
        return info;
    }

    // A tag's name as devices print them: dotted words of letters, digits
    // and '_', a letter first. Anything else ("0x8002...", which a capture
    // description would read as an id, or bytes a damaged log mixed in,
    // which would not read back from a saved capture) is not a name.
    static bool isTagName(const std::string& name) {
        return !name.empty() && std::isalpha(static_cast<unsigned char>(name[0])) &&
               std::all_of(name.begin(), name.end(), [](char ch) {
                   return std::isalnum(static_cast<unsigned char>(ch)) || ch == '.' || ch == '_';
               });
    }

    // An Android tag that a newer Android than the tag table's knows: read
    // by the name and element type its line prints, and said once.
    const kvhost::TagInfo* newerAndroidTag(const DumpEntry& e) {
        int rc = 0;
        const bool named = e.name.rfind("android.", 0) == 0 && isTagName(e.name);
        const kvhost::TagInfo* info = named ? addVendorTag(e.name, e.id, e.type, &rc) : nullptr;
        if (info == nullptr) {
            warn(e, "an Android tag id the table does not hold");
            return nullptr;
        }
        if (newerTags_.insert(e.name).second) {
            c_.notes.push_back(dump_.file + ":" + std::to_string(e.line) + ": " + e.name +
                               ": an Android tag newer than the tag table (Android 16), read as " +
                               "the dump prints it (" + kvhost::typeName(e.type) + ")");
        }
        return info;
    }

    const kvhost::TagInfo* registerVendorTag(const DumpEntry& e, const std::string& name) {
        if (!isTagName(name)) {
            warn(e, "not a tag name");
            return nullptr;
        }
        if (name.rfind("unknownSection.", 0) == 0) {
            warn(e, "a vendor tag the device did not name, missing from the dump's vendor tags");
            return nullptr;
        }
        int rc = 0;
        const kvhost::TagInfo* info = addVendorTag(name, e.id, e.type, &rc);
        if (info == nullptr) {
            warn(e, "cannot be registered in the tag table (" + std::to_string(rc) + ")");
        }
        return info;
    }

    std::vector<TagPayload> tagsOf(const DumpBlock& b) {
        std::vector<TagPayload> tags;
        std::set<uint32_t> seen;
        for (const DumpEntry& e : b.entries) {
            TagPayload p;
            p.info = resolve(e);
            if (p.info == nullptr) continue;
            if (!seen.insert(p.info->id).second) {
                warn(e, "given twice in its block");
                continue;
            }
            p.count = e.count;
            p.bytes = e.bytes;
            if (const std::string problem = lengthProblem(p); !problem.empty()) {
                warn(e, problem);
                continue;
            }
            tags.push_back(std::move(p));
        }
        return tags;
    }

    void overlay(std::vector<TagPayload> over) {
        std::map<const kvhost::TagInfo*, size_t> at;
        for (size_t i = 0; i < c_.frame.size(); ++i) at.emplace(c_.frame[i].info, i);
        for (TagPayload& p : over) {
            const auto known = at.find(p.info);
            if (known != at.end()) {
                c_.frame[known->second] = std::move(p);
            } else {
                c_.frame.push_back(std::move(p));
            }
        }
    }

    const Dump& dump_;
    const DumpOptions& options_;
    const bool inputRequired_;
    Capture c_;
    std::optional<int> camera_;
    std::map<uint32_t, std::string> vendorNames_;  // the dump's vendor tag list, by id
    std::set<std::string> newerTags_;              // Android tags the table lacks, noted
};

}  // namespace

Capture captureFromDump(const Dump& dump, const DumpOptions& options, bool inputRequired) {
    // The first pass makes every choice and finds every error without
    // registering the dump's vendor tags: a dump that fails changes nothing.
    {
        const DryRun dry;
        Builder(dump, options, inputRequired).build();
    }
    return Builder(dump, options, inputRequired).build();
}

std::optional<std::pair<int, int>> activeArraySize(const std::vector<TagPayload>& statics) {
    for (const TagPayload& p : statics) {
        if (p.info->id != kActiveArraySize || p.count < 4) continue;
        if (element(p, 2) < 1 || element(p, 3) < 1) break;
        return std::make_pair(element(p, 2), element(p, 3));
    }
    return std::nullopt;
}

std::vector<std::vector<TagPayload>> blockTags(const Dump& dump,
                                               const std::vector<const DumpBlock*>& blocks,
                                               std::vector<std::string>& warnings) {
    const DumpOptions none;
    Builder builder(dump, none);
    std::vector<std::vector<TagPayload>> tags;
    for (const DumpBlock* b : blocks) tags.push_back(builder.tagsOfBlock(*b, warnings));
    return tags;
}

std::string listBlocks(const Dump& dump, std::vector<std::string>* warnings) {
    std::string out =
        "block   line  what                             camera  entries      warnings\n";
    char row[160];
    // The entries a capture would leave out count with the reader's
    // warnings; the dry run registers none of the dump's tags.
    const DryRun dry;
    const DumpOptions none;
    Builder builder(dump, none);
    if (warnings != nullptr) *warnings = dump.warnings;
    for (const DumpBlock& b : dump.blocks) {
        std::vector<std::string> left;
        builder.tagsOfBlock(b, left);
        if (warnings != nullptr) warnings->insert(warnings->end(), left.begin(), left.end());
        const std::string entries =
            std::to_string(b.entries.size()) + " of " + std::to_string(b.declaredEntries);
        const std::string what = std::string(blockKindName(b.kind)) +
                                 (b.fragment ? " (pasted fragment)" : "") +
                                 (b.previousSession ? " (previous)" : "");
        std::snprintf(row, sizeof row, "%5d %6zu  %-32s %-7s %-12s %zu\n", b.number, b.line,
                      what.c_str(), b.camera.empty() ? "-" : b.camera.c_str(), entries.c_str(),
                      b.warnings + left.size());
        out += row;
    }
    return out;
}

}  // namespace loader
}  // namespace kvhost
