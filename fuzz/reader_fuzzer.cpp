// The readers of metautils-inspect on arbitrary text: the device dump reader
// (dump_reader_fuzzer) and the capture description reader
// (capture_reader_fuzzer, built with KVFUZZ_CAPTURE).
//
// Checks, for every input:
// - the reader either refuses the text with an InputError (naming the file,
//   for a capture description) or accepts it;
// - a dump has blocks numbered from 1, each entry's payload exactly its
//   count of elements, and every warning names the file and a line;
// - a capture built from an accepted text has whole payloads that the
//   library does not read past, and its report runs through every getter.
#include <utility>

#include "Capture.h"
#include "Dump.h"
#include "DumpCapture.h"
#include "FuzzSupport.h"
#include "Report.h"
#include "TagPayload.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    kvfuzz::InitProcess();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    kvhost::loader::Capture read;
    try {
#if defined(KVFUZZ_CAPTURE)
        read = kvhost::loader::parseCapture(text, "f");
#else
        const kvhost::loader::Dump dump = kvhost::loader::readDump(text, "f");
        for (size_t i = 0; i < dump.blocks.size(); ++i) {
            KVFUZZ_CHECK(dump.blocks[i].number == int(i) + 1, "block %zu numbered otherwise", i);
            for (const kvhost::loader::DumpEntry& e : dump.blocks[i].entries)
                KVFUZZ_CHECK(e.bytes.size() == e.count * kvhost::typeSize(e.type),
                             "line %zu: %zu bytes for %zu values", e.line, e.bytes.size(), e.count);
        }
        for (const std::string& w : dump.warnings) {
            KVFUZZ_CHECK(w.rfind("f:", 0) == 0 && w.size() > 2 && w[2] >= '1' && w[2] <= '9',
                         "warning without its line: %s", w.c_str());
        }
        kvhost::DumpOptions options;
        options.input.emplace(1920, 1080);  // a dump need not hold an active array
        read = kvhost::loader::captureFromDump(dump, options);
#endif
    } catch (const kvhost::loader::InputError& e) {
#if defined(KVFUZZ_CAPTURE)
        KVFUZZ_CHECK(std::string(e.what()).rfind("f: ", 0) == 0, "error without the file: %s",
                     e.what());
#endif
        return 0;
    }
    // An accepted capture: whole payloads, and the report under the sanitizers.
    std::vector<kvhost::loader::TagPayload> tags = read.frame;
    for (const auto& item : read.statics)
        tags.insert(tags.end(), item.second.begin(), item.second.end());
    for (const kvhost::loader::TagPayload& p : tags) {
        const std::string problem = kvhost::loader::lengthProblem(p);
        KVFUZZ_CHECK(
            p.info != nullptr && p.bytes.size() == p.count * kvhost::typeSize(p.info->type) &&
                problem.empty(),
            "a payload of %zu bytes for %zu values: %s", p.bytes.size(), p.count, problem.c_str());
    }
    const kvhost::Capture capture = kvhost::loader::install(std::move(read));
    const std::vector<inspect::CallRecord> calls = inspect::runGetters(capture);
    KVFUZZ_CHECK(!calls.empty() && !inspect::textReport(capture, calls, true).empty(),
                 "%zu getters ran, or an empty report", calls.size());
    return 0;
}
