// Helpers of the tests that go through the platform adapter: a fixture that
// resets the stand-in adapter around each test and records its calls, and a
// reader of the secondary-convention lines.
#pragma once

#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include "TestSupport.h"
#include "kvhost/Adapter.h"

namespace kvtest {

class PlatformTest : public MetaTest {
protected:
    void SetUp() override { kvhost::resetAdapter(); }
    void TearDown() override {
        kvhost::resetAdapter();
        MetaTest::TearDown();
    }

    kvhost::AdapterRecorder adapterCalls;

    void Script(const std::function<void(kvhost::AdapterScript&)>& edit) {
        kvhost::AdapterScript s = kvhost::adapterScript();
        edit(s);
        kvhost::setAdapterScript(s);
    }

    struct DebugLine {
        std::string file, func, format, text;
    };

    // Every secondary statement as the interceptor saw it; each must also
    // have reached Android's log (the interceptor leaves lines alone by
    // default) and the offline sink with the same text.
    std::vector<DebugLine> DebugLines() const {
        const auto intercepted = capture.records(kvhost::LogSink::DebugIntercept);
        const auto android = capture.records(kvhost::LogSink::Android);
        const auto offline = capture.records(kvhost::LogSink::DebugOffline);
        EXPECT_EQ(android.size(), intercepted.size());
        EXPECT_EQ(offline.size(), intercepted.size());
        std::vector<DebugLine> lines;
        for (size_t i = 0; i < intercepted.size(); ++i) {
            const auto& r = intercepted[i];
            EXPECT_EQ(r.group, 2u);
            EXPECT_EQ(r.letter, 'I');
            if (i < offline.size()) {
                EXPECT_EQ(std::tie(offline[i].text, offline[i].func, offline[i].line),
                          std::tie(r.text, r.func, r.line));
            }
            if (i < android.size()) {
                EXPECT_EQ(android[i].priority, 4);
                EXPECT_EQ(android[i].text, "ALGO " + r.file + ":" + std::to_string(r.line) + " " +
                                               r.func + "()" + r.text);
            }
            lines.push_back(DebugLine{r.file, r.func, r.format, r.text});
        }
        return lines;
    }
};

}  // namespace kvtest
