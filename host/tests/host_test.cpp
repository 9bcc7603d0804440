// Tests of the host stand-ins themselves: the tag table, the metadata
// container, the static metadata registry, the log sinks with their capture
// store, and the adapter's call recorder.
#include <android/log.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <set>
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

std::vector<uint8_t> Payload(const camera_metadata_ro_entry_t& e, size_t bytes) {
    return std::vector<uint8_t>(e.data.u8, e.data.u8 + bytes);
}

bool Aligned8(const void* p) {
    return reinterpret_cast<uintptr_t>(p) % 8 == 0;
}

// ---- Tag table -------------------------------------------------------------

TEST(HostTagTable, KnownTagsAreSortedUniqueAndInTheirSections) {
    const std::vector<kvhost::TagInfo> tags = kvhost::knownTags();
    ASSERT_GE(tags.size(), 95u);
    std::set<std::string> names;
    for (size_t i = 0; i < tags.size(); ++i) {
        SCOPED_TRACE(tags[i].name);
        EXPECT_TRUE(i == 0 || tags[i - 1].id < tags[i].id);
        EXPECT_TRUE(names.insert(tags[i].name).second);
        EXPECT_GT(kvhost::typeSize(tags[i].type), 0u);
        EXPECT_EQ(kvhost::findTag(tags[i].id), kvhost::findTag(tags[i].name.c_str()));
        // Android's own tags below the vendor boundary, every other tag above.
        EXPECT_EQ(tags[i].id < 0x80000000u, tags[i].name.rfind("android.", 0) == 0);
    }
    // Platform ids and types; the library's tests reach the others by id.
    const struct {
        const char* name;
        uint32_t id;
        TagType type;
    } rows[] = {{"android.scaler.cropRegion", 0xD0000, TagType::Int32},
                {"android.sensor.timestamp", 0xE0010, TagType::Int64},
                {"android.control.afState", 0x10020, TagType::Byte},
                {"MTK_3A_FEATURE_AF_REGION", 0x80060001, TagType::Int32}};
    for (const auto& row : rows) {
        const kvhost::TagInfo* info = kvhost::findTag(row.name);
        ASSERT_NE(info, nullptr) << row.name;
        EXPECT_EQ(info->id, row.id) << row.name;
        EXPECT_EQ(info->type, row.type) << row.name;
    }
}

TEST(HostTagTable, HoldsEveryRowOfTheAndroidDataFileWithItsEnumNames) {
    std::ifstream tsv(KVTEST_SOURCE_DIR "/host/data/android-camera-tags.tsv");
    size_t rows = 0;
    for (std::string line; std::getline(tsv, line);) {
        if (line.empty() || line[0] == '#') continue;
        ++rows;
        std::istringstream fields(line);
        std::string id, name, type;
        std::getline(fields, id, '\t');
        std::getline(fields, name, '\t');
        std::getline(fields, type, '\t');
        const kvhost::TagInfo* info = kvhost::findTag(name.c_str());
        ASSERT_NE(info, nullptr) << name;
        EXPECT_EQ(std::stoul(id, nullptr, 16), info->id) << name;
        EXPECT_EQ(type, kvhost::typeName(info->type)) << name;
        EXPECT_TRUE(info->fixedId);
    }
    EXPECT_GT(rows, 300u);
    size_t android = 0;
    for (const kvhost::TagInfo& t : kvhost::knownTags()) android += t.id < 0x80000000u ? 1 : 0;
    EXPECT_EQ(android, rows);

    const kvhost::TagInfo& afState = *kvhost::findTag("android.control.afState");
    EXPECT_EQ(kvhost::findEnum(afState, "PASSIVE_FOCUSED")->value, 2);
    EXPECT_STREQ(kvhost::enumName(afState, 6), "PASSIVE_UNFOCUSED");
    EXPECT_EQ(kvhost::enumName(afState, 7), nullptr);
    EXPECT_EQ(kvhost::findEnum(afState, "FOCUSED"), nullptr);
    const kvhost::TagInfo& antibanding = *kvhost::findTag("android.control.aeAntibandingMode");
    EXPECT_EQ(kvhost::findEnum(antibanding, "50HZ")->value, 1);   // a name that starts with digits
    EXPECT_FALSE(kvhost::findTag("kovani.flash.mode")->fixedId);  // its id is the table's own
}

TEST(HostTagTable, FreshIdsAreFreeAndStable) {
    uint32_t id = 0;
    ASSERT_EQ(kvhost::registerTagOnFreshId("hosttest.fresh.one", TagType::Float, &id), 0);
    EXPECT_EQ(id >> 16, 0x80FFu);
    EXPECT_EQ(kvhost::findTag(id), kvhost::findTag("hosttest.fresh.one"));
    uint32_t again = 0;
    EXPECT_EQ(kvhost::registerTagOnFreshId("hosttest.fresh.one", TagType::Float, &again), 0);
    EXPECT_EQ(again, id);
    EXPECT_EQ(kvhost::registerTagOnFreshId("hosttest.fresh.one", TagType::Byte, &again),
              kvhost::kExists);
    ASSERT_EQ(kvhost::registerTagOnFreshId("hosttest.fresh.two", TagType::Float, &again), 0);
    EXPECT_NE(again, id);
}

TEST(HostTagTable, UnknownNamesAndIdsAreNotFound) {
    EXPECT_EQ(kvhost::findTag(static_cast<const char*>(nullptr)), nullptr);
    EXPECT_EQ(kvhost::findTag(""), nullptr);
    EXPECT_EQ(kvhost::findTag("kovani.flash.mod"), nullptr);
    EXPECT_EQ(kvhost::findTag(0x8FFFFFFFu), nullptr);

    uint32_t tag = 0;
    EXPECT_EQ(KvMetadata::getTagFromName("android.sensor.timestamp", &tag), 0);
    EXPECT_EQ(tag, 0xE0010u);
    tag = 1234;
    EXPECT_EQ(KvMetadata::getTagFromName("no.such.tag", &tag), -2);
    EXPECT_NE(KvMetadata::getTagFromName(nullptr, &tag), 0);
    EXPECT_EQ(tag, 1234u) << "left untouched on failure";
    EXPECT_NE(KvMetadata::getTagFromName("kovani.flash.mode", nullptr), 0);
}

TEST(HostTagTable, RegistrationAcceptsNewAndIdenticalDefinitionsOnly) {
    const std::string name = "hosttest.registration.fresh";
    const uint32_t id = 0x8FF00001;
    ASSERT_EQ(kvhost::registerTag(name, id, TagType::Double), 0);
    EXPECT_EQ(kvhost::registerTag(name, id, TagType::Double), 0);  // the same again
    EXPECT_NE(kvhost::registerTag(name, 0x8FF00002, TagType::Double), 0);
    EXPECT_NE(kvhost::registerTag("hosttest.registration.other", id, TagType::Double), 0);
    EXPECT_NE(kvhost::registerTag(name, id, TagType::Int32), 0);
    EXPECT_NE(kvhost::registerTag("kovani.flash.mode", 0x8FF00003, TagType::Int32), 0);
    EXPECT_NE(kvhost::registerTag("hosttest.registration.android", 0xD0000, TagType::Int32), 0);
    EXPECT_NE(kvhost::registerTag("", 0x8FF00004, TagType::Byte), 0);
    EXPECT_NE(kvhost::registerTag("hosttest.registration.bad", 0x8FF00005, TagType(9)), 0);
    // Nothing of the refused definitions got in.
    EXPECT_EQ(kvhost::findTag(name.c_str())->type, TagType::Double);
    EXPECT_EQ(kvhost::findTag(0x8FF00002u), nullptr);
    EXPECT_EQ(kvhost::findTag("hosttest.registration.other"), nullptr);
    EXPECT_EQ(kvhost::findTag("hosttest.registration.android"), nullptr);
    EXPECT_EQ(kvhost::findTag(0xD0000u)->name, "android.scaler.cropRegion");
    EXPECT_EQ(kvhost::findTag("kovani.flash.mode")->type, TagType::Int32);
    EXPECT_EQ(kvhost::findTag(0x8FF00003u), nullptr);
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
            // Bounded: the reader-preferring lock may hold the writer back.
            for (int n = 0; n < 2000 && !done.load(); ++n) {
                const kvhost::TagInfo* b = kvhost::findTag(0xD0000u);
                if (kvhost::findTag("kovani.flash.mode") != flash || b == nullptr ||
                    b->name != "android.scaler.cropRegion") {
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
    const char* names[] = {"byte", "int32", "float", "int64", "double", "rational", "unknown"};
    const size_t sizes[] = {1, 4, 4, 8, 8, 8, 0};
    for (int t = 0; t < 7; ++t) {
        EXPECT_STREQ(kvhost::typeName(static_cast<TagType>(t)), names[t]);
        EXPECT_EQ(kvhost::typeSize(static_cast<TagType>(t)), sizes[t]) << names[t];
    }
}

// ---- Metadata container ------------------------------------------------------

// A built-in tag of each element type, and a payload of that type.
struct TypedCase {
    const char* tagName;
    TagType type;
    std::vector<uint8_t> raw;
    size_t count;
};

template <typename T>
TypedCase Typed(const char* name, TagType type, std::vector<T> values) {
    std::vector<uint8_t> raw(values.size() * sizeof(T));
    std::memcpy(raw.data(), values.data(), raw.size());
    return TypedCase{name, type, raw, values.size()};
}

class HostMetadata : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        // No tag of the library is a double; a test tag stands in for one.
        ASSERT_EQ(kvhost::registerTag("hosttest.double", 0x8FF00100, TagType::Double), 0);
    }
    static std::vector<TypedCase> Cases() {
        return {
            Typed<uint8_t>("kovani.snapshot.imageName", TagType::Byte, {0x7F, 0x01, 0xFE}),
            Typed<int32_t>("kovani.hdr.gtm.curve", TagType::Int32, {-1, 2, 0x7FFFFFFF, 4, 5}),
            Typed<float>("com.qti.sensorbps.gain", TagType::Float, {1.5f, -0.25f}),
            Typed<int64_t>("kovani.mfnr.anchorTimeStamp", TagType::Int64, {-5, 0x123456789A}),
            Typed<double>("hosttest.double", TagType::Double, {3.25}),
            Typed<camera_metadata_rational_t>("kovani.supernight.color.correction.transform",
                                              TagType::Rational, {{1, 2}, {-3, 4}, {5, -6}}),
        };
    }

    std::shared_ptr<Metadata> md = Metadata::create();
};

TEST_F(HostMetadata, PutsRoundTripByIdAndNameAndRefuseOtherTypes) {
    const std::vector<uint8_t> buffer(64, 0x11);
    for (const TypedCase& c : Cases()) {
        SCOPED_TRACE(c.tagName);
        const uint32_t id = IdOf(c.tagName);
        auto byId = Metadata::create();
        ASSERT_EQ(byId->put(id, c.type, c.raw.data(), c.count), 0);
        const camera_metadata_ro_entry_t e = byId->find(id);
        EXPECT_EQ(e.index, 0u);
        EXPECT_EQ(e.tag, id);
        EXPECT_EQ(e.type, static_cast<uint8_t>(c.type));
        ASSERT_EQ(e.count, c.count);
        EXPECT_EQ(Payload(e, c.raw.size()), c.raw);
        EXPECT_EQ(byId->find(c.tagName).data.u8, e.data.u8) << "name and id reach one entry";

        auto byName = Metadata::create();
        ASSERT_EQ(byName->put(c.tagName, c.type, c.raw.data(), c.count), 0);
        EXPECT_EQ(byName->tags(), std::vector<uint32_t>{id});
        EXPECT_EQ(Payload(byName->find(id), c.raw.size()), c.raw);

        for (int other = 0; other < 6; ++other) {
            if (other == static_cast<int>(c.type)) continue;
            const TagType t = static_cast<TagType>(other);
            EXPECT_EQ(byId->put(id, t, buffer.data(), 2), kvhost::kInvalid) << other;
            EXPECT_EQ(byId->put(c.tagName, t, buffer.data(), 2), kvhost::kInvalid) << other;
        }
        const camera_metadata_ro_entry_t after = byId->find(id);
        EXPECT_EQ(after.data.u8, e.data.u8);
        EXPECT_EQ(after.count, c.count);
        EXPECT_EQ(Payload(after, c.raw.size()), c.raw);
        EXPECT_EQ(byId->size(), 1u);
    }
    // The typed forms reach the same entries.
    EXPECT_EQ(md->putInt32("kovani.flash.mode", {3}), 0);
    EXPECT_EQ(md->putBytes(0x10020u, buffer.data(), 1), 0);
    EXPECT_EQ(md->putInt64(0xE0010u, {4}), 0);
    EXPECT_EQ(md->putFloat("com.qti.sensorbps.gain", {1.0f}), 0);
    EXPECT_EQ(md->putRational("kovani.supernight.color.correction.transform", {{1, 1}}), 0);
    EXPECT_NE(md->putInt32(0xE0010u, {4}), 0);
    EXPECT_EQ(md->size(), 5u);
}

TEST_F(HostMetadata, UnknownTagsMissingDataAndOtherTypesAreRefused) {
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

    ASSERT_EQ(md->putInt32("kovani.flash.mode", {1}), 0);
    for (const camera_metadata_ro_entry_t& e :
         {md->find(0xD0000u), md->find(0x8FFFFFF0u), md->find("kovani.snapshot.fwkCameraId"),
          md->find("no.such.tag"), md->find(static_cast<const char*>(nullptr))}) {
        EXPECT_EQ(e.count, 0u);
        EXPECT_EQ(e.data.u8, nullptr);
    }
    md->clear();
    // Each update overload checks the tag's declared type.
    const float f[2] = {1.0f, 2.0f};
    const int32_t i[2] = {3, 4};
    const uint8_t b[2] = {5, 6};
    const uint32_t floatTag = IdOf("com.kovani.3AAlgo.awbHazeRatio");
    const uint32_t intTag = IdOf("com.kovani.3AAlgo.aecAItoneFlag");
    const uint32_t byteTag = IdOf("kovani.telefusion.enabled");
    KvMetadata& m = *md;
    EXPECT_EQ(m.update(intTag, f, 2), kvhost::kInvalid);
    EXPECT_EQ(m.update(byteTag, f, 2), kvhost::kInvalid);
    EXPECT_EQ(m.update(floatTag, i, 2), kvhost::kInvalid);
    EXPECT_EQ(m.update(0xE0010, i, 2), kvhost::kInvalid);  // int64
    EXPECT_EQ(m.update(intTag, b, 2), kvhost::kInvalid);
    EXPECT_EQ(md->size(), 0u);
    ASSERT_EQ(m.update(floatTag, f, 2), 0);
    ASSERT_EQ(m.update(intTag, i, 2), 0);
    ASSERT_EQ(m.update(byteTag, b, 2), 0);
    EXPECT_EQ(std::memcmp(md->find(floatTag).data.f, f, sizeof f), 0);
    EXPECT_EQ(std::memcmp(md->find(intTag).data.i32, i, sizeof i), 0);
    EXPECT_EQ(std::memcmp(md->find(byteTag).data.u8, b, sizeof b), 0);
}

TEST_F(HostMetadata, PayloadBlocksAreAlignedZeroPaddedAndAtLeastOneWord) {
    // Readers load whole words past the payload (a 32-bit read of a one-byte
    // tag); under AddressSanitizer this reads every byte the block promises.
    const std::vector<uint8_t> fill(17 * 8, 0xAB);
    for (const TypedCase& c : Cases()) {
        const size_t elementSize = kvhost::typeSize(c.type);
        for (size_t count = 0; count <= 17; ++count) {
            SCOPED_TRACE(std::string(c.tagName) + " count " + std::to_string(count));
            auto meta = Metadata::create();
            // Replacing a larger entry leaves no trace of it.
            ASSERT_EQ(
                meta->put(IdOf(c.tagName), c.type, std::vector<uint8_t>(200, 0xCD).data(), 16), 0);
            ASSERT_EQ(meta->put(IdOf(c.tagName), c.type, fill.data(), count), 0);
            const camera_metadata_ro_entry_t e = meta->find(IdOf(c.tagName));
            ASSERT_EQ(e.count, count);
            ASSERT_NE(e.data.u8, nullptr);
            EXPECT_TRUE(Aligned8(e.data.u8));
            EXPECT_EQ(meta->size(), 1u);
            const size_t payload = count * elementSize;
            const size_t block = std::max<size_t>(8, (payload + 7) / 8 * 8);
            for (size_t i = 0; i < block; ++i) {
                ASSERT_EQ(e.data.u8[i], i < payload ? 0xAB : 0x00) << "byte " << i;
            }
        }
    }
}

TEST_F(HostMetadata, CountZeroEntriesArePresentWithAnEmptyBlock) {
    for (const TypedCase& c : Cases()) {
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
            EXPECT_EQ(meta->tags(), std::vector<uint32_t>{id});
            EXPECT_NE(meta->find(c.tagName).data.u8, nullptr);
        }
        EXPECT_TRUE(byId->erase(id));
        EXPECT_EQ(byId->find(id).data.u8, nullptr);
    }
    // Through KvMetadata::update with count 0 as well.
    const float none = 0;
    ASSERT_EQ(md->update(IdOf("com.qti.sensorbps.gain"), &none, 0), 0);
    const camera_metadata_ro_entry_t e = md->find("com.qti.sensorbps.gain");
    EXPECT_EQ(e.count, 0u);
    EXPECT_NE(e.data.f, nullptr);
}

TEST_F(HostMetadata, PayloadPointerSurvivesChangesToEveryOtherEntry) {
    const uint32_t kept = IdOf("kovani.flash.mode");
    ASSERT_EQ(md->putInt32(kept, {42, 43}), 0);
    const int32_t* const p = md->find(kept).data.i32;
    ASSERT_NE(p, nullptr);
    auto check = [&](const char* phase) {
        const camera_metadata_ro_entry_t e = md->find(kept);
        EXPECT_EQ(e.data.i32, p) << phase;
        EXPECT_EQ(p[0], 42) << phase;
        EXPECT_EQ(p[1], 43) << phase;
    };
    // Every other known tag, below and above the kept one, inserted, then
    // replaced with a larger payload, then half of them erased.
    const std::vector<uint8_t> zeros(256, 0);
    const std::vector<kvhost::TagInfo> all = kvhost::knownTags();
    for (size_t n : {1, 16}) {
        for (const kvhost::TagInfo& t : all) {
            ASSERT_TRUE(t.id == kept || md->put(t.id, t.type, zeros.data(), n) == 0) << t.name;
        }
        check(n == 1 ? "after inserting" : "after replacing");
    }
    size_t erased = 0;
    for (size_t i = 0; i < all.size(); i += 2) {
        if (all[i].id == kept) continue;
        EXPECT_TRUE(md->erase(all[i].id)) << all[i].name;
        ++erased;
    }
    check("after erasing");
    EXPECT_EQ(md->size(), all.size() - erased);
}

TEST_F(HostMetadata, FindPositionEraseAndClone) {
    ASSERT_EQ(md->putInt32("kovani.flash.mode", {6}), 0);
    ASSERT_EQ(md->putInt32(0xD0000, {1, 2, 3, 4}), 0);
    ASSERT_EQ(md->putInt64(0xE0010, {5}), 0);
    EXPECT_EQ(md->tags(), (std::vector<uint32_t>{0xD0000, 0xE0010, IdOf("kovani.flash.mode")}));
    EXPECT_EQ(md->find(0xE0010u).index, 1u);
    EXPECT_EQ(md->find(0xE0010u).type, static_cast<uint8_t>(TagType::Int64));
    EXPECT_EQ(md->find("kovani.flash.mode").index, 2u);
    const int32_t* crop = md->find(0xD0000u).data.i32;
    const int32_t* flash = md->find("kovani.flash.mode").data.i32;

    EXPECT_TRUE(md->erase(0xE0010u));
    EXPECT_FALSE(md->erase(0xE0010u)) << "already gone";
    EXPECT_FALSE(md->erase(0x8FFFFFF0u));
    EXPECT_FALSE(md->erase("no.such.tag"));
    EXPECT_FALSE(md->erase("kovani.snapshot.fwkCameraId")) << "known but absent";
    EXPECT_EQ(md->find(0xE0010u).data.u8, nullptr);
    EXPECT_EQ(md->find(0xD0000u).data.i32, crop);
    EXPECT_EQ(md->find("kovani.flash.mode").data.i32, flash);
    EXPECT_EQ(md->find("kovani.flash.mode").index, 1u);

    EXPECT_TRUE(md->erase("kovani.flash.mode"));
    EXPECT_EQ(md->tags(), std::vector<uint32_t>{0xD0000});

    // A clone is a deep, independent copy, empty entries included.
    ASSERT_EQ(md->putEmpty("kovani.hdr.enabled"), 0);
    auto copy = md->clone();
    EXPECT_EQ(copy->tags(), md->tags());
    EXPECT_NE(copy->find(0xD0000u).data.i32, crop);
    EXPECT_EQ(Payload(copy->find(0xD0000u), 16), Payload(md->find(0xD0000u), 16));
    EXPECT_NE(copy->find("kovani.hdr.enabled").data.u8, nullptr);
    md->clear();
    EXPECT_EQ(md->size(), 0u);
    EXPECT_EQ(md->find(0xD0000u).data.u8, nullptr);
    EXPECT_EQ(copy->find(0xD0000u).data.i32[3], 4);
}

TEST_F(HostMetadata, ReadersKeepTheirPayloadWhileWritersChangeOtherEntries) {
    ASSERT_EQ(md->putInt32("kovani.snapshot.fwkCameraId", {7}), 0);
    const int32_t* const p = md->find("kovani.snapshot.fwkCameraId").data.i32;
    std::atomic<int> badReads{0};
    std::vector<std::thread> threads;
    for (uint32_t tag : {0xD0000u, 0xF0000u}) {
        threads.emplace_back([&, tag] {
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
                const size_t crop = md->find(0xD0000u).count;
                if (crop != 0 && crop != 4) ++badReads;
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
    auto first = Metadata::create();
    auto second = Metadata::create();
    kvhost::setStaticMetadata(3, first);
    kvhost::setStaticMetadata(5, second);
    kvhost::setStaticMetadata(3, second);  // replaced
    EXPECT_EQ(wrapper->getStaticMetadata(3).get(), second.get());
    EXPECT_EQ(wrapper->getStaticMetadata(4), nullptr);
    kvhost::setStaticMetadata(3, nullptr);  // removed
    EXPECT_EQ(wrapper->getStaticMetadata(3), nullptr);
    EXPECT_EQ(wrapper->getStaticMetadata(5).get(), second.get());
    kvhost::clearStaticMetadata();
    EXPECT_EQ(wrapper->getStaticMetadata(5), nullptr);
    EXPECT_EQ(first.use_count(), 1);
    EXPECT_EQ(second.use_count(), 1) << "the registry let go of its references";
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

TEST_F(HostLog, FileNamesAndTheSettingsRecord) {
    // clang-format off
    const struct { const char* path; size_t offset; } rows[] = {
        {"external/odm/metadataUtils/MetaUtils.cpp", 27}, {"MetaUtils.cpp", 0}, {"/abs/x.h", 5},
        {"dir/", 4}, {"", 0}};
    // clang-format on
    for (const auto& row : rows) {
        EXPECT_EQ(__UtilsLog_NoDirFileName(row.path), row.path + row.offset) << row.path;
        EXPECT_EQ(kvdebug::Log::getFileName(row.path), row.path + row.offset) << row.path;
    }
    EXPECT_STREQ(__UtilsLog_NoDirFileName(nullptr), "");
    EXPECT_STREQ(kvdebug::Log::getFileName(nullptr), "");

    // The settings record holds the log tag inline at byte 72.
    UtilsSettings* settings = UtilsSettings_getter();
    ASSERT_NE(settings, nullptr);
    EXPECT_EQ(UtilsSettings_getter(), settings);
    EXPECT_EQ(reinterpret_cast<char*>(settings->logTag) - reinterpret_cast<char*>(settings), 72);
    EXPECT_STREQ(settings->logTag, "KvMetaUtils");
}

// Every field of a record, for whole-record comparisons.
auto Fields(const LogRecord& r) {
    return std::tie(r.sink, r.level, r.group, r.tag, r.file, r.line, r.func, r.letter, r.format,
                    r.text, r.priority);
}

TEST_F(HostLog, EverySinkRecordsItsArguments) {
    LogCapture capture;
    __UtilsLog_PintOnline(3, 64, "Tag", "MetaUtils.cpp", 77, "[%s][%s()]:[%d] v=%d %s",
                          "MetaUtils.cpp", "GetMetaData", 77, 5, "x");
    __UtilsLog_PintOffline(2, 64, "Tag", "f.cpp", 7, "off %d", 1);
    EXPECT_EQ(kvdebug::Log::catchLogEncryptLog(2, "MetaUtilsMtk.cpp", 12, "GetGyroData", 'I',
                                               "gyros size: %d", 3),
              0);
    kvhost::setDebugInterceptResult(5);
    EXPECT_EQ(kvdebug::Log::catchLogEncryptLog(2, "f.cpp", 1, "F", 'W', "x"), 5);
    // The debug offline sink takes the letter from the level text.
    const char* levels[] = {"V", "D", "I", "W", "Error", "F", "Q", ""};
    for (const char* level : levels) {
        kvdebug::Log::logSystem(2, level, "MetaUtilsMtk.cpp", "operator()", 40, "crop %d", 7);
    }
    const std::vector<LogRecord> r = capture.records();
    ASSERT_EQ(r.size(), 12u);
    const LogRecord expected[] = {
        {LogSink::Online, 3, 64, "Tag", "MetaUtils.cpp", 77, "", 0, "[%s][%s()]:[%d] v=%d %s",
         "[MetaUtils.cpp][GetMetaData()]:[77] v=5 x", 0},
        {LogSink::Offline, 2, 64, "Tag", "f.cpp", 7, "", 0, "off %d", "off 1", 0},
        {LogSink::DebugIntercept, 4, 2, "", "MetaUtilsMtk.cpp", 12, "GetGyroData", 'I',
         "gyros size: %d", "gyros size: 3", 0},
        {LogSink::DebugIntercept, 5, 2, "", "f.cpp", 1, "F", 'W', "x", "x", 0},
    };
    for (size_t i = 0; i < 4; ++i) EXPECT_EQ(Fields(r[i]), Fields(expected[i])) << i;
    const char letters[] = {'V', 'D', 'I', 'W', 'E', 'F', 'Q', 0};
    const unsigned numeric[] = {2, 3, 4, 5, 6, 7, 0, 0};
    for (size_t i = 0; i < 8; ++i) {
        // clang-format off
        const LogRecord e{LogSink::DebugOffline, numeric[i], 2, "", "MetaUtilsMtk.cpp", 40,
                          "operator()", letters[i], "crop %d", "crop 7", 0};
        // clang-format on
        EXPECT_EQ(Fields(r[4 + i]), Fields(e)) << levels[i];
    }
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

TEST_F(HostLog, RecordsKeepArrivalOrderAndNestedCapturesShareOneStore) {
    const int minimum = __android_log_get_minimum_priority();
    {
        LogCapture capture;
        EXPECT_EQ(__android_log_get_minimum_priority(), ANDROID_LOG_VERBOSE);
        __UtilsLog_PintOnline(1, 64, "Tag", "f.cpp", 1, "one");
        {
            LogCapture inner;
            __android_log_print(ANDROID_LOG_INFO, "Tag", "two");
            __UtilsLog_PintOffline(1, 64, "Tag", "f.cpp", 1, "three");
            EXPECT_EQ(inner.records().size(), 3u);
            EXPECT_EQ(kvhost::retainedLogRecords(), 3u);
        }
        // The inner capture's end neither stops recording nor gives liblog back.
        kvdebug::Log::catchLogEncryptLog(2, "f.cpp", 1, "F", 'I', "four");
        kvdebug::Log::logSystem(2, "I", "f.cpp", "F", 1, "five");
        __UtilsLog_PintOnline(1, 64, "Tag", "f.cpp", 1, "six");
        __android_log_write(ANDROID_LOG_DEBUG, "Tag", "seven %d");

        const std::vector<LogRecord> records = capture.records();
        ASSERT_EQ(records.size(), 7u);
        const LogSink order[] = {LogSink::Online,         LogSink::Android,      LogSink::Offline,
                                 LogSink::DebugIntercept, LogSink::DebugOffline, LogSink::Online,
                                 LogSink::Android};
        const char* texts[] = {"one", "two", "three", "four", "five", "six", "seven %d"};
        for (size_t i = 0; i < records.size(); ++i) {
            EXPECT_EQ(records[i].sink, order[i]) << i;
            EXPECT_EQ(records[i].text, texts[i]) << i;
        }
        // Android lines: the priority as level, no format, group, file or line.
        const LogRecord two{LogSink::Android, 4, 0, "Tag", "", 0, "", 0, "", "two", 4};
        EXPECT_EQ(Fields(records[1]), Fields(two));
        EXPECT_EQ(records[6].priority, ANDROID_LOG_DEBUG);
        EXPECT_EQ(capture.texts(LogSink::Online), (std::vector<std::string>{"one", "six"}));
        EXPECT_EQ(capture.records(LogSink::Offline).size(), 1u);
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
        EXPECT_EQ(kvhost::logEcho(), row.echo);
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
        EXPECT_EQ(capture ? capture->records().size() : 5u, 5u);
    }
}

// ---- Adapter call recorder -------------------------------------------------

TEST(HostAdapter, CallsAreKeptOnlyWhileARecorderLives) {
    using kvhost::AdapterOp;
    GetInstance()->init();
    EXPECT_EQ(kvhost::retainedAdapterCalls(), 0u);
    {
        const kvhost::AdapterRecorder outer;
        EXPECT_EQ(kvhost::retainedAdapterCalls(), 0u);
        GetInstance()->init();
        {
            // Shares the record, calls from before it included.
            const kvhost::AdapterRecorder inner;
            GetInstance()->getPlatformInfoHolder()->disableGyro("key", 7);
            const auto calls = inner.calls();
            ASSERT_EQ(calls.size(), 5u);
            EXPECT_EQ(calls[1].op, AdapterOp::Init);
            EXPECT_EQ(std::tie(calls[4].op, calls[4].key, calls[4].arg1),
                      std::make_tuple(AdapterOp::DisableGyro, std::string("key"), 7));
        }
        EXPECT_EQ(outer.calls(AdapterOp::GetInstance).size(), 2u);
        EXPECT_EQ(kvhost::retainedAdapterCalls(), 5u);
    }
    EXPECT_EQ(kvhost::retainedAdapterCalls(), 0u);
    GetInstance()->init();
    EXPECT_EQ(kvhost::retainedAdapterCalls(), 0u);
}

}  // namespace
}  // namespace kvhost_test
