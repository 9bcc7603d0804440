// The object, the two tag access primitives and the two log conventions.
#include <cstdint>
#include <vector>

#include "KvMetadata.h"
#include "MetaLog.h"
#include "TestSupport.h"

namespace kvtest {
namespace {

using kvhost::LogSink;

constexpr uint32_t kExposureTime = 0xE0000;  // int64
constexpr uint32_t kCropRegion = 0xD0000;    // int32

TEST_F(MetaTest, GetMetaDataFindsByIdAndNameWins) {
    md->putInt32(kCropRegion, {1, 2, 3, 4, 5});
    void* data = nullptr;
    uint32_t count = 0;
    EXPECT_EQ(utils.GetMetaData(md, nullptr, kCropRegion, &data, &count), 0);
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(count, 5u);
    EXPECT_EQ(static_cast<int32_t*>(data)[4], 5);

    md->putInt32("kovani.snapshot.fwkCameraId", {7});
    EXPECT_EQ(utils.GetMetaData(md, "kovani.snapshot.fwkCameraId", kCropRegion, &data, nullptr), 0);
    EXPECT_EQ(*static_cast<int32_t*>(data), 7);
    EXPECT_TRUE(Lines().empty());
}

TEST_F(MetaTest, GetMetaDataBadArgumentsAndMisses) {
    const struct {
        const char* what;
        bool nullMetadata;
        const char* name;
        uint32_t id;
        bool presentEmpty;    // entry present with count 0
        bool dataSetOnEntry;  // caller's *data already non-null
        int expected;
        LineList lines;
    } cases[] = {
        {"null metadata", true, "kovani.flash.mode", 0, false, false, -2, {kArgNull}},
        {"neither name nor id", false, nullptr, 0, false, false, -2, {kArgNull}},
        {"absent tag by id", false, nullptr, kCropRegion, false, false, -2, {kLookupMiss}},
        {"unknown name", false, "no.such.tag", 0, false, false, -2, {kLookupMiss}},
        {"empty entry", false, nullptr, kCropRegion, true, false, -2, {kLookupMiss}},
        {"empty entry, pointer already set", false, nullptr, kCropRegion, true, true, -1, {}},
        {"absent tag, pointer already set", false, nullptr, kExposureTime, false, true, -1, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        capture.clear();
        auto meta = kvhost::Metadata::create();
        if (c.presentEmpty) {
            ASSERT_EQ(meta->putEmpty(c.id), 0);
        }
        int sentinel = 0;
        void* const before = c.dataSetOnEntry ? &sentinel : nullptr;
        void* data = before;
        uint32_t count = 42;
        std::shared_ptr<KvMetadata> arg = c.nullMetadata ? nullptr : meta;
        EXPECT_EQ(utils.GetMetaData(arg, c.name, c.id, &data, &count), c.expected);
        EXPECT_EQ(data, before);
        EXPECT_EQ(count, 42u);
        EXPECT_EQ(Lines(), c.lines);
    }
}

// Writing by name is exercised through the setters; by id only direct callers use it.
TEST_F(MetaTest, SetMetaDataByIdPassesCodesThroughAndLogsOnlyArguments) {
    int crop[4] = {10, 20, 30, 40};
    EXPECT_EQ(utils.SetMetaData<int>(md, nullptr, kCropRegion, crop, 4), 0);
    EXPECT_EQ(md->find(kCropRegion).data.i32[3], 40);
    float value = 2.0f;
    EXPECT_EQ(utils.SetMetaData<float>(md, "no.such.tag", 0, &value, 1), -1);
    EXPECT_EQ(md->size(), 1u);
    // By id the container's own status comes back: it refuses a float array
    // for an int32 tag.
    const int status = md->update(kCropRegion, &value, 1);
    ASSERT_NE(status, 0);
    EXPECT_EQ(utils.SetMetaData<float>(md, nullptr, kCropRegion, &value, 1), status);
    EXPECT_TRUE(Lines().empty());

    EXPECT_EQ(utils.SetMetaData<float>(nullptr, "com.qti.sensorbps.gain", 0, &value, 1), -2);
    EXPECT_EQ(utils.SetMetaData<float>(md, nullptr, 0, &value, 1), -2);
    const Line argNull = L(4, kMU, "SetMetaData", "pArg is null");
    EXPECT_EQ(Lines(), (LineList{argNull, argNull}));
}

// The secondary convention, driven directly through its helper.
class DebugLogTest : public MetaTest {
protected:
    struct Gates {
        uint32_t level, group, offLevel, offGroup, mask;
    };
    static void Set(const Gates& g) {
        kvdebug::gKvCamLogLevel = g.level;
        kvdebug::gKvCamLogGroup = g.group;
        kvdebug::gKvCamOfflineLogLevel = g.offLevel;
        kvdebug::gKvCamOfflineLogGroup = g.offGroup;
        kvdebug::gKvCamDebugMask = g.mask;
    }
    void TearDown() override {
        Set(saved_);
        kvhost::setDebugInterceptResult(0);
        MetaTest::TearDown();
    }

private:
    Gates saved_{kvdebug::gKvCamLogLevel, kvdebug::gKvCamLogGroup, kvdebug::gKvCamOfflineLogLevel,
                 kvdebug::gKvCamOfflineLogGroup, kvdebug::gKvCamDebugMask};
};

TEST_F(DebugLogTest, GatesAreCheckedPerPath) {
    const struct {
        const char* what;
        Gates gates;
        int intercept;  // the interceptor's answer
        size_t online, android, offline;
    } cases[] = {
        {"level above information", {5, 2, 5, 2, 1}, 0, 0, 0, 0},
        {"level exactly information", {4, 2, 4, 2, 1}, 0, 1, 1, 1},
        {"group bit missing", {0, 0xFD, 0, 0xFD, 1}, 0, 0, 0, 0},
        {"group bit only above the low byte", {0, 0x200, 0, 0x200, 1}, 0, 0, 0, 0},
        {"debug mask 0 stops only offline", {0, 0xFF, 0, 0xFF, 0}, 0, 1, 1, 0},
        {"offline open, online closed", {9, 0xFF, 4, 0xFF, 1}, 0, 0, 0, 1},
        {"interceptor takes the Android line", {0, 0xFF, 0, 0xFF, 1}, 1, 1, 0, 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        capture.clear();
        Set(c.gates);
        kvhost::setDebugInterceptResult(c.intercept);
        KV_DLOG_I("get Gyro from holder, gyros size: %d", 1);
        EXPECT_EQ(capture.records(LogSink::DebugIntercept).size(), c.online);
        EXPECT_EQ(capture.records(LogSink::Android).size(), c.android);
        EXPECT_EQ(capture.records(LogSink::DebugOffline).size(), c.offline);
    }
}

}  // namespace
}  // namespace kvtest
