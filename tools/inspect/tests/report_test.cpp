// How outcomes read: values on one line where they fit, rectangles as
// rectangles, long arrays cut with their length, skipped calls with their
// reason; and the numbers read back from the library's log lines.
#include "Report.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace inspect {
namespace {

struct InlineCase {
    const char* name;
    Json value;
    const char* text;
};

class Inline : public ::testing::TestWithParam<InlineCase> {};

TEST_P(Inline, ReadsAsWritten) {
    EXPECT_EQ(inlineText(GetParam().value), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    Values, Inline,
    ::testing::Values(
        InlineCase{"Nothing", Json(), "-"}, InlineCase{"Number", Json(1.25), "1.25"},
        InlineCase{"EmptyString", Json(""), "\"\""},
        InlineCase{"Rectangle", Json{{"left", 480}, {"top", 240}, {"width", 240}, {"height", 300}},
                   "(480, 240) 240x300"},
        InlineCase{"Size", Json{{"width", 4000}, {"height", 3000}}, "4000x3000"},
        InlineCase{"Point", Json{{"x", 600}, {"y", -4}}, "(600, -4)"},
        // Fields in another order are not a rectangle.
        InlineCase{"NotARectangle", Json{{"top", 1}, {"left", 2}, {"width", 3}, {"height", 4}},
                   "{top 1, left 2, width 3, height 4}"},
        InlineCase{"NestedObject",
                   Json{{"rect", {{"left", 0}, {"top", 0}, {"width", 8}, {"height", 6}}},
                        {"rotation", 90}},
                   "{rect (0, 0) 8x6, rotation 90}"},
        InlineCase{"ShortArray", Json::array({1, 2, 3}), "[1, 2, 3]"},
        InlineCase{"LongArrayShowsItsEnds",
                   Json(std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10}),
                   "[0, 1, 2, 3, 4, 5, 6, ..., 10] (11 values)"},
        InlineCase{"LongStringIsCut", Json(std::string(100, 'a')),
                   "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa... (100 chars)"}),
    [](const auto& info) { return std::string(info.param.name); });

kvhost::LogRecord primary(const std::string& format, const std::string& text) {
    kvhost::LogRecord r;
    r.format = format;
    r.text = text;
    return r;
}

TEST(LoggedNumbers, ReadsTheMessageOfAPrimaryLineNotItsPrefix) {
    const std::vector<kvhost::LogRecord> logs = {
        primary("[%s][%s()]:[%d] allInOneCrop shiftFlag = %d",
                "[MetaUtilsMtk.cpp][operator()]:[1025] allInOneCrop shiftFlag = 1"),
        primary("[%s][%s()]:[%d] allInOneCrop using zoom eis shift (%d,%d)",
                "[MetaUtilsMtk.cpp][operator()]:[1089] allInOneCrop using zoom eis shift (6,-4)"),
    };
    EXPECT_EQ(loggedNumbers(logs, "allInOneCrop using zoom eis shift (%d,%d)"),
              (std::vector<long long>{6, -4}));
    EXPECT_EQ(loggedNumbers(logs, "allInOneCrop shiftFlag = %d"), (std::vector<long long>{1}));
    EXPECT_TRUE(loggedNumbers(logs, "allInOneCrop not using zoom eis shift (%d,%d)").empty());
}

TEST(LoggedNumbers, ReadsABareDebugLineAndOnlyAWholeMessage) {
    const std::vector<kvhost::LogRecord> logs = {
        primary("allInOneCrop input crop (%d, %d, %d, %d) output crop (%d, %d, %d, %d)",
                "allInOneCrop input crop (0, 0, 1000, 3000) output crop (0, 0, 4000, 3000)"),
    };
    EXPECT_EQ(loggedNumbers(logs,
                            "allInOneCrop input crop (%d, %d, %d, %d) output crop (%d, "
                            "%d, %d, %d)"),
              (std::vector<long long>{0, 0, 1000, 3000, 0, 0, 4000, 3000}));
    EXPECT_TRUE(loggedNumbers(logs, "allInOneCrop input crop").empty());
}

// A report of hand-made outcomes: one per kind of row.
class TextReport : public ::testing::Test {
protected:
    static Outcome Returned(int rc, Json output) { return Outcome{rc, std::move(output), ""}; }

    std::string Render() {
        std::vector<CallRecord> calls;
        for (size_t i = 0; i < outcomes.size(); ++i) {
            CallRecord r;
            r.getter = &getters[i];
            r.given = givens[i];
            r.outcome = outcomes[i];
            calls.push_back(r);
        }
        calls[0].adapter = Json::array({"GetHolder", "GetRoleMap"});
        return textReport(capture, calls, false);
    }

    Capture capture = [] {
        Capture c;
        c.file = "capture.json";
        c.inputWidth = 1920;
        c.inputHeight = 1080;
        return c;
    }();
    std::vector<Getter> getters = {
        {"Image geometry", "GetFinalCropRegion", Given::Frame, nullptr},
        {"Image geometry", "GetStaticActiveArraySize", Given::FrameStatic, nullptr},
        {"Camera identity", "GetAISPSensorType", Given::Nothing, nullptr},
        {"Camera identity", "getAIspSensorMode", Given::Nothing, nullptr},
    };
    std::vector<std::string> givens = {"frame", "static metadata of camera 0", "", ""};
    std::vector<Outcome> outcomes = {
        Returned(0,
                 Json{{"crop", {{"left", 406}, {"top", 296}, {"width", 3200}, {"height", 2400}}}}),
        Returned(-2, nullptr),
        Outcome{std::nullopt, nullptr, "the platform adapter is absent"},
        Outcome{std::nullopt, Json{{"mode", 15}}, ""},
    };
};

TEST_F(TextReport, OneLinePerCallGroupedBySubsystem) {
    const std::string text = Render();
    const std::string expected =
        "\nImage geometry\n"
        "  GetFinalCropRegion          0  crop (406, 296) 3200x2400\n"
        "      adapter: GetHolder, GetRoleMap\n"
        "  GetStaticActiveArraySize   -2  -  [given the static metadata of camera 0]\n"
        "\nCamera identity\n"
        "  GetAISPSensorType          --  not called: the platform adapter is absent\n"
        "  getAIspSensorMode              mode 15\n";
    ASSERT_GE(text.size(), expected.size());
    EXPECT_EQ(text.substr(text.size() - expected.size()), expected);
}

TEST_F(TextReport, JsonKeepsResultsOutputsAndReasons) {
    std::vector<CallRecord> calls(1);
    calls[0].getter = &getters[2];
    calls[0].outcome = outcomes[2];
    const Json report = jsonReport(capture, calls, true);
    ASSERT_EQ(report["calls"].size(), 1u);
    const Json& call = report["calls"][0];
    EXPECT_EQ(call["method"], "GetAISPSensorType");
    EXPECT_TRUE(call["result"].is_null());
    EXPECT_EQ(call["skipped"], "the platform adapter is absent");
    EXPECT_TRUE(call["logs"].is_array());
    EXPECT_EQ(report["input"]["width"], 1920);
}

}  // namespace
}  // namespace inspect
