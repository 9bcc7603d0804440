// How outcomes read where the golden reports show no example: cut strings and
// objects that are not rectangles; the numbers read back from the library's
// log lines; and what a failed call's lookups say.
#include "Report.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Frames.h"
#include "Html.h"
#include "Messages.h"

namespace inspect {
namespace {

TEST(Inline, ReadsAsWritten) {
    const struct {
        Json value;
        const char* text;
    } rows[] = {
        // Fields in another order are not a rectangle.
        {Json{{"top", 1}, {"left", 2}, {"width", 3}, {"height", 4}},
         "{top 1, left 2, width 3, height 4}"},
        {Json(std::string(100, 'a')),
         "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa... (100 chars)"},
    };
    for (const auto& row : rows) EXPECT_EQ(inlineText(row.value), row.text);
}

// Warnings of one kind on one line from five on: the place and tag set
// aside, numbers alike; a kind met fewer times stays as it was, in its
// group's place; --verbose gives each.
TEST(Messages, OneLinePerKindWithItsFirstPlaces) {
    const std::string left = ": an Android tag id the table does not hold; the entry is left out";
    std::vector<std::string> warnings;
    for (int line : {12, 80, 140, 200, 260}) {
        warnings.push_back("d.txt:" + std::to_string(line) + ": android.x.t" +
                           std::to_string(line) + left);
    }
    warnings.insert(warnings.begin() + 1, "d.txt:57: android.a.b: shows 12 of its 24 values");
    warnings.push_back("d.txt:300: android.a.c: shows 2 of its 4 values");
    warnings.push_back("d.txt:301: no block");
    const std::vector<std::string> want = {
        "5 times: " + left.substr(2) +
            " (first at d.txt:12 android.x.t12, d.txt:80 android.x.t80, d.txt:140 android.x.t140, "
            "and 2 more; --verbose lists each)",
        warnings[1],
        warnings[6],
        "d.txt:301: no block",
    };
    EXPECT_EQ(messageLines(warnings, false), want);
    EXPECT_EQ(messageLines(warnings, true), warnings);
    EXPECT_TRUE(messageLines({}, false).empty());
}

// Getters asked for across subsystems: each subsystem's heading once, its
// calls under it in the order asked.
TEST(TextReport, GroupsTheGettersAskedForBySubsystem) {
    std::string error;
    const std::vector<const Getter*> getters =
        chooseGetters("GetSensitivity,GetFaceRect,GetAFState", &error);
    ASSERT_EQ(getters.size(), 3u) << error;
    std::vector<CallRecord> calls(3);
    for (size_t i = 0; i < 3; ++i) calls[i].getter = getters[i];
    const std::string report = textReport(Capture{}, calls, false);
    const size_t core = report.find("\n" + std::string(getters[0]->subsystem) + "\n");
    const size_t faces = report.find("\n" + std::string(getters[1]->subsystem) + "\n");
    ASSERT_NE(core, std::string::npos);
    ASSERT_NE(faces, std::string::npos);
    EXPECT_EQ(report.find("\n" + std::string(getters[0]->subsystem) + "\n", core + 1),
              std::string::npos);
    EXPECT_LT(report.find("GetSensitivity"), report.find("GetAFState"));
    EXPECT_LT(report.find("GetAFState"), faces);
    EXPECT_LT(faces, report.find("GetFaceRect"));
}

kvhost::LogRecord primary(const std::string& format, const std::string& text) {
    kvhost::LogRecord r;
    r.format = format;
    r.text = text;
    return r;
}

// The page's inline JSON cannot end its script element or start a comment or
// markup, and holds no line terminator that older script parsers refuse.
TEST(ScriptSafe, EscapesWhatCouldEndTheScriptElement) {
    EXPECT_EQ(scriptSafe("[\"</script><!-- & \xE2\x80\xA8\xE2\x80\xA9 \xE2\x80\xA6\"]"),
              "[\"\\u003c/script\\u003e\\u003c!-- \\u0026 \\u2028\\u2029 \xE2\x80\xA6\"]");
}

TEST(LoggedNumbers, ReadsTheWholeMessageOfAPrimaryOrBareLineNotItsPrefix) {
    const std::vector<kvhost::LogRecord> logs = {
        primary("[%s][%s()]:[%d] allInOneCrop shiftFlag = %d",
                "[MetaUtilsMtk.cpp][operator()]:[1025] allInOneCrop shiftFlag = 1"),
        primary("[%s][%s()]:[%d] allInOneCrop using zoom eis shift (%d,%d)",
                "[MetaUtilsMtk.cpp][operator()]:[1089] allInOneCrop using zoom eis shift (6,-4)"),
        primary("allInOneCrop input crop (%d, %d) output crop (%d, %d)",
                "allInOneCrop input crop (0, 0) output crop (4000, 3000)"),
    };
    EXPECT_EQ(loggedNumbers(logs, "allInOneCrop using zoom eis shift (%d,%d)"),
              (std::vector<long long>{6, -4}));
    EXPECT_EQ(loggedNumbers(logs, "allInOneCrop shiftFlag = %d"), (std::vector<long long>{1}));
    EXPECT_EQ(loggedNumbers(logs, "allInOneCrop input crop (%d, %d) output crop (%d, %d)"),
              (std::vector<long long>{0, 0, 4000, 3000}));
    EXPECT_TRUE(loggedNumbers(logs, "allInOneCrop not using zoom eis shift (%d,%d)").empty());
    EXPECT_TRUE(loggedNumbers(logs, "allInOneCrop input crop").empty());
}

kvhost::LookupRecord lookup(const char* tag, uint32_t id, kvhost::LookupPlace place, bool found,
                            kvhost::TagType type = kvhost::TagType::Int32, size_t count = 1) {
    kvhost::LookupRecord r;
    r.tag = tag;
    r.id = id;
    r.known = id != 0;
    r.place = place;
    r.cameraId = place == kvhost::LookupPlace::Static ? 3 : 0;
    r.found = found;
    r.type = type;
    r.count = found ? count : 0;
    return r;
}

// The clause of a failed call names the lookup that explains it: the last
// one that found nothing, else a type other than the table's, else the last.
TEST(Reads, AFailedCallSaysWhatItsLookupsShow) {
    using kvhost::LookupPlace;
    using kvhost::TagType;
    const kvhost::LookupRecord sensitivity =
        lookup("android.sensor.sensitivity", 0xE0002, LookupPlace::Frame, true);
    const struct {
        int result;
        std::vector<kvhost::LookupRecord> reads;
        const char* clause;
    } rows[] = {
        {0, {lookup("android.sensor.sensitivity", 0xE0002, LookupPlace::Frame, false)}, ""},
        {-2, {}, "no tag looked up"},
        {-2,
         {lookup("kovani.snapshot.fwkCameraId", 0x80100003, LookupPlace::Frame, false), sensitivity,
          lookup("android.sensor.sensitivity", 0xE0002, LookupPlace::Frame, false)},
         "android.sensor.sensitivity: not in the frame"},
        {-1,
         {lookup("android.sensor.info.activeArraySize", 0xF0000, LookupPlace::Static, true,
                 TagType::Int32, 0)},
         "android.sensor.info.activeArraySize: empty in the static metadata of camera 3"},
        {-2,
         {lookup("no.such.tag", 0, LookupPlace::Container, false)},
         "no.such.tag: unknown to the tag table"},
        {-1,
         {lookup("android.sensor.sensitivity", 0xE0002, LookupPlace::Frame, true, TagType::Int64)},
         "android.sensor.sensitivity: found int64[1], the tag table declares int32"},
        {-1, {sensitivity}, "android.sensor.sensitivity: found int32[1] in the frame"},
    };
    for (const auto& row : rows) {
        CallRecord call;
        call.outcome.result = row.result;
        call.reads = row.reads;
        EXPECT_EQ(failureClause(call), row.clause);
    }
    EXPECT_EQ(readText(sensitivity),
              "android.sensor.sensitivity (0x000e0002) in the frame: int32[1]");
    EXPECT_EQ(readText(lookup("no.such.tag", 0, LookupPlace::Container, false)),
              "no.such.tag (unknown to the tag table) in another container: not found");
}

}  // namespace
}  // namespace inspect
