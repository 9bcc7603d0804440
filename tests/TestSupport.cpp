#include "TestSupport.h"

#include <ostream>
#include <tuple>

#include "UtilsLog.h"

namespace kvtest {

std::ostream& operator<<(std::ostream& os, const Line& l) {
    return os << "{L" << l.level << " [" << l.file << "][" << l.func << "()]:[" << l.line << "] "
              << l.message << "}";
}

std::vector<Line> PrimaryLines(const kvhost::LogCapture& capture) {
    std::vector<kvhost::LogRecord> primary;
    for (const auto& r : capture.records()) {
        if (r.sink == kvhost::LogSink::Online || r.sink == kvhost::LogSink::Offline) {
            primary.push_back(r);
        }
    }
    EXPECT_EQ(primary.size() % 2, 0u) << "a statement reached only one sink";
    std::vector<Line> lines;
    for (size_t i = 0; i + 1 < primary.size(); i += 2) {
        const auto& on = primary[i];
        const auto& off = primary[i + 1];
        EXPECT_EQ(on.sink, kvhost::LogSink::Online);
        EXPECT_EQ(off.sink, kvhost::LogSink::Offline);
        EXPECT_EQ(
            std::tie(on.level, on.group, on.tag, on.file, on.line, on.format, on.text),
            std::tie(off.level, off.group, off.tag, off.file, off.line, off.format, off.text));
        EXPECT_EQ(on.group, 64u);
        EXPECT_EQ(on.tag, UtilsSettings_getter()->logTag);
        EXPECT_EQ(on.format.rfind("[%s][%s()]:[%d] ", 0), 0u) << on.format;

        // "[file][func()]:[line] message"; the sink's own file and line repeat the prefix's.
        const std::string& t = on.text;
        const size_t fileEnd = t.find("][");
        const size_t funcEnd = t.find("()]:[", fileEnd);
        const size_t lineEnd = t.find("] ", funcEnd);
        if (t.empty() || t[0] != '[' || lineEnd == std::string::npos) {
            ADD_FAILURE() << "not a primary statement: " << t;
            continue;
        }
        Line l{on.level, t.substr(1, fileEnd - 1), t.substr(fileEnd + 2, funcEnd - fileEnd - 2),
               std::stoi(t.substr(funcEnd + 5, lineEnd - funcEnd - 5)), t.substr(lineEnd + 2)};
        EXPECT_EQ(on.file, l.file);
        EXPECT_EQ(on.line, l.line);
        lines.push_back(l);
    }
    return lines;
}

}  // namespace kvtest
