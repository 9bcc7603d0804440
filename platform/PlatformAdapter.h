// Closed platform adapter library, loaded at run time: its entry point, the
// adapter instance and the platform info holder. The library reaches both
// objects only through their virtual operations, in the slot order below;
// neither has a virtual destructor or any other virtual function, so a
// replacement adapter must keep exactly this layout.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace kvholder {

// Per-camera record of the role description map, keyed by camera id.
struct RoleIdDescription {
    int32_t roleId;
    // Texts the library never reads.
    std::string text1;
    std::string text2;
    std::string text3;
};

}  // namespace kvholder

namespace adapter {

// One raw gyroscope sample: rates at bytes 0, 4, 8 and a timestamp in ticks
// of the platform's 19.2 MHz timer at byte 16.
struct GyroSample {
    float x;
    float y;
    float z;
    uint32_t reserved;
    uint64_t timestamp;
};
static_assert(sizeof(GyroSample) == 24, "gyro sample is 24 bytes");
static_assert(offsetof(GyroSample, timestamp) == 16, "gyro sample timestamp at byte 16");

// The zoom-stabilisation shift query, filled by the holder.
struct ShiftData {
    int64_t timestamp;  // frame's sensor timestamp, ns
    int32_t shiftX;
    int32_t shiftY;
    uint8_t reserved0[8];
    double reserved1;
    double reserved2;
    int32_t cameraId;
    uint8_t isIsz;  // shift measured on an in-sensor-zoom frame
    uint8_t pad0[3];
    int32_t nodeType;
    uint8_t pad1[4];
};
static_assert(sizeof(ShiftData) == 56, "shift record is 56 bytes");
static_assert(offsetof(ShiftData, shiftX) == 8, "shiftX at byte 8");
static_assert(offsetof(ShiftData, shiftY) == 12, "shiftY at byte 12");
static_assert(offsetof(ShiftData, reserved0) == 16, "reserved bytes at 16");
static_assert(offsetof(ShiftData, reserved1) == 24, "first double at byte 24");
static_assert(offsetof(ShiftData, reserved2) == 32, "second double at byte 32");
static_assert(offsetof(ShiftData, cameraId) == 40, "cameraId at byte 40");
static_assert(offsetof(ShiftData, isIsz) == 44, "isIsz at byte 44");
static_assert(offsetof(ShiftData, nodeType) == 48, "nodeType at byte 48");

class PlatformInfoHolder {
public:
    // Slot 0: non-zero when samples may be fetched.
    virtual int enableGyro(const char* key, int a, int b) = 0;
    // Slot 1: ends what enableGyro began.
    virtual void disableGyro(const char* key, int a) = 0;
    // Slot 2: the samples collected for `key`.
    virtual std::vector<GyroSample> getGyroData(const char* key, int query) = 0;
    // Slot 3: role description per camera id.
    virtual std::unordered_map<int, kvholder::RoleIdDescription> getRoleIdDescriptionMap() = 0;
    // Slot 4: true when it filled shiftX, shiftY and isIsz for the frame.
    virtual bool getShift(ShiftData* shift, int tolerance) = 0;

protected:
    ~PlatformInfoHolder() = default;
};

class AdapterInstance {
public:
    // Slot 0: called once, right after the instance is obtained.
    virtual void init() = 0;
    // Slot 1.
    virtual std::shared_ptr<PlatformInfoHolder> getPlatformInfoHolder() = 0;

protected:
    ~AdapterInstance() = default;
};

// The adapter library's C entry point, looked up with dlsym as "GetInstance".
using GetInstanceFn = AdapterInstance* (*)();

}  // namespace adapter
