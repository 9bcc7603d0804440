// The readers of metautils-inspect on arbitrary text: the device dump reader
// and the capture description reader (built with KVFUZZ_CAPTURE), each as a
// reader-only target (dump_reader, capture_reader: thousands of inputs a
// second) and a rendering one (dump_render, capture_render, built with
// KVFUZZ_RENDER: every output of the tool on each accepted input).
//
// Checks, for every input:
// - the reader either refuses the text with an InputError (naming the file,
//   for a capture description) or accepts it;
// - a dump has blocks numbered from 1, each entry's payload exactly its
//   count of elements, and every warning names the file and a line;
// - a capture built from an accepted text has whole payloads that the
//   library does not read past; a dump's capture saved as a description
//   reads back and saves as the same text.
// Rendering, besides: every output of metautils-inspect renders from the
// capture: the text report with and without log lines, the JSON report, the
// drawing, and for a dump the block list; the saved capture read back gives
// the same JSON report but for the file's name.
#include <utility>

#include "Capture.h"
#include "Dump.h"
#include "DumpCapture.h"
#include "FuzzSupport.h"
#include "JsonReader.h"
#include "Report.h"
#include "Svg.h"
#include "TagPayload.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    kvfuzz::InitProcess();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    kvhost::loader::Capture read;
#if !defined(KVFUZZ_CAPTURE)
    kvhost::loader::Dump dump;
#endif
    try {
#if defined(KVFUZZ_CAPTURE)
        read = kvhost::loader::parseCapture(text, "f");
#else
        dump = kvhost::loader::readDump(text, "f");
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
#if !defined(KVFUZZ_CAPTURE)
    const std::string saved = kvhost::loader::captureText(read);
    kvhost::loader::Capture again;
    try {
        again = kvhost::loader::parseCapture(saved, "saved");
    } catch (const kvhost::loader::InputError& e) {
        KVFUZZ_CHECK(false, "the saved capture does not read back: %s\n%s", e.what(),
                     saved.c_str());
    }
    const std::string resaved = kvhost::loader::captureText(again);
    KVFUZZ_CHECK(resaved == saved, "the saved capture saves otherwise:\n%s\n%s", saved.c_str(),
                 resaved.c_str());
#endif
#if defined(KVFUZZ_RENDER)
    const kvhost::Capture capture = kvhost::loader::install(std::move(read));
    const std::vector<inspect::CallRecord> calls = inspect::runGetters(capture);
    KVFUZZ_CHECK(!calls.empty() && !inspect::textReport(capture, calls, true, true).empty() &&
                     !inspect::textReport(capture, calls, false).empty(),
                 "%zu getters ran, or an empty report", calls.size());
    inspect::Json report = inspect::jsonReport(capture, calls, false);
    KVFUZZ_CHECK(!kvhost::loader::jsonText(inspect::jsonReport(capture, calls, true), 2).empty(),
                 "no JSON report");
    const std::string svg = inspect::drawGeometry(capture, calls);
    KVFUZZ_CHECK(svg.size() > 7 && svg.compare(svg.size() - 7, 7, "</svg>\n") == 0,
                 "a drawing that does not end: %s", svg.substr(0, 200).c_str());
#if !defined(KVFUZZ_CAPTURE)
    KVFUZZ_CHECK(!kvhost::loader::listBlocks(dump).empty(), "no block list");
    const kvhost::Capture reloaded = kvhost::loader::install(std::move(again));
    inspect::Json second = inspect::jsonReport(reloaded, inspect::runGetters(reloaded), false);
    // The file's name differs; the calls to the platform adapter that the
    // library makes once per process (the role ids) only in the first run.
    for (inspect::Json* r : {&report, &second}) {
        r->erase("capture");
        for (inspect::Json& call : (*r)["calls"]) call.erase("adapter");
    }
    // As text: NaN is not equal to itself, its JSON text is. The message
    // shows the first call that differs, else the whole reports.
    std::string a = kvhost::loader::jsonText(report), b = kvhost::loader::jsonText(second);
    const bool same = a == b;
    for (size_t i = 0; !same && i < report["calls"].size(); ++i) {
        if (report["calls"][i] != second["calls"][i]) {
            a = kvhost::loader::jsonText(report["calls"][i]);
            b = kvhost::loader::jsonText(second["calls"][i]);
            break;
        }
    }
    KVFUZZ_CHECK(same, "the saved capture reports otherwise:\n%s\n%s", a.c_str(), b.c_str());
#endif
#endif  // KVFUZZ_RENDER
    return 0;
}
