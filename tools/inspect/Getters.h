// The table of getters that the inspector calls: one row per method, its
// subsystem, the metadata it is given, and a call that returns the result
// code and the decoded output. Both reports and the drawing read the rows'
// outcomes; nothing prints per getter.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "MetaUtils.h"
#include "Values.h"
#include "kvhost/Capture.h"
#include "kvhost/LogCapture.h"
#include "kvhost/LookupRecorder.h"

namespace inspect {

// A capture loaded into the stand-ins, by the loader the plug-in tests use.
using Capture = kvhost::Capture;

struct Outcome {
    std::optional<int> result;  // absent for the methods whose value is not a result code
    Json output;                // decoded output; null when the method wrote none
    std::string skipped;        // why the method was not called; "" when it was
};

// What a row's call is handed.
struct Call {
    kvalgo2::MetaUtils& utils;
    const Capture& capture;
    std::shared_ptr<KvMetadata> md;  // the metadata the row's method is given
    kvhost::LogCapture& logs;        // this call's log lines
    kvhost::LookupRecorder& reads;   // this call's tag lookups

    // Runs a preparatory step and drops its log lines and lookups: the
    // call's lines and reads are then the method's own.
    template <typename F>
    auto quietly(F step) {
        auto result = step();
        logs.clear();
        reads.clear();
        return result;
    }
};

// The metadata a row's method is given.
enum class Given {
    Frame,        // the frame's metadata
    FrameStatic,  // static metadata of the frame's framework camera
    SatStatic,    // static metadata of the SAT camera id
    Nothing,      // the method reads no metadata
};

struct Getter {
    const char* subsystem;
    const char* method;  // overloads carry their arguments: "GetCameraRoleId(cameraId)"
    Given given;
    Outcome (*call)(Call&);
    // The Android tag whose value names the result takes ("android.control.afState"),
    // for getters that hand back an enum's value; null for the others.
    const char* namedBy = nullptr;
};

const std::vector<Getter>& getterTable();

// The Android name of an enum-valued getter's output ("PASSIVE_FOCUSED" for
// GetAFState's 2); null when the getter has none or the value is not one of
// the tag's.
const char* valueName(const Getter& getter, const Json& output);

// The numbers of the first log line of `records` whose message is `message`
// (a format without the "[%s][%s()]:[%d] " prefix), in order; empty when no
// line has that message. The library's log lines are its only account of
// the stages inside some methods (the final crop region's shift, say).
std::vector<long long> loggedNumbers(const std::vector<kvhost::LogRecord>& records,
                                     const char* message);

}  // namespace inspect
