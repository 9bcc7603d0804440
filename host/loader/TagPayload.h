// One tag of a capture description: which tag (Android name, vendor name or
// numeric id), and its payload, written as typed values, raw bytes (hex or
// base64), NUL-ended texts, packed little-endian fields or, for the tags that
// carry arrays of records, as readable arrays of objects.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include "JsonReader.h"
#include "kvhost/Metadata.h"

namespace kvhost {
namespace loader {

// Appends a value's little-endian bytes to a payload.
template <typename T>
void append(std::vector<uint8_t>& bytes, T value) {
    const size_t at = bytes.size();
    bytes.resize(at + sizeof(T));
    std::memcpy(bytes.data() + at, &value, sizeof(T));
}

struct TagPayload {
    const kvhost::TagInfo* info = nullptr;  // from the host tag table
    size_t count = 0;                       // elements of info->type
    std::vector<uint8_t> bytes;             // count elements, little-endian
};

// Reads one element of a "tags" array. The payload is checked against what
// the library reads of the tag (for instance the 448 bytes of the smart AE
// record, or at most 10 faces), so that no getter reads past it.
TagPayload readTag(const Node& entry);

// Registers a vendor tag that a file names and the host tag table lacks: on
// `id` when it is free, else (or for id 0) on a fresh id of the table's own.
// Null, with the table's code in *rc, when it cannot be registered.
//
// While a DryRun lives on the calling thread nothing is registered: a tag
// of the run's own, as long-lived as the run, stands in. A reader's first
// pass checks a whole file so, and a file that fails changes nothing.
const kvhost::TagInfo* addVendorTag(const std::string& name, uint32_t id, kvhost::TagType type,
                                    int* rc);

class DryRun {
public:
    DryRun();
    ~DryRun();
    DryRun(const DryRun&) = delete;
    DryRun& operator=(const DryRun&) = delete;

    const kvhost::TagInfo* add(const std::string& name, kvhost::TagType type);
    // Whether the run would have registered no tag: what it read is then
    // what a run that registers reads.
    bool registeredNone() const;

private:
    std::deque<kvhost::TagInfo> tags_;
    uint32_t nextId_ = 0xFFFFFFFFu;
    DryRun* outer_;
};

// What is wrong with a payload that the library would read past: shorter
// than the library's read of the tag (the 448 bytes of the smart AE record,
// say), or more faces than its record holds; "" when it is fine.
std::string lengthProblem(const TagPayload& p);
// Whether lengthProblem checks payloads of the tag at all.
bool hasLengthRule(const kvhost::TagInfo& info);

// The tag as a capture description writes it: name, type and typed values.
Json tagToJson(const TagPayload& p);
// Its typed values alone, from `count` elements of the tag's type at `data`.
Json valuesToJson(const kvhost::TagInfo& info, const uint8_t* data, size_t count);

// The record view of a tag's int32 elements, as the capture description
// writes it: {"faces": [{"left": ..., ...}, ...]} for "kovani.bokeh.faceInfo",
// and so on. Null when the tag has no record layout. `count` is in elements;
// a trailing partial record is left out, as the library leaves it out.
Json recordsToJson(const char* tagName, const int32_t* elements, size_t count);

}  // namespace loader
}  // namespace kvhost
