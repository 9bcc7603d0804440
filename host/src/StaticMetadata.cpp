// StaticMetadataWraper on the host: a singleton registry of each camera's
// static metadata, filled by kvhost::setStaticMetadata.
#include <map>
#include <mutex>
#include <shared_mutex>
#include <utility>

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

}  // namespace kvhost

StaticMetadataWraper* StaticMetadataWraper::getInstance() {
    return &kvhost::staticRegistry();
}

std::shared_ptr<KvMetadata> StaticMetadataWraper::getStaticMetadata(uint32_t cameraId) {
    return static_cast<kvhost::StaticRegistry*>(this)->get(cameraId);
}
