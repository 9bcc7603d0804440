// What lives once per process: the adapter client with its library handle,
// and the role statics of the sensor type. Each scenario runs alone in a
// fresh process: `platform_process_tests <Scenario>`.
#include <dlfcn.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "AdapterClient.h"
#include "TestSupport.h"
#include "kvhost/Adapter.h"

namespace kvtest {
namespace {

namespace fs = std::filesystem;
using kvalgo2::ChiRect;
using kvalgo2::MetaUtils;
using kvhost::AdapterOp;

constexpr int kSat = 2;
constexpr const char* kPrivateDirEnv = "KVTEST_PRIVATE_LIBDIR";

// Only a path relative to the product library lets a process of its own
// take the adapter away; an absolute one names the shared build tree's file.
bool AdapterBesideLibrary() {
    return std::strncmp(KVTEST_LIBRARY_ADAPTER_PATH, "$ORIGIN/", 8) == 0;
}

// Each scenario is a process of its own and records the adapter's calls
// from its start.
const kvhost::AdapterRecorder gAdapter;

size_t CallsOf(AdapterOp op) {
    return gAdapter.calls(op).size();
}

// A frame whose final crop is (1000, 750, 2000, 1500) before any shift, with
// the shift (10, 20) in its metadata.
std::shared_ptr<kvhost::Metadata> CropFrame() {
    auto stat = kvhost::Metadata::create();
    stat->putInt32(0xF0000u, {0, 0, 4000, 3000});
    stat->putInt32("com.kovani.cameraid.role.cameraId", {20});
    kvhost::setStaticMetadata(kSat, stat);
    auto md = kvhost::Metadata::create();
    md->putInt32("kovani.snapshot.fwkCameraId", {kSat});
    md->putInt64(0xE0010u, {1000000000});
    std::vector<int32_t> table;
    for (int id : {0, 1, kSat, 3})
        table.insert(table.end(), {id, 0, 0, 0, 0, 1000, 750, 2000, 1500});
    md->putInt32("com.kovani.camera.sensorpolicy.cropregions", table);
    md->putFloat("kovani.sat.output.shift", {10.0f, 20.0f, 0.0f, 0.0f});
    return md;
}

ChiRect FinalCrop(MetaUtils& utils, std::shared_ptr<KvMetadata> md) {
    ChiRect crop{};
    EXPECT_EQ(utils.GetFinalCropRegion(std::move(md), crop, {4000, 3000}, false), 0);
    return crop;
}

bool LoggedNodeType(const kvhost::LogCapture& capture, int nodeType) {
    const std::string needle = "shiftData.nodeType = " + std::to_string(nodeType) + " ";
    for (const auto& text : capture.texts(kvhost::LogSink::Online)) {
        if (text.find(needle) != std::string::npos) return true;
    }
    return false;
}

int SensorType(MetaUtils& utils, int cameraId, int* result) {
    AIspSensorType type = static_cast<AIspSensorType>(77);
    *result = utils.GetAISPSensorType(cameraId, type);
    return static_cast<int>(type);
}

TEST(FreshProcess, FirstUseAndCachedRoles) {
    // Nothing is loaded before the first method that needs the platform.
    kvhost::AdapterScript script;
    script.roleMap = kvhost::makeRoleMap({{10, 0}, {11, 21}, {12, 20}, {13, 1}, {14, 22}});
    kvhost::setAdapterScript(script);
    EXPECT_TRUE(gAdapter.calls().empty());

    MetaUtils utils;
    int result = 0;
    // First match in the order 0, 21, 20, 1, 40; role 40 is absent, so its
    // camera is -1; role 22 is asked for but gives no type. {camera, type, result}
    const int cases[][3] = {{10, 1, 0}, {11, 2, 0},  {12, 3, 0}, {13, 5, 0},
                            {-1, 6, 0}, {14, 0, -1}, {99, 0, -1}};
    for (const auto& c : cases) {
        EXPECT_EQ(SensorType(utils, c[0], &result), c[1]) << c[0];
        EXPECT_EQ(result, c[2]) << c[0];
    }
    // One load: the entry point and init, once each; one role map per role.
    EXPECT_EQ(CallsOf(AdapterOp::GetInstance), 1u);
    EXPECT_EQ(CallsOf(AdapterOp::Init), 1u);
    EXPECT_EQ(CallsOf(AdapterOp::GetRoleMap), 6u);

    // Loaded for good: Load() does not go back to the library.
    EXPECT_EQ(adapter::AdapterClient::getInstance().Load(), 0);
    EXPECT_EQ(CallsOf(AdapterOp::GetInstance), 1u);

    // A later role map is never seen.
    script.roleMap = kvhost::makeRoleMap({{10, 1}, {13, 0}, {99, 40}});
    kvhost::setAdapterScript(script);
    EXPECT_EQ(SensorType(utils, 10, &result), 1);
    EXPECT_EQ(SensorType(utils, 13, &result), 5);
    EXPECT_EQ(SensorType(utils, 99, &result), 0);
    EXPECT_EQ(CallsOf(AdapterOp::GetRoleMap), 6u);
}

TEST(FreshProcess, NoInstance) {
    auto script = kvhost::adapterScript();
    script.instanceAvailable = false;
    kvhost::setAdapterScript(script);
    kvhost::LogCapture capture;
    adapter::AdapterClient& client = adapter::AdapterClient::getInstance();
    EXPECT_EQ(CallsOf(AdapterOp::GetInstance), 1u);  // the first use loads
    EXPECT_EQ(client.Load(), -1);
    EXPECT_EQ(client.getPlatformInfoHolder(), nullptr);
    EXPECT_EQ(CallsOf(AdapterOp::GetInstance), 3u);  // every call retries
    EXPECT_EQ(CallsOf(AdapterOp::Init), 0u);

    // Without a holder the final crop takes the frame's shift.
    MetaUtils utils;
    utils.SetCameraId(0, kSat);
    auto md = CropFrame();
    EXPECT_EQ(FinalCrop(utils, md).left, 1010u);
    EXPECT_TRUE(LoggedNodeType(capture, 0));

    // The instance appears: the next use loads it.
    script.instanceAvailable = true;
    kvhost::setAdapterScript(script);
    EXPECT_NE(client.getPlatformInfoHolder(), nullptr);
    EXPECT_EQ(CallsOf(AdapterOp::Init), 1u);
    EXPECT_EQ(client.Load(), 0);
    EXPECT_EQ(CallsOf(AdapterOp::GetInstance), 5u);  // the final crop retried too
    capture.clear();
    EXPECT_EQ(FinalCrop(utils, md).left, 1010u);
    EXPECT_TRUE(LoggedNodeType(capture, 1));
    EXPECT_EQ(CallsOf(AdapterOp::GetShift), 1u);

    // Every role absent: -1 is the camera of role 0 first.
    int result = 0;
    EXPECT_EQ(SensorType(utils, -1, &result), 1);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(SensorType(utils, 5, &result), 0);
    EXPECT_EQ(result, -1);
}

// Runs in a child whose product library lies alone in a private directory
// (see main), so the adapter beside it is missing until the test puts one
// there.
TEST(FreshProcess, MissingLibrary) {
    if (!AdapterBesideLibrary()) {
        GTEST_SKIP() << "the product library loads " << KVTEST_LIBRARY_ADAPTER_PATH;
    }
    const char* dirEnv = std::getenv(kPrivateDirEnv);
    ASSERT_NE(dirEnv, nullptr);
    static const fs::path dir = dirEnv;
    static const fs::path adapterCopy = dir / KVTEST_ADAPTER_NAME;

    // Registered before the client exists, so it runs after the client's
    // destructor: the adapter copy, opened only by the client, must be gone.
    std::atexit([] {
        void* still = dlopen(adapterCopy.c_str(), RTLD_NOW | RTLD_NOLOAD);
        std::error_code ec;
        fs::remove_all(dir, ec);
        if (still != nullptr) {
            std::fprintf(stderr, "adapter library still loaded at exit\n");
            std::_Exit(1);
        }
    });

    kvhost::LogCapture capture;  // keeps the console quiet
    adapter::AdapterClient& client = adapter::AdapterClient::getInstance();
    EXPECT_EQ(client.Load(), -1);
    EXPECT_EQ(client.getPlatformInfoHolder(), nullptr);

    // A copy, not the linked stand-in: the client's handle is its only one.
    fs::copy_file(KVTEST_ADAPTER_FILE, adapterCopy);
    EXPECT_NE(client.getPlatformInfoHolder(), nullptr);
    EXPECT_EQ(client.Load(), 0);
    // The linked stand-in never heard from the library.
    EXPECT_TRUE(gAdapter.calls().empty());
}

TEST(FreshProcess, ConcurrentFirstUse) {
    auto script = kvhost::adapterScript();
    script.roleMap = kvhost::makeRoleMap({{3, 0}, {4, 21}, {kSat, 20}, {5, 1}, {6, 40}, {7, 22}});
    script.shiftFound = true;
    script.shiftX = -100;
    script.shiftY = 50;
    for (uint64_t s : {3, 1, 2}) script.gyroSamples.push_back({0.5f, 1.5f, 2.5f, 0, 19200000 * s});
    kvhost::setAdapterScript(script);
    auto md = CropFrame();
    auto stat = kvhost::Metadata::create();
    stat->putBytes(0x1A0000u, "2\0003\0", 4);
    kvhost::setStaticMetadata(9, stat);
    MetaUtils utils;
    utils.SetCameraId(0, kSat);
    kvhost::LogCapture capture;  // keeps the console quiet

    constexpr int kThreads = 6;
    constexpr int kRounds = 25;
    std::atomic<int> ready{0};
    std::atomic<int> failures{0};
    auto work = [&] {
        ++ready;
        while (ready.load() < kThreads) std::this_thread::yield();
        for (int round = 0; round < kRounds; ++round) {
            const int types[][2] = {{3, 1}, {4, 2}, {kSat, 3}, {5, 5}, {6, 6}, {7, 0}};
            for (const auto& t : types) {
                int result = 0;
                if (SensorType(utils, t[0], &result) != t[1]) ++failures;
            }
            ChiRect crop{};
            utils.GetFinalCropRegion(md, crop, {4000, 3000}, false);
            if (crop.left != 900 || crop.top != 800 || crop.width != 2000) ++failures;
            AIspGyroData data;
            AIspGyroData::GyroElement elements[200];
            if (utils.GetGyroData(nullptr, data, elements, 0, "concurrent") != 0 ||
                data.count != 3 || elements[0].timestamp != 1000000 ||
                elements[2].timestamp != 3000000 || data.startTimestamp != 3000000) {
                ++failures;
            }
            int role = 0;
            std::vector<int> roles;
            if (utils.GetCameraRoleId(kSat, &role) != 0 || role != 20 ||
                utils.GetMultiCameraPhyCameraRoleIds(9, roles) != 0 || roles != std::vector{20, 0})
                ++failures;
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) threads.emplace_back(work);
    for (auto& t : threads) t.join();

    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(CallsOf(AdapterOp::GetInstance), 1u);
    EXPECT_EQ(CallsOf(AdapterOp::Init), 1u);
    // Six role lookups for the sensor types, one per final crop.
    EXPECT_EQ(CallsOf(AdapterOp::GetRoleMap), 6u + kThreads * kRounds);
    EXPECT_EQ(CallsOf(AdapterOp::GetShift), size_t{kThreads * kRounds});
}

// The private directory of MissingLibrary: a copy of the product library and
// nothing else, found first through LD_LIBRARY_PATH by a re-executed child.
int RunWithPrivateProductLibrary(char** argv) {
    std::string dir = (fs::temp_directory_path() / "kvtest-adapter-XXXXXX").string();
    if (mkdtemp(dir.data()) == nullptr) {
        std::perror("mkdtemp");
        return 1;
    }
    std::error_code ec;
    fs::copy_file(KVTEST_METAUTILS_FILE, fs::path(dir) / KVTEST_METAUTILS_SONAME, ec);
    if (ec) {
        std::fprintf(stderr, "copy of the product library: %s\n", ec.message().c_str());
        return 1;
    }
    const char* old = std::getenv("LD_LIBRARY_PATH");
    const std::string path = old != nullptr && *old != '\0' ? dir + ":" + old : dir;
    setenv("LD_LIBRARY_PATH", path.c_str(), 1);
    setenv(kPrivateDirEnv, dir.c_str(), 1);
#ifdef KVTEST_EMULATOR
    // A cross build runs under a user-mode emulator: re-execute through it.
    std::vector<char*> args{const_cast<char*>(KVTEST_EMULATOR)};
    for (char** a = argv; *a != nullptr; ++a) args.push_back(*a);
    args.push_back(nullptr);
    execv(KVTEST_EMULATOR, args.data());
#else
    execv("/proc/self/exe", argv);
#endif
    std::perror("execv");
    return 1;
}

}  // namespace
}  // namespace kvtest

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s <scenario>\n", argv[0]);
        return 2;
    }
    const std::string scenario = argv[1];
    if (scenario == "MissingLibrary" && kvtest::AdapterBesideLibrary() &&
        std::getenv(kvtest::kPrivateDirEnv) == nullptr) {
        return kvtest::RunWithPrivateProductLibrary(argv);
    }
    ::testing::GTEST_FLAG(filter) = "FreshProcess." + scenario;
    const int rc = RUN_ALL_TESTS();
    if (::testing::UnitTest::GetInstance()->test_to_run_count() != 1) {
        std::fprintf(stderr, "unknown scenario %s\n", scenario.c_str());
        return 2;
    }
    return rc;
}
