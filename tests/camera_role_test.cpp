// Camera role ids from static and request metadata, the physical cameras of a
// logical camera, and the sensor mode readers and mapping.
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "TestSupport.h"

namespace kvtest {
namespace {

using kvalgo2::MetaUtils;

constexpr const char* kRoleTag = "com.kovani.cameraid.role.cameraId";
constexpr uint32_t kPhysicalIds = 0x1A0000;

// Static metadata of a camera with the given role.
void CameraWithRole(int cameraId, int role) {
    auto stat = kvhost::Metadata::create();
    stat->putInt32(kRoleTag, {role, 99});
    kvhost::setStaticMetadata(static_cast<uint32_t>(cameraId), stat);
}

// Static metadata of a logical camera with its physical ids ("" for an empty entry).
void Physical(int logicalId, const std::string& bytes) {
    auto stat = kvhost::Metadata::create();
    if (bytes.empty()) {
        stat->putEmpty(kPhysicalIds);
    } else {
        stat->putBytes(kPhysicalIds, bytes.data(), bytes.size());
    }
    kvhost::setStaticMetadata(static_cast<uint32_t>(logicalId), stat);
}

// The single-tag role getters: where each finds its tag (their failure lines
// are in the tele sample's golden log; the level of the argument line is the
// tag getter skeleton's). The frame's framework camera id is 4.
TEST_F(MetaTest, RoleGettersReadElementZeroOnly) {
    using Call = std::function<int(MetaUtils&, std::shared_ptr<KvMetadata>, int*)>;
    const struct {
        const char* frameTag;  // null: the role comes from camera 4's static metadata
        Call call;
    } rows[] = {
        {nullptr, [](MetaUtils& u, auto, int* out) { return u.GetCameraRoleId(4, out); }},
        {nullptr, [](MetaUtils& u, auto m, int* out) { return u.GetCameraRoleId(m, out); }},
        {kRoleTag, [](MetaUtils& u, auto m,
                      int* out) { return u.GetCameraRoleId(m, reinterpret_cast<unsigned*>(out)); }},
        {"com.kovani.cameraid.role.cameraIds",
         [](MetaUtils& u, auto m, int* out) { return u.GetCameraRoleIds(m, out); }},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(&r - rows);
        md->clear();
        kvhost::clearStaticMetadata();
        md->putInt32("kovani.snapshot.fwkCameraId", {4});
        if (r.frameTag == nullptr) {
            CameraWithRole(4, -3);
        } else {
            md->putInt32(r.frameTag, {-3, 98, 97});
        }
        int out[2] = {7, 7};
        EXPECT_EQ(r.call(utils, md, nullptr), -2);
        EXPECT_EQ(r.call(utils, md, out), 0);  // all 32 bits, also to the unsigned overload
        EXPECT_EQ(out[0], -3);
        EXPECT_EQ(out[1], 7);
    }
    EXPECT_EQ(Lines().size(), 4u);  // the argument errors only
}

TEST_F(MetaTest, PhysicalCameraRolesParsedLikeAtoiAndAppended) {
    CameraWithRole(0, 40);
    CameraWithRole(7, 22);
    // "ab" is camera 0, "7x" camera 7, camera 3 has no role: 0. The last id
    // lacks its NUL and still ends at the entry's end.
    Physical(1, std::string("ab\0"
                            "7x\0"
                            "3\0"
                            "7",
                            9));
    std::vector<int> roles{-9};
    EXPECT_EQ(utils.GetMultiCameraPhyCameraRoleIds(1, roles), 0);
    EXPECT_EQ(roles, (std::vector<int>{-9, 40, 22, 0, 22}));
    // Camera 3's missing role is logged by the role getter, and ignored.
    EXPECT_EQ(Lines().back(),
              L(3, kMU, "GetCameraRoleId", "GetMetadata com.kovani.cameraid.role.cameraId err"));
    // Through the frame's framework camera.
    md->putInt32("kovani.snapshot.fwkCameraId", {1});
    roles.clear();
    EXPECT_EQ(utils.GetMultiCameraPhyCameraRoleIds(md, roles), 0);
    EXPECT_EQ(roles, (std::vector<int>{40, 22, 0, 22}));
}

TEST_F(MetaTest, PhysicalIdsFailures) {
    const Line fail = L(3, kMU, "GetMultiCameraPhyCameraRoleIds",
                        "GetMetadata ANDROID_LOGICAL_MULTI_CAMERA_PHYSICAL_IDS err");
    std::vector<int> roles{5};
    // No static metadata, and an empty entry: -1 either way, not -2.
    EXPECT_EQ(utils.GetMultiCameraPhyCameraRoleIds(3, roles), -1);
    EXPECT_EQ(Lines().back(), fail);
    Physical(3, "");
    EXPECT_EQ(utils.GetMultiCameraPhyCameraRoleIds(3, roles), -1);
    EXPECT_EQ(Lines().back(), fail);
    // Without a framework camera id the frame forms fail, the physical ids'
    // one reporting success.
    capture.clear();
    int role = 7;
    EXPECT_EQ(utils.GetCameraRoleId(md, &role), -2);
    EXPECT_EQ(utils.GetMultiCameraPhyCameraRoleIds(md, roles), 0);
    EXPECT_EQ(role, 7);
    EXPECT_EQ(roles, std::vector<int>{5});
    const Line noFwkId = L(3, kMU, "GetFwkCameraId", "Get fwkCameraId err");
    EXPECT_EQ(
        Lines(),
        (LineList{kLookupMiss, noFwkId,
                  L(3, kMU, "GetCameraRoleId", "GetMetadata FwkCameraId fail"), kLookupMiss,
                  noFwkId,
                  L(3, kMU, "GetMultiCameraPhyCameraRoleIds", "GetMetadata FwkCameraId fail")}));
}

// ---- Sensor modes -------------------------------------------------------------

TEST_F(MetaTest, SensorModeMapping) {
    // Every input from -1 to 19: the mode, and whether it is unknown.
    const int modes[] = {0, 0, 2, 3, 5, 0, 15, 4, 7, 10, 9, 0, 0, 0, 0, 0, 2, 1, 6, 0, 0};
    for (int type = -1; type <= 19; ++type) {
        capture.clear();
        bool a = false, b = false;
        const int mode = utils.getAIspSensorMode(type, a, b);
        EXPECT_EQ(mode, modes[type + 1]) << type;
        EXPECT_EQ(a && b, type == 5) << type;
        EXPECT_EQ(a || b, type == 5) << type;
        const bool unknown = type < 0 || type == 4 || (type >= 10 && type <= 14) || type >= 18;
        LineList expected;
        if (unknown) {
            expected.push_back(
                L(3, kMtk, "getAIspSensorMode", "unkown sensorModeType:" + std::to_string(type)));
        }
        expected.push_back(L(2, kMtk, "getAIspSensorMode",
                             "get sensorModeType " + std::to_string(type) + " => AIspSensorMode " +
                                 std::to_string(mode) + " "));
        EXPECT_EQ(Lines(), expected) << type;
    }
    // Flags are set, never cleared.
    bool a = true, b = true;
    EXPECT_EQ(utils.getAIspSensorMode(1, a, b), 2);
    EXPECT_TRUE(a && b);
}

TEST_F(MetaTest, FrameResultLastValidPairWins) {
    constexpr const char* kTag = "com.kovani.camera.sensorpolicy.frameresult";
    std::vector<uint8_t> blob(1400, 0);
    for (int i = 0; i < 4; ++i) {
        const int32_t modeType = 10 + i;
        std::memcpy(&blob[400 + 320 * i], &modeType, sizeof modeType);
    }
    const struct {
        std::vector<int> valid;
        int expected;
    } cases[] = {{{1, 3}, 13}, {{0}, 10}, {{0, 1, 2}, 12}, {{}, -5}};
    for (const auto& c : cases) {
        for (int i = 0; i < 4; ++i) blob[380 + 320 * i] = 0;
        for (int i : c.valid) blob[380 + 320 * i] = static_cast<uint8_t>(0x80 + i);
        md->putBytes(kTag, blob.data(), blob.size());
        int modeType = -5;
        EXPECT_EQ(utils.GetKovaniSensorModeType(md, &modeType), 0);
        EXPECT_EQ(modeType, c.expected);
    }
}

TEST_F(MetaTest, SensorModeReaders) {
    int out = 7;
    EXPECT_EQ(utils.GetKovaniSensorModeType(md, nullptr), -2);
    EXPECT_EQ(utils.GetKovaniSensorModeType(md, &out), -2);
    EXPECT_EQ(utils.GetSensorMode(md, nullptr), -2);
    EXPECT_EQ(utils.GetSensorMode(md, &out), -2);
    EXPECT_EQ(out, 7);
    EXPECT_EQ(
        Lines(),
        (LineList{L(4, kMtk, "GetKovaniSensorModeType", "arg err"), kLookupMiss,
                  L(3, kMtk, "GetKovaniSensorModeType",
                    "GetMetadata com.kovani.camera.sensorpolicy.frameresult err"),
                  L(4, kMtk, "GetSensorMode", "arg err"), kLookupMiss,
                  L(3, kMtk, "GetSensorMode", "GetMetadata kovani.streaming.sensormode err")}));
    md->putInt32("kovani.streaming.sensormode", {3, 8, 9});  // the second element
    EXPECT_EQ(utils.GetSensorMode(md, &out), 0);
    EXPECT_EQ(out, 8);
}

}  // namespace
}  // namespace kvtest
