// Host metadata container and tag table: what KvMetadata and
// StaticMetadataWraper stand on when the library runs off-device.
//
// The tag table maps tag names to ids and element types. It is process-wide,
// preloaded with every camera tag of Android (from the data file
// host/data/android-camera-tags.tsv, with the names of enum values) and every
// vendor tag that the library reads, and open to more registrations at run
// time.
//
// kvhost::Metadata is the one concrete KvMetadata on the host: KvMetadata's
// own members are defined on top of it, so every KvMetadata in a host process
// must be a kvhost::Metadata (make them with Metadata::create()).
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <vector>

#include "KvMetadata.h"

namespace kvhost {

// Status codes of the container and the tag table (negated errno values, as
// the device's metadata library returns them).
constexpr int kOk = 0;
constexpr int kNotFound = -2;   // unknown tag name
constexpr int kNoMemory = -12;  // payload could not be allocated
constexpr int kExists = -17;    // name or id already registered differently
constexpr int kInvalid = -22;   // unknown tag, wrong element type, bad argument

// Element types, numbered as in Android's camera metadata.
enum class TagType : uint8_t {
    Byte = 0,
    Int32 = 1,
    Float = 2,
    Int64 = 3,
    Double = 4,
    Rational = 5
};

// A value of an enum-valued tag and the name Android prints for it.
struct EnumValue {
    std::string name;
    int32_t value;
};

struct TagInfo {
    std::string name;
    uint32_t id;
    TagType type;
    // The platform's own id, the same on every device: Android's tags and the
    // vendor tags the library reads by id. False for the vendor tags the
    // library reads by name (their ids differ from device to device; the
    // table's are its own) and for tags registered at run time.
    bool fixedId = false;
    std::vector<EnumValue> enums;  // Android's enum-valued tags; empty for the others
};

// Adds a tag to the table. 0 when added or already present with exactly this
// definition; kExists when the name or the id is taken by another definition;
// kInvalid for an empty name or an unknown type. Thread-safe.
int registerTag(const std::string& name, uint32_t id, TagType type);

// Registers `name` on an id of the table's own (section 0x80FF), for a tag
// whose id is taken by another; *id gets it. A name already registered with
// `type` gives its id and 0; with another type kExists.
int registerTagOnFreshId(const std::string& name, TagType type, uint32_t* id);

// nullptr when unknown. The pointer stays valid for the life of the process.
const TagInfo* findTag(const char* name);
const TagInfo* findTag(uint32_t id);

// Every registered tag, ascending by id.
std::vector<TagInfo> knownTags();

// "byte", "int32", "float", "int64", "double", "rational"; "unknown" and 0
// for values outside the enumeration.
const char* typeName(TagType type);
size_t typeSize(TagType type);
// The type of a name typeName() gives; false for any other text.
bool parseTypeName(std::string_view text, TagType* type);

// The value of an enum name of the tag, nullptr when the tag has no such name;
// the name of a value, nullptr when it has none (Android prints it as a number).
const EnumValue* findEnum(const TagInfo& tag, std::string_view name);
const char* enumName(const TagInfo& tag, int32_t value);

// A real metadata container.
//
// Entries are kept sorted by tag id. Each payload lives in its own heap
// block, 8-byte aligned, max(8, count * element size) bytes rounded up to a
// multiple of 8 and zero-padded: readers that load a whole 32-bit word from a
// one-byte tag stay inside the block. A payload pointer stays valid and
// unchanged until its own entry is replaced or erased, whatever happens to
// other entries.
//
// find() (inherited from KvMetadata) fills index (position in id order), tag,
// type, count and data. An absent tag, or a name the table does not know,
// gives count 0 and null data; an entry stored with count 0 gives count 0 and
// a non-null pointer to its zeroed 8-byte block.
//
// All members are thread-safe; readers run concurrently.
class Metadata final : public KvMetadata {
public:
    Metadata();
    ~Metadata();
    Metadata(const Metadata&) = delete;
    Metadata& operator=(const Metadata&) = delete;

    static std::shared_ptr<Metadata> create();
    // Deep copy: the copy's payloads are blocks of its own.
    std::shared_ptr<Metadata> clone() const;

    // Creates or replaces the entry of `tag` with `count` elements of `type`
    // read from `data`. 0 on success; kInvalid when the tag is unknown, its
    // declared type is not `type`, or data is null with a non-zero count;
    // kNoMemory when the block cannot be allocated. Nothing is stored on
    // failure. KvMetadata::update comes here.
    int put(uint32_t tag, TagType type, const void* data, size_t count);
    int put(const char* name, TagType type, const void* data, size_t count);
    // put() of a type other than the tag's declared one, as a faulty writer
    // on a device may store it: for tests of readers' checks.
    int putAnyType(uint32_t tag, TagType type, const void* data, size_t count);

    // Typed forms of put(); the name forms resolve through the tag table.
    int putBytes(uint32_t tag, const void* data, size_t count);
    int putBytes(const char* name, const void* data, size_t count);
    int putInt32(uint32_t tag, std::vector<int32_t> values);
    int putInt32(const char* name, std::vector<int32_t> values);
    int putFloat(uint32_t tag, std::vector<float> values);
    int putFloat(const char* name, std::vector<float> values);
    int putInt64(uint32_t tag, std::vector<int64_t> values);
    int putInt64(const char* name, std::vector<int64_t> values);
    int putDouble(uint32_t tag, std::vector<double> values);
    int putDouble(const char* name, std::vector<double> values);
    int putRational(uint32_t tag, std::vector<camera_metadata_rational_t> values);
    int putRational(const char* name, std::vector<camera_metadata_rational_t> values);

    // An entry that is present with element count 0, whatever the tag's type.
    int putEmpty(uint32_t tag);
    int putEmpty(const char* name);

    // true when an entry was removed.
    bool erase(uint32_t tag);
    bool erase(const char* name);
    void clear();

    size_t size() const;
    // Ids of the present entries, ascending.
    std::vector<uint32_t> tags() const;

private:
    friend class ::KvMetadata;

    struct Entry {
        uint32_t tag;
        TagType type;
        size_t count;
        std::unique_ptr<uint8_t[]> block;
        size_t blockBytes;
    };

    int store(uint32_t tag, TagType type, const void* data, size_t count, bool anyType = false);
    camera_metadata_ro_entry_t lookup(uint32_t tag) const;

    mutable std::shared_mutex mutex_;
    std::vector<Entry> entries_;  // ascending by tag
};

// Exact payloads: blocks of exactly the payload's bytes, without the zero
// padding, so that AddressSanitizer reports a read past any payload's end.
// Applies to entries stored from then on. Off by default. Thread-safe.
void setExactPayloads(bool on);

// Static metadata behind StaticMetadataWraper::getStaticMetadata(cameraId).
// Registering a null pointer removes the camera. Thread-safe.
void setStaticMetadata(uint32_t cameraId, std::shared_ptr<KvMetadata> md);
void clearStaticMetadata();

}  // namespace kvhost
