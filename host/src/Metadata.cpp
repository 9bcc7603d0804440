// The host metadata container, and KvMetadata's members defined on top of it.
#include "kvhost/Metadata.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <new>

#include "LookupStore.h"

namespace kvhost {
namespace {

constexpr size_t kAlign = 8;

std::atomic<bool> gExactPayloads{false};

// At least one aligned word even for an empty or one-byte payload, so that a
// reader loading a 32-bit word from a one-byte tag stays inside the block;
// exactly the payload when exact payloads are on.
size_t blockBytesFor(size_t payloadBytes) {
    if (gExactPayloads.load(std::memory_order_relaxed)) return payloadBytes;
    const size_t bytes = std::max(payloadBytes, kAlign);
    return (bytes + kAlign - 1) / kAlign * kAlign;
}

// Zero-filled; null when out of memory. The allocation of an array of bytes
// is aligned for any fundamental type, so 8 bytes at least.
std::unique_ptr<uint8_t[]> allocateBlock(size_t bytes) {
    return std::unique_ptr<uint8_t[]>(new (std::nothrow) uint8_t[bytes]());
}

}  // namespace

Metadata::Metadata() = default;

Metadata::~Metadata() = default;

std::shared_ptr<Metadata> Metadata::create() {
    try {
        return std::make_shared<Metadata>();
    } catch (...) {
        return nullptr;
    }
}

std::shared_ptr<Metadata> Metadata::clone() const {
    try {
        auto copy = std::make_shared<Metadata>();
        std::shared_lock<std::shared_mutex> lock(mutex_);
        copy->entries_.reserve(entries_.size());
        for (const Entry& e : entries_) {
            auto block = allocateBlock(e.blockBytes);
            if (block == nullptr) return nullptr;
            std::memcpy(block.get(), e.block.get(), e.blockBytes);
            copy->entries_.push_back(Entry{e.tag, e.type, e.count, std::move(block), e.blockBytes});
        }
        return copy;
    } catch (...) {
        return nullptr;
    }
}

void setExactPayloads(bool on) {
    gExactPayloads.store(on, std::memory_order_relaxed);
}

int Metadata::store(uint32_t tag, TagType type, const void* data, size_t count, bool anyType) {
    const TagInfo* info = findTag(tag);
    if (info == nullptr || (info->type != type && !anyType)) return kInvalid;
    if (typeSize(type) == 0) return kInvalid;
    if (count != 0 && data == nullptr) return kInvalid;
    const size_t elementSize = typeSize(type);
    if (count > (SIZE_MAX - kAlign) / elementSize) return kInvalid;
    const size_t payloadBytes = count * elementSize;
    const size_t blockBytes = blockBytesFor(payloadBytes);
    auto block = allocateBlock(blockBytes);
    if (block == nullptr) return kNoMemory;
    if (payloadBytes != 0) std::memcpy(block.get(), data, payloadBytes);

    // The replaced block is freed after the lock is released.
    std::unique_ptr<uint8_t[]> replaced;
    try {
        std::unique_lock<std::shared_mutex> lock(mutex_);
        auto it = std::lower_bound(entries_.begin(), entries_.end(), tag,
                                   [](const Entry& e, uint32_t t) { return e.tag < t; });
        if (it != entries_.end() && it->tag == tag) {
            replaced = std::move(it->block);
            it->type = type;
            it->count = count;
            it->block = std::move(block);
            it->blockBytes = blockBytes;
        } else {
            // Moving entries within the vector moves only the owning pointers:
            // the payload blocks of other entries stay where they are.
            entries_.insert(it, Entry{tag, type, count, std::move(block), blockBytes});
        }
    } catch (...) {
        return kNoMemory;
    }
    return kOk;
}

camera_metadata_ro_entry_t Metadata::lookup(uint32_t tag) const {
    camera_metadata_ro_entry_t entry{};
    entry.tag = tag;
    std::shared_lock<std::shared_mutex> lock(mutex_);
    auto it = std::lower_bound(entries_.begin(), entries_.end(), tag,
                               [](const Entry& e, uint32_t t) { return e.tag < t; });
    if (it == entries_.end() || it->tag != tag) return entry;
    entry.index = static_cast<size_t>(it - entries_.begin());
    entry.type = static_cast<uint8_t>(it->type);
    entry.count = it->count;
    entry.data.u8 = it->block.get();
    return entry;
}

int Metadata::put(uint32_t tag, TagType type, const void* data, size_t count) {
    return store(tag, type, data, count);
}

int Metadata::put(const char* name, TagType type, const void* data, size_t count) {
    const TagInfo* info = findTag(name);
    return info != nullptr ? store(info->id, type, data, count) : kInvalid;
}

int Metadata::putAnyType(uint32_t tag, TagType type, const void* data, size_t count) {
    return store(tag, type, data, count, true);
}

int Metadata::putBytes(uint32_t tag, const void* data, size_t count) {
    return put(tag, TagType::Byte, data, count);
}

int Metadata::putBytes(const char* name, const void* data, size_t count) {
    return put(name, TagType::Byte, data, count);
}

int Metadata::putInt32(uint32_t tag, std::vector<int32_t> values) {
    return put(tag, TagType::Int32, values.data(), values.size());
}

int Metadata::putInt32(const char* name, std::vector<int32_t> values) {
    return put(name, TagType::Int32, values.data(), values.size());
}

int Metadata::putFloat(uint32_t tag, std::vector<float> values) {
    return put(tag, TagType::Float, values.data(), values.size());
}

int Metadata::putFloat(const char* name, std::vector<float> values) {
    return put(name, TagType::Float, values.data(), values.size());
}

int Metadata::putInt64(uint32_t tag, std::vector<int64_t> values) {
    return put(tag, TagType::Int64, values.data(), values.size());
}

int Metadata::putInt64(const char* name, std::vector<int64_t> values) {
    return put(name, TagType::Int64, values.data(), values.size());
}

int Metadata::putDouble(uint32_t tag, std::vector<double> values) {
    return put(tag, TagType::Double, values.data(), values.size());
}

int Metadata::putDouble(const char* name, std::vector<double> values) {
    return put(name, TagType::Double, values.data(), values.size());
}

int Metadata::putRational(uint32_t tag, std::vector<camera_metadata_rational_t> values) {
    return put(tag, TagType::Rational, values.data(), values.size());
}

int Metadata::putRational(const char* name, std::vector<camera_metadata_rational_t> values) {
    return put(name, TagType::Rational, values.data(), values.size());
}

int Metadata::putEmpty(uint32_t tag) {
    const TagInfo* info = findTag(tag);
    return info != nullptr ? store(info->id, info->type, nullptr, 0) : kInvalid;
}

int Metadata::putEmpty(const char* name) {
    const TagInfo* info = findTag(name);
    return info != nullptr ? store(info->id, info->type, nullptr, 0) : kInvalid;
}

bool Metadata::erase(uint32_t tag) {
    std::unique_ptr<uint8_t[]> removed;
    std::unique_lock<std::shared_mutex> lock(mutex_);
    auto it = std::lower_bound(entries_.begin(), entries_.end(), tag,
                               [](const Entry& e, uint32_t t) { return e.tag < t; });
    if (it == entries_.end() || it->tag != tag) return false;
    removed = std::move(it->block);
    entries_.erase(it);
    lock.unlock();
    return true;
}

bool Metadata::erase(const char* name) {
    const TagInfo* info = findTag(name);
    return info != nullptr && erase(info->id);
}

void Metadata::clear() {
    std::vector<Entry> removed;
    std::unique_lock<std::shared_mutex> lock(mutex_);
    removed.swap(entries_);
}

size_t Metadata::size() const {
    std::shared_lock<std::shared_mutex> lock(mutex_);
    return entries_.size();
}

std::vector<uint32_t> Metadata::tags() const {
    std::vector<uint32_t> out;
    std::shared_lock<std::shared_mutex> lock(mutex_);
    out.reserve(entries_.size());
    for (const Entry& e : entries_) out.push_back(e.tag);
    return out;
}

}  // namespace kvhost

// KvMetadata declares no data: on the host every KvMetadata is a
// kvhost::Metadata (its constructor is protected and Metadata is the one
// subclass), so its members forward to the container.

// Both finds tell the lookup store, which keeps them only while a
// kvhost::LookupRecorder is alive.
camera_metadata_ro_entry_t KvMetadata::find(const char* name) const {
    const kvhost::TagInfo* info = kvhost::findTag(name);
    const camera_metadata_ro_entry_t entry =
        info != nullptr ? static_cast<const kvhost::Metadata*>(this)->lookup(info->id)
                        : camera_metadata_ro_entry_t{};
    if (kvhost::detail::recordingLookups()) {
        kvhost::detail::recordLookup(this, info, name, 0, entry);
    }
    return entry;
}

camera_metadata_ro_entry_t KvMetadata::find(uint32_t tag) const {
    const camera_metadata_ro_entry_t entry =
        static_cast<const kvhost::Metadata*>(this)->lookup(tag);
    if (kvhost::detail::recordingLookups()) {
        kvhost::detail::recordLookup(this, kvhost::findTag(tag), nullptr, tag, entry);
    }
    return entry;
}

int KvMetadata::getTagFromName(const char* name, uint32_t* tag) {
    if (tag == nullptr) return kvhost::kInvalid;
    const kvhost::TagInfo* info = kvhost::findTag(name);
    if (info == nullptr) return kvhost::kNotFound;
    *tag = info->id;
    return kvhost::kOk;
}

int KvMetadata::update(uint32_t tag, const float* data, size_t count) {
    return static_cast<kvhost::Metadata*>(this)->store(tag, kvhost::TagType::Float, data, count);
}

int KvMetadata::update(uint32_t tag, const int32_t* data, size_t count) {
    return static_cast<kvhost::Metadata*>(this)->store(tag, kvhost::TagType::Int32, data, count);
}

int KvMetadata::update(uint32_t tag, const uint8_t* data, size_t count) {
    return static_cast<kvhost::Metadata*>(this)->store(tag, kvhost::TagType::Byte, data, count);
}
