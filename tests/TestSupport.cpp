#include "TestSupport.h"

#include <cstdio>
#include <ostream>

namespace kvtest {

std::ostream& operator<<(std::ostream& os, const Line& l) {
    return os << "{L" << l.level << " [" << l.file << "][" << l.func << "()]:[" << l.line << "] "
              << l.message << "}";
}

std::vector<Line> PrimaryLines(const kvhost::LogCapture& capture) {
    std::vector<Line> lines;
    std::vector<kvhost::LogRecord> primary;
    for (const auto& r : capture.records()) {
        if (r.sink == kvhost::LogSink::Online || r.sink == kvhost::LogSink::Offline) {
            primary.push_back(r);
        }
    }
    EXPECT_EQ(primary.size() % 2, 0u) << "a statement reached only one sink";
    for (size_t i = 0; i + 1 < primary.size(); i += 2) {
        const auto& on = primary[i];
        const auto& off = primary[i + 1];
        EXPECT_EQ(on.sink, kvhost::LogSink::Online);
        EXPECT_EQ(off.sink, kvhost::LogSink::Offline);
        EXPECT_EQ(on.level, off.level);
        EXPECT_EQ(on.group, 64u);
        EXPECT_EQ(off.group, 64u);
        EXPECT_EQ(on.tag, off.tag);
        EXPECT_EQ(on.file, off.file);
        EXPECT_EQ(on.line, off.line);
        EXPECT_EQ(on.format, off.format);
        EXPECT_EQ(on.text, off.text);
        EXPECT_EQ(on.format.rfind("[%s][%s()]:[%d] ", 0), 0u) << on.format;

        Line l{on.level, "", "", 0, ""};
        const std::string& t = on.text;
        const size_t fileEnd = t.find("][");
        const size_t funcEnd = t.find("()]:[", fileEnd);
        const size_t lineEnd = t.find("] ", funcEnd);
        EXPECT_TRUE(t.size() > 1 && t[0] == '[' && fileEnd != std::string::npos &&
                    funcEnd != std::string::npos && lineEnd != std::string::npos)
            << t;
        if (fileEnd == std::string::npos || funcEnd == std::string::npos ||
            lineEnd == std::string::npos) {
            continue;
        }
        l.file = t.substr(1, fileEnd - 1);
        l.func = t.substr(fileEnd + 2, funcEnd - fileEnd - 2);
        l.line = std::stoi(t.substr(funcEnd + 5, lineEnd - funcEnd - 5));
        l.message = t.substr(lineEnd + 2);
        // The sink's own file and line arguments repeat the prefix's.
        EXPECT_EQ(on.file, l.file);
        EXPECT_EQ(on.line, l.line);
        lines.push_back(l);
    }
    return lines;
}

}  // namespace kvtest
