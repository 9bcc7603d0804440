// Host stand-in of the platform adapter library (libkvcamera_adapter.so):
// its "GetInstance" entry, an adapter instance and a platform info holder
// whose answers are scripted here and whose calls are recorded here while a
// test asks for them.
//
// Tests and tools link this library and script it through the functions
// below; the product library reaches the same copy through dlopen, since
// opening an already-loaded library gives the loaded one. All functions and
// all holder operations are thread-safe.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "PlatformAdapter.h"

namespace kvhost {

// What the stand-in answers.
struct AdapterScript {
    // "GetInstance" returns the instance; false makes it return null.
    bool instanceAvailable = true;
    // The instance hands out a holder; false makes it hand out an empty one.
    bool holderAvailable = true;
    // Result of the gyro enable operation; 0 refuses the samples.
    int gyroEnableResult = 1;
    // Returned by the gyro sample query, in this order.
    std::vector<adapter::GyroSample> gyroSamples;
    // Returned by the role description map operation.
    std::unordered_map<int, kvholder::RoleIdDescription> roleMap;
    // Answer of the shift query: when shiftFound, it writes shiftX, shiftY
    // and isIsz into the record and returns true; otherwise it leaves the
    // record alone and returns false.
    bool shiftFound = false;
    int32_t shiftX = 0;
    int32_t shiftY = 0;
    uint8_t shiftIsIsz = 0;
};

enum class AdapterOp {
    GetInstance,  // the library's entry point
    Init,         // instance slot 0
    GetHolder,    // instance slot 1
    EnableGyro,   // holder slot 0
    DisableGyro,  // holder slot 1
    GetGyroData,  // holder slot 2
    GetRoleMap,   // holder slot 3
    GetShift,     // holder slot 4
};

const char* adapterOpName(AdapterOp op);

// One call received by the stand-in.
struct AdapterCall {
    AdapterOp op = AdapterOp::GetInstance;
    // Gyro operations: the key, "" with keyIsNull set for a null key.
    std::string key;
    bool keyIsNull = false;
    // EnableGyro: its two ints; DisableGyro: its int in arg1; GetGyroData:
    // the query in arg1.
    int arg1 = 0;
    int arg2 = 0;
    // GetShift: the record as it was handed in, and the tolerance.
    adapter::ShiftData shift{};
    int tolerance = 0;
};

// Replaces the script. The default script is AdapterScript{}.
void setAdapterScript(const AdapterScript& script);
AdapterScript adapterScript();

// Records every call the stand-in receives, process-wide, from construction
// until destruction. Outside a recorder's life no call is kept, so a long
// run holds nothing that grows with its number of calls.
//
// One record serves all recorders. The first recorder to start empties it; a
// recorder made while another is alive shares it and sees the same calls,
// including those from before it was made. Recording stops, and the record is
// emptied, when the last live recorder is destroyed.
class AdapterRecorder {
public:
    AdapterRecorder();
    ~AdapterRecorder();
    AdapterRecorder(const AdapterRecorder&) = delete;
    AdapterRecorder& operator=(const AdapterRecorder&) = delete;

    // In arrival order, all of them or those of one operation.
    std::vector<AdapterCall> calls() const;
    std::vector<AdapterCall> calls(AdapterOp op) const;
    void clear();
};

// Number of calls the record holds now (0 while no recorder is alive).
size_t retainedAdapterCalls();

// Default script and an empty record; live recorders go on recording.
void resetAdapter();

// A role description map from (camera id, role id) pairs, texts empty.
std::unordered_map<int, kvholder::RoleIdDescription> makeRoleMap(
    std::initializer_list<std::pair<int, int>> cameraRoles);

}  // namespace kvhost
