// How outcomes read where the golden reports show no example: cut strings and
// objects that are not rectangles; and the numbers read back from the
// library's log lines.
#include "Report.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Html.h"

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

}  // namespace
}  // namespace inspect
