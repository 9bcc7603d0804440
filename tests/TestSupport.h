// Shared helpers of the test suite: a fixture with a fresh container, a log
// capture, and the primary-convention lines decoded.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "MetaUtils.h"
#include "kvhost/LogCapture.h"
#include "kvhost/Metadata.h"

namespace kvtest {

constexpr const char* kMU = "MetaUtils.cpp";
constexpr const char* kMtk = "MetaUtilsMtk.cpp";

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
using LineList = std::vector<Line>;

// Expected line, the source line left open.
inline Line L(unsigned level, std::string file, std::string func, std::string message) {
    return Line{level, std::move(file), std::move(func), 0, std::move(message)};
}
// The lookup primitive's own lines.
inline const Line kLookupMiss = L(3, kMU, "GetMetaData", "GetMetadata err");
inline const Line kArgNull = L(4, kMU, "GetMetaData", "pArg is null");

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

inline kvalgo2::ChiRect Rect(uint32_t l, uint32_t t, uint32_t w, uint32_t h) {
    return kvalgo2::ChiRect{l, t, w, h};
}
inline std::vector<uint32_t> Fields(const __UtilsImage_Rect& r) {
    return {r.left, r.top, r.width, r.height};
}

// Whether the suite runs on the hardened library: a METAUTILS_HARDENED tree,
// or a default tree whose hardened twin a run puts first on the library path
// with KVTEST_HARDENED=1 (scripts/test.sh). The tests of short tags expect
// its refusals, and the default library's trust otherwise.
#if !defined(KVTEST_HARDENED_BUILD)
#define KVTEST_HARDENED_BUILD 0
#endif
inline bool Hardened() {
    const char* run = std::getenv("KVTEST_HARDENED");
    return KVTEST_HARDENED_BUILD || (run != nullptr && std::string(run) == "1");
}

// A getter `int (MetaUtils::*)(shared_ptr<KvMetadata>, T* or T&, extra...)`
// behind an untyped output, for tables of getters.
using Invoke = std::function<int(kvalgo2::MetaUtils&, std::shared_ptr<KvMetadata>, void*)>;
template <typename T, typename... Extra>
Invoke Bind(int (kvalgo2::MetaUtils::*method)(std::shared_ptr<KvMetadata>, T*, Extra...),
            Extra... extra) {
    return [=](kvalgo2::MetaUtils& u, std::shared_ptr<KvMetadata> m, void* out) {
        return (u.*method)(std::move(m), static_cast<T*>(out), extra...);
    };
}
template <typename T, typename... Extra>
Invoke Bind(int (kvalgo2::MetaUtils::*method)(std::shared_ptr<KvMetadata>, T&, Extra...),
            Extra... extra) {
    return [=](kvalgo2::MetaUtils& u, std::shared_ptr<KvMetadata> m, void* out) {
        return (u.*method)(std::move(m), *static_cast<T*>(out), extra...);
    };
}

class MetaTest : public ::testing::Test {
protected:
    void TearDown() override { kvhost::clearStaticMetadata(); }

    std::vector<Line> Lines() const { return PrimaryLines(capture); }

    // Messages of the primary lines of one function.
    std::vector<std::string> Messages(const std::string& func) const {
        std::vector<std::string> out;
        for (const Line& l : Lines()) {
            if (l.func == func) out.push_back(l.message);
        }
        return out;
    }

    // Registers fresh static metadata for `cameraId` and points the frame's
    // framework camera id at it.
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
