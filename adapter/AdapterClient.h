// Client of the platform adapter library: loads it once per process, keeps
// it loaded until exit and hands out its platform info holder, the source of
// gyroscope samples, camera role descriptions and stabilisation shifts.
#pragma once

#include <memory>

#include "PlatformAdapter.h"

namespace adapter {

// Exported beside MetaUtils: it is the library's side of the platform seam.
class __attribute__((visibility("default"))) AdapterClient {
public:
    // The one client of the process, loaded on first use.
    static AdapterClient& getInstance();

    // 0 when the adapter is loaded (now or before), -1 when the library cannot
    // be opened or gives no instance. A failed load is retried by the next
    // call of Load() or getPlatformInfoHolder().
    int Load();

    // The holder of the adapter instance, or empty when there is no instance.
    std::shared_ptr<PlatformInfoHolder> getPlatformInfoHolder();

    // Closes the library at process exit.
    ~AdapterClient();

    AdapterClient(const AdapterClient&) = delete;
    AdapterClient& operator=(const AdapterClient&) = delete;

private:
    AdapterClient();

    // Opens the library, asks it for its instance and initialises it; the
    // fields change only when that succeeds.
    int Open();

    void* handle;               // dlopen handle, or null
    AdapterInstance* instance;  // owned by the adapter library, never deleted here
    int loaded;                 // 1 after a successful load, 0 otherwise
};

}  // namespace adapter
