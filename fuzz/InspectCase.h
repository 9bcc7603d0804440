// What the readers of metautils-inspect must hold for any file: a capture
// they accept has whole payloads that no getter reads past, and the report
// of it runs through every getter. Shared by the dump and capture
// description targets.
#pragma once

#include "Capture.h"
#include "FuzzSupport.h"
#include "Report.h"
#include "TagPayload.h"

namespace kvfuzz {

inline void CheckPayloads(const std::vector<kvhost::loader::TagPayload>& tags) {
    for (const kvhost::loader::TagPayload& p : tags) {
        KVFUZZ_CHECK(p.info != nullptr, "a payload without its tag");
        KVFUZZ_CHECK(p.bytes.size() == p.count * kvhost::typeSize(p.info->type),
                     "%s: %zu bytes for %zu values", p.info->name.c_str(), p.bytes.size(), p.count);
        KVFUZZ_CHECK(kvhost::loader::lengthProblem(p).empty(), "%s: %s", p.info->name.c_str(),
                     kvhost::loader::lengthProblem(p).c_str());
    }
}

// Checks an accepted capture and runs the report on it, under the sanitizers.
inline void RunCapture(kvhost::loader::Capture&& read) {
    CheckPayloads(read.frame);
    for (const auto& item : read.statics) CheckPayloads(item.second);
    const kvhost::Capture capture = kvhost::loader::install(std::move(read));
    const std::vector<inspect::CallRecord> calls = inspect::runGetters(capture);
    KVFUZZ_CHECK(!calls.empty(), "no getter ran");
    KVFUZZ_CHECK(!inspect::textReport(capture, calls, true).empty(), "empty report");
}

}  // namespace kvfuzz
