// Rules a user writes: what fires where, what a rule cannot decide, and a
// bad rule as one error naming its file and line.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "LoaderTestSupport.h"
#include "SessionText.h"
#include "kvanalysis/Checks.h"

namespace kvanalysis {
namespace {

using testing::add;
using testing::Event;
using testing::Layout;
using V = std::vector<std::vector<std::string>>;

// Zoom 1.0, 1.2, 2.0, 2.0, 2.2 on frames 10 to 14; afState scanning on 12.
std::vector<Event> session() {
    std::vector<Event> e;
    add(e, "android.control.zoomRatio", true, 10,
        V{{"1.00000000"}, {"1.20000000"}, {"2.00000000"}, {"2.00000000"}, {"2.20000000"}});
    add(e, "android.control.afState", true, 10,
        V{{"PASSIVE_FOCUSED"}, {"PASSIVE_FOCUSED"}, {"PASSIVE_SCAN"}, {"PASSIVE_FOCUSED"}});
    return e;
}

struct RuleCase {
    const char* name;
    std::string rule;
    Status status;
    std::vector<std::pair<int64_t, int64_t>> frames;  // of the findings
};

class Rules : public ::testing::TestWithParam<std::tuple<RuleCase, Layout>> {};

TEST_P(Rules, HoldWhereTheirExpressionDoes) {
    const auto& [c, layout] = GetParam();
    const kvhost::loader::ScratchFile file(std::string("rules") + testing::layoutName(layout),
                                           testing::sessionText(layout, session()));
    kvhost::SequenceOptions o;
    o.input.emplace(640, 480);
    const kvhost::SequenceResult s = kvhost::loadSequence({file.path}, o);
    ASSERT_TRUE(s) << s.error;
    std::string error;
    CheckOptions options;
    options.checks = {"timestamps"};
    options.rules = parseRules(c.rule, "mine.rules", &error);
    ASSERT_EQ(error, "");
    const Results r = runChecks(*s.sequence, options, &error);
    ASSERT_EQ(error, "");
    ASSERT_EQ(r.checks.size(), 2u);
    EXPECT_TRUE(r.checks[1].rule);
    EXPECT_EQ(statusName(r.checks[1].status), std::string(statusName(c.status))) << r.checks[1].why;
    std::vector<std::pair<int64_t, int64_t>> frames;
    for (const Finding& f : r.findings) {
        if (f.check == r.checks[1].id) frames.emplace_back(f.firstNumber, f.lastNumber);
    }
    EXPECT_EQ(frames, c.frames);
}

INSTANTIATE_TEST_SUITE_P(
    Layouts, Rules,
    ::testing::Combine(
        ::testing::Values(
            RuleCase{"Jump",
                     "zoom-jump warning: abs(delta.android.control.zoomRatio) > 0.5",
                     Status::Failed,
                     {{12, 12}}},
            RuleCase{"Previous",
                     "high error: prev.android.control.zoomRatio >= 2",
                     Status::Failed,
                     {{13, 14}}},
            RuleCase{"EnumName",
                     "scan info: android.control.afState == android.control.afState.PASSIVE_SCAN",
                     Status::Failed,
                     {{12, 12}}},
            RuleCase{"Never", "never error: android.control.zoomRatio > 8", Status::Passed, {}},
            RuleCase{"Steady",
                     "steady info: delta.android.control.zoomRatio == 0",
                     Status::Failed,
                     {{13, 13}}},
            RuleCase{"NoNames", "always info: 1 < 2", Status::Failed, {{10, 14}}},
            RuleCase{
                "NotRecorded", "ae error: android.control.aeState == 1", Status::NotDecidable, {}}),
        ::testing::Values(Layout::Dumpsys11, Layout::Dumpsys13, Layout::Watch)),
    [](const auto& info) {
        return std::string(std::get<0>(info.param).name) +
               testing::layoutName(std::get<1>(info.param));
    });

TEST(BadRules, AreOneErrorNamingFileAndLine) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"# mine\nzoom warning abs(1)\n",
         "mine.rules:2: expected \"<name> <severity>: <expression>\""},
        {"big loud: 1 > 0\n",
         "mine.rules:1: rule \"big\": severity \"loud\" is not info, warning or error"},
        {"a warning: 1 > 0\na error: 2 > 0\n",
         "mine.rules:2: rule \"a\": the name is taken by a check or another rule"},
        {"ae-lock error: 1\n",
         "mine.rules:1: rule \"ae-lock\": the name is taken by a check or another rule"},
        {"\nz error:\n", "mine.rules:2: rule \"z\": no expression"},
    };
    for (const auto& [text, message] : cases) {
        std::string error;
        EXPECT_TRUE(parseRules(text, "mine.rules", &error).empty());
        EXPECT_EQ(error, message);
    }
    std::string error;
    parseRules("z error: (1 + \n", "mine.rules", &error);
    EXPECT_EQ(error.rfind("mine.rules:1: rule \"z\": ", 0), 0u) << error;
}

// A name that is neither a tag nor a getter is found when the rule meets a
// session: one error naming the rule's line.
TEST(BadRules, UnknownNamesNameTheLine) {
    const kvhost::loader::ScratchFile file("unknown",
                                           testing::sessionText(Layout::Dumpsys11, session()));
    const kvhost::SequenceResult s = kvhost::loadSequence({file.path});
    ASSERT_TRUE(s) << s.error;
    for (const auto& [rule, name] : std::vector<std::pair<std::string, std::string>>{
             {"x error: android.control.zoomRatoi > 1", "android.control.zoomRatoi"},
             {"x error: GetZoom.value > 1", "GetZoom.value"},
             {"x error: android.control.afState.SHARP == 1", "android.control.afState.SHARP"}}) {
        std::string error;
        CheckOptions options;
        options.rules = parseRules("\n" + rule, "mine.rules", &error);
        options.getterNames = {"GetAndroidZoomRatio"};
        ASSERT_EQ(error, "");
        const Results r = runChecks(*s.sequence, options, &error);
        EXPECT_EQ(error, "mine.rules:2: rule \"x\": \"" + name +
                             "\" is neither a tag nor a getter's output");
        EXPECT_TRUE(r.checks.empty());
    }
}

}  // namespace
}  // namespace kvanalysis
