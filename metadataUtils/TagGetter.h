// The tag getter skeleton, written once. Most getters of MetaUtils read one
// tag and hand one converted value to the caller; each of them is a row
// (KV_TAG_GETTER) naming the tag, the messages and the read, and the rows all
// run through ReadTag below:
//
//   1. a null output (and, where the row asks, a null container) is "arg err"
//      at level 4 and -2;
//   2. GetMetaData looks the tag up, by name for vendor tags, by id for
//      Android and platform tags; its non-zero code is logged with the row's
//      lookup-failure message at level 3 and returned as it is;
//   3. full shape only: a null data pointer is the row's empty-data message
//      at level 3 and -1 (short-shape rows have no such message and trust a
//      successful lookup);
//   4. the row's read stores the value, once, and an optional trace logs it.
//
// The default build never checks the element count: each getter trusts its
// tag to be as long as the read it makes. A build with METAUTILS_HARDENED
// checks every read against the entry's element count and element size
// before making it (CheckPayload below): a payload too short for the read is
// one level-3 line naming the tag and -1, the output as it was.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <utility>

#include "KvMetadata.h"
#include "MetaLog.h"
#include "MetaUtils.h"

namespace kvalgo2 {
namespace detail {

#if defined(METAUTILS_HARDENED)
constexpr bool kHardened = true;
#else
constexpr bool kHardened = false;
#endif

// ---- Reads of tag payloads ------------------------------------------------

// Element of type T at a byte offset of a payload. Payloads carry no
// alignment promise for records, so every read is a byte copy.
template <typename T>
inline T Load(const void* data, size_t offset = 0) {
    T value;
    std::memcpy(&value, static_cast<const unsigned char*>(data) + offset, sizeof(T));
    return value;
}

// Float to integer conversions as the device's 64-bit Arm cores perform them
// (truncation toward zero, saturating, not-a-number to 0), written as
// well-defined C++ so the host gives the same bits.
template <typename Int, typename Real>
inline Int SaturateCast(Real value) {
    if (std::isnan(value)) return 0;
    constexpr Real kMin = static_cast<Real>(std::numeric_limits<Int>::min());
    // 2^bits for unsigned, 2^(bits-1) for signed: exact powers of two.
    constexpr Real kLimit = static_cast<Real>(std::numeric_limits<Int>::max() / 2 + 1) * 2;
    if (value <= kMin) return std::numeric_limits<Int>::min();
    if (value >= kLimit) return std::numeric_limits<Int>::max();
    return static_cast<Int>(value);
}

// A read of a row: the function that stores the output from the payload and
// the payload bytes it loads. `zeroExtends` marks a word read at a one-byte
// tag: a hardened build reads a payload shorter than the word (but not
// empty) as if zeros followed it, which is what the default build gets from
// a container that pads its payloads with zeros.
template <typename Out>
struct Read {
    void (*store)(const void* data, Out* out);
    size_t bytes;
    bool zeroExtends = false;
};

template <typename Out, size_t Offset>
inline void CopyAt(const void* data, Out* out) {
    std::memcpy(out, static_cast<const unsigned char*>(data) + Offset, sizeof(Out));
}

template <typename Elem, typename Out, size_t Offset>
inline void ConvertAt(const void* data, Out* out) {
    *out = static_cast<Out>(Load<Elem>(data, Offset));
}

template <typename Out, size_t Offset>
inline void TruncateAt(const void* data, Out* out) {
    *out = SaturateCast<Out>(Load<float>(data, Offset));
}

template <typename Out>
inline void Nothing(const void*, Out*) {}

// Copy sizeof(Out) bytes from byte Offset of the payload into *out: plain
// values of the tag's own type and whole records.
template <typename Out, size_t Offset = 0>
constexpr Read<Out> Copy{CopyAt<Out, Offset>, Offset + sizeof(Out)};

// Read an Elem at byte Offset and convert it to Out the way the language
// converts between integers or from integer to float (round to nearest).
template <typename Elem, typename Out, size_t Offset = 0>
constexpr Read<Out> Convert{ConvertAt<Elem, Out, Offset>, Offset + sizeof(Elem)};

// Read a float at byte Offset and truncate it toward zero.
template <typename Out, size_t Offset = 0>
constexpr Read<Out> Truncate{TruncateAt<Out, Offset>, Offset + sizeof(float)};

// For getters that only report whether their tag has data.
template <typename Out>
constexpr Read<Out> Ignore{Nothing<Out>, 0};

// A whole word read at a tag of single bytes.
template <typename Out>
constexpr Read<Out> WordAtByteTag{CopyAt<Out, 0>, sizeof(Out), true};

// ---- Rows ---------------------------------------------------------------------

// A tag addressed by vendor name (id 0) or by numeric id (no name).
struct TagRef {
    const char* name;
    uint32_t id;
    constexpr TagRef(const char* tagName) : name(tagName), id(0) {}
    constexpr TagRef(uint32_t tagId) : name(nullptr), id(tagId) {}
};

struct Messages {
    const char* lookupFail;  // logged at lookupFailLevel when the lookup fails
    const char* noData;      // level 3 on a lookup without data; null for the short shape
    unsigned lookupFailLevel = 3;
};

#define KV_FULL(lookupFail, noData) \
    (::kvalgo2::detail::Messages{KV_LOG_PREFIX lookupFail, KV_LOG_PREFIX noData})
// The common pair that names what was looked up.
#define KV_TAG_MESSAGES(what) KV_FULL("GetMetadata " what " err", "get metadata " what " err")
#define KV_SHORT(lookupFail) (::kvalgo2::detail::Messages{KV_LOG_PREFIX lookupFail, nullptr})

constexpr Messages kDefaultMessages = KV_FULL("GetMetadata err", "get metadata err");
constexpr const char* kArgErr = KV_LOG_PREFIX "arg err";

template <typename Out>
struct TagGetter {
    TagRef tag;
    Messages messages;
    Read<Out> read;
    bool checkMetadata = false;  // also reject a null container with "arg err"
    void (*trace)(const log::LogSite& at, const Out& value) = nullptr;  // after the write
};

// "arg err" at level 4 and -2: the skeleton's answer to a bad argument.
inline int ArgErr(const log::LogSite& at) {
    log::Write(at, 4, kArgErr);
    return -2;
}

// A payload found by a lookup. `bytes` (the element count times the element
// size) is filled in hardened builds only.
struct Payload {
    const void* data = nullptr;
    uint32_t count = 0;
    size_t bytes = 0;
};

// Bytes of the payload of a container entry.
size_t PayloadBytes(const camera_metadata_ro_entry_t& entry);

// The lookup primitive's outcomes other than a payload found: a bad
// argument (entry null), an entry without data, an absent tag; each with
// its line, as MetaUtils::GetMetaData writes it.
int FindFailed(const std::shared_ptr<KvMetadata>& metadata, const camera_metadata_ro_entry_t* entry,
               void** data, uint32_t* count, size_t* bytes);

// The lookup primitive's steps (MetaUtils::GetMetaData, whose lines these
// are), with the payload's length in bytes in *bytes when asked for. A
// payload found, every getter's common case, is handled here, inline in the
// getter; the rest in FindFailed.
inline int FindPayload(const std::shared_ptr<KvMetadata>& metadata, TagRef tag, void** data,
                       uint32_t* count, size_t* bytes) {
    if (!metadata || (tag.name == nullptr && tag.id == 0)) {
        return FindFailed(metadata, nullptr, data, count, bytes);
    }
    // A name wins over an id when both are given.
    const camera_metadata_ro_entry_t entry =
        tag.name != nullptr ? metadata->find(tag.name) : metadata->find(tag.id);
    if (entry.count == 0 || entry.data.u8 == nullptr) {
        return FindFailed(metadata, &entry, data, count, bytes);
    }
    *data = const_cast<uint8_t*>(entry.data.u8);
    if (count != nullptr) *count = static_cast<uint32_t>(entry.count);
    if (bytes != nullptr) *bytes = PayloadBytes(entry);
    return 0;
}

// The hardened check of a read of `need` bytes: 0 when the payload holds
// them, else a level-3 line naming the tag and -1. Always 0 in the default
// build, which trusts the tag.
int ShortPayload(const log::LogSite& at, TagRef tag, size_t bytes, size_t need);
inline int CheckPayload(const log::LogSite& at, TagRef tag, size_t bytes, size_t need) {
    if (kHardened && bytes < need) return ShortPayload(at, tag, bytes, need);
    return 0;
}
inline int CheckPayload(const log::LogSite& at, TagRef tag, const Payload& payload, size_t need) {
    return CheckPayload(at, tag, payload.bytes, need);
}

// Steps 2 to 4 of the skeleton on a container: the lookup, its failure and
// empty-data messages. 0 with *payload set, or the getter's result after the
// message. Special getters that begin like the skeleton start with it too.
inline int LookUp(const log::LogSite& at, const std::shared_ptr<KvMetadata>& metadata, TagRef tag,
                  const Messages& messages, Payload* payload) {
    void* found = nullptr;
    uint32_t count = 0;
    size_t bytes = 0;
    const int ret = FindPayload(metadata, tag, &found, &count, kHardened ? &bytes : nullptr);
    if (ret != 0) {
        log::Write(at, messages.lookupFailLevel, messages.lookupFail);
        return ret;
    }
    if (messages.noData != nullptr && found == nullptr) {
        log::Write(at, 3, messages.noData);
        return -1;
    }
    *payload = Payload{found, count, bytes};
    return 0;
}

// Step 4: the row's read, checked first in a hardened build.
template <typename Out>
int Store(const log::LogSite& at, TagRef tag, const Payload& payload, const Read<Out>& read,
          Out* out) {
    if (kHardened && payload.bytes < read.bytes) {
        if (!read.zeroExtends || payload.bytes == 0) {
            return ShortPayload(at, tag, payload.bytes, read.bytes);
        }
        unsigned char word[sizeof(Out)] = {};
        std::memcpy(word, payload.data, payload.bytes);
        read.store(word, out);
        return 0;
    }
    read.store(payload.data, out);
    return 0;
}

// The skeleton. `at` is the getter's own site, so every line names it.
template <typename Out>
int ReadTag(const log::LogSite& at, const std::shared_ptr<KvMetadata>& metadata, Out* out,
            const TagGetter<Out>& row) {
    if (out == nullptr || (row.checkMetadata && !metadata)) return ArgErr(at);
    Payload payload;
    if (const int ret = LookUp(at, metadata, row.tag, row.messages, &payload)) {
        return ret;
    }
    if (const int ret = Store(at, row.tag, payload, row.read, out)) return ret;
    if (row.trace != nullptr) row.trace(at, *out);
    return 0;
}

// ---- Static characteristics ------------------------------------------------
//
// Getters of a camera's static metadata: the same steps, but the tag is read
// from the static metadata that StaticMetadataWraper keeps for a camera id.
// ReadStaticTag finds the camera through the frame's framework camera id;
// ReadCameraStaticTag is given the id.

template <typename Out>
struct StaticTagGetter {
    TagRef tag;
    Messages messages;
    Read<Out> read;
    // After the write; gets the camera id the static metadata belongs to.
    void (*trace)(const log::LogSite& at, int cameraId, const Out& value) = nullptr;
};

template <typename Out>
int ReadCameraStaticTag(const log::LogSite& at, int cameraId, Out* out,
                        const StaticTagGetter<Out>& row) {
    if (out == nullptr) return ArgErr(at);
    std::shared_ptr<KvMetadata> stat =
        StaticMetadataWraper::getInstance()->getStaticMetadata(static_cast<uint32_t>(cameraId));
    Payload payload;
    if (const int ret = LookUp(at, stat, row.tag, row.messages, &payload)) {
        return ret;
    }
    if (const int ret = Store(at, row.tag, payload, row.read, out)) return ret;
    if (row.trace != nullptr) row.trace(at, cameraId, *out);
    return 0;
}

template <typename Out>
int ReadStaticTag(MetaUtils& self, const log::LogSite& at, std::shared_ptr<KvMetadata> metadata,
                  Out* out, const StaticTagGetter<Out>& row) {
    if (out == nullptr) return ArgErr(at);
    int cameraId = -1;
    const int ret = self.GetFwkCameraId(std::move(metadata), &cameraId);
    if (ret != 0) {
        log::Write(at, 3, KV_LOG_PREFIX "GetMetadata FwkCameraId fail");
        return ret;
    }
    return ReadCameraStaticTag(at, cameraId, out, row);
}

}  // namespace detail
}  // namespace kvalgo2

// One getter of the skeleton: int Method(std::shared_ptr<KvMetadata>, Out*).
// The remaining arguments are the TagGetter row: tag, messages, read, and
// optionally the container check and the success trace.
#define KV_TAG_GETTER(Method, Out, ...)                                     \
    int MetaUtils::Method(std::shared_ptr<KvMetadata> metadata, Out* out) { \
        static constexpr detail::TagGetter<Out> kRow{__VA_ARGS__};          \
        return detail::ReadTag(KV_HERE, metadata, out, kRow);               \
    }

// A getter of the frame's camera's static metadata.
#define KV_STATIC_TAG_GETTER(Method, Out, ...)                                        \
    int MetaUtils::Method(std::shared_ptr<KvMetadata> metadata, Out* out) {           \
        static constexpr detail::StaticTagGetter<Out> kRow{__VA_ARGS__};              \
        return detail::ReadStaticTag(*this, KV_HERE, std::move(metadata), out, kRow); \
    }

// The same with a trailing int argument that the getter accepts and ignores.
#define KV_TAG_GETTER_IGNORING_INT(Method, Out, ...)                             \
    int MetaUtils::Method(std::shared_ptr<KvMetadata> metadata, Out* out, int) { \
        static constexpr detail::TagGetter<Out> kRow{__VA_ARGS__};               \
        return detail::ReadTag(KV_HERE, metadata, out, kRow);                    \
    }

namespace kvalgo2 {
namespace detail {

// The setter shape: a null value is "arg err" at level 4 and -2; otherwise
// SetMetaData writes `count` elements into the vendor tag `name` and a
// non-zero code is logged with `failMsg` at level 3 and returned unchanged.
template <typename T>
int WriteTag(MetaUtils& self, const log::LogSite& at, std::shared_ptr<KvMetadata> metadata,
             const char* name, T* value, uint32_t count, const char* failMsg) {
    if (value == nullptr) return ArgErr(at);
    const int ret = self.SetMetaData<T>(std::move(metadata), name, 0, value, count);
    if (ret != 0) {
        log::Write(at, 3, failMsg);
        return ret;
    }
    return 0;
}

}  // namespace detail
}  // namespace kvalgo2
