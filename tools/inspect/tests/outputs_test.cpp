// Every output of metautils-inspect, alone and together, on every dump and
// capture description in the tree: a whole output, or one error line naming
// the file and nothing else. Each run is a child process, as each run of the
// program is: the stand-ins start afresh, and an abort shows as a signal.
#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "Frames.h"
#include "Html.h"
#include "JsonReader.h"
#include "LongSession.h"
#include "Report.h"
#include "Run.h"
#include "kvanalysis/Checks.h"
#include "kvhost/Capture.h"

namespace inspect {
namespace {

std::string readText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

std::set<std::string> filesIn(const std::string& dir) {
    std::set<std::string> names;
    if (DIR* d = opendir(dir.c_str())) {
        while (const dirent* e = readdir(d)) {
            if (e->d_name[0] != '.') names.insert(e->d_name);
        }
        closedir(d);
    }
    return names;
}

struct Ran {
    int status = -1;  // the exit status; -1 when the run ended by a signal
    std::string out, err;
};

// One run from the source tree, as RunReport.cmake runs the program.
Ran runTool(const std::vector<std::string>& args, const std::string& scratch) {
    const std::string outPath = scratch + "/.stdout", errPath = scratch + "/.stderr";
    const pid_t pid = fork();
    if (pid == 0) {
        std::vector<const char*> argv{"metautils-inspect"};
        for (const std::string& a : args) argv.push_back(a.c_str());
        std::ostringstream out, err;
        int status = 2;
        if (chdir(SOURCE_DIR) == 0) {
            status = run(static_cast<int>(argv.size()), argv.data(), out, err);
        }
        std::ofstream(outPath, std::ios::binary) << out.str();
        std::ofstream(errPath, std::ios::binary) << err.str();
        _exit(status);
    }
    int wstatus = 0;
    waitpid(pid, &wstatus, 0);
    Ran ran;
    ran.status = WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : -1;
    ran.out = readText(outPath);
    ran.err = readText(errPath);
    unlink(outPath.c_str());
    unlink(errPath.c_str());
    return ran;
}

// The drawing's notice that starts with `lead`, its wrapped lines joined:
// "not in this capture: " (what is absent), then "succeeded with nothing
// usable: " (calls whose success is empty), to the end; "" for none.
std::string noticeText(const std::string& svg, const std::string& lead) {
    std::string text;
    bool inTag = false;
    for (size_t i = svg.find(lead); i < svg.size(); ++i) {
        if (svg[i] == '<' || svg[i] == '>') {
            inTag = svg[i] == '<';
        } else if (!inTag) {
            text += svg[i] == '\n' ? ' ' : svg[i];
        }
    }
    text = text.substr(0, text.find("succeeded with nothing usable: ", 1));
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

// Whether a drawing has an attribute that is no number (="nan", ="-inf"),
// as SVG or inside a page's data (=\"nan).
bool hasNoNumber(const std::string& text) {
    for (const char* quote : {"=\"", "=\\\""}) {
        for (const char* bad : {"nan", "-nan", "inf", "-inf"}) {
            if (text.find(std::string(quote) + bad) != std::string::npos) return true;
        }
    }
    return false;
}

std::vector<std::string> csvFields(const std::string& line) {
    std::vector<std::string> fields(1);
    bool quoted = false;
    for (char c : line) {
        if (c == '"') {
            quoted = !quoted;
        } else if (c == ',' && !quoted) {
            fields.emplace_back();
        } else {
            fields.back() += c;
        }
    }
    return fields;
}

// The report as JSON without the name of the file it came from.
Json reportOf(const std::string& text) {
    Json report = Json::parse(text);
    report.erase("capture");
    return report;
}

struct FileCase {
    std::string path;               // from the source tree
    std::vector<std::string> args;  // options the file needs
    std::string error;     // every mode's one line, after "metautils-inspect: PATH: "; "" when read
    std::string absent;    // the drawing's "not in this capture" line; "" when nothing is absent
    bool session = false;  // a session only: `error` is the single-frame modes', --frames reads
    // The session checks the --frames views run: their findings marked on
    // the timelines and in the page.
    std::vector<std::string> checks = {};
};

std::ostream& operator<<(std::ostream& os, const FileCase& c) {
    return os << c.path;
}

// The page's data holds what changes; every frame made again from it is
// the JSON report's: frame numbers, each call's result, output and reason,
// each recorded tag's values and whether the log printed it.
void expectPageGivesFrames(const std::string& page, const Json& frames) {
    const std::string open = "<script type=\"application/json\" id=\"data\">";
    const size_t from = page.find(open) + open.size();
    const Json data = Json::parse(page.substr(from, page.find("</script>", from) - from));
    // By frame, a column's value: its changes are pairs of the frames since
    // the change before and the value's place.
    const auto expand = [&](const Json& changes) {
        std::vector<size_t> byFrame(frames.size(), 0);
        size_t at = 0;
        for (size_t k = 0; k + 1 < changes.size(); k += 2) {
            at += changes[k].get<size_t>();
            for (size_t i = at; i < byFrame.size(); ++i) byFrame[i] = changes[k + 1].get<size_t>();
        }
        return byFrame;
    };
    int64_t number = 0;
    ASSERT_EQ(data["frames"]["numbers"].size(), frames.size());
    std::vector<std::vector<size_t>> calls, recorded;
    for (const Json& g : data["getters"]) calls.push_back(expand(g["changes"]));
    for (const Json& r : data["recorded"]) recorded.push_back(expand(r["changes"]));
    std::vector<std::set<int64_t>> logged;
    for (const Json& r : data["recorded"]) {
        int64_t at = 0;
        logged.emplace_back();
        for (const Json& step : r["logged"]) logged.back().insert(at += step.get<int64_t>());
    }
    for (size_t i = 0; i < frames.size(); ++i) {
        const Json& f = frames[i];
        number += data["frames"]["numbers"][i].get<int64_t>();
        ASSERT_EQ(number, f["frame"].get<int64_t>());
        ASSERT_EQ(calls.size(), f["calls"].size());
        for (size_t k = 0; k < calls.size(); ++k) {
            const Json& shown = data["getters"][k]["values"][calls[k][i]];
            const Json& call = f["calls"][k];
            EXPECT_EQ(data["getters"][k]["method"], call["method"]);
            EXPECT_EQ(shown["result"], call["result"]) << number << " " << call["method"];
            EXPECT_EQ(shown["output"], call["output"]) << number << " " << call["method"];
            EXPECT_EQ(shown.value("why", ""), call.value("why", "")) << number;
        }
        ASSERT_EQ(recorded.size(), f["recorded"].size());
        for (size_t k = 0; k < recorded.size(); ++k) {
            const Json& shown = data["recorded"][k]["values"][recorded[k][i]];
            EXPECT_EQ(shown["values"], f["recorded"][k]["values"]) << number;
            EXPECT_EQ(logged[k].count(static_cast<int64_t>(i)) == 1,
                      f["recorded"][k]["changed"].get<bool>())
                << number << " " << f["recorded"][k]["tag"];
        }
    }
}

class EveryOutput : public ::testing::TestWithParam<FileCase> {
protected:
    void SetUp() override {
        std::string pattern = ::testing::TempDir() + "inspect-outputs-XXXXXX";
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        scratch_ = pattern;
    }
    void TearDown() override {
        for (const std::string& name : filesIn(scratch_)) unlink((scratch_ + "/" + name).c_str());
        rmdir(scratch_.c_str());
    }

    std::string scratch_;
};

TEST_P(EveryOutput, IsWholeOrOneErrorNamingTheFile) {
    const FileCase& c = GetParam();
    const std::string svg = scratch_ + "/geometry.svg", saved = scratch_ + "/saved.json",
                      html = scratch_ + "/report.html";
    const bool description = c.path.size() > 5 && c.path.substr(c.path.size() - 5) == ".json";
    const struct {
        std::vector<std::string> options;
        bool dumpOnly;  // a refusal on a capture description
    } modes[] = {
        {{}, false},
        {{"--json"}, false},
        {{"--logs", "--tags"}, false},
        {{"--svg", svg}, false},
        {{"--json", "--logs", "--svg", svg, "--save-capture", saved}, true},
        {{"--html", html}, false},
        {{"--list"}, true},
        {{"--save-capture", saved}, true},
    };
    std::string json;  // the JSON report, to compare the saved capture's with
    for (const auto& mode : modes) {
        std::vector<std::string> args{c.path};
        args.insert(args.end(), c.args.begin(), c.args.end());
        const bool listing = mode.options == std::vector<std::string>{"--list"};
        // --list takes none of the frame's options: the blocks are the file's.
        if (listing) args.resize(1);
        args.insert(args.end(), mode.options.begin(), mode.options.end());
        std::string call;
        for (const std::string& a : args) call += " " + a;
        SCOPED_TRACE("metautils-inspect" + call);
        const Ran ran = runTool(args, scratch_);
        ASSERT_NE(ran.status, -1) << "ended by a signal; standard error:\n" << ran.err;
        std::string refusal = c.error;
        if (description && mode.dumpOnly) {
            refusal = listing ? "a capture description, not a dump"
                              : "a capture description; only a dump's capture is saved";
        }
        if (!refusal.empty()) {
            EXPECT_EQ(ran.status, 1);
            EXPECT_EQ(ran.out, "");
            EXPECT_EQ(ran.err, "metautils-inspect: " + c.path + ": " + refusal + "\n");
            EXPECT_EQ(filesIn(scratch_), std::set<std::string>{});
            continue;
        }
        ASSERT_EQ(ran.status, 0) << ran.err;
        EXPECT_NE(ran.out, "");
        EXPECT_EQ(ran.err.find("metautils-inspect:"), std::string::npos) << ran.err;
        std::set<std::string> written;
        for (size_t i = 1; i < mode.options.size(); ++i) {
            if (mode.options[i - 1] == "--svg") written.insert("geometry.svg");
            if (mode.options[i - 1] == "--save-capture") written.insert("saved.json");
            if (mode.options[i - 1] == "--html") written.insert("report.html");
        }
        EXPECT_EQ(filesIn(scratch_), written);  // and no temporary file left beside them
        if (std::find(args.begin(), args.end(), "--json") != args.end()) {
            EXPECT_NO_THROW(Json::parse(ran.out));
            if (mode.options.size() == 1) json = ran.out;
        }
        if (written.count("geometry.svg")) {
            const std::string drawing = readText(svg);
            EXPECT_EQ(drawing.rfind("<svg xmlns=", 0), 0u);
            EXPECT_FALSE(hasNoNumber(drawing));
            EXPECT_EQ(drawing.substr(drawing.size() - 7), "</svg>\n");
            EXPECT_EQ(noticeText(drawing, "not in this capture: "), c.absent);
        }
        if (written.count("report.html")) {
            const std::string page = readText(html);
            EXPECT_EQ(page.rfind("<!DOCTYPE html>", 0), 0u);
            EXPECT_EQ(page.substr(page.size() - 8), "</html>\n");
        }
        if (written.count("saved.json")) {
            // Read back, the saved capture reports as the file did.
            const Ran again = runTool({saved, "--json"}, scratch_);
            ASSERT_EQ(again.status, 0) << again.err;
            EXPECT_EQ(reportOf(again.out), reportOf(json));
        }
        for (const std::string& name : written) unlink((scratch_ + "/" + name).c_str());
    }
    // A dump is a session too: its frames in every view, each with the
    // recorded tags and the notes of the JSON report.
    if ((!c.error.empty() && !c.session) || description) return;
    const std::vector<std::string> sessions[] = {{"--frames", "--json", "--logs"},
                                                 {"--frames"},
                                                 {"--frames", "--csv", "--getters", "all"},
                                                 {"--frames", "--svg", svg},
                                                 {"--frames", "--html", html}};
    std::vector<std::string> recorded, notes;
    bool fromBlocks = false;
    Json findings = Json::array();
    std::string firstDrawing;  // the timelines of the first --svg run, to draw again
    Json reportFrames;         // of the JSON report, which the page's data must give again
    for (const std::vector<std::string>& options : sessions) {
        std::vector<std::string> args{c.path};
        args.insert(args.end(), c.args.begin(), c.args.end());
        args.insert(args.end(), options.begin(), options.end());
        args.insert(args.end(), c.checks.begin(), c.checks.end());
        const std::string view = options.size() > 1 ? options[1] : "";
        SCOPED_TRACE("metautils-inspect " + c.path + " --frames " + view);
        const Ran ran = runTool(args, scratch_);
        // With checks, 2 says that a finding of error severity exists.
        ASSERT_TRUE(ran.status == 0 || (ran.status == 2 && !c.checks.empty())) << ran.err;
        EXPECT_NE(ran.out, "");
        // The first recorded tags, which the table and the timelines show.
        const size_t shown = std::min(recorded.size(), kShownRecordedTags);
        if (view == "--json") {
            const Json report = Json::parse(ran.out);
            EXPECT_FALSE(report["frames"].empty());
            EXPECT_EQ(report.contains("findings"), !c.checks.empty());
            if (report.contains("findings")) findings = report["findings"];
            reportFrames = report["frames"];
            EXPECT_EQ(ran.status,
                      std::any_of(findings.begin(), findings.end(),
                                  [](const Json& f) { return f["severity"] == "error"; })
                          ? 2
                          : 0);
            notes = report["notes"].get<std::vector<std::string>>();
            // The JSON's own: what its calls hold.
            ASSERT_FALSE(notes.empty());
            EXPECT_EQ(notes.back().rfind("calls with", 0), 0u) << notes.back();
            notes.pop_back();
            for (const Json& v : report["frames"][0]["recorded"]) recorded.push_back(v["tag"]);
            for (const Json& f : report["frames"]) {
                EXPECT_EQ(f["recorded"].size(), recorded.size()) << f["frame"];
                for (const Json& call : f["calls"])
                    fromBlocks = fromBlocks || call.contains("fromBlocks");
            }
            // Results from the dump's blocks are said to be so.
            EXPECT_EQ(std::count(notes.begin(), notes.end(), kFromBlocksNote), fromBlocks ? 1 : 0);
        } else if (view == "") {
            // The notes as the JSON report gives them, then the header: the
            // first recorded tags, then the getters.
            std::istringstream lines(ran.out);
            std::string line;
            for (const std::string& note : notes) {
                std::getline(lines, line);
                EXPECT_EQ(line, note);
            }
            std::getline(lines, line);
            std::istringstream header(line);
            std::vector<std::string> columns{std::istream_iterator<std::string>(header), {}};
            ASSERT_GE(columns.size(), 2 + shown) << line;
            EXPECT_EQ(std::vector<std::string>(columns.begin() + 2, columns.begin() + 2 + shown),
                      std::vector<std::string>(recorded.begin(), recorded.begin() + shown));
            EXPECT_EQ(ran.out.find(" * ") != std::string::npos ||
                          ran.out.find(" *\n") != std::string::npos,
                      fromBlocks);
        } else if (view == "--csv") {
            // One named column per field, and every row as wide as the header.
            std::istringstream lines(ran.out);
            std::string header, row;
            std::getline(lines, header);
            const std::vector<std::string> names = csvFields(header);
            EXPECT_EQ(std::set<std::string>(names.begin(), names.end()).size(), names.size());
            while (std::getline(lines, row)) EXPECT_EQ(csvFields(row).size(), names.size()) << row;
            for (const std::string& tag : recorded) {
                EXPECT_TRUE(std::any_of(names.begin(), names.end(), [&](const std::string& n) {
                    return n.rfind(tag, 0) == 0;
                })) << tag;
            }
        } else if (view == "--svg") {
            const std::string drawing = readText(svg);
            EXPECT_EQ(drawing.substr(drawing.size() - 7), "</svg>\n");
            EXPECT_FALSE(hasNoNumber(drawing));
            for (size_t k = 0; k < shown; ++k) {
                EXPECT_NE(drawing.find(">" + recorded[k]), std::string::npos) << recorded[k];
            }
            // A band a finding, in its check's lane; drawn again, the same.
            size_t bands = 0;
            for (size_t at = drawing.find(" data-finding=\""); at != std::string::npos;
                 at = drawing.find(" data-finding=\"", at + 1)) {
                ++bands;
            }
            EXPECT_EQ(bands, findings.size());
            for (const Json& f : findings) {
                EXPECT_NE(drawing.find(">" + f["check"].get<std::string>() + "</text>"),
                          std::string::npos)
                    << f["check"];
            }
            if (firstDrawing.empty()) {
                firstDrawing = drawing;
                ASSERT_EQ(runTool(args, scratch_).status, ran.status);
                EXPECT_EQ(readText(svg), firstDrawing);
            }
            unlink(svg.c_str());
        } else if (view == "--html") {
            const std::string page = readText(html);
            EXPECT_EQ(page.rfind("<!DOCTYPE html>", 0), 0u);
            EXPECT_FALSE(hasNoNumber(page));
            for (const std::string& tag : recorded) {
                EXPECT_NE(page.find("{\"tag\":\"" + tag + "\""), std::string::npos) << tag;
            }
            for (const Json& f : findings) {
                EXPECT_NE(page.find(scriptSafe(kvhost::loader::jsonText(f))), std::string::npos)
                    << f["check"];
            }
            expectPageGivesFrames(page, reportFrames);
            unlink(html.c_str());
        }
    }
}

const char* const kAbsentGeometry =
    "not in this capture: Android crop region (GetAndroidCropRegion -2), faces "
    "(GetFacesInfoHolder -2), AF region (GetfocusROI -2)";
const char* const kNoArray =
    "not in this capture: active array (GetActiveArraySize -2), final crop (GetFinalCropRegion "
    "-2), faces (GetFacesInfoHolder -2), AF region (GetfocusROI -2)";

const char* const kNothing =
    "not in this capture: active array (GetActiveArraySize -2), Android crop region "
    "(GetAndroidCropRegion -2), final crop (GetFinalCropRegion -2), faces (GetFacesInfoHolder "
    "-2), AF region (GetfocusROI -2)";

const char* const kTwoAbsent =
    "not in this capture: faces (GetFacesInfoHolder -2), AF region (GetfocusROI -1)";

const std::string kDumps = "tools/inspect/tests/dumps/", kBad = "tools/inspect/tests/bad/";
const std::vector<std::string> kInput{"--input", "4000x3000"};

// clang-format off
const FileCase kFiles[] = {
    {"samples/main-faces.json", {}, "", ""},
    {"samples/isz-zoom.json", {}, "", ""},
    {"samples/tele-shift.json", {}, "", ""},
    {"samples/dumpsys-camera.txt", {}, "", ""},
    // Sessions of tag monitor events; the report is of the dump's latest
    // request and result: no faces, no AF region.
    {"samples/session-android13.txt", {}, "", kTwoAbsent},
    {"samples/session-android11.txt", {}, "", kTwoAbsent, false, {"--checks", "zoom,ae-converge"}},
    {"samples/session-crop-lag.txt", {}, "", kTwoAbsent, false, {"--check"}},
    // Watch output: events of several clients and cameras, no metadata
    // block; read as a session only.
    {"samples/session-watch.txt", {}, "neither a capture description nor a camera metadata dump: "
     "no \"Dumping camera metadata array\" line", "", true},
    {"tools/inspect/tests/captures/no-adapter.json", {}, "", kAbsentGeometry},
    {"tools/inspect/tests/captures/shading-map.json", {}, "", kNothing},
    {"tools/inspect/tests/captures/short-shading-map.json", {}, "", kNothing},
    // An emulator's bugreport: static characteristics, every camera closed.
    {kDumps + "static-only.txt", {}, "", kAbsentGeometry},
    // A HAL's log of one result: no static metadata, no input size.
    {kDumps + "frame-only.txt", {"--input", "1920x1080"}, "", kNoArray},
    {kDumps + "no-geometry.txt", {}, "", kAbsentGeometry},
    {kDumps + "no-active-array.txt", kInput, "", "not in this capture: active array "
     "(GetActiveArraySize -2), final crop (GetFinalCropRegion -2), AF region (GetfocusROI -2)"},
    // CRLF, logcat's brief prefix, elided rows, a row cut off at the end.
    {kDumps + "elided-crlf.txt", kInput, "", kNoArray},
    // The middle of a dump pasted into a bug report, whole or cut off.
    {kDumps + "fragment.txt", kInput, "", kNoArray},
    {kDumps + "fragment-cut.txt", kInput, "", kNothing},
    // What `dumpsys media.camera | grep control` gives: headers, no values.
    {kDumps + "grep-headers.txt", {},
     "9 entry lines and no values (as grep prints them); no metadata to read", ""},
    // Physical camera ids printed as characters, rebuilt; a USB camera's HAL.
    {kDumps + "physical-ids.txt", {}, "", kTwoAbsent},
    {kDumps + "usb-camera.txt", {}, "", kTwoAbsent},
    // A vendor string that spells a script element.
    {kDumps + "script-tag.txt", {}, "", kTwoAbsent},
    {kBad + "malformed.json", {}, "malformed JSON: parse error at line 4, column 9: syntax error "
     "while parsing object - unexpected string literal; expected '}'", ""},
    {kBad + "wrong-type.json", {},
     "frame.tags[1] \"kovani.flash.mode\": values[0]: expected int32 values, got \"on\"", ""},
    // A log of the camera service without a metadata buffer.
    {kBad + "no-metadata.txt", {}, "neither a capture description nor a camera metadata dump: "
     "no \"Dumping camera metadata array\" line", ""},
    {kBad + "absent.txt", {}, "cannot open: No such file or directory", ""},
    {"/dev/zero", {}, "binary data, neither a capture description nor a camera metadata dump", ""},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Files, EveryOutput, ::testing::ValuesIn(kFiles));

// --check and its kin: the exit status for CI (2 for a finding at or above
// --fail-on, 1 for an error with one line and nothing else), the report's
// parts, and --each's line a file.
struct CheckRun {
    std::vector<std::string> args;
    int status;
    std::string out;  // in standard output; "" for none
    std::string err;  // standard error, whole
};

// A success that hands back nothing usable says so, with the tags that made
// it so, in the text report, the JSON report and the drawing alike; a usable
// output says nothing.
TEST(EmptySuccess, IsFlaggedWithItsCauseInEveryReport) {
    char pattern[] = "/tmp/inspect-empty-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    const std::string scratch = pattern, svg = scratch + "/g.svg";
    const struct {
        const char* file;
        std::string empty;  // GetFinalCropRegion's; "" for a usable crop
    } cases[] = {
        // The crop table holds no entry for the SAT camera.
        {"samples/dumpsys-camera.txt",
         "crop 0x0: com.kovani.camera.sensorpolicy.cropregions has no entry for SAT camera 0"},
        // No crop table at all in the frame.
        {"samples/session-android13.txt",
         "crop 0x0: com.kovani.camera.sensorpolicy.cropregions: not in the frame"},
        {"samples/main-faces.json", ""},
        {"samples/tele-shift.json", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        const Ran text =
            runTool({c.file, "--getters", "GetFinalCropRegion", "--svg", svg}, scratch);
        ASSERT_EQ(text.status, 0) << text.err;
        const std::string line = text.out.substr(text.out.find("  GetFinalCropRegion"));
        EXPECT_EQ(
            line.substr(0, line.find('\n')).find("(empty: " + c.empty + ")") != std::string::npos,
            !c.empty.empty())
            << line;
        EXPECT_EQ(
            noticeText(readText(svg), "succeeded with nothing usable: "),
            c.empty.empty() ? "" : "succeeded with nothing usable: GetFinalCropRegion: " + c.empty);
        const Ran json = runTool({c.file, "--getters", "GetFinalCropRegion", "--json"}, scratch);
        ASSERT_EQ(json.status, 0) << json.err;
        const Json call = Json::parse(json.out)["calls"][0];
        EXPECT_EQ(call.value("empty", ""), c.empty);
        EXPECT_EQ(call["result"], 0);
    }
    std::filesystem::remove_all(scratch);
}

TEST(SessionChecks, ExitStatusAndReport) {
    char pattern[] = "/tmp/inspect-checks-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    const std::string scratch = pattern, rules = scratch + "/mine.rules";
    std::ofstream(rules) << "# zoom steps\nstep info: delta.android.control.zoomRatio > 0.05\n";
    std::ofstream(scratch + "/bad.rules") << "step info: delta.android.control.zoomRatoi > 0\n";
    const std::string lag = "samples/session-crop-lag.txt", a13 = "samples/session-android13.txt";
    const std::vector<CheckRun> runs = {
        {{"--check", lag}, 2, "frames 210..217: crop region 3636x2727 does not fit zoom 1.4", ""},
        {{"--check", a13}, 0, "To decide them, record the session with:\n  adb shell dumpsys", ""},
        {{"--checks", "af-hunting", lag}, 0, "frames 202..234: 5 scans", ""},
        {{"--checks", "af-hunting", "--fail-on", "warning", lag}, 2, "af-hunting (warning)", ""},
        {{"--checks", "zoom", "--check-set", "zoom.crop-size=0.5", lag}, 0, "zoom: ", ""},
        {{"--checks", "zoom", "--json", lag}, 2, "\"frames\": [\n        210,\n        217\n", ""},
        {{"--rules", rules, a13}, 0, "frames 106..115: delta.android.control.zoomRatio > 0.05", ""},
        {{"--check", "--each", lag, a13}, 2, lag + ": 2 findings (worst error)", ""},
        {{"--checks", "zoom", "--frames", lag}, 2, "zoom (error)", ""},
        {{"--checks", "focus", lag},
         1,
         "",
         "metautils-inspect: unknown check \"focus\" (--help lists them)\n"},
        {{"--check", "--check-set", "zoom.speed=2", lag},
         1,
         "",
         "metautils-inspect: \"zoom.speed\": zoom has no parameter \"speed\"\n"},
        {{"--rules", scratch + "/bad.rules", lag},
         1,
         "",
         "metautils-inspect: " + scratch +
             "/bad.rules:1: rule \"step\": "
             "\"delta.android.control.zoomRatoi\" is neither a tag nor a getter's output\n"},
        {{"--each", lag}, 1, "", ""},
    };
    // A build without muparser refuses every rules file, saying so.
    std::string noRules;
    kvanalysis::parseRules("a info: 1", "probe", &noRules);
    for (const CheckRun& r : runs) {
        std::string line;
        for (const std::string& a : r.args) line += " " + a;
        SCOPED_TRACE("metautils-inspect" + line);
        if (!noRules.empty() && r.args.front() == "--rules") {
            EXPECT_NE(noRules.find("muparser"), std::string::npos) << noRules;
            continue;
        }
        const Ran ran = runTool(r.args, scratch);
        EXPECT_EQ(ran.status, r.status) << ran.err;
        if (!r.out.empty()) {
            EXPECT_NE(ran.out.find(r.out), std::string::npos) << ran.out;
        }
        if (r.status == 1) {
            EXPECT_EQ(ran.out, "");
        }
        if (!r.err.empty()) {
            EXPECT_EQ(ran.err, r.err);
        }
    }
    for (const std::string& name : filesIn(scratch)) unlink((scratch + "/" + name).c_str());
    rmdir(scratch.c_str());
}

// The sessions in the tree, one file after a dump (static metadata lent),
// two sessions one after the other (a new file), and the dumps read as logs
// of frame blocks.
std::vector<std::vector<std::string>> treeSessions() {
    const std::string s = std::string(SOURCE_DIR) + "/samples/";
    std::vector<std::vector<std::string>> sessions{
        {s + "dumpsys-camera.txt", s + "session-watch.txt"},
        {s + "session-watch.txt", s + "session-android13.txt"},
    };
    for (const std::string& name : filesIn(s)) {
        if (name.rfind("session-", 0) == 0 || name.rfind("dumpsys", 0) == 0) {
            sessions.push_back({s + name});
        }
    }
    const std::string dumps = std::string(SOURCE_DIR) + "/tools/inspect/tests/dumps/";
    for (const std::string& name : filesIn(dumps)) sessions.push_back({dumps + name});
    return sessions;
}

std::vector<const Getter*> everyGetter() {
    std::vector<const Getter*> getters;
    for (const Getter& g : getterTable()) getters.push_back(&g);
    return getters;
}

// A frame built from the one before, the getters whose lookups did not
// change reused, is the frame built whole, call for call (outputs, log
// lines, lookups, adapter calls), with every getter, on every session of
// the tree.
TEST(FrameBuilder, EachFrameFromThePreviousIsTheFrameBuiltWhole) {
    const std::vector<const Getter*> getters = everyGetter();
    size_t compared = 0, reused = 0;
    for (const std::vector<std::string>& files : treeSessions()) {
        const kvhost::SequenceResult loaded = kvhost::loadSequence(files);
        if (!loaded) continue;
        const kvhost::Sequence& sequence = *loaded.sequence;
        const std::vector<kvhost::RecordedTag> recorded = sequence.recordedTags();
        // The adapter's first calls in a process, made once.
        if (const kvhost::LoadResult first = sequence.frame(0)) runGetters(*first.capture, getters);
        FrameBuilder builder(sequence, getters);
        for (size_t i = 0; i < sequence.frameCount(); ++i) {
            SCOPED_TRACE(files.back() + " frame " + std::to_string(i));
            std::string error;
            const FrameCalls* fast = builder.frame(i, &error);
            const kvhost::LoadResult frame = sequence.frame(i);
            ASSERT_EQ(fast != nullptr, bool(frame)) << error << frame.error;
            if (!frame) continue;
            FrameCalls whole;
            const kvhost::FrameInfo info = sequence.info(i);
            whole.number = info.number;
            whole.timestamp = info.timestamp;
            whole.calls = runGetters(*frame.capture, getters);
            whole.recorded = recordedValues(sequence, i, *frame.capture, recorded);
            whole.fromBlocks = tagsFromBlocks(whole.calls, recorded);
            ASSERT_EQ(kvhost::loader::jsonText(frameJson(*fast, true, true), 1),
                      kvhost::loader::jsonText(frameJson(whole, true, true), 1));
            ++compared;
        }
        reused += builder.callsReused();
    }
    EXPECT_GT(compared, 100u);
    EXPECT_GT(reused, compared);  // the reuse is exercised, not bypassed
}

// The views written from the builder's frames, each cell and JSON element
// made once while its stamp holds, are the views of the same frames
// without stamps, made from nothing kept: the table and the CSV after a
// first pass that measures, the JSON lines and the report's frames with
// and without log lines and lookups, on every session of the tree, with
// every getter and with the default ones.
TEST(FrameViews, CellsMadeOnceAreTheCellsMadeAgain) {
    // The platform adapter's first calls in a process (GetInstance, Init) go
    // to the call that first asks it: asked here, so that both passes below
    // meet it made, whatever ran before in this process.
    for (const std::vector<std::string>& files : treeSessions()) {
        const kvhost::SequenceResult loaded = kvhost::loadSequence(files);
        if (!loaded || loaded.sequence->frameCount() == 0) continue;
        std::string error;
        FrameBuilder(*loaded.sequence, everyGetter()).frame(0, &error);
        break;
    }
    size_t frames = 0;
    for (const std::vector<std::string>& files : treeSessions()) {
        const kvhost::SequenceResult loaded = kvhost::loadSequence(files);
        if (!loaded) continue;
        const kvhost::Sequence& sequence = *loaded.sequence;
        for (const std::vector<const Getter*>& getters : {everyGetter(), defaultFrameGetters()}) {
            SCOPED_TRACE(files.back() + ", " + std::to_string(getters.size()) + " getters");
            TableWriter table;
            CsvWriter csv;
            std::vector<FrameCalls> plain;  // without stamps
            FrameBuilder first(sequence, getters);
            std::string error;
            for (size_t i = 0; i < sequence.frameCount(); ++i) {
                const FrameCalls* f = first.frame(i, &error);
                ASSERT_NE(f, nullptr) << error;
                table.measure(*f);
                csv.measure(*f);
                plain.push_back(*f);
                plain.back().callStamps.clear();
                plain.back().recordedStamps.clear();
            }
            std::string tableText = table.header(), csvText = csv.header();
            std::vector<JsonFrameWriter> json;
            std::vector<std::string> jsonText(4);
            for (const bool report : {false, true}) {
                for (const bool withLogs : {false, true})
                    json.emplace_back(report, withLogs, !withLogs);
            }
            FrameBuilder second(sequence, getters);
            for (size_t i = 0; i < sequence.frameCount(); ++i) {
                const FrameCalls* f = second.frame(i, &error);
                ASSERT_NE(f, nullptr) << error;
                tableText += table.row(*f);
                csvText += csv.row(*f);
                for (size_t w = 0; w < json.size(); ++w) {
                    json[w].write(*f, i == 0, jsonText[w]);
                    if (w < 2) jsonText[w] += '\n';
                }
                ++frames;
            }
            EXPECT_EQ(tableText, framesTable(plain));
            EXPECT_EQ(csvText, framesCsv(plain));
            std::vector<std::string> expected(4);
            for (size_t i = 0; i < plain.size(); ++i) {
                for (size_t w = 0; w < expected.size(); ++w) {
                    const bool withLogs = w % 2 == 1;
                    const Json frame = frameJson(plain[i], withLogs, !withLogs);
                    expected[w] += w < 2 ? kvhost::loader::jsonText(frame) + "\n"
                                         : jsonReportFrame(frame, i == 0);
                }
            }
            for (size_t w = 0; w < expected.size(); ++w) EXPECT_EQ(jsonText[w], expected[w]) << w;
        }
    }
    EXPECT_GT(frames, 200u);
}

// Every streamed view of a 100,000-event session, each run in a child whose
// address space is bounded, all before this process reads any of them:
// whole (a JSONL line and a CSV row a frame, a JSON report that parses
// with every frame), in bounded memory. Under the sanitizers, whose shadow
// memory takes the address space, the bound is the peak resident size
// alone.
TEST(LongSession, EveryStreamedViewWholeInBoundedMemory) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    constexpr bool kBoundAddressSpace = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(memory_sanitizer) || \
    __has_feature(thread_sanitizer)
    constexpr bool kBoundAddressSpace = false;
#else
    constexpr bool kBoundAddressSpace = true;
#endif
#else
    constexpr bool kBoundAddressSpace = true;
#endif
    std::string scratch = ::testing::TempDir() + "inspect-long-XXXXXX";
    ASSERT_NE(mkdtemp(scratch.data()), nullptr);
    const std::string session = scratch + "/watch.txt";
    std::ofstream(session, std::ios::binary)
        << testing::longWatchSession({std::string(SOURCE_DIR) + "/samples/session-watch.txt",
                                      std::string(SOURCE_DIR) + "/samples/session-android13.txt"},
                                     100000);
    // The table with a flag that changes nothing of it; the drawing and
    // the page (written beside, the table on standard output) with the
    // checks.
    const std::string svg = scratch + "/timelines.svg", page = scratch + "/page.html";
    const std::vector<std::vector<std::string>> runs{{"--jsonl"},
                                                     {"--json"},
                                                     {"--csv"},
                                                     {"--verbose"},
                                                     {"--check", "--svg", svg},
                                                     {"--check", "--html", page}};
    for (const std::vector<std::string>& options : runs) {
        std::string flag;  // for the messages
        for (const std::string& o : options) flag += o + " ";
        const std::string outPath = scratch + "/out" + options.front(),
                          errPath = scratch + "/err" + options.front();
        const pid_t pid = fork();
        if (pid == 0) {
            if (kBoundAddressSpace) {
                const rlimit limit{size_t(1) << 30, size_t(1) << 30};
                setrlimit(RLIMIT_AS, &limit);
            }
            std::vector<const char*> argv{"metautils-inspect", session.c_str(), "--frames",
                                          "--getters", "GetAFState"};
            for (const std::string& o : options) argv.push_back(o.c_str());
            std::ofstream out(outPath, std::ios::binary);
            std::ostringstream err;
            const int status = run(static_cast<int>(argv.size()), argv.data(), out, err);
            out.close();
            std::ofstream(errPath, std::ios::binary) << err.str();
            _exit(status);
        }
        int wstatus = 0;
        rusage usage{};
        wait4(pid, &wstatus, 0, &usage);
        EXPECT_TRUE(WIFEXITED(wstatus) && WEXITSTATUS(wstatus) == 0)
            << flag << ": " << readText(errPath);
        EXPECT_LT(usage.ru_maxrss, 200 * 1024) << flag << ": peak resident KiB";
    }
    // Whole, and as small as their pixels: under 2 MB drawn, 15 MB a page.
    const std::string drawing = readText(svg), html = readText(page);
    EXPECT_EQ(drawing.substr(drawing.size() - 7), "</svg>\n");
    EXPECT_LT(drawing.size(), 2u << 20);
    EXPECT_EQ(html.substr(html.size() - 8), "</html>\n");
    EXPECT_LT(html.size(), 15u << 20);
    const kvhost::SequenceResult loaded = kvhost::loadSequence({session});
    ASSERT_TRUE(loaded) << loaded.error;
    const size_t frames = loaded.sequence->frameCount();
    EXPECT_GT(frames, 30000u);
    const auto count = [](const std::string& text, const std::string& what) {
        size_t n = 0;
        for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) {
            ++n;
        }
        return n;
    };
    const std::string jsonl = readText(scratch + "/out--jsonl");
    EXPECT_EQ(count(jsonl, "\n"), frames);
    EXPECT_EQ(count(jsonl, "\n{\"frame\":"), frames - 1);
    EXPECT_EQ(Json::parse(jsonl.substr(jsonl.rfind('\n', jsonl.size() - 2) + 1))
                  .at("frame")
                  .get<int64_t>(),
              loaded.sequence->info(frames - 1).number);
    const std::string json = readText(scratch + "/out--json");
    EXPECT_TRUE(Json::accept(json));
    EXPECT_EQ(count(json, "\n      \"frame\": "), frames);
    EXPECT_EQ(count(json, "\"reads\""), 0u);  // not without --tags
    EXPECT_EQ(count(readText(scratch + "/out--csv"), "\n"), frames + 1);
    const std::string table = readText(scratch + "/out--verbose");
    EXPECT_NE(table.find("\n" + std::to_string(loaded.sequence->info(frames - 1).number) + "  "),
              std::string::npos);
    for (const std::string& name : filesIn(scratch)) unlink((scratch + "/" + name).c_str());
    rmdir(scratch.c_str());
}

// A file added to the samples or the test data has its row above.
TEST(OutputTable, HasARowForEveryFileInTheTree) {
    std::set<std::string> rows;
    for (const FileCase& c : kFiles) rows.insert(c.path);
    for (const char* dir : {"samples", "tools/inspect/tests/captures", "tools/inspect/tests/dumps",
                            "tools/inspect/tests/bad"}) {
        for (const std::string& name : filesIn(std::string(SOURCE_DIR) + "/" + dir)) {
            EXPECT_EQ(rows.count(std::string(dir) + "/" + name), 1u) << dir << "/" << name;
        }
    }
}

}  // namespace
}  // namespace inspect
