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

const Line kGetFail = L(3, "MetaUtils.cpp", "GetMetaData", "GetMetadata err");
const Line kArgNull = L(4, "MetaUtils.cpp", "GetMetaData", "pArg is null");

class GetMetaDataTest : public MetaTest {};

TEST_F(GetMetaDataTest, FindsByIdAndReportsCount) {
    md->putInt32(kCropRegion, {1, 2, 3, 4, 5});
    void* data = nullptr;
    uint32_t count = 0;
    EXPECT_EQ(utils.GetMetaData(md, nullptr, kCropRegion, &data, &count), 0);
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(count, 5u);
    EXPECT_EQ(static_cast<int32_t*>(data)[4], 5);
    EXPECT_TRUE(Lines().empty());
}

TEST_F(GetMetaDataTest, NameWinsOverId) {
    md->putInt32("kovani.snapshot.fwkCameraId", {7});
    md->putInt32(kCropRegion, {1, 2, 3, 4});
    void* data = nullptr;
    EXPECT_EQ(utils.GetMetaData(md, "kovani.snapshot.fwkCameraId", kCropRegion, &data, nullptr), 0);
    EXPECT_EQ(*static_cast<int32_t*>(data), 7);
}

TEST_F(GetMetaDataTest, CountIsWrittenOnlyOnSuccess) {
    void* data = nullptr;
    uint32_t count = 99;
    EXPECT_EQ(utils.GetMetaData(md, nullptr, kCropRegion, &data, &count), -2);
    EXPECT_EQ(count, 99u);
    EXPECT_EQ(data, nullptr);
}

TEST_F(GetMetaDataTest, BadArgumentsAndMisses) {
    struct Case {
        const char* what;
        bool nullMetadata;
        const char* name;
        uint32_t id;
        bool presentEmpty;    // entry present with count 0
        bool dataSetOnEntry;  // caller's *data already non-null
        int expected;
        std::vector<Line> lines;
    };
    const Case cases[] = {
        {"null metadata", true, "kovani.flash.mode", 0, false, false, -2, {kArgNull}},
        {"neither name nor id", false, nullptr, 0, false, false, -2, {kArgNull}},
        {"absent tag by id", false, nullptr, kCropRegion, false, false, -2, {kGetFail}},
        {"unknown name", false, "no.such.tag", 0, false, false, -2, {kGetFail}},
        {"empty entry", false, nullptr, kCropRegion, true, false, -2, {kGetFail}},
        {"empty entry, pointer already set", false, nullptr, kCropRegion, true, true, -1, {}},
        {"absent tag, pointer already set", false, nullptr, kExposureTime, false, true, -1, {}},
    };
    for (const Case& c : cases) {
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

class SetMetaDataTest : public MetaTest {};

TEST_F(SetMetaDataTest, WritesByNameAndById) {
    float gain = 1.5f;
    EXPECT_EQ(utils.SetMetaData<float>(md, "com.qti.sensorbps.gain", 0, &gain, 1), 0);
    const auto e = md->find("com.qti.sensorbps.gain");
    ASSERT_EQ(e.count, 1u);
    EXPECT_EQ(e.data.f[0], 1.5f);

    int crop[4] = {10, 20, 30, 40};
    EXPECT_EQ(utils.SetMetaData<int>(md, nullptr, kCropRegion, crop, 4), 0);
    EXPECT_EQ(md->find(kCropRegion).count, 4u);

    unsigned char bytes[3] = {1, 2, 3};
    EXPECT_EQ(utils.SetMetaData<unsigned char>(md, "kovani.snapshot.imageName", 0, bytes, 3), 0);
    EXPECT_EQ(md->find("kovani.snapshot.imageName").count, 3u);
    EXPECT_TRUE(Lines().empty());
}

TEST_F(SetMetaDataTest, FailuresPassCodesThroughAndLogOnlyArguments) {
    float value = 2.0f;
    // Unknown name: -1, silent, nothing written.
    EXPECT_EQ(utils.SetMetaData<float>(md, "no.such.tag", 0, &value, 1), -1);
    EXPECT_EQ(md->size(), 0u);
    EXPECT_TRUE(Lines().empty());

    // By id the container's own status comes back unchanged: a float array
    // for an int32 tag is refused by the container.
    const int status = md->update(kCropRegion, &value, 1);
    ASSERT_NE(status, 0);
    EXPECT_EQ(utils.SetMetaData<float>(md, nullptr, kCropRegion, &value, 1), status);
    EXPECT_TRUE(Lines().empty());

    EXPECT_EQ(utils.SetMetaData<float>(nullptr, "com.qti.sensorbps.gain", 0, &value, 1), -2);
    EXPECT_EQ(utils.SetMetaData<float>(md, nullptr, 0, &value, 1), -2);
    const Line argNull = L(4, "MetaUtils.cpp", "SetMetaData", "pArg is null");
    EXPECT_EQ(Lines(), (std::vector<Line>{argNull, argNull}));
}

TEST_F(MetaTest, SetCameraIdAlwaysSucceeds) {
    EXPECT_EQ(utils.SetCameraId(0, 0), 0);
    EXPECT_EQ(utils.SetCameraId(-1, 12345), 0);
    EXPECT_TRUE(capture.records().empty());
}

// ---- Log conventions -----------------------------------------------------------

TEST_F(MetaTest, PrimaryStatementGoesOnlineThenOfflineWithItsOwnSite) {
    void* data = nullptr;
    utils.GetMetaData(md, nullptr, kCropRegion, &data, nullptr);
    const auto records = capture.records();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].sink, LogSink::Online);
    EXPECT_EQ(records[1].sink, LogSink::Offline);
    EXPECT_EQ(records[0].format, "[%s][%s()]:[%d] GetMetadata err");
    EXPECT_EQ(records[0].file, "MetaUtils.cpp");
    EXPECT_EQ(records[0].tag, std::string(UtilsSettings_getter()->logTag));
    EXPECT_GT(records[0].line, 0);
    EXPECT_EQ(Lines(), (std::vector<Line>{kGetFail}));
}

// The secondary convention, driven directly through its helper.
class DebugLogTest : public MetaTest {
protected:
    void SetUp() override {
        saved_ = {kvdebug::gKvCamLogLevel, kvdebug::gKvCamLogGroup, kvdebug::gKvCamOfflineLogLevel,
                  kvdebug::gKvCamOfflineLogGroup, kvdebug::gKvCamDebugMask};
    }
    void TearDown() override {
        kvdebug::gKvCamLogLevel = saved_[0];
        kvdebug::gKvCamLogGroup = saved_[1];
        kvdebug::gKvCamOfflineLogLevel = saved_[2];
        kvdebug::gKvCamOfflineLogGroup = saved_[3];
        kvdebug::gKvCamDebugMask = saved_[4];
        kvhost::setDebugInterceptResult(0);
        MetaTest::TearDown();
    }
    static void Emit(int size) { KV_DLOG_I("get Gyro from holder, gyros size: %d", size); }
    void Gates(uint32_t level, uint32_t group, uint32_t offLevel, uint32_t offGroup,
               uint32_t mask) {
        kvdebug::gKvCamLogLevel = level;
        kvdebug::gKvCamLogGroup = group;
        kvdebug::gKvCamOfflineLogLevel = offLevel;
        kvdebug::gKvCamOfflineLogGroup = offGroup;
        kvdebug::gKvCamDebugMask = mask;
    }
    size_t Count(LogSink sink) const { return capture.records(sink).size(); }

private:
    std::vector<uint32_t> saved_;
};

TEST_F(DebugLogTest, OpenGatesReachInterceptorAndroidAndOffline) {
    Gates(4, 2, 4, 2, 1);
    Emit(250);
    const auto intercept = capture.records(LogSink::DebugIntercept);
    ASSERT_EQ(intercept.size(), 1u);
    EXPECT_EQ(intercept[0].group, 2u);
    EXPECT_EQ(intercept[0].letter, 'I');
    EXPECT_EQ(intercept[0].func, "Emit");
    EXPECT_EQ(intercept[0].file, "core_test.cpp");
    EXPECT_EQ(intercept[0].format, "get Gyro from holder, gyros size: %d");

    const auto android = capture.records(LogSink::Android);
    ASSERT_EQ(android.size(), 1u);
    EXPECT_EQ(android[0].priority, 4);
    EXPECT_EQ(android[0].tag, std::string(UtilsSettings_getter()->logTag));
    const std::string expected = std::string(kvdebug::Log::kvaGroupToString(2)) +
                                 " core_test.cpp:" + std::to_string(intercept[0].line) +
                                 " Emit()get Gyro from holder, gyros size: 250";
    EXPECT_EQ(android[0].text, expected);

    const auto offline = capture.records(LogSink::DebugOffline);
    ASSERT_EQ(offline.size(), 1u);
    EXPECT_EQ(offline[0].text, "get Gyro from holder, gyros size: 250");
    EXPECT_EQ(offline[0].func, "Emit");
    EXPECT_EQ(offline[0].line, intercept[0].line);
    EXPECT_TRUE(Lines().empty());
}

TEST_F(DebugLogTest, GatesAreCheckedPerPath) {
    struct Case {
        const char* what;
        uint32_t level, group, offLevel, offGroup, mask;
        size_t online, offline;
    };
    const Case cases[] = {
        {"level above information", 5, 2, 5, 2, 1, 0, 0},
        {"group bit missing", 0, 0xFD, 0, 0xFD, 1, 0, 0},
        {"group bit only above the low byte", 0, 0x200, 0, 0x200, 1, 0, 0},
        {"debug mask 0 stops only offline", 0, 0xFF, 0, 0xFF, 0, 1, 0},
        {"offline open, online closed", 9, 0xFF, 4, 0xFF, 1, 0, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        capture.clear();
        Gates(c.level, c.group, c.offLevel, c.offGroup, c.mask);
        Emit(1);
        EXPECT_EQ(Count(LogSink::DebugIntercept), c.online);
        EXPECT_EQ(Count(LogSink::Android), c.online);
        EXPECT_EQ(Count(LogSink::DebugOffline), c.offline);
    }
}

TEST_F(DebugLogTest, InterceptorSuppressesOnlyTheAndroidLine) {
    Gates(0, 0xFF, 0, 0xFF, 1);
    kvhost::setDebugInterceptResult(1);
    Emit(3);
    EXPECT_EQ(Count(LogSink::DebugIntercept), 1u);
    EXPECT_EQ(Count(LogSink::Android), 0u);
    EXPECT_EQ(Count(LogSink::DebugOffline), 1u);
}

}  // namespace
}  // namespace kvtest
