// Internal seam between the host container, the static metadata registry
// and the lookup store behind kvhost::LookupRecorder. Not installed.
#pragma once

#include <atomic>
#include <cstdint>

#include "kvhost/LookupRecorder.h"

namespace kvhost {
namespace detail {

// Number of live recorders; read relaxed on every lookup, so that a lookup
// nobody records costs one load.
extern std::atomic<int> gLookupRecorders;

inline bool recordingLookups() {
    return gLookupRecorders.load(std::memory_order_relaxed) > 0;
}

// Records one find on `container`: `info` is the table's tag (null when the
// table does not know it), `asked` the name asked for (null for a lookup by
// id), `id` the id asked for.
void recordLookup(const KvMetadata* container, const TagInfo* info, const char* asked, uint32_t id,
                  const camera_metadata_ro_entry_t& entry);

// getStaticMetadata(cameraId) gave `md` on this thread.
void noteStaticAsked(uint32_t cameraId, const KvMetadata* md);

// The camera `md` is registered for: `preferred` when it is registered
// there, otherwise the lowest such id. false when it is not registered.
// Defined by the registry (StaticMetadata.cpp).
bool registeredCamera(const KvMetadata* md, uint32_t preferred, uint32_t* cameraId);

}  // namespace detail
}  // namespace kvhost
