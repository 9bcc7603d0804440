// The process-wide store behind kvhost::LookupRecorder, fed by
// KvMetadata::find. Lives in the metadata stand-in.
#include <mutex>
#include <utility>

#include "LookupStore.h"

namespace kvhost {
namespace detail {

std::atomic<int> gLookupRecorders{0};

}  // namespace detail

namespace {

struct Store {
    // The records, the frame and the number of live recorders (mirrored in
    // gLookupRecorders, which recorders change holding the mutex).
    std::mutex mutex;
    int active = 0;
    std::vector<LookupRecord> records;
    std::weak_ptr<KvMetadata> frame;
    const KvMetadata* framePointer = nullptr;
};

Store& store() {
    // Never destroyed: lookups may come from static destructors of other
    // libraries after this one's would have run.
    static Store* const instance = new Store;
    return *instance;
}

// The latest getStaticMetadata of this thread while a recorder was alive.
struct StaticAsked {
    const KvMetadata* md = nullptr;
    uint32_t cameraId = 0;
};
thread_local StaticAsked tStaticAsked;

}  // namespace

const char* lookupPlaceName(LookupPlace place) {
    switch (place) {
        case LookupPlace::Frame:
            return "frame";
        case LookupPlace::Static:
            return "static";
        case LookupPlace::Container:
            return "container";
    }
    return "unknown";
}

namespace detail {

void noteStaticAsked(uint32_t cameraId, const KvMetadata* md) {
    tStaticAsked = StaticAsked{md, cameraId};
}

void recordLookup(const KvMetadata* container, const TagInfo* info, const char* asked, uint32_t id,
                  const camera_metadata_ro_entry_t& entry) {
    try {
        LookupRecord r;
        r.known = info != nullptr;
        r.tag = info != nullptr ? info->name : asked != nullptr ? asked : "";
        r.id = info != nullptr ? info->id : asked != nullptr ? 0 : id;
        r.found = entry.data.u8 != nullptr;
        if (r.found) {
            r.type = static_cast<TagType>(entry.type);
            r.count = entry.count;
        }
        Store& s = store();
        bool isFrame = false;
        {
            std::lock_guard<std::mutex> lock(s.mutex);
            if (s.active == 0) return;
            isFrame = container == s.framePointer && !s.frame.expired();
        }
        // The registry's lock is taken outside the store's: the two never nest.
        const uint32_t preferred = tStaticAsked.md == container ? tStaticAsked.cameraId : 0;
        if (isFrame) {
            r.place = LookupPlace::Frame;
        } else if (registeredCamera(container, preferred, &r.cameraId)) {
            r.place = LookupPlace::Static;
        }
        std::lock_guard<std::mutex> lock(s.mutex);
        if (s.active > 0) s.records.push_back(std::move(r));
    } catch (...) {
        // Out of memory: the record is lost, the lookup is not disturbed.
    }
}

}  // namespace detail

LookupRecorder::LookupRecorder() {
    Store& s = store();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (s.active++ == 0) s.records.clear();
    detail::gLookupRecorders.store(s.active, std::memory_order_relaxed);
}

LookupRecorder::~LookupRecorder() {
    Store& s = store();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (--s.active == 0) {
        s.records.clear();
        s.records.shrink_to_fit();
        s.frame.reset();
        s.framePointer = nullptr;
    }
    detail::gLookupRecorders.store(s.active, std::memory_order_relaxed);
}

void LookupRecorder::setFrame(const std::shared_ptr<KvMetadata>& frame) {
    Store& s = store();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.frame = frame;
    s.framePointer = frame.get();
}

std::vector<LookupRecord> LookupRecorder::records() const {
    Store& s = store();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.records;
}

void LookupRecorder::clear() {
    Store& s = store();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.records.clear();
}

size_t retainedLookupRecords() {
    Store& s = store();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.records.size();
}

}  // namespace kvhost
