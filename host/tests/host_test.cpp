// Tests of what the host stand-ins promise beyond what the library's own
// tests exercise: the tag table's rows and registration rules, the
// container's payload blocks and their stability, thread safety, the log
// capture API and the adapter's call recorder.
#include <android/log.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
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
        EXPECT_EQ(std::stoul(id, nullptr, 16), info->id) << name;
        EXPECT_EQ(type, kvhost::typeName(info->type)) << name;
        EXPECT_TRUE(info->fixedId);
    }
    EXPECT_GT(rows, 300u);
    const std::vector<kvhost::TagInfo> tags = kvhost::knownTags();
    size_t android = 0;
    for (size_t i = 0; i < tags.size(); ++i) {
        SCOPED_TRACE(tags[i].name);
        EXPECT_TRUE(i == 0 || tags[i - 1].id < tags[i].id);
        EXPECT_EQ(kvhost::findTag(tags[i].id), kvhost::findTag(tags[i].name.c_str()));
        // Android's own tags below the vendor boundary, every other tag above.
        const bool isAndroid = tags[i].name.rfind("android.", 0) == 0;
        EXPECT_EQ(tags[i].id < 0x80000000u, isAndroid);
        android += isAndroid ? 1 : 0;
    }
    EXPECT_EQ(android, rows);
    // The library reads this one by the platform's id.
    EXPECT_EQ(IdOf("MTK_3A_FEATURE_AF_REGION"), 0x80060001u);
    EXPECT_FALSE(kvhost::findTag("kovani.flash.mode")->fixedId);  // its id is the table's own
}

// What the table holds under a name and an id, to see a refused definition
// change nothing.
std::string Held(const char* name, uint32_t id) {
    const kvhost::TagInfo* byName = kvhost::findTag(name);
    const kvhost::TagInfo* byId = kvhost::findTag(id);
    std::ostringstream out;
    if (byName) out << byName->id << "/" << kvhost::typeName(byName->type);
    out << "|" << (byId ? byId->name : "-");
    return out.str();
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
        const std::string before = Held(r.name, r.id);
        EXPECT_NE(kvhost::registerTag(r.name, r.id, r.type), 0) << r.name << " " << r.id;
        EXPECT_EQ(Held(r.name, r.id), before) << r.name << " " << r.id;
    }
}

// ---- Metadata container ------------------------------------------------------

TEST(HostMetadata, PayloadBlocksAreAlignedZeroPaddedAtLeastOneWordAndOfTheTagsType) {
    // No tag of the library is a double; a test tag stands in for one.
    ASSERT_EQ(kvhost::registerTag("hosttest.double", 0x8FF00100, TagType::Double), 0);
    // Readers load whole words past the payload (a 32-bit read of a one-byte
    // tag); under AddressSanitizer this reads every byte the block promises.
    const struct {
        const char* tagName;
        TagType type;
        size_t elementSize;
    } cases[] = {{"kovani.snapshot.imageName", TagType::Byte, 1},
                 {"kovani.hdr.gtm.curve", TagType::Int32, 4},
                 {"com.qti.sensorbps.gain", TagType::Float, 4},
                 {"kovani.mfnr.anchorTimeStamp", TagType::Int64, 8},
                 {"hosttest.double", TagType::Double, 8},
                 {"kovani.supernight.color.correction.transform", TagType::Rational, 8}};
    const std::vector<uint8_t> fill(17 * 8, 0xAB);
    const std::vector<uint8_t> larger(200, 0xCD);
    for (const auto& c : cases) {
        EXPECT_EQ(kvhost::typeSize(c.type), c.elementSize) << c.tagName;
        const uint32_t id = IdOf(c.tagName);
        for (size_t count = 0; count <= 17; ++count) {
            SCOPED_TRACE(std::string(c.tagName) + " count " + std::to_string(count));
            auto meta = Metadata::create();
            // Replacing a larger entry leaves no trace of it; no other type gets in.
            ASSERT_EQ(meta->put(id, c.type, larger.data(), 16), 0);
            ASSERT_EQ(meta->put(c.tagName, c.type, fill.data(), count), 0);
            for (int other = 0; other < 6; ++other) {
                if (other == static_cast<int>(c.type)) continue;
                EXPECT_EQ(meta->put(id, TagType(other), larger.data(), 2), kvhost::kInvalid);
                EXPECT_EQ(meta->put(c.tagName, TagType(other), larger.data(), 2), kvhost::kInvalid);
            }
            const camera_metadata_ro_entry_t e = meta->find(id);
            ASSERT_EQ(e.count, count);
            EXPECT_EQ(e.type, static_cast<uint8_t>(c.type));
            ASSERT_NE(e.data.u8, nullptr);
            EXPECT_EQ(reinterpret_cast<uintptr_t>(e.data.u8) % 8, 0u);
            EXPECT_EQ(meta->size(), 1u);
            const size_t payload = count * c.elementSize;
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
        // The debug offline sink takes the letter from the level text.
        const char* levels[] = {"V", "D", "I", "W", "Error", "F", "Q", ""};
        for (const char* level : levels) {
            kvdebug::Log::logSystem(2, level, "MetaUtilsMtk.cpp", "operator()", 40, "crop %d", 7);
        }
        const std::vector<LogRecord> r = capture.records();
        ASSERT_EQ(r.size(), 14u);
        EXPECT_EQ(kvhost::retainedLogRecords(), 14u);
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
            {LogSink::DebugOffline, 2, 2, "", "MetaUtilsMtk.cpp", 40, "operator()", 'V', "crop %d",
             "crop 7", 0},
        };
        for (size_t i = 0; i < 7; ++i) EXPECT_EQ(Fields(r[i]), Fields(expected[i])) << i;
        const char letters[] = {'V', 'D', 'I', 'W', 'E', 'F', 'Q', 0};
        const unsigned numeric[] = {2, 3, 4, 5, 6, 7, 0, 0};
        for (size_t i = 0; i < 8; ++i) {
            LogRecord e = expected[6];
            std::tie(e.level, e.letter) = std::make_tuple(numeric[i], letters[i]);
            EXPECT_EQ(Fields(r[6 + i]), Fields(e)) << levels[i];
        }
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

TEST_F(HostLog, MessagesOfAnyLengthAreFormattedWhole) {
    LogCapture capture;
    for (size_t length : {0u, 1u, 511u, 512u, 513u, 5000u}) {
        capture.clear();
        const std::string body(length, 'm');
        __UtilsLog_PintOnline(2, 64, "Tag", "f.cpp", 1, "<%s>", body.c_str());
        kvdebug::Log::logSystem(2, "I", "f.cpp", "F", 1, "<%s>", body.c_str());
        const std::vector<std::string> expected = {"<" + body + ">"};
        EXPECT_EQ(capture.texts(LogSink::Online), expected) << length;
        EXPECT_EQ(capture.texts(LogSink::DebugOffline), expected) << length;
    }
}

TEST_F(HostLog, EchoReachesStderrOnlyFromConsoleSinksAndNeverDuringACapture) {
    const char* env = std::getenv("KVHOST_LOG_ECHO");
    EXPECT_EQ(loadTimeEcho_, env == nullptr || std::string(env) != "0");
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
        kvdebug::Log::catchLogEncryptLog(2, "f.cpp", 1, "F", 'I', "intercept-line");
        kvdebug::Log::logSystem(2, "I", "f.cpp", "F", 1, "debug-offline-line");
        __android_log_print(ANDROID_LOG_ERROR, "Tag", "android-line");
        const std::string err = ::testing::internal::GetCapturedStderr();
        // "offline-line" and "debug-offline-line" do not contain "online-line".
        EXPECT_EQ(err.find("online-line") != std::string::npos, row.expected) << err;
        EXPECT_EQ(err.find("android-line") != std::string::npos, row.expected) << err;
        EXPECT_EQ(err.find("offline-line"), std::string::npos) << err;
        EXPECT_EQ(err.find("intercept-line"), std::string::npos) << err;
    }
}

// ---- Concurrent use ------------------------------------------------------------

// Threads registering tags, changing entries and logging move no tag or
// payload another thread holds, and every thread's lines keep their order.
TEST(HostConcurrency, WritersDisturbNoReader) {
    auto md = Metadata::create();
    ASSERT_EQ(md->putInt32("kovani.snapshot.fwkCameraId", {7}), 0);
    const int32_t* const payload = md->find("kovani.snapshot.fwkCameraId").data.i32;
    const kvhost::TagInfo* flash = kvhost::findTag("kovani.flash.mode");
    constexpr int kRounds = 1000;
    std::atomic<int> bad{0};
    LogCapture capture;
    std::vector<std::thread> threads;
    for (uint32_t t = 0; t < 2; ++t) {
        threads.emplace_back([&, t] {
            const uint32_t tag = t == 0 ? 0xD0000u : 0xF0000u;
            for (int i = 0; i < kRounds; ++i) {
                const std::string name = "hosttest.concurrent." + std::to_string(t * kRounds + i);
                if (kvhost::registerTag(name, 0x8FE00000 + t * kRounds + i, TagType::Int32) != 0 ||
                    md->putInt32(tag, {i, i, i, i}) != 0) {
                    ++bad;
                }
                if (i % 3 == 0) md->erase(tag);
                __UtilsLog_PintOnline(1, 64, "Tag", "f.cpp", t, "%d", i);
            }
        });
        threads.emplace_back([&] {
            for (int i = 0; i < kRounds; ++i) {
                const kvhost::TagInfo* crop = kvhost::findTag(0xD0000u);
                const camera_metadata_ro_entry_t e = md->find("kovani.snapshot.fwkCameraId");
                const size_t n = md->find(0xD0000u).count;
                if (kvhost::findTag("kovani.flash.mode") != flash || crop == nullptr ||
                    crop->name != "android.scaler.cropRegion" || e.data.i32 != payload ||
                    e.count != 1 || *payload != 7 || (n != 0 && n != 4)) {
                    ++bad;
                }
                __android_log_print(ANDROID_LOG_INFO, "Tag", "%d", i);
            }
        });
    }
    for (std::thread& t : threads) t.join();
    EXPECT_EQ(bad.load(), 0);
    EXPECT_EQ(IdOf("hosttest.concurrent.1999"), 0x8FE00000u + 1999);
    EXPECT_EQ(capture.records(LogSink::Android).size(), 2u * kRounds);
    std::vector<int> last(2, -1);
    for (const LogRecord& r : capture.records(LogSink::Online)) {
        EXPECT_EQ(std::stoi(r.text), ++last[r.line]) << "thread " << r.line;
    }
    EXPECT_EQ(last, (std::vector<int>{kRounds - 1, kRounds - 1}));
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
