// The capture description reader on arbitrary text.
//
// Checks, for every input: the reader either refuses the text with an
// InputError naming the file, or gives a capture whose payloads are whole
// and not read past by the library, and whose report runs through every
// getter.
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

#include "Capture.h"
#include "InspectCase.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    kvfuzz::InitProcess();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    kvhost::loader::Capture capture;
    try {
        capture = kvhost::loader::parseCapture(text, "f");
    } catch (const kvhost::loader::InputError& e) {
        KVFUZZ_CHECK(std::string(e.what()).rfind("f: ", 0) == 0, "error without the file: %s",
                     e.what());
        return 0;
    }
    kvfuzz::RunCapture(std::move(capture));
    return 0;
}
