// The session reader of metautils-inspect --frames on arbitrary text
// (sequence_reader_fuzzer): a tag monitor event log of any layout, or a log
// of frame metadata blocks.
//
// Checks, for every input:
// - the reader either refuses the text with an InputError naming the file,
//   or accepts it; every warning names the file and a line;
// - an accepted sequence has frameCount() frames, an event log's frame
//   numbers strictly ascending; each of the first kFrames frames loads (or
//   fails with an error naming the file) with a value slot for each recorded
//   tag, and every view of --frames renders from them: the table, the JSON
//   with and without log lines, the CSV (every row as wide as its header)
//   and the timelines' drawing.
#include <utility>

#include "Frames.h"
#include "FuzzSupport.h"
#include "JsonReader.h"
#include "Sequence.h"
#include "Svg.h"

namespace {

constexpr size_t kFrames = 50;  // per input, to keep a run fast

bool namesLine(const std::string& w) {
    return w.rfind("f:", 0) == 0 && w.size() > 2 && w[2] >= '1' && w[2] <= '9';
}

// The CSV's rows, each as its number of fields; quoted fields may hold
// commas and line ends.
std::vector<size_t> csvWidths(const std::string& csv) {
    std::vector<size_t> widths;
    size_t fields = 1;
    bool quoted = false;
    for (const char c : csv) {
        if (c == '"') {
            quoted = !quoted;
        } else if (!quoted && c == ',') {
            ++fields;
        } else if (!quoted && c == '\n') {
            widths.push_back(fields);
            fields = 1;
        }
    }
    return widths;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    kvfuzz::InitProcess();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    std::shared_ptr<const kvhost::Sequence::Data> read;
    try {
        read = kvhost::loader::readSequenceTexts({{"f", std::move(text)}}, {});
    } catch (const kvhost::loader::InputError& e) {
        KVFUZZ_CHECK(std::string(e.what()).rfind("f: ", 0) == 0, "error without the file: %s",
                     e.what());
        return 0;
    }
    for (const std::string& w : read->warnings) {
        KVFUZZ_CHECK(namesLine(w), "warning without its line: %s", w.c_str());
    }
    KVFUZZ_CHECK(read->parts.size() == 1 && read->frameCount == read->parts[0].frames.size(),
                 "%zu frames of %zu parts", read->frameCount, read->parts.size());
    const kvhost::loader::SequencePart& part = read->parts[0];
    for (size_t i = 1; !part.fromBlocks && i < part.frames.size(); ++i) {
        KVFUZZ_CHECK(part.frames[i - 1].number < part.frames[i].number,
                     "frame %zu numbered %lld after %lld", i,
                     static_cast<long long>(part.frames[i].number),
                     static_cast<long long>(part.frames[i - 1].number));
    }
    const kvhost::Sequence sequence(read);
    const std::vector<const inspect::Getter*> getters = inspect::defaultFrameGetters();
    const std::vector<kvhost::RecordedTag> recorded = sequence.recordedTags();
    std::vector<inspect::FrameCalls> frames;
    for (size_t i = 0; i < std::min(sequence.frameCount(), kFrames); ++i) {
        const kvhost::LoadResult frame = sequence.frame(i);
        if (!frame) {
            KVFUZZ_CHECK(frame.error.rfind("f: ", 0) == 0, "frame %zu: error without the file: %s",
                         i, frame.error.c_str());
            continue;
        }
        const kvhost::FrameInfo info = sequence.info(i);
        inspect::FrameCalls& f = frames.emplace_back();
        f.number = info.number;
        f.timestamp = info.timestamp;
        f.calls = inspect::runGetters(*frame.capture, getters);
        f.recorded = inspect::recordedValues(sequence, i, *frame.capture, recorded);
        f.fromBlocks = inspect::tagsFromBlocks(f.calls, recorded);
        KVFUZZ_CHECK(f.recorded.size() == recorded.size(), "%zu recorded values of %zu tags",
                     f.recorded.size(), recorded.size());
    }
    KVFUZZ_CHECK(!inspect::framesTable(frames).empty(), "no table");
    for (const bool logs : {false, true}) {
        KVFUZZ_CHECK(!kvhost::loader::jsonText(inspect::framesJson(frames, logs), 2).empty(),
                     "no JSON");
    }
    const std::string csv = inspect::framesCsv(frames);
    const std::vector<size_t> widths = csvWidths(csv);
    KVFUZZ_CHECK(widths.size() == frames.size() + 1, "%zu CSV rows for %zu frames", widths.size(),
                 frames.size());
    for (size_t w : widths) {
        KVFUZZ_CHECK(w == widths[0], "a CSV row of %zu fields under a header of %zu:\n%s", w,
                     widths[0], csv.c_str());
    }
    const std::string svg = inspect::drawTimelines(frames, "f");
    KVFUZZ_CHECK(svg.size() > 7 && svg.compare(svg.size() - 7, 7, "</svg>\n") == 0,
                 "a drawing that does not end: %s", svg.substr(0, 200).c_str());
    return 0;
}
