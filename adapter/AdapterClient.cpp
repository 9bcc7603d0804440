#include "AdapterClient.h"

#include <dlfcn.h>

namespace adapter {

AdapterClient& AdapterClient::getInstance() {
    // Built once under the guard of static initialisation, destroyed at exit.
    static AdapterClient gAdapterClient;
    return gAdapterClient;
}

AdapterClient::AdapterClient() : handle(nullptr), instance(nullptr), loaded(0) {
    // A failure here is not final: every later user retries the load.
    Load();
}

AdapterClient::~AdapterClient() {
    if (handle != nullptr) {
        dlclose(handle);
        handle = nullptr;
    }
    loaded = 0;
}

int AdapterClient::Load() {
    if (loaded > 0) return 0;
    return Open();
}

int AdapterClient::Open() {
    if (handle != nullptr) {
        // A stale handle of an earlier attempt.
        dlclose(handle);
        handle = nullptr;
    }
    void* const lib = dlopen(METAUTILS_ADAPTER_PATH, RTLD_NOW | RTLD_GLOBAL);
    if (lib == nullptr) return -1;
    // Every adapter library exports "GetInstance": its presence is taken for
    // granted, as the device's adapter contract promises.
    const auto getInstanceFn = reinterpret_cast<GetInstanceFn>(dlsym(lib, "GetInstance"));
    AdapterInstance* const inst = getInstanceFn();
    if (inst == nullptr) {
        dlclose(lib);
        return -1;
    }
    inst->init();
    handle = lib;
    instance = inst;
    loaded = 1;
    return 0;
}

std::shared_ptr<PlatformInfoHolder> AdapterClient::getPlatformInfoHolder() {
    // Retry of a failed load; like Load(), it takes no lock.
    if (loaded < 1) Open();
    if (instance == nullptr) return nullptr;
    return instance->getPlatformInfoHolder();
}

}  // namespace adapter
