// The session reader of metautils-inspect --frames on arbitrary text: a tag
// monitor event log of any layout, or a log of frame metadata blocks. Two
// targets: sequence_reader, the reader alone (thousands of inputs a
// second), and sequence_render (KVFUZZ_RENDER), every view of --frames.
//
// Checks, for every input:
// - the reader either refuses the text with an InputError naming the file,
//   or accepts it; every warning names the file and a line;
// - an accepted sequence has frameCount() frames, an event log's frame
//   numbers strictly ascending; every frame's tags are whole payloads,
//   each tag once, and a recorded tag changes only on frames that have its
//   event. Rendering loads each frame with a value slot for each recorded
//   tag.
// Rendering, besides: each of the first kFrames frames loads (or fails with
// an error naming the file) and every view of --frames renders from them:
// the table, the JSON with and without log lines, the CSV (every row as wide
// as its header) and the timelines' drawing; every session check and a set
// of rules (tags, elements, enum names, the frame before, differences,
// getter outputs) run over the sequence, with the getters' results of those
// frames: each check gets a status, a check that is not decidable says why,
// and every finding's frames lie in the sequence, first before last.
#include <optional>
#include <set>
#include <utility>

#include "Frames.h"
#include "FuzzSupport.h"
#include "JsonReader.h"
#include "Sequence.h"
#include "SessionChecks.h"
#include "Svg.h"
#include "TagPayload.h"

namespace {

bool namesLine(const std::string& w) {
    return w.rfind("f:", 0) == 0 && w.size() > 2 && w[2] >= '1' && w[2] <= '9';
}

#if defined(KVFUZZ_RENDER)
constexpr size_t kFrames = 50;  // rendered per input, to keep a run fast

constexpr const char* kRules =
    "zoom-jump warning: abs(delta.android.control.zoomRatio) > 0.5\n"
    "crop error: android.scaler.cropRegion.2 < prev.android.scaler.cropRegion.2 / 2\n"
    "scan info: android.control.afState == android.control.afState.PASSIVE_SCAN\n"
    "final warning: GetFinalCropRegion.crop.width > 0 && GetFinalCropRegion.result != 0\n"
    "late error: frame - prev.frame > 3 || timestamp < prev.timestamp\n";

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
#endif

// The bytes of tag `id` among `tags`, with its count; nothing when absent.
std::optional<std::pair<size_t, std::vector<uint8_t>>> valueOf(
    const std::vector<kvhost::loader::TagPayload>& tags, uint32_t id) {
    for (const kvhost::loader::TagPayload& p : tags) {
        if (p.info->id == id) return std::make_pair(p.count, p.bytes);
    }
    return std::nullopt;
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
        read = kvhost::loader::readSequenceTexts({{"f", std::move(text), ""}}, {});
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
    // Every frame's tags: whole payloads, each tag once; a recorded tag's
    // value changes only on a frame that has its event.
    const std::vector<kvhost::RecordedTag> recorded = sequence.recordedTags();
    std::vector<kvhost::loader::TagPayload> previous;
    for (size_t i = 0; i < part.frames.size(); ++i) {
        std::vector<kvhost::loader::TagPayload> tags = kvhost::loader::frameTags(part, i);
        std::set<uint32_t> seen;
        for (const kvhost::loader::TagPayload& p : tags) {
            KVFUZZ_CHECK(p.bytes.size() == p.count * kvhost::typeSize(p.info->type) &&
                             kvhost::loader::lengthProblem(p).empty(),
                         "frame %zu: %s: %zu bytes for %zu values", i, p.info->name.c_str(),
                         p.bytes.size(), p.count);
            KVFUZZ_CHECK(seen.insert(p.info->id).second, "frame %zu: %s twice", i,
                         p.info->name.c_str());
        }
        for (size_t t = 0; i > 0 && !part.fromBlocks && t < recorded.size(); ++t) {
            const uint32_t id = recorded[t].id;
            KVFUZZ_CHECK(sequence.changed(i, id) || valueOf(tags, id) == valueOf(previous, id),
                         "frame %zu: %s changed without an event", i, recorded[t].name.c_str());
        }
        previous = std::move(tags);
    }
#if defined(KVFUZZ_RENDER)
    const std::vector<const inspect::Getter*> getters = inspect::defaultFrameGetters();
    std::vector<inspect::FrameCalls> frames;
    // Each frame also built from the one before, which must give the same.
    inspect::FrameBuilder builder(sequence, getters);
    // The report's frames as the program writes them, from the frames built
    // one from the other, each call's text made once while it stands.
    inspect::JsonFrameWriter writer(true, true, true);
    std::string written;
    for (size_t i = 0; i < std::min(sequence.frameCount(), kFrames); ++i) {
        std::string error;
        const inspect::FrameCalls* fast = builder.frame(i, &error);
        const kvhost::LoadResult frame = sequence.frame(i);
        KVFUZZ_CHECK((fast != nullptr) == bool(frame), "frame %zu: built from the one before: %s",
                     i, error.c_str());
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
        const std::string wholeJson = kvhost::loader::jsonText(inspect::frameJson(f, true, true));
        KVFUZZ_CHECK(kvhost::loader::jsonText(inspect::frameJson(*fast, true, true)) == wholeJson,
                     "frame %zu built from the one before differs from the frame built whole", i);
        writer.write(*fast, frames.size() == 1, written);
    }
    KVFUZZ_CHECK(!inspect::framesTable(frames).empty(), "no table");
    for (const bool logs : {false, true}) {
        KVFUZZ_CHECK(!kvhost::loader::jsonText(inspect::framesJson(frames, logs), 2).empty(),
                     "no JSON");
    }
    // The report written a frame at a time is the whole report's text; a
    // frame's JSONL line is one line.
    std::string streamed = inspect::jsonReportOpening(inspect::Json::object());
    for (size_t i = 0; i < frames.size(); ++i) {
        const inspect::Json frame = inspect::frameJson(frames[i], true, true);
        streamed += inspect::jsonReportFrame(frame, i == 0);
        KVFUZZ_CHECK(kvhost::loader::jsonText(frame).find('\n') == std::string::npos,
                     "frame %zu's JSONL line breaks", i);
    }
    const inspect::Json lists{{"notes", inspect::Json::array()},
                              {"warnings", inspect::Json::array()}};
    streamed += inspect::jsonReportClosing(lists, !frames.empty());
    KVFUZZ_CHECK(inspect::jsonReportOpening(inspect::Json::object()) + written +
                         inspect::jsonReportClosing(lists, !frames.empty()) ==
                     streamed,
                 "the report as the program writes it differs from its frames printed:\n%s",
                 written.c_str());
    // The stream writes the frames first, as they are made.
    const inspect::Json whole = inspect::framesJson(frames, true);
    const inspect::Json inOrder{
        {"frames", whole["frames"]}, {"notes", whole["notes"]}, {"warnings", whole["warnings"]}};
    KVFUZZ_CHECK(streamed == kvhost::loader::jsonText(inOrder, 2) + "\n",
                 "the streamed JSON report differs from the whole one:\n%s", streamed.c_str());
    const std::string csv = inspect::framesCsv(frames);
    const std::vector<size_t> widths = csvWidths(csv);
    KVFUZZ_CHECK(widths.size() == frames.size() + 1, "%zu CSV rows for %zu frames", widths.size(),
                 frames.size());
    for (size_t w : widths) {
        KVFUZZ_CHECK(w == widths[0], "a CSV row of %zu fields under a header of %zu:\n%s", w,
                     widths[0], csv.c_str());
    }
    std::string error;
    kvanalysis::CheckOptions options;
    options.rules = kvanalysis::parseRules(kRules, "fuzz.rules", &error);
    KVFUZZ_CHECK(error.empty(), "the fuzzer's rules: %s", error.c_str());
    for (const inspect::Getter& g : inspect::getterTable()) options.getterNames.push_back(g.method);
    std::vector<std::vector<kvanalysis::GetterCall>> calls;
    for (const inspect::FrameCalls& f : frames) calls.push_back(inspect::checkCalls(f.calls));
    options.getters = [&calls](const kvhost::Sequence&, size_t i) {
        return i < calls.size() ? calls[i] : std::vector<kvanalysis::GetterCall>{};
    };
    const kvanalysis::Results results = kvanalysis::runChecks(sequence, options, &error);
    KVFUZZ_CHECK(error.empty(), "the checks refused a session: %s", error.c_str());
    KVFUZZ_CHECK(results.checks.size() == kvanalysis::checkTable().size() + 5, "%zu checks",
                 results.checks.size());
    for (const kvanalysis::CheckResult& c : results.checks) {
        KVFUZZ_CHECK(c.status != kvanalysis::Status::NotDecidable || !c.why.empty(),
                     "%s not decidable without a reason", c.id.c_str());
    }
    for (const kvanalysis::Finding& f : results.findings) {
        KVFUZZ_CHECK(f.first <= f.last && f.last < sequence.frameCount(),
                     "%s: frames %zu..%zu of %zu", f.check.c_str(), f.first, f.last,
                     sequence.frameCount());
    }
    KVFUZZ_CHECK(!inspect::checksText(results).empty(), "no check report");
    const std::string svg = inspect::drawTimelines(frames, "f");
    KVFUZZ_CHECK(svg.size() > 7 && svg.compare(svg.size() - 7, 7, "</svg>\n") == 0,
                 "a drawing that does not end: %s", svg.substr(0, 200).c_str());
#endif  // KVFUZZ_RENDER
    return 0;
}
