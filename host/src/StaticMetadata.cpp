// StaticMetadataWraper on the host: a singleton registry of each camera's
// static metadata, filled by kvhost::setStaticMetadata.
#include <map>
#include <mutex>
#include <shared_mutex>
#include <utility>

#include "LookupStore.h"
#include "kvhost/Metadata.h"

namespace kvhost {
namespace {

class StaticRegistry final : public StaticMetadataWraper {
public:
    std::shared_ptr<KvMetadata> get(uint32_t cameraId) const {
        std::shared_lock<std::shared_mutex> lock(mutex_);
        const auto it = cameras_.find(cameraId);
        return it != cameras_.end() ? it->second : nullptr;
    }

    void set(uint32_t cameraId, std::shared_ptr<KvMetadata> md) {
        // The replaced container is released after the lock.
        std::shared_ptr<KvMetadata> previous;
        std::unique_lock<std::shared_mutex> lock(mutex_);
        const auto it = cameras_.find(cameraId);
        if (it != cameras_.end()) {
            previous = std::move(it->second);
            if (md != nullptr) {
                it->second = std::move(md);
            } else {
                cameras_.erase(it);
            }
        } else if (md != nullptr) {
            cameras_.emplace(cameraId, std::move(md));
        }
    }

    // The camera `md` is registered for: `preferred` when it is one of
    // them, otherwise the lowest.
    bool cameraOf(const KvMetadata* md, uint32_t preferred, uint32_t* cameraId) const {
        if (md == nullptr) return false;
        std::shared_lock<std::shared_mutex> lock(mutex_);
        const auto it = cameras_.find(preferred);
        if (it != cameras_.end() && it->second.get() == md) {
            *cameraId = preferred;
            return true;
        }
        for (const auto& camera : cameras_) {
            if (camera.second.get() == md) {
                *cameraId = camera.first;
                return true;
            }
        }
        return false;
    }

    void clear() {
        std::map<uint32_t, std::shared_ptr<KvMetadata>> previous;
        std::unique_lock<std::shared_mutex> lock(mutex_);
        previous.swap(cameras_);
    }

private:
    mutable std::shared_mutex mutex_;
    std::map<uint32_t, std::shared_ptr<KvMetadata>> cameras_;
};

StaticRegistry& staticRegistry() {
    // Never destroyed: plug-ins may ask for static metadata from their own
    // static destructors.
    static StaticRegistry* const instance = new StaticRegistry;
    return *instance;
}

}  // namespace

void setStaticMetadata(uint32_t cameraId, std::shared_ptr<KvMetadata> md) {
    try {
        staticRegistry().set(cameraId, std::move(md));
    } catch (...) {
        // Out of memory: the camera stays unregistered.
    }
}

void clearStaticMetadata() {
    staticRegistry().clear();
}

namespace detail {

bool registeredCamera(const KvMetadata* md, uint32_t preferred, uint32_t* cameraId) {
    return staticRegistry().cameraOf(md, preferred, cameraId);
}

}  // namespace detail

}  // namespace kvhost

StaticMetadataWraper* StaticMetadataWraper::getInstance() {
    return &kvhost::staticRegistry();
}

std::shared_ptr<KvMetadata> StaticMetadataWraper::getStaticMetadata(uint32_t cameraId) {
    std::shared_ptr<KvMetadata> md = static_cast<kvhost::StaticRegistry*>(this)->get(cameraId);
    // Lookups on it are then recorded as this camera's, whichever other
    // cameras share the container.
    if (kvhost::detail::recordingLookups()) kvhost::detail::noteStaticAsked(cameraId, md.get());
    return md;
}
