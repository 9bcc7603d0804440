// Tests of what the host stand-ins promise beyond what the library's own
// tests exercise: the tag table's rows and registration rules, the
// container's payload blocks, the log capture API and echo, the lookup
// recorder, and the adapter's call recorder. (Concurrent reads and logging are the ThreadSanitizer
// stage's: several threads look tags up in containers and log through the
// library.)
#include <android/log.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "KvDebug.h"
#include "KvMetadata.h"
#include "UtilsLog.h"
#include "kvhost/Adapter.h"
#include "kvhost/LogCapture.h"
#include "kvhost/LookupRecorder.h"
#include "kvhost/Metadata.h"

// The adapter stand-in's entry point, which the product library finds by name.
extern "C" adapter::AdapterInstance* GetInstance();

namespace kvhost_test {
namespace {

using kvhost::LogCapture;
using kvhost::LogRecord;
using kvhost::LogSink;
using kvhost::Metadata;
using kvhost::TagType;

uint32_t IdOf(const char* name) {
    const kvhost::TagInfo* info = kvhost::findTag(name);
    EXPECT_NE(info, nullptr) << name;
    return info != nullptr ? info->id : 0;
}

// ---- Tag table -------------------------------------------------------------

TEST(HostTagTable, AndroidRowsOfTheDataFileThenVendorTagsSortedAndUnique) {
    std::ifstream tsv(KVTEST_SOURCE_DIR "/host/data/android-camera-tags.tsv");
    size_t rows = 0;
    for (std::string line; std::getline(tsv, line);) {
        if (line.empty() || line[0] == '#') continue;
        ++rows;
        std::string id, name, type;
        std::istringstream(line) >> id >> name >> type;
        const kvhost::TagInfo* info = kvhost::findTag(name.c_str());
        ASSERT_NE(info, nullptr) << name;
        EXPECT_EQ(std::make_tuple(info->id, std::string(kvhost::typeName(info->type))),
                  std::make_tuple(uint32_t(std::stoul(id, nullptr, 16)), type))
            << name;
    }
    const std::vector<kvhost::TagInfo> tags = kvhost::knownTags();
    for (size_t i = 0; i < tags.size(); ++i) {
        // Sorted by id; Android's own tags, and only they, below the vendor boundary.
        EXPECT_TRUE(i == 0 || tags[i - 1].id < tags[i].id) << tags[i].name;
        EXPECT_EQ(tags[i].id < 0x80000000u, tags[i].name.rfind("android.", 0) == 0) << tags[i].name;
    }
    EXPECT_GT(rows, 300u);
    EXPECT_EQ(IdOf("MTK_3A_FEATURE_AF_REGION"), 0x80060001u);
}

TEST(HostTagTable, RegistrationAcceptsNewAndIdenticalDefinitionsOnly) {
    const char* name = "hosttest.registration.fresh";
    ASSERT_EQ(kvhost::registerTag(name, 0x8FF00001, TagType::Double), 0);
    EXPECT_EQ(kvhost::registerTag(name, 0x8FF00001, TagType::Double), 0);  // the same again
    const struct {
        const char* name;
        uint32_t id;
        TagType type;
    } refused[] = {{name, 0x8FF00002, TagType::Double},
                   {"hosttest.registration.other", 0x8FF00001, TagType::Double},
                   {name, 0x8FF00001, TagType::Int32},
                   {"kovani.flash.mode", 0x8FF00003, TagType::Int32},
                   {"hosttest.registration.android", 0xD0000, TagType::Int32},
                   {"", 0x8FF00004, TagType::Byte},
                   {"hosttest.registration.bad", 0x8FF00005, TagType(9)}};
    for (const auto& r : refused) {
        EXPECT_NE(kvhost::registerTag(r.name, r.id, r.type), 0) << r.name << " " << r.id;
    }
    // None of them changed what the table holds.
    EXPECT_EQ(IdOf(name), 0x8FF00001u);
    EXPECT_EQ(kvhost::findTag(name)->type, TagType::Double);
    EXPECT_EQ(kvhost::findTag("hosttest.registration.other"), nullptr);
    EXPECT_EQ(kvhost::findTag(0xD0000u)->name, "android.scaler.cropRegion");
}

// ---- Metadata container ------------------------------------------------------

TEST(HostMetadata, PayloadBlocksAreAlignedZeroPaddedAtLeastOneWordAndOfTheTagsType) {
    // Readers load whole words past the payload (a 32-bit read of a one-byte
    // tag); under AddressSanitizer this reads every byte the block promises.
    const struct {
        const char* tagName;
        TagType type;
    } cases[] = {{"kovani.snapshot.imageName", TagType::Byte},
                 {"kovani.hdr.gtm.curve", TagType::Int32},
                 {"kovani.mfnr.anchorTimeStamp", TagType::Int64},
                 {"kovani.supernight.color.correction.transform", TagType::Rational}};
    const std::vector<uint8_t> fill(17 * 8, 0xAB), larger(200, 0xCD);
    for (const auto& c : cases) {
        const uint32_t id = IdOf(c.tagName);
        for (size_t count : {0u, 1u, 3u, 17u}) {
            SCOPED_TRACE(std::string(c.tagName) + " count " + std::to_string(count));
            auto meta = Metadata::create();
            // Replacing a larger entry leaves no trace of it; no other type gets in.
            ASSERT_EQ(meta->put(id, c.type, larger.data(), 16), 0);
            ASSERT_EQ(meta->put(c.tagName, c.type, fill.data(), count), 0);
            const TagType other = c.type == TagType::Byte ? TagType::Int32 : TagType::Byte;
            EXPECT_EQ(meta->put(id, other, larger.data(), 2), kvhost::kInvalid);
            const camera_metadata_ro_entry_t e = meta->find(id);
            ASSERT_EQ(e.count, count);
            EXPECT_EQ(e.type, static_cast<uint8_t>(c.type));
            ASSERT_NE(e.data.u8, nullptr);
            EXPECT_EQ(reinterpret_cast<uintptr_t>(e.data.u8) % 8, 0u);
            const size_t payload = count * kvhost::typeSize(c.type);
            const size_t block = std::max<size_t>(8, (payload + 7) / 8 * 8);
            for (size_t i = 0; i < block; ++i) {
                ASSERT_EQ(e.data.u8[i], i < payload ? 0xAB : 0x00) << "byte " << i;
            }
        }
    }
}

// ---- Log sinks and capture -----------------------------------------------------

class HostLog : public ::testing::Test {
protected:
    void SetUp() override { kvhost::setLogEcho(false); }
    void TearDown() override {
        kvhost::setLogEcho(loadTimeEcho_);
        kvhost::setDebugInterceptResult(0);
    }
    // Every test restores it: what the fixture saw first is the load-time value.
    static inline const bool loadTimeEcho_ = kvhost::logEcho();
};

// Every field of a record, for whole-record comparisons.
auto Fields(const LogRecord& r) {
    return std::tie(r.sink, r.level, r.group, r.tag, r.file, r.line, r.func, r.letter, r.format,
                    r.text, r.priority);
}

TEST_F(HostLog, EverySinkRecordsItsArgumentsInArrivalOrderInOneStore) {
    // The settings record holds the log tag inline at byte 72, as on a device.
    UtilsSettings* settings = UtilsSettings_getter();
    EXPECT_EQ(reinterpret_cast<char*>(settings->logTag) - reinterpret_cast<char*>(settings), 72);
    EXPECT_STREQ(settings->logTag, "KvMetaUtils");

    const int minimum = __android_log_get_minimum_priority();
    {
        LogCapture capture;
        EXPECT_EQ(__android_log_get_minimum_priority(), ANDROID_LOG_VERBOSE);
        __UtilsLog_PintOnline(3, 64, "Tag", "MetaUtils.cpp", 77, "[%s][%s()]:[%d] v=%d %s",
                              "MetaUtils.cpp", "GetMetaData", 77, 5, "x");
        {
            // A nested capture shares the store; its end neither stops
            // recording nor gives liblog back.
            LogCapture inner;
            __android_log_print(ANDROID_LOG_INFO, "Tag", "two %d", 2);
            __UtilsLog_PintOffline(2, 64, "Tag", "f.cpp", 7, "off %d", 1);
            EXPECT_EQ(inner.records().size(), 3u);
        }
        EXPECT_EQ(kvdebug::Log::catchLogEncryptLog(2, "MetaUtilsMtk.cpp", 12, "GetGyroData", 'I',
                                                   "gyros size: %d", 3),
                  0);
        kvhost::setDebugInterceptResult(5);
        EXPECT_EQ(kvdebug::Log::catchLogEncryptLog(2, "f.cpp", 1, "F", 'W', "x"), 5);
        __android_log_write(ANDROID_LOG_DEBUG, "Tag", "six %d");
        kvdebug::Log::logSystem(2, "I", "MetaUtilsMtk.cpp", "operator()", 40, "crop %d", 7);
        const std::vector<LogRecord> r = capture.records();
        ASSERT_EQ(r.size(), 7u);
        EXPECT_EQ(kvhost::retainedLogRecords(), 7u);
        // Android lines: the priority as level, no format, group, file or line.
        const LogRecord expected[] = {
            {LogSink::Online, 3, 64, "Tag", "MetaUtils.cpp", 77, "", 0, "[%s][%s()]:[%d] v=%d %s",
             "[MetaUtils.cpp][GetMetaData()]:[77] v=5 x", 0},
            {LogSink::Android, 4, 0, "Tag", "", 0, "", 0, "", "two 2", 4},
            {LogSink::Offline, 2, 64, "Tag", "f.cpp", 7, "", 0, "off %d", "off 1", 0},
            {LogSink::DebugIntercept, 4, 2, "", "MetaUtilsMtk.cpp", 12, "GetGyroData", 'I',
             "gyros size: %d", "gyros size: 3", 0},
            {LogSink::DebugIntercept, 5, 2, "", "f.cpp", 1, "F", 'W', "x", "x", 0},
            {LogSink::Android, 3, 0, "Tag", "", 0, "", 0, "", "six %d", 3},
            {LogSink::DebugOffline, 4, 2, "", "MetaUtilsMtk.cpp", 40, "operator()", 'I', "crop %d",
             "crop 7", 0},
        };
        for (size_t i = 0; i < 7; ++i) EXPECT_EQ(Fields(r[i]), Fields(expected[i])) << i;
        EXPECT_EQ(capture.texts(LogSink::Offline), std::vector<std::string>{"off 1"});
        EXPECT_EQ(capture.records(LogSink::DebugIntercept).size(), 2u);
        capture.clear();
        EXPECT_TRUE(capture.records().empty());
    }
    // The last capture's end restores liblog and stops recording.
    EXPECT_EQ(__android_log_get_minimum_priority(), minimum);
    EXPECT_EQ(kvhost::retainedLogRecords(), 0u);
    __android_log_print(ANDROID_LOG_ERROR, "HostTag", "between captures");
    __UtilsLog_PintOnline(3, 64, "Tag", "f.cpp", 1, "between captures");
    kvdebug::Log::logSystem(2, "I", "f.cpp", "F", 1, "between captures");
    LogCapture next;
    EXPECT_TRUE(next.records().empty());
}

TEST_F(HostLog, EchoReachesStderrOnlyFromConsoleSinksAndNeverDuringACapture) {
    const struct {
        bool echo;
        bool capturing;
        bool expected;  // online and Android lines on stderr
    } rows[] = {{true, false, true}, {true, true, false}, {false, false, false}};
    for (const auto& row : rows) {
        SCOPED_TRACE(::testing::Message() << row.echo << row.capturing);
        kvhost::setLogEcho(row.echo);
        std::unique_ptr<LogCapture> capture;
        if (row.capturing) capture = std::make_unique<LogCapture>();
        // Nobody listens: liblog drops its lines before formatting them.
        EXPECT_EQ(__android_log_get_minimum_priority() == ANDROID_LOG_SILENT,
                  !row.echo && !row.capturing);
        ::testing::internal::CaptureStderr();
        __UtilsLog_PintOnline(1, 64, "Tag", "f.cpp", 1, "online-line");
        __UtilsLog_PintOffline(1, 64, "Tag", "f.cpp", 1, "offline-line");
        kvdebug::Log::logSystem(2, "I", "f.cpp", "F", 1, "debug-offline-line");
        __android_log_print(ANDROID_LOG_ERROR, "Tag", "android-line");
        const std::string err = ::testing::internal::GetCapturedStderr();
        // "offline-line" and "debug-offline-line" do not contain "online-line".
        EXPECT_EQ(err.find("online-line") != std::string::npos, row.expected) << err;
        EXPECT_EQ(err.find("android-line") != std::string::npos, row.expected) << err;
        EXPECT_EQ(err.find("offline-line"), std::string::npos) << err;
    }
}

// ---- Lookup recorder -------------------------------------------------------

using kvhost::LookupPlace;
using kvhost::LookupRecord;

auto Fields(const LookupRecord& r) {
    return std::make_tuple(r.tag, r.id, r.known, r.place, r.cameraId, r.found, r.type, r.count);
}

TEST(HostLookups, EachFindIsRecordedWithItsPlaceOnlyWhileARecorderLives) {
    auto frame = Metadata::create();
    ASSERT_EQ(frame->putInt32(0xE0002, {400}), 0);  // android.sensor.sensitivity
    ASSERT_EQ(frame->putEmpty("kovani.flash.mode"), 0);
    auto stat = Metadata::create();
    ASSERT_EQ(stat->putInt32(0xF0000, {0, 0, 40, 30}), 0);  // active array
    const auto other = Metadata::create();
    // One container registered for two cameras: the camera asked for is named.
    kvhost::setStaticMetadata(1, stat);
    kvhost::setStaticMetadata(2, stat);
    frame->find(0xE0002u);  // nobody records
    const uint32_t flash = IdOf("kovani.flash.mode");
    const uint32_t zoom = IdOf("android.control.zoomRatio");
    {
        kvhost::LookupRecorder recorder;
        recorder.setFrame(frame);
        frame->find(0xE0002u);
        frame->find("kovani.flash.mode");
        frame->find("no.such.tag");
        stat->find("android.control.zoomRatio");  // not asked for: the lowest camera
        StaticMetadataWraper::getInstance()->getStaticMetadata(2)->find(0xF0000u);
        other->find(0xE0002u);
        other->find(0x7FFF0000u);
        const LookupRecord expected[] = {
            {"android.sensor.sensitivity", 0xE0002, true, LookupPlace::Frame, 0, true,
             TagType::Int32, 1},
            {"kovani.flash.mode", flash, true, LookupPlace::Frame, 0, true, TagType::Int32, 0},
            {"no.such.tag", 0, false, LookupPlace::Frame, 0, false, TagType::Byte, 0},
            {"android.control.zoomRatio", zoom, true, LookupPlace::Static, 1, false, TagType::Byte,
             0},
            {"android.sensor.info.activeArraySize", 0xF0000, true, LookupPlace::Static, 2, true,
             TagType::Int32, 4},
            {"android.sensor.sensitivity", 0xE0002, true, LookupPlace::Container, 0, false,
             TagType::Byte, 0},
            {"", 0x7FFF0000, false, LookupPlace::Container, 0, false, TagType::Byte, 0},
        };
        const std::vector<LookupRecord> records = recorder.records();
        ASSERT_EQ(records.size(), std::size(expected));
        for (size_t i = 0; i < records.size(); ++i) {
            EXPECT_EQ(Fields(records[i]), Fields(expected[i])) << i;
        }
        // A frame destroyed is no longer the frame, even if the next
        // container is made at its address.
        frame.reset();
        recorder.clear();
        Metadata::create()->find(0xE0002u);
        EXPECT_EQ(recorder.records().at(0).place, LookupPlace::Container);
    }
    EXPECT_EQ(kvhost::retainedLookupRecords(), 0u);
    stat->find(0xF0000u);
    EXPECT_EQ(kvhost::retainedLookupRecords(), 0u);
    kvhost::clearStaticMetadata();
}

// One recorder, process-wide as a log capture is, sees the lookups of every
// thread; each record is whole.
TEST(HostLookups, OneRecorderTakesTheLookupsOfSeveralThreads) {
    auto frame = Metadata::create();
    ASSERT_EQ(frame->putInt32(0xE0002, {400}), 0);
    kvhost::LookupRecorder recorder;
    recorder.setFrame(frame);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&frame, t] {
            for (int i = 0; i < 500; ++i) frame->find(t % 2 ? "android.sensor.sensitivity" : "x.y");
        });
    }
    for (std::thread& t : threads) t.join();
    const std::vector<LookupRecord> records = recorder.records();
    ASSERT_EQ(records.size(), 2000u);
    EXPECT_EQ(std::count_if(records.begin(), records.end(),
                            [](const LookupRecord& r) {
                                return r.found && r.id == 0xE0002 && r.count == 1 &&
                                       r.place == LookupPlace::Frame;
                            }),
              1000);
    EXPECT_EQ(std::count_if(records.begin(), records.end(),
                            [](const LookupRecord& r) { return !r.known && r.tag == "x.y"; }),
              1000);
}

// ---- Adapter call recorder -------------------------------------------------

TEST(HostAdapter, CallsAreKeptOnlyWhileARecorderLives) {
    using kvhost::AdapterOp;
    GetInstance()->init();
    {
        const kvhost::AdapterRecorder outer;
        GetInstance()->init();
        {
            // Shares the record, calls from before it included.
            const kvhost::AdapterRecorder inner;
            GetInstance()->getPlatformInfoHolder()->disableGyro("key", 7);
            const auto calls = inner.calls();
            ASSERT_EQ(calls.size(), 5u);
            EXPECT_EQ(kvhost::retainedAdapterCalls(), 5u);
            EXPECT_EQ(calls[1].op, AdapterOp::Init);
            EXPECT_EQ(std::tie(calls[4].op, calls[4].key, calls[4].arg1),
                      std::make_tuple(AdapterOp::DisableGyro, std::string("key"), 7));
        }
        EXPECT_EQ(outer.calls(AdapterOp::GetInstance).size(), 2u);
    }
    EXPECT_EQ(kvhost::retainedAdapterCalls(), 0u);
    GetInstance()->init();
    EXPECT_EQ(kvhost::retainedAdapterCalls(), 0u);
}

}  // namespace
}  // namespace kvhost_test
