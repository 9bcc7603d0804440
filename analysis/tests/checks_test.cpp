// The built-in checks on sessions where each must fire and where it must
// not, every session in the three layouts phones print; checks whose tags
// are missing are not decidable and say what to record; the bundled
// sessions read as they should.
#include "kvanalysis/Checks.h"

#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "LoaderTestSupport.h"
#include "SessionText.h"

namespace kvanalysis {
namespace {

using testing::add;
using testing::clock;
using testing::Event;
using testing::Layout;
using testing::repeat;
using testing::operator+;
using V = std::vector<std::vector<std::string>>;

constexpr const char* kAeState = "android.control.aeState";
constexpr const char* kAfState = "android.control.afState";
constexpr const char* kAfMode = "android.control.afMode";
constexpr const char* kAfTrigger = "android.control.afTrigger";
constexpr const char* kZoom = "android.control.zoomRatio";
constexpr const char* kCrop = "android.scaler.cropRegion";

// A float as Android prints it.
std::string f8(double v) {
    char out[32];
    std::snprintf(out, sizeof out, "%.8f", v);
    return out;
}

// A zoom of `steps` request steps from `from` to `to`, one a frame from
// frame 10, the result `lag` frames behind; the result's crop that of the
// zoom `cropLag` frames before. The log runs on to frame 60.
std::vector<Event> zoomSession(int lag, int cropLag) {
    std::vector<Event> e;
    V req, res, crop;
    const auto zoomAt = [](int k) { return 1.0 + 0.1 * std::min(std::max(k, 0), 10); };
    for (int k = 0; k <= 50; ++k) {
        req.push_back({f8(zoomAt(k))});
        res.push_back({f8(zoomAt(k - lag))});
        const double z = zoomAt(k - lag - cropLag);
        const int w = static_cast<int>(4000 / z), h = static_cast<int>(3000 / z);
        crop.push_back({std::to_string((4000 - w) / 2), std::to_string((3000 - h) / 2),
                        std::to_string(w), std::to_string(h)});
    }
    add(e, kZoom, false, 10, req);
    add(e, kZoom, true, 10, res);
    add(e, kCrop, true, 10, crop);
    clock(e, 10, 60);
    return e;
}

// Continuous AF: a scan every `every` frames from frame 10 to frame 80.
std::vector<Event> afScans(int every) {
    std::vector<Event> e;
    add(e, kAfMode, false, 10, {{"CONTINUOUS_PICTURE"}});
    V states;
    for (int k = 0; k <= 70; ++k) {
        states.push_back({k % every < 2 && k > 0 ? "PASSIVE_SCAN" : "PASSIVE_FOCUSED"});
    }
    add(e, kAfState, true, 10, states);
    return e;
}

// An AF trigger at frame 10, locked at 20, `then` from frame 30 to 60.
std::vector<Event> afTrigger(const std::string& then, bool cancel) {
    std::vector<Event> e;
    add(e, kAfMode, false, 10, {{"AUTO"}});
    add(e, kAfTrigger, false, 10, V{{"START"}, {"IDLE"}});
    if (cancel) add(e, kAfTrigger, false, 29, V{{"CANCEL"}, {"IDLE"}});
    add(e, kAfState, true, 10,
        repeat({"ACTIVE_SCAN"}, 10) + repeat({"FOCUSED_LOCKED"}, 20) + repeat({then}, 31));
    clock(e, 10, 60);
    return e;
}

std::vector<Event> aeSearch(size_t frames) {
    std::vector<Event> e;
    add(e, kAeState, true, 10, repeat({"SEARCHING"}, frames) + repeat({"CONVERGED"}, 150 - frames));
    clock(e, 10, 160);
    return e;
}

std::vector<Event> precapture(const V& after) {
    std::vector<Event> e;
    add(e, "android.control.aePrecaptureTrigger", false, 10, V{{"START"}, {"IDLE"}});
    add(e, kAeState, true, 10, repeat({"CONVERGED"}, 1) + repeat({"PRECAPTURE"}, 9) + after);
    clock(e, 10, 60);
    return e;
}

std::vector<Event> aeLocked(bool exposureMoves) {
    std::vector<Event> e;
    add(e, "android.control.aeLock", true, 10, repeat({"OFF"}, 5) + repeat({"ON"}, 45));
    add(e, kAeState, true, 10, repeat({"CONVERGED"}, 6) + repeat({"LOCKED"}, 44));
    add(e, "android.sensor.exposureTime", true, 10,
        repeat({"20000000"}, 30) + repeat({exposureMoves ? "25000000" : "20000000"}, 20));
    clock(e, 10, 60);
    return e;
}

std::vector<Event> exposureSwings(bool swing) {
    std::vector<Event> e;
    V sensitivity;
    for (int k = 0; k < 40; ++k) {
        sensitivity.push_back({std::to_string(swing ? (k / 3 % 2 ? 200 : 100) : 100 + 10 * k)});
    }
    add(e, "android.sensor.sensitivity", true, 10, sensitivity);
    add(e, "android.sensor.exposureTime", true, 10, {{"20000000"}});
    return e;
}

std::vector<Event> singleFlash(const std::string& state) {
    std::vector<Event> e;
    add(e, "android.flash.mode", false, 10, V{{"OFF"}, {"SINGLE"}, {"OFF"}});
    add(e, "android.flash.state", true, 10,
        repeat({"READY"}, 1) + repeat({state}, 1) + repeat({"READY"}, 20));
    clock(e, 10, 40);
    return e;
}

// Frames 10 to 50, every one in the log.
std::vector<Event> frames() {
    std::vector<Event> e;
    clock(e, 10, 50);
    return e;
}

struct Case {
    const char* name;
    const char* check;
    std::function<std::vector<Event>()> events;
    Status status;
    int64_t first = 0;  // the first finding's frames, when it fails
    int64_t last = 0;
    bool watch = true;   // also in the watch layout (no static metadata)
    int64_t dropAt = 0;  // a frame dropped before this one
};

// Frame i's calls of a scripted getter source.
GetterSource scripted(std::function<GetterCall(size_t)> call) {
    return [call](const kvhost::Sequence&, size_t i) { return std::vector<GetterCall>{call(i)}; };
}

class Fires : public ::testing::TestWithParam<std::tuple<Case, Layout>> {};

TEST_P(Fires, WhereItMustAndOnlyThere) {
    const auto& [c, layout] = GetParam();
    if (layout == Layout::Watch && !c.watch) GTEST_SKIP() << "needs static metadata";
    const kvhost::loader::ScratchFile file(std::string(c.name) + testing::layoutName(layout),
                                           testing::sessionText(layout, c.events(), c.dropAt));
    kvhost::SequenceOptions o;
    o.input.emplace(640, 480);
    const kvhost::SequenceResult s = kvhost::loadSequence({file.path}, o);
    ASSERT_TRUE(s) << s.error;
    ASSERT_TRUE(s.warnings.empty()) << s.warnings[0];
    CheckOptions options;
    options.checks = {c.check};
    std::string error;
    const Results r = runChecks(*s.sequence, options, &error);
    ASSERT_EQ(error, "");
    ASSERT_EQ(r.checks.size(), 1u);
    EXPECT_EQ(statusName(r.checks[0].status), std::string(statusName(c.status))) << r.checks[0].why;
    if (c.status == Status::Failed) {
        ASSERT_FALSE(r.findings.empty());
        EXPECT_EQ(r.findings[0].check, c.check);
        EXPECT_EQ(r.findings[0].firstNumber, c.first) << r.findings[0].message;
        EXPECT_EQ(r.findings[0].lastNumber, c.last) << r.findings[0].message;
    } else {
        EXPECT_TRUE(r.findings.empty()) << r.findings[0].message;
    }
}

const Case kCases[] = {
    {"Searching120", "ae-converge", [] { return aeSearch(120); }, Status::Failed, 10, 129},
    {"Searching30", "ae-converge", [] { return aeSearch(30); }, Status::Passed},
    {"PrecaptureToSearching", "ae-precapture", [] { return precapture(repeat({"SEARCHING"}, 30)); },
     Status::Failed, 10, 20},
    {"PrecaptureAgain", "ae-precapture",
     [] { return precapture(repeat({"CONVERGED"}, 5) + repeat({"PRECAPTURE"}, 30)); },
     Status::Failed, 20, 25},
    {"PrecaptureCompletes", "ae-precapture",
     [] { return precapture(repeat({"FLASH_REQUIRED"}, 30)); }, Status::Passed},
    {"ExposureMovesWhileLocked", "ae-lock", [] { return aeLocked(true); }, Status::Failed, 40, 40},
    {"ExposureHoldsWhileLocked", "ae-lock", [] { return aeLocked(false); }, Status::Passed},
    {"ExposureSwings", "ae-oscillation", [] { return exposureSwings(true); }, Status::Failed, 16,
     49},
    {"ExposureRamps", "ae-oscillation", [] { return exposureSwings(false); }, Status::Passed},
    {"AfLockLost", "af-sequence", [] { return afTrigger("PASSIVE_SCAN", false); }, Status::Failed,
     20, 40},
    {"AfLockCancelled", "af-sequence", [] { return afTrigger("INACTIVE", true); }, Status::Passed},
    {"AfHunts", "af-hunting", [] { return afScans(8); }, Status::Failed, 11, 74},
    {"AfScansNowAndThen", "af-hunting", [] { return afScans(30); }, Status::Passed},
    {"ResultIgnoresRequest", "zoom", [] { return zoomSession(20, 0); }, Status::Failed, 19, 38},
    {"CropLagsZoom", "zoom", [] { return zoomSession(1, 3); }, Status::Failed, 15, 22, false},
    {"ZoomFollows", "zoom", [] { return zoomSession(1, 0); }, Status::Passed},
    {"SingleFlashNotFired", "flash", [] { return singleFlash("READY"); }, Status::Failed, 11, 11},
    {"SingleFlashFired", "flash", [] { return singleFlash("FIRED"); }, Status::Passed},
    {"FrameDropped", "timestamps", frames, Status::Failed, 29, 30, true, 30},
    {"EveryFrame", "timestamps", frames, Status::Passed},
    // Nothing to judge, or the tags missing: never a pass.
    {"NoTrigger", "af-sequence", [] { return afScans(30); }, Status::NotDecidable},
    {"NoAeState", "ae-converge", [] { return afScans(30); }, Status::NotDecidable},
};

INSTANTIATE_TEST_SUITE_P(Layouts, Fires,
                         ::testing::Combine(::testing::ValuesIn(kCases),
                                            ::testing::Values(Layout::Dumpsys11, Layout::Dumpsys13,
                                                              Layout::Watch)),
                         [](const auto& info) {
                             return std::string(std::get<0>(info.param).name) +
                                    testing::layoutName(std::get<1>(info.param));
                         });

// The checks on getters read what a source gives; a session without one
// leaves them not decidable.
struct GetterCase {
    const char* name;
    const char* check;
    std::function<GetterCall(size_t)> call;
    Status status;
    int64_t first = 0, last = 0;
};

GetterCall finalCrop(double left, const char* from) {
    GetterCall c;
    c.getter = "GetFinalCropRegion";
    c.result = 0;
    c.numbers = {
        {"crop.left", left}, {"crop.top", 750}, {"crop.width", 2000}, {"crop.height", 1500}};
    c.words = {{"stages.shift.from", from}};
    c.reads = {kZoom, "com.kovani.camera.sensorpolicy.cropregions", "android.sensor.sensitivity"};
    return c;
}

class OnGetters : public ::testing::TestWithParam<GetterCase> {};

TEST_P(OnGetters, FireWhereTheResultsMove) {
    const GetterCase& c = GetParam();
    std::vector<Event> e;
    add(e, kZoom, true, 10, repeat({f8(2.0)}, 30));
    add(e, "android.sensor.sensitivity", true, 10,
        V{{"100"},
          {"200"},
          {"100"},
          {"200"},
          {"100"},
          {"200"},
          {"100"},
          {"200"},
          {"100"},
          {"200"}});
    add(e, "com.kovani.camera.sensorpolicy.cropregions", true, 10,
        {{"0", "0", "0", "0", "0", "1000", "750", "2000", "1500"}});
    const kvhost::loader::ScratchFile file(c.name, testing::sessionText(Layout::Dumpsys11, e));
    const kvhost::SequenceResult s = kvhost::loadSequence({file.path});
    ASSERT_TRUE(s) << s.error;
    CheckOptions options;
    options.checks = {c.check};
    options.getters = scripted(c.call);
    std::string error;
    const Results r = runChecks(*s.sequence, options, &error);
    ASSERT_EQ(r.checks.size(), 1u) << error;
    EXPECT_EQ(statusName(r.checks[0].status), std::string(statusName(c.status))) << r.checks[0].why;
    if (c.status == Status::Failed) {
        ASSERT_FALSE(r.findings.empty());
        EXPECT_EQ(r.findings[0].firstNumber, c.first) << r.findings[0].message;
        EXPECT_EQ(r.findings[0].lastNumber, c.last) << r.findings[0].message;
    }
    options.getters = nullptr;
    EXPECT_EQ(runChecks(*s.sequence, options, &error).checks[0].status, Status::NotDecidable);
}

INSTANTIATE_TEST_SUITE_P(
    Getters, OnGetters,
    ::testing::Values(
        GetterCase{"CropJumps", "final-crop",
                   [](size_t i) { return finalCrop(i == 5 ? 1400 : 1000, "platform"); },
                   Status::Failed, 14, 15},
        GetterCase{"CropSteady", "final-crop", [](size_t) { return finalCrop(1000, "platform"); },
                   Status::Passed},
        GetterCase{"GetterFlaps", "getter-flaps",
                   [](size_t i) {
                       GetterCall c;
                       c.getter = "GetSensitivity";
                       c.result = i >= 3 && i <= 4 ? -2 : 0;
                       c.reads = {"android.sensor.sensitivity"};
                       return c;
                   },
                   Status::Failed, 13, 14},
        GetterCase{"GetterSteady", "getter-flaps",
                   [](size_t) {
                       GetterCall c;
                       c.getter = "GetSensitivity";
                       c.result = -2;
                       return c;
                   },
                   Status::Passed}),
    [](const auto& info) { return std::string(info.param.name); });

// A check without its tags names them, and the session to record next
// time holds them beside those it recorded.
// A call equal to the same getter's call on the frame before is held once;
// any field that differs makes a call of its own; copies read as added.
TEST(CallTimeline, HoldsACallOnceWhileItStands) {
    GetterCall zoom{"GetAndroidZoomRatio", 0, {{"", 2.0}}, {}, {"android.control.zoomRatio"}, ""};
    GetterCall crop{"GetFinalCropRegion",   0,  {{"crop.width", 4000}},
                    {{"from", "metadata"}}, {}, ""};
    CallTimeline t;
    t.add({zoom, crop});
    t.add({zoom, crop});
    for (const auto& change : std::vector<std::function<void(GetterCall&)>>{
             [](GetterCall& c) { c.result = -2; },
             [](GetterCall& c) { c.numbers["crop.width"] = 3999; },
             [](GetterCall& c) { c.words["from"] = "platform"; },
             [](GetterCall& c) { c.reads.push_back("kovani.sat.output.shift"); },
             [](GetterCall& c) { c.found = "not in the frame"; }}) {
        GetterCall changed = crop;
        change(changed);
        EXPECT_NE(changed, crop);
        t.add({zoom, changed});
        const size_t k = t.size() - 1;
        EXPECT_EQ(t.at(k)[0], t.at(0)[0]);  // the zoom call stands: one object
        EXPECT_NE(t.at(k)[1], t.at(k - 1)[1]);
        EXPECT_EQ(t.copyAt(k), (std::vector<GetterCall>{zoom, changed}));
        t.add({zoom, crop});  // back: a call of its own again
    }
    EXPECT_EQ(t.at(1)[1], t.at(0)[1]);
    t.repeat();  // a frame whose getters none ran again: the same objects
    EXPECT_EQ(t.at(t.size() - 1), t.at(t.size() - 2));
    EXPECT_TRUE(t.at(t.size()).empty());
}

TEST(NotDecidable, NamesTheTagsToRecord) {
    const kvhost::loader::ScratchFile file("af-only",
                                           testing::sessionText(Layout::Watch, afScans(30)));
    kvhost::SequenceOptions o;
    o.input.emplace(640, 480);
    const kvhost::SequenceResult s = kvhost::loadSequence({file.path}, o);
    ASSERT_TRUE(s) << s.error;
    std::string error;
    const Results r = runChecks(*s.sequence, {}, &error);
    ASSERT_EQ(error, "");
    ASSERT_EQ(r.checks.size(), checkTable().size());
    for (const CheckResult& c : r.checks) {
        if (c.id == "ae-precapture") {
            EXPECT_EQ(c.missing,
                      (std::vector<std::string>{kAeState, "android.control.aePrecaptureTrigger"}));
            EXPECT_NE(c.why.find("add to -m"), std::string::npos);
        }
        if (c.status == Status::Passed) {
            EXPECT_TRUE(c.id == "af-hunting" || c.id == "timestamps") << c.id;
        }
    }
    const std::string m = monitorCommand(r);
    EXPECT_EQ(m.rfind("adb shell dumpsys media.camera -m ", 0), 0u) << m;
    for (const char* t : {kAfMode, kAfState, kAeState, kZoom}) {
        EXPECT_NE(m.find(t), std::string::npos) << t;
    }
}

TEST(BadOptions, AreOneLineNamingThem) {
    const std::vector<std::pair<CheckOptions, std::string>> cases = {
        {{{"ae-converge", "focus"}, true, {}, {}, {}, {}},
         "unknown check \"focus\" (--help lists them)"},
        {{{}, true, {{"zoom.speed", 1}}, {}, {}, {}},
         "\"zoom.speed\": zoom has no parameter \"speed\""},
        {{{}, true, {{"zoomratio", 1}}, {}, {}, {}},
         "\"zoomratio\": not <check>.<parameter> of a known check"},
        {{{}, true, {{"zoom.ratio", -1}}, {}, {}, {}},
         "\"zoom.ratio\": a number at least 0 is needed"},
    };
    for (const auto& [options, message] : cases) EXPECT_EQ(validate(options), message);
}

// Settings change the numbers: ae-converge at 20 frames flags a search of 30.
TEST(Settings, ChangeTheCriterion) {
    const kvhost::loader::ScratchFile file("search30",
                                           testing::sessionText(Layout::Dumpsys11, aeSearch(30)));
    const kvhost::SequenceResult s = kvhost::loadSequence({file.path});
    ASSERT_TRUE(s) << s.error;
    CheckOptions options;
    options.checks = {"ae-converge"};
    options.settings["ae-converge.frames"] = 20;
    std::string error;
    EXPECT_EQ(runChecks(*s.sequence, options, &error).checks[0].status, Status::Failed);
}

// The bundled sessions: the zoom of the two sessions follows its request;
// the session with a lagging crop and hunting AF shows both.
TEST(Samples, ShowWhatWentWrong) {
    const std::string dir = std::string(KVTEST_SOURCE_DIR) + "/samples/";
    const std::map<std::string, std::map<std::string, Status>> want = {
        {"session-android13.txt", {{"zoom", Status::Passed}}},
        {"session-android11.txt", {{"zoom", Status::Passed}}},
        {"session-crop-lag.txt",
         {{"zoom", Status::Failed},
          {"af-hunting", Status::Failed},
          {"ae-converge", Status::Passed}}},
    };
    for (const auto& [sample, statuses] : want) {
        const kvhost::SequenceResult s = kvhost::loadSequence({dir + sample});
        ASSERT_TRUE(s) << s.error;
        std::string error;
        const Results r = runChecks(*s.sequence, {}, &error);
        ASSERT_EQ(error, "");
        for (const CheckResult& c : r.checks) {
            const auto w = statuses.find(c.id);
            if (w != statuses.end()) {
                EXPECT_EQ(statusName(c.status), std::string(statusName(w->second)))
                    << sample << " " << c.id << ": " << c.why;
            }
        }
    }
    kvhost::clearStaticMetadata();
}

// The docs' table of checks is the code's: a row for every check, with its
// severity and every parameter's name and default.
TEST(Docs, ListEveryCheckAndNumber) {
    std::ifstream in(std::string(KVTEST_SOURCE_DIR) + "/docs/session-checks.md");
    std::map<std::string, std::string> rows;
    for (std::string line; std::getline(in, line);) {
        if (line.rfind("| `", 0) == 0) rows[line.substr(3, line.find('`', 3) - 3)] = line;
    }
    for (const CheckInfo& c : checkTable()) {
        const auto row = rows.find(c.id);
        ASSERT_NE(row, rows.end()) << c.id;
        EXPECT_NE(row->second.find(std::string("| ") + severityName(c.severity) + " |"),
                  std::string::npos)
            << c.id;
        for (const Parameter& p : c.parameters) {
            std::ostringstream number;
            number << p.value;
            EXPECT_NE(row->second.find("`" + std::string(p.name) + "` " + number.str()),
                      std::string::npos)
                << c.id << "." << p.name;
        }
    }
}

}  // namespace
}  // namespace kvanalysis
