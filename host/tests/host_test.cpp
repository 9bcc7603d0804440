// Tests of the host stand-ins themselves: the tag table, the metadata
// container, the static metadata registry, and the log sinks with their
// capture store.
#include <android/log.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "KvDebug.h"
#include "KvMetadata.h"
#include "UtilsLog.h"
#include "kvhost/LogCapture.h"
#include "kvhost/Metadata.h"

namespace kvhost_test {
namespace {

using kvhost::LogCapture;
using kvhost::LogRecord;
using kvhost::LogSink;
using kvhost::Metadata;
using kvhost::TagType;

const TagType kAllTypes[] = {TagType::Byte,  TagType::Int32,  TagType::Float,
                             TagType::Int64, TagType::Double, TagType::Rational};

uint32_t IdOf(const char* name) {
    const kvhost::TagInfo* info = kvhost::findTag(name);
    EXPECT_NE(info, nullptr) << name;
    return info != nullptr ? info->id : 0;
}

template <typename T>
std::vector<uint8_t> RawBytes(const std::vector<T>& values) {
    std::vector<uint8_t> raw(values.size() * sizeof(T));
    if (!raw.empty()) std::memcpy(raw.data(), values.data(), raw.size());
    return raw;
}

std::vector<uint8_t> Payload(const camera_metadata_ro_entry_t& e, size_t bytes) {
    return std::vector<uint8_t>(e.data.u8, e.data.u8 + bytes);
}

bool Aligned8(const void* p) {
    return reinterpret_cast<uintptr_t>(p) % 8 == 0;
}

// ---- Tag table -------------------------------------------------------------

struct IdRow {
    const char* name;
    uint32_t id;
    TagType type;
};

TEST(HostTagTable, PlatformTagsHaveThePlatformIdsAndTypes) {
    const IdRow rows[] = {
        {"android.colorCorrection.gains", 0x2, TagType::Float},
        {"android.control.afMode", 0x10007, TagType::Byte},
        {"android.control.afState", 0x10020, TagType::Byte},
        {"android.control.enableZsl", 0x10029, TagType::Byte},
        {"android.control.zoomRatio", 0x1002F, TagType::Float},
        {"android.flash.mode", 0x40002, TagType::Byte},
        {"android.jpeg.orientation", 0x70003, TagType::Int32},
        {"android.lens.aperture", 0x80000, TagType::Float},
        {"android.lens.focusDistance", 0x80003, TagType::Float},
        {"android.lens.info.shadingMapSize", 0x90006, TagType::Int32},
        {"android.logicalMultiCamera.physicalIds", 0x1A0000, TagType::Byte},
        {"android.scaler.cropRegion", 0xD0000, TagType::Int32},
        {"android.sensor.dynamicBlackLevel", 0xE001C, TagType::Float},
        {"android.sensor.dynamicWhiteLevel", 0xE001D, TagType::Int32},
        {"android.sensor.exposureTime", 0xE0000, TagType::Int64},
        {"android.sensor.frameDuration", 0xE0001, TagType::Int64},
        {"android.sensor.info.activeArraySize", 0xF0000, TagType::Int32},
        {"android.sensor.info.activeArraySizeMaximumResolution", 0xF000B, TagType::Int32},
        {"android.sensor.info.colorFilterArrangement", 0xF0002, TagType::Byte},
        {"android.sensor.sensitivity", 0xE0002, TagType::Int32},
        {"android.sensor.timestamp", 0xE0010, TagType::Int64},
        {"android.statistics.lensShadingMap", 0x11000B, TagType::Float},
        {"MTK_3A_FEATURE_AE_SENSOR_GAIN_VALUE", 0x80060010, TagType::Int32},
        {"MTK_3A_FEATURE_AE_ISP_GAIN_VALUE", 0x80060011, TagType::Int32},
        {"MTK_3A_FEATURE_AF_REGION", 0x80060001, TagType::Int32},
        {"kovani.bokeh.AuxAnchorFrame", 0x80040006, TagType::Int32},
    };
    for (const IdRow& row : rows) {
        SCOPED_TRACE(row.name);
        const kvhost::TagInfo* byName = kvhost::findTag(row.name);
        ASSERT_NE(byName, nullptr);
        EXPECT_EQ(byName->name, row.name);
        EXPECT_EQ(byName->id, row.id);
        EXPECT_EQ(byName->type, row.type);
        EXPECT_EQ(kvhost::findTag(row.id), byName);
    }
}

struct NameRow {
    const char* name;
    TagType type;
};

TEST(HostTagTable, VendorTagsReadByNameHaveVendorIdsAndTheirTypes) {
    const NameRow rows[] = {
        {"kovani.snapshot.physCameraId", TagType::Int32},
        {"kovani.flash.mode", TagType::Int32},
        {"com.kovani.panshotTruck.FeatureEnable", TagType::Int32},
        {"kovani.snapshot.fwkCameraId", TagType::Int32},
        {"kovani.thermal.thermalLevel", TagType::Int32},
        {"kovani.ai.kvsd.laserDist", TagType::Int32},
        {"com.kovani.3AAlgo.aecAItoneFlag", TagType::Int32},
        {"com.mediatek.3afeature.awbColorTemperature", TagType::Int32},
        {"kovani.ae.average.face.luma", TagType::Int32},
        {"kovani.ae.average.frame.luma", TagType::Int32},
        {"kovani.ae.dark.tonegain", TagType::Int32},
        {"kovani.ae.mid.tonegain", TagType::Int32},
        {"kovani.longexposure.cwv", TagType::Int32},
        {"kovani.longexposure.cwr", TagType::Int32},
        {"kovani.ae.exposureCompensation", TagType::Int32},
        {"kovani.burst.last.preview.ispGain", TagType::Int32},
        {"kovani.ai.kvsd.motionVelocity", TagType::Int32},
        {"kovani.hdr.custom.adjustratio", TagType::Int32},
        {"kovani.hdr.gtm.curve", TagType::Int32},
        {"kovani.histogram.stats", TagType::Int32},
        {"kovani.supernight.gammainfo", TagType::Int32},
        {"kovani.algoengine.input.raw.bpp", TagType::Int32},
        {"kovani.snapshot.cropRegion", TagType::Int32},
        {"com.kovani.camera.sensorpolicy.cropregions", TagType::Int32},
        {"kovani.bokeh.faceInfo", TagType::Int32},
        {"kovani.insensorzoom.status", TagType::Int32},
        {"com.kovani.cameraid.role.cameraId", TagType::Int32},
        {"com.kovani.cameraid.role.cameraIds", TagType::Int32},
        {"kovani.streaming.sensormode", TagType::Int32},
        {"kovani.aihighlight.anchorOrder", TagType::Int32},
        {"com.kovani.ext.control.streetmode.anchor.order", TagType::Int32},
        {"kovani.ai.asd.algoSceneDetectedIndoor", TagType::Int32},
        {"kovani.ai.kvsd.motionCaptureType", TagType::Int32},
        {"com.kv.node.kvaihighlight.isHighLight", TagType::Int32},
        {"kovani.ai.kvsd.bandingSceneType", TagType::Int32},
        {"com.kovani.orlo2.preAnchorProc", TagType::Int32},
        {"com.kovani.orlo2.anchorFrameNum", TagType::Int32},
        {"kovani.ai.kvsd.zslMcBandingType", TagType::Int32},
        {"kovani.motion.capture.anchorInfo", TagType::Int32},
        {"kovani.multiframe.inputNum", TagType::Int32},
        {"kovani.mfnr.anchorTimeStamp", TagType::Int64},
        {"org.quic.camera.qtimer.startOfExposure", TagType::Int64},
        {"com.kovani.mtk.p1node.frameinfo", TagType::Int64},
        {"kovani.burst.last.preview.exposure.time", TagType::Int64},
        {"com.kovani.statsaec.AECWhiteBlackFrameAdj", TagType::Float},
        {"com.kovani.camera.zoomeis.effectiverate", TagType::Float},
        {"com.qti.sensorbps.gain", TagType::Float},
        {"com.kovani.3AAlgo.awbHazeRatio", TagType::Float},
        {"kovani.ai.asd.FaceAverageBrightness", TagType::Float},
        {"kovani.sat.output.shift", TagType::Float},
        {"com.kovani.scaler.availableMinDigitalZoom", TagType::Float},
        {"kovani.supernight.color.correction.transform", TagType::Rational},
        {"com.kovani.sessionparams.stylizationType", TagType::Byte},
        {"kovani.ai.asd.SmartAE", TagType::Byte},
        {"com.kovani.statsconfigs.AecInfo", TagType::Byte},
        {"kovani.safe.exposure.enabled", TagType::Byte},
        {"org.quic.camera2.statsconfigs.AECFrameControl", TagType::Byte},
        {"kovani.control.zsl.enable", TagType::Byte},
        {"kovani.hdr.raw.enabled", TagType::Byte},
        {"kovani.hdr.enabled", TagType::Byte},
        {"kovani.telefusion.enabled", TagType::Byte},
        {"com.kovani.camera.sensorpolicy.frameresult", TagType::Byte},
        {"kovani.ai.asd.SunsetScene", TagType::Byte},
        {"kovani.ai.asd.algoSceneDetectedAIResult", TagType::Byte},
        {"com.kovani.orlo2.eyeclosure.status", TagType::Byte},
        {"com.kovani.camera.bokehConfig.request", TagType::Byte},
        {"com.kovani.camera.bokehCaps.info", TagType::Byte},
        {"com.kovani.camera.bokehConfig.stream", TagType::Byte},
        {"kovani.snapshot.imageName", TagType::Byte},
    };
    std::set<uint32_t> ids;
    for (const NameRow& row : rows) {
        SCOPED_TRACE(row.name);
        const kvhost::TagInfo* info = kvhost::findTag(row.name);
        ASSERT_NE(info, nullptr);
        EXPECT_EQ(info->type, row.type);
        EXPECT_GE(info->id >> 16, 0x8000u) << "vendor tags live in vendor sections";
        EXPECT_EQ(kvhost::findTag(info->id), info);
        EXPECT_TRUE(ids.insert(info->id).second) << "id shared with another vendor tag";
    }
}

TEST(HostTagTable, KnownTagsAreSortedWithUniqueIdsAndNames) {
    const std::vector<kvhost::TagInfo> tags = kvhost::knownTags();
    ASSERT_GE(tags.size(), 26u + 69u);
    std::set<std::string> names;
    for (size_t i = 0; i < tags.size(); ++i) {
        if (i > 0) {
            EXPECT_LT(tags[i - 1].id, tags[i].id) << tags[i].name;
        }
        EXPECT_TRUE(names.insert(tags[i].name).second) << tags[i].name;
        EXPECT_GT(kvhost::typeSize(tags[i].type), 0u) << tags[i].name;
    }
}

TEST(HostTagTable, UnknownNamesAndIdsAreNotFound) {
    EXPECT_EQ(kvhost::findTag(static_cast<const char*>(nullptr)), nullptr);
    EXPECT_EQ(kvhost::findTag(""), nullptr);
    EXPECT_EQ(kvhost::findTag("no.such.tag"), nullptr);
    EXPECT_EQ(kvhost::findTag("kovani.flash.mod"), nullptr);
    EXPECT_EQ(kvhost::findTag(0x8FFFFFFFu), nullptr);
}

TEST(HostTagTable, RegistrationAcceptsNewAndIdenticalDefinitionsOnly) {
    const std::string name = "hosttest.registration.fresh";
    const uint32_t id = 0x8FF00001;
    ASSERT_EQ(kvhost::registerTag(name, id, TagType::Double), 0);
    // The same definition again (also what a repeated test run does).
    EXPECT_EQ(kvhost::registerTag(name, id, TagType::Double), 0);

    struct Conflict {
        const char* what;
        std::string name;
        uint32_t id;
        TagType type;
    };
    const Conflict conflicts[] = {
        {"name taken, other id", name, 0x8FF00002, TagType::Double},
        {"id taken, other name", "hosttest.registration.other", id, TagType::Double},
        {"same name and id, other type", name, id, TagType::Int32},
        {"built-in name, other id", "kovani.flash.mode", 0x8FF00003, TagType::Int32},
        {"built-in id, other name", "hosttest.registration.android", 0xD0000, TagType::Int32},
        {"empty name", "", 0x8FF00004, TagType::Byte},
        {"type outside the enumeration", "hosttest.registration.badtype", 0x8FF00005,
         static_cast<TagType>(9)},
    };
    for (const Conflict& c : conflicts) {
        SCOPED_TRACE(c.what);
        EXPECT_NE(kvhost::registerTag(c.name, c.id, c.type), 0);
    }
    // Nothing of the refused definitions got in.
    const kvhost::TagInfo* info = kvhost::findTag(name.c_str());
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->id, id);
    EXPECT_EQ(info->type, TagType::Double);
    EXPECT_EQ(kvhost::findTag(0x8FF00002u), nullptr);
    EXPECT_EQ(kvhost::findTag("hosttest.registration.other"), nullptr);
    EXPECT_EQ(kvhost::findTag("hosttest.registration.android"), nullptr);
    EXPECT_EQ(kvhost::findTag(0xD0000u)->name, "android.scaler.cropRegion");
    EXPECT_EQ(kvhost::findTag("kovani.flash.mode")->type, TagType::Int32);

    // A registered tag is usable by the container at once.
    auto md = Metadata::create();
    EXPECT_EQ(md->putDouble(name.c_str(), {2.5}), 0);
    EXPECT_EQ(md->find(id).data.d[0], 2.5);
}

TEST(HostTagTable, EntriesStayPutWhileOtherThreadsRegister) {
    const kvhost::TagInfo* flash = kvhost::findTag("kovani.flash.mode");
    ASSERT_NE(flash, nullptr);
    std::atomic<bool> done{false};
    std::atomic<int> badReads{0};
    std::vector<std::thread> readers;
    for (int r = 0; r < 2; ++r) {
        readers.emplace_back([&] {
            // Bounded: the table's reader-preferring lock may hold the
            // writer back for as long as readers keep coming.
            for (int n = 0; n < 2000 && !done.load(); ++n) {
                const kvhost::TagInfo* a = kvhost::findTag("kovani.flash.mode");
                const kvhost::TagInfo* b = kvhost::findTag(0xD0000u);
                if (a != flash || b == nullptr || b->name != "android.scaler.cropRegion") {
                    ++badReads;
                }
                std::this_thread::yield();
            }
        });
    }
    for (uint32_t i = 0; i < 300; ++i) {
        const std::string name = "hosttest.stability." + std::to_string(i);
        EXPECT_EQ(kvhost::registerTag(name, 0x8FE00000 + i, TagType::Int32), 0);
    }
    done = true;
    for (std::thread& t : readers) t.join();
    EXPECT_EQ(badReads.load(), 0);
    EXPECT_EQ(kvhost::findTag("kovani.flash.mode"), flash);
    EXPECT_EQ(flash->name, "kovani.flash.mode");
    EXPECT_EQ(kvhost::findTag("hosttest.stability.299")->id, 0x8FE00000u + 299);
}

TEST(HostTagTable, TypeNamesAndSizesFollowAndroid) {
    struct Row {
        TagType type;
        const char* name;
        size_t size;
    };
    const Row rows[] = {
        {TagType::Byte, "byte", 1},     {TagType::Int32, "int32", 4},
        {TagType::Float, "float", 4},   {TagType::Int64, "int64", 8},
        {TagType::Double, "double", 8}, {TagType::Rational, "rational", 8},
    };
    for (const Row& row : rows) {
        EXPECT_STREQ(kvhost::typeName(row.type), row.name);
        EXPECT_EQ(kvhost::typeSize(row.type), row.size) << row.name;
        EXPECT_EQ(static_cast<int>(row.type), static_cast<int>(&row - rows)) << row.name;
    }
    EXPECT_EQ(kvhost::typeSize(static_cast<TagType>(6)), 0u);
    EXPECT_STREQ(kvhost::typeName(static_cast<TagType>(6)), "unknown");
}

TEST(HostTagTable, GetTagFromNameResolvesKnownNamesOnly) {
    uint32_t tag = 0;
    EXPECT_EQ(KvMetadata::getTagFromName("kovani.snapshot.fwkCameraId", &tag), 0);
    EXPECT_EQ(tag, kvhost::findTag("kovani.snapshot.fwkCameraId")->id);
    EXPECT_EQ(KvMetadata::getTagFromName("android.sensor.timestamp", &tag), 0);
    EXPECT_EQ(tag, 0xE0010u);

    tag = 1234;
    EXPECT_EQ(KvMetadata::getTagFromName("no.such.tag", &tag), -2);
    EXPECT_EQ(tag, 1234u) << "left untouched on failure";
    EXPECT_NE(KvMetadata::getTagFromName(nullptr, &tag), 0);
    EXPECT_EQ(tag, 1234u);
    EXPECT_NE(KvMetadata::getTagFromName("kovani.flash.mode", nullptr), 0);
}

// ---- Metadata container ------------------------------------------------------

const std::vector<uint8_t> kBytes = {0x7F, 0x01, 0xFE};
const std::vector<int32_t> kInt32s = {-1, 2, 0x7FFFFFFF, 4, 5};
const std::vector<float> kFloats = {1.5f, -0.25f};
const std::vector<int64_t> kInt64s = {-5, 0x123456789ALL};
const std::vector<double> kDoubles = {3.25};
const std::vector<camera_metadata_rational_t> kRationals = {{1, 2}, {-3, 4}, {5, -6}};

struct TypedCase {
    const char* tagName;  // a built-in tag of the type
    TagType type;
    size_t count;
    std::vector<uint8_t> raw;
    int (*putById)(Metadata&, uint32_t);
    int (*putByName)(Metadata&, const char*);
};

const std::vector<TypedCase>& TypedCases() {
    static const std::vector<TypedCase> cases = {
        {"kovani.snapshot.imageName", TagType::Byte, kBytes.size(), kBytes,
         [](Metadata& m, uint32_t t) { return m.putBytes(t, kBytes.data(), kBytes.size()); },
         [](Metadata& m, const char* n) { return m.putBytes(n, kBytes.data(), kBytes.size()); }},
        {"kovani.hdr.gtm.curve", TagType::Int32, kInt32s.size(), RawBytes(kInt32s),
         [](Metadata& m, uint32_t t) { return m.putInt32(t, kInt32s); },
         [](Metadata& m, const char* n) { return m.putInt32(n, kInt32s); }},
        {"com.qti.sensorbps.gain", TagType::Float, kFloats.size(), RawBytes(kFloats),
         [](Metadata& m, uint32_t t) { return m.putFloat(t, kFloats); },
         [](Metadata& m, const char* n) { return m.putFloat(n, kFloats); }},
        {"kovani.mfnr.anchorTimeStamp", TagType::Int64, kInt64s.size(), RawBytes(kInt64s),
         [](Metadata& m, uint32_t t) { return m.putInt64(t, kInt64s); },
         [](Metadata& m, const char* n) { return m.putInt64(n, kInt64s); }},
        {"hosttest.double", TagType::Double, kDoubles.size(), RawBytes(kDoubles),
         [](Metadata& m, uint32_t t) { return m.putDouble(t, kDoubles); },
         [](Metadata& m, const char* n) { return m.putDouble(n, kDoubles); }},
        {"kovani.supernight.color.correction.transform", TagType::Rational, kRationals.size(),
         RawBytes(kRationals), [](Metadata& m, uint32_t t) { return m.putRational(t, kRationals); },
         [](Metadata& m, const char* n) { return m.putRational(n, kRationals); }},
    };
    return cases;
}

class HostMetadata : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        // No tag of the library is a double; a test tag stands in for one.
        ASSERT_EQ(kvhost::registerTag("hosttest.double", 0x8FF00100, TagType::Double), 0);
    }

    std::shared_ptr<Metadata> md = Metadata::create();
};

TEST_F(HostMetadata, EachTypedPutRoundTripsByIdAndByName) {
    for (const TypedCase& c : TypedCases()) {
        SCOPED_TRACE(c.tagName);
        const uint32_t id = IdOf(c.tagName);
        auto byId = Metadata::create();
        ASSERT_EQ(c.putById(*byId, id), 0);
        const camera_metadata_ro_entry_t e = byId->find(id);
        EXPECT_EQ(e.index, 0u);
        EXPECT_EQ(e.tag, id);
        EXPECT_EQ(e.type, static_cast<uint8_t>(c.type));
        ASSERT_EQ(e.count, c.count);
        ASSERT_NE(e.data.u8, nullptr);
        EXPECT_EQ(Payload(e, c.raw.size()), c.raw);
        const camera_metadata_ro_entry_t named = byId->find(c.tagName);
        EXPECT_EQ(named.count, c.count);
        EXPECT_EQ(named.data.u8, e.data.u8) << "name and id reach the same entry";

        auto byName = Metadata::create();
        ASSERT_EQ(c.putByName(*byName, c.tagName), 0);
        EXPECT_EQ(byName->tags(), std::vector<uint32_t>{id});
        EXPECT_EQ(Payload(byName->find(id), c.raw.size()), c.raw);
    }
}

TEST_F(HostMetadata, AnElementTypeOtherThanTheTagsIsRefusedAndStoresNothing) {
    const std::vector<uint8_t> buffer(64, 0x11);
    for (const TypedCase& c : TypedCases()) {
        const uint32_t id = IdOf(c.tagName);
        auto meta = Metadata::create();
        ASSERT_EQ(c.putById(*meta, id), 0);
        const camera_metadata_ro_entry_t before = meta->find(id);
        for (TagType other : kAllTypes) {
            if (other == c.type) continue;
            SCOPED_TRACE(std::string(c.tagName) + " as " + kvhost::typeName(other));
            EXPECT_EQ(meta->put(id, other, buffer.data(), 2), kvhost::kInvalid);
            EXPECT_EQ(meta->put(c.tagName, other, buffer.data(), 2), kvhost::kInvalid);
            const camera_metadata_ro_entry_t after = meta->find(id);
            EXPECT_EQ(after.data.u8, before.data.u8);
            EXPECT_EQ(after.count, c.count);
            EXPECT_EQ(Payload(after, c.raw.size()), c.raw);
        }
        EXPECT_EQ(meta->size(), 1u);
    }
}

TEST_F(HostMetadata, UnknownTagsAndMissingDataAreRefused) {
    const int32_t value = 1;
    const uint32_t unknownId = 0x8FFFFFF0;
    EXPECT_NE(md->putInt32(unknownId, {1}), 0);
    EXPECT_NE(md->putInt32("no.such.tag", {1}), 0);
    EXPECT_NE(md->putInt32(static_cast<const char*>(nullptr), {1}), 0);
    EXPECT_NE(md->putEmpty(unknownId), 0);
    EXPECT_NE(md->putEmpty("no.such.tag"), 0);
    EXPECT_EQ(md->update(unknownId, &value, 1), kvhost::kInvalid);
    EXPECT_NE(md->putBytes(IdOf("kovani.hdr.enabled"), nullptr, 3), 0);
    EXPECT_EQ(md->update(0xD0000, static_cast<const int32_t*>(nullptr), 4), kvhost::kInvalid);
    EXPECT_EQ(md->size(), 0u);
}

TEST_F(HostMetadata, UpdateChecksTheDeclaredTypeOfEachOverload) {
    const float f[2] = {1.0f, 2.0f};
    const int32_t i[2] = {3, 4};
    const uint8_t b[2] = {5, 6};
    const uint32_t floatTag = IdOf("com.kovani.3AAlgo.awbHazeRatio");
    const uint32_t intTag = IdOf("com.kovani.3AAlgo.aecAItoneFlag");
    const uint32_t byteTag = IdOf("kovani.telefusion.enabled");
    struct Row {
        const char* what;
        uint32_t tag;
        int (*update)(KvMetadata&, uint32_t, const void*);
        const void* data;
        int expected;
    };
    auto viaFloat = [](KvMetadata& m, uint32_t t, const void* d) {
        return m.update(t, static_cast<const float*>(d), 2);
    };
    auto viaInt = [](KvMetadata& m, uint32_t t, const void* d) {
        return m.update(t, static_cast<const int32_t*>(d), 2);
    };
    auto viaByte = [](KvMetadata& m, uint32_t t, const void* d) {
        return m.update(t, static_cast<const uint8_t*>(d), 2);
    };
    const Row rows[] = {
        {"float to float tag", floatTag, viaFloat, f, 0},
        {"int32 to int32 tag", intTag, viaInt, i, 0},
        {"byte to byte tag", byteTag, viaByte, b, 0},
        {"float to int32 tag", intTag, viaFloat, f, kvhost::kInvalid},
        {"float to byte tag", byteTag, viaFloat, f, kvhost::kInvalid},
        {"int32 to float tag", floatTag, viaInt, i, kvhost::kInvalid},
        {"int32 to int64 tag", 0xE0010, viaInt, i, kvhost::kInvalid},
        {"byte to int32 tag", intTag, viaByte, b, kvhost::kInvalid},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        auto meta = Metadata::create();
        EXPECT_EQ(row.update(*meta, row.tag, row.data), row.expected);
        const camera_metadata_ro_entry_t e = meta->find(row.tag);
        if (row.expected == 0) {
            ASSERT_EQ(e.count, 2u);
            const size_t bytes = 2 * kvhost::typeSize(kvhost::findTag(row.tag)->type);
            EXPECT_EQ(std::memcmp(e.data.u8, row.data, bytes), 0);
        } else {
            EXPECT_EQ(e.count, 0u);
            EXPECT_EQ(e.data.u8, nullptr);
            EXPECT_EQ(meta->size(), 0u);
        }
    }
}

TEST_F(HostMetadata, PayloadBlocksAreAlignedZeroPaddedAndAtLeastOneWord) {
    // Readers load whole words past the payload (a 32-bit read of a one-byte
    // tag); under AddressSanitizer this reads every byte the block promises.
    const std::vector<uint8_t> fill(17 * 8, 0xAB);
    for (const TypedCase& c : TypedCases()) {
        const size_t elementSize = kvhost::typeSize(c.type);
        for (size_t count = 0; count <= 17; ++count) {
            SCOPED_TRACE(std::string(c.tagName) + " count " + std::to_string(count));
            auto meta = Metadata::create();
            ASSERT_EQ(meta->put(IdOf(c.tagName), c.type, fill.data(), count), 0);
            const camera_metadata_ro_entry_t e = meta->find(IdOf(c.tagName));
            ASSERT_EQ(e.count, count);
            ASSERT_NE(e.data.u8, nullptr);
            EXPECT_TRUE(Aligned8(e.data.u8));
            const size_t payload = count * elementSize;
            const size_t block = std::max<size_t>(8, (payload + 7) / 8 * 8);
            for (size_t i = 0; i < block; ++i) {
                ASSERT_EQ(e.data.u8[i], i < payload ? 0xAB : 0x00) << "byte " << i;
            }
        }
    }
}

TEST_F(HostMetadata, AWordReadOfAOneByteTagSeesTheByteAndZeroPadding) {
    const uint8_t enabled = 0x5A;
    ASSERT_EQ(md->putBytes("kovani.hdr.enabled", &enabled, 1), 0);
    const camera_metadata_ro_entry_t e = md->find("kovani.hdr.enabled");
    ASSERT_EQ(e.count, 1u);
    EXPECT_EQ(*reinterpret_cast<const uint32_t*>(e.data.u8), 0x5Au);
}

TEST_F(HostMetadata, PayloadPointerSurvivesChangesToEveryOtherEntry) {
    const uint32_t kept = IdOf("kovani.flash.mode");
    ASSERT_EQ(md->putInt32(kept, {42, 43}), 0);
    const int32_t* const p = md->find(kept).data.i32;
    ASSERT_NE(p, nullptr);
    auto check = [&](const char* phase) {
        SCOPED_TRACE(phase);
        const camera_metadata_ro_entry_t e = md->find(kept);
        EXPECT_EQ(e.data.i32, p);
        EXPECT_EQ(p[0], 42);
        EXPECT_EQ(p[1], 43);
    };
    // Every other known tag, below and above the kept one, inserted, then
    // replaced with a larger payload, then half of them erased.
    const std::vector<uint8_t> zeros(256, 0);
    const std::vector<kvhost::TagInfo> all = kvhost::knownTags();
    for (const kvhost::TagInfo& t : all) {
        if (t.id == kept) continue;
        ASSERT_EQ(md->put(t.id, t.type, zeros.data(), 1), 0) << t.name;
    }
    check("after inserting");
    for (const kvhost::TagInfo& t : all) {
        if (t.id == kept) continue;
        ASSERT_EQ(md->put(t.id, t.type, zeros.data(), 16), 0) << t.name;
    }
    check("after replacing");
    size_t erased = 0;
    for (size_t i = 0; i < all.size(); i += 2) {
        if (all[i].id == kept) continue;
        EXPECT_TRUE(md->erase(all[i].id)) << all[i].name;
        ++erased;
    }
    check("after erasing");
    EXPECT_EQ(md->size(), all.size() - erased);
}

TEST_F(HostMetadata, ReplacingAnEntryStoresTheNewPayload) {
    const uint32_t tag = 0xD0000;
    ASSERT_EQ(md->putInt32(tag, {1, 2, 3, 4}), 0);
    ASSERT_EQ(md->putInt32(tag, {9}), 0);
    const camera_metadata_ro_entry_t e = md->find(tag);
    ASSERT_EQ(e.count, 1u);
    EXPECT_EQ(e.data.i32[0], 9);
    EXPECT_EQ(e.data.i32[1], 0) << "padding of the new block";
    EXPECT_EQ(md->size(), 1u);
}

TEST_F(HostMetadata, FindReportsThePositionInIdOrder) {
    const uint32_t high = 0xF0000, mid = 0xE0010, low = 0xD0000, lowest = 0x2;
    ASSERT_EQ(md->putInt32(high, {1, 2, 3, 4}), 0);
    ASSERT_EQ(md->putInt32(low, {1, 2, 3, 4}), 0);
    ASSERT_EQ(md->putInt64(mid, {7}), 0);
    EXPECT_EQ(md->tags(), (std::vector<uint32_t>{low, mid, high}));
    EXPECT_EQ(md->find(low).index, 0u);
    EXPECT_EQ(md->find(mid).index, 1u);
    EXPECT_EQ(md->find(high).index, 2u);
    ASSERT_EQ(md->putFloat(lowest, {1, 1, 1, 1}), 0);
    EXPECT_EQ(md->tags(), (std::vector<uint32_t>{lowest, low, mid, high}));
    EXPECT_EQ(md->find(lowest).index, 0u);
    EXPECT_EQ(md->find(high).index, 3u);
    EXPECT_EQ(md->find(mid).type, static_cast<uint8_t>(TagType::Int64));
}

TEST_F(HostMetadata, AbsentTagsAndUnknownNamesGiveNoData) {
    ASSERT_EQ(md->putInt32("kovani.flash.mode", {1}), 0);
    struct Row {
        const char* what;
        camera_metadata_ro_entry_t entry;
    };
    const Row rows[] = {
        {"absent id", md->find(0xD0000u)},
        {"unknown id", md->find(0x8FFFFFF0u)},
        {"absent known name", md->find("kovani.snapshot.fwkCameraId")},
        {"unknown name", md->find("no.such.tag")},
        {"null name", md->find(static_cast<const char*>(nullptr))},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(row.entry.count, 0u);
        EXPECT_EQ(row.entry.data.u8, nullptr);
    }
}

TEST_F(HostMetadata, CountZeroEntriesArePresentWithAnEmptyBlock) {
    for (const TypedCase& c : TypedCases()) {
        SCOPED_TRACE(c.tagName);
        const uint32_t id = IdOf(c.tagName);
        auto byId = Metadata::create();
        auto byName = Metadata::create();
        ASSERT_EQ(byId->putEmpty(id), 0);
        ASSERT_EQ(byName->putEmpty(c.tagName), 0);
        for (const auto& meta : {byId, byName}) {
            const camera_metadata_ro_entry_t e = meta->find(id);
            EXPECT_EQ(e.count, 0u);
            EXPECT_EQ(e.type, static_cast<uint8_t>(c.type));
            ASSERT_NE(e.data.u8, nullptr);
            EXPECT_TRUE(Aligned8(e.data.u8));
            EXPECT_EQ(*reinterpret_cast<const uint64_t*>(e.data.u8), 0u);
            EXPECT_EQ(meta->size(), 1u);
            EXPECT_EQ(meta->tags(), std::vector<uint32_t>{id});
            EXPECT_NE(meta->find(c.tagName).data.u8, nullptr);
        }
        EXPECT_TRUE(byId->erase(id));
        EXPECT_EQ(byId->find(id).data.u8, nullptr);
        EXPECT_EQ(byId->size(), 0u);
    }
    // Through KvMetadata::update with count 0 as well.
    const float none = 0;
    ASSERT_EQ(md->update(IdOf("com.qti.sensorbps.gain"), &none, 0), 0);
    const camera_metadata_ro_entry_t e = md->find("com.qti.sensorbps.gain");
    EXPECT_EQ(e.count, 0u);
    EXPECT_NE(e.data.f, nullptr);
}

TEST_F(HostMetadata, EraseRemovesOnlyItsOwnEntry) {
    ASSERT_EQ(md->putInt32(0xD0000, {1, 2, 3, 4}), 0);
    ASSERT_EQ(md->putInt64(0xE0010, {5}), 0);
    ASSERT_EQ(md->putInt32("kovani.flash.mode", {6}), 0);
    const int32_t* crop = md->find(0xD0000u).data.i32;
    const int32_t* flash = md->find("kovani.flash.mode").data.i32;

    EXPECT_TRUE(md->erase(0xE0010u));
    EXPECT_FALSE(md->erase(0xE0010u)) << "already gone";
    EXPECT_FALSE(md->erase(0x8FFFFFF0u));
    EXPECT_FALSE(md->erase("no.such.tag"));
    EXPECT_FALSE(md->erase("kovani.snapshot.fwkCameraId")) << "known but absent";
    EXPECT_EQ(md->find(0xE0010u).count, 0u);
    EXPECT_EQ(md->find(0xE0010u).data.u8, nullptr);
    EXPECT_EQ(md->find(0xD0000u).data.i32, crop);
    EXPECT_EQ(md->find("kovani.flash.mode").data.i32, flash);
    EXPECT_EQ(md->find("kovani.flash.mode").index, 1u);

    EXPECT_TRUE(md->erase("kovani.flash.mode"));
    EXPECT_EQ(md->tags(), std::vector<uint32_t>{0xD0000});
    md->clear();
    EXPECT_EQ(md->size(), 0u);
    EXPECT_EQ(md->find(0xD0000u).data.u8, nullptr);
}

TEST_F(HostMetadata, CloneIsADeepIndependentCopy) {
    ASSERT_EQ(md->putInt32(0xD0000, {1, 2, 3, 4}), 0);
    ASSERT_EQ(md->putEmpty("kovani.hdr.enabled"), 0);
    auto copy = md->clone();
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->tags(), md->tags());
    const camera_metadata_ro_entry_t original = md->find(0xD0000u);
    const camera_metadata_ro_entry_t copied = copy->find(0xD0000u);
    EXPECT_NE(copied.data.i32, original.data.i32);
    EXPECT_EQ(Payload(copied, 16), Payload(original, 16));
    EXPECT_EQ(copy->find("kovani.hdr.enabled").count, 0u);
    EXPECT_NE(copy->find("kovani.hdr.enabled").data.u8, nullptr);

    ASSERT_EQ(copy->putInt32(0xD0000, {9, 9, 9, 9}), 0);
    EXPECT_EQ(md->find(0xD0000u).data.i32[0], 1);
    EXPECT_TRUE(md->erase(0xD0000u));
    EXPECT_EQ(copy->find(0xD0000u).data.i32[0], 9);
}

TEST_F(HostMetadata, PlatformInterfaceReachesTheContainer) {
    std::shared_ptr<KvMetadata> platform = md;
    const int32_t crop[4] = {10, 20, 30, 40};
    ASSERT_EQ(platform->update(0xD0000, crop, 4), 0);
    EXPECT_EQ(md->find(0xD0000u).data.i32[3], 40);
    ASSERT_EQ(md->putFloat("com.qti.sensorbps.gain", {1.5f}), 0);
    const camera_metadata_ro_entry_t e = platform->find("com.qti.sensorbps.gain");
    ASSERT_EQ(e.count, 1u);
    EXPECT_EQ(e.data.f[0], 1.5f);
}

TEST_F(HostMetadata, ReadersKeepTheirPayloadWhileWritersChangeOtherEntries) {
    ASSERT_EQ(md->putInt32("kovani.snapshot.fwkCameraId", {7}), 0);
    const int32_t* const p = md->find("kovani.snapshot.fwkCameraId").data.i32;
    std::atomic<int> badReads{0};
    std::vector<std::thread> threads;
    for (int w = 0; w < 2; ++w) {
        threads.emplace_back([&, w] {
            const uint32_t tag = w == 0 ? 0xD0000 : 0xF0000;
            for (int i = 0; i < 2000; ++i) {
                if (md->putInt32(tag, {i, i, i, i}) != 0) ++badReads;
                if (i % 3 == 0) md->erase(tag);
            }
        });
    }
    for (int r = 0; r < 2; ++r) {
        threads.emplace_back([&] {
            for (int i = 0; i < 2000; ++i) {
                const camera_metadata_ro_entry_t e = md->find("kovani.snapshot.fwkCameraId");
                if (e.data.i32 != p || e.count != 1 || *p != 7) ++badReads;
                const camera_metadata_ro_entry_t crop = md->find(0xD0000u);
                if (crop.count != 0 && crop.count != 4) ++badReads;
            }
        });
    }
    for (std::thread& t : threads) t.join();
    EXPECT_EQ(badReads.load(), 0);
}

// ---- Static metadata -----------------------------------------------------------

TEST(HostStaticMetadata, RegistryHandsBackWhatWasRegistered) {
    StaticMetadataWraper* wrapper = StaticMetadataWraper::getInstance();
    ASSERT_NE(wrapper, nullptr);
    EXPECT_EQ(StaticMetadataWraper::getInstance(), wrapper);
    kvhost::clearStaticMetadata();

    auto first = Metadata::create();
    auto second = Metadata::create();
    EXPECT_EQ(wrapper->getStaticMetadata(3), nullptr);
    kvhost::setStaticMetadata(3, first);
    kvhost::setStaticMetadata(5, second);
    EXPECT_EQ(wrapper->getStaticMetadata(3).get(), first.get());
    EXPECT_EQ(wrapper->getStaticMetadata(5).get(), second.get());
    EXPECT_EQ(wrapper->getStaticMetadata(4), nullptr);

    kvhost::setStaticMetadata(3, second);
    EXPECT_EQ(wrapper->getStaticMetadata(3).get(), second.get());
    kvhost::setStaticMetadata(3, nullptr);
    EXPECT_EQ(wrapper->getStaticMetadata(3), nullptr);
    EXPECT_EQ(wrapper->getStaticMetadata(5).get(), second.get());

    kvhost::clearStaticMetadata();
    EXPECT_EQ(wrapper->getStaticMetadata(5), nullptr);
    EXPECT_EQ(second.use_count(), 1) << "the registry let go of its reference";
}

// ---- Log sinks and capture -----------------------------------------------------

class HostLog : public ::testing::Test {
protected:
    void SetUp() override {
        savedEcho_ = kvhost::logEcho();
        kvhost::setLogEcho(false);
    }
    void TearDown() override {
        kvhost::setLogEcho(savedEcho_);
        kvhost::setDebugInterceptResult(0);
    }

    bool loadTimeEcho() const { return savedEcho_; }

private:
    bool savedEcho_ = false;
};

using PrimarySink = void (*)(unsigned, unsigned, const char*, const char*, unsigned, const char*,
                             ...);

TEST_F(HostLog, FileNameIsThePartAfterTheLastSlash) {
    struct Row {
        const char* path;
        size_t offset;
    };
    const Row rows[] = {{"external/odm/metadataUtils/MetaUtils.cpp", 27},
                        {"MetaUtils.cpp", 0},
                        {"/abs/x.h", 5},
                        {"dir/", 4},
                        {"", 0}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.path);
        EXPECT_EQ(__UtilsLog_NoDirFileName(row.path), row.path + row.offset);
        EXPECT_EQ(kvdebug::Log::getFileName(row.path), row.path + row.offset);
    }
    EXPECT_STREQ(__UtilsLog_NoDirFileName(nullptr), "");
    EXPECT_STREQ(kvdebug::Log::getFileName(nullptr), "");
}

TEST_F(HostLog, SettingsRecordHoldsTheLogTagInlineAtByte72) {
    UtilsSettings* settings = UtilsSettings_getter();
    ASSERT_NE(settings, nullptr);
    EXPECT_EQ(UtilsSettings_getter(), settings);
    EXPECT_EQ(reinterpret_cast<char*>(settings->logTag) - reinterpret_cast<char*>(settings), 72);
    const size_t length = strnlen(settings->logTag, sizeof(settings->logTag));
    EXPECT_GT(length, 0u);
    EXPECT_LT(length, sizeof(settings->logTag));
    EXPECT_STREQ(settings->logTag, "KvMetaUtils");
}

TEST_F(HostLog, PrimarySinksRecordEveryArgument) {
    struct Row {
        LogSink sink;
        PrimarySink write;
    };
    const Row rows[] = {{LogSink::Online, __UtilsLog_PintOnline},
                        {LogSink::Offline, __UtilsLog_PintOffline}};
    for (const Row& row : rows) {
        SCOPED_TRACE(kvhost::sinkName(row.sink));
        LogCapture capture;
        row.write(3, 64, "Tag", "MetaUtils.cpp", 77, "[%s][%s()]:[%d] v=%d %s", "MetaUtils.cpp",
                  "GetMetaData", 77, 5, "x");
        const std::vector<LogRecord> records = capture.records();
        ASSERT_EQ(records.size(), 1u);
        const LogRecord& r = records[0];
        EXPECT_EQ(r.sink, row.sink);
        EXPECT_EQ(r.level, 3u);
        EXPECT_EQ(r.group, 64u);
        EXPECT_EQ(r.tag, "Tag");
        EXPECT_EQ(r.file, "MetaUtils.cpp");
        EXPECT_EQ(r.line, 77);
        EXPECT_EQ(r.format, "[%s][%s()]:[%d] v=%d %s");
        EXPECT_EQ(r.text, "[MetaUtils.cpp][GetMetaData()]:[77] v=5 x");
        EXPECT_EQ(r.func, "");
        EXPECT_EQ(r.letter, 0);
        EXPECT_EQ(r.priority, 0);
    }
}

TEST_F(HostLog, MessagesOfAnyLengthAreFormattedWhole) {
    LogCapture capture;
    for (size_t length : {0u, 1u, 510u, 511u, 512u, 513u, 5000u}) {
        SCOPED_TRACE(length);
        capture.clear();
        const std::string body(length, 'm');
        __UtilsLog_PintOnline(2, 64, "Tag", "f.cpp", 1, "<%s>", body.c_str());
        kvdebug::Log::logSystem(2, "I", "f.cpp", "F", 1, "<%s>", body.c_str());
        EXPECT_EQ(capture.texts(LogSink::Online), std::vector<std::string>{"<" + body + ">"});
        EXPECT_EQ(capture.texts(LogSink::DebugOffline), std::vector<std::string>{"<" + body + ">"});
    }
}

TEST_F(HostLog, InterceptorRecordsTheCallAndReturnsTheScriptedValue) {
    LogCapture capture;
    EXPECT_EQ(kvdebug::Log::catchLogEncryptLog(2, "MetaUtilsMtk.cpp", 12, "GetGyroData", 'I',
                                               "gyros size: %d", 3),
              0);
    kvhost::setDebugInterceptResult(5);
    EXPECT_EQ(kvhost::debugInterceptResult(), 5);
    EXPECT_EQ(kvdebug::Log::catchLogEncryptLog(2, "f.cpp", 1, "F", 'W', "x"), 5);

    const std::vector<LogRecord> records = capture.records(LogSink::DebugIntercept);
    ASSERT_EQ(records.size(), 2u);
    const LogRecord& r = records[0];
    EXPECT_EQ(r.group, 2u);
    EXPECT_EQ(r.file, "MetaUtilsMtk.cpp");
    EXPECT_EQ(r.line, 12);
    EXPECT_EQ(r.func, "GetGyroData");
    EXPECT_EQ(r.letter, 'I');
    EXPECT_EQ(r.level, 4u);
    EXPECT_EQ(r.format, "gyros size: %d");
    EXPECT_EQ(r.text, "gyros size: 3");
    EXPECT_EQ(records[1].letter, 'W');
    EXPECT_EQ(records[1].level, 5u);
}

TEST_F(HostLog, DebugOfflineSinkTakesTheLetterFromTheLevelText) {
    struct Row {
        const char* level;
        char letter;
        unsigned numeric;
    };
    const Row rows[] = {{"V", 'V', 2},     {"D", 'D', 3}, {"I", 'I', 4}, {"W", 'W', 5},
                        {"Error", 'E', 6}, {"F", 'F', 7}, {"Q", 'Q', 0}, {"", 0, 0}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.level);
        LogCapture capture;
        kvdebug::Log::logSystem(2, row.level, "MetaUtilsMtk.cpp", "operator()", 40, "crop %d", 7);
        const std::vector<LogRecord> records = capture.records();
        ASSERT_EQ(records.size(), 1u);
        const LogRecord& r = records[0];
        EXPECT_EQ(r.sink, LogSink::DebugOffline);
        EXPECT_EQ(r.letter, row.letter);
        EXPECT_EQ(r.level, row.numeric);
        EXPECT_EQ(r.group, 2u);
        EXPECT_EQ(r.file, "MetaUtilsMtk.cpp");
        EXPECT_EQ(r.func, "operator()");
        EXPECT_EQ(r.line, 40);
        EXPECT_EQ(r.format, "crop %d");
        EXPECT_EQ(r.text, "crop 7");
    }
}

TEST_F(HostLog, EveryGroupBitHasItsOwnStableName) {
    std::set<std::string> names;
    for (unsigned bit = 0; bit < 8; ++bit) {
        const char* name = kvdebug::Log::kvaGroupToString(1u << bit);
        ASSERT_NE(name, nullptr);
        EXPECT_GT(std::strlen(name), 0u);
        EXPECT_EQ(kvdebug::Log::kvaGroupToString(1u << bit), name);
        EXPECT_TRUE(names.insert(name).second) << name;
    }
    for (unsigned group : {0u, 3u, 0x100u, 0xFFFFFFFFu}) {
        const char* name = kvdebug::Log::kvaGroupToString(group);
        ASSERT_NE(name, nullptr) << group;
        EXPECT_EQ(names.count(name), 0u) << group;
    }
}

TEST_F(HostLog, DebugGatesAreOpenByDefault) {
    EXPECT_EQ(kvdebug::gKvCamLogLevel, 0u);
    EXPECT_EQ(kvdebug::gKvCamLogGroup, 0xFFFFFFFFu);
    EXPECT_EQ(kvdebug::gKvCamOfflineLogLevel, 0u);
    EXPECT_EQ(kvdebug::gKvCamOfflineLogGroup, 0xFFFFFFFFu);
    EXPECT_EQ(kvdebug::gKvCamDebugMask, 1u);
}

TEST_F(HostLog, AndroidLinesAreCapturedAtEveryPriority) {
    LogCapture capture;
    for (int priority = ANDROID_LOG_VERBOSE; priority <= ANDROID_LOG_ERROR; ++priority) {
        __android_log_print(priority, "HostTag", "p=%d", priority);
    }
    __android_log_write(ANDROID_LOG_WARN, "HostTag", "plain %d");
    const std::vector<LogRecord> records = capture.records(LogSink::Android);
    ASSERT_EQ(records.size(), 6u);
    for (int priority = ANDROID_LOG_VERBOSE; priority <= ANDROID_LOG_ERROR; ++priority) {
        const LogRecord& r = records[priority - ANDROID_LOG_VERBOSE];
        SCOPED_TRACE(priority);
        EXPECT_EQ(r.priority, priority);
        EXPECT_EQ(r.level, static_cast<unsigned>(priority));
        EXPECT_EQ(r.tag, "HostTag");
        EXPECT_EQ(r.text, "p=" + std::to_string(priority));
        EXPECT_EQ(r.format, "");
    }
    EXPECT_EQ(records[5].text, "plain %d");
}

TEST_F(HostLog, EndingTheCaptureRestoresLiblogAndStopsRecording) {
    const int minimum = __android_log_get_minimum_priority();
    {
        LogCapture capture;
        EXPECT_EQ(__android_log_get_minimum_priority(), ANDROID_LOG_VERBOSE);
    }
    EXPECT_EQ(__android_log_get_minimum_priority(), minimum);

    __android_log_print(ANDROID_LOG_ERROR, "HostTag", "between captures");
    __UtilsLog_PintOnline(3, 64, "Tag", "f.cpp", 1, "between captures");
    kvdebug::Log::logSystem(2, "I", "f.cpp", "F", 1, "between captures");
    LogCapture next;
    EXPECT_TRUE(next.records().empty());
}

TEST_F(HostLog, RecordsKeepArrivalOrderAcrossSinksAndFilterBySink) {
    LogCapture capture;
    __UtilsLog_PintOnline(1, 64, "Tag", "f.cpp", 1, "one");
    __android_log_print(ANDROID_LOG_INFO, "Tag", "two");
    __UtilsLog_PintOffline(1, 64, "Tag", "f.cpp", 1, "three");
    kvdebug::Log::catchLogEncryptLog(2, "f.cpp", 1, "F", 'I', "four");
    kvdebug::Log::logSystem(2, "I", "f.cpp", "F", 1, "five");
    __UtilsLog_PintOnline(1, 64, "Tag", "f.cpp", 1, "six");

    const std::vector<LogRecord> records = capture.records();
    ASSERT_EQ(records.size(), 6u);
    const LogSink order[] = {LogSink::Online,         LogSink::Android,      LogSink::Offline,
                             LogSink::DebugIntercept, LogSink::DebugOffline, LogSink::Online};
    const char* texts[] = {"one", "two", "three", "four", "five", "six"};
    for (size_t i = 0; i < records.size(); ++i) {
        EXPECT_EQ(records[i].sink, order[i]) << i;
        EXPECT_EQ(records[i].text, texts[i]) << i;
    }
    EXPECT_EQ(capture.texts(LogSink::Online), (std::vector<std::string>{"one", "six"}));
    EXPECT_EQ(capture.records(LogSink::Offline).size(), 1u);
    EXPECT_EQ(capture.texts(LogSink::Android), std::vector<std::string>{"two"});

    capture.clear();
    EXPECT_TRUE(capture.records().empty());
    __UtilsLog_PintOffline(1, 64, "Tag", "f.cpp", 1, "seven");
    EXPECT_EQ(capture.texts(LogSink::Offline), std::vector<std::string>{"seven"});
}

TEST_F(HostLog, NestedCapturesShareOneStoreUntilTheLastEnds) {
    LogCapture outer;
    __UtilsLog_PintOnline(1, 64, "Tag", "f.cpp", 1, "one");
    {
        LogCapture inner;
        EXPECT_EQ(inner.texts(LogSink::Online), std::vector<std::string>{"one"});
        __UtilsLog_PintOnline(1, 64, "Tag", "f.cpp", 1, "two");
        EXPECT_EQ(inner.texts(LogSink::Online), (std::vector<std::string>{"one", "two"}));
    }
    // The inner capture's end neither stops recording nor gives liblog back.
    __UtilsLog_PintOnline(1, 64, "Tag", "f.cpp", 1, "three");
    __android_log_print(ANDROID_LOG_DEBUG, "Tag", "four");
    EXPECT_EQ(outer.texts(LogSink::Online), (std::vector<std::string>{"one", "two", "three"}));
    EXPECT_EQ(outer.texts(LogSink::Android), std::vector<std::string>{"four"});
}

TEST_F(HostLog, LinesFromManyThreadsAreAllRecordedInTheirOwnOrder) {
    constexpr int kThreads = 4;
    constexpr int kLines = 250;
    LogCapture capture;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < kLines; ++i) {
                if (i % 2 == 0) {
                    __UtilsLog_PintOnline(1, 64, "Tag", "f.cpp", t, "%d", i);
                } else {
                    __android_log_print(ANDROID_LOG_INFO, "Tag", "%d", i);
                }
            }
        });
    }
    for (std::thread& t : threads) t.join();
    const std::vector<LogRecord> records = capture.records();
    ASSERT_EQ(records.size(), static_cast<size_t>(kThreads * kLines));
    std::vector<int> lastOnline(kThreads, -1);
    for (const LogRecord& r : records) {
        if (r.sink != LogSink::Online) continue;
        const int value = std::stoi(r.text);
        EXPECT_GT(value, lastOnline[r.line]) << "thread " << r.line;
        lastOnline[r.line] = value;
    }
    EXPECT_EQ(capture.records(LogSink::Android).size(), static_cast<size_t>(kThreads * kLines / 2));
}

TEST_F(HostLog, EchoDefaultFollowsTheEnvironment) {
    // What the fixture saved is the load-time value: every test restores it.
    const char* env = std::getenv("KVHOST_LOG_ECHO");
    EXPECT_EQ(loadTimeEcho(), env == nullptr || std::string(env) != "0");
    kvhost::setLogEcho(true);
    EXPECT_TRUE(kvhost::logEcho());
    kvhost::setLogEcho(false);
    EXPECT_FALSE(kvhost::logEcho());
}

TEST_F(HostLog, EchoReachesStderrOnlyFromConsoleSinksAndNeverDuringACapture) {
    struct Row {
        const char* what;
        bool echo;
        bool capturing;
        bool expectOnline;
        bool expectAndroid;
    };
    const Row rows[] = {
        {"echo on, no capture", true, false, true, true},
        {"echo on, capture alive", true, true, false, false},
        {"echo off, no capture", false, false, false, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        kvhost::setLogEcho(row.echo);
        std::unique_ptr<LogCapture> capture;
        if (row.capturing) capture = std::make_unique<LogCapture>();
        ::testing::internal::CaptureStderr();
        __UtilsLog_PintOnline(1, 64, "Tag", "f.cpp", 1, "online-line");
        __UtilsLog_PintOffline(1, 64, "Tag", "f.cpp", 1, "offline-line");
        kvdebug::Log::catchLogEncryptLog(2, "f.cpp", 1, "F", 'I', "intercept-line");
        kvdebug::Log::logSystem(2, "I", "f.cpp", "F", 1, "debug-offline-line");
        __android_log_print(ANDROID_LOG_ERROR, "Tag", "android-line");
        const std::string err = ::testing::internal::GetCapturedStderr();
        // "offline-line" and "debug-offline-line" do not contain "online-line".
        EXPECT_EQ(err.find("online-line") != std::string::npos, row.expectOnline) << err;
        EXPECT_EQ(err.find("android-line") != std::string::npos, row.expectAndroid) << err;
        EXPECT_EQ(err.find("offline-line"), std::string::npos) << err;
        EXPECT_EQ(err.find("intercept-line"), std::string::npos) << err;
        if (capture != nullptr) {
            EXPECT_EQ(capture->records().size(), 5u);
        }
    }
}

}  // namespace
}  // namespace kvhost_test
