// The camera metadata dump reader on arbitrary text.
//
// Checks, for every input:
// - the reader either refuses the text with an InputError or gives blocks
//   numbered from 1, each entry's payload exactly its count of elements;
// - every warning names the file and a line;
// - a capture built from an accepted dump has whole payloads that the
//   library does not read past, and its report runs through every getter.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "Dump.h"
#include "DumpCapture.h"
#include "InspectCase.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    kvfuzz::InitProcess();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    kvhost::loader::Dump dump;
    try {
        dump = kvhost::loader::readDump(text, "f");
    } catch (const kvhost::loader::InputError&) {
        return 0;
    }
    for (size_t i = 0; i < dump.blocks.size(); ++i) {
        const kvhost::loader::DumpBlock& b = dump.blocks[i];
        KVFUZZ_CHECK(b.number == static_cast<int>(i) + 1, "block %zu numbered %d", i, b.number);
        for (const kvhost::loader::DumpEntry& e : b.entries) {
            KVFUZZ_CHECK(e.bytes.size() == e.count * kvhost::typeSize(e.type),
                         "line %zu: %zu bytes for %zu values", e.line, e.bytes.size(), e.count);
        }
    }
    for (const std::string& w : dump.warnings) {
        KVFUZZ_CHECK(w.rfind("f:", 0) == 0 && w.size() > 2 && w[2] >= '1' && w[2] <= '9',
                     "warning without its line: %s", w.c_str());
    }
    kvhost::DumpOptions options;
    options.input.emplace(1920, 1080);  // a dump need not hold an active array
    try {
        kvfuzz::RunCapture(kvhost::loader::captureFromDump(dump, options));
    } catch (const kvhost::loader::InputError&) {
    }
    return 0;
}
