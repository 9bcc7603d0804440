// The session checks in the inspector (kvanalysis/Checks.h): the getters'
// results handed to them, and their findings as text and JSON.
#pragma once

#include <string>
#include <vector>

#include "Report.h"
#include "kvanalysis/Checks.h"

namespace inspect {

// A frame's calls as the checks read them: the outputs' fields flattened
// ("crop.width", "stages.shift.from"), the tags each call looked up, and
// what they found when the call failed.
std::vector<kvanalysis::GetterCall> checkCalls(const std::vector<CallRecord>& calls);

// A source that builds each frame it is asked for and runs `getters` on it.
kvanalysis::GetterSource getterSource(std::vector<const Getter*> getters);

// Findings grouped by check, each with its frames, values, criterion and
// anchors; then the checks that passed, those not decidable, and the -m
// line that would record a decidable session.
std::string checksText(const kvanalysis::Results& results);
// {"checks": [{"id", "status", "why"}], "findings": [{"check", "severity",
// "frames": [first, last], "message", "values"}]}
Json checksJson(const kvanalysis::Results& results);

// The checks of the table, one a line with their parameters, for --help.
std::string checksHelp();

}  // namespace inspect
