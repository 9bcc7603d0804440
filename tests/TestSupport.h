// Shared helpers of the test suite: a fixture with a fresh container, a log
// capture, and the primary-convention lines decoded.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "MetaUtils.h"
#include "kvhost/LogCapture.h"
#include "kvhost/Metadata.h"

namespace kvtest {

// One statement of the primary convention: "[file][func()]:[line] message".
struct Line {
    unsigned level;
    std::string file;
    std::string func;
    int line;
    std::string message;

    bool operator==(const Line& o) const {
        return level == o.level && file == o.file && func == o.func && message == o.message;
    }
};
std::ostream& operator<<(std::ostream& os, const Line& l);

// Expected line, the source line left open.
inline Line L(unsigned level, std::string file, std::string func, std::string message) {
    return Line{level, std::move(file), std::move(func), 0, std::move(message)};
}

// Decodes the captured primary-convention statements. Every statement must
// reach the online sink and then the offline sink with the same arguments,
// group 64, and its file and line equal to the ones in its text; a violation
// fails the current test.
std::vector<Line> PrimaryLines(const kvhost::LogCapture& capture);

template <typename T>
std::vector<uint8_t> Bytes(const T& value) {
    std::vector<uint8_t> out(sizeof(T));
    std::memcpy(out.data(), &value, sizeof(T));
    return out;
}

class MetaTest : public ::testing::Test {
protected:
    void TearDown() override { kvhost::clearStaticMetadata(); }

    std::vector<Line> Lines() const { return PrimaryLines(capture); }

    // Registers `md` as the static metadata of `cameraId` and points the
    // frame's framework camera id at it.
    std::shared_ptr<kvhost::Metadata> StaticFor(int cameraId) {
        auto stat = kvhost::Metadata::create();
        kvhost::setStaticMetadata(static_cast<uint32_t>(cameraId), stat);
        md->putInt32("kovani.snapshot.fwkCameraId", {cameraId});
        return stat;
    }

    kvalgo2::MetaUtils utils;
    std::shared_ptr<kvhost::Metadata> md = kvhost::Metadata::create();
    kvhost::LogCapture capture;
};

}  // namespace kvtest
