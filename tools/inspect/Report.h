// Runs every getter of the table on an installed capture and renders the
// outcomes as text or as JSON.
#pragma once

#include <string>
#include <vector>

#include "Getters.h"

namespace inspect {

struct CallRecord {
    const Getter* getter = nullptr;
    std::string given;  // the metadata the method was given, in words; "" for none
    Outcome outcome;
    std::vector<kvhost::LogRecord> logs;      // the lines the call produced
    std::vector<kvhost::LookupRecord> reads;  // the tag lookups the call made
    Json adapter = Json::array();             // the calls the platform adapter received
    // A success that handed back nothing usable (a 0x0 rectangle): what and
    // why, naming the tags whose absence made it so; "" otherwise.
    std::string empty;
};

// Calls every getter once, in table order, on a MetaUtils whose camera ids
// are the capture's.
std::vector<CallRecord> runGetters(const Capture& capture);
// The same for the getters given, in their order.
std::vector<CallRecord> runGetters(const Capture& capture,
                                   const std::vector<const Getter*>& getters);

// The call of `method` (as the table names it); null when there is none.
const CallRecord* findCall(const std::vector<CallRecord>& calls, const char* method);

// With `withTags`, each call's lookups under it; a call that gives -1 or -2
// says in any case what its lookups show. The capture's notes and warnings
// one line per kind (Messages.h), or each with `allMessages`.
std::string textReport(const Capture& capture, const std::vector<CallRecord>& calls, bool withLogs,
                       bool withTags = false, bool allMessages = false);
Json jsonReport(const Capture& capture, const std::vector<CallRecord>& calls, bool withLogs);
// A call's result code as the reports print it: the number, "--" for a call
// not made, "" for a method without a result code.
std::string resultText(const Outcome& outcome);

// One call as the JSON report gives it: its lookups always, as "reads".
Json callJson(const CallRecord& call, bool withLogs);
// A call's output as the text report shows it, without the method and the
// result: one line with an enum value's name, or the value's lines below
// each other; "not called: why" for a call that was not made; the calls the
// platform adapter received after it.
std::string callText(const CallRecord& call);

// One lookup in words: "android.sensor.sensitivity (0x000e0002) in the frame: int32[1]".
std::string readText(const kvhost::LookupRecord& read);
// What the lookups of a call that gave -1 or -2 show, in a clause
// ("android.sensor.sensitivity: not in the frame"); "" for other results.
std::string failureClause(const CallRecord& call);
// What makes a call's success empty ("crop 0x0: com.kovani.camera.
// sensorpolicy.cropregions: not in the frame"), from its output, lookups
// and log lines; "" for a failure or a usable output. runGetters stores it
// in CallRecord::empty.
std::string emptyClause(const CallRecord& call);

// One value on one line when it is short enough ("(480, 240) 240x300" for
// a rectangle), "" otherwise.
std::string inlineText(const Json& value);
// The same without braces around an object: "value 3, pattern BGGR".
std::string outerText(const Json& value);

}  // namespace inspect
